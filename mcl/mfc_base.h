/// \file
/// What every header of the library builds on: the export mark and the assertion.
#ifndef TAVNOMCL_MFC_BASE_H
#define TAVNOMCL_MFC_BASE_H

#include <time.h>

#include "host/pfm.h"

static_assert(sizeof(time_t) == sizeof(long), "the library's times are as wide as long: build without _TIME_BITS=64");

/// Marks what the library exports; everything else is hidden.
/// \ingroup frame
#define VELM_API __attribute__((visibility("default")))
/// Marks what an exported class keeps to the library.
/// \ingroup frame
#define VELM_LOCAL __attribute__((visibility("hidden")))

/// Inline for callers; the source file that defines VELM_EMIT_INLINES before it includes the header emits the
/// function too, so that the library exports it.
/// \ingroup frame
#ifdef VELM_EMIT_INLINES
#define VELM_INLINE inline VELM_API __attribute__((used))
#else
#define VELM_INLINE inline VELM_API
#endif

/// Checks a precondition, in every build: true when it holds. Otherwise reports its text, the file and the line
/// through `pfm_assert_fail` and, when that returns, yields false: the caller leaves without using what is missing.
/// \ingroup failures
#define VELM_ASSERT(condition) AfxAssert((condition) ? true : false, #condition, __FILE__, __LINE__)

/// The function behind VELM_ASSERT.
/// \ingroup failures
inline bool AfxAssert(bool bHolds, const char* lpszText, const char* lpszFile, int nLine)
{
    if (__builtin_expect(!bHolds, 0))
        pfm_assert_fail(lpszText, lpszFile, nLine);
    return bHolds;
}

#endif
