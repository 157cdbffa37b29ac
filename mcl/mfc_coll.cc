#define VELM_EMIT_INLINES
#include "mcl/mfc_coll.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "mcl/mfc_cstring_p.h"
#include "mcl/mfc_memory.h"

// The growth step of an array that holds nSize elements.
static int GrowthStep(int nSize)
{
    const int nStep = nSize / 8;
    return nStep < 4 ? 4 : nStep > 1024 ? 1024 : nStep;
}

const std::size_t nLargeBlock = 128 * 1024; // bytes; realloc moves the pages of such a block instead of copying

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

// Returns a block of nNewMax slots that begins with the array's elements, and frees the old block; the caller stores it
// in m_data.
static void** Resized(const VELM_CPtrArray& array, int nNewMax)
{
    const auto isLarge = [](int nSlots) { return static_cast<std::size_t>(nSlots) >= nLargeBlock / sizeof(void*); };
    const std::size_t nSlots = static_cast<std::size_t>(nNewMax);
    if (isLarge(array.m_max_size) && isLarge(nNewMax))
        return static_cast<void**>(AfxAllocate(array.m_data, nSlots, sizeof(void*)));
    void** const pNew = static_cast<void**>(AfxAllocate(nullptr, nSlots, sizeof(void*)));
    MoveSlots(pNew, array.m_data, array.m_size);
    std::free(array.m_data);
    return pNew;
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
    const int nGrow = nGrowBy != -1 ? nGrowBy : m_grow_by;
    if (nNewSize == 0) {
        std::free(m_data);
        m_data = nullptr;
        m_size = m_max_size = 0;
    } else if (m_data == nullptr) {
        m_data = Resized(*this, nNewSize);
        ClearSlots(m_data, 0, nNewSize);
        m_size = m_max_size = nNewSize;
    } else if (nNewSize <= m_max_size) {
        ClearSlots(m_data, m_size, nNewSize);
        m_size = nNewSize;
    } else {
        const int nStep = nGrow != 0 ? nGrow : GrowthStep(m_size);
        const int nStepped = static_cast<int>(static_cast<unsigned>(m_max_size) + static_cast<unsigned>(nStep));
        const int nNewMax = nStepped > nNewSize ? nStepped : nNewSize;
        if (!VELM_ASSERT(nNewMax >= m_max_size))
            return;
        m_data = Resized(*this, nNewMax);
        VELM_ASSERT(nNewSize > m_size);
        ClearSlots(m_data, m_size, nNewSize);
        m_size = nNewSize;
        m_max_size = nNewMax;
    }
    m_grow_by = nGrow;
}

// The size after nMore further elements; a size above the largest int counts as exhausted memory.
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
    if (m_size == 0) {
        std::free(m_data);
        m_data = nullptr;
    } else {
        m_data = Resized(*this, m_size);
    }
    m_max_size = m_size;
}

void VELM_CPtrArray::SetAtGrow(int nIndex, void* newElement)
{
    if (!VELM_ASSERT(nIndex >= 0))
        return;
    if (nIndex == m_size && nIndex < m_max_size)
        ++m_size;
    else if (nIndex >= m_size)
        SetSize(SizePlus(nIndex, 1));
    m_data[nIndex] = newElement;
}

void VELM_CPtrArray::InsertAt(int nAt, void* newElement, int nCopies)
{
    const std::int64_t nIndex = nAt, nCount = nCopies; // 64 bits, so that their sum cannot overflow
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
        // If the array is inserted into itself, the elements from nStartIndex on have moved up.
        const bool bMoved = pNewArray == this && i >= nStartIndex;
        SetAt(nStartIndex + i, pNewArray->GetAt(bMoved ? i + nCount : i));
    }
}

void VELM_CPtrArray::RemoveAt(int nAt, int nElements)
{
    const std::int64_t nIndex = nAt, nCount = nElements; // 64 bits, so that their sum cannot overflow
    const bool bIndex = VELM_ASSERT(nIndex >= 0);
    const bool bCount = VELM_ASSERT(nCount >= 0);
    const bool bEnd = VELM_ASSERT(nIndex + nCount <= m_size);
    if (!bIndex || !bCount || !bEnd)
        return;
    MoveSlots(m_data + nAt, m_data + nAt + nElements, m_size - (nAt + nElements));
    m_size -= nElements;
}

