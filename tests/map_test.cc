// The maps, with their blocks of nodes, and the element helpers.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <memory>

#include "tests/support/owners.h"
#include "tests/support/watch.h"

using TextMap = VELM_CMap<fxStr, char*, int, int>;                          // hashes the text
using AddressMap = VELM_CMap<fxStr, const char*, int, int>;                 // hashes the address
using NumberMap = VELM_CMap<unsigned, unsigned, VELM_CString, const char*>; // of a caller's own

static char a[] = "a", b[] = "b", r[] = "r", ab[] = "ab", abc[] = "abc", high[] = "\xFF", empty[] = "";
static __POSITION* const start = reinterpret_cast<__POSITION*>(~uintptr_t{0});

// What every map makes of a check that fails. `other` is a key that is not in the map.
template <class MAP, class KEY> static void CheckFailures(KEY key, KEY other)
{
    const std::pair<std::function<void(MAP&)>, const char*> cases[] = {
        {[](MAP& m) { m.InitHashTable(0), m.InitHashTable(5); }, "m_nCount == 0; nHashSize > 0; m_nCount == 0"},
        {[=](MAP& m) { m.m_nCount = INT_MAX, m[other], m.m_nCount = 1; }, "m_nCount > 0"},
        {[=](MAP& m) { m.m_pFreeList = nullptr, m.m_nBlockSize = 0, m[other]; },
         "nMax > 0 && cbElement > 0; m_pFreeList != NULL"},
        {[=](MAP& m) { m.RemoveAll(), m.m_nHashTableSize = 0, m[key], m.InitHashTable(17), m[key]; }, "nHashSize > 0"},
        {[=](MAP& m) { m.m_nCount = 0, m.RemoveKey(key), m.m_nCount = 0, m[key]; }, "m_nCount >= 0"},
        {[=](MAP&) { MAP small(0), smaller(INT_MIN); }, "nBlockSize > 0; nBlockSize > 0"}};
    for (const auto& c : cases) {
        MAP map;
        map[key];
        EXPECT_EQ(Outcome([&] { c.first(map); }), c.second);
        unsigned nHash;
        EXPECT_EQ(Row() << !map.GetAssocAt(key, nHash) << !map.GetAssocAt(other, nHash), "0 1") << c.second;
        EXPECT_EQ(Row() << map.m_nCount << map.m_nHashTableSize << map.RemoveKey(key), "1 17 1") << c.second;
        // No entry, no memory.
        EXPECT_EQ(Row() << !map.m_pHashTable << !map.m_pBlocks << !map.m_pFreeList << map.IsEmpty(), "1 1 1 1");
    }
    MAP map;
    typename MAP::VELM_CAssoc entry; // receives keys and values
    __POSITION* position = start;
    const auto next = [&] { map.GetNextAssoc(position, entry.key, entry.value); };
    const auto fail = [&] { next(), map.InitHashTable(5), position = start, next(), next(); };
    EXPECT_EQ(Outcome(fail), "m_pHashTable != NULL; pAssocRet != NULL; pAssocRet != NULL");
    EXPECT_EQ(position, nullptr);
    map.InitHashTable(101, 0), map[key], position = start, next();
    EXPECT_EQ(Row() << !position << entry.Matches(key) << map.m_nHashTableSize, "1 1 101");
}

TEST(TextMaps, WhatIsOneKey)
{
    char* const pNoKey = nullptr;
    EXPECT_EQ(Row() << HashKey(ab) << HashKey(high) << HashKey(empty) << HashKey(pNoKey), "160 4294967295 0 0");
    EXPECT_EQ(HashKey<const char*>(abc), static_cast<uint32_t>(reinterpret_cast<uintptr_t>(abc)) / 16);
    alignas(16) static char room[17 * 16 + 16];
    for (const int nDistance : {8, 16, 17 * 16}) { // of two equal texts; by address, only the second is in two buckets
        TextMap byText;
        AddressMap byAddress;
        strcpy(room, "abc"), strcpy(room + nDistance, "abc");
        byText[room] = byAddress[room] = 5, byText[room + nDistance] += 1, byAddress[room + nDistance] += 1;
        EXPECT_EQ(byText.m_nCount, 1) << nDistance;
        EXPECT_EQ(byAddress[room + nDistance], nDistance == 16 ? 1 : 6) << nDistance;
        room[0] = 'x'; // the maps have copies
        int nValue = 0;
        EXPECT_EQ(Row() << byText.Lookup(room, nValue) << byText.Lookup(abc, nValue) << nValue, "0 1 6");
        byText[nullptr] = byAddress[nullptr] = 3; // NULL is the empty text
        EXPECT_EQ(Row() << byText[empty] << byText.RemoveKey(nullptr) << byAddress.RemoveKey(nullptr), "3 1 1");
    }
}

