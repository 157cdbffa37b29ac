#include "mcl/mfc_cclass.h"

#include <cstdlib>
#include <cstring>

#include "mcl/mfc_carcex.h"

const unsigned nNameBuckets = 251;

VELM_CClassTable::VELM_CClassTable() : m_nLongestName(0)
{
    m_indexes.InitHashTable(nNameBuckets, 0);
}

VELM_CClassTable::~VELM_CClassTable()
{
    for (int i = 0; i < m_classes.GetSize(); ++i)
        std::free(m_classes.GetAt(i));
}

int VELM_CClassTable::Add(VELM_CRuntimeClass* pClass, CreateProc pfnCreate, VELM_CRuntimeClass* pBase)
{
    if (pClass == nullptr || pClass->m_pszName == nullptr)
        return 0;
    char* pszName = const_cast<char*>(pClass->m_pszName); // maps take their keys so, and only read them
    Class* pEntry = const_cast<Class*>(Find(pszName));
    if (pEntry != nullptr && pEntry->pClass != pClass)
        return 0;
    if (pEntry == nullptr) {
        pEntry = static_cast<Class*>(AfxAllocate(nullptr, 1, sizeof(Class)));
        m_indexes.SetAt(pszName, m_classes.GetSize());
        m_classes.InsertAt(m_classes.GetSize(), pEntry);
        const unsigned nLength = static_cast<unsigned>(std::strlen(pszName));
        if (nLength > m_nLongestName)
            m_nLongestName = nLength;
    }
    *pEntry = Class{pClass, pfnCreate, pBase};
    return 1;
}

const VELM_CClassTable::Class* VELM_CClassTable::Find(const char* lpszName) const
{
    int nIndex;
    if (!m_indexes.Lookup(const_cast<char*>(lpszName), nIndex))
        return nullptr;
    return static_cast<const Class*>(m_classes.GetAt(nIndex));
}

int VELM_CClassTable::IsDerivedFrom(const VELM_CRuntimeClass* pClass, const VELM_CRuntimeClass* pBase) const
{
    // A chain longer than the table goes in a circle.
    for (int i = 0; pClass != nullptr && i <= m_classes.GetSize(); ++i) {
        if (pClass == pBase)
            return 1;
        const Class* pEntry = Find(pClass->m_pszName);
        pClass = pEntry != nullptr && pEntry->pClass == pClass ? pEntry->pBase : nullptr;
    }
    return 0;
}
