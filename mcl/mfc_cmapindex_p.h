// What finds the entries of a map without walking its chains, where these are long; private to the library.
//
// The chains are what a caller sees, and the truth. Beside those of a map with a long one stands an index: a table of
// links, where the link of an entry is the pointer that points at its node, a bucket head or the pNext before it.
//
//     m_pHashTable[1] --> node C --> node B --> node A --> NULL
//          ^                 ^          ^
//          |                 |          |
//     | link of C | - | link of B | link of A | - | - | ...      slots, in fours
//
// So an entry is found by its hash in constant time, and unlinked without looking for what is before it. A slot holds
// 48 bits of the link and, above them, 16 of the hash, so that the nodes of other entries are hardly ever looked at.
//
// - Every node on a chain has a slot as long as the map keeps an index. A new head moves the link of the old one.
// - A program that changes the chains by hand tells the map so, by WalkChains, NewAssoc or FreeAssoc: then there is no
//   index until the map is empty again. Where it forgets to, much is noticed: a link must point at a node of the key,
//   what is before a node that is unlinked must be linked itself, and a bucket's head must be the one that was left
//   there. Else the index is dropped, and the next insertion makes a new one.
// - Nothing but an insertion makes an index. Without memory for it there is none, and the chains are walked.
//
// Link and node of a far key are far as well, and known only when the slot has come. So that the two need not be waited
// for one after the other, the index remembers of each stretch of keys the node of one: keys that were inserted as they
// lie in memory have their nodes as they lie, and where a node should be is asked for ahead. Nothing is believed of it.
#ifndef TAVNOMCL_MFC_CMAPINDEX_P_H
#define TAVNOMCL_MFC_CMAPINDEX_P_H

#include <climits>
#include <cstddef>
#include <cstdint>

#include "mcl/mfc_cmap.h"

class VELM_LOCAL VELM_CMapIndex {
public:
    // The members of a map that keep the index, for the nodes of each map that has one.
    template <class ASSOC, class KEY>
    static ASSOC** FindLink(const VELM_CMapTable<ASSOC, KEY>& map, unsigned nBucket, KEY key);
    template <class ASSOC, class KEY> static void LinkFirst(VELM_CMapTable<ASSOC, KEY>& map, ASSOC* pAssoc);
    template <class ASSOC, class KEY> static ASSOC* Unlink(VELM_CMapTable<ASSOC, KEY>& map, unsigned nBucket, KEY key);
    template <class ASSOC, class KEY> static void DropIndex(const VELM_CMapTable<ASSOC, KEY>& map, bool bTouched)
    {
        delete map.m_pIndex;
        map.m_pIndex = nullptr;
        map.m_bTouched = bTouched;
    }

    // The node of the key, and the value in it, in an entry that is made when there is none. NULL where the usual way
    // has to be gone.
    static VELM_CPtrAssoc* Found(const VELM_CMapPtrToPtr& map, void* key);
    static void** ValueOf(VELM_CMapPtrToPtr& map, void* key);

    VELM_CMapIndex(const VELM_CMapIndex&) = delete;
    VELM_CMapIndex& operator=(const VELM_CMapIndex&) = delete;
    ~VELM_CMapIndex();

private:
    enum : uint64_t { emptySlot = 0, removedSlot = 1 }; // no link has such an address
    static const int nLongest = 12;                     // a chain without an index
    static const int nLinkBits = 48;
    static const int nSampleBits = 6;   // fewer than in the number of a slot
    static const int nStretchBits = 12; // of the address in a stretch of keys that go to neighbouring slots

    // Where an entry belongs, modulo the number of slots: in one of the four slots around nHome or, when these are
    // taken, around the first place in steps from there that the tag makes. Keys that lie close together fill their
    // stretch of slots, and what is taken there must not push the rest along.
    struct Hash {
        uint64_t nHome;
        uint64_t nTag; // above the bits of the link
    };
    // The slots in that order.
    struct Probe {
        std::size_t i;
        uint64_t nTried;
        Hash hash;

