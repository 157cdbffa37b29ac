// What an archive keeps to itself for its bytes and values, besides its fields; private to the library.
#ifndef TAVNOMCL_MFC_CARCCORE_P_H
#define TAVNOMCL_MFC_CARCCORE_P_H

#include <cstdarg>
#include <cstdint>

#include "mcl/mfc_carccore.h"
#include "mcl/mfc_cdeep_p.h"
#include "mcl/mfc_csavestate_p.h"

// A host's own library may lack these two functions. Without them an error text goes on naming the objects that were
// under way when a Serialize survived a raise.
extern "C" {
__attribute__((weak)) unsigned long long pfm_cleanup_mark();
__attribute__((weak)) int pfm_cleanup_holds(unsigned long long nMark);
}

// Lives as long as the archive, also after Abort, which may come in the middle of a load. What an archive knows of
// objects is in the class derived from it, VELM_CArchiveGraph.
class VELM_LOCAL VELM_CArchiveState {
public:
    static VELM_CArchiveState& Of(VELM_CArchive& ar) { return *ar.m_pState; }

    explicit VELM_CArchiveState(VELM_CArchive& ar) : m_ar(ar) {}
    virtual ~VELM_CArchiveState();
    VELM_CArchiveState(const VELM_CArchiveState&) = delete;
    VELM_CArchiveState& operator=(const VELM_CArchiveState&) = delete;

    // Where the next byte stands in the stream.
    unsigned long long Offset() const
    {
        const unsigned char* const lpEnd = m_ar.IsInbound() ? m_ar.m_lpBufMax : m_ar.m_lpBufStart;
        return m_nFileBytes + static_cast<unsigned long long>(m_ar.m_lpBufCur - lpEnd); // loading, modulo 2^64
    }
    // Notes what went wrong at the present offset, without a raise. A storing archive is not whole from then on.
    __attribute__((format(printf, 2, 3))) void Note(const char* lpszFormat, ...);
    // Notes what went wrong at that offset, and inside which objects, and raises the cause.
    __attribute__((format(printf, 4, 5))) void Fail(int cause, unsigned long long nOffset, const char* lpszFormat, ...);
    void FailRange(unsigned long long nOffset, unsigned nValue, unsigned nFirst, unsigned nLast);
    // As Note, for a storing archive; a loading one ignores it.
    __attribute__((format(printf, 2, 3))) void Lose(const char* lpszFormat, ...);
    const char* ErrorText() const { return m_errorText; }
    int ErrorCause() const { return m_nErrorCause; }

    // A storing archive tells the save that its file is part of what it could not store. It joins that save when it
    // begins, or when the file has one later on, and leaves it when it ends.
    void JoinSave();
    void EndSave();
    // Storing: Begin is called before something is stored, and End only when all of it has been. What a raise, an
    // exception or a failed check interrupts is never ended.
    void Begin() { ++m_nBegun; }
    void End() { --m_nBegun; }
    bool IsWhole() { return !m_bLost && !m_bWriting && m_nBegun == Depth(); }

    // Reads from the file to rlpEnd, and advances it by each byte that has come: until the room is full, enough has
    // come, or nothing more comes. The file is called at least once.
    void ReadFile(unsigned char*& rlpEnd, unsigned nRoom, unsigned nEnough);
    void WriteFile(const unsigned char* lpBuf, unsigned nBytes);
    // The position of the file has been moved back to the first byte that was not delivered.
    void GiveBack() { m_nFileBytes = Offset(); }
    // Loads a text and puts a NUL behind it. The block, of malloc, belongs to the archive until TakeText or the next
    // text, so that a raise loses nothing. NULL when the data ended before. Memory grows only as data arrives.
    char* LoadText(uint32_t nLength);
    char* TakeText();
    // The same for a text that was stored with its length.
    const char* LoadPrefixed();

    void Hold(VELM_CHeld* pHeld);
    void DropHeld(VELM_CHeld* pHeld);
    // Whether the object under way loads into something that is held.
    bool IsHolding() { return m_pHeld != nullptr && m_pHeld->m_nDepth == Depth(); }
    // The archive no longer holds it, and somebody else deletes it.
    void Unhold(VELM_CHeld* pHeld);

    // The number of objects under way. Those that a raise has left do not count: the cleanup block that was innermost
    // when they began is gone.
    unsigned Depth() { return m_calls.Depth() == 0 ? 0 : DepthAt(Mark()); }
    // The innermost object under way; NULL where there is none.
    const VELM_CUnderWay* Innermost() { return Depth() == 0 ? nullptr : &m_calls.At(m_calls.Depth() - 1); }
    // Whether a further object can be stored or loaded inside those that are under way. The frame is that of the
    // operation.
    __attribute__((always_inline)) bool HasDepth(const void* pFrame)
    {
        DepthAt(Mark());
        return m_calls.Prepare(pFrame, nMaxDepth);
    }
    // Raises 1 where that is not so; false when the raise returns. The offset is that of the object's start.
    bool RequireDepth(unsigned long long nOffset, const void* pFrame)
    {
        if (HasDepth(pFrame))
            return true;
        FailDepth(nOffset);
        return false;
    }
    // Whether RequireDepth would succeed, as far as a few comparisons tell; nMark is the present one.
    bool IsDepthReady(const void* pFrame, unsigned long long nMark) const
    {
        return m_calls.IsPrepared(pFrame, nMaxDepth) &&
               (m_calls.Depth() == 0 || m_calls.At(m_calls.Depth() - 1).nMark == nMark);
    }
    // Calls the object's Serialize, one level deeper.
    __attribute__((always_inline)) void Serialize(VELM_CObject& ob, const void* pFrame, const VELM_CUnderWay& object,
                                                  bool bHasRoom = false)
    {
        if (!bHasRoom && !m_calls.HasRoom(pFrame)) {
            SerializeSlowly(ob, pFrame, object);
            return;
        }
        struct Level {
            VELM_CDeepCalls& calls;
            const unsigned nOuter;
            ~Level() { calls.Leave(nOuter); } // also where a C++ exception passes
        } level = {m_calls, m_calls.Enter(pFrame, object)};
        ob.Serialize(m_ar);
    }
    // Names the innermost cleanup block of the thread.
    static unsigned long long Mark() { return pfm_cleanup_mark == nullptr ? 0 : pfm_cleanup_mark(); }

    unsigned nMaxDepth = 1000000;
    bool bAborted = false;

protected:
    VELM_CArchive& m_ar;

private:
    void FailDepth(unsigned long long nOffset);
    void Explain(unsigned long long nOffset, const char* lpszFormat, va_list args);
    void NoteLoss();
    unsigned DepthAt(unsigned long long nMark)
    {
        if (m_calls.Depth() > 0 && m_calls.At(m_calls.Depth() - 1).nMark != nMark)
            DropLeft();
        return m_calls.Depth();
    }
    void DropLeft();
    void SerializeSlowly(VELM_CObject& ob, const void* pFrame, const VELM_CUnderWay& object);

    VELM_CDeepCalls m_calls;
    unsigned long long m_nFileBytes = 0; // that went through the file
    VELM_CHeld* m_pHeld = nullptr;       // innermost first
    char* m_pText = nullptr;
    VELM_CSaveState* m_pSave = nullptr; // of the Open that the archive is part of
    bool m_bInSave = false;             // from JoinSave to EndSave
    bool m_bLost = false;
    bool m_bWriting = false; // while the file writes, and after a raise from there
    unsigned m_nBegun = 0;
    int m_nErrorCause = 0;
    char m_errorText[1024] = "";
};

#endif
