// What new programs expect: every value, the standard library's containers and habits; and that the old idioms mean
// what they meant.
#include "mcl/mfc_std.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <sstream>

#include "tests/support/graph.h"
#include "tests/support/values.h"
#include "tests/support/watch.h"

template <> struct VELM_CClassOf<Node> {
    static const VELM_CRuntimeClass* Record() { return &Node::record; }
};

enum Colour { Red = -1, Green, Blue };
enum class Small : unsigned char { Low = 1, High = 200 };
enum Word : unsigned { AWord = 7 };

struct ToUnsigned {
    operator unsigned() const { return 5; }
};

// Which function a program's own operators are, beside the library's.
struct Own {};
static std::string g_called;
static VELM_CArchive& operator<<(VELM_CArchive& ar, Own)
{
    g_called += "own ";
    return ar;
}

template <class TYPE> using Stores = VELM_CMoves<false, TYPE>;
template <class TYPE> using Loads = VELM_CMoves<true, TYPE>;
static_assert(!Stores<long long>::value && !Stores<unsigned long long>::value && !Stores<long double>::value, "");
static_assert(!Loads<long long>::value && !Loads<unsigned long long>::value && !Loads<const char*>::value, "");
static_assert(!Stores<void*>::value && !Stores<int*>::value && !Stores<Node*>::value && !Stores<Colour>::value, "");
static_assert(!Stores<Word>::value && !Stores<Small>::value && !Stores<std::nullptr_t>::value &&
                  !Stores<void (*)()>::value,
              "");
class Declared;
Declared& operator<<(Declared& log, int);
static_assert(std::is_same<decltype(std::declval<Declared&>() << 1), Declared&>::value, "");
static_assert(!std::is_convertible<VELM_CString, std::string>::value, "");
static_assert(!std::is_convertible<std::string, VELM_CString>::value, "");

