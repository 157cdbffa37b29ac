/// \file
/// The header that includes every class of the library, except for the support of standard containers in `mfc_std.h`.
#ifndef TAVNOMCL_TAVNOMCL_H
#define TAVNOMCL_TAVNOMCL_H

#include "mcl/mfc_carccore.h"
#include "mcl/mfc_carcex.h"
#include "mcl/mfc_carcform.h"
#include "mcl/mfc_carcnum.h"
#include "mcl/mfc_carcown.h"
#include "mcl/mfc_cclass.h"
#include "mcl/mfc_cdoc.h"
#include "mcl/mfc_cfile.h"
#include "mcl/mfc_cmap.h"
#include "mcl/mfc_cmemfile.h"
#include "mcl/mfc_cobj.h"
#include "mcl/mfc_coll.h"
#include "mcl/mfc_cplex.h"
#include "mcl/mfc_cprogfile.h"
#include "mcl/mfc_crun.h"
#include "mcl/mfc_csavefile.h"
#include "mcl/mfc_cstring.h"
#include "mcl/mfc_memory.h"
#include "mcl/mfc_template.h"
#include "mcl/mfc_time.h"
#include "mcl/tavnomcl_init_check.h"
#include "mcl/tbs_version_id.h"
#include "mcl/tmpl_cmap_fxStr.h"

#endif
