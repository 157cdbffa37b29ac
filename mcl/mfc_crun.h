/// \file
/// Class records.
#ifndef TAVNOMCL_MFC_CRUN_H
#define TAVNOMCL_MFC_CRUN_H

#include "mcl/mfc_base.h"

/// \addtogroup archives
/// \{

class VELM_CArchive;

/// The record of a serialisable class: defined by callers, once for each class, as in
///
///     static VELM_CRuntimeClass circleClass = {"Circle", 0, 1};
///
/// and handed out by the class's `GetRuntimeClass`. It outlives every archive that its objects go through.
struct VELM_API VELM_CRuntimeClass {
    enum : unsigned { nNoSchema = 0xFFFF }; ///< The schema of a class whose objects cannot go through an archive.

    const char* m_pszName; ///< The class name that is stored; not owned.
    unsigned m_nClassInfo; ///< The caller's; not used by the library.
    unsigned m_nSchema;    ///< The version of the stored form, or `nNoSchema`.

    /// Writes the class record: schema, length of the name, name. Asserts "m_pszName != NULL" and
    /// "nLength <= 0xFFFFFFFF"; after a failure nothing is written.
    void Store(VELM_CArchive& ar) const;
    /// Reads a class record, stores its schema through `pwSchemaNum`, and returns the class that the archive's class
    /// table has under the name. Raises 3 when the data ends, and 1 for a class or a schema that the table does not
    /// have.
    ///
    /// Without a class table: reads and drops the two 32-bit values before the name, stores 0 and returns NULL.
    static VELM_CRuntimeClass* Load(VELM_CArchive& ar, unsigned* pwSchemaNum);
};

/// \}

#endif
