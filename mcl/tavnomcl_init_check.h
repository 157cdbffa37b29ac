/// \file
/// Load-time registration.
#ifndef TAVNOMCL_TAVNOMCL_INIT_CHECK_H
#define TAVNOMCL_TAVNOMCL_INIT_CHECK_H

#include "mcl/mfc_base.h"

/// \addtogroup frame
/// \{

/// A registration object: its construction says that a component has been loaded.
class VELM_API tavnomcl_dll {
public:
    const char* dll_name; ///< The component's short name; not owned.

    /// Keeps the name, prints "Tavno dll %s is initialized.\n" with it on standard error when the environment variable
    /// TAVNO_DLL_CHECK is set, and sets `tavnotavnomcldll_init`.
    explicit tavnomcl_dll(const char* name);
    ~tavnomcl_dll();
};

extern "C" {
/// The library's own registration, constructed when it is loaded.
extern VELM_API tavnomcl_dll tavnomcl_dll_init_check;
/// 1 once a registration object has been constructed.
extern VELM_API int tavnotavnomcldll_init;
}

/// \}

#endif
