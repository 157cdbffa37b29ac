/// \file
/// Documents: a whole graph of objects in a file of its own, saved and loaded with one call each.
#ifndef TAVNOMCL_MFC_CDOC_H
#define TAVNOMCL_MFC_CDOC_H

#include "mcl/mfc_carcown.h"
#include "mcl/mfc_cclass.h"
#include "mcl/mfc_cstring.h"

/// \addtogroup documents
/// \{

/// Saves an object, and all that it refers to, in the file at the path, by a `VELM_CSaveFile`. Returns 1 when that is
/// whole and safe on the disk. Else 0, the old file is as it was, and `*pError` says what went wrong, such as
/// "todo.list: No space left on device" or "todo.list: offset 40: object 7, a Task, has an owner already, in List
/// (index 2)".
///
/// Refused is whatever could not be loaded again: a NULL root, a class that is not in the table, a value or an object
/// that was not stored and, where the program's objects own others by `VELM_CArchive::WriteOwned` and its kin, an
/// object other than the root that nobody owns. No raise comes through.
VELM_API int AfxSaveDocument(const char* lpszPath, const VELM_CClassTable& classes, const VELM_CObject* pRoot,
                             VELM_CString* pError = NULL) __attribute__((warn_unused_result));

/// Saves what the function stores in the archive that it is given, with the context. What it stores as a root is stored
/// by `VELM_CArchive::WriteOwned`. A function, or an object, that closes or aborts the archive makes the call fail.
/// Otherwise as above.
VELM_API int AfxSaveDocument(const char* lpszPath, const VELM_CClassTable& classes,
                             void (*pfnStore)(VELM_CArchive& ar, void* pContext), void* pContext,
                             VELM_CString* pError = NULL) __attribute__((warn_unused_result));

/// Loads what such a call has saved, by a function that loads it from the archive that it is given, with the context:
/// roots by `VELM_CArchive::ReadOwned` into variables that outlive the call, and whatever else it stored. Returns 1
/// when all of it came, nothing is left behind it, and every object but the roots has an owner (where the program's
/// objects own others at all). Else 0; then everything that had been loaded is deleted, the function's variables are
/// not to be used, and `*pError` says what went wrong. No raise comes through. The function leaves the archive open:
/// one that was closed or aborted makes the call fail, and of an aborted one nobody deletes the objects.
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
// The result of a call with a body: what converts to an object is a root, and no body.
template <class BODY>
struct VELM_CWhereBody : std::enable_if<!std::is_convertible<BODY, const VELM_CObject*>::value, int> {
};
/// \endcond

/// The same with `body(ar)`, such as a lambda that stores more than one root, or values of its own.
template <class BODY>
__attribute__((warn_unused_result)) typename VELM_CWhereBody<BODY>::type
AfxSaveDocument(const char* lpszPath, const VELM_CClassTable& classes, BODY body, VELM_CString* pError = NULL)
{
    return AfxSaveDocument(lpszPath, classes, AfxCallBody<BODY>, static_cast<void*>(&body), pError);
}

/// The same with `body(ar)`.
template <class BODY>
__attribute__((warn_unused_result)) int AfxLoadDocument(const char* lpszPath, const VELM_CClassTable& classes,
                                                        BODY body, VELM_CString* pError = NULL)
{
    return AfxLoadDocument(lpszPath, classes, AfxCallBody<BODY>, static_cast<void*>(&body), pError);
}

/// Loads an object of the class TYPE, or of one derived from it, that `AfxSaveDocument` has saved; see
/// `VELM_CClassOf`. The caller deletes it. NULL where the file does not hold one such object and nothing else; see
/// above.
template <class TYPE>
__attribute__((warn_unused_result)) TYPE* AfxLoadDocument(const char* lpszPath, const VELM_CClassTable& classes,
                                                          VELM_CString* pError = NULL)
{
    TYPE* pRoot = NULL;
    return AfxLoadDocument(lpszPath, classes, AfxLoadRoot<TYPE>, static_cast<void*>(&pRoot), pError) ? pRoot : NULL;
}

/// \}

#endif
