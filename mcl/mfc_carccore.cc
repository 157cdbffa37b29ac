// The bytes of an archive, and the encodings of its values: each encoder stands beside its decoder.
//
// The texts of the assertions are an interface: an assertion passes its condition to pfm_assert_fail as it stands in
// the source, and programs compare that text. So the conditions must not change, down to their blanks.
#define VELM_EMIT_INLINES
#include "mcl/mfc_carccore.h"

#include <algorithm>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "mcl/mfc_carccore_p.h"
#include "mcl/mfc_cstring_p.h"
#include "mcl/mfc_memory.h"

// Names that occur in the texts of the assertions.
using UINT = unsigned;
using TCHAR = char;
#undef FALSE
static const int FALSE = 0;

const int nMinBufSize = 128;
const unsigned nCountEscape = 0xFFFF;       // a count from here on takes 8 bytes: this value, then the count
const unsigned nStringPrefixShort = 0xFF;   // the length of a string from here on takes 5 bytes
const unsigned nStringEscape = 0xFFFE;      // and from here on 9 bytes
const unsigned nLineChunk = 128;            // how many characters of a line are read at a time
const unsigned nFirstRoom = 4096;           // bytes of memory that a length is worth before any data has come
const unsigned nRoomFactor = 16;            // and afterwards: how many times as many as have come
const unsigned nMostPerTransfer = 1u << 30; // bytes that one call of Read or Write moves

VELM_CHeld::~VELM_CHeld()
{
}

VELM_CArchive::VELM_CArchive(VELM_CFile* pFile, unsigned nMode, int nBufSize, void* lpBuf)
    : m_pReserved(nullptr), m_nReserved(1), m_bDirectBuffer(FALSE), m_nCurSchema(0xFFFFFFFF),
      m_strFileName(pFile == nullptr ? VELM_CString() : pFile->GetFilePath()), m_nMode(nMode), m_bCallerBuf(1),
      m_nBufSize(nBufSize), m_pFile(pFile), m_lpBufStart(static_cast<unsigned char*>(lpBuf)), m_nIndexCount(0),
      m_pStoreMap(nullptr), m_pLoader(nullptr), m_nMapGrowth(nMode != store ? 64 : 16), m_nMapBuckets(137),
      m_nDataEnd(dataGoesOn), m_pState(NewState())
{
    if (nBufSize < nMinBufSize) {
        m_nBufSize = nMinBufSize;
        m_lpBufStart = nullptr;
    }
    if (m_lpBufStart == nullptr) {
        m_lpBufStart = new (std::nothrow) unsigned char[static_cast<size_t>(m_nBufSize)];
        m_bCallerBuf = 0;
    }
    if (m_lpBufStart == nullptr || m_pState == nullptr) { // no destructor runs after a raise in a constructor
        if (!m_bCallerBuf)
            delete[] m_lpBufStart;
        delete m_pState;
        m_strFileName.~VELM_CString();
        AfxMemoryExhausted();
    }
    VELM_ASSERT(m_lpBufStart != NULL);
    m_lpBufMax = m_lpBufStart + m_nBufSize;
    m_lpBufCur = IsInbound() ? m_lpBufMax : m_lpBufStart;
    VELM_ASSERT(m_pStoreMap == NULL);
    m_pState->JoinSave();
}

VELM_CArchive::~VELM_CArchive()
{
    int nRaised = 0;
    if (m_pFile != nullptr && (m_nMode & noFlushOnDestroy) == 0)
        nRaised = pfm_protect([this] { Flush(); });
    Abort();
    delete m_pState;
    if (nRaised != 0) { // the raise jumps out of here, before the member is destroyed
        std::free(m_strFileName.m_data);
        m_strFileName.m_data = nullptr;
        pfm_raise(nRaised);
    }
}

VELM_CArchiveState::~VELM_CArchiveState()
{
    while (m_pHeld != nullptr)
        DropHeld(m_pHeld);
    std::free(m_pText);
    if (m_pSave != nullptr)
        m_pSave->Release();
}

void VELM_CArchive::Abort()
{
    if (!IsInbound() && m_lpBufCur != m_lpBufStart)
        m_pState->Lose("%lu bytes were dropped unwritten", static_cast<unsigned long>(m_lpBufCur - m_lpBufStart));
    else if (!m_pState->bAborted && m_pState->Depth() > 0)
        m_pState->Lose("an object was not stored"); // not as a whole, whatever has reached the file
    m_pState->EndSave();
    m_pState->bAborted = true;
    m_pFile = nullptr;
    m_lpBufCur = m_lpBufMax = m_lpBufStart; // nothing is left in the buffer, and nothing more goes into it
    if (!m_bCallerBuf) {
        VELM_ASSERT(!m_bDirectBuffer);
        delete[] m_lpBufStart;
        m_lpBufStart = m_lpBufCur = m_lpBufMax = nullptr;
    }
    DropObjects();
}

