#pragma once

#include <cstdio>
#include <string>

#include "report/RunReport.h"

namespace uvc_host {

// The end-of-run summary of `stream`: readable text, one block per stream.
void writeTextSummary(FILE* out, const RunReport& report);
// The same as one JSON object (built with json-c), without a line end.
std::string summaryJson(const RunReport& report);

}  // namespace uvc_host
