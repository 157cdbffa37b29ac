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
    unsigned nDropped;
    ar >> nDropped;
    if (pwSchemaNum != nullptr)
        *pwSchemaNum = 0;
    ar >> nDropped;
    return nullptr;
}
