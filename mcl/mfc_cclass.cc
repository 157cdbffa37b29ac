#include "mcl/mfc_cclass.h"

#include <cstring>

#include "mcl/mfc_cmap.h"
#include "mcl/mfc_memory.h"

const unsigned nNameBuckets = 251;

// Nodes never move, so that what Find delivers stays where it is.
using ClassAssoc = VELM_CMapAssoc<fxStr, char*, VELM_CClassTable::Class>;

class VELM_CClassMap : public VELM_CMapTable<ClassAssoc, char*> {
public:
    VELM_CClassMap() : VELM_CMapTable(16) { m_nHashTableSize = nNameBuckets; }
    VELM_CClassTable::Class* Add(char* pszName)
    {
        ClassAssoc* pAssoc = FindOrAdd(pszName);
        return pAssoc == nullptr ? nullptr : &pAssoc->value;
    }
};

void* VELM_CBlockHolder::Allocate(unsigned long nBytes, unsigned long nAlignment)
{
    if (m_pBlock != nullptr)
        Free();
    m_nAlignment = nAlignment;
    m_pBlock = nAlignment == 0 ? ::operator new(nBytes, std::nothrow)
                               : ::operator new(nBytes, static_cast<std::align_val_t>(nAlignment), std::nothrow);
    return m_pBlock;
}

void VELM_CBlockHolder::Free()
{
    if (m_nAlignment == 0)
        ::operator delete(m_pBlock);
    else
        ::operator delete(m_pBlock, static_cast<std::align_val_t>(m_nAlignment));
    m_pBlock = nullptr;
}

VELM_CClassTable::VELM_CClassTable() : m_pClasses(AfxNew(new (std::nothrow) VELM_CClassMap)), m_nLongestName(0)
{
}

VELM_CClassTable::~VELM_CClassTable()
{
    delete m_pClasses;
}

int VELM_CClassTable::Put(const Class& cls)
{
    if (cls.pClass == nullptr || cls.pClass->m_pszName == nullptr)
        return 0;
    char* const pszName = const_cast<char*>(cls.pClass->m_pszName); // maps take their keys so, and only read them
    const Class* const pOther = Find(pszName);
    if (pOther != nullptr && pOther->pClass != cls.pClass)
        return 0;
    Class* const pEntry = m_pClasses->Add(pszName);
    if (pEntry == nullptr)
        return 0;
    *pEntry = cls;
    const unsigned nLength = static_cast<unsigned>(std::strlen(pszName));
    if (nLength > m_nLongestName)
        m_nLongestName = nLength;
    return 1;
}

int VELM_CClassTable::Add(VELM_CRuntimeClass* pClass, CreateProc pfnCreate, VELM_CRuntimeClass* pBase,
                          LetGoProc pfnLetGo)
{
    return Put(Class{pClass, pfnCreate, pBase, pfnLetGo, nullptr, nullptr});
}

int VELM_CClassTable::AddIn(VELM_CRuntimeClass* pClass, CreateInProc pfnCreateIn, VELM_CRuntimeClass* pBase,
                            LetGoProc pfnLetGo, const std::type_info* pType)
{
    return Put(Class{pClass, nullptr, pBase, pfnLetGo, pfnCreateIn, pType});
}

const VELM_CClassTable::Class* VELM_CClassTable::Find(const char* lpszName) const
{
    unsigned nHash;
    const ClassAssoc* const pAssoc = m_pClasses->GetAssocAt(const_cast<char*>(lpszName), nHash);
    return pAssoc == nullptr ? nullptr : &pAssoc->value;
}

int VELM_CClassTable::IsDerivedFrom(const VELM_CRuntimeClass* pClass, const VELM_CRuntimeClass* pBase) const
{
    // A chain longer than the table goes in a circle.
    for (int i = 0; pClass != nullptr && i <= m_pClasses->GetCount(); ++i) {
        if (pClass == pBase)
            return 1;
        const Class* pEntry = Find(pClass->m_pszName);
        pClass = pEntry != nullptr && pEntry->pClass == pClass ? pEntry->pBase : nullptr;
    }
    return 0;
}
