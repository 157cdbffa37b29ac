/// \file
/// Containers of the standard library in an archive: a program that stores these includes this header.
///
/// `<<` and `>>` for `std::string`, `vector`, `array`, `pair`, `map`, `unordered_map`, `set` and, from C++17 on,
/// `optional`, of each other and of everything else that `<<` and `>>` take. A pointer to a class derived from
/// `VELM_CObject`, as an element, goes as an object reference; see `VELM_CClassOf`.
///
/// Loading replaces what a container holds, and fills it as the data arrives: memory is never taken for what a count
/// claims. Where the data ends, 3 is raised, and the container holds the elements that were whole; a string or an
/// optional is empty then. A second element with the key of an earlier one is dropped. An element is loaded over a
/// default value or over one that was moved from, so that its own `>>` sets all of it.
///
/// What is being loaded belongs to the archive, so that a raise loses nothing. An exception of a container, such as
/// `std::bad_alloc`, passes through to the caller and loses nothing either; the archive is to be destroyed then. An
/// element that raises while a container moves it may lose memory, never an element.
///
/// Data that is made to collide makes `std::unordered_map` slow; `std::map` is not affected.
#ifndef TAVNOMCL_MFC_STD_H
#define TAVNOMCL_MFC_STD_H

#include <stddef.h>

#include <array>
#include <map>
#include <new>
#include <set>
#include <string>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <vector>
#if __cplusplus >= 201703L
#include <optional>
#endif

#include "mcl/mfc_carccore.h"
#include "mcl/mfc_cobj.h"
#include "mcl/mfc_memory.h"

/// \addtogroup standard
/// \{

/// The class record that an object must be of, or derived from, to be loaded through a `TYPE*`: `TYPE::classRecord`,
/// which is the class's own, not one that it inherits. A class whose record has another name specialises this.
template <class TYPE> struct VELM_CClassOf {
    /// The record; NULL for any class.
    static const VELM_CRuntimeClass* Record() { return &TYPE::classRecord; }
};
/// Any object goes for the root of the classes.
template <> struct VELM_CClassOf<VELM_CObject> {
    /// \copydoc VELM_CClassOf::Record
    static const VELM_CRuntimeClass* Record() { return NULL; }
};

/// \cond
// A value that is being loaded, which no raise may lose.
template <class TYPE> class VELM_LOCAL VELM_CHeldValue : public VELM_CHeld {
public:
    TYPE value;

    VELM_CHeldValue() : value() {}
};

template <class TYPE> void AfxStoreElement(VELM_CArchive& ar, const TYPE& value)
{
    ar << value;
}

template <class TYPE> void AfxLoadElement(VELM_CArchive& ar, TYPE& rValue)
{
    ar >> rValue;
}

template <class TYPE>
typename std::enable_if<std::is_base_of<VELM_CObject, TYPE>::value>::type AfxStoreElement(VELM_CArchive& ar,
                                                                                          TYPE* const& pOb)
{
    ar.WriteObject(pOb);
}

template <class TYPE>
typename std::enable_if<std::is_base_of<VELM_CObject, TYPE>::value>::type AfxLoadElement(VELM_CArchive& ar, TYPE*& rpOb)
{
    rpOb = static_cast<TYPE*>(ar.ReadObject(VELM_CClassOf<TYPE>::Record()));
}

template <class CONTAINER> VELM_CArchive& AfxStoreAll(VELM_CArchive& ar, const CONTAINER& elements)
{
    ar.WriteCount(static_cast<unsigned long>(elements.size())); // which reports one that is too large
    if (elements.size() <= 0xFFFFFFFF) {
        for (const auto& element : elements)
            AfxStoreElement(ar, element);
    }
    return ar;
}

// ELEMENT: the container's type of element, without const in it.
template <class ELEMENT, class CONTAINER> VELM_CArchive& AfxLoadAll(VELM_CArchive& ar, CONTAINER& elements)
{
    elements.clear();
    VELM_CHeldValue<ELEMENT>* pHeld = AfxNew(new (std::nothrow) VELM_CHeldValue<ELEMENT>);
    ar.Hold(pHeld);
    for (unsigned long n = ar.ReadCount(); n > 0; --n) {
        AfxLoadElement(ar, pHeld->value);
        if (ar.IsDataEnded())
            break;
        elements.insert(elements.end(), std::move(pHeld->value));
    }
    ar.DropHeld();
    ar.RaiseDataEnded(); // of an element whose operator does not raise
    return ar;
}
/// \endcond

/// Stores the text as a `VELM_CString` is stored; NUL bytes are kept.
template <class TRAITS, class ALLOC>
VELM_CArchive& operator<<(VELM_CArchive& ar, const std::basic_string<char, TRAITS, ALLOC>& str)
{
    ar.StorePrefixed(str.data(), static_cast<unsigned long>(str.size()));
    return ar;
}

/// Loads a text; see the header.
template <class TRAITS, class ALLOC>
VELM_CArchive& operator>>(VELM_CArchive& ar, std::basic_string<char, TRAITS, ALLOC>& str)
{
    unsigned long nLength = 0;
    str.clear();
    bool bCame = ar.LoadLength(nLength) != 0;
    for (unsigned long nHave = 0; bCame && nHave < nLength;) {
        // As much again as has come already, so that a length that lies costs no more than the data does.
        const unsigned long nMore = nHave < 4096 ? 4096 : nHave;
        const unsigned long nChunk = nMore < nLength - nHave ? nMore : nLength - nHave;
        str.resize(nHave + nChunk);
        bCame = ar.LoadWhole(&str[nHave], static_cast<unsigned>(nChunk)) != 0;
        nHave += nChunk;
    }
    if (!bCame) {
        str.clear();
        ar.RaiseDataEnded();
    }
    return ar;
}