        void Go(std::size_t nMask)
        {
            ++nTried;
            const uint64_t nStep = (hash.nTag >> nLinkBits) * 8 + 4; // 4 times an odd number: each four are come to
            i = static_cast<std::size_t>((hash.nHome + nTried / 4 * nStep) ^ (nTried & 3)) & nMask;
        }
    };
    Probe Start(Hash hash) const { return {static_cast<std::size_t>(hash.nHome) & m_nMask, 0, hash}; }

    // One key of a stretch, its node, and how far the nodes of others are from there, for each byte between the keys,
    // in units of 2^-16 bytes.
    struct Sample {
        uintptr_t nKey;
        uintptr_t nNode;
        int32_t nPitch;
    };

    // The node that was made a bucket's head last, and its slot.
    struct Head {
        const void* pNode;
        uint64_t* pSlot;
    };
    static const unsigned nHeads = 128;

    const void* m_pTable; // the map's, and its number of buckets
    unsigned m_nBuckets;
    uint64_t m_seed[2];  // of the hash of texts: no file can hold keys that collide
    std::size_t m_nMask; // number of slots - 1
    std::size_t m_nUsed; // slots that are not empty
    uint64_t* m_pSlots;
    Sample* m_pSamples;       // of the stretch modulo their number, behind the slots
    Head m_heads[nHeads];     // of the bucket modulo their number
    uintptr_t m_nLastStretch; // of a key that was inserted

    VELM_CMapIndex() = default;
    template <class ASSOC, class KEY> static VELM_CMapIndex* Make(const VELM_CMapTable<ASSOC, KEY>& map)
    {
        VELM_CMapIndex* const pIndex = Make(static_cast<std::size_t>(map.m_nCount));
        if (pIndex != nullptr)
            pIndex->m_pTable = map.m_pHashTable, pIndex->m_nBuckets = map.m_nHashTableSize;
        return pIndex;
    }
    static VELM_CMapIndex* Make(std::size_t nEntries);
    bool IsFull() const { return m_nUsed > m_nMask / 8 * 5; }
    Sample& SampleOf(uintptr_t nStretch) const { return m_pSamples[nStretch & (m_nMask >> nSampleBits)]; }
    void Remember(const VELM_CPtrAssoc& assoc);
    template <class ASSOC> void Remember(const ASSOC&) {} // texts are scattered
    Hash HashOf(unsigned nBucket, const void* key) const;
    Hash HashOf(unsigned nBucket, const char* lpszKey) const;
    Hash HashOf(const VELM_CPtrAssoc& assoc) const { return HashOf(assoc.nHashValue, assoc.key); }
    template <class ASSOC> Hash HashOf(const ASSOC& assoc) const
    {
        return HashOf(assoc.nHashValue, static_cast<const char*>(assoc.key));
    }
    template <class ASSOC> static ASSOC** LinkIn(uint64_t nSlot)
    {
        return reinterpret_cast<ASSOC**>(static_cast<uintptr_t>(nSlot & ((uint64_t{1} << nLinkBits) - 1)));
    }
    template <class ASSOC> static uint64_t SlotOf(Hash hash, ASSOC** ppLink)
    {
        return hash.nTag | reinterpret_cast<uintptr_t>(ppLink);
    }
    template <class ASSOC, class KEY> bool IsOf(const VELM_CMapTable<ASSOC, KEY>& map) const
    {
        return m_pTable == map.m_pHashTable && m_nBuckets == map.m_nHashTableSize;
    }
    uint64_t* Put(Hash hash, uint64_t nSlot);
    template <class MATCHES> uint64_t* Find(Hash hash, MATCHES matches) const;
    template <class ASSOC, class KEY> ASSOC** LinkOf(unsigned nBucket, KEY key, Probe& rAt) const;
    template <class ASSOC> uint64_t* FindNode(ASSOC** ppLink) const;
    template <class ASSOC> uint64_t* FindHead(unsigned nBucket, ASSOC** ppHead) const;
    template <class ASSOC, class KEY> static void Build(const VELM_CMapTable<ASSOC, KEY>& map);
    template <class ASSOC, class KEY> static void Grow(const VELM_CMapTable<ASSOC, KEY>& map);
};

