#include "mcl/mfc_cmapindex_p.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <new>

const std::size_t nHugePage = std::size_t{1} << 21;

VELM_CMapIndex* VELM_CMapIndex::Make(std::size_t nEntries)
{
    std::size_t nSlots = 256;
    while (nSlots / 2 < nEntries && nSlots <= SIZE_MAX / 8 / sizeof(uint64_t))
        nSlots *= 2;
    const std::size_t nBytes = nSlots * sizeof(uint64_t) + (nSlots >> nSampleBits) * sizeof(Sample);
    const std::size_t nUnit = nBytes < nHugePage ? sizeof(uint64_t) * 8 : nHugePage;
    const std::size_t nWhole = (nBytes + nUnit - 1) / nUnit * nUnit;
    void* const pSlots = std::aligned_alloc(nUnit, nWhole);
    VELM_CMapIndex* pIndex = pSlots == nullptr ? nullptr : new (std::nothrow) VELM_CMapIndex;
    if (pIndex == nullptr) {
        std::free(pSlots);
        return nullptr;
    }
    if (nBytes >= nHugePage)
        madvise(pSlots, nWhole, MADV_HUGEPAGE); // fewer misses of the address cache; it may be refused
    std::memset(pSlots, 0, nBytes);
    if (getentropy(pIndex->m_seed, sizeof pIndex->m_seed) != 0) { // addresses differ at least
        pIndex->m_seed[0] = reinterpret_cast<uintptr_t>(pIndex);
        pIndex->m_seed[1] = reinterpret_cast<uintptr_t>(&nSlots);
    }
    pIndex->m_nMask = nSlots - 1;
    pIndex->m_nUsed = 0;
    std::memset(pIndex->m_heads, 0, sizeof pIndex->m_heads);
    pIndex->m_nLastStretch = UINTPTR_MAX;
    pIndex->m_pSlots = static_cast<uint64_t*>(pSlots);
    pIndex->m_pSamples = reinterpret_cast<Sample*>(pIndex->m_pSlots + nSlots);
    return pIndex;
}

VELM_CMapIndex::~VELM_CMapIndex()
{
    std::free(m_pSlots);
}

static uint64_t Rotated(uint64_t n, int nBits)
{
    return n << nBits | n >> (64 - nBits);
}

// SipHash-1-3 of the text: without the seed, nobody can choose texts that collide.
VELM_CMapIndex::Hash VELM_CMapIndex::HashOf(unsigned nBucket, const char* lpszKey) const
{
    const std::size_t nLength = lpszKey == nullptr ? 0 : std::strlen(lpszKey);
    uint64_t v0 = m_seed[0] ^ 0x736F6D6570736575, v1 = m_seed[1] ^ 0x646F72616E646F6D ^ nBucket;
    uint64_t v2 = m_seed[0] ^ 0x6C7967656E657261, v3 = m_seed[1] ^ 0x7465646279746573;
    const auto Round = [&] {
        v0 += v1, v1 = Rotated(v1, 13) ^ v0, v0 = Rotated(v0, 32);
        v2 += v3, v3 = Rotated(v3, 16) ^ v2;
        v0 += v3, v3 = Rotated(v3, 21) ^ v0;
        v2 += v1, v1 = Rotated(v1, 17) ^ v2, v2 = Rotated(v2, 32);
    };
    const auto Mix = [&](uint64_t nWord) {
        v3 ^= nWord;
        Round();
        v0 ^= nWord;
    };
    for (std::size_t i = 0; i + 8 <= nLength; i += 8) {
        uint64_t nWord;
        std::memcpy(&nWord, lpszKey + i, 8);
        Mix(nWord);
    }
    uint64_t nLast = 0; // little-endian or not: it only mixes
    if (nLength >= 8)
        std::memcpy(&nLast, lpszKey + nLength - 8, 8);
    else if (nLength > 0)
        std::memcpy(&nLast, lpszKey, nLength);
    Mix(nLast);
    Mix(nLength);
    v2 ^= 0xFF;
    Round();
    Round();
    Round();
    const uint64_t nHash = v0 ^ v1 ^ v2 ^ v3;
    return {nHash, nHash >> 48 << nLinkBits};
}
