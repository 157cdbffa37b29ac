#include "mcl/mfc_crun.h"

#include <cstring>

#include "mcl/mfc_carcload.h"

void VELM_CRuntimeClass::Store(VELM_CArchive& ar) const
{
    const size_t nLength = std::strlen(m_pszName);
    ar << m_nSchema << static_cast<unsigned long>(nLength);
    ar.Write(m_pszName, static_cast<unsigned>(nLength));
}

VELM_CRuntimeClass* VELM_CRuntimeClass::Load(VELM_CArchive& ar, unsigned* pwSchemaNum)
{
    unsigned nSchema = 0;
    if (ar.HasClassTable()) {
        const VELM_CClassTable::Class* pClass = ar.Loader()->LoadClassRecord(nSchema);
        if (pClass == nullptr)
            return nullptr;
        if (pwSchemaNum != nullptr)
            *pwSchemaNum = nSchema;
        return pClass->pClass;
    }
    const bool bSchema = ar.Load32(nSchema) != 0;
    if (bSchema && pwSchemaNum != nullptr)
        *pwSchemaNum = 0;
    uint32_t nNameLength;
    if (!bSchema || !ar.Load32(nNameLength))
        ar.RaiseDataEnded();
    return nullptr;
}
