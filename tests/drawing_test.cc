// The drawing of the examples beside a twin that is written in the old style, with both directions of each class: each
// reads what the other stores, in all versions.
#include <gtest/gtest.h>

#include <fstream>
#include <unistd.h>

#include "tests/support/watch.h"

#define main MainOfDrawing
#include "docs/examples/drawing.cc"
#undef main

namespace {

// Every class of the drawing, by its record: what the object has of the fields is what the record's name says.
class Twin : public VELM_CObject {
public:
    static unsigned nVersion; // of the files that are stored, 1 to 3
    static VELM_CRuntimeClass records[5];
    VELM_CRuntimeClass* pRecord;
    unsigned colour = 0, cap = 0, nBase = 0;
    Twin *style = nullptr, *selected = nullptr;
    double numbers[5] = {}; // x, y, width, height, radius
    VELM_CString layer;
    float opacity = 1;
    std::vector<Twin*> shapes;
    std::vector<std::pair<VELM_CString, Twin*>> symbols;
    std::vector<long long> saved;

    explicit Twin(int nRecord) : pRecord(&records[nRecord]) {}
    VELM_CRuntimeClass* GetRuntimeClass() const override { return pRecord; }
    void Serialize(VELM_CArchive& ar) override { ar.IsStoring() ? Store(ar) : Load(ar); }

private:
    int Numbers() const { return pRecord == &records[1] ? 4 : pRecord == &records[2] ? 5 : 2; }
    void Store(VELM_CArchive& ar)
    {
        if (pRecord == &records[0]) {
            ar << colour;
            if (nVersion >= 2)
                ar << cap;
        } else if (pRecord == &records[4]) {
            StoreAll(ar);
            ar.WriteCount(static_cast<unsigned long>(symbols.size()));
            for (auto& symbol : symbols)
                ar << symbol.first, ar.WriteObject(symbol.second);
            if (nVersion >= 2)
                ar.WriteObject(selected);
            if (nVersion >= 3)
                ar.WriteCount(static_cast<unsigned long>(saved.size()));
            for (size_t i = 0; nVersion >= 3 && i < saved.size(); ++i)
                ar.WriteInt64(saved[i]);
        } else {
            ar << nVersion;
            ar.WriteObject(style);
            ar << numbers[0] << numbers[1];
            if (nVersion >= 2)
                ar << layer;
            if (nVersion >= 3)
                ar << opacity;
            for (int i = 2; i < Numbers(); ++i)
                ar << numbers[i];
            if (pRecord == &records[3])
                StoreAll(ar);
        }
    }
    void StoreAll(VELM_CArchive& ar)
    {
        ar.WriteCount(static_cast<unsigned long>(shapes.size()));
        for (Twin* pShape : shapes)
            ar.WriteObject(pShape);
    }
    static Twin* Next(VELM_CArchive& ar) { return static_cast<Twin*>(ar.ReadObject(nullptr)); }
    void Load(VELM_CArchive& ar)
    {
        const unsigned nSchema = ar.GetSchema();
        if (pRecord == &records[0]) {
            ar >> colour;
            if (nSchema >= 2)
                ar >> cap;
        } else if (pRecord == &records[4]) {
            LoadAll(ar);
            symbols.resize(ar.ReadCount());
            for (auto& symbol : symbols)
                ar >> symbol.first, symbol.second = Next(ar);
            if (nSchema >= 2)
                selected = Next(ar);
            saved.resize(nSchema >= 3 ? ar.ReadCount() : 0);
            for (long long& n : saved)
                n = ar.ReadInt64();
        } else {
            ar >> nBase;
            style = Next(ar);
            ar >> numbers[0] >> numbers[1];
            if (nBase >= 2)
                ar >> layer;
            if (nBase >= 3)
                ar >> opacity;
            for (int i = 2; i < Numbers(); ++i)
                ar >> numbers[i];
            if (pRecord == &records[3])
                LoadAll(ar);
        }
    }
    void LoadAll(VELM_CArchive& ar)
    {
        shapes.resize(ar.ReadCount());
        for (Twin*& rpShape : shapes)
            rpShape = Next(ar);
    }
};
unsigned Twin::nVersion = 3;
VELM_CRuntimeClass Twin::records[5] = {
    {"Style", 0, 2}, {"Rect", 0, 1}, {"RoundRect", 0, 1}, {"Group", 0, 1}, {"Drawing", 0, 3}};

template <int RECORD> VELM_CObject* MakeTwin()
{
    return new Twin(RECORD);
}

std::string Contents(const char* lpszPath)
{
    std::ifstream file(lpszPath, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

} // namespace

TEST(Drawing, ReadsAndWritesWhatItsOldStyleTwinDoes)
{
    const std::string folder = testing::TempDir() + "tavnomcl_drawing_test" + std::to_string(getpid());
    std::string paths[3], printed;
    char program[] = "drawing", *arguments[] = {program, nullptr, nullptr, nullptr};
    for (unsigned n = 1; n <= 3; ++n) {
        Twin::nVersion = n;
        Twin::records[0].m_nSchema = n < 2 ? 1 : 2, Twin::records[4].m_nSchema = n;
        Twin red(0), rect(1), round(2), group(3), drawing(4);
        red.colour = 0xFF0000, red.cap = 1;
        rect.style = round.style = &red;
        rect.numbers[2] = 4, rect.numbers[3] = 3, rect.layer = "ground";
        round.numbers[0] = 5, round.numbers[2] = round.numbers[3] = 2, round.numbers[4] = 0.5;
        group.shapes = {&rect, &round}, drawing.shapes = {&group}, drawing.symbols = {{"frame", &rect}};
        drawing.selected = &rect, drawing.saved = {1577836800};
        paths[n - 1] = folder + std::to_string(n);
        arguments[n] = &paths[n - 1][0];
        std::ofstream(paths[n - 1], std::ios::binary) << Stored([&](VELM_CArchive& ar) { ar.WriteObject(&drawing); });
    }
    printed = Printed([&] { EXPECT_EQ(MainOfDrawing(4, arguments), 0); });
    const std::string area = "area 15.7854; frame: colour FF0000, cap ";
    EXPECT_EQ(printed, area + "0, layer \"\", opacity 1, not selected; saved 0 times\n" + area +
                           "1, layer \"ground\", opacity 1, selected; saved 0 times\n" + area +
                           "1, layer \"ground\", opacity 1, selected; saved 1 times\n");
    ASSERT_EQ(chdir(testing::TempDir().c_str()), 0);
    Printed([&] { EXPECT_EQ(MainOfDrawing(1, arguments), 0); });
    EXPECT_TRUE(Contents("drawing.archive") == Contents(paths[2].c_str()));
    AfxSetNotices(1);

    VELM_CClassTable table;
    VELM_CObject* (*const makers[])() = {MakeTwin<0>, MakeTwin<1>, MakeTwin<2>, MakeTwin<3>, MakeTwin<4>};
    for (int i = 0; i < 5; ++i)
        table.Add(&Twin::records[i], makers[i]);
    MemoryFile file(Contents("drawing.archive"));
    VELM_CArchive ar(&file, VELM_CArchive::load);
    ar.SetClassTable(&table);
    Twin* const pLoaded = static_cast<Twin*>(ar.ReadObject(nullptr));
    EXPECT_TRUE(Stored([&](VELM_CArchive& to) { to.WriteObject(pLoaded); }) == file.data);
    ar.DeleteLoadedObjects();
    for (const std::string& path : paths)
        unlink(path.c_str());
    unlink("drawing.archive");
}
