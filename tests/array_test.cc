// Arrays of pointers, strings and objects.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <random>

#include "tests/support/watch.h"

#define BOUNDS "nIndex >= 0 && nIndex < m_size"

static VELM_CObject objects[26]; // the element of a letter is the object of its number
static VELM_CObject* const p = objects + 'p' - 'a';

using Elements = std::vector<VELM_CObject*>;

template <class LIST> static int ssize(const LIST& list)
{
    return static_cast<int>(list.size());
}

// An array, the elements that it should have, and its capacity if it has one.
template <class ARRAY> struct Both {
    ARRAY array;
    Elements model;
    int nMax = 0, nGrowBy = 0;

    void Resize(size_t nNewSize, int nNewGrowBy = -1)
    {
        nGrowBy = nNewGrowBy == -1 ? nGrowBy : nNewGrowBy;
        const int nNew = static_cast<int>(nNewSize), nStep = nGrowBy ? nGrowBy : std::clamp(ssize(model) / 8, 4, 1024);
        nMax = nNew == 0 ? 0 : nMax == 0 ? nNew : nNew <= nMax ? nMax : std::max(nNew, nMax + nStep);
        model.resize(nNewSize);
    }
    void Insert(size_t nAt, const Elements& more)
    {
        const Elements behind(model.begin() + std::min<long>(long(nAt), ssize(model)), model.end());
        if (more.empty())
            return;
        Resize(std::max(nAt, model.size()) + more.size());
        std::copy(behind.begin(), behind.end(), std::copy(more.begin(), more.end(), model.begin() + long(nAt)));
    }
    void Remove(int nAt, int n) { model.erase(model.begin() + nAt, model.begin() + nAt + n); }
};

template <class ARRAY> static void CheckBesideVectors()
{
    constexpr bool bPointers = std::is_same<ARRAY, VELM_CPtrArray>::value;
    static const size_t sizes[] = {0, 1, 39, 40, 8191, 8192, 9000};
    std::mt19937 random(3);
    Both<ARRAY> both[2];
    for (int nStep = 0; nStep < 4000; ++nStep) {
        const size_t nArray = random() % 2;
        auto &a = both[nArray], &other = both[bPointers ? 1 - nArray : random() % 2];
        const Elements more = other.model;
        VELM_CObject* const pNew = objects + random() % 26;
        const size_t nSize = a.model.size(), nFrom = random() % (nSize + 1), nNew = sizes[random() % 7];
        const size_t n = nSize > 9500 ? nSize - nFrom : std::min<size_t>(random() % 5, nSize - nFrom);
        const size_t nTo = bPointers ? nFrom + random() % 3 : nFrom; // may leave a gap behind the end
        const int nIndex = static_cast<int>(nFrom), nCount = static_cast<int>(n), nAt = static_cast<int>(nTo);
        const int nFar = bPointers || nFrom + n < nSize ? nCount : nCount + 5,
                  nGrowBy = "\3\3\4\0\11"[random() % 5] - 4;
        std::vector<std::pair<const char*, std::function<void()>>> changes = {
            {"RemoveAt", [&] { a.array.RemoveAt(nIndex, nFar), a.Remove(nIndex, nCount); }},
            {"InsertAt", [&] { a.array.InsertAt(nAt, pNew, nCount + 1), a.Insert(nTo, Elements(n + 1, pNew)); }},
            {"InsertAt of an array", [&] { a.array.InsertAt(nAt, &other.array), a.Insert(nTo, more); }},
            {"Copy", [&] { a.array.Copy(other.array), a.Resize(more.size()), a.model = more; }},
            {"Append", [&] {
                 const int nResult = a.array.Append(other.array);
                 a.Resize(nSize + more.size()), std::copy(more.begin(), more.end(), a.model.end() - ssize(more));
                 EXPECT_EQ(nResult, bPointers ? ssize(a.model) - ssize(more) : ssize(a.model)) << "Append's result";
             }}};
        if constexpr (bPointers) {
            changes.push_back({"SetSize", [&] { a.array.SetSize(int(nNew), nGrowBy), a.Resize(nNew, nGrowBy); }});
            changes.push_back({"FreeExtra", [&] { a.array.FreeExtra(), a.nMax = ssize(a.model); }});
            changes.push_back({"SetAtGrow", [&] {
                                   a.array.SetAtGrow(nAt, pNew);
                                   a.Resize(std::max(nTo + 1, nSize)), a.model[nTo] = pNew;
                               }});
        }
        const auto& change = changes[nSize + more.size() > 19000 ? 0 : random() % changes.size()];
        change.second();
        ASSERT_TRUE(std::equal(a.array.begin(), a.array.end(), a.model.begin(), a.model.end()))
            << "wrong elements after " << change.first << ", step " << nStep;
        if constexpr (bPointers) {
            ASSERT_EQ(a.array.m_max_size, a.nMax) << "wrong capacity after " << change.first << ", step " << nStep;
        }
    }
}