template <class MAP> static std::string StoredMap(MAP& map)
{
    return Stored([&](VELM_CArchive& ar) { map.Serialize(ar); });
}

template <class MAP> static std::string Load(MAP& map, const std::string& bytes, bool bRaiseReturns = false)
{
    MemoryFile file(bytes);
    VELM_CArchive ar(&file, VELM_CArchive::load);
    return Outcome([&] { map.Serialize(ar); }, bRaiseReturns);
}

// Loads the bytes of a map with entries of equal size, cut everywhere, into a map.
template <class MAP> static void CheckCuts(const std::string& bytes, size_t nEntry)
{
    for (size_t i = 0; i < 2 * bytes.size() + 2; ++i) {
        const size_t n = i / 2, nWhole = n < 4 ? 0 : (n - 4) / nEntry;
        MAP map;
        EXPECT_EQ(Load(map, bytes.substr(0, n), i % 2 != 0), n < bytes.size() ? "raise 3" : "") << n;
        const std::string stored = StoredMap(map), entries = bytes.substr(std::min<size_t>(n, 4), nWhole * nEntry);
        const std::string whole = static_cast<char>(nWhole) + Bytes("000000") + entries;
        EXPECT_TRUE(std::is_permutation(whole.begin(), whole.end(), stored.begin(), stored.end()))
            << "not the entries that are whole in the first " << n << " bytes";
    }
}

TEST(Maps, Streams)
{
    fxStr elements[] = {"", "abc"};
    int ints[] = {258, -2};
    const auto store = [&](VELM_CArchive& ar) { SerializeElements(ar, ints, 2), SerializeElements(ar, elements, 2); };
    MemoryFile file(Stored(store));
    EXPECT_EQ(file.data, Bytes("02010000 FEFFFFFF 00 03616263"));
    VELM_CArchive from(&file, VELM_CArchive::load);
    elements[0] = "x", elements[1] = nullptr, ints[0] = ints[1] = 0;
    SerializeElements(from, ints, 2), SerializeElements(from, elements, 2);
    EXPECT_EQ(Row() << ints[0] << ints[1] << elements[0].length() << elements[1], "258 -2 0 abc");
    VELM_CObject object;
    VELM_CMapPtrToPtr pointers;
    TextMap byText, merged;
    AddressMap byAddress;
    std::string nothing;
    const char* const notice = "CObject Serialize NYI\n";
    for (VELM_CObject* pOb : std::initializer_list<VELM_CObject*>{&object, &pointers, &byText, &byAddress})
        EXPECT_EQ(Printed([&] { nothing += StoredMap(*pOb); }), notice);
    EXPECT_EQ(nothing, std::string(8, '\0')) << "the counts of two empty maps that have an archive form";
    byText[a] = 1, byText[b] = -2, byText[r] = 258, byText[abc] = 4; // in the buckets 12, 13, 12 and 2
    const std::string texts = Bytes("04000000 03616263 04000000 0172 02010000 0161 01000000 0162 FEFFFFFF");
    EXPECT_EQ(StoredMap(byText), texts);
    byAddress.InitHashTable(1), byAddress[a] = 1, byAddress[b] = -2;
    EXPECT_EQ(StoredMap(byAddress), Bytes("02000000 0162 FEFFFFFF 0161 01000000"));
    merged[abc] = 7, merged[empty] = 5;
    EXPECT_EQ(Printed([&] { EXPECT_EQ(Load(merged, texts), ""); }), notice);
    EXPECT_EQ(Load(merged, Bytes("00000000")), "");
    EXPECT_EQ(StoredMap(merged),
              Bytes("05000000 00 05000000 03616263 04000000 0161 01000000 0172 02010000 0162 FEFFFFFF"));
    NumberMap numbers;
    numbers.SetAt(16, ""), numbers.SetAt(5, "five");
    EXPECT_EQ(StoredMap(numbers), Bytes("02000000 05000000 0466697665 10000000 00"));
    merged.RemoveAll(), merged.m_nCount = 1;
    EXPECT_EQ(Outcome([&] { StoredMap(merged); }), "m_pHashTable != NULL");
}

