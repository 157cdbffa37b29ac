// What is survived: exhausted memory at every allocation, files and constructors that raise, hosts whose raises return,
// exceptions that pass by.
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstddef>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "host/GenericList.h"
#include "tests/support/exhaust.h"
#include "tests/support/graph.h"
#include "tests/support/owners.h"
#include "tests/support/watch.h"

#if defined(TESTS_EXHAUST)
namespace {

const char lpszLong[] = "a text that takes memory of its own, wherever it is kept";
const std::string path = testing::TempDir() + "tavnomcl_survive_test" + std::to_string(getpid());
std::string bytes; // what is loaded, or stands in the file before

// Makes a SUBJECT and operates on it, once for each allocation of that, which fails. It raises 1, unless it can do
// without; an exception of a class of these tests passes. Nothing is lost. With bWhole all is as it was after a raise,
// and the operation can be made again.
template <class SUBJECT, class OPERATE> void FailEach(const std::string& name, bool bWhole, const OPERATE& operate)
{
    std::string wanted;
    {
        SUBJECT subject;
        operate(subject);
        wanted = subject.State();
    }
    for (long k = 0, bFailed = 1; bFailed; ++k) {
        SCOPED_TRACE(name + ", allocation " + std::to_string(k));
        const long nLive = Exhaust::Live(), nObjects = Style::nAlive;
        {
            HostWatch watch;
            watch.raises.reserve(8);
            SUBJECT subject;
            const std::string was = subject.State();
            int nRaised = 1;
            try {
                Exhaust exhaust(k);
                nRaised = pfm_protect([&] { operate(subject); });
            } catch (const std::bad_alloc&) {
            }
            bFailed = Exhaust::HasFailed();
            EXPECT_EQ(nRaised, bFailed && nRaised != 0);
            if (nRaised != 0 && bWhole) {
                EXPECT_EQ(subject.State(), was);
                EXPECT_EQ(pfm_protect([&] { operate(subject); }), 0);
            }
            if (nRaised == 0 || bWhole) {
                EXPECT_EQ(subject.State(), wanted);
            }
        }
        ASSERT_EQ(Exhaust::Live(), nLive) << "blocks are lost";
        ASSERT_EQ(Style::nAlive, nObjects) << "objects are lost";
    }
}

struct Pointers : VELM_CPtrArray {
    Pointers() { SetSize(5, 7); }
    std::string State() const { return (Row() << m_size << m_max_size << m_grow_by).Text(); }
};

struct Objects : VELM_CObArray { // which it owns
    ~Objects() override
    {
        for (int i = 0; i < GetSize(); ++i)
            delete (*this)[i];
    }
    int GetCount() const { return GetSize(); }
    std::string State() const { return std::to_string(GetSize()); }
};

struct Strings {
    VELM_CStringArray a, b, none;

    Strings()
    {
        for (int i = 0; i < 16; ++i)
            a.Add(lpszLong), b.Add(i % 2 ? "odd" : lpszLong);
        b.Add("17th");
    }
    std::string State() const
    {
        Row row;
        for (const VELM_CStringArray* p : {&a, &b, &none})
            for (int i = (row << p->m_max_size, 0); i < p->m_size; ++i)
                row << p->m_data[i];
        return row.Text();
    }
};

struct Text : VELM_CString {
    using VELM_CString::operator=;

