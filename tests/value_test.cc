// Strings and times.
#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <random>

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

TEST(String, IsTheTextThatTheSameChangesMakeOfAnother)
{
    std::mt19937 random(1);
    String s;
    std::string model;
    for (int nStep = 0; nStep < 20000; ++nStep) {
        std::string bytes(random() % 64 == 0 ? 900 + random() % 300 : random() % 5, 'a');
        for (char& c : bytes)
            c = "aab\0\xFF"[random() % 5];
        char* const p = bytes.data();
        const char* const pConst = p;
        const unsigned char* const pUnsigned = reinterpret_cast<unsigned char*>(p);
        const int n = bytes.empty() ? -static_cast<int>(random() % 2) : static_cast<int>(bytes.size());
        const String other(p, n);
        const std::string text = p, before = model.c_str();
        for (const String& made : {String(p), String(pConst), String(pUnsigned), String(other)})
            ASSERT_EQ(Text(made), text) << "a new string is not the text that it is made of";
        for (const String& made : {String(p, n), String(pConst, n)})
            ASSERT_EQ(Text(made), bytes) << "a new string is not the bytes that it is made of";
        // A source within the string itself, without its final NUL, and with it.
        const size_t nAt = random() % (model.size() + 1);
        const std::string own = model.substr(nAt), nul(own.c_str(), own.size() + 1);
        const char* const pOwn = s.m_data + nAt;
        const int nOwn = static_cast<int>(own.size());
        const std::pair<const char*, std::function<const String&()>> changes[] = {
            {"Empty", [&]() -> const String& { return model = "", s.Empty(), s; }},
            {"= char*", [&]() -> const String& { return model = text, s = p; }},
            {"= const char*", [&]() -> const String& { return model = text, s = pConst; }},
            {"= unsigned char*", [&]() -> const String& { return model = text, s = pUnsigned; }},
            {"= string", [&]() -> const String& { return model = text, s = other; }},
            {"= itself", [&]() -> const String& { return s = static_cast<const String&>(s); }},
            {"= within", [&]() -> const String& { return model = nAt == 0 ? model : own.c_str(), s = pOwn; }},
            {"Set", [&]() -> const String& { return model = bytes, s.Set(p, n), s; }},
            {"Set within", [&]() -> const String& { return model = own, s.Set(pOwn, nOwn), s; }},
            {"+= char*", [&]() -> const String& { return model += text, s += p; }},
            {"+= const char*", [&]() -> const String& { return model += text, s += pConst; }},
            {"+= string", [&]() -> const String& { return model += text, s += other; }},
            {"+= itself", [&]() -> const String& { return model += before, s += s; }},
            {"Concat", [&]() -> const String& { return model += text, s.Concat(p); }},
            {"Concat bytes", [&]() -> const String& { return model += bytes, s.Concat(p, n); }},
            {"Concat within", [&]() -> const String& { return model += nul, s.Concat(pOwn, nOwn + 1); }}};
        const auto& change = changes[model.size() > 5000 ? 0 : random() % std::size(changes)];
        ASSERT_EQ(&change.second(), &s) << change.first << " does not deliver the string";
        ASSERT_EQ(Text(s), model) << change.first;

        const std::string now = model.c_str();
        const int nOrder = now.compare(text) < 0 ? 0 : now == text ? 1 : 2; // of unsigned characters
        ASSERT_EQ(Orders(s.Compare(p), 0) + Orders(s.Compare(other), 0) + Orders(s, other),
                  std::string(3, "<=>"[nOrder]))
            << now << " and " << text;
        const char ch = "abc\0\xFF"[nStep % 5];
        const size_t nFound = model.empty() ? model.npos : ch == '\0' ? now.size() : now.find(ch);
        ASSERT_EQ(s.Find(ch), static_cast<int>(nFound)) << int{ch} << " in " << now;
        ASSERT_EQ(s.Find(p), text.empty() ? -1 : static_cast<int>(now.find(text))) << text << " in " << now;
        ASSERT_EQ(s.GetLength() - s.IsEmpty(), static_cast<int>(model.size()) - model.empty()) << now;
        if (nAt < model.size()) {
            const int i = static_cast<int>(nAt);
            ASSERT_EQ(std::string({s[i], s.GetAt(i)}), std::string(2, model[nAt])) << i;
        }
    }
}

TEST(String, NullIsTheEmptyTextAndFailuresChangeNothing)
{
    char* const pNull = nullptr;
    const char* const pNoText = nullptr;
    const unsigned char* const pNoBytes = nullptr;
    String abc("abc"), empty(pNull), assigned("x");
    const char* pBuffer = abc.m_data;
    abc += "", abc += pNull, abc.Concat(pNull, 3), abc.Concat("xyz", 0), abc.Concat("xyz", -1);
    EXPECT_EQ(static_cast<const void*>(abc.m_data), pBuffer) << "to append nothing moves the buffer";
    EXPECT_EQ(Text(assigned = pNull) + Text(String(pNoText)) + Text(String(pNoBytes)) + Text(empty), "");
    EXPECT_EQ(Row() << abc.Compare(pNull) << empty.Compare(pNull) << abc.Find(pNull), "3 0 -1");
    const auto fail = [&] { abc.Concat(abc.GetAt(-1) == '\0' && abc[3] == '\0' ? "xyz" : "", INT_MAX - 3); };
    EXPECT_EQ(Outcome(fail), "nIndex >= 0; nIndex < m_len; raise 1"); // the length is more than an int can say
    EXPECT_EQ(Text(abc), "abc");
}

TEST(FxStr, IsCopiedWithItsText)
{
    fxStr text("abc"), empty, blanks(3u);
    const fxStr copy(text), copyOfEmpty(empty);
    EXPECT_NE(static_cast<char*>(copy), static_cast<char*>(text)) << "a copy has a text of its own";
    empty = text, blanks = static_cast<const fxStr&>(blanks), text = text + 1;
    EXPECT_EQ(Row() << copy << copy.length() << copyOfEmpty.length() << empty << text << text.length(),
              "abc 3 0 abc bc 2");
    EXPECT_EQ(Row() << (text == "bc") << (text == "b") << (copyOfEmpty == nullptr) << (blanks == "   "), "1 0 1 1");
    text = nullptr;
    EXPECT_EQ(Row() << text.length() << (text == ""), "0 1");
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
