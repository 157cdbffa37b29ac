// Objects inside each other, as deep as they go: on the caller's stack, and on the segments of archives behind it.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/mman.h>
#include <ucontext.h>

#include <cerrno>
#include <csetjmp>
#include <cstdint>
#include <deque>
#include <fstream>
#include <thread>

#include "tests/support/watch.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) // whose frames are large, and bookkeeping is slow
#define TESTS_SANITIZED
const unsigned nOnThread = 50000, nNested = 200, nEach = 100, nUsed = 24;
#else
const unsigned nOnThread = 100000, nNested = 3000, nEach = 300, nUsed = 46;
#endif

namespace {

struct Archive;
using Body = std::function<void()>;
using Place = void (*)(const Body&); // runs the body in some place, and passes on what it raises

// How a list is stored and loaded.
struct Way {
    unsigned nArchives = 1, nRun = 1; // so many archives take turns, after so many nodes each
    Place place = nullptr;            // where each nStep-th node goes on
    unsigned nStep = 1;
    unsigned nRaiseStoring = ~0u, nRaiseLoading = ~0u; // the nodes that raise 7
    unsigned nMaxStoring = 1000000, nMaxLoading = 1000000;
    std::function<void(Archive&)> last = nullptr; // what the last node does when it is stored
};

const VELM_CClassTable& Links();

struct Archive : VELM_CArchive {
    const Way& way;
    std::deque<Archive>& all;

    Archive(VELM_CFile& file, unsigned nMode, const Way& w, std::deque<Archive>& a)
        : VELM_CArchive(&file, nMode), way(w), all(a)
    {
        SetMaxDepth(nMode == store ? way.nMaxStoring : way.nMaxLoading);
        SetClassTable(nMode == load ? &Links() : nullptr);
    }
};

class Link : public VELM_CObject {
public:
    static VELM_CRuntimeClass record;
    unsigned number = 0;
    Link *pNext = nullptr, *pBack = nullptr;

    VELM_CRuntimeClass* GetRuntimeClass() const override { return &record; }
    void Serialize(VELM_CArchive& ar) override
    {
        const Way& way = static_cast<Archive&>(ar).way;
        if (ar.IsStoring())
            ar << number;
        else
            ar >> number;
        if (way.place != nullptr && number % way.nStep == way.nStep - 1)
            way.place([&] { GoOn(static_cast<Archive&>(ar)); });
        else
            GoOn(static_cast<Archive&>(ar));
    }

private:
    void GoOn(Archive& ar)
    {
        if (number == (ar.IsStoring() ? ar.way.nRaiseStoring : ar.way.nRaiseLoading))
            pfm_raise(7);
        if (ar.IsStoring() && pNext == nullptr && ar.way.last)
            ar.way.last(ar);
        Archive& next = ar.all[(number + 1) / ar.way.nRun % ar.all.size()];
        if (ar.IsStoring()) {
            next.WriteObject(pNext), ar.WriteObject(pBack);
        } else {
            pNext = static_cast<Link*>(next.ReadObject(&record));
            pBack = static_cast<Link*>(ar.ReadObject(&record));
        }
    }
};

VELM_CRuntimeClass Link::record = {"Link", 0, 1};

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
std::string ThereAndBack(const List& list, const Way& way = Way())
{
    std::deque<MemoryFile> files(way.nArchives);
    std::deque<Archive> to, from;
    for (MemoryFile& file : files)
        to.emplace_back(file, VELM_CArchive::store, way, to);
    int nRaised = pfm_protect([&] { to[0].WriteObject(&list.links[0]); });
    if (nRaised != 0)
        return "storing raised " + std::to_string(nRaised) + " " + to[0].GetErrorText();
    to.clear();
    for (MemoryFile& file : files)
        from.emplace_back(file, VELM_CArchive::load, way, from);
    Link* pLoaded = nullptr;
    nRaised = pfm_protect([&] { pLoaded = static_cast<Link*>(from[0].ReadObject(&Link::record)); });
    unsigned n = 0;
    for (const Link *p = pLoaded, *pBack = nullptr; p != nullptr && p->number == n; pBack = p, p = p->pNext, ++n) {
        EXPECT_EQ(p->pBack, list.links[n].pBack == nullptr ? nullptr : pBack);
    }
    for (Archive& ar : from)
        ar.DeleteLoadedObjects();
    return nRaised == 0 ? std::to_string(n)
                        : "loading raised " + std::to_string(nRaised) + " " + from[0].GetErrorText();
}

// An archive to which lists are stored. They live as long, since objects are known by their addresses.
struct Single {
    MemoryFile file;
    Way way;
    std::deque<Archive> all;
    std::deque<List> lists;