    Text() : VELM_CString("old") {}
    std::string State() const { return m_data; }
};

char* KeyAt(int i)
{
    alignas(16) static char keys[100][64];
    snprintf(keys[i], sizeof keys[i], "%-3d: a key that takes memory of its own, wherever it is kept", i);
    return keys[i];
}

template <class MAP, int ENTRIES> struct Entries : MAP {
    Entries() : MAP(3)
    {
        for (int i = 0; i < ENTRIES; ++i)
            (*this)[KeyAt(i)];
    }
    std::string State() const
    {
        int nOnChains = 0;
        for (unsigned i = 0; this->m_pHashTable != nullptr && i < this->m_nHashTableSize; ++i)
            for (auto* p = this->m_pHashTable[i]; p != nullptr; p = p->pNext)
                ++nOnChains;
        return (Row() << this->GetCount() << nOnChains).Text();
    }
};
using PointerMap = VELM_CMapPtrToPtr;
using TextMap = VELM_CMap<fxStr, char*, int, int>;
using AddressMap = VELM_CMap<fxStr, const char*, int, int>;
using OwnMap = VELM_CMap<fxStr, char*, VELM_CString, const char*>; // of a program's own

template <class MAP, int ENTRIES> void AddToMap(const std::string& name)
{
    FailEach<Entries<MAP, ENTRIES>>(name + " with " + std::to_string(ENTRIES), true, [](MAP& map) { map[KeyAt(99)]; });
}

struct Nothing {
    alignas(std::max_align_t) char room[1024];
    std::string State() const { return ""; }
};

template <class TYPE, class... ARGUMENTS> void Construct(const std::string& name, const ARGUMENTS&... arguments)
{
    FailEach<Nothing>(name, true, [&](Nothing& place) { (new (place.room) TYPE(arguments...))->~TYPE(); });
}

struct Classes : VELM_CClassTable {
    std::string State() const { return std::to_string(Find(lpszLong) != nullptr); }
};

struct Storing {
    VELM_CMemoryFile file;
    VELM_CArchive ar{&file, VELM_CArchive::store};
    std::string State() const
    {
        return std::string(ar.m_lpBufStart, ar.m_lpBufCur) + (ar.m_nIndexCount > 1 ? " and indexes" : "");
    }
};

template <int BUFFER = 128> struct Loading {
    VELM_CMemoryFile file{bytes.data(), static_cast<unsigned long>(bytes.size())};
    VELM_CArchive ar{&file, VELM_CArchive::load, BUFFER};
};
template <class OBJECT, int BUFFER = 128> struct LoadingInto : Loading<BUFFER> {
    OBJECT object;
    std::string State() const { return std::to_string(object.GetCount()); }
};
struct LoadingGraph : Loading<> {
    VELM_CObject* pRoot = nullptr;
    ~LoadingGraph() { ar.DeleteLoadedObjects(); }
    std::string State() const { return pRoot == nullptr ? "nothing" : "a graph"; }
};

struct Document {
    VELM_CString error;
    Document() { std::ofstream(path) << bytes; }
    ~Document() { unlink(path.c_str()); }
    std::string State() const
    {
        std::ostringstream text;
        text << std::ifstream(path).rdbuf();
        return text.str();
    }
    void End(bool bGood)
    {
        EXPECT_EQ(error.IsEmpty(), bGood);
        if (!bGood)
            pfm_raise(1);
    }
};

} // namespace

TEST(Exhausted, CollectionsAreAsTheyWere)
{
    FailEach<Pointers>("pointers: SetSize", true, [](Pointers& a) { a.SetSize(9, 3); });
    FailEach<Pointers>("pointers: SetAtGrow", true, [](Pointers& a) { a.SetAtGrow(20, &a); });
    FailEach<Pointers>("pointers: InsertAt", true, [](Pointers& a) { a.InsertAt(1, &a, 20); });
    FailEach<Objects>("objects: Append", false, [](Objects& a) { a.InsertAt(0, nullptr, 20), a.Append(a); });
    FailEach<Strings>("strings: Add", true, [](Strings& s) { s.a.Add("new"); });
    FailEach<Strings>("strings: Add of its own", true, [](Strings& s) { s.a.Add(s.a.m_data[3]); });
    FailEach<Strings>("strings: Add to none", true, [](Strings& s) { s.none.Add(lpszLong); });
    FailEach<Strings>("strings: SetAt", true, [](Strings& s) { s.a.SetAt(1, lpszLong + 1); });
    FailEach<Strings>("strings: SetSize", true, [](Strings& s) { s.a.SetSize(40); });
    FailEach<Strings>("strings: =", true, [](Strings& s) { s.a = s.b; });
    FailEach<Strings>("strings: = that leaves nothing for a growth to show", false, [](Strings& s) {
        const int nRaised = pfm_protect([&] { s.none = s.a; });
        s.none.SetSize(60);
        EXPECT_EQ(s.none.Find(lpszLong), nRaised ? -1 : 0);
        if (nRaised)
            pfm_raise(nRaised);
    });
    FailEach<Strings>("strings: Sort", false, [](Strings& s) { s.a.Sort(s.b); });
    FailEach<Text>("text: =", true, [](Text& s) { s = lpszLong; });
    FailEach<Text>("text: +=", true, [](Text& s) { s += lpszLong; });
    AddToMap<PointerMap, 0>("pointer map"), AddToMap<PointerMap, 6>("pointer map: new block");
    AddToMap<PointerMap, 47>("pointer map: index"), AddToMap<PointerMap, 98>("pointer map: larger index");
    AddToMap<TextMap, 0>("text map"), AddToMap<TextMap, 47>("text map: index"), AddToMap<AddressMap, 0>("address map");
    AddToMap<OwnMap, 0>("own map"), AddToMap<OwnMap, 6>("own map: new block");
}

