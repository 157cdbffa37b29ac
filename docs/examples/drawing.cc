// A drawing: shapes in a hierarchy, in groups, with shared styles and named symbols; and files of its older versions.
#include <stdio.h>

#include <mcl/mfc_std.h>
#include <mcl/tavnomcl.h>

namespace drawing {
enum class Cap : unsigned char { Flat, Round, Square };

struct Point { // a plain value
    double x, y;
    void Serialize(VELM_CArchive& ar) { ar & x & y; }
};
} // namespace drawing

template <>
struct VELM_CEnumRange<drawing::Cap> : VELM_CFromTo<drawing::Cap, drawing::Cap::Flat, drawing::Cap::Square> {
};

namespace drawing {
class Style : public VELM_CObject { // which shapes share
public:
    static VELM_CRuntimeClass classRecord;
    unsigned colour;
    Cap cap; // since schema 2

    explicit Style(unsigned nColour = 0, Cap c = Cap::Flat) : colour(nColour), cap(c) {}
    VELM_CRuntimeClass* GetRuntimeClass() const override { return &classRecord; }
    void Serialize(VELM_CArchive& ar) override { ar & colour & AfxSince(2, cap); }
};

class Shape : public VELM_CObject { // what all shapes have; it has versions of its own
public:
    static VELM_CRuntimeClass classRecord;
    std::shared_ptr<Style> style;
    Point at;
    std::string layer; // since version 2
    float opacity;     // since version 3

    Shape(Point p, std::shared_ptr<Style> pStyle) : style(std::move(pStyle)), at(p), opacity(1) {}
    void Serialize(VELM_CArchive& ar) override
    {
        const unsigned nVersion = ar.SerializeVersion("Shape", 3);
        ar & style & at & AfxSince(2, nVersion, layer) & AfxSince(3, nVersion, opacity);
        if (!(opacity >= 0 && opacity <= 1))
            ar.RaiseInvalid("an opacity is not between 0 and 1");
    }
    virtual double Area() const = 0;
};
typedef std::shared_ptr<Style> StylePtr;

class Rect : public Shape {
public:
    static VELM_CRuntimeClass classRecord;
    Point size;

    explicit Rect(Point p = Point(), Point s = Point(), StylePtr pStyle = nullptr) : Shape(p, pStyle), size(s) {}
    VELM_CRuntimeClass* GetRuntimeClass() const override { return &classRecord; }
    void Serialize(VELM_CArchive& ar) override
    {
        Shape::Serialize(ar);
        ar & size;
    }
    double Area() const override { return size.x * size.y; }
};

class RoundRect : public Rect { // a Rect, with one field more
public:
    static VELM_CRuntimeClass classRecord;
    double radius;

    explicit RoundRect(Point p = Point(), Point s = Point(), StylePtr pStyle = nullptr, double r = 0)
        : Rect(p, s, pStyle), radius(r)
    {
    }
    VELM_CRuntimeClass* GetRuntimeClass() const override { return &classRecord; }
    void Serialize(VELM_CArchive& ar) override
    {
        Rect::Serialize(ar);
        ar & radius;
    }
    double Area() const override { return Rect::Area() - 0.858407 * radius * radius; }
};

class Group : public Shape {
public:
    static VELM_CRuntimeClass classRecord;
    std::vector<std::unique_ptr<Shape>> shapes; // each in one group, and none is NULL

    explicit Group(Point p = Point()) : Shape(p, nullptr) {}
    VELM_CRuntimeClass* GetRuntimeClass() const override { return &classRecord; }
    void Serialize(VELM_CArchive& ar) override
    {
        Shape::Serialize(ar);
        ar & AfxOwned(shapes);
    }
    double Area() const override
    {
        double dSum = 0;
        for (const std::unique_ptr<Shape>& pShape : shapes)
            dSum += pShape->Area();
        return dSum;
    }
};

class Drawing : public VELM_CObject {
public:
    static VELM_CRuntimeClass classRecord;
    Group root;
    std::map<std::string, Shape*> symbols; // shapes below the root, by their names
    Shape* selected = nullptr;             // since schema 2: one of these shapes, or NULL
    std::vector<int64_t> saved;            // since schema 3: when, in seconds

    VELM_CRuntimeClass* GetRuntimeClass() const override { return &classRecord; }
    void Serialize(VELM_CArchive& ar) override
    {
        ar & AfxOwned(root.shapes) & symbols & AfxSince(2, selected) & AfxSince(3, saved);
    }
};

VELM_CRuntimeClass Style::classRecord = {"Style", 0, 2}, Shape::classRecord = {"Shape", 0, 1},
                   Rect::classRecord = {"Rect", 0, 1}, RoundRect::classRecord = {"RoundRect", 0, 1},
                   Group::classRecord = {"Group", 0, 1}, Drawing::classRecord = {"Drawing", 0, 3};
} // namespace drawing
using namespace drawing;

int main(int argc, char** argv)
{
    AfxSetNotices(0);
    VELM_CClassTable classes;
    classes.Add<Style>(&Style::classRecord);
    classes.Add(&Shape::classRecord, NULL); // abstract
    classes.Add<Rect>(&Rect::classRecord, &Shape::classRecord);
    classes.Add<RoundRect>(&RoundRect::classRecord, &Rect::classRecord);
    classes.Add<Group>(&Group::classRecord, &Shape::classRecord);
    classes.Add<Drawing>(&Drawing::classRecord);

    VELM_CString error;
    if (argc == 1) { // without files to load: makes one
        const StylePtr pRed = std::make_shared<Style>(0xFF0000, Cap::Round);
        Drawing drawing;
        Group* const pGroup = new Group;
        drawing.root.shapes.emplace_back(pGroup);
        pGroup->shapes.emplace_back(new Rect({0, 0}, {4, 3}, pRed));
        pGroup->shapes.emplace_back(new RoundRect({5, 0}, {2, 2}, pRed, 0.5));
        pGroup->shapes[0]->layer = "ground";
        drawing.symbols["frame"] = drawing.selected = pGroup->shapes[0].get();
        drawing.saved.push_back(1577836800);
        if (!AfxSaveDocument("drawing.archive", classes, &drawing, &error)) {
            printf("%s\n", error.m_data);
            return 1;
        }
    }
    for (int i = argc == 1 ? 0 : 1; i < argc; ++i) {
        const char* const lpszPath = argc == 1 ? "drawing.archive" : argv[i];
        const std::unique_ptr<Drawing> pDrawing(AfxLoadDocument<Drawing>(lpszPath, classes, &error));
        if (pDrawing == nullptr) {
            printf("%s\n", error.m_data);
            return 1;
        }
        const Shape& frame = *pDrawing->symbols["frame"];
        printf("area %g; frame: colour %06X, cap %d, layer \"%s\", opacity %g, %s; saved %d times\n",
               pDrawing->root.Area(), frame.style->colour, static_cast<int>(frame.style->cap), frame.layer.c_str(),
               static_cast<double>(frame.opacity), pDrawing->selected == &frame ? "selected" : "not selected",
               static_cast<int>(pDrawing->saved.size()));
    }
    return 0;
}
