/// \file
/// The graph as a picture.
#ifndef DEPGRAPH_DOT_H
#define DEPGRAPH_DOT_H

#include "graph.h"

/// Prints the graph for Graphviz: each package with an arrow to each that it needs. Where `lpszPackage` is not NULL,
/// only that package, those that it needs, those that need it, and the arrows among them. Returns whether the package
/// is there; where not, fails in the name of the archive.
bool PrintDot(Graph& graph, const char* lpszArchive, const char* lpszPackage);

#endif
