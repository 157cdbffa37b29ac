// Strings and times.
#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <type_traits>

#include "tests/support/watch.h"

using String = VELM_CString;

static_assert(std::is_same<decltype(VELM_CTime::m_time), time_t>::value, "gmtime takes its address");

// The text, NUL bytes included, of a string whose buffer is as it must be.
static std::string Text(const String& string)
{
    EXPECT_EQ(string.m_data[string.m_len], '\0');
    return std::string(string.m_data, static_cast<size_t>(string.m_len));
}

static const String inner("x\0y", 3);
static char* const pNull = nullptr;

TEST(String, ConstructorsMeasureTheirSource)
{
    char abc[] = "abc";
    EXPECT_EQ(Text(String()) + Text(String("abc", 0)) + Text(String(abc, -5)) + Text(String(pNull)), "");
    EXPECT_EQ(Text(String(const_cast<const char*>(pNull))) + Text(String(reinterpret_cast<unsigned char*>(pNull))), "");
    EXPECT_EQ(Text(String(abc, 2)) + Text(String(reinterpret_cast<unsigned char*>(abc))) + Text(String(abc)),
              "ababcabc");
    EXPECT_EQ(Text(inner) + Text(String(inner)), std::string("x\0yx", 4));
}

TEST(String, Changes)
{
    const std::pair<void (*)(String&), std::string> cases[] = {
        {[](String& s) { s = static_cast<const String&>(s), s = s.m_data + 1; }, "bc"},
        {[](String& s) { s.Set(s.m_data + 1, 2), s.Set(s.m_data, 1); }, "b"},
        {[](String& s) { s.Set("x\0y", 3); }, Text(inner)},
        {[](String& s) { s.Set("xyz", -1), s += "abc", s = pNull, s += "x", s.Empty(); }, ""},
        {[](String& s) { s = inner, s += inner, s.Concat("xyz", 2); }, "xxxy"},
        {[](String& s) { s.Concat("x\0y", 3), s += "z"; }, "abc" + Text(inner) + "z"},
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
    EXPECT_TRUE(abc.m_data == pBuffer && &(abc += "") == &abc);
    EXPECT_EQ(Outcome([&] { abc.Concat("xyz", INT_MAX - 3); }), "raise 1"); // longer than an int can say
    EXPECT_TRUE(abc.Find('c') == 2 && abc.Find('\0') == 3 && abc.Find('x') == -1 && empty.Find('\0') == -1);
    EXPECT_TRUE(abc.Find("bc") == 1 && abc.Find("bd") == -1 && abc.Find("") == -1 && abc.Find(pNull) == -1);
    EXPECT_TRUE(abc.Compare(pNull) == 3 && empty.Compare(pNull) == 0 && abc[2] == 'c' && inner == String("x\0z", 3));
    EXPECT_TRUE(abc < "b" && "ab" <= abc && abc > "ab" && abc >= "abc" && abc <= "abc" && abc != "abd" && abc < "\xFF");
    EXPECT_FALSE(abc < "abc" || abc > "abc" || abc == "ab" || abc != "abc" || abc <= "ab" || "ab" >= abc);
    char ch = 'x';
    EXPECT_EQ(Outcome([&] { ch = abc.GetAt(-1); }), "nIndex >= 0");
    EXPECT_EQ(Outcome([&] { ch = static_cast<char>(ch + abc[3]); }), "nIndex < m_len");
    EXPECT_EQ(ch, '\0');
}

TEST(TimeSpan, PartsTruncateTowardZero)
{
    const std::vector<long> cases[] = {// in seconds, minutes, hours and days; the parts of the larger unit
                                       {90061, 1501, 25, 1, 1, 1, 1},
                                       {-90, -1, 0, 0, -30, -1, 0},
                                       {-3601, -60, -1, 0, -1, 0, -1},
                                       {-86399, -1439, -23, 0, -59, -59, -23}};
    for (const auto& c : cases) {
        const VELM_CTimeSpan span(c[0]);
        EXPECT_EQ(c, std::vector<long>({span.GetTotalSeconds(), span.GetTotalMinutes(), span.GetTotalHours(),
                                        span.GetDays(), span.GetSeconds(), span.GetMinutes(), span.GetHours()}));
    }
}

TEST(Time, ArithmeticAndOrder)
{
    const VELM_CTimeSpan hour(3600), minute(60);
    VELM_CTime time(1000);
    const VELM_CTime before = time - hour;
    EXPECT_TRUE(before.GetTime() == -2600 && (before - time).GetTotalSeconds() == -3600);
    EXPECT_TRUE((time -= hour).GetTime() == -2600 && (time += minute).GetTime() == -2540);
    EXPECT_TRUE((hour - minute).m_span == 3540 && (hour + minute).m_span == 3660);
    EXPECT_TRUE(before < time && before <= time && time > before && time >= before && time != before);
    EXPECT_FALSE(before == time || before > time || hour == minute || hour < minute || hour <= minute);
    EXPECT_LE(std::labs(VELM_CTime::GetCurrentTime().GetTime() - ::time(nullptr)), 2);
}

TEST(Time, CalendarFollowsTheZoneInForce)
{
    const VELM_CTime time(1000000000), epoch, far(LONG_MAX);
    for (const bool bUniversal : {true, false}) {
        setenv("TZ", bUniversal ? "UTC0" : "XYZ5", 1);
        const int nDate = (time.GetYear() * 100 + time.GetMonth()) * 100 + time.GetDay();
        const int nTime =
            ((time.GetHour() * 100 + time.GetMinute()) * 100 + time.GetSecond()) * 10 + time.GetDayOfWeek();
        EXPECT_EQ(nDate, bUniversal ? 20010909 : 20010908);
        EXPECT_EQ(nTime, bUniversal ? 146400 : 2046406);
        struct tm record;
        EXPECT_TRUE(time.GetLocalTm(&record) == &record && record.tm_hour == time.GetHour());
        EXPECT_TRUE(epoch.GetGmtTm(&record) == &record && record.tm_year == 70 && record.tm_wday == 4);
        EXPECT_TRUE(time.GetGmtTm(nullptr)->tm_hour == 1 && time.GetLocalTm(nullptr)->tm_hour == time.GetHour());
        const bool bNoYear = far.GetYear() == 0 && far.GetLocalTm(&record) == nullptr && record.tm_year == 70;
        EXPECT_EQ(bNoYear, sizeof(long) == 8); // no int holds it
    }
}
