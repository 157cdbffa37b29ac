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

#include "mcl/mfc_carcgraph_p.h"
#include "mcl/mfc_cclass.h"
#include "mcl/mfc_coll.h"
#include "mcl/mfc_ctable_p.h"

// Hangs on the archive that it loads for, as m_pLoader. What is called Require... raises what it finds wrong, and
// delivers false or NULL when that returns.
class VELM_LOCAL VELM_CArchiveLoader : public VELM_CObject {
public:
    typedef VELM_CClassTable::Class Class;
    // A class that the stream names, with the schema that it was stored with.
    struct StoredClass {
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
    bool RequireConcrete(const StoredClass& stored, unsigned long long nOffset);
    // The index has been given, to a class or to an object.
    bool RequireKind(uint32_t nIndex, bool bClass, unsigned long long nOffset)
    {
        const Slot slot = SlotAt(nIndex);
        if (!slot.IsMapped() && slot.IsClass() == bClass && m_ar.m_pLoadArray->m_data[nIndex] != nullptr)
            return true;
        return RequireOtherKind(nIndex, bClass, nOffset);
    }

    // The class at nIndex, which must be a class's index or that of an object that the archive has made.
    const StoredClass& ClassAt(uint32_t nIndex) const { return m_classes[SlotAt(nIndex).Class()]; }
    // The class of the object at an index.
    const VELM_CRuntimeClass* ClassOfObjectAt(uint32_t nIndex) const
    {
        const Slot slot = SlotAt(nIndex);
        return slot.IsMapped() ? ClassOfMappedAt(nIndex) : m_classes[slot.Class()].pClass->pClass;
    }
    // Gives the next index to a class.
    const StoredClass& AddClass(VELM_CRuntimeClass* pClass, unsigned nSchema);
    // Gives the next index to a new object of the class, which the class's table entry makes.
    VELM_CObject* CreateObject(const StoredClass& stored);
    void DeleteObjects();
    // Whether the caller has mapped what stands at an index that has been given.
    bool IsMappedAt(uint32_t nIndex) const { return SlotAt(nIndex).IsMapped(); }
    // Whether the archive has made the object, of which nothing but the address is used.
    bool HasMade(const VELM_CObject* pOb);
    // The first object without an owner, other than the root; 0 when there is none.
    uint32_t FindUnowned(const VELM_CObject* pRoot) const;

private:
    // What stands at an index: something that the caller has mapped, a class, or an object that the archive has made.
    // Class is the place in m_classes of the class, or of the object's class; the place 0 is not used.
    class Slot {
    public:
        static Slot OfMapped() { return Slot(0); }
        static Slot OfClass(uint32_t nClass) { return Slot(2 * nClass); }
        static Slot OfObject(uint32_t nClass) { return Slot(2 * nClass + 1); }
        bool IsMapped() const { return m_n == 0; }
        bool IsClass() const { return m_n != 0 && m_n % 2 == 0; }
        bool IsObject() const { return m_n % 2 == 1; }
        uint32_t Class() const { return m_n / 2; }
        // A slot is kept in a byte. Of a wide one, that byte says only whether it is an object, and the whole slot is
        // in m_wide.
        bool IsWide() const { return m_n >= nWide; }
        uint8_t Byte() const { return static_cast<uint8_t>(IsWide() ? nWide + m_n % 2 : m_n); }
        uint32_t Whole() const { return m_n; }
        static Slot FromWhole(uint32_t n) { return Slot(n); }

    private:
        static const uint32_t nWide = 254;
        explicit Slot(uint32_t n) : m_n(n) {}
        uint32_t m_n;
    };
    uint8_t* m_slots = nullptr;
    uint32_t* m_wide = nullptr; // made for the first slot that is wide
    uint32_t m_nSlots = 0;
    uint32_t m_nMaxSlots = 0;
    StoredClass* m_classes = nullptr;
    uint32_t m_nClasses = 1;
    uint32_t m_nMaxClasses = 0;
    // The indexes of objects by their addresses, of the first so many slots; only where somebody asks who made one.
    VELM_CTable m_made;
    uint32_t m_nLookedAt = 0;

    VELM_CArchive& m_ar;
    VELM_CBlockHolder m_creating;

    const VELM_CRuntimeClass* ClassOfMappedAt(uint32_t nIndex) const;
    bool RequireBase(const VELM_CRuntimeClass* pClass, const VELM_CRuntimeClass* pRequested,
                     unsigned long long nOffset);
    bool RequireOtherKind(uint32_t nIndex, bool bClass, unsigned long long nOffset);
    Slot SlotAt(uint32_t nIndex) const
    {
        const Slot slot = nIndex < m_nSlots ? Slot::FromWhole(m_slots[nIndex]) : Slot::OfMapped();
        return slot.IsWide() ? Slot::FromWhole(m_wide[nIndex]) : slot;
    }
    void Append(void* pObjectOrClass, Slot slot)
    {
        VELM_CPtrArray& array = *m_ar.m_pLoadArray;
        const uint32_t nIndex = m_ar.m_nIndexCount;
        if (nIndex >= m_nMaxSlots || m_nSlots != nIndex || array.m_size != static_cast<int>(nIndex) ||
            array.m_size >= array.m_max_size || (slot.IsWide() && m_wide == nullptr))
            Grow(slot.IsWide());
        array.m_data[nIndex] = pObjectOrClass;
        m_slots[nIndex] = slot.Byte();
        if (slot.IsWide())
            m_wide[nIndex] = slot.Whole();
        m_nSlots = nIndex + 1;
        array.m_size = array.m_size > static_cast<int>(nIndex) ? array.m_size : static_cast<int>(nIndex) + 1;
        m_ar.m_nIndexCount = nIndex + 1;
    }
    bool IsObjectAt(uint32_t nIndex) const { return Slot::FromWhole(m_slots[nIndex]).IsObject(); }
    VELM_CObject* ObjectAt(uint32_t nIndex) const
    {
        return IsObjectAt(nIndex) ? static_cast<VELM_CObject*>(m_ar.m_pLoadArray->m_data[nIndex]) : nullptr;
    }
    bool FindMade(const VELM_CObject* pOb, VELM_CTable::Place& rAt) const;
    void Grow(bool bWide);
};

#endif
