/// \file
/// Documents: a whole graph of objects in a file of its own, saved and loaded with one call each.
#ifndef TAVNOMCL_MFC_CDOC_H
#define TAVNOMCL_MFC_CDOC_H

#include "mcl/mfc_carcown.h"
#include "mcl/mfc_cclass.h"
#include "mcl/mfc_cstring.h"

/// \addtogroup documents
/// \{

/// Saves an object, and all that it refers to, in the file at `lpszPath`, by way of a `VELM_CSaveFile`. Returns 1 once
/// the new file is whole and safe on the disk; `*pError` is empty then. Otherwise returns 0: the old file is as it was,
/// and `*pError` says what went wrong, such as "todo.list: No space left on device" or "todo.list: offset 40: object 7,
/// a Task, has an owner already, in List (index 2)". `pError` may be NULL.
///
/// The call fails for everything that could not be loaded again: a NULL root, a class that is not in the table, and a
/// value or an object that could not be stored. If the program's objects own others, by `VELM_CArchive::WriteOwned` and
/// the like, it also fails for an object that nobody owns, other than the root. No raise leaves the call.
VELM_API int AfxSaveDocument(const char* lpszPath, const VELM_CClassTable& classes, const VELM_CObject* pRoot,
                             VELM_CString* pError = NULL) __attribute__((warn_unused_result));

/// Saves whatever `pfnStore` stores in the archive that it is given; `pContext` is passed on to it. The function stores
/// each root object by `VELM_CArchive::WriteOwned`. The call fails when the function or an object closes or aborts the
/// archive. In everything else it is like the `AfxSaveDocument` that saves one object.
VELM_API int AfxSaveDocument(const char* lpszPath, const VELM_CClassTable& classes,
                             void (*pfnStore)(VELM_CArchive& ar, void* pContext), void* pContext,
                             VELM_CString* pError = NULL) __attribute__((warn_unused_result));

/// Loads a document that `AfxSaveDocument` has saved by a function. `pfnLoad` reads the same values in the same order
/// from the archive that it is given, the root objects by `VELM_CArchive::ReadOwned` into variables that outlive the
/// call; `pContext` is passed on to it.
///
/// Returns 1 when everything was loaded, no data is left behind it and, if the program's objects own others at all,
/// every object except the roots has an owner. The caller owns the roots then. Otherwise returns 0: everything that had
/// been loaded is deleted, the variables must not be used, and `*pError` says what went wrong; `pError` may be NULL. No
/// raise leaves the call. The function must leave the archive open: the call fails when it was closed or aborted, and
/// after an abort nobody deletes the objects.
VELM_API int AfxLoadDocument(const char* lpszPath, const VELM_CClassTable& classes,
                             void (*pfnLoad)(VELM_CArchive& ar, void* pContext), void* pContext,
                             VELM_CString* pError = NULL) __attribute__((warn_unused_result));

/// \cond
template <class BODY> void AfxCallBody(VELM_CArchive& ar, void* pBody)
{
    (*static_cast<BODY*>(pBody))(ar);
}
template <class TYPE> void AfxLoadRoot(VELM_CArchive& ar, void* ppRoot)
{
    ar.ReadOwned(*static_cast<TYPE**>(ppRoot));
}
// The result type of the calls that take a body. An argument that converts to a pointer to an object is a root instead.
template <class BODY>
struct VELM_CWhereBody : std::enable_if<!std::is_convertible<BODY, const VELM_CObject*>::value, int> {
};
/// \endcond

/// Saves whatever `body(ar)` stores; `body` is, for instance, a lambda that stores several roots, or values beside
/// them. In everything else like the `AfxSaveDocument` that takes a function and a context.
template <class BODY>
__attribute__((warn_unused_result)) typename VELM_CWhereBody<BODY>::type
AfxSaveDocument(const char* lpszPath, const VELM_CClassTable& classes, BODY body, VELM_CString* pError = NULL)
{
    return AfxSaveDocument(lpszPath, classes, AfxCallBody<BODY>, static_cast<void*>(&body), pError);
}

/// Loads what `body(ar)` reads, for instance a lambda. In everything else like the `AfxLoadDocument` that takes a
/// function and a context.
template <class BODY>
__attribute__((warn_unused_result)) int AfxLoadDocument(const char* lpszPath, const VELM_CClassTable& classes,
                                                        BODY body, VELM_CString* pError = NULL)
{
    return AfxLoadDocument(lpszPath, classes, AfxCallBody<BODY>, static_cast<void*>(&body), pError);
}

/// Loads the object that `AfxSaveDocument` has saved as the root. It must be of the class `TYPE` (see `VELM_CClassOf`)
/// or of one derived from it. The caller deletes it. Returns NULL, with the reason in `*pError`, when the file does not
/// hold exactly one such root; what had been loaded is deleted then. No raise leaves the call.
template <class TYPE>
__attribute__((warn_unused_result)) TYPE* AfxLoadDocument(const char* lpszPath, const VELM_CClassTable& classes,
                                                          VELM_CString* pError = NULL)
{
    TYPE* pRoot = NULL;
    return AfxLoadDocument(lpszPath, classes, AfxLoadRoot<TYPE>, static_cast<void*>(&pRoot), pError) ? pRoot : NULL;
}

/// \}

#endif
