// Stands before the system's calls that the library makes.
#include "tests/support/faults.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>

bool bNoUnnamedFiles = false;

static bool bWatching = false;
static int nFirst, nLast, nFailure;
static std::vector<std::string> names;

// Whether the call being made is one of those that fail.
static bool IsFailing()
{
    const int nCall = static_cast<int>(names.size());
    return bWatching && nCall >= nFirst && nCall <= nLast;
}

// Notes a call. Whether it is to fail; errno is set then.
static bool Fails(const char* lpszName)
{
    static const char* lpszFailed;
    if (!bWatching)
        return false;
    names.push_back(lpszName);
    const bool bAgain = lpszFailed == lpszName;
    lpszFailed = bAgain ? nullptr : lpszName;
    if (nFirst == eachOnce ? bAgain : !IsFailing())
        return false;
    if (nFailure == killsProcess)
        raise(SIGKILL);
    errno = nFailure;
    return nFailure != comesUpShort;
}

static bool IsShort()
{
    return nFailure == comesUpShort && IsFailing();
}

std::vector<std::string> WithFault(int nFailing, int nError, const std::function<void()>& body, int nFailures)
{
    names.clear();
    nFirst = nFailing, nLast = nFailing + nFailures - 1, nFailure = nError;
    bWatching = true;
    body();
    bWatching = false;
    return names;
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
#define CLOSING(name, parameter, argument)                                                                             \
    extern "C" __attribute__((visibility("default"))) int name parameter                                               \
    {                                                                                                                  \
        NEXT(name);                                                                                                    \
        const bool bFails = Fails(#name);                                                                              \
        const int nError = errno, nResult = next argument;                                                             \
        return bFails ? errno = nError, -1 : nResult;                                                                  \
    }
CLOSING(close, (int fd), (fd))
CLOSING(fclose, (FILE * stream), (stream))

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
