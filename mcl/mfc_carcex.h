/// \file
/// Failures: the exception classes and the functions that raise.
///
/// The library uses no C++ exceptions. A run-time failure is a raise: a call of the host's `pfm_raise` with one of the
/// causes of `VELM_CArchiveException`, which normally jumps to the innermost cleanup block. If it returns, the
/// operation that failed stops and does no harm; only exhausted memory ends the process then (`AfxMemoryExhausted`).
#ifndef TAVNOMCL_MFC_CARCEX_H
#define TAVNOMCL_MFC_CARCEX_H

#include "mcl/mfc_cobj.h"
#include "mcl/mfc_cstring.h"

/// \addtogroup failures
/// \{

/// Base of the exception classes. They are for programs' own use; the library creates no objects of them.
class VELM_API VELM_CException : public VELM_CObject {
public:
    int m_nFlag; ///< Not used by the library.

    /// Sets the flag to 1.
    VELM_CException();
    /// Sets the flag to `nFlag`.
    VELM_CException(int nFlag);
    ~VELM_CException() override;
    /// Returns 1 and writes nothing through its arguments. Derived classes may override it.
    virtual int GetErrorMessage(char* lpszError, unsigned nMaxError, unsigned* pnHelpContext);
    /// Returns 0 and prints nothing. Derived classes may override it.
    virtual int ReportError(unsigned nType, unsigned nMessageID);
};

/// Describes a failure of an archive. It is for programs' own use; the library creates no objects of it.
class VELM_API VELM_CArchiveException : public VELM_CException {
public:
    /// The causes, which are also the codes that the library raises.
    enum {
        causeGeneric = 1,   ///< A value, an object or a class cannot be stored or loaded, or memory is exhausted.
        causeEndOfFile = 3, ///< The data ended before a value was complete.
        causeBadIndex = 5   ///< No index is left, or a reference in the data is invalid.
    };

    int m_cause;                ///< The cause.
    VELM_CString m_strFileName; ///< The name of the file, or empty.

    /// Sets the cause and copies the name of the file. NULL gives an empty name.
    VELM_CArchiveException(int cause, const char* lpszName);
    ~VELM_CArchiveException() override;
    /// Returns 1 and writes nothing through its arguments.
    int GetErrorMessage(char* lpszError, unsigned nMaxError, unsigned* pnHelpContext) override;
};

/// Raises `cause`. The name is ignored.
VELM_API void AfxThrowArchiveException(int cause, const char* lpszName);
/// Raises 1.
VELM_API void AfxThrowNotSupportedException();
/// Raises 1.
VELM_API void AfxThrowMemoryException();

/// Returns 1 always: the library does not test addresses. The arguments are the start of a memory region, its size in
/// bytes, and whether it is going to be written.
VELM_API int AfxIsValidAddress(const void* lp, unsigned nBytes, int bReadWrite = 1);
/// Returns 1 always: the library does not test strings. The length is -1 for a string that ends in a NUL.
VELM_API int AfxIsValidString(const char* lpsz, int nLength = -1);

/// The same with a size of any other integer type.
template <class SIZE> inline int AfxIsValidAddress(const void* lp, SIZE nBytes, int bReadWrite = 1)
{
    return AfxIsValidAddress(lp, static_cast<unsigned>(nBytes), bReadWrite);
}

/// \}

#endif