void VELM_CArchive::Close()
{
    Flush();
    m_pState->EndSave();
    m_pFile = nullptr;
    m_lpBufCur = m_lpBufMax =
        m_lpBufStart; // without room, whatever is stored later goes to Write, which notes the loss
}

void VELM_CArchiveState::JoinSave()
{
    VELM_CSaveState* const pSave = m_ar.IsInbound() || m_ar.m_pFile == nullptr ? nullptr : m_ar.m_pFile->GetSaveState();
    if (m_pSave != nullptr || pSave == nullptr)
        return;
    pSave->Hold();
    pSave->BeginArchive();
    m_pSave = pSave;
    m_bInSave = true;
    if (m_bLost)
        pSave->Lose(m_errorText);
}

void VELM_CArchiveState::EndSave()
{
    if (!m_bInSave)
        return;
    if (!IsWhole() && !m_bLost)
        Lose("a raise has left something half stored");
    m_bInSave = false;
    m_pSave->EndArchive();
}

int VELM_CArchive::IsWhole() const
{
    return IsInbound() || m_pState->IsWhole();
}

void VELM_CArchiveState::ReadFile(unsigned char*& rlpEnd, unsigned nRoom, unsigned nEnough)
{
    unsigned n;
    do {
        n = m_ar.m_pFile == nullptr ? 0 : m_ar.m_pFile->Read(rlpEnd, nRoom);
        if (n > nRoom)
            n = nRoom;
        rlpEnd += n;
        m_nFileBytes += n;
        nRoom -= n;
        nEnough -= n < nEnough ? n : nEnough;
    } while (n > 0 && nRoom > 0 && nEnough > 0);
}

void VELM_CArchiveState::WriteFile(const unsigned char* lpBuf, unsigned nBytes)
{
    JoinSave();
    VELM_CSaveState* const pSave = m_ar.m_pFile->GetSaveState();
    if (pSave != m_pSave && pSave != nullptr)
        pSave->Lose("an archive that was made for an earlier save has written to the file");
    const bool bLeft = m_bWriting;
    m_bWriting = true;
    m_ar.m_pFile->Write(lpBuf, nBytes);
    m_bWriting = bLeft;
    m_nFileBytes += nBytes;
}

void VELM_CArchiveState::Fail(int cause, unsigned long long nOffset, const char* lpszFormat, ...)
{
    va_list args;
    va_start(args, lpszFormat);
    Explain(nOffset, lpszFormat, args);
    va_end(args);
    NoteLoss();
    m_nErrorCause = cause;
    AfxThrowArchiveException(cause, m_ar.m_strFileName.m_data);
}

void VELM_CArchiveState::Note(const char* lpszFormat, ...)
{
    va_list args;
    va_start(args, lpszFormat);
    Explain(Offset(), lpszFormat, args);
    va_end(args);
    NoteLoss();
}

void VELM_CArchiveState::Lose(const char* lpszFormat, ...)
{
    if (m_ar.IsInbound())
        return;
    va_list args;
    va_start(args, lpszFormat);
    Explain(Offset(), lpszFormat, args);
    va_end(args);
    NoteLoss();
}

void VELM_CArchiveState::NoteLoss()
{
    if (m_ar.IsInbound())
        return;
    m_bLost = true;
    if (m_pSave != nullptr)
        m_pSave->Lose(m_errorText);
}

// Sets the error text: the offset, what is wrong there, and the objects under way, innermost first. If there are many
// of these, those in the middle are only counted.
void VELM_CArchiveState::Explain(unsigned long long nOffset, const char* lpszFormat, va_list args)
{
    const unsigned nInner = 6, nOuter = 2;
    m_nErrorCause = 0;
    size_t n = 0;
    const auto Advance = [&](int nPrinted) {
        n += nPrinted > 0 ? static_cast<size_t>(nPrinted) : 0;
        n = n < sizeof m_errorText ? n : sizeof m_errorText - 1;
    };
    Advance(std::snprintf(m_errorText, sizeof m_errorText, "offset %llu: ", nOffset));
    Advance(std::vsnprintf(m_errorText + n, sizeof m_errorText - n, lpszFormat, args));
    for (unsigned nDepth = Depth(), i = nDepth; i-- > 0;) {
        const unsigned nSkipped = nDepth - nInner - nOuter;
        if (i == nDepth - 1 - nInner && nDepth > nInner + nOuter + 1) {
            Advance(std::snprintf(m_errorText + n, sizeof m_errorText - n, " in %u more", nSkipped));
            i = nOuter;
            continue;
        }
        Advance(std::snprintf(m_errorText + n, sizeof m_errorText - n, "%s in %.80s (%s%u)", i == nDepth - 1 ? "," : "",
                              m_calls.At(i).pClass->m_pszName, i == nDepth - 1 ? "index " : "", m_calls.At(i).nIndex));
    }
    for (char* p = m_errorText; *p != '\0'; ++p) { // the name of a class may hold any byte
        if (*p < ' ' || *p > '~')
            *p = '?';
    }
}

