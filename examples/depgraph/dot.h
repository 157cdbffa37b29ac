/// \file
/// The graph as input for Graphviz, which draws it.
#ifndef DEPGRAPH_DOT_H
#define DEPGRAPH_DOT_H

#include "graph.h"

/// Prints the graph for Graphviz: every package, with an arrow to each package that it needs. If `lpszPackage` is not
/// NULL, prints only that package, the packages that it needs, those that need it, and the arrows between these.
/// Returns true; or false, after it has reported that the archive does not have the package.
bool PrintDot(Graph& graph, const char* lpszArchive, const char* lpszPackage);

#endif
