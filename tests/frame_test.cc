// Registration, version line, diagnostics, exceptions, the object root, and the stand-in for the host.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <stdexcept>
#include <thread>

#include "tests/support/watch.h"

TEST(Library, GivesNoticeWhenAskedForAndItsVersion)
{
    EXPECT_STREQ(tavnomcl_dll_init_check.dll_name, "tavnomcl");
    EXPECT_EQ(tavnotavnomcldll_init--, 1);
    unsetenv("TAVNO_DLL_CHECK"), testing::internal::CaptureStderr();
    const tavnomcl_dll quiet("quiet");
    setenv("TAVNO_DLL_CHECK", "", 1);
    const tavnomcl_dll plugin("plugin");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Tavno dll plugin is initialized.\n");
    EXPECT_EQ(tavnotavnomcldll_init, 1);
    unsetenv("TAVNO_DLL_CHECK");

    char plain[256], commented[256];
    const int nPlain = libtavnomcl_sprintf_verid(plain);
    EXPECT_EQ(Printed([&] { EXPECT_EQ(libtavnomcl_print_verid(), nPlain); }), std::string(plain, plain + nPlain));
    void* pLibrary = dlopen(TAVNOMCL_COMMENTED_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(pLibrary, nullptr) << dlerror();
    reinterpret_cast<int (*)(char*)>(dlsym(pLibrary, "libtavnomcl_sprintf_verid"))(commented);
    const std::string line = plain, upToDate = line.substr(0, line.find('('));
    EXPECT_EQ(upToDate.substr(0, 34) + line.substr(line.find(')')), "libtavnomcl" + std::string(23, ' ') + ")\n");
    EXPECT_EQ(line.find_first_of("0123456789"), 34u) << line;
    EXPECT_EQ(commented, upToDate + "\"a \"b\"; c\\n 5%s #$@d@\" (today)\n");
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
TEST(Library, CanBeUnloaded)
{
    Dl_info library;
    ASSERT_NE(dladdr(reinterpret_cast<void*>(&libtavnomcl_print_verid), &library), 0);
    void* pSecond = dlmopen(LM_ID_NEWLM, library.dli_fname, RTLD_NOW);
    ASSERT_NE(pSecond, nullptr) << dlerror();
    const void* const pInside = dlsym(pSecond, "libtavnomcl_print_verid");
    EXPECT_NE(dladdr(pInside, &library), 0);
    dlclose(pSecond);
    EXPECT_EQ(dladdr(pInside, &library), 0);
}
#endif

TEST(Diagnostics, ReportsNameTheFileThatHoldsTheCheck)
{
    static VELM_CPlex* pHead;
    const std::pair<const char*, void (*)()> cases[] = {
        {"mcl/mfc_coll.h", [] { VELM_CPtrArray().SetAt(-1, nullptr); }},
        {"mcl/mfc_coll.cc", [] { VELM_CPtrArray().RemoveAt(0, 1); }},
        {"mcl/mfc_cmap.h", [] { VELM_CMap<fxStr, char*, int, int>().InitHashTable(0); }},
        {"mcl/mfc_cstring.cc", [] { VELM_CString().GetAt(0); }},
        {"mcl/mfc_cplex.cc", [] { VELM_CPlex::Create(pHead, 0, 1)->FreeDataChain(); }}};
    for (const auto& c : cases) {
        HostWatch watch;
        c.second();
        EXPECT_EQ(watch.reports.at(0).file, c.first);
    }
    testing::internal::CaptureStderr();
    reinterpret_cast<void (*)(const char*, const char*, int)>(dlsym(RTLD_NEXT, "pfm_assert_fail"))("x > 0", "a.cc", 7);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "a.cc:7: assertion failed: x > 0\n");
}

TEST(Exceptions, RecordsAndRaises)
{
    VELM_CArchiveException named(3, "a.dat"), nameless(5, nullptr);
    VELM_CException plain, flagged(7);
    EXPECT_EQ(Row() << plain.m_nFlag << flagged.m_nFlag << plain.GetErrorMessage(nullptr, 9, nullptr)
                    << plain.ReportError(0, 0),
              "1 7 1 0");
    EXPECT_EQ(Row() << nameless.m_strFileName.m_len << nameless.m_cause << nameless.m_nFlag, "0 5 1");
    EXPECT_EQ(Row() << named.m_strFileName.m_data << named.GetErrorMessage(nullptr, 9, nullptr)
                    << named.ReportError(1, 2),
              "a.dat 1 0");
    EXPECT_EQ(Outcome([] { AfxThrowArchiveException(3, "a.dat"); }), "raise 3");
    EXPECT_EQ(Outcome([] { AfxThrowNotSupportedException(), AfxThrowMemoryException(); }, true), "raise 1; raise 1");
    EXPECT_EQ(Outcome([] { AfxAllocate(nullptr, SIZE_MAX, 1, 1); }), "raise 1");
    EXPECT_EQ(Outcome([] { AfxNewArray<int>(SIZE_MAX / 4 + 2); }), "raise 1");
    EXPECT_EXIT(Outcome([] { AfxAllocate(nullptr, SIZE_MAX / 2 + 1, 2); }, true), testing::KilledBySignal(SIGABRT),
                "libtavnomcl: memory is exhausted");
}

TEST(CleanupBlocks, ARaiseEntersTheInnermostOfItsThreadThatIsNotReleased)
{
    HostWatch watch;
    std::string log;
    pfm_cleanup_block blocks[3];
    const int nOuter = pfm_protect([&] {
        log += std::to_string(pfm_protect([] { pfm_raise(5); }));
        std::thread([&] { log += std::to_string(pfm_protect([] { pfm_raise(3); })); }).join();
        blocks[0].nJumped = sigsetjmp(blocks[0].jump, 1);
        if (pfm_cleanup_start(&blocks[0], 0)) {
            pfm_cleanup_reset(&blocks[0]);
            log += "s";
            pfm_raise(3);
        }
        log += "j";
        pfm_cleanup_rls(&blocks[0]); // the raise has released it already
        EXPECT_THROW(pfm_protect([] { throw std::runtime_error("a body's own"); }), std::runtime_error);
        for (pfm_cleanup_block& block : blocks)
            block.nJumped = 0, pfm_cleanup_start(&block, 0), pfm_cleanup_reset(&block);
        pfm_cleanup_rls(&blocks[0]);
        pfm_cleanup_rls(&blocks[2]), pfm_cleanup_rls(&blocks[1]); // neither brings an outer one back
        pfm_raise(1);                                             // comes to none of those that are gone
    });
    EXPECT_EQ(log + std::to_string(nOuter), "53sj1");
    EXPECT_DEATH(pfm_raise(3), "raise 3 outside every cleanup block");
}

TEST(ObjectRoot, OwnsItsBlockAlone)
{
    VELM_CObject object, assigned;
    object.m_pOwned = malloc(8);
    assigned = object;
    EXPECT_EQ(assigned.m_pOwned, nullptr);
    EXPECT_EQ(VELM_CObject(object).m_pOwned, nullptr);
    EXPECT_EQ(object.GetRuntimeClass(), nullptr);
}
