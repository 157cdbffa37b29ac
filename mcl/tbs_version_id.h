/// \file
/// The version line: the component's name, version, build comment (if any) and build date.
#ifndef TAVNOMCL_TBS_VERSION_ID_H
#define TAVNOMCL_TBS_VERSION_ID_H

#include "mcl/mfc_base.h"

/// \addtogroup frame
/// \{

extern "C" {
/// Prints the version line through `imsg_print`, and returns the result of that call.
VELM_API int libtavnomcl_print_verid(void);
/// Formats the version line into `buffer` through `imsg_sprintf`, and returns the result of that call. The buffer must
/// have room for the line and a final NUL. The line has 38 characters more than the version and the build date
/// together; a build comment adds its length and 3.
VELM_API int libtavnomcl_sprintf_verid(char* buffer);
}

/// \}

#endif
