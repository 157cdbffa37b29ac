// Stores the graph of docs/archive-format.md, and prints the bytes of its archive as one line of hex digits.
#include <stdio.h>
#include <unistd.h>

#include <mcl/tavnomcl.h>

class City : public VELM_CObject {
public:
    static VELM_CRuntimeClass classRecord;
    VELM_CString name;
    unsigned population;
    VELM_CPtrArray roads; // of City, not owned

    City(const char* lpszName, unsigned nPopulation) : name(lpszName), population(nPopulation) {}
    VELM_CRuntimeClass* GetRuntimeClass() const override { return &classRecord; }
    void Serialize(VELM_CArchive& ar) override
    {
        ar << name << population;
        ar.WriteCount(static_cast<unsigned long>(roads.GetSize()));
        for (int i = 0; i < roads.GetSize(); ++i)
            ar.WriteObject(static_cast<City*>(roads.GetAt(i)));
    }
};

VELM_CRuntimeClass City::classRecord = {"City", 0, 1};

// A file whose bytes go to a stream as hex digits.
class HexFile : public VELM_CFile {
public:
    explicit HexFile(FILE* pStream) : m_pHex(pStream) {}
    void Write(const void* lpBuf, unsigned nCount) override
    {
        for (unsigned i = 0; i < nCount; ++i)
            fprintf(m_pHex, "%02X", static_cast<const unsigned char*>(lpBuf)[i]);
    }

private:
    FILE* m_pHex;
};

int main()
{
    // The library prints a notice on stdout when it stores its first object; it is of no use here.
    FILE* pOut = fdopen(dup(STDOUT_FILENO), "w");
    if (pOut == NULL || freopen("/dev/null", "w", stdout) == NULL)
        return 1;

    City oslo("Oslo", 709000), bergen("Bergen", 294000);
    oslo.roads.SetAtGrow(0, &bergen);
    bergen.roads.SetAtGrow(0, &oslo);
    bergen.roads.SetAtGrow(1, NULL);

    HexFile file(pOut);
    VELM_CArchive ar(&file, VELM_CArchive::store);
    ar.WriteCount(2);
    ar.WriteObject(&oslo);
    ar.WriteObject(&bergen);
    ar.Close();
    fprintf(pOut, "\n");
    return fclose(pOut) == 0 ? 0 : 1;
}
