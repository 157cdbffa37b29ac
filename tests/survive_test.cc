// What is survived: exhausted memory at every allocation, files and constructors that raise, hosts whose raises return,
// exceptions that pass by.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <dlfcn.h>

#include <fstream>
#include <memory>
#include <sstream>
#include <stdexcept>

#include "tests/support/exhaust.h"
#include "tests/support/graph.h"
#include "tests/support/owners.h"
#include "tests/support/watch.h"

#if defined(TESTS_EXHAUST)
using TextMap = VELM_CMap<fxStr, char*, int, int>;
using StringMap = VELM_CMap<fxStr, char*, VELM_CString, const char*>; // of a caller's own
const char lpszLong[] = "a text that takes memory of its own, wherever it is kept";
static char key[] = "a key that takes memory of its own, wherever it is kept", one[] = "1", two[] = "2";

namespace {

// An operation, and what can be seen of what it works on; both keep that alive.
struct Subject {
    std::function<void()> operate;
    std::function<std::string()> state;
};

struct Scenario {
    const char* name;
    bool bWhole; // after a raise, all is as it was; else it holds what was whole
    std::function<Subject()> make;
};

std::string Elements(const VELM_CStringArray& array)
{
    std::string state = std::to_string(array.m_max_size) + ":";
    for (int i = 0; i < array.m_size; ++i)
        state += array.m_data[i].m_data + std::string("|");
    return state;
}

template <class MAP> std::string Entries(const MAP& map)
{
    int nOnChains = 0;
    for (unsigned i = 0; map.m_pHashTable != nullptr && i < map.m_nHashTableSize; ++i) {
        for (auto* p = map.m_pHashTable[i]; p != nullptr; p = p->pNext)
            ++nOnChains;
    }
    return std::to_string(map.GetCount()) + " counted, " + std::to_string(nOnChains) + " linked";
}

template <class OPERATE> Scenario OfStrings(const char* name, OPERATE operate, bool bWhole = true)
{
    return {name, bWhole, [operate] {
                auto strings = std::make_shared<std::pair<VELM_CStringArray, VELM_CStringArray>>();
                for (int i = 0; i < 16; ++i)
                    strings->first.Add(lpszLong), strings->second.Add(i % 2 ? "odd" : lpszLong);
                strings->second.Add("17th");
                return Subject{[=] { operate(strings->first, strings->second); },
                               [=] { return Elements(strings->first) + Elements(strings->second); }};
            }};
}

template <class MAP> Scenario OfMap(const char* name, int nEntries)
{
    return {name, true, [=] {
                auto map = std::make_shared<MAP>(3);
                char old[16];
                for (int i = 0; i < nEntries; ++i) {
                    snprintf(old, sizeof old, "%d", i);
                    (*map)[old];
                }
                return Subject{[=] { (*map)[key]; }, [=] { return Entries(*map); }};
            }};
}

template <class OBJECT> Scenario OfLoading(const char* name, const std::string& bytes, bool bCutBuffers)
{
    return {name, false, [=] {
                auto file = std::make_shared<MemoryFile>(bytes);
                auto ar = std::make_shared<VELM_CArchive>(file.get(), VELM_CArchive::load, bCutBuffers ? 128 : 4096);
                auto object = std::make_shared<OBJECT>();
                file->calls.reserve(1000);
                return Subject{[=] { object->Serialize(*ar), (void)file; },
                               [=] { return std::to_string(object->GetSize()); }};
            }};
}

void CheckScenarios(const std::vector<Scenario>& scenarios)
{
    for (const Scenario& scenario : scenarios) {
        std::string wanted;
        {
            const Subject subject = scenario.make();
            subject.operate();
            wanted = subject.state();
        }
        for (long k = 0, bFailed = 1; bFailed; ++k) {
            const long nLive = Exhaust::Live();
            {
                HostWatch watch;
                watch.raises.reserve(8);
                const Subject subject = scenario.make();
                const std::string was = subject.state();
                int nRaised;
                {
                    Exhaust exhaust(k);
                    nRaised = pfm_protect(subject.operate);
                }
                bFailed = Exhaust::HasFailed();
                if (nRaised != 0 && scenario.bWhole) {
                    EXPECT_EQ(subject.state(), was) << scenario.name << ", allocation " << k;
                    EXPECT_EQ(pfm_protect(subject.operate), 0) << scenario.name << ", allocation " << k;
                }
                EXPECT_EQ(nRaised, bFailed && nRaised ? 1 : 0) << scenario.name << ", allocation " << k;
                if (nRaised == 0 || scenario.bWhole) {
                    EXPECT_EQ(subject.state(), wanted) << scenario.name << ", allocation " << k;
                }
            }
            ASSERT_EQ(Exhaust::Live(), nLive) << scenario.name << " loses blocks, allocation " << k;
        }
    }
}

} // namespace

