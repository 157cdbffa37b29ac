// Object and class references: how they are stored, and what loading does without a class table.
#include <gtest/gtest.h>

#include "tests/support/watch.h"

const unsigned store = VELM_CArchive::store, load = VELM_CArchive::load;
static VELM_CRuntimeClass shape = {"Shape", 0, 1}, disc = {"Disc", 0, 7}, local = {"Local", 0, 0xFFFF};
#define SHAPE "FFFF0000 01000000 05000000 5368617065 "
#define DISC "FFFF0000 07000000 04000000 44697363 "

// Stores its byte, then the nodes whose names it holds.
struct StoreNode : VELM_CObject {
    VELM_CRuntimeClass* m_pClass;
    unsigned char m_by;
    const char* m_refs;

    StoreNode(VELM_CRuntimeClass* p, unsigned char by, const char* refs = "") : m_pClass(p), m_by(by), m_refs(refs) {}
    VELM_CRuntimeClass* GetRuntimeClass() const override { return m_pClass; }
    void Serialize(VELM_CArchive& ar) override;
};

// '0' names NULL.
static const StoreNode* Named(char name)
{
    static StoreNode nodes[] = {{&shape, 0xA0},      {&shape, 0xB0},       {&disc, 0xC0},        {&disc, 0xD0},
                                {&shape, 0xE0, "e"}, {&shape, 0xF0, "gg"}, {&shape, 0x10, "f0"}, {&shape, 0x20, "c"},
                                {&local, 0},         {nullptr, 0}};
    return name == '0' ? nullptr : &nodes[name - 'a'];
}

void StoreNode::Serialize(VELM_CArchive& ar)
{
    ar << m_by;
    for (const char* p = m_refs; *p != '\0'; ++p)
        ar.WriteObject(Named(*p));
}

// Takes steps such as "Oa", the operation and the node or the node's class.
static void Take(VELM_CArchive& ar, const char* steps)
{
    for (; *steps != '\0'; steps += steps[2] == '\0' ? 2 : 3) {
        const StoreNode* const pNode = Named(steps[1]);
        VELM_CRuntimeClass* const pClass = pNode == nullptr ? nullptr : pNode->m_pClass;
        *steps == 'O'   ? ar.WriteObject(pNode)
        : *steps == 'M' ? ar.MapObject(pNode)
        : *steps == 'C' ? ar.WriteClass(pClass)
        : *steps == 'S' ? ar.SerializeClass(pClass)
        : *steps == 'K' ? ar.CheckCount()
        : *steps == 'R' ? void(ar.ReadObject(pClass))
                        : void(VELM_CRuntimeClass::Load(ar, nullptr));
    }
}