const int nStringBlock = 16; // strings in a new block, and in each growth by Add

// A block is laid out like one of `new VELM_CString[n]`, so that `delete[]` can release it, too: the words before the
// first string hold the number of strings and, on some machines, before that the size of one.
#ifdef __ARM_EABI__
const std::size_t nCookieWords = 2;
#else
const std::size_t nCookieWords = 1;
#endif

static std::size_t* Cookie(VELM_CString* pBlock)
{
    return reinterpret_cast<std::size_t*>(pBlock) - nCookieWords;
}

// A block of raw memory for nRoom strings; NULL when there is no memory.
static VELM_CString* NewBlock(int nRoom)
{
    const std::size_t nStrings = static_cast<std::size_t>(nRoom), nHead = nCookieWords * sizeof(std::size_t);
    if (nStrings > PTRDIFF_MAX / sizeof(VELM_CString) - 1)
        return nullptr;
    void* pBytes = ::operator new[](nHead + nStrings * sizeof(VELM_CString), std::nothrow);
    if (pBytes == nullptr)
        return nullptr;
    *static_cast<std::size_t*>(pBytes) = sizeof(VELM_CString); // if there is one word, GrowTo puts the number there
    return reinterpret_cast<VELM_CString*>(static_cast<std::size_t*>(pBytes) + nCookieWords);
}

static void FreeBlock(VELM_CString* pBlock, int nStrings)
{
    if (pBlock == nullptr)
        return;
    while (nStrings > 0)
        pBlock[--nStrings].~VELM_CString();
    ::operator delete[](Cookie(pBlock));
}

// Takes over a block that a caller has put into m_data by hand: it has no room behind the capacity.
void VELM_CStringArray::Adopt()
{
    if (m_data == m_pBlock)
        return;
    m_pBlock = m_data;
    m_nBuilt = m_nRoom = m_max_size;
}

// Ends a growth for which there was no memory. Strings constructed behind the capacity stay for the next growth; a
// first block, which no caller has seen yet, is freed.
void VELM_CStringArray::FailGrowth()
{
    if (m_data == nullptr) {
        FreeBlock(m_pBlock, m_nBuilt);
        m_pBlock = nullptr;
        m_nBuilt = m_nRoom = 0;
    }
    AfxMemoryExhausted();
}

// Makes room for nStrings strings and constructs those that are missing; callers see them only after GrowTo. False when
// there is no memory.
bool VELM_CStringArray::TryBuildTo(int nStrings)
{
    Adopt();
    if (nStrings > m_nRoom) {
        const int nTwice = m_nRoom < INT_MAX / 2 ? 2 * m_nRoom : INT_MAX;
        const int nRoom = nStrings > nTwice ? nStrings : nTwice;
        VELM_CString* pNew = NewBlock(nRoom);
        if (pNew == nullptr)
            return false;
        // Strings can be moved by copying their bytes, since nothing points at a string's fields.
        if (m_nBuilt > 0)
            std::memcpy(static_cast<void*>(pNew), m_pBlock, static_cast<std::size_t>(m_nBuilt) * sizeof(VELM_CString));
        FreeBlock(m_pBlock, 0);
        if (m_data != nullptr)
            m_data = pNew;
        m_pBlock = pNew;
        m_nRoom = nRoom;
        m_nLent = -1; // checks all elements once, for texts that a caller has put there by hand
    }
    for (; m_nBuilt < nStrings; ++m_nBuilt) {
        if (!AfxTryConstruct(m_pBlock + m_nBuilt))
            return false;
    }
    return true;
}

// Completes a growth, when its strings are constructed; cannot fail. Cuts texts at their first NUL where they may have
// one.
void VELM_CStringArray::GrowTo(int nMax)
{
    for (int i = m_size; i < m_max_size; ++i)
        AfxTruncate(m_data[i], 0);
    const int nChecked = m_nLent < 0 ? m_size : m_nLent;
    for (int i = 0; i < nChecked; ++i) {
        const int nIndex = m_nLent < 0 ? i : m_pLent[i];
        if (nIndex < m_size)
            AfxTruncate(m_data[nIndex], static_cast<int>(std::strlen(m_data[nIndex].m_data)));
    }
    m_nLent = 0;
    m_data = m_pBlock;
    m_max_size = nMax;
    Cookie(m_data)[nCookieWords - 1] = static_cast<std::size_t>(nMax);
}

