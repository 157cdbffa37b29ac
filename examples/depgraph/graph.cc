#include "graph.h"

#include <cerrno>
#include <cstring>

#include "failure.h"
#include "progress.h"

Graph::~Graph()
{
    for (Package* pPackage : AfxOf<Package>(m_packages))
        delete pPackage;
}

void Graph::IndexNames()
{
    for (int i = 0; i < GetCount(); ++i) {
        int& rPlace = m_names[GetAt(i)->m_strName.m_data];
        if (rPlace == 0)
            rPlace = i + 1;
    }
}

int Graph::Find(const VELM_CString& strName) const
{
    int nPlace = 0;
    m_names.Lookup(strName.m_data, nPlace);
    return nPlace - 1;
}

bool Graph::Link(const char* lpszFile)
{
    for (int i = 0; i < GetCount(); ++i) {
        if (GetAt(i) == nullptr || GetAt(i)->m_nIndex != -1)
            return Fail(lpszFile, "package %d of the list is %s", i + 1, GetAt(i) ? "there twice" : "missing");
        GetAt(i)->m_nIndex = i;
    }
    for (int i = 0; i < GetCount(); ++i) {
        Package* pPackage = GetAt(i);
        for (int j = 0; j < pPackage->m_dependencies.GetSize(); ++j) {
            Package* pNeeded = PackageAt(pPackage->m_dependencies, j);
            if (pNeeded == nullptr || pNeeded->m_nIndex == -1)
                return Fail(lpszFile, "dependency %d of package \"%.99s\" is %s", j + 1, pPackage->m_strName.m_data,
                            pNeeded ? "not in the list of packages" : "missing");
            if (pNeeded != pPackage)
                ++pNeeded->m_nDependents;
        }
    }
    return true;
}

bool Graph::Store(const char* lpszFile, unsigned long long& rBytes) const
{
    VELM_CSaveFile file;
    if (!file.Open(lpszFile))
        return Fail(lpszFile, "%s", std::strerror(file.GetError()));
    VELM_CProgressFile counter(&file, 0, [](void*, unsigned long long, unsigned long long) {});
    VELM_CArchive ar(&counter, VELM_CArchive::store);
    const int nRaised = pfm_protect([&] {
        ar << AfxOf<Package>(m_packages);
        ar.Close();
    });
    rBytes = counter.GetDone();
    delete VELM_CFile::getException(); // clears the error of a failed write, which Commit reports
    if (nRaised == 0)
        return file.Commit() || Fail(lpszFile, "%s", std::strerror(file.GetError()));
    ar.Abort();
    return Fail(lpszFile, "%s", *ar.GetErrorText() != '\0' ? ar.GetErrorText() : lpszNoMemory);
}

bool Graph::Load(const char* lpszFile, unsigned long long& rBytes)
{
    VELM_CFile plain;
    if (!plain.Open(lpszFile))
        return Fail(lpszFile, "%s", std::strerror(errno));
    WatchedFile file(&plain);
    VELM_CClassTable table;
    table.Add<Package>(&Package::classRecord);
    VELM_CArchive ar(&file, VELM_CArchive::load);
    ar.SetClassTable(&table);

    // A raise leaves the body without running destructors, so the body has no object that needs one.
    const int nRaised = pfm_protect([&] { ar & AfxOf<Package>(m_packages); });
    unsigned char surplus;
    const bool bSurplus = nRaised == 0 && ar.Read(&surplus, 1) == 1;
    const char* lpszError = TakeFileError();
    if (lpszError == nullptr && nRaised != 0)
        lpszError = *ar.GetErrorText() != '\0' ? ar.GetErrorText() : lpszNoMemory;
    bool bGood = false;
    if (lpszError != nullptr)
        Fail(lpszFile, "%s", lpszError);
    else if (bSurplus)
        Fail(lpszFile, "more data follows the last of %d packages", GetCount());
    else
        bGood = Link(lpszFile);
    if (!bGood) {
        ar.DeleteLoadedObjects();
        m_packages.SetSize(0);
    }
    rBytes = file.GetDone();
    return bGood;
}
