// Arrays of pointers, strings and objects.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <random>

#include "tests/support/watch.h"

#define BOUNDS "nIndex >= 0 && nIndex < m_size"

static VELM_CObject objects[26]; // the element of a letter is the object of its number
static VELM_CObject* const p = objects + 'p' - 'a';

static std::string Letter(const void* pObject)
{
    return std::string(1, pObject == nullptr ? '-' : char('a' + (static_cast<const VELM_CObject*>(pObject) - objects)));
}

// What the cases start with.
struct Pointers : VELM_CPtrArray {
    Pointers() { InsertAt(0, objects), InsertAt(1, objects + 1), SetAtGrow(2, objects + 2), FreeExtra(); }
    std::string Element(int i) { return Letter(m_data[i]); }
};
struct Strings : VELM_CStringArray {
    Strings() { Add("xc"), Add(VELM_CString("a")), Add(const_cast<char*>("b")); }
    std::string Element(int i) { return m_data[i].m_data + std::string(" "); }
};
struct Objects : VELM_CObArray {
    Objects() { InsertAt(0, objects), InsertAt(1, objects + 1), InsertAt(2, objects + 2); }
    std::string Element(int i) { return Letter((*this)[i]); }
    const int m_max_size = 0; // the same in all cases
};

// Does each, and compares with the elements, the capacity, and the reports and raises that come of it.
template <class START> static void Check(std::initializer_list<std::pair<void (*)(START&), const char*>> cases)
{
    for (const auto& c : cases) {
        START array;
        std::string seen, outcome = Outcome([&] { c.first(array); });
        for (int i = 0; i < array.GetSize(); ++i)
            seen += array.Element(i);
        EXPECT_EQ(seen + " " + std::to_string(array.m_max_size) + " " + outcome, c.second);
    }
}

TEST(PtrArray, Operations)
{
    static VELM_CPtrArray xy, none;
    xy.SetAtGrow(0, objects + 23), xy.SetAtGrow(1, objects + 24);
    Check<Pointers>(
        {{[](auto& a) { a.SetSize(1), a.SetSize(3), a.SetSize(4, INT_MAX); }, "a--- 4 "},
         {[](auto& a) { a.SetSize(2, 10), a.SetSize(4, 0); }, "ab-- 7 "},
         {[](auto& a) { a.SetSize(-1, 10), a.SetSize(5, -7); }, "abc-- 5 nNewSize >= 0"},
         {[](auto& a) { a.SetSize(0, 10), a.SetSize(2), a.SetSize(3); }, "--- 12 "},
         {[](auto& a) { a.RemoveAt(0, 2), a.FreeExtra(), a.SetAtGrow(3, p), a.SetAtGrow(1, p); }, "cp-p 5 "},
         {[](auto& a) { a.RemoveAt(0, 3), a.FreeExtra(), a.SetSize(1); }, "- 1 "},
         {[](auto& a) { a.InsertAt(1, p, 2), a.RemoveAt(0), a.InsertAt(6, p); }, "ppbc--p 7 "},
         {[](auto& a) { a.InsertAt(9, &none), a.InsertAt(1, &xy), a.SetAt(a.Append(xy), p); }, "axybcpy 7 "},
         {[](auto& a) { a.Append(a), a.Copy(a), a.InsertAt(1, &a); }, "aabcabcbcabc 12 this != &src; this != &src"},
         {[](auto& a) { a.Copy(none), a.Append(none), a.Copy(xy), a.SetSize(3); }, "xy- 6 "},
         {[](auto& a) { a.SetAt(3, p), a.SetAt(0, a.GetAt(-1)); }, "-bc 3 " BOUNDS "; " BOUNDS},
         {[](auto& a) { a.SetAtGrow(-1, p), a.SetAtGrow(INT_MAX, p); }, "abc 3 nIndex >= 0; raise 1"},
         {[](auto& a) { a.InsertAt(-1, p, 0), a.InsertAt(0, p, INT_MAX); }, "abc 3 nIndex >= 0; nCount > 0; raise 1"},
         {[](auto& a) { a.InsertAt(-1, (Pointers*)nullptr); }, "abc 3 pNewArray != NULL; nStartIndex >= 0"},
         {[](auto& a) { a.RemoveAt(3, 0), a.RemoveAt(2, 2), a.RemoveAt(1, INT_MAX), a.InsertAt(INT_MAX, p); },
          "abc 3 nIndex + nCount <= m_size; nIndex + nCount <= m_size; raise 1"}});
    const int growths[][2] = {{1, 4}, {39, 4}, {40, 5}, {8191, 1023}, {8192, 1024}, {10000, 1024}};
    for (const auto& c : growths) { // by an eighth of the size, not of the capacity
        VELM_CPtrArray array;
        array.SetSize(10000), array.SetSize(c[0]), array.SetSize(10001);
        EXPECT_EQ(array.m_max_size, 10000 + c[1]);
    }
}

