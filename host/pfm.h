/// \file
/// Diagnostics of the host process: failed checks, raises, and the cleanup blocks that survive a raise.
///
/// A raise carries one int and leaves the raising code by a non-local jump to the innermost active cleanup block of
/// the thread. It does not unwind: no destructor of the frames in between runs. A protecting caller goes
///
///     pfm_cleanup_block block;
///     block.nJumped = sigsetjmp(block.jump, 1);
///     if (pfm_cleanup_start(&block, 0)) {
///         pfm_cleanup_reset(&block);
///         ...                          // may raise
///         pfm_cleanup_rls(&block);
///     } else {
///         ...                          // a raise came back
///     }
///
/// or calls `pfm_protect`, which does all of that. A process that defines `pfm_assert_fail` or `pfm_raise` itself
/// takes precedence over the definitions of this library.
#ifndef TAVNOHOST_PFM_H
#define TAVNOHOST_PFM_H

#include <setjmp.h>

#ifndef TAVNOHOST_API
#define TAVNOHOST_API __attribute__((visibility("default")))
#endif

/// The record of one protected stretch, held in the protecting caller's stack frame.
/// Callers use `jump` and `nJumped`; the rest belongs to this library.
struct pfm_cleanup_block {
    /// The next outer block of the thread.
    union {
        pfm_cleanup_block* pOuter; ///< NULL in the outermost block.
        char hostHead[8];          ///< Keeps `jump` at offset 8 in both data models of x86.
    };
    /// What `sigsetjmp` fills.
    union {
        sigjmp_buf jump;     ///< The jump buffer.
        char jumpSpace[512]; ///< Its reserved room; a jump buffer of another machine may take more.
    };
    int nCode;   ///< The code of the raise that came back.
    int nActive; ///< The block's number while it is on the thread's chain; else 0.
    int nJumped; ///< The result of `sigsetjmp`, stored by the caller before `pfm_cleanup_start`.
};

extern "C" {

/// Reports a failed check as "file:line: assertion failed: text" on standard error, and returns.
TAVNOHOST_API void pfm_assert_fail(const char* lpszText, const char* lpszFile, int nLine);

/// Raises `code`: control goes to the innermost active cleanup block of this thread, which is released by that.
/// With no active block, reports the code on standard error and aborts.
TAVNOHOST_API void pfm_raise(int code);

/// Puts the block on the thread's chain and returns 1 when its `nJumped` is 0; returns 0 when a raise came back.
/// The second argument is not used.
TAVNOHOST_API int pfm_cleanup_start(pfm_cleanup_block* pBlock, int nReserved);

/// Clears what an earlier raise left in the block; called once at the start of the protected stretch.
TAVNOHOST_API void pfm_cleanup_reset(pfm_cleanup_block* pBlock);

/// Releases the block, and with it every block inside it. A block that is not on this thread's chain, since a raise or
/// an outer block's release took it off, is left alone.
TAVNOHOST_API void pfm_cleanup_rls(pfm_cleanup_block* pBlock);

/// A number for the innermost active block of this thread, or for none, which no other block gets. Who notes it before a
/// call can tell afterwards, by `pfm_cleanup_holds`, whether a raise has left that call.
TAVNOHOST_API unsigned long long pfm_cleanup_mark(void);

/// 0 when the block of that number is a block of this thread and no longer active; else 1.
TAVNOHOST_API int pfm_cleanup_holds(unsigned long long nMark);
}

/// Runs `body()` inside a cleanup block. Returns 0 when it ended normally, else the code that was raised.
/// Locals of the caller that `body` changes and that are read after a raise must be volatile or outlive the frame. A
/// C++ exception passes through; the block is released then too.
template <class Body> int pfm_protect(Body&& body)
{
    // Constructed before sigsetjmp, and alive until the end: a raise comes back into its scope and skips nothing of it.
    struct Guard {
        pfm_cleanup_block block;
        ~Guard() { pfm_cleanup_rls(&block); }
    } guard;
    guard.block.nJumped = sigsetjmp(guard.block.jump, 1);
    if (!pfm_cleanup_start(&guard.block, 0))
        return guard.block.nCode;
    pfm_cleanup_reset(&guard.block);
    body();
    return 0;
}

#endif
