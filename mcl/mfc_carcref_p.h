// A reference, which stands in the stream wherever an object or a class is stored, with its encoder and its decoder;
// private to the library. It is one 32-bit value, or two:
//
//     nullObject            wNullTag
//     object      n         n             below wBigObjectTag, else     wBigObjectTag, n
//     knownClass  n         n | wClassTag below wBigObjectTag, else     wBigObjectTag, n | dwBigClassTag
//     newClass              wNewClassTag, and the class record follows
//
// In place of an object, a reference to a class says that the data of a new object of this class follow.
#ifndef TAVNOMCL_MFC_CARCREF_P_H
#define TAVNOMCL_MFC_CARCREF_P_H

#include "mcl/mfc_carccore_p.h"

struct VELM_LOCAL VELM_CReference {
    enum Kind { nullObject, object, knownClass, newClass };

    Kind kind;
    uint32_t nIndex; // the index of an object or of a known class

    void Store(VELM_CArchive& ar) const
    {
        const bool bShort = nIndex < VELM_CArchive::wBigObjectTag;
        if ((kind == object || kind == knownClass) && !bShort)
            ar.Store32(VELM_CArchive::wBigObjectTag);
        ar.Store32(kind == object       ? nIndex
                   : kind == knownClass ? nIndex | (bShort ? VELM_CArchive::wClassTag : VELM_CArchive::dwBigClassTag)
                   : kind == newClass   ? uint32_t{VELM_CArchive::wNewClassTag}
                                        : uint32_t{VELM_CArchive::wNullTag});
    }

    // The same for an object or a known class, straight into a buffer with room for 8 bytes. The tags are set in the
    // short form and in the long form of the index.
    static void StoreAt(unsigned char*& rlpTo, uint32_t nIndex, uint32_t nTag, uint32_t nBigTag)
    {
        if (nIndex < VELM_CArchive::wBigObjectTag) {
            Put(rlpTo, nIndex | nTag);
            rlpTo += 4;
        } else {
            Put(rlpTo, VELM_CArchive::wBigObjectTag);
            Put(rlpTo + 4, nIndex | nBigTag);
            rlpTo += 8;
        }
    }
    static void Put(unsigned char* p, uint32_t n)
    {
        p[0] = static_cast<unsigned char>(n);
        p[1] = static_cast<unsigned char>(n >> 8);
        p[2] = static_cast<unsigned char>(n >> 16);
        p[3] = static_cast<unsigned char>(n >> 24);
    }

    // Raises 3 when the data ends, and 5 for a tag that is never stored. Returns false if the raise returns.
    __attribute__((always_inline)) bool Load(VELM_CArchive& ar)
    {
        VELM_CArchiveState& state = VELM_CArchiveState::Of(ar);
        const unsigned long long nOffset = state.Offset();
        uint32_t nTag = 0;
        bool bWhole = ar.Load32(nTag) != 0;
        nIndex = nTag;
        if (bWhole && nTag == VELM_CArchive::wBigObjectTag) {
            bWhole = ar.Load32(nIndex) != 0;
            kind = (nIndex & VELM_CArchive::dwBigClassTag) != 0 ? knownClass : object;
            nIndex &= ~uint32_t{VELM_CArchive::dwBigClassTag};
        } else if (nTag == VELM_CArchive::wNullTag) {
            kind = nullObject;
        } else if (nTag < VELM_CArchive::wBigObjectTag) {
            kind = object;
        } else if (nTag == VELM_CArchive::wNewClassTag) {
            kind = newClass;
        } else if (nTag > VELM_CArchive::wClassTag && nTag < VELM_CArchive::wNewClassTag) {
            kind = knownClass;
            nIndex = nTag - VELM_CArchive::wClassTag;
        } else if (bWhole) {
            state.Fail(VELM_CArchiveException::causeBadIndex, nOffset, "tag %u is no reference", nTag);
            return false;
        }
        if (!bWhole)
            ar.RaiseDataEnded();
        return bWhole;
    }
};

#endif
