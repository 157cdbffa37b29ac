/// \file
/// The annotated dump of an archive.
#ifndef DEPGRAPH_DUMP_H
#define DEPGRAPH_DUMP_H

/// Prints the first bytes of the archive of a graph, value by value: offset, bytes, meaning.
void PrintDump(const char* lpszArchive);

#endif
