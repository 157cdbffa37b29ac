// Strings and times.
#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>

#include "tests/support/watch.h"

using String = VELM_CString;

// The text, NUL bytes included, of a string whose buffer is as it must be.
static std::string Text(const String& string)
{
    EXPECT_EQ(string.m_data[string.m_len], '\0');
    return std::string(string.m_data, static_cast<size_t>(string.m_len));
}

// How a stands to b, when all six operators agree on it.
template <class A, class B> static std::string Orders(const A& a, const B& b)
{
    const std::string all = (Row() << (a < b) << (a <= b) << (a == b) << (a >= b) << (a > b) << (a != b)).Text();
    return all == "1 1 0 0 0 1" ? "<" : all == "0 1 1 1 0 0" ? "=" : all == "0 0 0 1 1 1" ? ">" : all;
}

static const String inner("x\0y", 3);
static char* const pNull = nullptr;

TEST(String, ConstructorsAndChanges)
{
    char abc[] = "abc";
    unsigned char *pBytes = reinterpret_cast<unsigned char*>(abc), *pNoBytes = nullptr;
    EXPECT_EQ(Text(String()) + Text(String("abc", 0)) + Text(String(abc, -5)) + Text(String(pNull)), "");
    EXPECT_EQ(Text(String(const_cast<const char*>(pNull))) + Text(String(pNoBytes)) + Text(String(pBytes)), "abc");
    EXPECT_EQ(Text(String(abc, 2)) + Text(String(abc)) + Text(inner) + Text(String(inner)),
              "ababc" + Text(inner) + "x");
    const std::pair<void (*)(String&), std::string> cases[] = {
        {[](String& s) { s = static_cast<const String&>(s), s = s.m_data + 1; }, "bc"},
        {[](String& s) { s.Set(s.m_data + 1, 2), s.Set(s.m_data, 1); }, "b"},
        {[](String& s) { s.Set("xyz", -1), s += "abc", s = pNull, s += "x", s.Empty(); }, ""},
        {[](String& s) { s = inner, s += inner, s.Concat("xyz", 2); }, "xxxy"},
        {[](String& s) { s.Set("x\0y", 3), s.Concat("x\0y", 3), s += "z"; }, Text(inner) + Text(inner) + "z"},
        {[](String& s) { s += s, s.Concat(s.m_data + 1, 2); }, "abcabcbc"},
        {[](String& s) { s.Concat(s.m_data, 4); }, std::string("abcabc\0", 7)}}; // with its own final NUL
    for (const auto& c : cases) {
        String string("abc");
        c.first(string);
        EXPECT_EQ(Text(string), c.second);
    }
}

TEST(String, Queries)
{
    String abc("abc"), empty;
    const char* pBuffer = abc.m_data;
    abc += "", abc += pNull, abc.Concat(pNull, 3), abc.Concat("xyz", 0), abc.Concat("xyz", -1); // none touches it
    EXPECT_EQ(static_cast<const void*>(abc.m_data), pBuffer);
    EXPECT_EQ(&(abc += ""), &abc);
    EXPECT_EQ(Row() << abc.Find('c') << abc.Find('\0') << abc.Find('x') << empty.Find('\0'), "2 3 -1 -1");
    EXPECT_EQ(Row() << abc.Find("bc") << abc.Find("bd") << abc.Find("") << abc.Find(pNull), "1 -1 -1 -1");
    EXPECT_EQ(Row() << abc.Compare(pNull) << empty.Compare(pNull) << abc[2] << (inner == String("x\0z", 3)), "3 0 c 1");
    EXPECT_EQ(Orders(abc, "b") + Orders(abc, "abc") + Orders(abc, "ab") + Orders(abc, "\xFF"), "<=><");
    EXPECT_EQ(Orders("b", abc) + Orders("abc", abc) + Orders("ab", abc) + Orders("\xFF", abc), ">=<>");
    const auto fail = [&] { abc.Concat(abc.GetAt(-1) == '\0' && abc[3] == '\0' ? "xyz" : "", INT_MAX - 3); };
    EXPECT_EQ(Outcome(fail), "nIndex >= 0; nIndex < m_len; raise 1"); // the length is more than an int can say
}

TEST(Time, SpansOrderAndCalendarOfTheZoneInForce)
{
    // In seconds, minutes, hours and days; the parts of the larger unit. All truncate toward zero.
    for (const auto& parts : {std::vector<long>{90061, 1501, 25, 1, 1, 1, 1}, {-86399, -1439, -23, 0, -59, -59, -23}}) {
        const VELM_CTimeSpan span(parts[0]);
        EXPECT_EQ(parts, std::vector<long>({span.GetTotalSeconds(), span.GetTotalMinutes(), span.GetTotalHours(),
                                            span.GetDays(), span.GetSeconds(), span.GetMinutes(), span.GetHours()}));
    }
    const VELM_CTimeSpan hour(3600), minute(60);
    VELM_CTime time(1000);
    const VELM_CTime before = time - hour;
    EXPECT_EQ(Row() << before.GetTime() << (before - time).GetTotalSeconds(), "-2600 -3600");
    EXPECT_EQ(Row() << (time -= hour).GetTime() << (time += minute).GetTime() << time.GetTime(), "-2600 -2540 -2540");
    EXPECT_EQ(Row() << (hour - minute).m_span << (hour + minute).m_span, "3540 3660");
    EXPECT_EQ(Orders(before, time) + Orders(time, time) + Orders(time, before), "<=>");
    EXPECT_EQ(Orders(minute, hour) + Orders(hour, hour) + Orders(hour, minute), "<=>");
    VELM_CTimeSpan span;
    EXPECT_EQ(&(span = hour), &span);
    EXPECT_EQ(&(span += minute), &span);
    EXPECT_EQ(Row() << span.m_span << (span -= hour).m_span << span.m_span, "3660 60 60");
    EXPECT_EQ(&(span -= minute), &span);
    EXPECT_EQ(&(time = before), &time);
    EXPECT_EQ(Row() << time.GetTime() << (time = 5L).GetTime() << time.GetTime(), "-2600 5 5");
    EXPECT_LE(std::labs(VELM_CTime::GetCurrentTime().GetTime() - ::time(nullptr)), 2);

    const VELM_CTime epoch, far(LONG_MAX);
    time = 1000000000;
    for (const auto& local : {std::vector<int>{2001, 9, 9, 1, 46, 40, 0}, {2001, 9, 8, 20, 46, 40, 6}}) {
        setenv("TZ", local[3] == 1 ? "UTC0" : "XYZ5", 1);
        EXPECT_EQ(local, std::vector<int>({time.GetYear(), time.GetMonth(), time.GetDay(), time.GetHour(),
                                           time.GetMinute(), time.GetSecond(), time.GetDayOfWeek()}));
        struct tm record;
        EXPECT_EQ(time.GetLocalTm(&record), &record);
        EXPECT_EQ(record.tm_hour, local[3]);
        EXPECT_EQ(epoch.GetGmtTm(&record), &record);
        EXPECT_EQ(Row() << record.tm_year << record.tm_wday << time.GetGmtTm(nullptr)->tm_hour, "70 4 1");
        EXPECT_EQ(time.GetLocalTm(nullptr)->tm_hour, local[3]);
        const bool bNoYear = far.GetYear() == 0 && far.GetLocalTm(&record) == nullptr && record.tm_year == 70;
        EXPECT_EQ(bNoYear, sizeof(long) == 8); // no int holds it
    }
}