TEST(Arrays, HoldWhatVectorsHoldAfterTheSameChanges)
{
    CheckBesideVectors<VELM_CPtrArray>();
    CheckBesideVectors<VELM_CObArray>();
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
        EXPECT_EQ(Row() << array.m_max_size << (array.GetAt(9) == p), std::to_string(nSize) + " 1");
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__) && !EMULATED // whose realloc moves
        EXPECT_EQ(reinterpret_cast<uintptr_t>(array.m_data) == nBefore, bInPlace) << nSize;
#endif
    }
}

// Does each to a new array, and compares with the elements, the reports and the raises that come of it.
template <class START> static void Check(std::initializer_list<std::pair<void (*)(START&), const char*>> cases)
{
    for (const auto& c : cases) {
        START array;
        const std::string outcome = Outcome([&] { c.first(array); });
        EXPECT_EQ(array.Text() + " " + outcome, c.second);
    }
}

template <class ARRAY> struct Abc : ARRAY {
    Abc() { ARRAY::InsertAt(0, objects), ARRAY::InsertAt(1, objects + 1), ARRAY::InsertAt(2, objects + 2); }
    std::string Text() const
    {
        std::string letters; // - for NULL
        for (const void* pObject : *this)
            letters += pObject == nullptr ? '-' : char('a' + (static_cast<const VELM_CObject*>(pObject) - objects));
        return letters;
    }
};
using Pointers = Abc<VELM_CPtrArray>;
using Objects = Abc<VELM_CObArray>;
struct Strings : VELM_CStringArray {
    Strings() { Add("xc"), Add(VELM_CString("a")), Add(const_cast<char*>("b")); }
    std::string Text() const { return (Row() << m_data[0].m_data << m_data[1].m_data << m_data[2].m_data).Text(); }
};

