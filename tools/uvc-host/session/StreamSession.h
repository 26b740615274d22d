#pragma once

#include <memory>
#include <mutex>
#include <vector>

#include "cli/CommandOptions.h"
#include "cli/HostIo.h"
#include "link/UvcLink.h"
#include "media/FrameWriter.h"
#include "report/FrameStats.h"
#include "report/RunPictures.h"
#include "report/RunReport.h"

namespace uvc_host {

// `uvc-host stream`: configures the streams, lets frames arrive for the
// requested time or count, writes what was asked for and summarises.
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
        std::string writeError;
    };

    bool checkFrameFiles();
    bool openOutputs();
    void onFrame(const FrameEvent& frame);
    bool allComplete() const;  // with mutex_ held
    void totals(uint64_t* frames, uint64_t* bytes);
    void saveFrames(Stream& s, StreamResult* result);
    RunReport collect(double elapsedSec, uint64_t recoveries);
    // --timing and --report; false (with a line on stderr) when not written.
    bool writePictures(const RunReport& report, std::vector<std::string>* notes);

    StreamOptions options_;
    UvcLinkFactory factory_;
    HostIo io_;
    std::mutex mutex_;
    bool accepting_ = false;
    std::vector<std::unique_ptr<Stream>> streams_;
    RunPictures pictures_;
};

}  // namespace uvc_host
