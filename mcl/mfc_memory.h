/// \file
/// How the whole library obtains memory: never NULL, never an overflowed size, and one way out when there is none.
#ifndef TAVNOMCL_MFC_MEMORY_H
#define TAVNOMCL_MFC_MEMORY_H

#include <stddef.h>
#include <stdint.h>

#include <new>

#include "mcl/mfc_base.h"

/// \addtogroup failures
/// \{

/// The way out when memory cannot be had: raises 1, as `AfxThrowMemoryException` does, and when that returns, reports
/// it on standard error and aborts. The caller has changed nothing yet, so that a program that survives can go on.
[[noreturn]] VELM_API void AfxMemoryExhausted();

/// A block of `malloc` of `nCount` * `nSize` + `nHeader` bytes or, when `pOld` is not NULL, that block resized to it.
/// The old block is as it was when memory is exhausted.
VELM_API void* AfxAllocate(void* pOld, unsigned long nCount, unsigned long nSize, unsigned long nHeader = 0);

/// The pointer, which operator new (std::nothrow) has delivered; a NULL is exhausted memory.
template <class TYPE> TYPE* AfxNew(TYPE* pNew)
{
    if (pNew == NULL)
        AfxMemoryExhausted();
    return pNew;
}

/// An array of operator new[], of a type whose constructor cannot raise.
template <class TYPE> TYPE* AfxNewArray(size_t nCount)
{
    return AfxNew(nCount > PTRDIFF_MAX / sizeof(TYPE) - 1 ? NULL : new (std::nothrow) TYPE[nCount]);
}

/// \}

#endif
