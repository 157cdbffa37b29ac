/// \file
/// Chained hash maps over pooled nodes: the pointer-keyed map, and the map template.
///
///     m_pHashTable          nodes                                 blocks of m_nBlockSize nodes
///     [0] -> NULL                                                 m_pBlocks -> | pNext | node | node | node |
///     [1] -> node -> node -> NULL      m_pFreeList -> node -> ..                  |
///     [2] -> NULL                                                                 +-> | pNext | node | ...
///
/// - Every node lies in a block, and is in one place: on the chain of its bucket, or on the free list.
/// - A node on the chain of bucket i has nHashValue i. New nodes go to the head of their chain.
/// - Without a table the map is empty. The table and the first block come with the first entry, and all go together
///   when the last entry goes. The number of buckets never changes by itself.
/// - The key and the value of a node are constructed while the node is in use, and not while it is on the free list.
/// - Nodes never move: a reference to a value is valid until its entry is removed, whatever is inserted meanwhile.
///
/// VELM_CMapTable has what the maps share. Each map adds its type of node, which knows how to hash, compare and keep a
/// key, and the operations that deliver its own types.
#ifndef TAVNOMCL_MFC_CMAP_H
#define TAVNOMCL_MFC_CMAP_H

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <atomic>
#include <iterator>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>

#include "mcl/mfc_base.h"
#include "mcl/mfc_carcex.h"
#include "mcl/mfc_cmapindex.h"
#include "mcl/mfc_cobj.h"
#include "mcl/mfc_cplex.h"
#include "mcl/mfc_memory.h"
#include "mcl/mfc_template.h"

/// \addtogroup collections
/// \{

/// A place in an iteration: the entry that comes next. All bits set: before the first entry; NULL: behind the last.
struct __POSITION;

/// Room for one node outside of a map: for what is being loaded, or for what a failed check left without an entry.
///
/// Key and value are destroyed exactly as far as they are constructed, whatever raises in between.
template <class ASSOC> class VELM_LOCAL VELM_CAssocRoom : public VELM_CHeld {
public:
    VELM_CAssocRoom() : m_nBuilt(0) {}
    ~VELM_CAssocRoom() override { Node().Destruct(m_nBuilt); }
    /// The node, with a new key and value.
    ASSOC& Renew()
    {
        Node().Destruct(m_nBuilt);
        Node().Construct(m_nBuilt);
        return Node();
    }

private:
    ASSOC& Node() { return *reinterpret_cast<ASSOC*>(m_room); }
    int m_nBuilt;
    alignas(ASSOC) unsigned char m_room[sizeof(ASSOC)];
};

/// An entry of a map, as its iterators deliver it: `for (auto [key, value] : map)`.
template <class KEY, class VALUE> struct VELM_CMapEntry {
    const KEY& key; ///< The key.
    VALUE& value;   ///< The value.
};

/// What steps along the entries of a map, in the order of `GetNextAssoc`, until an entry is added or removed, or the
/// map moved. TABLE is the map's structure, VALUE the type of its values, const for a const map. An entry is made as it
/// is asked for: so these are forward iterators to C++20, and input iterators before.
template <class TABLE, class VALUE> class VELM_CMapIterator {
public:
    /// \cond
    typedef typename TABLE::VELM_CAssoc Assoc;
    typedef VELM_CMapEntry<decltype(Assoc::key), VALUE> value_type;
    typedef std::input_iterator_tag iterator_category;
    typedef std::forward_iterator_tag iterator_concept;
    typedef ptrdiff_t difference_type;
    struct pointer {
        value_type entry;
        const value_type* operator->() const { return &entry; }
    };
    typedef value_type reference;
    VELM_CMapIterator() : m_pTable(NULL), m_pAssoc(NULL) {}
    VELM_CMapIterator(const TABLE* pTable, Assoc* pAssoc) : m_pTable(pTable), m_pAssoc(pAssoc) {}
    template <class OTHER, class = typename std::enable_if<std::is_same<const OTHER, VALUE>::value>::type>
    VELM_CMapIterator(const VELM_CMapIterator<TABLE, OTHER>& other) : m_pTable(other.m_pTable), m_pAssoc(other.m_pAssoc)
    {
    }
    value_type operator*() const { return value_type{m_pAssoc->key, m_pAssoc->value}; }
    pointer operator->() const { return pointer{**this}; }
    VELM_CMapIterator& operator++()
    {
        m_pAssoc = reinterpret_cast<Assoc*>(m_pTable->PositionBehind(m_pAssoc));
        return *this;
    }
    VELM_CMapIterator operator++(int)
    {
        VELM_CMapIterator before = *this;
        ++*this;
        return before;
    }
    template <class OTHER> bool operator==(const VELM_CMapIterator<TABLE, OTHER>& other) const
    {
        return m_pAssoc == other.m_pAssoc;
    }
    template <class OTHER> bool operator!=(const VELM_CMapIterator<TABLE, OTHER>& other) const
    {
        return m_pAssoc != other.m_pAssoc;
    }

private:
    template <class, class> friend class VELM_CMapIterator;
    const TABLE* m_pTable;
    Assoc* m_pAssoc;
    /// \endcond
};

