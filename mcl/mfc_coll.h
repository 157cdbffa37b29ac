/// \file
/// Growable arrays of pointers and of strings.
#ifndef TAVNOMCL_MFC_COLL_H
#define TAVNOMCL_MFC_COLL_H

#include <stddef.h>

#include <iterator>
#include <utility>

#include "mcl/mfc_base.h"
#include "mcl/mfc_cstring.h"

/// \addtogroup collections
/// \{

/// A growable array of untyped pointers. It never owns what they point to.
///
/// Indexes count from 0. A failed check leaves the array as it was. Exhausted memory: see `AfxMemoryExhausted`.
///
/// The slots are one block of `malloc`. When the capacity changes, the array takes a new block, copies the elements and
/// frees the old block. Only a block of 128 KiB or more that stays that large is resized by `realloc`, which then moves
/// pages instead of copying.
class VELM_API VELM_CPtrArray {
public:
    void** m_data;  ///< The block; NULL exactly when the capacity is 0.
    int m_size;     ///< Number of elements.
    int m_max_size; ///< Number of slots: the capacity.
    int m_grow_by;  ///< Growth step in slots; 0: an eighth of the size, at least 4 and at most 1024.

    /// An empty array without slots.
    VELM_CPtrArray();
    ~VELM_CPtrArray();
    VELM_CPtrArray(const VELM_CPtrArray&) = delete;
    VELM_CPtrArray& operator=(const VELM_CPtrArray&) = delete;
    /// Takes the slots of `src`, which is empty then. Takes no memory, so that `std::swap` does not either.
    VELM_CPtrArray(VELM_CPtrArray&& src) noexcept
        : m_data(src.m_data), m_size(src.m_size), m_max_size(src.m_max_size), m_grow_by(src.m_grow_by)
    {
        src.m_data = NULL;
        src.m_size = src.m_max_size = 0;
    }
    /// \copydoc VELM_CPtrArray(VELM_CPtrArray&&)
    VELM_CPtrArray& operator=(VELM_CPtrArray&& src) noexcept
    {
        std::swap(m_data, src.m_data);
        std::swap(m_size, src.m_size);
        std::swap(m_max_size, src.m_max_size);
        std::swap(m_grow_by, src.m_grow_by);
        if (this != &src)
            src.SetSize(0);
        return *this;
    }

    /// The first slot: as an iterator, until the array grows or gives back slots.
    void** begin() { return m_data; }
    /// Behind the last element.
    void** end() { return m_data + m_size; }
    /// \copydoc begin()
    void* const* begin() const { return m_data; }
    /// \copydoc end()
    void* const* end() const { return m_data + m_size; }

    /// Number of elements.
    VELM_INLINE int GetSize() const { return m_size; }
    /// The pointer at `nIndex`. Asserts "nIndex >= 0 && nIndex < m_size"; after a failure NULL.
    VELM_INLINE void* GetAt(int nIndex) const
    {
        return VELM_ASSERT(nIndex >= 0 && nIndex < m_size) ? m_data[nIndex] : nullptr;
    }
    /// Replaces the pointer at `nIndex`. Asserts "nIndex >= 0 && nIndex < m_size".
    VELM_INLINE void SetAt(int nIndex, void* newElement)
    {
        if (VELM_ASSERT(nIndex >= 0 && nIndex < m_size))
            m_data[nIndex] = newElement;
    }

