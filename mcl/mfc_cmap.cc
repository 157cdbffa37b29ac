#include "mcl/mfc_cmap.h"

#include "mcl/mfc_cmapindex_p.h"

VELM_INDEXED_MAP(VELM_CPtrAssoc, void*)

template class VELM_CMapTable<VELM_CPtrAssoc, void*>;

VELM_CMapPtrToPtr::VELM_CMapPtrToPtr(int nBlockSize) : VELM_CMapTable(nBlockSize)
{
}

VELM_CMapPtrToPtr::~VELM_CMapPtrToPtr()
{
}

void*& VELM_CMapPtrToPtr::operator[](void* key)
{
    if (void** pValue = VELM_CMapIndex::ValueOf(*this, key))
        return *pValue;
    VELM_CAssoc* pAssoc = FindOrAdd(key);
    return pAssoc != nullptr ? pAssoc->value : SpareAssoc().value;
}

static const VELM_CPtrAssoc* AssocOf(const VELM_CMapPtrToPtr& map, void* key)
{
    if (const VELM_CPtrAssoc* pAssoc = VELM_CMapIndex::Found(map, key))
        return pAssoc;
    unsigned nHash;
    return map.GetAssocAt(key, nHash);
}

int VELM_CMapPtrToPtr::Lookup(void* key, void*& rValue) const
{
    const VELM_CAssoc* const pAssoc = AssocOf(*this, key);
    if (pAssoc == nullptr)
        return 0;
    rValue = pAssoc->value;
    return 1;
}

int VELM_CMapPtrToPtr::LookupUINT(void* key, unsigned& rValue) const
{
    const VELM_CAssoc* const pAssoc = AssocOf(*this, key);
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
