/// \file
/// The two maps from strings to ints that the library exports.
#ifndef TAVNOMCL_TMPL_CMAP_FXSTR_H
#define TAVNOMCL_TMPL_CMAP_FXSTR_H

#include "mcl/mfc_cmap.h"

extern template class VELM_CMapTable<VELM_CMapAssoc<fxStr, char*, int>, char*>;
extern template class VELM_CMapTable<VELM_CMapAssoc<fxStr, const char*, int>, const char*>;
extern template class VELM_CMap<fxStr, char*, int, int>;
extern template class VELM_CMap<fxStr, const char*, int, int>;

#endif
