#include "session/StreamSession.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>

#include "cli/Interrupt.h"
#include "media/FileUtil.h"
#include "media/FrameFileLayout.h"
#include "media/JpegEncoder.h"
#include "media/OutputNaming.h"
#include "report/ProgressReporter.h"
#include "report/SummaryWriter.h"

namespace uvc_host {

namespace {

using Clock = std::chrono::steady_clock;

constexpr auto kEventTimeout = std::chrono::seconds(5);
constexpr auto kPollPeriod = std::chrono::milliseconds(20);
constexpr int kSavedJpegQuality = 90;
// Frames waiting to be written may take this much memory in all: about a
// second of 1280x720 YUYV at 30 fps, enough to ride out a disk's stalls.
constexpr uint64_t kQueueBudgetBytes = uint64_t(64) << 20;
constexpr size_t kMaxQueueDepth = 120;  // frames per output
// The client's own default frame root.
const char kDefaultFrameRoot[] = "/data/h264_frames";
constexpr int kStreamChangedStatus = 4;

double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

bool isStandardStream(const std::string& path) {
    return path == "-";
}

// RunPictures writes files only; timing records for standard output are
// written here.
StreamOptions picturesOptions(StreamOptions options) {
    if (isStandardStream(options.timingFile)) {
        options.timingFile.clear();
    }
    return options;
}

// The size of a frame to budget the write queue with; compressed frames
// are taken at one byte per pixel, more than the library's ever are.
uint64_t frameBytesEstimate(const StreamOptions& o) {
    uint64_t raw = o.format->rawFrameBytes(o.size.width, o.size.height);
    return raw > 0 ? raw : uint64_t(o.size.width) * o.size.height;
}

}  // namespace

StreamSession::StreamSession(const StreamOptions& options, UvcLinkFactory factory, HostIo io)
    : options_(options),
      factory_(std::move(factory)),
      io_(io),
      pictures_(picturesOptions(options)) {
    for (const StreamKey& key : options_.streams) {
        auto s = std::make_unique<Stream>();
        s->key = key;
        s->wanted = options_.saveFrames;
        if (options_.streams.size() > 1) {
            for (SaveFrameRequest& r : s->wanted) {
                r.path = perStreamPath(r.path, key);
            }
        }
        streams_.push_back(std::move(s));
    }
}

StreamSession::~StreamSession() = default;

bool StreamSession::checkFrameFiles() {
    if (!options_.framesDir.empty()) {
        struct stat st {};
        if (stat(options_.framesDir.c_str(), &st) != 0) {
            std::fprintf(io_.err, "uvc-host: cannot read frame directory %s: %s\n",
                         options_.framesDir.c_str(), std::strerror(errno));
            return false;
        }
        if (!S_ISDIR(st.st_mode) || access(options_.framesDir.c_str(), R_OK | X_OK) != 0) {
            std::fprintf(io_.err, "uvc-host: cannot read frame directory %s: %s\n",
                         options_.framesDir.c_str(),
                         S_ISDIR(st.st_mode) ? "permission denied" : "not a directory");
            return false;
        }
    }
    bool usesFiles = options_.format->kind == FormatKind::H264 ||
                     (options_.format->kind == FormatKind::Jpeg && !options_.jpeg &&
                      options_.camera.empty());
    if (usesFiles) {
        std::string root = options_.framesDir.empty() ? kDefaultFrameRoot : options_.framesDir;
        std::string first = frameFilePath(root, *options_.format, options_.size, 0);
        if (access(first.c_str(), R_OK) != 0) {
            std::fprintf(io_.err,
                         "uvc-host: warning: no frame file %s; frames will be empty "
                         "(make a set with: uvc-host frames make)\n",
                         first.c_str());
        }
    }
    return true;
}

bool StreamSession::openOutputs() {
    for (const SaveFrameRequest& r : options_.saveFrames) {
        if (isStandardStream(r.path) && isatty(fileno(io_.out))) {
            std::fprintf(io_.err,
                         "uvc-host: standard output is a terminal; pipe --save-frame N - into a "
                         "file or a viewer\n");
            return false;
        }
    }
    if (options_.output.empty()) {
        return true;
    }
    if (isStandardStream(options_.output) && isatty(fileno(io_.out))) {
        std::fprintf(io_.err,
                     "uvc-host: standard output is a terminal; pipe --output - into a player "
                     "or a file\n");
        return false;
    }
    for (auto& s : streams_) {
        std::string path =
            streams_.size() > 1 ? perStreamPath(options_.output, s->key) : options_.output;
        s->writer = std::make_unique<FrameWriter>();
        std::string error;
        if (!s->writer->open(path, *options_.format, options_.size, &error, io_.out)) {
            std::fprintf(io_.err, "uvc-host: %s\n", error.c_str());
            return false;
        }
    }
    return true;
}

void StreamSession::onFrame(const FrameEvent& frame) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (!accepting_) {
        return;
    }
    for (size_t i = 0; i < streams_.size(); ++i) {
        Stream* s = streams_[i].get();
        if (!(s->key == frame.key)) {
            continue;
        }
        if (options_.frames > 0 && s->stats.frames() >= options_.frames) {
            return;
        }
        uint64_t index = s->stats.frames();
        if (index == 0) {
            s->firstFrameSec = secondsSince(start_);
        }
        s->stats.record(frame.monotonicNs, frame.size);
        pictures_.onFrame(s->key, index, frame.data, frame.size);
        if (queue_ && frame.data) {
            queue_->push(i, frame.data, frame.size);  // a refusal is counted there
        }
        for (const SaveFrameRequest& r : s->wanted) {
            if (r.index == index) {
                const uint8_t* d = frame.data;
                s->captured.emplace_back(
                    index, d ? std::vector<uint8_t>(d, d + frame.size) : std::vector<uint8_t>());
            }
        }
        return;
    }
}

