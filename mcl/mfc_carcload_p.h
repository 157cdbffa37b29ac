// The loader: what a loading archive knows of classes, and of the objects that it has made; private to the library. It
// decides which class a name means, whether a stored schema is known, and whether a class is the requested one. The
// walk along the stream is in mfc_carcobj.cc.
//
// Entry i of the load array is the object or class that has the index i. The loader has a slot for each entry, which
// says what the entry is. An entry without a slot is an object that the program has mapped by MapObject:
//
//     index            0      1          2          3
//     m_pLoadArray   NULL   class A   object a   object b
//     slots            -    class     created    mapped
//
// An index that comes from a file is first looked up in the slots; only then is the pointer used.
#ifndef TAVNOMCL_MFC_CARCLOAD_P_H
#define TAVNOMCL_MFC_CARCLOAD_P_H

#include "mcl/mfc_carcgraph_p.h"
#include "mcl/mfc_cclass.h"
#include "mcl/mfc_coll.h"
#include "mcl/mfc_ctable_p.h"

// The archive owns its loader, as m_pLoader. A function called Require... raises when its condition does not hold, and
// returns false or NULL if the raise returns.
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
    // The loader of an archive that has a class table; NULL for an archive that loads no objects.
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
    // Requires that the class is not abstract.
    bool RequireConcrete(const StoredClass& stored, unsigned long long nOffset);
    // Requires that the index has been given out, to a class if bClass, else to an object.
    bool RequireKind(uint32_t nIndex, bool bClass, unsigned long long nOffset)
    {
        const Slot slot = SlotAt(nIndex);
        if (!slot.IsMapped() && slot.IsClass() == bClass && m_ar.m_pLoadArray->m_data[nIndex] != nullptr)
            return true;
        return RequireOtherKind(nIndex, bClass, nOffset);
    }

    // The class at an index or, if an object that the archive has made is there, the class of the object. There must be
    // one or the other.
    const StoredClass& ClassAt(uint32_t nIndex) const { return m_classes[SlotAt(nIndex).Class()]; }
    // The class of the object at an index, which the archive has made or the program has mapped.
    const VELM_CRuntimeClass* ClassOfObjectAt(uint32_t nIndex) const
    {
        const Slot slot = SlotAt(nIndex);
        return slot.IsMapped() ? ClassOfMappedAt(nIndex) : m_classes[slot.Class()].pClass->pClass;
    }
    // Gives the next index to the class.
    const StoredClass& AddClass(VELM_CRuntimeClass* pClass, unsigned nSchema);
    // Makes an object of the class by the function in the class table, and gives it the next index.
    VELM_CObject* CreateObject(const StoredClass& stored);
    void DeleteObjects();
    // Whether the object at an index is one that the program has mapped. The index must have been given out.
    bool IsMappedAt(uint32_t nIndex) const { return SlotAt(nIndex).IsMapped(); }
    // Whether the archive has made the object. Only the address is used, so the object may be gone.
    bool HasMade(const VELM_CObject* pOb);
    // The index of the first object without an owner, other than the root; 0 when there is none.
    uint32_t FindUnowned(const VELM_CObject* pRoot) const;

private:
    // What an index stands for: an object that the program has mapped, a class, or an object that the archive has made.
    // Class() is the position in m_classes of the class, or of the object's class. Position 0 is not used.
    class Slot {
    public:
        static Slot OfMapped() { return Slot(0); }
        static Slot OfClass(uint32_t nClass) { return Slot(2 * nClass); }
        static Slot OfObject(uint32_t nClass) { return Slot(2 * nClass + 1); }
        bool IsMapped() const { return m_n == 0; }
        bool IsClass() const { return m_n != 0 && m_n % 2 == 0; }
        bool IsObject() const { return m_n % 2 == 1; }
        uint32_t Class() const { return m_n / 2; }
        // m_slots keeps one byte of each slot. If the slot does not fit, it is called wide: its byte says only whether
        // it is an object or a class, and m_wide has the whole slot.
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
    uint32_t* m_wide = nullptr; // NULL until there is a wide slot
    uint32_t m_nSlots = 0;
    uint32_t m_nMaxSlots = 0;
    StoredClass* m_classes = nullptr;
    uint32_t m_nClasses = 1;
    uint32_t m_nMaxClasses = 0;
    // From the address of an object to its index, for the first m_nLookedAt slots. Only HasMade fills it.
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
