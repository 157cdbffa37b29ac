// The hash table that the library finds things with: stored objects, nodes of maps, loaded objects; private to it.
//
// The table knows 32 bits of a key, its tag, and keeps 8 bytes beside each tag. What the tag is made of, what the 8
// bytes are, and whether an entry is the one that is looked for, is its user's matter. Two keys may have the same tag.
//
// It is an open-addressed table of lines. A line is one cache line, and holds up to five entries:
//
//     | 5 tags | 5 low words | 5 high words | which are used | passed |        64 bytes
//
// - Home: the line where the search for a tag begins. The upper 20 bits of the tag are scattered by a multiplication, and
//   select where a run of 64 lines begins. The next 6 bits select one line of the run. A tag that is an address so keeps
//   neighbours together: 4 KiB of addresses share 64 lines that lie side by side, and objects that are neighbours in
//   memory cost few cache misses. Tags that are random numbers are spread evenly.
// - Probe order: the home; then the line beside it, which the processor fetches along with it; then 30 lines that are
//   scattered by the tag; then one line after the other. A line that is full when an entry has to go further is marked
//   as passed. A search ends at the first line without the mark. Most searches look at one line.
// - Removing: the mark stays, so that what went further is still found. Marks go when the table is made anew.
// - Growth: no more entries are put into a table than four for each line; those that have been removed since count as
//   well. Then the table is made anew, in the same size if half of the entries are gone. So a fifth of the lines is never
//   full, thus never marked, and every search ends. Homes keep their order in a larger table: both tables are walked
//   from front to back.
// - Memory: without memory for a larger table nothing changes, and the user goes on without the table.
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
    // An entry, or a free place for one. Good until the next entry is added or removed.
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
        // Makes an entry of the place.
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

    // Makes an empty table for so many entries. False when there is no memory; then there is none.
    bool Start(std::size_t nEntries);
    void Clear();
    bool Is() const { return m_pLines != nullptr; }

    // The line where the search for a tag begins. There must be a table.
    Line& HomeOf(uint32_t nTag) const { return m_pLines[HomeIndex(nTag)]; }
    // The entries of the line that have the tag, a bit each; without branches, which would be mispredicted.
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
    // True at the first entry with the tag that matches. Otherwise the place is for a new one.
    template <class MATCHES> __attribute__((always_inline)) bool Find(uint32_t nTag, Place& rAt, MATCHES matches) const
    {
        Line& line = HomeOf(nTag);
        if (FindIn(line, nTag, rAt, matches))
            return true;
        rAt = line.FreePlace();
        return line.bPassed != 0 && FindFurther(nTag, rAt, matches);
    }
    // Whether an entry can be put where Find has found a place for it.
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
    // The same anywhere; the table grows if it has to. False when there is no memory.
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
    // How often the entries have moved.
    unsigned Moves() const
    {
        return m_nMoves;
    }

private:
    static const std::size_t nRun = 64; // lines for 4 KiB of addresses

    Line* m_pLines = nullptr;
    uint32_t m_nHomes = 0;   // lines at which a run may begin
    std::size_t m_nMost = 0; // entries that may be put
    std::size_t m_nPut = 0;  // since the table was made
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