    explicit Single(unsigned nMaxDepth)
    {
        way.nMaxStoring = nMaxDepth;
        all.emplace_back(file, VELM_CArchive::store, way, all);
    }
    ~Single() { all[0].Abort(); }
    void Store(unsigned n)
    {
        lists.emplace_back(n);
        all[0].WriteObject(&lists.back().links[0]);
    }
    // Returns what was raised.
    int Try(unsigned n)
    {
        return pfm_protect([&] { Store(n); });
    }
};

// Places. Each catches what is raised on its own stack, and raises it again on the one that it was called on.

void RaiseAgain(int nRaised)
{
    if (nRaised != 0)
        pfm_raise(nRaised);
}

void OtherArchives(const Body& body)
{
    EXPECT_EQ(ThereAndBack(List(nNested)), std::to_string(nNested));
    body();
}

struct Mapping {
    unsigned long long nFirst, nEnd;
    char access[5];
    bool bNamed; // as a file, the heap or a stack
};

std::vector<Mapping> Mappings()
{
    std::ifstream maps("/proc/self/maps");
    std::vector<Mapping> mappings;
    for (std::string line; std::getline(maps, line);) {
        mappings.push_back({0, 0, "", line.find_first_of("/[") != std::string::npos});
        sscanf(line.c_str(), "%llx-%llx %4s", &mappings.back().nFirst, &mappings.back().nEnd, mappings.back().access);
    }
    return mappings;
}

// Looks for the room that a segment has left, and for its guard.
void RoomAndGuard(const Body& body)
{
    const unsigned long long nHere = reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0)), nMiB = 1 << 20;
    Mapping guard{};
    for (const Mapping& m : Mappings()) {
        if (m.nFirst <= nHere && nHere < m.nEnd && !m.bNamed) {
            EXPECT_GE(nHere - m.nFirst, nMiB);
            EXPECT_EQ(Row() << guard.access << m.nFirst - guard.nEnd, "---p 0");
            EXPECT_GE(guard.nEnd - guard.nFirst, nMiB);
        }
        guard = m;
    }
    body();
}

// On a thread with a stack of that size, of which some is used.
void OnThread(std::size_t nKiB, std::size_t nUsed, const Body& body)
{
    int nRaised = 0;
    {
        const Body run = [&] {
            *static_cast<volatile char*>(__builtin_alloca((nUsed << 10) + 1)) = 1;
            nRaised = pfm_protect(body);
        };
        const auto start = [](void* p) -> void* { return (*static_cast<const Body*>(p))(), nullptr; };
        pthread_t thread;
        pthread_attr_t small;
        pthread_attr_init(&small), pthread_attr_setstacksize(&small, nKiB << 10);
        ASSERT_EQ(pthread_create(&thread, &small, start, const_cast<Body*>(&run)), 0);
        pthread_join(thread, nullptr), pthread_attr_destroy(&small);
    }
    RaiseAgain(nRaised);
}

template <int nKiB> void Thread(const Body& body)
{
    OnThread(nKiB, 0, body);
}

thread_local const Body* pStarting;

[[maybe_unused]] void OnCoroutine(const Body& body)
{
    int nRaised = 0;
    {
        const Body run = [&] { nRaised = pfm_protect(body); };
        std::vector<char> stack(64 << 10);
        ucontext_t inside, outside;
        getcontext(&inside);
        inside.uc_stack.ss_sp = stack.data(), inside.uc_stack.ss_size = stack.size(), inside.uc_link = &outside;
        makecontext(
            &inside, [] { (*pStarting)(); }, 0);
        pStarting = &run;
        swapcontext(&outside, &inside);
    }
    RaiseAgain(nRaised);
}

