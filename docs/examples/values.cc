// Strings and times.
#include <stdio.h>

#include <mcl/tavnomcl.h>

int main()
{
    VELM_CString greeting("Hello");
    VELM_CString copy = greeting; // each string owns its text
    greeting += ", world";
    greeting.Concat("!!", 1);
    printf("%s (%d bytes), %s\n", greeting.m_data, greeting.GetLength(), copy.m_data);
    printf("'w' at %d, \"lo\" at %d, \"xyz\" at %d\n", greeting.Find('w'), greeting.Find("lo"), greeting.Find("xyz"));
    if (copy < greeting && copy != "hello")
        printf("compared byte by byte\n");

    const VELM_CTime start(86400L * 365); // 1 January 1971, 0:00 UTC
    const VELM_CTimeSpan span(2 * 86400 + 3 * 3600 + 4 * 60 + 5);
    VELM_CTime end = start;
    end += span;
    struct tm utc;
    end.GetGmtTm(&utc);
    printf("%d-%02d-%02d %02d:%02d:%02d UTC\n", utc.tm_year + 1900, utc.tm_mon + 1, utc.tm_mday, utc.tm_hour,
           utc.tm_min, utc.tm_sec);
    const VELM_CTimeSpan difference = end - start;
    printf("%ld days, %d hours, %d minutes, %d seconds; %ld hours in all\n", difference.GetDays(),
           difference.GetHours(), difference.GetMinutes(), difference.GetSeconds(), difference.GetTotalHours());
    return 0;
}