void VELM_CArchive::NoteLoss(const char* lpszText)
{
    m_pState->Lose("%s", lpszText);
}

void VELM_CArchive::RaiseInvalid(const char* lpszText)
{
    m_pState->Fail(VELM_CArchiveException::causeGeneric, m_pState->Offset(), "%s", lpszText);
}

void VELM_CArchive::RaiseBadIndex(const char* lpszText)
{
    m_pState->Fail(VELM_CArchiveException::causeBadIndex, m_pState->Offset(), "%s", lpszText);
}

unsigned VELM_CArchive::GetSchema() const
{
    const VELM_CUnderWay* const pInnermost = m_pState->Innermost();
    return pInnermost == nullptr ? 0xFFFFFFFF : pInnermost->nSchema;
}

unsigned VELM_CArchive::SerializeVersion(const char* lpszName, unsigned nNewest)
{
    if (!IsInbound()) {
        Store32(nNewest);
        return nNewest;
    }
    uint32_t nVersion;
    if (!Load32(nVersion)) {
        RaiseDataEnded();
        return 0;
    }
    if (nVersion <= nNewest)
        return nVersion;
    m_pState->Fail(VELM_CArchiveException::causeGeneric, m_pState->Offset() - 4,
                   "\"%s\" has version %u; the newest known is %u", lpszName, nVersion, nNewest);
    return 0;
}

void VELM_CArchiveState::DropLeft()
{
    unsigned n = m_calls.Depth();
    while (n > 0 && !pfm_cleanup_holds(m_calls.At(n - 1).nMark))
        --n;
    m_calls.Leave(n);
}

void VELM_CArchiveState::FailDepth(unsigned long long nOffset)
{
    const unsigned nDepth = m_calls.Depth();
    Fail(VELM_CArchiveException::causeGeneric, nOffset,
         nDepth < nMaxDepth ? "there is no memory for objects nested deeper than %u"
                            : "objects are nested deeper than %u",
         nDepth);
}

void VELM_CArchiveState::SerializeSlowly(VELM_CObject& ob, const void* pFrame, const VELM_CUnderWay& object)
{
    struct Arguments {
        VELM_CObject& ob;
        VELM_CArchive& ar;
    } arguments = {ob, m_ar};
    const auto call = [](void* p) {
        Arguments& a = *static_cast<Arguments*>(p);
        a.ob.Serialize(a.ar);
    };
    if (!m_calls.CallSlowly(pFrame, object, call, &arguments))
        FailDepth(Offset());
}

int VELM_CArchive::GetErrorCause() const
{
    return m_pState->ErrorCause();
}

const char* VELM_CArchive::GetErrorText() const
{
    return m_pState->ErrorText();
}

void VELM_CArchiveState::Hold(VELM_CHeld* pHeld)
{
    pHeld->m_pOuter = m_pHeld;
    pHeld->m_nDepth = Depth();
    m_pHeld = pHeld;
}

void VELM_CArchiveState::DropHeld(VELM_CHeld* pHeld)
{
    Unhold(pHeld);
    delete pHeld;
}

// Raises may have left values that were held after this one, and come before it in the list. These stay held, since the
// file may refer to objects in them.
void VELM_CArchiveState::Unhold(VELM_CHeld* pHeld)
{
    VELM_CHeld** ppHeld = &m_pHeld;
    while (*ppHeld != pHeld)
        ppHeld = &(*ppHeld)->m_pOuter;
    *ppHeld = pHeld->m_pOuter;
}

void VELM_CArchive::DropHeld(VELM_CHeld* pHeld)
{
    m_pState->DropHeld(pHeld);
}

unsigned long long VELM_CArchive::GetOffset() const
{
    return m_pState->Offset();
}

