#pragma once

#include <string>
#include <vector>

#include "report/RunReport.h"
#include "report/TimingWriter.h"

namespace uvc_host {

// A frame picture on the contact sheet: a JPEG file in the report folder.
struct Thumbnail {
    StreamKey key;
    uint64_t index = 0;
    std::string file;  // relative to the report folder
};

// Writes DIR/index.html: the summary table and, per stream, the frame
// intervals over time with the configured period marked, a histogram of
// the intervals and the thumbnails of that stream. Plots are inline SVG and
// pictures relative links, so the folder opens in any browser as it is.
bool writeHtmlReport(const std::string& dir, const RunReport& report,
                     const std::vector<StreamTrace>& traces,
                     const std::vector<Thumbnail>& thumbnails, std::string* error);

}  // namespace uvc_host
