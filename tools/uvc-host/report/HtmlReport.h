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

// What the page says about the run besides what it measured.
struct RunHeader {
    std::string commandLine;  // as a shell would take it
    std::string startedAt;    // local date and time
    std::string version;      // the tool's
};

// Writes DIR/index.html: the run's command line, date and tool version; the
// frame intervals of all streams over one time axis; the summary table
// with a link to each stream; and per stream its intervals over time (drops
// marked), their histogram and its pictures. Plots are inline SVG and
// pictures relative links, so the folder opens in any browser as it is.
bool writeHtmlReport(const std::string& dir, const RunReport& report, const RunHeader& header,
                     const std::vector<StreamTrace>& traces,
                     const std::vector<Thumbnail>& thumbnails, std::string* error);

}  // namespace uvc_host
