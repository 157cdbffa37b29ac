/// \file
/// The classes that a loading archive can rebuild.
#ifndef TAVNOMCL_MFC_CCLASS_H
#define TAVNOMCL_MFC_CCLASS_H

#include <stddef.h>

#include <new>
#include <typeinfo>

#include "mcl/mfc_base.h"
#include "mcl/mfc_cobj.h"
#include "mcl/mfc_crun.h"

/// \addtogroup archives
/// \{

class VELM_LOCAL VELM_CClassMap;

/// Keeps the block of an object while its constructor runs, which a raise there would lose: `new (holder) TYPE`.
class VELM_API VELM_CBlockHolder {
public:
    VELM_CBlockHolder() : m_pBlock(NULL), m_nAlignment(0) {}
    VELM_CBlockHolder(const VELM_CBlockHolder&) = delete;
    VELM_CBlockHolder& operator=(const VELM_CBlockHolder&) = delete;
    ~VELM_CBlockHolder() { Free(); }
    /// A block of operator new, with an alignment other than 0 of that; NULL when there is no memory.
    void* Allocate(unsigned long nBytes, unsigned long nAlignment);
    /// The object is whole, and owns its block itself.
    void Keep() { m_pBlock = NULL; }
    /// Frees the block that is kept.
    void Free();

private:
    void* m_pBlock;
    unsigned long m_nAlignment;
};

/// The classes that a loading archive can rebuild, by name; given to `VELM_CArchive::SetClassTable`.
///
/// The table outlives the archives that use it, and may be shared by many, also of several threads, once it is
/// complete. The records outlive the table. Exhausted memory changes nothing; see `AfxMemoryExhausted`.
class VELM_API VELM_CClassTable {
public:
    /// Makes an object of one class with operator new; NULL when there is no memory for it.
    typedef VELM_CObject* (*CreateProc)();
    /// The same, in a block that the holder keeps while the constructor runs.
    typedef VELM_CObject* (*CreateInProc)(VELM_CBlockHolder& holder);
    /// Makes an object forget what it refers to, without deleting it; raises nothing.
    typedef void (*LetGoProc)(VELM_CObject* pOb);

    /// What the table has of one class.
    struct Class {
        VELM_CRuntimeClass* pClass;  ///< Its record.
        CreateProc pfnCreate;        ///< Makes its objects, or NULL.
        VELM_CRuntimeClass* pBase;   ///< The record of the class it derives from, or NULL.
        LetGoProc pfnLetGo;          ///< Makes an object let go of others, or NULL.
        CreateInProc pfnCreateIn;    ///< Makes its objects where `pfnCreate` is NULL; an abstract class has neither.
        const std::type_info* pType; ///< The C++ class that was added by the template, or NULL where it is not known.
    };

    /// An empty table.
    VELM_CClassTable();
    ~VELM_CClassTable();
    VELM_CClassTable(const VELM_CClassTable&) = delete;
    VELM_CClassTable& operator=(const VELM_CClassTable&) = delete;

    /// Objects of the class named by the record are made by `pfnCreate`; NULL for an abstract class. `pBase` is the
    /// record of the class it derives from, when that matters to callers that ask for the base. Returns 1; 0, and
    /// nothing changes, when another record has the name already or `pClass` has none.
    ///
    /// A class that deletes what it refers to, by `std::unique_ptr` for instance, gives `pfnLetGo`:
    /// `VELM_CArchive::DeleteLoadedObjects` calls it for every object before it deletes the first, so that none is
    /// deleted twice.
    int Add(VELM_CRuntimeClass* pClass, CreateProc pfnCreate, VELM_CRuntimeClass* pBase = NULL,
            LetGoProc pfnLetGo = NULL);
    /// The same for objects that `new TYPE` makes. A constructor that raises loses nothing but what it made itself.
    template <class TYPE>
    int Add(VELM_CRuntimeClass* pClass, VELM_CRuntimeClass* pBase = NULL, LetGoProc pfnLetGo = NULL)
    {
        return AddIn(
            pClass, [](VELM_CBlockHolder& holder) -> VELM_CObject* { return new (holder) TYPE; }, pBase, pfnLetGo,
            TypeOf<TYPE>());
    }
    /// As the template, with a function that makes the object in a holder. `pType` is the class that it makes: a
    /// storing archive refuses objects of other classes with this record; NULL for no such check.
    int AddIn(VELM_CRuntimeClass* pClass, CreateInProc pfnCreateIn, VELM_CRuntimeClass* pBase, LetGoProc pfnLetGo,
              const std::type_info* pType = NULL);
    /// The class of that name; NULL when there is none.
    const Class* Find(const char* lpszName) const;
    /// Whether the class is `pBase` or derives from it. A chain of bases takes time in proportion to its length only
    /// once: each class of it remembers the base that it was last found to derive from.
    int IsDerivedFrom(const VELM_CRuntimeClass* pClass, const VELM_CRuntimeClass* pBase) const;
    /// Length of the longest name, in bytes.
    unsigned GetLongestName() const { return m_nLongestName; }

private:
    VELM_CClassMap* m_pClasses; // by name
    unsigned m_nLongestName;

    VELM_LOCAL int Put(const Class& cls);
    template <class TYPE> static const std::type_info* TypeOf()
    {
#ifdef __cpp_rtti
        return &typeid(TYPE);
#else
        return NULL; // built without run-time type information
#endif
    }
};

/// \}

/// \cond
inline void* operator new(size_t nBytes, VELM_CBlockHolder& holder) noexcept
{
    return holder.Allocate(nBytes, 0);
}

inline void operator delete(void*, VELM_CBlockHolder& holder)
{
    holder.Free();
}

#ifdef __cpp_aligned_new
inline void* operator new(size_t nBytes, std::align_val_t nAlignment, VELM_CBlockHolder& holder) noexcept
{
    return holder.Allocate(nBytes, static_cast<unsigned long>(nAlignment));
}

inline void operator delete(void*, std::align_val_t, VELM_CBlockHolder& holder)
{
    holder.Free();
}
#endif
/// \endcond

#endif