TEST(Std, StoresEachTypeInItsWidthAndOldIdiomsAsEver)
{
    const struct {
        const char* name;
        std::function<void(VELM_CArchive&)> body;
        const char* bytes;
    } rows[] = {
        {"unsigned char", [](VELM_CArchive& ar) { ar << static_cast<unsigned char>(200); }, "C8"},
        {"unsigned", [](VELM_CArchive& ar) { ar << 1u << 2ul; }, "01000000 02000000"},
        {"text", [](VELM_CArchive& ar) { ar << "ab" << VELM_CString("c"); }, "026162 0163"},
        {"char*", [](VELM_CArchive& ar) { ar << VELM_CString("ab").m_data; }, "026162"},
        {"converted", [](VELM_CArchive& ar) { ar << ToUnsigned(); }, "05000000"},
        {"own", [](VELM_CArchive& ar) { ar << Own() << 'x'; }, "78"},
        {"bool", [](VELM_CArchive& ar) { ar << true << false; }, "01 00"},
        {"char", [](VELM_CArchive& ar) { ar << 'a' << static_cast<signed char>(-2); }, "61 FE"},
        {"short", [](VELM_CArchive& ar) { ar << short(-2) << static_cast<unsigned short>(0x1234); }, "FEFF 3412"},
        {"int", [](VELM_CArchive& ar) { ar << -2 << 0 << -3l; }, "FEFFFFFF 00000000 FDFFFFFF"},
        {"float", [](VELM_CArchive& ar) { ar << 1.0f << -2.0; }, "0000803F 00000000000000C0"},
        {"64 bits", [](VELM_CArchive& ar) { ar.WriteUInt64(0x0102030405060708); }, "0807060504030201"},
        {"-64 bits", [](VELM_CArchive& ar) { ar.WriteInt64(-2); }, "FEFFFFFFFFFFFFFF"},
        {"enum", [](VELM_CArchive& ar) { ar.WriteEnum(Red), ar.WriteEnum(Small::High); }, "FFFFFFFF C8000000"},
        {"string", [](VELM_CArchive& ar) { ar << std::string("a\0b", 3); }, "03610062"},
        {"pointers", [](VELM_CArchive& ar) { ar << std::vector<Node*>{nullptr}; }, "01000000 00000000"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(Stored(row.body), Bytes(row.bytes)) << row.name;
    EXPECT_EQ(g_called, "own ");
    if (sizeof(long) > 4) {
        const long nTooLarge = std::numeric_limits<long>::max();
        EXPECT_EQ(Outcome([&] { EXPECT_EQ(Stored([&](VELM_CArchive& ar) { ar << nTooLarge; }), ""); }, true),
                  "n >= INT32_MIN && n <= INT32_MAX; raise 1");
    }
}

template <class TYPE> static std::string StoredValue(const TYPE& value)
{
    return Stored([&](VELM_CArchive& ar) { ar << value; });
}

// Whatever is cut or damaged: a raise, or a value that can be stored again.
TEST(Std, EachValueComesBackAndWhatIsCutOrDamagedRaises)
{
    std::mt19937 random(1);
    AfxSetNotices(0);
    VisitValues([&](const char* lpszName, const auto& value) {
        typedef typename std::decay<decltype(value)>::type Type;
        const std::string bytes = StoredValue(value), twice = bytes + bytes;
        for (size_t n = 0; n <= bytes.size(); ++n) {
            for (const bool bReturns : {false, true}) {
                MemoryFile file(n < bytes.size() ? bytes.substr(0, n) : twice);
                VELM_CArchive ar(&file, VELM_CArchive::load, 128);
                Type loaded{};
                const std::string outcome = Outcome([&] { ar & loaded; }, bReturns);
                EXPECT_EQ(outcome.substr(0, 7), n < bytes.size() ? "raise 3" : "") << lpszName << n;
                if (n < bytes.size())
                    continue;
                ar & loaded; // in place of what it has
                EXPECT_EQ(Stored([&](VELM_CArchive& to) { to& loaded; }), bytes) << lpszName;
                EXPECT_EQ(ar.IsAtEnd(), 1) << lpszName;
            }
        }
        for (int i = 0; i < 300; ++i) {
            MemoryFile file(twice);
            for (size_t n = random() % 3 + 1; n > 0; --n)
                file.data[random() % twice.size()] = static_cast<char>(random() % (random() % 2 == 0 ? 256 : 4));
            VELM_CArchive ar(&file, VELM_CArchive::load, 128);
            Type loaded{};
            const std::string outcome = Outcome([&] { ar & loaded & loaded; });
            EXPECT_TRUE(outcome == "" || outcome == "raise 1" || outcome == "raise 3" || outcome == "raise 5");
            StoredValue(loaded);
        }
    });
    AfxSetNotices(1);
}

// Loads a TYPE from the bytes: the outcome, and into what it holds.
template <class TYPE> static std::string LoadedAs(const char* hex, TYPE& rValue, std::string* pText = nullptr)
{
    MemoryFile file(Bytes(hex));
    VELM_CArchive ar(&file, VELM_CArchive::load, 128);
    const std::string outcome = Outcome([&] { ar >> rValue; });
    if (pText != nullptr)
        *pText = ar.GetErrorText();
    return outcome;
}

template <class TYPE> static std::string Refusal(const char* hex, TYPE value = TYPE())
{
    std::string text;
    const TYPE old = value;
    EXPECT_EQ(LoadedAs(hex, value, &text), "raise 1");
    EXPECT_TRUE(value == old || value == TYPE());
    return text;
}

TEST(Std, ValuesThatDoNotFitAreRefused)
{
    using namespace std::chrono;
    typedef std::variant<char, Level> Variant;
    EXPECT_EQ(Refusal<std::bitset<11>>("FF 0F"), "offset 2: a bitset has a bit behind its last one");
    EXPECT_EQ(Refusal<std::optional<char>>("02 61"), "offset 1: an optional is neither there nor not");
    EXPECT_EQ(Refusal<Variant>("02000000 61"), "offset 4: a variant has no such alternative");
    EXPECT_EQ(Refusal<Variant>("01000000 02000000", Variant('x')), "offset 4: the value 2 is not one of -1 to 1");
    const char* const lpszDuration = "offset 8: a duration does not fit into its type";
    EXPECT_EQ((Refusal<duration<int, std::milli>>("00000080 00000000", seconds(5))), lpszDuration);
    EXPECT_EQ((Refusal<duration<unsigned>>("FFFFFFFF FFFFFFFF")), lpszDuration);
    MemoryFile none;
    VELM_CArchive to(&none, VELM_CArchive::store);
    EXPECT_EQ(Outcome([&] { to << duration<unsigned long long>(~0ull); }), "raise 1");
    EXPECT_EQ(Outcome([&] { to << static_cast<Level>(2); }), "raise 1");
    if (sizeof(long) == 4) {
        const char* const lpszLong = "offset 8: the value does not fit into a long of this machine";
        EXPECT_EQ(Refusal<VELM_CTime>("00000080 00000000", VELM_CTime(5)), lpszLong);
        EXPECT_EQ(Refusal<std::tuple<unsigned long>>("00000000 01000000"), lpszLong);
    }
}

// A class that says when its field came, with a record that does not.
struct Forgetful : VELM_CObject {
    static VELM_CRuntimeClass record;
    int field = 5;
    VELM_CRuntimeClass* GetRuntimeClass() const override { return &record; }
    void Serialize(VELM_CArchive& ar) override { ar & AfxSince(2, field); }
};
VELM_CRuntimeClass Forgetful::record = {"Forgetful", 0, 1};

TEST(Std, AFieldThatIsNewerThanItsClassIsNotDroppedWhenItIsStored)
{
    Forgetful object;
    MemoryFile none;
    VELM_CArchive to(&none, VELM_CArchive::store);
    EXPECT_EQ(Outcome([&] { to.WriteObject(&object); }), "raise 1");
    long long n = -2;
    EXPECT_EQ(Stored([&](VELM_CArchive& ar) { ar & AfxSince(9, AfxInt64(n)); }), Bytes("FEFFFFFF FFFFFFFF"));
    EXPECT_EQ(Stored([&](VELM_CArchive& ar) { ar & AfxSince(2, 2, AfxInt64(n)); }), Bytes("FEFFFFFF FFFFFFFF"));
}

// The bytes do not depend on how the table grew; equal keys keep their order.
TEST(Std, UnorderedContainersWithTheSameContentsHaveTheSameBytes)
{
    std::unordered_map<std::string, int> up, down(1000);
    for (int i = 0; i < 300; ++i)
        up[std::to_string(i)] = i, down[std::to_string(299 - i)] = 299 - i;
    EXPECT_EQ(StoredValue(up), StoredValue(down));
    const char* const lpszGroups = "04000000 61 31 61 33 61 32 62 30";
    std::unordered_multimap<char, char> groups;
    EXPECT_EQ(LoadedAs(lpszGroups, groups), "");
    EXPECT_EQ(StoredValue(groups), Bytes(lpszGroups));
    std::unordered_set<double> unordered{NAN, 1, NAN, -1, NAN, 0, NAN, 2}; // which none of them has an order among
    EXPECT_EQ(StoredValue(unordered).size(), 4 + 8 * unordered.size());
}

// An object that is counted.
struct Counted : VELM_CObject {
    static VELM_CRuntimeClass classRecord;
    static int nAlive;
    Counted() { ++nAlive; }
    ~Counted() override { --nAlive; }
    VELM_CRuntimeClass* GetRuntimeClass() const override { return &classRecord; }
    void Serialize(VELM_CArchive& ar) override { ar & AfxOwnedOrNull(pNext); }
    Counted* pNext = nullptr;
};
VELM_CRuntimeClass Counted::classRecord = {"Counted", 0, 1};
int Counted::nAlive = 0;
typedef std::unique_ptr<Counted> CountedPtr;

// The value comes back; cut anywhere, nothing is lost or deleted twice; and what it owns is not let go of by another
// load into it.
template <class TYPE, class MAKE> static void CompareOwners(const MAKE& make, const char* lpszName)
{
    VELM_CClassTable table;
    table.Add<Counted>(&Counted::classRecord);
    const int nBefore = Counted::nAlive;
    std::string bytes;
    {
        TYPE one{}, other{};
        make(one), make(other);
        bytes = Stored([&](VELM_CArchive& ar) { ar << one << other; });
    }
    for (size_t n = 0; n <= bytes.size() + 1; ++n) { // the last time into one value
        {
            MemoryFile file(bytes.substr(0, n));
            TYPE loaded{}, other{};
            VELM_CArchive ar(&file, VELM_CArchive::load, 128);
            ar.SetClassTable(&table);
            const std::string outcome = Outcome([&] { ar & loaded&(n > bytes.size() ? loaded : other); });
            EXPECT_EQ(outcome, n < bytes.size() ? "raise 3" : n > bytes.size() ? "raise 5" : "") << lpszName << n;
            ar.DeleteLoadedObjects();
        }
        EXPECT_EQ(Counted::nAlive, nBefore) << lpszName << n;
    }
}

TEST(Std, ContainersOwnAsAVectorDoes)
{
    AfxSetNotices(0);
    const auto Back = [](auto& r) { r.emplace_back(new Counted), r.emplace_back(new Counted); };
    const auto Entry = [](auto& r) { r.emplace(1, new Counted), r.emplace(2, new Counted); };
    CompareOwners<std::deque<CountedPtr>>(Back, "deque");
    CompareOwners<std::list<CountedPtr>>(Back, "list");
    CompareOwners<std::forward_list<CountedPtr>>([](auto& r) { r.emplace_front(new Counted); }, "forward_list");
    CompareOwners<std::multimap<int, CountedPtr>>(Entry, "multimap");
    CompareOwners<std::unordered_map<int, CountedPtr>>(Entry, "unordered_map");
    CompareOwners<std::unordered_multimap<int, CountedPtr>>(Entry, "unordered_multimap");
    CompareOwners<std::tuple<int, CountedPtr, CountedPtr>>(
        [](auto& r) { std::get<1>(r).reset(new Counted), std::get<2>(r).reset(new Counted); }, "tuple");
    CompareOwners<std::variant<int, CountedPtr>>([](auto& r) { r = CountedPtr(new Counted); }, "variant");
    CompareOwners<std::optional<std::vector<CountedPtr>>>([](auto& r) { r.emplace(2), (*r)[0].reset(new Counted); },
                                                          "optional");
    CompareOwners<VELM_CMap<int, int, CountedPtr, CountedPtr&&>>([](auto& r) { r[1].reset(new Counted); }, "map");
    AfxSetNotices(1);
}

TEST(Std, ArraysOfPointersOwnAndHaveOneOwner)
{
    VELM_CClassTable table;
    table.Add<Counted>(&Counted::classRecord);
    const int nBefore = Counted::nAlive;
    Counted a, b;
    VELM_CObArray objects, loaded;
    VELM_CPtrArray pointers, loadedPointers;
    objects.InsertAt(0, &a), objects.InsertAt(1, &b), pointers.SetAtGrow(0, &b);
    MemoryFile file(Stored([&](VELM_CArchive& ar) { ar & AfxOwned(objects) & AfxOf<Counted>(pointers); }));
    MemoryFile twice(Stored([&](VELM_CArchive& ar) { ar.WriteCount(2), ar.WriteObject(&a), ar.WriteObject(&a); }));
    for (MemoryFile* pFile : {&file, &twice}) {
        VELM_CArchive ar(pFile, VELM_CArchive::load);
        ar.SetClassTable(&table);
        const std::string outcome = Outcome([&] { ar & AfxOwned(loaded) & AfxOf<Counted>(loadedPointers); });
        EXPECT_EQ(outcome, pFile == &file ? "" : "raise 5");
        EXPECT_TRUE(pFile == &twice || (loaded.GetSize() == 2 && *AfxOf<Counted>(loadedPointers).begin() == loaded[1]));
        ar.DeleteLoadedObjects();
        EXPECT_EQ(Counted::nAlive, nBefore + 2);
    }
    for (Counted* p : AfxOf<Counted>(objects))
        EXPECT_TRUE(p == &a || p == &b);
}

// Signalling NaNs, which lose that when they are copied as numbers.
TEST(Std, NumbersKeepEachBit)
{
    const std::string bits = Bytes("0100A07F 010000000000F47F");
    MemoryFile file(bits);
    VELM_CArchive from(&file, VELM_CArchive::load);
    float f;
    double d;
    from >> f >> d;
    EXPECT_EQ(Stored([&](VELM_CArchive& ar) { ar << f << d; }), bits);
}

// Delivers a few bytes at a time, and raises 9 where it ends if it shall.
struct SlowFile : MemoryFile {
    bool bRaises;

    SlowFile(std::string contents, unsigned nMost, bool bAtEnd) : MemoryFile(std::move(contents)), bRaises(bAtEnd)
    {
        nMostPerRead = nMost;
    }
    unsigned Read(void* lpBuf, unsigned nCount) override
    {
        const unsigned n = MemoryFile::Read(lpBuf, nCount);
        if (n == 0 && nCount > 0 && bRaises)
            pfm_raise(9);
        return n;
    }
};

// Numbers of any bits, as a vector and an array: the bytes of each alone, and when they are cut, those that are whole.
template <class TYPE> static void CompareBlocks()
{
    std::mt19937 random(3);
    const auto Raw = [](const TYPE* p, size_t n) {
        return std::string(reinterpret_cast<const char*>(p), n * sizeof *p);
    };
    const auto Fill = [&](TYPE* p, size_t n) {
        for (size_t i = 0; i < n * sizeof *p; ++i)
            reinterpret_cast<unsigned char*>(p)[i] = static_cast<unsigned char>(random());
    };
    for (size_t nRound = 0; nRound < 100; ++nRound) {
        const size_t n = nRound == 0 ? 200000 : random() % (nRound % 2 == 0 ? 20 : 700), nPrefix = nRound == 0 ? 8 : 4;
        std::vector<TYPE> values(n), loaded(2);
        std::array<TYPE, 30> array, other, old;
        Fill(values.data(), n), Fill(array.data(), 30), Fill(old.data(), 30);
        const std::string bytes = Stored([&](VELM_CArchive& ar) {
            ar.WriteCount(static_cast<unsigned long>(n));
            const auto StoreOne = [&](const TYPE& value) {
                if constexpr (VELM_CIsLong<TYPE>::value)
                    ar << AfxInt64(value);
                else
                    ar << value;
            };
            std::for_each(values.begin(), values.end(), StoreOne), std::for_each(array.begin(), array.end(), StoreOne);
        });
        ASSERT_TRUE(Stored([&](VELM_CArchive& ar) { ar << values << array; }, 128 << random() % 9) == bytes);
        const size_t nSize = (bytes.size() - nPrefix) / (n + 30);
        const size_t nCut = bytes.size() - random() % (nRound % 4 == 0 ? 31 * nSize : bytes.size());
        const size_t nCame = nCut < nPrefix ? 0 : (nCut - nPrefix) / nSize, nIn = nCame < n ? 0 : nCame - n;
        const bool bRaises = random() % 3 == 0;
        SlowFile file(bytes.substr(0, nCut), static_cast<unsigned>(1 + random() % (nRound == 0 ? 1 << 20 : 300)),
                      bRaises);
        VELM_CArchive ar(&file, VELM_CArchive::load, 128 << random() % 9);
        other = old;
        const std::string outcome = Outcome([&] { ar >> loaded >> other; }, !bRaises && random() % 2 == 0);
        ASSERT_EQ(outcome.substr(0, 7), nCut == bytes.size() ? "" : bRaises ? "raise 9" : "raise 3") << nRound;
        ASSERT_TRUE(bRaises ? loaded.size() <= nCame : loaded.size() == std::min(nCame, n)) << nRound;
        ASSERT_TRUE(Raw(loaded.data(), loaded.size()) == Raw(values.data(), loaded.size())) << nRound;
        const size_t nKept = nIn < 30 ? nIn + (nCame * nSize + nPrefix < nCut) : 30;
        if (!bRaises || nIn == 30) {
            ASSERT_TRUE(Raw(other.data(), nIn) == Raw(array.data(), nIn)) << nRound;
            ASSERT_TRUE(Raw(&other[nKept % 30], 30 - nKept) == Raw(&old[nKept % 30], 30 - nKept)) << nRound;
        }
    }
}

TEST(Std, BlocksOfNumbersAreTheirValuesAndHoldWhatWasWhole)
{
    CompareBlocks<unsigned char>(), CompareBlocks<char>(), CompareBlocks<short>(), CompareBlocks<unsigned>();
    CompareBlocks<unsigned long>(), CompareBlocks<long>(), CompareBlocks<long long>(), CompareBlocks<uint64_t>();
    CompareBlocks<float>(), CompareBlocks<double>(), CompareBlocks<std::byte>();
    CompareBlocks<std::array<float, 3>>();
}

TEST(Std, WhatIsCutHoldsWhatWasWholeAndCountsThatLieCostNothing)
{
    std::vector<std::string> texts{"old"};
    EXPECT_EQ(LoadedAs("03000000 0161 0262", texts), "raise 3");
    EXPECT_EQ(texts, std::vector<std::string>{"a"});
    std::vector<double> numbers;
    EXPECT_EQ(LoadedAs("FFFF0000 FFFFFFFF 0000000000000000", numbers), "raise 3");
    EXPECT_EQ(numbers, std::vector<double>{0});
    EXPECT_LE(numbers.capacity(), 512u);
    std::string text = "old";
    EXPECT_EQ(LoadedAs("FF FFFF0000 FFFFFFFF 61", text), "raise 3");
    EXPECT_EQ(text, "");
    EXPECT_LE(text.capacity(), 5000u);
    std::map<char, char> map;
    EXPECT_EQ(LoadedAs("02000000 6131 6132", map), "");
    EXPECT_EQ(map, (std::map<char, char>{{'a', '1'}}));
    bool b = false;
    EXPECT_EQ(LoadedAs("80", b), "");
    EXPECT_EQ(static_cast<int>(b), 1);
    Colour colour = Green;
    MemoryFile file(Bytes("02000000"));
    VELM_CArchive ar(&file, VELM_CArchive::load);
    EXPECT_EQ(Outcome([&] { ar.ReadEnum(colour, Red, Blue); }), "raise 1");
    EXPECT_EQ(colour, Green);
    EXPECT_STREQ(ar.GetErrorText(), "offset 0: the value 2 is not one of -1 to 1");
}

// Takes no byte, or raises when it is made.
struct Empty {
    static bool bRaises;
    std::string text;
    Empty()
    {
        if (bRaises)
            pfm_raise(8);
    }
};
bool Empty::bRaises = false;
static VELM_CArchive& operator<<(VELM_CArchive& ar, const Empty&)
{
    return ar;
}
static VELM_CArchive& operator>>(VELM_CArchive& ar, Empty&)
{
    return ar;
}

TEST(Std, ElementsThatTakeNoByteAreRefusedAndConstructorsMayRaise)
{
    const char* const lpszFault = ": an element of a container takes no byte";
    std::vector<Empty> empties(3);
    std::vector<std::pair<Empty, std::array<Empty, 2>>> pairs(1);
    std::map<int, Empty> map; // whose keys take some
    map[1], map[2];
    MemoryFile none, file(Bytes("FFFF0000 FFFFFFFF 01"));
    VELM_CArchive to(&none, VELM_CArchive::store), from(&file, VELM_CArchive::load);
    EXPECT_EQ(Outcome([&] { to << empties; }), "raise 1");
    EXPECT_EQ(to.GetErrorText(), std::string("offset 4") + lpszFault);
    EXPECT_EQ(Outcome([&] { to << pairs; }), "raise 1");
    EXPECT_EQ(Outcome([&] { to << map; }), "");
    EXPECT_EQ(Outcome([&] { from >> empties; }), "raise 1");
    EXPECT_EQ(from.GetErrorText(), std::string("offset 8") + lpszFault);
    EXPECT_LE(empties.size(), 1u);
    std::optional<Empty> optional;
    for (const bool bOptional : {true, false}) { // the leak check says whether all is released
        Empty::bRaises = true;
        EXPECT_EQ(Outcome([&] { bOptional ? from >> optional : from >> empties; }), "raise 8");
        Empty::bRaises = false;
        from.Flush(), file.nPosition = 0;
    }
}

TEST(Std, ObjectsGoAsReferencesAndAreOfTheirClass)
{
    Node a(1), b(2);
    Other other;
    const std::string bytes = Stored([&](VELM_CArchive& ar) { ar << std::vector<Node*>{&a, &b, &a, nullptr}; });
    const std::string wrong = Stored([&](VELM_CArchive& ar) { ar << std::vector<VELM_CObject*>{&a, &other}; });
    for (const std::string& data : {bytes, wrong}) {
        MemoryFile file(data);
        VELM_CArchive ar(&file, VELM_CArchive::load);
        ar.SetClassTable(&GraphClasses());
        std::vector<Node*> nodes;
        EXPECT_EQ(Outcome([&] { ar >> nodes; }), data == bytes ? "" : "raise 1");
        EXPECT_EQ(nodes.size(), data == bytes ? 4u : 1u);
        EXPECT_EQ(nodes.front()->value, 1u);
        EXPECT_TRUE(data != bytes || nodes[2] == nodes[0]);
        ar.DeleteLoadedObjects();
    }
}

TEST(Std, ContainersOfTheLibraryAreRanges)
{
    VELM_CPtrArray pointers, loose;
    VELM_CObArray noObjects;
    VELM_CStringArray none;
    none.Add("one");
    char room[1003] = {};
    void* pValue = nullptr;
    int numbers[] = {1, 2, 3};
    for (const int i : {2, 0, 1})
        pointers.SetAtGrow(pointers.GetSize(), numbers + i);
    std::sort(pointers.begin(), pointers.end());
    EXPECT_EQ(std::vector<void*>(pointers.begin(), pointers.end()),
              (std::vector<void*>{numbers, numbers + 1, numbers + 2}));
    VELM_CStringArray texts;
    EXPECT_EQ(std::find(texts.begin(), texts.end(), VELM_CString("b")), texts.end());
    texts.Add("a");
    texts.Add("b");
    EXPECT_EQ(std::find(texts.begin(), texts.end(), VELM_CString("b")) - texts.begin(), 1);
    Node a, b;
    VELM_CObArray objects;
    objects.InsertAt(0, &a);
    objects.InsertAt(1, &b);
    EXPECT_EQ(std::vector<VELM_CObject*>(objects.begin(), objects.end()), (std::vector<VELM_CObject*>{&a, &b}));

    VELM_CMap<fxStr, const char*, int, int> map;
    std::map<std::string, int> seen;
    EXPECT_TRUE(map.begin() == map.end());
    map["x"] = 1;
    map["y"] = 2;
    for (auto [key, value] : map)
        value *= 10;
    const auto& constMap = map;
    for (const auto [key, value] : constMap)
        seen[static_cast<const char*>(key)] = value;
    EXPECT_EQ(seen, (std::map<std::string, int>{{"x", 10}, {"y", 20}}));
    VELM_CMapPtrToPtr byPointer, other;
    byPointer[numbers] = &a;
    VELM_CMapPtrToPtr::const_iterator found;
    found = std::find_if(byPointer.begin(), byPointer.end(), [&](auto e) { return e.value == &a; });
    EXPECT_TRUE(found->key == numbers && found == byPointer.begin());
    std::swap(byPointer, other), std::swap(pointers, loose), std::swap(texts, none), std::swap(objects, noObjects);
    EXPECT_TRUE(byPointer.IsEmpty() && other[numbers] == &a && pointers.GetSize() == 0 &&
                loose.GetAt(2) == numbers + 2);
    EXPECT_TRUE(texts.GetSize() == 1 && none.Find("b") == 1 && objects.GetSize() == 0 && noObjects[1] == &b);
    texts = std::move(none), objects = std::move(noObjects), loose = std::move(pointers);
    EXPECT_TRUE(none.GetSize() == 0 && texts[1] == VELM_CString("b") && loose.GetSize() == 0 && objects[0] == &a);
    none.Add("again");
    VELM_CMapPtrToPtr large;
    for (char* p = room; p < room + 1000; ++p)
        large[p] = p;
    large.Lookup(room, pValue); // with an index
    other = std::move(large);
    EXPECT_TRUE(other.GetCount() == 1000 && large.IsEmpty() && other.RemoveKey(room + 500) &&
                !other.RemoveKey(numbers));
    large[numbers] = &b;
    EXPECT_TRUE(other.Lookup(room + 7, pValue) && pValue == room + 7 && other.GetCount() == 999 &&
                large[numbers] == &b);
}

TEST(Std, StringsConvertMoveHashAndPrint)
{
    const std::string nul("a\0b", 3);
    const VELM_CString whole(nul), view{std::string_view(nul)};
    EXPECT_EQ(std::string(whole), nul);
    EXPECT_EQ(std::string_view(view), nul);
    std::ostringstream printed;
    printed << whole << '|' << "text";
    EXPECT_EQ(printed.str(), nul + "|text");
    EXPECT_EQ(std::hash<VELM_CString>()(whole), std::hash<VELM_CString>()("a"));
    EXPECT_NE(std::hash<VELM_CString>()("ab"), std::hash<VELM_CString>()("ba"));

    VELM_CString source("long enough"), old("old");
    const char* const pBuffer = source.m_data;
    VELM_CString moved(std::move(source));
    EXPECT_TRUE(moved.m_len == 11 && source.m_len == 0 && source.m_data[0] == '\0');
    old = std::move(moved);
    EXPECT_STREQ(old.m_data, "long enough");
    EXPECT_EQ(old.m_data, pBuffer);
    EXPECT_TRUE(moved.m_len == 0 && moved.m_data[0] == '\0');
    VELM_CString& self = old;
    old = std::move(self);
    EXPECT_STREQ(old.m_data, "long enough");
    old = VELM_CString("a\0b", 3); // as a copy
    EXPECT_EQ(old.m_len, 1);
    static_assert(std::is_nothrow_move_constructible<VELM_CString>::value, "");
    const struct {
        const char* lpszText; // what it gives a text that was moved from
        std::function<void(VELM_CString&)> body;
    } rows[] = {
        {"", [](VELM_CString&) {}},
        {"", [](VELM_CString& s) { s.Empty(), s.Set("x", 0), s += ""; }},
        {"ab", [](VELM_CString& s) { s = "a", s += "b"; }},
        {"ab", [](VELM_CString& s) { s += "ab"; }},
        {"b", [](VELM_CString& s) { s.Concat(s.m_data, 1), s = "b"; }},
        {"c", [](VELM_CString& s) { s = VELM_CString("c"); }},
        {"", [](VELM_CString& s) { VELM_CString other(std::move(s)); }},
        {"",
         [](VELM_CString& s) {
             VELM_CString other;
             std::swap(s, other);
         }},
        {"long", [](VELM_CString& s) { s.Set((std::string("long") + std::string(2000, '\0')).data(), 2004); }},
        {"ab", [](VELM_CString& s) { EXPECT_EQ(LoadedAs("026162", s), ""); }},
    };
    for (const auto& row : rows) {
        VELM_CString text("x"), taken(std::move(text));
        row.body(text);
        EXPECT_STREQ(text.m_data, row.lpszText);
        EXPECT_EQ(VELM_CString(text).m_len, static_cast<int>(strlen(row.lpszText)));
    }
    EXPECT_TRUE(whole == nul && nul == whole && whole != std::string("a") && std::string_view("a") != whole);
    old = nul;
    EXPECT_EQ(old.m_len, 3);
    old = std::string_view("ab").substr(1);
    EXPECT_TRUE(old == std::string_view("b"));
}

// A program's own operators for a number, in one byte.
static VELM_CArchive& operator<<(VELM_CArchive& ar, unsigned short n)
{
    return ar << static_cast<unsigned char>(n);
}
static VELM_CArchive& operator>>(VELM_CArchive& ar, unsigned short& n)
{
    unsigned char by;
    ar >> by;
    n = by;
    return ar;
}

TEST(Std, BlocksAreOfNumbersWithoutOperatorsOfTheProgram)
{
    std::vector<unsigned short> numbers{1, 2};
    std::array<unsigned short, 2> two{{3, 4}};
    const std::string bytes =
        Stored([&](VELM_CArchive& ar) { ar << numbers << two, SerializeElements(ar, &two[1], 1); });
    EXPECT_EQ(bytes, Bytes("02000000 01 02 03 04 04"));
    EXPECT_EQ(LoadedAs("02000000 05 06", numbers), "");
    EXPECT_EQ(numbers, (std::vector<unsigned short>{5, 6}));
}