/// The structure that the maps share. ASSOC is the node, ARG_KEY the type in which keys are passed in.
///
/// An operation whose check fails changes nothing and delivers NULL or 0. Exhausted memory, and whatever else raises
/// while an entry is made, leaves the map as it was.
///
/// A program may read the chains at any time, and may change the fields `value` and `nValue` of a node, but must not
/// assign a whole node. When it changes a field of the map, or `pNext`, `nHashValue` or `key` of a node, it calls
/// `WalkChains` before the next operation on the map; `NewAssoc` and `FreeAssoc` do that themselves. Without that call
/// an operation may miss a node that is on a chain, or find or remove one that no longer is.
///
/// If `VELM_CKeyIndex` has a hash value for the keys, finding, adding and removing an entry takes the same time in a
/// map of any size. Two threads may read one map at the same time.
template <class ASSOC, class ARG_KEY> class VELM_API VELM_CMapTable : public VELM_CObject {
public:
    typedef ASSOC VELM_CAssoc; ///< The node.
    typedef ASSOC CAssoc;      ///< The node, by its short name.

    VELM_CAssoc** m_pHashTable; ///< The bucket heads, from `new[]`; NULL while there is no table.
    unsigned m_nHashTableSize;  ///< Number of buckets; kept while there is no table.
    int m_nCount;               ///< Number of entries.
    VELM_CAssoc* m_pFreeList;   ///< The first free node.
    VELM_CPlex* m_pBlocks;      ///< The newest block of nodes.
    int m_nBlockSize;           ///< Nodes in a block.

    /// An empty map of 17 buckets. Asserts "nBlockSize > 0"; after a failure blocks have one node.
    explicit VELM_CMapTable(int nBlockSize);
    /// Releases everything. Asserts "m_nCount == 0" after that.
    ~VELM_CMapTable() override;
    VELM_CMapTable(const VELM_CMapTable&) = delete;
    VELM_CMapTable& operator=(const VELM_CMapTable&) = delete;
    /// Takes the entries of `src`, which is empty then. References to values hold; iterators do not.
    VELM_CMapTable(VELM_CMapTable&& src) : VELM_CMapTable(src.m_nBlockSize) { Exchange(src); }
    /// \copydoc VELM_CMapTable(VELM_CMapTable&&)
    VELM_CMapTable& operator=(VELM_CMapTable&& src)
    {
        if (this != &src) {
            Exchange(src);
            src.RemoveAll();
        }
        return *this;
    }

    /// Number of entries.
    int GetCount() const { return m_nCount; }
    /// 1 when there is no entry, else 0.
    int IsEmpty() const { return m_nCount == 0; }
    typedef VELM_CMapIterator<VELM_CMapTable, decltype(ASSOC::value)> iterator;             ///< Of the entries.
    typedef VELM_CMapIterator<VELM_CMapTable, const decltype(ASSOC::value)> const_iterator; ///< Of a const map.
    /// The first entry.
    iterator begin()
    {
        HandOut();
        return iterator(this, m_nCount == 0 ? NULL : First());
    }
    /// Behind the last entry.
    iterator end() { return iterator(this, NULL); }
    /// \copydoc begin()
    const_iterator begin() const { return const_iterator(this, m_nCount == 0 ? NULL : First()); }
    /// \copydoc end()
    const_iterator end() const { return const_iterator(this, NULL); }
    /// The position before the first entry; NULL when there is none.
    __POSITION* GetStartPosition() const { return m_nCount == 0 ? NULL : BeforeFirst(); }

    /// Sets the number of buckets of an empty map. Makes the table at once if `bAllocNow` is not 0, otherwise with the
    /// first entry. Asserts "m_nCount == 0" and "nHashSize > 0".
    void InitHashTable(unsigned nHashSize, int bAllocNow = 1);
    /// Removes every entry and releases the table and the nodes. The number of buckets stays.
    void RemoveAll();
    /// Removes the entry of the key. Returns 1, or 0 when there is none. Asserts "m_nCount >= 0".
    int RemoveKey(ARG_KEY key);
    /// The node of the key, or NULL; `nHash` receives its bucket in any case.
    VELM_CAssoc* GetAssocAt(ARG_KEY key, unsigned& nHash) const;
    /// Tells the map that the program has changed its chains, or is about to. From now on until the map is empty, every
    /// operation walks the chains, and the time to find an entry grows with the length of its chain.
    void WalkChains() { SetIndex(VELM_CMapIndex::Never()); }
    /// Takes a node off the free list, which a new block refills when it is empty, and counts it as an entry. The
    /// caller sets its `pNext` and `nHashValue` and puts it on a chain; see `WalkChains`. Asserts
    /// "m_pFreeList != NULL" and "m_nCount > 0"; after a failure it returns NULL.
    VELM_CAssoc* NewAssoc();
    /// Puts a node that is on no chain back on the free list; see `WalkChains`. When it was the last one in use,
    /// empties the map. Asserts "m_nCount >= 0".
    void FreeAssoc(VELM_CAssoc* pAssoc);

protected:
    /// \cond
    // The result of a search for a key, from which an entry can be added or removed.
    struct Search {
        unsigned nBucket;
        VELM_CMapIndex* pIndex; // the index that was searched; NULL if the chain was walked
        VELM_CAssoc** ppLink;   // if the chain was walked: the link that points at the node
        unsigned nTag;          // if an index was searched: the tag of the key
        VELM_CMapPlace place;   // and the place of its entry, or a free place for it
    };
    VELM_CAssoc* Look(ARG_KEY key, Search& rSearch, int nWalked = VELM_CMapIndex::nNear) const;
    /// \endcond
    /// The node of the key, made when there is none; NULL only after a failed check.
    VELM_CAssoc* FindOrAdd(ARG_KEY key);
    /// The node at the position; NULL after a failed check of "m_pHashTable != NULL" or "pAssocRet != NULL".
    VELM_CAssoc* AssocAtPosition(__POSITION* position) const;
    /// The position behind the node.
    __POSITION* PositionBehind(const VELM_CAssoc* pAssoc) const;
    /// A node outside of the map, with a new key and value. Operations that return a reference use it when a failed
    /// check has left them without an entry; the map owns it.
    VELM_CAssoc& SpareAssoc();

private:
    friend class VELM_CMapPtrToPtr;
    friend class VELM_CStoredIndexes;
    template <class TABLE, class VALUE> friend class VELM_CMapIterator;

    // The index of a large map, or a mark that there must be none; see mfc_cmapindex.cc. A search for a key makes it.
    // Where two threads make one at the same time, the first one is kept.
    mutable std::atomic<VELM_CMapIndex*> m_pIndex;
    VELM_CAssocRoom<VELM_CAssoc>* m_pSpare;
    int m_nBuilt; // parts of the first free node that are constructed: not 0 only after a raise
    // Whether a program may have changed the entries, or has a pointer or reference by which it may change them.
    mutable std::atomic<bool> m_bHandedOut;
    // Every bucket before this one is empty, unless a program has changed the chains. A program that takes the first
    // entry again and again need not pass the same empty buckets each time. Two threads may set this at the same time.
    mutable std::atomic<unsigned> m_nFirst;

    void HandOut() const
    {
        if (!m_bHandedOut.load(std::memory_order_relaxed))
            m_bHandedOut.store(true, std::memory_order_relaxed);
    }
    // Of two fields that nobody else looks at.
    template <class FIELD> static void Exchange(std::atomic<FIELD>& a, std::atomic<FIELD>& b)
    {
        a.store(b.exchange(a.load(std::memory_order_relaxed), std::memory_order_relaxed), std::memory_order_relaxed);
    }
    void Exchange(VELM_CMapTable& other)
    {
        HandOut();
        other.HandOut();
        std::swap(m_pHashTable, other.m_pHashTable);
        std::swap(m_nHashTableSize, other.m_nHashTableSize);
        std::swap(m_nCount, other.m_nCount);
        std::swap(m_pFreeList, other.m_pFreeList);
        std::swap(m_pBlocks, other.m_pBlocks);
        std::swap(m_nBlockSize, other.m_nBlockSize);
        std::swap(m_nBuilt, other.m_nBuilt);
        Exchange(m_pIndex, other.m_pIndex);
        Exchange(m_nFirst, other.m_nFirst);
    }
    static __POSITION* BeforeFirst() { return reinterpret_cast<__POSITION*>(~uintptr_t(0)); }
    unsigned Bucket(ARG_KEY key) const
    {
        const unsigned nHash = VELM_CAssoc::Hash(key);
        return m_nHashTableSize == 0 ? 0 : nHash % m_nHashTableSize;
    }
    VELM_CAssoc* First() const;
    VELM_CAssoc* FirstFrom(unsigned nBucket) const;
    void AbandonBuilt()
    {
        if (m_nBuilt != 0 && m_pFreeList != NULL)
            m_pFreeList->Destruct(m_nBuilt);
        m_nBuilt = 0;
    }
    bool BuildFirstFree();
    VELM_CAssoc* TakeFirstFree();
    void PutBack(VELM_CAssoc* pAssoc);

    VELM_CMapIndex::Chains GetChains() const
    {
        return {reinterpret_cast<VELM_CMapLink*>(m_pHashTable), m_nHashTableSize, m_nCount};
    }
    static unsigned TagOf(const VELM_CKeyHasher& hasher, const VELM_CMapNode* pNode)
    {
        return reinterpret_cast<const VELM_CAssoc*>(pNode)->Tag(hasher);
    }
    void SetIndex(VELM_CMapIndex* pIndex);
    void MakeIndex() const;
    VELM_CMapIndex* Index() const;
    VELM_CAssoc* FindIn(Search& rSearch, ARG_KEY key) const;
    VELM_CAssoc* LookToChange(ARG_KEY key, Search& rSearch);
    VELM_CAssoc* Walk(ARG_KEY key, Search& rSearch, int nWalked) const;
    VELM_CAssoc* Add(const Search& search, ARG_KEY key);
    void MakeTable(unsigned nHashSize, bool bAllocNow);
    void Empty();
};

