/// \file
/// A file in memory.
#ifndef TAVNOMCL_MFC_CMEMFILE_H
#define TAVNOMCL_MFC_CMEMFILE_H

#include "mcl/mfc_cfile.h"

/// \addtogroup files
/// \{

/// A file in memory, with one position for reading and writing: over bytes that the caller has, or growing.
///
/// It is always open and has no path: `Open` fails, `Close` keeps the contents, and the operations that are not virtual
/// (`SeekToBegin`, `SeekToEnd`, `GetStatus`) behave as those of a closed file. Use `Seek(0, seekBegin)` to read what
/// was written.
class VELM_API VELM_CMemoryFile : public VELM_CFile {
public:
    /// An empty file that grows.
    VELM_CMemoryFile();
    /// A file over `nCount` bytes of the caller's, which must live as long as they are read. It cannot be written.
    VELM_CMemoryFile(const void* lpBytes, unsigned long nCount);
    ~VELM_CMemoryFile() override;
    /// Fails: returns 0, and the text "Can't open file" in the message of `*pError`. Nothing changes.
    int Open(const char* lpszFileName, unsigned nOpenFlags = modeRead, VELM_CFileException* pError = NULL) override;
    /// Moves the position by `lOff` from `nFrom`: `seekBegin`, `seekCurrent` or `seekEnd`. Returns 0; or -1, and the
    /// position stays, when that is outside of the contents.
    long Seek(long lOff, unsigned nFrom) override;
    /// The low 32 bits of the size.
    unsigned long GetLength() const override;
    /// Reads up to `nCount` bytes; fewer only at the end. Returns how many.
    unsigned Read(void* lpBuf, unsigned nCount) override;
    /// Writes the bytes over what is at the position, and beyond the end. Raises 1 when memory is exhausted; the file
    /// is as it was. Over the caller's bytes it writes nothing and sets `ERROR_CODE`.
    void Write(const void* lpBuf, unsigned nCount) override;

    /// The contents, valid until the next `Write` or `Detach`; NULL when nothing has been written.
    const void* GetBytes() const;
    /// The size of the contents in bytes.
    unsigned long GetSize() const;
    /// Takes the contents out: a block of `malloc` with `GetSize()` bytes, asked for before, that the caller releases
    /// with `free`; the file is empty then. NULL when nothing has been written, or over the caller's bytes.
    void* Detach();

private:
    unsigned char* m_pBytes;
    unsigned long m_nSize;
    unsigned long m_nCapacity; // of the own block; 0 over the caller's bytes
    unsigned long m_nPosition; // at most m_nSize
    int m_bCallerBytes;
};

/// \}

#endif
