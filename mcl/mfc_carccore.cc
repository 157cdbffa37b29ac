#define VELM_EMIT_INLINES
#include "mcl/mfc_carccore.h"

#include <climits>
#include <cstring>

#include "mcl/mfc_cmap.h"
#include "mcl/mfc_coll.h"

// The names that the texts of the assertions use.
using UINT = unsigned;
using TCHAR = char;
#undef FALSE
static const int FALSE = 0;

const int nMinBufSize = 128;
const unsigned nCountEscape = 0xFFFF;     // from this on, a count takes the long form
const unsigned nStringPrefixShort = 0xFF; // from this on, a string's length takes more than one byte
const unsigned nStringEscape = 0xFFFE;    // from this on, it takes all nine
const unsigned nLineChunk = 128;          // characters that are read of a line at a time
const unsigned nFirstChunk = 4096;        // memory that a string's length earns before any of its bytes has come

VELM_CArchive::VELM_CArchive(VELM_CFile* pFile, unsigned nMode, int nBufSize, void* lpBuf)
    : m_pReserved(nullptr), m_nReserved(1), m_bDirectBuffer(FALSE), m_nCurSchema(0xFFFFFFFF), m_nMode(nMode),
      m_bCallerBuf(1), m_nBufSize(nBufSize), m_pFile(pFile), m_lpBufStart(static_cast<unsigned char*>(lpBuf)),
      m_nIndexCount(0), m_pStoreMap(nullptr), m_pLoader(nullptr), m_nMapGrowth(nMode != store ? 64 : 16),
      m_nMapBuckets(137), m_nDataEnd(dataGoesOn), m_nFileBytes(0)
{
    if (pFile != nullptr)
        m_strFileName = pFile->GetFilePath();
    if (nBufSize < nMinBufSize) {
        m_nBufSize = nMinBufSize;
        m_lpBufStart = nullptr;
    }
    if (m_lpBufStart == nullptr) {
        m_lpBufStart = AfxNewArray<unsigned char>(static_cast<size_t>(m_nBufSize));
        m_bCallerBuf = 0;
        VELM_ASSERT(m_lpBufStart != NULL);
    }
    m_lpBufMax = m_lpBufStart + m_nBufSize;
    m_lpBufCur = (nMode & load) != 0 ? m_lpBufMax : m_lpBufStart;
    VELM_ASSERT(m_pStoreMap == NULL);
}

VELM_CArchive::~VELM_CArchive()
{
    if (m_pFile != nullptr && (m_nMode & noFlushOnDestroy) == 0)
        Flush();
    Abort();
}

void VELM_CArchive::Abort()
{
    m_pFile = nullptr;
    if (!m_bCallerBuf) {
        VELM_ASSERT(!m_bDirectBuffer);
        delete[] m_lpBufStart;
        m_lpBufStart = m_lpBufCur = m_lpBufMax = nullptr;
    }
    delete m_pLoader;
    m_pLoader = nullptr;
    if (m_nMode == store)
        delete m_pStoreMap;
    else
        delete m_pLoadArray;
    m_pStoreMap = nullptr;
}

void VELM_CArchive::Close()
{
    Flush();
    m_pFile = nullptr;
}

