#include "package.h"

VELM_CRuntimeClass Package::classRecord = {"Package", 0, 1};

// A dependency that the archive has not met yet is stored, or loaded, right here, inside this package; any other
// is a mere index. So a cycle ends by itself, but a long chain goes deep.
void Package::Serialize(VELM_CArchive& ar)
{
    if (ar.IsStoring()) {
        static unsigned nDepth = 0;
        if (nDepth == nMaxDepth) {
            nDepth = 0;
            pfm_raise(causeTooDeep);
        }
        ++nDepth;
        ar << m_strName << m_strVersion << m_nInstalledSize;
        ar.WriteCount(static_cast<unsigned long>(m_dependencies.GetSize()));
        for (int i = 0; i < m_dependencies.GetSize(); ++i)
            ar.WriteObject(PackageAt(m_dependencies, i));
        --nDepth;
    } else {
        ar >> m_strName >> m_strVersion >> m_nInstalledSize;
        for (unsigned long n = ar.ReadCount(); n > 0; --n)
            Append(m_dependencies, ar.ReadObject(&classRecord));
    }
}