template <class ASSOC, class ARG_KEY>
VELM_CMapTable<ASSOC, ARG_KEY>::VELM_CMapTable(int nBlockSize)
    : m_pHashTable(NULL), m_nHashTableSize(17), m_nCount(0), m_pFreeList(NULL), m_pBlocks(NULL), m_nBlockSize(1),
      m_pIndex(NULL), m_pSpare(NULL), m_nBuilt(0), m_bHandedOut(false), m_nFirst(0)
{
    if (VELM_ASSERT(nBlockSize > 0))
        m_nBlockSize = nBlockSize;
}

template <class ASSOC, class ARG_KEY> VELM_CMapTable<ASSOC, ARG_KEY>::~VELM_CMapTable()
{
    Empty();
    delete m_pSpare;
    VELM_ASSERT(m_nCount == 0);
}

template <class ASSOC, class ARG_KEY>
void VELM_CMapTable<ASSOC, ARG_KEY>::InitHashTable(unsigned nHashSize, int bAllocNow)
{
    HandOut();
    MakeTable(nHashSize, bAllocNow != 0);
}

template <class ASSOC, class ARG_KEY>
__attribute__((noinline)) void VELM_CMapTable<ASSOC, ARG_KEY>::MakeTable(unsigned nHashSize, bool bAllocNow)
{
    const bool bEmpty = VELM_ASSERT(m_nCount == 0);
    const bool bSize = VELM_ASSERT(nHashSize > 0);
    if (!bEmpty || !bSize)
        return;
    VELM_CAssoc** pNew = NULL;
    if (bAllocNow) {
        pNew = AfxNewArray<VELM_CAssoc*>(nHashSize);
        memset(pNew, 0, nHashSize * sizeof(VELM_CAssoc*));
    }
    delete[] m_pHashTable;
    m_pHashTable = pNew;
    m_nHashTableSize = nHashSize;
}

template <class ASSOC, class ARG_KEY> void VELM_CMapTable<ASSOC, ARG_KEY>::RemoveAll()
{
    HandOut();
    Empty();
}

