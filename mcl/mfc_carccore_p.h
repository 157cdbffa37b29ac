// What an archive keeps to itself, besides its fields; private to the library.
#ifndef TAVNOMCL_MFC_CARCCORE_P_H
#define TAVNOMCL_MFC_CARCCORE_P_H

#include <cstdarg>
#include <cstdint>

#include "mcl/mfc_carccore.h"
#include "mcl/mfc_carcowner_p.h"
#include "mcl/mfc_carcstored_p.h"
#include "mcl/mfc_cdeep_p.h"
#include "mcl/mfc_crun.h"
#include "mcl/mfc_csavestate_p.h"

// A host's own library may lack these two: then a raise that a Serialize survives leaves its mark on the texts of
// errors.
extern "C" {
__attribute__((weak)) unsigned long long pfm_cleanup_mark();
__attribute__((weak)) int pfm_cleanup_holds(unsigned long long nMark);
}

// Belongs to the byte engine, and lives as long as the archive: also after Abort, which may come in the middle of a
// load.
class VELM_LOCAL VELM_CArchiveInside {
public:
    static VELM_CArchiveInside& Of(VELM_CArchive& ar) { return *ar.m_pInside; }

    explicit VELM_CArchiveInside(VELM_CArchive& ar) : m_ar(ar) {}
    ~VELM_CArchiveInside();
    VELM_CArchiveInside(const VELM_CArchiveInside&) = delete;
    VELM_CArchiveInside& operator=(const VELM_CArchiveInside&) = delete;

    // Where the next byte stands in the stream.
    unsigned long long Offset() const
    {
        const unsigned char* const lpEnd = m_ar.IsInbound() ? m_ar.m_lpBufMax : m_ar.m_lpBufStart;
        return m_nFileBytes + static_cast<unsigned long long>(m_ar.m_lpBufCur - lpEnd); // loading, modulo 2^64
    }
    // Notes what went wrong at the present offset. Storing, it is missing in the stream.
    __attribute__((format(printf, 2, 3))) void Note(const char* lpszFormat, ...);
    // Notes what went wrong there, and inside which objects, and raises the cause.
    __attribute__((format(printf, 4, 5))) void Fail(int cause, unsigned long long nOffset, const char* lpszFormat, ...);
    void FailRange(unsigned long long nOffset, unsigned nValue, unsigned nFirst, unsigned nLast);
    // Storing: notes that something is missing in the stream, which no raise says.
    __attribute__((format(printf, 2, 3))) void Lose(const char* lpszFormat, ...);
    const char* ErrorText() const { return m_errorText; }
    int ErrorCause() const { return m_nErrorCause; }

    // Storing: the save that the archive is part of, where the file has one, knows what it could not store.
    void JoinSave();
    void EndSave();
    // Storing: what has begun to be stored is begun here, and ended only when all of it is stored. So what a raise, an
    // exception or a failed check leaves stays begun.
    void Begin() { ++m_nBegun; }
    void End() { --m_nBegun; }
    bool IsWhole() { return !m_bLost && !m_bWriting && m_nBegun == Depth(); }

    // Reads from the file behind rlpEnd, and advances it with each byte that has come: until the room is full, enough
    // has come, or nothing more comes. One call is always made.
    void ReadFile(unsigned char*& rlpEnd, unsigned nRoom, unsigned nEnough);
    void WriteFile(const unsigned char* lpBuf, unsigned nBytes);
    // The position of the file has been moved back to the first byte that was not delivered.
    void GiveBack() { m_nFileBytes = Offset(); }
    // It has been moved to that offset, and nothing is read ahead.
    void MoveTo(unsigned long long nOffset) { m_nFileBytes = nOffset; }
    // Loads a text, with a final NUL behind it, into a block of malloc that belongs to the archive until it is taken or
    // the next text comes: what raises while it arrives loses nothing. NULL when the data ended before. Memory grows
    // only as data arrives.
    char* LoadText(uint32_t nLength);
    char* TakeText();
    // The same with a text that was stored with its length.
    const char* LoadPrefixed();

