#include "uvc/ConfigfsFunction.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <utility>

#include <android/log.h>

#include "uvc/ControlTable.h"

namespace uvc_gadget {

namespace fs = std::filesystem;

namespace {

const char kTag[] = "UvcGadget";

// The tail every uncompressed-format GUID shares after its FourCC.
const uint8_t kGuidTail[12] = {0x00, 0x00, 0x10, 0x00, 0x80, 0x00,
                               0x00, 0xaa, 0x00, 0x38, 0x9b, 0x71};

bool readFile(const fs::path& path, std::string& text) {
    std::ifstream in(path, std::ios::binary);
    if (!in)
        return false;
    text.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    // configfs reports an attribute it cannot show now (an index before the
    // format is linked) as a failed read.
    return !in.bad();
}

// Every whitespace-separated unsigned number of an attribute, in order.
bool readNumbers(const fs::path& path, std::vector<uint32_t>& values) {
    std::string text;
    if (!readFile(path, text))
        return false;
    values.clear();
    std::istringstream in(text);
    std::string word;
    while (in >> word) {
        char* end = nullptr;
        errno = 0;
        const unsigned long long v = strtoull(word.c_str(), &end, 0);
        if (errno != 0 || end == word.c_str() || *end != '\0' || v > UINT32_MAX)
            return false;
        values.push_back(static_cast<uint32_t>(v));
    }
    return !values.empty();
}

bool readNumber(const fs::path& path, uint32_t& value) {
    std::vector<uint32_t> values;
    if (!readNumbers(path, values) || values.size() != 1)
        return false;
    value = values[0];
    return true;
}

template <typename T>
void readOptional(const fs::path& path, T& value) {
    uint32_t v = 0;
    if (readNumber(path, v))
        value = static_cast<T>(v);
}

std::vector<fs::path> subdirectories(const fs::path& dir) {
    std::vector<fs::path> dirs;
    std::error_code ec;
    for (fs::directory_iterator it(dir, ec), end; !ec && it != end; it.increment(ec)) {
        if (it->is_directory(ec))
            dirs.push_back(it->path());
    }
    std::sort(dirs.begin(), dirs.end());
    return dirs;
}

// 0 when the GUID names no format this bridge streams.
uint32_t fourccOfGuid(const std::string& guid) {
    if (guid.size() < 16 || !std::equal(kGuidTail, kGuidTail + 12, guid.begin() + 4,
                                        [](uint8_t a, char b) { return a == uint8_t(b); }))
        return 0;
    const std::string code = guid.substr(0, 4);
    if (code == "YUY2")
        return fourcc('Y', 'U', 'Y', 'V');
    if (code == "NV12")
        return fourcc('N', 'V', '1', '2');
    if (code == "I420")
        return fourcc('Y', 'U', '1', '2');
    return 0;
}

std::string fourccName(uint32_t code) {
    return {char(code & 0xff), char(code >> 8 & 0xff), char(code >> 16 & 0xff), char(code >> 24)};
}

// Drops the intervals at which an uncompressed frame needs more than the
// endpoint carries, one warning each: a host offered them would get fewer
// frames than it asked for. Compressed frames vary in size; what they need
// is the encoder's to keep.
void keepCarried(const fs::path& dir, uint32_t fourcc, const StreamingEndpoint& endpoint,
                 FrameDesc& frame) {
    auto carried = [&](uint32_t interval) {
        if (endpoint.carries(frame.maxFrameSize, interval))
            return true;
        const double needed = double(endpoint.payloadNeeded(frame.maxFrameSize, interval));
        __android_log_print(ANDROID_LOG_WARN, kTag,
                            "%s: %s %ux%u at %.2f fps needs %.2f MB/s, the streaming endpoint "
                            "carries %.2f MB/s; not offered",
                            dir.c_str(), fourccName(fourcc).c_str(), frame.width, frame.height,
                            1e7 / interval, needed / 1e6, endpoint.payloadPerSecond() / 1e6);
        return false;
    };
    frame.intervals.erase(
        std::stable_partition(frame.intervals.begin(), frame.intervals.end(), carried),
        frame.intervals.end());
}

bool unusable(const fs::path& dir) {
    __android_log_print(ANDROID_LOG_WARN, kTag, "%s: frame not usable, skipped", dir.c_str());
    return false;
}

// False when the frame is not offered: unreadable, or none of its intervals
// carried (each said why).
bool readFrame(const fs::path& dir, uint32_t fourcc, uint32_t bitsPerPixel,
               const StreamingEndpoint& endpoint, FrameDesc& frame) {
    uint32_t index = 0, width = 0, height = 0;
    if (!readNumber(dir / "bFrameIndex", index) || index == 0 || index > 255 ||
        !readNumber(dir / "wWidth", width) || !readNumber(dir / "wHeight", height) || width == 0 ||
        height == 0 || width > UINT16_MAX || height > UINT16_MAX ||
        !readNumbers(dir / "dwFrameInterval", frame.intervals))
        return unusable(dir);
    frame.index = static_cast<uint8_t>(index);
    frame.width = static_cast<uint16_t>(width);
    frame.height = static_cast<uint16_t>(height);
    std::sort(frame.intervals.begin(), frame.intervals.end());
    frame.intervals.erase(std::remove(frame.intervals.begin(), frame.intervals.end(), 0u),
                          frame.intervals.end());
    const std::vector<uint32_t> declared = frame.intervals;
    if (bitsPerPixel != 0) {
        frame.maxFrameSize = static_cast<uint32_t>(uint64_t(width) * height * bitsPerPixel / 8);
        keepCarried(dir, fourcc, endpoint, frame);
        if (frame.intervals.empty() && !declared.empty())
            return false;  // said why already
    } else {
        readOptional(dir / "dwMaxVideoFrameBufferSize", frame.maxFrameSize);
    }
    if (frame.intervals.empty() || frame.maxFrameSize == 0)
        return unusable(dir);
    // configfs takes any default, 0 included, and the host is told it as is;
    // the bridge answers with the declared interval nearest to it (so it
    // does, silently, for a default the bus cannot carry).
    uint32_t wantedDefault = frame.intervals.front();
    readOptional(dir / "dwDefaultFrameInterval", wantedDefault);
    frame.defaultInterval = frame.nearestInterval(wantedDefault);
    if (std::find(declared.begin(), declared.end(), wantedDefault) == declared.end())
        __android_log_print(ANDROID_LOG_WARN, kTag,
                            "%s: default interval %u is none of the frame's; using %u", dir.c_str(),
                            wantedDefault, frame.defaultInterval);
    return true;
}

// False when the directory is not a declared format (not linked, or unknown).
bool readFormat(const fs::path& dir, bool compressed, const StreamingEndpoint& endpoint,
                FormatDesc& format) {
    uint32_t index = 0;
    if (!readNumber(dir / "bFormatIndex", index) || index == 0 || index > 255)
        return false;
    uint32_t bitsPerPixel = 0;
    if (compressed) {
        format.fourcc = fourcc('M', 'J', 'P', 'G');
    } else {
        std::string guid;
        if (!readFile(dir / "guidFormat", guid) || (format.fourcc = fourccOfGuid(guid)) == 0 ||
            !readNumber(dir / "bBitsPerPixel", bitsPerPixel) || bitsPerPixel == 0) {
            __android_log_print(ANDROID_LOG_WARN, kTag, "%s: format not supported, skipped",
                                dir.c_str());
            return false;
        }
    }
    format.index = static_cast<uint8_t>(index);
    format.compressed = compressed;
    readOptional(dir / "bDefaultFrameIndex", format.defaultFrameIndex);
    for (const fs::path& frameDir : subdirectories(dir)) {
        FrameDesc frame;
        if (readFrame(frameDir, format.fourcc, bitsPerPixel, endpoint, frame))
            format.frames.push_back(std::move(frame));
    }
    std::sort(format.frames.begin(), format.frames.end(),
              [](const FrameDesc& a, const FrameDesc& b) { return a.index < b.index; });
    if (format.frame(format.defaultFrameIndex) == nullptr && !format.frames.empty())
        format.defaultFrameIndex = format.frames.front().index;
    return !format.frames.empty();
}

}  // namespace

ConfigfsFunction::ConfigfsFunction(std::string functionDir) : dir_(std::move(functionDir)) {}

bool ConfigfsFunction::load(GadgetFunction& function, std::string& error) {
    const fs::path root(dir_);
    std::error_code ec;
    if (!fs::is_directory(root / "streaming", ec)) {
        error = dir_ + ": not a UVC function directory";
        return false;
    }
    GadgetFunction result;
    readOptional(root / "control" / "bInterfaceNumber", result.controlInterface);
    readOptional(root / "streaming" / "bInterfaceNumber", result.streamingInterface);
    readOptional(root / "control/terminal/camera/default/bTerminalID", result.cameraTerminalId);
    readOptional(root / "control/processing/default/bUnitID", result.processingUnitId);
    // The unit is found by its GUID: configfs numbers units in the order
    // they were made, and a function may declare other vendors' units.
    for (const fs::path& unit : subdirectories(root / "control" / "extensions")) {
        std::string guid;
        if (readFile(unit / "guidExtensionCode", guid) && guid.size() == sizeof(kExtensionGuid) &&
            std::equal(guid.begin(), guid.end(), kExtensionGuid,
                       [](char a, uint8_t b) { return uint8_t(a) == b; }))
            readOptional(unit / "bUnitID", result.extensionUnitId);
    }
    for (const fs::path& header : subdirectories(root / "control" / "header"))
        readOptional(header / "bcdUVC", result.uvcVersion);
    // The function's own defaults when the attributes cannot be read.
    uint32_t maxPacket = 1024, interval = 1;
    readOptional(root / "streaming_maxpacket", maxPacket);
    readOptional(root / "streaming_interval", interval);
    result.endpoint = StreamingEndpoint::fromAttributes(maxPacket, interval);

    for (const auto& [kind, compressed] : {std::pair<const char*, bool>{"uncompressed", false},
                                           std::pair<const char*, bool>{"mjpeg", true}}) {
        for (const fs::path& dir : subdirectories(root / "streaming" / kind)) {
            FormatDesc format;
            if (readFormat(dir, compressed, result.endpoint, format))
                result.formats.push_back(std::move(format));
        }
    }
    std::sort(result.formats.begin(), result.formats.end(),
              [](const FormatDesc& a, const FormatDesc& b) { return a.index < b.index; });
    if (result.formats.empty()) {
        error = dir_ + ": no format is linked into the streaming header";
        return false;
    }
    function = std::move(result);
    return true;
}

}  // namespace uvc_gadget