TEST(PtrArray, OnlyALargeBlockThatStaysLargeIsResizedInPlace)
{
    const int nLarge = 128 * 1024 / static_cast<int>(sizeof(void*)); // slots
    VELM_CPtrArray array;
    array.SetSize(4 * nLarge), array.SetAt(9, p);
    const std::pair<int, bool> steps[] = {{2 * nLarge, true}, {nLarge, true}, {nLarge - 1, false},
                                          {nLarge, false},    {1000, false},  {1001, false}};
    for (const auto& [nSize, bInPlace] : steps) {
        [[maybe_unused]] const auto nBefore = reinterpret_cast<uintptr_t>(array.m_data);
        array.SetSize(nSize, -2), array.FreeExtra(); // takes one block
        EXPECT_EQ(Row() << array.m_max_size << Letter(array.GetAt(9)), std::to_string(nSize) + " p");
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__) // whose realloc always moves
        EXPECT_EQ(reinterpret_cast<uintptr_t>(array.m_data) == nBefore, bInPlace) << nSize;
#endif
    }
}

TEST(StringArray, Operations)
{
    static Strings other;
    Check<Strings>(
        {{[](auto& a) { a.SetSize(1), a.SetSize(4); }, "xc a b   16 "}, // hidden texts come back
         {[](auto& a) { a.SetSize(17), a.SetSize(3); }, "xc a b  21 "},
         {[](auto& a) { a.SetSize(17, -9), a.SetSize(3); }, "xc a b  17 "},
         {[](auto& a) { a.SetSize(-1), a.SetSize(INT_MAX); }, "xc a b  16 newSize >= 0; raise 1"},
         {[](auto& a) { a.RemoveAll(), a.SetSize(0), a.SetSize(2, 9), a.Add("x"); }, "  x  18 "},
         {[](auto& a) { other = a, a = other, a = static_cast<Strings&>(a), a.Sort(a); }, "xc a b a b xc  19 "},
         {[](auto& a) { a.SetSize(16), a.Add(a[0].m_data + 1), a[0] = a[16], a.SetSize(3); }, "c a b  32 "},
         {[](auto& a) { a.GetAt(1) += "x", a.ElementAt(2) += "x", a.SetAt(0, a[0].m_data + 1); }, "c a bx  16 "},
         {[](auto& a) { a.SetAt(3, "x"), a[INT_MIN] = "x", a[0] = a[3], a[1] = a.GetAt(-1); },
          "  b  16 " BOUNDS "; " BOUNDS "; " BOUNDS "; " BOUNDS}});
    Strings found;
    found.Add("a"), found.Add("");
    EXPECT_EQ(Row() << found.Find("a") << found.Find(VELM_CString("b")) << found.Find("") << found.Find("x"),
              "1 2 4 -1");
    EXPECT_EQ(Row() << found.Contains("b") << found.Contains("x") << found.GetUpperBound(), "1 0 4");
    EXPECT_EQ(Row() << found.Contains(VELM_CString("b")) << found.Contains(VELM_CString("x")), "1 0");
    // Copies take the elements, not the capacity; nothing is left of what is removed.
    found.SetSize(30), found.SetSize(2);
    Strings assigned;
    const Strings copied(found);
    EXPECT_EQ(&(assigned = found), &assigned);
    for (const Strings* pSame : {static_cast<const Strings*>(&assigned), &copied})
        EXPECT_EQ(Row() << pSame->m_size << pSame->m_max_size << pSame->m_data[0].m_data << pSame->m_data[1].m_data,
                  "2 2 xc a");
    found.RemoveAll();
    EXPECT_EQ(Row() << found.m_size << found.m_max_size << (found.m_data == nullptr) << found.Find("a"), "0 0 1 -1");
}