int VELM_CArchive::SeekTo(unsigned long long nOffset)
{
    if (!IsInbound() || m_pFile == nullptr || !CheckBuffer())
        return 0;
    const unsigned long long nAhead = nOffset - GetOffset(); // backwards: very large
    if (nAhead <= static_cast<unsigned long long>(m_lpBufMax - m_lpBufCur)) {
        m_lpBufCur += nAhead;
        m_nDataEnd = dataGoesOn;
        return 1;
    }
    Flush();
    const long long nWay = static_cast<long long>(nOffset - GetOffset());
    if (nWay < LONG_MIN || nWay > LONG_MAX || m_pFile->Seek(static_cast<long>(nWay), VELM_CFile::seekCurrent) != 0)
        return 0;
    m_pState->MoveTo(nOffset);
    return 1;
}

bool VELM_CArchive::CheckBuffer() const
{
    const bool bStart = VELM_ASSERT(m_bDirectBuffer || m_lpBufStart != NULL);
    const bool bCur = VELM_ASSERT(m_bDirectBuffer || m_lpBufCur != NULL);
    return bStart && bCur;
}

unsigned VELM_CArchive::Read(void* lpBuf, unsigned nMax)
{
    if (nMax == 0)
        return 0;
    const bool bCaller = VELM_ASSERT(lpBuf != NULL);
    const bool bBuffer = CheckBuffer();
    VELM_ASSERT(IsLoading());
    if (!bCaller || !bBuffer || !IsInbound())
        return 0;

    unsigned char* lpTo = static_cast<unsigned char*>(lpBuf);
    unsigned nMaxTemp = nMax;
    const auto Deliver = [&] { // copies what has been read ahead, as far as it is wanted
        const unsigned nAhead = static_cast<unsigned>(m_lpBufMax - m_lpBufCur);
        const unsigned n = nAhead < nMaxTemp ? nAhead : nMaxTemp;
        std::memcpy(lpTo, m_lpBufCur, n);
        m_lpBufCur += n;
        lpTo += n;
        nMaxTemp -= n;
    };
    Deliver();
    if (nMaxTemp != 0) {
        VELM_ASSERT(m_lpBufCur == m_lpBufMax);
        const unsigned nDirect = nMaxTemp - nMaxTemp % static_cast<unsigned>(m_nBufSize);
        const unsigned char* const lpDirect = lpTo;
        m_pState->ReadFile(lpTo, nDirect, nDirect);
        const unsigned nCame = static_cast<unsigned>(lpTo - lpDirect);
        nMaxTemp -= nCame;
        if (nCame == nDirect) {
            VELM_ASSERT(m_lpBufCur == m_lpBufMax);
            VELM_ASSERT(nMaxTemp < (UINT)m_nBufSize);
            m_lpBufCur = m_lpBufMax = m_lpBufStart;
            m_pState->ReadFile(m_lpBufMax, static_cast<unsigned>(m_nBufSize), nMaxTemp);
            Deliver();
        }
    }
    return nMax - nMaxTemp;
}

void VELM_CArchive::Write(const void* lpBuf, unsigned nMax)
{
    if (nMax == 0)
        return;
    const bool bCaller = VELM_ASSERT(lpBuf != NULL);
    VELM_ASSERT(AfxIsValidAddress(lpBuf, nMax, FALSE));
    const bool bBuffer = CheckBuffer();
    VELM_ASSERT(m_lpBufStart == NULL || AfxIsValidAddress(m_lpBufStart, m_lpBufMax - m_lpBufStart));
    VELM_ASSERT(m_lpBufCur == NULL || AfxIsValidAddress(m_lpBufCur, m_lpBufMax - m_lpBufCur));
    VELM_ASSERT(IsStoring());
    if (!bCaller || !bBuffer || IsInbound() || m_pFile == nullptr) {
        m_pState->Lose("%u bytes were not stored", nMax);
        return;
    }

    const unsigned char* lpFrom = static_cast<const unsigned char*>(lpBuf);
    const auto Take = [&](unsigned n) {
        std::memcpy(m_lpBufCur, lpFrom, n);
        m_lpBufCur += n;
        lpFrom += n;
        nMax -= n;
    };
    const unsigned nRoom = static_cast<unsigned>(m_lpBufMax - m_lpBufCur);
    Take(nRoom < nMax ? nRoom : nMax);
    if (nMax == 0)
        return;
    Flush();
    const unsigned nDirect = nMax - nMax % static_cast<unsigned>(m_nBufSize);
    m_pState->WriteFile(lpFrom, nDirect);
    lpFrom += nDirect;
    nMax -= nDirect;
    const bool bFits = VELM_ASSERT(nMax < (UINT)m_nBufSize);
    const bool bFlushed = VELM_ASSERT(m_lpBufCur == m_lpBufStart);
    if (bFits && bFlushed)
        Take(nMax);
    else
        m_pState->Lose("%u bytes were not stored", nMax);
}

