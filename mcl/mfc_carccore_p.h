// The hidden state of an archive, as far as it concerns bytes and values; private to the library.
#ifndef TAVNOMCL_MFC_CARCCORE_P_H
#define TAVNOMCL_MFC_CARCCORE_P_H

#include <cstdarg>
#include <cstdint>

#include "mcl/mfc_carccore.h"
#include "mcl/mfc_cdeep_p.h"
#include "mcl/mfc_csavestate_p.h"

// A host's own library may lack these two functions. Without them an archive does not notice that a Serialize has
// caught a raise, and its error texts go on naming the objects that the raise has left.
extern "C" {
__attribute__((weak)) unsigned long long pfm_cleanup_mark();
__attribute__((weak)) int pfm_cleanup_holds(unsigned long long nMark);
}

// Lives as long as the archive: Abort, which may come in the middle of a load, does not delete it. What an archive
// knows of objects is in the derived class VELM_CArchiveGraph, of which every archive has one.
class VELM_LOCAL VELM_CArchiveState {
public:
    static VELM_CArchiveState& Of(VELM_CArchive& ar) { return *ar.m_pState; }

    explicit VELM_CArchiveState(VELM_CArchive& ar) : m_ar(ar) {}
    virtual ~VELM_CArchiveState();
    VELM_CArchiveState(const VELM_CArchiveState&) = delete;
    VELM_CArchiveState& operator=(const VELM_CArchiveState&) = delete;

    // The offset of the next byte in the stream. Loading, the difference is negative, and the sum is modulo 2^64.
    unsigned long long Offset() const
    {
        const unsigned char* const lpEnd = m_ar.IsInbound() ? m_ar.m_lpBufMax : m_ar.m_lpBufStart;
        return m_nFileBytes + static_cast<unsigned long long>(m_ar.m_lpBufCur - lpEnd);
    }
    // Sets the error text, for a failure at the present offset, without a raise. A storing archive is not whole from
    // then on.
    __attribute__((format(printf, 2, 3))) void Note(const char* lpszFormat, ...);
    // Sets the error text, for a failure at that offset inside the objects under way, and raises the cause. A storing
    // archive is not whole from then on.
    __attribute__((format(printf, 4, 5))) void Fail(int cause, unsigned long long nOffset, const char* lpszFormat, ...);
    // Fails because the value is not in the range.
    void FailRange(unsigned long long nOffset, unsigned nValue, unsigned nFirst, unsigned nLast);
    // The same as Note when storing; does nothing when loading.
    __attribute__((format(printf, 2, 3))) void Lose(const char* lpszFormat, ...);
    const char* ErrorText() const { return m_errorText; }
    int ErrorCause() const { return m_nErrorCause; }

    // A storing archive reports what it could not store to the save that its file is part of. It joins the save when it
    // is constructed or, if the file is not part of a save then, when it first writes to the file after that has
    // changed. Close and Abort end its part in the save.
    void JoinSave();
    void EndSave();
    // Storing: Begin is called before something is stored, and End only when all of it has been stored. If a raise, an
    // exception or a failed check comes in between, End is never called, and the archive is not whole.
    void Begin() { ++m_nBegun; }
    void End() { --m_nBegun; }
    bool IsWhole() { return !m_bLost && !m_bWriting && m_nBegun == Depth(); }

    // Reads from the file to rlpEnd, which moves on with the bytes that have come: until nRoom bytes, or at least
    // nEnough, have come, or the file delivers none. The file is called at least once.
    void ReadFile(unsigned char*& rlpEnd, unsigned nRoom, unsigned nEnough);
    void WriteFile(const unsigned char* lpBuf, unsigned nBytes);
    // Is called after the position of the file has been moved back to the first byte that was not delivered.
    void GiveBack() { m_nFileBytes = Offset(); }
    // Is called after the position of the file has been moved to that offset, when nothing is read ahead.
    void MoveTo(unsigned long long nOffset) { m_nFileBytes = nOffset; }
    // Loads a text of that length into a block from malloc, and puts a NUL behind it. The archive owns the block, so
    // that a raise loses nothing: until TakeText hands it over, or until the next text is loaded. Returns NULL when the
    // data ended before. The block grows only as data arrives.
    char* LoadText(uint32_t nLength);
    char* TakeText();
    // The same for a text whose length stands before it in the stream.
    const char* LoadPrefixed();

    void Hold(VELM_CHeld* pHeld);
    void DropHeld(VELM_CHeld* pHeld);
    // Whether the innermost object under way is loading into a held value.
    bool IsHolding() { return m_pHeld != nullptr && m_pHeld->m_nDepth == Depth(); }
    // Stops holding the value without deleting it. Somebody else deletes it.
    void Unhold(VELM_CHeld* pHeld);

    // The number of objects under way. Objects that a raise has left do not count: one knows them by the cleanup block
    // that was innermost when they began, which is gone.
    unsigned Depth() { return m_calls.Depth() == 0 ? 0 : DepthAt(Mark()); }
    // The innermost object under way; NULL when there is none.
    const VELM_CUnderWay* Innermost() { return Depth() == 0 ? nullptr : &m_calls.At(m_calls.Depth() - 1); }
    // Whether one more object can be stored or loaded inside those that are under way. The frame is that of the public
    // function that stores or loads it.
    __attribute__((always_inline)) bool HasDepth(const void* pFrame)
    {
        DepthAt(Mark());
        return m_calls.Prepare(pFrame, nMaxDepth);
    }
    // Requires HasDepth: otherwise raises 1, and returns false if the raise returns. The object begins at the offset.
    bool RequireDepth(unsigned long long nOffset, const void* pFrame)
    {
        if (HasDepth(pFrame))
            return true;
        FailDepth(nOffset);
        return false;
    }
    // True when a few comparisons are enough to show that RequireDepth would succeed. nMark is the present Mark().
    bool IsDepthReady(const void* pFrame, unsigned long long nMark) const
    {
        return m_calls.IsPrepared(pFrame, nMaxDepth) &&
               (m_calls.Depth() == 0 || m_calls.At(m_calls.Depth() - 1).nMark == nMark);
    }
    // Calls the object's Serialize, one level deeper. bHasRoom says that the stack is known to have room for the call.
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
    // A number that identifies the innermost cleanup block of the thread; always 0 when the host cannot tell.
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
    // Forgets the objects under way that a raise has left.
    void DropLeft();
    void SerializeSlowly(VELM_CObject& ob, const void* pFrame, const VELM_CUnderWay& object);

    VELM_CDeepCalls m_calls;
    unsigned long long m_nFileBytes = 0; // bytes read from the file or written to it
    VELM_CHeld* m_pHeld = nullptr;       // the list of held values, innermost first
    char* m_pText = nullptr;             // the block of LoadText
    VELM_CSaveState* m_pSave = nullptr;  // the save that the archive has joined; NULL for none
    bool m_bInSave = false;              // from JoinSave to EndSave
    bool m_bLost = false;
    bool m_bWriting = false; // while the file writes, and for good after a raise from there
    unsigned m_nBegun = 0;
    int m_nErrorCause = 0;
    char m_errorText[1024] = "";
};

#endif
