// Registration, version line, diagnostics, exceptions, the object root, and the stand-in for the host.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <thread>
#include <utility>

#include "tests/support/watch.h"

// The first that a new process of this program prints while it lists its tests.
static std::string Listing(const std::string& environment, const std::string& redirection)
{
    char path[4096] = "", text[4096] = "";
    EXPECT_GT(readlink("/proc/self/exe", path, sizeof path - 1), 0);
    FILE* pPipe = popen((environment + " '" + path + "' --gtest_list_tests " + redirection).c_str(), "r");
    text[fread(text, 1, sizeof text - 1, pPipe)] = '\0';
    pclose(pPipe);
    return text;
}

TEST(Registration, NoticeOnStandardErrorWhenAskedFor)
{
    const std::string notice = "Tavno dll tavnomcl is initialized.\n";
    EXPECT_EQ(Listing("env -u TAVNO_DLL_CHECK", "2>&1 >/dev/null"), "");
    EXPECT_EQ(Listing("TAVNO_DLL_CHECK=", "2>&1 >/dev/null"), notice);
    EXPECT_EQ(Listing("TAVNO_DLL_CHECK=no", "2>/dev/null").find("Tavno"), std::string::npos);
    EXPECT_STREQ(tavnomcl_dll_init_check.dll_name, "tavnomcl");
    EXPECT_EQ(std::exchange(tavnotavnomcldll_init, 0), 1);
    setenv("TAVNO_DLL_CHECK", "", 1);
    testing::internal::CaptureStderr();
    const tavnomcl_dll plugin("plugin");
    unsetenv("TAVNO_DLL_CHECK");
    const tavnomcl_dll quiet("quiet");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Tavno dll plugin is initialized.\n");
    EXPECT_EQ(tavnotavnomcldll_init, 1);
}

TEST(Version, LineHasTheCommentOnlyWhenThereIsOne)
{
    char plain[256], commented[256];
    const int nLength = libtavnomcl_sprintf_verid(plain);
    EXPECT_EQ(Printed([&] { EXPECT_EQ(libtavnomcl_print_verid(), nLength); }), plain);
    const std::string line = plain, version = line.substr(0, line.find(" ("));
    EXPECT_EQ(version.substr(0, version.find_first_of("0123456789")), "libtavnomcl" + std::string(23, ' '));
    EXPECT_TRUE(line.size() == static_cast<size_t>(nLength) && version.find('"') == line.npos) << line;
    EXPECT_EQ(line.substr(line.size() - 2), ")\n");
    void* pLibrary = dlopen(TAVNOMCL_COMMENTED_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(pLibrary, nullptr) << dlerror();
    const int nLong = reinterpret_cast<int (*)(char*)>(dlsym(pLibrary, "libtavnomcl_sprintf_verid"))(commented);
    EXPECT_EQ(nLong, static_cast<int>(strlen(commented)));
    EXPECT_EQ(std::string(commented).substr(0, version.size() + 12), version + " \"nightly\" (");
    dlclose(pLibrary);
}

TEST(Diagnostics, ReportsNameTheFileThatHoldsTheCheck)
{
    static VELM_CPtrArray pointers;
    static VELM_CMap<fxStr, char*, int, int> texts;
    static VELM_CPlex* pHead = nullptr;
    const std::pair<const char*, void (*)()> cases[] = {{"mcl/mfc_coll.h", [] { pointers.SetAt(-1, nullptr); }},
                                                        {"mcl/mfc_coll.cc", [] { pointers.RemoveAt(0, 1); }},
                                                        {"mcl/mfc_cmap.h", [] { texts.InitHashTable(0); }},
                                                        {"mcl/mfc_cstring.cc", [] { VELM_CString().GetAt(0); }},
                                                        {"mcl/mfc_cplex.cc", [] { VELM_CPlex::Create(pHead, 0, 1); }}};
    for (const auto& c : cases) {
        HostWatch watch;
        c.second();
        EXPECT_EQ(watch.reports.at(0).file, c.first);
    }
    VELM_CPlex::FreeDataChain(pHead);
    testing::internal::CaptureStderr();
    reinterpret_cast<void (*)(const char*, const char*, int)>(dlsym(RTLD_NEXT, "pfm_assert_fail"))("x > 0", "a.cc", 7);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "a.cc:7: assertion failed: x > 0\n");
}

