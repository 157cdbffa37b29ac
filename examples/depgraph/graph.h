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
    VELM_CPtrArray m_packages; ///< All packages, which the graph owns.

    Graph() = default;
    ~Graph();
    Graph(const Graph&) = delete;
    Graph& operator=(const Graph&) = delete;

    int GetCount() const { return m_packages.GetSize(); }
    Package* GetAt(int nIndex) const { return PackageAt(m_packages, nIndex); }

    /// Fills the map of names that `Find` uses; called once, when the graph has all packages.
    void IndexNames();
    /// The index of the package with this name, of the first one when there are several; -1 when there is none.
    int Find(const VELM_CString& strName) const;
    /// Sets the index of each package and the number of packages that depend on it; called once, when all dependencies
    /// are known. Returns false, after it has reported a fault of the file, unless the list has every package once and
    /// every dependency is in the list.
    bool Link(const char* lpszFile);

    /// Stores the graph in the file, which it replaces. Returns true and the size of the archive; or false, after it
    /// has reported the failure, and the old file is as it was.
    bool Store(const char* lpszFile, unsigned long long& rBytes) const;
    /// Loads the graph, which must be empty, from the file and links it. Returns true and the size of the archive; or
    /// false, after it has reported the failure, and the graph is empty.
    bool Load(const char* lpszFile, unsigned long long& rBytes);

private:
    VELM_CMap<fxStr, char*, int, int> m_names; // from a name to the package's index plus 1; a new entry has 0
};

#endif
