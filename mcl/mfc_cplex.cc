#define VELM_EMIT_INLINES
#include "mcl/mfc_cplex.h"

#include <cstdlib>

#include "mcl/mfc_memory.h"

VELM_CPlex* VELM_CPlex::Create(VELM_CPlex*& pHead, unsigned nMax, unsigned cbElement)
{
    VELM_ASSERT(nMax > 0 && cbElement > 0);
    VELM_CPlex* pBlock = static_cast<VELM_CPlex*>(AfxAllocate(nullptr, nMax, cbElement, sizeof(VELM_CPlex)));
    pBlock->pNext = pHead;
    pHead = pBlock;
    return pBlock;
}

void VELM_CPlex::FreeDataChain(VELM_CPlex* pHead)
{
    while (pHead != nullptr) {
        VELM_CPlex* pNext = pHead->pNext;
        std::free(pHead);
        pHead = pNext;
    }
}
