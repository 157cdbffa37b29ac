// Arrays of pointers, strings and objects.
#include <gtest/gtest.h>

#include <climits>
#include <memory>

#include "tests/support/watch.h"

static VELM_CObject objects[26]; // the element of a letter is the object of its number
static VELM_CObject* const p = objects + 'p' - 'a';
static const std::string bounds = "nIndex >= 0 && nIndex < m_size", beyond = "nIndex + nCount <= m_size";

// A letter for each element.
template <class ARRAY, class AT> static std::string Letters(const ARRAY& array, AT at)
{
    std::string letters;
    for (int i = 0; i < array.GetSize(); ++i)
        letters += at(i) == nullptr ? '-' : char('a' + (static_cast<const VELM_CObject*>(at(i)) - objects));
    return letters;
}

static std::string Show(const VELM_CObArray& array)
{
    return Letters(array, [&](int i) { return array[i]; });
}

static std::string Show(const VELM_CPtrArray& array)
{
    EXPECT_EQ(array.m_data == nullptr, array.m_max_size == 0);
    return Letters(array, [&](int i) { return array.GetAt(i); }) + " " + std::to_string(array.m_max_size);
}

static std::string Show(const VELM_CStringArray& array)
{
    std::string texts;
    for (int i = 0; i < array.GetSize(); ++i)
        texts += array[i].m_data + std::string(" ");
    return texts + std::to_string(array.m_max_size);
}

template <class ARRAY> struct Case {
    void (*body)(ARRAY&);
    std::string shown, outcome;
};

// Runs each case on an array that fill has filled.
template <class ARRAY, size_t N> static void CheckCases(const Case<ARRAY> (&cases)[N], void (*fill)(ARRAY&))
{
    for (const auto& c : cases) {
        ARRAY array;
        fill(array);
        EXPECT_EQ(Outcome([&] { c.body(array); }), c.outcome) << "case " << &c - cases;
        EXPECT_EQ(Show(array), c.shown) << "case " << &c - cases;
    }
}

TEST(PtrArray, Operations)
{
    using Array = VELM_CPtrArray;
    static Array xy, none;
    xy.SetAtGrow(0, objects + 23), xy.SetAtGrow(1, objects + 24);
    const Case<Array> cases[] = {
        {[](Array& a) { a.SetSize(1), a.SetSize(3), a.SetSize(4, INT_MAX); }, "a--- 4", ""},
        {[](Array& a) { a.SetSize(2, 10), a.SetSize(4); }, "ab-- 13", ""},
        {[](Array& a) { a.SetSize(2, 10), a.SetSize(4, 0); }, "ab-- 7", ""},
        {[](Array& a) { a.SetSize(-1, 10), a.SetSize(5, -7); }, "abc-- 5", "nNewSize >= 0"},
        {[](Array& a) { a.SetSize(0, 10), a.SetSize(2), a.SetSize(3); }, "--- 12", ""},
        {[](Array& a) { a.RemoveAt(0, 2), a.FreeExtra(); }, "c 1", ""},
        {[](Array& a) { a.RemoveAt(0, 3), a.FreeExtra(), a.SetSize(0); }, " 0", ""},
        {[](Array& a) { a.SetAtGrow(1, p), a.SetAtGrow(4, p); }, "apc-p 7", ""},
        {[](Array& a) { a.SetAtGrow(-1, p), a.SetAtGrow(INT_MAX, p); }, "abc 3", "nIndex >= 0; raise 1"},
        {[](Array& a) { a.InsertAt(5, p, 2), a.RemoveAt(0); }, "bc--pp 7", ""},
        {[](Array& a) { a.InsertAt(-1, p, 0), a.InsertAt(1, p, 2); }, "appbc 7", "nIndex >= 0; nCount > 0"},
        {[](Array& a) { a.InsertAt(INT_MAX, p); }, "abc 3", "raise 1"},
        {[](Array& a) { a.InsertAt(0, p, INT_MAX); }, "abc 3", "raise 1"},
        {[](Array& a) { a.InsertAt(9, &none), a.InsertAt(1, &xy); }, "axybc 7", ""},
        {[](Array& a) { a.InsertAt(1, &a); }, "aabcbc 7", ""},
        {[](Array& a) { a.InsertAt(-1, (Array*)nullptr); }, "abc 3", "pNewArray != NULL; nStartIndex >= 0"},
        {[](Array& a) { a.RemoveAt(3, 0), a.RemoveAt(2, 2), a.RemoveAt(1, INT_MAX); }, "abc 3", beyond + "; " + beyond},
        {[](Array& a) { a.SetAt(a.Append(none) + a.Append(xy) - 3, p); }, "abcpy 7", ""},
        {[](Array& a) { a.Append(a), a.Copy(a); }, "abcabc 7", "this != &src; this != &src"},
        {[](Array& a) { a.Copy(xy), a.SetSize(3), a.Copy(none), a.SetAtGrow(a.Append(none), p); }, "p 1", ""},
#if !defined(__LP64__)
        {[](Array& a) { a.SetSize(INT_MAX); }, "abc 3", "raise 1"}, // more bytes than there are
#endif
        {[](Array& a) { a.SetAt(3, p), a.SetAt(0, a.GetAt(-1)); }, "-bc 3", bounds + "; " + bounds}
    };
    CheckCases<Array>(cases, [](Array& a) {
        a.InsertAt(0, objects), a.InsertAt(1, objects + 1), a.SetAtGrow(2, objects + 2), a.FreeExtra();
    });
    const int growths[][2] = {{1, 5}, {39, 43}, {40, 45}, {100, 112}, {8191, 9214}, {8192, 9216}, {10000, 11024}};
    for (const auto& c : growths) {
        Array array;
        array.SetSize(c[0]), array.SetAtGrow(c[0], p);
        EXPECT_EQ(array.m_max_size, c[1]);
        array.SetSize(8), array.SetSize(c[1] + 1);
        EXPECT_EQ(array.m_max_size, c[1] + 4); // of the size, not of the capacity
    }
}