bool StreamSession::writeFrame(size_t stream, const uint8_t* data, size_t size) {
    FrameWriter& writer = *streams_[stream]->writer;
    if (writer.write(data, size)) {
        return true;
    }
    if (writer.closedByReader()) {
        outputClosed_ = true;
    }
    return false;
}

bool StreamSession::allComplete() const {
    if (options_.frames == 0) {
        return false;
    }
    for (const auto& s : streams_) {
        if (s->stats.frames() < options_.frames) {
            return false;
        }
    }
    return true;
}

void StreamSession::totals(uint64_t* frames, uint64_t* bytes) {
    *frames = *bytes = 0;
    for (const auto& s : streams_) {
        *frames += s->stats.frames();
        *bytes += s->stats.bytes();
    }
}

FILE* StreamSession::summaryStream() const {
    bool taken = isStandardStream(options_.output) || isStandardStream(options_.timingFile);
    for (const SaveFrameRequest& r : options_.saveFrames) {
        taken = taken || isStandardStream(r.path);
    }
    return taken ? io_.err : io_.out;
}

int StreamSession::run() {
    if (!checkFrameFiles() || !openOutputs()) {
        return kExitFailed;
    }
    std::string error;
    if (!pictures_.prepare(&error)) {
        std::fprintf(io_.err, "uvc-host: %s\n", error.c_str());
        return kExitFailed;
    }
    LinkSettings settings;
    settings.framesRoot = options_.framesDir;
    settings.verbose = options_.verbose;
    settings.synthesiseJpeg = options_.jpeg;
    settings.captureDevice = options_.camera;
    settings.copyFrameBytes =
        !options_.output.empty() || !options_.saveFrames.empty() || !options_.reportDir.empty();
    std::unique_ptr<UvcLink> link = factory_(settings);
    link->setFrameSink([this](const FrameEvent& f) { onFrame(f); });
    if (!options_.output.empty()) {
        size_t depth = WriteQueue::depthFor(frameBytesEstimate(options_), streams_.size(),
                                            kQueueBudgetBytes, kMaxQueueDepth);
        queue_ = std::make_unique<WriteQueue>(
            streams_.size(), depth,
            [this](size_t stream, const uint8_t* data, size_t size) {
                return writeFrame(stream, data, size);
            });
    }
    if (!link->start(&error)) {
        std::fprintf(io_.err, "uvc-host: %s\n", error.c_str());
        return kExitFailed;
    }
    LinkConfig config{options_.size, options_.fps, options_.format->fourcc, true};
    for (const auto& s : streams_) {
        link->configure(s->key, config);
    }
    for (const auto& d : options_.hostDelaysMs) {
        link->setHostDelay(d.first, std::chrono::milliseconds(d.second));
    }
    {
        std::lock_guard<std::mutex> lock(mutex_);
        start_ = Clock::now();
        accepting_ = true;
    }
    bool delivered = true;
    if (options_.allStreams) {
        delivered = link->hotplug(kStreamChangedStatus, 255, 0, kEventTimeout);
    } else {
        for (const auto& s : streams_) {
            delivered = delivered &&
                        link->hotplug(kStreamChangedStatus, s->key.id, s->key.idx, kEventTimeout);
        }
    }
    if (!delivered) {
        link->stop();
        std::fprintf(io_.err, "uvc-host: the library did not take the stream change within 5 s\n");
        return kExitFailed;
    }
    double limit = options_.frames > 0
                       ? (options_.timeoutSec > 0 ? options_.timeoutSec
                                                  : double(options_.frames) / options_.fps + 5)
                       : options_.durationSec;
    bool showProgress = options_.progress && !options_.json;
    ProgressReporter progress(io_.err, io_.errIsTerminal);
    double elapsed = 0;
    while ((elapsed = secondsSince(start_)) < limit) {
        std::this_thread::sleep_for(kPollPeriod);
        uint64_t frames = 0;
        uint64_t bytes = 0;
        bool done = false;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            totals(&frames, &bytes);
            done = allComplete();
        }
        if (showProgress) {
            progress.update(secondsSince(start_), frames, bytes);
        }
        if (done || interruptRequested() || outputClosed_) {
            break;
        }
    }
    {
        std::lock_guard<std::mutex> lock(mutex_);
        accepting_ = false;
    }
    elapsed = std::min(secondsSince(start_), limit);
    progress.finish();
    link->stop();
    if (queue_) {
        queue_->finish();  // what is queued is written; a closed output takes no more
    }
    RunReport report = collect(elapsed, *link);
    report.interrupted = interruptRequested();
    std::vector<std::string> notes;
    bool pictured = writePictures(report, &notes) && writeTimingToStandardOutput();
    report.outputClosed = outputClosed_;
    if (standardOutputClosed_) {
        // After the run: the frames are all counted, only what followed them is cut.
        notes.push_back("standard output was closed by its reader before all was written");
    }
    FILE* summary = summaryStream();
    if (options_.json) {
        std::fprintf(summary, "%s\n", summaryJson(report).c_str());
    } else {
        writeTextSummary(summary, report);
        for (const std::string& n : notes) {
            std::fprintf(summary, "%s\n", n.c_str());
        }
    }
    std::fflush(summary);
    if (report.interrupted) {
        return interruptExitStatus();
    }
    if (report.outputClosed || standardOutputClosed_) {
        return kExitOutputClosed;
    }
    if (!pictured) {
        return kExitFailed;
    }
    return report.passed() ? kExitOk : kExitFailed;
}

