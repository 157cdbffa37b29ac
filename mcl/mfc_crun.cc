// A class record in the stream: the schema and the length of the name, 4 bytes each, then the name without a
// terminator.
#include "mcl/mfc_crun.h"

#include <cstring>

#include "mcl/mfc_carcload_p.h"

void VELM_CRuntimeClass::Store(VELM_CArchive& ar) const
{
    const bool bName = VELM_ASSERT(m_pszName != NULL);
    const size_t nLength = bName ? std::strlen(m_pszName) : 0;
    if (!bName || !VELM_ASSERT(nLength <= 0xFFFFFFFF)) {
        VELM_CArchiveState::Of(ar).Lose("a class record was not stored");
        return;
    }
    ar.Store32(m_nSchema);
    ar.Store32(static_cast<uint32_t>(nLength));
    ar.Write(m_pszName, static_cast<unsigned>(nLength));
}

VELM_CRuntimeClass* VELM_CRuntimeClass::Load(VELM_CArchive& ar, unsigned* pwSchemaNum)
{
    VELM_CArchiveState& state = VELM_CArchiveState::Of(ar);
    VELM_CArchiveLoader* const pLoader = VELM_CArchiveLoader::WithTable(ar);
    const unsigned long long nOffset = state.Offset();
    uint32_t nSchema, nLength;
    const bool bSchema = ar.Load32(nSchema) != 0;
    if (pLoader == nullptr && bSchema && pwSchemaNum != nullptr)
        *pwSchemaNum = 0;
    if (!bSchema || !ar.Load32(nLength)) {
        ar.RaiseDataEnded();
        return nullptr;
    }
    if (pLoader == nullptr || !pLoader->RequireNameLength(nLength, nOffset))
        return nullptr;
    char* const pszName = state.LoadText(nLength);
    if (pszName == nullptr) {
        ar.RaiseDataEnded();
        return nullptr;
    }
    VELM_CRuntimeClass* const pClass = pLoader->RequireClass(pszName, nLength, nSchema, nOffset);
    if (pClass != nullptr && pwSchemaNum != nullptr)
        *pwSchemaNum = nSchema;
    return pClass;
}