void VELM_CArchive::Flush()
{
    const bool bBuffer = CheckBuffer();
    VELM_ASSERT(m_lpBufStart == NULL || AfxIsValidAddress(m_lpBufStart, m_lpBufMax - m_lpBufStart, IsStoring()));
    VELM_ASSERT(m_lpBufCur == NULL || AfxIsValidAddress(m_lpBufCur, m_lpBufMax - m_lpBufCur, IsStoring()));
    if (!bBuffer || m_pFile == nullptr)
        return;
    if (IsInbound()) {
        if (m_lpBufCur != m_lpBufMax)
            m_pFile->Seek(static_cast<long>(m_lpBufCur - m_lpBufMax), 1);
        m_pState->GiveBack();
        m_lpBufCur = m_lpBufMax;
        m_nDataEnd = dataGoesOn;
    } else if (m_lpBufCur != m_lpBufStart) {
        m_pState->WriteFile(m_lpBufStart, static_cast<unsigned>(m_lpBufCur - m_lpBufStart));
        m_lpBufCur = m_lpBufStart;
    }
}

void VELM_CArchive::FillBuffer(unsigned nBytesNeeded)
{
    VELM_ASSERT(IsLoading());
    const bool bBuffer = CheckBuffer();
    VELM_ASSERT(nBytesNeeded > 0);
    VELM_ASSERT(nBytesNeeded <= (UINT)m_nBufSize);
    VELM_ASSERT(m_lpBufStart == NULL || AfxIsValidAddress(m_lpBufStart, m_lpBufMax - m_lpBufStart, FALSE));
    VELM_ASSERT(m_lpBufCur == NULL || AfxIsValidAddress(m_lpBufCur, m_lpBufMax - m_lpBufCur, FALSE));
    const bool bCur = VELM_ASSERT(m_lpBufCur != NULL);
    const bool bStart = VELM_ASSERT(m_lpBufStart != NULL);
    const bool bMax = VELM_ASSERT(m_lpBufMax != NULL);
    if (!bBuffer || !bCur || !bStart || !bMax || !IsInbound())
        return;

    if (m_lpBufCur > m_lpBufStart) {
        const unsigned nKept = static_cast<unsigned>(m_lpBufMax - m_lpBufCur);
        std::memmove(m_lpBufStart, m_lpBufCur, nKept);
        m_lpBufCur = m_lpBufStart;
        m_lpBufMax = m_lpBufStart + nKept;
        const unsigned nMore = nBytesNeeded > nKept ? nBytesNeeded - nKept : 0;
        m_pState->ReadFile(m_lpBufMax, static_cast<unsigned>(m_nBufSize) - nKept, nMore);
    }
    const unsigned nAvailable = static_cast<unsigned>(m_lpBufMax - m_lpBufCur);
    if (nAvailable < nBytesNeeded)
        m_pState->Fail(VELM_CArchiveException::causeEndOfFile, m_pState->Offset() + nAvailable, "the data ends");
}

unsigned long VELM_CArchive::LoadBlock(void* lpBuf, unsigned long nBytes)
{
    unsigned long nHave = 0;
    // On an archive that cannot load, Read is called in any case, so that its assertion reports each attempt.
    bool bCame = nBytes == 0 || m_nDataEnd == dataGoesOn || !IsLoading();
    while (bCame && nHave < nBytes) {
        const unsigned nPart = static_cast<unsigned>(std::min<unsigned long>(nBytes - nHave, nMostPerTransfer));
        const unsigned n = Read(static_cast<unsigned char*>(lpBuf) + nHave, nPart);
        nHave += n;
        bCame = n == nPart;
    }
    if (!bCame && IsInbound())
        m_nDataEnd = dataEnded;
    return nHave;
}

unsigned long VELM_CArchive::TryLoadBlock(void* lpBuf, unsigned long nBytes, int& rRaised)
{
    volatile unsigned long nCame = 0;
    rRaised = pfm_protect([&] { nCame = LoadBlock(lpBuf, nBytes); });
    return nCame;
}

