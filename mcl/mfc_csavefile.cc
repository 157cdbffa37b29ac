#include "mcl/mfc_csavefile.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "mcl/mfc_csavestate_p.h"

static const int nWriting = O_WRONLY | O_CLOEXEC | O_NOCTTY | O_LARGEFILE;

// Makes a system call, repeats it as long as signals interrupt it, and returns its result.
template <class CALL> static auto Retry(CALL call) -> decltype(call())
{
    for (;;) {
        const auto nResult = call();
        if (nResult != -1 || errno != EINTR)
            return nResult;
    }
}

// Sets errno and returns false.
static bool FailWith(int nError)
{
    errno = nError;
    return false;
}

static void CloseDescriptor(int& rDescriptor)
{
    if (rDescriptor != -1)
        close(rDescriptor);
    rDescriptor = -1;
}

// Flushes a file to the disk. True, too, for what cannot be flushed, such as a pipe.
static bool FlushToDisk(int nDescriptor, int nNoFlushing = EINVAL)
{
    return Retry([&] { return fsync(nDescriptor); }) == 0 || errno == EINVAL || errno == EROFS || errno == nNoFlushing;
}

// Locks the file, unless another process has locked it. Closing the descriptor releases the lock.
static bool Lock(int nDescriptor)
{
    return Retry([&] { return flock(nDescriptor, LOCK_EX | LOCK_NB); }) == 0;
}

static bool GetStatusOf(int nDescriptor, struct stat64& rStatus)
{
    return Retry([&] { return fstat64(nDescriptor, &rStatus); }) == 0;
}

// A path to the file that the process has opened as the descriptor.
struct DescriptorPath {
    char szPath[32];

    explicit DescriptorPath(int nDescriptor) { std::snprintf(szPath, sizeof szPath, "/proc/self/fd/%d", nDescriptor); }
};

VELM_CSaveFile::VELM_CSaveFile()
    : m_nFile(-1), m_nFolder(-1), m_nError(0), m_pState(nullptr), m_bReplaces(0), m_nMode(0), m_nOwner(0), m_nGroup(0),
      m_szTarget(), m_szTemporary()
{
}

VELM_CSaveFile::~VELM_CSaveFile()
{
    VELM_CSaveFile::Close();
    DropState();
}

void VELM_CSaveFile::DropState()
{
    if (m_pState != nullptr)
        m_pState->Release();
    m_pState = nullptr;
}

VELM_CSaveState* VELM_CSaveFile::GetSaveState() const
{
    return m_nFile == -1 ? nullptr : m_pState;
}

int VELM_CSaveFile::Open(const char* lpszFileName, unsigned nOpenFlags, VELM_CFileException* pError)
{
    Close();
    DropState();
    m_strFileName = lpszFileName;
    m_nError = 0;
    m_pState = VELM_CSaveState::New();
    bool bOpen;
    struct stat64 status = {};
    m_bReplaces = Retry([&] { return stat64(m_strFileName.m_data, &status); }) == 0;
    m_nMode = status.st_mode & ALLPERMS;
    m_nOwner = status.st_uid;
    m_nGroup = status.st_gid;
    if (m_pState == nullptr || (nOpenFlags & modeAppend) != 0) {
        bOpen = FailWith(m_pState == nullptr ? ENOMEM : EINVAL);
    } else if (m_bReplaces && !S_ISREG(status.st_mode)) {
        m_nFile = Retry([&] { return open(m_strFileName.m_data, nWriting); });
        bOpen = m_nFile != -1;
    } else {
        bOpen = (m_bReplaces || errno == ENOENT) && FindTarget() && OpenBeside();
    }
    if (bOpen)
        return 1;
    Fail();
    Close();
    if (pError != nullptr)
        pError->m_strMessage = "Can't open file";
    return 0;
}

