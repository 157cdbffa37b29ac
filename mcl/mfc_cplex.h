/// \file
/// The block allocator under the maps.
#ifndef TAVNOMCL_MFC_CPLEX_H
#define TAVNOMCL_MFC_CPLEX_H

#include "mcl/mfc_base.h"

/// \addtogroup collections
/// \{

/// The header of one raw block of equal elements; the elements lie right behind it.
///
///     head -> | pNext | element 0 | element 1 | ...     newest block
///                 |
///                 +-> | pNext | element 0 | ...         oldest block: pNext is NULL
///
/// The owner of the head pointer owns the chain, and remembers how many elements a block holds.
struct VELM_API VELM_CPlex {
    VELM_CPlex* pNext; ///< The next older block; NULL in the oldest.

    /// Puts a new block for `nMax` elements of `cbElement` bytes, uninitialised, at the head of the chain and returns
    /// it. Asserts "nMax > 0 && cbElement > 0"; after a failure the block is made all the same. Exhausted memory: see
    /// `AfxMemoryExhausted`.
    static VELM_CPlex* Create(VELM_CPlex*& pHead, unsigned nMax, unsigned cbElement);
    /// Frees every block of the chain, newest first; NULL is an empty chain. The caller resets the head.
    static void FreeDataChain(VELM_CPlex* pHead);

    /// The first element.
    void* data() { return this + 1; }
    /// Frees the chain that begins with this block.
    void FreeDataChain() { FreeDataChain(this); }
};

/// \}

#endif
