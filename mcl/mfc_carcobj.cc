// Objects and classes in an archive: the walk along the stream, storing on the left and loading on the right.
//
//     WriteObject                                 ReadObject
//       known?  VELM_CReference::Store              VELM_CReference::Load  known?
//       StoreClass                                  LoadClass
//         known?  VELM_CReference::Store              known?
//         VELM_CRuntimeClass::Store                   VELM_CRuntimeClass::Load
//         TakeIndex                                   VELM_CArchiveLoader::AddClass
//       TakeIndex                                   VELM_CArchiveLoader::CreateObject
//       VELM_CObject::Serialize                     VELM_CObject::Serialize
//
// What can fail comes before what is remembered: an index is taken when the place for it has been made.
#include <new>

#include "mcl/mfc_carcload_p.h"
#include "mcl/mfc_carcref_p.h"
#include "mcl/mfc_cobj.h"
#include "mcl/mfc_cobj_p.h"
#include "mcl/mfc_coll.h"
#include "mcl/mfc_memory.h"

// The entry of an object or a class, which is new if the entry has no index.
static VELM_CStoredIndexes::Entry EntryOf(VELM_CArchive& ar, const void* pObjectOrClass, bool bAssoc = false)
{
    VELM_CArchiveGraph& graph = VELM_CArchiveGraph::Of(ar);
    graph.Begin(); // there may be no memory
    const VELM_CStoredIndexes::Entry entry = graph.stored.Find(*ar.m_pStoreMap, pObjectOrClass, bAssoc);
    graph.End();
    return entry;
}

static const char* NameOf(const VELM_CRuntimeClass* pClass)
{
    return pClass->m_pszName == nullptr ? "" : pClass->m_pszName;
}

// Makes the store map or the load array; completes it if a raise has interrupted an earlier call. False after Abort.
bool VELM_CArchive::MakeMap()
{
    if (m_pState->bAborted) {
        m_pState->Lose("an object was not stored");
        return false;
    }
    m_pState->Begin();
    if (HasStoreMap()) {
        if (m_pStoreMap == nullptr)
            m_pStoreMap = AfxNew(new (std::nothrow) VELM_CMapPtrToPtr(m_nMapGrowth));
        m_pStoreMap->InitHashTable(m_nMapBuckets, 1);
        Graph().stored.Start(*m_pStoreMap);
        AfxNotice("SetAt NYI\n"); // storing has always printed this, and some programs compare their output
    } else {
        if (m_pLoadArray == nullptr)
            m_pLoadArray = AfxNew(new (std::nothrow) VELM_CPtrArray);
        m_pLoadArray->SetSize(1, m_nMapGrowth);
        m_pLoadArray->SetAt(0, nullptr);
    }
    m_nIndexCount = 1;
    m_pState->End();
    return true;
}

void VELM_CArchive::CheckCount()
{
    Graph().RequireIndex();
}

void VELM_CArchive::MapObject(const VELM_CObject* pOb)
{
    const bool bNew = !HasMap();
    if ((bNew && !MakeMap()) || pOb == nullptr || (!bNew && !Graph().RequireIndex()))
        return;
    m_pState->Begin();
    if (HasStoreMap()) {
        Graph().owners.ReserveOther();
        const VELM_CStoredIndexes::Entry entry = EntryOf(*this, pOb, true);
        Graph().owners.AddOther(m_nIndexCount);
        Graph().stored.Give(*entry.pAssoc, Graph().TakeIndex());
    } else {
        m_pLoadArray->InsertAt(static_cast<int>(m_nIndexCount), const_cast<VELM_CObject*>(pOb), 1);
        Graph().TakeIndex();
    }
    m_pState->End();
}

// Stores a class reference, and the class record if the class is new. pOb is the object that follows, or NULL when the
// class is stored alone. False when not all of it could be stored.
bool VELM_CArchive::StoreClass(const VELM_CRuntimeClass* pClassRef, const VELM_CObject* pOb)
{
    const bool bClass = VELM_ASSERT(pClassRef != NULL);
    const bool bStoring = VELM_ASSERT(IsStoring());
    if (!bClass || !bStoring) {
        m_pState->Lose("an object or a class without a class record was not stored");
        return false;
    }
    if (pClassRef->m_nSchema == VELM_CRuntimeClass::nNoSchema) {
        m_pState->Fail(VELM_CArchiveException::causeGeneric, m_pState->Offset(),
                       "class \"%s\" cannot go through an archive", NameOf(pClassRef));
        return false;
    }
    if (Graph().pStoredClasses != nullptr && !Graph().RequireLoadable(*pClassRef, pOb))
        return false;
    if (!HasMap() && !MakeMap())
        return false;
    const VELM_CStoredIndexes::Entry entry = EntryOf(*this, pClassRef);
    if (entry.nIndex != 0) {
        VELM_CReference{VELM_CReference::knownClass, entry.nIndex}.Store(*this);
        return true;
    }
    if (!VELM_ASSERT(pClassRef->m_pszName != NULL)) {
        m_pState->Lose("a class without a name was not stored");
        return false;
    }
    Graph().owners.ReserveOther();
    VELM_CReference{VELM_CReference::newClass, 0}.Store(*this);
    pClassRef->Store(*this);
    if (!Graph().RequireIndex())
        return false;
    Graph().owners.AddOther(m_nIndexCount);
    Graph().stored.Give(*entry.pAssoc, Graph().TakeIndex());
    return true;
}

