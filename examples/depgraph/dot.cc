#include "dot.h"

#include <algorithm>
#include <cstdio>

#include "failure.h"
#include "summary.h"

// Prints a name as a text in quotes.
static void PrintQuoted(const VELM_CString& strName)
{
    const VELM_CString strText = Printable(strName.m_data);
    std::putchar('"');
    for (const char* p = strText.m_data; *p != '\0'; ++p) {
        if (*p == '"' || *p == '\\')
            std::putchar('\\');
        std::putchar(*p);
    }
    std::putchar('"');
}

bool PrintDot(Graph& graph, const char* lpszArchive, const char* lpszPackage)
{
    const Package* pCentre = nullptr;
    VELM_CPtrArray shown; // at the index of each package: the package if it is printed, otherwise NULL
    shown.SetSize(graph.GetCount());
    const auto Show = [&](const VELM_CPtrArray& packages) {
        for (int i = 0; i < packages.GetSize(); ++i)
            shown.SetAt(PackageAt(packages, i)->m_nIndex, packages.GetAt(i));
    };
    if (lpszPackage == nullptr) {
        Show(graph.m_packages);
    } else {
        const int nCentre = FindPackage(graph, lpszArchive, lpszPackage);
        if (nCentre == -1)
            return false;
        pCentre = graph.GetAt(nCentre);
        shown.SetAt(nCentre, graph.GetAt(nCentre));
        Show(pCentre->m_dependencies);
        for (int i = 0; i < graph.GetCount(); ++i) {
            const VELM_CPtrArray& needed = graph.GetAt(i)->m_dependencies;
            if (std::find(needed.begin(), needed.end(), pCentre) != needed.end())
                shown.SetAt(i, graph.GetAt(i));
        }
    }
    std::printf("strict digraph {\n  rankdir=LR\n  node [shape=box, style=rounded, fontname=\"sans-serif\"]\n");
    for (int i = 0; i < shown.GetSize(); ++i) {
        const Package* pPackage = PackageAt(shown, i);
        if (pPackage == nullptr)
            continue;
        std::printf("  %d [label=", i); // nodes are named by index, since packages may have the same name
        PrintQuoted(pPackage->m_strName);
        std::printf("%s]\n", pPackage == pCentre ? ", style=\"rounded,filled\", fillcolor=gold" : "");
        for (int j = 0; j < pPackage->m_dependencies.GetSize(); ++j) {
            const int nNeeded = PackageAt(pPackage->m_dependencies, j)->m_nIndex;
            if (shown.GetAt(nNeeded) != nullptr)
                std::printf("  %d -> %d\n", i, nNeeded);
        }
    }
    std::printf("}\n");
    return true;
}