TEST(Maps, FailedChecksAndCutDataAreHarmless)
{
    static unsigned words[] = {5, 0};
    CheckFailures<VELM_CMapPtrToPtr, void*>(&words[0], &words[1]);
    CheckFailures<TextMap, char*>(a, b);
    CheckFailures<AddressMap, const char*>(a, b);
    CheckFailures<NumberMap, unsigned>(1, 2);
    CheckCuts<TextMap>(Bytes("02000000 02 6161 01000000 02 6162 02000000"), 7);
    CheckCuts<AddressMap>(Bytes("02000000 02 6161 01000000 02 6162 02000000"), 7);
    CheckCuts<NumberMap>(Bytes("02000000 05000000 0466697665 06000000 0466666666"), 9);
    for (const char* lpszHostile : {"FFFFFF7F", "FFFF0000 FFFFFFFF", "02000000 0161 01000000 FF FFFF0000 FFFFFFFF"}) {
        TextMap map;
        EXPECT_EQ(Load(map, Bytes(lpszHostile) + Bytes("0161 01000000")), "raise 3");
        EXPECT_EQ(map.m_nCount, 1) << lpszHostile;
    }
}

// Maps from strings, which are found by their texts, to objects, which are shared again.
template <class KEY, class ARG_KEY> static void CheckStringKeys()
{
    std::string text = "abc", same = "abc", other = "b", none;
    const auto arg = [](std::string& str) { return VELM_CMapKey<std::string, ARG_KEY>::Argument(str); };
    Style one, two;
    VELM_CMap<KEY, ARG_KEY, Style*, Style*> map, loaded;
    map[arg(text)] = &one, map[arg(other)] = &two, map[arg(same)] = &two, map[arg(none)] = nullptr;
    MemoryFile file(StoredMap(map));
    EXPECT_EQ(file.data.size(), 4 + 7 + 21 + 4 + 4u); // count, texts, class and first object, second mention, NULL
    VELM_CArchive ar(&file, VELM_CArchive::load);
    ar.SetClassTable(&OwnerClasses());
    loaded.Serialize(ar);
    EXPECT_EQ(loaded.GetCount(), 3);
    EXPECT_TRUE(loaded[arg(same)] != nullptr && loaded[arg(same)] == loaded[arg(other)] && !loaded[arg(none)]);
    EXPECT_EQ(loaded.RemoveKey(arg(text)) + loaded.RemoveKey(arg(same)), 1);
    ar.DeleteLoadedObjects();
}

struct Unknown : VELM_CObject { // without a record
};
struct Plain { // can only be moved
    std::unique_ptr<int> pNumber;
};

// Maps that cannot be archived, of types that archives do not take, can be used.
template <class VALUE> static void CheckRefused()
{
    VELM_CMap<int, int, VALUE, VALUE> map, loaded;
    map[16], map[32];
    EXPECT_EQ(Row() << map.GetCount() << map.RemoveKey(16) << map.RemoveKey(16), "2 1 0");
    for (const bool bRaiseReturns : {false, true}) {
        const auto store = [&](VELM_CArchive& to) {
            EXPECT_EQ(Outcome([&] { map.Serialize(to); }, bRaiseReturns), "raise 1");
            EXPECT_STREQ(to.GetErrorText(), "offset 8: an element of a type that no archive takes");
        };
        const std::string bytes = '\xF0' + Stored(store).substr(1); // 240 entries, of which nothing is there
        EXPECT_EQ(Load(loaded, bytes, bRaiseReturns), bRaiseReturns ? "raise 1; raise 3" : "raise 1");
        EXPECT_EQ(loaded.GetCount(), 0);
    }
}

TEST(Maps, OfStringsObjectsAndWhatNoArchiveTakes)
{
    CheckStringKeys<VELM_CString, const char*>();
    CheckStringKeys<VELM_CString, char*>();
    CheckStringKeys<std::string, const char*>();
    CheckStringKeys<std::string, char*>();
    CheckStringKeys<std::string, const std::string&>();
    VELM_CMap<VELM_CString, const VELM_CString&, int, int> byString;
    VELM_CMap<std::string, const char*, int, int> map;
    byString[VELM_CString("a")] = 1, map[nullptr] = 2;
    EXPECT_EQ(Row() << byString[VELM_CString("a")] << map[""] << map.GetCount(), "1 2 1");
    CheckRefused<Unknown*>();
    CheckRefused<Unknown>();
    CheckRefused<long long>();
    CheckRefused<Plain>();
}
