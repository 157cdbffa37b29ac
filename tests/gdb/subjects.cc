// Known objects for the test of the GDB pretty-printers, which also damages them.
#include <unistd.h>

#include <climits>

#include <mcl/tavnomcl.h>

struct Person : VELM_CString {
    using VELM_CString::VELM_CString;
    int age = 7;
};

VELM_CString emptyText, text("caf\xc3\xa9 \"x\"\n"), nulText("a\0b\0", 4), longText;
const VELM_CString& textRef = text;
Person person("Ada");
fxStr emptyFx, fx("gnat");
VELM_CTime billion(1000000000), before(-1), farTime(LONG_MAX);
VELM_CTimeSpan span(2 * 86400 + 3 * 3600 + 4 * 60 + 5), minusSpan(-3601);
VELM_CPtrArray emptyPointers, pointers;
VELM_CStringArray strings;
VELM_CObject objectOne, objectTwo;
VELM_CObArray objects;
VELM_CMapPtrToPtr emptyMap, map;
VELM_CMapTable<VELM_CPtrAssoc, void*>& mapTable = map;
VELM_CMap<fxStr, char*, int, int> counts;
VELM_CMap<int, int, VELM_CString, const char*> names;
unsigned key0 = 0, key1 = 0x10, key18 = 0x120; // in buckets 0, 1 and 1 of 17

extern "C" __attribute__((noinline)) void marker()
{
    asm volatile("");
}

int main()
{
    for (int i = 0; i < 300; ++i)
        longText += "x";
    pointers.SetSize(3, 8);
    pointers.SetAt(0, reinterpret_cast<void*>(0x10)), pointers.SetAt(2, &key0);
    strings.Add("one"), strings.Add(""), strings.Add("three");
    objects.InsertAt(0, &objectOne), objects.InsertAt(1, &objectTwo);
    objects.InsertAt(1, static_cast<VELM_CObject*>(NULL)); // leaves the free room before the last element
    map[&key1] = reinterpret_cast<void*>(0x1000), map[&key18] = NULL, map[&key0] = reinterpret_cast<void*>(0x3000);
    unsigned nHash;
    map.GetAssocAt(&key18, nHash)->nValue = 5;
    char a[] = "a", r[] = "r"; // in bucket 12 of 17
    counts[a] = 1, counts[r] = -3, names[0x20] = "two", names[0x10] = "one";
    marker();
    _exit(0); // what is damaged is never destroyed
}