TEST(Exhausted, ConstructorsLeaveNothing)
{
    static VELM_CMemoryFile file;
    VELM_CStringArray strings;
    strings.Add(lpszLong), strings.Add(lpszLong);
    Construct<VELM_CString>("a string", lpszLong);
    Construct<VELM_CStringArray>("no strings"), Construct<VELM_CStringArray>("strings", strings);
    Construct<VELM_CClassTable>("a class table"), Construct<VELM_CArchiveException>("an exception", 3, lpszLong);
    Construct<VELM_CArchive>("an archive", &file, 1u, 200), Construct<fxStr>("a host's string", lpszLong);
    const auto append = [](Nothing& subject) { GenericList().append(&subject); };
    FailEach<Nothing>("a host's list", true, append);
    Nothing nothing;
    EXPECT_EXIT(Outcome(
                    [&] {
                        Exhaust exhaust(0);
                        append(nothing);
                    },
                    true),
                testing::KilledBySignal(SIGABRT), "libtavnohost: memory is exhausted");
}

TEST(Exhausted, ArchivesLoseNothingAndGoOn)
{
    static VELM_CRuntimeClass longRecord = {lpszLong, 0, 1};
    static Node a(1), b(2);
    static Leaf c(3, lpszLong);
    a.links = {&b, &c, &a}, c.links = {&b};
    GraphClasses();
    AfxSetNotices(0);
    FailEach<Storing>("store an object", true, [](Storing& to) { to.ar.WriteObject(&b); });
    FailEach<Storing>("map an object", true, [](Storing& to) { to.ar.MapObject(&b); });
    FailEach<Storing>("store a class", true, [](Storing& to) { to.ar.WriteClass(&longRecord); });
    FailEach<Storing>("store a graph", false, [](Storing& to) { to.ar.WriteObject(&a); });
    const auto images = [](auto& of) { SerializeElements(of.ar, static_cast<VELM_CObject*>(&a), 20); };
    FailEach<Storing>("store images", true, images);
    FailEach<Classes>("add a class", true, [](Classes& classes) { classes.Add<Node>(&longRecord); });
    bytes = Stored([](VELM_CArchive& ar) { ar.WriteObject(&a); });
    FailEach<LoadingGraph>("load a graph", false, [](LoadingGraph& from) {
        from.ar.SetClassTable(&GraphClasses());
        from.pRoot = from.ar.ReadObject(&Node::record);
    });
    bytes = Stored([](VELM_CArchive& ar) { Entries<TextMap, 2>().Serialize(ar); });
    const auto load = [](auto& from) { from.object.Serialize(from.ar); };
    FailEach<LoadingInto<TextMap>>("load a text map", false, load);
    bytes = Stored([](VELM_CArchive& ar) {
        Entries<OwnMap, 2> map;
        map[KeyAt(0)] = lpszLong, map.Serialize(ar);
    });
    FailEach<LoadingInto<OwnMap>>("load an own map", false, load);
    FailEach<LoadingInto<OwnMap, 4096>>("load an own map, read ahead", false, load);
    bytes = Bytes("03000000") + std::string(24, '\0');
    FailEach<LoadingInto<Objects>>("load objects", false, load);
    bytes = Stored([](VELM_CArchive& ar) { SerializeElements(ar, static_cast<VELM_CObject*>(&a), 20); });
    EXPECT_EQ(bytes, std::string(160, '\0'));
    FailEach<LoadingInto<Objects>>("load images", false, images);
    AfxSetNotices(1);
}

TEST(Exhausted, OwnersAndDocumentsLoseNothing)
{
    const std::unique_ptr<Part> root = MakeParts(7, 30);
    bytes = StoredParts(*root);
    FailEach<LoadingGraph>("load owners", false, [](LoadingGraph& from) {
        from.ar.SetClassTable(&OwnerClasses());
        from.pRoot = from.ar.ReadObject(&Part::classRecord);
    });
    FailEach<Document>("load a document", true, [](Document& document) {
        Part* const p = AfxLoadDocument<Part>(path.c_str(), OwnerClasses(), &document.error);
        delete p;
        document.End(p != nullptr);
    });
    bytes = "old";
    FailEach<Document>("save a document", true, [&](Document& document) {
        document.End(AfxSaveDocument(path.c_str(), OwnerClasses(), root.get(), &document.error));
    });
}

