// Maps keep an index beside their chains; one whose keys have no hash value of their own is the plain algorithm.
// Whatever is done to the two, by operations or by hand, they have the same chains, free nodes and blocks.
#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <random>
#include <thread>

#include "tests/support/watch.h"

namespace {

struct PlainText { // has no index
    std::string text;

    void operator=(const char* lpsz) { text = lpsz; }
    operator char*() const { return const_cast<char*>(text.c_str()); }
    template <class CHAR> bool operator==(CHAR* lpsz) const { return text == lpsz; }
};

struct PlainPointer { // neither
    void* p;

    void operator=(void* pKey) { p = pKey; }
    operator char*() const { return static_cast<char*>(p); }
    bool operator==(void* pKey) const { return p == pKey; }
};

} // namespace

template <> struct VELM_CMapKey<PlainPointer, void*> {
    static unsigned Hash(void* key) { return VELM_CPtrAssoc::Hash(key); }
    static void* Given(void* key) { return key; }
    static void* Argument(const PlainPointer& key) { return key.p; }
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
    std::ostringstream text;
    text << map.m_nCount << " in " << nBlocks;
    for (unsigned i = 0; map.m_pHashTable != nullptr && i < map.m_nHashTableSize; ++i) {
        for (const auto* p = map.m_pHashTable[i]; p != nullptr; p = p->pNext)
            text << "\n"
                 << i << ":" << p->nHashValue << " " << static_cast<const char*>(p->key) << "=" << (uintptr_t)p->value
                 << " " << places.at(p);
    }
    text << "\nfree";
    for (const auto* p = map.m_pFreeList; p != nullptr; p = p->pNext)
        text << " " << places.at(p);
    return text.str();
}

TEST(PtrMap, NodesComeInBlocksAndEntriesByBucket)
{
    // Their first words, alike in either byte order, select 5, 4, 5, 7, 4.
    alignas(unsigned) static char keys[][8] = {"OOOO", "DDDD", "UUUU", "ZZZZ", "FCCF"};
    VELM_CMapPtrToPtr map(3);
    unsigned nBucket = 9, nValue = 9;
    void *pKey, *pValue = keys;
    EXPECT_EQ(Row() << !map.GetAssocAt(keys[4], nBucket) << nBucket, "1 4") << "a bucket, also without a table";
    EXPECT_EQ(Row() << !map.GetAssocAt(nullptr, nBucket) << nBucket << !map.GetStartPosition(), "1 0 1");
    for (uintptr_t i = 0; i < 4; ++i) {
        EXPECT_EQ(map[keys[i]], nullptr);
        map.SetAt(keys[i], reinterpret_cast<void*>(i + 1)); // finds it again
    }
    EXPECT_EQ(Shape(map), "4 in 2\n4:4 DDDD=2 -2\n5:5 UUUU=3 -1\n5:5 OOOO=1 -3\n7:7 ZZZZ=4 0\nfree 1 2");
    std::string order;
    for (__POSITION* position = map.GetStartPosition(); position != nullptr;) {
        map.GetNextAssoc(position, pKey, pValue);
        order += std::to_string(static_cast<char(*)[8]>(pKey) - keys) + std::to_string(uintptr_t(pValue)) + " ";
    }
    EXPECT_EQ(order, "12 23 01 34 ");
    map.GetAssocAt(keys[3], nBucket)->nValue = 7;
    EXPECT_EQ(map.RemoveKey(keys[1]) + map.RemoveKey(keys[0]) + map.RemoveKey(keys[0]), 2);
    map[keys[4]] = &map;
    EXPECT_EQ(Row() << map.LookupUINT(keys[3], nValue) << nValue << map.LookupUINT(keys[0], nValue) << nValue,
              "1 7 0 7");
    EXPECT_EQ(Row() << map.Lookup(keys[0], pValue) << uintptr_t(pValue), "0 4") << "what is not found changes nothing";
    EXPECT_EQ(Row() << map.Lookup(keys[4], pValue) << (pValue == &map) << map.GetAssocAt(keys[4], nBucket)->nValue,
              "1 1 0");
    map[keys[4]] = nullptr;
    EXPECT_EQ(Shape(map), "3 in 2\n4:4 FCCF=0 -3\n5:5 UUUU=3 -1\n7:7 ZZZZ=4 0\nfree -2 1 2")
        << "freed last, taken first";
    map.RemoveKey(keys[2]), map.RemoveKey(keys[3]), map.RemoveKey(keys[4]);
    EXPECT_EQ(Row() << Shape(map) << map.m_pHashTable, "0 in 0\nfree 0") << "memory stays when the last entry goes";
}

