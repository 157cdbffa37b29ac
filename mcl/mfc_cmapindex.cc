// The index of a map, which finds entries without walking the chains; private to the library.
//
// Callers see the chains, and what the chains say holds. A map with many entries has an index beside them, which
// consists of two hash tables:
//
//     the hash of a key      -> its node
//     the address of a node  -> the node before it on its chain; heads of chains have no entry
//
// The second table is made when an entry is removed that is not near the head of its chain, and is kept up to date from
// then on: a map that removes no such entry does not pay for it. Where pointers have 64 bits, a node of the
// pointer-keyed map has 8 bytes of padding, called its gaps. They do the work of the second table: from that removal on
// they hold the address of the link that points at the node, which is the bucket's head or the pNext of the node
// before.
//
// - As long as there is an index, its first table has every node that is on a chain, and the second one, if there is
//   one, every node that is not a head.
// - A program that changes the chains by hand tells the map so, by WalkChains, NewAssoc or FreeAssoc: then the map has
//   no index until it is empty again. If it does not tell, the map still ignores an index whose number of entries or
//   whose buckets differ from its own; an index that passes this check may be wrong about what was changed.
// - When there is no memory for an index, the map walks its chains.
#include "mcl/mfc_cmapindex_p.h"

#include <sys/random.h>

#include <cstring>
#include <new>

VELM_CKeyHasher::VELM_CKeyHasher()
{
    if (getentropy(m_seed, sizeof m_seed) != 0) { // without random numbers: addresses, which differ between hashers
        m_seed[0] = reinterpret_cast<uintptr_t>(this);
        m_seed[1] = reinterpret_cast<uintptr_t>(&m_seed);
    }
}

static uint64_t Rotated(uint64_t n, int nBits)
{
    return n << nBits | n >> (64 - nBits);
}

// SipHash-1-3: nobody who does not know the seed can choose keys that collide. It reads the last 8 bytes as its last
// word, so that words may overlap, and mixes in the length as a word of its own.
unsigned VELM_CKeyHasher::operator()(const void* pBytes, unsigned long nBytes) const
{
    const char* const p = static_cast<const char*>(pBytes);
    uint64_t v0 = m_seed[0] ^ 0x736F6D6570736575, v1 = m_seed[1] ^ 0x646F72616E646F6D;
    uint64_t v2 = m_seed[0] ^ 0x6C7967656E657261, v3 = m_seed[1] ^ 0x7465646279746573;
    const auto Round = [&] {
        v0 += v1, v1 = Rotated(v1, 13) ^ v0, v0 = Rotated(v0, 32);
        v2 += v3, v3 = Rotated(v3, 16) ^ v2;
        v0 += v3, v3 = Rotated(v3, 21) ^ v0;
        v2 += v1, v1 = Rotated(v1, 17) ^ v2, v2 = Rotated(v2, 32);
    };
    const auto Mix = [&](uint64_t nWord) {
        v3 ^= nWord;
        Round();
        v0 ^= nWord;
    };
    for (size_t i = 0; i + 8 <= nBytes; i += 8) {
        uint64_t nWord;
        std::memcpy(&nWord, p + i, 8);
        Mix(nWord);
    }
    uint64_t nLast = 0; // in the machine's byte order, since no hash value leaves the process
    if (nBytes >= 8)
        std::memcpy(&nLast, p + nBytes - 8, 8);
    else if (nBytes > 0)
        std::memcpy(&nLast, p, nBytes);
    Mix(nLast);
    Mix(nBytes);
    v2 ^= 0xFF;
    Round();
    Round();
    Round();
    return static_cast<unsigned>(v0 ^ v1 ^ v2 ^ v3);
}

VELM_CMapIndex* VELM_CMapIndex::Make(const Chains& of, TagProc pfnTag, bool bGaps)
{
    VELM_CMapTables* const pIndex = new (std::nothrow) VELM_CMapTables(of, bGaps);
    if (pIndex == nullptr || !pIndex->nodes.Start(static_cast<size_t>(of.nCount))) {
        delete pIndex;
        return nullptr;
    }
    int nNodes = 0;
    for (unsigned i = 0; i < of.nBuckets; ++i) {
        for (VELM_CMapLink* ppLink = &of.pHeads[i]; *ppLink != nullptr && nNodes <= of.nCount; ++nNodes) {
            VELM_CMapNode* const p = *ppLink;
            const uint32_t nTag = pfnTag(pIndex->m_hasher, p);
            VELM_CTable::Place at = pIndex->nodes.HomeOf(nTag).FreePlace();
            pIndex->nodes.Add(at, nTag, VELM_CMapTables::ValueOf(p));
            ppLink = &p->pNext;
        }
    }
    if (nNodes <= of.nCount) // fewer are allowed: a program may have taken a node off to free it next
        return pIndex;
    delete pIndex;
    return Never();
}

void VELM_CMapIndex::Delete(VELM_CMapIndex* pIndex)
{
    if (pIndex != Never())
        delete static_cast<VELM_CMapTables*>(pIndex);
}

