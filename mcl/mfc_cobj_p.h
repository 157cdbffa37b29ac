// What the root class shares with the rest of the library; private to the library.
#ifndef TAVNOMCL_MFC_COBJ_P_H
#define TAVNOMCL_MFC_COBJ_P_H

#include "mcl/mfc_cobj.h"

// Prints a notice on standard output, unless notices are switched off.
VELM_LOCAL void AfxNotice(const char* lpsz);

// Stores 8 zero bytes for each of nCount plain objects, or loads as many and ignores them, by one transfer.
VELM_LOCAL void AfxSerializeImages(VELM_CArchive& ar, int nCount);

#endif
