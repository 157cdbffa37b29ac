/// \file
/// The macros that every header of the library uses: visibility, inline functions, and assertions.
#ifndef TAVNOMCL_MFC_BASE_H
#define TAVNOMCL_MFC_BASE_H

#include <time.h>

#include "host/pfm.h"

static_assert(sizeof(time_t) == sizeof(long), "the library's times are as wide as long: build without _TIME_BITS=64");

/// Marks a class or function as exported; everything else is hidden.
/// \ingroup frame
#define VELM_API __attribute__((visibility("default")))
/// Hides a member of an exported class from programs.
/// \ingroup frame
#define VELM_LOCAL __attribute__((visibility("hidden")))

/// Marks a function that is inline for callers and exported as well: one source file defines VELM_EMIT_INLINES before
/// it includes the header, and so emits the function.
/// \ingroup frame
#ifdef VELM_EMIT_INLINES
#define VELM_INLINE inline VELM_API __attribute__((used))
#else
#define VELM_INLINE inline VELM_API
#endif

/// Checks a precondition, in every build, and is true if it holds. Otherwise it reports the condition's text, the file
/// and the line through `pfm_assert_fail` and, if that returns, is false: the caller must then leave the operation
/// without doing what the condition protects.
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