VELM_CMapNode* VELM_CMapIndex::Find(unsigned nTag, unsigned nBucket, MatchesProc pfnMatches, const void* pKey,
                                    VELM_CMapPlace& rPlace) const
{
    return VELM_CMapTables::Of(*this).Find(
        nTag, rPlace, [=](const VELM_CMapNode* p) { return p->nHashValue == nBucket && pfnMatches(p, pKey); });
}

bool VELM_CMapIndex::Add(const VELM_CMapPlace& place, unsigned nTag, VELM_CMapNode* pNode)
{
    VELM_CMapTables& tables = VELM_CMapTables::Of(*this);
    VELM_CTable::Place at = VELM_CMapTables::PlaceOf(place);
    if (!tables.nodes.Add(at, nTag, VELM_CMapTables::ValueOf(pNode)))
        return false;
    tables.Link(pNode);
    ++m_of.nCount;
    return true;
}

bool VELM_CMapIndex::Unlink(const VELM_CMapPlace& place, VELM_CMapNode* pNode)
{
    VELM_CMapTables& tables = VELM_CMapTables::Of(*this);
    if (!tables.Unlink(pNode))
        return false;
    tables.nodes.Remove(VELM_CMapTables::PlaceOf(place));
    return true;
}

// Notes that the node has become the head of its chain.
inline void VELM_CMapTables::Link(VELM_CMapNode* pNode)
{
    if (m_bFilled) {
        FillGaps(pNode, &m_of.pHeads[pNode->nHashValue]);
        FillGaps(pNode->pNext, &pNode->pNext);
    } else if (m_before.Is() && pNode->pNext != nullptr) {
        SetBefore(pNode->pNext, pNode);
    }
}

inline bool VELM_CMapTables::Unlink(VELM_CMapNode* pNode)
{
    VELM_CMapLink* const ppHead = &m_of.pHeads[pNode->nHashValue];
    VELM_CMapLink* const ppLink = m_bFilled ? InGaps(pNode) : *ppHead == pNode ? ppHead : LinkOf(pNode);
    if (ppLink == nullptr || *ppLink != pNode)
        return false;
    VELM_CMapNode* const pNext = pNode->pNext;
    if (m_bFilled) {
        FillGaps(pNext, ppLink);
    } else if (m_before.Is()) { // before *ppLink changes: FindBefore looks at the chain
        SetBefore(pNode, nullptr);
        if (pNext != nullptr)
            SetBefore(pNext, ppLink == ppHead ? nullptr : reinterpret_cast<VELM_CMapNode*>(ppLink)); // pNext is first
    }
    *ppLink = pNext;
    return true;
}

// The link that points at a node that is not the head of its chain; NULL if the node is not on the chain. After nNear
// steps along the chain it makes what spares such walks.
VELM_CMapLink* VELM_CMapTables::LinkOf(VELM_CMapNode* pNode)
{
    VELM_CMapNode* p = m_of.pHeads[pNode->nHashValue];
    for (int n = 0; !m_before.Is() && !m_bFilled; p = p->pNext) { // to the end if there is no memory for the table
        if (p == nullptr || p->pNext == pNode)
            return p == nullptr ? nullptr : &p->pNext;
        if (++n == nNear)
            NoteLinks();
    }
    VELM_CTable::Place at;
    return m_bFilled ? InGaps(pNode) : FindBefore(pNode, at) ? &NodeAt(at)->pNext : nullptr;
}

// Notes for every node what precedes it: in the gaps if the nodes have them, otherwise in the second table.
void VELM_CMapTables::NoteLinks()
{
    if (!m_bGaps && !m_before.Start(static_cast<size_t>(m_of.nCount)))
        return;
    for (unsigned i = 0; i < m_of.nBuckets; ++i) {
        for (VELM_CMapLink* ppLink = &m_of.pHeads[i]; *ppLink != nullptr; ppLink = &(*ppLink)->pNext) {
            if (m_bGaps)
                FillGaps(*ppLink, ppLink);
            else if (m_before.Is() && ppLink != &m_of.pHeads[i])
                SetBefore(*ppLink, reinterpret_cast<VELM_CMapNode*>(ppLink));
        }
    }
    m_bFilled = m_bGaps;
}

bool VELM_CMapTables::FindBefore(const VELM_CMapNode* pNode, VELM_CTable::Place& rAt) const
{
    return m_before.Find(VELM_CTable::TagOf(pNode), rAt,
                         [=](const VELM_CTable::Place& at) { return NodeAt(at)->pNext == pNode; });
}

// Notes that pBefore precedes pNode from now on; NULL if pNode is a head or leaves its chain. When there is no memory
// for the note, the table is dropped.
void VELM_CMapTables::SetBefore(const VELM_CMapNode* pNode, const VELM_CMapNode* pBefore)
{
    VELM_CTable::Place at;
    const bool bFound = FindBefore(pNode, at);
    if (bFound && pBefore != nullptr)
        at.SetValue(ValueOf(pBefore));
    else if (bFound)
        m_before.Remove(at);
    else if (pBefore != nullptr && !m_before.Add(at, VELM_CTable::TagOf(pNode), ValueOf(pBefore)))
        m_before.Clear();
}
