// A program with host routines of its own, and what the library says of itself.
#include <stdio.h>
#include <stdlib.h>

#include <mcl/tavnomcl.h>

// Both take the place of the host library's, for every caller in the process.
void pfm_assert_fail(const char* lpszText, const char*, int)
{
    printf("check failed: %s\n", lpszText);
}

void pfm_raise(int code)
{
    printf("raise %d\n", code);
    exit(0);
}

int main()
{
    char line[256];
    libtavnomcl_sprintf_verid(line);
    printf("%.11s is %s\n", line, tavnotavnomcldll_init ? "registered" : "not registered");

    const VELM_CString text("abc");
    text.GetAt(3);
    AfxThrowNotSupportedException();
    return 1; // not reached
}
