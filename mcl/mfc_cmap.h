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
/// - A key and a value are constructed exactly while their node is handed out.
///
/// What the maps share is VELM_CMapTable; a map adds its kind of node, which knows how a key is hashed, matched and
/// kept, and the operations whose results have its types.
#ifndef TAVNOMCL_MFC_CMAP_H
#define TAVNOMCL_MFC_CMAP_H

#include <stdint.h>
#include <string.h>

#include "mcl/mfc_base.h"
#include "mcl/mfc_carcex.h"
#include "mcl/mfc_cobj.h"
#include "mcl/mfc_cplex.h"
#include "mcl/mfc_template.h"

/// \addtogroup collections
/// \{

/// A place in an iteration: the entry that comes next. All bits set: before the first entry; NULL: behind the last.
struct __POSITION;

/// The structure that the maps share. ASSOC is the node, ARG_KEY the type in which keys are passed in.
///
/// An operation whose check fails changes nothing and delivers NULL or 0. Exhausted memory: see `AfxMemoryExhausted`.
template <class ASSOC, class ARG_KEY> class VELM_API VELM_CMapTable : public VELM_CObject {
public:
    typedef ASSOC VELM_CAssoc; ///< The node.
    typedef ASSOC CAssoc;      ///< The node, by its short name.

    VELM_CAssoc** m_pHashTable; ///< The bucket heads, of operator new[]; NULL while there is no table.
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

    /// Number of entries.
    int GetCount() const { return m_nCount; }
    /// 1 when there is no entry, else 0.
    int IsEmpty() const { return m_nCount == 0; }
    /// The position before the first entry; NULL when there is none.
    __POSITION* GetStartPosition() const { return m_nCount == 0 ? NULL : BeforeFirst(); }

    /// Sets the number of buckets of an empty map, and makes the table at once when asked to. Asserts "m_nCount == 0"
    /// and "nHashSize > 0".
    void InitHashTable(unsigned nHashSize, int bAllocNow = 1);
    /// Removes every entry and releases the table and the nodes. The number of buckets stays.
    void RemoveAll();
    /// Removes the entry of the key. Returns 1, or 0 when there is none. Asserts "m_nCount >= 0".
    int RemoveKey(ARG_KEY key);
    /// The node of the key, or NULL; `nHash` receives its bucket in any case.
    VELM_CAssoc* GetAssocAt(ARG_KEY key, unsigned& nHash) const;
    /// Takes a node off the free list, which a new block refills, and counts it. Its `pNext` and `nHashValue` are for
    /// the caller to set. Asserts "m_pFreeList != NULL" and "m_nCount > 0".
    VELM_CAssoc* NewAssoc();
    /// Puts a node that is on no chain back on the free list. When it was the last one in use, empties the map.
    /// Asserts "m_nCount >= 0".
    void FreeAssoc(VELM_CAssoc* pAssoc);

protected:
    /// The node of the key, made when there is none; NULL only after a failed check.
    VELM_CAssoc* FindOrAdd(ARG_KEY key);
    /// The node at the position; NULL after a failed check of "m_pHashTable != NULL" or "pAssocRet != NULL".
    VELM_CAssoc* AssocAtPosition(__POSITION* position) const;
    /// The position behind the node.
    __POSITION* PositionBehind(const VELM_CAssoc* pAssoc) const;

private:
    static __POSITION* BeforeFirst() { return reinterpret_cast<__POSITION*>(~uintptr_t(0)); }
    unsigned Bucket(ARG_KEY key) const
    {
        const unsigned nHash = VELM_CAssoc::Hash(key);
        return m_nHashTableSize == 0 ? 0 : nHash % m_nHashTableSize;
    }
    VELM_CAssoc** LinkTo(unsigned nBucket, ARG_KEY key) const;
    VELM_CAssoc* FirstFrom(unsigned nBucket) const;
};

template <class ASSOC, class ARG_KEY>
VELM_CMapTable<ASSOC, ARG_KEY>::VELM_CMapTable(int nBlockSize)
    : m_pHashTable(NULL), m_nHashTableSize(17), m_nCount(0), m_pFreeList(NULL), m_pBlocks(NULL), m_nBlockSize(1)
{
    if (VELM_ASSERT(nBlockSize > 0))
        m_nBlockSize = nBlockSize;
}

