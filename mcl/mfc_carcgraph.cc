#include "mcl/mfc_carcgraph_p.h"

#include <new>
#include <typeinfo>

#include "mcl/mfc_cclass.h"
#include "mcl/mfc_coll.h"

VELM_CArchiveState* VELM_CArchive::NewState()
{
    return new (std::nothrow) VELM_CArchiveGraph(*this);
}

// The part of Abort that concerns objects and classes.
void VELM_CArchive::DropObjects()
{
    delete m_pLoader;
    m_pLoader = nullptr;
    if (HasStoreMap())
        delete m_pStoreMap;
    else
        delete m_pLoadArray;
    m_pStoreMap = nullptr;
    if (!IsInbound()) // loading, the archive may have the last share of an object that is under way
        Graph().owners.Clear();
    Graph().stored.End();
}

void VELM_CArchive::Hold(VELM_CHeld* pHeld)
{
    pHeld->m_nInHeld = Graph().owners.InHeld();
    m_pState->Hold(pHeld);
}

void VELM_CArchive::MovedFromHeld(VELM_CHeld* pHeld)
{
    const VELM_CHeld* const pOuter = pHeld->m_pOuter;
    if (pOuter == nullptr || pOuter->m_nDepth != pHeld->m_nDepth)
        Graph().owners.MovedFromHeld(pHeld->m_nInHeld);
}

void VELM_CArchiveGraph::FailIndex()
{
    Fail(VELM_CArchiveException::causeBadIndex, Offset(), "no index is left: the limit is %u",
         static_cast<unsigned>(VELM_CArchive::nIndexLimit));
}

bool VELM_CArchiveGraph::RequireLoadable(const VELM_CRuntimeClass& cls, const VELM_CObject* pOb)
{
    const char* const pszName = cls.m_pszName == nullptr ? "" : cls.m_pszName;
    const VELM_CClassTable::Class* const pEntry = pStoredClasses->Find(pszName);
    const bool bKnown = pEntry != nullptr && pEntry->pClass == &cls;
    const bool bConcrete =
        pOb == nullptr || (bKnown && (pEntry->pfnCreate != nullptr || pEntry->pfnCreateIn != nullptr));
    if (bKnown && bConcrete && (pOb == nullptr || pEntry->pType == nullptr || typeid(*pOb) == *pEntry->pType))
        return true;
    Fail(VELM_CArchiveException::causeGeneric, Offset(),
         !bKnown      ? "class \"%s\" is not in the class table"
         : !bConcrete ? "class \"%s\" is abstract"
                      : "an object of a class derived from \"%s\" has no class record of its own",
         pszName);
    return false;
}

static const char* ClassNameOf(const VELM_CObject& ob)
{
    const VELM_CRuntimeClass* const pClass = ob.GetRuntimeClass();
    return pClass == nullptr || pClass->m_pszName == nullptr ? "class without a name" : pClass->m_pszName;
}

bool VELM_CArchiveGraph::RefuseNull(unsigned long long nOffset)
{
    Fail(m_ar.IsStoring() ? VELM_CArchiveException::causeGeneric : VELM_CArchiveException::causeBadIndex, nOffset,
         "an object that is owned is NULL");
    return false;
}

bool VELM_CArchiveGraph::RequireOwnable(const VELM_CObject* pOb, unsigned nIndex, bool bMapped,
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

void VELM_CArchiveGraph::NoteUnowned(const VELM_CObject& ob, unsigned nIndex)
{
    Note("object %u, a %s, has no owner", nIndex, ClassNameOf(ob));
}
