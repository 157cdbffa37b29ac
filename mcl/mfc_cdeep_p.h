// Stack space for objects that are stored or loaded inside each other, however deep; private to the library.
//
// Each level is a call of a program's Serialize, which calls WriteObject or ReadObject for the next level. The calls of
// an archive use a small share of the stack on which they begin. After that they continue on a segment: memory that the
// archive allocates and uses as a stack. When a segment is used up, they continue on a larger one. As the levels
// return, the calls come back from segment to segment:
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
// A segment is reserved address space: the system provides a page of memory when the page is first touched. The guard
// can be neither read nor written. A frame that is too large for the rest of the segment therefore ends the process in
// the guard instead of overwriting other memory. That needs a guard of 1 MiB, since a compiler need not touch each page
// of a large frame in turn.
//
// A Serialize may use other archives, which may use the first one again. It may also continue on another stack: that of
// a coroutine, or of a thread that it waits for. So an archive must not assume that a call comes from the same stack as
// the call before. It looks up which stack the address of the caller's frame belongs to:
//   - The calling thread's own stack: the calls use 16 KiB of it, or a quarter of what is left if that is less.
//   - A segment that is in use, by this archive or another one: the calls use it down to the last 1 MiB.
//   - Neither, such as a coroutine's stack: its size is unknown, and the calls continue on a segment at once.
// The lookup takes time, so the first 4 KiB below an archive's outermost call are used without it. The lookup cannot
// recognise a coroutine's stack that is an array inside a function: it takes that for part of the stack that holds the
// array.
//
// A stretch is a run of levels whose frames are on one stack. What must hold:
//   - Only frames of the same stack are compared. The comparison finds the levels that a raise has left, which must no
//     longer be counted: their frames lie no higher than the frame of a later call on the same stack. The few levels of
//     an archive's first stretch are still counted when the next call comes from the stack of another thread.
//   - A call that begins a stretch saves the outer stretch in its own frame, and restores it when it ends, also by a
//     raise. Every call saves and restores the number of levels in the same way. So calls that end in another order
//     than they began in, as on coroutines that take turns, can make that number wrong, but nothing else.
//   - A segment is either free or in use. It is in use until the call for which it was taken has returned from it.
//   - A raise never jumps from one stack to another: the C library may refuse such a jump, and the host's chain of
//     cleanup blocks would lead to frames that are gone. So a cleanup block at the base of the stretch catches the
//     raise, and it is raised again outside. A C++ exception cannot leave a segment: std::terminate ends the process.
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
    unsigned nSchema;         // the schema that it is stored with
    unsigned long long nMark; // the mark of the cleanup block that was innermost when the call began
};

class VELM_LOCAL VELM_CDeepCalls {
public:
    VELM_CDeepCalls() = default;
    ~VELM_CDeepCalls(); // no call may be under way
    VELM_CDeepCalls(const VELM_CDeepCalls&) = delete;
    VELM_CDeepCalls& operator=(const VELM_CDeepCalls&) = delete;

    // Makes sure that one more call can be made from the frame. Returns false when nMost calls are under way, or when
    // there is no memory for another one.
    bool Prepare(const void* pFrame, unsigned nMost)
    {
        if (m_nLevels == 0) {
            // If the frame is on a segment, less than nUnasked may be left there.
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
    // Whether a call can be made from the frame without a call of Prepare. An outermost call may use the stretch that
    // an earlier one has left behind, since that holds no more of the stack than was found to be there.
    bool IsPrepared(const void* pFrame, unsigned nMost) const
    {
        return m_nLevels < m_nMaxLevels && m_nLevels < nMost && HasRoom(pFrame);
    }
    // The number of calls under way, and their objects, outermost first. If a raise has left the innermost of them
    // since Prepare, the owner of this object removes them by Leave.
    unsigned Depth() const { return m_nLevels; }
    const VELM_CUnderWay& At(unsigned i) const { return m_levels[i + 1].object; }

    // After Prepare: whether the call can be made directly, between Enter and Leave. Leave takes the result of Enter.
    // Otherwise CallSlowly must make it.
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
    // Makes the call, on a segment if the stack requires it. Returns false without making it when there is no memory
    // for it any more.
    bool CallSlowly(const void* pFrame, const VELM_CUnderWay& object, void (*pfn)(void*), void* pArgument);

private:
    struct Segment;
    struct Stack;
    struct Stretch {
        std::uintptr_t nTop;  // the highest address of a frame
        std::uintptr_t nRoom; // frames lie less than so many bytes below nTop
        unsigned nFirst;      // the number of levels outside of the stretch

        bool Holds(std::uintptr_t nFrame) const { return nTop - nFrame < nRoom; }
    };

    // How many bytes of any stack the calls use without looking up which stack it is.
#ifdef __GLIBC__
    static const std::uintptr_t nUnasked = std::uintptr_t{4} << 10;
#else
    static const std::uintptr_t nUnasked = std::uintptr_t{64} << 10; // there are no segments
#endif

    static std::atomic<Segment*> s_pInUse; // the list of all segments in use, of all archives of the process

    struct Level {
        std::uintptr_t nFrame;
        VELM_CUnderWay object;
    };
    Level* m_levels = nullptr; // a sentinel with the highest address, then the calls under way, outermost first
    unsigned m_nLevels = 0;
    unsigned m_nMaxLevels = 0;
    Stretch m_stretch = {0, 0, 0}; // the stretch of the innermost call
    Segment* m_pFree = nullptr;    // the list of free segments, the one that was used last first

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
