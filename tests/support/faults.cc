// Stands before the system's calls: linked into the tests, or preloaded into a program. There the environment variable
// FAULT ("7 28": the seventh call fails with errno 28) says what fails, and FAULT_LOG names a file that gets the names
// of the calls, one a line.
#include "tests/support/faults.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

bool bNoUnnamedFiles = std::getenv("FAULT_NO_UNNAMED_FILES") != nullptr;

static bool bWatching = false;
static int nCalls, nFailingCall, nFailure;
static int nLog = -1;
static std::vector<std::string>* pNames;

// Notes a call. Whether it is to fail; errno is set then.
static bool Fails(const char* lpszName)
{
    if (!bWatching)
        return false;
    ++nCalls;
    if (pNames != nullptr) {
        bWatching = false;
        pNames->push_back(lpszName);
        bWatching = true;
    }
    if (nLog != -1) {
        char line[64];
        syscall(SYS_write, nLog, line, std::snprintf(line, sizeof line, "%s\n", lpszName));
    }
    static const char* lpszFailed;
    const bool bAgain = lpszFailed == lpszName;
    lpszFailed = bAgain ? nullptr : lpszName;
    if (nFailingCall == eachOnce ? bAgain : nCalls != nFailingCall)
        return false;
    if (nFailure == killsProcess)
        raise(SIGKILL);
    errno = nFailure;
    return nFailure != comesUpShort;
}

static bool IsShort()
{
    return bWatching && nCalls == nFailingCall && nFailure == comesUpShort;
}

std::vector<std::string> WithFault(int nFailing, int nError, const std::function<void()>& body)
{
    std::vector<std::string> names;
    pNames = &names;
    nCalls = 0, nFailingCall = nFailing, nFailure = nError;
    bWatching = true;
    body();
    bWatching = false;
    pNames = nullptr;
    return names;
}

__attribute__((constructor)) static void StartFromEnvironment()
{
    if (const char* lpszLog = std::getenv("FAULT_LOG")) {
        nLog = static_cast<int>(syscall(SYS_openat, AT_FDCWD, lpszLog, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
        bWatching = true;
    }
    if (const char* lpszFault = std::getenv("FAULT"))
        bWatching = std::sscanf(lpszFault, "%d %d", &nFailingCall, &nFailure) == 2;
}

template <class CALL> static CALL* Next(CALL*, const char* lpszName)
{
    return reinterpret_cast<CALL*>(dlsym(RTLD_NEXT, lpszName));
}
#define NEXT(name) static const auto next = Next(&name, #name)

// A call that fails by its result, and otherwise goes on to the system's.
#define CALL(result, name, parameters, arguments, failed)                                                              \
    extern "C" __attribute__((visibility("default"))) result name parameters                                           \
    {                                                                                                                  \
        NEXT(name);                                                                                                    \
        return Fails(#name) ? failed : next arguments;                                                                 \
    }

CALL(int, fsync, (int fd), (fd), -1)
CALL(int, flock, (int fd, int operation) noexcept, (fd, operation), -1)
CALL(int, fchown, (int fd, uid_t owner, gid_t group) noexcept, (fd, owner, group), -1)
CALL(int, fchmod, (int fd, mode_t mode) noexcept, (fd, mode), -1)
CALL(int, access, (const char* path, int mode) noexcept, (path, mode), -1)
CALL(int, faccessat, (int folder, const char* path, int mode, int flags) noexcept, (folder, path, mode, flags), -1)
CALL(int, unlinkat, (int folder, const char* path, int flags) noexcept, (folder, path, flags), -1)
CALL(int, linkat, (int from, const char* path, int to, const char* name, int flags) noexcept,
     (from, path, to, name, flags), -1)
CALL(int, renameat, (int from, const char* path, int to, const char* name) noexcept, (from, path, to, name), -1)
CALL(ssize_t, readlinkat, (int folder, const char* path, char* to, size_t size) noexcept, (folder, path, to, size), -1)
CALL(int, stat64, (const char* path, struct stat64* status) noexcept, (path, status), -1)
CALL(int, fstat64, (int fd, struct stat64* status) noexcept, (fd, status), -1)
CALL(FILE*, fopen64, (const char* path, const char* mode), (path, mode), nullptr)
CALL(int, fseek, (FILE * stream, long offset, int origin), (stream, offset, origin), -1)

#define OPENING(name, parameters, arguments)                                                                           \
    extern "C" __attribute__((visibility("default"))) int name parameters                                              \
    {                                                                                                                  \
        va_list more;                                                                                                  \
        va_start(more, flags);                                                                                         \
        const mode_t mode = va_arg(more, mode_t);                                                                      \
        va_end(more);                                                                                                  \
        NEXT(name);                                                                                                    \
        if (Fails(#name))                                                                                              \
            return -1;                                                                                                 \
        if (bNoUnnamedFiles && (flags & O_TMPFILE) == O_TMPFILE)                                                       \
            return errno = EOPNOTSUPP, -1;                                                                             \
        return next arguments;                                                                                         \
    }
OPENING(open, (const char* path, int flags, ...), (path, flags, mode))
OPENING(openat, (int folder, const char* path, int flags, ...), (folder, path, flags, mode))

extern "C" __attribute__((visibility("default"))) int fcntl(int fd, int command, ...)
{
    va_list more;
    va_start(more, command);
    void* argument = va_arg(more, void*);
    va_end(more);
    NEXT(fcntl);
    return Fails("fcntl") ? -1 : next(fd, command, argument);
}

// What fails to be closed is closed all the same.
extern "C" __attribute__((visibility("default"))) int close(int fd)
{
    NEXT(close);
    const bool bFails = Fails("close");
    const int nError = errno;
    const int nResult = next(fd);
    if (bFails)
        errno = nError;
    return bFails ? -1 : nResult;
}

extern "C" __attribute__((visibility("default"))) int fclose(FILE* stream)
{
    NEXT(fclose);
    const bool bFails = Fails("fclose");
    const int nResult = next(stream);
    return bFails ? EOF : nResult;
}

extern "C" __attribute__((visibility("default"))) ssize_t write(int fd, const void* from, size_t size)
{
    NEXT(write);
    return Fails("write") ? -1 : next(fd, from, IsShort() ? size / 2 : size);
}

extern "C" __attribute__((visibility("default"))) size_t fread(void* to, size_t size, size_t count, FILE* stream)
{
    NEXT(fread);
    if (!Fails("fread"))
        return next(to, size, IsShort() ? count / 2 : count, stream);
    stream->_flags |= 0x20; // the C library's mark of a stream with an error
    return 0;
}
