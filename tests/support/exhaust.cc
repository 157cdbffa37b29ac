#include "tests/support/exhaust.h"

#if defined(TESTS_EXHAUST)
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <new>

// The C library's own, under the names that its own replacements use.
extern "C" {
void* __libc_malloc(std::size_t);
void* __libc_calloc(std::size_t, std::size_t);
void* __libc_realloc(void*, std::size_t);
void* __libc_memalign(std::size_t, std::size_t);
void __libc_free(void*);
}

static std::atomic<long> nLive{0};
static thread_local bool bArmed = false, bFailed = false;
static thread_local long nLeft = 0;

static bool Fails()
{
    if (!bArmed || nLeft-- != 0)
        return false;
    bFailed = true;
    errno = ENOMEM;
    return true;
}

static void* Counted(void* p)
{
    nLive += p != nullptr;
    return p;
}

extern "C" {
void* malloc(std::size_t n)
{
    return Fails() ? nullptr : Counted(__libc_malloc(n));
}
void* calloc(std::size_t nCount, std::size_t n)
{
    return Fails() ? nullptr : Counted(__libc_calloc(nCount, n));
}
void* aligned_alloc(std::size_t nAlignment, std::size_t n)
{
    return Fails() ? nullptr : Counted(__libc_memalign(nAlignment, n));
}
void* realloc(void* p, std::size_t n)
{
    if (Fails())
        return nullptr;
    return p == nullptr ? Counted(__libc_malloc(n)) : __libc_realloc(p, n);
}
void free(void* p)
{
    nLive -= p != nullptr;
    __libc_free(p);
}
}

Exhaust::Exhaust(long nFailing)
{
    bFailed = false;
    nLeft = nFailing;
    bArmed = true;
}

Exhaust::~Exhaust()
{
    bArmed = false;
}

bool Exhaust::HasFailed()
{
    return bFailed;
}

long Exhaust::Live()
{
    return nLive;
}
#endif