// Follows the path and all symbolic links; opens the folder of the file that they lead to, and notes its name.
bool VELM_CSaveFile::FindTarget()
{
    char szPath[PATH_MAX];
    if (m_strFileName.m_len >= static_cast<int>(sizeof szPath))
        return FailWith(ENAMETOOLONG);
    std::strcpy(szPath, m_strFileName.m_data);
    for (int nLinks = 0; nLinks <= 40; ++nLinks) {
        char* pName = std::strrchr(szPath, '/');
        pName = pName == nullptr ? szPath : pName + 1;
        if (std::strlen(pName) >= sizeof m_szTarget)
            return FailWith(ENAMETOOLONG);
        std::strcpy(m_szTarget, pName);
        *pName = '\0'; // szPath is now the folder

        const int nFrom = m_nFolder == -1 ? AT_FDCWD : m_nFolder;
        const char* lpszFolder = szPath[0] == '\0' ? "." : szPath;
        int nFolder = Retry([&] { return openat(nFrom, lpszFolder, O_RDONLY | O_DIRECTORY | O_CLOEXEC); });
        if (nFolder == -1 && errno == EACCES) // perhaps the process may use the folder, but not list it
            nFolder = Retry([&] { return openat(nFrom, lpszFolder, O_PATH | O_DIRECTORY | O_CLOEXEC); });
        const int nError = errno;
        CloseDescriptor(m_nFolder);
        m_nFolder = nFolder;
        if (m_nFolder == -1)
            return FailWith(nError);
        if (m_szTarget[0] == '\0')
            return FailWith(m_strFileName.IsEmpty() ? ENOENT : EISDIR);

        const ssize_t n = Retry([&] { return readlinkat(m_nFolder, m_szTarget, szPath, sizeof szPath); });
        if (n == -1)
            return errno == EINVAL || errno == ENOENT; // not a link, or no file
        if (n == static_cast<ssize_t>(sizeof szPath))
            return FailWith(ENAMETOOLONG);
        szPath[n] = '\0';
    }
    return FailWith(ELOOP);
}

// Creates the new file: without a name if the file system supports that, otherwise with a temporary name. The file is
// locked as long as this process has it open; so a file that is not locked was left by a process that died.
bool VELM_CSaveFile::OpenBeside()
{
    if (m_bReplaces && Retry([&] { return faccessat(m_nFolder, m_szTarget, W_OK, AT_EACCESS); }) != 0)
        return false;
    const mode_t nMode = m_bReplaces ? S_IRUSR | S_IWUSR : DEFFILEMODE; // KeepStatus sets the old file's mode later
    m_nFile = Retry([&] { return openat(m_nFolder, ".", nWriting | O_TMPFILE, nMode); });
    if (m_nFile != -1 && Lock(m_nFile) && Retry([&] { return access(DescriptorPath(m_nFile).szPath, F_OK); }) == 0)
        return true;
    CloseDescriptor(m_nFile);
    return NameTemporary([&] {
        m_nFile = Retry([&] { return openat(m_nFolder, m_szTemporary, nWriting | O_CREAT | O_EXCL, nMode); });
        struct stat64 status;
        if (m_nFile == -1 ||
            ((Lock(m_nFile) || errno != EWOULDBLOCK) && !(GetStatusOf(m_nFile, status) && status.st_nlink == 0)))
            return m_nFile != -1;
        CloseDescriptor(m_nFile); // another process took it for a leftover and removed it before it was locked
        return FailWith(EEXIST);
    });
}

// Finds a temporary name in the folder with which make() succeeds.
template <class MAKE> bool VELM_CSaveFile::NameTemporary(MAKE make)
{
    const int nMostSaving = 100; // processes that save the same file at the same time
    for (int i = 0; i < nMostSaving; ++i) {
        std::snprintf(m_szTemporary, sizeof m_szTemporary, ".%.230s.save%d", m_szTarget, i);
        if (make() || (errno == EEXIST && RemoveLeftover() && make()))
            return true;
        if (errno != EEXIST)
            break;
    }
    m_szTemporary[0] = '\0'; // a file of this name belongs to another process
    return false;
}

// Removes the file with the temporary name if the process that made it is dead; otherwise fails with EEXIST.
bool VELM_CSaveFile::RemoveLeftover()
{
    const int nReading = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
    int nLeftover = Retry([&] { return openat(m_nFolder, m_szTemporary, nReading); });
    struct stat64 opened, named;
    // Only a process that holds the lock removes the file. So once this process has the lock, it checks that the name
    // still belongs to the file that it locked.
    const bool bRemoved =
        nLeftover != -1 && Lock(nLeftover) && GetStatusOf(nLeftover, opened) && S_ISREG(opened.st_mode) &&
        Retry([&] { return fstatat64(m_nFolder, m_szTemporary, &named, AT_SYMLINK_NOFOLLOW); }) == 0 &&
        opened.st_ino == named.st_ino && opened.st_dev == named.st_dev &&
        Retry([&] { return unlinkat(m_nFolder, m_szTemporary, 0); }) == 0;
    CloseDescriptor(nLeftover);
    return bRemoved || FailWith(EEXIST);
}

