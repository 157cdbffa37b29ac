// Loading of objects and classes with a class table: round trips, and data that is not what it should be.
#include <gtest/gtest.h>

#include <memory>

#include "tests/support/graph.h"
#include "tests/support/watch.h"

using Roots = std::vector<VELM_CObject*>;

// Loads n references to a Node from the bytes and describes them. `outcome` gets what was raised; the error text
// follows it.
static std::string Loaded(const std::string& bytes, size_t n, std::string& outcome)
{
    MemoryFile file(bytes);
    VELM_CArchive ar(&file, VELM_CArchive::load, 128);
    ar.SetClassTable(&GraphClasses());
    Roots roots(n);
    outcome = Outcome([&] {
        for (VELM_CObject*& pRoot : roots)
            pRoot = ar.ReadObject(&Node::record);
    });
    std::string description = outcome.empty() ? Describe(roots) : "";
    if (!outcome.empty())
        outcome += std::string(": ") + ar.GetErrorText();
    ar.DeleteLoadedObjects();
    return description;
}

static std::string StoredRoots(const Roots& roots)
{
    return Stored([&](VELM_CArchive& ar) {
        for (const VELM_CObject* pRoot : roots)
            ar.WriteObject(pRoot);
    });
}

TEST(Load, GraphsKeepTheirShape)
{
    Node a(1), b(2), c(3), d(4), self(5), left(6), right(7);
    Leaf leaf(8, "leaf"), last(9, "last");
    a.links = {&b, &c, nullptr};
    b.links = {&d};
    c.links = {&d}; // a diamond
    self.links = {&self, &self};
    left.links = {&right};
    right.links = {&left, &leaf}; // a cycle, and two classes in turn
    leaf.links = {&left, &last, &a};
    const Roots shapes[] = {{nullptr}, {&a}, {&a, &a, &d}, {&self}, {&left, &leaf, &right}, {&last, &d, &leaf}};
    for (const Roots& roots : shapes) {
        std::string outcome;
        EXPECT_EQ(Loaded(StoredRoots(roots), roots.size(), outcome), Describe(roots));
        EXPECT_EQ(outcome, "");
    }
}

// Objects that only take up indexes: their first words differ, so that the store map stays quick.
struct Filler {
    explicit Filler(unsigned n) : words(n * 4)
    {
        for (unsigned i = 0; i < n; ++i)
            words[i * 4] = i << 4;
    }
    VELM_CObject* At(unsigned i) { return reinterpret_cast<VELM_CObject*>(&words[i * 4]); }
    std::vector<uint64_t> words;
};

TEST(Load, ShortAndLongReferencesAtTheBorder)
{
    // The class Node and its first object take the indexes nFill + 1 and nFill + 2, Leaf and its object the next two.
    for (unsigned nFill = 0x7FFA; nFill <= 0x7FFF; ++nFill) {
        Filler filler(nFill);
        Node a(1), b(2);
        Leaf c(3, "c"), d(4, "d");
        const Roots roots = {&a, &c, &a, &c, &b, &d, &b, &d};
        const std::string bytes = Stored([&](VELM_CArchive& ar) {
            for (unsigned i = 0; i < nFill; ++i)
                ar.MapObject(filler.At(i));
            for (const VELM_CObject* pRoot : roots)
                ar.WriteObject(pRoot);
        });
        MemoryFile file(bytes);
        VELM_CArchive ar(&file, VELM_CArchive::load);
        ar.SetClassTable(&GraphClasses());
        for (unsigned i = 0; i < nFill; ++i)
            ar.MapObject(filler.At(i));
        Roots loaded;
        for (size_t i = 0; i < roots.size(); ++i)
            loaded.push_back(ar.ReadObject(nullptr));
        EXPECT_EQ(Describe(loaded), Describe(roots));
        ar.DeleteLoadedObjects();
    }
}

