// Maps keep an index beside their chains; one whose keys have no hash value of their own is the plain algorithm.
// Whatever is done to the two, by operations or by hand, they have the same chains, free nodes and blocks.
#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <random>
#include <thread>

#include "mcl/mfc_std.h"
#include "tests/support/watch.h"

namespace {

struct PlainText { // has no index
    std::string text;

    void operator=(const char* lpsz) { text = lpsz; }
    operator char*() const { return const_cast<char*>(text.c_str()); }
    template <class CHAR> bool operator==(CHAR* lpsz) const { return text == lpsz; }
};

struct Point {
    int x, y;
    bool operator==(const Point& other) const { return x == other.x && y == other.y; }
};

unsigned HashKey(Point key)
{
    return static_cast<unsigned>(key.x); // many in one bucket
}

} // namespace

template <> struct VELM_CKeyIndex<Point> {
    static unsigned Hash(const VELM_CKeyHasher& hasher, Point key) { return hasher(&key, sizeof key); }
};

// The key, value and place (block and node, the oldest first) of each node by bucket; then the free nodes.
template <class MAP> static std::string Shape(const MAP& map)
{
    std::map<const void*, int> places;
    int nBlocks = 0;
    for (VELM_CPlex* pBlock = map.m_pBlocks; pBlock != nullptr; pBlock = pBlock->pNext, ++nBlocks) {
        for (int i = 0; i < map.m_nBlockSize; ++i)
            places[static_cast<typename MAP::VELM_CAssoc*>(pBlock->data()) + i] = i - nBlocks * map.m_nBlockSize;
    }
    Row row;
    row << map.m_nCount << nBlocks;
    for (unsigned i = 0; map.m_pHashTable != nullptr && i < map.m_nHashTableSize; ++i) {
        row << "\n" << i;
        for (const auto* p = map.m_pHashTable[i]; p != nullptr; p = p->pNext)
            row << static_cast<const char*>(p->key) << p->value << p->nHashValue << places.at(p);
    }
    row << "\nfree";
    for (const auto* p = map.m_pFreeList; p != nullptr; p = p->pNext)
        row << places.at(p);
    return row.Text();
}

// Does it, and tells what came of it.
template <class MAP, class KEY> static int Do(MAP& map, unsigned nOperation, KEY key, unsigned nValue, KEY other)
{
    unsigned nBucket;
    auto* const pAssoc = map.GetAssocAt(key, nBucket);
    const auto value = static_cast<decltype(pAssoc->value)>(nValue);
    switch (nOperation) {
    case 0:
        map[key] = value;
        break;
    case 1:
        return map.RemoveKey(key);
    case 2: // link a new node at some place of the key's chain; an operation may come between
        if (pAssoc == nullptr && map.m_pHashTable != nullptr) {
            auto* const pNew = map.NewAssoc();
            pNew->key = key, pNew->value = value, pNew->nHashValue = nBucket;
            if (nValue % 2 != 0)
                map[other] = 0;
            auto** ppLink = &map.m_pHashTable[nBucket];
            for (unsigned i = 0; i < nValue % 3 && *ppLink != nullptr; ++i)
                ppLink = &(*ppLink)->pNext;
            pNew->pNext = *ppLink, *ppLink = pNew;
        }
        break;
    default: // unlink the key's node; operations may come before it is freed
        if (pAssoc != nullptr) {
            auto** ppLink = &map.m_pHashTable[nBucket];
            while (*ppLink != pAssoc)
                ppLink = &(*ppLink)->pNext;
            *ppLink = pAssoc->pNext;
            map.WalkChains();
            int nFound = 2 * (map.GetAssocAt(key, nBucket) != nullptr);
            // The copy of a text is at another address in each map.
            if (std::is_same<KEY, char*>::value && pAssoc->pNext != nullptr && nValue % 2 != 0)
                nFound += map.RemoveKey(const_cast<KEY>(static_cast<const char*>(pAssoc->pNext->key)));
            map.FreeAssoc(pAssoc);
            return nFound;
        }
    }
    return pAssoc != nullptr;
}

