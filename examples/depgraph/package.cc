#include "package.h"

VELM_CRuntimeClass Package::classRecord = {"Package", 0, 1};

// A dependency that the archive has not met yet is stored, or loaded, right here, inside this package; any other
// is a mere index. So a cycle ends by itself, and a long chain goes as deep as it is long.
void Package::Serialize(VELM_CArchive& ar)
{
    ar & m_strName & m_strVersion & m_nInstalledSize & AfxOf<Package>(m_dependencies);
}
