#include "mcl/mfc_carcload.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

const unsigned nNoSchema = 0xFFFF; // the schema of a class whose objects cannot go through an archive
const int causeGeneric = VELM_CArchiveException::causeGeneric;
const int causeBadIndex = VELM_CArchiveException::causeBadIndex;

VELM_CArchiveLoader* VELM_CArchive::Loader()
{
    if (m_pLoader == nullptr && (m_pLoader = new (std::nothrow) VELM_CArchiveLoader(*this)) == nullptr)
        AfxMemoryExhausted();
    return static_cast<VELM_CArchiveLoader*>(m_pLoader);
}

bool VELM_CArchive::HasClassTable() const
{
    return m_pLoader != nullptr && static_cast<VELM_CArchiveLoader*>(m_pLoader)->pTable != nullptr;
}

void VELM_CArchive::SetClassTable(const VELM_CClassTable* pTable)
{
    VELM_ASSERT(IsLoading());
    if ((m_nMode & load) != 0)
        Loader()->pTable = pTable;
}

void VELM_CArchive::SetMaxDepth(unsigned nMaxDepth)
{
    Loader()->nMaxDepth = nMaxDepth;
}

const char* VELM_CArchive::GetErrorText() const
{
    return m_pLoader == nullptr ? "" : static_cast<VELM_CArchiveLoader*>(m_pLoader)->errorText;
}

void VELM_CArchive::DeleteLoadedObjects()
{
    if (m_pLoader != nullptr && m_pLoadArray != nullptr)
        Loader()->DeleteObjects();
}

void VELM_CArchive::Hold(VELM_CObject* pOb)
{
    Loader()->Hold(pOb);
}

void VELM_CArchive::DropHeld()
{
    Loader()->DropHeld();
}

// Where the next byte that is delivered stands in the stream.
unsigned long long VELM_CArchive::GetOffset() const
{
    return m_nFileBytes - static_cast<unsigned long long>(m_lpBufMax - m_lpBufCur);
}

// Notes what went wrong, and raises the cause.
void VELM_CArchive::FailLoad(int cause, unsigned long long nOffset, const char* lpszFormat, ...)
{
    char(&text)[sizeof VELM_CArchiveLoader::errorText] = Loader()->errorText;
    const int n = std::snprintf(text, sizeof text, "offset %llu: ", nOffset);
    va_list args;
    va_start(args, lpszFormat);
    std::vsnprintf(text + n, sizeof text - static_cast<size_t>(n), lpszFormat, args);
    va_end(args);
    for (char* p = text; *p != '\0'; ++p) { // a name in it may hold anything
        if (*p < ' ' || *p > '~')
            *p = '?';
    }
    AfxThrowArchiveException(cause, m_strFileName.m_data);
}

VELM_CArchiveLoader::~VELM_CArchiveLoader()
{
    while (m_held.GetSize() > 0)
        DropHeld();
    std::free(m_pSlots);
    std::free(m_pszName);
}

void VELM_CArchiveLoader::DropHeld()
{
    const int nLast = m_held.GetSize() - 1;
    delete static_cast<VELM_CObject*>(m_held.GetAt(nLast));
    m_held.RemoveAt(nLast);
}

VELM_CArchiveLoader::Slot VELM_CArchiveLoader::SlotAt(unsigned nIndex) const
{
    return nIndex < m_nSlots ? m_pSlots[nIndex] : Slot{nullptr, 0, mapped};
}

// Gives the object or class the next index. Array and slots grow by half, however large the graph.
void VELM_CArchiveLoader::Append(void* pObjectOrClass, Slot slot)
{
    const unsigned nIndex = m_ar.m_nIndexCount;
    if (nIndex >= m_nMaxSlots) {
        const unsigned nNewMax = nIndex + nIndex / 2 + 64;
        m_pSlots = static_cast<Slot*>(AfxAllocate(m_pSlots, nNewMax, sizeof(Slot)));
        m_nMaxSlots = nNewMax;
    }
    VELM_CPtrArray& array = *m_ar.m_pLoadArray;
    const int nHalf = array.m_max_size / 2;
    array.m_grow_by = nHalf > m_ar.m_nMapGrowth ? nHalf : m_ar.m_nMapGrowth;
    array.SetAtGrow(static_cast<int>(nIndex), pObjectOrClass);
    while (m_nSlots < nIndex)
        m_pSlots[m_nSlots++] = Slot{nullptr, 0, mapped};
    m_pSlots[m_nSlots++] = slot;
    ++m_ar.m_nIndexCount;
}