TEST(Load, EarlierObjectsAreMappedOnesAsWellAndOfTheClassAskedFor)
{
    Node outer(1), inner(2), notTheOuter(10);
    Other other, mapped;
    inner.links = {&outer, &inner};
    MemoryFile file(Stored([&](VELM_CArchive& ar) {
        ar.MapObject(&outer);
        ar.MapObject(&mapped);
        for (const VELM_CObject* pOb : std::initializer_list<const VELM_CObject*>{&inner, &other, &other, &mapped})
            ar.WriteObject(pOb);
    }));
    VELM_CArchive ar(&file, VELM_CArchive::load);
    ar.SetClassTable(&GraphClasses());
    ar.MapObject(&notTheOuter);
    ar.MapObject(&mapped);
    VELM_CObject* pInner = ar.ReadObject(&Node::record);
    EXPECT_EQ(static_cast<Node*>(pInner)->links, (std::vector<VELM_CObject*>{&notTheOuter, pInner}));
    EXPECT_NE(ar.ReadObject(&Other::record), nullptr);
    for (const char* offset : {"offset 49", "offset 53"}) { // neither that the archive made nor a mapped one
        VELM_CObject* pOb = &other;
        EXPECT_EQ(Outcome([&] { pOb = ar.ReadObject(&Node::record); }, true), "raise 1");
        EXPECT_EQ(pOb, nullptr);
        EXPECT_EQ(ar.GetErrorText(), offset + std::string(": class \"Other\" is not \"Node\" or derived from it"));
    }
    ar.DeleteLoadedObjects(); // not the mapped ones
    EXPECT_EQ(notTheOuter.value, 10u);
}

TEST(Load, ObjectsSeeTheSchemaThatTheyWereStoredWith)
{
    Leaf leaf(1, "new");
    std::string bytes = StoredRoots({&leaf});
    const size_t nSchemaAt = 4;
    ASSERT_EQ(bytes[nSchemaAt], 2);
    bytes[nSchemaAt] = 1; // a Leaf of schema 1 has no name
    bytes.resize(bytes.size() - 4);
    std::string outcome;
    leaf.name = "(schema 1)";
    EXPECT_EQ(Loaded(bytes, 1, outcome), Describe({&leaf}));
    EXPECT_EQ(outcome, "");

    // Also behind an object in it, of another schema.
    struct Asking : Node {
        VELM_CRuntimeClass* GetRuntimeClass() const override
        {
            static VELM_CRuntimeClass asked = {"Asking", 0, 7};
            return &asked;
        }
        void Serialize(VELM_CArchive& ar) override
        {
            Node::Serialize(ar);
            value = ar.GetObjectSchema();
        }
    } asking;
    Node node(3);
    asking.links = {&node};
    VELM_CClassTable table;
    table.Add<Node>(&Node::record);
    table.Add<Asking>(asking.GetRuntimeClass(), &Node::record);
    MemoryFile file(StoredRoots({&asking}));
    VELM_CArchive ar(&file, VELM_CArchive::load);
    ar.SetClassTable(&table);
    EXPECT_EQ(static_cast<Node*>(ar.ReadObject(nullptr))->value, 7u);
    EXPECT_EQ(ar.GetObjectSchema(), 0xFFFFFFFF); // outside of all objects, as before
    ar.DeleteLoadedObjects();
}

