#include "summary.h"

#include <cstdio>

#include "failure.h"

// Whether a precedes b in the list of the most needed packages.
static bool IsMoreNeeded(const Package* a, const Package* b)
{
    const int nMore = a->m_nDependents - b->m_nDependents;
    return nMore != 0 ? nMore > 0 : a->m_strName < b->m_strName;
}

void PrintSummary(const Graph& graph, unsigned long long nArchiveBytes, double dSeconds)
{
    const int nTop = 5;
    VELM_CPtrArray top; // the most needed first
    long long nDependencies = 0;
    unsigned long long nKiB = 0;
    for (int i = 0; i < graph.GetCount(); ++i) {
        Package* pPackage = graph.GetAt(i);
        nDependencies += pPackage->m_dependencies.GetSize();
        nKiB += pPackage->m_nInstalledSize;
        int nPlace = top.GetSize();
        while (nPlace > 0 && IsMoreNeeded(pPackage, PackageAt(top, nPlace - 1)))
            --nPlace;
        top.InsertAt(nPlace, pPackage);
        if (top.GetSize() > nTop)
            top.SetSize(nTop);
    }
    std::printf("%12d packages\n", graph.GetCount());
    std::printf("%12lld dependencies\n", nDependencies);
    std::printf("%12llu KiB installed\n", nKiB);
    std::printf("%12llu bytes of archive\n", nArchiveBytes);
    std::printf("%12.1f ms taken\n", dSeconds * 1e3);
    std::printf("\nThe packages that most others depend on:\n");
    for (int i = 0; i < top.GetSize(); ++i) {
        const Package* pPackage = PackageAt(top, i);
        if (pPackage->m_nDependents > 0)
            std::printf("%12d %s\n", pPackage->m_nDependents, Printable(pPackage->m_strName.m_data).m_data);
    }
}

// Reports that the archive does not have the package, and names a few packages whose names contain its name.
static void FailWithSuggestions(const Graph& graph, const char* lpszArchive, const char* lpszPackage)
{
    const int nMost = 8;
    VELM_CStringArray close, sorted;
    for (int i = 0; i < graph.GetCount() && close.GetSize() < nMost; ++i) {
        const VELM_CString& strName = graph.GetAt(i)->m_strName;
        if (strName.Find(lpszPackage) != -1 && graph.Find(strName) == i)
            close.Add(strName);
    }
    close.Sort(sorted);
    VELM_CString strNames;
    for (int i = 0; i < sorted.GetSize(); ++i) {
        strNames += i == 0 ? "; similar names: " : ", ";
        strNames += sorted.ElementAt(i);
    }
    Fail(lpszArchive, "package \"%s\" is not there%s", lpszPackage, strNames.m_data);
}

int FindPackage(Graph& graph, const char* lpszArchive, const char* lpszPackage)
{
    graph.IndexNames();
    const int nFound = graph.Find(lpszPackage);
    if (nFound == -1)
        FailWithSuggestions(graph, lpszArchive, lpszPackage);
    return nFound;
}

bool PrintChain(Graph& graph, const char* lpszArchive, const char* lpszPackage)
{
    const int nWanted = FindPackage(graph, lpszArchive, lpszPackage);
    if (nWanted == -1)
        return false;

    // A breadth-first search from all packages that nothing depends on. At the index of each package that it has
    // reached, previous holds the package before it on the shortest chain, or the package itself if a chain begins
    // there.
    VELM_CPtrArray queue, previous;
    previous.SetSize(graph.GetCount());
    const auto Reach = [&](Package* pPackage, Package* pPrevious) {
        if (previous.GetAt(pPackage->m_nIndex) != nullptr)
            return;
        previous.SetAt(pPackage->m_nIndex, pPrevious);
        Append(queue, pPackage);
    };
    for (int i = 0; i < graph.GetCount(); ++i) {
        if (graph.GetAt(i)->m_nDependents == 0)
            Reach(graph.GetAt(i), graph.GetAt(i));
    }
    for (int nHead = 0; nHead < queue.GetSize() && previous.GetAt(nWanted) == nullptr; ++nHead) {
        Package* pPackage = PackageAt(queue, nHead);
        for (int i = 0; i < pPackage->m_dependencies.GetSize(); ++i)
            Reach(PackageAt(pPackage->m_dependencies, i), pPackage);
    }
    if (previous.GetAt(nWanted) == nullptr) {
        std::printf("No chain leads to %s: whatever needs it is needed in turn.\n", Printable(lpszPackage).m_data);
        return true;
    }
    VELM_CPtrArray chain; // the wanted package first
    Append(chain, graph.GetAt(nWanted));
    for (int i = nWanted; PackageAt(previous, i)->m_nIndex != i; i = PackageAt(previous, i)->m_nIndex)
        Append(chain, previous.GetAt(i));
    for (int i = chain.GetSize(); i-- > 0;)
        std::printf("%s%s", Printable(PackageAt(chain, i)->m_strName.m_data).m_data, i > 0 ? " -> " : "\n");
    return true;
}
