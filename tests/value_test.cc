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
    EXPECT_TRUE(abc.m_data == pBuffer && &(abc += "") == &abc);
    EXPECT_TRUE(abc.Find('c') == 2 && abc.Find('\0') == 3 && abc.Find('x') == -1 && empty.Find('\0') == -1);
    EXPECT_TRUE(abc.Find("bc") == 1 && abc.Find("bd") == -1 && abc.Find("") == -1 && abc.Find(pNull) == -1);
    EXPECT_TRUE(abc.Compare(pNull) == 3 && empty.Compare(pNull) == 0 && abc[2] == 'c' && inner == String("x\0z", 3));
    EXPECT_TRUE(abc < "b" && "ab" <= abc && abc > "ab" && abc >= "abc" && abc <= "abc" && abc != "abd" && abc < "\xFF");
    EXPECT_FALSE(abc < "abc" || abc > "abc" || abc == "ab" || abc != "abc" || abc <= "ab" || "ab" >= abc);
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
    EXPECT_TRUE(before.GetTime() == -2600 && (before - time).GetTotalSeconds() == -3600);
    EXPECT_TRUE((time -= hour).GetTime() == -2600 && (time += minute).GetTime() == -2540);
    EXPECT_TRUE((hour - minute).m_span == 3540 && (hour + minute).m_span == 3660);
    EXPECT_TRUE(before < time && before <= time && time > before && time >= before && time != before);
    EXPECT_FALSE(before == time || before > time || hour == minute || hour < minute || hour <= minute);
    EXPECT_LE(std::labs(VELM_CTime::GetCurrentTime().GetTime() - ::time(nullptr)), 2);

    const VELM_CTime epoch, far(LONG_MAX);
    time = 1000000000;
    for (const auto& local : {std::vector<int>{2001, 9, 9, 1, 46, 40, 0}, {2001, 9, 8, 20, 46, 40, 6}}) {
        setenv("TZ", local[3] == 1 ? "UTC0" : "XYZ5", 1);
        EXPECT_EQ(local, std::vector<int>({time.GetYear(), time.GetMonth(), time.GetDay(), time.GetHour(),
                                           time.GetMinute(), time.GetSecond(), time.GetDayOfWeek()}));
        struct tm record;
        EXPECT_TRUE(time.GetLocalTm(&record) == &record && record.tm_hour == local[3]);
        EXPECT_TRUE(epoch.GetGmtTm(&record) == &record && record.tm_year == 70 && record.tm_wday == 4);
        EXPECT_TRUE(time.GetGmtTm(nullptr)->tm_hour == 1 && time.GetLocalTm(nullptr)->tm_hour == local[3]);
        const bool bNoYear = far.GetYear() == 0 && far.GetLocalTm(&record) == nullptr && record.tm_year == 70;
        EXPECT_EQ(bNoYear, sizeof(long) == 8); // no int holds it
    }
}
