#include "mcl/mfc_cmap.h"

#include <cstddef>

#include "mcl/mfc_cmapindex_p.h"

static_assert(!VELM_CPtrAssoc::bGaps || (sizeof(VELM_CPtrAssoc) == sizeof(VELM_CMapGapNode) &&
                                         offsetof(VELM_CPtrAssoc, key) == offsetof(VELM_CMapGapNode, key) &&
                                         offsetof(VELM_CPtrAssoc, nValue) == offsetof(VELM_CMapGapNode, nValue)),
              "the index uses bytes that no field of the node has");

unsigned VELM_CPtrAssoc::Tag(const VELM_CKeyHasher&, void* key, unsigned)
{
    return VELM_CTable::TagOf(key);
}

static inline VELM_CPtrAssoc* FindNode(const VELM_CMapIndex& index, unsigned nBucket, void* key, VELM_CMapPlace& rPlace)
{
    const auto isIt = [=](const VELM_CMapNode* pNode) {
        const VELM_CPtrAssoc* const pAssoc = reinterpret_cast<const VELM_CPtrAssoc*>(pNode);
        return pAssoc->key == key && pAssoc->nHashValue == nBucket;
    };
    return reinterpret_cast<VELM_CPtrAssoc*>(VELM_CMapTables::Of(index).Find(VELM_CTable::TagOf(key), rPlace, isIt));
}

template <> VELM_CPtrAssoc* VELM_CMapTable<VELM_CPtrAssoc, void*>::FindIn(Search& rSearch, void* key) const
{
    return FindNode(*rSearch.pIndex, rSearch.nBucket, key, rSearch.place);
}

template class VELM_CMapTable<VELM_CPtrAssoc, void*>;

VELM_CMapPtrToPtr::VELM_CMapPtrToPtr(int nBlockSize) : VELM_CMapTable(nBlockSize)
{
}

VELM_CMapPtrToPtr::~VELM_CMapPtrToPtr()
{
}

void*& VELM_CMapPtrToPtr::operator[](void* key)
{
    VELM_CAssoc* pAssoc = FindOrAdd(key);
    return pAssoc != nullptr ? pAssoc->value : SpareAssoc().value;
}

int VELM_CMapPtrToPtr::Lookup(void* key, void*& rValue) const
{
    const VELM_CAssoc* const pAssoc = Find(key);
    if (pAssoc == nullptr)
        return 0;
    rValue = pAssoc->value;
    return 1;
}

int VELM_CMapPtrToPtr::LookupUINT(void* key, unsigned& rValue) const
{
    const VELM_CAssoc* const pAssoc = Find(key);
    if (pAssoc == nullptr)
        return 0;
    rValue = pAssoc->nValue;
    return 1;
}

void VELM_CMapPtrToPtr::GetNextAssoc(__POSITION*& rNextPosition, void*& rKey, void*& rValue) const
{
    const VELM_CAssoc* pAssocRet = AssocAtPosition(rNextPosition);
    rNextPosition = nullptr;
    if (pAssocRet == nullptr || !VELM_ASSERT(AfxIsValidAddress(pAssocRet, sizeof(CAssoc))))
        return;
    rNextPosition = PositionBehind(pAssocRet);
    rKey = pAssocRet->key;
    rValue = pAssocRet->value;
}

__attribute__((flatten)) VELM_CPtrAssoc* VELM_CMapPtrToPtr::Find(void* key) const
{
    if (const VELM_CMapIndex* const pIndex = Index()) {
        VELM_CMapPlace place;
        return FindNode(*pIndex, Bucket(key), key, place);
    }
    Search search = {};
    return Look(key, search);
}

VELM_CPtrAssoc* VELM_CMapPtrToPtr::Append(unsigned nBucket, void* key)
{
    Search search = {nBucket, nullptr, nullptr, 0, {nullptr, 0}};
    if (m_pIndex.load(std::memory_order_relaxed) != nullptr) // the new node must be added to the index, too
        LookToChange(key, search);
    return Add(search, key);
}