TEST(Arrays, FailedChecksChangeNothing)
{
    Check<Pointers>(
        {{[](auto& a) { a.SetSize(-1, 10), a.SetSize(5, -7), a.SetSize(3), a.SetSize(5); }, "abc-- nNewSize >= 0"},
         {[](auto& a) { a.Append(a), a.Copy(a), a.InsertAt(1, &a); }, "aabcabcbcabc this != &src; this != &src"},
         {[](auto& a) { a.SetAt(3, p), a.SetAt(0, a.GetAt(-1)); }, "-bc " BOUNDS "; " BOUNDS},
         {[](auto& a) { a.SetAtGrow(-1, p), a.SetAtGrow(INT_MAX, p); }, "abc nIndex >= 0; raise 1"},
         {[](auto& a) { a.InsertAt(-1, p, 0), a.InsertAt(0, p, INT_MAX); }, "abc nIndex >= 0; nCount > 0; raise 1"},
         {[](auto& a) { a.InsertAt(-1, (Pointers*)nullptr); }, "abc pNewArray != NULL; nStartIndex >= 0"},
         {[](auto& a) { a.RemoveAt(3, 0), a.RemoveAt(2, 2), a.RemoveAt(1, INT_MAX), a.InsertAt(INT_MAX, p); },
          "abc nIndex + nCount <= m_size; nIndex + nCount <= m_size; raise 1"},
         {[](auto& a) { a.RemoveAt(-1, 0), a.RemoveAt(1, -1); }, "abc nIndex >= 0; nCount >= 0"}});
    Check<Objects>({{[](auto& a) { a.RemoveAt(0, 0), a.RemoveAt(0, -1), a.RemoveAt(-1), a.RemoveAt(3); }, "abc "},
                    {[](auto& a) { a.InsertAt(9, p), a.InsertAt(-1, p), a.InsertAt(0, (Objects*)nullptr); }, "pabcp "},
                    {[](auto& a) { a.InsertAt(0, p, -1), a.InsertAt(0, a[1]), a.InsertAt(0, a[-1]); }, "-babc "}});
    Check<Strings>({{[](auto& a) { a.SetSize(-1), a.SetSize(INT_MAX); }, "xc a b newSize >= 0; raise 1"},
                    {[](auto& a) { a.SetAt(3, "x"), a[INT_MIN] = "x", a[0] = a[3], a[1] = a.GetAt(-1); },
                     "b " BOUNDS "; " BOUNDS "; " BOUNDS "; " BOUNDS}});
}

TEST(StringArray, HoldsWhatAVectorHoldsAfterTheSameChanges)
{
    std::mt19937 random(11);
    VELM_CStringArray array;
    std::vector<std::string> block(16); // with all that m_len says; what is behind the size is as it was
    size_t nSize = 0;
    const auto grow = [&](size_t nMax) { // to a new block, to which the elements are assigned
        block.resize(nSize), block.resize(nMax);
        std::for_each(block.begin(), block.end(), [](std::string& string) { string = string.c_str(); });
    };
    const auto add = [&](const std::string& text) {
        if (nSize == block.size())
            grow(nSize + 16);
        block[nSize++] = text.c_str();
    };
    for (int nStep = 0; nStep < 6000; ++nStep) {
        const size_t nAt = nSize == 0 ? 0 : random() % nSize, nNew = random() % (random() % 2 ? 4 : 300);
        const int i = static_cast<int>(nAt), nGrowBy = "\0\1\4"[random() % 3] - 1;
        std::string text(random() % 3 * 7, 'k'); // the first eight bytes decide an order, or do not
        text += {"ab\xFF"[random() % 3], "ab\xFF"[random() % 3]};
        const char* const lpsz = text.c_str();
        const std::string nul = text + '\0' + text;
        const std::pair<const char*, std::function<void()>> changes[] = {
            {"SetSize",
             [&] {
                 const size_t nRoom = nGrowBy == -1 ? std::max<size_t>(nSize / 8, 4) : size_t(nGrowBy);
                 array.SetSize(static_cast<int>(nNew), nGrowBy);
                 nNew > block.size() ? grow(nNew + (block.empty() ? 0 : nRoom)) : nNew == 0 ? block.clear() : void();
                 nSize = nNew;
             }},
            {"= copy",
             [&] {
                 const VELM_CStringArray copy(array);
                 ASSERT_EQ(&(array = copy), &array);
                 grow(nSize);
             }},
            {"RemoveAll", [&] { array.RemoveAll(), block.clear(), nSize = 0; }},
            {"= an empty array", [&] { array = VELM_CStringArray(), block.clear(), nSize = 0; }},
            {"= itself", [&] { array = static_cast<VELM_CStringArray&>(array); }},
            {"Sort",
             [&] {
                 std::vector<std::string> sorted;
                 std::for_each(block.begin(), block.begin() + long(nSize),
                               [&](auto& s) { sorted.push_back(s.c_str()); });
                 std::sort(sorted.begin(), sorted.end()); // unsigned characters
                 array.Sort(array), std::for_each(sorted.begin(), sorted.end(), add);
             }},
            {"Add", [&] { array.Add(lpsz), add(text); }},
            {"Add char*", [&] { array.Add(text.data()), add(text); }},
            {"Add string", [&] { array.Add(VELM_CString(lpsz)), add(text); }},
            {"SetAt", [&] { array.SetAt(i, lpsz), block[nAt] = text; }},
            {"[]", [&] { array[i].Set(nul.data(), 4), block[nAt] = nul.substr(0, 4); }},
            {"ElementAt of many",
             [&] {
                 for (size_t n = 0; n < nNew % 40; ++n)
                     array.ElementAt(int(n % nSize)).Set(nul.data(), 4), block[n % nSize] = nul.substr(0, 4);
             }},
            {"Add of an element", [&] { array.Add(array.m_data[i].m_data), add(std::string(block[nAt])); }}};
        const auto& change =
            changes[random() % (nSize == 0 ? 2 : 12) == 0 ? random() % 6 : 6 + random() % (nSize == 0 ? 3 : 7)];
        ASSERT_NO_FATAL_FAILURE(change.second());
        ASSERT_EQ(Row() << array.GetSize() << array.m_max_size, (Row() << nSize << block.size()).Text())
            << "wrong size or capacity after " << change.first << ", step " << nStep;
        for (size_t n = 0; n < block.size(); ++n)
            ASSERT_EQ(std::string(array.m_data[n]), block[n]) << n << " after " << change.first << ", step " << nStep;
        const auto end = block.begin() + long(nSize);
        const auto found = std::find_if(block.begin(), end, [&](auto& s) { return s.c_str() == text; });
        const long nFound = found == end ? -1 : found - block.begin(), bFound = found != end;
        ASSERT_EQ(Row() << array.Find(lpsz) << array.Find(VELM_CString(lpsz)) << array.Contains(lpsz)
                        << array.Contains(VELM_CString(lpsz)),
                  (Row() << nFound << nFound << bFound << bFound).Text())
            << text;
    }
    VELM_CString small("a"), large("b"), *pSmall = &small, *pLarge = &large;
    EXPECT_LT(CStringCompare(&pSmall, &pLarge), 0) << "for qsort of an array of pointers";
    EXPECT_GT(CStringCompare(&pLarge, &pSmall), 0);
}

