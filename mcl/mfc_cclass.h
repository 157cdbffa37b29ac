/// \file
/// The classes that a loading archive can rebuild.
#ifndef TAVNOMCL_MFC_CCLASS_H
#define TAVNOMCL_MFC_CCLASS_H

#include <stddef.h>

#include <new>
#include <type_traits>
#include <typeinfo>

#include "mcl/mfc_base.h"
#include "mcl/mfc_cobj.h"
#include "mcl/mfc_crun.h"
#include "mcl/mfc_memory.h"

/// \addtogroup archives
/// \{

class VELM_LOCAL VELM_CClassMap;

/// Keeps the blocks of objects while their constructors run, which a raise there would lose. A constructor may make
/// further objects meanwhile. What is kept when the holder is destroyed is freed.
class VELM_API VELM_CBlockHolder {
public:
    VELM_CBlockHolder() : m_pKept(NULL), m_nKept(0), m_nRoom(0) {}
    VELM_CBlockHolder(const VELM_CBlockHolder&) = delete;
    VELM_CBlockHolder& operator=(const VELM_CBlockHolder&) = delete;
    ~VELM_CBlockHolder();
    /// Keeps a block for an object, in which the caller constructs it by the global placement new. The block is one
    /// that `new TYPE` would take: of the class's own operator new where it has one. Exhausted memory: see
    /// `AfxMemoryExhausted`.
    template <class TYPE> void* Take();
    /// Number of blocks that are kept.
    unsigned GetCount() const { return m_nKept; }
    /// Ends the keeping of all blocks but the first `nCount`. They are freed, except for `pWhole`: there an object is
    /// whole, and is deleted one day by its owner.
    void KeepFirst(unsigned nCount, const void* pWhole = NULL)
    {
        while (m_nKept > nCount) {
            const Kept& kept = m_pKept[--m_nKept];
            if (kept.pBlock != NULL && kept.pBlock != pWhole)
                kept.pfnFree(kept.pBlock);
        }
    }

private:
    typedef void (*FreeProc)(void* pBlock);
    struct Kept {
        void* pBlock; // NULL until the block is there
        FreeProc pfnFree;
    };
    Kept* m_pKept; // in the order in which they were taken; of malloc
    unsigned m_nKept;
    unsigned m_nRoom;

    void Grow();
};

/// \cond
VELM_API void* AfxTakeBlock(unsigned long nBytes, unsigned long nAlignment);
VELM_API void AfxFreeBlock(void* pBlock, unsigned long nAlignment);

// Of the functions that compile, the one of the highest rank is called.
template <int RANK> struct VELM_CRank : VELM_CRank<RANK - 1> {
};
template <> struct VELM_CRank<0> {
};

// How `new TYPE` takes the block of an object, and `delete` frees it: by functions of the class where it has such, in
// the language's order. Those that take an alignment come first for a class of a greater one than operator new
// provides, and last for others.
template <class TYPE> class VELM_CBlockOf {
#ifdef __cpp_aligned_new
    enum : size_t { nAlignment = alignof(TYPE) > __STDCPP_DEFAULT_NEW_ALIGNMENT__ ? alignof(TYPE) : 0 };
#else
    enum : size_t { nAlignment = 0 };
#endif
    template <class T> static std::true_type Makes(decltype(new T)*);
    template <class T> static std::false_type Makes(...);
    static_assert(decltype(Makes<TYPE>(NULL))::value,
                  "a class is added that `new TYPE` makes: with a public constructor that needs no arguments, and with "
                  "public functions where it has its own operator new and operator delete");

#define VELM_BLOCK_FUNCTION(NAME, RANK, CALL)                                                                          \
    template <class T> static auto NAME(void* pBlock, VELM_CRank<(RANK)>)->decltype(CALL)                              \
    {                                                                                                                  \
        return static_cast<void>(pBlock), CALL;                                                                        \
    }
    VELM_BLOCK_FUNCTION(Take, 0, AfxTakeBlock(sizeof(T), nAlignment))
    VELM_BLOCK_FUNCTION(Take, 2, T::operator new(sizeof(T)))
    VELM_BLOCK_FUNCTION(Free, 0, AfxFreeBlock(pBlock, nAlignment))
    VELM_BLOCK_FUNCTION(Free, 3, T::operator delete(pBlock, sizeof(T)))
    VELM_BLOCK_FUNCTION(Free, 4, T::operator delete(pBlock))
#ifdef __cpp_aligned_new
    VELM_BLOCK_FUNCTION(Take, nAlignment > 0 ? 3 : 1, T::operator new(sizeof(T), std::align_val_t(alignof(T))))
    VELM_BLOCK_FUNCTION(Free, nAlignment > 0 ? 5 : 1,
                        T::operator delete(pBlock, sizeof(T), std::align_val_t(alignof(T))))
    VELM_BLOCK_FUNCTION(Free, nAlignment > 0 ? 6 : 2, T::operator delete(pBlock, std::align_val_t(alignof(T))))
#endif
#undef VELM_BLOCK_FUNCTION

public:
    static void* Take()
    {
        return Take<TYPE>(NULL, VELM_CRank<3>());
    }
    static void Free(void* pBlock)
    {
        Free<TYPE>(pBlock, VELM_CRank<6>());
    }
};

template <class TYPE> void* VELM_CBlockHolder::Take()
{
    if (m_nKept == m_nRoom)
        Grow();
    const unsigned nIndex = m_nKept++; // before the block, which must not be lost
    m_pKept[nIndex] = Kept{NULL, &VELM_CBlockOf<TYPE>::Free};
    void* const pBlock = AfxNew(VELM_CBlockOf<TYPE>::Take());
    m_pKept[nIndex].pBlock = pBlock;
    return pBlock;
}
/// \endcond

/// The classes that a loading archive can rebuild, by name; given to `VELM_CArchive::SetClassTable`.
///
/// The table outlives the archives that use it, and may be shared by many, also of several threads, once it is
/// complete. The records outlive the table. Exhausted memory changes nothing; see `AfxMemoryExhausted`.
class VELM_API VELM_CClassTable {
public:
    /// Makes an object of one class with operator new; NULL when there is no memory for it.
    typedef VELM_CObject* (*CreateProc)();
    /// The same, in a block of the holder, which keeps it while the constructor runs.
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
    /// The same for objects that are made as `new TYPE` makes them, by the class's own operator new where it has one. A
    /// constructor that raises loses nothing but what it made itself. It may read further objects from the archive.
    template <class TYPE>
    int Add(VELM_CRuntimeClass* pClass, VELM_CRuntimeClass* pBase = NULL, LetGoProc pfnLetGo = NULL)
    {
        return AddIn(
            pClass, [](VELM_CBlockHolder& holder) -> VELM_CObject* { return ::new (holder.Take<TYPE>()) TYPE; }, pBase,
            pfnLetGo, TypeOf<TYPE>());
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

#endif
