#include "mcl/mfc_carcload_p.h"

#include <cstdlib>
#include <cstring>

#include "mcl/mfc_memory.h"

const int causeGeneric = VELM_CArchiveException::causeGeneric;
const int causeBadIndex = VELM_CArchiveException::causeBadIndex;

VELM_CArchiveLoader::~VELM_CArchiveLoader()
{
    std::free(m_slots);
    std::free(m_met);
    std::free(m_places);
}

bool VELM_CArchiveLoader::RequireNameLength(uint32_t nLength, unsigned long long nOffset)
{
    if (nLength <= pTable->GetLongestName())
        return true;
    VELM_CArchiveInside::Of(m_ar).Fail(causeGeneric, nOffset,
                                       "a class name of %lu bytes is longer than any in the class table",
                                       static_cast<unsigned long>(nLength));
    return false;
}

VELM_CRuntimeClass* VELM_CArchiveLoader::RequireClass(char* pszName, uint32_t nLength, unsigned nSchema,
                                                      unsigned long long nOffset)
{
    VELM_CArchiveInside& inside = VELM_CArchiveInside::Of(m_ar);
    bool bText = true;
    for (uint32_t i = 0; i < nLength; ++i) {
        if (pszName[i] == '\0') {
            pszName[i] = '?'; // as it is shown
            bText = false;
        }
    }
    const Class* pClass = bText ? pTable->Find(pszName) : nullptr;
    if (pClass == nullptr) {
        inside.Fail(causeGeneric, nOffset, "class \"%s\" is not in the class table", pszName);
        return nullptr;
    }
    const unsigned nNewest = pClass->pClass->m_nSchema;
    if (nSchema == VELM_CRuntimeClass::nNoSchema || nNewest == VELM_CRuntimeClass::nNoSchema || nSchema > nNewest) {
        inside.Fail(causeGeneric, nOffset, "class \"%s\" has schema %u; the newest known is %u", pszName, nSchema,
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
    VELM_CArchiveInside::Of(m_ar).Fail(causeGeneric, nOffset, "class \"%s\" is not \"%s\" or derived from it",
                                       pClass == nullptr ? "" : pClass->m_pszName, pRequested->m_pszName);
    return false;
}

bool VELM_CArchiveLoader::RequireConcrete(const Met& met, unsigned long long nOffset)
{
    if (met.pClass->pfnCreate != nullptr || met.pClass->pfnCreateIn != nullptr)
        return true;
    VELM_CArchiveInside::Of(m_ar).Fail(causeGeneric, nOffset, "class \"%s\" is abstract",
                                       met.pClass->pClass->m_pszName);
    return false;
}

bool VELM_CArchiveLoader::RequireOtherKind(uint32_t nIndex, bool bClass, unsigned long long nOffset)
{
    VELM_CArchiveInside& inside = VELM_CArchiveInside::Of(m_ar);
    const uint32_t nSlot = SlotAt(nIndex);
    const bool bIsClass = nSlot != 0 && nSlot % 2 == 0;
    if (nIndex == 0 || nIndex >= m_ar.m_nIndexCount || m_ar.m_pLoadArray->GetAt(static_cast<int>(nIndex)) == nullptr) {
        inside.Fail(causeBadIndex, nOffset, "index %u is not one of the %u given so far", nIndex,
                    m_ar.m_nIndexCount - 1);
        return false;
    }
    if (bClass == bIsClass)
        return true;
    inside.Fail(causeBadIndex, nOffset, "index %u is %s", nIndex,
                bClass ? "an object, not a class" : "a class, not an object");
    return false;
}

const VELM_CRuntimeClass* VELM_CArchiveLoader::ClassOfMappedAt(uint32_t nIndex) const
{
    return static_cast<VELM_CObject*>(m_ar.m_pLoadArray->GetAt(static_cast<int>(nIndex)))->GetRuntimeClass();
}

// Makes room for the next index. Array and slots grow by half, however large the graph.
void VELM_CArchiveLoader::Grow()
{
    VELM_CPtrArray& array = *m_ar.m_pLoadArray;
    const uint32_t nIndex = m_ar.m_nIndexCount;
    if (nIndex >= m_nMaxSlots) {
        const uint32_t nNewMax = nIndex + nIndex / 2 + 64;
        m_slots = static_cast<uint32_t*>(AfxAllocate(m_slots, nNewMax, sizeof *m_slots));
        m_nMaxSlots = nNewMax;
    }
    while (m_nSlots < nIndex) // what the caller has mapped
        m_slots[m_nSlots++] = 0;
    if (static_cast<int>(nIndex) >= array.m_max_size) {
        const int nHalf = array.m_max_size / 2;
        array.m_grow_by = nHalf > m_ar.m_nMapGrowth ? nHalf : m_ar.m_nMapGrowth;
    }
    if (static_cast<int>(nIndex) >= array.m_size)
        array.SetSize(static_cast<int>(nIndex) + 1);
}

const VELM_CArchiveLoader::Met& VELM_CArchiveLoader::AddClass(VELM_CRuntimeClass* pClass, unsigned nSchema)
{
    if (m_nMet >= m_nMaxMet) {
        const uint32_t nNewMax = m_nMet + m_nMet / 2 + 16;
        m_met = static_cast<Met*>(AfxAllocate(m_met, nNewMax, sizeof *m_met));
        m_nMaxMet = nNewMax;
    }
    m_met[m_nMet] = Met{pTable->Find(pClass->m_pszName), nSchema};
    Append(pClass, 2 * m_nMet);
    return m_met[m_nMet++];
}

VELM_CObject* VELM_CArchiveLoader::CreateObject(const Met& met)
{
    const Class& cls = *met.pClass;
    const uint32_t nIndex = m_ar.m_nIndexCount;
    // Before the object, which must not be lost when memory is exhausted.
    Append(nullptr, 2 * static_cast<uint32_t>(&met - m_met) + 1);
    const unsigned nKept = m_creating.GetCount(); // for the objects in whose constructors this one is made
    VELM_CObject* pOb = cls.pfnCreate != nullptr ? cls.pfnCreate() : cls.pfnCreateIn(m_creating);
    AfxNew(pOb);
    m_creating.KeepFirst(nKept, dynamic_cast<void*>(pOb));
    m_ar.m_pLoadArray->SetAt(static_cast<int>(nIndex), pOb);
    return pOb;
}

void VELM_CArchiveLoader::DeleteObjects()
{
    m_creating.KeepFirst(0);
    VELM_COwners& owners = VELM_CArchiveInside::Of(m_ar).owners;
    void** const objects = m_ar.m_pLoadArray->m_data;
    for (uint32_t i = 0; i < m_nSlots; ++i) {
        VELM_CObject* const pOb = ObjectAt(i);
        if (pOb != nullptr && ClassAt(i).pClass->pfnLetGo != nullptr)
            ClassAt(i).pClass->pfnLetGo(pOb);
    }
    for (const uint32_t nInHeld : owners) // no function lets go of these
        objects[nInHeld] = nullptr;
    for (uint32_t i = 0; i < m_nSlots; ++i) { // before the first is deleted, which may delete others
        const uint32_t nOwner = owners.OwnerOf(i);
        const bool bLetGo = nOwner != 0 && ClassAt(nOwner).pClass->pfnLetGo != nullptr;
        if (m_slots[i] % 2 == 1 && !bLetGo && !owners.IsArchives(i))
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

uint32_t& VELM_CArchiveLoader::PlaceOf(const void* pOb) const
{
    uint64_t nPlace = (reinterpret_cast<uintptr_t>(pOb) >> 4) * 0x9E3779B97F4A7C15 >> 32;
    while (m_places[nPlace % m_nPlaces] != 0 && ObjectAt(m_places[nPlace % m_nPlaces]) != pOb)
        ++nPlace;
    return m_places[nPlace % m_nPlaces];
}

bool VELM_CArchiveLoader::HasMade(const VELM_CObject* pOb)
{
    if (m_nSlots >= m_nPlaces / 2) {
        const uint32_t nPlaces = 4 * m_nSlots + 16;
        m_places = static_cast<uint32_t*>(AfxAllocate(m_places, nPlaces, sizeof *m_places));
        std::memset(m_places, 0, nPlaces * sizeof *m_places);
        m_nPlaces = nPlaces;
        m_nPlaced = 0;
    }
    uint32_t nUnmade = m_nSlots; // the first whose constructor has not ended, if any: it is looked at again
    for (uint32_t i = m_nPlaced; i < m_nSlots; ++i) {
        if (ObjectAt(i) != nullptr)
            PlaceOf(ObjectAt(i)) = i;
        else if (m_slots[i] % 2 == 1 && nUnmade == m_nSlots)
            nUnmade = i;
    }
    m_nPlaced = nUnmade;
    return PlaceOf(pOb) != 0;
}

uint32_t VELM_CArchiveLoader::FindUnowned(const VELM_CObject* pRoot) const
{
    const VELM_COwners& owners = VELM_CArchiveInside::Of(m_ar).owners;
    for (uint32_t i = 0; i < m_nSlots; ++i) {
        if (ObjectAt(i) != nullptr && ObjectAt(i) != pRoot && !owners.HasOwner(i))
            return i;
    }
    return 0;
}
