#include "mcl/mfc_ctable_p.h"

#include <sys/mman.h>

#include <climits>
#include <cstdlib>
#include <cstring>

const std::size_t nFewestLines = 128;
const std::size_t nMostLines = sizeof(std::size_t) == 8 ? INT_MAX / 4 : SIZE_MAX / 4 / sizeof(VELM_CTable::Line);
const std::size_t nHugePage = std::size_t{1} << 21;

// The next larger size. Small tables grow fourfold, larger ones double; those that take much memory grow by a half or a
// third, and the largest by a quarter.
static std::size_t NextSize(std::size_t nLines)
{
    const bool bPowerOfTwo = (nLines & (nLines - 1)) == 0;
    return nLines < 2048           ? 4 * nLines
           : nLines < 262144       ? 2 * nLines
           : nLines >= 1024 * 1024 ? nLines / 4 * 5
           : bPowerOfTwo           ? nLines / 2 * 3
                                   : nLines / 3 * 4;
}

static bool IsLarge(std::size_t nLines)
{
    return nLines * sizeof(VELM_CTable::Line) >= nHugePage;
}

static std::size_t WholePages(std::size_t nLines)
{
    return (nLines * sizeof(VELM_CTable::Line) + nHugePage - 1) / nHugePage * nHugePage;
}

// Allocates lines of zeros; NULL when there is no memory. Large tables have pages of their own, so that freeing them
// returns their memory to the system at once.
static VELM_CTable::Line* NewLines(std::size_t nLines)
{
    void* p = nullptr;
    if (!IsLarge(nLines)) {
        p = std::aligned_alloc(sizeof(VELM_CTable::Line), nLines * sizeof(VELM_CTable::Line));
        if (p != nullptr)
            std::memset(p, 0, nLines * sizeof(VELM_CTable::Line));
        return static_cast<VELM_CTable::Line*>(p);
    }
    const std::size_t nBytes = WholePages(nLines);
    p = mmap(nullptr, nBytes + nHugePage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (p == MAP_FAILED)
        return nullptr;
    char* const pStart = static_cast<char*>(p);
    const std::size_t nBefore = (nHugePage - reinterpret_cast<uintptr_t>(p) % nHugePage) % nHugePage;
    if (nBefore != 0)
        munmap(pStart, nBefore);
    munmap(pStart + nBefore + nBytes, nHugePage - nBefore);
    madvise(pStart + nBefore, nBytes, MADV_HUGEPAGE); // fewer TLB misses; a refusal does no harm
    return reinterpret_cast<VELM_CTable::Line*>(pStart + nBefore);
}

static void FreeLines(VELM_CTable::Line* pLines, std::size_t nLines)
{
    if (pLines != nullptr && IsLarge(nLines))
        munmap(pLines, WholePages(nLines));
    else
        std::free(pLines);
}

// Makes an empty table in place of the present one, which the caller has to free. False, and nothing is changed, when
// there is no memory.
bool VELM_CTable::Allocate(std::size_t nLines)
{
    Line* const pLines = nLines > nMostLines ? nullptr : NewLines(nLines);
    if (pLines == nullptr)
        return false;
    m_pLines = pLines;
    m_nLines = nLines;
    m_nHomes = static_cast<uint32_t>(nLines - nRun + 1);
    m_nMost = nLines * 4;
    m_nPut = m_nEntries = 0;
    ++m_nMoves;
    return true;
}

bool VELM_CTable::Start(std::size_t nEntries)
{
    Clear();
    std::size_t nLines = nFewestLines;
    while (nLines * 4 <= nEntries && nLines <= nMostLines)
        nLines = NextSize(nLines);
    return Allocate(nLines);
}

void VELM_CTable::Clear()
{
    FreeLines(m_pLines, m_nLines);
    m_pLines = nullptr;
    m_nLines = m_nMost = m_nPut = m_nEntries = 0;
    ++m_nMoves;
}

VELM_CTable::Line* VELM_CTable::Next(uint32_t nTag, const Line* pLine, unsigned nTried) const
{
    std::size_t i = static_cast<std::size_t>(pLine - m_pLines);
    if (nTried == 1)
        i = (i ^ 1) < m_nLines ? i ^ 1 : 0;
    else if (nTried < 32)
        i = static_cast<std::size_t>(uint64_t{((nTag >> 3) + nTried * 0x85EBCA6B) * 0x9E3779B1} * m_nLines >> 32);
    else
        i = i + 1 == m_nLines ? 0 : i + 1;
    return m_pLines + i;
}

// The first free place in the probe order of the tag. Marks the full lines before it as passed.
VELM_CTable::Place VELM_CTable::FreePlace(uint32_t nTag)
{
    Line* pLine = &HomeOf(nTag);
    for (unsigned nTried = 0; pLine->nUsed == nFull; pLine = Next(nTag, pLine, ++nTried))
        pLine->bPassed = 1;
    return pLine->FreePlace();
}

bool VELM_CTable::FindRoom(uint32_t nTag, Place& rAt)
{
    if (m_nPut >= m_nMost && !MakeAnew())
        return false;
    rAt = FreePlace(nTag);
    return true;
}

// Rebuilds the table, without marks, in the same size or a larger one. False when there is no memory.
bool VELM_CTable::MakeAnew()
{
    Line* const pOld = m_pLines;
    const std::size_t nOld = m_nLines, nEntries = m_nEntries;
    if (!Allocate(nEntries <= m_nMost / 2 ? nOld : NextSize(nOld)))
        return false;
    for (Line* pLine = pOld; pLine != pOld + nOld; ++pLine) {
        for (unsigned nLeft = pLine->nUsed; nLeft != 0; nLeft &= nLeft - 1) {
            const Place from = {pLine, static_cast<unsigned>(__builtin_ctz(nLeft))};
            const uint32_t nTag = pLine->nTag[from.i];
            const Place home = HomeOf(nTag).FreePlace();
            (home.pLine != nullptr ? home : FreePlace(nTag)).Set(nTag, from.Value());
        }
    }
    FreeLines(pOld, nOld);
    m_nPut = m_nEntries = nEntries;
    return true;
}

void VELM_CTable::Remove(const Place& at)
{
    at.pLine->nUsed = static_cast<uint16_t>(at.pLine->nUsed & ~(1u << at.i));
    --m_nEntries;
}
