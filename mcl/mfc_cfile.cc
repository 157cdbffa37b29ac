#include "mcl/mfc_cfile.h"

#include <sys/stat.h>
#include <unistd.h>

#include <new>

#include "mcl/mfc_memory.h"

int VELM_CFile::ERROR_CODE = 0;

const unsigned long nSeekFailed = 0xFFFFFFFF;

VELM_CFileException::VELM_CFileException(int cause, long lSysError, const char* lpszText)
    : m_cause(cause), m_lSysError(lSysError)
{
    m_strMessage = lpszText;
}

VELM_CFileException::~VELM_CFileException()
{
}

void VELM_CFileException::Delete()
{
}

VELM_CFile::VELM_CFile() : m_pStream(nullptr)
{
}

VELM_CFile::VELM_CFile(const char* lpszFileName, unsigned) : m_strFileName(lpszFileName), m_pStream(nullptr)
{
}

VELM_CFile::~VELM_CFile()
{
    Close();
}

VELM_CString VELM_CFile::GetFileName() const
{
    return m_strFileName;
}

VELM_CString VELM_CFile::GetFilePath() const
{
    return m_strFileName;
}

int VELM_CFile::Open(const char* lpszFileName, unsigned nOpenFlags, VELM_CFileException* pError)
{
    if (m_pStream != nullptr) {
        fclose(m_pStream);
        m_pStream = nullptr;
    }
    m_strFileName = lpszFileName;
    const char* lpszMode = "r";
    if ((nOpenFlags & modeAppend) != 0)
        lpszMode = "a+";
    else if ((nOpenFlags & (modeWrite | modeRewrite | modeCreate)) != 0)
        lpszMode = "w";
    m_pStream = fopen64(m_strFileName.m_data, lpszMode); // not lpszFileName, which may be NULL
    if (m_pStream != nullptr)
        return 1;
    if (pError != nullptr)
        pError->m_strMessage = "Can't open file";
    return 0;
}

long VELM_CFile::Seek(long lOff, unsigned nFrom)
{
    static const int origins[] = {SEEK_SET, SEEK_CUR, SEEK_END};
    if (m_pStream == nullptr || nFrom >= sizeof origins / sizeof *origins)
        return -1;
    return fseek(m_pStream, lOff, origins[nFrom]);
}

void VELM_CFile::SetLength(unsigned long)
{
}

unsigned long VELM_CFile::GetLength() const
{
    struct stat64 status;
    if (stat64(m_strFileName.m_data, &status) != 0)
        return 0;
    return static_cast<uint32_t>(status.st_size);
}

unsigned VELM_CFile::Read(void* lpBuf, unsigned nCount)
{
    if (m_pStream == nullptr || nCount == 0)
        return 0;
    char* pBytes = static_cast<char*>(lpBuf);
    pBytes[0] = 0;
    unsigned nTotal = 0;
    for (;;) {
        const unsigned n = static_cast<unsigned>(fread(pBytes + nTotal, 1, nCount - nTotal, m_pStream));
        nTotal += n;
        if (ferror(m_pStream))
            ERROR_CODE = 1;
        if (n == 0 || ferror(m_pStream) || feof(m_pStream)) {
            clearerr(m_pStream);
            return nTotal;
        }
        if (nTotal == nCount)
            return nTotal;
    }
}

void VELM_CFile::Write(const void* lpBuf, unsigned nCount)
{
    if (m_pStream == nullptr)
        return;
    const int fd = fileno(m_pStream);
    if (fd < 0 || write(fd, lpBuf, nCount) < 0)
        ERROR_CODE = 1;
}

void VELM_CFile::Close()
{
    if (m_pStream == nullptr)
        return;
    fclose(m_pStream);
    m_pStream = nullptr;
}

unsigned long VELM_CFile::SeekToEnd()
{
    return m_pStream == nullptr || fseek(m_pStream, 0, SEEK_END) != 0 ? nSeekFailed : 0;
}

void VELM_CFile::SeekToBegin()
{
    if (m_pStream != nullptr)
        fseek(m_pStream, 0, SEEK_SET);
}

int VELM_CFile::GetStatus(VELM_CFileStatus& rStatus) const
{
    return GetStatus(m_strFileName.m_data, rStatus);
}

int VELM_CFile::GetStatus(const char* lpszFileName, VELM_CFileStatus& rStatus)
{
    struct stat64 status;
    if (lpszFileName == nullptr || stat64(lpszFileName, &status) != 0)
        return 0;
    rStatus.m_ctime = status.st_ctime;
    rStatus.m_mtime = status.st_mtime;
    rStatus.m_atime = status.st_atime;
    rStatus.m_size = static_cast<int32_t>(static_cast<uint32_t>(status.st_size));
    rStatus.m_attribute = (status.st_mode & S_IFMT) == S_IFDIR ? 0x10 : 0;
    return 1;
}

VELM_CFileException* VELM_CFile::getException()
{
    if (ERROR_CODE == 0)
        return nullptr;
    VELM_CFileException* pException = new (std::nothrow) VELM_CFileException(ERROR_CODE, -1, nullptr);
    if (pException == nullptr)
        AfxMemoryExhausted();
    ERROR_CODE = 0;
    return pException;
}

VELM_CSaveState* VELM_CFile::GetSaveState() const
{
    return nullptr;
}
