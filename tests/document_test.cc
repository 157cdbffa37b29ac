// Documents: what is said to be saved can be loaded.
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

#include "tests/support/graph.h"
#include "tests/support/owners.h"
#include "tests/support/watch.h"

namespace {

class Document : public testing::Test {
protected:
    const std::string path = testing::TempDir() + "tavnomcl_document_test" + std::to_string(getpid());
    VELM_CString error;

    void SetUp() override { std::ofstream(path) << "old"; }
    void TearDown() override { unlink(path.c_str()); }
    std::string Contents() const
    {
        std::ostringstream text;
        text << std::ifstream(path).rdbuf();
        return text.str();
    }
    // The error without the path.
    std::string Error() const { return std::string(error.m_data).substr(error.IsEmpty() ? 0 : path.size() + 2); }
};

enum Colour : int { Red = -1, Green, Blue };

struct Nameless : VELM_CObject {};

} // namespace

TEST_F(Document, ASaveThatIsNotWholeIsNotCommitted)
{
    Nameless noClass;
    Doing raising([](VELM_CArchive& ar) { ar << 1u, pfm_raise(7); });
    Doing surviving([&](VELM_CArchive& ar) { pfm_protect([&] { ar.WriteObject(&raising); }); });
    Doing quitting([](VELM_CArchive& ar) { ar.Flush(), ar.Abort(); });
    VELM_CRuntimeClass local = {"Local", 0, 0xFFFF}, none = {nullptr, 0, 1};
    const struct {
        const char* lpszText; // what Commit says; NULL where all is well
        std::function<void(VELM_CArchive& ar, VELM_CSaveFile& file)> step;
        bool bEnds = false; // the step ends the archive as far as it is ended
        unsigned nMode = VELM_CArchive::store;
    } rows[] =
    { {nullptr, [](auto&, auto&) {}},
      {nullptr, [](auto& ar, auto&) { ar.Write("x", 1); }, false, 2}, // reported, and stored
#if defined(__LP64__)
      {"offset 9: the value does not fit into 4 bytes", [](auto& ar, auto&) { ar << 1 << 2 << (1l << 40); }},
      {"offset 0: the value does not fit into 4 bytes", [](auto& ar, auto&) { ar << ~0ul; }},
      {"offset 0: the count does not fit into 4 bytes", [](auto& ar, auto&) { ar.WriteCount(~0ul); }},
#endif
      {"offset 0: an object or a class without a class record was not stored",
       [&](auto& ar, auto&) { ar.WriteObject(&noClass); }},
      {"offset 0: a class without a name was not stored", [&](auto& ar, auto&) { ar.WriteClass(&none); }},
      {"offset 0: class \"Local\" cannot go through an archive", [&](auto& ar, auto&) { ar.WriteClass(&local); }},
      {"offset 0: an object was not stored", [](auto& ar, auto&) { ar.WriteObject(nullptr); }, false, 2},
      {"offset 0: the value 5 is not one of -1 to 1",
       [](auto& ar, auto&) { ar.WriteEnum(static_cast<Colour>(5), Red, Blue); }},
      {"offset 5: 3 bytes were not stored", [](auto& ar, auto&) { ar << 1u, ar.Write(nullptr, 3); }},
      {"offset 22: a raise has left something half stored", [&](auto& ar, auto&) { ar.WriteObject(&raising); }},
      {"offset 30: a raise has left something half stored",
       [&](auto& ar, auto&) { ar.WriteObject(&surviving), ar << 1u; }},
      {"offset 1: 4 bytes were not stored", [](auto& ar, auto&) { ar.Close(), ar << 5u; }},
      {"offset 5: 5 bytes were dropped unwritten", [](auto& ar, auto&) { ar << 5u, ar.Abort(); }},
      {"offset 1: an object was not stored", [](auto& ar, auto&) { ar.Flush(), ar.Abort(), ar.WriteObject(nullptr); }},
      {"offset 18: an object was not stored, in Doing (index 2)", [&](auto& ar, auto&) { ar.WriteObject(&quitting); }},
      {"an archive on the file is not closed", [](auto&, auto&) {}, true},
      {"an archive that was made for an earlier save has written to the file",
       [&](auto&, auto& file) { EXPECT_EQ(file.Open(path.c_str()), 1); }},
    };
    for (const auto& row : rows) {
        for (const bool bWrapped : {false, true}) {
            HostWatch watch;
            std::ofstream(path) << "old";
            VELM_CSaveFile file;
            VELM_CProgressFile wrapped(&file, 0, [](void*, unsigned long long, unsigned long long) {});
            ASSERT_EQ(file.Open(path.c_str()), 1);
            std::string wanted = row.lpszText == nullptr ? "" : path + ": " + row.lpszText;
            VELM_CArchive ar(bWrapped ? static_cast<VELM_CFile*>(&wrapped) : &file, row.nMode);
            ar.Write("+", row.nMode == VELM_CArchive::store && wanted.find("offset 0") == std::string::npos);
            pfm_protect([&] { row.step(ar, file); });
            const bool bWhole = ar.IsWhole();
            if (!row.bEnds)
                pfm_protect([&] { ar.Close(); });
            EXPECT_EQ(file.Commit(), row.lpszText == nullptr) << wanted;
            EXPECT_STREQ(file.GetErrorText().m_data, wanted.c_str());
            EXPECT_EQ(Contents() == "old", row.lpszText != nullptr) << wanted;
            EXPECT_EQ(bWhole, wanted.find("offset") == std::string::npos) << wanted;
            // The same file, again: what was left behind does not count.
            ASSERT_EQ(file.Open(path.c_str()), 1);
            VELM_CArchive next(&file, VELM_CArchive::store);
            next << 'n', next.Close(), ar.Abort();
            EXPECT_EQ(file.Commit(), 1) << wanted;
            EXPECT_EQ(Contents(), "n") << wanted;
            delete VELM_CFile::getException();
        }
    }
}