// Notes that a caller has a reference to the element and may put a text with a NUL there. When there are more notes
// than elements, or no memory for one, m_nLent becomes -1, which stands for all elements.
void VELM_CStringArray::Lend(int nIndex)
{
    if (m_nLent < 0 || (m_nLent > 0 && m_pLent[m_nLent - 1] == nIndex))
        return;
    if (m_pLent == nullptr || (m_nLent >= nStringBlock && (m_nLent & (m_nLent - 1)) == 0)) { // a power of two: full
        const std::size_t nMore = static_cast<std::size_t>(m_pLent == nullptr ? nStringBlock : 2 * m_nLent);
        void* pMore = m_nLent > m_size ? nullptr : std::realloc(m_pLent, nMore * sizeof(int));
        if (pMore == nullptr) {
            m_nLent = -1;
            return;
        }
        m_pLent = static_cast<int*>(pMore);
    }
    m_pLent[m_nLent++] = nIndex;
}

VELM_CStringArray::VELM_CStringArray()
    : m_data(nullptr), m_size(0), m_max_size(0), m_pBlock(nullptr), m_nBuilt(0), m_nRoom(0), m_pLent(nullptr),
      m_nLent(0), m_pSorting(nullptr), m_pSpare(nullptr)
{
    if (!TryBuildTo(nStringBlock))
        FailGrowth(); // frees the block, since no destructor runs after a raise
    GrowTo(nStringBlock);
}

VELM_CStringArray::VELM_CStringArray(VELM_CStringArray&& src) noexcept
    : m_data(nullptr), m_size(0), m_max_size(0), m_pBlock(nullptr), m_nBuilt(0), m_nRoom(0), m_pLent(nullptr),
      m_nLent(0), m_pSorting(nullptr), m_pSpare(nullptr)
{
    Exchange(src);
}

VELM_CStringArray& VELM_CStringArray::operator=(VELM_CStringArray&& src) noexcept
{
    if (this == &src)
        return *this;
    Exchange(src);
    src.RemoveAll();
    // The capacity is the size then, as after a copy. Strings behind the capacity are empty.
    for (int i = m_size; i < m_max_size; ++i)
        AfxTruncate(m_data[i], 0);
    m_max_size = m_size;
    if (m_size == 0)
        RemoveAll();
    return *this;
}

void VELM_CStringArray::Exchange(VELM_CStringArray& other)
{
    std::swap(m_data, other.m_data);
    std::swap(m_size, other.m_size);
    std::swap(m_max_size, other.m_max_size);
    std::swap(m_pBlock, other.m_pBlock);
    std::swap(m_nBuilt, other.m_nBuilt);
    std::swap(m_nRoom, other.m_nRoom);
    std::swap(m_pLent, other.m_pLent);
    std::swap(m_nLent, other.m_nLent);
    std::swap(m_pSorting, other.m_pSorting);
}

VELM_CStringArray::~VELM_CStringArray()
{
    RemoveAll();
    std::free(m_pLent);
    std::free(m_pSorting);
    delete m_pSpare;
}

VELM_CStringArray::VELM_CStringArray(const VELM_CStringArray& src) : VELM_CStringArray()
{
    if (!TryAssign(src)) { // no destructor runs after a raise
        this->~VELM_CStringArray();
        AfxMemoryExhausted();
    }
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
        return;
    }
    if (newSize > m_max_size) {
        const int nStep = nGrowBy == -1 ? GrowthStep(m_size) : nGrowBy;
        const int nMax = m_data == nullptr ? newSize : SizePlus(newSize, nStep > 0 ? nStep : 0);
        if (!TryBuildTo(nMax))
            FailGrowth();
        GrowTo(nMax);
    }
    m_size = newSize;
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
    if (VELM_ASSERT(nIndex >= 0 && nIndex < m_size)) {
        Lend(nIndex);
        return m_data[nIndex];
    }
    if (m_pSpare == nullptr) {
        VELM_CString* pRoom = AfxNew(static_cast<VELM_CString*>(::operator new(sizeof(VELM_CString), std::nothrow)));
        if (!AfxTryConstruct(pRoom)) {
            ::operator delete(pRoom);
            AfxMemoryExhausted();
        }
        m_pSpare = pRoom;
    }
    AfxTruncate(*m_pSpare, 0);
    return *m_pSpare;
}