unsigned long VELM_CSaveFile::GetLength() const
{
    struct stat64 status;
    if (m_nFile == -1)
        return VELM_CFile::GetLength();
    return GetStatusOf(m_nFile, status) ? static_cast<uint32_t>(status.st_size) : 0;
}

void VELM_CSaveFile::Write(const void* lpBuf, unsigned nCount)
{
    if (m_nFile == -1 || m_nError != 0 || !WriteWhole(static_cast<const char*>(lpBuf), nCount))
        ERROR_CODE = 1;
}

bool VELM_CSaveFile::WriteWhole(const char* pBytes, unsigned nCount)
{
    const unsigned nMostAtOnce = 0x40000000;
    while (nCount > 0) {
        const unsigned nWanted = nCount < nMostAtOnce ? nCount : nMostAtOnce;
        const ssize_t n = Retry([&] { return write(m_nFile, pBytes, nWanted); });
        if (n == 0)
            errno = EIO; // repeating it might never end
        if (n <= 0)
            return Fail();
        pBytes += n;
        nCount -= static_cast<unsigned>(n);
    }
    return true;
}

void VELM_CSaveFile::Close()
{
    if (m_szTemporary[0] != '\0')
        Retry([&] { return unlinkat(m_nFolder, m_szTemporary, 0); });
    m_szTemporary[0] = '\0';
    CloseDescriptor(m_nFile);
    CloseDescriptor(m_nFolder);
}

int VELM_CSaveFile::Commit()
{
    if (m_nError == 0 && !(RequireWhole() && Finish()))
        Fail();
    Close();
    return m_nError == 0;
}

// Fails unless every archive on the file has ended and has stored everything that it was given.
bool VELM_CSaveFile::RequireWhole()
{
    if (m_nFile == -1)
        return FailWith(EBADF);
    if (m_pState->HasArchives())
        m_pState->Lose("an archive on the file is not closed");
    return m_pState->IsWhole() || FailWith(ECANCELED);
}

// Gives the new file the owner, group and mode of the old one, as far as the process may. Nobody gains access by that:
// if the group cannot be kept, the new group only gets the rights of others.
void VELM_CSaveFile::KeepStatus()
{
    const bool bOwner = Retry([&] { return fchown(m_nFile, m_nOwner, m_nGroup); }) == 0;
    const bool bGroup = bOwner || Retry([&] { return fchown(m_nFile, static_cast<uid_t>(-1), m_nGroup); }) == 0;
    unsigned nMode = m_nMode & (bOwner ? ALLPERMS : ACCESSPERMS);
    if (!bGroup)
        nMode = (nMode & ~unsigned{S_IRWXG}) | (nMode & S_IRWXO) << 3;
    Retry([&] { return fchmod(m_nFile, nMode); });
}

bool VELM_CSaveFile::Finish()
{
    if (m_nFolder != -1 && m_bReplaces)
        KeepStatus();
    if (!FlushToDisk(m_nFile))
        return false;
    // Some file systems report failed writes only at close. A copy of the descriptor is closed for that, so that the
    // descriptor itself keeps its lock.
    const int nCopy = Retry([&] { return fcntl(m_nFile, F_DUPFD_CLOEXEC, 0); });
    if (nCopy == -1 || (close(nCopy) != 0 && errno != EINTR))
        return false;
    if (m_nFolder == -1)
        return true;
    if (m_szTemporary[0] == '\0' && !NameTemporary([&] {
            const DescriptorPath path(m_nFile);
            return Retry([&] { return linkat(AT_FDCWD, path.szPath, m_nFolder, m_szTemporary, AT_SYMLINK_FOLLOW); }) ==
                   0;
        }))
        return false;
    if (Retry([&] { return renameat(m_nFolder, m_szTemporary, m_nFolder, m_szTarget); }) != 0)
        return false;
    m_szTemporary[0] = '\0';
    return FlushToDisk(m_nFolder, EBADF); // EBADF: the process may not list the folder, and so cannot flush it
}

// Keeps errno as the error, unless there has been an earlier failure. Returns false.
bool VELM_CSaveFile::Fail()
{
    if (m_nError == 0)
        m_nError = errno;
    return false;
}

int VELM_CSaveFile::GetError() const
{
    return m_nError;
}

VELM_CString VELM_CSaveFile::GetErrorText() const
{
    VELM_CString strText;
    if (m_nError != 0) {
        strText = m_strFileName;
        strText += ": ";
        const bool bLost = m_nError == ECANCELED && m_pState != nullptr && !m_pState->IsWhole();
        strText += bLost ? m_pState->LostText() : std::strerror(m_nError);
    }
    return strText;
}
