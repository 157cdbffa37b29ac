/// \file
/// The block allocator under the maps.
#ifndef TAVNOMCL_MFC_CPLEX_H
#define TAVNOMCL_MFC_CPLEX_H

#include "mcl/mfc_base.h"

/// \addtogroup collections
/// \{

/// The header of one block of raw memory for elements of equal size, which lie directly behind it.
///
///     head -> | pNext | element 0 | element 1 | ...     newest block
///                 |
///                 +-> | pNext | element 0 | ...         oldest block: pNext is NULL
///
/// Whoever has the head pointer owns the chain, and has to know how many elements a block holds.
struct VELM_API VELM_CPlex {
    VELM_CPlex* pNext; ///< The next older block; NULL in the oldest.

    /// Makes a block for `nMax` uninitialised elements of `cbElement` bytes each, puts it at the head of the chain and
    /// returns it. Asserts "nMax > 0 && cbElement > 0"; after a failure the block is made all the same. Exhausted
    /// memory: see `AfxMemoryExhausted`.
    static VELM_CPlex* Create(VELM_CPlex*& pHead, unsigned nMax, unsigned cbElement);
    /// Frees every block of the chain, newest first; NULL is an empty chain. The caller sets its head pointer to NULL.
    static void FreeDataChain(VELM_CPlex* pHead);

    /// The first element.
    void* data() { return this + 1; }
    /// Frees this block and all older ones.
    void FreeDataChain() { FreeDataChain(this); }
};

/// \}

#endif
