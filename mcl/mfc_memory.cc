#include "mcl/mfc_memory.h"

#include <cstdio>
#include <cstdlib>

const int causeGeneric = 1; // the code that AfxThrowMemoryException raises

void AfxMemoryExhausted()
{
    pfm_raise(causeGeneric);
    std::fputs("libtavnomcl: memory is exhausted\n", stderr);
    std::abort();
}

void* AfxAllocate(void* pOld, unsigned long nCount, unsigned long nSize, unsigned long nHeader)
{
    unsigned long nBytes;
    void* pNew = nullptr;
    if (!__builtin_mul_overflow(nCount, nSize, &nBytes) && !__builtin_add_overflow(nBytes, nHeader, &nBytes))
        pNew = pOld == nullptr ? std::malloc(nBytes == 0 ? 1 : nBytes) : std::realloc(pOld, nBytes == 0 ? 1 : nBytes);
    return AfxNew(pNew);
}