void VELM_CArchive::StoreBlock(const void* lpBuf, unsigned long nBytes)
{
    for (const unsigned char* lpFrom = static_cast<const unsigned char*>(lpBuf); nBytes > 0;) {
        const unsigned n = static_cast<unsigned>(std::min<unsigned long>(nBytes, nMostPerTransfer));
        Write(lpFrom, n);
        lpFrom += n;
        nBytes -= n;
    }
}

int VELM_CArchive::LoadWhole(void* lpBuf, unsigned nBytes)
{
    return LoadBlock(lpBuf, nBytes) == nBytes;
}

unsigned long long VELM_CArchive::RoomFor(unsigned long long nCame, unsigned long long nTotal)
{
    const unsigned long long nMost = std::max<unsigned long long>(nFirstRoom, nRoomFactor * nCame);
    while (nTotal > nMost)
        nTotal = (nTotal - 1) / nRoomFactor + 1;
    return nTotal;
}

void VELM_CArchive::RaiseDataEnded()
{
    if (m_nDataEnd != dataEnded)
        return;
    m_nDataEnd = dataEndRaised;
    m_pState->Fail(VELM_CArchiveException::causeEndOfFile, m_pState->Offset(), "the data ends");
}

void VELM_CArchive::WriteCount(unsigned long dwCount)
{
    if (!VELM_ASSERT(dwCount <= 0xFFFFFFFF)) {
        RaiseInvalid("the count does not fit into 4 bytes");
        return;
    }
    if (dwCount >= nCountEscape)
        Store32(nCountEscape);
    Store32(static_cast<uint32_t>(dwCount));
}

// Loads a 32-bit value or, if that is the escape, the 32-bit value behind it.
static bool LoadEscaped(VELM_CArchive& ar, uint32_t& rCount)
{
    return ar.Load32(rCount) && (rCount != nCountEscape || ar.Load32(rCount));
}

unsigned long VELM_CArchive::ReadCount()
{
    uint32_t nCount;
    if (LoadEscaped(*this, nCount))
        return nCount;
    RaiseDataEnded();
    return 0;
}

void VELM_CArchive::StorePrefixed(const char* lpch, unsigned long nLength)
{
    if (nLength < nStringPrefixShort && IsStoring() && nLength < static_cast<size_t>(m_lpBufMax - m_lpBufCur)) {
        *m_lpBufCur++ = static_cast<unsigned char>(nLength);
        if (nLength > 0)
            std::memcpy(m_lpBufCur, lpch, nLength);
        m_lpBufCur += nLength;
        return;
    }
    if (!VELM_ASSERT(nLength <= 0xFFFFFFFF)) {
        RaiseInvalid("the length does not fit into 4 bytes");
        return;
    }
    if (nLength < nStringPrefixShort) {
        *this << static_cast<unsigned char>(nLength);
    } else {
        *this << static_cast<unsigned char>(nStringPrefixShort);
        if (nLength >= nStringEscape)
            Store32(nCountEscape);
        Store32(static_cast<uint32_t>(nLength));
    }
    Write(lpch, static_cast<unsigned>(nLength));
}

static bool LoadLength(VELM_CArchive& ar, uint32_t& rLength)
{
    unsigned char nShort;
    if (!ar.LoadByte(nShort))
        return false;
    rLength = nShort;
    return nShort != nStringPrefixShort || LoadEscaped(ar, rLength);
}

int VELM_CArchive::LoadLength(unsigned long& rLength)
{
    uint32_t nLength;
    if (!::LoadLength(*this, nLength))
        return 0;
    rLength = nLength;
    return 1;
}

int VELM_CArchive::LoadPrefixed(VELM_CString& rString)
{
    uint32_t nLength;
    char* pText = nullptr;
    if (!CanLoad())
        return 0;
    if (::LoadLength(*this, nLength)) {
        if (IsLoading() && static_cast<size_t>(m_lpBufMax - m_lpBufCur) >= nLength) { // raises only without memory
            if (!AfxTryAssign(rString, reinterpret_cast<const char*>(m_lpBufCur), nLength))
                AfxMemoryExhausted();
            m_lpBufCur += nLength;
            return 1;
        }
        pText = m_pState->LoadText(nLength);
    }
    if (pText == nullptr) {
        AfxTruncate(rString, 0);
        return 0;
    }
    AfxFreeText(rString.m_data);
    rString.m_data = m_pState->TakeText();
    rString.m_len = static_cast<int>(nLength);
    return 1;
}

const char* VELM_CArchiveState::LoadPrefixed()
{
    uint32_t nLength;
    return LoadLength(m_ar, nLength) ? LoadText(nLength) : nullptr;
}

