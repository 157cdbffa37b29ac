// Room on the stack for objects that are stored or loaded inside each other, however deep; private to the library.
//
// Each level is a call of a caller's Serialize, which calls WriteObject or ReadObject for the next one. When the calls
// of one archive have used their share of the stack that they are on, they go on on a segment of memory of their own,
// and when that is used up on a further one, and come back as the levels return:
//
//     the caller's stack          first segment            second segment
//     | ... | level 0 .. 299 |    | level 300 .. 1500 |    | level 1501 ..        |
//                       setcontext ->             setcontext ->
//
// A raise must not jump from one stack to another: the C library may refuse that, and the host's chain of cleanup
// blocks would lead to frames that are gone. So a block at the base of each segment catches it, and it is raised again
// on the stack below. A C++ exception cannot be passed on that way: where it comes to the base of a segment, it ends
// the process by std::terminate.
#ifndef TAVNOMCL_MFC_CDEEP_P_H
#define TAVNOMCL_MFC_CDEEP_P_H

#include <cstddef>
#include <cstdint>

#include "mcl/mfc_base.h"

class VELM_LOCAL VELM_CDeepCalls {
public:
    VELM_CDeepCalls() = default;
    ~VELM_CDeepCalls(); // no call is under way; all memory goes back
    VELM_CDeepCalls(const VELM_CDeepCalls&) = delete;
    VELM_CDeepCalls& operator=(const VELM_CDeepCalls&) = delete;

    // Makes sure that one more call can be made from the frame. False when there is no memory for it, or when as many
    // are under way as there may be; what a raise has left does not count.
    bool Prepare(const void* pFrame, unsigned nMost)
    {
        const std::uintptr_t nFrame = reinterpret_cast<std::uintptr_t>(pFrame);
        if (m_pSegment == nullptr && m_nLevels < m_nMaxLevels && m_nLevels < nMost) {
            if (m_nLevels == 0)
                return true;
            if (m_levels[m_nLevels - 1] > nFrame && m_levels[0] - nFrame < nShare)
                return true;
        }
        return PrepareSlowly(nFrame, nMost);
    }
    // How many calls are under way, after Prepare.
    unsigned Depth() const { return m_nLevels; }
    // One level deeper, which has been prepared for: true when the stack at hand has room for it, else CallOnSegment
    // makes the call. Leave comes after it.
    bool Enter(const void* pFrame)
    {
        m_levels[m_nLevels++] = reinterpret_cast<std::uintptr_t>(pFrame);
        return HasRoom(reinterpret_cast<std::uintptr_t>(pFrame));
    }
    void CallOnSegment(void (*pfn)(void*), void* pArgument);
    void Leave() { --m_nLevels; }

private:
    // What one archive's calls use of the caller's stack, of which nothing else is known: a thread may have little.
    static const std::uintptr_t nShare = std::uintptr_t{64} << 10;

    struct Segment;

    // The frames of the calls under way. One that a raise has left lies no higher than the frame of a later call on the
    // same stack: stacks grow downwards.
    std::uintptr_t* m_levels = nullptr;
    unsigned m_nLevels = 0;
    unsigned m_nMaxLevels = 0;
    Segment* m_pSegment = nullptr; // that the calls are on; NULL on the caller's stack
    Segment* m_pFirst = nullptr;   // they are kept in the order of their use until the end

    bool HasRoom(std::uintptr_t nFrame) const
    {
        return m_pSegment == nullptr ? m_nLevels == 0 || m_levels[0] - nFrame < nShare : SegmentHasRoom(nFrame);
    }
    bool SegmentHasRoom(std::uintptr_t nFrame) const;
    bool PrepareSlowly(std::uintptr_t nFrame, unsigned nMost);
    Segment* Next() const;
    bool AddSegment();
    static void Base(unsigned nHigh, unsigned nLow);
};

#endif
