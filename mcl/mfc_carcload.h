// The loading side of an archive's objects and classes; private to the library.
//
// The load array has, at index i, the object or class that was stored as index i. The loader's slots say beside it
// which of the two stands there; what has no slot is an object that the caller mapped:
//
//     index            0      1          2          3
//     m_pLoadArray   NULL   class A   object a   object b
//     slots            -    class     created    mapped
//
// So an index that the file names is looked up in the slots before anything is done with the pointer.
#ifndef TAVNOMCL_MFC_CARCLOAD_H
#define TAVNOMCL_MFC_CARCLOAD_H

#include "mcl/mfc_carccore.h"
#include "mcl/mfc_cclass.h"
#include "mcl/mfc_coll.h"

// Hangs on the archive that it loads for. Each function raises what it finds wrong, and delivers NULL or false when
// that returns.
class VELM_CArchiveLoader : public VELM_CObject {
public:
    typedef VELM_CClassTable::Class Class;

    const VELM_CClassTable* pTable = nullptr;
    unsigned nMaxDepth = 4096;
    char errorText[512] = "";

    explicit VELM_CArchiveLoader(VELM_CArchive& ar) : m_ar(ar) {}
    ~VELM_CArchiveLoader() override;

    // Reads a class record and finds its class.
    const Class* LoadClassRecord(unsigned& rSchema);
    // ReadClass and ReadObject with a class table.
    VELM_CRuntimeClass* LoadClass(const VELM_CRuntimeClass* pRequested, unsigned* pSchema, unsigned long* pObTag);
    VELM_CObject* LoadObject(const VELM_CRuntimeClass* pRequested);
    void DeleteObjects();
    void Hold(VELM_CObject* pOb) { m_held.InsertAt(m_held.GetSize(), pOb); }
    void DropHeld();

private:
    enum Kind { mapped, created, classRecord };
    struct Slot {
        const Class* pClass; // the class itself, or that of the created object
        unsigned nSchema;    // the stored one of a class
        Kind kind;
    };
    // An object reference that has been read: a class, or the index of an earlier object (0: the null object).
    struct Reference {
        unsigned long long nOffset;
        const Class* pClass;
        unsigned nSchema;
        unsigned nObject;
    };

    VELM_CArchive& m_ar;
    Slot* m_pSlots = nullptr; // m_nSlots in use of m_nMaxSlots, in a block of malloc
    unsigned m_nSlots = 0;
    unsigned m_nMaxSlots = 0;
    unsigned m_nDepth = 0;
    char* m_pszName = nullptr; // of the class record that is being read
    VELM_CPtrArray m_held;

    Slot SlotAt(unsigned nIndex) const;
    void Append(void* pObjectOrClass, Slot slot);
    bool LoadReference(Reference& rReference);
    bool IsWanted(const Reference& reference, const VELM_CRuntimeClass* pClass, const VELM_CRuntimeClass* pRequested);
    VELM_CObject* EarlierObject(const Reference& reference, const VELM_CRuntimeClass* pRequested);
};

#endif
