// Object and class references: how they are stored, and what loading does without a class table.
#include <gtest/gtest.h>

#include <random>

#include "tests/support/graph.h"
#include "tests/support/watch.h"

const unsigned store = VELM_CArchive::store, load = VELM_CArchive::load;
static VELM_CRuntimeClass shape = {"Shape", 0, 1}, disc = {"Disc", 0, 7}, local = {"Local", 0, 0xFFFF};
static VELM_CRuntimeClass nameless = {nullptr, 0, 1};
#define SHAPE "FFFF0000 01000000 05000000 5368617065 "
#define DISC "FFFF0000 07000000 04000000 44697363 "

static void Take(VELM_CArchive& ar, const char* steps);

struct StoreNode : VELM_CObject {
    VELM_CRuntimeClass* m_pClass;
    const char* m_steps; // to store its data

    StoreNode(VELM_CRuntimeClass* pClass, const char* steps) : m_pClass(pClass), m_steps(steps) {}
    VELM_CRuntimeClass* GetRuntimeClass() const override { return m_pClass; }
    void Serialize(VELM_CArchive& ar) override { Take(ar, m_steps); }
};

// a, b and so on.
static StoreNode nodes[] = {{&shape, "Ba"},       {&shape, "Bb"},       {&disc, "Bc"}, {&disc, "Bd"}, {&shape, "Be Oe"},
                            {&shape, "Bf Og Og"}, {&shape, "Bg Of O0"}, {&local, ""},  {nullptr, ""}, {&nameless, ""}};

// Takes steps such as "Oa", the operation and the node or the node's class; '0' is NULL. "Ba" stores the byte, "Xa"
// takes the class out of the store map, "Za" forgets the node's index there.
static void Take(VELM_CArchive& ar, const char* steps)
{
    for (; *steps != '\0'; steps += steps[2] == '\0' ? 2 : 3) {
        const StoreNode* const pNode = steps[1] == '0' ? nullptr : &nodes[steps[1] - 'a'];
        VELM_CRuntimeClass* const pClass = pNode == nullptr ? nullptr : pNode->m_pClass;
        *steps == 'O'   ? ar.WriteObject(pNode)
        : *steps == 'B' ? void(ar << static_cast<unsigned char>(steps[1]))
        : *steps == 'M' ? ar.MapObject(pNode)
        : *steps == 'C' ? ar.WriteClass(pClass)
        : *steps == 'S' ? ar.SerializeClass(pClass)
        : *steps == 'K' ? ar.CheckCount()
        : *steps == 'X' ? void(ar.m_pStoreMap->RemoveKey(pClass))
        : *steps == 'Z' ? void((*ar.m_pStoreMap)[const_cast<StoreNode*>(pNode)] = nullptr)
        : *steps == 'T' ? pClass->Store(ar)
        : *steps == 'R' ? void(ar.ReadObject(pClass))
                        : void(VELM_CRuntimeClass::Load(ar, nullptr));
    }
}

