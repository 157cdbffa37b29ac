// The library's text maps keep an index beside their chains; a map of a caller's own is the plain algorithm. Whatever
// is done to the two, by operations or by hand, they have the same chains, free nodes and blocks.
#include <gtest/gtest.h>

#include <map>
#include <random>

#include "tests/support/watch.h"

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
        VELM_CMap<fxStr, KEY, unsigned, unsigned> plain(7);
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

TEST(Index, TextMapsAreAsWithoutIt)
{
    CheckAgainstPlain<char*>("hashed by text");
    CheckAgainstPlain<const char*>("hashed by address");
}
