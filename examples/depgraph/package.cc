#include "package.h"

VELM_CRuntimeClass Package::classRecord = {"Package", 0, 1};

// A package that the archive has not seen before is stored, or loaded, within the package that depends on it; any other
// is only an index. So a cycle of dependencies ends, and a chain of them is nested as deeply as it is long.
void Package::Serialize(VELM_CArchive& ar)
{
    ar & m_strName & m_strVersion & m_nInstalledSize & AfxOf<Package>(m_dependencies);
}
