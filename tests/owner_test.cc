// Owners: who may own what, storing and loading, and that nothing is lost or deleted twice whatever a file says.
#include <gtest/gtest.h>

#include <cstring>
#include <random>

#include "tests/support/owners.h"
#include "tests/support/watch.h"

namespace {

// An object that stores and loads by a script, which it stores first: steps such as "o1", a way of owning and the
// number of an object; '-' is NULL. When it forges, it stores references where it will load owners.
class Scripted;

// An owner that the library does not know as one.
struct Wrapped {
    std::unique_ptr<Scripted> unique;
};
VELM_CArchive& operator>>(VELM_CArchive& ar, Wrapped& row);

class Scripted : public VELM_CObject {
public:
    static VELM_CRuntimeClass classRecord;
    static std::vector<Scripted>* pAll;
    static int nAlive;
    static bool bForges;
    std::string script;
    Scripted *pPlain[8] = {}, *pReferred = nullptr;
    std::unique_ptr<Scripted> unique[8];
    std::shared_ptr<Scripted> shared[8];
    std::weak_ptr<Scripted> weak;
    std::map<int, std::unique_ptr<Scripted>> byNumber;
    std::map<int, Wrapped> rows;
    VELM_CMap<int, int, std::unique_ptr<Scripted>, std::unique_ptr<Scripted>&&> table;
    std::vector<std::unique_ptr<Scripted>> list;
    std::vector<std::pair<std::unique_ptr<Scripted>, std::unique_ptr<Scripted>>> pairs;

    explicit Scripted(std::string steps = "") : script(std::move(steps)) { ++nAlive; }
    Scripted(const Scripted& other) : Scripted(other.script) {}
    ~Scripted() override
    {
        --nAlive;
        for (const Scripted* p : pPlain)
            delete p;
    }
    VELM_CRuntimeClass* GetRuntimeClass() const override { return &classRecord; }
    void Serialize(VELM_CArchive& ar) override
    {
        ar.IsStoring() ? ar << script : ar >> script;
        for (size_t i = 0; i + 1 < script.size(); i += 3)
            ar.IsStoring() ? Store(ar, script[i], script[i + 1]) : Load(ar, script[i], i / 3);
    }

private:
    static void Store(VELM_CArchive& ar, char how, char which)
    {
        Scripted* const pOb = which == '-' ? nullptr : &(*pAll)[static_cast<size_t>(which - '0')];
        const bool bMap = std::strchr("kqt", how) != nullptr, bTwo = bMap || how == 'l';
        if (bTwo || how == 'p')
            ar.WriteCount(bTwo ? 2 : 1);
        if (bMap)
            ar << 7; // twice the same key
        bForges || how == 'r' || bTwo ? ar.WriteObject(pOb)
        : how == 'o'                  ? ar.WriteOwned(pOb)
        : how == 'n'                  ? ar.WriteOwnedOrNull(pOb)
                                      : ar.WriteForOwner(pOb,
                                        how == 's'   ? VELM_CArchive::sharedOwner
                                                         : how == 'w' ? VELM_CArchive::weakOwner
                                                                      : VELM_CArchive::smartOwner,
                                                         how != 'U');
        if (bMap)
            ar << 7;
        if (bTwo || how == 'p')
            ar.WriteObject(nullptr);
    }
    // 'u' into a pointer of its own, 'v' into one for all.
    void Load(VELM_CArchive& ar, char how, size_t i)
    {
        how == 'r'   ? void(pReferred = static_cast<Scripted*>(ar.ReadObject(&classRecord)))
        : how == 'o' ? ar.ReadOwned(pPlain[i])
        : how == 'n' ? ar.ReadOwnedOrNull(pPlain[i])
        : how == 's' ? void(ar >> shared[i])
        : how == 'w' ? void(ar >> weak)
        : how == 'k' ? void(ar >> byNumber)
        : how == 'p' ? void(ar >> pairs)
        : how == 'q' ? void(ar >> rows)
        : how == 't' ? table.Serialize(ar)
        : how == 'l' ? void(ar >> AfxOwned(list))
        : how == 'U' ? void(ar >> AfxOwned(unique[i]))
        : how == 'a' ? ar.Abort()
                     : void(ar >> unique[how == 'v' ? 0 : i]);
    }
};

VELM_CArchive& operator>>(VELM_CArchive& ar, Wrapped& row)
{
    return ar >> row.unique;
}

VELM_CRuntimeClass Scripted::classRecord = {"Scripted", 0, 1};
std::vector<Scripted>* Scripted::pAll = nullptr;
int Scripted::nAlive = 0;
bool Scripted::bForges = false;

const VELM_CClassTable& ScriptedClasses()
{
    static VELM_CClassTable table;
    static const int nAdded = table.Add<Scripted>(&Scripted::classRecord);
    EXPECT_EQ(nAdded, 1);
    return table;
}

} // namespace

