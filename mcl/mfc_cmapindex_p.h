// The tables of a map's index, which mfc_cmapindex.cc explains; private to the library.
#ifndef TAVNOMCL_MFC_CMAPINDEX_P_H
#define TAVNOMCL_MFC_CMAPINDEX_P_H

#include <cstddef>
#include <cstring>

#include "mcl/mfc_cmapindex.h"
#include "mcl/mfc_ctable_p.h"

class VELM_LOCAL VELM_CMapTables : public VELM_CMapIndex {
public:
    VELM_CTable nodes; // the nodes on the chains, by the tags of their keys

    VELM_CMapTables(const Chains& of, bool bGaps) : VELM_CMapIndex(of), m_bGaps(bGaps) {}
    static VELM_CMapTables& Of(const VELM_CMapIndex& index)
    {
        return static_cast<VELM_CMapTables&>(const_cast<VELM_CMapIndex&>(index));
    }
    static VELM_CTable::Place PlaceOf(const VELM_CMapPlace& place)
    {
        return {static_cast<VELM_CTable::Line*>(place.pLine), place.i};
    }
    static uint64_t ValueOf(const VELM_CMapNode* pNode) { return reinterpret_cast<uintptr_t>(pNode); }
    static VELM_CMapNode* NodeAt(const VELM_CTable::Place& at)
    {
        return reinterpret_cast<VELM_CMapNode*>(static_cast<uintptr_t>(at.Value()));
    }

    template <class MATCHES>
    __attribute__((always_inline)) VELM_CMapNode* Find(unsigned nTag, VELM_CMapPlace& rPlace, MATCHES matches) const
    {
        VELM_CTable::Place at;
        const bool bFound = nodes.Find(nTag, at, [&](const VELM_CTable::Place& p) { return matches(NodeAt(p)); });
        rPlace = {at.pLine, at.i};
        return bFound ? NodeAt(at) : nullptr;
    }

    void Link(VELM_CMapNode* pNode);
    bool Unlink(VELM_CMapNode* pNode);
    // Notes in a node's gaps which link points at it; does nothing if pNode is NULL. It has no branch, since the
    // processor could not predict whether there is a node.
    static void FillGaps(VELM_CMapNode* pNode, VELM_CMapLink* ppLink)
    {
        VELM_CMapGapNode none;
        char* const p = __builtin_expect_with_probability(pNode != nullptr, 1, 0.5) ? reinterpret_cast<char*>(pNode)
                                                                                    : reinterpret_cast<char*>(&none);
        const uint64_t nLink = reinterpret_cast<uintptr_t>(ppLink);
        const uint32_t nLow = static_cast<uint32_t>(nLink), nHigh = static_cast<uint32_t>(nLink >> 32);
        std::memcpy(p + nFirstGap, &nLow, sizeof nLow);
        std::memcpy(p + nSecondGap, &nHigh, sizeof nHigh);
    }

private:
    static const size_t nFirstGap = offsetof(VELM_CMapGapNode, nLinkLow);
    static const size_t nSecondGap = offsetof(VELM_CMapGapNode, nLinkHigh);

    const bool m_bGaps;
    bool m_bFilled = false; // whether every node's gaps hold the link that points at it
    VELM_CTable m_before;   // from the address of a node to the node before it on its chain

    static VELM_CMapLink* InGaps(const VELM_CMapNode* pNode)
    {
        const char* const p = reinterpret_cast<const char*>(pNode);
        uint32_t nLow, nHigh;
        std::memcpy(&nLow, p + nFirstGap, sizeof nLow);
        std::memcpy(&nHigh, p + nSecondGap, sizeof nHigh);
        return reinterpret_cast<VELM_CMapLink*>(static_cast<uintptr_t>(uint64_t{nHigh} << 32 | nLow));
    }
    VELM_CMapLink* LinkOf(VELM_CMapNode* pNode);
    void NoteLinks();
    void SetBefore(const VELM_CMapNode* pNode, const VELM_CMapNode* pBefore);
    bool FindBefore(const VELM_CMapNode* pNode, VELM_CTable::Place& rAt) const;
};

#endif