template <class ASSOC, class ARG_KEY> __attribute__((noinline)) void VELM_CMapTable<ASSOC, ARG_KEY>::Empty()
{
    SetIndex(NULL);
    AbandonBuilt();
    if (!VELM_CAssoc::bOwnsNothing) {
        for (unsigned i = 0; m_pHashTable != NULL && i < m_nHashTableSize; ++i) {
            for (VELM_CAssoc* pAssoc = m_pHashTable[i]; pAssoc != NULL; pAssoc = pAssoc->pNext)
                pAssoc->Destruct();
        }
    }
    delete[] m_pHashTable;
    m_pHashTable = NULL;
    m_nCount = 0;
    m_pFreeList = NULL;
    VELM_CPlex::FreeDataChain(m_pBlocks);
    m_pBlocks = NULL;
}

template <class ASSOC, class ARG_KEY>
__attribute__((noinline)) void VELM_CMapTable<ASSOC, ARG_KEY>::SetIndex(VELM_CMapIndex* pIndex)
{
    if (pIndex == VELM_CMapIndex::Never())
        HandOut();
    VELM_CMapIndex::Delete(m_pIndex.exchange(pIndex, std::memory_order_relaxed));
}

template <class ASSOC, class ARG_KEY> __attribute__((noinline)) void VELM_CMapTable<ASSOC, ARG_KEY>::MakeIndex() const
{
    VELM_CMapIndex *pNone = NULL, *pNew = VELM_CMapIndex::Make(GetChains(), TagOf, VELM_CAssoc::bGaps);
    if (!m_pIndex.compare_exchange_strong(pNone, pNew, std::memory_order_acq_rel))
        VELM_CMapIndex::Delete(pNew);
}

// The index; NULL if there is none, or if it does not fit the map's fields.
template <class ASSOC, class ARG_KEY>
__attribute__((always_inline)) inline VELM_CMapIndex* VELM_CMapTable<ASSOC, ARG_KEY>::Index() const
{
    VELM_CMapIndex* pIndex = m_pIndex.load(std::memory_order_acquire);
    return VELM_CMapIndex::Is(pIndex) && pIndex->IsOf(GetChains()) ? pIndex : NULL;
}

template <class ASSOC, class ARG_KEY> ASSOC* VELM_CMapTable<ASSOC, ARG_KEY>::FindIn(Search& rSearch, ARG_KEY key) const
{
    typedef typename std::remove_reference<ARG_KEY>::type Key;
    const VELM_CMapIndex::MatchesProc pfnMatches = [](const VELM_CMapNode* pNode, const void* pKey) {
        return reinterpret_cast<const VELM_CAssoc*>(pNode)->Matches(*static_cast<Key*>(const_cast<void*>(pKey)));
    };
    return reinterpret_cast<VELM_CAssoc*>(
        rSearch.pIndex->Find(rSearch.nTag, rSearch.nBucket, pfnMatches, std::addressof(key), rSearch.place));
}

/// \cond
// The node of a key; NULL when there is none. In a map that may have an index and has none, a walk that reaches nNear
// nodes, counted from nWalked, makes it. Reading operations pass nNear, so that their first walk makes the index.
// Operations that change the entries pass 0: as long as the chains are short, adding is quicker without an index.
template <class ASSOC, class ARG_KEY>
__attribute__((always_inline)) inline ASSOC* VELM_CMapTable<ASSOC, ARG_KEY>::Look(ARG_KEY key, Search& rSearch,
                                                                                  int nWalked) const
{
    rSearch.nBucket = Bucket(key);
    rSearch.pIndex = Index();
    if (rSearch.pIndex == NULL)
        return Walk(key, rSearch, nWalked);
    rSearch.nTag = VELM_CAssoc::Tag(rSearch.pIndex->m_hasher, key, rSearch.nBucket);
    return FindIn(rSearch, key);
}
/// \endcond

template <class ASSOC, class ARG_KEY>
__attribute__((noinline)) ASSOC* VELM_CMapTable<ASSOC, ARG_KEY>::Walk(ARG_KEY key, Search& rSearch, int nWalked) const
{
    if (m_pHashTable == NULL)
        return NULL;
    const bool bMayMake = VELM_CAssoc::bIndexed && m_nCount >= VELM_CMapIndex::nFewest;
    VELM_CAssoc** ppLink = &m_pHashTable[rSearch.nBucket];
    for (; *ppLink != NULL; ppLink = &(*ppLink)->pNext) {
        if (bMayMake && nWalked++ == VELM_CMapIndex::nNear && m_pIndex.load(std::memory_order_relaxed) == NULL) {
            MakeIndex();
            if (Index() != NULL)
                return Look(key, rSearch, 0);
        }
        if ((*ppLink)->Matches(key))
            break;
    }
    rSearch.ppLink = ppLink;
    return *ppLink;
}

// Looks for a key before the entries change, and first drops an index that does not fit the map's fields.
template <class ASSOC, class ARG_KEY>
__attribute__((always_inline)) inline ASSOC* VELM_CMapTable<ASSOC, ARG_KEY>::LookToChange(ARG_KEY key, Search& rSearch)
{
    if (VELM_CMapIndex::Is(m_pIndex.load(std::memory_order_relaxed)) && Index() == NULL)
        SetIndex(NULL);
    return Look(key, rSearch, 0);
}

template <class ASSOC, class ARG_KEY>
ASSOC* VELM_CMapTable<ASSOC, ARG_KEY>::GetAssocAt(ARG_KEY key, unsigned& nHash) const
{
    HandOut();
    Search search;
    VELM_CAssoc* pAssoc = Look(key, search, VELM_CMapIndex::nNear);
    nHash = search.nBucket;
    return pAssoc;
}

