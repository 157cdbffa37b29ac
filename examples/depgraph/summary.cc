#include "summary.h"

#include <cstdio>

#include "failure.h"

// Whether a precedes b in the list of the most needed packages.
static bool IsMoreNeeded(const Package* a, const Package* b)
{
    const int nMore = a->m_dependents.GetSize() - b->m_dependents.GetSize();
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
        if (pPackage->m_dependents.GetSize() > 0)
            std::printf("%12d %s\n", pPackage->m_dependents.GetSize(), Printable(pPackage->m_strName.m_data).m_data);
    }
}

// Fails, with a few names that come close to the one that is not there.
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

    // Breadth first, from the wanted package to those that need it. next: from a package's place to its neighbour on
    // the way to the wanted package; that of the wanted package is itself.
    VELM_CPtrArray queue, next;
    next.SetSize(graph.GetCount());
    next.SetAt(nWanted, graph.GetAt(nWanted));
    Append(queue, graph.GetAt(nWanted));
    for (int nHead = 0; nHead < queue.GetSize(); ++nHead) {
        Package* pPackage = PackageAt(queue, nHead);
        const VELM_CPtrArray& dependents = pPackage->m_dependents;
        if (dependents.GetSize() == 0) {
            std::printf("%s", Printable(pPackage->m_strName.m_data).m_data);
            for (; pPackage->m_nIndex != nWanted; pPackage = PackageAt(next, pPackage->m_nIndex))
                std::printf(" -> %s", Printable(PackageAt(next, pPackage->m_nIndex)->m_strName.m_data).m_data);
            std::printf("\n");
            return true;
        }
        for (int i = 0; i < dependents.GetSize(); ++i) {
            Package* pDependent = PackageAt(dependents, i);
            if (next.GetAt(pDependent->m_nIndex) == nullptr) {
                next.SetAt(pDependent->m_nIndex, pPackage);
                Append(queue, pDependent);
            }
        }
    }
    std::printf("No chain leads to %s: whatever needs it is needed in turn.\n", Printable(lpszPackage).m_data);
    return true;
}
