#include "mcl/mfc_coll.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "mcl/mfc_carcex.h"

// The growth step of an array that holds nSize elements.
static int GrowthStep(int nSize)
{
    const int nStep = nSize / 8;
    return nStep < 4 ? 4 : nStep > 1024 ? 1024 : nStep;
}

static void** NewSlots(int nSlots)
{
    return static_cast<void**>(AfxAllocate(nullptr, static_cast<size_t>(nSlots), sizeof(void*)));
}

static void ClearSlots(void** pSlots, int nFirst, int nEnd)
{
    if (nFirst < nEnd)
        std::memset(pSlots + nFirst, 0, static_cast<size_t>(nEnd - nFirst) * sizeof(void*));
}

// The ranges may overlap.
static void MoveSlots(void** pTo, void** pFrom, int nSlots)
{
    if (nSlots > 0)
        std::memmove(pTo, pFrom, static_cast<size_t>(nSlots) * sizeof(void*));
}

VELM_CPtrArray::VELM_CPtrArray() : m_data(nullptr), m_size(0), m_max_size(0), m_grow_by(0)
{
}

VELM_CPtrArray::~VELM_CPtrArray()
{
    std::free(m_data);
}

void VELM_CPtrArray::SetSize(int nNewSize, int nGrowBy)
{
    if (!VELM_ASSERT(nNewSize >= 0))
        return;
    if (nGrowBy != -1)
        m_grow_by = nGrowBy;
    if (nNewSize == 0) {
        std::free(m_data);
        m_data = nullptr;
        m_size = m_max_size = 0;
    } else if (m_data == nullptr) {
        m_data = NewSlots(nNewSize);
        ClearSlots(m_data, 0, nNewSize);
        m_size = m_max_size = nNewSize;
    } else if (nNewSize <= m_max_size) {
        ClearSlots(m_data, m_size, nNewSize);
        m_size = nNewSize;
    } else {
        const int nStep = m_grow_by != 0 ? m_grow_by : GrowthStep(m_size);
        const int nStepped = static_cast<int>(static_cast<unsigned>(m_max_size) + static_cast<unsigned>(nStep));
        const int nNewMax = nStepped > nNewSize ? nStepped : nNewSize;
        if (!VELM_ASSERT(nNewMax >= m_max_size))
            return;
        void** pNew = NewSlots(nNewMax);
        MoveSlots(pNew, m_data, m_size);
        VELM_ASSERT(nNewSize > m_size);
        ClearSlots(pNew, m_size, nNewSize);
        std::free(m_data);
        m_data = pNew;
        m_size = nNewSize;
        m_max_size = nNewMax;
    }
}

// The size after nMore further elements; past the largest int there is no memory for it.
static int SizePlus(int nSize, int nMore)
{
    int nSum;
    if (__builtin_add_overflow(nSize, nMore, &nSum))
        AfxMemoryExhausted();
    return nSum;
}

int VELM_CPtrArray::Append(const VELM_CPtrArray& src)
{
    VELM_ASSERT(this != &src);
    const int nOldSize = m_size;
    const int nMore = src.m_size;
    SetSize(SizePlus(nOldSize, nMore));
    MoveSlots(m_data + nOldSize, src.m_data, nMore);
    return nOldSize;
}

void VELM_CPtrArray::Copy(const VELM_CPtrArray& src)
{
    if (!VELM_ASSERT(this != &src))
        return;
    SetSize(src.m_size);
    MoveSlots(m_data, src.m_data, src.m_size);
}

void VELM_CPtrArray::FreeExtra()
{
    if (m_size == m_max_size)
        return;
    void** pNew = m_size == 0 ? nullptr : NewSlots(m_size);
    MoveSlots(pNew, m_data, m_size);
    std::free(m_data);
    m_data = pNew;
    m_max_size = m_size;
}

void VELM_CPtrArray::SetAtGrow(int nIndex, void* newElement)
{
    if (!VELM_ASSERT(nIndex >= 0))
        return;
    if (nIndex >= m_size)
        SetSize(SizePlus(nIndex, 1));
    m_data[nIndex] = newElement;
}