template <class ASSOC, class ARG_KEY>
__attribute__((flatten)) ASSOC* VELM_CMapTable<ASSOC, ARG_KEY>::FindOrAdd(ARG_KEY key)
{
    HandOut();
    Search search;
    VELM_CAssoc* pAssoc = LookToChange(key, search);
    return pAssoc != NULL ? pAssoc : Add(search, key);
}

// A new entry for a key that has none, at the head of its chain.
template <class ASSOC, class ARG_KEY> ASSOC* VELM_CMapTable<ASSOC, ARG_KEY>::Add(const Search& search, ARG_KEY key)
{
    if (m_pHashTable == NULL)
        MakeTable(m_nHashTableSize, true);
    if (m_pHashTable == NULL || !BuildFirstFree())
        return NULL;
    m_pFreeList->SetKey(key);
    VELM_CAssoc* pAssoc = TakeFirstFree();
    if (pAssoc == NULL)
        return NULL;
    pAssoc->nHashValue = search.nBucket;
    if (search.nBucket < m_nFirst.load(std::memory_order_relaxed))
        m_nFirst.store(search.nBucket, std::memory_order_relaxed);
    VELM_CAssoc*& rHead = m_pHashTable[search.nBucket];
    pAssoc->pNext = rHead;
    rHead = pAssoc;
    if (search.pIndex != NULL &&
        !search.pIndex->Add(search.place, search.nTag, reinterpret_cast<VELM_CMapNode*>(pAssoc)))
        SetIndex(NULL);
    return pAssoc;
}

template <class ASSOC, class ARG_KEY>
__attribute__((flatten)) int VELM_CMapTable<ASSOC, ARG_KEY>::RemoveKey(ARG_KEY key)
{
    HandOut();
    if (m_pHashTable == NULL)
        return 0;
    Search search;
    VELM_CAssoc* pAssoc = LookToChange(key, search);
    if (pAssoc == NULL)
        return 0;
    if (search.pIndex == NULL)
        *search.ppLink = pAssoc->pNext;
    else if (!search.pIndex->Unlink(search.place, reinterpret_cast<VELM_CMapNode*>(pAssoc)))
        return 0;
    PutBack(pAssoc);
    return 1;
}

// Constructs key and value of the first free node while it is still on the free list, so that a raise leaves a free
// node. False after a failed check.
template <class ASSOC, class ARG_KEY> bool VELM_CMapTable<ASSOC, ARG_KEY>::BuildFirstFree()
{
    AbandonBuilt();
    if (m_pFreeList == NULL) {
        VELM_CPlex* pBlock = VELM_CPlex::Create(m_pBlocks, static_cast<unsigned>(m_nBlockSize), sizeof(VELM_CAssoc));
        VELM_CAssoc* pNodes = static_cast<VELM_CAssoc*>(pBlock->data());
        for (int i = m_nBlockSize; i-- > 0;) {
            pNodes[i].pNext = m_pFreeList;
            m_pFreeList = pNodes + i;
        }
    }
    if (!VELM_ASSERT(m_pFreeList != NULL))
        return false;
    m_pFreeList->Construct(m_nBuilt);
    return true;
}

// Takes the built node off the free list and counts it. NULL, after a failed check, when the count would overflow.
template <class ASSOC, class ARG_KEY> ASSOC* VELM_CMapTable<ASSOC, ARG_KEY>::TakeFirstFree()
{
    m_nCount = static_cast<int>(static_cast<unsigned>(m_nCount) + 1);
    if (!VELM_ASSERT(m_nCount > 0)) {
        m_nCount = static_cast<int>(static_cast<unsigned>(m_nCount) - 1);
        return NULL;
    }
    VELM_CAssoc* pAssoc = m_pFreeList;
    m_pFreeList = pAssoc->pNext;
    m_nBuilt = 0;
    return pAssoc;
}

template <class ASSOC, class ARG_KEY> ASSOC* VELM_CMapTable<ASSOC, ARG_KEY>::NewAssoc()
{
    WalkChains();
    return BuildFirstFree() ? TakeFirstFree() : NULL;
}

template <class ASSOC, class ARG_KEY> void VELM_CMapTable<ASSOC, ARG_KEY>::FreeAssoc(VELM_CAssoc* pAssoc)
{
    WalkChains();
    if (pAssoc != NULL)
        PutBack(pAssoc);
}

template <class ASSOC, class ARG_KEY> void VELM_CMapTable<ASSOC, ARG_KEY>::PutBack(VELM_CAssoc* pAssoc)
{
    AbandonBuilt();
    pAssoc->Destruct();
    pAssoc->pNext = m_pFreeList;
    m_pFreeList = pAssoc;
    --m_nCount;
    if (VELM_CMapIndex::Is(m_pIndex.load(std::memory_order_relaxed)))
        m_pIndex.load(std::memory_order_relaxed)->CountRemoved();
    VELM_ASSERT(m_nCount >= 0);
    if (m_nCount == 0)
        Empty();
}

template <class ASSOC, class ARG_KEY> ASSOC* VELM_CMapTable<ASSOC, ARG_KEY>::AssocAtPosition(__POSITION* position) const
{
    if (!VELM_ASSERT(m_pHashTable != NULL))
        return NULL;
    VELM_CAssoc* pAssocRet = reinterpret_cast<VELM_CAssoc*>(position);
    if (!VELM_ASSERT(pAssocRet != NULL))
        return NULL;
    if (position == BeforeFirst()) {
        pAssocRet = First();
        VELM_ASSERT(pAssocRet != NULL);
    }
    return pAssocRet;
}

template <class ASSOC, class ARG_KEY>
__POSITION* VELM_CMapTable<ASSOC, ARG_KEY>::PositionBehind(const VELM_CAssoc* pAssoc) const
{
    VELM_CAssoc* pNext = pAssoc->pNext != NULL ? pAssoc->pNext : FirstFrom(pAssoc->nHashValue + 1);
    return reinterpret_cast<__POSITION*>(pNext);
}

