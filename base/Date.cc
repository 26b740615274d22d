#include "base/Date.h"

#include <sys/time.h>

#include <cstdio>
#include <ctime>

namespace VOLUT {

namespace {

constexpr int64_t kMillisPerHour = 3600000;
// Field input is limited to years up to 9999 (fields beyond these bounds give
// 9999-12-31 23:59:59.999); the millisecond constructor takes any count.
constexpr unsigned int kMaxYear = 9999;
constexpr unsigned int kMaxField = 100000;
constexpr uint64_t kMaxMilliseconds = 253402300799999ULL;

// Breaks a signed millisecond count down as UTC (reentrant); false when the
// year does not fit the broken-down form.
bool breakDown(int64_t ms, tm& out, unsigned int& millis) {
    int64_t seconds = ms / 1000;
    int64_t rest = ms % 1000;
    if (rest < 0) {  // floor, so that -1 ms is 23:59:59.999 of the day before
        rest += 1000;
        seconds -= 1;
    }
    time_t t = static_cast<time_t>(seconds);
    millis = static_cast<unsigned int>(rest);
    return gmtime_r(&t, &out) != nullptr;
}

std::string format(const Date& date, short zoneHours, bool withYear) {
    tm b{};
    unsigned int millis = 0;
    const uint64_t count = date.millisecondsFrom1970();
    int64_t shifted = 0;
    if (count > static_cast<uint64_t>(INT64_MAX) ||
        __builtin_add_overflow(static_cast<int64_t>(count), int64_t{zoneHours} * kMillisPerHour,
                               &shifted) ||
        !breakDown(shifted, b, millis)) {
        return std::string();
    }
    char text[128];
    if (withYear) {
        std::snprintf(text, sizeof(text), "%04d-%02d-%02d %02d:%02d:%02d.%03d", b.tm_year + 1900,
                      b.tm_mon + 1, b.tm_mday, b.tm_hour, b.tm_min, b.tm_sec,
                      static_cast<int>(millis));
    } else {
        std::snprintf(text, sizeof(text), "%02d-%02d %02d:%02d:%02d.%03d", b.tm_mon + 1, b.tm_mday,
                      b.tm_hour, b.tm_min, b.tm_sec, static_cast<int>(millis));
    }
    return text;
}

}  // namespace

Date::Date(unsigned int year, unsigned int month, unsigned int day, unsigned int hour,
           unsigned int minute, unsigned int second, unsigned int millisecond)
    : year_(year),
      month_(month),
      day_(day),
      hour_(hour),
      minute_(minute),
      second_(second),
      millisecond_(millisecond) {
    calculateMillisecondsFrom1970();
    // Keep the fields describing the count even for out-of-range input.
    calculateDate();
}

Date::Date(unsigned long long millisecondsFrom1970) : milliseconds_(millisecondsFrom1970) {
    calculateDate();
}

std::string Date::toString(short zoneHours) const {
    return format(*this, zoneHours, true);
}

std::string Date::toShortString(short zoneHours) const {
    return format(*this, zoneHours, false);
}

Date Date::operator+(int milliseconds) const {
    if (milliseconds < 0 &&
        static_cast<uint64_t>(-static_cast<int64_t>(milliseconds)) > milliseconds_) {
        return Date(0ULL);
    }
    return Date(
        static_cast<unsigned long long>(static_cast<int64_t>(milliseconds_) + milliseconds));
}

int64_t Date::operator-(const Date& other) const {
    return static_cast<int64_t>(milliseconds_ - other.milliseconds_);
}

Date Date::now() {
    timeval tv{};
    gettimeofday(&tv, nullptr);
    return Date(static_cast<unsigned long long>(tv.tv_sec) * 1000ULL +
                static_cast<unsigned long long>(tv.tv_usec) / 1000ULL);
}

int Date::currentTimeZone() {
    time_t t = time(nullptr);
    tm b{};
    if (gmtime_r(&t, &b) == nullptr) {
        return 0;
    }
    time_t asUtc = timegm(&b);
    // The same wall-clock fields read as local time; -1 lets mktime decide
    // whether daylight saving applies, so summer offsets come out right.
    b.tm_isdst = -1;
    time_t asLocal = mktime(&b);
    if (asUtc == static_cast<time_t>(-1) || asLocal == static_cast<time_t>(-1)) {
        return 0;
    }
    return static_cast<int>((asUtc - asLocal) / 3600);
}

void Date::calculateDate() {
    tm b{};
    unsigned int millis = 0;
    if (milliseconds_ > static_cast<uint64_t>(INT64_MAX) ||
        !breakDown(static_cast<int64_t>(milliseconds_), b, millis)) {
        // Beyond what the calendar functions can represent.
        year_ = month_ = day_ = hour_ = minute_ = second_ = millisecond_ = 0;
        return;
    }
    year_ = static_cast<uint32_t>(b.tm_year + 1900);
    month_ = static_cast<uint32_t>(b.tm_mon + 1);
    day_ = static_cast<uint32_t>(b.tm_mday);
    hour_ = static_cast<uint32_t>(b.tm_hour);
    minute_ = static_cast<uint32_t>(b.tm_min);
    second_ = static_cast<uint32_t>(b.tm_sec);
    millisecond_ = millis;
}

void Date::calculateMillisecondsFrom1970() {
    if (year_ > kMaxYear || month_ > kMaxField || day_ > kMaxField || hour_ > kMaxField ||
        minute_ > kMaxField || second_ > kMaxField) {
        milliseconds_ = kMaxMilliseconds;
        return;
    }
    tm b{};
    b.tm_year = static_cast<int>(year_) - 1900;
    b.tm_mon = static_cast<int>(month_) - 1;
    b.tm_mday = static_cast<int>(day_);
    b.tm_hour = static_cast<int>(hour_);
    b.tm_min = static_cast<int>(minute_);
    b.tm_sec = static_cast<int>(second_);
    time_t seconds = timegm(&b);
    if (seconds < 0) {  // before 1970, or not representable
        milliseconds_ = 0;
        return;
    }
    uint64_t total = static_cast<uint64_t>(seconds) * 1000u + millisecond_;
    milliseconds_ = total < kMaxMilliseconds ? total : kMaxMilliseconds;
}

}  // namespace VOLUT
