/// \file
/// Typed pointers in an archive: which class an object must have for a pointer, and pointers that own.
#ifndef TAVNOMCL_MFC_CARCOWN_H
#define TAVNOMCL_MFC_CARCOWN_H

#include "mcl/mfc_carccore.h"
#include "mcl/mfc_cobj.h"

/// \addtogroup archives
/// \{

/// Tells the class record of `TYPE`. An object that is loaded into a `TYPE*` must be of that class or of one derived
/// from it.
///
/// The record is `TYPE::classRecord`. It must be the class's own, not one that it inherits. If the record has another
/// name, specialise this template:
///
///     template <> struct VELM_CClassOf<Circle> {
///         static const VELM_CRuntimeClass* Record() { return &circleClass; }
///     };
template <class TYPE> struct VELM_CClassOf {
    /// Returns the record, or NULL if any object may be loaded. There is no such function for a class without a record.
    template <class OWN = TYPE> static auto Record() -> decltype(&OWN::classRecord) { return &OWN::classRecord; }
};
/// Any object may be loaded into a `VELM_CObject*`.
template <> struct VELM_CClassOf<VELM_CObject> {
    /// \copydoc VELM_CClassOf::Record
    static const VELM_CRuntimeClass* Record() { return NULL; }
};

/// \cond
// Loads an object into a pointer that is to own it. Returns the index that the caller passes to `Adopt` as soon as the
// pointer is where its owner keeps it. After a raise that returned, the result is nRefused and rpOb keeps its value.
template <class TYPE> unsigned AfxLoadOwned(VELM_CArchive& ar, TYPE*& rpOb, int bOrNull)
{
    static_assert(std::is_base_of<VELM_CObject, TYPE>::value,
                  "a pointer goes through an archive when its class derives from VELM_CObject");
    unsigned nIndex;
    VELM_CObject* const pOb =
        ar.ReadForOwner(VELM_CClassOf<TYPE>::Record(), VELM_CArchive::plainOwner, bOrNull, nIndex);
    if (nIndex != VELM_CArchive::nRefused)
        rpOb = static_cast<TYPE*>(pOb);
    return nIndex;
}
/// \endcond

template <class TYPE> void VELM_CArchive::ReadOwned(TYPE*& rpOb)
{
    Adopt(AfxLoadOwned(*this, rpOb, 0), plainOwner);
}

template <class TYPE> void VELM_CArchive::ReadOwnedOrNull(TYPE*& rpOb)
{
    Adopt(AfxLoadOwned(*this, rpOb, 1), plainOwner);
}

/// \}

#endif
