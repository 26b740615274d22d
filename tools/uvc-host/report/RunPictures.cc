#include "report/RunPictures.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <iterator>

#include "media/FileUtil.h"
#include "media/JpegEncoder.h"
#include "media/OutputNaming.h"
#include "report/HtmlReport.h"

namespace uvc_host {

namespace {

constexpr int kThumbnailQuality = 80;

#ifndef UVC_HOST_VERSION
#define UVC_HOST_VERSION ""
#endif

// This process's arguments as a shell would take them again. The tool runs
// on Linux workstations and boards, where /proc has them as given.
std::string commandLine() {
    std::ifstream in("/proc/self/cmdline", std::ios::binary);
    std::string raw((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::string line;
    for (size_t at = 0; at < raw.size();) {
        size_t end = raw.find('\0', at);
        end = end == std::string::npos ? raw.size() : end;
        line += (line.empty() ? "" : " ") + shellQuote(raw.substr(at, end - at));
        at = end + 1;
    }
    return line;
}

std::string localTimeNow() {
    std::time_t now = std::time(nullptr);
    std::tm local{};
    char text[64] = "";
    if (localtime_r(&now, &local)) {
        std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S %z", &local);
    }
    return text;
}

}  // namespace

RunPictures::RunPictures(const StreamOptions& options) : options_(options) {
    // Spread the pictures over the run as far as its length is known.
    double expected =
        options.frames > 0 ? double(options.frames) : options.durationSec * options.fps;
    every_ = std::max<uint64_t>(1, uint64_t(expected / kThumbnails));
}

bool RunPictures::prepare(std::string* error) {
    header_ = {commandLine(), localTimeNow(), UVC_HOST_VERSION};
    if (!options_.reportDir.empty() && !makeDirectories(options_.reportDir + "/frames", error)) {
        return false;
    }
    if (!options_.timingFile.empty()) {
        FILE* f = std::fopen(options_.timingFile.c_str(), "w");
        if (!f) {
            *error = "cannot write " + options_.timingFile + ": " + std::strerror(errno);
            return false;
        }
        std::fclose(f);
    }
    return true;
}

void RunPictures::onFrame(StreamKey key, uint64_t index, const uint8_t* data, uint32_t size) {
    if (options_.reportDir.empty() || !data || size == 0) {
        return;
    }
    if (options_.format->kind == FormatKind::H264) {
        std::unique_ptr<FrameWriter>& w = h264_[key];
        std::string unused;
        if (!w) {
            w = std::make_unique<FrameWriter>();
            w->open(options_.reportDir + "/" + streamFile(key, ".h264"), *options_.format,
                    options_.size, &unused);
        }
        w->write(data, size);
        return;
    }
    if (index % every_ != 0) {
        return;
    }
    auto& kept = kept_[key];
    if (kept.size() < kThumbnails) {
        kept.emplace_back(index, std::vector<uint8_t>(data, data + size));
    }
}

std::string RunPictures::streamFile(StreamKey key, const std::string& suffix) const {
    return "frames/stream-" + std::to_string(key.id) + "_" + std::to_string(key.idx) + suffix;
}

void RunPictures::decodeH264(std::vector<Thumbnail>* thumbnails) {
    std::string ffmpeg = findOnPath("ffmpeg");
    for (auto& [key, writer] : h264_) {
        std::string unused;
        writer->close(&unused);
        std::string stream = options_.reportDir + "/" + streamFile(key, ".h264");
        std::string pattern = options_.reportDir + "/" + streamFile(key, "-picture%d.jpg");
        // Every every_-th picture, as for the other formats.
        std::string command = shellQuote(ffmpeg) + " -hide_banner -loglevel quiet -y -f h264 -i " +
                              shellQuote(stream) + " -vf " +
                              shellQuote("select=not(mod(n\\," + std::to_string(every_) + "))") +
                              " -vsync vfr -frames:v " + std::to_string(kThumbnails) + " -q:v 5 " +
                              shellQuote(pattern) + " </dev/null >/dev/null 2>&1";
        if (!ffmpeg.empty() && std::system(command.c_str()) == 0) {
            for (size_t i = 1; i <= kThumbnails; ++i) {
                uint64_t index = (i - 1) * every_;
                std::string from = options_.reportDir + "/" +
                                   streamFile(key, "-picture" + std::to_string(i) + ".jpg");
                Thumbnail t{key, index, streamFile(key, "-frame" + std::to_string(index) + ".jpg")};
                if (std::rename(from.c_str(), (options_.reportDir + "/" + t.file).c_str()) == 0) {
                    thumbnails->push_back(t);
                }
            }
        }
        std::remove(stream.c_str());
    }
}

bool RunPictures::write(const RunReport& report, const std::vector<StreamTrace>& traces,
                        std::vector<std::string>* notes, std::string* error) {
    if (!options_.timingFile.empty()) {
        if (!writeTiming(options_.timingFile, traces, error)) {
            return false;
        }
        notes->push_back("timing: " + options_.timingFile);
    }
    if (options_.reportDir.empty()) {
        return true;
    }
    std::vector<Thumbnail> thumbnails;
    JpegEncoder encoder;
    for (const auto& [key, frames] : kept_) {
        for (const auto& [index, bytes] : frames) {
            Thumbnail t{key, index, streamFile(key, "-frame" + std::to_string(index) + ".jpg")};
            std::vector<uint8_t> jpeg;
            const std::vector<uint8_t>* picture = &bytes;
            std::string why;
            if (options_.format->kind == FormatKind::Raw) {
                if (!encoder.encodeFrame(*options_.format, options_.size, bytes.data(),
                                         bytes.size(), kThumbnailQuality, &jpeg, &why)) {
                    continue;  // a frame of the wrong length has no picture
                }
                picture = &jpeg;
            }
            if (!writeFile(options_.reportDir + "/" + t.file, picture->data(), picture->size(),
                           error)) {
                return false;
            }
            thumbnails.push_back(t);
        }
    }
    decodeH264(&thumbnails);
    if (!writeHtmlReport(options_.reportDir, report, header_, traces, thumbnails, error)) {
        return false;
    }
    notes->push_back("report: " + options_.reportDir + "/index.html");
    return true;
}

}  // namespace uvc_host