// Containers that count what they hold, and own it.
struct LoadedStrings : StringMap {
    int GetSize() const { return GetCount(); }
};
struct LoadedTexts : TextMap {
    int GetSize() const { return GetCount(); }
};
struct LoadedObjects : VELM_CObArray {
    ~LoadedObjects() override
    {
        for (int i = 0; i < GetSize(); ++i)
            delete (*this)[i];
    }
};

TEST(Exhausted, CollectionsAreAsTheyWere)
{
    using Strings = VELM_CStringArray;
    const auto ofPointers = [](const char* name, void (*operate)(VELM_CPtrArray&)) {
        return Scenario{name, true, [=] {
                            auto p = std::make_shared<VELM_CPtrArray>();
                            p->SetSize(5, 7);
                            return Subject{[=] { operate(*p); },
                                           [=] {
                                               return std::to_string(p->m_size) + "/" + std::to_string(p->m_max_size) +
                                                      " by " + std::to_string(p->m_grow_by);
                                           }};
                        }};
    };
    const auto ofPtrMap = [](const char* name, int nEntries) {
        return Scenario{name, true, [=] {
                            static unsigned words[100][4];
                            auto map = std::make_shared<VELM_CMapPtrToPtr>(3);
                            for (int i = 0; i < nEntries; ++i)
                                (*map)[words[i]] = one;
                            return Subject{[=] { (*map)[words[99]]; }, [=] { return Entries(*map); }};
                        }};
    };
    const auto ofObjects = [](const char* name, void (*operate)(VELM_CObArray&)) {
        return Scenario{name, false, [=] {
                            auto p = std::make_shared<VELM_CObArray>();
                            return Subject{[=] { operate(*p); }, [=] { return std::to_string(p->GetSize()); }};
                        }};
    };
    CheckScenarios(
        {ofPointers("pointers: SetSize", [](VELM_CPtrArray& a) { a.SetSize(9, 3); }),
         ofPointers("pointers: SetAtGrow", [](VELM_CPtrArray& a) { a.SetAtGrow(20, one); }),
         ofPointers("pointers: InsertAt", [](VELM_CPtrArray& a) { a.InsertAt(1, one, 20); }),
         ofObjects("objects: Append", [](VELM_CObArray& a) { a.InsertAt(0, nullptr, 20), a.Append(a); }),
         OfStrings("strings: Add", [](Strings& a, Strings&) { a.Add("new"); }),
         OfStrings("strings: Add of its own", [](Strings& a, Strings&) { a.Add(a.m_data[3]); }),
         OfStrings("strings: SetAt", [](Strings& a, Strings&) { a.SetAt(1, lpszLong + 1); }),
         OfStrings("strings: SetSize", [](Strings& a, Strings&) { a.SetSize(40); }),
         OfStrings("strings: =", [](Strings& a, Strings& b) { a = b; }),
         OfStrings(
             "strings: Add to none", [](Strings& a, Strings& b) { b.RemoveAll(), b.Add(a.m_data[0]); }, false),
         OfStrings(
             "strings: Sort", [](Strings& a, Strings& b) { a.Sort(b); }, false),
         ofPtrMap("pointer map: first entry", 0),
         ofPtrMap("pointer map: new block", 6),
         ofPtrMap("pointer map: index", 47),
         ofPtrMap("pointer map: larger index", 98),
         OfMap<TextMap>("text map: first entry", 0),
         OfMap<TextMap>("text map: index", 47),
         OfMap<StringMap>("own map: first entry", 0),
         OfMap<StringMap>("own map: new block", 6),
         OfMap<VELM_CMap<fxStr, const char*, int, int>>("address map: first entry", 0)});
}