TEST_F(Document, AnArchiveMadeBeforeTheFileIsOpenedCounts)
{
    for (const bool bWhole : {false, true}) {
        VELM_CSaveFile file;
        VELM_CArchive ar(&file, VELM_CArchive::store, 128);
        Nameless noClass;
        EXPECT_EQ(Outcome([&] { bWhole ? ar.WriteObject(nullptr) : ar.WriteObject(&noClass); }),
                  bWhole ? "" : "pClassRef != NULL");
        ASSERT_EQ(file.Open(path.c_str()), 1);
        for (unsigned i = 0; i < 100; ++i)
            ar << i;
        ar.Close();
        EXPECT_EQ(file.Commit(), bWhole);
        EXPECT_EQ(Contents() == "old", !bWhole);
    }
}

TEST_F(Document, NothingGoesOnAfterAbort)
{
    Node nodes[20];
    for (size_t i = 0; i < 20; ++i) {
        for (Node& other : nodes)
            nodes[i].links.push_back(&other);
    }
    Doing quitter([](VELM_CArchive& ar) { ar.Abort(); });
    nodes[10].links.insert(nodes[10].links.begin(), &quitter);
    unsigned char buffer[128];
    for (void* const pBuffer : {static_cast<void*>(buffer), static_cast<void*>(nullptr)}) {
        MemoryFile file;
        VELM_CArchive ar(&file, VELM_CArchive::store, 128, pBuffer);
        HostWatch watch;
        EXPECT_EQ(Printed([&] {
                      ar.WriteObject(nodes);
                      ar.WriteObject(nullptr), ar.WriteClass(&Node::record), ar.MapObject(nodes);
                  }),
                  "SetAt NYI\n");
        EXPECT_LT(watch.reports.size(), 2000u); // two for each number that was still stored
        EXPECT_EQ(ar.m_pStoreMap, nullptr);
        EXPECT_EQ(ar.IsWhole(), 0);
    }
}

