/// \file
/// The two maps from strings to ints that the library exports; `mfc_cmap.h` declares them.
#ifndef TAVNOMCL_TMPL_CMAP_FXSTR_H
#define TAVNOMCL_TMPL_CMAP_FXSTR_H

#include "mcl/mfc_cmap.h"

#endif