/// Stores both, without a count.
template <class FIRST, class SECOND> VELM_CArchive& operator<<(VELM_CArchive& ar, const std::pair<FIRST, SECOND>& both)
{
    AfxStoreElement(ar, both.first);
    AfxStoreElement(ar, both.second);
    return ar;
}

/// Loads both in place.
template <class FIRST, class SECOND> VELM_CArchive& operator>>(VELM_CArchive& ar, std::pair<FIRST, SECOND>& both)
{
    AfxLoadElement(ar, both.first);
    if (!ar.IsDataEnded())
        AfxLoadElement(ar, both.second);
    return ar;
}

/// Stores the elements, without a count.
template <class TYPE, size_t SIZE> VELM_CArchive& operator<<(VELM_CArchive& ar, const std::array<TYPE, SIZE>& elements)
{
    static_assert(SIZE > 0, "an element takes a byte at least, so that no count costs more than the data");
    for (const TYPE& element : elements)
        AfxStoreElement(ar, element);
    return ar;
}

/// Loads the elements in place.
template <class TYPE, size_t SIZE> VELM_CArchive& operator>>(VELM_CArchive& ar, std::array<TYPE, SIZE>& elements)
{
    static_assert(SIZE > 0, "an element takes a byte at least, so that no count costs more than the data");
    for (size_t i = 0; i < SIZE && !ar.IsDataEnded(); ++i)
        AfxLoadElement(ar, elements[i]);
    return ar;
}

/// Stores a count, then the elements.
template <class TYPE, class ALLOC>
VELM_CArchive& operator<<(VELM_CArchive& ar, const std::vector<TYPE, ALLOC>& elements)
{
    return AfxStoreAll(ar, elements);
}

/// Loads the elements; see the header.
template <class TYPE, class ALLOC> VELM_CArchive& operator>>(VELM_CArchive& ar, std::vector<TYPE, ALLOC>& elements)
{
    return AfxLoadAll<TYPE>(ar, elements);
}

/// Stores a count, then the elements in ascending order.
template <class KEY, class LESS, class ALLOC>
VELM_CArchive& operator<<(VELM_CArchive& ar, const std::set<KEY, LESS, ALLOC>& elements)
{
    return AfxStoreAll(ar, elements);
}

/// Loads the elements; see the header.
template <class KEY, class LESS, class ALLOC>
VELM_CArchive& operator>>(VELM_CArchive& ar, std::set<KEY, LESS, ALLOC>& elements)
{
    return AfxLoadAll<KEY>(ar, elements);
}

/// Stores a count, then key and value of each entry, in ascending order of the keys.
template <class KEY, class VALUE, class LESS, class ALLOC>
VELM_CArchive& operator<<(VELM_CArchive& ar, const std::map<KEY, VALUE, LESS, ALLOC>& entries)
{
    return AfxStoreAll(ar, entries);
}

/// Loads the entries; see the header.
template <class KEY, class VALUE, class LESS, class ALLOC>
VELM_CArchive& operator>>(VELM_CArchive& ar, std::map<KEY, VALUE, LESS, ALLOC>& entries)
{
    return AfxLoadAll<std::pair<KEY, VALUE>>(ar, entries);
}

/// Stores a count, then key and value of each entry, in whatever order the map has.
template <class KEY, class VALUE, class HASH, class EQUAL, class ALLOC>
VELM_CArchive& operator<<(VELM_CArchive& ar, const std::unordered_map<KEY, VALUE, HASH, EQUAL, ALLOC>& entries)
{
    return AfxStoreAll(ar, entries);
}

/// Loads the entries; see the header.
template <class KEY, class VALUE, class HASH, class EQUAL, class ALLOC>
VELM_CArchive& operator>>(VELM_CArchive& ar, std::unordered_map<KEY, VALUE, HASH, EQUAL, ALLOC>& entries)
{
    return AfxLoadAll<std::pair<KEY, VALUE>>(ar, entries);
}

#if __cplusplus >= 201703L
/// Stores whether there is a value, in 1 byte, then the value.
template <class TYPE> VELM_CArchive& operator<<(VELM_CArchive& ar, const std::optional<TYPE>& value)
{
    ar << value.has_value();
    if (value.has_value())
        AfxStoreElement(ar, *value);
    return ar;
}

/// Loads a value, or none; see the header.
template <class TYPE> VELM_CArchive& operator>>(VELM_CArchive& ar, std::optional<TYPE>& rValue)
{
    rValue.reset();
    bool bThere = false;
    ar >> bThere;
    if (!bThere)
        return ar;
    VELM_CHeldValue<TYPE>* pHeld = AfxNew(new (std::nothrow) VELM_CHeldValue<TYPE>);
    ar.Hold(pHeld);
    AfxLoadElement(ar, pHeld->value);
    if (!ar.IsDataEnded())
        rValue = std::move(pHeld->value);
    ar.DropHeld();
    ar.RaiseDataEnded();
    return ar;
}
#endif

/// \}

#endif