// The head of the first chain that is not empty.
template <class ASSOC, class ARG_KEY> ASSOC* VELM_CMapTable<ASSOC, ARG_KEY>::First() const
{
    const bool bChanged = m_pIndex.load(std::memory_order_relaxed) == VELM_CMapIndex::Never();
    VELM_CAssoc* pAssoc = FirstFrom(bChanged ? 0 : m_nFirst.load(std::memory_order_relaxed));
    if (pAssoc != NULL)
        m_nFirst.store(pAssoc->nHashValue, std::memory_order_relaxed);
    return pAssoc;
}

// The head of the first chain that is not empty, beginning with the bucket.
template <class ASSOC, class ARG_KEY> ASSOC* VELM_CMapTable<ASSOC, ARG_KEY>::FirstFrom(unsigned nBucket) const
{
    while (nBucket < m_nHashTableSize && m_pHashTable[nBucket] == NULL)
        ++nBucket;
    return nBucket < m_nHashTableSize ? m_pHashTable[nBucket] : NULL;
}

template <class ASSOC, class ARG_KEY> ASSOC& VELM_CMapTable<ASSOC, ARG_KEY>::SpareAssoc()
{
    if (m_pSpare == NULL)
        m_pSpare = AfxNew(new (std::nothrow) VELM_CAssocRoom<VELM_CAssoc>);
    return m_pSpare->Renew();
}

/// A node of the pointer-keyed map.
struct VELM_API VELM_CPtrAssoc {
    VELM_CPtrAssoc* pNext; ///< The next node of the chain, or of the free list. For changes see `WalkChains`.
    unsigned nHashValue;   ///< The number of the bucket. For changes see `WalkChains`.
    void* key;             ///< The key. For changes see `WalkChains`.
    void* value;           ///< The value.
    unsigned nValue;       ///< A second value, for the caller's use.

    /// The 32-bit word that the key points at, shifted right by 4; 0 for NULL.
    static unsigned Hash(void* key)
    {
        uint32_t nWord = 0;
        if (key != NULL)
            memcpy(&nWord, key, sizeof nWord);
        return nWord >> 4;
    }
    /// Whether this is the key: the pointer itself.
    bool Matches(void* k) const { return key == k; }
    /// Takes the key.
    void SetKey(void* k) { key = k; }
    /// \cond
    enum { bIndexed = 1, bGaps = sizeof(void*) == 8 };
    static unsigned Tag(const VELM_CKeyHasher&, void* key, unsigned nBucket);
    unsigned Tag(const VELM_CKeyHasher& hasher) const { return Tag(hasher, key, nHashValue); }
    /// \endcond
    enum { bOwnsNothing = 1 }; ///< Nothing is to be done when a node goes.
    /// Zeroes key and values.
    void Construct(int&)
    {
        key = value = NULL;
        nValue = 0;
    }
    /// Nothing: the map owns neither key nor value.
    void Destruct() {}
    /// Nothing.
    void Destruct(int&) {}
};

/// \cond
template <> VELM_CPtrAssoc* VELM_CMapTable<VELM_CPtrAssoc, void*>::FindIn(Search& rSearch, void* key) const;
extern template class VELM_CMapTable<VELM_CPtrAssoc, void*>;
/// \endcond

/// A map from pointers to pointers, with a second, unsigned value beside each. It owns neither keys nor values.
///
/// Keys are compared by identity, and hashed by the 32-bit word that they point at, which must not change while the
/// key is in the map. A NULL key hashes as the word 0. Prints "CObject Serialize NYI\n" when serialised: it has no
/// archive form.
class VELM_API VELM_CMapPtrToPtr : public VELM_CMapTable<VELM_CPtrAssoc, void*> {
public:
    /// An empty map of 17 buckets; nodes come in blocks of `nBlockSize`. Asserts "nBlockSize > 0".
    explicit VELM_CMapPtrToPtr(int nBlockSize = 10);
    ~VELM_CMapPtrToPtr() override;
    /// Takes the entries of the other map, which is empty then.
    VELM_CMapPtrToPtr(VELM_CMapPtrToPtr&&) = default;
    /// \copydoc VELM_CMapPtrToPtr(VELM_CMapPtrToPtr&&)
    VELM_CMapPtrToPtr& operator=(VELM_CMapPtrToPtr&&) = default;

    /// The value of the key, in an entry that is made when there is none, with the value NULL.
    void*& operator[](void* key);
    /// Sets the value of the key.
    void SetAt(void* key, void* value) { (*this)[key] = value; }
    /// Delivers the value of the key. Returns 1, or 0 when there is no entry; `rValue` stays as it is then.
    int Lookup(void* key, void*& rValue) const;
    /// Delivers the second value of the key. Returns 1, or 0 when there is no entry; `rValue` stays as it is then.
    int LookupUINT(void* key, unsigned& rValue) const;
    /// Delivers the entry at the position and moves on; the position is NULL behind the last entry. Asserts
    /// "m_pHashTable != NULL", "pAssocRet != NULL"; after a failure the position is NULL, key and value stay.
    void GetNextAssoc(__POSITION*& rNextPosition, void*& rKey, void*& rValue) const;

private:
    friend class VELM_CStoredIndexes;
    // The node of a key; NULL when there is none. Unlike GetAssocAt it does not call HandOut: for the archive itself.
    VELM_LOCAL VELM_CAssoc* Find(void* key) const;
    // Append adds an entry for a key that has none. AppendNode does the same more quickly, but only for a map for which
    // HasNode is true, and whose count does not overflow.
    VELM_LOCAL VELM_CAssoc* Append(unsigned nBucket, void* key);
    bool HasNode() const { return m_pFreeList != NULL && m_pIndex.load(std::memory_order_relaxed) == NULL; }
    VELM_CAssoc* AppendNode(unsigned nBucket, void* key)
    {
        VELM_CAssoc* const pAssoc = m_pFreeList;
        m_pFreeList = pAssoc->pNext;
        ++m_nCount;
        if (nBucket < m_nFirst.load(std::memory_order_relaxed))
            m_nFirst.store(nBucket, std::memory_order_relaxed);
        VELM_CAssoc*& rHead = m_pHashTable[nBucket];
        pAssoc->pNext = rHead;
        pAssoc->nHashValue = nBucket;
        pAssoc->key = key;
        pAssoc->value = NULL;
        pAssoc->nValue = 0;
        rHead = pAssoc;
        return pAssoc;
    }
};

