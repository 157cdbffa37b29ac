/// \file
/// Typed pointers in an archive: which class a pointer asks for, and pointers that own.
#ifndef TAVNOMCL_MFC_CARCOWN_H
#define TAVNOMCL_MFC_CARCOWN_H

#include "mcl/mfc_carccore.h"
#include "mcl/mfc_cobj.h"

/// \addtogroup archives
/// \{

/// The class record that an object must be of, or derived from, to be loaded through a `TYPE*`: `TYPE::classRecord`,
/// which is the class's own, not one that it inherits. A class whose record has another name specialises this.
template <class TYPE> struct VELM_CClassOf {
    /// The record; NULL for any class. Not there for a class without a record.
    template <class OWN = TYPE> static auto Record() -> decltype(&OWN::classRecord) { return &OWN::classRecord; }
};
/// Any object goes for the root of the classes.
template <> struct VELM_CClassOf<VELM_CObject> {
    /// \copydoc VELM_CClassOf::Record
    static const VELM_CRuntimeClass* Record() { return NULL; }
};

/// \cond
// Loads into the operand an object that is to be owned through it. Delivers what `Adopt` needs once that is where its
// owner keeps it; nRefused, and the operand is as it was, after a raise that returned.
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
