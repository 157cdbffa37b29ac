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

// A pointer map as its contract has it: chains of keys, the newest first, and free nodes, the last freed first.
struct Model {
    std::vector<std::vector<void*>> chains = std::vector<std::vector<void*>>(17);
    size_t nFree = 0, nBlocks = 0;
    static const size_t nBlockSize = 5;

    static unsigned Bucket(void* key) { return (*static_cast<uint32_t*>(key) >> 4) % 17; }
    size_t Count() const
    {
        size_t n = 0;
        for (const auto& chain : chains)
            n += chain.size();
        return n;
    }
    auto Find(void* key)
    {
        auto& chain = chains[Bucket(key)];
        return std::find(chain.begin(), chain.end(), key);
    }
    bool Has(void* key) { return Find(key) != chains[Bucket(key)].end(); }
    void Insert(void* key, size_t nAt)
    {
        if (nFree == 0)
            ++nBlocks, nFree += nBlockSize;
        --nFree;
        auto& chain = chains[Bucket(key)];
        chain.insert(chain.begin() + static_cast<long>(std::min(nAt, chain.size())), key);
    }
    void Remove(void* key)
    {
        chains[Bucket(key)].erase(Find(key)), ++nFree;
        if (Count() == 0)
            nFree = nBlocks = 0;
    }
};

void ExpectSame(const VELM_CMapPtrToPtr& map, Model& model, int nStep)
{
    for (unsigned i = 0; map.m_pHashTable != nullptr && i < 17; ++i) {
        std::vector<void*> chain;
        for (auto* p = map.m_pHashTable[i]; p != nullptr; p = p->pNext)
            chain.push_back(p->key);
        ASSERT_EQ(chain, model.chains[i]) << "step " << nStep << ", bucket " << i;
    }
    size_t nFree = 0, nBlocks = 0;
    for (auto* p = map.m_pFreeList; p != nullptr; p = p->pNext)
        ++nFree;
    for (auto* p = map.m_pBlocks; p != nullptr; p = p->pNext)
        ++nBlocks;
    ASSERT_EQ(std::make_tuple(static_cast<size_t>(map.m_nCount), nFree, nBlocks),
              std::make_tuple(model.Count(), model.nFree, model.nBlocks))
        << "step " << nStep;
}

} // namespace

TEST(Hidden, ChainsAreAsTheyWouldBeWithoutAnIndex)
{
    static std::array<std::array<uint32_t, 4>, 600> keys; // of three classes: three first words
    for (size_t i = 0; i < keys.size(); ++i)
        keys[i][0] = static_cast<uint32_t>(i % 3) << 4;
    std::mt19937 random(7);
    for (const unsigned nByHand : {0u, 3u, 60u}) { // of 100 steps
        VELM_CMapPtrToPtr map(Model::nBlockSize);
        Model model;
        for (int nStep = 0; nStep < 6000; ++nStep) {
            void* const key = &keys[random() % keys.size()];
            unsigned nBucket;
            auto* const pAssoc = map.GetAssocAt(key, nBucket);
            ASSERT_EQ(pAssoc != nullptr, model.Has(key)) << nStep;
            const bool bRemove = pAssoc != nullptr && random() % 100 < (nStep / 1500 % 2 ? 90u : 30u);
            if (random() % 100 >= nByHand) {
                if (bRemove) {
                    ASSERT_EQ(map.RemoveKey(key), 1) << nStep;
                } else {
                    map[key] = key;
                }
            } else if (bRemove) { // unlinked by hand; sometimes others are looked for before the node is freed
                auto** ppLink = &map.m_pHashTable[nBucket];
                while (*ppLink != pAssoc)
                    ppLink = &(*ppLink)->pNext;
                *ppLink = pAssoc->pNext;
                map.WalkChains();
                void* pValue;
                ASSERT_EQ(map.Lookup(key, pValue), 0) << nStep;
                if (pAssoc->pNext != nullptr && random() % 2) {
                    void* const pBehind = pAssoc->pNext->key;
                    ASSERT_EQ(map.RemoveKey(pBehind), 1) << nStep;
                    model.Remove(pBehind);
                }
                map.FreeAssoc(pAssoc);
            } else if (pAssoc == nullptr && map.m_pHashTable != nullptr) { // linked by hand, at some place
                auto* const pNew = map.NewAssoc();
                pNew->key = key, pNew->nHashValue = nBucket;
                auto** ppLink = &map.m_pHashTable[nBucket];
                const size_t nAt = random() % 3;
                for (size_t i = 0; i < nAt && *ppLink != nullptr; ++i)
                    ppLink = &(*ppLink)->pNext;
                pNew->pNext = *ppLink, *ppLink = pNew;
                model.Insert(key, nAt);
            }
            if (bRemove)
                model.Remove(key);
            else if (pAssoc == nullptr && !model.Has(key) && map.GetAssocAt(key, nBucket) != nullptr)
                model.Insert(key, 0);
            if (nStep % 50 == 0)
                ExpectSame(map, model, nStep);
        }
    }
}

// Chains changed behind their heads, of which nothing but WalkChains tells the map.
template <class MAP, class KEY> static void CheckChangesByHand(const std::vector<KEY>& keys, KEY other)
{
    typedef typename MAP::VELM_CAssoc Assoc;
    const std::function<void(MAP&, Assoc*)> changes[] = {
        [](MAP&, Assoc* p) { p->pNext = p->pNext->pNext->pNext; },              // two nodes are taken off at once
        [&](MAP&, Assoc* p) { p->pNext->key = other; },                         // one has another key
        [](MAP&, Assoc* p) { std::swap(p->pNext->key, p->pNext->pNext->key); }, // two change places
        [](MAP& map, Assoc* p) {                                                // one is put on an earlier chain
            Assoc* const pMoved = p->pNext;
            p->pNext = pMoved->pNext, pMoved->pNext = nullptr, pMoved->nHashValue = 0, map.m_pHashTable[0] = pMoved;
        }};
    for (size_t i = 0; i < std::size(changes); ++i) {
        MAP map;
        unsigned nBucket, nRemoved = 0;
        for (const KEY key : keys)
            map[key];
        auto* const pFirst = map.GetAssocAt((*map.begin()).key, nBucket);
        changes[i](map, pFirst->pNext->pNext);
        map.WalkChains();
        std::set<KEY> linked;
        for (auto* p = pFirst; p != nullptr; p = p->pNext)
            linked.insert(p->key);
        for (const KEY key : keys)
            EXPECT_EQ(map.GetAssocAt(key, nBucket) != nullptr, linked.count(key) == 1) << i;
        EXPECT_EQ((*map.begin()).key == pFirst->key, map.m_pHashTable[0] == nullptr) << i;
        for (const KEY key : keys)
            nRemoved += static_cast<unsigned>(map.RemoveKey(key));
        EXPECT_EQ(nRemoved, linked.size() - linked.count(other)) << i;
    }
}

TEST(Hidden, ChangesByHandCountOnceTheMapIsTold)
{
    static uint32_t words[300]; // with other words: all in one bucket
    std::vector<void*> pointers;
    std::vector<unsigned> numbers;
    for (unsigned i = 0; i < 300; ++i)
        words[i] = 5 * 16, pointers.push_back(&words[i]), numbers.push_back((5 + 17 * i) * 16);
    const unsigned nOther = numbers.back();
    void* const pOther = pointers.back();
    numbers.pop_back(), pointers.pop_back();
    CheckChangesByHand<VELM_CMapPtrToPtr>(pointers, pOther);
    CheckChangesByHand<VELM_CMap<unsigned, unsigned, int, int>>(numbers, nOther);
}

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