const VELM_CArchiveLoader::Class* VELM_CArchiveLoader::LoadClassRecord(unsigned& rSchema)
{
    const unsigned long long nOffset = m_ar.GetOffset();
    uint32_t nLength;
    if (!m_ar.Load32(rSchema) || !m_ar.Load32(nLength)) {
        m_ar.RaiseDataEnded();
        return nullptr;
    }
    if (nLength > pTable->GetLongestName()) {
        m_ar.FailLoad(causeGeneric, nOffset, "a class name of %lu bytes is longer than any in the class table",
                      static_cast<unsigned long>(nLength));
        return nullptr;
    }
    m_pszName = static_cast<char*>(AfxAllocate(m_pszName, nLength, 1, 1));
    if (m_ar.Read(m_pszName, nLength) != nLength) {
        m_ar.RaiseDataEnded();
        return nullptr;
    }
    m_pszName[nLength] = '\0';
    const Class* pClass = std::strlen(m_pszName) == nLength ? pTable->Find(m_pszName) : nullptr;
    if (pClass == nullptr) {
        m_ar.FailLoad(causeGeneric, nOffset, "class \"%s\" is not in the class table", m_pszName);
        return nullptr;
    }
    const unsigned nNewest = pClass->pClass->m_nSchema;
    if (rSchema == nNoSchema || nNewest == nNoSchema || rSchema > nNewest) {
        m_ar.FailLoad(causeGeneric, nOffset, "class \"%s\" has schema %u; the newest known is %u", m_pszName, rSchema,
                      nNewest);
        return nullptr;
    }
    return pClass;
}

// Reads an object or class reference. A new class gets its index.
bool VELM_CArchiveLoader::LoadReference(Reference& rReference)
{
    rReference = Reference{m_ar.GetOffset(), nullptr, 0, 0};
    uint32_t nTag;
    if (!m_ar.Load32(nTag)) {
        m_ar.RaiseDataEnded();
        return false;
    }
    if (nTag == VELM_CArchive::wNullTag)
        return true;
    if (nTag == VELM_CArchive::wNewClassTag) {
        rReference.pClass = LoadClassRecord(rReference.nSchema);
        if (rReference.pClass == nullptr || !m_ar.HasIndexLeft())
            return false;
        Append(rReference.pClass->pClass, {rReference.pClass, rReference.nSchema, classRecord});
        return true;
    }
    bool bClass = nTag > VELM_CArchive::wClassTag && nTag < VELM_CArchive::wNewClassTag;
    uint32_t nIndex = bClass ? nTag - VELM_CArchive::wClassTag : nTag;
    if (nTag == VELM_CArchive::wBigObjectTag) {
        if (!m_ar.Load32(nIndex)) {
            m_ar.RaiseDataEnded();
            return false;
        }
        bClass = (nIndex & VELM_CArchive::dwBigClassTag) != 0;
        nIndex &= ~VELM_CArchive::dwBigClassTag;
    }
    if (nTag > VELM_CArchive::wBigObjectTag && !bClass) {
        m_ar.FailLoad(causeBadIndex, rReference.nOffset, "tag %u is no reference", nTag);
        return false;
    }
    if (nIndex == 0 || nIndex >= m_ar.m_nIndexCount || m_ar.m_pLoadArray->GetAt(static_cast<int>(nIndex)) == nullptr) {
        m_ar.FailLoad(causeBadIndex, rReference.nOffset, "index %u is not one of the %u given so far", nIndex,
                      m_ar.m_nIndexCount - 1);
        return false;
    }
    const Slot slot = SlotAt(nIndex);
    if (bClass != (slot.kind == classRecord)) {
        m_ar.FailLoad(causeBadIndex, rReference.nOffset, "index %u is %s", nIndex,
                      bClass ? "an object, not a class" : "a class, not an object");
        return false;
    }
    if (bClass) {
        rReference.pClass = slot.pClass;
        rReference.nSchema = slot.nSchema;
    } else {
        rReference.nObject = nIndex;
    }
    return true;
}

