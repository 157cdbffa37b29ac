// Files on disk: modes, transfers and their errors, status.
#include <gtest/gtest.h>
#include <unistd.h>
#include <utime.h>

#include <fstream>
#include <memory>
#include <sstream>

#include "tests/support/watch.h"

static const std::string path = testing::TempDir() + "tavnomcl_file_test" + std::to_string(getpid());
static const struct Remover {
    ~Remover() { unlink(path.c_str()); }
} remover;

// Takes the pending error: its cause, system error and message.
static std::string Error()
{
    const std::unique_ptr<VELM_CFileException> p(VELM_CFile::getException());
    return p == nullptr ? "none" : std::to_string(p->m_cause) + std::to_string(p->m_lSysError) + p->m_strMessage.m_data;
}

TEST(File, FlagsSelectTheMode)
{
    // Whether the file is created, and the message; then of a file that held "old": what is read of it; the error, the
    // length and the contents after "new" was written.
    const std::pair<std::vector<unsigned>, const char*> modes[] = {
        {{0, 0x0004, 0xCFFC}, "0Can't open file78none; 13old; 1-1 3 old"},
        {{0x0001, 0x0002, 0x1000, 0x1003, 0xDFFF}, "1none78none; 10; 1-1 3 new"},
        {{0x2000, 0x2001, 0x2002, 0x3000, 0xFFFF}, "1none78none; 13old; none 6 oldnew"}};
    for (const auto& mode : modes) {
        for (const unsigned nFlags : mode.first) {
            VELM_CFile file;
            VELM_CFileException e(7, 8, "none");
            std::ostringstream seen;
            char bytes[10] = "";
            unlink(path.c_str());
            seen << file.Open(path.c_str(), nFlags, &e) << e.m_strMessage.m_data << e.m_cause << e.m_lSysError;
            std::ofstream(path) << "old";
            seen << Error() << "; " << file.Open(path.c_str(), nFlags, nullptr) << file.Read(bytes, 9) << bytes << "; ";
            file.Write("new", 3);
            seen << Error() << " " << file.GetLength() << " " << std::ifstream(path).rdbuf();
            EXPECT_EQ(seen.str(), mode.second) << "flags " << nFlags << ": opening a missing file; an old one; writing";
        }
    }
}

TEST(File, ReadsSeeksAndReopens)
{
    std::ofstream(path) << "abcd";
    VELM_CFile file(path.c_str());
    char bytes[10] = "#";
    EXPECT_EQ(Row() << file.Read(bytes, 9) << file.Seek(0, 0) << file.SeekToEnd(), "0 -1 4294967295");
    file.Write("x", 1), file.SeekToBegin(), file.Close();
    EXPECT_EQ(Row() << file.Open(path.c_str()) << file.Read(bytes, 0) << bytes, "1 0 #");
    EXPECT_EQ(Row() << file.Read(bytes, 9) << bytes << file.Read(bytes, 9) << int{bytes[0]}, "4 abcd 0 0");
    std::ofstream(path, std::ios::app) << "ef";
    EXPECT_EQ(file.Read(bytes, 9), 2u); // the end is looked for afresh
    std::ostringstream seen;
    for (const auto& seek : {std::make_pair(1, 0u), {2, 1}, {-3, 2}, {0, 3}, {-1, 0}, {0, ~0u}, {-6, 2}})
        seen << file.Seek(seek.first, seek.second) << (file.Read(bytes, 1) == 1 ? bytes[0] : '-');
    EXPECT_EQ(seen.str(), "0b0e0d-1e-1f-1-0a");
    file.SeekToBegin(), file.SetLength(1);
    EXPECT_EQ(Row() << file.Read(bytes, 2) << bytes[0] << file.SeekToEnd() << file.Read(bytes, 2), "2 a 0 0");
    EXPECT_EQ(Row() << file.GetLength() << Error() << file.Open("/missing") << !file.m_pStream, "6 none 0 1");
    EXPECT_EQ(Row() << file.GetFileName().m_data << file.GetFilePath().m_data << file.GetLength(),
              "/missing /missing 0");
    EXPECT_EQ(Row() << file.Open(nullptr) << file.GetFileName().m_len, "0 0");
}