TEST(Store, StoresEachObjectOnceAndStopsHarmlessly)
{
    struct Case {
        unsigned nMode, nIndex;              // 0, or the next index to be given
        const char *steps, *outcome, *bytes; // what is stored; what is left of FFFF0000 00
    };
    const std::pair<const char*, std::vector<Case>> promises[] = {
        {"an object is stored once, behind its class where that is new",
         {{store, 0, "Oc Oa Od Ob Oc", "", DISC "63 " SHAPE "61 01800000 64 03800000 62 02000000"},
          {store, 0, "Of Og", "", SHAPE "66 01800000 67 02000000 00000000 03000000 03000000"},
          {store, 0, "O0 Oe Ca Sc Oc", "", "00000000" SHAPE "65 02000000 01800000" DISC "03800000 63"}}},
        {"what a program changes in the store map holds",
         {{store, 0, "Ca Xa Oa Cc Ob", "", SHAPE SHAPE "61 " DISC "02800000 62"},
          {store, 0, "Oa Oc Xa Ob Od", "", SHAPE "61 " DISC "63 " SHAPE "62 03800000 64"},
          {store, 0, "Oa Za Oa Oa", "", SHAPE "61 01800000 61 03000000"}}},
        {"what is mapped has an index; references are long from 0x7FFF on, up to the limit",
         {{store, 0, "Ma Oa Ma Oa", "", "01000000 02000000"},
          {store, 0x7FFE, "Ma Mb Oa Ob", "", "FE7F0000 FF7F0000 FF7F0000"},
          {store, 0x7FFE, "Ca Cc Ca Cc", "", SHAPE DISC "FEFF0000 FF7F0000 FF7F0080"},
          {store, 0x3FFFFFFD, "K0 Ma Oa Mb", "raise 5", "FF7F0000 FDFFFF3F"},
          {store, 0x3FFFFFFD, "Ca Oa", "raise 5", SHAPE "FF7F0000 FDFFFFBF"},
          {store, 0x3FFFFFFE, "O0 M0 Oa", "raise 5", "00000000" SHAPE},
          {load, 0xFFFFFFFF, "M0 Ma", "raise 5", "FFFF0000 00"}}},
        {"what cannot be stored is raised or reported, and nothing of it is stored",
         {{store, 0, "Oh", "raise 1", ""},
          {store, 0, "C0 Oi O0", "pClassRef != NULL; pClassRef != NULL", "00000000"},
          {store, 0, "Cj Oj Tj", "pClassRef->m_pszName != NULL; pClassRef->m_pszName != NULL; m_pszName != NULL", ""},
          {load | VELM_CArchive::noFlushOnDestroy, 0, "R0 R0",
           "IsLoading(); IsLoading(); IsLoading(); IsLoading(); IsLoading(); IsLoading(); raise 3", ""},
          {store, 0, "Ra", "IsLoading(); IsLoading()", ""},
          {load, 0, "Oa Ca C0", "IsStoring(); IsStoring(); pClassRef != NULL; IsStoring()", "FFFF0000 00"}}},
        {"nothing is loaded without a class table",
         {{load, 0, "Sa", "raise 5", "00"},
          {load, 0, "Sh", "raise 1", "FFFF0000 00"},
          {load, 0, "R0 S0", "raise 3", ""},
          {load, 0, "L0", "raise 3", ""}}}};
    for (const auto& promise : promises) {
        for (size_t i = 0; i < 2 * promise.second.size(); ++i) {
            const Case& c = promise.second[i / 2];
            SCOPED_TRACE(promise.first + std::string("; not so by the steps ") + c.steps);
            MemoryFile file(Bytes((c.nMode & load) != 0 ? "FFFF0000 00" : ""));
            VELM_CArchive ar(&file, c.nMode);
            const std::string printed = Printed([&] {
                if (c.nIndex != 0)
                    ar.MapObject(nullptr), ar.m_nIndexCount = c.nIndex;
                EXPECT_EQ(Outcome([&] { Take(ar, c.steps); }, i % 2 != 0), c.outcome);
            });
            EXPECT_EQ(printed, (c.nMode & load) != 0 || ar.m_pStoreMap == nullptr ? "" : "SetAt NYI\n");
            ar.Flush();
            EXPECT_EQ(file.data.substr(file.nPosition), Bytes(c.bytes));
        }
    }
}

// The countdown raises.
struct LifeNode : Node {
    VELM_CRuntimeClass* m_pClass = nullptr;

    static unsigned s_nUntilRaise;
    VELM_CRuntimeClass* GetRuntimeClass() const override { return m_pClass; }
    void Serialize(VELM_CArchive& ar) override
    {
        if (--s_nUntilRaise == 0)
            pfm_raise(7);
        Node::Serialize(ar);
    }
};
unsigned LifeNode::s_nUntilRaise;

// Its objects have another first word.
struct OtherLifeNode : LifeNode {
    void Serialize(VELM_CArchive& ar) override { LifeNode::Serialize(ar), ar << 5u; }
};

// What the store map has, as a program sees it.
static std::string Chains(const VELM_CMapPtrToPtr& map)
{
    std::ostringstream text;
    for (unsigned i = 0; map.m_pHashTable != nullptr && i < map.m_nHashTableSize; ++i) {
        for (const auto* p = map.m_pHashTable[i]; p != nullptr; p = p->pNext)
            text << i << ' ' << p->nHashValue << ' ' << p->key << ' ' << p->value << ' ' << p->nValue << '\n';
    }
    return text.str();
}

