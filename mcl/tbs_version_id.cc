// The build defines TAVNOMCL_VERSION, TAVNOMCL_BUILD_COMMENT and TAVNOMCL_BUILD_DATE.
#include "mcl/tbs_version_id.h"

#include <cstring>

#include "host/imsg.h"

const int nNameWidth = 33;
static const char componentName[] = "libtavnomcl";
static const char version[] = TAVNOMCL_VERSION;
static const char buildComment[] = TAVNOMCL_BUILD_COMMENT;
static const char buildDate[] = TAVNOMCL_BUILD_DATE;

// Calls emit with the format of the version line and its operands, and returns its result.
template <class Emit> static int Identify(Emit emit)
{
    if (std::strlen(buildComment) != 0)
        return emit("%-*s %s \"%s\" (%s)\n", nNameWidth, componentName, version, buildComment, buildDate);
    return emit("%-*s %s (%s)\n", nNameWidth, componentName, version, buildDate);
}

int libtavnomcl_print_verid(void)
{
    return Identify([](const char* format, auto... operands) { return imsg_print(0, format, -1, operands...); });
}

int libtavnomcl_sprintf_verid(char* buffer)
{
    return Identify(
        [=](const char* format, auto... operands) { return imsg_sprintf(buffer, format, -1, operands...); });
}
