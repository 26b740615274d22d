// Any text given to the JSON reader of the base library yields a record (or a
// list of records) without a crash, a leak or undefined behaviour, and what it
// reads survives a round trip: written out and read again, a record writes
// the same text, alone or as the one element of a list.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "FuzzSupport.h"
#include "base/Serialization.h"

using VOLUT::Serialization;

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzz::silenceStandardOutput();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > fuzz::kMaxInputBytes) {
        return 0;
    }
    const std::string text(reinterpret_cast<const char*>(data), size);

    const std::string written = Serialization::serialize(Serialization::deserialize(text));
    const std::string again = Serialization::serialize(Serialization::deserialize(written));
    FUZZ_CHECK(again == written, "round trip changed\n  %s\nto\n  %s", written.c_str(),
               again.c_str());

    const std::vector<VOLUT::Dictionary> list = Serialization::deserializeArray(text);
    const std::string listText = Serialization::serializeArray(list);
    FUZZ_CHECK(Serialization::serializeArray(Serialization::deserializeArray(listText)) == listText,
               "list round trip changed %s", listText.c_str());
    const std::vector<VOLUT::Dictionary> one = Serialization::deserializeArray("[" + written + "]");
    FUZZ_CHECK(one.size() == 1 && Serialization::serialize(one[0]) == written,
               "a record read as a list differs: %s", written.c_str());
    return 0;
}