// Does it, and tells what came of it.
template <class MAP, class KEY> static int Do(MAP& map, unsigned nOperation, KEY key, unsigned nValue, KEY other)
{
    unsigned nBucket;
    auto* const pAssoc = map.GetAssocAt(key, nBucket);
    typedef decltype(pAssoc->value) Value;
    auto** ppLink = map.m_pHashTable == nullptr ? nullptr : &map.m_pHashTable[nBucket];
    if (nOperation == 0) {
        map[key] = (Value)(uintptr_t)nValue;
    } else if (nOperation == 1) {
        return map.RemoveKey(key);
    } else if (pAssoc == nullptr && ppLink != nullptr) { // a new node; an operation may come before it is linked
        auto* const pNew = map.NewAssoc();
        pNew->key = key, pNew->value = (Value)(uintptr_t)nValue, pNew->nHashValue = nBucket;
        if (nValue % 2 != 0)
            map[other] = 0;
        for (unsigned i = 0; i < nValue % 3 && *ppLink != nullptr; ++i)
            ppLink = &(*ppLink)->pNext;
        pNew->pNext = *ppLink, *ppLink = pNew;
    } else if (pAssoc != nullptr) { // the node is unlinked; operations may come before it is freed
        while (*ppLink != pAssoc)
            ppLink = &(*ppLink)->pNext;
        *ppLink = pAssoc->pNext;
        map.WalkChains();
        int nFound = 2 * (map.GetAssocAt(key, nBucket) != nullptr);
        if (nOperation == 2) { // or moved to another chain, where it is not found
            pAssoc->nHashValue = nValue % 17, pAssoc->pNext = map.m_pHashTable[nValue % 17];
            map.m_pHashTable[nValue % 17] = pAssoc;
            return nFound;
        }
        // The copy of a text is at another address in each map.
        if (!std::is_same<KEY, const char*>::value && pAssoc->pNext != nullptr && nValue % 2 != 0)
            nFound += map.RemoveKey(static_cast<char*>(pAssoc->pNext->key));
        map.FreeAssoc(pAssoc);
        return nFound;
    }
    return pAssoc != nullptr;
}

template <class MAP, class PLAIN, class KEY> static void CheckAgainstPlain(const char* name)
{
    const char* const operations[] = {"adding", "removing", "adding or moving by hand", "adding or removing by hand"};
    static char texts[400][40]; // each twice, of up to 20 characters: a map that hashes addresses may have both
    std::mt19937 random(5);
    std::generate_n(texts[0], sizeof texts, [&] { return static_cast<char>(random()); }); // also behind their ends
    for (unsigned i = 0; i < 400; ++i)
        snprintf(texts[i], sizeof texts[i], "%.*s%u", int(i % 3 * 8), "abcdefghijklmnop", i / 2);
    for (unsigned nRound = 0; nRound < 60; ++nRound) { // each until the maps are emptied, as an index is lost by hand
        MAP map(7);
        PLAIN plain(7);
        const unsigned nSteps = 100 + nRound * 7;
        for (unsigned nStep = 0; nStep < nSteps; ++nStep) {
            const bool bByHand = nSteps - nStep < nRound % 40 && random() % 3 != 0;
            const unsigned nOperation = (bByHand ? 2u : 0u) + (random() % 3 == 0);
            const KEY key = texts[random() % 400], other = texts[random() % 400];
            ASSERT_EQ(Do(map, nOperation, key, nStep, other), Do(plain, nOperation, key, nStep, other))
                << name << ": another result of " << operations[nOperation] << ", step " << nStep << " of " << nSteps;
            if (nSteps - nStep < nRound % 40 || nStep % 40 == 0) {
                ASSERT_EQ(Shape(map), Shape(plain)) << name << ": other chains after " << operations[nOperation]
                                                    << ", step " << nStep << " of " << nSteps;
            }
        }
    }
}

TEST(Index, MapsAreAsWithoutIt)
{
    CheckAgainstPlain<VELM_CMap<fxStr, char*, int, int>, VELM_CMap<PlainText, char*, unsigned, unsigned>, char*>(
        "hashed by text");
    CheckAgainstPlain<VELM_CMap<fxStr, const char*, int, int>, VELM_CMap<PlainText, const char*, unsigned, unsigned>,
                      const char*>("hashed by address");
    CheckAgainstPlain<VELM_CMapPtrToPtr, VELM_CMap<PlainPointer, void*, unsigned, unsigned>, void*>("of pointers");
}

TEST(Index, HashesAllBytesAndNoMore)
{
    const VELM_CKeyHasher hasher, other;
    char bytes[64], same[64] = "other bytes behind the end, and an odd address of the same ones";
    for (unsigned n = 0; n < 40; ++n) {
        std::generate_n(bytes, sizeof bytes, [&] { return static_cast<char>(n * n + 7); });
        memcpy(same + 1, bytes, n);
        EXPECT_EQ(hasher(bytes, n), hasher(same + 1, n)) << n << " bytes: more than these are hashed";
        EXPECT_NE(hasher(bytes, n), other(bytes, n)) << n << " bytes: every map hashes alike";
        EXPECT_NE(hasher(bytes, n), hasher(bytes, n + 1)) << n << " bytes: one more has the same hash value";
        for (unsigned i = 0; i < n; ++i) {
            same[i + 1] ^= 1;
            EXPECT_NE(hasher(bytes, n), hasher(same + 1, n)) << "byte " << i << " of " << n << " is not hashed";
            same[i + 1] ^= 1;
        }
    }
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