TEST(Exhausted, AnArchiveWhoseLastWriteRaisesReleasesAllAndRaisesAgain)
{
    struct Raising : VELM_CMemoryFile {
        void Write(const void*, unsigned) override { pfm_raise(9); }
    } file;
    Node node;
    const auto store = [&] {
        VELM_CArchive ar(&file, VELM_CArchive::store);
        ar.WriteObject(&node);
    };
    HostWatch watch;
    watch.raises.reserve(8);
    for (const int nRaised : {9, 0}) {
        const long nLive = Exhaust::Live();
        watch.bRaiseReturns = nRaised == 0;
        EXPECT_EQ(pfm_protect(store), nRaised);
        EXPECT_EQ(Exhaust::Live(), nLive);
    }
}
#endif

namespace {

// A file in memory whose read of that number (from 1) raises 9 when it has delivered half of what is asked.
class RaisingFile : public MemoryFile {
public:
    int nReadsLeft;

    RaisingFile(std::string contents, int nRaisingRead) : MemoryFile(std::move(contents)), nReadsLeft(nRaisingRead) {}
    unsigned Read(void* lpBuf, unsigned nCount) override
    {
        const bool bRaise = --nReadsLeft == 0;
        const unsigned n = MemoryFile::Read(lpBuf, bRaise ? nCount / 2 : nCount);
        if (bRaise)
            pfm_raise(9);
        return n;
    }
};

} // namespace

TEST(Survived, AFileThatRaisesLeavesValidStrings)
{
    const std::string text(20000, 't');
    for (int nRead = 1; nRead < 8; ++nRead) {
        RaisingFile file(Bytes("FF 204E0000") + text, nRead);
        VELM_CArchive ar(&file, VELM_CArchive::load, 128);
        VELM_CString string("old");
        HostWatch watch;
        const int nRaised = pfm_protect([&] { ar >> string; });
        EXPECT_EQ(std::string(string.m_data).size(), static_cast<size_t>(string.m_len)) << nRead;
        EXPECT_EQ(VELM_CString(string).m_len, nRaised == 0 ? 20000 : 3) << nRead;
    }
    for (const int nRead : {1, 2}) { // what FillBuffer had kept is delivered after the raise, and nothing else
        RaisingFile file("0123456789" + text, nRead);
        VELM_CArchive ar(&file, VELM_CArchive::load, 128);
        HostWatch watch;
        file.nMostPerRead = 10;
        pfm_protect([&] { ar.FillBuffer(5), ar.m_lpBufCur += 5, ar.FillBuffer(100); });
        EXPECT_EQ(std::string(ar.m_lpBufCur, ar.m_lpBufMax), nRead == 1 ? "" : "56789") << nRead;
    }
}

namespace {

// What takes and frees the blocks of a class's objects, and how many there are: one for each class.
template <int NUMBER> struct Blocks {
    static int nLive;
    static size_t nBytes;
    static void* Get(size_t n, size_t nAlignment = 16)
    {
        return ++nLive, nBytes = n, std::aligned_alloc(nAlignment, (n + nAlignment - 1) / nAlignment * nAlignment);
    }
    static void Free(void* p) { --nLive, std::free(p); }
};
template <int NUMBER> int Blocks<NUMBER>::nLive = 0;
template <int NUMBER> size_t Blocks<NUMBER>::nBytes = 0;

struct alignas(4096) Global {}; // by the library's operator new
struct Plain : Blocks<1> {
    virtual ~Plain() {} // so that the block does not begin with the VELM_CObject
    static void* operator new(size_t n) { return Get(n); }
    static void operator delete(void* p) { Free(p); }
    static void operator delete(void*, size_t) { ADD_FAILURE(); }
};
struct Sized : Blocks<2> {
    static void* operator new(size_t n) { return Get(n); }
    static void operator delete(void* p, size_t n) { Free(n == nBytes ? p : nullptr); }
};
struct alignas(128) Aligned : Blocks<3> {
    static void* operator new(size_t n, std::align_val_t a) { return Get(n, static_cast<size_t>(a)); }
    static void* operator new(size_t) noexcept { return nullptr; }
    static void operator delete(void* p, std::align_val_t) { Free(p); }
    static void operator delete(void*) { ADD_FAILURE(); }
};

// While it is constructed, an object reads the next one, until nToMake have been made. The last raises or throws; the
// one of the number nCatching survives that.
VELM_CArchive* pReading;
int nToMake, nCatching;
bool bThrows;

void ReadFurther(int nNumber)
{
    if (nNumber > 0)
        pReading->ReadObject(nullptr);
    else if (bThrows)
        throw std::runtime_error("a constructor's own");
    else
        pfm_raise(8);
}

template <class BLOCKS> struct Nesting : BLOCKS, VELM_CObject {
    static VELM_CRuntimeClass record;
    Nesting()
    {
        const int nNumber = --nToMake;
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(this) % alignof(Nesting), 0u);
        try {
            if (nNumber == nCatching)
                pfm_protect([=] { ReadFurther(nNumber); });
            else if (nNumber >= 0)
                ReadFurther(nNumber);
        } catch (const std::runtime_error&) {
            if (nNumber != nCatching)
                throw;
        }
    }
    VELM_CRuntimeClass* GetRuntimeClass() const override { return &record; }
    void Serialize(VELM_CArchive&) override {}
};
template <class BLOCKS> VELM_CRuntimeClass Nesting<BLOCKS>::record = {typeid(BLOCKS).name(), 0, 1};