/// How a map that keeps keys of type KEY takes arguments of type ARG_KEY. In general an argument is hashed by
/// `HashKey`, or by its address if it is a `const char*`, and a key that was loaded is converted to an argument.
///
/// For keys of the types `VELM_CString` and `std::string` an argument is hashed by its text, also as a `const char*`;
/// NULL counts as the empty text. A program may specialise this template for keys of its own.
template <class KEY, class ARG_KEY> struct VELM_CMapKey {
    /// The hash value of an argument.
    static unsigned Hash(ARG_KEY key) { return VELM_CKeyHash<ARG_KEY>::Hash(key); }
    /// The argument to use in place of the one that was passed in, such as the empty text for NULL.
    static ARG_KEY Given(ARG_KEY key) { return key; }
    /// The argument for a stored key, valid until that key changes.
    static ARG_KEY Argument(const KEY& key) { return static_cast<ARG_KEY>(key); }
};
/// \cond
template <class CHAR> struct VELM_CTextKey {
    static CHAR* Given(CHAR* key) { return key == NULL ? const_cast<CHAR*>("") : key; }
    static unsigned Hash(CHAR* key) { return HashKey(const_cast<char*>(key)); }
    static CHAR* Argument(const VELM_CString& key) { return key.m_data; }
    static CHAR* Argument(const std::string& key) { return const_cast<CHAR*>(key.c_str()); }
};
template <> struct VELM_CMapKey<VELM_CString, char*> : VELM_CTextKey<char> {
};
template <> struct VELM_CMapKey<VELM_CString, const char*> : VELM_CTextKey<const char> {
};
template <> struct VELM_CMapKey<std::string, char*> : VELM_CTextKey<char> {
};
template <> struct VELM_CMapKey<std::string, const char*> : VELM_CTextKey<const char> {
};
/// \endcond

/// A node of a template map.
template <class KEY, class ARG_KEY, class VALUE> struct VELM_API VELM_CMapAssoc {
    VELM_CMapAssoc* pNext; ///< The next node of the chain, or of the free list. For changes see `WalkChains`.
    unsigned nHashValue;   ///< The number of the bucket. For changes see `WalkChains`.
    KEY key;               ///< The node's own key. For changes see `WalkChains`.
    VALUE value;           ///< The value.

    enum { bOwnsNothing = 0 };                ///< Key and value are destroyed when a node goes.
    typedef VELM_CMapKey<KEY, ARG_KEY> KeyOf; ///< How the map takes its keys.
    /// The hash value of the key.
    static unsigned Hash(ARG_KEY key) { return KeyOf::Hash(key); }
    /// Whether this is the key, as by `CompareElements`.
    bool Matches(ARG_KEY k) const
    {
        const ARG_KEY given = KeyOf::Given(k);
        return CompareElements(&key, &given) != 0;
    }
    /// Takes a copy of the key.
    void SetKey(ARG_KEY k) { key = KeyOf::Given(k); }
    /// \cond
    typedef VELM_CTagOf<KEY, ARG_KEY> TagOf;
    enum { bIndexed = TagOf::bIndexed, bGaps = 0 };
    // Mixes the bucket into the tag, since equal keys may be in several buckets.
    static unsigned Tagged(unsigned nHash, unsigned nBucket) { return nHash + nBucket * 0x9E3779B1; }
    static unsigned Tag(const VELM_CKeyHasher& hasher, ARG_KEY k, unsigned nBucket)
    {
        return Tagged(TagOf::Tag(hasher, KeyOf::Given(k)), nBucket);
    }
    unsigned Tag(const VELM_CKeyHasher& hasher) const { return Tagged(TagOf::TagOfKey(hasher, key), nHashValue); }
    /// \endcond
    /// Constructs key and value by `ConstructElements`; `rBuilt` counts them as they are.
    void Construct(int& rBuilt)
    {
        ConstructElements(&key, 1);
        rBuilt = 1;
        ConstructElements(&value, 1);
        rBuilt = 2;
    }
    /// Destroys key and value by `DestructElements`.
    void Destruct()
    {
        DestructElements(&key, 1);
        DestructElements(&value, 1);
    }
    /// Destroys as many as are constructed.
    void Destruct(int& rBuilt)
    {
        const int nBuilt = rBuilt;
        rBuilt = 0;
        if (nBuilt > 1)
            DestructElements(&value, 1);
        if (nBuilt > 0)
            DestructElements(&key, 1);
    }
};