TEST_F(Document, WithATableWhatCouldNotBeLoadedIsRefused)
{
    struct Derived : Node {
        std::string more;
    } derived;
    struct Abstract : Node {
        VELM_CRuntimeClass* GetRuntimeClass() const override { return GraphClasses().Find("Abstract")->pClass; }
    } abstract;
    VELM_CRuntimeClass otherNode = {"Node", 0, 1};
    Node node;
    Doing doing;
    const std::pair<const VELM_CObject*, const char*> rows[] = {
        {&node, ""},
        {&doing, "offset 0: class \"Doing\" is not in the class table"},
        {&derived, "offset 0: an object of a class derived from \"Node\" has no class record of its own"},
        {&abstract, "offset 0: class \"Abstract\" is abstract"}};
    for (const auto& row : rows) {
        MemoryFile file;
        VELM_CArchive ar(&file, VELM_CArchive::store), free(&file, VELM_CArchive::store);
        HostWatch watch;
        ar.SetClassTable(&GraphClasses());
        EXPECT_EQ(pfm_protect([&] { ar.WriteObject(row.first); }), *row.second != '\0');
        EXPECT_STREQ(ar.GetErrorText(), row.second);
        EXPECT_EQ(ar.GetOffset() == 0, *row.second != '\0');
        EXPECT_EQ(pfm_protect([&] { ar.WriteClass(&otherNode); }), 1);
        ar.WriteClass(&Node::record);
        if (row.first == &node) {
            EXPECT_EQ(pfm_protect([&] { ar.WriteObject(&derived); }), 1); // of a class that was stored before
        }
        ar.DeleteLoadedObjects(); // nothing: there are none
        free.SetClassTable(&GraphClasses()), free.SetClassTable(nullptr);
        EXPECT_EQ(pfm_protect([&] { free.WriteObject(&doing); }), 0);
    }
}

TEST_F(Document, TextsSayWhereAndInWhichObjects)
{
    std::string texts;
    std::vector<unsigned> schemas;
    const auto Note = [&](VELM_CArchive& ar) {
        HostWatch watch;
        EXPECT_EQ(pfm_protect([&] { ar.RaiseInvalid("no"); }), 1);
        texts += ar.GetErrorText() + std::string("|");
        schemas.push_back(ar.GetSchema());
    };
    Doing inner(Note), raising([](VELM_CArchive&) { pfm_raise(9); }), deeper([&](VELM_CArchive&ar) {
        HostWatch watch;
        pfm_protect([&] { ar.WriteObject(&raising); });
        [&] { // from a frame below that of the raise
            volatile char room[10000];
            room[0] = room[sizeof room - 1] = 0;
            Note(ar);
        }();
    });
    Node outer;
    outer.links = {&inner, &deeper};
    MemoryFile file;
    VELM_CArchive ar(&file, VELM_CArchive::store);
    ar.WriteObject(&outer);
    EXPECT_EQ(texts, "offset 41: no, in Doing (index 4) in Node (2)|offset 49: no, in Doing (index 5) in Node (2)|");
    EXPECT_EQ(schemas, (std::vector<unsigned>{3, 3}));
    EXPECT_EQ(ar.GetSchema(), 0xFFFFFFFF);
    EXPECT_EQ(ar.IsWhole(), 0);

    for (const unsigned nVersion : {1u, 2u, 3u}) {
        LoadingArchive from(Stored([&](VELM_CArchive& to) { to.SerializeVersion("Base", nVersion); }));
        unsigned nLoaded = 0;
        const std::string outcome = Outcome([&] { nLoaded = from.SerializeVersion("Base", 2); });
        EXPECT_EQ(Row() << nLoaded << outcome << from.GetErrorText(),
                  nVersion < 3 ? std::to_string(nVersion) + "  "
                               : "0 raise 1 offset 0: \"Base\" has version 3; the newest known is 2");
    }
}

TEST_F(Document, ReadingWhileStoringChangesNothing)
{
    MemoryFile file;
    VELM_CArchive ar(&file, VELM_CArchive::store);
    unsigned n = 5;
    double d = 2.5;
    VELM_CString text("old");
    std::string string("old");
    std::vector<int> numbers{1};
    std::map<int, std::string> map{{1, "one"}};
    std::optional<int> optional(7);
    std::unique_ptr<Node> pointer(new Node(3));
    Colour colour = Green;
    VELM_CString line("line");
    const std::string outcome = Outcome([&] {
        ar >> n >> d >> text >> string >> numbers >> map >> optional;
        ar.ReadEnum(colour, Red, Blue), ar.ReadString(line), ar.ReadCount(), ar.ReadInt64(), ar.ReadObject(nullptr);
    });
    EXPECT_EQ(outcome.find("raise"), std::string::npos);
    EXPECT_EQ(Row() << n << d << text << string << numbers.size() << map.size() << *optional << colour << line,
              "5 2.5 old old 1 1 7 0 line");
    EXPECT_EQ(Outcome([&] { EXPECT_EQ(ar.SerializeVersion("x", 1), 1u); }), "");
}