TEST(ObArray, StreamHoldsACountAndImages)
{
    VELM_CObArray source;
    source.InsertAt(0, p, 2), source.InsertAt(1, static_cast<VELM_CObject*>(nullptr));
    EXPECT_EQ(Stored([&](VELM_CArchive& ar) { source.Serialize(ar); }), Bytes("03000000") + std::string(24, '\0'));
    for (const auto& [hex, nCount] :
         {std::make_pair("00000000", 0), {"02000000", 2}, {"FFFFFFFF", 0}, {"FFFFFF7F", 3}}) {
        for (int n = 0; n < 32; ++n) { // bytes, of which 8 are an element
            Objects array;
            MemoryFile file((Bytes(hex) + std::string(27, 'x')).substr(0, size_t(n)));
            VELM_CArchive ar(&file, VELM_CArchive::load);
            EXPECT_EQ(Outcome([&] { array.Serialize(ar); }), "");
            EXPECT_EQ(array.GetSize(), 3 + std::min((n - 4) / 8, nCount)) << hex << " and " << n << " bytes in all";
            for (int i = 3; i < array.GetSize(); ++i)
                delete array[i];
        }
    }
    for (const int n : {0, 8, 9, 26}) { // more than a few need memory
        const size_t nBytes = 8 * size_t(n);
        EXPECT_EQ(Stored([&](VELM_CArchive& ar) { SerializeElements(ar, objects, n); }), std::string(nBytes, '\0'));
        MemoryFile file(std::string(nBytes, 'x') + "end");
        VELM_CArchive ar(&file, VELM_CArchive::load);
        unsigned char byNext;
        SerializeElements(ar, objects, n), ar >> byNext;
        EXPECT_EQ(byNext, 'e') << n << " images";
    }
}