void VELM_CPtrArray::InsertAt(int nAt, void* newElement, int nCopies)
{
    const std::int64_t nIndex = nAt, nCount = nCopies; // their sum has no overflow
    const bool bIndex = VELM_ASSERT(nIndex >= 0);
    const bool bCount = VELM_ASSERT(nCount > 0);
    if (!bIndex || !bCount)
        return;
    if (nAt < m_size) {
        const int nOldSize = m_size;
        SetSize(SizePlus(nOldSize, nCopies));
        MoveSlots(m_data + nAt + nCopies, m_data + nAt, nOldSize - nAt);
        ClearSlots(m_data, nAt, nAt + nCopies);
    } else {
        SetSize(SizePlus(nAt, nCopies));
    }
    if (!VELM_ASSERT(nIndex + nCount <= m_size))
        return;
    for (int i = 0; i < nCopies; ++i)
        m_data[nAt + i] = newElement;
}

void VELM_CPtrArray::InsertAt(int nStartIndex, VELM_CPtrArray* pNewArray)
{
    const bool bArray = VELM_ASSERT(pNewArray != NULL);
    const bool bIndex = VELM_ASSERT(nStartIndex >= 0);
    if (!bArray || !bIndex || pNewArray->m_size == 0)
        return;
    const int nCount = pNewArray->m_size;
    InsertAt(nStartIndex, pNewArray->GetAt(0), nCount);
    for (int i = 0; i < nCount; ++i) {
        // Of an array inserted into itself, the elements from nStartIndex on have moved up.
        const bool bMoved = pNewArray == this && i >= nStartIndex;
        SetAt(nStartIndex + i, pNewArray->GetAt(bMoved ? i + nCount : i));
    }
}

void VELM_CPtrArray::RemoveAt(int nAt, int nElements)
{
    const std::int64_t nIndex = nAt, nCount = nElements; // their sum has no overflow
    const bool bIndex = VELM_ASSERT(nIndex >= 0);
    const bool bCount = VELM_ASSERT(nCount >= 0);
    const bool bEnd = VELM_ASSERT(nIndex + nCount <= m_size);
    if (!bIndex || !bCount || !bEnd)
        return;
    MoveSlots(m_data + nAt, m_data + nAt + nElements, m_size - (nAt + nElements));
    m_size -= nElements;
}

const int nStringBlock = 16; // strings in a new block, and in each growth by Add

static VELM_CString* NewStrings(int nStrings)
{
    return AfxNewArray<VELM_CString>(static_cast<size_t>(nStrings));
}

// Moves to a block of nMax strings; the first nSize are assigned, in order.
static void Reblock(VELM_CStringArray& array, int nMax)
{
    VELM_CString* pNew = NewStrings(nMax);
    for (int i = 0; i < array.m_size; ++i)
        pNew[i] = array.m_data[i];
    delete[] array.m_data;
    array.m_data = pNew;
    array.m_max_size = nMax;
}

VELM_CStringArray::VELM_CStringArray() : m_data(NewStrings(nStringBlock)), m_size(0), m_max_size(nStringBlock)
{
}

VELM_CStringArray::~VELM_CStringArray()
{
    RemoveAll();
}

VELM_CStringArray::VELM_CStringArray(const VELM_CStringArray& src) : m_data(nullptr), m_size(0), m_max_size(0)
{
    *this = src;
}

int VELM_CStringArray::GetSize() const
{
    return m_size;
}

int VELM_CStringArray::GetUpperBound() const
{
    return m_size - 1;
}

void VELM_CStringArray::SetSize(int newSize, int nGrowBy)
{
    if (!VELM_ASSERT(newSize >= 0))
        return;
    if (newSize == 0) {
        RemoveAll();
    } else if (m_data == nullptr) {
        m_data = NewStrings(newSize);
        m_size = m_max_size = newSize;
    } else if (newSize <= m_max_size) {
        m_size = newSize;
    } else {
        const int nStep = nGrowBy == -1 ? GrowthStep(m_size) : nGrowBy;
        Reblock(*this, SizePlus(newSize, nStep > 0 ? nStep : 0));
        m_size = newSize;
    }
}