/// A map that owns its keys and values: KEY and VALUE are the stored types, ARG_KEY and ARG_VALUE the types in which
/// they are passed in. The element helpers say how keys are hashed, compared and kept, and how both are archived.
///
/// The library exports the maps from `fxStr` to `int` with `char*` and with `const char*` keys. They differ in the
/// bucket of a key: `char*` hashes the text, `const char*` the address, so that equal texts at two addresses may be
/// two entries there.
///
/// `Serialize` prints "CObject Serialize NYI\n" on standard output. It stores the count and, in the order of iteration,
/// each key and value. Loading adds those entries to the map, and replaces the values of keys that the map has. It
/// raises 3 when the data ends early, and 5 when an entry has a key that the map already has although this one or an
/// earlier entry of the same call has become the owner of objects. A map whose keys or values have no form in an
/// archive (see `SerializeElements`) can be used, but its `Serialize` raises 1. Types of the standard library have such
/// a form if `mfc_std.h` is included; every source file that uses the map must then include it.
template <class KEY, class ARG_KEY, class VALUE, class ARG_VALUE>
class VELM_API VELM_CMap : public VELM_CMapTable<VELM_CMapAssoc<KEY, ARG_KEY, VALUE>, ARG_KEY> {
    typedef VELM_CMapTable<VELM_CMapAssoc<KEY, ARG_KEY, VALUE>, ARG_KEY> Table;

public:
    typedef typename Table::VELM_CAssoc VELM_CAssoc; ///< The node.
    using Table::m_pHashTable;

    /// An empty map of 17 buckets; nodes come in blocks of `nBlockSize`. Asserts "nBlockSize > 0".
    explicit VELM_CMap(int nBlockSize = 10) : Table(nBlockSize) {}
    ~VELM_CMap() override {}
    /// Takes the entries of the other map, which is empty then.
    VELM_CMap(VELM_CMap&&) = default;
    /// \copydoc VELM_CMap(VELM_CMap&&)
    VELM_CMap& operator=(VELM_CMap&&) = default;

    /// The value of the key, in an entry that is made when there is none, with a new value.
    VALUE& operator[](ARG_KEY key)
    {
        VELM_CAssoc* pAssoc = this->FindOrAdd(key);
        return pAssoc != NULL ? pAssoc->value : this->SpareAssoc().value;
    }
    /// Sets the value of the key. Where the value's assignment raises, a new entry stays, with a new value.
    void SetAt(ARG_KEY key, ARG_VALUE value) { (*this)[key] = value; }
    /// Delivers the value of the key. Returns 1, or 0 when there is no entry; `rValue` stays as it is then.
    int Lookup(ARG_KEY key, VALUE& rValue) const
    {
        typename Table::Search search;
        const VELM_CAssoc* pAssoc = this->Look(key, search);
        if (pAssoc == NULL)
            return 0;
        rValue = pAssoc->value;
        return 1;
    }
    /// Delivers copies of the entry at the position and moves on; the position is NULL behind the last entry. Asserts
    /// "m_pHashTable != NULL", "pAssocRet != NULL"; after a failure the position is NULL, key and value stay.
    void GetNextAssoc(__POSITION*& rNextPosition, KEY& rKey, VALUE& rValue) const
    {
        const VELM_CAssoc* pAssoc = this->AssocAtPosition(rNextPosition);
        rNextPosition = NULL;
        if (pAssoc == NULL)
            return;
        rNextPosition = this->PositionBehind(pAssoc);
        rKey = pAssoc->key;
        rValue = pAssoc->value;
    }
    /// Stores or loads the entries; see above. Asserts "m_pHashTable != NULL" before it stores entries.
    void Serialize(VELM_CArchive& ar) override;
};

template <class KEY, class ARG_KEY, class VALUE, class ARG_VALUE>
void VELM_CMap<KEY, ARG_KEY, VALUE, ARG_VALUE>::Serialize(VELM_CArchive& ar)
{
    VELM_CObject::Serialize(ar);
    if (ar.IsStoring()) {
        ar.WriteCount(static_cast<unsigned long>(this->m_nCount));
        if (this->m_nCount == 0)
            return;
        if (!VELM_ASSERT(m_pHashTable != NULL)) {
            ar.NoteLoss("the entries of a map were not stored");
            return;
        }
        for (unsigned i = 0; i < this->m_nHashTableSize; ++i) {
            for (VELM_CAssoc* pAssoc = m_pHashTable[i]; pAssoc != NULL; pAssoc = pAssoc->pNext) {
                SerializeElements(ar, &pAssoc->key, 1);
                SerializeElements(ar, &pAssoc->value, 1);
            }
        }
        return;
    }
    typedef typename std::conditional<std::is_assignable<VALUE&, VALUE&&>::value, VALUE&&, VALUE&>::type Loaded;
    // The archive holds what is loaded before it is in the map: a raise of an element helper must not lose it.
    VELM_CAssocRoom<VELM_CAssoc>* pLoaded = AfxNew(new (std::nothrow) VELM_CAssocRoom<VELM_CAssoc>);
    ar.Hold(pLoaded);
    const unsigned nAdopted = ar.GetAdoptions();
    for (unsigned long n = ar.ReadCount(); n > 0; --n) {
        VELM_CAssoc& entry = pLoaded->Renew();
        SerializeElements(ar, &entry.key, 1);
        if (!ar.IsDataEnded())
            SerializeElements(ar, &entry.value, 1);
        if (ar.IsDataEnded())
            break;
        const int nBefore = this->m_nCount;
        VALUE& rValue = (*this)[VELM_CAssoc::KeyOf::Argument(entry.key)];
        if (this->m_nCount == nBefore && ar.GetAdoptions() != nAdopted) { // an owner would release what it owns
            ar.RaiseBadIndex("an owner has the key of an earlier one");
            return; // the archive holds the new value
        }
        rValue = static_cast<Loaded>(entry.value);
        ar.MovedFromHeld(pLoaded);
    }
    ar.DropHeld(pLoaded);
    ar.RaiseDataEnded(); // for element helpers that do not raise it themselves
}

/// \cond
// The two maps from strings to ints that the library exports.
extern template class VELM_CMapTable<VELM_CMapAssoc<fxStr, char*, int>, char*>;
extern template class VELM_CMapTable<VELM_CMapAssoc<fxStr, const char*, int>, const char*>;
extern template class VELM_CMap<fxStr, char*, int, int>;
extern template class VELM_CMap<fxStr, const char*, int, int>;
/// \endcond

/// \}

#endif
