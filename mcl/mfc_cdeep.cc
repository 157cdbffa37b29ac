#include "mcl/mfc_cdeep_p.h"

#include <pthread.h>
#include <sys/mman.h>
#include <ucontext.h>

#include <cstdlib>
#include <mutex>
#include <new>

#if __has_include(<valgrind/valgrind.h>)
#include <valgrind/valgrind.h>
#else
#define VALGRIND_STACK_REGISTER(low, high) 0u
#define VALGRIND_STACK_DEREGISTER(id) static_cast<void>(id)
#endif

// The sanitizers' functions that must be told of a switch between stacks. They are NULL in a program without
// sanitizers.
extern "C" {
__attribute__((weak)) void __sanitizer_start_switch_fiber(void** ppSave, const void* pBottom, std::size_t nSize);
__attribute__((weak)) void __sanitizer_finish_switch_fiber(void* pSaved, const void** ppBottom, std::size_t* pnSize);
__attribute__((weak)) void* __tsan_get_current_fiber();
__attribute__((weak)) void* __tsan_create_fiber(unsigned nFlags);
__attribute__((weak)) void __tsan_destroy_fiber(void* pFiber);
__attribute__((weak)) void __tsan_switch_to_fiber(void* pFiber, unsigned nFlags);
}

// ThreadSanitizer adds a note to the beginning and the end of each function. A function that begins on one stack and
// ends on another must not have these notes. The attribute that removes them with g++ does not remove them with clang,
// which has one of its own.
#if __has_attribute(disable_sanitizer_instrumentation)
#define SWITCHES_STACKS __attribute__((noinline, disable_sanitizer_instrumentation))
#else
#define SWITCHES_STACKS __attribute__((noinline, no_sanitize("thread")))
#endif

const std::size_t nMiB = std::size_t{1} << 20;
// How much of a segment is left to the last Serialize: 1 MiB, and what lies between the frame that was looked at and
// the frame of the Serialize.
const std::size_t nReserve = nMiB + nMiB / 16;
const std::size_t nGuard = nMiB;
const std::size_t nSmallestSegment = 2 * nMiB;
const std::size_t nLargestSegment = 64 * nMiB;
// How much of a thread's own stack the calls use at most.
const std::uintptr_t nShare = std::uintptr_t{16} << 10;
// How much of the reported size of a thread's own stack is believed. If no limit is set, the stack of the main thread
// is reported to reach down to the next mapping, and later mappings may be placed in between.
const std::uintptr_t nLargestOwn = 8 * nMiB;

std::atomic<VELM_CDeepCalls::Segment*> VELM_CDeepCalls::s_pInUse{nullptr};
static std::mutex inUseMutex; // protects the list, whose head may be compared with NULL without it

// The bounds of the calling thread's own stack; both are 0 while they are not known.
static thread_local std::uintptr_t nOwnLow = 0, nOwnHigh = 0;

struct VELM_CDeepCalls::Segment {
    VELM_CDeepCalls* const pOwner;
    Segment* pNext = nullptr; // in the list of segments in use, or of its owner's free segments
    char* pLow = nullptr;     // the low end of the stack; the guard lies below
    std::size_t nSize = 0;
    ucontext_t inside, below;
    void (*pfn)(void*) = nullptr;
    void* pArgument = nullptr;
    int nRaised = 0;
    unsigned nValgrindId = 0;
    const void* pBottomBelow = nullptr; // the stack of the caller, as AddressSanitizer knows it
    std::size_t nSizeBelow = 0;
    void* pFiber = nullptr; // ThreadSanitizer's name for this stack
    void* pFiberBelow = nullptr;

    explicit Segment(VELM_CDeepCalls* pCalls) : pOwner(pCalls) {}
    ~Segment();
    bool Map(std::size_t nBytes);
    void Use();
    void EndUse();
    static Segment* UsedBy(const VELM_CDeepCalls& calls);
    void Start();
    SWITCHES_STACKS void Switch();
    SWITCHES_STACKS static void Base(unsigned nHigh, unsigned nLow);
    void Run();
};

struct VELM_CDeepCalls::Stack {
    enum Kind { own, segment, unknown };
    Kind kind;
    std::uintptr_t nLow;
    std::size_t nSize;

