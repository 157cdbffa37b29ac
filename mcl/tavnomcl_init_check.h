/// \file
/// The registration of a component when it is loaded.
#ifndef TAVNOMCL_TAVNOMCL_INIT_CHECK_H
#define TAVNOMCL_TAVNOMCL_INIT_CHECK_H

#include "mcl/mfc_base.h"

/// \addtogroup frame
/// \{

/// A registration object, which a component constructs when it is loaded.
class VELM_API tavnomcl_dll {
public:
    const char* dll_name; ///< The component's short name, which the object does not own.

    /// Keeps the pointer to the name and sets `tavnotavnomcldll_init` to 1. If the environment variable TAVNO_DLL_CHECK
    /// is set, it first prints "Tavno dll %s is initialized.\n" with the name on standard error.
    explicit tavnomcl_dll(const char* name);
    ~tavnomcl_dll();
};

extern "C" {
/// The library's own registration object, which is constructed when the library is loaded.
extern VELM_API tavnomcl_dll tavnomcl_dll_init_check;
/// 0 at first; 1 after a registration object has been constructed.
extern VELM_API int tavnotavnomcldll_init;
}

/// \}

#endif
