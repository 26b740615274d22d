#include "base/Date.h"

#include <atomic>
#include <cstdio>
#include <ctime>

namespace VOLUT {

namespace {

constexpr int64_t kMillisPerSecond = 1000;
constexpr int64_t kSecondsPerDay = 86400;
constexpr int64_t kMillisPerHour = 3600000;
// Field input is limited to years up to 9999 (fields beyond these bounds give
// 9999-12-31 23:59:59.999); the millisecond constructor takes any count that
// fits a signed 64-bit number.
constexpr unsigned int kMaxYear = 9999;
constexpr unsigned int kMaxField = 100000;
constexpr uint64_t kMaxMilliseconds = 253402300799999ULL;

std::atomic<Date::ClockFunction> gClock{&clock_gettime};

// The calendar is computed here in 64 bits rather than with gmtime_r/timegm,
// whose time_t is 32 bits on the device and ends in January 2038.
struct Fields {
    int64_t year;
    unsigned int month, day, hour, minute, second, millisecond;
};

int64_t floorDiv(int64_t a, int64_t b) {
    return a / b - (a % b != 0 && (a < 0) != (b < 0) ? 1 : 0);
}

// Days from 1970-01-01 to the given day of the proleptic Gregorian calendar
// (month 1 to 12; any day, counted on from the first of the month).
int64_t daysFromCivil(int64_t year, unsigned int month, int64_t day) {
    year -= month <= 2 ? 1 : 0;
    const int64_t era = floorDiv(year, 400);
    const int64_t yearOfEra = year - era * 400;                            // [0, 399]
    const int64_t dayOfYear = (153 * (month > 2 ? month - 3 : month + 9) + 2) / 5;  // from 1 March
    const int64_t dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
    return era * 146097 + dayOfEra - 719468 + (day - 1);
}

// The inverse: a signed millisecond count broken down as UTC.
Fields breakDown(int64_t ms) {
    const int64_t seconds = floorDiv(ms, kMillisPerSecond);
    const int64_t days = floorDiv(seconds, kSecondsPerDay);
    const int64_t secondOfDay = seconds - days * kSecondsPerDay;
    const int64_t z = days + 719468;  // days from 0000-03-01
    const int64_t era = floorDiv(z, 146097);
    const int64_t dayOfEra = z - era * 146097;  // [0, 146096]
    const int64_t yearOfEra =
        (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    const int64_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const int64_t mp = (5 * dayOfYear + 2) / 153;  // month from March, [0, 11]
    Fields f{};
    f.month = static_cast<unsigned int>(mp < 10 ? mp + 3 : mp - 9);
    f.year = yearOfEra + era * 400 + (f.month <= 2 ? 1 : 0);
    f.day = static_cast<unsigned int>(dayOfYear - (153 * mp + 2) / 5 + 1);
    f.hour = static_cast<unsigned int>(secondOfDay / 3600);
    f.minute = static_cast<unsigned int>(secondOfDay / 60 % 60);
    f.second = static_cast<unsigned int>(secondOfDay % 60);
    f.millisecond = static_cast<unsigned int>(ms - seconds * kMillisPerSecond);
    return f;
}

std::string format(const Date& date, short zoneHours, bool withYear) {
    const uint64_t count = date.millisecondsFrom1970();
    int64_t shifted = 0;
    if (count > static_cast<uint64_t>(INT64_MAX) ||
        __builtin_add_overflow(static_cast<int64_t>(count), int64_t{zoneHours} * kMillisPerHour,
                               &shifted)) {
        return std::string();
    }
    const Fields f = breakDown(shifted);
    char text[128];
    if (withYear) {
        std::snprintf(text, sizeof(text), "%04lld-%02u-%02u %02u:%02u:%02u.%03u",
                      static_cast<long long>(f.year), f.month, f.day, f.hour, f.minute, f.second,
                      f.millisecond);
    } else {
        std::snprintf(text, sizeof(text), "%02u-%02u %02u:%02u:%02u.%03u", f.month, f.day, f.hour,
                      f.minute, f.second, f.millisecond);
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
    timespec ts{};
    if (gClock.load(std::memory_order_relaxed)(CLOCK_REALTIME, &ts) != 0) {
        return Date(0ULL);
    }
    // A 32-bit time_t (the device's) turns negative in 2038; read as unsigned
    // it stays right until 2106, and the wall clock is never before 1970.
    const uint64_t seconds = sizeof(time_t) < sizeof(uint64_t)
                                 ? static_cast<uint32_t>(ts.tv_sec)
                                 : static_cast<uint64_t>(ts.tv_sec);
    return Date(seconds * 1000ULL + static_cast<uint64_t>(ts.tv_nsec) / 1000000ULL);
}

Date::ClockFunction Date::setClockForTesting(ClockFunction clock) {
    return gClock.exchange(clock ? clock : &clock_gettime);
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
    if (milliseconds_ > static_cast<uint64_t>(INT64_MAX)) {
        // Beyond a signed count: no fields rather than garbage.
        year_ = month_ = day_ = hour_ = minute_ = second_ = millisecond_ = 0;
        return;
    }
    const Fields f = breakDown(static_cast<int64_t>(milliseconds_));
    year_ = static_cast<uint32_t>(f.year);
    month_ = f.month;
    day_ = f.day;
    hour_ = f.hour;
    minute_ = f.minute;
    second_ = f.second;
    millisecond_ = f.millisecond;
}

void Date::calculateMillisecondsFrom1970() {
    if (year_ > kMaxYear || month_ > kMaxField || day_ > kMaxField || hour_ > kMaxField ||
        minute_ > kMaxField || second_ > kMaxField) {
        milliseconds_ = kMaxMilliseconds;
        return;
    }
    // Out-of-range fields carry over as timegm would: month 13 is January of
    // the next year, month 0 December of the one before, day 0 the last day
    // of the month before.
    const int64_t months = int64_t{year_} * 12 + month_ - 1;
    const int64_t year = floorDiv(months, 12);
    const auto month = static_cast<unsigned int>(months - year * 12 + 1);
    const int64_t seconds = daysFromCivil(year, month, day_) * kSecondsPerDay +
                            int64_t{hour_} * 3600 + int64_t{minute_} * 60 + second_;
    if (seconds < 0) {  // before 1970
        milliseconds_ = 0;
        return;
    }
    const uint64_t total = static_cast<uint64_t>(seconds) * 1000u + millisecond_;
    milliseconds_ = total < kMaxMilliseconds ? total : kMaxMilliseconds;
}

}  // namespace VOLUT
