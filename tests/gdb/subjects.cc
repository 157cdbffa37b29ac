// Known objects, sound and damaged, for the test of the GDB pretty-printers.
#include <sys/mman.h>
#include <unistd.h>

#include <climits>
#include <cstring>

#include <mcl/tavnomcl.h>

// Room for an object whose bytes are all the same.
template <class TYPE, int BYTE> union Filled {
    char bytes[sizeof(TYPE)];
    TYPE object;
    Filled() { memset(bytes, BYTE, sizeof bytes); }
    ~Filled() {}
};

struct Person : VELM_CString {
    using VELM_CString::VELM_CString;
    int age = 7;
};

VELM_CString emptyText, text("caf\xc3\xa9 \"x\"\n"), nulText("a\0b\0", 4), longText, *noText;
const VELM_CString& textRef = text;
typedef const VELM_CString Text;
Text constText("const");
Person person("Ada");
fxStr emptyFx, fx("gnat");

VELM_CTime epoch(0), billion(1000000000), before(-1);
VELM_CTimeSpan zeroSpan(0), span(2 * 86400 + 3 * 3600 + 4 * 60 + 5), minusSpan(-3601);
VELM_CTime farTime(LONG_MAX);

VELM_CPtrArray emptyPointers, pointers;
VELM_CStringArray emptyStrings, strings;
VELM_CObject objectOne, objectTwo;
VELM_CObArray emptyObjects, objects;

VELM_CMapPtrToPtr emptyMap, map, clearedMap;
VELM_CMapTable<VELM_CPtrAssoc, void*>& mapTable = map;
VELM_CMap<fxStr, char*, int, int> counts;
VELM_CMapTable<VELM_CMapAssoc<fxStr, char*, int>, char*>& countTable = counts;
VELM_CMap<fxStr, const char*, int, int> constCounts;
VELM_CMap<int, int, VELM_CString, const char*> names;
unsigned key0 = 0, key1 = 0x10, key18 = 0x120; // in buckets 0, 1 and 1 of 17

// Damaged. None is ever destroyed: the program ends by _exit.
Filled<VELM_CString, 0> zeroString;
Filled<VELM_CString, 0x11> wildString;
Filled<VELM_CString, 0xA5> freedString;
Filled<VELM_CString, 0> negativeString, hugeString, openString;
Filled<fxStr, 0x11> wildFx;
Filled<VELM_CPtrArray, 0x11> wildPointers;
Filled<VELM_CPtrArray, 0xA5> freedPointers;
Filled<VELM_CPtrArray, 0> overfullPointers, tornPointers, noPointers;
Filled<VELM_CStringArray, 0x11> wildStrings;
Filled<VELM_CStringArray, 0> halfStrings;
Filled<VELM_CObArray, 0x11> wildObjects;
Filled<VELM_CMapPtrToPtr, 0x11> wildMap;
Filled<VELM_CMapPtrToPtr, 0xA5> freedMap;
VELM_CMapPtrToPtr cyclicMap, strayMap, shortMap, longMap, hugeMap, tablelessMap, misplacedMap;

extern "C" __attribute__((noinline)) void marker()
{
    asm volatile("");
}

static void FillMap(VELM_CMapPtrToPtr& m)
{
    m[&key1] = reinterpret_cast<void*>(0x1000);
    m[&key18] = NULL;
    m[&key0] = reinterpret_cast<void*>(0x3000);
}

int main()
{
    char buffer[301];
    memset(buffer, 'x', 300);
    longText.Set(buffer, 300);

    pointers.SetSize(3, 8);
    pointers.SetAt(0, reinterpret_cast<void*>(0x10));
    pointers.SetAt(2, &key0);
    strings.Add("one");
    strings.Add("");
    strings.Add("three");
    objects.InsertAt(0, &objectOne);
    objects.InsertAt(1, &objectTwo);
    objects.InsertAt(1, static_cast<VELM_CObject*>(NULL)); // leaves the free room before the last element

    FillMap(map);
    unsigned nHash;
    map.GetAssocAt(&key18, nHash)->nValue = 5;
    FillMap(clearedMap);
    clearedMap.RemoveAll();
    char a[] = "a", r[] = "r", b[] = "b"; // hash to 97, 114 and 98: buckets 12, 12 and 13 of 17
    counts[b] = 2;
    counts[a] = 1;
    counts[r] = -3;
    constCounts["only"] = 4;
    names[0x20] = "two";
    names[0x10] = "one";

    char* pText = text.m_data;
    const int nHuge = 0x7fffffff;
    negativeString.object.m_data = hugeString.object.m_data = openString.object.m_data = pText;
    negativeString.object.m_len = -1;
    hugeString.object.m_len = nHuge;
    openString.object.m_len = 3;
    overfullPointers.object.m_data = noPointers.object.m_data = pointers.m_data;
    overfullPointers.object.m_size = 4;
    overfullPointers.object.m_max_size = 3;
    noPointers.object.m_data = NULL;
    noPointers.object.m_size = noPointers.object.m_max_size = 2;
    // Two elements, a page that is not there, and the rest.
    const int nTorn = 20000;
    const size_t nPage = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    char* pPages = static_cast<char*>(
        mmap(NULL, nPage + nTorn * sizeof(void*), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    munmap(pPages + nPage, nPage);
    tornPointers.object.m_data = reinterpret_cast<void**>(pPages + nPage) - 2;
    tornPointers.object.m_size = tornPointers.object.m_max_size = nTorn;
    halfStrings.object.m_data = &wildString.object;
    halfStrings.object.m_size = halfStrings.object.m_max_size = 1;

    VELM_CMapPtrToPtr* const damaged[] = {&cyclicMap, &strayMap,     &shortMap,    &longMap,
                                          &hugeMap,   &tablelessMap, &misplacedMap};
    for (VELM_CMapPtrToPtr* p : damaged)
        FillMap(*p);
    cyclicMap.GetAssocAt(&key1, nHash)->pNext = cyclicMap.GetAssocAt(&key18, nHash);
    cyclicMap.m_nCount = nHuge;
    strayMap.GetAssocAt(&key18, nHash)->pNext = reinterpret_cast<VELM_CPtrAssoc*>(0x11111110);
    shortMap.m_nCount = 2;
    longMap.m_nCount = 4;
    hugeMap.m_nHashTableSize = 0xffffffff;
    tablelessMap.m_pHashTable = NULL;
    misplacedMap.GetAssocAt(&key18, nHash)->nHashValue = 9;

    marker();
    _exit(0);
}
