#include "mcl/tavnomcl_init_check.h"

#include <cstdio>
#include <cstdlib>

int tavnotavnomcldll_init = 0;

tavnomcl_dll tavnomcl_dll_init_check("tavnomcl");

tavnomcl_dll::tavnomcl_dll(const char* name) : dll_name(name)
{
    if (std::getenv("TAVNO_DLL_CHECK") != nullptr)
        std::fprintf(stderr, "Tavno dll %s is initialized.\n", name);
    tavnotavnomcldll_init = 1;
}

// Exported, and runs when the library is unloaded; there is nothing to do.
tavnomcl_dll::~tavnomcl_dll()
{
}
