/// \file
/// A file that tells how far it is.
#ifndef TAVNOMCL_MFC_CPROGFILE_H
#define TAVNOMCL_MFC_CPROGFILE_H

#include "mcl/mfc_cfile.h"

/// \addtogroup files
/// \{

/// What a `VELM_CProgressFile` calls: with the bytes done of the bytes in all, and a pointer of the caller's.
typedef void (*VELM_PROGRESS)(void* pContext, unsigned long long nDone, unsigned long long nTotal);

/// Stands in front of another file, hands every operation on to it, and reports how many bytes went through.
///
/// An archive over it reports once for each buffer that it reads or writes. The function may raise to end what is under
/// way; the bytes that it was told of are lost to the archive then.
class VELM_API VELM_CProgressFile : public VELM_CFile {
public:
    /// In front of `*pFile`, which must live longer. `nTotal` is only handed on: the number of bytes in all, or 0 where
    /// it is not known.
    VELM_CProgressFile(VELM_CFile* pFile, unsigned long long nTotal, VELM_PROGRESS pfnProgress, void* pContext = NULL);
    ~VELM_CProgressFile() override;
    /// As `Open` of the other file. What has been done is not counted anew.
    int Open(const char* lpszFileName, unsigned nOpenFlags = modeRead, VELM_CFileException* pError = NULL) override;
    /// As `Seek` of the other file; what is read or written twice counts twice.
    long Seek(long lOff, unsigned nFrom) override;
    void SetLength(unsigned long nNewLength) override; ///< As that of the other file.
    unsigned long GetLength() const override;          ///< As that of the other file.
    /// As `Read` of the other file, then reports unless nothing was read.
    unsigned Read(void* lpBuf, unsigned nCount) override;
    /// As `Write` of the other file, then reports unless `nCount` is 0. What failed counts as done.
    void Write(const void* lpBuf, unsigned nCount) override;
    void Close() override;                          ///< As that of the other file. The destructor does not call it.
    VELM_CSaveState* GetSaveState() const override; ///< That of the other file.

    /// The bytes read and written so far.
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
