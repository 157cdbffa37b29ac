/// \file
/// The annotated dump of an archive.
#ifndef DEPGRAPH_DUMP_H
#define DEPGRAPH_DUMP_H

/// Prints the first values in the archive of a graph, one a line: its offset, its bytes and its meaning.
void PrintDump(const char* lpszArchive);

#endif
