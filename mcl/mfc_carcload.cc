#include "mcl/mfc_carcload_p.h"

#include <cstdlib>

#include "mcl/mfc_memory.h"

const int causeGeneric = VELM_CArchiveException::causeGeneric;
const int causeBadIndex = VELM_CArchiveException::causeBadIndex;

VELM_CArchiveLoader::~VELM_CArchiveLoader()
{
    std::free(m_slots);
    std::free(m_wide);
    std::free(m_classes);
}

bool VELM_CArchiveLoader::RequireNameLength(uint32_t nLength, unsigned long long nOffset)
{
    if (nLength <= pTable->GetLongestName())
        return true;
    VELM_CArchiveState::Of(m_ar).Fail(causeGeneric, nOffset,
                                      "a class name of %lu bytes is longer than any in the class table",
                                      static_cast<unsigned long>(nLength));
    return false;
}

VELM_CRuntimeClass* VELM_CArchiveLoader::RequireClass(char* pszName, uint32_t nLength, unsigned nSchema,
                                                      unsigned long long nOffset)
{
    VELM_CArchiveState& state = VELM_CArchiveState::Of(m_ar);
    bool bText = true;
    for (uint32_t i = 0; i < nLength; ++i) {
        if (pszName[i] == '\0') {
            pszName[i] = '?'; // how the error text shows it
            bText = false;
        }
    }
    const Class* pClass = bText ? pTable->Find(pszName) : nullptr;
    if (pClass == nullptr) {
        state.Fail(causeGeneric, nOffset, "class \"%s\" is not in the class table", pszName);
        return nullptr;
    }
    const unsigned nNewest = pClass->pClass->m_nSchema;
    if (nSchema == VELM_CRuntimeClass::nNoSchema || nNewest == VELM_CRuntimeClass::nNoSchema || nSchema > nNewest) {
        state.Fail(causeGeneric, nOffset, "class \"%s\" has schema %u; the newest known is %u", pszName, nSchema,
                   nNewest);
        return nullptr;
    }
    return pClass->pClass;
}

bool VELM_CArchiveLoader::RequireBase(const VELM_CRuntimeClass* pClass, const VELM_CRuntimeClass* pRequested,
                                      unsigned long long nOffset)
{
    if (pTable->IsDerivedFrom(pClass, pRequested))
        return true;
    VELM_CArchiveState::Of(m_ar).Fail(causeGeneric, nOffset, "class \"%s\" is not \"%s\" or derived from it",
                                      pClass == nullptr ? "" : pClass->m_pszName, pRequested->m_pszName);
    return false;
}

bool VELM_CArchiveLoader::RequireConcrete(const StoredClass& stored, unsigned long long nOffset)
{
    if (stored.pClass->pfnCreate != nullptr || stored.pClass->pfnCreateIn != nullptr)
        return true;
    VELM_CArchiveState::Of(m_ar).Fail(causeGeneric, nOffset, "class \"%s\" is abstract",
                                      stored.pClass->pClass->m_pszName);
    return false;
}

bool VELM_CArchiveLoader::RequireOtherKind(uint32_t nIndex, bool bClass, unsigned long long nOffset)
{
    VELM_CArchiveState& state = VELM_CArchiveState::Of(m_ar);
    if (nIndex == 0 || nIndex >= m_ar.m_nIndexCount || m_ar.m_pLoadArray->GetAt(static_cast<int>(nIndex)) == nullptr) {
        state.Fail(causeBadIndex, nOffset, "index %u is not one of the %u given so far", nIndex,
                   m_ar.m_nIndexCount - 1);
        return false;
    }
    if (bClass == SlotAt(nIndex).IsClass())
        return true;
    state.Fail(causeBadIndex, nOffset, "index %u is %s", nIndex,
               bClass ? "an object, not a class" : "a class, not an object");
    return false;
}

const VELM_CRuntimeClass* VELM_CArchiveLoader::ClassOfMappedAt(uint32_t nIndex) const
{
    return static_cast<VELM_CObject*>(m_ar.m_pLoadArray->GetAt(static_cast<int>(nIndex)))->GetRuntimeClass();
}

// Makes room for the next index. The array and the slots grow by half each time, so that loading takes linear time.
void VELM_CArchiveLoader::Grow(bool bWide)
{
    VELM_CPtrArray& array = *m_ar.m_pLoadArray;
    const uint32_t nIndex = m_ar.m_nIndexCount;
    if (nIndex >= m_nMaxSlots) {
        const uint32_t nNewMax = nIndex + nIndex / 2 + 64;
        if (m_wide != nullptr)
            m_wide = static_cast<uint32_t*>(AfxAllocate(m_wide, nNewMax, sizeof *m_wide));
        m_slots = static_cast<uint8_t*>(AfxAllocate(m_slots, nNewMax, sizeof *m_slots));
        m_nMaxSlots = nNewMax;
    }
    if (bWide && m_wide == nullptr)
        m_wide = static_cast<uint32_t*>(AfxAllocate(nullptr, m_nMaxSlots, sizeof *m_wide));
    while (m_nSlots < nIndex) // objects that the program has mapped
        m_slots[m_nSlots++] = Slot::OfMapped().Byte();
    if (static_cast<int>(nIndex) >= array.m_max_size) {
        const int nHalf = array.m_max_size / 2;
        array.m_grow_by = nHalf > m_ar.m_nMapGrowth ? nHalf : m_ar.m_nMapGrowth;
    }
    if (static_cast<int>(nIndex) >= array.m_size)
        array.SetSize(static_cast<int>(nIndex) + 1);
}

