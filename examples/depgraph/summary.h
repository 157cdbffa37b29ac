/// \file
/// What a person wants to know of a graph.
#ifndef DEPGRAPH_SUMMARY_H
#define DEPGRAPH_SUMMARY_H

#include "graph.h"

/// Prints the size of the graph and of its archive, the time taken, and the packages that most others depend on.
void PrintSummary(const Graph& graph, unsigned long long nArchiveBytes, double dSeconds);

/// The place of the named package; -1, after a failure in the name of the archive, when it is not there. Called once,
/// as it makes the packages known to `Graph::Find`.
int FindPackage(Graph& graph, const char* lpszArchive, const char* lpszPackage);

/// Prints the shortest chain of dependencies from a package that nothing depends on to the named one, or that there is
/// none. Returns whether the package is there; where not, fails in the name of the archive.
bool PrintChain(Graph& graph, const char* lpszArchive, const char* lpszPackage);

#endif
