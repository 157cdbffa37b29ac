#include "mcl/mfc_cobj.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "mcl/mfc_carccore.h"
#include "mcl/mfc_cobj_p.h"
#include "mcl/mfc_memory.h"

static std::atomic<bool> g_bNotices(true);

void AfxSetNotices(int bPrint)
{
    g_bNotices = bPrint != 0;
}

void AfxNotice(const char* lpsz)
{
    if (g_bNotices)
        std::fputs(lpsz, stdout);
}

VELM_CObject::VELM_CObject() : m_pOwned(nullptr)
{
}

VELM_CObject::VELM_CObject(VELM_CObject&) : m_pOwned(nullptr)
{
}

VELM_CObject& VELM_CObject::operator=(const VELM_CObject&)
{
    return *this;
}

VELM_CObject::~VELM_CObject()
{
    std::free(m_pOwned);
}

VELM_CRuntimeClass* VELM_CObject::GetRuntimeClass() const
{
    return nullptr;
}

void VELM_CObject::Serialize(VELM_CArchive&)
{
    AfxNotice("CObject Serialize NYI\n"); // never to be changed: some programs compare their whole output
}

void VELM_CObject::AssertValid() const
{
}

VELM_CObArray::VELM_CObArray()
{
}

VELM_CObArray::VELM_CObArray(VELM_CObArray&& src)
{
    Append(src);
    src.m_list.clear();
}

VELM_CObArray& VELM_CObArray::operator=(VELM_CObArray&& src)
{
    if (this == &src)
        return *this;
    Copy(src);
    src.m_list.clear();
    return *this;
}

VELM_CObArray::~VELM_CObArray()
{
}

int VELM_CObArray::GetSize() const
{
    return m_list.count;
}

VELM_CObject* VELM_CObArray::operator[](int nIndex) const
{
    return static_cast<VELM_CObject*>(m_list.findItem(nIndex));
}

int VELM_CObArray::Append(VELM_CObArray& src)
{
    const int n = src.GetSize();
    for (int i = 0; i < n; ++i)
        m_list.append(src.m_list.findItem(i));
    return GetSize();
}

void VELM_CObArray::Copy(const VELM_CObArray& src)
{
    if (this == &src)
        return;
    const int n = src.GetSize();
    m_list.clear();
    for (int i = 0; i < n; ++i)
        m_list.append(src.m_list.findItem(i));
}

void VELM_CObArray::InsertAt(int nIndex, VELM_CObject* newElement, int nCount)
{
    for (; nCount >= 1; --nCount)
        m_list.insertAt(nIndex, newElement);
}

void VELM_CObArray::InsertAt(int nStartIndex, VELM_CObArray* pNewArray)
{
    if (pNewArray == nullptr)
        return;
    const int n = pNewArray->GetSize();
    const int nFirst = nStartIndex < 0 ? 0 : nStartIndex < GetSize() ? nStartIndex : GetSize();
    for (int i = 0; i < n; ++i) {
        // If the array is inserted into itself, the items from nFirst on have moved up by the i inserted so far.
        const bool bMoved = pNewArray == this && i >= nFirst;
        m_list.insertAt(nFirst + i, pNewArray->m_list.findItem(bMoved ? i + i : i));
    }
}

void VELM_CObArray::RemoveAt(int nIndex, int nCount)
{
    for (; nCount >= 1 && nIndex >= 0 && nIndex < GetSize(); --nCount)
        m_list.remove(nIndex);
}

// The buffer for the images of many objects. The archive holds it, so that a raise does not lose it.
class VELM_LOCAL VELM_CHeldImages : public VELM_CHeld {
public:
    void* pImages = nullptr;

    ~VELM_CHeldImages() override { std::free(pImages); }
};

static void Transfer(VELM_CArchive& ar, void* pImages, size_t nBytes)
{
    if (ar.IsStoring())
        ar.StoreBlock(pImages, nBytes);
    else
        ar.LoadBlock(pImages, nBytes);
}

void AfxSerializeImages(VELM_CArchive& ar, int nCount)
{
    const size_t nBytes = 8 * static_cast<size_t>(nCount);
    unsigned char few[64] = {};
    if (nBytes <= sizeof few) {
        Transfer(ar, few, nBytes);
        return;
    }
    VELM_CHeldImages* pHeld = AfxNew(new (std::nothrow) VELM_CHeldImages);
    ar.Hold(pHeld);
    pHeld->pImages = AfxAllocate(NULL, nBytes, 1);
    std::memset(pHeld->pImages, 0, nBytes);
    Transfer(ar, pHeld->pImages, nBytes);
    ar.DropHeld(pHeld);
}

// A new element until it is in the array. The archive holds it, so that a raise does not lose it.
class VELM_LOCAL VELM_CHeldElement : public VELM_CHeld {
public:
    VELM_CObject* pElement = nullptr;

    ~VELM_CHeldElement() override { delete pElement; }
};

void VELM_CObArray::Serialize(VELM_CArchive& ar)
{
    if (ar.IsStoring()) {
        const int n = GetSize();
        ar.Store32(static_cast<uint32_t>(n));
        for (int i = 0; i < n; ++i)
            AfxSerializeImages(ar, 1);
        return;
    }
    uint32_t nStored = 0;
    ar.Load32(nStored);
    if (ar.IsDataEnded())
        return;
    const int n = static_cast<int>(nStored);
    VELM_CHeldElement* pHeld = AfxNew(new (std::nothrow) VELM_CHeldElement);
    ar.Hold(pHeld);
    for (int i = 0; i < n; ++i) {
        pHeld->pElement = AfxNew(new (std::nothrow) VELM_CObject);
        AfxSerializeImages(ar, 1);
        if (ar.IsDataEnded())
            break;
        m_list.append(pHeld->pElement);
        pHeld->pElement = nullptr;
    }
    ar.DropHeld(pHeld);
}
