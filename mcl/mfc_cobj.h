/// \file
/// The root of the serialisable classes, the object array, and the library's notices.
#ifndef TAVNOMCL_MFC_COBJ_H
#define TAVNOMCL_MFC_COBJ_H

#include <stddef.h>

#include <iterator>

#include "host/GenericList.h"
#include "mcl/mfc_base.h"

class VELM_CArchive;
struct VELM_CRuntimeClass;

/// Switches the notices "SetAt NYI\n" and "CObject Serialize NYI\n", which the library prints on standard output, on or
/// off for the whole process. They are on at first; 0 switches them off, for a program whose standard output is data.
/// \ingroup archives
VELM_API void AfxSetNotices(int bPrint);

/// The root of every class whose objects can go through an archive.
///
/// A class that is to be stored with `VELM_CArchive::WriteObject` overrides `GetRuntimeClass` and `Serialize`.
/// \ingroup archives
class VELM_API VELM_CObject {
public:
    void* m_pOwned; ///< A block of `malloc` that the destructor frees, or NULL. Set by derived classes only.

    /// An object that owns no block.
    VELM_CObject();
    /// A copy that owns no block; `src` keeps its own.
    VELM_CObject(VELM_CObject& src);
    /// Changes nothing: both objects keep the blocks that they own.
    VELM_CObject& operator=(const VELM_CObject& src);
    /// Frees the owned block.
    virtual ~VELM_CObject();
    /// The class record of the object's class; NULL when the class has none, as in this class.
    virtual VELM_CRuntimeClass* GetRuntimeClass() const;
    /// Stores the object's data in the archive, or loads it. Here: prints "CObject Serialize NYI\n" on standard
    /// output and moves no byte.
    virtual void Serialize(VELM_CArchive& ar);
    /// Checks the object's state. Here: does nothing.
    virtual void AssertValid() const;
};

/// An ordered array of pointers to objects. It never deletes the objects.
///
/// Indexes count from 0 and are not asserted: at an index outside the array, reading delivers NULL, insertion takes
/// place at the nearest end, and removal does nothing. Exhausted memory raises 1.
/// \ingroup collections
class VELM_API VELM_CObArray : public VELM_CObject {
public:
    GenericList m_list; ///< The elements.

    /// An empty array.
    VELM_CObArray();
    /// Leaves the objects alive.
    ~VELM_CObArray() override;
    VELM_CObArray(const VELM_CObArray&) = delete;
    VELM_CObArray& operator=(const VELM_CObArray&) = delete;
    /// Takes the elements of `src`, which is empty then: one by one, as the companion library's list has no other way.
    VELM_CObArray(VELM_CObArray&& src);
    /// \copydoc VELM_CObArray(VELM_CObArray&&)
    VELM_CObArray& operator=(VELM_CObArray&& src);

    /// Iterator over the elements in their order. It remembers an index, so it survives changes of the array.
    class const_iterator {
    public:
        /// \cond
        typedef std::input_iterator_tag iterator_category;
        typedef std::forward_iterator_tag iterator_concept;
        typedef VELM_CObject* value_type;
        typedef ptrdiff_t difference_type;
        typedef VELM_CObject* const* pointer;
        typedef VELM_CObject* reference;
        const_iterator() : m_pArray(NULL), m_nIndex(0) {}
        const_iterator(const VELM_CObArray* pArray, int nIndex) : m_pArray(pArray), m_nIndex(nIndex) {}
        VELM_CObject* operator*() const { return (*m_pArray)[m_nIndex]; }
        const_iterator& operator++()
        {
            ++m_nIndex;
            return *this;
        }
        const_iterator operator++(int)
        {
            const_iterator before = *this;
            ++m_nIndex;
            return before;
        }
        bool operator==(const const_iterator& other) const { return m_nIndex == other.m_nIndex; }
        bool operator!=(const const_iterator& other) const { return m_nIndex != other.m_nIndex; }

    private:
        const VELM_CObArray* m_pArray;
        int m_nIndex;
        /// \endcond
    };
    /// The first element.
    const_iterator begin() const { return const_iterator(this, 0); }
    /// Behind the last element.
    const_iterator end() const { return const_iterator(this, GetSize()); }

    /// Number of elements.
    int GetSize() const;
    /// The element at `nIndex`; NULL when there is none.
    VELM_CObject* operator[](int nIndex) const;
    /// Appends the elements of `src`, which may be this array. Returns the size after that.
    int Append(VELM_CObArray& src);
    /// Replaces the elements by those of `src`; a copy from itself changes nothing.
    void Copy(const VELM_CObArray& src);
    /// Inserts `nCount` copies of the pointer at `nIndex`; a count below 1 does nothing.
    void InsertAt(int nIndex, VELM_CObject* newElement, int nCount = 1);
    /// Inserts the elements of the array, which may be this one, from `nStartIndex` on. NULL inserts nothing.
    void InsertAt(int nStartIndex, VELM_CObArray* pNewArray);
    /// Removes `nCount` pointers from `nIndex` on; a count below 1 does nothing.
    void RemoveAt(int nIndex, int nCount = 1);
    /// Storing writes the number of elements in 4 bytes, and 8 zero bytes for each element. Loading reads such data and
    /// appends a new `VELM_CObject`, which belongs to the caller, for each element; where the data ends early, for each
    /// that is complete. It does not raise when the data ends early, and prints no notice.
    void Serialize(VELM_CArchive& ar) override;
};

#endif