    /// Makes the array `nNewSize` elements long; new ones are NULL. 0 releases the slots. A growth step other than -1
    /// is kept for this and later growths. Asserts "nNewSize >= 0", and "nNewMax >= m_max_size" and
    /// "nNewSize > m_size" while growing.
    void SetSize(int nNewSize, int nGrowBy = -1);
    /// Appends the pointers of `src`. Returns the index of the first one. Asserts "this != &src"; if the program goes
    /// on after that failure, the array is appended to itself.
    int Append(const VELM_CPtrArray& src);
    /// Replaces the elements by those of `src`. Asserts "this != &src".
    void Copy(const VELM_CPtrArray& src);
    /// Gives back the slots beyond the size.
    void FreeExtra();
    /// Replaces the pointer at `nIndex`. An index beyond the end makes the array grow; elements in between are NULL.
    /// Asserts "nIndex >= 0".
    void SetAtGrow(int nIndex, void* newElement);
    /// Inserts `nCount` copies of the pointer before the element at `nIndex`. An index beyond the end makes the array
    /// grow up to there; elements in between are NULL. Asserts "nIndex >= 0", "nCount > 0" and, after the growth,
    /// "nIndex + nCount <= m_size".
    void InsertAt(int nIndex, void* newElement, int nCount = 1);
    /// Inserts the pointers of `*pNewArray`, which may be this array, from `nStartIndex` on. Asserts
    /// "pNewArray != NULL" and "nStartIndex >= 0".
    void InsertAt(int nStartIndex, VELM_CPtrArray* pNewArray);
    /// Removes `nCount` elements; the capacity stays. Asserts "nIndex >= 0", "nCount >= 0" and
    /// "nIndex + nCount <= m_size".
    void RemoveAt(int nIndex, int nCount = 1);
};

/// A growable array of strings, held in place.
///
/// Every string of the block is constructed, whether it is an element or beyond the size. A reference to an element is
/// valid until the block grows. A growth cuts the elements at their first NUL, as an assignment does, and empties the
/// strings beyond the size. When a check fails or memory is exhausted (see `AfxMemoryExhausted`), nothing changes.
class VELM_API VELM_CStringArray {
public:
    VELM_CString* m_data; ///< The block, of operator new[], or NULL.
    int m_size;           ///< Number of elements.
    int m_max_size;       ///< Number of strings in the block: the capacity.

    /// An empty array with a block of 16 strings.
    VELM_CStringArray();
    ~VELM_CStringArray();
    /// An array that holds copies of the strings of `src`.
    VELM_CStringArray(const VELM_CStringArray& src);
    /// Takes the strings of `src`, which is empty then and has no block. Takes no memory, so that `std::swap` does not
    /// either.
    VELM_CStringArray(VELM_CStringArray&& src) noexcept;
    /// \copydoc VELM_CStringArray(VELM_CStringArray&&)
    VELM_CStringArray& operator=(VELM_CStringArray&& src) noexcept;

    /// The first element: as an iterator, until the array grows. `ElementAt` delivers elements to be changed.
    const VELM_CString* begin() const { return m_data; }
    /// Behind the last element.
    const VELM_CString* end() const { return m_data + m_size; }

    /// Number of elements.
    int GetSize() const;
    /// Index of the last element; -1 when there is none.
    int GetUpperBound() const;
    /// Makes the array `newSize` elements long; 0 releases the block. Strings beyond the size keep their texts, which
    /// come back when the array grows within its capacity. When the block must grow, it gets room for `nGrowBy` strings
    /// more than `newSize`; -1 stands for an eighth of the old size, at least 4 and at most 1024. Asserts
    /// "newSize >= 0".
    void SetSize(int newSize, int nGrowBy = -1);
    /// A copy of the element. Asserts "nIndex >= 0 && nIndex < m_size"; after a failure an empty string.
    VELM_CString GetAt(int nIndex) const;
    /// \copydoc GetAt
    VELM_CString operator[](int nIndex) const;
    /// Assigns the text to the element; NULL makes it empty. Asserts "nIndex >= 0 && nIndex < m_size".
    void SetAt(int nIndex, const char* newElement);
    /// The element itself. Asserts "nIndex >= 0 && nIndex < m_size"; after a failure an empty string of no array.
    VELM_CString& ElementAt(int nIndex);
    /// \copydoc ElementAt
    VELM_CString& operator[](int nIndex);
    /// Appends a copy of the text, which may lie in this array. A full block grows by 16 strings.
    void Add(const char* newElement);
    /// \copydoc Add(const char*)
    void Add(char* newElement);
    /// \copydoc Add(const char*)
    void Add(const VELM_CString& newElement);
    /// Replaces the elements by copies of those of `src`; the capacity is the size then.
    VELM_CStringArray& operator=(const VELM_CStringArray& src);
    /// Appends copies of this array's strings to `dest`, which may be this array, in ascending order.
    /// When memory is exhausted on the way, the strings appended so far stay.
    void Sort(VELM_CStringArray& dest) const;
    /// 1 when an element equals the string, as by `VELM_CString::Compare(const char*)`, else 0.
    int Contains(const VELM_CString& str) const;
    /// \copydoc Contains(const VELM_CString&) const
    int Contains(const char* str) const;
    /// Index of the first element that equals the string; -1 when there is none.
    int Find(const VELM_CString& str) const;
    /// \copydoc Find(const VELM_CString&) const
    int Find(const char* str) const;
    /// Releases the block: no elements, capacity 0.
    void RemoveAll();

private:
    // The block has room behind the capacity, so that most growths move nothing. A growth first constructs empty
    // strings there, and then raises m_max_size.
    //
    //     m_data                    m_size          m_max_size        m_nBuilt             m_nRoom
    //     | elements ...            | further strings | strings to come | raw ...            |
    //
    // m_pBlock equals m_data, except within an operation that makes the first block, or after a caller has set m_data.
    VELM_CString* m_pBlock;
    int m_nBuilt;           // constructed strings
    int m_nRoom;            // strings that the block has room for
    int* m_pLent;           // indexes of the elements handed out by reference since the last growth; of malloc
    int m_nLent;            // their number; -1 for all elements
    void* m_pSorting;       // the order in which Sort appends to this array; of malloc; NULL outside of Sort
    VELM_CString* m_pSpare; // what ElementAt delivers after a failed check