inline VELM_CMapIndex::Hash VELM_CMapIndex::HashOf(unsigned, const void* key) const
{
    // Neighbours in memory are often stored one after another: those of one stretch go to neighbouring slots, and the
    // stretches are scattered. Units are of 16 bytes; what lies at another place in its unit is scattered too.
    const uint64_t nAddress = reinterpret_cast<uintptr_t>(key);
    const uint64_t nStretch = (nAddress >> nStretchBits << 4 | (nAddress & 15)) * 0x9E3779B97F4A7C15;
    const uint64_t nUnit = (nAddress & ((1 << nStretchBits) - 1)) >> 4;
    return {(nStretch >> 20) + nUnit, ((nStretch >> 4) + nUnit * 0x9E37) << nLinkBits};
}

inline void VELM_CMapIndex::Remember(const VELM_CPtrAssoc& assoc)
{
    const uintptr_t nKey = reinterpret_cast<uintptr_t>(assoc.key), nStretch = nKey >> nStretchBits;
    if (nStretch == m_nLastStretch)
        return;
    m_nLastStretch = nStretch;
    Sample& rSample = SampleOf(nStretch);
    if (rSample.nKey >> nStretchBits == nStretch)
        return;
    rSample = {nKey, reinterpret_cast<uintptr_t>(&assoc), 0};
    Sample& rBefore = SampleOf(nStretch - 1);
    const intptr_t nKeys = static_cast<intptr_t>(nKey - rBefore.nKey);
    const intptr_t nNodes = static_cast<intptr_t>(rSample.nNode - rBefore.nNode);
    if (rBefore.nKey >> nStretchBits == nStretch - 1 && -0x4000 < nNodes && nNodes < 0x4000) // else in no such order
        rBefore.nPitch = rSample.nPitch = static_cast<int32_t>(nNodes) * 0x10000 / static_cast<int32_t>(nKeys);
}

inline uint64_t* VELM_CMapIndex::Put(Hash hash, uint64_t nSlot)
{
    Probe at = Start(hash);
    while (m_pSlots[at.i] > removedSlot)
        at.Go(m_nMask);
    m_nUsed += m_pSlots[at.i] == emptySlot;
    m_pSlots[at.i] = nSlot;
    return &m_pSlots[at.i];
}

// The first slot with the tag that matches; NULL when there is none.
template <class MATCHES> uint64_t* VELM_CMapIndex::Find(Hash hash, MATCHES matches) const
{
    for (Probe at = Start(hash);; at.Go(m_nMask)) {
        const uint64_t nSlot = m_pSlots[at.i];
        if (nSlot == emptySlot)
            return nullptr;
        if ((nSlot ^ hash.nTag) >> nLinkBits == 0 && nSlot != removedSlot && matches(nSlot))
            return &m_pSlots[at.i];
    }
}

// The link that the key's node is at; NULL when there is none, and the probe stands at the slot that is free for it.
template <class ASSOC, class KEY>
__attribute__((always_inline)) inline ASSOC** VELM_CMapIndex::LinkOf(unsigned nBucket, KEY key, Probe& rAt) const
{
    for (; m_pSlots[rAt.i] != emptySlot; rAt.Go(m_nMask)) {
        const uint64_t nLink = m_pSlots[rAt.i] - rAt.hash.nTag;
        if (nLink - (removedSlot + 1) >= (uint64_t{1} << nLinkBits) - (removedSlot + 1)) // another tag
            continue;
        ASSOC** const ppLink = LinkIn<ASSOC>(nLink);
        if (*ppLink != nullptr && (*ppLink)->nHashValue == nBucket && (*ppLink)->Matches(key))
            return ppLink;
    }
    return nullptr;
}

// The slot of the node that the link points at; NULL when the index has it not there.
template <class ASSOC> uint64_t* VELM_CMapIndex::FindNode(ASSOC** ppLink) const
{
    const Hash hash = HashOf(**ppLink);
    return Find(hash, [=](uint64_t nSlot) { return nSlot == SlotOf(hash, ppLink); });
}

// The same of a bucket that is not empty.
template <class ASSOC> inline uint64_t* VELM_CMapIndex::FindHead(unsigned nBucket, ASSOC** ppHead) const
{
    const Head& head = m_heads[nBucket % nHeads];
    return head.pNode == *ppHead && LinkIn<ASSOC>(*head.pSlot) == ppHead ? head.pSlot : FindNode(ppHead);
}

