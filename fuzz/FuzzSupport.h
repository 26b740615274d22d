#pragma once

// Helpers shared by the fuzz targets.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace fuzz {

// Inputs longer than this are ignored: the targets look for faults in how
// a message or a frame is read, not in how much memory a huge one takes.
constexpr size_t kMaxInputBytes = 4096;

// The code under test prints a few lines per call; libFuzzer reports on
// standard error, so standard output goes to /dev/null.
inline void silenceStandardOutput() {
    if (std::freopen("/dev/null", "w", stdout) == nullptr) {
        std::abort();
    }
}

// Reports a broken property and stops the run as a crash, with the input
// saved by libFuzzer.
#define FUZZ_CHECK(cond, ...)                                       \
    do {                                                            \
        if (!(cond)) {                                              \
            std::fprintf(stderr, "FUZZ_CHECK failed: %s: ", #cond); \
            std::fprintf(stderr, __VA_ARGS__);                      \
            std::fprintf(stderr, "\n");                             \
            std::abort();                                           \
        }                                                           \
    } while (0)

// Takes values from the front of a fuzz input; 0 once it is used up.
class ByteReader {
public:
    ByteReader(const uint8_t* data, size_t size) : data_(data), size_(size) {}
    uint8_t byte() { return pos_ < size_ ? data_[pos_++] : 0; }
    uint16_t word() { return static_cast<uint16_t>(byte() | byte() << 8); }
    const uint8_t* rest() const { return data_ + pos_; }
    size_t restSize() const { return size_ - pos_; }

private:
    const uint8_t* data_;
    size_t size_;
    size_t pos_ = 0;
};

}  // namespace fuzz
