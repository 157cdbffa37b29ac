// What must take linear time: sixteen times as much takes sixteen times as long, or some forty times where the memory
// is slower. Quadratic work would take 256 times as long.
#include <gtest/gtest.h>

#include <climits>
#include <ctime>
#include <deque>

#include "mcl/mfc_std.h"
#include "tests/support/graph.h"
#include "tests/support/watch.h"

enum class Kind : int {};

struct Point {
    int x, y;
    bool operator==(const Point& other) const { return x == other.x && y == other.y; }
};

static unsigned HashKey(Point key)
{
    return static_cast<unsigned>(key.x); // many in one bucket
}

template <> struct VELM_CKeyIndex<Point> {
    static unsigned Hash(const VELM_CKeyHasher& hasher, Point key) { return hasher(&key, sizeof key); }
};

// Fills a map, looks for all keys and for as many others, and takes one after the other out again.
template <class MAP, class MAKE> static void FillAndEmpty(unsigned n, MAKE make)
{
    MAP map;
    unsigned nWrong = 0, nBucket;
    typedef decltype(map.GetAssocAt(make(0), nBucket)->value) Value;
    for (unsigned i = 0; i < n; ++i)
        map[make(i)] = (Value)(uintptr_t)i;
    for (unsigned i = 0; i < 2 * n; ++i) {
        const auto* const pAssoc = map.GetAssocAt(make(i), nBucket);
        nWrong += (pAssoc != nullptr) != (i < n) || (i < n && pAssoc->value != (Value)(uintptr_t)i);
    }
    for (unsigned i = 0; i < n; ++i) // one goes and another one comes, in its node
        nWrong += map.RemoveKey(make(i * 7919 % n)) != 1, map[make(i * 7919 % n)] = (Value)(uintptr_t)i;
    for (unsigned i = 0; i < n; ++i)
        nWrong += map.RemoveKey(make(i * 7919 % n)) != 1;
    EXPECT_EQ(nWrong, 0u);
    EXPECT_EQ(map.m_pBlocks, nullptr);
}

template <class KEY, class ARG_KEY = KEY, class MAKE> static auto MapOf(MAKE make)
{
    return [=](unsigned n) { FillAndEmpty<VELM_CMap<KEY, ARG_KEY, int, int>>(n, make); };
}

static std::string text; // what the keys of the maps of texts are

static const char* Text(unsigned i)
{
    return (text = "a key of many characters, number " + std::to_string(i)).c_str();
}

static void FirstEntriesOfManyBuckets(unsigned n)
{
    VELM_CMap<unsigned, unsigned, int, int> map;
    map.InitHashTable(5 * n);
    for (unsigned i = 0; i < n; ++i)
        map[i * 80]; // five buckets from one to the next
    unsigned nWrong = 0;
    for (unsigned i = 0; i < n; ++i) {
        nWrong += (*map.begin()).key != i * 80 || map.RemoveKey(i * 80) != 1;
        map[(i - i % 4) * 80]; // one that was taken comes back
        nWrong += (*map.begin()).key != (i - i % 4) * 80 || map.RemoveKey((i - i % 4) * 80) != 1;
    }
    EXPECT_EQ(Row() << nWrong << map.GetCount(), "0 0");
}

static void Graph(unsigned n)
{
    std::deque<Node> nodes(n);
    for (unsigned i = 1; i < n; ++i)
        nodes[i].value = i, nodes[i].links = {&nodes[(i * 31u + 7) % i]};
    MemoryFile file(Stored([&](VELM_CArchive& to) {
        for (const Node& node : nodes)
            to.WriteObject(&node);
    }));
    VELM_CArchive from(&file, VELM_CArchive::load);
    from.SetClassTable(&GraphClasses());
    unsigned nWrong = 0;
    for (unsigned i = 0; i < n; ++i)
        nWrong += static_cast<Node*>(from.ReadObject(&Node::record))->value != i;
    from.DeleteLoadedObjects();
    EXPECT_EQ(nWrong, 0u);
}

static void StringArrayThatGrowsAndIsSorted(unsigned n)
{
    VELM_CStringArray strings, sorted;
    for (unsigned i = 0; i < n; ++i)
        strings.Add(std::to_string(100000 + i * 7919 % n).c_str()), strings.ElementAt(0);
    strings.Sort(sorted);
    EXPECT_EQ(sorted.GetAt(int(n) - 1), VELM_CString(std::to_string(100000 + n - 1)));
}

static void ObjectArrayThatChangesInFront(unsigned n)
{
    VELM_CObject object;
    VELM_CObArray array, other;
    for (unsigned i = 0; i < n; ++i)
        array.InsertAt(0, &object), array.InsertAt(0, &object), array.RemoveAt(0);
    other.InsertAt(0, &object, int(n)), other.InsertAt(0, &array), other.InsertAt(1, &other);
    other.RemoveAt(0, 2 * int(n)), other.RemoveAt(0, int(n));
    EXPECT_EQ(other.GetSize(), int(n));
}

