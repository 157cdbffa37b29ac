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

/// Times, size and kind of a file, from `VELM_CFile::GetStatus`.
struct VELM_API VELM_CFileStatus {
    VELM_CTime m_ctime;        ///< Last status change.
    VELM_CTime m_mtime;        ///< Last modification.
    VELM_CTime m_atime;        ///< Last access.
    int32_t m_size;            ///< The low 32 bits of the size in bytes.
    unsigned char m_attribute; ///< 0x10 for a directory, else 0.
    unsigned char m_reserved;  ///< Never set.
    char m_szFullName[1024];   ///< Never set.
};

/// The record of a file error.
class VELM_API VELM_CFileException {
public:
    int m_cause;                ///< The cause; 1 in a record from `VELM_CFile::getException`.
    long m_lSysError;           ///< The system's error number, or -1.
    VELM_CString m_strReserved; ///< Empty.
    VELM_CString m_strMessage;  ///< A text; "Can't open file" after a failed `VELM_CFile::Open`.

    /// A record with these values; `lpszText` becomes `m_strMessage`, and NULL gives an empty text.
    VELM_CFileException(int cause, long lSysError, const char* lpszText);
    virtual ~VELM_CFileException();
    /// Does nothing: a program releases a record with `delete`.
    void Delete();
};

/// A disk file, named by a path and reached through a stdio stream.
///
/// Writes go directly to the descriptor, but reads and seeks go through the stream: use an open file either for reading
/// or for writing. The results tell about failures; a failed `Read` or `Write` sets `ERROR_CODE`. Nothing is asserted,
/// and only exhausted memory is raised.
class VELM_API VELM_CFile {
public:
    enum {
        /// \name How to open a file: one of these
        /// \{
        modeRead = 0,         ///< Reading only; the file must exist.
        modeWrite = 0x0001,   ///< Writing only; the file is created, or emptied.
        modeRewrite = 0x0002, ///< As `modeWrite`.
        modeCreate = 0x1000,  ///< As `modeWrite`.
        modeAppend = 0x2000,  ///< Reading, and writing at the end; a missing file is created. Overrides the others.
        /// \}
        /// \name What `Seek` counts from
        /// \{
        seekBegin = 0,   ///< The start of the file.
        seekCurrent = 1, ///< The current position.
        seekEnd = 2      ///< The end of the file.
        /// \}
    };

    /// The pending error, one for all files of the process: 0 for none, 1 after a failed `Read` or `Write`.
    static int ERROR_CODE;

    VELM_CString m_strFileName; ///< The path last passed to the constructor or `Open`, unchanged.
    FILE* m_pStream;            ///< The open stream; NULL while the file is closed.

    /// A closed file without a name.
    VELM_CFile();
    /// A closed file with that path (NULL for none). It is not opened, and the flags are not used.
    VELM_CFile(const char* lpszFileName, unsigned nOpenFlags = 0);
    VELM_CFile(const VELM_CFile&) = delete;
    VELM_CFile& operator=(const VELM_CFile&) = delete;

    /// The path, `m_strFileName`.
    virtual VELM_CString GetFileName() const;
    /// The path, `m_strFileName`, too.
    virtual VELM_CString GetFilePath() const;
    /// Closes the file, if it is open, and opens the file at the path.
    ///
    /// The file is opened for reading and appending when `nOpenFlags` has the bit `modeAppend`; otherwise it is emptied
    /// and opened for writing when they have `modeWrite`, `modeRewrite` or `modeCreate`; otherwise it is opened for
    /// reading. Other bits are ignored. Returns 1 on success. On failure it returns 0 and sets the message of
    /// `*pError`, unless that is NULL, to "Can't open file". `m_strFileName` is the new path in both cases.
    virtual int Open(const char* lpszFileName, unsigned nOpenFlags = 0, VELM_CFileException* pError = NULL);
    /// Moves the read position to `lOff` bytes from `nFrom`: `seekBegin`, `seekCurrent` or `seekEnd`. Returns 0, or -1
    /// on failure, also for a closed file.
    virtual long Seek(long lOff, unsigned nFrom);
    /// Does nothing: the file keeps its length.
    virtual void SetLength(unsigned long nNewLength);
    /// The low 32 bits of the size of the file at the path, open or not; 0 when there is no file.
    virtual unsigned long GetLength() const;
    /// Reads up to `nCount` bytes and returns how many; these are fewer only at the end of the file or on failure,
    /// which sets `ERROR_CODE`. Before it reads, it sets the first byte at `lpBuf` to 0. A closed file, or an `nCount`
    /// of 0, does nothing and returns 0.
    virtual unsigned Read(void* lpBuf, unsigned nCount);
    /// Writes the bytes with one call of `write`, whose failure sets `ERROR_CODE`. It does not notice that only a part
    /// was written; `VELM_CSaveFile` does. On a closed file it does nothing.
    virtual void Write(const void* lpBuf, unsigned nCount);
    /// Closes the stream, if one is open.
    virtual void Close();
    /// Closes the file.
    virtual ~VELM_CFile();
    /// For archives: the record in which they note what they could not store, and which `VELM_CSaveFile::Commit` asks.
    /// NULL if there is no such record, as in this class. A file that passes its operations on to another file returns
    /// the record of that file.
    virtual VELM_CSaveState* GetSaveState() const;

    /// Moves the read position to the end of the file. Returns 0, and not the length; or 0xFFFFFFFF on failure.
    unsigned long SeekToEnd();
    /// Moves the read position to the start of the file.
    void SeekToBegin();
    /// Fills `rStatus` for the file at the path and returns 1; or returns 0 and changes nothing when there is no file.
    int GetStatus(VELM_CFileStatus& rStatus) const;
    /// Fills `rStatus` for the file at `lpszFileName` and returns 1; or returns 0 and changes nothing when there is no
    /// file or the path is NULL.
    static int GetStatus(const char* lpszFileName, VELM_CFileStatus& rStatus);
    /// Takes the pending error: sets `ERROR_CODE` to 0 and returns a new record with its value as the cause, which the
    /// caller deletes. Returns NULL when there is no error.
    static VELM_CFileException* getException();
};

/// \}

#endif
