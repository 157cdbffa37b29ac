/// \file
/// Points in time and spans between them, in whole seconds.
#ifndef TAVNOMCL_MFC_TIME_H
#define TAVNOMCL_MFC_TIME_H

#include <time.h>

#include "mcl/mfc_base.h"

/// \addtogroup values
/// \{

/// A signed number of seconds. Divisions truncate toward zero; remainders take the sign of the span.
class VELM_API VELM_CTimeSpan {
public:
    long m_span; ///< The seconds.

    /// A span of 0 seconds.
    VELM_CTimeSpan();
    /// A span of that many seconds.
    VELM_CTimeSpan(long nSeconds);
    /// The span that `src` holds.
    VELM_CTimeSpan(const VELM_CTimeSpan& src) = default;

    /// Whole days.
    long GetDays() const;
    /// Whole hours, days included.
    long GetTotalHours() const;
    /// Hours within the day, -23 to 23.
    int GetHours() const;
    /// Whole minutes, hours included.
    long GetTotalMinutes() const;
    /// Minutes within the hour, -59 to 59.
    int GetMinutes() const;
    /// All seconds.
    long GetTotalSeconds() const;
    /// Seconds within the minute, -59 to 59.
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

/// An absolute point in time: seconds since the epoch.
///
/// The calendar getters ask `localtime` afresh each time, and share its record with every other caller of it. Where
/// `localtime` cannot express the time, they answer 0.
class VELM_API VELM_CTime {
public:
    time_t m_time; ///< Seconds since the epoch.

    /// The epoch.
    VELM_CTime();
    /// The point that many seconds after the epoch.
    VELM_CTime(long nTime);
    /// The point that `src` holds.
    VELM_CTime(const VELM_CTime& src) = default;
    /// Now; -1 second when the clock cannot be read.
    static VELM_CTime GetCurrentTime();

    /// Takes the value of `src`.
    const VELM_CTime& operator=(const VELM_CTime& src);
    /// Takes that many seconds after the epoch.
    const VELM_CTime& operator=(long nTime);

    /// Seconds since the epoch.
    long GetTime() const;
    /// The broken-down time in Coordinated Universal Time, in `*ptm`; with NULL, in the shared record of `gmtime`.
    /// NULL when the time cannot be expressed.
    struct tm* GetGmtTm(struct tm* ptm) const;
    /// The broken-down local time, in `*ptm`; with NULL, in the shared record of `localtime`. NULL when the time
    /// cannot be expressed.
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
    /// The time that lies the span before this time.
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
