#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "cli/CommandOptions.h"
#include "media/FrameWriter.h"
#include "report/HtmlReport.h"
#include "report/RunReport.h"
#include "report/TimingWriter.h"

namespace uvc_host {

// --timing and --report of a `stream` run: keeps a few frames of each
// stream for the contact sheet while frames arrive, then writes the timing
// records and the report page from what the run measured.
class RunPictures {
public:
    explicit RunPictures(const StreamOptions& options);

    bool wanted() const { return !options_.timingFile.empty() || !options_.reportDir.empty(); }
    // Before the run: the report folder exists and the timing file can be
    // written; otherwise `error` says why. Notes the command line and the
    // time for the page.
    bool prepare(std::string* error);
    // Frame `index` of stream `key` arrived; not thread-safe (the caller
    // serialises frames).
    void onFrame(StreamKey key, uint64_t index, const uint8_t* data, uint32_t size);
    // After the run; the lines to show with the summary, or the error.
    bool write(const RunReport& report, const std::vector<StreamTrace>& traces,
               std::vector<std::string>* notes, std::string* error);

private:
    static constexpr size_t kThumbnails = 12;

    // H.264 pictures need the stream from its start: each stream goes to a
    // file that ffmpeg decodes at the end.
    void decodeH264(std::vector<Thumbnail>* thumbnails);
    std::string streamFile(StreamKey key, const std::string& suffix) const;

    StreamOptions options_;
    RunHeader header_;
    uint64_t every_ = 1;  // keep every every_-th frame, up to kThumbnails per stream
    std::map<StreamKey, std::vector<std::pair<uint64_t, std::vector<uint8_t>>>> kept_;
    std::map<StreamKey, std::unique_ptr<FrameWriter>> h264_;
};

}  // namespace uvc_host