TEST(Load, WhatIsWrongIsRaisedAndExplained)
{
    const char* node = "FFFF0000 01000000 04000000 4E6F6465 "; // the class Node, index 1
    const char* leaf = "FFFF0000 02000000 04000000 4C656166 "; // the class Leaf
    const char* empty = "07000000 00000000 ";                  // a Node's data: 7, no links; its index is 2
    const struct {
        std::string hex;
        size_t n;
        const char* outcome;
    } cases[] = {
        {"", 1, "raise 3: offset 0: the data ends"},
        {"FFFF00", 1, "raise 3: offset 3: the data ends"},
        {std::string(node) + "07000000 01000000", 1, "raise 3: offset 24: the data ends, in Node (index 2)"},
        {"01000000", 1, "raise 5: offset 0: index 1 is not one of the 0 given so far"},
        {"00800000", 1, "raise 5: offset 0: tag 32768 is no reference"},
        {"FF7F0000 00000000", 1, "raise 5: offset 0: index 0 is not one of the 0 given so far"},
        {"FF7F0000 FFFFFFFF", 1, "raise 5: offset 0: index 2147483647 is not one of the 0 given so far"},
        {"00000100", 1, "raise 5: offset 0: tag 65536 is no reference"},
        {std::string(node) + empty + "01000000", 2, "raise 5: offset 24: index 1 is a class, not an object"},
        {std::string(node) + empty + "02800000", 2, "raise 5: offset 24: index 2 is an object, not a class"},
        {std::string(node) + empty + "FF7F0000 02000080", 2, "raise 5: offset 24: index 2 is an object, not a class"},
        {std::string(node) + empty + "03000000", 2, "raise 5: offset 24: index 3 is not one of the 2 given so far"},
        {"FFFF0000 01000000 04000000 4E6F6443", 1, "raise 1: offset 4: class \"NodC\" is not in the class table"},
        {"FFFF0000 01000000 04000000 4E6F0A22", 1, "raise 1: offset 4: class \"No?\"\" is not in the class table"},
        {"FFFF0000 01000000 06000000 4E6F6465 0058", 1,
         "raise 1: offset 4: class \"Node?X\" is not in the class table"},
        {"FFFF0000 01000000 FFFFFFFF 4E6F6465", 1,
         "raise 1: offset 4: a class name of 4294967295 bytes is longer than any in the class table"},
        {"FFFF0000 FFFF0000 04000000 4E6F6465", 1,
         "raise 1: offset 4: class \"Node\" has schema 65535; the newest known is 1"},
        {"FFFF0000 02000000 04000000 4E6F6465", 1,
         "raise 1: offset 4: class \"Node\" has schema 2; the newest known is 1"},
        {"FFFF0000 01000000 05000000 4F74686572", 1,
         "raise 1: offset 0: class \"Other\" is not \"Node\" or derived from it"},
        {std::string(leaf) + "07000000 00000000 00 02000000", 2, ""}, // a Leaf is a Node
        {"FFFF0000 01000000 08000000 4162737472616374", 1, "raise 1: offset 0: class \"Abstract\" is abstract"},
        {std::string(leaf) + "07000000 01000000 FFFF0000 01000000 05000000 4F74686572 02000000", 1,
         "raise 1: offset 24: class \"Other\" is not \"Node\" or derived from it, in Leaf (index 2)"},
    };
    for (const auto& test : cases) {
        std::string outcome;
        Loaded(Bytes(test.hex.c_str()), test.n, outcome);
        EXPECT_EQ(outcome, test.outcome) << test.hex;
    }
}

TEST(Load, ClassReferences)
{
    Node a(1);
    const std::string bytes = Stored([&](VELM_CArchive& ar) {
        ar.WriteClass(&Node::record);
        ar.SerializeClass(&Leaf::record);
        ar.SerializeClass(&Node::record);
        ar.WriteObject(nullptr);
        ar.WriteObject(nullptr);
        Leaf::record.Store(ar);
    });
    MemoryFile file(bytes);
    VELM_CArchive ar(&file, VELM_CArchive::load);
    ar.SetClassTable(&GraphClasses());
    unsigned nSchema = 99;
    unsigned long nTag = 99;
    EXPECT_EQ(ar.ReadClass(nullptr, &nSchema, &nTag), &Node::record);
    EXPECT_EQ(nSchema, 1u);
    EXPECT_EQ(ar.ReadClass(&Node::record, &nSchema), &Leaf::record); // derived
    EXPECT_EQ(nSchema, 2u);
    ar.SerializeClass(&Node::record);
    EXPECT_EQ(ar.ReadClass(nullptr, &nSchema, &nTag), nullptr);
    EXPECT_EQ(nTag, 0u);
    EXPECT_EQ(Outcome([&] { ar.SerializeClass(nullptr); }), "raise 5");
    EXPECT_EQ(VELM_CRuntimeClass::Load(ar, &nSchema), &Leaf::record);
    EXPECT_EQ(nSchema, 2u);
    EXPECT_EQ(Outcome([&] { VELM_CRuntimeClass::Load(ar, &nSchema); }), "raise 3");
}

TEST(Load, AnObjectMayAbortTheArchiveThatLoadsIt)
{
    static VELM_CRuntimeClass quitter = {"Quitter", 0, 1};
    struct Quitter : Node {
        VELM_CRuntimeClass* GetRuntimeClass() const override { return &quitter; }
        void Serialize(VELM_CArchive& ar) override
        {
            if (ar.IsLoading())
                ar.Abort();
        }
    } inner;
    Node outer(1);
    outer.links = {&inner};
    VELM_CClassTable table;
    table.Add<Node>(&Node::record);
    table.Add<Quitter>(&quitter, &Node::record);
    MemoryFile file(StoredRoots({&outer})), none;
    VELM_CArchive ar(&file, VELM_CArchive::load), empty(&none, VELM_CArchive::load);
    ar.SetClassTable(&table);
    VELM_CObject* pLoaded = nullptr;
    EXPECT_EQ(Outcome([&] { pLoaded = ar.ReadObject(&Node::record); }), "");
    const std::unique_ptr<Node> pOuter(static_cast<Node*>(pLoaded)); // the program's, since the archive forgot them
    ASSERT_NE(pOuter, nullptr);
    const std::unique_ptr<VELM_CObject> pInner(pOuter->links.at(0));
    EXPECT_NE(dynamic_cast<Quitter*>(pInner.get()), nullptr);
    ar.DeleteLoadedObjects();

    empty.SetClassTable(&table);
    EXPECT_EQ(Outcome([&] { empty.ReadObject(nullptr); }), "raise 3");
    const char* lpszError = empty.GetErrorText();
    empty.Abort();
    EXPECT_STREQ(lpszError, "offset 0: the data ends");
}

