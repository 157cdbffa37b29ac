// What fails, and how a program goes on.
#include <stdio.h>

#include <mcl/tavnomcl.h>

class Point : public VELM_CObject {
public:
    static VELM_CRuntimeClass classRecord;
    unsigned x = 0, y = 0;

    VELM_CRuntimeClass* GetRuntimeClass() const override { return &classRecord; }
    void Serialize(VELM_CArchive& ar) override { ar & x & y; }
};

VELM_CRuntimeClass Point::classRecord = {"Point", 0, 1};

// Loads a point from the file, and says how that went.
static void Load(const char* lpszFile, const VELM_CClassTable& classes)
{
    VELM_CFile file;
    if (!file.Open(lpszFile))
        return;
    VELM_CArchive ar(&file, VELM_CArchive::load);
    ar.SetClassTable(&classes);
    // A raise leaves the body without destructors: file and ar are outside of it.
    const int nRaised = pfm_protect([&] { ar.ReadObject(&Point::classRecord); });
    if (nRaised == 0)
        printf("loaded\n");
    else
        printf("raise %d: %s\n", nRaised, ar.GetErrorText());
    ar.DeleteLoadedObjects();
}

// Stores the point. Returns whether every byte is in the file, and on the disk; else the old file is as it was.
static bool Store(const char* lpszFile, const Point& point)
{
    VELM_CSaveFile file;
    if (!file.Open(lpszFile))
        return false;
    VELM_CArchive ar(&file, VELM_CArchive::store);
    // Close hands the last bytes to the file.
    if (pfm_protect([&] { ar.WriteObject(&point), ar.Close(); }) != 0) {
        ar.Abort(); // the old file stays
        return false;
    }
    if (file.Commit())
        return true;
    printf("%s\n", file.GetErrorText().m_data);
    return false;
}

int main()
{
    // A broken precondition is reported on standard error, and the call does nothing.
    VELM_CPtrArray array;
    if (array.GetAt(3) == NULL)
        printf("no element 3\n");

    // A failed transfer is kept in VELM_CFile::ERROR_CODE.
    Point point;
    printf("stored: %d\n", Store("point.archive", point));
    printf("stored on a full disk: %d\n", Store("/dev/full", point));

    // What an archive cannot do raises.
    VELM_CClassTable classes, none;
    classes.Add<Point>(&Point::classRecord);
    Load("point.archive", classes);
    Load("point.archive", none);
    VELM_CFile file;
    if (file.Open("point.archive", 1)) // emptied
        Load("point.archive", classes);

    // A program may raise codes of its own, and survive them in the innermost protected stretch.
    const int nOuter = pfm_protect([] {
        const int nInner = pfm_protect([] { pfm_raise(42); });
        printf("inner %d\n", nInner);
        pfm_raise(43);
    });
    printf("outer %d\n", nOuter);
    return 0;
}
