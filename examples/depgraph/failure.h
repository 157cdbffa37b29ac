/// \file
/// How failures reach the user: one line on standard error.
#ifndef DEPGRAPH_FAILURE_H
#define DEPGRAPH_FAILURE_H

#include <mcl/tavnomcl.h>

/// The cause that is printed when the library has no text for a raise.
static const char lpszNoMemory[] = "not enough memory";

/// Prints "depgraph: FILE: CAUSE" with the formatted cause, and returns false.
__attribute__((format(printf, 2, 3))) bool Fail(const char* lpszFile, const char* lpszFormat, ...);

/// The text of the error in reading or writing files since the last call; NULL if there was none. Clears the error.
const char* TakeFileError();

/// The text with a '?' in place of every byte that is not printable ASCII, which a terminal might take as a command.
VELM_CString Printable(const char* lpszText);

#endif
