// The hidden state of an archive, as far as it concerns objects and classes, in both directions; private to the
// library.
#ifndef TAVNOMCL_MFC_CARCGRAPH_P_H
#define TAVNOMCL_MFC_CARCGRAPH_P_H

#include "mcl/mfc_carccore_p.h"
#include "mcl/mfc_carcowner_p.h"
#include "mcl/mfc_carcstored_p.h"

class VELM_CClassTable;

// A function called Require... raises when its condition does not hold, and returns false if the raise returns.
class VELM_LOCAL VELM_CArchiveGraph : public VELM_CArchiveState {
public:
    static VELM_CArchiveGraph& Of(VELM_CArchive& ar) { return ar.Graph(); }

    using VELM_CArchiveState::VELM_CArchiveState;

    // Requires that the innermost object under way, or the caller outside of all objects, may own that object. bMapped
    // says that the program has given the object its index by MapObject, so that nobody may own it. Raises 5 when
    // loading, 1 when storing.
    bool RequireOwnable(const VELM_CObject* pOb, unsigned nIndex, bool bMapped, VELM_CArchive::Owner kind,
                        unsigned long long nOffset);
    // Fails because there is NULL where an owned object is required. Raises as RequireOwnable; returns false.
    bool RefuseNull(unsigned long long nOffset);
    // Sets the error text, which says that the object has no owner; see Note.
    void NoteUnowned(const VELM_CObject& ob, unsigned nIndex);
    // Storing with a class table: requires that a program with that table could load the object, or the class alone
    // when the object is NULL. Raises 1.
    bool RequireLoadable(const VELM_CRuntimeClass& cls, const VELM_CObject* pOb);
    // Requires that an index is left. Raises 5.
    bool RequireIndex()
    {
        if (m_ar.m_nIndexCount < VELM_CArchive::nIndexLimit)
            return true;
        FailIndex();
        return false;
    }
    // Gives out the next index. Whatever takes the index must be ready for it before.
    unsigned TakeIndex() { return m_ar.m_nIndexCount++; }

    VELM_CStoredIndexes stored;
    VELM_COwners owners;
    const VELM_CClassTable* pStoredClasses = nullptr; // the classes that may be stored; NULL for all

private:
    void FailIndex();
};

inline VELM_CArchiveGraph& VELM_CArchive::Graph() const
{
    return static_cast<VELM_CArchiveGraph&>(*m_pState);
}

#endif
