#include <android/log.h>

#include <cstdarg>
#include <cstdio>
#include <mutex>

#include "testing/android_testing.h"

namespace {

std::mutex gMutex;
bool gCapturing = false;
std::vector<android_standin::LogRecord> gRecords;

char priorityLetter(int prio) {
    static const char kLetters[] = "??VDIWEFS";
    return prio >= 0 && prio <= ANDROID_LOG_SILENT ? kLetters[prio] : '?';
}

}  // namespace

extern "C" int __android_log_write(int prio, const char* tag, const char* text) {
    const char* safeTag = tag ? tag : "";
    const char* safeText = text ? text : "";
    std::lock_guard<std::mutex> lock(gMutex);
    if (gCapturing) {
        gRecords.push_back({prio, safeTag, safeText});
        return 1;
    }
    // logcat's brief format: "P/tag: message".
    std::fprintf(stderr, "%c/%s: %s\n", priorityLetter(prio), safeTag, safeText);
    return 1;
}

extern "C" int __android_log_print(int prio, const char* tag, const char* fmt, ...) {
    if (fmt == nullptr) return __android_log_write(prio, tag, "");
    char buf[4096];
    va_list ap;
    va_start(ap, fmt);
    std::vsnprintf(buf, sizeof(buf), fmt, ap);
    va_end(ap);
    return __android_log_write(prio, tag, buf);
}

namespace android_standin {

LogCapture::LogCapture() {
    std::lock_guard<std::mutex> lock(gMutex);
    gCapturing = true;
    gRecords.clear();
}

LogCapture::~LogCapture() {
    std::lock_guard<std::mutex> lock(gMutex);
    gCapturing = false;
    gRecords.clear();
}

std::vector<LogRecord> LogCapture::records() const {
    std::lock_guard<std::mutex> lock(gMutex);
    return gRecords;
}

std::vector<LogRecord> LogCapture::withTag(const std::string& tag) const {
    std::vector<LogRecord> out;
    for (auto& r : records()) {
        if (r.tag == tag)
            out.push_back(r);
    }
    return out;
}

void LogCapture::clear() {
    std::lock_guard<std::mutex> lock(gMutex);
    gRecords.clear();
}

std::vector<LogRecord> LogCapture::take() {
    std::lock_guard<std::mutex> lock(gMutex);
    std::vector<LogRecord> taken;
    taken.swap(gRecords);
    return taken;
}

}  // namespace android_standin
