// The library's hash table, by which it finds stored objects, loaded objects and the nodes of maps. Private to the
// library.
//
// An entry is a 32-bit tag, by which it is found, and a value of 8 bytes. The user of the table decides what both mean:
// it computes the tag of a key and, because different keys may have the same tag, says whether an entry with the right
// tag is the one that it wants.
//
// The table uses open addressing with buckets, called lines: each is one cache line and holds up to five entries.
//
//     | 5 tags | 5 low words of values | 5 high words | bits of used entries | passed |        64 bytes
//
// - Home: the line where the search for a tag begins. The upper 20 bits of the tag are multiplied by a constant and
//   select where a run of 64 lines begins. The next 6 bits select a line of the run. Thus tags that are addresses keep
//   neighbours together: the objects in 4 KiB of memory share 64 adjacent lines, and looking them up in the order of
//   their addresses costs few cache misses. Tags that are random numbers are spread evenly.
// - Probe order: the home; then the line beside it, which the processor fetches together with it; then 30 lines
//   whose places depend on the tag; then one line after the other. A full line that an insertion skips is marked as
//   passed, and a search ends at the first line without that mark. Most searches look at one line.
// - Removal: the marks stay, so that entries beyond a passed line are still found. Only a rebuild clears them.
// - Growth: before the insertions since the last rebuild, removed entries included, exceed four for each line, the
//   table is rebuilt: larger, or in the same size if half of the entries or more are gone. So at least a fifth of the
//   lines has never been full and carries no mark, and every search ends. Homes have the same order in a table of any
//   size, so a rebuild goes through both tables from front to back.
// - Memory: where there is none for a larger table, the insertion fails and the table stays as it is. Its user goes on
//   without the table.
#ifndef TAVNOMCL_MFC_CTABLE_P_H
#define TAVNOMCL_MFC_CTABLE_P_H

#include <cstddef>
#include <cstdint>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include "mcl/mfc_base.h"

class VELM_LOCAL VELM_CTable {
public:
    static const unsigned nPerLine = 5, nFull = 31; // all bits of nUsed
    struct Line;
    // An entry, or a free place for one. Valid until the next entry is added or removed.
    struct Place {
        Line* pLine; // NULL for no place
        unsigned i;

        uint32_t& Low() const { return pLine->nLow[i]; }
        uint32_t& High() const { return pLine->nHigh[i]; }
        uint64_t Value() const { return uint64_t{High()} << 32 | Low(); }
        void SetValue(uint64_t n) const
        {
            Low() = static_cast<uint32_t>(n);
            High() = static_cast<uint32_t>(n >> 32);
        }
        // Fills the free place with an entry.
        void Set(uint32_t nTag, uint64_t nValue) const
        {
            pLine->nTag[i] = nTag;
            SetValue(nValue);
            pLine->nUsed = static_cast<uint16_t>(pLine->nUsed | 1u << i);
        }
    };
    struct alignas(64) Line {
        uint32_t nTag[nPerLine];
        uint32_t nLow[nPerLine];
        uint32_t nHigh[nPerLine];
        uint16_t nUsed; // a bit for each entry
        uint16_t bPassed;

        Place FreePlace()
        {
            return {nUsed == nFull ? nullptr : this, static_cast<unsigned>(__builtin_ctz(~unsigned{nUsed}))};
        }
    };

    VELM_CTable() = default;
    VELM_CTable(const VELM_CTable&) = delete;
    VELM_CTable& operator=(const VELM_CTable&) = delete;
    ~VELM_CTable() { Clear(); }

