#include "report/ProgressReporter.h"

namespace uvc_host {

ProgressReporter::ProgressReporter(FILE* out, bool terminal) : out_(out), terminal_(terminal) {}

void ProgressReporter::update(double elapsedSec, uint64_t frames, uint64_t bytes) {
    double span = elapsedSec - lastSec_;
    if (span < (terminal_ ? 0.25 : 1.0)) {
        return;
    }
    double fps = double(frames - lastFrames_) / span;
    double mbps = double(bytes - lastBytes_) / span / 1e6;
    std::fprintf(out_, "%s%6.1f s  %8llu frames  %7.2f fps  %8.2f MB/s%s", terminal_ ? "\r" : "",
                 elapsedSec, (unsigned long long)frames, fps, mbps, terminal_ ? "\033[K" : "\n");
    std::fflush(out_);
    shown_ = true;
    lastSec_ = elapsedSec;
    lastFrames_ = frames;
    lastBytes_ = bytes;
}

void ProgressReporter::finish() {
    if (terminal_ && shown_) {
        std::fputc('\n', out_);
        std::fflush(out_);
    }
    shown_ = false;
}

}  // namespace uvc_host