TEST_F(Document, SavesAndLoadsWithABody)
{
    Node a(1), b(2);
    a.links = {&b};
    const auto store = [&](VELM_CArchive& ar) {
        ar << 7u;
        ar.WriteOwned(&a), ar.WriteOwned(&b);
    };
    Node *pFirst = nullptr, *pSecond = nullptr;
    unsigned nValue = 0;
    const auto load = [&](VELM_CArchive& ar) {
        ar >> nValue;
        VELM_CObject* pOb = ar.ReadObject(&Node::record);
        pFirst = static_cast<Node*>(pOb), pSecond = static_cast<Node*>(ar.ReadObject(&Node::record));
    };
    HostWatch watch;
    ASSERT_EQ(AfxSaveDocument(path.c_str(), GraphClasses(), store, &error), 1) << error.m_data;
    EXPECT_STREQ(error.m_data, "");
    ASSERT_EQ(AfxLoadDocument(path.c_str(), GraphClasses(), load, &error), 1) << error.m_data;
    EXPECT_EQ(Row() << nValue << pFirst->value << (pFirst->links[0] == pSecond), "7 1 1");
    delete pFirst, delete pSecond;

    const std::string good = Contents();
    const std::pair<std::function<void(VELM_CArchive&)>, const char*> saves[] = {
        {[](VELM_CArchive&) { pfm_raise(42); }, "raise 42"},
        {[](VELM_CArchive&) { AfxMemoryExhausted(); }, "raise 1: memory is exhausted"},
        {[](VELM_CArchive& ar) { ar.Abort(); }, "offset 0: the archive was closed or aborted"},
        {[](VELM_CArchive& ar) { ar.WriteOwned(nullptr); }, "offset 0: an object that is owned is NULL"}};
    for (const auto& [body, lpszText] : saves) {
        EXPECT_EQ(AfxSaveDocument(path.c_str(), GraphClasses(), body, &error), 0);
        EXPECT_EQ(Error(), lpszText);
        EXPECT_EQ(Contents(), good);
    }
    EXPECT_EQ(AfxSaveDocument("/no/such/file", GraphClasses(), &a, &error), 0);
    EXPECT_STREQ(error.m_data, "/no/such/file: No such file or directory");
    EXPECT_EQ(AfxSaveDocument(nullptr, GraphClasses(), &a), 0);

    const std::pair<std::string, const char*> loads[] = {{good + "x", "offset 44: more follows behind the document"},
                                                         {good.substr(0, good.size() - 1), "offset 43: the data ends"},
                                                         {"", "offset 0: the data ends"}};
    for (const auto& [bytes, lpszText] : loads) {
        std::ofstream(path) << bytes;
        EXPECT_EQ(AfxLoadDocument(path.c_str(), GraphClasses(), load, &error), 0);
        EXPECT_EQ(Error().substr(0, Error().find(", in")), lpszText);
    }
    std::ofstream(path) << good << "x";
    const auto close = [&](VELM_CArchive& ar) { load(ar), ar.Close(); };
    EXPECT_EQ(AfxLoadDocument(path.c_str(), GraphClasses(), close, &error), 0);
    EXPECT_EQ(Error(), "offset 44: the archive was closed or aborted");
}

TEST_F(Document, WhatNobodyOwnsIsRefusedInBothDirections)
{
    Part root, stray;
    root.pReferred = &stray;
    HostWatch watch;
    EXPECT_EQ(AfxSaveDocument(path.c_str(), OwnerClasses(), &root, &error), 0);
    EXPECT_EQ(Error(), "offset 176: object 3, a Part, has no owner");
    EXPECT_EQ(Contents(), "old");
    std::ofstream(path) << Stored([&](VELM_CArchive& ar) { ar.WriteObject(&root); });
    EXPECT_EQ(AfxLoadDocument<Part>(path.c_str(), OwnerClasses(), &error), nullptr);
    EXPECT_EQ(Error(), "offset 176: object 3, a Part, has no owner");
}
