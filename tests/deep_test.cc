// Objects inside each other, as deep as they go: on the caller's stack, and on the segments of the archive behind it.
#include <gtest/gtest.h>
#include <pthread.h>

#include <fstream>
#include <memory>
#include <set>

#include "tests/support/graph.h"
#include "tests/support/watch.h"

#if defined(__SANITIZE_ADDRESS__) // whose frames are large, and whose bookkeeping of them is slow
const unsigned nLongest = 20000, nOnThread = 20000;
#else
const unsigned nLongest = 1000000, nOnThread = 100000;
#endif

namespace {

// A node of a list that does something at one place of it.
class Link : public VELM_CObject {
public:
    static VELM_CRuntimeClass record;
    static unsigned nRaiseAt; // number of the node that raises 7
    static unsigned nNestAt;  // number of the node that stores and loads a list of its own
    unsigned number = 0;
    Link *pNext = nullptr, *pBack = nullptr;

    VELM_CRuntimeClass* GetRuntimeClass() const override { return &record; }
    void Serialize(VELM_CArchive& ar) override;
};

VELM_CRuntimeClass Link::record = {"Link", 0, 1};
unsigned Link::nRaiseAt = ~0u, Link::nNestAt = ~0u;

const VELM_CClassTable& Links()
{
    static VELM_CClassTable table;
    static const int nAdded = table.Add<Link>(&Link::record);
    EXPECT_EQ(nAdded, 1);
    return table;
}

struct List {
    std::vector<Link> links;

    explicit List(unsigned n, bool bBack = false) : links(n)
    {
        for (unsigned i = 0; i < n; ++i) {
            links[i].number = i;
            links[i].pNext = i + 1 < n ? &links[i + 1] : nullptr;
            links[i].pBack = bBack && i > 0 ? &links[i - 1] : nullptr;
        }
    }
};

// What comes of storing the list and loading it: how far its numbers count up, or what was raised, and where.
std::string ThereAndBack(const Link* pFirst, unsigned nMaxStoring = 1000000, unsigned nMaxLoading = 1000000)
{
    MemoryFile file;
    Link* pLoaded = nullptr;
    VELM_CArchive to(&file, VELM_CArchive::store), from(&file, VELM_CArchive::load);
    to.SetMaxDepth(nMaxStoring), from.SetMaxDepth(nMaxLoading), from.SetClassTable(&Links());
    int nRaised = pfm_protect([&] { to.WriteObject(pFirst), to.Close(); });
    if (nRaised != 0)
        return "storing raised " + std::to_string(nRaised) + " " + to.GetErrorText();
    nRaised = pfm_protect([&] { pLoaded = static_cast<Link*>(from.ReadObject(&Link::record)); });
    unsigned n = 0;
    for (const Link* p = pLoaded; p != nullptr && p->number == n; p = p->pNext, ++n) {
        if (pFirst->pNext != nullptr && pFirst->pNext->pBack != nullptr && p->pNext != nullptr) {
            EXPECT_EQ(p->pNext->pBack, p);
        }
    }
    from.DeleteLoadedObjects();
    return nRaised == 0 ? std::to_string(n) : "loading raised " + std::to_string(nRaised) + " " + from.GetErrorText();
}

void Link::Serialize(VELM_CArchive& ar)
{
    if (number == nNestAt && ar.IsStoring()) {
        nNestAt = ~0u;
        EXPECT_EQ(ThereAndBack(&List(3000).links[0]), "3000");
    }
    if (ar.IsStoring()) {
        if (number == nRaiseAt)
            pfm_raise(7);
        ar << number;
        ar.WriteObject(pNext), ar.WriteObject(pBack);
    } else {
        ar >> number;
        if (number == nRaiseAt)
            pfm_raise(8);
        pNext = static_cast<Link*>(ar.ReadObject(&record)), pBack = static_cast<Link*>(ar.ReadObject(&record));
    }
}

// Bytes of memory that no file backs.
unsigned long long Mapped()
{
    std::ifstream maps("/proc/self/maps");
    unsigned long long nFirst, nEnd, nBytes = 0;
    for (std::string line; std::getline(maps, line);) {
        if (line.find('/') == std::string::npos && sscanf(line.c_str(), "%llx-%llx", &nFirst, &nEnd) == 2)
            nBytes += nEnd - nFirst;
    }
    return nBytes;
}

} // namespace

TEST(Deep, ListsOfEveryLengthGoThereAndBackAndGiveTheirMemoryBack)
{
    // Lengths around the places where the calls go on elsewhere, which lie some levels apart in each build.
    for (unsigned n = 1; n < 4000; n += n < 200 ? 37 : n % 7 + 61)
        EXPECT_EQ(ThereAndBack(&List(n).links[0]), std::to_string(n));
    EXPECT_EQ(ThereAndBack(&List(5000, true).links[0]), "5000");
    [[maybe_unused]] const unsigned long long nBefore = Mapped();
    EXPECT_EQ(ThereAndBack(&List(nLongest).links[0]), std::to_string(nLongest));
#if !defined(__SANITIZE_ADDRESS__)              // which maps memory itself
    EXPECT_LE(Mapped(), nBefore + (128 << 20)); // the segments were more than twice that
#endif
}