template <class ASSOC, class ARG_KEY> VELM_CMapTable<ASSOC, ARG_KEY>::~VELM_CMapTable()
{
    RemoveAll();
    VELM_ASSERT(m_nCount == 0);
}

template <class ASSOC, class ARG_KEY>
void VELM_CMapTable<ASSOC, ARG_KEY>::InitHashTable(unsigned nHashSize, int bAllocNow)
{
    const bool bEmpty = VELM_ASSERT(m_nCount == 0);
    const bool bSize = VELM_ASSERT(nHashSize > 0);
    if (!bEmpty || !bSize)
        return;
    delete[] m_pHashTable;
    m_pHashTable = NULL;
    if (bAllocNow) {
        m_pHashTable = AfxNewArray<VELM_CAssoc*>(nHashSize);
        memset(m_pHashTable, 0, nHashSize * sizeof(VELM_CAssoc*));
    }
    m_nHashTableSize = nHashSize;
}

template <class ASSOC, class ARG_KEY> void VELM_CMapTable<ASSOC, ARG_KEY>::RemoveAll()
{
    for (unsigned i = 0; m_pHashTable != NULL && i < m_nHashTableSize; ++i) {
        for (VELM_CAssoc* pAssoc = m_pHashTable[i]; pAssoc != NULL; pAssoc = pAssoc->pNext)
            pAssoc->Destruct();
    }
    delete[] m_pHashTable;
    m_pHashTable = NULL;
    m_nCount = 0;
    m_pFreeList = NULL;
    VELM_CPlex::FreeDataChain(m_pBlocks);
    m_pBlocks = NULL;
}

// The link that points at the node of the key, or at the NULL that ends its chain.
template <class ASSOC, class ARG_KEY>
ASSOC** VELM_CMapTable<ASSOC, ARG_KEY>::LinkTo(unsigned nBucket, ARG_KEY key) const
{
    VELM_CAssoc** ppLink = &m_pHashTable[nBucket];
    while (*ppLink != NULL && !(*ppLink)->Matches(key))
        ppLink = &(*ppLink)->pNext;
    return ppLink;
}

template <class ASSOC, class ARG_KEY>
ASSOC* VELM_CMapTable<ASSOC, ARG_KEY>::GetAssocAt(ARG_KEY key, unsigned& nHash) const
{
    nHash = Bucket(key);
    return m_pHashTable == NULL ? NULL : *LinkTo(nHash, key);
}

template <class ASSOC, class ARG_KEY> ASSOC* VELM_CMapTable<ASSOC, ARG_KEY>::FindOrAdd(ARG_KEY key)
{
    unsigned nHash;
    VELM_CAssoc* pAssoc = GetAssocAt(key, nHash);
    if (pAssoc != NULL)
        return pAssoc;
    if (m_pHashTable == NULL)
        InitHashTable(m_nHashTableSize, 1);
    if (m_pHashTable == NULL || (pAssoc = NewAssoc()) == NULL)
        return NULL;
    pAssoc->nHashValue = nHash;
    pAssoc->SetKey(key);
    pAssoc->pNext = m_pHashTable[nHash];
    m_pHashTable[nHash] = pAssoc;
    return pAssoc;
}

template <class ASSOC, class ARG_KEY> int VELM_CMapTable<ASSOC, ARG_KEY>::RemoveKey(ARG_KEY key)
{
    if (m_pHashTable == NULL)
        return 0;
    VELM_CAssoc** ppLink = LinkTo(Bucket(key), key);
    VELM_CAssoc* pAssoc = *ppLink;
    if (pAssoc == NULL)
        return 0;
    *ppLink = pAssoc->pNext;
    FreeAssoc(pAssoc);
    return 1;
}