// Whether something of the class may be handed to a caller who asked for pRequested.
bool VELM_CArchiveLoader::IsWanted(const Reference& reference, const VELM_CRuntimeClass* pClass,
                                   const VELM_CRuntimeClass* pRequested)
{
    if (pRequested == nullptr || pTable->IsDerivedFrom(pClass, pRequested))
        return true;
    m_ar.FailLoad(causeGeneric, reference.nOffset, "class \"%s\" is not \"%s\" or derived from it",
                  pClass == nullptr ? "" : pClass->m_pszName, pRequested->m_pszName);
    return false;
}

VELM_CRuntimeClass* VELM_CArchiveLoader::LoadClass(const VELM_CRuntimeClass* pRequested, unsigned* pSchema,
                                                   unsigned long* pObTag)
{
    Reference reference;
    if (!LoadReference(reference))
        return nullptr;
    if (reference.pClass == nullptr && pObTag == nullptr) {
        m_ar.FailLoad(causeBadIndex, reference.nOffset, "index %u is an object, not a class", reference.nObject);
        return nullptr;
    }
    if (pObTag != nullptr)
        *pObTag = reference.nObject;
    if (reference.pClass == nullptr || !IsWanted(reference, reference.pClass->pClass, pRequested))
        return nullptr;
    if (pSchema != nullptr)
        *pSchema = reference.nSchema;
    return reference.pClass->pClass;
}

VELM_CObject* VELM_CArchiveLoader::EarlierObject(const Reference& reference, const VELM_CRuntimeClass* pRequested)
{
    if (reference.nObject == 0)
        return nullptr;
    VELM_CObject* pOb = static_cast<VELM_CObject*>(m_ar.m_pLoadArray->GetAt(static_cast<int>(reference.nObject)));
    const Slot slot = SlotAt(reference.nObject);
    const VELM_CRuntimeClass* pClass = slot.kind == created ? slot.pClass->pClass : pOb->GetRuntimeClass();
    return IsWanted(reference, pClass, pRequested) ? pOb : nullptr;
}

VELM_CObject* VELM_CArchiveLoader::LoadObject(const VELM_CRuntimeClass* pRequested)
{
    Reference reference;
    if (!LoadReference(reference))
        return nullptr;
    const Class* pClass = reference.pClass;
    if (pClass == nullptr)
        return EarlierObject(reference, pRequested);
    if (!IsWanted(reference, pClass->pClass, pRequested) || !m_ar.HasIndexLeft())
        return nullptr;
    if (m_nDepth >= nMaxDepth) {
        m_ar.FailLoad(causeGeneric, reference.nOffset, "objects are nested deeper than %u", nMaxDepth);
        return nullptr;
    }
    if (pClass->pfnCreate == nullptr) {
        m_ar.FailLoad(causeGeneric, reference.nOffset, "class \"%s\" is abstract", pClass->pClass->m_pszName);
        return nullptr;
    }
    const unsigned nIndex = m_ar.m_nIndexCount;
    Append(nullptr, {pClass, 0, created}); // before the object, which must not be lost when memory is exhausted
    VELM_CObject* pOb = pClass->pfnCreate();
    if (pOb == nullptr)
        AfxMemoryExhausted();
    m_ar.m_pLoadArray->SetAt(static_cast<int>(nIndex), pOb);

    const unsigned nOuterSchema = m_ar.m_nCurSchema;
    m_ar.m_nCurSchema = reference.nSchema;
    ++m_nDepth;
    pOb->Serialize(m_ar);
    --m_nDepth;
    m_ar.m_nCurSchema = nOuterSchema;
    return pOb;
}

void VELM_CArchiveLoader::DeleteObjects()
{
    for (unsigned i = 0; i < m_nSlots; ++i) {
        if (m_pSlots[i].kind != created)
            continue;
        VELM_CObject* pOb = static_cast<VELM_CObject*>(m_ar.m_pLoadArray->GetAt(static_cast<int>(i)));
        m_ar.m_pLoadArray->SetAt(static_cast<int>(i), nullptr);
        delete pOb;
    }
}