const struct {
    const char* pszName;
    Place place;
} places[] = {
    {"right here", [](const Body& body) { body(); }},
    {"other archives", OtherArchives},
    {"thread of 64 KiB", Thread<64>},
    {"thread of 32 KiB", Thread<32>},
#if !defined(__SANITIZE_ADDRESS__) // which would have to be told
    {"coroutine", OnCoroutine},
#endif
};

} // namespace

TEST(Deep, ListsOfEveryLengthGoThereAndBack)
{
    // Lengths around the places where the calls go on elsewhere, which lie some levels apart in each build.
    for (unsigned n = 1; n < 4000; n += n < 200 ? 37 : n % 7 + 61)
        EXPECT_EQ(ThereAndBack(List(n)), std::to_string(n));
    EXPECT_EQ(ThereAndBack(List(5000, true)), "5000");
}

TEST(Deep, ArchivesInsideOthersTakeTurnsInEveryPlace)
{
    EXPECT_EQ(ThereAndBack(List(nOnThread), {2, 1}), std::to_string(nOnThread));
    EXPECT_EQ(ThereAndBack(List(6000), {3, 1, RoomAndGuard, 17}), "6000");
    for (const auto& p : places) {
        for (const unsigned nStep : {1u, 7u, 341u, 601u, 2999u}) {
            const unsigned n = nStep < 10 ? 20 * nStep : 6000;
            EXPECT_EQ(ThereAndBack(List(n), {1, 1, p.place, nStep}), std::to_string(n)) << p.pszName << nStep;
            EXPECT_EQ(ThereAndBack(List(n), {2, 1, p.place, nStep}), std::to_string(n)) << p.pszName << nStep;
        }
        const Way hundred = {100, nEach, p.place, nEach * (p.place == OtherArchives ? 20 : 1)}; // under way at once
        EXPECT_EQ(ThereAndBack(List(100 * nEach), hundred), std::to_string(100 * nEach)) << p.pszName;
    }
}

TEST(Deep, RaisesArriveFromEveryDepthAndTheLimitIsTheSameForBothDirections)
{
    const List list(6000);
    // 20 bytes of tag, class record and number in the first level, then 8 in each.
    const std::string deeper = " raised 1 offset 16004: objects are nested deeper than 1999, in Link (index 2000) in "
                               "Link (1999) in Link (1998) in Link (1997) in Link (1996) in Link (1995) in 1991 more "
                               "in Link (3) in Link (2)";
    HostWatch watch;
    for (const auto& p : places) {
        Way limited = {1, 1, p.place, 301};
        limited.nMaxStoring = limited.nMaxLoading = 2000;
        EXPECT_EQ(ThereAndBack(List(2000), limited), "2000") << p.pszName;
        limited.nMaxLoading = 1999;
        EXPECT_EQ(ThereAndBack(List(2000), limited), "loading" + deeper) << p.pszName;
        limited.nMaxStoring = 1999;
        EXPECT_EQ(ThereAndBack(list, limited), "storing" + deeper) << p.pszName;
        for (const unsigned nAt : {0u, 10u, 500u, 5998u}) {
            for (const unsigned nArchives : {1u, 2u}) {
                Way way = {nArchives, 1, p.place, 499};
                way.nRaiseLoading = nAt;
                EXPECT_EQ(ThereAndBack(list, way), "loading raised 7 ") << p.pszName << nAt;
                way.nRaiseStoring = nAt;
                EXPECT_EQ(ThereAndBack(list, way), "storing raised 7 ") << p.pszName << nAt;
                EXPECT_EQ(pfm_protect([] { pfm_raise(9); }), 9) << p.pszName << nAt; // the chain of blocks is whole
            }
        }
    }
}

