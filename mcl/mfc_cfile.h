/// \file
/// The file class.
#ifndef TAVNOMCL_MFC_CFILE_H
#define TAVNOMCL_MFC_CFILE_H

#include <stdint.h>
#include <stdio.h>

#include "mcl/mfc_base.h"
#include "mcl/mfc_cstring.h"
#include "mcl/mfc_time.h"

/// \addtogroup files
/// \{

class VELM_LOCAL VELM_CSaveState;

/// What the system knows of a file.
struct VELM_API VELM_CFileStatus {
    VELM_CTime m_ctime;        ///< Last status change.
    VELM_CTime m_mtime;        ///< Last modification.
    VELM_CTime m_atime;        ///< Last access.
    int32_t m_size;            ///< Size in bytes: the low 32 bits.
    unsigned char m_attribute; ///< 0x10 for a directory, else 0.
    unsigned char m_reserved;  ///< Not filled.
    char m_szFullName[1024];   ///< Not filled.
};

/// The record of a file error.
class VELM_API VELM_CFileException {
public:
    int m_cause;                ///< The cause; 1 in a record of `VELM_CFile::getException`.
    long m_lSysError;           ///< The system's error number, or -1.
    VELM_CString m_strReserved; ///< Empty.
    VELM_CString m_strMessage;  ///< A text; "Can't open file" after a failed `VELM_CFile::Open`.

    /// A record of the cause, the system's error number and a text; NULL gives an empty text.
    VELM_CFileException(int cause, long lSysError, const char* lpszText);
    virtual ~VELM_CFileException();
    /// Does nothing: a record is released with `delete`.
    void Delete();
};

/// A disk file, named by a path and reached through a stdio stream.
///
/// Writes go straight to the descriptor, reads and seeks through the stream: use an open file in one direction.
/// Failures are results; a failed transfer also sets `ERROR_CODE`. Nothing is raised or asserted.
class VELM_API VELM_CFile {
public:
    enum {
        /// \name How to open a file: one of these
        /// \{
        modeRead = 0,         ///< Reading only; the file must exist.
        modeWrite = 0x0001,   ///< Writing only; the file is created, or emptied.
        modeRewrite = 0x0002, ///< The same.
        modeCreate = 0x1000,  ///< The same.
        modeAppend =
            0x2000, ///< Reading, and writing at the end; the file is created when missing. Outweighs the others.
        /// \}
        /// \name What `Seek` counts from
        /// \{
        seekBegin = 0,   ///< The start of the file.
        seekCurrent = 1, ///< The position.
        seekEnd = 2      ///< The end of the file.
        /// \}
    };

    /// The pending error of all files of the process: 0 for none, 1 after a failed `Read` or `Write`.
    static int ERROR_CODE;

    VELM_CString m_strFileName; ///< The path last named, as passed.
    FILE* m_pStream;            ///< The open stream; NULL while the file is closed.

    /// A closed file without a name.
    VELM_CFile();
    /// A closed file of that name (NULL for none); the flags are not used.
    VELM_CFile(const char* lpszFileName, unsigned nOpenFlags = 0);
    VELM_CFile(const VELM_CFile&) = delete;
    VELM_CFile& operator=(const VELM_CFile&) = delete;

    /// The path, as passed.
    virtual VELM_CString GetFileName() const;
    /// The path, as passed.
    virtual VELM_CString GetFilePath() const;
    /// Closes the open stream and opens the path: for reading and appending when `nOpenFlags` has the bit `modeAppend`;
    /// else for writing, emptying the file, when it has `modeWrite`, `modeRewrite` or `modeCreate`; else for reading.
    /// Other bits do not count. Returns 1; or 0, and the text "Can't open file" in the message of `*pError`. The path
    /// is kept in both cases.
    virtual int Open(const char* lpszFileName, unsigned nOpenFlags = 0, VELM_CFileException* pError = NULL);
    /// Moves the read position by `lOff` from `nFrom`: `seekBegin`, `seekCurrent` or `seekEnd`. Returns 0, or -1 on
    /// failure.
    virtual long Seek(long lOff, unsigned nFrom);
    /// Does nothing: the file keeps its length.
    virtual void SetLength(unsigned long nNewLength);
    /// The low 32 bits of the size of the file at the path; 0 when there is none.
    virtual unsigned long GetLength() const;
    /// Reads up to `nCount` bytes; fewer only at the end of the file or on failure. Returns how many. The first byte at
    /// `lpBuf` becomes 0 even when none is read, unless the file is closed or `nCount` is 0.
    virtual unsigned Read(void* lpBuf, unsigned nCount);
    /// Writes the bytes with one call of `write`. A short write is not noticed; `VELM_CSaveFile` does.
    virtual void Write(const void* lpBuf, unsigned nCount);
    /// Closes the stream, if one is open.
    virtual void Close();
    /// Closes the file.
    virtual ~VELM_CFile();
    /// For archives: where they note what they could not store, so that `VELM_CSaveFile::Commit` knows of it. A file
    /// that stands in front of another one hands on what that one returns. NULL where nobody asks, as in this class.
    virtual VELM_CSaveState* GetSaveState() const;

    /// Moves to the end. Returns 0 (not the length), or 0xFFFFFFFF on failure.
    unsigned long SeekToEnd();
    /// Moves to the start.
    void SeekToBegin();
    /// Fills the record for the file at the path. Returns 1; or 0, and the record is not touched.
    int GetStatus(VELM_CFileStatus& rStatus) const;
    /// Fills the record for the file at that path; NULL has none. Returns 1; or 0, and the record is not touched.
    static int GetStatus(const char* lpszFileName, VELM_CFileStatus& rStatus);
    /// Takes the pending error: a new record with cause 1, which the caller deletes, and `ERROR_CODE` is 0 again. NULL
    /// when there is none.
    static VELM_CFileException* getException();
};

/// \}

#endif