void VELM_CArchive::WriteClass(const VELM_CRuntimeClass* pClassRef)
{
    if (m_pState->bAborted) {
        m_pState->Lose("a class record was not stored");
        return;
    }
    m_pState->Begin();
    if (StoreClass(pClassRef, nullptr))
        m_pState->End();
}

// The fast path, for objects of which one line of the table shows that they are known or new. It is kept short, so that
// the processor gets on to the next object while it waits for the memory of this one.
void VELM_CArchive::WriteObject(const VELM_CObject* pOb)
{
    __builtin_prefetch(pOb);
    const void* const pFrame = __builtin_dwarf_cfa(); // the same for all paths from here
    VELM_CStoredIndexes& stored = Graph().stored;
    if (pOb != nullptr && IsStoring() && m_lpBufMax - m_lpBufCur >= 8 && stored.IsRight(m_pStoreMap)) {
        const VELM_CStoredIndexes::Entry entry = stored.FindNear(*m_pStoreMap, pOb);
        if (entry.nIndex != 0)
            VELM_CReference::StoreAt(m_lpBufCur, entry.nIndex, 0, 0);
        else if (entry.pAssoc != nullptr)
            WriteNew(pOb, entry.pAssoc, entry.pIndex, entry.nMoves, pFrame);
        else
            WriteAnyObject(pOb, pFrame);
        return;
    }
    WriteAnyObject(pOb, pFrame);
}

void VELM_CArchive::WriteAnyObject(const VELM_CObject* pOb, const void* pFrame)
{
    if (m_nMode != store && m_pState->bAborted)
        return;
    if (!VELM_ASSERT(IsStoring())) {
        m_pState->Lose("an object was not stored");
        return;
    }
    if (!HasMap() && !MakeMap())
        return;
    if (pOb == nullptr) {
        VELM_CReference{VELM_CReference::nullObject, 0}.Store(*this);
        return;
    }
    const VELM_CStoredIndexes::Entry entry = EntryOf(*this, pOb);
    if (entry.nIndex != 0)
        VELM_CReference{VELM_CReference::object, entry.nIndex}.Store(*this);
    else
        WriteNew(pOb, entry.pAssoc, entry.pIndex, entry.nMoves, pFrame);
}

// Stores an object that has an entry, but no index yet. pAssoc, pIndex and nMoves are the fields of the entry.
void VELM_CArchive::WriteNew(const VELM_CObject* pOb, VELM_CPtrAssoc* pAssoc, uint32_t* pIndex, unsigned nMoves,
                             const void* pFrame)
{
    VELM_CArchiveGraph& graph = Graph();
    graph.Begin();
    const VELM_CRuntimeClass* const pClassRef = pOb->GetRuntimeClass();
    // The fast path: the class has been stored, and everything that the object needs is ready.
    if (pClassRef != nullptr && pClassRef->m_nSchema != VELM_CRuntimeClass::nNoSchema &&
        graph.pStoredClasses == nullptr && m_lpBufMax - m_lpBufCur >= 8 && pIndex != nullptr) {
        const uint32_t nClass = graph.stored.IndexOfClass(pClassRef, nMoves), nIndex = m_nIndexCount;
        const unsigned long long nMark = VELM_CArchiveState::Mark();
        if (nClass != 0 && nIndex < nIndexLimit && graph.IsDepthReady(pFrame, nMark)) {
            VELM_CReference::StoreAt(m_lpBufCur, nClass, wClassTag, dwBigClassTag);
            m_nIndexCount = nIndex + 1;
            pAssoc->value = reinterpret_cast<void*>(uintptr_t{nIndex});
            *pIndex = nIndex;
            graph.Serialize(*const_cast<VELM_CObject*>(pOb), pFrame, {pClassRef, nIndex, pClassRef->m_nSchema, nMark},
                            true);
            graph.End();
            return;
        }
    }
    WriteOfClass(pOb, pClassRef, pAssoc, pFrame);
}