VELM_CString& VELM_CStringArray::operator[](int nIndex)
{
    return ElementAt(nIndex);
}

void VELM_CStringArray::Add(const char* newElement)
{
    if (m_size < m_max_size) {
        m_data[m_size] = newElement;
    } else {
        const int nMax = SizePlus(m_max_size, nStringBlock);
        const char* lpszText = newElement == nullptr ? "" : newElement;
        if (!TryBuildTo(nMax) || !AfxTryAssign(m_pBlock[m_size], lpszText, std::strlen(lpszText)))
            FailGrowth();
        GrowTo(nMax); // after the copy, since it may cut the text if that lies in this array
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
    if (this != &src && !TryAssign(src))
        FailGrowth();
    return *this;
}

// Copies the strings of src behind the capacity and, when all are copied, moves them to the front. False, and no
// element is changed, when there is no memory.
bool VELM_CStringArray::TryAssign(const VELM_CStringArray& src)
{
    const int nStrings = src.m_size;
    if (nStrings == 0) {
        RemoveAll();
        return true;
    }
    if (m_max_size > INT_MAX - nStrings || !TryBuildTo(m_max_size + nStrings))
        return false;
    for (int i = 0; i < nStrings; ++i) {
        const char* lpszText = src.m_data[i].m_data;
        if (AfxTryAssign(m_pBlock[m_max_size + i], lpszText, std::strlen(lpszText)))
            continue;
        while (i-- > 0) // strings behind the capacity must be empty
            AfxTruncate(m_pBlock[m_max_size + i], 0);
        return false;
    }
    for (int i = 0; i < m_max_size; ++i)
        m_pBlock[i].~VELM_CString();
    m_nBuilt -= m_max_size;
    std::memmove(static_cast<void*>(m_pBlock), m_pBlock + m_max_size,
                 static_cast<std::size_t>(m_nBuilt) * sizeof(VELM_CString));
    m_size = m_max_size = 0;
    GrowTo(nStrings);
    m_size = nStrings;
    return true;
}

void VELM_CStringArray::Sort(VELM_CStringArray& dest) const
{
    if (m_size == 0)
        return;
    // A key holds the first 8 bytes of a text, which decide most comparisons without an access to the text.
    struct Key {
        std::uint64_t nFirst;
        int nIndex;
    };
    const int nCount = m_size;
    Key* pKeys = static_cast<Key*>(AfxAllocate(dest.m_pSorting, static_cast<std::size_t>(nCount), sizeof(Key)));
    dest.m_pSorting = pKeys; // so that the block is not lost if an Add raises
    for (int i = 0; i < nCount; ++i) {
        const char* lpszText = m_data[i].m_data;
        std::uint64_t nFirst = 0;
        for (int nShift = 56; nShift >= 0 && *lpszText != '\0'; nShift -= 8)
            nFirst |= static_cast<std::uint64_t>(static_cast<unsigned char>(*lpszText++)) << nShift;
        pKeys[i] = Key{nFirst, i};
    }
    std::sort(pKeys, pKeys + nCount, [this](const Key& a, const Key& b) {
        return a.nFirst != b.nFirst ? a.nFirst < b.nFirst : m_data[a.nIndex].Compare(m_data[b.nIndex]) < 0;
    });
    for (int i = 0; i < nCount; ++i)
        dest.Add(m_data[pKeys[i].nIndex]);
    std::free(pKeys);
    dest.m_pSorting = nullptr;
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
    Adopt();
    FreeBlock(m_pBlock, m_nBuilt);
    m_data = m_pBlock = nullptr;
    m_size = m_max_size = m_nBuilt = m_nRoom = m_nLent = 0;
}

int CStringCompare(const void* a, const void* b)
{
    const VELM_CString* pFirst = *static_cast<VELM_CString* const*>(a);
    const VELM_CString* pSecond = *static_cast<VELM_CString* const*>(b);
    return pFirst->Compare(*pSecond);
}
