// Who owns each object of an archive, by the objects' indexes; private to the library.
//
// Objects with a single owner form a forest, in which each object is below its owner. Only the root of a tree can get
// an owner, and the owner must not be in the same tree: so no object comes to own itself. A union-find tells which tree
// an object is in: m_roots leads from each object towards the root of its tree, and each search shortens the path.
//
//     index      1        2          3          4
//     it is a    class    object     object     object              2 owns 3, and 3 owns 4
//     m_owners   -        nobody     2          3
//     m_roots    1        2          2          3, after a search 2
//
// Objects with shared owners are not in the forest: `std::shared_ptr` counts their owners. The archive keeps one share
// of each of them.
//
// The tables are made when somebody first asks about an owner. A storing archive also lists the indexes of whatever is
// not an object that it stores: classes, and objects that the program has mapped. Loading, the loader's slots tell
// that.
#ifndef TAVNOMCL_MFC_CARCOWNER_P_H
#define TAVNOMCL_MFC_CARCOWNER_P_H

#include <cstddef>
#include <cstdint>

#include "mcl/mfc_carccore.h"

class VELM_LOCAL VELM_COwners {
public:
    VELM_COwners() = default;
    VELM_COwners(const VELM_COwners&) = delete;
    VELM_COwners& operator=(const VELM_COwners&) = delete;
    ~VELM_COwners() { Clear(); }
    // Gives up all shares and tables.
    void Clear();
    // Gives up all shares. That deletes the objects that nobody else shares.
    void ReleaseShares();

    // Whether any object has an owner. Roots that the caller owns by plain pointers do not count.
    bool AreUsed() const { return m_bUsed; }
    uint32_t Adoptions() const { return m_nAdoptions; }
    // Makes room for the indexes below nEnd, and for one more share. Raises 1 when there is no memory.
    void Reserve(uint32_t nEnd);
    // Why the object under way must not own the object; mayBe if it may. Reserve has made room for both indexes.
    enum Refusal { mayBe, hasOwner, isShared, ownsItself };
    Refusal RefusalOf(uint32_t nObject, uint32_t nUnderWay, VELM_CArchive::Owner kind);
    // The object under way becomes an owner of the object; nUnderWay is 0 for the caller outside of all objects.
    // RefusalOf has allowed it. bInHeld says that the owning smart pointer is in a value that the archive holds.
    void Adopt(uint32_t nObject, uint32_t nUnderWay, VELM_CArchive::Owner kind, bool bInHeld);
    // The indexes of the objects that are owned by smart pointers in held values.
    const uint32_t* begin() const { return m_inHeld; }
    const uint32_t* end() const { return m_inHeld + m_nInHeld; }
    uint32_t InHeld() const { return m_nInHeld; }
    void MovedFromHeld(uint32_t nBefore) { m_nInHeld = nBefore < m_nInHeld ? nBefore : m_nInHeld; }

    // Whether the archive has to delete the object when a load has failed, since no owner will. The caller's roots by
    // plain pointer are among these.
    bool IsArchives(uint32_t nObject) const { return Tag(nObject) == nobody || Tag(nObject) == callers; }
    bool HasOwner(uint32_t nObject) const
    {
        return Tag(nObject) == shared ? m_shares[Rest(nObject)].bOwned : Tag(nObject) != nobody;
    }
    // The index of the object that is the object's only owner; 0 when there is none.
    uint32_t OwnerOf(uint32_t nObject) const { return Tag(nObject) == owned ? Rest(nObject) : 0; }
    // The archive's share of the object; NULL for none.
    VELM_CHeld* ShareOf(uint32_t nObject) const
    {
        return Tag(nObject) == shared ? m_shares[Rest(nObject)].pShare : nullptr;
    }
    void KeepShare(uint32_t nObject, VELM_CHeld* pShare) { m_shares[Rest(nObject)].pShare = pShare; }

    // Storing: the list of indexes that do not belong to objects that the archive stores. AddOther cannot fail: its
    // room is made by ReserveOther.
    void ReserveOther();
    void AddOther(uint32_t nIndex) { m_others[m_nOthers++] = nIndex; }
    bool IsOther(uint32_t nIndex) const;

private:
    enum Tags : uint32_t { nobody, owned, callers, shared };
    static const int nTagShift = 30; // above the largest index

    struct Share {
        VELM_CHeld* pShare;
        bool bOwned; // whether it has other owners than weak pointers
    };

    // For each index a tag and, in the lower bits: for an owned object the index of its owner, or 0 if that is outside
    // of all objects; for a shared object its position in m_shares.
    uint32_t* m_owners = nullptr;
    uint32_t* m_roots = nullptr;
    uint32_t m_nIndexes = 0;
    bool m_bUsed = false;
    uint32_t m_nAdoptions = 0;
    Share* m_shares = nullptr;
    uint32_t m_nShares = 0;
    uint32_t m_nMaxShares = 0;
    uint32_t* m_inHeld = nullptr;
    uint32_t m_nInHeld = 0;
    uint32_t m_nMaxInHeld = 0;
    uint32_t* m_others = nullptr; // ascending
    uint32_t m_nOthers = 0;
    uint32_t m_nMaxOthers = 0;

    uint32_t Tag(uint32_t nObject) const { return nObject < m_nIndexes ? m_owners[nObject] >> nTagShift : nobody; }
    uint32_t Rest(uint32_t nObject) const { return m_owners[nObject] & ((uint32_t{1} << nTagShift) - 1); }
    uint32_t RootOf(uint32_t nObject);
};

#endif
