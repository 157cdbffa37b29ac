/// \file
/// One package of the graph, as it is stored and loaded.
#ifndef DEPGRAPH_PACKAGE_H
#define DEPGRAPH_PACKAGE_H

#include <mcl/tavnomcl.h>

/// An installed package and the packages that it depends on.
class Package : public VELM_CObject {
public:
    static VELM_CRuntimeClass classRecord;

    VELM_CString m_strName;
    VELM_CString m_strVersion;
    unsigned m_nInstalledSize = 0; ///< In KiB.
    VELM_CPtrArray m_dependencies; ///< The packages that it needs, which it does not own.

    /// \name Not stored; set by `Graph::Link`
    /// \{
    int m_nIndex = -1;     ///< Its index in the graph.
    int m_nDependents = 0; ///< Number of other packages that need it.
    /// \}

    VELM_CRuntimeClass* GetRuntimeClass() const override { return &classRecord; }
    void Serialize(VELM_CArchive& ar) override;
};

/// The package at the index in an array of packages.
inline Package* PackageAt(const VELM_CPtrArray& packages, int nIndex)
{
    return static_cast<Package*>(packages.GetAt(nIndex));
}

/// Appends a pointer to an array, and doubles its capacity when it is full; by default the capacity grows more slowly.
inline void Append(VELM_CPtrArray& array, void* pNew)
{
    const int nSize = array.GetSize();
    array.SetSize(nSize + 1, nSize);
    array.SetAt(nSize, pNew);
}

#endif
