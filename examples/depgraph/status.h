/// \file
/// Reading of the package status file.
#ifndef DEPGRAPH_STATUS_H
#define DEPGRAPH_STATUS_H

#include "graph.h"

/// Reads the installed packages of a Debian package status file into the empty graph, in the order of the file.
///
/// The dependencies of a package are, for each clause of its Pre-Depends and Depends, the first alternative that is
/// installed; where there is none, the clause is left out. No package is listed twice. An Installed-Size that is not
/// a 32-bit number is an error. Returns whether all went well; where not, fails in the name of the file.
bool ReadStatus(const char* lpszFile, Graph& graph);

#endif
