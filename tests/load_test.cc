// Loading of objects and classes with a class table: round trips, and data that is not what it should be.
#include <gtest/gtest.h>

#include <cstring>

#include "tests/support/graph.h"
#include "tests/support/watch.h"

using Roots = std::vector<VELM_CObject*>;

// Loads n references to a Node from the bytes. What was raised, and the error text; or what the graph looks like.
static std::string Loaded(const std::string& bytes, size_t n, bool bRaiseReturns = false)
{
    LoadingArchive ar(bytes, &GraphClasses(), 128);
    Roots roots(n);
    std::string outcome = Outcome(
        [&] {
            for (VELM_CObject*& pRoot : roots)
                pRoot = ar.ReadObject(&Node::record);
        },
        bRaiseReturns);
    const std::string description = outcome.empty() || bRaiseReturns ? Describe(roots) : ""; // which aborts at no Node
    outcome = outcome.empty() ? description : outcome + ": " + ar.GetErrorText();
    ar.DeleteLoadedObjects();
    return outcome;
}

static std::string StoredRoots(const Roots& roots)
{
    return Stored([&](VELM_CArchive& ar) {
        for (const VELM_CObject* pRoot : roots)
            ar.WriteObject(pRoot);
    });
}

TEST(Load, GraphsKeepTheirShapeAndDamageDoesNoHarm)
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
        const std::string bytes = StoredRoots(roots);
        EXPECT_EQ(Loaded(bytes, roots.size()), Describe(roots));
        for (size_t n = 0; n < bytes.size(); ++n) {
            const std::string cut = Loaded(bytes.substr(0, n), roots.size());
            EXPECT_EQ(cut.substr(0, cut.find(',')), "raise 3: offset " + std::to_string(n) + ": the data ends");
            Loaded(bytes.substr(0, n), roots.size(), true);
        }
        for (size_t i = 0; i < 11 * bytes.size(); ++i) { // each ends in a raise, or in a sound graph of Nodes
            std::string damaged = bytes;
            damaged[i / 11] = "\x00\x01\x02\x03\x04\x7E\x7F\x80\x81\xFE\xFF"[i % 11];
            Loaded(damaged, roots.size(), i % 2 != 0);
        }
    }
}

// A list of objects of very many classes, whose indexes go from short to long references on the way.
struct Numbered : VELM_CObject {
    static std::vector<VELM_CRuntimeClass> classes;
    unsigned number = 0;
    Numbered *pNext = nullptr, *pBack = nullptr;

    VELM_CRuntimeClass* GetRuntimeClass() const override { return &classes[number % classes.size()]; }
    void Serialize(VELM_CArchive& ar) override
    {
        if (ar.IsStoring()) {
            ar << number;
            ar.WriteObject(pNext), ar.WriteObject(pBack);
        } else {
            ar >> number;
            pNext = static_cast<Numbered*>(ar.ReadObject(nullptr)),
            pBack = static_cast<Numbered*>(ar.ReadObject(nullptr));
            EXPECT_EQ(ar.GetObjectSchema(), GetRuntimeClass()->m_nSchema); // also behind objects of other schemas
        }
        EXPECT_EQ(ar.GetSchema(), GetRuntimeClass()->m_nSchema);
    }
};
std::vector<VELM_CRuntimeClass> Numbered::classes(500);

TEST(Load, AnyNumberOfClassesAndOfIndexes)
{
    std::vector<std::string> names(Numbered::classes.size());
    std::vector<Numbered> list(1500);
    Other mapped;
    VELM_CClassTable table;
    for (unsigned i = 0; i < names.size(); ++i) {
        names[i] = "class " + std::to_string(i);
        Numbered::classes[i] = {names[i].c_str(), 0, i + 1};
        table.Add(&Numbered::classes[i], []() -> VELM_CObject* { return new Numbered; });
    }
    for (unsigned i = 0; i < list.size(); ++i) {
        list[i].number = i, list[i].pBack = &list[i / 2];
        list[i].pNext = i + 1 < list.size() ? &list[i + 1] : nullptr;
    }
    for (const size_t nMapped : {size_t{0}, 0x7FFF - names.size()}) { // the latter meets the border amid the classes
        const auto Map = [&](VELM_CArchive& to) {
            for (size_t i = 0; i < nMapped; ++i)
                to.MapObject(&mapped);
        };
        LoadingArchive ar(Stored([&](VELM_CArchive& to) { Map(to), to.WriteObject(&list[0]); }), &table);
        unsigned n = 0;
        Map(ar);
        for (const Numbered* p = static_cast<Numbered*>(ar.ReadObject(nullptr)); p != nullptr; p = p->pNext, ++n)
            ASSERT_EQ(Row() << p->number << p->pBack->number, (Row() << n << n / 2).Text());
        EXPECT_EQ(Row() << n << (ar.GetObjectSchema() == 0xFFFFFFFF), "1500 1"); // outside of all objects, as before
        ar.DeleteLoadedObjects();
    }
}

