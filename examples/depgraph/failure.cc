#include "failure.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "progress.h"

bool Fail(const char* lpszFile, const char* lpszFormat, ...)
{
    char cause[1024];
    va_list args;
    va_start(args, lpszFormat);
    std::vsnprintf(cause, sizeof cause, lpszFormat, args);
    va_end(args);
    EraseProgress();
    std::fflush(stdout);
    std::fprintf(stderr, "depgraph: %s: %s\n", lpszFile, Printable(cause).m_data);
    return false;
}

const char* TakeFileError()
{
    const int nError = errno; // before another call changes it
    const VELM_CFileException* pError = VELM_CFile::getException();
    if (pError == nullptr)
        return nullptr;
    delete pError;
    return std::strerror(nError);
}

VELM_CString Printable(const char* lpszText)
{
    VELM_CString strText(lpszText);
    for (char* p = strText.m_data; *p != '\0'; ++p) {
        if (*p < ' ' || *p > '~')
            *p = '?';
    }
    return strText;
}