TEST(Store, StoresEachObjectOnceAndStopsHarmlessly)
{
    const struct {
        unsigned nMode, nIndex;              // 0, or the next index to be given
        const char *steps, *outcome, *bytes; // what is stored; what is left of FFFF0000 00
    } cases[] = {
        {store, 0, "Oa Oa Ob O0", "", SHAPE "A0 02000000 01800000 B0 00000000"},
        {store, 0, "Oc Oa Od Ob Oc", "", DISC "C0 " SHAPE "A0 01800000 D0 03800000 B0 02000000"},
        {store, 0, "Of Og", "", SHAPE "F0 01800000 10 02000000 00000000 03000000 03000000"},
        {store, 0, "O0 Oe Ce Sc Oc", "", "00000000" SHAPE "E0 02000000 01800000" DISC "03800000 C0"},
        {store, 0, "Ma Oa Ma Oa", "", "01000000 02000000"},
        {store, 0x7FFE, "Ma Mb Oa Ob", "", "FE7F0000 FF7F0000 FF7F0000"},
        {store, 0x7FFE, "Ca Cc Ca Cc", "", SHAPE DISC "FEFF0000 FF7F0000 FF7F0080"},
        {store, 0x3FFFFFFD, "K0 Ma Oa Mb", "raise 5", "FF7F0000 FDFFFF3F"},
        {store, 0x3FFFFFFD, "Ca Oa", "raise 5", SHAPE "FF7F0000 FDFFFFBF"},
        {store, 0x3FFFFFFE, "O0 Oa", "raise 5", "00000000" SHAPE},
        {store, 0x3FFFFFFE, "M0 Sc", "raise 5", DISC},
        {store, 0xFFFFFFFF, "Ma", "raise 5", ""},
        {load, 0x3FFFFFFE, "M0 Ma", "raise 5", "FFFF0000 00"},
        {store, 0, "Oi", "raise 1", ""},
        {store, 0, "Si", "raise 1", ""},
        {store, 0, "C0 Oj O0", "pClassRef != NULL; pClassRef != NULL", "00000000"},
        {store, 0, "Ra", "IsLoading(); IsLoading()", ""},
        {load, 0, "Oa Ca C0", "IsStoring(); IsStoring(); pClassRef != NULL; IsStoring()", "FFFF0000 00"},
        {load, 0, "Ra", "", "00"},
        {load, 0, "Sa", "raise 5", "00"},
        {load, 0, "Si", "raise 1", "FFFF0000 00"},
        {load, 0, "R0 S0", "raise 3", ""},
        {load, 0, "L0", "raise 3", ""},
        {load, 0, "R0 L0", "raise 3", ""},
    };
    for (const auto& c : cases) {
        for (const bool bReturns : {false, true}) {
            SCOPED_TRACE(c.steps);
            MemoryFile file(Bytes("FFFF0000 00"));
            VELM_CArchive ar(&file, c.nMode, 128);
            std::string outcome, bytes(100, '\0');
            const auto TakeAll = [&] {
                if (c.nIndex != 0)
                    ar.MapObject(nullptr), ar.m_nIndexCount = c.nIndex;
                outcome = Outcome([&] { Take(ar, c.steps); }, bReturns);
            };
            const std::string printed = Printed(TakeAll);
            EXPECT_EQ(printed, c.nMode == load || ar.m_pStoreMap == nullptr ? "" : "SetAt NYI\n");
            EXPECT_EQ(outcome, c.outcome);
            bytes.resize(c.nMode == load ? ar.Read(&bytes[0], 100) : 0);
            bytes.append(c.nMode == load ? ar.m_lpBufCur : ar.m_lpBufStart, ar.m_lpBufCur);
            EXPECT_EQ(bytes, Bytes(c.bytes));
        }
    }
}

TEST(Store, LoadsNothingWithoutAClassTable)
{
    MemoryFile file(Bytes("FFFF0000 01000000 05000000 00000000"));
    VELM_CArchive ar(&file, load);
    HostWatch watch;
    unsigned nSchema = 77;
    unsigned long nObTag = 77;
    EXPECT_TRUE(ar.ReadClass(&shape, &nSchema, &nObTag) == nullptr && nSchema == 77 && nObTag == 0);
    EXPECT_TRUE(VELM_CRuntimeClass::Load(ar, &nSchema) == nullptr && nSchema == 0 && ar.m_nIndexCount == 1);
    EXPECT_EQ(ar.ReadObject(&shape), nullptr);
    ar.MapObject(Named('a'));
    EXPECT_TRUE(ar.m_pLoadArray->GetAt(1) == Named('a') && ar.m_nIndexCount == 2);
    EXPECT_EQ(ar.GetObjectSchema(), 0xFFFFFFFF);
    ar.m_nCurSchema = 5;
    EXPECT_EQ(ar.GetObjectSchema(), 5u);
    EXPECT_EQ(ar.GetObjectSchema(), 0xFFFFFFFF);
    ar.m_pLoadArray->SetSize(0), ar.m_pLoadArray->SetAt(0, nullptr), ar.WriteObject(nullptr), ar.Write(nullptr, 1);
    EXPECT_EQ(watch.Texts(), "nIndex >= 0 && nIndex < m_size\nIsStoring()\nlpBuf != NULL\nIsStoring()\n");
    EXPECT_EQ(watch.reports[0].file, "mcl/mfc_coll.h");
    EXPECT_EQ(watch.reports[1].file + watch.reports[2].file, "mcl/mfc_carcobj.ccmcl/mfc_carccore.cc");
}
