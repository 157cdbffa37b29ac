#include "mcl/mfc_carcowner_p.h"

#include <algorithm>
#include <cstdlib>

#include "mcl/mfc_memory.h"

// Makes sure that an array has room for nNeeded elements. It grows by half at least.
template <class TYPE> static void GrowArray(TYPE*& rArray, uint32_t& rMax, uint32_t nNeeded)
{
    if (nNeeded <= rMax)
        return;
    const uint32_t nMore = std::max(nNeeded, rMax + rMax / 2 + 16);
    rArray = static_cast<TYPE*>(AfxAllocate(rArray, nMore, sizeof(TYPE)));
    rMax = nMore;
}

void VELM_COwners::Clear()
{
    ReleaseShares();
    std::free(m_owners);
    std::free(m_roots);
    std::free(m_shares);
    std::free(m_others);
    std::free(m_inHeld);
    m_owners = m_roots = m_others = m_inHeld = nullptr;
    m_shares = nullptr;
    m_nIndexes = m_nMaxShares = m_nOthers = m_nMaxOthers = m_nInHeld = m_nMaxInHeld = 0;
    m_bUsed = false;
}

void VELM_COwners::ReleaseShares()
{
    for (uint32_t i = 0; i < m_nShares; ++i) {
        VELM_CHeld* const pShare = m_shares[i].pShare;
        m_shares[i].pShare = nullptr;
        delete pShare;
    }
    m_nShares = 0;
}

void VELM_COwners::Reserve(uint32_t nEnd)
{
    GrowArray(m_shares, m_nMaxShares, m_nShares + 1);
    GrowArray(m_inHeld, m_nMaxInHeld, m_nInHeld + 1);
    if (nEnd <= m_nIndexes)
        return;
    uint32_t nOwners = m_nIndexes, nRoots = m_nIndexes;
    GrowArray(m_owners, nOwners, nEnd);
    GrowArray(m_roots, nRoots, nEnd);
    for (uint32_t i = m_nIndexes; i < nRoots; ++i) {
        m_owners[i] = nobody;
        m_roots[i] = i;
    }
    m_nIndexes = nRoots;
}

uint32_t VELM_COwners::RootOf(uint32_t nObject)
{
    while (m_roots[nObject] != nObject)
        nObject = m_roots[nObject] = m_roots[m_roots[nObject]];
    return nObject;
}

VELM_COwners::Refusal VELM_COwners::RefusalOf(uint32_t nObject, uint32_t nUnderWay, VELM_CArchive::Owner kind)
{
    const bool bShares = kind == VELM_CArchive::sharedOwner || kind == VELM_CArchive::weakOwner;
    if (Tag(nObject) == shared)
        return bShares ? mayBe : isShared;
    if (Tag(nObject) != nobody)
        return hasOwner;
    return !bShares && nUnderWay != 0 && RootOf(nUnderWay) == nObject ? ownsItself : mayBe;
}

void VELM_COwners::Adopt(uint32_t nObject, uint32_t nUnderWay, VELM_CArchive::Owner kind, bool bInHeld)
{
    if (bInHeld && kind == VELM_CArchive::smartOwner)
        m_inHeld[m_nInHeld++] = nObject;
    const bool bCallers = nUnderWay == 0 && kind == VELM_CArchive::plainOwner;
    m_bUsed = m_bUsed || !bCallers;
    m_nAdoptions += kind != VELM_CArchive::weakOwner;
    if (kind == VELM_CArchive::sharedOwner || kind == VELM_CArchive::weakOwner) {
        if (Tag(nObject) != shared) {
            m_shares[m_nShares] = Share{nullptr, false};
            m_owners[nObject] = shared << nTagShift | m_nShares++;
        }
        m_shares[Rest(nObject)].bOwned |= kind == VELM_CArchive::sharedOwner;
        return;
    }
    m_owners[nObject] = (bCallers ? callers : owned) << nTagShift | nUnderWay;
    if (nUnderWay != 0)
        m_roots[nObject] = RootOf(nUnderWay);
}

void VELM_COwners::ReserveOther()
{
    GrowArray(m_others, m_nMaxOthers, m_nOthers + 1);
}

bool VELM_COwners::IsOther(uint32_t nIndex) const
{
    return std::binary_search(m_others, m_others + m_nOthers, nIndex);
}
