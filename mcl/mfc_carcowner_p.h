// Who owns the objects of an archive, by their indexes; private to the library.
//
// Objects with one owner form a forest: each is below its owner. Only the root of a tree can get an owner, and not one
// in its own tree, so that nothing comes to own itself. Which tree an object is in is found by the roots above it, and
// each search makes the way to the root shorter (a union-find).
//
//     index      1        2          3          4                   owned by
//     class      object   object     object
//     m_owners   -        nobody     2          3                   2 <- 3 <- 4
//     m_roots    1        2          2          3, then 2
//
// Shared owners are counted by `std::shared_ptr`, and are not in the forest. The archive keeps one share of each object
// that has them.
//
// There are no tables as long as nobody asks. Storing, whatever else has an index is listed beside them: classes, and
// objects that the program mapped. Loading, the loader's slots say that.
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
    // Gives up all shares: an object that nobody else shares is deleted by that.
    void ReleaseShares();

    // Whether any object has an owner, other than roots that the caller has as plain pointers.
    bool AreUsed() const { return m_bUsed; }
    uint32_t Adoptions() const { return m_nAdoptions; }
    // Makes room for the indexes below nEnd, and for one more share. Raises 1 when there is no memory.
    void Reserve(uint32_t nEnd);
    // What speaks against an owner in the object under way. There is room for both.
    enum Refusal { mayBe, hasOwner, isShared, ownsItself };
    Refusal RefusalOf(uint32_t nObject, uint32_t nUnderWay, VELM_CArchive::Owner kind);
    // The object gets that owner; none that is under way is 0. Nothing speaks against it. bInHeld: its smart pointer is
    // in a value that the archive holds, which deletes it.
    void Adopt(uint32_t nObject, uint32_t nUnderWay, VELM_CArchive::Owner kind, bool bInHeld);
    // The objects in held values, which are found there until the values have been moved on.
    const uint32_t* begin() const { return m_inHeld; }
    const uint32_t* end() const { return m_inHeld + m_nInHeld; }
    uint32_t InHeld() const { return m_nInHeld; }
    void MovedFromHeld(uint32_t nBefore) { m_nInHeld = nBefore < m_nInHeld ? nBefore : m_nInHeld; }

    // Whether the archive has to delete the object: no owner will. What the caller has got as a plain pointer counts as
    // the archive's until the load has succeeded.
    bool IsArchives(uint32_t nObject) const { return Tag(nObject) == nobody || Tag(nObject) == callers; }
    bool HasOwner(uint32_t nObject) const
    {
        return Tag(nObject) == shared ? m_shares[Rest(nObject)].bOwned : Tag(nObject) != nobody;
    }
    // The object whose only owner is another object; 0 for none.
    uint32_t OwnerOf(uint32_t nObject) const { return Tag(nObject) == owned ? Rest(nObject) : 0; }
    // The archive's share of the object; NULL for none.
    VELM_CHeld* ShareOf(uint32_t nObject) const
    {
        return Tag(nObject) == shared ? m_shares[Rest(nObject)].pShare : nullptr;
    }
    void KeepShare(uint32_t nObject, VELM_CHeld* pShare) { m_shares[Rest(nObject)].pShare = pShare; }

    // Storing: the next index that is given is no object's that the archive stores. Room is made first.
    void ReserveOther();
    void AddOther(uint32_t nIndex) { m_others[m_nOthers++] = nIndex; }
    bool IsOther(uint32_t nIndex) const;

private:
    enum Tags : uint32_t { nobody, owned, callers, shared };
    static const int nTagShift = 30; // above the largest index

    struct Share {
        VELM_CHeld* pShare;
        bool bOwned; // not only by weak pointers
    };

    // The tag and, of an owned object, the index of its owner, or 0 outside of all objects; of a shared one, its place
    // among the shares.
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
