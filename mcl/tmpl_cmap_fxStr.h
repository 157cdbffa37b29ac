/// \file
/// Includes `mfc_cmap.h`, which declares the two exported maps from `fxStr` to `int`.
#ifndef TAVNOMCL_TMPL_CMAP_FXSTR_H
#define TAVNOMCL_TMPL_CMAP_FXSTR_H

#include "mcl/mfc_cmap.h"

#endif
