/// \file
/// What the program prints about a graph for a reader.
#ifndef DEPGRAPH_SUMMARY_H
#define DEPGRAPH_SUMMARY_H

#include "graph.h"

/// Prints the size of the graph and of its archive, the time taken, and the packages that most others depend on.
void PrintSummary(const Graph& graph, unsigned long long nArchiveBytes, double dSeconds);

/// The index of the package with the name; or -1, after it has reported that the archive does not have the package.
/// Called once, since it calls `Graph::IndexNames`.
int FindPackage(Graph& graph, const char* lpszArchive, const char* lpszPackage);

/// Prints the shortest chain of dependencies from a package that nothing depends on to the named one, or says that
/// there is none. Returns true; or false, after it has reported that the archive does not have the package.
bool PrintChain(Graph& graph, const char* lpszArchive, const char* lpszPackage);

#endif