void VELM_CArchive::WriteOfClass(const VELM_CObject* pOb, const VELM_CRuntimeClass* pClassRef, VELM_CPtrAssoc* pAssoc,
                                 const void* pFrame)
{
    VELM_CArchiveGraph& graph = Graph();
    if (!graph.RequireDepth(graph.Offset(), pFrame) || !StoreClass(pClassRef, pOb) || !graph.RequireIndex())
        return;
    const unsigned nIndex = graph.TakeIndex();
    graph.stored.Give(*pAssoc, nIndex);
    graph.Serialize(*const_cast<VELM_CObject*>(pOb), pFrame,
                    {pClassRef, nIndex, pClassRef->m_nSchema, VELM_CArchiveState::Mark()});
    graph.End();
}

void VELM_CArchive::SerializeClass(const VELM_CRuntimeClass* pClassRef)
{
    if (HasStoreMap())
        WriteClass(pClassRef);
    else
        ReadClass(pClassRef, nullptr, nullptr);
}

// The beginning of ReadClass and ReadObject. False when nothing can be loaded.
bool VELM_CArchive::StartReading(const VELM_CRuntimeClass* pClassRefRequested)
{
    VELM_ASSERT(IsLoading());
    if (!IsInbound())
        return false;
    if (pClassRefRequested != nullptr && pClassRefRequested->m_nSchema == VELM_CRuntimeClass::nNoSchema) {
        m_pState->Fail(VELM_CArchiveException::causeGeneric, m_pState->Offset(),
                       "class \"%s\" cannot go through an archive", NameOf(pClassRefRequested));
        return false;
    }
    return HasMap() || MakeMap();
}

// The class that the reference names, or whose record follows it. Raises as ReadObject; NULL if the raise returns.
static inline const VELM_CArchiveLoader::StoredClass* LoadClass(VELM_CArchive& ar, const VELM_CReference& reference,
                                                                unsigned long long nOffset)
{
    VELM_CArchiveLoader& loader = *VELM_CArchiveLoader::Of(ar);
    if (reference.kind == VELM_CReference::knownClass)
        return loader.RequireKind(reference.nIndex, true, nOffset) ? &loader.ClassAt(reference.nIndex) : nullptr;
    unsigned nSchema;
    VELM_CRuntimeClass* const pClass = VELM_CRuntimeClass::Load(ar, &nSchema);
    if (pClass == nullptr || !VELM_CArchiveGraph::Of(ar).RequireIndex())
        return nullptr;
    return &loader.AddClass(pClass, nSchema);
}

VELM_CRuntimeClass* VELM_CArchive::ReadClass(const VELM_CRuntimeClass* pClassRefRequested, unsigned* pSchema,
                                             unsigned long* pObTag)
{
    if (!StartReading(pClassRefRequested))
        return nullptr;
    const unsigned long long nOffset = m_pState->Offset();
    VELM_CArchiveLoader* const pLoader = VELM_CArchiveLoader::WithTable(*this);
    VELM_CReference reference = {VELM_CReference::nullObject, 0};
    uint32_t nDropped;
    if (pLoader == nullptr ? !Load32(nDropped) : !reference.Load(*this)) {
        RaiseDataEnded();
        return nullptr;
    }
    if (reference.kind == VELM_CReference::nullObject || reference.kind == VELM_CReference::object) {
        if (reference.nIndex != 0 && !pLoader->RequireKind(reference.nIndex, false, nOffset))
            return nullptr;
        if (pObTag != nullptr)
            *pObTag = reference.nIndex;
        else if (pLoader == nullptr)
            m_pState->Fail(VELM_CArchiveException::causeBadIndex, m_pState->Offset(),
                           "no class loads without a class table");
        else
            m_pState->Fail(VELM_CArchiveException::causeBadIndex, nOffset, "index %u is an object, not a class",
                           reference.nIndex);
        return nullptr;
    }
    const VELM_CArchiveLoader::StoredClass* const pStored = LoadClass(*this, reference, nOffset);
    if (pStored == nullptr || !pLoader->RequireDerived(pStored->pClass->pClass, pClassRefRequested, nOffset))
        return nullptr;
    if (pObTag != nullptr)
        *pObTag = 0;
    if (pSchema != nullptr)
        *pSchema = pStored->nSchema;
    return pStored->pClass->pClass;
}

VELM_CObject* VELM_CArchive::ReadObject(const VELM_CRuntimeClass* pClassRefRequested)
{
    unsigned nIndex;
    return LoadObject(pClassRefRequested, nIndex, __builtin_frame_address(0));
}

