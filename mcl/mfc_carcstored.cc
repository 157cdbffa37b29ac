#include "mcl/mfc_carcstored_p.h"

void VELM_CStoredIndexes::Start(VELM_CMapPtrToPtr& map)
{
    End();
    if (map.m_nCount != 0 || map.m_pHashTable == nullptr || map.m_nHashTableSize > 0x10000 || !m_table.Start(0))
        return;
    map.m_bHandedOut = false;
    m_pMap = &map;
    m_pBuckets = map.m_pHashTable;
    m_nBuckets = map.m_nHashTableSize;
}

void VELM_CStoredIndexes::End()
{
    m_table.Clear();
    m_pMap = this;
    m_pLastClass = nullptr;
}

static uint32_t IndexIn(const VELM_CPtrAssoc& assoc)
{
    return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(assoc.value));
}

VELM_CStoredIndexes::Entry VELM_CStoredIndexes::Find(VELM_CMapPtrToPtr& map, const void* pKey, bool bAssoc)
{
    void* const key = const_cast<void*>(pKey);
    Entry entry = {0, nullptr, nullptr, 0};
    if (!IsRight(&map) || !HasRoomFor(key)) {
        if (m_table.Is())
            End();
        entry.pAssoc = map.FindOrAdd(key);
        if (entry.pAssoc == nullptr)
            entry.pAssoc = &map.SpareAssoc();
        entry.nIndex = IndexIn(*entry.pAssoc);
        return entry;
    }
    const Key inTable = KeyOf(key);
    VELM_CTable::Place at;
    if (Find(inTable, at)) {
        entry.nIndex = at.Low();
        if (entry.nIndex == 0 || bAssoc)
            entry.pAssoc = map.Find(key);
    } else {
        entry.pAssoc = map.Append(inTable.nHigh & 0xFFFF, key);
        if (entry.pAssoc == nullptr)
            entry.pAssoc = &map.SpareAssoc();
        else if (!m_table.Add(at, inTable.nTag, uint64_t{inTable.nHigh} << 32))
            End();
    }
    entry.pIndex = m_table.Is() && at.pLine != nullptr ? &at.Low() : nullptr;
    entry.nMoves = m_table.Moves();
    return entry;
}

// Looks for the entry again: the table may have grown since it was made, or have been given up.
void VELM_CStoredIndexes::Give(VELM_CPtrAssoc& rAssoc, uint32_t nIndex)
{
    rAssoc.value = reinterpret_cast<void*>(uintptr_t{nIndex});
    VELM_CTable::Place at;
    if (m_table.Is() && Find(KeyOf(rAssoc.key), at))
        at.Low() = nIndex;
}

uint32_t VELM_CStoredIndexes::IndexOf(const VELM_CMapPtrToPtr& map, const void* key) const
{
    VELM_CTable::Place at;
    if (IsRight(&map) && HasRoomFor(key))
        return Find(KeyOf(key), at) ? at.Low() : 0;
    const VELM_CPtrAssoc* const pAssoc = map.Find(const_cast<void*>(key));
    return pAssoc == nullptr ? 0 : IndexIn(*pAssoc);
}
