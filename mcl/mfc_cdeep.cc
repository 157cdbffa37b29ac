#include "mcl/mfc_cdeep_p.h"

#include <sys/mman.h>
#include <ucontext.h>
#include <unistd.h>

#include <cstdlib>
#include <new>

#if __has_include(<valgrind/valgrind.h>)
#include <valgrind/valgrind.h>
#else
#define VALGRIND_STACK_REGISTER(low, high) 0u
#define VALGRIND_STACK_DEREGISTER(id) static_cast<void>(id)
#endif

// Told of a switch where the program has them.
extern "C" {
__attribute__((weak)) void __sanitizer_start_switch_fiber(void** ppSave, const void* pBottom, std::size_t nSize);
__attribute__((weak)) void __sanitizer_finish_switch_fiber(void* pSaved, const void** ppBottom, std::size_t* pnSize);
__attribute__((weak)) void* __tsan_get_current_fiber();
__attribute__((weak)) void* __tsan_create_fiber(unsigned nFlags);
__attribute__((weak)) void __tsan_destroy_fiber(void* pFiber);
__attribute__((weak)) void __tsan_switch_to_fiber(void* pFiber, unsigned nFlags);
}

// What they leave of a segment, to the last one of them and to archives that it uses in turn.
const std::size_t nReserve = std::size_t{256} << 10;
const std::size_t nFirstSegment = 2 * nReserve;
const std::size_t nLargestSegment = std::size_t{64} << 20;

struct VELM_CDeepCalls::Segment {
    Segment* pNext = nullptr;
    Segment* pOuter = nullptr; // the one below while this one is in use
    char* pLow = nullptr;      // of the stack; a guard page lies below
    std::size_t nSize = 0;
    ucontext_t inside, below;
    void (*pfn)(void*) = nullptr;
    void* pArgument = nullptr;
    unsigned nBaseLevel = 0; // levels under way below it
    int nRaised = 0;
    unsigned nValgrindId = 0;
    const void* pBottomBelow = nullptr; // of the stack below, as AddressSanitizer knows it
    std::size_t nSizeBelow = 0;
    void* pFiber = nullptr; // ThreadSanitizer's
    void* pFiberBelow = nullptr;

    // Makes `inside` a call of Base on the segment. Of its own, as getcontext returns twice for all that the compiler
    // knows.
    void Start()
    {
        getcontext(&inside);
        inside.uc_stack.ss_sp = pLow;
        inside.uc_stack.ss_size = nSize;
        inside.uc_link = nullptr;
        const std::uint64_t nThis = reinterpret_cast<std::uintptr_t>(this); // the arguments of Base are ints
        makecontext(&inside, reinterpret_cast<void (*)()>(Base), 2, static_cast<unsigned>(nThis >> 32),
                    static_cast<unsigned>(nThis));
    }

    // Goes on there, and returns when that ends. Not by swapcontext, which AddressSanitizer warns of though it is told.
    void Switch()
    {
        volatile bool bBack = false;
        getcontext(&below);
        if (!bBack) {
            bBack = true;
            setcontext(&inside);
        }
    }

    ~Segment()
    {
        VALGRIND_STACK_DEREGISTER(nValgrindId);
        if (pFiber != nullptr)
            __tsan_destroy_fiber(pFiber);
        const std::size_t nPage = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
        if (pLow != nullptr)
            munmap(pLow - nPage, nSize + nPage);
    }
};

VELM_CDeepCalls::~VELM_CDeepCalls()
{
    while (m_pFirst != nullptr) {
        Segment* const pNext = m_pFirst->pNext;
        delete m_pFirst;
        m_pFirst = pNext;
    }
    std::free(m_levels);
}

bool VELM_CDeepCalls::SegmentHasRoom(std::uintptr_t nFrame) const
{
    return nFrame - reinterpret_cast<std::uintptr_t>(m_pSegment->pLow) > nReserve;
}

VELM_CDeepCalls::Segment* VELM_CDeepCalls::Next() const
{
    return m_pSegment == nullptr ? m_pFirst : m_pSegment->pNext;
}

