#include "host/imsg.h"

#include <cstdarg>
#include <cstdio>

int imsg_print(int, const char* lpszFormat, int nMessage, ...)
{
    va_list args;
    va_start(args, nMessage);
    const int nPrinted = std::vprintf(lpszFormat, args);
    va_end(args);
    return nPrinted;
}

int imsg_sprintf(char* lpBuffer, const char* lpszFormat, int nMessage, ...)
{
    va_list args;
    va_start(args, nMessage);
    const int nPrinted = std::vsprintf(lpBuffer, lpszFormat, args);
    va_end(args);
    return nPrinted;
}
