/// \file
/// Diagnostics of the host process: failed checks, raises, and the cleanup blocks that catch raises.
///
/// A raise carries an int, its code, and jumps (`siglongjmp`) to the innermost active cleanup block of the thread. It
/// does not unwind the stack: no destructor of the frames in between runs. A function that catches raises is written
/// so:
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
/// or calls `pfm_protect`, which does all of this. If the program itself defines `pfm_assert_fail` or `pfm_raise`, its
/// definitions are used instead of those of this library.
#ifndef TAVNOHOST_PFM_H
#define TAVNOHOST_PFM_H

#include <setjmp.h>

#ifndef TAVNOHOST_API
#define TAVNOHOST_API __attribute__((visibility("default")))
#endif

/// A cleanup block: the record of one protected piece of code, which lies in the stack frame of the function that
/// catches its raises. Programs use `jump` and `nJumped`; the other fields belong to this library.
struct pfm_cleanup_block {
    /// The next outer block of the thread.
    union {
        pfm_cleanup_block* pOuter; ///< NULL in the outermost block.
        char hostHead[8];          ///< Places `jump` at offset 8 in both data models of x86.
    };
    /// What `sigsetjmp` fills.
    union {
        sigjmp_buf jump;     ///< The jump buffer.
        char jumpSpace[512]; ///< The room reserved for it; jump buffers of some machines are larger.
    };
    int nCode;   ///< The code of the raise that came back.
    int nActive; ///< The block's number, above 0, from `pfm_cleanup_start` on; 0 after its release.
    int nJumped; ///< The result of `sigsetjmp`, which the program stores before it calls `pfm_cleanup_start`.
};

extern "C" {

/// Reports a failed check as "file:line: assertion failed: text" on standard error, and returns.
TAVNOHOST_API void pfm_assert_fail(const char* lpszText, const char* lpszFile, int nLine);

/// Raises `code`: releases the innermost active cleanup block of this thread and jumps to it. Without an active block,
/// prints the code on standard error and aborts.
TAVNOHOST_API void pfm_raise(int code);

/// Makes the block the innermost active one of this thread and returns 1 when its `nJumped` is 0. Otherwise a raise has
/// come back to the block, and it returns 0. The second argument is not used.
TAVNOHOST_API int pfm_cleanup_start(pfm_cleanup_block* pBlock, int nReserved);

/// Clears the code of an earlier raise in the block; called once at the start of the protected code.
TAVNOHOST_API void pfm_cleanup_reset(pfm_cleanup_block* pBlock);

/// Releases the block, and with it every block that was started inside it and is still active. Does nothing if a raise
/// or the release of an outer block has released this block already.
TAVNOHOST_API void pfm_cleanup_rls(pfm_cleanup_block* pBlock);

/// Returns a mark of the innermost active block of this thread, which differs from the marks of all other blocks; or a
/// mark of having none. A function that keeps the mark can later find out by `pfm_cleanup_holds` whether a raise has
/// left it.
TAVNOHOST_API unsigned long long pfm_cleanup_mark(void);

/// Returns 0 when the mark is of a block of this thread that is no longer active, else 1.
TAVNOHOST_API int pfm_cleanup_holds(unsigned long long nMark);
}

/// Runs `body()` inside a cleanup block. Returns 0 when it ended normally, otherwise the code that was raised.
///
/// Local variables of the caller that `body` changes and that are read after a raise must be volatile, or must not lie
/// in the caller's stack frame. A C++ exception passes through, and releases the block, too.
template <class Body> int pfm_protect(Body&& body)
{
    // Constructed before sigsetjmp and destroyed at the end, so that a raise that comes back does not skip its
    // destructor.
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
