// Arrays of pointers, strings and objects, and maps.
#include <stdio.h>

#include <mcl/tavnomcl.h>

// A map of one's own: from int to VELM_CString. The element helpers fit both types as they are.
typedef VELM_CMap<int, int, VELM_CString, const char*> Names;

int main()
{
    VELM_CStringArray words;
    words.Add("pear");
    words.Add("apple");
    words.Add("fig");
    VELM_CStringArray sorted;
    words.Sort(sorted); // appends to it
    for (int i = 0; i < sorted.GetSize(); ++i)
        printf("%s ", sorted.ElementAt(i).m_data);
    printf("- fig is number %d of the unsorted\n", words.Find("fig"));

    int numbers[] = {10, 20, 30};
    VELM_CPtrArray pointers; // owns nothing
    for (int& n : numbers)
        pointers.SetAtGrow(pointers.GetSize(), &n);
    pointers.InsertAt(1, &numbers[2]);
    pointers.RemoveAt(0);
    for (int i = 0; i < pointers.GetSize(); ++i)
        printf("%d ", *static_cast<int*>(pointers.GetAt(i)));
    printf("\n");

    VELM_CObject first, second;
    VELM_CObArray objects; // owns nothing
    objects.InsertAt(0, &first, 2);
    objects.InsertAt(1, &second);
    printf("%d objects, the second is %s\n", objects.GetSize(), objects[1] == &second ? "second" : "first");

    VELM_CMap<fxStr, char*, int, int> lengths; // hashes and compares the text of a key
    for (int i = 0; i < words.GetSize(); ++i)
        lengths[words.ElementAt(i).m_data] = words.ElementAt(i).GetLength();
    int nLength = 0;
    char key[] = "apple";
    if (lengths.Lookup(key, nLength))
        printf("%s has %d letters\n", key, nLength);
    int nTotal = 0;
    for (__POSITION* position = lengths.GetStartPosition(); position != NULL;) {
        fxStr word;
        lengths.GetNextAssoc(position, word, nLength);
        nTotal += nLength;
    }
    printf("%d letters in %d words\n", nTotal, lengths.GetCount());

    VELM_CMapPtrToPtr owners; // hashes the 32-bit word that a key points at: it must not change
    owners.SetAt(&numbers[0], &first);
    void* pOwner = NULL;
    printf("10 %s, 20 %s\n", owners.Lookup(&numbers[0], pOwner) ? "found" : "not found",
           owners.Lookup(&numbers[1], pOwner) ? "found" : "not found");

    Names names;
    names.SetAt(7, "seven");
    names.SetAt(8, "eight");
    names.RemoveKey(8);
    printf("%d name, %s\n", names.GetCount(), names[7].m_data);
    return 0;
}