bool VELM_CDeepCalls::PrepareSlowly(std::uintptr_t nFrame, unsigned nMost)
{
    // A host whose raises go elsewhere than to the cleanup blocks may have left a segment behind.
    while (m_pSegment != nullptr && nFrame - reinterpret_cast<std::uintptr_t>(m_pSegment->pLow) >= m_pSegment->nSize) {
        m_nLevels = m_pSegment->nBaseLevel;
        m_pSegment = m_pSegment->pOuter;
    }
    const unsigned nBase = m_pSegment == nullptr ? 0 : m_pSegment->nBaseLevel + 1;
    while (m_nLevels > nBase && m_levels[m_nLevels - 1] <= nFrame)
        --m_nLevels;
    if (m_nLevels >= nMost)
        return false;
    if (m_nLevels == m_nMaxLevels) {
        const unsigned nMore = m_nMaxLevels + m_nMaxLevels / 2 + 64;
        void* pMore = std::realloc(m_levels, nMore * sizeof *m_levels);
        if (pMore == nullptr)
            return false;
        m_levels = static_cast<std::uintptr_t*>(pMore);
        m_nMaxLevels = nMore;
    }
    return HasRoom(nFrame) || Next() != nullptr || AddSegment();
}

bool VELM_CDeepCalls::AddSegment()
{
#ifdef __GLIBC__
    Segment* const pSegment = new (std::nothrow) Segment;
    if (pSegment == nullptr)
        return false;
    const std::size_t nPage = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    const std::size_t nTwice = m_pSegment == nullptr ? nFirstSegment : 2 * m_pSegment->nSize;
    const std::size_t nSize = nTwice < nLargestSegment ? nTwice : nLargestSegment;
    void* const pMapped = mmap(nullptr, nSize + nPage, PROT_READ | PROT_WRITE,
                               MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_STACK, -1, 0);
    if (pMapped != MAP_FAILED) {
        pSegment->pLow = static_cast<char*>(pMapped) + nPage;
        pSegment->nSize = nSize;
    }
    if (pMapped == MAP_FAILED || mprotect(pMapped, nPage, PROT_NONE) != 0) {
        delete pSegment;
        return false;
    }
    pSegment->nValgrindId = VALGRIND_STACK_REGISTER(pSegment->pLow, pSegment->pLow + nSize);
    (m_pSegment == nullptr ? m_pFirst : m_pSegment->pNext) = pSegment;
    return true;
#else
    return false; // no contexts here: what the share holds is all
#endif
}

void VELM_CDeepCalls::CallOnSegment(void (*pfn)(void*), void* pArgument)
{
    Segment* const pSegment = Next();
    pSegment->pOuter = m_pSegment;
    pSegment->pfn = pfn;
    pSegment->pArgument = pArgument;
    pSegment->nBaseLevel = m_nLevels - 1;
    pSegment->nRaised = 0;
    m_pSegment = pSegment;

    pSegment->Start();
    void* pFakeStack = nullptr;
    if (__tsan_create_fiber != nullptr) {
        if (pSegment->pFiber == nullptr)
            pSegment->pFiber = __tsan_create_fiber(0);
        pSegment->pFiberBelow = __tsan_get_current_fiber();
        __tsan_switch_to_fiber(pSegment->pFiber, 0);
    }
    if (__sanitizer_start_switch_fiber != nullptr)
        __sanitizer_start_switch_fiber(&pFakeStack, pSegment->pLow, pSegment->nSize);
    pSegment->Switch();
    if (__sanitizer_finish_switch_fiber != nullptr)
        __sanitizer_finish_switch_fiber(pFakeStack, nullptr, nullptr);

    m_pSegment = pSegment->pOuter;
    m_nLevels = pSegment->nBaseLevel + 1;
    if (pSegment->nRaised != 0) {
        --m_nLevels;
        pfm_raise(pSegment->nRaised);
        ++m_nLevels;
    }
}

// Runs on the segment, and ends by switching back.
void VELM_CDeepCalls::Base(unsigned nHigh, unsigned nLow)
{
    const std::uint64_t nSegment = static_cast<std::uint64_t>(nHigh) << 32 | nLow;
    Segment* const pSegment = reinterpret_cast<Segment*>(static_cast<std::uintptr_t>(nSegment));
    if (__sanitizer_finish_switch_fiber != nullptr)
        __sanitizer_finish_switch_fiber(nullptr, &pSegment->pBottomBelow, &pSegment->nSizeBelow);
    const auto body = [pSegment]() noexcept { pSegment->pfn(pSegment->pArgument); };
    pSegment->nRaised = pfm_protect(body);
    if (__tsan_switch_to_fiber != nullptr)
        __tsan_switch_to_fiber(pSegment->pFiberBelow, 0);
    if (__sanitizer_start_switch_fiber != nullptr)
        __sanitizer_start_switch_fiber(nullptr, pSegment->pBottomBelow, pSegment->nSizeBelow);
    setcontext(&pSegment->below);
}
