// A separate application: uses an installed library through the umbrella header alone.
#include <mcl/tavnomcl.h>

#include <cstdio>

class Circle : public VELM_CObject {
public:
    static VELM_CRuntimeClass record;
    unsigned radius;

    explicit Circle(unsigned nRadius = 0) : radius(nRadius) {}
    VELM_CRuntimeClass* GetRuntimeClass() const override { return &record; }
    void Serialize(VELM_CArchive& ar) override
    {
        if (ar.IsStoring())
            ar << radius;
        else
            ar >> radius;
    }
};

VELM_CRuntimeClass Circle::record = {"Circle", 0, 1};

#ifdef OWN_HOST
// The application's own routines, in place of the host library's.
void pfm_assert_fail(const char* lpszText, const char* lpszFile, int)
{
    std::printf("own assert: %s: %s\n", lpszFile, lpszText);
}

void pfm_raise(int code)
{
    std::printf("own raise: %d\n", code);
}
#endif

int main(int, char** argv)
{
    VELM_CFile file;
    if (!file.Open(argv[1], 0x0001))
        return 1;
    VELM_CArchive storing(&file, VELM_CArchive::store);
    const Circle circle(7);
    storing.WriteObject(&circle);
    storing.Close();

    file.Open(argv[1]);
    VELM_CArchive loading(&file, VELM_CArchive::load);
    VELM_CClassTable table;
    table.Add<Circle>(&Circle::record);
    loading.SetClassTable(&table);
    std::printf("radius %u\n", static_cast<Circle*>(loading.ReadObject(&Circle::record))->radius);
    loading.DeleteLoadedObjects();

    VELM_CPtrArray().GetAt(3);
    VELM_CString().GetAt(3);
    const int nRaised = pfm_protect([&] { loading.ReadObject(NULL); });
    std::printf("raised %d: %s\n", nRaised, loading.GetErrorText());
    std::printf("registered as %s: %d\n", tavnomcl_dll_init_check.dll_name, tavnotavnomcldll_init);
    return 0;
}
