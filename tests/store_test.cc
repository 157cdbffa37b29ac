// Object and class references: how they are stored, and what loading does without a class table.
#include <gtest/gtest.h>

#include "tests/support/watch.h"

const unsigned store = VELM_CArchive::store, load = VELM_CArchive::load;
static VELM_CRuntimeClass shape = {"Shape", 0, 1}, disc = {"Disc", 0, 7}, local = {"Local", 0, 0xFFFF};
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
                            {&shape, "Bf Og Og"}, {&shape, "Bg Of O0"}, {&local, ""},  {nullptr, ""}};

// Takes steps such as "Oa", the operation and the node or the node's class; '0' is NULL. "Ba" stores the byte, "Xa"
// takes the class out of the store map.
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
        : *steps == 'R' ? void(ar.ReadObject(pClass))
                        : void(VELM_CRuntimeClass::Load(ar, nullptr));
    }
}

TEST(Store, StoresEachObjectOnceAndStopsHarmlessly)
{
    const struct {
        unsigned nMode, nIndex;              // 0, or the next index to be given
        const char *steps, *outcome, *bytes; // what is stored; what is left of FFFF0000 00
    } cases[] = {{store, 0, "Oc Oa Od Ob Oc", "", DISC "63 " SHAPE "61 01800000 64 03800000 62 02000000"},
                 {store, 0, "Of Og", "", SHAPE "66 01800000 67 02000000 00000000 03000000 03000000"},
                 {store, 0, "O0 Oe Ca Sc Oc", "", "00000000" SHAPE "65 02000000 01800000" DISC "03800000 63"},
                 {store, 0, "Ca Xa Oa Cc Ob", "", SHAPE SHAPE "61 " DISC "02800000 62"},
                 {store, 0, "Oa Oc Xa Ob Od", "", SHAPE "61 " DISC "63 " SHAPE "62 03800000 64"},
                 {store, 0, "Ma Oa Ma Oa", "", "01000000 02000000"},
                 {store, 0x7FFE, "Ma Mb Oa Ob", "", "FE7F0000 FF7F0000 FF7F0000"},
                 {store, 0x7FFE, "Ca Cc Ca Cc", "", SHAPE DISC "FEFF0000 FF7F0000 FF7F0080"},
                 {store, 0x3FFFFFFD, "K0 Ma Oa Mb", "raise 5", "FF7F0000 FDFFFF3F"},
                 {store, 0x3FFFFFFD, "Ca Oa", "raise 5", SHAPE "FF7F0000 FDFFFFBF"},
                 {store, 0x3FFFFFFE, "O0 M0 Oa", "raise 5", "00000000" SHAPE},
                 {load, 0xFFFFFFFF, "M0 Ma", "raise 5", "FFFF0000 00"},
                 {store, 0, "Oh", "raise 1", ""},
                 {store, 0, "C0 Oi O0", "pClassRef != NULL; pClassRef != NULL", "00000000"},
                 {store, 0, "Ra", "IsLoading(); IsLoading()", ""},
                 {load, 0, "Oa Ca C0", "IsStoring(); IsStoring(); pClassRef != NULL; IsStoring()", "FFFF0000 00"},
                 {load, 0, "Sa", "raise 5", "00"},
                 {load, 0, "Sh", "raise 1", "FFFF0000 00"},
                 {load, 0, "R0 S0", "raise 3", ""},
                 {load, 0, "L0", "raise 3", ""}};
    for (size_t i = 0; i < 2 * std::size(cases); ++i) {
        const auto& c = cases[i / 2];
        MemoryFile file(Bytes(c.nMode == load ? "FFFF0000 00" : ""));
        VELM_CArchive ar(&file, c.nMode);
        const std::string printed = Printed([&] {
            if (c.nIndex != 0)
                ar.MapObject(nullptr), ar.m_nIndexCount = c.nIndex;
            EXPECT_EQ(Outcome([&] { Take(ar, c.steps); }, i % 2 != 0), c.outcome) << c.steps;
        });
        EXPECT_EQ(printed, c.nMode == load || ar.m_pStoreMap == nullptr ? "" : "SetAt NYI\n") << c.steps;
        ar.Flush();
        EXPECT_EQ(file.data.substr(file.nPosition), Bytes(c.bytes)) << c.steps;
    }
}

TEST(Store, LoadsNothingWithoutAClassTable)
{
    MemoryFile file(Bytes("FFFF0000 01000000 05000000 00000000"));
    VELM_CArchive ar(&file, load);
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
