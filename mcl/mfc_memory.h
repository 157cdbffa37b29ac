/// \file
/// How the library allocates memory: sizes cannot overflow, the result is never NULL, and exhausted memory is reported
/// in one way.
#ifndef TAVNOMCL_MFC_MEMORY_H
#define TAVNOMCL_MFC_MEMORY_H

#include <stddef.h>
#include <stdint.h>

#include <new>

#include "mcl/mfc_base.h"

/// \addtogroup failures
/// \{

/// Called when memory is exhausted: raises 1, as `AfxThrowMemoryException` does. If the raise returns, it prints a
/// message on standard error and aborts. An operation calls this before it changes anything, so that a program that
/// handles the raise can go on.
[[noreturn]] VELM_API void AfxMemoryExhausted();

/// Allocates `nCount` * `nSize` + `nHeader` bytes by `malloc` or, when `pOld` is not NULL, resizes that block by
/// `realloc`. Returns the block, which the caller frees with `free`. When memory is exhausted or the size overflows, it
/// calls `AfxMemoryExhausted`, and the old block stays as it was.
VELM_API void* AfxAllocate(void* pOld, unsigned long nCount, unsigned long nSize, unsigned long nHeader = 0);

/// Returns the pointer, which comes from `new (std::nothrow)`; calls `AfxMemoryExhausted` if it is NULL.
template <class TYPE> TYPE* AfxNew(TYPE* pNew)
{
    if (pNew == NULL)
        AfxMemoryExhausted();
    return pNew;
}

/// Allocates an array by `new[]`, which the caller frees by `delete[]`. The constructor of the type must not raise.
/// Exhausted memory: see `AfxMemoryExhausted`.
template <class TYPE> TYPE* AfxNewArray(size_t nCount)
{
    return AfxNew(nCount > PTRDIFF_MAX / sizeof(TYPE) - 1 ? NULL : new (std::nothrow) TYPE[nCount]);
}

/// \}

#endif
