/// \file
/// How failures reach the user: one line on standard error.
#ifndef DEPGRAPH_FAILURE_H
#define DEPGRAPH_FAILURE_H

#include <mcl/tavnomcl.h>

/// The cause that no text of the library names.
static const char lpszNoMemory[] = "not enough memory";

/// Prints "depgraph: FILE: CAUSE" with the formatted cause, and returns false.
__attribute__((format(printf, 2, 3))) bool Fail(const char* lpszFile, const char* lpszFormat, ...);

/// What went wrong in reading or writing files since the last call; NULL for nothing.
const char* TakeFileError();

/// The text with a '?' for every byte that a terminal might obey instead of showing it.
VELM_CString Printable(const char* lpszText);

#endif