// An archive of whose table nobody knows, beside one that asks the store map alone, as somebody has touched that.
TEST(Store, LivesAreTheSameWithoutTheTable)
{
    std::mt19937 engine(3);
    const auto random = [&] { return static_cast<unsigned>(engine()); };
    VELM_CRuntimeClass classes[] = {{"A", 0, 1}, {"B", 0, 2}, {"C", 0, 3}, {"Local", 0, 0xFFFF}, {nullptr, 0, 4}};
    for (unsigned nLife = 0; nLife < 60; ++nLife) {
        std::vector<LifeNode> objects(nLife % 4 == 0 ? 900 : 40); // more than the first table holds
        for (size_t i = 0; i < objects.size(); ++i) {
            objects[i].m_pClass = &classes[random() % 40 == 0 ? 3 + random() % 2 : random() % 3];
            for (unsigned n = random() % 3; n > 0; --n)
                objects[i].links.push_back(&objects[random() % objects.size()]);
        }
        classes[0].m_pszName = "A";
        MemoryFile files[2];
        VELM_CArchive fast(&files[0], store, 200), plain(&files[1], store, 200);
        alignas(OtherLifeNode) unsigned char place[sizeof(OtherLifeNode)]; // of temporaries
        HostWatch watch;
        const auto both = [&](const auto& step) {
            std::string outcome[2];
            for (VELM_CArchive* p : {&fast, &plain}) {
                LifeNode::s_nUntilRaise = nLife % 3 == 0 ? 40 : ~0u;
                const int nRaised = pfm_protect([&] { step(*p); });
                watch.raises.clear(); // one that comes from a segment of the archive is raised again below
                outcome[p == &plain] =
                    (Row() << nRaised << watch.Texts() << p->m_nIndexCount << p->IsWhole() << p->GetErrorText()).Text();
                watch.reports.clear();
            }
            ASSERT_EQ(outcome[0], outcome[1]) << nLife;
        };
        Printed([&] { both([](VELM_CArchive& ar) { ar.MapObject(nullptr); }); });
        plain.m_pStoreMap->WalkChains();
        for (unsigned nStep = 0; nStep < 300; ++nStep) {
            const LifeNode* const pNode = &objects[random() % objects.size()];
            const unsigned nOperation = random() % 1000, nKind = random() % 2;
            both([&](VELM_CArchive& ar) {
                if (nOperation < 800) {
                    ar.WriteObject(pNode);
                } else if (nOperation < 900) {
                    LifeNode* const p = nKind == 0 ? new (place) LifeNode : new (place) OtherLifeNode;
                    p->m_pClass = &classes[nKind];
                    ar.WriteObject(p);
                } else if (nOperation < 940) {
                    ar.MapObject(pNode);
                } else if (nOperation < 980) {
                    ar.WriteClass(pNode->m_pClass);
                } else if (nOperation < 990) {
                    classes[0].m_pszName = nKind == 0 ? "A" : "another";
                } else if (nOperation < 995) {
                    ar.SetMaxDepth(3 + nKind * 1000);
                } else if (nLife % 5 == 0) { // a program changes the map
                    nKind == 0 ? void(ar.m_pStoreMap->RemoveKey(const_cast<LifeNode*>(pNode)))
                               : void((*ar.m_pStoreMap)[const_cast<LifeNode*>(pNode)] = nullptr);
                } else if (nLife % 5 == 1) { // or reads it
                    void* pIndex = nullptr;
                    ar.m_pStoreMap->Lookup(const_cast<LifeNode*>(pNode), pIndex);
                }
            });
        }
        EXPECT_EQ(Chains(*fast.m_pStoreMap), Chains(*plain.m_pStoreMap)) << nLife;
        fast.Flush(), plain.Flush();
        EXPECT_EQ(files[0].data, files[1].data) << nLife;
        fast.Abort(), plain.Abort();
    }
}

TEST(Store, LoadsNothingWithoutAClassTable)
{
    LoadingArchive ar(Bytes("FFFF0000 01000000 05000000 00000000"));
    unsigned nSchema = 77;
    unsigned long nObTag = 77;
    EXPECT_EQ(Row() << !ar.ReadClass(&shape, &nSchema, &nObTag) << nSchema << nObTag, "1 77 0");
    EXPECT_EQ(Row() << !VELM_CRuntimeClass::Load(ar, &nSchema) << nSchema << ar.m_nIndexCount, "1 0 1");
    ar.MapObject(nodes), ar.m_nCurSchema = 5;
    EXPECT_EQ(ar.ReadObject(&shape), nullptr);
    EXPECT_EQ(ar.m_pLoadArray->GetAt(1), nodes);
    EXPECT_EQ(Row() << ar.m_nIndexCount << ar.GetObjectSchema() << ar.GetObjectSchema(), "2 5 4294967295");
    HostWatch watch;
    ar.WriteObject(nullptr), ar.Write(nullptr, 1);
    EXPECT_EQ(watch.reports[0].file + watch.reports[1].file, "mcl/mfc_carcobj.ccmcl/mfc_carccore.cc");
}