static void ClassTable(unsigned n)
{
    std::vector<std::string> names(n);
    std::vector<VELM_CRuntimeClass> records(n); // each derived from the one before
    VELM_CClassTable table;
    unsigned nWrong = 0;
    for (unsigned i = 0; i < n; ++i) {
        names[i] = "class " + std::to_string(i);
        records[i] = {names[i].c_str(), 0, 1};
        nWrong += table.Add<Node>(&records[i], i > 0 ? &records[i - 1] : nullptr) != 1;
    }
    for (unsigned i = n; i-- > 0;)
        nWrong += table.IsDerivedFrom(&records[i], &records[0]) != 1;
    const auto isDerived = [&](unsigned i, unsigned nBase) {
        return table.IsDerivedFrom(&records[i], &records[nBase]);
    };
    EXPECT_EQ(Row() << nWrong << isDerived(9, 10) << isDerived(n / 2 + 9, 1) << isDerived(n / 2 + 9, n / 2), "0 0 1 1");
    table.Add<Node>(&records[n / 2], &records[n / 2 + 1]); // in a circle, and no longer with those before
    EXPECT_EQ(Row() << isDerived(n / 2 + 9, 1) << isDerived(n / 2 + 9, n / 2) << isDerived(n / 2 - 1, 1), "0 1 1");
}

static void LinesThatEndInACarriageReturn(unsigned n)
{
    MemoryFile file;
    for (unsigned i = 0; i < n; ++i)
        file.data += "a\ra";
    VELM_CArchive ar(&file, VELM_CArchive::load, int(3 * n)); // all of them are read ahead
    VELM_CString line;
    std::vector<char> room(3 * n + 1);
    unsigned nWrong = 0;
    for (unsigned i = 0; i < n; i += 2) {
        nWrong += ar.ReadString(line) != 1 || line != "aa"; // the byte behind is kept
        nWrong += ar.ReadString(room.data(), 3 * n) == nullptr || VELM_CString(room.data()) != "a";
    }
    EXPECT_EQ(nWrong, 0u);
}

static void MemoryFileOfSmallWrites(unsigned n)
{
    VELM_CMemoryFile files[2]; // in turn, so that neither grows in its place
    unsigned nMoves = 0;
    for (unsigned i = 0; i < n; ++i) {
        const void* const pBefore = files[i % 2].GetBytes();
        files[i % 2].Write("abc", 3);
        nMoves += files[i % 2].GetBytes() != pBefore;
    }
    EXPECT_LT(nMoves, 100u) << "moves of all bytes in " << n << " writes";
}

// The processor's time that it takes, at best.
static double Seconds(const std::function<void(unsigned)>& work, unsigned n)
{
    clock_t best = LONG_MAX;
    for (int i = 0; i < 3; ++i) {
        const clock_t start = clock();
        work(n), best = std::min(best, clock() - start);
    }
    return double(best) / CLOCKS_PER_SEC;
}

TEST(Cost, IsLinear)
{
    static uint32_t words[128000]; // all in one bucket
    const struct {
        const char* what;
        unsigned n;
        std::function<void(unsigned)> work;
    } rows[] = {{"a map of int", 2000, MapOf<int>([](unsigned i) { return int(i) * 272; })},
                {"a map of 64 bits", 1000, MapOf<long long>([](unsigned i) { return i * (1LL << 32); })},
                {"a map of an enumeration", 1000, MapOf<Kind>([](unsigned i) { return Kind(i); })},
                {"a map of std::string", 1000, MapOf<std::string, const std::string&>([](unsigned i) {
                     return std::string("\0\0", 2) + std::to_string(i);
                 })},
                {"a map of VELM_CString", 1000, MapOf<VELM_CString, const char*>(Text)},
                {"a map of a program's type", 1000, MapOf<Point>([](unsigned i) {
                     return Point{int(i % 3), int(i)};
                 })},
                {"a map of pointers", 1000,
                 [](unsigned n) { FillAndEmpty<VELM_CMapPtrToPtr>(n, [](unsigned i) { return &words[i]; }); }},
                {"a map of fxStr", 1000, MapOf<fxStr, char*>([](unsigned i) { return const_cast<char*>(Text(i)); })},
                {"the first entries of many buckets", 1000, FirstEntriesOfManyBuckets},
                {"a graph", 4000, Graph},
                {"an array of strings", 1000, StringArrayThatGrowsAndIsSorted},
                {"an array of objects", 1000, ObjectArrayThatChangesInFront},
                {"a class table", 1000, ClassTable},
                {"lines that end in a carriage return", 20000, LinesThatEndInACarriageReturn},
                {"a file in memory", 20000, MemoryFileOfSmallWrites}};
    for (const auto& row : rows) {
        AfxSetNotices(0);
        const double once = Seconds(row.work, row.n), much = Seconds(row.work, 16 * row.n);
        AfxSetNotices(1);
        ASSERT_LT(much, 100 * once + 0.002) << row.what << " is not linear: takes " << once << " s for " << row.n;
    }
}
