// What stands beside the visible structures, against plain models of these; and sizes that nothing quadratic survives.
#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <random>
#include <set>

#include "tests/support/graph.h"
#include "tests/support/watch.h"

namespace {

const unsigned nMany = 200000;

} // namespace

template <class MAP> static void FillEmptyAndLoad(const char* name)
{
    std::vector<std::array<char, 12>> keys(nMany);
    MAP map;
    for (unsigned i = 0; i < nMany; ++i) {
        snprintf(keys[i].data(), keys[i].size(), "k%u", i);
        map[keys[i].data()] = static_cast<int>(i);
    }
    EXPECT_EQ(map.GetCount(), static_cast<int>(nMany)) << name;
    MemoryFile file;
    VELM_CArchive to(&file, VELM_CArchive::store), from(&file, VELM_CArchive::load);
    MAP loaded;
    Printed([&] { map.Serialize(to), to.Close(), loaded.Serialize(from); });
    EXPECT_EQ(loaded.GetCount(), static_cast<int>(nMany)) << name;
    unsigned nRemoved = 0;
    for (unsigned i = 0; i < nMany; ++i)
        nRemoved += static_cast<unsigned>(map.RemoveKey(keys[i * 7919u % nMany].data()));
    EXPECT_EQ(nRemoved, nMany) << name;
    EXPECT_EQ(map.m_pBlocks, nullptr) << name;
}

TEST(Large, MapsOfSeventeenBuckets)
{
    FillEmptyAndLoad<VELM_CMap<fxStr, char*, int, int>>("hashed by text");
    FillEmptyAndLoad<VELM_CMap<fxStr, const char*, int, int>>("hashed by address");
    std::vector<VELM_CObject> objects(nMany); // all in one bucket
    VELM_CMapPtrToPtr map;
    for (VELM_CObject& object : objects)
        map[&object] = &object;
    unsigned nRemoved = 0;
    for (unsigned i = 0; i < nMany; ++i)
        nRemoved += static_cast<unsigned>(map.RemoveKey(&objects[i * 7919u % nMany]));
    EXPECT_EQ(nRemoved, nMany);
}

TEST(Large, FirstEntriesOfManyBuckets)
{
    std::vector<uint32_t> words(nMany);
    VELM_CMapPtrToPtr map;
    VELM_CMap<unsigned, unsigned, int, int> numbers;
    map.InitHashTable(5 * nMany), numbers.InitHashTable(5 * nMany);
    for (uint32_t i = 0; i < nMany; ++i) {
        words[i] = i * 80; // five buckets from one to the next
        map[&words[i]], numbers[i * 80];
    }
    unsigned nWrong = 0;
    for (uint32_t i = 0; i < nMany; ++i) {
        const unsigned nAgain = i % 1000 == 999; // an entry that was taken comes back
        if (nAgain)
            map[&words[i - 500]], numbers[(i - 500) * 80];
        for (unsigned n = 0; n <= nAgain; ++n) {
            __POSITION* position = map.GetStartPosition();
            void *pKey, *pValue;
            map.GetNextAssoc(position, pKey, pValue);
            nWrong +=
                pKey != &words[n < nAgain ? i - 500 : i] || (*numbers.begin()).key != *static_cast<unsigned*>(pKey);
            map.RemoveKey(pKey), numbers.RemoveKey((*numbers.begin()).key);
        }
    }
    EXPECT_EQ(Row() << nWrong << map.GetCount() << numbers.GetCount(), "0 0 0");
}

