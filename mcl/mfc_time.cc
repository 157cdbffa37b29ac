#include "mcl/mfc_time.h"

VELM_CTimeSpan::VELM_CTimeSpan() : m_span(0)
{
}

VELM_CTimeSpan::VELM_CTimeSpan(long nSeconds) : m_span(nSeconds)
{
}

long VELM_CTimeSpan::GetDays() const
{
    return m_span / 86400;
}

long VELM_CTimeSpan::GetTotalHours() const
{
    return m_span / 3600;
}

int VELM_CTimeSpan::GetHours() const
{
    return static_cast<int>(m_span / 3600 % 24);
}

long VELM_CTimeSpan::GetTotalMinutes() const
{
    return m_span / 60;
}

int VELM_CTimeSpan::GetMinutes() const
{
    return static_cast<int>(m_span / 60 % 60);
}

long VELM_CTimeSpan::GetTotalSeconds() const
{
    return m_span;
}

int VELM_CTimeSpan::GetSeconds() const
{
    return static_cast<int>(m_span % 60);
}

VELM_CTimeSpan VELM_CTimeSpan::operator-(VELM_CTimeSpan span) const
{
    return VELM_CTimeSpan(m_span - span.m_span);
}

VELM_CTimeSpan VELM_CTimeSpan::operator+(VELM_CTimeSpan span) const
{
    return VELM_CTimeSpan(m_span + span.m_span);
}

const VELM_CTimeSpan& VELM_CTimeSpan::operator=(const VELM_CTimeSpan& src)
{
    m_span = src.m_span;
    return *this;
}

const VELM_CTimeSpan& VELM_CTimeSpan::operator+=(VELM_CTimeSpan span)
{
    m_span += span.m_span;
    return *this;
}

const VELM_CTimeSpan& VELM_CTimeSpan::operator-=(VELM_CTimeSpan span)
{
    m_span -= span.m_span;
    return *this;
}

int VELM_CTimeSpan::operator==(VELM_CTimeSpan span) const
{
    return m_span == span.m_span;
}

int VELM_CTimeSpan::operator!=(VELM_CTimeSpan span) const
{
    return m_span != span.m_span;
}

int VELM_CTimeSpan::operator<(VELM_CTimeSpan span) const
{
    return m_span < span.m_span;
}

int VELM_CTimeSpan::operator>(VELM_CTimeSpan span) const
{
    return m_span > span.m_span;
}

int VELM_CTimeSpan::operator<=(VELM_CTimeSpan span) const
{
    return m_span <= span.m_span;
}

int VELM_CTimeSpan::operator>=(VELM_CTimeSpan span) const
{
    return m_span >= span.m_span;
}

VELM_CTime::VELM_CTime() : m_time(0)
{
}

VELM_CTime::VELM_CTime(long nTime) : m_time(nTime)
{
}

VELM_CTime VELM_CTime::GetCurrentTime()
{
    return VELM_CTime(time(nullptr));
}

const VELM_CTime& VELM_CTime::operator=(const VELM_CTime& src)
{
    m_time = src.m_time;
    return *this;
}

const VELM_CTime& VELM_CTime::operator=(long nTime)
{
    m_time = nTime;
    return *this;
}

long VELM_CTime::GetTime() const
{
    return m_time;
}

static struct tm* Deliver(struct tm* pShared, struct tm* ptm)
{
    if (pShared == nullptr || ptm == nullptr)
        return pShared;
    *ptm = *pShared;
    return ptm;
}

struct tm* VELM_CTime::GetGmtTm(struct tm* ptm) const
{
    return Deliver(gmtime(&m_time), ptm);
}

struct tm* VELM_CTime::GetLocalTm(struct tm* ptm) const
{
    return Deliver(localtime(&m_time), ptm);
}

// One field of the local broken-down time plus nFirst; 0 when there is no such time.
static int LocalField(const time_t& time, int tm::*pField, int nFirst)
{
    const struct tm* pShared = localtime(&time);
    return pShared == nullptr ? 0 : pShared->*pField + nFirst;
}

int VELM_CTime::GetYear() const
{
    return LocalField(m_time, &tm::tm_year, 1900);
}

int VELM_CTime::GetMonth() const
{
    return LocalField(m_time, &tm::tm_mon, 1);
}

int VELM_CTime::GetDay() const
{
    return LocalField(m_time, &tm::tm_mday, 0);
}

int VELM_CTime::GetHour() const
{
    return LocalField(m_time, &tm::tm_hour, 0);
}

int VELM_CTime::GetMinute() const
{
    return LocalField(m_time, &tm::tm_min, 0);
}

int VELM_CTime::GetSecond() const
{
    return LocalField(m_time, &tm::tm_sec, 0);
}

int VELM_CTime::GetDayOfWeek() const
{
    return LocalField(m_time, &tm::tm_wday, 0);
}

VELM_CTimeSpan VELM_CTime::operator-(VELM_CTime time) const
{
    return VELM_CTimeSpan(m_time - time.m_time);
}

VELM_CTime VELM_CTime::operator-(VELM_CTimeSpan span) const
{
    return VELM_CTime(m_time - span.m_span);
}

const VELM_CTime& VELM_CTime::operator+=(VELM_CTimeSpan span)
{
    m_time += span.m_span;
    return *this;
}

const VELM_CTime& VELM_CTime::operator-=(VELM_CTimeSpan span)
{
    m_time -= span.m_span;
    return *this;
}

int VELM_CTime::operator==(VELM_CTime time) const
{
    return m_time == time.m_time;
}

int VELM_CTime::operator!=(VELM_CTime time) const
{
    return m_time != time.m_time;
}

int VELM_CTime::operator<(VELM_CTime time) const
{
    return m_time < time.m_time;
}

int VELM_CTime::operator>(VELM_CTime time) const
{
    return m_time > time.m_time;
}

int VELM_CTime::operator<=(VELM_CTime time) const
{
    return m_time <= time.m_time;
}

int VELM_CTime::operator>=(VELM_CTime time) const
{
    return m_time >= time.m_time;
}
