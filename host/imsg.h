/// \file
/// Message routines of the host process.
#ifndef TAVNOHOST_IMSG_H
#define TAVNOHOST_IMSG_H

#ifndef TAVNOHOST_API
#define TAVNOHOST_API __attribute__((visibility("default")))
#endif

extern "C" {

/// Prints the formatted message on standard output; returns what `printf` returns. The first and third arguments
/// select a message class and number in a full message library; here they are not used.
TAVNOHOST_API int imsg_print(int nClass, const char* lpszFormat, int nMessage, ...);

/// Formats the message into `lpBuffer`, which the caller has made large enough; returns what `sprintf` returns.
TAVNOHOST_API int imsg_sprintf(char* lpBuffer, const char* lpszFormat, int nMessage, ...);
}

#endif