bool StreamSession::writeTimingToStandardOutput() {
    if (!isStandardStream(options_.timingFile)) {
        return true;
    }
    std::vector<StreamTrace> traces;
    for (const auto& s : streams_) {
        traces.push_back({s->key, s->stats.arrivalsNs(), s->stats.sizes()});
    }
    std::string error;
    if (writeTiming(io_.out, false, traces, &error)) {
        return true;
    }
    if (errno == EPIPE) {
        standardOutputClosed_ = true;
        return true;
    }
    std::fprintf(io_.err, "uvc-host: %s\n", error.c_str());
    return false;
}

bool StreamSession::writePictures(const RunReport& report, std::vector<std::string>* notes) {
    if (!pictures_.wanted()) {
        return true;
    }
    std::vector<StreamTrace> traces;
    for (const auto& s : streams_) {
        traces.push_back({s->key, s->stats.arrivalsNs(), s->stats.sizes()});
    }
    std::string error;
    if (!pictures_.write(report, traces, notes, &error)) {
        std::fprintf(io_.err, "uvc-host: %s\n", error.c_str());
        return false;
    }
    return true;
}

void StreamSession::saveFrames(Stream& s, StreamResult* result) {
    JpegEncoder encoder;
    for (const SaveFrameRequest& r : s.wanted) {
        SavedFrame saved{r.index, r.path, ""};
        const std::vector<uint8_t>* bytes = nullptr;
        for (const auto& c : s.captured) {
            if (c.first == r.index) {
                bytes = &c.second;
            }
        }
        std::string prefix = "frame " + std::to_string(r.index) + " of stream " + s.key.text();
        std::vector<uint8_t> jpeg;
        std::string error;
        if (!bytes) {
            saved.error = prefix + " did not arrive; nothing saved";
        } else if (bytes->empty()) {
            saved.error = prefix + " was empty; nothing saved";
        } else if (options_.format->kind != FormatKind::Jpeg &&
                   !encoder.encodeFrame(*options_.format, options_.size, bytes->data(),
                                        bytes->size(), kSavedJpegQuality, &jpeg, &error)) {
            saved.error = prefix + ": " + error;
        } else {
            const std::vector<uint8_t>& image =
                options_.format->kind == FormatKind::Jpeg ? *bytes : jpeg;
            if (!isStandardStream(r.path)) {
                if (!writeFile(r.path, image.data(), image.size(), &error)) {
                    saved.error = prefix + ": " + error;
                }
            } else if (std::fwrite(image.data(), 1, image.size(), io_.out) != image.size() ||
                       std::fflush(io_.out) != 0) {
                if (errno == EPIPE) {
                    standardOutputClosed_ = true;
                } else {
                    saved.error = prefix + ": cannot write standard output: " +
                                  std::strerror(errno);
                }
            }
        }
        if (isStandardStream(saved.path)) {
            saved.path = "standard output";
        }
        result->saved.push_back(saved);
    }
}

