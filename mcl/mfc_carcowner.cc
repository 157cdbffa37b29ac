#include "mcl/mfc_carcowner_p.h"

#include <algorithm>
#include <cstdlib>

#include "mcl/mfc_carcload_p.h"
#include "mcl/mfc_cmap.h"
#include "mcl/mfc_memory.h"

// Grows an array by half, and to what is needed at least.
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

static const char* ClassNameOf(const VELM_CObject& ob)
{
    const VELM_CRuntimeClass* const pClass = ob.GetRuntimeClass();
    return pClass == nullptr || pClass->m_pszName == nullptr ? "class without a name" : pClass->m_pszName;
}

bool VELM_CArchiveInside::RefuseNull(unsigned long long nOffset)
{
    Fail(m_ar.IsStoring() ? VELM_CArchiveException::causeGeneric : VELM_CArchiveException::causeBadIndex, nOffset,
         "an object that is owned is NULL");
    return false;
}

bool VELM_CArchiveInside::RequireOwnable(const VELM_CObject* pOb, unsigned nIndex, bool bMapped,
                                         VELM_CArchive::Owner kind, unsigned long long nOffset)
{
    const VELM_CUnderWay* const pInnermost = Innermost();
    owners.Reserve(m_ar.m_nIndexCount);
    const VELM_COwners::Refusal refusal =
        owners.RefusalOf(nIndex, pInnermost == nullptr ? 0 : pInnermost->nIndex, kind);
    if (!bMapped && refusal == VELM_COwners::mayBe)
        return true;
    Fail(m_ar.IsStoring() ? VELM_CArchiveException::causeGeneric : VELM_CArchiveException::causeBadIndex, nOffset,
         "object %u, a %s, %s", nIndex, ClassNameOf(*pOb),
         bMapped                             ? "is the program's own"
         : refusal == VELM_COwners::hasOwner ? "has an owner already"
         : refusal == VELM_COwners::isShared ? "has shared owners"
                                             : "would own itself");
    return false;
}

void VELM_CArchive::Adopt(unsigned nIndex, Owner kind)
{
    if (nIndex == 0 || nIndex == nRefused || m_pInside->bAborted)
        return;
    const VELM_CUnderWay* const pInnermost = m_pInside->Innermost();
    m_pInside->owners.Adopt(nIndex, pInnermost == nullptr ? 0 : pInnermost->nIndex, kind, m_pInside->IsHolding());
}

unsigned VELM_CArchive::GetAdoptions() const
{
    return m_pInside->owners.Adoptions();
}

void VELM_CArchive::WriteForOwner(const VELM_CObject* pOb, Owner kind, int bOrNull)
{
    if (m_pInside->bAborted) {
        m_pInside->Lose("an object was not stored");
        return;
    }
    const unsigned long long nOffset = m_pInside->Offset();
    if (pOb == nullptr && !bOrNull && IsStoring()) {
        m_pInside->RefuseNull(nOffset);
        return;
    }
    WriteObject(pOb);
    if (pOb == nullptr || m_pInside->bAborted || !IsStoring() || m_pStoreMap == nullptr)
        return;
    const unsigned nIndex = m_pInside->stored.IndexOf(*m_pStoreMap, pOb);
    m_pInside->Begin();
    if (nIndex == 0 || !m_pInside->RequireOwnable(pOb, nIndex, m_pInside->owners.IsOther(nIndex), kind, nOffset))
        return;
    Adopt(nIndex, kind);
    m_pInside->End();
}

int VELM_CArchive::MayReplace(const VELM_CObject* pOb)
{
    VELM_CArchiveLoader* const pLoader = IsInbound() ? VELM_CArchiveLoader::Of(*this) : nullptr;
    if (pOb == nullptr || pLoader == nullptr || m_pLoadArray == nullptr || !pLoader->HasMade(pOb))
        return 1;
    m_pInside->Fail(VELM_CArchiveException::causeBadIndex, m_pInside->Offset(),
                    "an owner would let go of an object of this load to load another one");
    return 0;
}

VELM_CHeld* VELM_CArchive::ShareOf(unsigned nIndex) const
{
    return m_pInside->owners.ShareOf(nIndex);
}

void VELM_CArchive::KeepShare(unsigned nIndex, VELM_CHeld* pShare, Owner kind)
{
    m_pInside->Unhold(pShare);
    Adopt(nIndex, kind);
    m_pInside->owners.KeepShare(nIndex, pShare);
}

int VELM_CArchive::AreOwnersComplete(const VELM_CObject* pRoot)
{
    VELM_COwners& owners = m_pInside->owners;
    if (!owners.AreUsed() || m_pStoreMap == nullptr)
        return 1;
    const VELM_CObject* pFirst = nullptr; // the one with the smallest index
    unsigned nFirst = 0;
    if (IsInbound()) {
        nFirst = VELM_CArchiveLoader::Of(*this)->FindUnowned(pRoot);
        pFirst = static_cast<VELM_CObject*>(m_pLoadArray->GetAt(static_cast<int>(nFirst)));
    } else {
        for (const auto entry : static_cast<const VELM_CMapPtrToPtr&>(*m_pStoreMap)) {
            const unsigned nIndex = static_cast<unsigned>(reinterpret_cast<uintptr_t>(entry.value));
            if (nIndex != 0 && entry.key != pRoot && (nFirst == 0 || nIndex < nFirst) && !owners.HasOwner(nIndex) &&
                !owners.IsOther(nIndex)) {
                nFirst = nIndex;
                pFirst = static_cast<const VELM_CObject*>(entry.key);
            }
        }
    }
    if (nFirst == 0)
        return 1;
    m_pInside->Note("object %u, a %s, has no owner", nFirst, ClassNameOf(*pFirst));
    return 0;
}