TEST(StringArray, Operations)
{
    using Array = VELM_CStringArray;
    static Array other;
    const Case<Array> cases[] = {
        {[](Array& a) { a.SetSize(1), a.SetSize(4); }, "pear apple fig  16", ""}, // hidden texts come back
        {[](Array& a) { a.SetSize(17), a.SetSize(3); }, "pear apple fig 21", ""},
        {[](Array& a) { a.SetSize(17, -9), a.SetSize(3); }, "pear apple fig 17", ""},
        {[](Array& a) { a.SetSize(0), a.SetSize(2, 9); }, "  2", ""},
        {[](Array& a) { a.SetSize(-1), a.SetSize(INT_MAX); }, "pear apple fig 16", "newSize >= 0; raise 1"},
        {[](Array& a) { a.RemoveAll(), a.RemoveAll(), a.Add("x"); }, "x 16", ""},
        {[](Array& a) { a = static_cast<const Array&>(a), a.Sort(a); }, "pear apple fig apple fig pear 16", ""},
        {[](Array& a) { other = a, a = other; }, "pear apple fig 3", ""},
        {[](Array& a) { a.SetSize(16), a.Add(a[0]), a[3] = a[16], a.SetSize(4); }, "pear apple fig pear 32", ""},
        {[](Array& a) { a.SetSize(16), a.Add(a[0].m_data + 1), a[0] = a[16], a.SetSize(1); }, "ear 32", ""},
        {[](Array& a) { a.GetAt(1) += "x", a.ElementAt(2) += "x", a.SetAt(0, a[0].m_data + 1); }, "ear apple figx 16",
         ""},
        {[](Array& a) { a.SetAt(3, "x"), a[INT_MIN] = "x", a[3] += "x"; }, "pear apple fig 16",
         bounds + "; " + bounds + "; " + bounds},
        {[](Array& a) { a[0] = a.GetAt(-1); }, " apple fig 16", bounds}};
    CheckCases<Array>(cases,
                      [](Array& a) { a.Add("pear"), a.Add(VELM_CString("apple")), a.Add(const_cast<char*>("fig")); });
    other.RemoveAll();
    EXPECT_TRUE(other.GetUpperBound() == -1 && other.Find("") == -1 && other.Contains("") == 0);
    other.Add("b"), other.Add("a"), other.Add("b"), other.Add("");
    EXPECT_TRUE(other.Find("b") == 0 && other.Find(VELM_CString("a")) == 1 && other.Find("") == 3);
    EXPECT_TRUE(other.Contains("c") == 0 && other.Contains(VELM_CString("b")) == 1 && other.Find("ab") == -1);
    const VELM_CString *pB = &other[0], *pA = &other[1];
    EXPECT_TRUE(CStringCompare(&pA, &pB) < 0 && CStringCompare(&pB, &pA) > 0 && CStringCompare(&pA, &pA) == 0);
}