    bool Has(std::uintptr_t nAddress) const { return nAddress - nLow < nSize; }
    // The top of a stretch that begins at the frame, and how many bytes from there on the levels may use.
    std::uintptr_t Top(std::uintptr_t nFrame) const { return kind == segment ? nLow + nSize - 1 : nFrame; }
    std::uintptr_t Room(std::uintptr_t nTop) const
    {
        if (kind == segment)
            return nSize - 1 - nReserve;
        const std::uintptr_t nQuarter = (nTop - nLow) / 4;
        return kind == unknown ? nUnasked : nQuarter < nShare ? nQuarter : nShare;
    }
    // The size of the segment on which the calls continue. Under ThreadSanitizer all segments are small: it can keep
    // track of some 65,000 function calls on each stack, and each call of malloc takes it time for all of them.
    std::size_t NextSize() const
    {
        if (kind != segment || __tsan_create_fiber != nullptr)
            return nSmallestSegment;
        return nSize < nLargestSegment / 2 ? 2 * nSize : nLargestSegment;
    }
};

void VELM_CDeepCalls::Segment::Use()
{
    const std::lock_guard<std::mutex> lock(inUseMutex);
    pNext = s_pInUse;
    s_pInUse = this;
}

void VELM_CDeepCalls::Segment::EndUse()
{
    const std::lock_guard<std::mutex> lock(inUseMutex);
    Segment* p = s_pInUse;
    if (p == this) {
        s_pInUse = pNext;
        return;
    }
    while (p->pNext != this)
        p = p->pNext;
    p->pNext = pNext;
}

// A segment that belongs to calls and is in use; NULL when there is none.
VELM_CDeepCalls::Segment* VELM_CDeepCalls::Segment::UsedBy(const VELM_CDeepCalls& calls)
{
    if (s_pInUse.load(std::memory_order_relaxed) == nullptr)
        return nullptr;
    const std::lock_guard<std::mutex> lock(inUseMutex);
    Segment* p = s_pInUse;
    while (p != nullptr && p->pOwner != &calls)
        p = p->pNext;
    return p;
}

VELM_CDeepCalls::~VELM_CDeepCalls()
{
    // Segments are left in use when a host's raises do not go to the innermost cleanup block.
    while (Segment* const p = Segment::UsedBy(*this)) {
        p->EndUse();
        delete p;
    }
    while (Segment* const p = m_pFree) {
        m_pFree = p->pNext;
        delete p;
    }
    std::free(m_levels);
}

// Called once in each thread, since the C library may have to walk through the process's mappings for the answer.
static void AskOwnStack()
{
#ifdef __GLIBC__
    pthread_attr_t attributes;
    void* pLow = nullptr;
    std::size_t nSize = 0;
    if (pthread_getattr_np(pthread_self(), &attributes) != 0)
        return;
    pthread_attr_getstack(&attributes, &pLow, &nSize);
    pthread_attr_destroy(&attributes);
    nOwnHigh = reinterpret_cast<std::uintptr_t>(pLow) + nSize;
    nOwnLow = nOwnHigh - (nSize < nLargestOwn ? nSize : nLargestOwn);
#endif
}

VELM_CDeepCalls::Stack VELM_CDeepCalls::StackOf(std::uintptr_t nFrame)
{
    if (nOwnHigh == 0)
        AskOwnStack();
    const Stack own = {Stack::own, nOwnLow, nOwnHigh - nOwnLow};
    if (own.Has(nFrame))
        return own;
    const std::lock_guard<std::mutex> lock(inUseMutex);
    for (const Segment* p = s_pInUse; p != nullptr; p = p->pNext) {
        const Stack segment = {Stack::segment, AddressOf(p->pLow), p->nSize};
        if (segment.Has(nFrame))
            return segment;
    }
    return {Stack::unknown, nFrame - nUnasked, 2 * nUnasked}; // addresses nearby count as the same stack
}

