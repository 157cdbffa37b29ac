#include "host/pfm.h"

#include <atomic>
#include <climits>
#include <cstddef>
#include <cstdio>
#include <cstdlib>

#if defined __i386__ || defined __x86_64__
static_assert(offsetof(pfm_cleanup_block, jump) == 8, "the jump buffer stands at offset 8");
static_assert(offsetof(pfm_cleanup_block, nJumped) == 528, "the result of sigsetjmp stands at offset 528");
#endif

// The archive asks for the innermost block at each object. This TLS model saves a function call for each access.
#define FAST_THREAD_LOCAL static thread_local __attribute__((tls_model("initial-exec")))

FAST_THREAD_LOCAL pfm_cleanup_block* pInnermost = nullptr;
FAST_THREAD_LOCAL unsigned nLastNumber = 0;
FAST_THREAD_LOCAL unsigned nThread = 0;         // number of this thread, from 1 on; 0 before its first block
FAST_THREAD_LOCAL unsigned long long nMark = 0; // result of pfm_cleanup_mark
static std::atomic<unsigned> nThreads{0};

// Makes pBlock the innermost block of the thread; NULL if there is none.
static void SetInnermost(pfm_cleanup_block* pBlock)
{
    pInnermost = pBlock;
    nMark = static_cast<unsigned long long>(nThread) << 32 |
            (pBlock == nullptr ? 0 : static_cast<unsigned>(pBlock->nActive));
}

// Weak, so that a program that is linked statically can define its own, too.
__attribute__((weak)) void pfm_assert_fail(const char* lpszText, const char* lpszFile, int nLine)
{
    std::fprintf(stderr, "%s:%d: assertion failed: %s\n", lpszFile, nLine, lpszText);
}

__attribute__((weak)) void pfm_raise(int code)
{
    pfm_cleanup_block* pBlock = pInnermost;
    if (pBlock == nullptr) {
        std::fprintf(stderr, "raise %d outside every cleanup block\n", code);
        std::abort();
    }
    pBlock->nCode = code;
    pfm_cleanup_rls(pBlock);
    siglongjmp(pBlock->jump, 1);
}

int pfm_cleanup_start(pfm_cleanup_block* pBlock, int)
{
    if (pBlock->nJumped != 0)
        return 0;
    pBlock->pOuter = pInnermost;
    if (nThread == 0)
        nThread = ++nThreads;
    if (++nLastNumber > INT_MAX)
        nLastNumber = 1;
    pBlock->nActive = static_cast<int>(nLastNumber);
    SetInnermost(pBlock);
    return 1;
}

void pfm_cleanup_reset(pfm_cleanup_block* pBlock)
{
    pBlock->nCode = 0;
}

void pfm_cleanup_rls(pfm_cleanup_block* pBlock)
{
    if (pBlock->nActive == 0)
        return;
    pBlock->nActive = 0;
    // A block that left the chain when an outer block was released still has its number: its release must not change
    // the chain.
    const pfm_cleanup_block* p = pInnermost;
    while (p != nullptr && p != pBlock)
        p = p->pOuter;
    if (p != nullptr)
        SetInnermost(pBlock->pOuter);
}

unsigned long long pfm_cleanup_mark()
{
    return nMark;
}

int pfm_cleanup_holds(unsigned long long nNoted)
{
    const int nNumber = static_cast<int>(nNoted);
    const pfm_cleanup_block* p = pInnermost;
    while (p != nullptr && p->nActive != nNumber)
        p = p->pOuter;
    return nNumber == 0 || p != nullptr || nNoted >> 32 != nThread;
}
