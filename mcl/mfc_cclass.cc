#include "mcl/mfc_cclass.h"

#include <atomic>
#include <cstdlib>
#include <cstring>

#include "mcl/mfc_cmap.h"
#include "mcl/mfc_memory.h"

const unsigned nNameBuckets = 251;

// An entry of the table. pKnownBase is the base that the class was last found to derive from; it may be set by any
// thread that shares the table.
struct ClassEntry {
    VELM_CClassTable::Class cls;
    mutable std::atomic<const VELM_CRuntimeClass*> pKnownBase;
};

// Nodes of a map never move, so a pointer that Find has returned stays valid.
using ClassAssoc = VELM_CMapAssoc<fxStr, char*, ClassEntry>;

class VELM_CClassMap : public VELM_CMapTable<ClassAssoc, char*> {
public:
    VELM_CClassMap() : VELM_CMapTable(16) { m_nHashTableSize = nNameBuckets; }
    ClassEntry* Add(char* pszName)
    {
        ClassAssoc* pAssoc = FindOrAdd(pszName);
        return pAssoc == nullptr ? nullptr : &pAssoc->value;
    }
    const ClassEntry* Find(const char* lpszName) const
    {
        Search search;
        const ClassAssoc* const pAssoc = Look(const_cast<char*>(lpszName), search);
        return pAssoc == nullptr ? nullptr : &pAssoc->value;
    }
    // NULL unless the class's name leads to this very record.
    const ClassEntry* Find(const VELM_CRuntimeClass* pClass) const
    {
        const ClassEntry* const pEntry = Find(pClass->m_pszName);
        return pEntry != nullptr && pEntry->cls.pClass == pClass ? pEntry : nullptr;
    }
};

void* AfxTakeBlock(unsigned long nBytes, unsigned long nAlignment)
{
    return nAlignment == 0 ? ::operator new(nBytes, std::nothrow)
                           : ::operator new(nBytes, static_cast<std::align_val_t>(nAlignment), std::nothrow);
}

void AfxFreeBlock(void* pBlock, unsigned long nAlignment)
{
    if (nAlignment == 0)
        ::operator delete(pBlock);
    else
        ::operator delete(pBlock, static_cast<std::align_val_t>(nAlignment));
}

VELM_CBlockHolder::~VELM_CBlockHolder()
{
    KeepFirst(0);
    std::free(m_pKept);
}

void VELM_CBlockHolder::Grow()
{
    const unsigned nRoom = 2 * m_nRoom + 8;
    m_pKept = static_cast<Kept*>(AfxAllocate(m_pKept, nRoom, sizeof *m_pKept));
    m_nRoom = nRoom;
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
    char* const pszName = const_cast<char*>(cls.pClass->m_pszName); // the map's type of keys; they are only read
    const Class* const pOther = Find(pszName);
    if (pOther != nullptr && pOther->pClass != cls.pClass)
        return 0;
    ClassEntry* const pEntry = m_pClasses->Add(pszName);
    if (pEntry == nullptr)
        return 0;
    if (pOther != nullptr && pOther->pBase != cls.pBase) { // answers that relied on the old base are void
        for (const auto& entry : *m_pClasses)
            entry.value.pKnownBase = nullptr;
    }
    pEntry->cls = cls;
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
    const ClassEntry* const pEntry = m_pClasses->Find(lpszName);
    return pEntry == nullptr ? nullptr : &pEntry->cls;
}

int VELM_CClassTable::IsDerivedFrom(const VELM_CRuntimeClass* pClass, const VELM_CRuntimeClass* pBase) const
{
    if (pBase == nullptr)
        return 0;
    int nSteps = 0;
    for (const VELM_CRuntimeClass* p = pClass; p != pBase; ++nSteps) {
        const ClassEntry* const pEntry = p == nullptr ? nullptr : m_pClasses->Find(p);
        if (pEntry == nullptr || nSteps > m_pClasses->GetCount()) // more steps than classes: the chain is a cycle
            return 0;
        p = pEntry->pKnownBase.load(std::memory_order_relaxed) == pBase ? pBase : pEntry->cls.pBase;
    }
    // Each class on the way remembers the answer, for the next question about the same base.
    for (; nSteps > 1; --nSteps) {
        if (const ClassEntry* const pEntry = m_pClasses->Find(pClass)) {
            pEntry->pKnownBase.store(pBase, std::memory_order_relaxed);
            pClass = pEntry->cls.pBase;
        }
    }
    return 1;
}
