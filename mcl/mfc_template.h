/// \file
/// Element helpers: how the collection templates construct, destroy, compare, hash and archive their elements.
///
/// A program that uses `VELM_CMap` with types of its own specialises those templates whose general form does not fit
/// (or, for `HashKey` of a class, overloads it). Functions that take `nCount` work on that many contiguous elements;
/// 0 does nothing.
#ifndef TAVNOMCL_MFC_TEMPLATE_H
#define TAVNOMCL_MFC_TEMPLATE_H

#include <stdint.h>
#include <string.h>

#include <new>
#include <string>
#include <type_traits>
#include <utility>

#include "host/fxStr.h"
#include "mcl/mfc_carcnum.h"
#include "mcl/mfc_carcown.h"

/// \addtogroup collections
/// \{

/// Returns 1 when the stored element equals the key argument, else 0. The general form uses `operator==`.
template <class TYPE, class ARG_TYPE> int CompareElements(const TYPE* pElement1, const ARG_TYPE* pElement2)
{
    return *pElement1 == *pElement2;
}

/// Constructs elements in raw storage. The general form zeroes all of it, then runs each element's default constructor.
template <class TYPE> void ConstructElements(TYPE* pElements, int nCount)
{
    memset(static_cast<void*>(pElements), 0, static_cast<size_t>(nCount) * sizeof(TYPE));
    for (int i = 0; i < nCount; ++i)
        ::new (static_cast<void*>(pElements + i)) TYPE();
}

/// Destroys elements, in ascending order; the storage stays.
template <class TYPE> void DestructElements(TYPE* pElements, int nCount)
{
    for (int i = 0; i < nCount; ++i)
        pElements[i].~TYPE();
}

/// Raises 1, both when storing and when loading, for an element of a type that has no form in an archive.
VELM_API void AfxRefuseElement(VELM_CArchive& ar);

/// \cond
// Whether an element has operators << and >>; or else is a pointer to objects of a class with a record.
template <class TYPE>
struct VELM_CHasOperators
    : std::integral_constant<bool, VELM_CMoves<false, TYPE>::value && VELM_CMoves<true, TYPE>::value> {
};
template <class TYPE, class = void> struct VELM_CIsReference : std::false_type {
};
template <class TYPE>
struct VELM_CIsReference<TYPE*, decltype(void(VELM_CClassOf<TYPE>::Record()))>
    : std::integral_constant<bool,
                             std::is_convertible<TYPE*, VELM_CObject*>::value && !VELM_CHasOperators<TYPE*>::value> {
};

template <class TYPE>
typename std::enable_if<VELM_CHasOperators<TYPE>::value>::type AfxSerializeElement(VELM_CArchive& ar, TYPE& rElement)
{
    if (ar.IsStoring())
        ar << rElement;
    else
        ar >> rElement;
}

template <class TYPE>
typename std::enable_if<VELM_CIsReference<TYPE*>::value>::type AfxSerializeElement(VELM_CArchive& ar, TYPE*& rpOb)
{
    if (ar.IsStoring())
        ar.WriteObject(rpOb);
    else
        rpOb = static_cast<TYPE*>(ar.ReadObject(VELM_CClassOf<TYPE>::Record()));
}

template <class TYPE>
typename std::enable_if<!VELM_CHasOperators<TYPE>::value && !VELM_CIsReference<TYPE>::value>::type
AfxSerializeElement(VELM_CArchive& ar, TYPE&)
{
    AfxRefuseElement(ar);
}

template <class TYPE> void AfxSerializeElements(VELM_CArchive& ar, TYPE* pElements, int nCount, std::false_type)
{
    for (int i = 0; i < nCount; ++i) {
        AfxSerializeElement(ar, pElements[i]);
        if (!ar.IsStoring() && ar.IsDataEnded())
            return;
    }
}
template <class TYPE> void AfxSerializeElements(VELM_CArchive& ar, TYPE* pElements, int nCount, std::true_type)
{
    const size_t nElements = static_cast<size_t>(nCount > 0 ? nCount : 0);
    if (ar.IsStoring())
        AfxStoreValues(ar, pElements, nElements);
    else
        AfxLoadValues(ar, pElements, nElements);
}
/// \endcond