TEST(ObArray, Operations)
{
    static VELM_CObArray xy;
    xy.InsertAt(0, objects + 24), xy.InsertAt(0, objects + 23);
    Check<Objects>(
        {{[](auto& a) { a.Copy(a), a.Append(xy), a.RemoveAt(a.Append(a) - 1); }, "abcxyabcx 0 "},
         {[](auto& a) { a.Copy(xy), a.RemoveAt(0, 0), a.RemoveAt(0, -1), a.RemoveAt(-1), a.RemoveAt(2); }, "xy 0 "},
         {[](auto& a) { a.InsertAt(1, p, 2), a.InsertAt(9, &xy), a.InsertAt(-1, p); }, "pappbcxy 0 "},
         {[](auto& a) { a.InsertAt(1, &xy), a.InsertAt(0, (Objects*)nullptr), a.InsertAt(1, &a); }, "aaxybcxybc 0 "},
         {[](auto& a) { a.RemoveAt(1, INT_MAX), a.InsertAt(0, p, -1), a.InsertAt(0, a[1]), a.InsertAt(0, a[-1]); },
          "--a 0 "}});
}

TEST(ObArray, IsAListWhereverItChanges)
{
    std::mt19937 random(3);
    VELM_CObArray array;
    std::vector<VELM_CObject*> model;
    for (int nStep = 0; nStep < 3000; ++nStep) {
        const size_t nAt = random() % (model.size() + 1), nMore = random() % 4;
        const auto at = model.begin() + static_cast<long>(nAt);
        if (random() % 3 != 0) {
            array.InsertAt(static_cast<int>(nAt), objects + nStep % 26, static_cast<int>(nMore));
            model.insert(at, nMore, objects + nStep % 26);
        } else {
            array.RemoveAt(static_cast<int>(nAt), static_cast<int>(2 * nMore));
            model.erase(at, at + static_cast<long>(std::min(2 * nMore, model.size() - nAt)));
        }
        ASSERT_EQ(std::vector<VELM_CObject*>(array.begin(), array.end()), model) << nStep;
    }
}

TEST(ObArray, StreamHoldsACountAndImages)
{
    VELM_CObArray source;
    source.InsertAt(0, p, 2), source.InsertAt(1, static_cast<VELM_CObject*>(nullptr));
    EXPECT_EQ(Stored([&](VELM_CArchive& ar) { source.Serialize(ar); }), Bytes("03000000") + std::string(24, '\0'));
    const std::pair<const char*, int> counts[] = {{"00000000", 0}, {"02000000", 2}, {"FFFFFFFF", 0}, {"FFFFFF7F", 3}};
    for (int n = 0; n < 4 * 32; ++n) { // each count with each number of bytes, of which 8 are an element
        Objects array;
        MemoryFile file((Bytes(counts[n / 32].first) + std::string(27, 'x')).substr(0, static_cast<size_t>(n % 32)));
        VELM_CArchive ar(&file, VELM_CArchive::load);
        EXPECT_EQ(Printed([&] { EXPECT_EQ(Outcome([&] { array.Serialize(ar); }), ""); }), "");
        EXPECT_EQ(array.GetSize(), 3 + std::min((n % 32 - 4) / 8, counts[n / 32].second));
        for (int i = 3; i < array.GetSize(); ++i)
            delete array[i];
    }
}