TEST(Owners, RefusesWhatCannotBeOwnedStoringAndLoading)
{
    const struct {
        std::vector<std::string> scripts; // of the objects from index 2 on, as they are met
        const char* storing;              // what is refused, or found to be missing
        const char* loading = nullptr;    // NULL: the same as while storing
    } rows[] = {
        {{"o1 o2", "n-", "r0"}, ""},
        {{"r1 o1 r1", ""}, ""}, // referred to before and after
        {{"o1 o1", ""}, "object 3, a Scripted, has an owner already"},
        {{"u1 U1", ""}, "object 3, a Scripted, has an owner already"},
        {{"o1 o2", "r2", "u1"}, "object 3, a Scripted, has an owner already"}, // by what it refers to
        {{"o-"}, "an object that is owned is NULL"},
        {{"U-"}, "an object that is owned is NULL"},
        {{"u- n- s- w-"}, ""},
        {{"o0"}, "object 2, a Scripted, would own itself"},
        {{"o1", "o0"}, "object 3, a Scripted, would own itself"},
        {{"o1", "u2", "o0"}, "object 3, a Scripted, would own itself"},
        {{"s1 s1 w1 s1", ""}, ""},
        {{"w1 s2", "", "s1"}, ""}, // the weak one first
        {{"s1 o1", ""}, "object 3, a Scripted, has shared owners"},
        {{"w1 u1", ""}, "object 3, a Scripted, has shared owners"},
        {{"u1 s1", ""}, "object 3, a Scripted, has an owner already"},
        {{"o1 w1", ""}, "object 3, a Scripted, has an owner already"},
        {{"v1 v2", "", ""}, "", "an owner would let go of an object of this load to load another one"},
        {{"k1", ""}, "", "an owner has the key of an earlier one"},
        {{"q1", ""}, "", "an owner has the key of an earlier one"},
        {{"t1", ""}, "", "an owner has the key of an earlier one"},
        {{"l1", ""}, "", "an object that is owned is NULL"},
        {{"u1 r2", "", ""}, "object 4, a Scripted, has no owner"},
        {{"u1 w2", "", ""}, "object 4, a Scripted, has no owner"},
    };
    for (const auto& row : rows) {
        std::vector<Scripted> scripts(row.scripts.begin(), row.scripts.end());
        Scripted::pAll = &scripts;
        const int nBefore = Scripted::nAlive;
        const std::string name = scripts[0].script + ", " + (scripts.size() > 1 ? scripts[1].script : "");
        const std::string wanted[] = {row.storing, "", row.loading == nullptr ? row.storing : row.loading};
        MemoryFile files[2];
        for (const int nPass : {0, 1, 2}) { // stored honestly, forged, and what is forged loaded
            VELM_CArchive ar(&files[nPass > 0], nPass < 2 ? VELM_CArchive::store : VELM_CArchive::load);
            VELM_CObject* pRoot = &scripts[0];
            int nComplete = 1;
            HostWatch watch;
            Scripted::bForges = nPass == 1;
            ar.SetClassTable(&ScriptedClasses());
            const int nRaised = pfm_protect([&] {
                nPass < 2 ? ar.WriteObject(pRoot) : void(pRoot = ar.ReadObject(nullptr));
                nComplete = nPass == 1 || ar.AreOwnersComplete(pRoot);
            });
            std::string fault = ar.GetErrorText();
            fault.erase(0, fault.find(": ") + 2), fault.resize(std::min(fault.find(", in "), fault.size()));
            EXPECT_EQ(fault, wanted[nPass]) << name << " in pass " << nPass;
            EXPECT_EQ(nRaised, fault == "" || !nComplete ? 0 : nPass < 2 ? 1 : 5) << name << " in pass " << nPass;
            EXPECT_EQ(ar.IsWhole(), nPass == 2 || fault == "") << name << " in pass " << nPass;
            if (nPass == 2)
                fault == "" ? delete pRoot : ar.DeleteLoadedObjects();
        }
        EXPECT_EQ(Scripted::nAlive, nBefore) << name;
    }
    Scripted::bForges = false;
}

TEST(Owners, WhatIsMappedOrReadAtTheTopIsTheCallers)
{
    std::vector<Scripted> scripts{Scripted("o1"), Scripted()};
    Scripted::pAll = &scripts;
    Scripted mapped, *pFirst = nullptr, *pSecond = nullptr;
    {
        const auto Store = [&](VELM_CArchive& ar) { ar.MapObject(&scripts[1]), ar.WriteObject(&scripts[0]); };
        MemoryFile none;
        VELM_CArchive refused(&none, VELM_CArchive::store);
        EXPECT_EQ(Outcome([&] { Store(refused); }), "raise 1");
        Scripted::bForges = true;
        LoadingArchive ar(Stored(Store), &ScriptedClasses());
        Scripted::bForges = false;
        ar.MapObject(&mapped);
        EXPECT_EQ(Outcome([&] { ar.ReadObject(nullptr); }), "raise 5");
        EXPECT_STREQ(ar.GetErrorText(), "offset 23: object 1, a Scripted, is the program's own, in Scripted (index 3)");
        ar.DeleteLoadedObjects();
    }
    const std::string bytes = Stored([&](VELM_CArchive& to) {
        to.WriteObject(&scripts[1]), to.WriteObject(&scripts[1]), to.WriteObject(&scripts[0]);
    });
    LoadingArchive ar(bytes, &ScriptedClasses());
    std::unique_ptr<Scripted> smart;
    EXPECT_EQ(Outcome([&] { ar.ReadOwned(pFirst), ar.ReadOwned(pSecond); }), "raise 5");
    EXPECT_TRUE(pFirst != nullptr && pSecond == nullptr);
    EXPECT_EQ(Outcome([&] { ar >> smart; }), "raise 5"); // which owns the first again
    ar.DeleteLoadedObjects();
    EXPECT_EQ(Scripted::nAlive, 3);
}

