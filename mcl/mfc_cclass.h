/// \file
/// The classes that a loading archive can rebuild.
#ifndef TAVNOMCL_MFC_CCLASS_H
#define TAVNOMCL_MFC_CCLASS_H

#include <new>

#include "mcl/mfc_base.h"
#include "mcl/mfc_cobj.h"
#include "mcl/mfc_coll.h"
#include "mcl/mfc_crun.h"
#include "mcl/tmpl_cmap_fxStr.h"

/// \addtogroup archives
/// \{

/// The classes that a loading archive can rebuild, by name; given to `VELM_CArchive::SetClassTable`.
///
/// The table outlives the archives that use it, and may be shared by many, also of several threads, once it is
/// complete. The records outlive the table. Exhausted memory: see `AfxMemoryExhausted`.
class VELM_API VELM_CClassTable {
public:
    /// Makes an object of one class with operator new; NULL when there is no memory for it.
    typedef VELM_CObject* (*CreateProc)();

    /// What the table has of one class.
    struct Class {
        VELM_CRuntimeClass* pClass; ///< Its record.
        CreateProc pfnCreate;       ///< Makes its objects; NULL for a class without objects of its own.
        VELM_CRuntimeClass* pBase;  ///< The record of the class it derives from, or NULL.
    };

    /// An empty table.
    VELM_CClassTable();
    ~VELM_CClassTable();
    VELM_CClassTable(const VELM_CClassTable&) = delete;
    VELM_CClassTable& operator=(const VELM_CClassTable&) = delete;

    /// Objects of the class named by the record are made by `pfnCreate`; NULL for an abstract class. `pBase` is the
    /// record of the class it derives from, when that matters to callers that ask for the base. Returns 1; 0, and
    /// nothing changes, when another record has the name already or `pClass` has none.
    int Add(VELM_CRuntimeClass* pClass, CreateProc pfnCreate, VELM_CRuntimeClass* pBase = NULL);
    /// The same for objects that `new TYPE` makes.
    template <class TYPE> int Add(VELM_CRuntimeClass* pClass, VELM_CRuntimeClass* pBase = NULL)
    {
        return Add(
            pClass, []() -> VELM_CObject* { return new (std::nothrow) TYPE; }, pBase);
    }
    /// The class of that name; NULL when there is none.
    const Class* Find(const char* lpszName) const;
    /// Whether the class is `pBase` or derives from it.
    int IsDerivedFrom(const VELM_CRuntimeClass* pClass, const VELM_CRuntimeClass* pBase) const;
    /// Length of the longest name, in bytes.
    unsigned GetLongestName() const { return m_nLongestName; }

private:
    VELM_CPtrArray m_classes; // of Class, each in a block of malloc
    unsigned m_nLongestName;
    VELM_CMap<fxStr, char*, int, int> m_indexes; // from name to place in m_classes
};

/// \}

#endif