TEST(Large, GraphsAndArrays)
{
    std::vector<std::unique_ptr<Node>> nodes;
    for (unsigned i = 0; i < nMany; ++i) {
        nodes.push_back(std::make_unique<Node>(i));
        if (i > 0)
            nodes[i]->links.push_back(nodes[(i * 31u + 7) % i].get());
    }
    MemoryFile file;
    VELM_CArchive to(&file, VELM_CArchive::store), from(&file, VELM_CArchive::load);
    Printed([&] {
        for (const auto& node : nodes)
            to.WriteObject(node.get());
    });
    to.Close();
    from.SetClassTable(&GraphClasses());
    unsigned nWrong = 0;
    for (unsigned i = 0; i < nMany; ++i)
        nWrong += static_cast<Node*>(from.ReadObject(&Node::record))->value != i;
    EXPECT_EQ(nWrong, 0u);
    from.DeleteLoadedObjects();

    VELM_CStringArray strings, sorted;
    VELM_CPtrArray pointers;
    for (unsigned i = 0; i < nMany; ++i) {
        strings.Add(std::to_string(i * 7919u % nMany).c_str());
        pointers.SetAtGrow(static_cast<int>(i), &strings);
    }
    strings.Sort(sorted);
    EXPECT_STREQ(sorted.ElementAt(static_cast<int>(nMany) - 1).m_data, "99999");
    EXPECT_EQ(pointers.GetSize(), sorted.GetSize());
}

TEST(Large, ObjectArraysThatChangeInFront)
{
    const int nCount = 400000;
    VELM_CObject first, second;
    VELM_CObArray array, other;
    array.InsertAt(0, &second), array.InsertAt(0, &first, nCount);
    other.InsertAt(0, &second, nCount), other.InsertAt(0, &array), other.InsertAt(1, &other);
    EXPECT_EQ(other.GetSize(), 4 * nCount + 2);
    other.RemoveAt(0, 3 * nCount + 1); // first, all of other, and the rest of it but a count
    EXPECT_EQ(std::count(other.begin(), other.end(), &second), nCount + 1);
}

TEST(Large, ClassTables)
{
    const size_t nClasses = 256000, nHalf = nClasses / 2;
    std::vector<std::string> names(nClasses);
    std::vector<VELM_CRuntimeClass> records(nClasses); // each derived from the one before
    VELM_CClassTable table;
    unsigned nWrong = 0;
    for (size_t i = 0; i < nClasses; ++i) {
        names[i] = "class " + std::to_string(i);
        records[i] = {names[i].c_str(), 0, 1};
        nWrong += table.Add<Node>(&records[i], i > 0 ? &records[i - 1] : nullptr) != 1;
    }
    for (size_t i = nClasses; i-- > 0;)
        nWrong += table.IsDerivedFrom(&records[i], &records[0]) != 1;
    EXPECT_EQ(nWrong, 0u);
    const auto isDerived = [&](size_t i, size_t nBase) { return table.IsDerivedFrom(&records[i], &records[nBase]); };
    EXPECT_EQ(Row() << isDerived(9, 10) << isDerived(nHalf + 9, 1) << isDerived(nHalf + 9, nHalf), "0 1 1");
    table.Add<Node>(&records[nHalf], &records[nHalf + 1]); // in a circle, and no longer with those before
    EXPECT_EQ(Row() << isDerived(nHalf + 9, 1) << isDerived(nHalf + 9, nHalf) << isDerived(nHalf - 1, 1), "0 1 1");
}

TEST(Large, LinesThatEndInACarriageReturn)
{
    const unsigned nBytes = 6000000, nLines = nBytes / 3; // all of them read ahead
    MemoryFile file;
    for (unsigned i = 0; i < nBytes; ++i)
        file.data.push_back(i % 3 == 1 ? '\r' : 'a');
    VELM_CArchive ar(&file, VELM_CArchive::load, nBytes);
    VELM_CString line;
    std::vector<char> room(nBytes + 1);
    unsigned nWrong = 0;
    for (unsigned i = 0; i < nLines; i += 2) {
        nWrong += ar.ReadString(line) != 1 || line != "aa"; // the byte behind is kept
        nWrong += ar.ReadString(room.data(), nBytes) == nullptr || VELM_CString(room.data()) != "a";
    }
    EXPECT_EQ(nWrong, 0u);
}
