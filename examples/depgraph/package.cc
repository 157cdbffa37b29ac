#include "package.h"

VELM_CRuntimeClass Package::classRecord = {"Package", 0, 1};

// A package that the archive has not seen before is stored, or loaded, within the package that depends on it; any other
// is only an index. So a cycle of dependencies ends, and a chain of them is nested as deeply as it is long.
void Package::Serialize(VELM_CArchive& ar)
{
    if (ar.IsStoring()) {
        ar << m_strName << m_strVersion << m_nInstalledSize;
        ar.WriteCount(static_cast<unsigned long>(m_dependencies.GetSize()));
        for (int i = 0; i < m_dependencies.GetSize(); ++i)
            ar.WriteObject(PackageAt(m_dependencies, i));
    } else {
        ar >> m_strName >> m_strVersion >> m_nInstalledSize;
        for (unsigned long n = ar.ReadCount(); n > 0 && !ar.IsDataEnded(); --n)
            Append(m_dependencies, ar.ReadObject(&classRecord));
    }
}
