#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <vector>

#include "cli/CommandOptions.h"
#include "cli/HostIo.h"
#include "link/UvcLink.h"
#include "media/FrameWriter.h"
#include "media/WriteQueue.h"
#include "report/FrameStats.h"
#include "report/RunPictures.h"
#include "report/RunReport.h"

namespace uvc_host {

// `uvc-host stream`: configures the streams, lets frames arrive for the
// requested time or count, writes what was asked for and summarises.
//
// Frames arrive on the streams' sending threads, where every moment spent
// is a moment the library's host is busy; there they are only counted and
// queued (WriteQueue). Output files are written on the queue's thread, so a
// slow disk costs written frames, not the stream's pace.
class StreamSession {
public:
    StreamSession(const StreamOptions& options, UvcLinkFactory factory, HostIo io);
    ~StreamSession();

    // The exit status: kExitOk when every stream delivered as configured.
    int run();

private:
    struct Stream {
        StreamKey key;
        FrameStats stats;
        std::unique_ptr<FrameWriter> writer;
        std::vector<SaveFrameRequest> wanted;
        std::vector<std::pair<uint64_t, std::vector<uint8_t>>> captured;
        double firstFrameSec = -1;
    };

    bool checkFrameFiles();
    bool openOutputs();
    void onFrame(const FrameEvent& frame);
    // On the queue's thread.
    bool writeFrame(size_t stream, const uint8_t* data, size_t size);
    bool allComplete() const;  // with mutex_ held
    void totals(uint64_t* frames, uint64_t* bytes);
    void saveFrames(Stream& s, StreamResult* result);
    RunReport collect(double elapsedSec, const UvcLink& link);
    // --timing and --report; false (with a line on stderr) when not written.
    bool writePictures(const RunReport& report, std::vector<std::string>* notes);
    bool writeTimingToStandardOutput();
    // Where the frames, the timing or a saved frame go to standard output,
    // the summary goes to stderr.
    FILE* summaryStream() const;

    StreamOptions options_;
    UvcLinkFactory factory_;
    HostIo io_;
    std::mutex mutex_;
    bool accepting_ = false;
    std::chrono::steady_clock::time_point start_;
    std::vector<std::unique_ptr<Stream>> streams_;
    std::unique_ptr<WriteQueue> queue_;
    // Set on the queue's thread when a reader closed its end of an output.
    std::atomic<bool> outputClosed_{false};
    bool standardOutputClosed_ = false;
    RunPictures pictures_;
};

}  // namespace uvc_host
