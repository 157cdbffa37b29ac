#include "mcl/mfc_template.h"

#include "mcl/mfc_carccore_p.h"
#include "mcl/mfc_cobj_p.h"

void AfxRefuseElement(VELM_CArchive& ar)
{
    VELM_CArchiveState& state = VELM_CArchiveState::Of(ar);
    state.Fail(VELM_CArchiveException::causeGeneric, state.Offset(), "an element of a type that no archive takes");
    unsigned char nDropped; // if the raise returns, each element costs a byte, so that a huge count soon ends the data
    if (!ar.IsStoring())
        ar.LoadByte(nDropped);
}

template <> int CompareElements(const fxStr* pElement1, const char* const* pElement2)
{
    return *pElement1 == (*pElement2 == nullptr ? "" : *pElement2);
}

template <> int CompareElements(const fxStr* pElement1, char* const* pElement2)
{
    const char* lpszKey = *pElement2;
    return CompareElements(pElement1, &lpszKey);
}

template <> void ConstructElements(fxStr* pElements, int nCount)
{
    memset(static_cast<void*>(pElements), 0, static_cast<size_t>(nCount) * sizeof(fxStr));
    for (int i = 0; i < nCount; ++i)
        ::new (static_cast<void*>(pElements + i)) fxStr(0u);
}

template <> void SerializeElements(VELM_CArchive& ar, fxStr* pElements, int nCount)
{
    for (int i = 0; i < nCount; ++i) {
        if (ar.IsStoring()) {
            const char* lpszText = pElements[i];
            ar.StorePrefixed(lpszText, strlen(lpszText));
            continue;
        }
        const char* lpszText = VELM_CArchiveState::Of(ar).LoadPrefixed();
        pElements[i] = lpszText; // NULL gives the empty string
        if (lpszText == nullptr) {
            ar.RaiseDataEnded();
            return;
        }
    }
}

// Converts a value to the one whose bytes in memory are its little-endian stream form, and back.
static int StreamForm(int nValue)
{
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    return nValue;
#else
    return static_cast<int>(__builtin_bswap32(static_cast<unsigned>(nValue)));
#endif
}

template <> void SerializeElements(VELM_CArchive& ar, int* pElements, int nCount)
{
    for (int i = 0; i < nCount; ++i)
        pElements[i] = StreamForm(pElements[i]);
    if (ar.IsStoring())
        ar.StoreBlock(pElements, static_cast<size_t>(nCount) * sizeof(int));
    else
        ar.LoadBlock(pElements, static_cast<size_t>(nCount) * sizeof(int));
    for (int i = 0; i < nCount; ++i)
        pElements[i] = StreamForm(pElements[i]);
}

template <> void SerializeElements(VELM_CArchive& ar, VELM_CObject*, int nCount)
{
    AfxSerializeImages(ar, nCount);
}

template void DestructElements<fxStr>(fxStr*, int);
template void ConstructElements<int>(int*, int);
template void DestructElements<int>(int*, int);