RunReport StreamSession::collect(double elapsedSec, const UvcLink& link) {
    RunReport report;
    report.options = &options_;
    report.elapsedSec = elapsedSec;
    report.recoveries = link.recoveries();
    for (size_t i = 0; i < streams_.size(); ++i) {
        Stream& s = *streams_[i];
        StreamResult r;
        r.key = s.key;
        r.stats = s.stats.summary();
        r.firstFrameSec = s.firstFrameSec;
        r.dropped.hostBusy = link.hostBusyDrops(s.key);
        r.dropped.notWritten = queue_ ? queue_->notWritten(i) : 0;
        saveFrames(s, &r);
        report.streams.push_back(std::move(r));
    }
    judgeRun(&report);
    for (size_t i = 0; i < streams_.size(); ++i) {
        Stream& s = *streams_[i];
        StreamResult& r = report.streams[i];
        if (!s.writer) {
            continue;
        }
        r.output = s.writer->path();
        r.framesWritten = s.writer->framesWritten();
        r.framesSkipped = s.writer->framesSkipped();
        if (r.framesSkipped > r.stats.emptyFrames) {
            r.problems.push_back(std::to_string(r.framesSkipped - r.stats.emptyFrames) +
                                 " frames did not fit the output format (wrong length or no JPEG)");
        }
        if (r.dropped.notWritten > 0) {
            // The host's own shortcoming: the library delivered them.
            r.notes.push_back(std::string(isStandardStream(options_.output) ? "standard output"
                                                                            : "output file") +
                              " could not keep up: " + std::to_string(r.dropped.notWritten) +
                              " frames not written");
        }
        std::string error;
        if (!s.writer->close(&error)) {
            if (s.writer->closedByReader()) {
                outputClosed_ = true;
                r.notes.push_back(error);
            } else {
                r.problems.push_back(error);
            }
        }
    }
    return report;
}

}  // namespace uvc_host
