// What a loading archive does about classes: which one a name means, which schema is known, which one was asked for,
// who made what; private to the library. The walk along the stream is in mfc_carcobj.cc.
//
// The load array has, at index i, the object or class that was stored as index i. The loader's slots say beside it
// which of the two stands there; what has no slot is an object that the caller mapped:
//
//     index            0      1          2          3
//     m_pLoadArray   NULL   class A   object a   object b
//     slots            -    class     created    mapped
//
// So an index that the file names is looked up in the slots before anything is done with the pointer.
#ifndef TAVNOMCL_MFC_CARCLOAD_P_H
#define TAVNOMCL_MFC_CARCLOAD_P_H

#include "mcl/mfc_carccore_p.h"
#include "mcl/mfc_cclass.h"
#include "mcl/mfc_coll.h"
#include "mcl/mfc_ctable_p.h"

// Hangs on the archive that it loads for, as m_pLoader. What is called Require... raises what it finds wrong, and
// delivers false or NULL when that returns.
class VELM_LOCAL VELM_CArchiveLoader : public VELM_CObject {
public:
    typedef VELM_CClassTable::Class Class;
    // A class that the archive has met, with the schema that it was stored with.
    struct Met {
        const Class* pClass;
        unsigned nSchema;
    };

    const VELM_CClassTable* pTable = nullptr; // NULL while loading is switched off

    static VELM_CArchiveLoader* Of(VELM_CArchive& ar) { return static_cast<VELM_CArchiveLoader*>(ar.m_pLoader); }
    // NULL where nothing is loaded.
    static VELM_CArchiveLoader* WithTable(VELM_CArchive& ar)
    {
        VELM_CArchiveLoader* const pLoader = Of(ar);
        return pLoader == nullptr || pLoader->pTable == nullptr ? nullptr : pLoader;
    }

    explicit VELM_CArchiveLoader(VELM_CArchive& ar) : m_ar(ar) {}
    ~VELM_CArchiveLoader() override;

    bool RequireNameLength(uint32_t nLength, unsigned long long nOffset);
    VELM_CRuntimeClass* RequireClass(char* pszName, uint32_t nLength, unsigned nSchema, unsigned long long nOffset);
    bool RequireDerived(const VELM_CRuntimeClass* pClass, const VELM_CRuntimeClass* pRequested,
                        unsigned long long nOffset)
    {
        return pRequested == nullptr || pClass == pRequested || RequireBase(pClass, pRequested, nOffset);
    }
    // The class has objects of its own.
    bool RequireConcrete(const Met& met, unsigned long long nOffset);
    // The index has been given, to a class or to an object.
    bool RequireKind(uint32_t nIndex, bool bClass, unsigned long long nOffset)
    {
        const uint32_t nSlot = SlotAt(nIndex);
        if (nSlot != 0 && (nSlot % 2 == 0) == bClass && m_ar.m_pLoadArray->m_data[nIndex] != nullptr)
            return true;
        return RequireOtherKind(nIndex, bClass, nOffset);
    }

    // The class at an index that is one's.
    const Met& ClassAt(uint32_t nIndex) const { return m_met[SlotAt(nIndex) / 2]; }
    // The class of the object at an index.
    const VELM_CRuntimeClass* ClassOfObjectAt(uint32_t nIndex) const
    {
        const uint32_t nSlot = SlotAt(nIndex);
        return nSlot != 0 ? m_met[nSlot / 2].pClass->pClass : ClassOfMappedAt(nIndex);
    }
    // Gives the next index to a class.
    const Met& AddClass(VELM_CRuntimeClass* pClass, unsigned nSchema);
    // Gives the next index to a new object of the class, which the class's table entry makes.
    VELM_CObject* CreateObject(const Met& met);
    void DeleteObjects();
    // Whether the caller has mapped what stands at an index that has been given.
    bool IsMappedAt(uint32_t nIndex) const { return SlotAt(nIndex) == 0; }
    // Whether the archive has made the object, of which nothing but the address is used.
    bool HasMade(const VELM_CObject* pOb);
    // The first object without an owner, other than the root; 0 when there is none.
    uint32_t FindUnowned(const VELM_CObject* pRoot) const;

private:
    // What stands at an index: 0 for what the caller has mapped, else twice the place of a class in m_met, and 1 more
    // for an object of it. The place 0 is no class's. Most fit into a byte; for those that do not, the byte is nWide
    // or, of an object, 1 more, and the rest is in m_wide, which is made for the first of them.
    static const uint32_t nWide = 254;
    uint8_t* m_slots = nullptr;
    uint32_t* m_wide = nullptr;
    uint32_t m_nSlots = 0;
    uint32_t m_nMaxSlots = 0;
    Met* m_met = nullptr;
    uint32_t m_nMet = 1;
    uint32_t m_nMaxMet = 0;
    // The indexes of objects by their addresses, of the first so many slots; only where somebody asks who made one.
    VELM_CTable m_made;
    uint32_t m_nLookedAt = 0;

    VELM_CArchive& m_ar;
    VELM_CBlockHolder m_creating;

    const VELM_CRuntimeClass* ClassOfMappedAt(uint32_t nIndex) const;
    bool RequireBase(const VELM_CRuntimeClass* pClass, const VELM_CRuntimeClass* pRequested,
                     unsigned long long nOffset);
    bool RequireOtherKind(uint32_t nIndex, bool bClass, unsigned long long nOffset);
    uint32_t SlotAt(uint32_t nIndex) const
    {
        const uint32_t nSlot = nIndex < m_nSlots ? m_slots[nIndex] : 0;
        return nSlot < nWide ? nSlot : m_wide[nIndex];
    }
    void Append(void* pObjectOrClass, uint32_t nSlot)
    {
        VELM_CPtrArray& array = *m_ar.m_pLoadArray;
        const uint32_t nIndex = m_ar.m_nIndexCount;
        if (nIndex >= m_nMaxSlots || m_nSlots != nIndex || array.m_size != static_cast<int>(nIndex) ||
            array.m_size >= array.m_max_size || (nSlot >= nWide && m_wide == nullptr))
            Grow(nSlot >= nWide);
        array.m_data[nIndex] = pObjectOrClass;
        m_slots[nIndex] = static_cast<uint8_t>(nSlot < nWide ? nSlot : nWide + nSlot % 2);
        if (nSlot >= nWide)
            m_wide[nIndex] = nSlot;
        m_nSlots = nIndex + 1;
        array.m_size = array.m_size > static_cast<int>(nIndex) ? array.m_size : static_cast<int>(nIndex) + 1;
        m_ar.m_nIndexCount = nIndex + 1;
    }
    VELM_CObject* ObjectAt(uint32_t nIndex) const
    {
        return m_slots[nIndex] % 2 == 0 ? nullptr : static_cast<VELM_CObject*>(m_ar.m_pLoadArray->m_data[nIndex]);
    }
    bool FindMade(const VELM_CObject* pOb, VELM_CTable::Place& rAt) const;
    void Grow(bool bWide);
};

#endif