char* VELM_CArchiveState::LoadText(uint32_t nLength)
{
    unsigned nHave = 0;
    do {
        const unsigned nRoom = static_cast<unsigned>(VELM_CArchive::RoomFor(nHave, nLength));
        if (nRoom >= INT_MAX)
            AfxMemoryExhausted();
        m_pText = static_cast<char*>(AfxAllocate(m_pText, nRoom, 1, 1));
        if (!m_ar.LoadWhole(m_pText + nHave, nRoom - nHave))
            return nullptr;
        nHave = nRoom;
    } while (nHave < nLength);
    m_pText[nLength] = '\0';
    return m_pText;
}

char* VELM_CArchiveState::TakeText()
{
    char* const pText = m_pText;
    m_pText = nullptr;
    return pText;
}

void VELM_CArchive::WriteString(const char* lpsz)
{
    VELM_ASSERT(AfxIsValidString(lpsz));
    StoreBlock(lpsz, lpsz == nullptr ? 0 : std::strlen(lpsz));
}

// Reads up to nStop bytes of a line into lpsz. nRead is the number of bytes there at every moment, also when a raise
// jumps out of here. False when the data ended, and the raise returned.
static bool ReadLine(VELM_CArchive& ar, char* lpsz, unsigned nStop, bool bKeepLineEnd, volatile unsigned& nRead)
{
    while (nRead < nStop) {
        unsigned char by;
        bool bLineEnd = false, bCame = ar.Read(&by, 1) == 1;
        if (bCame && (by == '\n' || by == '\r')) {
            bLineEnd = true;
            if (by == '\r')
                bCame = ar.Read(&by, 1) == 1;
        }
        if (!bCame) {
            VELM_CArchiveState& state = VELM_CArchiveState::Of(ar);
            state.Fail(VELM_CArchiveException::causeEndOfFile, state.Offset(), "the data ends");
            return false;
        }
        if (!bLineEnd || bKeepLineEnd) {
            lpsz[nRead] = static_cast<char>(by);
            nRead = nRead + 1;
        }
        if (bLineEnd)
            break;
    }
    return true;
}

// A raise jumps back to the sigsetjmp in pfm_protect. A variable that the body changes, and that is read after the
// jump, must be volatile: otherwise the compiler may keep it in a register, which the jump sets back to an old value.
static char* ReadLineProtected(VELM_CArchive& ar, char* lpsz, unsigned nStop, bool bKeepLineEnd)
{
    volatile unsigned nRead = 0;
    volatile bool bWhole = false;
    pfm_protect([&] { bWhole = ReadLine(ar, lpsz, nStop, bKeepLineEnd, nRead); });
    if (!bWhole && nRead == 0)
        return nullptr;
    lpsz[nRead] = '\0';
    return lpsz;
}

// The number of bytes before the first line feed or carriage return, or NUL if bNul is set; nBytes when there is none.
// Searches one window after the other, each as long as all before it, so that at most twice the result is looked at, or
// one chunk.
static size_t LengthOfLine(const unsigned char* lpFrom, size_t nBytes, bool bNul)
{
    for (size_t nFrom = 0, nWindow = nLineChunk; nFrom < nBytes; nFrom += nWindow, nWindow = nFrom) {
        const size_t nLook = nWindow < nBytes - nFrom ? nWindow : nBytes - nFrom;
        const unsigned char *const lpLook = lpFrom + nFrom, *lpEnd = lpLook + nLook;
        for (const char by : {'\n', '\r', '\0'}) {
            const void* const lpFound =
                by == '\0' && !bNul ? nullptr : std::memchr(lpLook, by, static_cast<size_t>(lpEnd - lpLook));
            if (lpFound != nullptr)
                lpEnd = static_cast<const unsigned char*>(lpFound);
        }
        if (lpEnd != lpLook + nLook)
            return static_cast<size_t>(lpEnd - lpFrom);
    }
    return nBytes;
}

// The length of the line end at lpFrom: 1 for a line feed, and 2 for a carriage return with the byte behind it. 0 when
// there is no line end, or not all of it.
static size_t LengthOfLineEnd(const unsigned char* lpFrom, size_t nBytes)
{
    if (nBytes > 0 && lpFrom[0] == '\n')
        return 1;
    return nBytes > 1 && lpFrom[0] == '\r' ? 2 : 0;
}