VELM_CString VELM_CStringArray::GetAt(int nIndex) const
{
    if (!VELM_ASSERT(nIndex >= 0 && nIndex < m_size))
        return VELM_CString();
    return m_data[nIndex];
}

VELM_CString VELM_CStringArray::operator[](int nIndex) const
{
    return GetAt(nIndex);
}

void VELM_CStringArray::SetAt(int nIndex, const char* newElement)
{
    if (VELM_ASSERT(nIndex >= 0 && nIndex < m_size))
        m_data[nIndex] = newElement;
}

VELM_CString& VELM_CStringArray::ElementAt(int nIndex)
{
    if (!VELM_ASSERT(nIndex >= 0 && nIndex < m_size)) {
        static thread_local VELM_CString spare;
        spare.Empty();
        return spare;
    }
    return m_data[nIndex];
}

VELM_CString& VELM_CStringArray::operator[](int nIndex)
{
    return ElementAt(nIndex);
}

void VELM_CStringArray::Add(const char* newElement)
{
    if (m_size == m_max_size) {
        VELM_CString* pOld = m_data; // newElement may lie in it
        const int nMax = SizePlus(m_max_size, nStringBlock);
        VELM_CString* pNew = NewStrings(nMax);
        for (int i = 0; i < m_size; ++i)
            pNew[i] = pOld[i];
        pNew[m_size] = newElement;
        m_data = pNew;
        m_max_size = nMax;
        delete[] pOld;
    } else {
        m_data[m_size] = newElement;
    }
    ++m_size;
}

void VELM_CStringArray::Add(char* newElement)
{
    Add(static_cast<const char*>(newElement));
}

void VELM_CStringArray::Add(const VELM_CString& newElement)
{
    Add(newElement.m_data);
}

VELM_CStringArray& VELM_CStringArray::operator=(const VELM_CStringArray& src)
{
    if (this == &src)
        return *this;
    RemoveAll();
    SetSize(src.m_size, -1);
    for (int i = 0; i < m_size; ++i)
        SetAt(i, src.m_data[i].m_data);
    return *this;
}

void VELM_CStringArray::Sort(VELM_CStringArray& dest) const
{
    if (&dest == this) {
        VELM_CStringArray(*this).Sort(dest); // no growth may destroy what is still to be added
        return;
    }
    if (m_size == 0)
        return;
    const int nCount = m_size;
    VELM_CString** pSorted = AfxNewArray<VELM_CString*>(static_cast<size_t>(nCount));
    for (int i = 0; i < nCount; ++i)
        pSorted[i] = m_data + i;
    std::qsort(pSorted, static_cast<size_t>(nCount), sizeof(VELM_CString*), CStringCompare);
    for (int i = 0; i < nCount; ++i)
        dest.Add(*pSorted[i]);
    delete[] pSorted;
}

int VELM_CStringArray::Contains(const VELM_CString& str) const
{
    return Find(str) != -1;
}

int VELM_CStringArray::Contains(const char* str) const
{
    return Find(str) != -1;
}

int VELM_CStringArray::Find(const VELM_CString& str) const
{
    return Find(str.m_data);
}

int VELM_CStringArray::Find(const char* str) const
{
    for (int i = 0; i < m_size; ++i) {
        if (m_data[i].Compare(str) == 0)
            return i;
    }
    return -1;
}

void VELM_CStringArray::RemoveAll()
{
    delete[] m_data;
    m_data = nullptr;
    m_size = m_max_size = 0;
}

int CStringCompare(const void* a, const void* b)
{
    const VELM_CString* pFirst = *static_cast<VELM_CString* const*>(a);
    const VELM_CString* pSecond = *static_cast<VELM_CString* const*>(b);
    return pFirst->Compare(*pSecond);
}