template <class KEY> static void CheckAgainstPlain(const char* name)
{
    static char texts[400][16]; // each text twice: a map that hashes addresses may have both
    for (unsigned i = 0; i < 400; ++i)
        snprintf(texts[i], sizeof texts[i], "k%u", i / 2);
    std::mt19937 random(5);
    for (unsigned nRound = 0; nRound < 60; ++nRound) { // each until the maps are emptied, as an index is lost by hand
        VELM_CMap<fxStr, KEY, int, int> map(7);
        VELM_CMap<PlainText, KEY, unsigned, unsigned> plain(7);
        const unsigned nSteps = 100 + nRound * 7;
        for (unsigned nStep = 0; nStep < nSteps; ++nStep) {
            const bool bByHand = nSteps - nStep < nRound % 40 && random() % 3 != 0;
            const unsigned nOperation = (bByHand ? 2u : 0u) + (random() % 3 == 0);
            const KEY key = texts[random() % 400], other = texts[random() % 400];
            ASSERT_EQ(Do(map, nOperation, key, nStep, other), Do(plain, nOperation, key, nStep, other))
                << name << ", round " << nRound << ", step " << nStep << ", operation " << nOperation;
            if (nSteps - nStep < nRound % 40 || nStep % 40 == 0) {
                ASSERT_EQ(Shape(map), Shape(plain))
                    << name << ", round " << nRound << ", step " << nStep << ", operation " << nOperation;
            }
        }
    }
}

// Fills a map of 17 buckets, looks for all and for others, and takes one after the other out again.
template <class MAP, class MAKE> static void FillAndEmpty(const char* name, MAKE make)
{
    const int nKeys = 60000; // far too many to walk chains for
    MAP map;
    unsigned nWrong = 0;
    int nValue = 0;
    for (int i = 0; i < nKeys; ++i)
        map[make(i)] = i;
    for (int i = 0; i < 2 * nKeys; ++i)
        nWrong += map.Lookup(make(i), nValue) != (i < nKeys) || (i < nKeys && nValue != i);
    for (int i = 0; i < nKeys; ++i) // one goes and another one comes, in its node
        nWrong += map.RemoveKey(make(i * 7919 % nKeys)) != 1, map[make(i * 7919 % nKeys)] = i;
    for (int i = 0; i < nKeys; ++i)
        nWrong += map.RemoveKey(make(i * 7919 % nKeys)) != 1 || map.GetCount() != nKeys - 1 - i;
    EXPECT_EQ(nWrong, 0u) << name;
}

TEST(Index, MapsOfAProgramsTypesAreFast)
{
    enum class Kind : int {};
    static std::string text;
    FillAndEmpty<VELM_CMap<int, int, int, int>>("int", [](int i) { return i * 272; });
    FillAndEmpty<VELM_CMap<long long, long long, int, int>>("64 bits", [](int i) { return i * (1LL << 32); });
    FillAndEmpty<VELM_CMap<Kind, Kind, int, int>>("enumeration", [](int i) { return Kind(i); });
    FillAndEmpty<VELM_CMap<void*, void*, int, int>>("pointer",
                                                    [](int i) { return reinterpret_cast<void*>(intptr_t{i}); });
    FillAndEmpty<VELM_CMap<std::string, const std::string&, int, int>>(
        "text", [](int i) { return std::string("\0\0", 2) + std::to_string(i); });
    FillAndEmpty<VELM_CMap<VELM_CString, const char*, int, int>>(
        "text by its characters", [](int i) { return (text = std::to_string(i)).c_str(); });
    FillAndEmpty<VELM_CMap<Point, Point, int, int>>("the program's", [](int i) { return Point{i % 3, i}; });
}

TEST(Index, TwoThreadsMayLookAtTheSameTime)
{
    static uint32_t words[1000];
    VELM_CMapPtrToPtr map;
    map.InitHashTable(1009); // short chains: there is no index before somebody looks
    for (uint32_t& rWord : words)
        rWord = static_cast<uint32_t>(&rWord - words) * 16, map[&rWord] = &rWord;
    std::atomic<int> nFound(0);
    std::thread threads[2];
    for (std::thread& thread : threads)
        thread = std::thread([&] {
            void* pValue;
            for (uint32_t& rWord : words)
                nFound += map.Lookup(&rWord, pValue) == 1 && (*std::as_const(map).begin()).value == words;
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(nFound, 2000);
}

TEST(Index, TextMapsAreAsWithoutIt)
{
    CheckAgainstPlain<char*>("hashed by text");
    CheckAgainstPlain<const char*>("hashed by address");
}
