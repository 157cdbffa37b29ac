/// \file
/// A file that replaces an older one only when the new one is complete.
#ifndef TAVNOMCL_MFC_CSAVEFILE_H
#define TAVNOMCL_MFC_CSAVEFILE_H

#include "mcl/mfc_cfile.h"

/// \addtogroup files
/// \{

/// A file that replaces an older file atomically, and only when the new one is complete and on the disk.
///
/// A program calls `Open`, writes, usually through a storing `VELM_CArchive` that it then closes, and calls `Commit`.
/// The result of `Commit` tells whether everything since `Open` succeeded. Without `Commit`, or after any failure, the
/// old file is as it was, and no other file is left beside it. `AfxSaveDocument` does all of this in one call.
///
/// An archive on the file, directly or through a `VELM_CProgressFile`, tells the file what it could not store: a value
/// that was refused, an object that a raise left half stored, bytes dropped by `Abort` or stored after `Close`. After
/// any of these `Commit` fails. It also fails as long as there is an archive that has been neither closed nor aborted
/// nor destroyed. An archive that is made before `Open` counts as soon as it writes bytes to the file.
///
/// The new file is written in the folder of the old one, and has no name until it is complete, if the file system
/// supports that. A process that is killed between naming and renaming the file leaves a file called `.NAME.saveN`; on
/// other file systems this can happen at any time while it writes. The next save of the same file removes what is left.
///
/// The old file must be writable. The new one gets its mode, owner and group, as far as the process may set them; other
/// hard links to the old file keep the old contents. If the path is a symbolic link, the link stays, and the file that
/// it leads to is replaced, or created if it does not exist. What cannot be replaced, such as a device or a pipe, is
/// written directly.
///
/// The file is only written, from its start on: `Read`, `Seek`, `SeekToBegin` and `SeekToEnd` behave as those of a
/// closed file, and `m_pStream` stays NULL. Only `Open` allocates memory.
class VELM_API VELM_CSaveFile : public VELM_CFile {
public:
    /// A closed file without a name.
    VELM_CSaveFile();
    /// Closes the file.
    ~VELM_CSaveFile() override;
    /// Closes the file and begins to save to the path. Returns 1 on success. On failure it returns 0 and sets the
    /// message of `*pError`, unless that is NULL, to "Can't open file". `m_strFileName` is the new path in both cases.
    /// The flag `modeAppend` is refused; all others are ignored.
    int Open(const char* lpszFileName, unsigned nOpenFlags = modeWrite, VELM_CFileException* pError = NULL) override;
    /// While the file is open: the low 32 bits of the number of bytes written. Otherwise those of the size of the file
    /// at the path.
    unsigned long GetLength() const override;
    /// Writes all the bytes. On failure, after an earlier failure, or when the file is not open, it sets `ERROR_CODE`.
    void Write(const void* lpBuf, unsigned nCount) override;
    /// Closes the file; what was written without a successful `Commit` is dropped.
    void Close() override;
    VELM_CSaveState* GetSaveState() const override; ///< The record of this save; NULL while the file is closed.

    /// Flushes the new file to the disk, renames it to the path, flushes the folder, and closes the file. Returns 1
    /// when everything written since `Open` is in place. Otherwise it returns 0 and the old file is as it was, with two
    /// exceptions: a device or a pipe may have received a part, and when only flushing the folder fails, the new file
    /// is in place.
    int Commit();
    /// The `errno` value of the first failure since `Open`, or 0 if there was none. It is `ECANCELED` when `Commit`
    /// found that an archive had not stored everything.
    int GetError() const;
    /// The path and a text for that failure, such as "people.archive: No space left on device" or
    /// "people.archive: offset 12: the value does not fit into 4 bytes"; empty if there was none.
    VELM_CString GetErrorText() const;

private:
    int m_nFile;               // descriptor of the new file; -1 while the file is closed
    int m_nFolder;             // descriptor of its folder; -1 when the file is written directly
    int m_nError;              // errno of the first failure
    VELM_CSaveState* m_pState; // the record of the last Open, which outlives Close; NULL before the first Open
    int m_bReplaces;           // whether there is an old file; the next three fields describe it
    unsigned m_nMode;          // its permissions
    unsigned m_nOwner;         // its owner
    unsigned m_nGroup;         // its group
    char m_szTarget[256];      // name that the new file will have in the folder, after following links
    char m_szTemporary[256];   // name that the new file has in the folder now; empty for none

    VELM_LOCAL bool Fail();
    VELM_LOCAL void DropState();
    VELM_LOCAL bool FindTarget();
    VELM_LOCAL bool OpenBeside();
    template <class MAKE> VELM_LOCAL bool NameTemporary(MAKE make);
    VELM_LOCAL bool RemoveLeftover();
    VELM_LOCAL bool WriteWhole(const char* pBytes, unsigned nCount);
    VELM_LOCAL void KeepStatus();
    VELM_LOCAL bool RequireWhole();
    VELM_LOCAL bool Finish();
};

/// \}

#endif