// The body of ReadObject, with the frame of the public function. It also delivers the object's index: 0 for NULL, and
// nRefused after a raise that returned.
__attribute__((always_inline)) inline VELM_CObject*
VELM_CArchive::LoadObject(const VELM_CRuntimeClass* pClassRefRequested, unsigned& rIndex, const void* pFrame)
{
    rIndex = nRefused;
    VELM_ASSERT(IsLoading());
    VELM_CArchiveLoader* const pLoader = VELM_CArchiveLoader::WithTable(*this);
    if (pLoader == nullptr) {
        unsigned long nObTag = 0;
        ReadClass(pClassRefRequested, nullptr, &nObTag);
        if (IsInbound() && m_nDataEnd == dataGoesOn)
            rIndex = 0;
        return !IsInbound() || m_pLoadArray == nullptr ? nullptr : static_cast<VELM_CObject*>(m_pLoadArray->GetAt(0));
    }
    const bool bAny = pClassRefRequested == nullptr || pClassRefRequested->m_nSchema != VELM_CRuntimeClass::nNoSchema;
    if ((!bAny || !IsLoading() || !HasMap()) && !StartReading(pClassRefRequested))
        return nullptr;
    const unsigned long long nOffset = m_pState->Offset();
    VELM_CReference reference;
    if (!reference.Load(*this))
        return nullptr;
    if (reference.kind == VELM_CReference::nullObject) {
        rIndex = 0;
        return nullptr;
    }
    if (reference.kind == VELM_CReference::object) {
        if (!pLoader->RequireKind(reference.nIndex, false, nOffset) ||
            !pLoader->RequireDerived(pLoader->ClassOfObjectAt(reference.nIndex), pClassRefRequested, nOffset))
            return nullptr;
        rIndex = reference.nIndex;
        return static_cast<VELM_CObject*>(m_pLoadArray->GetAt(static_cast<int>(reference.nIndex)));
    }
    const VELM_CArchiveLoader::StoredClass* const pStored = LoadClass(*this, reference, nOffset);
    if (pStored == nullptr || !pLoader->RequireDerived(pStored->pClass->pClass, pClassRefRequested, nOffset) ||
        !Graph().RequireIndex() || !m_pState->RequireDepth(nOffset, pFrame) ||
        !pLoader->RequireConcrete(*pStored, nOffset))
        return nullptr;
    const VELM_CRuntimeClass* const pClass = pStored->pClass->pClass;
    const unsigned nSchema = pStored->nSchema, nOuterSchema = m_nCurSchema, nIndex = m_nIndexCount;
    VELM_CObject* const pOb = pLoader->CreateObject(*pStored);
    // From here on the loader and the load array must not be used: Serialize may abort the archive.
    m_nCurSchema = nSchema;
    m_pState->Serialize(*pOb, pFrame, {pClass, nIndex, nSchema, m_pState->Mark()});
    m_nCurSchema = nOuterSchema;
    rIndex = nIndex;
    return pOb;
}

VELM_CObject* VELM_CArchive::ReadForOwner(const VELM_CRuntimeClass* pClassRefRequested, Owner kind, int bOrNull,
                                          unsigned& rIndex)
{
    const unsigned long long nOffset = m_pState->Offset();
    VELM_CObject* const pOb = LoadObject(pClassRefRequested, rIndex, __builtin_frame_address(0));
    VELM_CArchiveLoader* const pLoader = VELM_CArchiveLoader::Of(*this);
    // After Abort the archive knows only the objects that it has a share of. All others belong to the program.
    const bool bAll = pLoader != nullptr && !m_pState->bAborted;
    if (rIndex == nRefused || (!bAll && Graph().owners.ShareOf(rIndex) == nullptr)) {
        rIndex = rIndex == nRefused ? rIndex : 0;
        return pOb;
    }
    const bool bMayBe = pOb == nullptr
                            ? bOrNull || Graph().RefuseNull(nOffset)
                            : Graph().RequireOwnable(pOb, rIndex, bAll && pLoader->IsMappedAt(rIndex), kind, nOffset);
    if (bMayBe)
        return pOb;
    rIndex = nRefused;
    return nullptr;
}

unsigned VELM_CArchive::GetObjectSchema()
{
    const unsigned nSchema = m_nCurSchema;
    m_nCurSchema = 0xFFFFFFFF;
    return nSchema;
}

void VELM_CArchive::SetClassTable(const VELM_CClassTable* pTable)
{
    if (!IsInbound()) {
        Graph().pStoredClasses = pTable;
        return;
    }
    if (m_pLoader == nullptr)
        m_pLoader = AfxNew(new (std::nothrow) VELM_CArchiveLoader(*this));
    VELM_CArchiveLoader::Of(*this)->pTable = pTable;
}

void VELM_CArchive::SetMaxDepth(unsigned nMaxDepth)
{
    m_pState->nMaxDepth = nMaxDepth;
}

void VELM_CArchive::DeleteLoadedObjects()
{
    VELM_CArchiveLoader* const pLoader = VELM_CArchiveLoader::Of(*this);
    if (pLoader != nullptr && IsInbound() && m_pLoadArray != nullptr)
        pLoader->DeleteObjects();
}
