// What stands at the start of an object or of a class in the stream: one value, with its store and its load side;
// private to the library.
//
//     nullObject            wNullTag
//     object      n         n             below wBigObjectTag, else     wBigObjectTag, n
//     knownClass  n         n | wClassTag below wBigObjectTag, else     wBigObjectTag, n | dwBigClassTag
//     newClass              wNewClassTag, and the class record follows
//
// Behind a class come the data of a new object of it.
#ifndef TAVNOMCL_MFC_CARCREF_P_H
#define TAVNOMCL_MFC_CARCREF_P_H

#include "mcl/mfc_carccore_p.h"

struct VELM_LOCAL VELM_CReference {
    enum Kind { nullObject, object, knownClass, newClass };

    Kind kind;
    uint32_t nIndex; // of an object or a known class

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

    // The same of an object or a known class where 8 bytes have room, with the tags of the kind.
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

    // False after a raise that returned: 3 when the data ends, 5 for a tag that no writer makes.
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
