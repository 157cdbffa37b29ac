/// \file
/// Class records.
#ifndef TAVNOMCL_MFC_CRUN_H
#define TAVNOMCL_MFC_CRUN_H

#include "mcl/mfc_base.h"

/// \addtogroup archives
/// \{

class VELM_CArchive;

/// The record of a serialisable class: the name and the version that are stored with its objects.
///
/// A program defines one record for each class, and the class's `GetRuntimeClass` returns its address:
///
///     static VELM_CRuntimeClass circleClass = {"Circle", 0, 1};
///
/// The record must outlive every archive that stores or loads objects of the class.
struct VELM_API VELM_CRuntimeClass {
    enum : unsigned { nNoSchema = 0xFFFF }; ///< The schema of a class whose objects cannot go through an archive.

    const char* m_pszName; ///< The class name that is stored; not owned.
    unsigned m_nClassInfo; ///< For the program's own use; the library ignores it.
    unsigned m_nSchema;    ///< The version of the stored form, or `nNoSchema`.

    /// Stores the class record: the schema, the length of the name, and the name. Asserts "m_pszName != NULL" and
    /// "nLength <= 0xFFFFFFFF", where `nLength` is the length of the name. When one of these fails, nothing is stored,
    /// and the archive is not whole (see `VELM_CArchive::IsWhole`).
    void Store(VELM_CArchive& ar) const;
    /// Loads a class record. Returns the class that the archive's class table has under the stored name, and the stored
    /// schema through `pwSchemaNum`, which may be NULL. Raises 3 when the data ends. Raises 1 when the table has no
    /// class of that name, when the stored schema is newer than the table's, and when either of them is `nNoSchema`. If
    /// the raise returns, the result is NULL and `*pwSchemaNum` keeps its value.
    ///
    /// Without a class table: reads and drops the two 32-bit values before the name, delivers the schema 0, and returns
    /// NULL. Raises 3 when the data ends.
    static VELM_CRuntimeClass* Load(VELM_CArchive& ar, unsigned* pwSchemaNum);
};

/// \}

#endif