const VELM_CArchiveLoader::StoredClass& VELM_CArchiveLoader::AddClass(VELM_CRuntimeClass* pClass, unsigned nSchema)
{
    if (m_nClasses >= m_nMaxClasses) {
        const uint32_t nNewMax = m_nClasses + m_nClasses / 2 + 16;
        m_classes = static_cast<StoredClass*>(AfxAllocate(m_classes, nNewMax, sizeof *m_classes));
        m_nMaxClasses = nNewMax;
    }
    m_classes[m_nClasses] = StoredClass{pTable->Find(pClass->m_pszName), nSchema};
    Append(pClass, Slot::OfClass(m_nClasses));
    return m_classes[m_nClasses++];
}

VELM_CObject* VELM_CArchiveLoader::CreateObject(const StoredClass& stored)
{
    const Class& cls = *stored.pClass;
    const uint32_t nIndex = m_ar.m_nIndexCount;
    // This comes before the object is made: an object must not be lost when memory is exhausted.
    Append(nullptr, Slot::OfObject(static_cast<uint32_t>(&stored - m_classes)));
    const unsigned nKept = m_creating.GetCount(); // blocks of objects whose constructors are running
    VELM_CObject* pOb = cls.pfnCreate != nullptr ? cls.pfnCreate() : cls.pfnCreateIn(m_creating);
    AfxNew(pOb);
    m_creating.KeepFirst(nKept, dynamic_cast<void*>(pOb));
    m_ar.m_pLoadArray->SetAt(static_cast<int>(nIndex), pOb);
    return pOb;
}

void VELM_CArchiveLoader::DeleteObjects()
{
    m_creating.KeepFirst(0);
    VELM_COwners& owners = VELM_CArchiveGraph::Of(m_ar).owners;
    void** const objects = m_ar.m_pLoadArray->m_data;
    for (uint32_t i = 0; i < m_nSlots; ++i) {
        VELM_CObject* const pOb = ObjectAt(i);
        if (pOb != nullptr && ClassAt(i).pClass->pfnLetGo != nullptr)
            ClassAt(i).pClass->pfnLetGo(pOb);
    }
    for (const uint32_t nInHeld : owners) // objects owned by held values, which delete them
        objects[nInHeld] = nullptr;
    // Forgets the objects that others delete. This is done before the first object is deleted, which may delete others.
    for (uint32_t i = 0; i < m_nSlots; ++i) {
        const uint32_t nOwner = owners.OwnerOf(i);
        const bool bLetGo = nOwner != 0 && ClassAt(nOwner).pClass->pfnLetGo != nullptr;
        if (IsObjectAt(i) && !bLetGo && !owners.IsArchives(i))
            objects[i] = nullptr;
    }
    for (uint32_t i = 0; i < m_nSlots; ++i) {
        VELM_CObject* const pOb = ObjectAt(i);
        if (pOb == nullptr)
            continue;
        objects[i] = nullptr;
        delete pOb;
    }
    owners.ReleaseShares();
}

bool VELM_CArchiveLoader::FindMade(const VELM_CObject* pOb, VELM_CTable::Place& rAt) const
{
    return m_made.Find(VELM_CTable::TagOf(pOb), rAt,
                       [=](const VELM_CTable::Place& at) { return ObjectAt(at.Low()) == pOb; });
}

bool VELM_CArchiveLoader::HasMade(const VELM_CObject* pOb)
{
    if (!m_made.Is() && !m_made.Start(m_nSlots))
        AfxMemoryExhausted();
    uint32_t nUnmade = m_nSlots; // the first slot whose object is still being constructed: it is looked at again
    VELM_CTable::Place at;
    for (uint32_t i = m_nLookedAt; i < m_nSlots; ++i) {
        const VELM_CObject* const pMade = ObjectAt(i);
        if (pMade != nullptr && !FindMade(pMade, at) && !m_made.Add(at, VELM_CTable::TagOf(pMade), i))
            AfxMemoryExhausted();
        if (pMade == nullptr && IsObjectAt(i) && nUnmade == m_nSlots)
            nUnmade = i;
    }
    m_nLookedAt = nUnmade;
    return FindMade(pOb, at);
}

uint32_t VELM_CArchiveLoader::FindUnowned(const VELM_CObject* pRoot) const
{
    const VELM_COwners& owners = VELM_CArchiveGraph::Of(m_ar).owners;
    for (uint32_t i = 0; i < m_nSlots; ++i) {
        if (ObjectAt(i) != nullptr && ObjectAt(i) != pRoot && !owners.HasOwner(i))
            return i;
    }
    return 0;
}