TEST(Deep, WhatARaiseHasLeftDoesNotCount)
{
    HostWatch watch;
    for (unsigned i = 0; i < 12 * std::size(places); ++i) {
        // The last node of a list of that length stores lists which raise, to the same archive or to another; they are
        // caught there or outside.
        const unsigned nLength = i % 3 == 0 ? 1 : i % 3 == 1 ? 20 : 3000;
        const bool bOther = i / 3 % 2 != 0, bOutside = i / 6 % 2 != 0;
        Single outer(nLength + (bOther ? 0 : 6000)), other(6500); // a few count: each thread has another stack
        Single& inner = bOther ? other : outer;
        outer.way.nRaiseStoring = other.way.nRaiseStoring = 5999;
        const Body body = [&] {
            for (int n = 0; n < 5; ++n) {
                if (bOutside)
                    inner.Store(6000);
                EXPECT_EQ(inner.Try(6000), 7) << i << inner.all[0].GetErrorText();
            }
        };
        outer.way.last = [&](Archive&) { places[i / 12].place(body); };
        for (int n = 0; n < (bOutside ? 5 : 1); ++n)
            EXPECT_EQ(outer.Try(nLength), bOutside ? 7 : 0) << i << inner.all[0].GetErrorText();
        EXPECT_EQ(other.Try(6000), 7) << i << other.all[0].GetErrorText();
    }
}

TEST(Deep, ThreadsMayDoItAtOnceAndMayBeSmall)
{
    const unsigned stacks[][2] = {{256, 0}, {64, 0}, {64, nUsed}, {32, 0}}; // in KiB, and how much is used
    for (const auto& stack : stacks) {
        const auto body = [&stack] {
            std::string result;
            OnThread(stack[0], stack[1], [&result] { result = ThereAndBack(List(nOnThread)); });
            EXPECT_EQ(result, std::to_string(nOnThread)) << stack[0] << " " << stack[1];
        };
        std::thread other(body);
        body();
        other.join();
    }
}

#if !defined(TESTS_SANITIZED) // which map memory themselves, and would have to be told of jumps

static std::size_t nMostMapped = SIZE_MAX; // that the library gets in one piece
void* mmap(void* p, std::size_t n, int nProtection, int nFlags, int fd, off_t nOffset) noexcept
{
    static const auto pReal = reinterpret_cast<decltype(&mmap)>(dlsym(RTLD_NEXT, "mmap"));
    errno = ENOMEM;
    return n > nMostMapped ? MAP_FAILED : pReal(p, n, nProtection, nFlags, fd, nOffset);
}

// Bytes of memory that no file backs, but for heap and stack.
static unsigned long long Mapped()
{
    unsigned long long nBytes = 0;
    for (const Mapping& m : Mappings())
        nBytes += m.bNamed ? 0 : m.nEnd - m.nFirst;
    return nBytes;
}

TEST(Deep, MemoryGrowsWithTheDepthAndGoesBack)
{
    const unsigned long long nBefore = Mapped(), nMiB = 1 << 20;
    unsigned long long nMost = 0;
    Way way;
    way.last = [&](Archive&) { nMost = Mapped(); };
    EXPECT_EQ(ThereAndBack(List(1000000), way), "1000000");
    EXPECT_LE(nMost, nBefore + 500 * nMiB * (1 + EMULATED)); // an emulator maps memory of its own
    EXPECT_LE(Mapped(), nBefore + 32 * nMiB * (1 + EMULATED));
}

TEST(Deep, RaisesOfAHostMayGoPastTheBlocks)
{
    const unsigned long long nBefore = Mapped();
    static jmp_buf past;
    {
        Single single(6000);
        single.way.nStep = 6000;
        single.way.place = [](const Body&) { longjmp(past, 1); };
        const auto store = [&] {
            if (setjmp(past) == 0)
                single.Store(6000);
        };
        for (int i = 0; i < 5; ++i)
            EXPECT_EQ(pfm_protect(store), 0) << single.all[0].GetErrorText();
    }
    EXPECT_LE(Mapped(), nBefore + (4 << 20)); // the segments were more than twice that
}

TEST(Deep, MemoryMayComeInPiecesOrNotAtAll)
{
    HostWatch watch;
    const List list(nOnThread);
    Way way;
    nMostMapped = 5 << 20;
    EXPECT_EQ(ThereAndBack(list), std::to_string(nOnThread));
    way.last = [](Archive&) { nMostMapped = 1; };
    for (const std::string direction : {"loading", "storing"}) {
        const std::string result = ThereAndBack(list, way);
        EXPECT_EQ(result.find(direction + " raised 1 offset "), 0u) << result;
        EXPECT_NE(result.find(": there is no memory for objects nested deeper than "), std::string::npos) << result;
    }
    nMostMapped = SIZE_MAX;
}

#endif
