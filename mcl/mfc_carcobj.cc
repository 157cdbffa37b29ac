// Object and class references of an archive.
#include <cstdio>

#include "mcl/mfc_carcload.h"
#include "mcl/mfc_cmap.h"
#include "mcl/mfc_cobj.h"
#include "mcl/mfc_coll.h"

const unsigned nNoSchema = 0xFFFF; // the schema of a class whose objects cannot go through an archive

// The index that the store map has for an object or a class; 0 when it is new.
static void*& IndexSlot(VELM_CMapPtrToPtr& map, const void* pObjectOrClass)
{
    return map[const_cast<void*>(pObjectOrClass)];
}

static unsigned IndexIn(void* pSlot)
{
    return static_cast<unsigned>(reinterpret_cast<uintptr_t>(pSlot));
}

static void* AsSlot(unsigned nIndex)
{
    return reinterpret_cast<void*>(uintptr_t{nIndex});
}

// Makes the store map or the load array. False when there is one already.
bool VELM_CArchive::MakeMap()
{
    if (m_pStoreMap != nullptr)
        return false;
    if (m_nMode == store) {
        m_pStoreMap = new (std::nothrow) VELM_CMapPtrToPtr(m_nMapGrowth);
        if (m_pStoreMap == nullptr)
            AfxMemoryExhausted();
        m_pStoreMap->InitHashTable(m_nMapBuckets, 1);
        std::printf("SetAt NYI\n");
    } else {
        m_pLoadArray = new (std::nothrow) VELM_CPtrArray;
        if (m_pLoadArray == nullptr)
            AfxMemoryExhausted();
        m_pLoadArray->SetSize(1, m_nMapGrowth);
        m_pLoadArray->SetAt(0, nullptr);
    }
    m_nIndexCount = 1;
    return true;
}

// Whether an index can be given; raises 5 when not.
bool VELM_CArchive::HasIndexLeft()
{
    if (m_nIndexCount < nIndexLimit)
        return true;
    if ((m_nMode & load) != 0)
        FailLoad(VELM_CArchiveException::causeBadIndex, GetOffset(), "no index is left: the limit is %u",
                 static_cast<unsigned>(nIndexLimit));
    else
        AfxThrowArchiveException(VELM_CArchiveException::causeBadIndex, m_strFileName.m_data);
    return false;
}

void VELM_CArchive::CheckCount()
{
    HasIndexLeft();
}

void VELM_CArchive::MapObject(const VELM_CObject* pOb)
{
    const bool bNew = MakeMap();
    if (pOb == nullptr || (!bNew && !HasIndexLeft()))
        return;
    const unsigned nIndex = m_nIndexCount++;
    if (m_nMode == store)
        IndexSlot(*m_pStoreMap, pOb) = AsSlot(nIndex);
    else
        m_pLoadArray->InsertAt(static_cast<int>(nIndex), const_cast<VELM_CObject*>(pOb), 1);
}

// WriteClass; false when nothing, or not all of it, could be stored.
bool VELM_CArchive::StoreClass(const VELM_CRuntimeClass* pClassRef)
{
    const bool bClass = VELM_ASSERT(pClassRef != NULL);
    const bool bStoring = VELM_ASSERT(IsStoring());
    if (!bClass || !bStoring)
        return false;
    if (pClassRef->m_nSchema == nNoSchema) {
        pfm_raise(VELM_CArchiveException::causeGeneric);
        return false;
    }
    MakeMap();
    void*& slot = IndexSlot(*m_pStoreMap, pClassRef);
    const unsigned nClass = IndexIn(slot);
    if (nClass != 0) {
        if (nClass < wBigObjectTag) {
            *this << (nClass | wClassTag);
        } else {
            *this << static_cast<unsigned>(wBigObjectTag) << (nClass | dwBigClassTag);
        }
        return true;
    }
    *this << static_cast<unsigned>(wNewClassTag);
    pClassRef->Store(*this);
    if (!HasIndexLeft())
        return false;
    slot = AsSlot(m_nIndexCount++);
    return true;
}

void VELM_CArchive::WriteClass(const VELM_CRuntimeClass* pClassRef)
{
    StoreClass(pClassRef);
}

void VELM_CArchive::WriteObject(const VELM_CObject* pOb)
{
    if (!VELM_ASSERT(IsStoring()))
        return;
    MakeMap();
    if (pOb == nullptr) {
        *this << static_cast<unsigned>(wNullTag);
        return;
    }
    void*& slot = IndexSlot(*m_pStoreMap, pOb);
    const unsigned nObject = IndexIn(slot);
    if (nObject != 0) {
        if (nObject >= wBigObjectTag)
            *this << static_cast<unsigned>(wBigObjectTag);
        *this << nObject;
        return;
    }
    if (!StoreClass(pOb->GetRuntimeClass()) || !HasIndexLeft())
        return;
    slot = AsSlot(m_nIndexCount++);
    const_cast<VELM_CObject*>(pOb)->Serialize(*this);
}

void VELM_CArchive::SerializeClass(const VELM_CRuntimeClass* pClassRef)
{
    if (m_nMode == store)
        WriteClass(pClassRef);
    else
        ReadClass(pClassRef, nullptr, nullptr);
}

// What ReadClass and ReadObject begin with; false when it ends there.
bool VELM_CArchive::StartReadClass(const VELM_CRuntimeClass* pClassRefRequested)
{
    VELM_ASSERT(IsLoading());
    if ((m_nMode & load) == 0)
        return false;
    if (pClassRefRequested != nullptr && pClassRefRequested->m_nSchema == nNoSchema) {
        FailLoad(VELM_CArchiveException::causeGeneric, GetOffset(), "class \"%s\" cannot go through an archive",
                 pClassRefRequested->m_pszName);
        return false;
    }
    MakeMap();
    return true;
}

VELM_CRuntimeClass* VELM_CArchive::ReadClass(const VELM_CRuntimeClass* pClassRefRequested, unsigned* pSchema,
                                             unsigned long* pObTag)
{
    if (!StartReadClass(pClassRefRequested))
        return nullptr;
    if (HasClassTable())
        return Loader()->LoadClass(pClassRefRequested, pSchema, pObTag);
    uint32_t nDropped;
    if (!Load32(nDropped)) {
        RaiseDataEnded();
        return nullptr;
    }
    if (pObTag == nullptr) {
        FailLoad(VELM_CArchiveException::causeBadIndex, GetOffset(), "no class loads without a class table");
        return nullptr;
    }
    *pObTag = 0;
    return nullptr;
}

VELM_CObject* VELM_CArchive::ReadObject(const VELM_CRuntimeClass* pClassRefRequested)
{
    VELM_ASSERT(IsLoading());
    if (HasClassTable())
        return StartReadClass(pClassRefRequested) ? Loader()->LoadObject(pClassRefRequested) : nullptr;
    unsigned long nObTag = 0;
    ReadClass(pClassRefRequested, nullptr, &nObTag);
    if ((m_nMode & load) == 0 || m_pLoadArray == nullptr)
        return nullptr;
    return static_cast<VELM_CObject*>(m_pLoadArray->GetAt(0));
}

unsigned VELM_CArchive::GetObjectSchema()
{
    const unsigned nSchema = m_nCurSchema;
    m_nCurSchema = 0xFFFFFFFF;
    return nSchema;
}