// Forgets the levels that a raise has left, and returns the stretch that a call from the frame belongs to.
VELM_CDeepCalls::Stretch VELM_CDeepCalls::StretchOf(std::uintptr_t nFrame, const Stack& here)
{
    // A call from above the frame of the outermost level, on the same stack: a raise has left all levels. This also
    // finds levels left by a raise that did not go through the cleanup blocks.
    if (m_nLevels != 0 && here.Has(m_levels[1].nFrame) && m_levels[1].nFrame <= nFrame)
        m_nLevels = 0;
    // An outermost call on a segment comes from inside another archive. It begins a stretch of its own, which ends with
    // the call, also by a raise.
    const bool bSame = m_nLevels == 0 ? here.kind != Stack::segment : here.Has(m_stretch.nTop);
    if (!bSame) {
        const std::uintptr_t nTop = here.Top(nFrame);
        return {nTop, here.kind == Stack::unknown ? 0 : here.Room(nTop), m_nLevels};
    }
    while (m_nLevels > m_stretch.nFirst && m_levels[m_nLevels].nFrame <= nFrame)
        --m_nLevels;
    if (m_nLevels == 0)
        m_stretch = {nFrame, 0, 0};
    m_stretch.nRoom = here.Room(m_stretch.nTop);
    return m_stretch;
}

// Makes sure that the list of levels has room for one more, and that a segment is free if the frame is outside of the
// stretch. Returns false when there is no memory.
bool VELM_CDeepCalls::MakeRoom(std::uintptr_t nFrame, const Stack& here, const Stretch& stretch)
{
    if (m_nLevels == m_nMaxLevels) {
        const unsigned nMore = m_nMaxLevels + m_nMaxLevels / 2 + 64;
        void* const pMore = std::realloc(m_levels, (std::size_t{nMore} + 1) * sizeof *m_levels);
        if (pMore == nullptr)
            return false;
        m_levels = static_cast<Level*>(pMore);
        m_levels[0].nFrame = UINTPTR_MAX;
        m_nMaxLevels = nMore;
    }
    return stretch.Holds(nFrame) || m_pFree != nullptr || AddSegment(here.NextSize());
}

bool VELM_CDeepCalls::PrepareSlowly(const void* pFrame, unsigned nMost)
{
    const std::uintptr_t nFrame = AddressOf(pFrame);
    if (m_nLevels == 0 && m_stretch.Holds(nFrame)) // no lookup: the list is full, or nothing is allowed
        return nMost != 0 && MakeRoom(nFrame, {}, m_stretch);
    const Stack here = StackOf(nFrame);
    const Stretch stretch = StretchOf(nFrame, here);
    return m_nLevels < nMost && MakeRoom(nFrame, here, stretch);
}

bool VELM_CDeepCalls::CallSlowly(const void* pFrame, const VELM_CUnderWay& object, void (*pfn)(void*), void* pArgument)
{
    // Everything is looked up again: since Prepare the object's constructor may have used the archive, and may have
    // caught a raise from it.
    const std::uintptr_t nFrame = AddressOf(pFrame);
    const Stack here = StackOf(nFrame);
    const Stretch stretch = StretchOf(nFrame, here);
    if (!MakeRoom(nFrame, here, stretch))
        return false;
    const Stretch outer = m_stretch;
    const unsigned nLevels = Enter(pFrame, object);
    int nRaised;
    if (stretch.Holds(nFrame)) {
        m_stretch = stretch;
        nRaised = pfm_protect([pfn, pArgument] { pfn(pArgument); });
    } else {
        nRaised = CallOnSegment(pfn, pArgument);
    }
    m_stretch = outer;
    Leave(nLevels);
    if (nRaised != 0)
        pfm_raise(nRaised);
    return true;
}

// Makes the call on the first free segment. Returns the code of a raise that ended it, or 0.
int VELM_CDeepCalls::CallOnSegment(void (*pfn)(void*), void* pArgument)
{
    Segment* const pSegment = m_pFree;
    m_pFree = pSegment->pNext;
    pSegment->Use();
    const Stack stack = {Stack::segment, AddressOf(pSegment->pLow), pSegment->nSize};
    m_stretch = {stack.Top(0), stack.Room(0), m_nLevels};
    pSegment->pfn = pfn;
    pSegment->pArgument = pArgument;
    pSegment->Start();
    void* pFakeStack = nullptr;
    if (__sanitizer_start_switch_fiber != nullptr)
        __sanitizer_start_switch_fiber(&pFakeStack, pSegment->pLow, pSegment->nSize);
    pSegment->Switch();
    if (__sanitizer_finish_switch_fiber != nullptr)
        __sanitizer_finish_switch_fiber(pFakeStack, nullptr, nullptr);

    pSegment->EndUse();
    pSegment->pNext = m_pFree;
    m_pFree = pSegment;
    return pSegment->nRaised;
}