    VELM_LOCAL void Exchange(VELM_CStringArray& other);
    VELM_LOCAL void Adopt();
    VELM_LOCAL bool TryBuildTo(int nStrings);
    VELM_LOCAL bool TryAssign(const VELM_CStringArray& src);
    [[noreturn]] VELM_LOCAL void FailGrowth();
    VELM_LOCAL void GrowTo(int nMax);
    VELM_LOCAL void Lend(int nIndex);
};

/// The elements of an array as pointers to objects of a class, which they all must be; see `AfxOf`. The array must
/// live as long.
template <class TYPE, class ARRAY> class VELM_CArrayView {
public:
    /// \cond
    class iterator {
    public:
        typedef std::input_iterator_tag iterator_category;
        typedef std::forward_iterator_tag iterator_concept;
        typedef TYPE* value_type;
        typedef ptrdiff_t difference_type;
        typedef TYPE* const* pointer;
        typedef TYPE* reference;
        iterator() : m_at() {}
        explicit iterator(decltype(std::declval<ARRAY&>().begin()) at) : m_at(at) {}
        TYPE* operator*() const { return static_cast<TYPE*>(*m_at); }
        iterator& operator++()
        {
            ++m_at;
            return *this;
        }
        iterator operator++(int)
        {
            iterator before = *this;
            ++m_at;
            return before;
        }
        friend bool operator==(const iterator& a, const iterator& b) { return a.m_at == b.m_at; }
        friend bool operator!=(const iterator& a, const iterator& b) { return a.m_at != b.m_at; }

    private:
        decltype(std::declval<ARRAY&>().begin()) m_at;
    };
    explicit VELM_CArrayView(ARRAY& array) : m_pArray(&array) {}
    iterator begin() const { return iterator(m_pArray->begin()); }
    iterator end() const { return iterator(m_pArray->end()); }
    ARRAY& GetArray() const { return *m_pArray; }

private:
    ARRAY* m_pArray;
    /// \endcond
};

/// The elements of a `VELM_CPtrArray` or a `VELM_CObArray` whose class the program knows, in their order:
/// `for (Task* pTask : AfxOf<Task>(array))`. With `ar & AfxOf<Task>(array)` they go through an archive, as a count and
/// references; loading checks that they are of the class.
template <class TYPE, class ARRAY> VELM_CArrayView<TYPE, ARRAY> AfxOf(ARRAY& array)
{
    return VELM_CArrayView<TYPE, ARRAY>(array);
}

extern "C" {
/// Compares two strings for `qsort`, as `VELM_CString::Compare` does; `a` and `b` point to pointers to `VELM_CString`.
VELM_API int CStringCompare(const void* a, const void* b);
}

/// \}

#endif
