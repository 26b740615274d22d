#include "media/AnnexBSplitter.h"

namespace uvc_host {

namespace {

struct Nal {
    size_t begin;    // first byte of its start code
    size_t payload;  // first byte after the start code (the NAL header)
};

std::vector<Nal> findNals(const std::vector<uint8_t>& s) {
    std::vector<Nal> nals;
    for (size_t i = 0; i + 2 < s.size(); ++i) {
        if (s[i] == 0 && s[i + 1] == 0 && s[i + 2] == 1) {
            size_t begin = i > 0 && s[i - 1] == 0 ? i - 1 : i;
            if (!nals.empty() && begin < nals.back().payload) {
                begin = i;
            }
            nals.push_back({begin, i + 3});
            i += 2;
        }
    }
    return nals;
}

}  // namespace

std::vector<std::vector<uint8_t>> splitAccessUnits(const std::vector<uint8_t>& stream) {
    std::vector<std::vector<uint8_t>> units;
    std::vector<Nal> nals = findNals(stream);
    std::vector<uint8_t> current;
    bool haveSlice = false;
    for (size_t n = 0; n < nals.size(); ++n) {
        size_t end = n + 1 < nals.size() ? nals[n + 1].begin : stream.size();
        size_t p = nals[n].payload;
        int type = p < end ? stream[p] & 0x1F : 0;
        bool slice = type == 1 || type == 5;
        // first_mb_in_slice is the first ue(v) of the slice header: the
        // value 0 is coded as a single 1 bit.
        bool firstSliceOfPicture = slice && p + 1 < end && (stream[p + 1] & 0x80);
        bool startsUnit = type == 6 || type == 7 || type == 8 || type == 9 || firstSliceOfPicture;
        if (haveSlice && startsUnit) {
            units.push_back(std::move(current));
            current.clear();
            haveSlice = false;
        }
        current.insert(current.end(), stream.begin() + long(nals[n].begin),
                       stream.begin() + long(end));
        haveSlice = haveSlice || slice;
    }
    if (!current.empty()) {
        units.push_back(std::move(current));
    }
    return units;
}

}  // namespace uvc_host
