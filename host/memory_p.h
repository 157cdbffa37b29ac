// Memory for the classes of the host library; private to that library.
#ifndef TAVNOHOST_MEMORY_P_H
#define TAVNOHOST_MEMORY_P_H

#include <cstddef>
#include <cstdio>
#include <cstdlib>

#include "host/pfm.h"

// Resizes the block to nCount * nSize bytes by realloc; NULL makes a new one. Exhausted memory raises 1, before
// anything has changed, and aborts if the raise returns.
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