char* VELM_CArchive::ReadString(char* lpsz, unsigned nMax)
{
    const bool bKeepLineEnd = nMax > INT_MAX; // negative as an int
    const unsigned nStop = bKeepLineEnd ? 0u - nMax : nMax;
    // The text of the assertion has no blanks around the plus sign.
    // clang-format off
    VELM_ASSERT(AfxIsValidAddress(lpsz, (nStop+1) * sizeof(TCHAR)));
    // clang-format on
    if (!CanLoad())
        return nullptr;
    // The fast path: the line has been read ahead, or as much of it as is wanted, so that nothing can raise.
    const size_t nAhead = IsLoading() ? static_cast<size_t>(m_lpBufMax - m_lpBufCur) : 0;
    const size_t nMost = nAhead < nStop ? nAhead : nStop;
    const size_t nText = LengthOfLine(m_lpBufCur, nMost, false);
    const size_t nLineEnd = nText < nStop ? LengthOfLineEnd(m_lpBufCur + nText, nAhead - nText) : 0;
    if (nText < nStop && nLineEnd == 0)
        return ReadLineProtected(*this, lpsz, nStop, bKeepLineEnd);
    char* lpszEnd = lpsz + nText;
    if (nText > 0)
        std::memcpy(lpsz, m_lpBufCur, nText);
    m_lpBufCur += nText + nLineEnd;
    if (nLineEnd > 0 && bKeepLineEnd)
        *lpszEnd++ = static_cast<char>(m_lpBufCur[-1]);
    *lpszEnd = '\0';
    return lpsz;
}

int VELM_CArchive::ReadString(VELM_CString& rString)
{
    if (!CanLoad())
        return 0;
    // The fast path: the line has been read ahead, ends in a line feed, and has no NUL, where a chunk below would end.
    const size_t nAhead = IsLoading() ? static_cast<size_t>(m_lpBufMax - m_lpBufCur) : 0;
    const size_t nText = LengthOfLine(m_lpBufCur, nAhead, true);
    const size_t nLineEnd = LengthOfLineEnd(m_lpBufCur + nText, nAhead - nText);
    if (nLineEnd > 0 && m_lpBufCur[nText + nLineEnd - 1] == '\n') {
        if (!AfxTryAssign(rString, reinterpret_cast<const char*>(m_lpBufCur), nText))
            AfxMemoryExhausted();
        m_lpBufCur += nText + nLineEnd;
        return 1;
    }
    char scratch[nLineChunk + 1];
    rString = "";
    const char* lpszRead;
    while ((lpszRead = ReadString(scratch, 0u - nLineChunk)) != nullptr) {
        rString += scratch;
        const size_t nLength = std::strlen(scratch);
        if (nLength < nLineChunk || scratch[nLength - 1] == '\n')
            break;
    }
    if (!rString.IsEmpty() && rString.m_data[rString.m_len - 1] == '\n')
        AfxTruncate(rString, rString.m_len - 1);
    return lpszRead != nullptr;
}

void SerializeElements(VELM_CArchive& ar, VELM_CString* pElements, int nCount)
{
    for (int i = 0; i < nCount; ++i) {
        if (ar.IsStoring()) {
            ar << pElements[i];
        } else {
            ar >> pElements[i];
            if (ar.IsDataEnded())
                return;
        }
    }
}

int VELM_CArchive::LoadRange(unsigned& rValue, unsigned nFirst, unsigned nLast)
{
    uint32_t nValue;
    if (!Load32(nValue)) {
        RaiseDataEnded();
        return 0;
    }
    if (nValue - nFirst > nLast - nFirst) {
        m_pState->FailRange(m_pState->Offset() - 4, nValue, nFirst, nLast);
        return 0;
    }
    rValue = nValue;
    return 1;
}

void VELM_CArchive::StoreRange(unsigned nValue, unsigned nFirst, unsigned nLast)
{
    if (nValue - nFirst <= nLast - nFirst)
        Store32(nValue);
    else
        m_pState->FailRange(m_pState->Offset(), nValue, nFirst, nLast);
}

void VELM_CArchiveState::FailRange(unsigned long long nOffset, unsigned nValue, unsigned nFirst, unsigned nLast)
{
    Fail(VELM_CArchiveException::causeGeneric, nOffset, "the value %d is not one of %d to %d", static_cast<int>(nValue),
         static_cast<int>(nFirst), static_cast<int>(nLast));
}

int VELM_CArchive::IsAtEnd()
{
    if (!VELM_ASSERT(IsLoading()) || !CheckBuffer() || m_nDataEnd != dataGoesOn)
        return 1;
    if (m_lpBufCur == m_lpBufMax) {
        m_lpBufCur = m_lpBufMax = m_lpBufStart;
        m_pState->ReadFile(m_lpBufMax, static_cast<unsigned>(m_nBufSize), 1);
    }
    return m_lpBufCur == m_lpBufMax;
}