// Indexes what is on the chains, if there is memory for it, and if a slot can hold their addresses.
template <class ASSOC, class KEY> void VELM_CMapIndex::Build(const VELM_CMapTable<ASSOC, KEY>& map)
{
    DropIndex(map, false);
    map.m_pIndex = Make(map);
    VELM_CMapIndex* const pIndex = map.m_pIndex;
    if (pIndex == nullptr)
        return;
    for (unsigned i = 0; i < map.m_nHashTableSize; ++i) {
        for (ASSOC** ppLink = &map.m_pHashTable[i]; *ppLink != nullptr; ppLink = &(*ppLink)->pNext) {
            const uint64_t nLink = reinterpret_cast<uintptr_t>(ppLink);
            // More nodes than are counted would never leave a slot empty: they are a caller's own.
            if (nLink >> nLinkBits != 0 || pIndex->IsFull()) {
                DropIndex(map, true);
                return;
            }
            const Hash hash = pIndex->HashOf(**ppLink);
            pIndex->Put(hash, SlotOf(hash, ppLink));
            pIndex->Remember(**ppLink);
        }
    }
}

// Makes room in a full index. What it has goes over in the order of its slots, in which neighbours follow each other;
// without memory, or when a link no longer has its node, the index is dropped.
template <class ASSOC, class KEY> void VELM_CMapIndex::Grow(const VELM_CMapTable<ASSOC, KEY>& map)
{
    VELM_CMapIndex *const pOld = map.m_pIndex, *const pNew = Make(map);
    bool bGood = pNew != nullptr;
    if (bGood)
        pNew->m_seed[0] = pOld->m_seed[0], pNew->m_seed[1] = pOld->m_seed[1];
    for (std::size_t i = 0; bGood && i <= pOld->m_nMask; ++i) {
        const uint64_t nSlot = pOld->m_pSlots[i];
        __builtin_prefetch(LinkIn<char>(pOld->m_pSlots[(i + 32) & pOld->m_nMask]));
        if (nSlot <= removedSlot)
            continue;
        const ASSOC* const pAssoc = *LinkIn<ASSOC>(nSlot);
        bGood = pAssoc != nullptr && !pNew->IsFull();
        if (bGood) {
            const Hash hash = pNew->HashOf(*pAssoc);
            bGood = (hash.nTag ^ nSlot) >> nLinkBits == 0;
            pNew->Put(hash, nSlot);
        }
    }
    for (std::size_t i = 0; bGood && i <= pOld->m_nMask >> nSampleBits; ++i) {
        const Sample& sample = pOld->m_pSamples[i];
        pNew->SampleOf(sample.nKey >> nStretchBits) = sample;
    }
    DropIndex(map, false);
    if (bGood)
        map.m_pIndex = pNew;
    else
        delete pNew;
}

template <class ASSOC, class KEY>
ASSOC** VELM_CMapIndex::FindLink(const VELM_CMapTable<ASSOC, KEY>& map, unsigned nBucket, KEY key)
{
    ASSOC** const ppHead = &map.m_pHashTable[nBucket];
    if (const VELM_CMapIndex* pIndex = map.m_pIndex) {
        if (pIndex->IsOf(map)) {
            Probe at = pIndex->Start(pIndex->HashOf(nBucket, key));
            if (ASSOC** ppLink = pIndex->LinkOf<ASSOC>(nBucket, key, at))
                return ppLink;
            if (*ppHead == nullptr || pIndex->FindHead(nBucket, ppHead) != nullptr)
                return nullptr;
        }
        DropIndex(map, false);
    }
    ASSOC** ppLink = ppHead;
    while (*ppLink != nullptr && !(*ppLink)->Matches(key))
        ppLink = &(*ppLink)->pNext;
    return *ppLink == nullptr ? nullptr : ppLink;
}

