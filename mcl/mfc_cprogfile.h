/// \file
/// A file that reports progress.
#ifndef TAVNOMCL_MFC_CPROGFILE_H
#define TAVNOMCL_MFC_CPROGFILE_H

#include "mcl/mfc_cfile.h"

/// \addtogroup files
/// \{

/// The function that a `VELM_CProgressFile` calls: `pContext` is the pointer given to its constructor, `nDone` the
/// number of bytes read and written so far, and `nTotal` the total given to its constructor.
typedef void (*VELM_PROGRESS)(void* pContext, unsigned long long nDone, unsigned long long nTotal);

/// Passes every operation on to another file, and reports how many bytes have been read and written.
///
/// An archive on this file causes one report for each buffer that it reads or writes. The reporting function may raise
/// to end the operation; the archive then loses the bytes of the last report.
class VELM_API VELM_CProgressFile : public VELM_CFile {
public:
    /// Passes operations on to `*pFile`, which stays the caller's and must live longer. `nTotal` is passed to the
    /// reporting function as it is: the expected number of bytes, or 0 if it is not known.
    VELM_CProgressFile(VELM_CFile* pFile, unsigned long long nTotal, VELM_PROGRESS pfnProgress, void* pContext = NULL);
    ~VELM_CProgressFile() override;
    /// Calls `Open` of the other file. The number of bytes done does not start again at 0.
    int Open(const char* lpszFileName, unsigned nOpenFlags = modeRead, VELM_CFileException* pError = NULL) override;
    /// Calls `Seek` of the other file. Bytes that are then read or written again count again.
    long Seek(long lOff, unsigned nFrom) override;
    void SetLength(unsigned long nNewLength) override; ///< Calls `SetLength` of the other file.
    unsigned long GetLength() const override;          ///< Calls `GetLength` of the other file.
    /// Calls `Read` of the other file, and reports if any byte was read.
    unsigned Read(void* lpBuf, unsigned nCount) override;
    /// Calls `Write` of the other file, and reports unless `nCount` is 0. Bytes that could not be written count, too.
    void Write(const void* lpBuf, unsigned nCount) override;
    void Close() override;                          ///< Calls `Close` of the other file. The destructor does not.
    VELM_CSaveState* GetSaveState() const override; ///< Calls `GetSaveState` of the other file.

    /// The number of bytes read and written so far.
    unsigned long long GetDone() const;

private:
    VELM_CFile* m_pFile;
    VELM_PROGRESS m_pfnProgress;
    void* m_pContext;
    unsigned long long m_nDone;
    unsigned long long m_nTotal;

    VELM_LOCAL void Report(unsigned nCount);
};

/// \}

#endif
