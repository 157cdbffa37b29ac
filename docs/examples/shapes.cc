// Shapes of several classes, stored in memory and loaded back with a report of how far that is.
#include <stdio.h>

#include <mcl/mfc_std.h>
#include <mcl/tavnomcl.h>

// What all shapes have. There are no objects of this class itself.
class Shape : public VELM_CObject {
public:
    static VELM_CRuntimeClass classRecord;
    std::string name;

    virtual double GetArea() const = 0;
    void Serialize(VELM_CArchive& ar) override { ar & name; }
};

class Circle : public Shape {
public:
    static VELM_CRuntimeClass classRecord;
    double radius;

    explicit Circle(double r = 0) : radius(r) {}
    double GetArea() const override { return 3.14159265 * radius * radius; }
    VELM_CRuntimeClass* GetRuntimeClass() const override { return &classRecord; }
    void Serialize(VELM_CArchive& ar) override
    {
        Shape::Serialize(ar); // the base first, in both directions
        ar & radius;
    }
};

class Rect : public Shape {
public:
    static VELM_CRuntimeClass classRecord;
    double width, height;

    explicit Rect(double w = 0, double h = 0) : width(w), height(h) {}
    double GetArea() const override { return width * height; }
    VELM_CRuntimeClass* GetRuntimeClass() const override { return &classRecord; }
    void Serialize(VELM_CArchive& ar) override
    {
        Shape::Serialize(ar);
        ar & width & height;
    }
};

VELM_CRuntimeClass Shape::classRecord = {"Shape", 0, 1};
VELM_CRuntimeClass Circle::classRecord = {"Circle", 0, 1};
VELM_CRuntimeClass Rect::classRecord = {"Rect", 0, 1};

typedef std::vector<std::unique_ptr<Shape>> Shapes;

// Called with the number of bytes that went through the file.
static void ShowProgress(void*, unsigned long long nDone, unsigned long long nTotal)
{
    printf("%llu %%\n", 100 * nDone / nTotal);
}

// Stores the shapes in the file. Returns whether all of them are there.
static bool Store(VELM_CFile& file, Shapes& shapes)
{
    VELM_CArchive ar(&file, VELM_CArchive::store);
    const int nRaised = pfm_protect([&] {
        ar << AfxOwned(shapes);
        ar.Close(); // now the file has all that the archive kept in its buffer
    });
    if (nRaised == 0 && ar.IsWhole())
        return true;
    printf("raise %d: %s\n", nRaised, ar.GetErrorText());
    ar.Abort();
    return false;
}

// Loads the shapes from the file. Returns whether all came; if not, none is left.
static bool Load(VELM_CFile& file, const VELM_CClassTable& classes, Shapes& shapes)
{
    VELM_CArchive ar(&file, VELM_CArchive::load, 8192);
    ar.SetClassTable(&classes);
    if (pfm_protect([&] { ar >> AfxOwned(shapes); }) == 0 && ar.AreOwnersComplete())
        return true;
    printf("%s\n", ar.GetErrorText());
    ar.DeleteLoadedObjects(); // what nobody owns
    shapes.clear();
    return false;
}

int main()
{
    AfxSetNotices(0);
    VELM_CClassTable classes;
    classes.Add(&Shape::classRecord, NULL); // abstract
    classes.Add<Circle>(&Circle::classRecord, &Shape::classRecord);
    classes.Add<Rect>(&Rect::classRecord, &Shape::classRecord);

    Shapes shapes;
    for (int i = 0; i < 500; ++i) {
        shapes.emplace_back(new Circle(i));
        shapes.emplace_back(new Rect(i, 2 * i));
    }
    VELM_CMemoryFile memory;
    if (!Store(memory, shapes))
        return 1;
    printf("%lu bytes\n", memory.GetSize());

    VELM_CMemoryFile bytes(memory.GetBytes(), memory.GetSize()); // such as those that came by a network
    VELM_CProgressFile watched(&bytes, bytes.GetSize(), ShowProgress);
    Shapes loaded;
    if (!Load(watched, classes, loaded))
        return 1;
    printf("%.1f and %.1f\n", loaded[2]->GetArea(), loaded[3]->GetArea());
    return 0;
}