TEST(Exceptions, RecordsAndRaises)
{
    const std::unique_ptr<VELM_CException> pNamed(new VELM_CArchiveException(3, "a.dat"));
    EXPECT_STREQ(static_cast<VELM_CArchiveException*>(pNamed.get())->m_strFileName.m_data, "a.dat");
    VELM_CArchiveException nameless(5, nullptr);
    EXPECT_TRUE(nameless.m_strFileName.IsEmpty() && nameless.m_cause == 5 && nameless.m_nFlag == 1);
    char text[] = "as it was";
    EXPECT_TRUE(pNamed->GetErrorMessage(text, 9, nullptr) == 1 && pNamed->ReportError(1, 2) == 0 && text[0] == 'a');
    EXPECT_TRUE(AfxIsValidAddress(nullptr, 0, 0) == 1 && AfxIsValidString(nullptr, -1) == 1);
    EXPECT_EQ(Outcome([] { AfxThrowArchiveException(3, "a.dat"); }), "raise 3");
    EXPECT_EQ(Outcome([] { AfxThrowNotSupportedException(), AfxThrowMemoryException(); }, true), "raise 1; raise 1");
    EXPECT_EQ(Outcome([] { AfxAllocate(nullptr, SIZE_MAX / 2 + 1, 2); }), "raise 1");
    EXPECT_EQ(Outcome([] { AfxAllocate(nullptr, SIZE_MAX, 1, 1); }), "raise 1");
    EXPECT_EQ(Outcome([] { AfxNewArray<int>(SIZE_MAX / 4 + 2); }), "raise 1");
    const auto goOn = [] { Outcome([] { AfxAllocate(nullptr, SIZE_MAX, 2); }, true); };
    EXPECT_DEATH(goOn(), "libtavnomcl: memory is exhausted");
}

TEST(CleanupBlocks, RaiseEntersTheInnermostOfItsThread)
{
    HostWatch watch;
    std::string log;
    volatile int nStep = 0;
    const int nOuter = pfm_protect([&] {
        log += std::to_string(pfm_protect([] { pfm_raise(5); }));
        std::thread([&] { log += std::to_string(pfm_protect([] { pfm_raise(3); })); }).join();
        log += std::to_string(pfm_protect([] {}));
        pfm_cleanup_block block;
        block.nJumped = sigsetjmp(block.jump, 1);
        if (pfm_cleanup_start(&block, 0)) {
            pfm_cleanup_reset(&block);
            nStep = 1;
            pfm_raise(3);
        }
        nStep = nStep + 1;
        pfm_cleanup_rls(&block); // the raise has released it already
        pfm_raise(1);
    });
    EXPECT_EQ(log + std::to_string(nOuter) + std::to_string(nStep), "53012");
    EXPECT_DEATH(pfm_raise(3), "raise 3 outside every cleanup block");
}

TEST(ObjectRoot, SerializePrintsItsNoticeAndMovesNothing)
{
    VELM_CObject object, assigned;
    VELM_CMapPtrToPtr map;
    for (VELM_CObject* pObject : {&object, static_cast<VELM_CObject*>(&map)}) {
        EXPECT_EQ(pObject->GetRuntimeClass(), nullptr);
        const auto serialize = [&](VELM_CArchive& ar) { pObject->Serialize(ar); };
        EXPECT_EQ(Printed([&] { EXPECT_EQ(Stored(serialize), ""); }), "CObject Serialize NYI\n");
    }
    object.m_pOwned = malloc(8); // which has one owner, always
    assigned = object;
    EXPECT_TRUE(assigned.m_pOwned == nullptr && VELM_CObject(object).m_pOwned == nullptr);
}
