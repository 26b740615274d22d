#pragma once

#include <time.h>

#include <cstdint>
#include <string>

#include "uvc_export.h"

namespace VOLUT {

// A point in time kept both as milliseconds since 1970-01-01 00:00:00 UTC and
// as the broken-down UTC fields of that count. Time zones enter only when text
// is made.
class UVC_EXPORT Date {
public:
    // Fields read as UTC; out-of-range fields are normalised (month 13 is
    // January of the next year), a time before 1970 becomes 1970-01-01 and
    // one after 9999 becomes 9999-12-31 23:59:59.999.
    Date(unsigned int year, unsigned int month, unsigned int day, unsigned int hour,
         unsigned int minute, unsigned int second, unsigned int millisecond);
    explicit Date(unsigned long long millisecondsFrom1970);
    Date(const Date& other) = default;
    Date& operator=(const Date& other) = default;

    unsigned int year() const { return year_; }
    unsigned int month() const { return month_; }
    unsigned int day() const { return day_; }
    unsigned int hour() const { return hour_; }
    unsigned int minute() const { return minute_; }
    unsigned int second() const { return second_; }
    unsigned int millisecond() const { return millisecond_; }
    unsigned long long millisecondsFrom1970() const { return milliseconds_; }

    // "YYYY-MM-DD hh:mm:ss.mmm" and "MM-DD hh:mm:ss.mmm" in the zone that is
    // zoneHours east of UTC (pass currentTimeZone() for local time).
    std::string toString(short zoneHours) const;
    std::string toShortString(short zoneHours) const;

    // That many milliseconds later (earlier when negative); never before 1970.
    Date operator+(int milliseconds) const;
    int64_t operator-(const Date& other) const;
    bool operator==(const Date& other) const { return milliseconds_ == other.milliseconds_; }
    bool operator<(const Date& other) const { return milliseconds_ < other.milliseconds_; }

    static Date now();
    // Local offset from UTC in whole hours (a half-hour part is dropped).
    static int currentTimeZone();

    // Replaces the clock_gettime behind now(); null restores the system's.
    // Returns the previous function. For tests only.
    using ClockFunction = int (*)(clockid_t, struct timespec*);
    __attribute__((visibility("hidden"))) static ClockFunction setClockForTesting(
        ClockFunction clock);

private:
    void calculateDate();
    void calculateMillisecondsFrom1970();

    uint32_t year_ = 1970;
    uint32_t month_ = 1;
    uint32_t day_ = 1;
    uint32_t hour_ = 0;
    uint32_t minute_ = 0;
    uint32_t second_ = 0;
    uint32_t millisecond_ = 0;
    uint64_t milliseconds_ = 0;
};

}  // namespace VOLUT
