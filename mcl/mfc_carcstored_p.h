// The indexes that a storing archive has given to objects and classes; private to the library.
//
// The store map says which index an object has, and is what a program sees. As long as nobody but the archive changes
// it, the archive need not search it. It has a table of its own beside it, whose entries tell all of a key:
//
//     tag: of the address  |  low word: the index  |  high word: the upper 16 bits of the address, and the bucket
//
// So finding a known object takes one line of the table and the object's first word, two cache misses that do not wait
// for each other. A new object gets an entry, in a line that its neighbours in memory have used already, and a node at
// the head of its chain, and nothing is searched.
//
// - The bucket is that of the key's first word as it is now. A key whose first word has come to select another bucket
//   is new, as it is to the map: two temporaries of different classes at one address are two objects.
// - An entry with the index 0 is one whose storing was left by a raise. The map is asked for its node.
// - The table is given up for good, and the map is asked from there on, when somebody else may have changed the map:
//   one of its members has been called that changes entries or hands out a node or a reference, or its count or its
//   table of buckets is another one. So it is for a key that an entry has no room for, and without memory.
#ifndef TAVNOMCL_MFC_CARCSTORED_P_H
#define TAVNOMCL_MFC_CARCSTORED_P_H

#include "mcl/mfc_cmap.h"
#include "mcl/mfc_ctable_p.h"

class VELM_LOCAL VELM_CStoredIndexes {
public:
    VELM_CStoredIndexes() = default;
    VELM_CStoredIndexes(const VELM_CStoredIndexes&) = delete;
    VELM_CStoredIndexes& operator=(const VELM_CStoredIndexes&) = delete;

    // Begins beside an empty map.
    void Start(VELM_CMapPtrToPtr& map);
    void End();
    // Whether the table says what the map would say.
    bool IsRight(const VELM_CMapPtrToPtr* pMap) const
    {
        return pMap == m_pMap && static_cast<size_t>(pMap->m_nCount) == m_table.GetCount() &&
               pMap->m_pHashTable == m_pBuckets && !pMap->m_bHandedOut.load(std::memory_order_relaxed);
    }

    struct Entry {
        uint32_t nIndex;        // 0 when the object or class is new
        VELM_CPtrAssoc* pAssoc; // of what is new, or where it is wanted
        uint32_t* pIndex;       // in the table; NULL where it is not there
        unsigned nMoves;        // of the table until then
    };
    // The entry of an object or a class, which is made when there is none. Raises 1 when there is no memory for it.
    Entry Find(VELM_CMapPtrToPtr& map, const void* key, bool bAssoc = false);
    // The same as far as it takes one line of the table and a free node. Otherwise there is neither index nor node, and
    // nothing has been done.
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
    // The index of a class that is stored already, if that is seen in one line of the table, which has not moved since
    // then. The class that was asked for last is found without.
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
    // Gives an index to what is new. The fields are those of its entry.
    void Give(VELM_CPtrAssoc& rAssoc, uint32_t* pIndex, unsigned nMoves, uint32_t nIndex)
    {
        rAssoc.value = reinterpret_cast<void*>(uintptr_t{nIndex});
        if (pIndex != nullptr && nMoves == m_table.Moves())
            *pIndex = nIndex;
        else
            GiveAgain(rAssoc.key, nIndex);
    }
    // The index of an object; 0 when it has none.
    uint32_t IndexOf(const VELM_CMapPtrToPtr& map, const void* key) const;

private:
    struct Key {
        uint32_t nTag;
        uint32_t nHigh;
    };

    const void* m_pMap = this; // no map is that
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
    void GiveAgain(const void* key, uint32_t nIndex);
    static bool HasRoomFor(const void* key) { return uint64_t{reinterpret_cast<uintptr_t>(key)} >> 48 == 0; }
    bool Find(Key key, VELM_CTable::Place& rAt) const
    {
        return m_table.Find(key.nTag, rAt, [=](const VELM_CTable::Place& at) { return at.High() == key.nHigh; });
    }
};

#endif
