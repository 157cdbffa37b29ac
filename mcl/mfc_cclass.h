/// \file
/// The table of the classes whose objects an archive can load.
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

/// Keeps the memory blocks of objects while their constructors run. A raise in a constructor is a jump, after which
/// nobody else would know of the block. A constructor may take blocks for further objects. Blocks that are still kept
/// when the holder is destroyed are freed.
class VELM_API VELM_CBlockHolder {
public:
    VELM_CBlockHolder() : m_pKept(NULL), m_nKept(0), m_nRoom(0) {}
    VELM_CBlockHolder(const VELM_CBlockHolder&) = delete;
    VELM_CBlockHolder& operator=(const VELM_CBlockHolder&) = delete;
    ~VELM_CBlockHolder();
    /// Allocates a block for an object of the class `TYPE` and keeps it. The caller constructs the object in it by the
    /// global placement new. The block is allocated as by `new TYPE`: by the class's own operator new if it has one.
    /// Exhausted memory: see `AfxMemoryExhausted`.
    template <class TYPE> void* Take();
    /// The number of blocks that are kept.
    unsigned GetCount() const { return m_nKept; }
    /// Stops keeping all blocks but the first `nCount`, and frees them. The block at `pWhole` is not freed: the object
    /// in it is complete, and whoever owns it deletes it.
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
    Kept* m_pKept; // in the order in which they were taken; allocated by malloc
    unsigned m_nKept;
    unsigned m_nRoom;

    void Grow();
};

/// \cond
VELM_API void* AfxTakeBlock(unsigned long nBytes, unsigned long nAlignment);
VELM_API void AfxFreeBlock(void* pBlock, unsigned long nAlignment);

// Ranks overloads: of those that compile for a class, a call chooses the one of the highest rank.
template <int RANK> struct VELM_CRank : VELM_CRank<RANK - 1> {
};
template <> struct VELM_CRank<0> {
};

// Allocates the block of an object as `new TYPE` does, and frees it as `delete` does: by the class's own functions if
// it has any, which are preferred in the order that the language sets. Functions that take an alignment come first when
// the class needs a greater alignment than operator new provides, and last otherwise.
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
    const unsigned nIndex = m_nKept++; // the place comes before the block, so that no raise can lose the block
    m_pKept[nIndex] = Kept{NULL, &VELM_CBlockOf<TYPE>::Free};
    void* const pBlock = AfxNew(VELM_CBlockOf<TYPE>::Take());
    m_pKept[nIndex].pBlock = pBlock;
    return pBlock;
}
/// \endcond

/// The classes whose objects an archive can load, by name. `VELM_CArchive::SetClassTable` gives a table to an archive.
///
/// The table must outlive the archives that use it, and the class records must outlive the table. Once it is complete,
/// any number of archives may share it, also in several threads. When memory is exhausted, the table stays as it was;
/// see `AfxMemoryExhausted`.
class VELM_API VELM_CClassTable {
public:
    /// Makes an object of one class by operator new. Returns NULL when there is no memory for it.
    typedef VELM_CObject* (*CreateProc)();
    /// Makes an object of one class in a block of the holder, which keeps the block while the constructor runs. Returns
    /// NULL when there is no memory for it.
    typedef VELM_CObject* (*CreateInProc)(VELM_CBlockHolder& holder);
    /// Makes an object forget the objects that it refers to, without deleting them. Must not raise.
    typedef void (*LetGoProc)(VELM_CObject* pOb);

    /// An entry of the table.
    struct Class {
        VELM_CRuntimeClass* pClass;  ///< The class's record.
        CreateProc pfnCreate;        ///< Makes objects of the class, or NULL.
        VELM_CRuntimeClass* pBase;   ///< The record of the class that it derives from, or NULL.
        LetGoProc pfnLetGo;          ///< Makes an object forget what it refers to, or NULL.
        CreateInProc pfnCreateIn;    ///< Used when `pfnCreate` is NULL. An abstract class has neither.
        const std::type_info* pType; ///< The C++ class of the objects, or NULL when it is not known.
    };

    /// An empty table.
    VELM_CClassTable();
    ~VELM_CClassTable();
    VELM_CClassTable(const VELM_CClassTable&) = delete;
    VELM_CClassTable& operator=(const VELM_CClassTable&) = delete;

    /// Adds a class, or replaces its entry if the record is in the table already. `pfnCreate` makes objects of the
    /// class; it is NULL for an abstract class. `pBase` is the record of the class's base; it may be NULL if no caller
    /// asks for the base when it loads objects of the class. Returns 1. Returns 0, and changes nothing, when `pClass`
    /// or its name is NULL, and when the table has another record of that name.
    ///
    /// A class that deletes the objects it refers to, by `std::unique_ptr` for instance, passes `pfnLetGo`.
    /// `VELM_CArchive::DeleteLoadedObjects` calls it for every object before it deletes the first one, so that none is
    /// deleted twice.
    int Add(VELM_CRuntimeClass* pClass, CreateProc pfnCreate, VELM_CRuntimeClass* pBase = NULL,
            LetGoProc pfnLetGo = NULL);
    /// The same for a class whose objects are made as by `new TYPE`, with the class's own operator new if it has one.
    /// When a constructor raises, the block of its object is freed; only what the constructor itself has allocated is
    /// lost. A constructor may read further objects from the archive.
    template <class TYPE>
    int Add(VELM_CRuntimeClass* pClass, VELM_CRuntimeClass* pBase = NULL, LetGoProc pfnLetGo = NULL)
    {
        return AddIn(
            pClass, [](VELM_CBlockHolder& holder) -> VELM_CObject* { return ::new (holder.Take<TYPE>()) TYPE; }, pBase,
            pfnLetGo, TypeOf<TYPE>());
    }
    /// The same with a function that makes objects in a block of a holder. `pType` is the C++ class of the objects that
    /// it makes: a storing archive with this table refuses an object that has this record but is of another C++ class.
    /// NULL switches that check off.
    int AddIn(VELM_CRuntimeClass* pClass, CreateInProc pfnCreateIn, VELM_CRuntimeClass* pBase, LetGoProc pfnLetGo,
              const std::type_info* pType = NULL);
    /// Returns the entry of the class of that name, or NULL when there is none. The entry belongs to the table.
    const Class* Find(const char* lpszName) const;
    /// Returns 1 when the class is `pBase`, or derives from it as far as the table tells, else 0; 0 when `pBase` is
    /// NULL. Each class of a chain remembers the base that it was last found to derive from, so a long chain is walked
    /// only once for the same base.
    int IsDerivedFrom(const VELM_CRuntimeClass* pClass, const VELM_CRuntimeClass* pBase) const;
    /// The length of the longest class name, in bytes.
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