TEST(Load, TheTableKeepsNamesApart)
{
    VELM_CClassTable table;
    VELM_CRuntimeClass first = {"Same", 0, 1}, second = {"Same", 0, 1}, nameless = {nullptr, 0, 1};
    VELM_CRuntimeClass circle = {"Circle", 0, 1};
    EXPECT_EQ(table.Add<Other>(&first), 1);
    EXPECT_EQ(table.Add<Other>(&first, &circle), 1);
    EXPECT_EQ(table.Add<Other>(&second), 0);
    EXPECT_EQ(table.Add<Other>(&nameless), 0);
    EXPECT_EQ(table.Add<Other>(nullptr), 0);
    EXPECT_EQ(table.Find("Same")->pClass, &first);
    EXPECT_EQ(table.Find(""), nullptr);
    table.Add<Other>(&circle, &first); // a circle of bases ends
    EXPECT_EQ(table.IsDerivedFrom(&first, &circle), 1);
    EXPECT_EQ(table.IsDerivedFrom(&circle, &nameless), 0);
    EXPECT_EQ(table.IsDerivedFrom(&second, &circle), 0); // another class of that name
}

TEST(Load, TheIndexLimitHolds)
{
    MemoryFile file(StoredRoots({std::make_unique<Other>().get()}));
    VELM_CArchive ar(&file, VELM_CArchive::load);
    ar.SetClassTable(&GraphClasses());
    ar.MapObject(nullptr);
    ar.m_nIndexCount = VELM_CArchive::nIndexLimit;
    EXPECT_EQ(Outcome([&] { ar.ReadObject(nullptr); }), "raise 5");
    EXPECT_STREQ(ar.GetErrorText(), "offset 17: no index is left: the limit is 1073741822");
}

// Every prefix, and every byte replaced by values that hurt: each ends in a raise, or in a sound graph of Nodes.
TEST(Load, DamageDoesNoHarm)
{
    Node a(1), b(2);
    Leaf c(3, "leaf");
    a.links = {&b, &c, nullptr, &a};
    c.links = {&b, &c};
    const Roots roots = {&a, &c, &b};
    const std::string bytes = StoredRoots(roots);
    std::string outcome;
    for (size_t n = 0; n < bytes.size(); ++n) {
        Loaded(bytes.substr(0, n), roots.size(), outcome);
        EXPECT_EQ(outcome.substr(0, outcome.find(',')), "raise 3: offset " + std::to_string(n) + ": the data ends");
    }
    int nRaised = 0, nSound = 0;
    for (size_t i = 0; i < bytes.size(); ++i) {
        for (const int nasty : {0x00, 0x01, 0x02, 0x03, 0x04, 0x7E, 0x7F, 0x80, 0x81, 0xFE, 0xFF}) {
            std::string damaged = bytes;
            damaged[i] = static_cast<char>(nasty);
            Loaded(damaged, roots.size(), outcome); // describing a graph checks every object's type
            ++(outcome.empty() ? nSound : nRaised);
        }
    }
    EXPECT_GT(nRaised, nSound);
    EXPECT_GT(nSound, 0);
}

TEST(Load, ReportsAnotherModeAtEachObject)
{
    MemoryFile file(std::string(12, '\0')); // NULL three times
    VELM_CArchive ar(&file, VELM_CArchive::load | VELM_CArchive::noFlushOnDestroy);
    HostWatch watch;
    ar.SetClassTable(&GraphClasses());
    std::vector<size_t> nReports(3);
    for (size_t& rReports : nReports) {
        const size_t nBefore = watch.reports.size();
        EXPECT_EQ(ar.ReadObject(nullptr), nullptr);
        rReports = watch.reports.size() - nBefore;
    }
    EXPECT_GE(nReports[0], 2u);
    EXPECT_EQ(nReports, std::vector<size_t>(3, nReports[0]));
}