// Adds a free segment of that size, or a smaller one if there is no room for it.
bool VELM_CDeepCalls::AddSegment(std::size_t nSize)
{
    Segment* const pSegment = new (std::nothrow) Segment(this);
    if (pSegment == nullptr)
        return false;
    while (!pSegment->Map(nSize)) {
        nSize /= 2;
        if (nSize < nSmallestSegment) {
            delete pSegment;
            return false;
        }
    }
    pSegment->pNext = m_pFree;
    m_pFree = pSegment;
    return true;
}

#ifdef __GLIBC__
bool VELM_CDeepCalls::Segment::Map(std::size_t nBytes)
{
    void* const pMapped = mmap(nullptr, nGuard + nBytes, PROT_READ | PROT_WRITE,
                               MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_STACK, -1, 0);
    if (pMapped == MAP_FAILED)
        return false;
    if (mprotect(pMapped, nGuard, PROT_NONE) != 0) {
        munmap(pMapped, nGuard + nBytes);
        return false;
    }
    pLow = static_cast<char*>(pMapped) + nGuard;
    nSize = nBytes;
    nValgrindId = VALGRIND_STACK_REGISTER(pLow, pLow + nSize);
    if (__tsan_create_fiber != nullptr)
        pFiber = __tsan_create_fiber(0);
    return true;
}

// Prepares the context `inside`, which calls Base on the segment. This is a function of its own because the compiler
// must assume that getcontext returns twice.
void VELM_CDeepCalls::Segment::Start()
{
    getcontext(&inside);
    inside.uc_stack.ss_sp = pLow;
    inside.uc_stack.ss_size = nSize;
    inside.uc_link = nullptr;
    const std::uint64_t nThis = AddressOf(this); // passed in halves, as makecontext passes ints only
    makecontext(&inside, reinterpret_cast<void (*)()>(Base), 2, static_cast<unsigned>(nThis >> 32),
                static_cast<unsigned>(nThis));
}

// Continues on the segment, and returns when the call there has ended. It does not use swapcontext, which makes
// AddressSanitizer warn even though it is told of the switch.
void VELM_CDeepCalls::Segment::Switch()
{
    volatile bool bBack = false;
    if (__tsan_get_current_fiber != nullptr)
        pFiberBelow = __tsan_get_current_fiber();
    getcontext(&below);
    if (!bBack) {
        bBack = true;
        if (__tsan_switch_to_fiber != nullptr)
            __tsan_switch_to_fiber(pFiber, 0);
        setcontext(&inside);
    }
}

// The function at the base of the segment. It makes the call and ends by switching back.
void VELM_CDeepCalls::Segment::Base(unsigned nHigh, unsigned nLow)
{
    const std::uint64_t nSegment = static_cast<std::uint64_t>(nHigh) << 32 | nLow;
    Segment* const pSegment = reinterpret_cast<Segment*>(static_cast<std::uintptr_t>(nSegment));
    pSegment->Run();
    if (__tsan_switch_to_fiber != nullptr)
        __tsan_switch_to_fiber(pSegment->pFiberBelow, 0);
    setcontext(&pSegment->below);
    __builtin_trap(); // a return would silently end the thread, and the process with status 0
}
#else
// Without contexts there are no segments: the calls stay on the stack on which they begin.
bool VELM_CDeepCalls::Segment::Map(std::size_t)
{
    return false;
}
void VELM_CDeepCalls::Segment::Start()
{
}
void VELM_CDeepCalls::Segment::Switch()
{
}
#endif

VELM_CDeepCalls::Segment::~Segment()
{
    if (pLow == nullptr)
        return;
    VALGRIND_STACK_DEREGISTER(nValgrindId);
    if (pFiber != nullptr)
        __tsan_destroy_fiber(pFiber);
    munmap(pLow - nGuard, nGuard + nSize);
}

void VELM_CDeepCalls::Segment::Run()
{
    if (__sanitizer_finish_switch_fiber != nullptr)
        __sanitizer_finish_switch_fiber(nullptr, &pBottomBelow, &nSizeBelow);
    const auto body = [this]() noexcept { pfn(pArgument); };
    nRaised = pfm_protect(body);
    if (__sanitizer_start_switch_fiber != nullptr)
        __sanitizer_start_switch_fiber(nullptr, pBottomBelow, nSizeBelow);
}