TEST(Exhausted, AnAssignmentThatFailsLeavesNothingForAGrowthToShow)
{
    VELM_CStringArray texts;
    for (int i = 0; i < 20; ++i)
        texts.Add(lpszLong);
    for (long k = 0, bFailed = 1; bFailed; ++k) {
        HostWatch watch;
        VELM_CStringArray array;
        {
            Exhaust exhaust(k);
            pfm_protect([&] { array = texts; });
        }
        bFailed = Exhaust::HasFailed();
        array.SetSize(60);
        EXPECT_EQ(array.Find(lpszLong), bFailed ? -1 : 0) << "allocation " << k;
    }
}

TEST(Exhausted, ConstructorsLeaveNothing)
{
    const auto ofClass = [](const char* name, std::function<void(void*)> construct,
                            std::function<void(void*)> destroy) {
        return Scenario{name, false, [=] {
                            auto room = std::shared_ptr<std::max_align_t[]>(new std::max_align_t[64]);
                            auto made = std::make_shared<bool>(false);
                            return Subject{[=] {
                                               construct(room.get());
                                               destroy(room.get());
                                               *made = true;
                                           },
                                           [=] { return std::to_string(*made); }};
                        }};
    };
    static MemoryFile file;
    static const VELM_CStringArray strings = [] {
        VELM_CStringArray some;
        some.Add(lpszLong), some.Add(lpszLong);
        return some;
    }();
    file.calls.reserve(100000);
#define CLASS(TYPE, ARGUMENTS)                                                                                         \
    ofClass(                                                                                                           \
        #TYPE, [](void* p) { new (p) TYPE ARGUMENTS; }, [](void* p) { static_cast<TYPE*>(p)->~TYPE(); })
    CheckScenarios({CLASS(VELM_CString, (lpszLong)), CLASS(VELM_CStringArray, ()), CLASS(VELM_CStringArray, (strings)),
                    CLASS(VELM_CClassTable, ()), CLASS(VELM_CArchive, (&file, VELM_CArchive::load, 200)),
                    CLASS(VELM_CArchiveException, (3, lpszLong))});
}

TEST(Exhausted, ArchivesLoseNothingAndGoOn)
{
    static const std::string texts = Stored([](VELM_CArchive& ar) {
        TextMap map;
        map[key] = 1, map[two] = 2, map.Serialize(ar);
    });
    static const std::string strings = Stored([](VELM_CArchive& ar) {
        StringMap map;
        map[key] = lpszLong, map[two] = lpszLong, map.Serialize(ar);
    });
    static Node a(1), b(2);
    static Leaf c(3, lpszLong);
    a.links = {&b, &c, &a}, c.links = {&b};
    static const std::string graph = Stored([](VELM_CArchive& ar) { ar.WriteObject(&a); });
    static VELM_CClassTable table;
    static VELM_CRuntimeClass longRecord = {lpszLong, 0, 1};
    const auto storing = [](const char* name, bool bWhole, std::function<void(VELM_CArchive&)> operate) {
        return Scenario{name, bWhole, [=] {
                            auto file = std::make_shared<MemoryFile>();
                            file->data.reserve(10000), file->calls.reserve(100);
                            auto ar = std::make_shared<VELM_CArchive>(file.get(), VELM_CArchive::store, 4096);
                            return Subject{[=] { operate(*ar), (void)file; },
                                           [=] {
                                               return std::string(ar->m_lpBufStart, ar->m_lpBufCur) + " " +
                                                      std::to_string(ar->m_nIndexCount > 1);
                                           }};
                        }};
    };
    const Scenario loading = {"load a graph", false, [] {
                                  auto file = std::make_shared<MemoryFile>(graph);
                                  file->calls.reserve(100);
                                  auto ar = std::shared_ptr<VELM_CArchive>(
                                      new VELM_CArchive(file.get(), VELM_CArchive::load, 128),
                                      [file](VELM_CArchive* p) {
                                          p->DeleteLoadedObjects();
                                          delete p;
                                      });
                                  auto loaded = std::make_shared<VELM_CObject*>();
                                  return Subject{[=] {
                                                     ar->SetClassTable(&GraphClasses());
                                                     *loaded = ar->ReadObject(&Node::record);
                                                 },
                                                 [=] { return std::to_string(*loaded != nullptr); }};
                              }};
    const Scenario adding = {"class table: Add", true, [] {
                                 auto classes = std::make_shared<VELM_CClassTable>();
                                 return Subject{[=] { classes->Add<Node>(&longRecord); },
                                                [=] { return std::to_string(classes->Find(lpszLong) != nullptr); }};
                             }};
    GraphClasses();
    Printed([&] {
        CheckScenarios({storing("store the first object", true, [](VELM_CArchive& ar) { ar.WriteObject(&b); }),
                        storing("map an object", true, [](VELM_CArchive& ar) { ar.MapObject(&b); }),
                        storing("store a class", true, [](VELM_CArchive& ar) { ar.WriteClass(&longRecord); }),
                        storing("store a graph", false, [](VELM_CArchive& ar) { ar.WriteObject(&a); }), adding,
                        OfLoading<LoadedTexts>("load a text map", texts, true),
                        OfLoading<LoadedStrings>("load an own map", strings, true),
                        OfLoading<LoadedStrings>("load an own map, read ahead", strings, false),
                        OfLoading<LoadedObjects>("load objects", Bytes("03000000") + std::string(24, '\0'), true)});
    });
    // A Node of this test is a class of the caller's, with a vector: where that throws, the exception passes through.
    for (long k = 0, bFailed = 1; bFailed; ++k) {
        const long nLive = Exhaust::Live();
        {
            HostWatch watch;
            watch.raises.reserve(8);
            const Subject subject = loading.make();
            try {
                Exhaust exhaust(k);
                pfm_protect(subject.operate);
            } catch (const std::bad_alloc&) {
            }
            bFailed = Exhaust::HasFailed();
            EXPECT_TRUE(bFailed || subject.state() == "1") << k;
        }
        ASSERT_EQ(Exhaust::Live(), nLive) << "loading loses blocks, allocation " << k;
    }
}

// Runs an operation, in which each allocation fails once; afterwards as many blocks and objects live as before.
static void FailEachAllocation(const char* name, const std::function<void()>& operate)
{
    const int nObjects = Style::nAlive;
    for (long k = 0, bFailed = 1; bFailed; ++k) {
        const long nLive = Exhaust::Live();
        {
            HostWatch watch;
            watch.raises.reserve(8);
            operate();
            bFailed = Exhaust::HasFailed();
        }
        ASSERT_EQ(Exhaust::Live(), nLive) << name << " loses blocks, allocation " << k;
        ASSERT_EQ(Style::nAlive, nObjects) << name << " loses objects, allocation " << k;
    }
}

TEST(Exhausted, OwnersAndDocumentsLoseNothing)
{
    const std::string path = testing::TempDir() + "tavnomcl_survive_test" + std::to_string(getpid());
    const std::unique_ptr<Part> root = MakeParts(7, 30);
    const std::string bytes = StoredParts(*root);
    const auto Contents = [&] {
        std::ostringstream text;
        text << std::ifstream(path).rdbuf();
        return text.str();
    };
    long k = 0;
    FailEachAllocation("loading owners", [&] {
        VELM_CMemoryFile file(bytes.data(), bytes.size());
        VELM_CArchive ar(&file, VELM_CArchive::load, 128);
        VELM_CObject* pRoot = nullptr;
        int nRaised = -1;
        ar.SetClassTable(&OwnerClasses());
        try {
            Exhaust exhaust(k++);
            nRaised = pfm_protect([&] { pRoot = ar.ReadObject(&Part::classRecord); });
        } catch (const std::bad_alloc&) { // of a container, or of a Part
        }
        nRaised == 0 ? delete pRoot : ar.DeleteLoadedObjects();
    });
    k = 0;
    FailEachAllocation("saving a document", [&] {
        std::ofstream(path) << "old";
        VELM_CString error;
        int nSaved;
        {
            Exhaust exhaust(k++);
            nSaved = AfxSaveDocument(path.c_str(), OwnerClasses(), root.get(), &error);
        }
        EXPECT_EQ(Contents(), nSaved ? bytes : "old") << k;
        EXPECT_EQ(error.IsEmpty(), nSaved) << k;
    });
    std::ofstream(path) << bytes;
    k = 0;
    FailEachAllocation("loading a document", [&] {
        VELM_CString error;
        Part* pLoaded = nullptr;
        try {
            Exhaust exhaust(k++);
            pLoaded = AfxLoadDocument<Part>(path.c_str(), OwnerClasses(), &error);
            EXPECT_EQ(error.IsEmpty(), pLoaded != nullptr) << k;
        } catch (const std::bad_alloc&) {
        }
        delete pLoaded;
    });
    unlink(path.c_str());
}

TEST(Exhausted, AnArchiveWhoseLastWriteRaisesReleasesAllAndRaisesAgain)
{
    struct Raising : MemoryFile {
        void Write(const void*, unsigned) override { pfm_raise(9); }
    } file;
    Node node;
    file.calls.reserve(8);
    const auto store = [&] {
        VELM_CArchive ar(&file, VELM_CArchive::store);
        ar.WriteObject(&node);
    };
    HostWatch watch;
    watch.raises.reserve(8);
    const long nLive = Exhaust::Live();
    EXPECT_EQ(pfm_protect(store), 9);
    watch.bRaiseReturns = true;
    EXPECT_EQ(pfm_protect(store), 0);
    EXPECT_EQ(Exhaust::Live(), nLive);
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

// A class whose constructor, or whose loading, does something.
class Special : public VELM_CObject {
public:
    static VELM_CRuntimeClass record;
    static bool bRaiseInConstructor;
    static Special* pAborted; // the program's after an Abort, which forgets it
    VELM_CString name;

    Special()
    {
        if (bRaiseInConstructor) {
            name.~VELM_CString();
            pfm_raise(8);
        }
    }
    VELM_CRuntimeClass* GetRuntimeClass() const override { return &record; }
    void Serialize(VELM_CArchive& ar) override
    {
        if (ar.IsStoring()) {
            ar << 1u;
        } else {
            pAborted = this;
            ar.Abort();
            unsigned n;
            ar >> n;
        }
    }
};

VELM_CRuntimeClass Special::record = {"Special", 0, 1};
bool Special::bRaiseInConstructor = false;
Special* Special::pAborted = nullptr;

// A folder that owns the folders in it.
class Dir : public VELM_CObject {
public:
    static VELM_CRuntimeClass record;
    static int nAlive;
    std::vector<std::unique_ptr<Dir>> children;

    Dir() { ++nAlive; }
    ~Dir() override { --nAlive; }
    VELM_CRuntimeClass* GetRuntimeClass() const override { return &record; }
    void Serialize(VELM_CArchive& ar) override
    {
        if (ar.IsStoring()) {
            ar.WriteCount(children.size());
            for (const auto& child : children)
                ar.WriteObject(child.get());
        } else {
            for (unsigned long n = ar.ReadCount(); n > 0 && !ar.IsDataEnded(); --n) {
                children.emplace_back();
                children.back().reset(static_cast<Dir*>(ar.ReadObject(&record)));
            }
        }
    }
};

VELM_CRuntimeClass Dir::record = {"Dir", 0, 1};
int Dir::nAlive = 0;

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

TEST(Survived, ConstructorsThatRaiseAndLoadsThatAbort)
{
    VELM_CClassTable table;
    table.Add<Special>(&Special::record);
    Special special;
    const std::string bytes = Stored([&](VELM_CArchive& ar) { ar.WriteObject(&special); });
    for (const bool bInConstructor : {true, false}) {
        MemoryFile file(bytes);
        VELM_CArchive ar(&file, VELM_CArchive::load, 128);
        ar.SetClassTable(&table);
        Special::bRaiseInConstructor = bInConstructor;
        std::string outcome = Outcome([&] { ar.ReadObject(nullptr); });
        Special::bRaiseInConstructor = false;
        EXPECT_EQ(outcome.substr(outcome.find("raise")), bInConstructor ? "raise 8" : "raise 3");
        EXPECT_STREQ(ar.GetErrorText(),
                     bInConstructor ? "" : "offset 23: the data ends, in Special (index 2)"); // also after Abort
        ar.DeleteLoadedObjects();
    }
    delete Special::pAborted;
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

struct alignas(64) Global {}; // by the library's operator new
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

// While it is constructed, an object reads the next one, until nToMake have been made. The last raises; the one of the
// number nCatching survives that.
VELM_CArchive* pReading;
int nToMake, nCatching;

template <class BLOCKS> struct Nesting : BLOCKS, VELM_CObject {
    static VELM_CRuntimeClass record;
    Nesting()
    {
        const int nNumber = --nToMake;
        const auto goOn = [=] { nNumber == 0 ? pfm_raise(8) : void(pReading->ReadObject(nullptr)); };
        if (nNumber == nCatching)
            pfm_protect(goOn);
        else if (nNumber >= 0)
            goOn();
    }
    VELM_CRuntimeClass* GetRuntimeClass() const override { return &record; }
    void Serialize(VELM_CArchive&) override {}
};
template <class BLOCKS> VELM_CRuntimeClass Nesting<BLOCKS>::record = {typeid(BLOCKS).name(), 0, 1};

template <class BLOCKS> void AddAndStore(VELM_CClassTable& rTable, VELM_CArchive& ar)
{
    nToMake = 0;
    static const Nesting<BLOCKS> object;
    rTable.Add<Nesting<BLOCKS>>(&Nesting<BLOCKS>::record);
    ar.WriteObject(&object);
}

} // namespace

TEST(Survived, ConstructorsThatReadFurtherObjectsAndBlocksOfTheClassItself)
{
    VELM_CClassTable table;
    const std::string bytes = Stored([&](VELM_CArchive& ar) {
        AddAndStore<Plain>(table, ar), AddAndStore<Sized>(table, ar);
        AddAndStore<Global>(table, ar), AddAndStore<Aligned>(table, ar);
    });
    const int nLast = 3;
    for (nCatching = -1; nCatching <= nLast; ++nCatching) {
        MemoryFile file(bytes);
        VELM_CArchive ar(&file, VELM_CArchive::load);
        ar.SetClassTable(&table);
        pReading = &ar, nToMake = nLast + 1;
        EXPECT_EQ(Outcome([&] { ar.ReadObject(nullptr); }), "raise 8");
        // Those that are whole, or all while nobody has survived; the third is not counted.
        const int nKept = nLast + 1 - std::max(nCatching, 0);
        EXPECT_EQ(Blocks<1>::nLive + Blocks<2>::nLive + Blocks<3>::nLive, nKept - (nKept > 2)) << nCatching;
        ar.DeleteLoadedObjects();
        EXPECT_EQ(Row() << Blocks<1>::nLive << Blocks<2>::nLive << Blocks<3>::nLive, "0 0 0") << nCatching;
    }
}

TEST(Survived, WhoOwnsWhatItRefersToLetsGoBeforeAnythingIsDeleted)
{
    Dir root;
    root.children.emplace_back(new Dir), root.children.emplace_back(new Dir);
    root.children[0]->children.emplace_back(new Dir);
    const int nBefore = Dir::nAlive;
    const std::string bytes = Stored([&](VELM_CArchive& ar) { ar.WriteObject(&root); });
    VELM_CClassTable table;
    table.Add<Dir>(&Dir::record, nullptr, [](VELM_CObject* pOb) {
        for (auto& child : static_cast<Dir*>(pOb)->children)
            child.release();
    });
    for (size_t n = 0; n <= bytes.size(); ++n) {
        MemoryFile file(bytes.substr(0, n));
        VELM_CArchive ar(&file, VELM_CArchive::load);
        ar.SetClassTable(&table);
        HostWatch watch;
        std::unique_ptr<Dir> loaded;
        VELM_CObject* pLoaded = nullptr;
        if (pfm_protect([&] { pLoaded = ar.ReadObject(&Dir::record); }) == 0)
            loaded.reset(static_cast<Dir*>(pLoaded));
        else
            ar.DeleteLoadedObjects();
        EXPECT_EQ(Dir::nAlive, n < bytes.size() ? nBefore : 2 * nBefore) << n;
    }
}

TEST(Survived, WhatEndedStaysEnded)
{
    MemoryFile file(Bytes("FFFF0000 FFFFFFFF 07"));
    VELM_CArchive ar(&file, VELM_CArchive::load, 128);
    unsigned n = 5;
    unsigned long nRounds = 0;
    EXPECT_EQ(Outcome(
                  [&] {
                      for (unsigned long nLeft = ar.ReadCount(); nLeft > 0 && !ar.IsDataEnded(); --nLeft, ++nRounds)
                          ar >> n;
                  },
                  true),
              "raise 3");
    EXPECT_EQ(nRounds, 1u);
    const size_t nCalls = file.calls.size();
    unsigned char by = 9;
    VELM_CString text("old");
    EXPECT_EQ(Outcome([&] { ar >> by >> text >> n, ar.ReadCount(); }, true), "raise 3; raise 3; raise 3; raise 3");
    EXPECT_EQ(file.calls.size(), nCalls); // without a look at the file
    EXPECT_EQ(std::to_string(by) + text.m_data + std::to_string(n), "95");
    ar.Flush(); // begins anew
    file.data += "\x08";
    EXPECT_EQ(Outcome([&] { ar >> by; }), "");
    EXPECT_EQ(by, 8);
    // A broken precondition ends nothing; an offset is one of the stream.
    MemoryFile strings(Bytes("00 0162 0163"));
    VELM_CArchive from(&strings, VELM_CArchive::load);
    VELM_CString elements[3];
    EXPECT_EQ(Outcome([&] { from.Read(nullptr, 1), SerializeElements(from, elements, 3); }), "lpBuf != NULL");
    EXPECT_EQ(elements[0].m_data + std::string(elements[1].m_data) + elements[2].m_data, "bc");
}

TEST(Survived, BlocksAreReleasedByExceptionsAndWithTheirOuterOne)
{
    HostWatch watch;
    EXPECT_EQ(pfm_protect([] {
                  EXPECT_THROW(pfm_protect([] { throw std::runtime_error("a body's own"); }), std::runtime_error);
                  pfm_raise(4); // comes here, and not to the frame that is gone
              }),
              4);
    pfm_cleanup_block blocks[3];
    const auto start = [](pfm_cleanup_block& block) {
        block.nJumped = 0;
        pfm_cleanup_start(&block, 0), pfm_cleanup_reset(&block);
    };
    EXPECT_EQ(pfm_protect([&] {
                  start(blocks[0]), start(blocks[1]), start(blocks[2]);
                  pfm_cleanup_rls(&blocks[0]);
                  pfm_cleanup_rls(&blocks[2]), pfm_cleanup_rls(&blocks[1]); // neither brings an outer one back
                  pfm_raise(6);
              }),
              6);
}

TEST(Survived, ClassesWithoutANameOrWithAStrangeOne)
{
    VELM_CRuntimeClass nameless = {nullptr, 0, 1};
    std::string bytes;
    EXPECT_EQ(Outcome([&] {
                  bytes = Stored([&](VELM_CArchive& ar) { ar.WriteClass(&nameless), nameless.Store(ar), ar << 7u; });
              }),
              "pClassRef->m_pszName != NULL; m_pszName != NULL");
    EXPECT_EQ(bytes, Bytes("07000000"));
    EXPECT_EQ(HashKey("ab"), 0xA0u); // the text, also of a literal
    EXPECT_EQ(HashKey(static_cast<const char*>(nullptr)), 0u);
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
TEST(Survived, TheLibraryCanBeUnloaded)
{
    const auto mappings = [] {
        std::ifstream maps("/proc/self/maps");
        int n = 0;
        for (std::string line; std::getline(maps, line);)
            n += line.find("libtavnomcl.so") != std::string::npos;
        return n;
    };
    Dl_info library;
    ASSERT_NE(dladdr(reinterpret_cast<void*>(&CStringCompare), &library), 0);
    const int nBefore = mappings();
    void* pSecond = dlmopen(LM_ID_NEWLM, library.dli_fname, RTLD_NOW);
    ASSERT_NE(pSecond, nullptr) << dlerror();
    EXPECT_GT(mappings(), nBefore);
    dlclose(pSecond);
    EXPECT_EQ(mappings(), nBefore);
}

#if defined(__LP64__)
TEST(Survived, ATextOfMoreThanFourGigabytesIsWrittenWhole)
{
    struct CountedFile : VELM_CFile {
        unsigned long long nBytes = 0;
        void Write(const void*, unsigned nCount) override { nBytes += nCount; }
    } file;
    // 2 MB of memory, seen 2049 times in a row, and a NUL behind them.
    const size_t nPiece = size_t{2} << 20, nPieces = 2049;
    const int fd = memfd_create("text", 0);
    ASSERT_EQ(ftruncate(fd, nPiece), 0);
    char* const pText = static_cast<char*>(mmap(nullptr, (nPieces + 1) * nPiece, PROT_READ | PROT_WRITE,
                                                MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0));
    ASSERT_NE(pText, MAP_FAILED);
    for (size_t i = 0; i < nPieces; ++i)
        ASSERT_NE(mmap(pText + i * nPiece, nPiece, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_FIXED, fd, 0), MAP_FAILED);
    memset(pText, 'x', nPiece);
    VELM_CArchive(&file, VELM_CArchive::store).WriteString(pText);
    EXPECT_EQ(file.nBytes, nPieces * nPiece);
    munmap(pText, (nPieces + 1) * nPiece), close(fd);
}
#endif
#endif
