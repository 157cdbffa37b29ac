/// \file
/// Points in time and spans between them, in whole seconds.
#ifndef TAVNOMCL_MFC_TIME_H
#define TAVNOMCL_MFC_TIME_H

#include <time.h>

#include "mcl/mfc_base.h"

/// \addtogroup values
/// \{

/// A span of time: a signed number of whole seconds.
///
/// Days, hours and minutes are rounded toward zero. In a negative span every part of it is negative or 0.
class VELM_API VELM_CTimeSpan {
public:
    long m_span; ///< The seconds.

    /// A span of 0 seconds.
    VELM_CTimeSpan();
    /// A span of `nSeconds` seconds.
    VELM_CTimeSpan(long nSeconds);
    /// The span that `src` holds.
    VELM_CTimeSpan(const VELM_CTimeSpan& src) = default;

    /// The number of whole days.
    long GetDays() const;
    /// The number of whole hours in the span.
    long GetTotalHours() const;
    /// The hours beyond the last whole day, -23 to 23.
    int GetHours() const;
    /// The number of whole minutes in the span.
    long GetTotalMinutes() const;
    /// The minutes beyond the last whole hour, -59 to 59.
    int GetMinutes() const;
    /// The number of seconds in the span.
    long GetTotalSeconds() const;
    /// The seconds beyond the last whole minute, -59 to 59.
    int GetSeconds() const;

    /// The difference of two spans.
    VELM_CTimeSpan operator-(VELM_CTimeSpan span) const;
    /// The sum of two spans.
    VELM_CTimeSpan operator+(VELM_CTimeSpan span) const;
    /// Takes the value of `src`.
    const VELM_CTimeSpan& operator=(const VELM_CTimeSpan& src);
    /// Adds the span.
    const VELM_CTimeSpan& operator+=(VELM_CTimeSpan span);
    /// Subtracts the span.
    const VELM_CTimeSpan& operator-=(VELM_CTimeSpan span);
    /// 1 when the spans are equal, else 0.
    int operator==(VELM_CTimeSpan span) const;
    /// 1 when the spans differ, else 0.
    int operator!=(VELM_CTimeSpan span) const;
    /// 1 when this span is smaller, else 0.
    int operator<(VELM_CTimeSpan span) const;
    /// 1 when this span is greater, else 0.
    int operator>(VELM_CTimeSpan span) const;
    /// 1 when this span is not greater, else 0.
    int operator<=(VELM_CTimeSpan span) const;
    /// 1 when this span is not smaller, else 0.
    int operator>=(VELM_CTimeSpan span) const;
};

/// A point in time: a number of whole seconds since the epoch, which is 1970-01-01 00:00:00 UTC.
///
/// `GetYear` to `GetDayOfWeek` deliver parts of the local time. Each call runs `localtime`, whose static record any
/// other call in the process overwrites: threads must not use them at the same time. They return 0 for a time that
/// `localtime` cannot express.
class VELM_API VELM_CTime {
public:
    time_t m_time; ///< Seconds since the epoch.

    /// The epoch.
    VELM_CTime();
    /// The time `nTime` seconds after the epoch.
    VELM_CTime(long nTime);
    /// The time that `src` holds.
    VELM_CTime(const VELM_CTime& src) = default;
    /// The present time; the time -1 when the clock cannot be read.
    static VELM_CTime GetCurrentTime();

    /// Takes the value of `src`.
    const VELM_CTime& operator=(const VELM_CTime& src);
    /// Takes the time `nTime` seconds after the epoch.
    const VELM_CTime& operator=(long nTime);

    /// Seconds since the epoch.
    long GetTime() const;
    /// Fills `*ptm` with the broken-down time in Coordinated Universal Time and returns `ptm`. If `ptm` is NULL,
    /// returns the static record of `gmtime`. Returns NULL when `gmtime` cannot express the time.
    struct tm* GetGmtTm(struct tm* ptm) const;
    /// Fills `*ptm` with the broken-down local time and returns `ptm`. If `ptm` is NULL, returns the static record of
    /// `localtime`. Returns NULL when `localtime` cannot express the time.
    struct tm* GetLocalTm(struct tm* ptm) const;
    /// The year, such as 2026.
    int GetYear() const;
    /// The month, 1 to 12.
    int GetMonth() const;
    /// The day of the month, 1 to 31.
    int GetDay() const;
    /// The hour, 0 to 23.
    int GetHour() const;
    /// The minute, 0 to 59.
    int GetMinute() const;
    /// The second, 0 to 60.
    int GetSecond() const;
    /// The day of the week, 0 for Sunday to 6 for Saturday.
    int GetDayOfWeek() const;

    /// The span from `time` to this time.
    VELM_CTimeSpan operator-(VELM_CTime time) const;
    /// The time that is earlier than this one by the span.
    VELM_CTime operator-(VELM_CTimeSpan span) const;
    /// Moves forward by the span.
    const VELM_CTime& operator+=(VELM_CTimeSpan span);
    /// Moves back by the span.
    const VELM_CTime& operator-=(VELM_CTimeSpan span);
    /// 1 when the times are equal, else 0.
    int operator==(VELM_CTime time) const;
    /// 1 when the times differ, else 0.
    int operator!=(VELM_CTime time) const;
    /// 1 when this time is earlier, else 0.
    int operator<(VELM_CTime time) const;
    /// 1 when this time is later, else 0.
    int operator>(VELM_CTime time) const;
    /// 1 when this time is not later, else 0.
    int operator<=(VELM_CTime time) const;
    /// 1 when this time is not earlier, else 0.
    int operator>=(VELM_CTime time) const;
};

/// \}

#endif
