/// \file
/// Failures: the exception classes and the functions that raise.
///
/// The library uses no language-level exceptions. A run-time failure is a raise: a call of the host's `pfm_raise`
/// with one of the causes of `VELM_CArchiveException`. Where that returns, the operation stops and harms nothing.
#ifndef TAVNOMCL_MFC_CARCEX_H
#define TAVNOMCL_MFC_CARCEX_H

#include "mcl/mfc_cobj.h"
#include "mcl/mfc_cstring.h"

/// \addtogroup failures
/// \{

/// Base of the exception classes, for callers' own use; the library creates none.
class VELM_API VELM_CException : public VELM_CObject {
public:
    int m_nFlag; ///< Not used by the library.

    /// The flag is 1.
    VELM_CException();
    /// The given flag.
    VELM_CException(int nFlag);
    ~VELM_CException() override;
    /// Returns 1 and writes nothing.
    virtual int GetErrorMessage(char* lpszError, unsigned nMaxError, unsigned* pnHelpContext);
    /// Returns 0 and prints nothing.
    virtual int ReportError(unsigned nType, unsigned nMessageID);
};

/// Names a failure of an archive, for callers' own use; the library creates none.
class VELM_API VELM_CArchiveException : public VELM_CException {
public:
    /// The causes, which are also the codes that the library raises.
    enum {
        causeGeneric = 1,   ///< A class or an object that cannot go through the archive; exhausted memory.
        causeEndOfFile = 3, ///< The data ended inside a value.
        causeBadIndex = 5   ///< No further index can be given, or a reference that cannot be followed.
    };

    int m_cause;                ///< The cause.
    VELM_CString m_strFileName; ///< The name of the file, or empty.

    /// A record of the cause and the file's name; NULL gives an empty name.
    VELM_CArchiveException(int cause, const char* lpszName);
    ~VELM_CArchiveException() override;
    /// Returns 1 and writes nothing.
    int GetErrorMessage(char* lpszError, unsigned nMaxError, unsigned* pnHelpContext) override;
};

/// Raises `cause`; the name is not used.
VELM_API void AfxThrowArchiveException(int cause, const char* lpszName);
/// Raises 1.
VELM_API void AfxThrowNotSupportedException();
/// Raises 1.
VELM_API void AfxThrowMemoryException();

/// Always 1: no address is known to be bad. The arguments are a region, its size in bytes and whether it is written.
VELM_API int AfxIsValidAddress(const void* lp, unsigned nBytes, int bReadWrite = 1);
/// Always 1: no string is known to be bad. The length is -1 for a NUL-terminated string.
VELM_API int AfxIsValidString(const char* lpsz, int nLength = -1);

/// The same for a size of any other integer type.
template <class SIZE> inline int AfxIsValidAddress(const void* lp, SIZE nBytes, int bReadWrite = 1)
{
    return AfxIsValidAddress(lp, static_cast<unsigned>(nBytes), bReadWrite);
}

/// \}

#endif
