/// \file
/// What a person wants to know of a graph.
#ifndef DEPGRAPH_SUMMARY_H
#define DEPGRAPH_SUMMARY_H

#include "graph.h"

/// Prints the size of the graph and of its archive, the time taken, and the packages that most others depend on.
void PrintSummary(const Graph& graph, unsigned long long nArchiveBytes, double dSeconds);

/// Prints the shortest chain of dependencies from a package that nothing depends on to the named one, or that there is
/// none. Returns whether the package is there; where not, fails in the name of the archive.
bool PrintChain(Graph& graph, const char* lpszArchive, const char* lpszPackage);

#endif