// Reads from the file until the room is full, enough has come, or nothing more comes. One call is always made.
unsigned VELM_CArchive::ReadFile(unsigned char* lpBuf, unsigned nRoom, unsigned nEnough)
{
    unsigned nTotal = 0, n = 0;
    do {
        n = m_pFile == nullptr ? 0 : m_pFile->Read(lpBuf + nTotal, nRoom - nTotal);
        if (n > nRoom - nTotal)
            n = nRoom - nTotal;
        nTotal += n;
    } while (n > 0 && nTotal < nRoom && nTotal < nEnough);
    m_nFileBytes += nTotal;
    return nTotal;
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
    m_nDataEnd = dataEnded;
    const bool bCaller = VELM_ASSERT(lpBuf != NULL);
    const bool bBuffer = CheckBuffer();
    VELM_ASSERT(IsLoading());
    if (!bCaller || !bBuffer || (m_nMode & load) == 0)
        return 0;

    unsigned char* lpTo = static_cast<unsigned char*>(lpBuf);
    unsigned nMaxTemp = nMax;
    const auto Deliver = [&] { // what is read ahead, as far as it is wanted
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
        const unsigned nCame = ReadFile(lpTo, nDirect, nDirect);
        lpTo += nCame;
        nMaxTemp -= nCame;
        if (nCame == nDirect) {
            VELM_ASSERT(m_lpBufCur == m_lpBufMax);
            VELM_ASSERT(nMaxTemp < (UINT)m_nBufSize);
            const unsigned nAhead = ReadFile(m_lpBufStart, static_cast<unsigned>(m_nBufSize), nMaxTemp);
            m_lpBufCur = m_lpBufStart;
            m_lpBufMax = m_lpBufStart + nAhead;
            Deliver();
        }
    }
    if (nMaxTemp == 0)
        m_nDataEnd = dataGoesOn;
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
    if (!bCaller || !bBuffer || (m_nMode & load) != 0)
        return;

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
    if (m_pFile != nullptr)
        m_pFile->Write(lpFrom, nDirect);
    lpFrom += nDirect;
    nMax -= nDirect;
    const bool bFits = VELM_ASSERT(nMax < (UINT)m_nBufSize);
    const bool bFlushed = VELM_ASSERT(m_lpBufCur == m_lpBufStart);
    if (bFits && bFlushed)
        Take(nMax);
}