template <class BLOCKS> void AddAndStore(VELM_CClassTable& rTable, VELM_CArchive& ar)
{
    nToMake = 0, nCatching = -2;
    static const Nesting<BLOCKS> object;
    rTable.Add<Nesting<BLOCKS>>(&Nesting<BLOCKS>::record);
    ar.WriteObject(&object);
}

} // namespace

TEST(Survived, ConstructorsThatReadFurtherObjectsAndBlocksOfTheClassItself)
{
    VELM_CClassTable table;
    const std::string stored = Stored([&](VELM_CArchive& ar) {
        AddAndStore<Plain>(table, ar), AddAndStore<Sized>(table, ar);
        AddAndStore<Global>(table, ar), AddAndStore<Aligned>(table, ar);
    });
    const int nLast = 3;
    for (int i = 0; i < 2 * (nLast + 2); ++i) {
        LoadingArchive ar(stored, &table);
        pReading = &ar, nToMake = nLast + 1, nCatching = i / 2 - 1, bThrows = i % 2 != 0;
        const auto read = [&] { ar.ReadObject(nullptr); };
        if (bThrows && nCatching < 0) {
            EXPECT_THROW(Outcome(read), std::runtime_error);
        } else {
            EXPECT_EQ(Outcome(read), bThrows ? "" : "raise 8");
        }
        // Those that are whole, or all while nobody has survived; the third is not counted.
        const int nKept = nLast + 1 - std::max(nCatching, 0);
        EXPECT_EQ(Blocks<1>::nLive + Blocks<2>::nLive + Blocks<3>::nLive, nKept - (nKept > 2)) << i;
        ar.DeleteLoadedObjects();
        EXPECT_EQ(Row() << Blocks<1>::nLive << Blocks<2>::nLive << Blocks<3>::nLive, "0 0 0") << i;
    }
}

TEST(Survived, WhatEndedStaysEnded)
{
    MemoryFile file(Bytes("FFFF0000 FFFFFFFF 07"));
    VELM_CArchive ar(&file, VELM_CArchive::load, 128);
    unsigned n = 5;
    unsigned long nRounds = 0;
    const auto load = [&] {
        for (unsigned long nLeft = ar.ReadCount(); nLeft > 0 && !ar.IsDataEnded(); --nLeft, ++nRounds)
            ar >> n;
    };
    EXPECT_EQ(Outcome(load, true), "raise 3");
    EXPECT_EQ(nRounds, 1u);
    const size_t nCalls = file.calls.size();
    unsigned char by = 9;
    VELM_CString text("old");
    EXPECT_EQ(Outcome([&] { ar >> by >> text >> n, ar.ReadCount(); }, true), "raise 3; raise 3; raise 3; raise 3");
    EXPECT_EQ(file.calls.size(), nCalls); // without a look at the file
    EXPECT_EQ(Row() << int{by} << text << n, "9  5");
    ar.Flush(); // begins anew
    file.data += "\x08";
    EXPECT_EQ(Outcome([&] { ar >> by; }), "");
    EXPECT_EQ(by, 8);
    // A broken precondition ends nothing; an offset is one of the stream.
    LoadingArchive from(Bytes("00 0162 0163"));
    VELM_CString elements[3];
    EXPECT_EQ(Outcome([&] { from.Read(nullptr, 1), SerializeElements(from, elements, 3); }), "lpBuf != NULL");
    EXPECT_EQ(Row() << elements[0] << elements[1] << elements[2], "b c");
}