template <class ASSOC, class ARG_KEY> ASSOC* VELM_CMapTable<ASSOC, ARG_KEY>::NewAssoc()
{
    if (m_pFreeList == NULL) {
        VELM_CPlex* pBlock = VELM_CPlex::Create(m_pBlocks, static_cast<unsigned>(m_nBlockSize), sizeof(VELM_CAssoc));
        VELM_CAssoc* pNodes = static_cast<VELM_CAssoc*>(pBlock->data());
        for (int i = m_nBlockSize; i-- > 0;) {
            pNodes[i].pNext = m_pFreeList;
            m_pFreeList = pNodes + i;
        }
    }
    if (!VELM_ASSERT(m_pFreeList != NULL))
        return NULL;
    VELM_CAssoc* pAssoc = m_pFreeList;
    m_pFreeList = pAssoc->pNext;
    m_nCount = static_cast<int>(static_cast<unsigned>(m_nCount) + 1);
    if (!VELM_ASSERT(m_nCount > 0)) {
        m_nCount = static_cast<int>(static_cast<unsigned>(m_nCount) - 1);
        pAssoc->pNext = m_pFreeList;
        m_pFreeList = pAssoc;
        return NULL;
    }
    pAssoc->Construct();
    return pAssoc;
}

template <class ASSOC, class ARG_KEY> void VELM_CMapTable<ASSOC, ARG_KEY>::FreeAssoc(VELM_CAssoc* pAssoc)
{
    if (pAssoc == NULL)
        return;
    pAssoc->Destruct();
    pAssoc->pNext = m_pFreeList;
    m_pFreeList = pAssoc;
    --m_nCount;
    VELM_ASSERT(m_nCount >= 0);
    if (m_nCount == 0)
        RemoveAll();
}