/// Stores elements in the archive, or loads them into constructed ones.
///
/// The general form uses the operators `<<` and `>>` of the type. It stores a pointer to a class derived from
/// `VELM_CObject` as an object reference; see `VELM_CClassOf`. Elements of other types raise 1. If the data ends early
/// and the raise returns, the later elements stay as they were; a number in which the data ends may become 0.
template <class TYPE> void SerializeElements(VELM_CArchive& ar, TYPE* pElements, int nCount)
{
    AfxSerializeElements(ar, pElements, nCount, VELM_CIsPlainNumber<TYPE>());
}

/// The hash value of a text; NULL counts as the empty text, whose value is 0.
VELM_API unsigned HashKey(char* key);
/// \copydoc HashKey(char*)
inline unsigned HashKey(const char* key)
{
    return HashKey(const_cast<char*>(key));
}

/// \cond
template <class KEY> unsigned AfxHashOf(const KEY& key)
{
    return static_cast<uint32_t>(static_cast<uintptr_t>(key)) >> 4;
}
template <class TYPE> unsigned AfxHashOf(TYPE* const& key)
{
    return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(key)) >> 4;
}
inline unsigned AfxHashOf(const VELM_CString& key)
{
    return HashKey(key.m_data);
}
inline unsigned AfxHashOf(const std::string& key)
{
    return HashKey(key.c_str());
}
/// \endcond

/// The hash value of a key: the low 32 bits of an integer or an address, shifted right by 4. For a `VELM_CString` or a
/// `std::string` it is the hash value of the text up to the first NUL.
template <class ARG_KEY> unsigned HashKey(ARG_KEY key)
{
    return AfxHashOf(key);
}

/// How a map hashes its keys: by `HashKey`.
template <class ARG_KEY> struct VELM_CKeyHash {
    /// The hash value.
    static unsigned Hash(ARG_KEY key) { return HashKey(key); }
};
/// A `const char*` is hashed by its address and not by its text; but see `VELM_CMapKey`.
template <> struct VELM_CKeyHash<const char*> {
    /// The hash value.
    static unsigned Hash(const char* key) { return HashKey<const char*>(key); }
};

/// Compares the texts; a NULL key counts as the empty text.
template <> VELM_API int CompareElements(const fxStr* pElement1, const char* const* pElement2);
/// \copydoc CompareElements(const fxStr*, const char* const*)
template <> VELM_API int CompareElements(const fxStr* pElement1, char* const* pElement2);
/// Does what the general form does, with the constructor `fxStr(0u)`.
template <> VELM_API void ConstructElements(fxStr* pElements, int nCount);
/// Stores or loads each string as the archive's operators do with a `VELM_CString`. If the data ends inside a string,
/// that string becomes empty, the later ones stay as they were, and 3 is raised.
template <> VELM_API void SerializeElements(VELM_CArchive& ar, fxStr* pElements, int nCount);
/// Stores or loads 4 bytes for each int, least significant first, by one transfer. It raises nothing when the data ends
/// early: the caller asks `VELM_CArchive::IsDataEnded`.
template <> VELM_API void SerializeElements(VELM_CArchive& ar, int* pElements, int nCount);
/// Stores 8 zero bytes for each object, or loads 8 bytes and leaves the object as it is, by one transfer.
template <> VELM_API void SerializeElements(VELM_CArchive& ar, VELM_CObject* pElements, int nCount);

/// \cond
extern template VELM_API void DestructElements<fxStr>(fxStr*, int);
extern template VELM_API void ConstructElements<int>(int*, int);
extern template VELM_API void DestructElements<int>(int*, int);
/// \endcond

/// \}

#endif
