// The notices of the library; private to it.
#ifndef TAVNOMCL_MFC_COBJ_P_H
#define TAVNOMCL_MFC_COBJ_P_H

#include "mcl/mfc_base.h"

// Prints it on standard output, unless notices are switched off.
VELM_LOCAL void AfxNotice(const char* lpsz);

#endif