TEST(Owners, WhatAFileMayReferToStaysAliveWhereARaiseReturns)
{
    std::vector<Scripted> scripts(3);
    const std::string bytes = Stored([&](VELM_CArchive& ar) {
        ar.WriteCount(2), ar << 7, ar.WriteObject(&scripts[0]), ar << 7, ar.WriteObject(&scripts[1]);
        ar.WriteCount(1), ar.WriteObject(&scripts[2]), ar.WriteObject(&scripts[2]);
    });
    std::map<int, std::unique_ptr<Scripted>> byNumber;
    std::vector<std::pair<std::unique_ptr<Scripted>, std::unique_ptr<Scripted>>> pairs;
    {
        LoadingArchive ar(bytes, &ScriptedClasses());
        EXPECT_EQ(Outcome([&] { ar >> byNumber >> pairs; }, true), "raise 5; raise 5");
        EXPECT_EQ(Scripted::nAlive, 6);
    }
    EXPECT_EQ(Scripted::nAlive, 4); // with the first, which the map has
}

TEST(Owners, WhatIsSharedOutlivesAnAbortAmidIt)
{
    std::vector<Scripted> scripts{Scripted("s1"), Scripted("u2"), Scripted("w1 a-")};
    Scripted::pAll = &scripts;
    {
        LoadingArchive ar(Stored([&](VELM_CArchive& to) { to.WriteObject(&scripts[0]); }), &ScriptedClasses());
        const std::unique_ptr<VELM_CObject> pRoot(ar.ReadObject(nullptr));
        const auto& pShared = static_cast<Scripted*>(pRoot.get())->shared[0];
        EXPECT_EQ(pShared->unique[0]->weak.lock(), pShared);
    }
    EXPECT_EQ(Scripted::nAlive, 3);
}

TEST(Owners, WhatAClassLetsGoOfIsDeletedByTheArchive)
{
    VELM_CClassTable table;
    table.Add<Scripted>(&Scripted::classRecord, nullptr, [](VELM_CObject* pOb) {
        for (auto& unique : static_cast<Scripted*>(pOb)->unique)
            unique.release();
        for (auto& pair : static_cast<Scripted*>(pOb)->pairs)
            pair.first.release();
    });
    std::vector<Scripted> scripts{Scripted("u1 p2"), Scripted("u3"), Scripted(), Scripted()};
    Scripted::pAll = &scripts;
    const std::string bytes = Stored([&](VELM_CArchive& ar) { ar.WriteObject(&scripts[0]); });
    for (size_t n = 0; n < bytes.size(); ++n) {
        {
            LoadingArchive ar(bytes.substr(0, n), &table);
            EXPECT_EQ(Outcome([&] { ar.ReadObject(nullptr); }), "raise 3");
            ar.DeleteLoadedObjects();
        }
        EXPECT_EQ(Scripted::nAlive, 4) << n;
    }
}

TEST(Owners, NothingIsLostOrDeletedTwiceWhateverIsDamaged)
{
    const int nBefore = Style::nAlive;
    std::mt19937 generator(1);
    const auto random = [&] { return static_cast<unsigned>(generator()); };
    int nGood = 0, nRefused = 0;
    const int nRounds = 4000;
    HostWatch watch;
    AfxSetNotices(0);
    for (int i = 0; i < nRounds; ++i) {
        const std::string whole = StoredParts(*MakeParts(static_cast<unsigned>(i) % 500, 2 + random() % 12));
        EXPECT_EQ(i % 50 == 0 ? LoadParts(whole, 128) : "", "");
        std::string damaged = whole;
        for (unsigned n = random() % 3 + 1; n > 0; --n) {
            // Small values at the start of a word make other indexes and counts.
            const size_t nAt = random() % damaged.size();
            damaged[nAt] = static_cast<char>(random() % 4 == 0 ? random() : random() % 16);
        }
        if (random() % 8 == 0)
            damaged.resize(random() % damaged.size());
        (LoadParts(damaged, 128).empty() ? nGood : nRefused) += 1;
        watch.raises.clear();
    }
    AfxSetNotices(1);
    EXPECT_GT(nGood, nRounds / 100);
    EXPECT_GT(nRefused, nRounds / 2);
    EXPECT_EQ(Style::nAlive, nBefore);
}