template <class ASSOC, class ARG_KEY> ASSOC* VELM_CMapTable<ASSOC, ARG_KEY>::AssocAtPosition(__POSITION* position) const
{
    if (!VELM_ASSERT(m_pHashTable != NULL))
        return NULL;
    VELM_CAssoc* pAssocRet = reinterpret_cast<VELM_CAssoc*>(position);
    if (!VELM_ASSERT(pAssocRet != NULL))
        return NULL;
    if (position == BeforeFirst()) {
        pAssocRet = FirstFrom(0);
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

// The head of the first chain that is not empty, from the bucket on.
template <class ASSOC, class ARG_KEY> ASSOC* VELM_CMapTable<ASSOC, ARG_KEY>::FirstFrom(unsigned nBucket) const
{
    while (nBucket < m_nHashTableSize && m_pHashTable[nBucket] == NULL)
        ++nBucket;
    return nBucket < m_nHashTableSize ? m_pHashTable[nBucket] : NULL;
}

/// A node of the pointer-keyed map.
struct VELM_API VELM_CPtrAssoc {
    VELM_CPtrAssoc* pNext; ///< The next node of the chain, or of the free list.
    unsigned nHashValue;   ///< The bucket.
    void* key;             ///< The key.
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
    /// Zeroes key and values.
    void Construct()
    {
        key = value = NULL;
        nValue = 0;
    }
    /// Nothing: the map owns neither key nor value.
    void Destruct() {}
};

extern template class VELM_CMapTable<VELM_CPtrAssoc, void*>;

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
};

/// A node of a template map.
template <class KEY, class ARG_KEY, class VALUE> struct VELM_API VELM_CMapAssoc {
    VELM_CMapAssoc* pNext; ///< The next node of the chain, or of the free list.
    unsigned nHashValue;   ///< The bucket.
    KEY key;               ///< The node's own key.
    VALUE value;           ///< The value.

    /// As `HashKey`.
    static unsigned Hash(ARG_KEY key) { return HashKey(key); }
    /// Whether this is the key, as by `CompareElements`.
    bool Matches(ARG_KEY k) const { return CompareElements(&key, &k) != 0; }
    /// Takes a copy of the key.
    void SetKey(ARG_KEY k) { key = k; }
    /// Constructs key and value by `ConstructElements`.
    void Construct()
    {
        ConstructElements(&key, 1);
        ConstructElements(&value, 1);
    }
    /// Destroys key and value by `DestructElements`.
    void Destruct()
    {
        DestructElements(&key, 1);
        DestructElements(&value, 1);
    }
};

/// A node outside of a map, for what is being loaded.
template <class ASSOC> class VELM_LOCAL VELM_CLoadedAssoc : public VELM_CObject {
public:
    /// Constructs key and value.
    VELM_CLoadedAssoc() { Node().Construct(); }
    ~VELM_CLoadedAssoc() override { Node().Destruct(); }
    /// The node, with a new key and value.
    ASSOC& Renew()
    {
        Node().Destruct();
        Node().Construct();
        return Node();
    }

private:
    ASSOC& Node() { return *reinterpret_cast<ASSOC*>(m_room); }
    alignas(ASSOC) unsigned char m_room[sizeof(ASSOC)];
};

/// A map that owns its keys and values: KEY and VALUE are the stored types, ARG_KEY and ARG_VALUE the types in which
/// they are passed in. The element helpers say how keys are hashed, compared and kept, and how both are archived.
///
/// The library exports the maps from `fxStr` to `int` with `char*` and with `const char*` keys. They differ in the
/// bucket of a key: `char*` hashes the text, `const char*` the address, so that equal texts at two addresses may be
/// two entries there.
///
/// `Serialize` prints "CObject Serialize NYI\n" on standard output. It stores the count and, in the order of iteration,
/// each key and value; loading merges those entries into the map, and raises 3 when the data ends.
template <class KEY, class ARG_KEY, class VALUE, class ARG_VALUE>
class VELM_API VELM_CMap : public VELM_CMapTable<VELM_CMapAssoc<KEY, ARG_KEY, VALUE>, ARG_KEY> {
    typedef VELM_CMapTable<VELM_CMapAssoc<KEY, ARG_KEY, VALUE>, ARG_KEY> Table;

public:
    typedef typename Table::VELM_CAssoc VELM_CAssoc; ///< The node.
    using Table::m_pHashTable;

    /// An empty map of 17 buckets; nodes come in blocks of `nBlockSize`. Asserts "nBlockSize > 0".
    explicit VELM_CMap(int nBlockSize = 10) : Table(nBlockSize) {}
    ~VELM_CMap() override {}

    /// The value of the key, in an entry that is made when there is none, with a new value.
    VALUE& operator[](ARG_KEY key)
    {
        VELM_CAssoc* pAssoc = this->FindOrAdd(key);
        if (pAssoc != NULL)
            return pAssoc->value;
        static thread_local VALUE spare; // where a failed check left no entry
        spare = VALUE();
        return spare;
    }
    /// Sets the value of the key.
    void SetAt(ARG_KEY key, ARG_VALUE value) { (*this)[key] = value; }
    /// Delivers the value of the key. Returns 1, or 0 when there is no entry; `rValue` stays as it is then.
    int Lookup(ARG_KEY key, VALUE& rValue) const
    {
        unsigned nHash;
        const VELM_CAssoc* pAssoc = this->GetAssocAt(key, nHash);
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
    if (ar.m_nMode == VELM_CArchive::store) {
        ar.WriteCount(static_cast<unsigned long>(this->m_nCount));
        if (this->m_nCount == 0)
            return;
        if (!VELM_ASSERT(m_pHashTable != NULL))
            return;
        for (unsigned i = 0; i < this->m_nHashTableSize; ++i) {
            for (VELM_CAssoc* pAssoc = m_pHashTable[i]; pAssoc != NULL; pAssoc = pAssoc->pNext) {
                SerializeElements(ar, &pAssoc->key, 1);
                SerializeElements(ar, &pAssoc->value, 1);
            }
        }
        return;
    }
    // The archive holds what is loaded before it is in the map: a raise of an element helper must not lose it.
    VELM_CLoadedAssoc<VELM_CAssoc>* pLoaded = new (std::nothrow) VELM_CLoadedAssoc<VELM_CAssoc>;
    if (pLoaded == NULL)
        AfxMemoryExhausted();
    ar.Hold(pLoaded);
    unsigned long n = ar.ReadCount();
    for (; n > 0; --n) {
        VELM_CAssoc& entry = pLoaded->Renew();
        SerializeElements(ar, &entry.key, 1);
        if (!ar.IsDataEnded())
            SerializeElements(ar, &entry.value, 1);
        if (ar.IsDataEnded())
            break;
        (*this)[static_cast<ARG_KEY>(entry.key)] = entry.value;
    }
    ar.DropHeld();
    if (n > 0)
        ar.RaiseDataEnded();
}

/// \}

#endif
