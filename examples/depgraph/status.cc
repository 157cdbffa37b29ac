#include "status.h"

#include <strings.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string_view>
#include <utility>

#include "failure.h"
#include "progress.h"

static bool IsBlank(char c)
{
    return c == ' ' || c == '\t';
}

// The values of the fields of one stanza that are used here; empty if the stanza does not have the field.
struct Stanza {
    VELM_CString package, version, status, installedSize, depends;

    // The member for the value of the field with the name; NULL for a field that is not used.
    VELM_CString* Field(std::string_view wanted)
    {
        static const struct {
            std::string_view name;
            VELM_CString Stanza::*pValue;
        } fields[] = {
            {"Package", &Stanza::package}, {"Version", &Stanza::version},
            {"Status", &Stanza::status},   {"Installed-Size", &Stanza::installedSize},
            {"Depends", &Stanza::depends}, {"Pre-Depends", &Stanza::depends},
        };
        for (const auto& field : fields) {
            if (field.name.size() == wanted.size() && strncasecmp(field.name.data(), wanted.data(), wanted.size()) == 0)
                return &(this->*field.pValue);
        }
        return nullptr;
    }
    void Clear()
    {
        for (VELM_CString* pField : {&package, &version, &status, &installedSize, &depends}) {
            if (!pField->IsEmpty())
                pField->Empty();
        }
    }
};

// Adds a value, without the blanks around it, to the field, with a comma between values as between clauses.
static void AddValue(VELM_CString& rField, std::string_view value)
{
    while (!value.empty() && IsBlank(value.front()))
        value.remove_prefix(1);
    while (!value.empty() && IsBlank(value.back()))
        value.remove_suffix(1);
    if (!rField.IsEmpty())
        rField += ",";
    rField.Concat(value.data(), static_cast<int>(value.size()));
}

// Adds the package of the stanza, if it is installed, to the graph, and its clauses to the array at the same index.
// Both take their texts from the stanza. False when the package's size is not a 32-bit number.
static bool AddPackage(Stanza& stanza, Graph& graph, VELM_CStringArray& clauses)
{
    if (stanza.package.IsEmpty() || stanza.status != "install ok installed")
        return true;
    const char* lpszSize = stanza.installedSize.m_data;
    const unsigned long long nSize = std::strtoull(lpszSize, nullptr, 10);
    if (lpszSize[std::strspn(lpszSize, "0123456789")] != '\0' || nSize > UINT32_MAX)
        return false;

    Package* pPackage = new (std::nothrow) Package;
    if (pPackage == nullptr)
        AfxMemoryExhausted();
    pPackage->m_strName = std::move(stanza.package);
    pPackage->m_strVersion = std::move(stanza.version);
    pPackage->m_nInstalledSize = static_cast<unsigned>(nSize);
    const int nIndex = graph.GetCount();
    Append(graph.m_packages, pPackage);
    clauses.SetSize(nIndex + 1, nIndex); // doubles the capacity when it is full
    clauses.ElementAt(nIndex) = std::move(stanza.depends);
    return true;
}

// Adds the packages that meet clauses such as "libc6 (>= 2.36), python3:any | python2" to the dependencies of a
// package. lastNeededBy holds, at the index of each package, the last package that was found to need it, so that no
// dependency is listed twice.
static void Resolve(Package* pPackage, const char* lpszClauses, const Graph& graph, VELM_CPtrArray& lastNeededBy)
{
    bool bMet = false;
    VELM_CString strName;
    for (const char* p = lpszClauses;; ++p) {
        p += std::strspn(p, " \t");
        strName.Set(p, static_cast<int>(std::strcspn(p, " \t(:|,")));
        const int nNeeded = bMet ? -1 : graph.Find(strName);
        if (nNeeded != -1) {
            bMet = true;
            if (lastNeededBy.GetAt(nNeeded) != pPackage)
                Append(pPackage->m_dependencies, graph.GetAt(nNeeded));
            lastNeededBy.SetAt(nNeeded, pPackage);
        }
        p += std::strcspn(p, "|,");
        if (*p == '\0')
            return;
        if (*p == ',')
            bMet = false;
    }
}

bool ReadStatus(const char* lpszFile, Graph& graph)
{
    VELM_CFile plain;
    if (!plain.Open(lpszFile))
        return Fail(lpszFile, "%s", std::strerror(errno));
    WatchedFile file(&plain);
    VELM_CArchive ar(&file, VELM_CArchive::load);
    VELM_CStringArray clauses;
    Stanza stanza;
    VELM_CString line, *pField = nullptr;
    int nPackages = 0;
    bool bEnd = false;
    for (int nLine = 1; !bEnd; ++nLine) {
        bEnd = !ar.ReadString(line) && line.IsEmpty();
        if (VELM_CFile::ERROR_CODE != 0)
            return Fail(lpszFile, "%s", TakeFileError());
        if (line.IsEmpty()) {
            nPackages += !stanza.package.IsEmpty();
            if (!AddPackage(stanza, graph, clauses))
                return Fail(lpszFile, "line %d: the Installed-Size of package \"%.99s\" is no 32-bit number", nLine,
                            stanza.package.m_data);
            stanza.Clear();
            pField = nullptr;
        } else if (IsBlank(line.m_data[0])) {
            if (pField != nullptr)
                *pField += line;
        } else {
            const std::string_view text(line);
            const size_t nColon = text.find(':');
            if (nColon == text.npos)
                return Fail(lpszFile, "line %d has no field name: this is no package status file", nLine);
            pField = stanza.Field(text.substr(0, nColon));
            if (pField != nullptr)
                AddValue(*pField, text.substr(nColon + 1));
        }
    }
    if (nPackages == 0)
        return Fail(lpszFile, "no stanza has a Package: this is no package status file");

    graph.IndexNames();
    VELM_CPtrArray lastNeededBy;
    lastNeededBy.SetSize(graph.GetCount());
    for (int i = 0; i < graph.GetCount(); ++i)
        Resolve(graph.GetAt(i), clauses.ElementAt(i).m_data, graph, lastNeededBy);
    return graph.Link(lpszFile);
}
