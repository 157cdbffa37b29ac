/// \file
/// A file in memory.
#ifndef TAVNOMCL_MFC_CMEMFILE_H
#define TAVNOMCL_MFC_CMEMFILE_H

#include "mcl/mfc_cfile.h"

/// \addtogroup files
/// \{

/// A file in memory, with one position for reading and writing. It either grows in memory of its own or reads bytes
/// that the caller has.
///
/// It is always open and has no path: `Open` fails, `Close` keeps the contents, and the operations that are not virtual
/// (`SeekToBegin`, `SeekToEnd`, `GetStatus`) behave as those of a closed file. Call `Seek(0, seekBegin)` before reading
/// what was written.
class VELM_API VELM_CMemoryFile : public VELM_CFile {
public:
    /// An empty file that grows when it is written.
    VELM_CMemoryFile();
    /// A file for reading `nCount` bytes at `lpBytes`. They belong to the caller and must live as long as they are
    /// read.
    VELM_CMemoryFile(const void* lpBytes, unsigned long nCount);
    ~VELM_CMemoryFile() override;
    /// Always fails: returns 0, changes nothing, and sets the message of `*pError`, unless that is NULL, to
    /// "Can't open file".
    int Open(const char* lpszFileName, unsigned nOpenFlags = modeRead, VELM_CFileException* pError = NULL) override;
    /// Moves the position to `lOff` bytes from `nFrom`: `seekBegin`, `seekCurrent` or `seekEnd`. Returns 0; or -1, and
    /// the position stays, when that is before the start or beyond the end.
    long Seek(long lOff, unsigned nFrom) override;
    /// The low 32 bits of the size.
    unsigned long GetLength() const override;
    /// Reads up to `nCount` bytes and returns how many; these are fewer only at the end.
    unsigned Read(void* lpBuf, unsigned nCount) override;
    /// Writes the bytes at the position, in place of those that are there; the file grows when they reach beyond its
    /// end. Exhausted memory raises 1 and changes nothing. A file that reads the caller's bytes writes nothing and sets
    /// `ERROR_CODE`.
    void Write(const void* lpBuf, unsigned nCount) override;

    /// The contents, valid until the next `Write` or `Detach`; NULL when a growing file is empty.
    const void* GetBytes() const;
    /// The size of the contents in bytes.
    unsigned long GetSize() const;
    /// Hands the contents over to the caller and leaves the file empty. Returns a block that the caller releases with
    /// `free`; call `GetSize` before, to know its size. Returns NULL when the file is empty, or reads the caller's
    /// bytes.
    void* Detach();

private:
    unsigned char* m_pBytes;
    unsigned long m_nSize;
    unsigned long m_nCapacity; // size of the file's own block; 0 if it reads the caller's bytes
    unsigned long m_nPosition; // at most m_nSize
    int m_bCallerBytes;
};

/// \}

#endif