TEST(Deep, TreesAreMetOnEveryLevel)
{
    std::vector<std::unique_ptr<Node>> nodes; // a spine with twigs, which are left and entered at each depth
    for (unsigned i = 0; i < 6000; ++i) {
        nodes.push_back(std::make_unique<Node>(i));
        if (i > 1)
            nodes[i - 2 + i % 2]->links.push_back(nodes[i].get());
    }
    MemoryFile file(Stored([&](VELM_CArchive& ar) { ar.WriteObject(nodes[0].get()); }));
    VELM_CArchive ar(&file, VELM_CArchive::load);
    ar.SetClassTable(&GraphClasses());
    VELM_CObject* pRoot = nullptr;
    EXPECT_EQ(Outcome([&] { pRoot = ar.ReadObject(&Node::record); }), "");
    EXPECT_EQ(Describe({pRoot}), Describe({nodes[0].get()}));
    ar.DeleteLoadedObjects();
}

TEST(Deep, RaisesArriveFromEveryDepth)
{
    const List list(6000);
    for (const unsigned nAt : {0u, 10u, 500u, 1500u, 5998u}) {
        HostWatch watch;
        Link::nRaiseAt = nAt;
        EXPECT_EQ(ThereAndBack(&list.links[0]), "storing raised 7 ");
        Link::nRaiseAt = ~0u;
        MemoryFile file(Stored([&](VELM_CArchive& ar) { ar.WriteObject(&list.links[0]); }));
        VELM_CArchive ar(&file, VELM_CArchive::load);
        ar.SetClassTable(&Links());
        Link::nRaiseAt = nAt;
        EXPECT_EQ(pfm_protect([&] { ar.ReadObject(nullptr); }), 8) << nAt;
        EXPECT_EQ(pfm_protect([] { pfm_raise(9); }), 9) << nAt; // the chain of blocks is whole
        Link::nRaiseAt = ~0u;
        ar.DeleteLoadedObjects();
    }
    // What a raise has left does not count: each of these goes deep again.
    MemoryFile file;
    VELM_CArchive ar(&file, VELM_CArchive::store);
    ar.SetMaxDepth(6000);
    std::vector<std::unique_ptr<List>> lists; // alive all the time: objects are known by their addresses
    HostWatch watch;
    Link::nRaiseAt = 5999;
    for (int i = 0; i < 5; ++i) {
        lists.push_back(std::make_unique<List>(6000));
        EXPECT_EQ(pfm_protect([&] { ar.WriteObject(&lists.back()->links[0]); }), 7) << i;
    }
    Link::nRaiseAt = ~0u;
    ar.Abort();
}

TEST(Deep, TheLimitIsTheSameForBothDirections)
{
    const List list(2000);
    const std::string deeper = "raised 1 offset ", text =
                                                       ": objects are nested deeper than 1999, in Link (index 2000) in "
                                                       "Link (1999) in Link (1998) in Link (1997) in Link (1996) in "
                                                       "Link (1995) in 1991 more in Link (3) in Link (2)";
    HostWatch watch;
    EXPECT_EQ(ThereAndBack(&list.links[0], 2000, 2000), "2000");
    // 20 bytes of tag, class record and number in the first level, then 8 in each.
    EXPECT_EQ(ThereAndBack(&list.links[0], 1999, 2000), "storing " + deeper + "16004" + text);
    EXPECT_EQ(ThereAndBack(&list.links[0], 2000, 1999), "loading " + deeper + "16004" + text);
}

TEST(Deep, ArchivesMayBeNestedAndThreadsMayDoItAtOnce)
{
    const List list(3000);
    for (const unsigned nAt : {5u, 700u, 2990u}) {
        Link::nNestAt = nAt;
        EXPECT_EQ(ThereAndBack(&list.links[0]), "3000") << nAt;
        EXPECT_EQ(Link::nNestAt, ~0u); // it came by there
    }
    const auto body = [](void* p) -> void* {
        *static_cast<std::string*>(p) = ThereAndBack(&List(nOnThread).links[0]);
        return nullptr;
    };
    pthread_t threads[2];
    std::string results[2];
    pthread_attr_t small;
    pthread_attr_init(&small), pthread_attr_setstacksize(&small, 256 << 10);
    for (int i = 0; i < 2; ++i)
        ASSERT_EQ(pthread_create(&threads[i], &small, body, &results[i]), 0);
    for (int i = 0; i < 2; ++i) {
        pthread_join(threads[i], nullptr);
        EXPECT_EQ(results[i], std::to_string(nOnThread));
    }
    pthread_attr_destroy(&small);
}