    // The tag of an address: its lower half.
    static uint32_t TagOf(const void* p) { return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(p)); }

    // Makes an empty table with room for nEntries. Returns false, and leaves no table, when there is no memory.
    bool Start(std::size_t nEntries);
    void Clear();
    bool Is() const { return m_pLines != nullptr; }

    // The line where the search for a tag begins. There must be a table.
    Line& HomeOf(uint32_t nTag) const { return m_pLines[HomeIndex(nTag)]; }
    // The entries of the line that have the tag, one bit for each. It has no branches, which would be mispredicted.
    static unsigned Matching(const Line& line, uint32_t nTag)
    {
#ifdef __SSE2__
        const __m128i tag = _mm_set1_epi32(static_cast<int>(nTag));
        const __m128i first = _mm_cmpeq_epi32(tag, _mm_load_si128(reinterpret_cast<const __m128i*>(line.nTag)));
        const __m128i last = _mm_cmpeq_epi32(tag, _mm_loadu_si128(reinterpret_cast<const __m128i*>(line.nTag + 1)));
        const int nMask = _mm_movemask_ps(_mm_castsi128_ps(first)) | _mm_movemask_ps(_mm_castsi128_ps(last)) << 1;
        return static_cast<unsigned>(nMask) & line.nUsed;
#else
        unsigned nMask = 0;
        for (unsigned i = 0; i < nPerLine; ++i)
            nMask |= static_cast<unsigned>(line.nTag[i] == nTag) << i;
        return nMask & line.nUsed;
#endif
    }
    // Finds the first entry with the tag for which matches(place) is true, and returns true. Otherwise returns false,
    // and rAt is a free place for such an entry, or has no line if the search met only full ones.
    template <class MATCHES> __attribute__((always_inline)) bool Find(uint32_t nTag, Place& rAt, MATCHES matches) const
    {
        Line& line = HomeOf(nTag);
        if (FindIn(line, nTag, rAt, matches))
            return true;
        rAt = line.FreePlace();
        return line.bPassed != 0 && FindFurther(nTag, rAt, matches);
    }
    // Whether Put may fill the place that Find delivered.
    bool HasRoom(const Place& at) const
    {
        return at.pLine != nullptr && m_nPut < m_nMost;
    }
    void Put(const Place& at, uint32_t nTag, uint64_t nValue)
    {
        at.Set(nTag, nValue);
        ++m_nEntries;
        ++m_nPut;
    }
    // Puts an entry at the place or, if it has no room, at another one, which rAt receives; the table is rebuilt if
    // need be. Returns false, and changes nothing, when there is no memory.
    bool Add(Place& rAt, uint32_t nTag, uint64_t nValue)
    {
        if (!HasRoom(rAt) && !FindRoom(nTag, rAt))
            return false;
        Put(rAt, nTag, nValue);
        return true;
    }
    void Remove(const Place& at);
    std::size_t GetCount() const
    {
        return m_nEntries;
    }
    // Changes whenever entries may have moved, so that users can tell that places they remember are no longer valid.
    unsigned Moves() const
    {
        return m_nMoves;
    }

private:
    static const std::size_t nRun = 64; // lines shared by 4 KiB of addresses

    Line* m_pLines = nullptr;
    uint32_t m_nHomes = 0;   // number of lines at which a run may begin
    std::size_t m_nMost = 0; // insertions until the next rebuild
    std::size_t m_nPut = 0;  // insertions since the last one, removed entries included
    std::size_t m_nEntries = 0;
    std::size_t m_nLines = 0;
    unsigned m_nMoves = 0;

    std::size_t HomeIndex(uint32_t nTag) const
    {
        return static_cast<std::size_t>(uint64_t{(nTag >> 12) * 0x9E3779B1} * m_nHomes >> 32) +
               (nTag >> 6 & (nRun - 1));
    }
    template <class MATCHES>
    __attribute__((always_inline)) static bool FindIn(Line& line, uint32_t nTag, Place& rAt, MATCHES matches)
    {
        for (unsigned nMask = Matching(line, nTag); nMask != 0; nMask &= nMask - 1) {
            rAt = {&line, static_cast<unsigned>(__builtin_ctz(nMask))};
            if (matches(rAt))
                return true;
        }
        return false;
    }
    template <class MATCHES>
    __attribute__((noinline)) bool FindFurther(uint32_t nTag, Place& rAt, MATCHES matches) const
    {
        Place free = rAt;
        Line* pLine = &HomeOf(nTag);
        for (unsigned nTried = 1; pLine->bPassed != 0; ++nTried) {
            pLine = Next(nTag, pLine, nTried);
            if (FindIn(*pLine, nTag, rAt, matches))
                return true;
            if (free.pLine == nullptr)
                free = pLine->FreePlace();
        }
        rAt = free;
        return false;
    }
    Line* Next(uint32_t nTag, const Line* pLine, unsigned nTried) const;
    Place FreePlace(uint32_t nTag);
    bool FindRoom(uint32_t nTag, Place& rAt);
    bool MakeAnew();
    bool Allocate(std::size_t nLines);
};

#endif
