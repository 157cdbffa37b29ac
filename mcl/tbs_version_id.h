/// \file
/// Version identification: one line of the component's name, version, build comment (if any) and build date.
#ifndef TAVNOMCL_TBS_VERSION_ID_H
#define TAVNOMCL_TBS_VERSION_ID_H

#include "mcl/mfc_base.h"

/// \addtogroup frame
/// \{

extern "C" {
/// Prints the version line through `imsg_print`, and returns its result.
VELM_API int libtavnomcl_print_verid(void);
/// Formats the version line into the buffer through `imsg_sprintf`, and returns its result. The line is 38 characters
/// longer than version and date together; with a build comment, 3 more and the comment's length.
VELM_API int libtavnomcl_sprintf_verid(char* buffer);
}

/// \}

#endif
