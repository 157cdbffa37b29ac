// Owners of objects in an archive: who may own an object, and who does. The objects themselves are stored and loaded by
// WriteObject and ReadForOwner, in mfc_carcobj.cc.
#include "mcl/mfc_carcload_p.h"

void VELM_CArchive::Adopt(unsigned nIndex, Owner kind)
{
    if (nIndex == 0 || nIndex == nRefused || m_pState->bAborted)
        return;
    const VELM_CUnderWay* const pInnermost = m_pState->Innermost();
    Graph().owners.Adopt(nIndex, pInnermost == nullptr ? 0 : pInnermost->nIndex, kind, m_pState->IsHolding());
}

unsigned VELM_CArchive::GetAdoptions() const
{
    return Graph().owners.Adoptions();
}

void VELM_CArchive::WriteForOwner(const VELM_CObject* pOb, Owner kind, int bOrNull)
{
    if (m_pState->bAborted) {
        m_pState->Lose("an object was not stored");
        return;
    }
    const unsigned long long nOffset = m_pState->Offset();
    if (pOb == nullptr && !bOrNull && IsStoring()) {
        Graph().RefuseNull(nOffset);
        return;
    }
    WriteObject(pOb);
    if (pOb == nullptr || m_pState->bAborted || !IsStoring() || m_pStoreMap == nullptr)
        return;
    const unsigned nIndex = Graph().stored.IndexOf(*m_pStoreMap, pOb);
    m_pState->Begin();
    if (nIndex == 0 || !Graph().RequireOwnable(pOb, nIndex, Graph().owners.IsOther(nIndex), kind, nOffset))
        return;
    Adopt(nIndex, kind);
    m_pState->End();
}

int VELM_CArchive::MayReplace(const VELM_CObject* pOb)
{
    VELM_CArchiveLoader* const pLoader = IsInbound() ? VELM_CArchiveLoader::Of(*this) : nullptr;
    if (pOb == nullptr || pLoader == nullptr || m_pLoadArray == nullptr || !pLoader->HasMade(pOb))
        return 1;
    m_pState->Fail(VELM_CArchiveException::causeBadIndex, m_pState->Offset(),
                   "an owner would let go of an object of this load to load another one");
    return 0;
}

VELM_CHeld* VELM_CArchive::ShareOf(unsigned nIndex) const
{
    return Graph().owners.ShareOf(nIndex);
}

void VELM_CArchive::KeepShare(unsigned nIndex, VELM_CHeld* pShare, Owner kind)
{
    m_pState->Unhold(pShare);
    Adopt(nIndex, kind);
    Graph().owners.KeepShare(nIndex, pShare);
}

int VELM_CArchive::AreOwnersComplete(const VELM_CObject* pRoot)
{
    VELM_COwners& owners = Graph().owners;
    if (!owners.AreUsed() || m_pStoreMap == nullptr)
        return 1;
    const VELM_CObject* pFirst = nullptr; // the object with the smallest index among those without an owner
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
    Graph().NoteUnowned(*pFirst, nFirst);
    return 0;
}