void VELM_CArchive::Flush()
{
    const bool bBuffer = CheckBuffer();
    VELM_ASSERT(m_lpBufStart == NULL || AfxIsValidAddress(m_lpBufStart, m_lpBufMax - m_lpBufStart, IsStoring()));
    VELM_ASSERT(m_lpBufCur == NULL || AfxIsValidAddress(m_lpBufCur, m_lpBufMax - m_lpBufCur, IsStoring()));
    if (!bBuffer || m_pFile == nullptr)
        return;
    if ((m_nMode & load) != 0) {
        if (m_lpBufCur != m_lpBufMax)
            m_pFile->Seek(static_cast<long>(m_lpBufCur - m_lpBufMax), 1);
        m_nFileBytes = GetOffset();
        m_lpBufCur = m_lpBufMax;
    } else if (m_lpBufCur != m_lpBufStart) {
        m_pFile->Write(m_lpBufStart, static_cast<unsigned>(m_lpBufCur - m_lpBufStart));
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
    if (!bBuffer || !bCur || !bStart || !bMax || (m_nMode & load) == 0)
        return;

    if (m_lpBufCur > m_lpBufStart) {
        const unsigned nKept = static_cast<unsigned>(m_lpBufMax - m_lpBufCur);
        std::memmove(m_lpBufStart, m_lpBufCur, nKept);
        const unsigned nEnough = nBytesNeeded > nKept ? nBytesNeeded - nKept : 0;
        const unsigned nCame = ReadFile(m_lpBufStart + nKept, static_cast<unsigned>(m_nBufSize) - nKept, nEnough);
        m_lpBufCur = m_lpBufStart;
        m_lpBufMax = m_lpBufStart + nKept + nCame;
        m_nDataEnd = dataGoesOn;
    }
    if (static_cast<size_t>(m_lpBufMax - m_lpBufCur) < nBytesNeeded)
        FailLoad(VELM_CArchiveException::causeEndOfFile, m_nFileBytes, "the data ends");
}

void VELM_CArchive::RaiseDataEnded()
{
    if (m_nDataEnd != dataEnded)
        return;
    m_nDataEnd = dataEndRaised;
    FailLoad(VELM_CArchiveException::causeEndOfFile, GetOffset(), "the data ends");
}

void VELM_CArchive::WriteCount(unsigned long dwCount)
{
    if (!VELM_ASSERT(dwCount <= 0xFFFFFFFF))
        return;
    if (dwCount >= nCountEscape)
        Store32(nCountEscape);
    Store32(static_cast<uint32_t>(dwCount));
}

unsigned long VELM_CArchive::ReadCount()
{
    uint32_t nCount;
    if (Load32(nCount) && (nCount != nCountEscape || Load32(nCount)))
        return nCount;
    RaiseDataEnded();
    return 0;
}

void VELM_CArchive::StoreString(const char* lpch, unsigned long nLength)
{
    if (!VELM_ASSERT(nLength <= 0xFFFFFFFF))
        return;
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

int VELM_CArchive::LoadString(VELM_CString& rString)
{
    unsigned char nShort;
    uint32_t nLength = 0;
    bool bWhole = LoadByte(nShort) != 0;
    if (bWhole && nShort == nStringPrefixShort)
        bWhole = Load32(nLength) && (nLength != nCountEscape || Load32(nLength));
    else if (bWhole)
        nLength = nShort;

    rString.Empty();
    for (uint32_t nHave = 0; bWhole && nHave < nLength;) {
        // As much again as has come already, so that a length that lies costs no more than the data does.
        const uint32_t nMore = nHave < nFirstChunk ? nFirstChunk : nHave;
        const uint32_t nChunk = nMore < nLength - nHave ? nMore : nLength - nHave;
        if (nHave >= INT_MAX - nChunk)
            AfxMemoryExhausted();
        rString.m_data = static_cast<char*>(AfxAllocate(rString.m_data, nHave + nChunk, 1, 1));
        const uint32_t nCame = Read(rString.m_data + nHave, nChunk);
        nHave += nCame;
        rString.m_len = static_cast<int>(nHave);
        rString.m_data[nHave] = '\0';
        bWhole = nCame == nChunk;
    }
    if (!bWhole)
        rString.Empty();
    return bWhole;
}

void VELM_CArchive::WriteString(const char* lpsz)
{
    VELM_ASSERT(AfxIsValidString(lpsz));
    if (lpsz != nullptr)
        Write(lpsz, static_cast<unsigned>(std::strlen(lpsz)));
}

// Reads bytes up to the line end, or nStop; nRead counts those in lpsz at every moment. False when a raise returned.
bool VELM_CArchive::ReadLine(char* lpsz, unsigned nStop, bool bKeepLineEnd, volatile unsigned& nRead)
{
    while (nRead < nStop) {
        unsigned char by;
        bool bLineEnd = false, bLoaded = LoadByte(by);
        if (bLoaded && (by == '\n' || by == '\r')) {
            bLineEnd = true;
            if (by == '\r')
                bLoaded = LoadByte(by);
        }
        if (!bLoaded) {
            RaiseDataEnded();
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

char* VELM_CArchive::ReadString(char* lpsz, unsigned nMax)
{
    const bool bKeepLineEnd = nMax > INT_MAX; // negative as an int
    const unsigned nStop = bKeepLineEnd ? 0u - nMax : nMax;
    // The text is reported as it stands.
    // clang-format off
    VELM_ASSERT(AfxIsValidAddress(lpsz, (nStop+1) * sizeof(TCHAR)));
    // clang-format on
    return ReadLineProtected(lpsz, nStop, bKeepLineEnd);
}

// No argument changes here, so that all of them hold after a raise.
char* VELM_CArchive::ReadLineProtected(char* lpsz, unsigned nStop, bool bKeepLineEnd)
{
    volatile unsigned nRead = 0;
    pfm_cleanup_block block;
    block.nJumped = sigsetjmp(block.jump, 1);
    if (pfm_cleanup_start(&block, 0)) {
        pfm_cleanup_reset(&block);
        const bool bLine = ReadLine(lpsz, nStop, bKeepLineEnd, nRead);
        pfm_cleanup_rls(&block);
        if (!bLine && nRead == 0)
            return nullptr;
    } else {
        if (nRead == 0)
            return nullptr;
        pfm_cleanup_rls(&block);
    }
    lpsz[nRead] = '\0';
    return lpsz;
}

int VELM_CArchive::ReadString(VELM_CString& rString)
{
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
        rString.Set(rString.m_data, rString.m_len - 1);
    return lpszRead != nullptr;
}

void SerializeElements(VELM_CArchive& ar, VELM_CString* pElements, int nCount)
{
    for (int i = 0; i < nCount; ++i) {
        if (ar.m_nMode == VELM_CArchive::store) {
            ar << pElements[i];
        } else {
            ar >> pElements[i];
            if (ar.IsDataEnded())
                return;
        }
    }
}
