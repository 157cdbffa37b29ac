// The indexes that a storing archive has given to objects and classes; private to the library.
//
// The store map is what a program sees, and it is the truth about which index an object has. Beside it the archive
// keeps a hash table of its own, so that it need not search the map as long as nobody else changes that. An entry of
// the table identifies a key completely:
//
//     tag: made of the address  |  low word: the index  |  high word: the upper 16 bits of the address, and the bucket
//
// Finding a known object takes one line of the table and the object's first word: two cache misses that do not wait for
// each other. A new object gets an entry in the table, in a line that its neighbours in memory have used already, and a
// node at the head of its chain in the map. Nothing is searched.
//
// - The bucket is the one that the map computes from the key's first word as it is now. If the first word of a known
//   key has changed and selects another bucket, the key is new, as it is for the map: two temporaries of different
//   classes at one address are two objects.
// - An entry with the index 0 belongs to an object or a class whose storing was interrupted by a raise. Its node is
//   looked up in the map.
// - The table is given up for good, and the map is searched from then on, when the program may have changed the map:
//   when it has called a member that changes entries or hands out a node or a reference, or when the map's count or its
//   table of buckets has changed. The same happens when a key does not fit into an entry, and when there is no memory.
#ifndef TAVNOMCL_MFC_CARCSTORED_P_H
#define TAVNOMCL_MFC_CARCSTORED_P_H

#include "mcl/mfc_cmap.h"
#include "mcl/mfc_ctable_p.h"

class VELM_LOCAL VELM_CStoredIndexes {
public:
    VELM_CStoredIndexes() = default;
    VELM_CStoredIndexes(const VELM_CStoredIndexes&) = delete;
    VELM_CStoredIndexes& operator=(const VELM_CStoredIndexes&) = delete;

    // Begins a table beside an empty map. There is none when the map has entries or more than 65,536 buckets, or when
    // there is no memory.
    void Start(VELM_CMapPtrToPtr& map);
    void End();
    // Whether the table can be relied on: nobody else may have changed the map.
    bool IsRight(const VELM_CMapPtrToPtr* pMap) const
    {
        return pMap == m_pMap && static_cast<size_t>(pMap->m_nCount) == m_table.GetCount() &&
               pMap->m_pHashTable == m_pBuckets && !pMap->m_bHandedOut.load(std::memory_order_relaxed);
    }

    struct Entry {
        uint32_t nIndex;        // 0 when the object or class is new
        VELM_CPtrAssoc* pAssoc; // its node, if it is new or the node was asked for
        uint32_t* pIndex;       // its index in the table, or NULL
        unsigned nMoves;        // pIndex is good while the table's Moves() is this number
    };
    // Finds the entry of an object or a class, or makes one. bAssoc asks for its node in any case. Raises 1 when there
    // is no memory.
    Entry Find(VELM_CMapPtrToPtr& map, const void* key, bool bAssoc = false);
    // The same, for the frequent case that one line of the table and a free node are enough. Otherwise it does nothing,
    // and the result has neither an index nor a node: call Find then.
    __attribute__((always_inline)) Entry FindNear(VELM_CMapPtrToPtr& map, const void* key)
    {
        const Key inTable = KeyOf(key);
        VELM_CTable::Line& line = m_table.HomeOf(inTable.nTag);
        const unsigned nMask = VELM_CTable::Matching(line, inTable.nTag);
        if (nMask != 0) {
            const unsigned i = static_cast<unsigned>(__builtin_ctz(nMask));
            return {line.nHigh[i] == inTable.nHigh && HasRoomFor(key) ? line.nLow[i] : 0, nullptr, nullptr, 0};
        }
        const VELM_CTable::Place at = line.FreePlace();
        if (line.bPassed != 0 || !m_table.HasRoom(at) || !HasRoomFor(key) || !map.HasNode())
            return {0, nullptr, nullptr, 0};
        VELM_CPtrAssoc* const pAssoc = map.AppendNode(inTable.nHigh & 0xFFFF, const_cast<void*>(key));
        m_table.Put(at, inTable.nTag, uint64_t{inTable.nHigh} << 32);
        return {0, pAssoc, &at.Low(), m_table.Moves()};
    }
    // The index of a class that is stored already, if one line of the table shows it; otherwise 0. Also 0 when the
    // table has moved since nMoves. The class of the last call is remembered.
    uint32_t IndexOfClass(const VELM_CRuntimeClass* pClass, unsigned nMoves)
    {
        if (nMoves != m_table.Moves())
            return 0;
        if (pClass == m_pLastClass && pClass->m_pszName == m_pszLastClass)
            return m_nLastClass;
        const Key inTable = KeyOf(pClass);
        const VELM_CTable::Line& line = m_table.HomeOf(inTable.nTag);
        const unsigned nMask = VELM_CTable::Matching(line, inTable.nTag);
        const unsigned i = nMask == 0 ? 0 : static_cast<unsigned>(__builtin_ctz(nMask));
        if (nMask == 0 || line.nHigh[i] != inTable.nHigh || line.nLow[i] == 0 || !HasRoomFor(pClass))
            return 0;
        m_pLastClass = pClass;
        m_pszLastClass = pClass->m_pszName;
        return m_nLastClass = line.nLow[i];
    }
    // Gives an index to the object or class of an entry.
    void Give(VELM_CPtrAssoc& rAssoc, uint32_t nIndex);
    // The index of an object; 0 when it has none.
    uint32_t IndexOf(const VELM_CMapPtrToPtr& map, const void* key) const;

private:
    struct Key {
        uint32_t nTag;
        uint32_t nHigh;
    };

    const void* m_pMap = this; // the map of the table; `this`, which is no map, while there is no table
    const void* m_pBuckets = nullptr;
    unsigned m_nBuckets = 1;
    VELM_CTable m_table;
    const VELM_CRuntimeClass* m_pLastClass = nullptr;
    const char* m_pszLastClass = nullptr;
    uint32_t m_nLastClass = 0;

    Key KeyOf(const void* key) const
    {
        const unsigned nBucket = VELM_CPtrAssoc::Hash(const_cast<void*>(key)) % m_nBuckets;
        const uint64_t nAddress = reinterpret_cast<uintptr_t>(key);
        return {VELM_CTable::TagOf(key), static_cast<uint32_t>(nAddress >> 32 << 16) | nBucket};
    }
    static bool HasRoomFor(const void* key) { return uint64_t{reinterpret_cast<uintptr_t>(key)} >> 48 == 0; }
    bool Find(Key key, VELM_CTable::Place& rAt) const
    {
        return m_table.Find(key.nTag, rAt, [=](const VELM_CTable::Place& at) { return at.High() == key.nHigh; });
    }
};

#endif
