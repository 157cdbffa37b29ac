/// \file
/// The reader of the package status file.
#ifndef DEPGRAPH_STATUS_H
#define DEPGRAPH_STATUS_H

#include "graph.h"

/// Reads the installed packages of a Debian package status file into the empty graph, in the order of the file.
///
/// For each clause in the fields Pre-Depends and Depends of a package, the first alternative that is installed becomes
/// a dependency; a clause without an installed alternative is left out. No dependency is listed twice. An
/// Installed-Size that is not a 32-bit number is an error. Returns false after it has reported a failure, else true.
bool ReadStatus(const char* lpszFile, Graph& graph);

#endif
