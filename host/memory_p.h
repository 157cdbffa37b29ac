// Memory for the host's classes; private to this library.
#ifndef TAVNOHOST_MEMORY_P_H
#define TAVNOHOST_MEMORY_P_H

#include <cstddef>
#include <cstdio>
#include <cstdlib>

#include "host/pfm.h"

// A block of realloc, of nCount * nSize bytes. Exhausted memory raises 1, before anything has changed, and aborts when
// that returns.
inline void* AllocateOrRaise(void* pOld, std::size_t nCount, std::size_t nSize)
{
    std::size_t nBytes;
    void* pNew = __builtin_mul_overflow(nCount, nSize, &nBytes) ? nullptr : std::realloc(pOld, nBytes);
    if (pNew == nullptr) {
        pfm_raise(1);
        std::fputs("libtavnohost: memory is exhausted\n", stderr);
        std::abort();
    }
    return pNew;
}

#endif
