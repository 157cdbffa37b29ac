/// \file
/// The graph of packages, in memory and in its archive.
#ifndef DEPGRAPH_GRAPH_H
#define DEPGRAPH_GRAPH_H

#include <mcl/tavnomcl.h>

#include "package.h"

/// Packages that depend on each other.
///
/// The archive of a graph holds the number of packages and then each of them, in the order of the graph.
class Graph {
public:
    VELM_CPtrArray m_packages; ///< Every package; owned.

    Graph() = default;
    ~Graph();
    Graph(const Graph&) = delete;
    Graph& operator=(const Graph&) = delete;

    int GetCount() const { return m_packages.GetSize(); }
    Package* GetAt(int nIndex) const { return PackageAt(m_packages, nIndex); }

    /// Makes the packages known to `Find`; called once, when all are there.
    void IndexNames();
    /// The place of the package of that name, the first one when there are several; -1 when there is none.
    int Find(const VELM_CString& strName) const;
    /// Tells each package its place and how many depend on it; called once, when all dependencies are there. Returns
    /// whether the packages of the list, and no others, are each there once; where not, fails in the name of the file.
    bool Link(const char* lpszFile);

    /// Stores the graph in the named file, in place of what was there. Returns whether that went well, and the size of
    /// the archive; where not, fails and the old file is as it was.
    bool Store(const char* lpszFile, unsigned long long& rBytes) const;
    /// Loads the graph from the named file into this empty one, and links it. Returns whether that went well, and the
    /// size of the archive; where not, fails and the graph is empty.
    bool Load(const char* lpszFile, unsigned long long& rBytes);

private:
    VELM_CMap<fxStr, char*, int, int> m_names; // from name to place, counted from 1: 0 is a new entry
};

#endif
