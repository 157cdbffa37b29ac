/// \file
/// Saving that cannot lose the old file.
#ifndef TAVNOMCL_MFC_CSAVEFILE_H
#define TAVNOMCL_MFC_CSAVEFILE_H

#include "mcl/mfc_cfile.h"

/// \addtogroup files
/// \{

/// A file that takes the place of an older one only when it is whole, and safe on the disk.
///
/// `Open`, write (mostly through a storing `VELM_CArchive`, which is closed first), then `Commit`, and one check: its
/// result answers for everything since `Open`. Without `Commit`, or when anything failed, the old file is as it was and
/// nothing is left beside it. `AfxSaveDocument` does all of that.
///
/// Archives on the file, also through a `VELM_CProgressFile`, tell it what they could not store: a value that was
/// refused, an object that a raise left half stored, bytes dropped by `Abort` or stored after `Close`. After any of
/// these, and while an archive has been neither closed nor aborted nor destroyed, `Commit` fails. An archive that is
/// made before `Open` counts from the first bytes that it hands to the file.
///
/// The new file is written in the folder of the old one, where possible without a name until it is whole. A process
/// that is killed in the instant between naming and renaming it (where the file system knows no files without a name:
/// at any time while it writes) leaves a file called `.NAME.saveN`; the next save of the same file removes it.
///
/// The mode, owner and group of an old file are kept where the process may set them; its other names (hard links)
/// keep the old contents. It must be writable. A symbolic link stays, and the file that it leads to, there or not, is
/// the one that is replaced or made. What cannot be replaced, such as a device or a pipe, is written directly.
///
/// The file is only written, from its start on: `Read`, `Seek`, `SeekToBegin` and `SeekToEnd` behave as those of a
/// closed file, and `m_pStream` stays NULL. Only `Open` allocates memory.
class VELM_API VELM_CSaveFile : public VELM_CFile {
public:
    /// A closed file without a name.
    VELM_CSaveFile();
    /// Closes the file.
    ~VELM_CSaveFile() override;
    /// Closes the file and begins to save that path. Returns 1; or 0, and the text "Can't open file" in the message of
    /// `*pError`. The path is kept in both cases. Appending (`modeAppend`) is refused; other flags do not count.
    int Open(const char* lpszFileName, unsigned nOpenFlags = modeWrite, VELM_CFileException* pError = NULL) override;
    /// The low 32 bits of the number of bytes written, while the file is open; else those of the size of the file at
    /// the path.
    unsigned long GetLength() const override;
    /// Writes all the bytes. What cannot be written, also because of an earlier failure or because the file is not
    /// open, sets `ERROR_CODE`.
    void Write(const void* lpBuf, unsigned nCount) override;
    /// Ends the saving. What has not been committed is dropped.
    void Close() override;
    VELM_CSaveState* GetSaveState() const override; ///< That of this save; NULL while the file is closed.

    /// Flushes what was written to the disk, gives it its name, flushes the folder, and closes the file. Returns 1 when
    /// all that was written since `Open` is in place; else 0. Then the old file is as it was, except that a device or
    /// a pipe may have got a part, and that a failure to flush the folder leaves the new file in place.
    int Commit();
    /// The system's number (`errno`) of the first failure since `Open`; `ECANCELED` where `Commit` found that an
    /// archive had not stored everything; 0 for none.
    int GetError() const;
    /// The path and that failure, such as "people.archive: No space left on device" or "people.archive: offset 12: the
    /// value does not fit into 4 bytes"; empty for none.
    VELM_CString GetErrorText() const;

private:
    int m_nFile;               // descriptor of the new file; -1 while the file is closed
    int m_nFolder;             // of the folder; -1 when the file is written directly
    int m_nError;              // errno of the first failure
    VELM_CSaveState* m_pState; // of this Open and, after it, of its failure; NULL before the first
    int m_bReplaces;           // whether there is an old file, with:
    unsigned m_nMode;          // its permissions
    unsigned m_nOwner;         // its owner
    unsigned m_nGroup;         // its group
    char m_szTarget[256];      // name in the folder, links followed
    char m_szTemporary[256];   // present name in the folder; empty for none

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
