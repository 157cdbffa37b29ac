/// \file
/// Message routines of the host process.
#ifndef TAVNOHOST_IMSG_H
#define TAVNOHOST_IMSG_H

#ifndef TAVNOHOST_API
#define TAVNOHOST_API __attribute__((visibility("default")))
#endif

extern "C" {

/// Prints the formatted message on standard output and returns the result of `printf`. The first and third arguments
/// are not used here; in a full message library they select the class and the number of a message.
TAVNOHOST_API int imsg_print(int nClass, const char* lpszFormat, int nMessage, ...);

/// Formats the message into `lpBuffer`, which must be large enough, and returns the result of `sprintf`. The third
/// argument is not used.
TAVNOHOST_API int imsg_sprintf(char* lpBuffer, const char* lpszFormat, int nMessage, ...);
}

#endif