template <class ASSOC, class KEY> void VELM_CMapIndex::LinkFirst(VELM_CMapTable<ASSOC, KEY>& map, ASSOC* pAssoc)
{
    ASSOC** const ppHead = &map.m_pHashTable[pAssoc->nHashValue];
    ASSOC* const pOldHead = *ppHead;
    const uint64_t nNewLink = reinterpret_cast<uintptr_t>(&pAssoc->pNext);
    const bool bHadIndex = map.m_pIndex != nullptr;
    bool bGood = bHadIndex && map.m_pIndex->IsOf(map) && nNewLink >> nLinkBits == 0;
    if (bGood && map.m_pIndex->IsFull()) {
        Grow(map);
        bGood = map.m_pIndex != nullptr;
    }
    VELM_CMapIndex* const pIndex = map.m_pIndex;
    uint64_t* pOldSlot = nullptr;
    if (bGood && pOldHead != nullptr) {
        pOldSlot = pIndex->FindHead(pAssoc->nHashValue, ppHead);
        bGood = pOldSlot != nullptr;
    }
    pAssoc->pNext = pOldHead;
    *ppHead = pAssoc;
    if (bGood) {
        if (pOldSlot != nullptr)
            *pOldSlot = (*pOldSlot >> nLinkBits << nLinkBits) | nNewLink;
        const Hash hash = pIndex->HashOf(*pAssoc);
        pIndex->m_heads[pAssoc->nHashValue % nHeads] = {pAssoc, pIndex->Put(hash, SlotOf(hash, ppHead))};
        pIndex->Remember(*pAssoc);
    } else if (!map.m_bTouched) {
        int nNodes = bHadIndex ? nLongest : 0;
        for (const ASSOC* p = pOldHead; nNodes < nLongest && p != nullptr; p = p->pNext)
            ++nNodes;
        if (nNodes == nLongest)
            Build(map);
    }
}

template <class ASSOC, class KEY>
ASSOC* VELM_CMapIndex::Unlink(VELM_CMapTable<ASSOC, KEY>& map, unsigned nBucket, KEY key)
{
    ASSOC** const ppHead = &map.m_pHashTable[nBucket];
    VELM_CMapIndex* const pIndex = map.m_pIndex;
    if (pIndex != nullptr && pIndex->IsOf(map)) {
        Probe at = pIndex->Start(pIndex->HashOf(nBucket, key));
        if (ASSOC** const ppLink = pIndex->LinkOf<ASSOC>(nBucket, key, at)) {
            ASSOC* const pAssoc = *ppLink;
            uint64_t* const pNextSlot = pAssoc->pNext == nullptr ? nullptr : pIndex->FindNode(&pAssoc->pNext);
            bool bLinked = ppLink == ppHead;
            if (!bLinked) { // what is before it must be where the index has it
                const ASSOC* const pBefore = reinterpret_cast<ASSOC*>(ppLink); // pNext is the first field
                bLinked = pIndex->Find(pIndex->HashOf(*pBefore),
                                       [=](uint64_t nSlot) { return *LinkIn<ASSOC>(nSlot) == pBefore; }) != nullptr;
            }
            if (bLinked && (pAssoc->pNext == nullptr || pNextSlot != nullptr)) {
                pIndex->m_pSlots[at.i] = removedSlot;
                pIndex->m_heads[nBucket % nHeads] = {nullptr, nullptr};
                if (pNextSlot != nullptr)
                    *pNextSlot = (*pNextSlot >> nLinkBits << nLinkBits) | reinterpret_cast<uintptr_t>(ppLink);
                *ppLink = pAssoc->pNext;
                return pAssoc;
            }
            DropIndex(map, false);
        }
    }
    ASSOC** const ppLink = FindLink(map, nBucket, key); // which the index, if there still is one, does not have
    ASSOC* const pAssoc = ppLink == nullptr ? nullptr : *ppLink;
    if (pAssoc != nullptr)
        *ppLink = pAssoc->pNext;
    return pAssoc;
}

inline VELM_CPtrAssoc* VELM_CMapIndex::Found(const VELM_CMapPtrToPtr& map, void* key)
{
    const unsigned nBucket = map.Bucket(key);
    const VELM_CMapIndex* const pIndex = map.m_pIndex;
    if (pIndex == nullptr || !pIndex->IsOf(map))
        return nullptr;
    Probe at = pIndex->Start(pIndex->HashOf(nBucket, key));
    VELM_CPtrAssoc** const ppLink = pIndex->LinkOf<VELM_CPtrAssoc>(nBucket, key, at);
    return ppLink == nullptr ? nullptr : *ppLink;
}