    void Hold(VELM_CHeld* pHeld);
    void DropHeld(VELM_CHeld* pHeld);
    // Whether the object under way loads into something that is held.
    bool IsHolding() { return m_pHeld != nullptr && m_pHeld->m_nDepth == Depth(); }
    // It is no longer held, and somebody else's to delete.
    void Unhold(VELM_CHeld* pHeld);

    // What the object under way may own. Raises 5 otherwise, or 1 when storing; false when that returns.
    bool RefuseNull(unsigned long long nOffset);
    bool RequireOwnable(const VELM_CObject* pOb, unsigned nIndex, bool bMapped, VELM_CArchive::Owner kind,
                        unsigned long long nOffset);
    // Storing, with a class table: raises 1 for what a program with that table could not load; false when that returns.
    bool RequireLoadable(const VELM_CRuntimeClass& cls, const VELM_CObject* pOb);
    // Raises 5 when no index is left; false when that returns.
    bool RequireIndex()
    {
        if (m_ar.m_nIndexCount < VELM_CArchive::nIndexLimit)
            return true;
        FailIndex();
        return false;
    }
    // Gives the next index, once its place is there.
    unsigned TakeIndex() { return m_ar.m_nIndexCount++; }
    // The number of objects under way. What a raise has left does not count: the block that was innermost then is gone.
    unsigned Depth() { return m_calls.Depth() == 0 ? 0 : DepthAt(Mark()); }
    // The innermost; NULL outside of all.
    const VELM_CUnderWay* Innermost() { return Depth() == 0 ? nullptr : &m_calls.At(m_calls.Depth() - 1); }
    // Whether a further object can be stored or loaded inside those that are under way, seen from the frame of the
    // operation.
    __attribute__((always_inline)) bool HasDepth(const void* pFrame)
    {
        DepthAt(Mark());
        return m_calls.Prepare(pFrame, nMaxDepth);
    }
    // Raises 1 for that; false when it returns. The offset is that of the object's start.
    bool RequireDepth(unsigned long long nOffset, const void* pFrame)
    {
        if (HasDepth(pFrame))
            return true;
        FailDepth(nOffset);
        return false;
    }
    // Storing: WriteObject for an object that has an entry in the store map, and no index yet.
    void WriteNew(const VELM_CObject* pOb, VELM_CPtrAssoc* pAssoc, uint32_t* pIndex, unsigned nMoves,
                  const void* pFrame);
    void WriteOfClass(const VELM_CObject* pOb, const VELM_CRuntimeClass* pClassRef, VELM_CPtrAssoc* pAssoc,
                      const void* pFrame);
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
    static unsigned long long Mark() { return pfm_cleanup_mark == nullptr ? 0 : pfm_cleanup_mark(); }

    VELM_CStoredIndexes stored;
    // The store map as the object that it is: it can be deleted so by who knows nothing of maps.
    VELM_CObject* pStoreMap = nullptr;
    unsigned nMaxDepth = 1000000;
    bool bAborted = false;
    VELM_COwners owners;
    const VELM_CClassTable* pStoredClasses = nullptr; // what may be stored; NULL for everything

private:
    void FailIndex();
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

    VELM_CArchive& m_ar;
    VELM_CDeepCalls m_calls;
    unsigned long long m_nFileBytes = 0; // that went through the file
    VELM_CHeld* m_pHeld = nullptr;       // innermost first
    char* m_pText = nullptr;
    VELM_CSaveState* m_pSave = nullptr; // of the Open that the archive is part of
    bool m_bInSave = false;             // from there on, until the archive ends
    bool m_bLost = false;
    bool m_bWriting = false; // while the file writes, and after a raise from there
    unsigned m_nBegun = 0;
    int m_nErrorCause = 0;
    char m_errorText[1024] = "";
};

#endif
