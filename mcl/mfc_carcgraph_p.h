// What an archive knows of the objects and classes that went through it, in both directions; private to the library.
#ifndef TAVNOMCL_MFC_CARCGRAPH_P_H
#define TAVNOMCL_MFC_CARCGRAPH_P_H

#include "mcl/mfc_carccore_p.h"
#include "mcl/mfc_carcowner_p.h"
#include "mcl/mfc_carcstored_p.h"

class VELM_CClassTable;

// What is called Require... raises what it finds wrong, and delivers false when that returns.
class VELM_LOCAL VELM_CArchiveGraph : public VELM_CArchiveState {
public:
    static VELM_CArchiveGraph& Of(VELM_CArchive& ar) { return ar.Graph(); }

    using VELM_CArchiveState::VELM_CArchiveState;

    // The object under way may own that object: raises 5 otherwise, or 1 when storing.
    bool RequireOwnable(const VELM_CObject* pOb, unsigned nIndex, bool bMapped, VELM_CArchive::Owner kind,
                        unsigned long long nOffset);
    // Raises as RequireOwnable, for NULL in place of an object that is owned; false when that returns.
    bool RefuseNull(unsigned long long nOffset);
    // Notes that the object has no owner.
    void NoteUnowned(const VELM_CObject& ob, unsigned nIndex);
    // Storing, with a class table: a program with that table could load the object, or the class alone where the object
    // is NULL. Raises 1.
    bool RequireLoadable(const VELM_CRuntimeClass& cls, const VELM_CObject* pOb);
    // An index is left. Raises 5.
    bool RequireIndex()
    {
        if (m_ar.m_nIndexCount < VELM_CArchive::nIndexLimit)
            return true;
        FailIndex();
        return false;
    }
    // Gives the next index, once its place is there.
    unsigned TakeIndex() { return m_ar.m_nIndexCount++; }

    VELM_CStoredIndexes stored;
    VELM_COwners owners;
    const VELM_CClassTable* pStoredClasses = nullptr; // what may be stored; NULL for everything

private:
    void FailIndex();
};

inline VELM_CArchiveGraph& VELM_CArchive::Graph() const
{
    return static_cast<VELM_CArchiveGraph&>(*m_pState);
}

#endif
