// Room on the stack for objects that are stored or loaded inside each other, however deep; private to the library.
//
// Each level is a call of a caller's Serialize, which calls WriteObject or ReadObject for the next level. The calls of
// an archive use a small share of the stack that they begin on. Then they go on on a segment: memory of the archive's
// own, used as a stack. When that is used up they go on on a larger segment, and they come back as the levels return:
//
//     the thread's stack        segment of 2 MiB            segment of 4 MiB
//     +----------------+        +----------------+          +----------------+
//     | caller         |   +--> | level 60       |     +--> | level 3600     |
//     | level 0        |   |    | ...            |     |    | ...            |
//     | ...            |   |    | level 3599     |-----+    |                |
//     | level 59       |---+    |- - - - - - - - |          |- - - - - - - - |
//     |                |        | 1 MiB for the  |          | 1 MiB          |
//     |                |        | last Serialize |          |                |
//     +----------------+        +----------------+          +----------------+
//                               | 1 MiB of guard |          | 1 MiB of guard |
//                               +----------------+          +----------------+
//
// A segment is reserved address space: the system gives it a page of memory when the page is first touched. Nothing
// can be read or written in the guard, so that a frame too large for what is left ends the process there instead of
// reaching foreign memory, also when the compiler does not touch each page of a large frame in turn.
//
// A Serialize may use other archives, which may use the first one again; and it may go on on another stack, that of a
// coroutine or of a thread that it waits for. So an archive does not assume that a call comes from the stack of the
// call before. It looks at the address of the frame, which is
//   - on the calling thread's own stack: the calls use 16 KiB of it, or a quarter of what is left if that is less;
//   - on a segment that is in use, of this archive or of another: the calls use it down to the last 1 MiB;
//   - on neither, as on a coroutine's stack: nothing is known of its size, and the calls go on on a segment at once.
// This look takes time. The first 4 KiB below an archive's outermost call are used without it. What it cannot see is a
// coroutine's stack that is an array in a function: that counts as part of the stack that the array is on.
//
// A stretch is a run of levels whose frames are on one stack. What must hold:
//   - Only frames of one stack are compared with each other. That is how the levels are found that a raise has left,
//     which do not count: their frames lie no higher than the frame of a later call on the same stack. Those few of an
//     archive's first stretch do count on when the next call comes from the stack of another thread.
//   - A call that begins a stretch keeps the outer one in its own frame and puts it back when it ends, also by a raise.
//     So does each call with the number of levels. Hence calls that end in another order than that in which they began,
//     as on coroutines that take turns, can make the number wrong, but nothing else.
//   - A segment is either free or in use. It is in use until the call for which it was taken has come back from it.
//   - A raise does not jump from one stack to another: the C library may refuse that, and the host's chain of cleanup
//     blocks would lead to frames that are gone. So a block where the stretch begins catches it, and it is raised again
//     outside. A C++ exception cannot be passed on from a segment: it ends the process by std::terminate there.
#ifndef TAVNOMCL_MFC_CDEEP_P_H
#define TAVNOMCL_MFC_CDEEP_P_H

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "mcl/mfc_base.h"

struct VELM_CRuntimeClass;

// An object under way: its Serialize has been called and has not returned.
struct VELM_LOCAL VELM_CUnderWay {
    const VELM_CRuntimeClass* pClass;
    unsigned nIndex;
    unsigned nSchema;         // that it is stored with
    unsigned long long nMark; // of the cleanup block that was innermost
};

class VELM_LOCAL VELM_CDeepCalls {
public:
    VELM_CDeepCalls() = default;
    ~VELM_CDeepCalls(); // no call is under way; all memory goes back
    VELM_CDeepCalls(const VELM_CDeepCalls&) = delete;
    VELM_CDeepCalls& operator=(const VELM_CDeepCalls&) = delete;

    // Makes sure that one more call can be made from the frame. False when there is no memory for it, or when as many
    // are under way as there may be.
    bool Prepare(const void* pFrame, unsigned nMost)
    {
        if (m_nLevels == 0) {
            // On a segment there may be less room than that.
            const bool bMayBeSegment = s_pInUse.load(std::memory_order_relaxed) != nullptr;
            m_stretch.nTop = AddressOf(pFrame);
            m_stretch.nRoom = bMayBeSegment ? 0 : nUnasked;
            if (!bMayBeSegment && m_nMaxLevels != 0 && nMost != 0)
                return true;
        } else if (IsPrepared(pFrame, nMost)) {
            return true;
        }
        return PrepareSlowly(pFrame, nMost);
    }
    // Whether Prepare has nothing to do: a call can simply be made from the frame. The outermost call may be in the
    // stretch of an earlier one, which holds no more of the same stack than that one was found to have.
    bool IsPrepared(const void* pFrame, unsigned nMost) const
    {
        return m_nLevels < m_nMaxLevels && m_nLevels < nMost && HasRoom(pFrame);
    }
    // How many calls are under way, and for which objects, outermost first. A raise may have left the innermost of them
    // since Prepare; Leave makes their number smaller.
    unsigned Depth() const { return m_nLevels; }
    const VELM_CUnderWay& At(unsigned i) const { return m_levels[i + 1].object; }

    // After Prepare: whether the call can simply be made, between Enter and Leave, which takes what Enter returned.
    bool HasRoom(const void* pFrame) const
    {
        return m_levels[m_nLevels].nFrame > AddressOf(pFrame) && m_stretch.Holds(AddressOf(pFrame));
    }
    unsigned Enter(const void* pFrame, const VELM_CUnderWay& object)
    {
        m_levels[m_nLevels + 1] = {AddressOf(pFrame), object};
        return m_nLevels++;
    }
    void Leave(unsigned nLevels) { m_nLevels = nLevels; }
    // Makes the call otherwise. False, and it is not made, when the memory is gone that Prepare had found.
    bool CallSlowly(const void* pFrame, const VELM_CUnderWay& object, void (*pfn)(void*), void* pArgument);

private:
    struct Segment;
    struct Stack;
    struct Stretch {
        std::uintptr_t nTop;  // frames lie there or below,
        std::uintptr_t nRoom; // by less than so much
        unsigned nFirst;      // levels under way outside of it

        bool Holds(std::uintptr_t nFrame) const { return nTop - nFrame < nRoom; }
    };

    // What the calls use of any stack without a look at it.
#ifdef __GLIBC__
    static const std::uintptr_t nUnasked = std::uintptr_t{4} << 10;
#else
    static const std::uintptr_t nUnasked = std::uintptr_t{64} << 10; // there are no segments
#endif

    static std::atomic<Segment*> s_pInUse; // a list of those that are in use, by whatever archive of the process

    struct Level {
        std::uintptr_t nFrame;
        VELM_CUnderWay object;
    };
    Level* m_levels = nullptr; // the calls under way, outermost first, behind one with the highest address
    unsigned m_nLevels = 0;
    unsigned m_nMaxLevels = 0;
    Stretch m_stretch = {0, 0, 0}; // of the innermost call
    Segment* m_pFree = nullptr;    // that was used last, first

    static std::uintptr_t AddressOf(const void* pFrame)
    {
        return reinterpret_cast<std::uintptr_t>(pFrame);
    }
    bool PrepareSlowly(const void* pFrame, unsigned nMost);
    static Stack StackOf(std::uintptr_t nFrame);
    Stretch StretchOf(std::uintptr_t nFrame, const Stack& here);
    bool MakeRoom(std::uintptr_t nFrame, const Stack& here, const Stretch& stretch);
    bool AddSegment(std::size_t nSize);
    int CallOnSegment(void (*pfn)(void*), void* pArgument);
};

#endif