TEST(ObArray, Operations)
{
    using Array = VELM_CObArray;
    static Array xy;
    xy.InsertAt(0, objects + 24), xy.InsertAt(0, objects + 23);
    const Case<Array> cases[] = {
        {[](Array& a) { a.RemoveAt(a.Append(xy) - 1); }, "abcx", ""},
        {[](Array& a) { a.Copy(a), a.RemoveAt(a.Append(a) - 1); }, "abcab", ""},
        {[](Array& a) { a.Copy(xy), a.RemoveAt(0, 0), a.RemoveAt(0, -1), a.RemoveAt(-1), a.RemoveAt(2); }, "xy", ""},
        {[](Array& a) { a.InsertAt(1, p, 3), a.InsertAt(1, p, 0), a.InsertAt(1, p, -1); }, "apppbc", ""},
        {[](Array& a) { a.InsertAt(1, &xy), a.InsertAt(0, (Array*)nullptr); }, "axybc", ""},
        {[](Array& a) { a.InsertAt(1, &a); }, "aabcbc", ""},
        {[](Array& a) { a.InsertAt(9, &xy), a.InsertAt(-1, p); }, "pabcxy", ""},
        {[](Array& a) { a.RemoveAt(1, INT_MAX), a.InsertAt(0, a[1]), a.InsertAt(0, a[-1]); }, "--a", ""}};
    CheckCases<Array>(cases,
                      [](Array& a) { a.InsertAt(0, objects), a.InsertAt(1, objects + 1), a.InsertAt(2, objects + 2); });
}

TEST(ObArray, StreamHoldsACountAndImages)
{
    VELM_CObArray source;
    source.InsertAt(0, p, 2), source.InsertAt(1, static_cast<VELM_CObject*>(nullptr));
    EXPECT_EQ(Stored([&](VELM_CArchive& ar) { source.Serialize(ar); }), Bytes("03000000") + std::string(24, '\0'));
    const std::string i = Bytes("0102030405060708"), two = Bytes("02000000");
    // Bytes, and how many whole elements they hold.
    const std::pair<std::string, int> cases[] = {{"", 0},
                                                 {two.substr(1), 0},
                                                 {Bytes("00000000") + i, 0},
                                                 {two + i + i.substr(1), 1},
                                                 {two + i + i + i, 2},
                                                 {Bytes("FFFFFFFF") + i, 0},
                                                 {Bytes("FFFFFF7F") + i + i, 2}};
    for (const auto& c : cases) {
        VELM_CObArray array;
        array.InsertAt(0, p, 2);
        MemoryFile file(c.first);
        VELM_CArchive ar(&file, VELM_CArchive::load);
        EXPECT_EQ(Printed([&] { EXPECT_EQ(Outcome([&] { array.Serialize(ar); }), ""); }), "");
        EXPECT_EQ(array.GetSize(), 2 + c.second) << c.first.size();
        for (int n = 2; n < array.GetSize(); ++n) {
            const std::unique_ptr<VELM_CObject> pLoaded(array[n]);
            EXPECT_TRUE(pLoaded->m_pOwned == nullptr && pLoaded->GetRuntimeClass() == nullptr);
        }
    }
}
