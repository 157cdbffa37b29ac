#include "mcl/mfc_template.h"

#include <cstdlib>

#include "mcl/mfc_carcex.h"
#include "mcl/mfc_cobj.h"
#include "mcl/mfc_cstring.h"

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
        if (ar.m_nMode == VELM_CArchive::store) {
            const char* lpszText = pElements[i];
            ar.StoreString(lpszText, strlen(lpszText));
            continue;
        }
        bool bWhole;
        {
            VELM_CString text; // gone before the raise
            bWhole = ar.LoadString(text);
            pElements[i] = text.m_data;
        }
        if (!bWhole) {
            ar.RaiseDataEnded();
            return;
        }
    }
}

// The value whose bytes in memory are the value's stream form, and back. Nothing on a little-endian machine.
static int StreamForm(int nValue)
{
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    return nValue;
#else
    return static_cast<int>(__builtin_bswap32(static_cast<unsigned>(nValue)));
#endif
}

static void Transfer(VELM_CArchive& ar, void* pBytes, size_t nBytes)
{
    if (ar.m_nMode == VELM_CArchive::store)
        ar.Write(pBytes, static_cast<unsigned>(nBytes));
    else
        ar.Read(pBytes, static_cast<unsigned>(nBytes));
}

template <> void SerializeElements(VELM_CArchive& ar, int* pElements, int nCount)
{
    for (int i = 0; i < nCount; ++i)
        pElements[i] = StreamForm(pElements[i]);
    Transfer(ar, pElements, static_cast<size_t>(nCount) * sizeof(int));
    for (int i = 0; i < nCount; ++i)
        pElements[i] = StreamForm(pElements[i]);
}

template <> void SerializeElements(VELM_CArchive& ar, VELM_CObject*, int nCount)
{
    const size_t nImage = 8;
    unsigned char one[nImage] = {};
    void* pImages = nCount <= 1 ? one : AfxAllocate(NULL, static_cast<size_t>(nCount), nImage);
    if (pImages != one)
        memset(pImages, 0, static_cast<size_t>(nCount) * nImage);
    Transfer(ar, pImages, static_cast<size_t>(nCount) * nImage);
    if (pImages != one)
        free(pImages);
}

template void DestructElements<fxStr>(fxStr*, int);
template void ConstructElements<int>(int*, int);
template void DestructElements<int>(int*, int);