TEST(Load, EarlierObjectsAreMappedOnesAsWellAndOfTheClassAskedFor)
{
    Node outer(1), inner(2), notTheOuter(10);
    Other other, mapped;
    inner.links = {&outer, &inner};
    const std::string bytes = Stored([&](VELM_CArchive& to) {
        to.MapObject(&outer), to.MapObject(&mapped), to.WriteObject(&inner);
        to.WriteObject(&other), to.WriteObject(&other), to.WriteObject(&mapped);
    });
    LoadingArchive ar(bytes, &GraphClasses());
    ar.MapObject(&notTheOuter), ar.MapObject(&mapped);
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
        {std::string(leaf) + "07000000 00000000 00 02000000", 2, " 1 1\nLeaf 7 :"},             // a Leaf is a Node
        {"FFFF0000 01000000 04000000 4C656166 07000000 00000000", 1, " 1\nLeaf 7 (schema 1):"}, // has no name
        {"FFFF0000 01000000 08000000 4162737472616374", 1, "raise 1: offset 0: class \"Abstract\" is abstract"},
        {std::string(leaf) + "07000000 01000000 FFFF0000 01000000 05000000 4F74686572 02000000", 1,
         "raise 1: offset 24: class \"Other\" is not \"Node\" or derived from it, in Leaf (index 2)"},
    };
    for (const auto& test : cases) {
        const std::string bytes = Bytes(test.hex.c_str()), outcome = Loaded(bytes, test.n);
        EXPECT_EQ(outcome, test.outcome) << test.hex;
        // Where a raise returns nothing follows, but inside an object, whose Serialize goes on.
        const size_t nSame = outcome.find(", in ") == std::string::npos ? outcome.size() : std::strlen("raise 1");
        EXPECT_EQ(Loaded(bytes, test.n, true).substr(0, nSame), outcome.substr(0, nSame)) << test.hex;
    }
}

TEST(Load, ClassReferencesAndTheIndexLimit)
{
    Node node;
    Other other;
    const std::string bytes = Stored([&](VELM_CArchive& to) {
        to.WriteClass(&Node::record), to.SerializeClass(&Leaf::record), to.SerializeClass(&Node::record);
        to.WriteObject(nullptr), to.WriteObject(nullptr), Leaf::record.Store(to), to.WriteObject(&node);
        to.WriteObject(&other);
    });
    LoadingArchive ar(bytes, &GraphClasses());
    unsigned nSchema = 99;
    unsigned long nTag = 99;
    EXPECT_EQ(Row() << (ar.ReadClass(nullptr, &nSchema, &nTag) == &Node::record) << nSchema << nTag, "1 1 0");
    EXPECT_EQ(Row() << (ar.ReadClass(&Node::record, &nSchema) == &Leaf::record) << nSchema, "1 2"); // derived
    ar.SerializeClass(&Node::record), nTag = 99;
    EXPECT_EQ(Row() << !ar.ReadClass(nullptr, &nSchema, &nTag) << nTag, "1 0");
    EXPECT_EQ(Outcome([&] { ar.SerializeClass(nullptr); }), "raise 5");
    EXPECT_EQ(Row() << (VELM_CRuntimeClass::Load(ar, &nSchema) == &Leaf::record) << nSchema, "1 2");
    ar.m_nIndexCount = VELM_CArchive::nIndexLimit;
    for (const char* const lpszOffset : {"offset 60", "offset 85"}) { // of a class that is known, and of a new one
        EXPECT_EQ(Outcome([&] { ar.ReadObject(nullptr); }), "raise 5");
        EXPECT_EQ(ar.GetErrorText(), lpszOffset + std::string(": no index is left: the limit is 1073741822"));
        if (!ar.IsAtEnd())
            ar >> nSchema >> nSchema;
    }
    EXPECT_EQ(Outcome([&] { VELM_CRuntimeClass::Load(ar, &nSchema); }), "raise 3");
}

TEST(Load, AnObjectMayAbortTheArchiveThatLoadsIt)
{
    Node outer(1);
    Doing inner;
    outer.links = {&inner};
    VELM_CClassTable table;
    table.Add<Node>(&Node::record), table.Add<Doing>(&Doing::record, &Node::record);
    for (const bool bReads : {false, true}) {
        LoadingArchive ar(StoredRoots({bReads ? static_cast<VELM_CObject*>(&inner) : &outer}));
        VELM_CObject *pInner = nullptr, *pOuter = nullptr;
        ar.SetClassTable(&table);
        Doing::loading = [&](Doing& ob, VELM_CArchive& from) {
            pInner = &ob, from.Abort();
            if (bReads)
                from.ReadCount();
        };
        EXPECT_EQ(Outcome([&] { pOuter = ar.ReadObject(nullptr); }),
                  bReads ? "m_bDirectBuffer || m_lpBufStart != NULL; m_bDirectBuffer || m_lpBufCur != NULL; raise 3"
                         : "");
        EXPECT_STREQ(ar.GetErrorText(), bReads ? "offset 17: the data ends, in Doing (index 2)" : "");
        ar.DeleteLoadedObjects();
        delete pOuter, delete pInner; // the program's, since the archive forgot them
    }
    Doing::loading = nullptr;
}

TEST(Load, TheTableKeepsNamesApart)
{
    VELM_CClassTable table;
    VELM_CRuntimeClass first = {"Same", 0, 1}, second = {"Same", 0, 1}, nameless = {nullptr, 0, 1};
    VELM_CRuntimeClass circle = {"Circle", 0, 1};
    EXPECT_EQ(Row() << table.Add<Other>(&first) << table.Add<Other>(&first, &circle) << table.Add<Other>(&second)
                    << table.Add<Other>(&nameless) << table.Add<Other>(nullptr),
              "1 1 0 0 0");
    EXPECT_TRUE(table.Find("Same")->pClass == &first && table.Find("") == nullptr);
    table.Add<Other>(&circle, &first); // a circle of bases ends
    EXPECT_EQ(Row() << table.IsDerivedFrom(&first, &circle) << table.IsDerivedFrom(&circle, &nameless)
                    << table.IsDerivedFrom(&second, &circle), // another class of that name
              "1 0 0");
}