TEST(File, RecordsAFailedTransferUntilItIsTaken)
{
    VELM_CFile file;
    EXPECT_EQ(file.Open("/dev/full", 1), 1);
    VELM_CArchive(&file, VELM_CArchive::store).WriteString("lost");
    file.Open(path.c_str(), 1), file.Write("", 1);
    EXPECT_EQ(Row() << Error() << Error(), "1-1 none"); // a success changes nothing
}

TEST(File, TellsStatus)
{
    VELM_CFileStatus status;
    const VELM_CFile file(path.c_str());
    std::ofstream{path};
    const utimbuf times = {1000, 2000}; // access, modification
    for (const long long nSize : {0LL, (1LL << 32) - 1, (1LL << 32) + 5}) {
        ASSERT_EQ(Row() << truncate64(path.c_str(), nSize) << utime(path.c_str(), &times), "0 0") << nSize;
        EXPECT_EQ(Row() << file.GetStatus(status) << int{status.m_attribute}, "1 0") << nSize;
        EXPECT_EQ(file.GetLength(), static_cast<uint32_t>(nSize));
        EXPECT_EQ(static_cast<uint32_t>(status.m_size), static_cast<uint32_t>(nSize));
        EXPECT_EQ(Row() << status.m_atime.GetTime() << status.m_mtime.GetTime(), "1000 2000") << nSize;
        EXPECT_GT(status.m_ctime.GetTime(), 3000);
    }
    EXPECT_EQ(Row() << file.GetStatus("/missing", status) << file.GetStatus(nullptr, status) << status.m_size, "0 0 5");
    EXPECT_EQ(Row() << VELM_CFile::GetStatus("/", status) << int{status.m_attribute}, "1 16");
}

TEST(ProgressFile, HandsEveryOperationOn)
{
    struct Inner : MemoryFile {
        int Open(const char* lpszFileName, unsigned nOpenFlags, VELM_CFileException*) override
        {
            calls.push_back("Open " + std::string(lpszFileName) + " " + std::to_string(nOpenFlags));
            return 7;
        }
        void SetLength(unsigned long n) override { calls.push_back("SetLength " + std::to_string(n)); }
        unsigned long GetLength() const override { return 9; }
        void Close() override { calls.push_back("Close"); }
    } inner;
    const auto progress = [](void* pReports, unsigned long long nDone, unsigned long long nTotal) {
        *static_cast<Row*>(pReports) << nDone << nTotal;
    };
    Row reports;
    VELM_CProgressFile file(&inner, 100, progress, &reports);
    char byte;
    EXPECT_STREQ(file.GetFilePath().m_data, "memory");
    EXPECT_EQ(Row() << file.Open("name", 5) << file.GetFileName().m_data << file.Seek(-1, 2) << file.GetLength(),
              "7 name 0 9");
    inner.nPosition = 0, file.SetLength(8), file.Write("abc", 3), file.Read(&byte, 1), file.Write("", 0), file.Close();
    Row calls;
    for (const std::string& call : inner.calls)
        calls << call;
    EXPECT_EQ(calls, "GetFilePath Open name 5 Seek -1 2 SetLength 8 Write 3 Read 1 Write 0 Close");
    EXPECT_EQ(Row() << reports << file.GetDone(), "3 100 4 100 4");
}

TEST(MemoryFile, IsNotOpened)
{
    VELM_CMemoryFile file;
    VELM_CFileException e(7, 8, "none");
    EXPECT_EQ(Row() << file.Open("/dev/null", 0, &e) << e.m_strMessage.m_data << file.Open("/dev/null"),
              "0 Can't open file 0");
}
