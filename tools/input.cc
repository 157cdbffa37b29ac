#include "input.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>

std::FILE* OpenSpool()
{
    const char* lpszFolder = std::getenv("TMPDIR");
    std::string path = std::string(lpszFolder == nullptr ? "/tmp" : lpszFolder) + "/tavnoview.XXXXXX";
    const int nFile = mkostemp(&path[0], O_CLOEXEC);
    if (nFile == -1)
        return nullptr;
    unlink(path.c_str());
    return fdopen(nFile, "w+b");
}

Input::~Input()
{
    if (m_bMapped)
        munmap(const_cast<char*>(m_pBytes), m_nSize);
}

bool Input::Map(int nFile, std::string& rError)
{
    // A file that somebody makes shorter while it is looked at has pages that are not there.
    signal(SIGBUS, [](int) {
        static const char text[] = "tavnoview: a file became shorter while it was read\n";
        if (write(2, text, sizeof text - 1) >= 0)
            _exit(2);
        _exit(2);
    });
    struct stat64 status;
    const char* lpszError = nullptr;
    if (fstat64(nFile, &status) != 0)
        lpszError = std::strerror(errno);
    else if (static_cast<uint64_t>(status.st_size) > SIZE_MAX / 2)
        lpszError = std::strerror(EFBIG);
    else if (status.st_size != 0) {
        void* const p = mmap(nullptr, static_cast<size_t>(status.st_size), PROT_READ, MAP_PRIVATE, nFile, 0);
        m_bMapped = p != MAP_FAILED;
        if (m_bMapped)
            Use(static_cast<const char*>(p), static_cast<size_t>(status.st_size));
        else
            lpszError = std::strerror(errno);
    }
    if (lpszError != nullptr)
        rError = m_path + ": " + lpszError;
    return lpszError == nullptr;
}

bool Input::Map(std::FILE* pFile, std::string& rError)
{
    if (m_path.empty())
        m_path = "a temporary file";
    if (pFile == nullptr || std::fflush(pFile) != 0 || std::ferror(pFile)) {
        rError = m_path + ": " + std::strerror(errno);
        return false;
    }
    return Map(fileno(pFile), rError);
}

bool Input::Open(const std::string& path, std::string& rError)
{
    m_path = path == "-" ? "standard input" : path;
    const int nFile = path == "-" ? 0 : open64(path.c_str(), O_RDONLY | O_CLOEXEC);
    struct stat64 status;
    bool bGood = nFile != -1 && fstat64(nFile, &status) == 0;
    if (bGood && S_ISDIR(status.st_mode)) {
        bGood = false;
        errno = EISDIR;
    }
    if (!bGood) {
        rError = m_path + ": " + std::strerror(errno);
    } else if (S_ISREG(status.st_mode)) {
        bGood = Map(nFile, rError);
    } else { // a pipe or a terminal
        std::FILE* const pSpool = OpenSpool();
        char part[65536];
        ssize_t nCame = 1;
        while (pSpool != nullptr && (nCame = read(nFile, part, sizeof part)) > 0)
            std::fwrite(part, 1, static_cast<size_t>(nCame), pSpool);
        bGood = nCame == 0 && Map(pSpool, rError);
        if (nCame != 0)
            rError = m_path + ": " + std::strerror(errno);
        if (pSpool != nullptr)
            std::fclose(pSpool);
    }
    if (nFile > 0)
        close(nFile);
    return bGood;
}