inline void** VELM_CMapIndex::ValueOf(VELM_CMapPtrToPtr& map, void* key)
{
    const unsigned nBucket = map.Bucket(key);
    VELM_CMapIndex* const pIndex = map.m_pIndex;
    if (pIndex == nullptr || !pIndex->IsOf(map))
        return nullptr;
    const Hash hash = pIndex->HashOf(nBucket, key);
    const uintptr_t nKey = reinterpret_cast<uintptr_t>(key), nStretch = nKey >> nStretchBits;
    const Sample& sample = pIndex->SampleOf(nStretch);
    if (nStretch != pIndex->m_nLastStretch && sample.nKey >> nStretchBits == nStretch) { // far, and likely to be known
        const int64_t nDistance = static_cast<intptr_t>(nKey - sample.nKey);
        const uintptr_t nForeseen = sample.nNode + static_cast<uintptr_t>(nDistance * sample.nPitch >> 16);
        __builtin_prefetch(reinterpret_cast<void*>(nForeseen + offsetof(VELM_CPtrAssoc, nHashValue)));
        __builtin_prefetch(reinterpret_cast<void*>(nForeseen + sizeof(VELM_CPtrAssoc))); // the link, in the next node
    }
    Probe at = pIndex->Start(hash);
    if (VELM_CPtrAssoc** ppLink = pIndex->LinkOf<VELM_CPtrAssoc>(nBucket, key, at))
        return &(*ppLink)->value;
    // A new key, where all is as it was left: the free slot is its, and the old head's link moves.
    VELM_CPtrAssoc** const ppHead = &map.m_pHashTable[nBucket];
    VELM_CPtrAssoc* const pAssoc = map.m_pFreeList;
    uint64_t* const pOldSlot = *ppHead == nullptr ? nullptr : pIndex->FindHead(nBucket, ppHead);
    if (pOldSlot == nullptr || pAssoc == nullptr ||
        static_cast<uint64_t>(reinterpret_cast<uintptr_t>(pAssoc)) >> nLinkBits != 0 || map.m_nCount == INT_MAX ||
        pIndex->IsFull())
        return nullptr;
    map.m_pFreeList = pAssoc->pNext;
    ++map.m_nCount;
    *pAssoc = VELM_CPtrAssoc{*ppHead, nBucket, key, nullptr, 0};
    *ppHead = pAssoc;
    *pOldSlot = (*pOldSlot >> nLinkBits << nLinkBits) | reinterpret_cast<uintptr_t>(&pAssoc->pNext);
    pIndex->m_pSlots[at.i] = SlotOf(hash, ppHead);
    pIndex->m_heads[nBucket % nHeads] = {pAssoc, &pIndex->m_pSlots[at.i]};
    pIndex->Remember(*pAssoc);
    ++pIndex->m_nUsed;
    return &pAssoc->value;
}

// Defines those members of a map as the index has them.
#define VELM_INDEXED_MAP(ASSOC, KEY)                                                                                   \
    template <> ASSOC** VELM_CMapTable<ASSOC, KEY>::FindLink(unsigned nBucket, KEY key) const                          \
    {                                                                                                                  \
        return VELM_CMapIndex::FindLink(*this, nBucket, key);                                                          \
    }                                                                                                                  \
    template <> void VELM_CMapTable<ASSOC, KEY>::LinkFirst(ASSOC* pAssoc)                                              \
    {                                                                                                                  \
        VELM_CMapIndex::LinkFirst(*this, pAssoc);                                                                      \
    }                                                                                                                  \
    template <> ASSOC* VELM_CMapTable<ASSOC, KEY>::Unlink(unsigned nBucket, KEY key)                                   \
    {                                                                                                                  \
        return VELM_CMapIndex::Unlink(*this, nBucket, key);                                                            \
    }                                                                                                                  \
    template <> void VELM_CMapTable<ASSOC, KEY>::DropIndex(bool bTouched) const                                        \
    {                                                                                                                  \
        VELM_CMapIndex::DropIndex(*this, bTouched);                                                                    \
    }

#endif
