// Files on disk: modes, transfers and their errors, status.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <memory>

#include "tests/support/watch.h"

static const std::string path = testing::TempDir() + "tavnomcl_file_test" + std::to_string(getpid());
static const std::string missing = path + "/missing";
static const struct Remover {
    ~Remover() { unlink(path.c_str()); }
} remover;

static void Put(const std::string& contents)
{
    std::ofstream(path, std::ios::binary) << contents;
}

// Takes the pending error: its cause, system error and message.
static std::string Error()
{
    const std::unique_ptr<VELM_CFileException> p(VELM_CFile::getException());
    return p == nullptr ? "none" : std::to_string(p->m_cause) + std::to_string(p->m_lSysError) + p->m_strMessage.m_data;
}

TEST(File, FlagsSelectTheMode)
{
    const struct {
        std::vector<unsigned> flags;
        const char *read, *contents, *error; // of a file that held "old", after "new" was written
        int bCreates;
    } modes[] = {
        {{0, 0x0004, 0xCFFC}, "old", "old", "1-1", 0},
        {{0x0001, 0x0002, 0x1000, 0x1003, 0xDFFF}, "", "new", "1-1", 1},
        {{0x2000, 0x2001, 0x2002, 0x3000, 0xFFFF}, "old", "oldnew", "none", 1},
    };
    for (const auto& mode : modes) {
        for (const unsigned nFlags : mode.flags) {
            SCOPED_TRACE(nFlags);
            VELM_CFile file;
            VELM_CFileException error(7, 8, "none");
            unlink(path.c_str());
            EXPECT_EQ(file.Open(path.c_str(), nFlags, &error), mode.bCreates);
            EXPECT_STREQ(error.m_strMessage.m_data, mode.bCreates ? "none" : "Can't open file");
            EXPECT_TRUE(error.m_cause == 7 && error.m_lSysError == 8 && VELM_CFile::ERROR_CODE == 0);
            Put("old");
            EXPECT_EQ(file.Open(path.c_str(), nFlags, nullptr), 1);
            char bytes[10] = "";
            EXPECT_EQ(file.Read(bytes, 9), strlen(mode.read));
            EXPECT_STREQ(bytes, mode.read);
            file.Write("new", 3);
            EXPECT_EQ(Error(), mode.error); // of the read or of the write
            EXPECT_EQ(file.GetLength(), strlen(mode.contents));
            std::string contents;
            EXPECT_EQ(std::getline(std::ifstream(path), contents) ? contents : "", mode.contents);
        }
    }
}

TEST(File, ReadsSeeksAndReopens)
{
    Put("abcd");
    VELM_CFile file(path.c_str());
    char bytes[10] = "#";
    EXPECT_TRUE(file.Read(bytes, 9) == 0 && bytes[0] == '#' && file.Seek(0, 0) == -1);
    EXPECT_EQ(file.SeekToEnd(), 0xFFFFFFFF);
    file.Write("x", 1), file.SeekToBegin(), file.Close();
    ASSERT_EQ(file.Open(path.c_str()), 1);
    EXPECT_TRUE(file.Read(bytes, 0) == 0 && bytes[0] == '#');
    EXPECT_EQ(file.Read(bytes, 9), 4u);
    EXPECT_TRUE(file.Read(bytes, 9) == 0 && bytes[0] == 0);
    std::ofstream(path, std::ios::app) << "ef";
    EXPECT_EQ(file.Read(bytes, 9), 2u); // the end is looked for afresh
    std::string seen;
    for (const auto& seek : {std::make_pair(1, 0u), {2, 1}, {-3, 2}, {0, 3}, {-1, 0}, {0, ~0u}, {-6, 2}}) {
        seen += std::to_string(file.Seek(seek.first, seek.second));
        seen += file.Read(bytes, 1) == 1 ? bytes[0] : '-';
    }
    EXPECT_EQ(seen, "0b0e0d-1e-1f-1-0a");
    file.SeekToBegin();
    EXPECT_TRUE(file.Read(bytes, 2) == 2 && bytes[0] == 'a');
    EXPECT_TRUE(file.SeekToEnd() == 0 && file.Read(bytes, 2) == 0);
    file.SetLength(1);
    EXPECT_TRUE(file.GetLength() == 6 && Error() == "none" && file.Open(missing.c_str()) == 0 && !file.m_pStream);
    EXPECT_TRUE(file.GetFileName() == missing.c_str() && file.GetFilePath() == missing.c_str());
    EXPECT_TRUE(file.GetLength() == 0 && file.Open(nullptr) == 0 && file.GetFileName() == "");
}

TEST(File, RecordsAFailedTransferUntilItIsTaken)
{
    VELM_CFile full, directory;
    ASSERT_TRUE(full.Open("/dev/full", 1) == 1 && directory.Open("/") == 1);
    VELM_CArchive(&full, VELM_CArchive::store).WriteString("lost");
    EXPECT_EQ(Error(), "1-1");
    char by = '#';
    EXPECT_TRUE(directory.Read(&by, 1) == 0 && by == 0);
    ASSERT_EQ(full.Open(path.c_str(), 1), 1);
    full.Write("", 1);
    EXPECT_EQ(Error(), "1-1"); // a success changes nothing
    EXPECT_EQ(Error(), "none");
}

TEST(File, TellsStatus)
{
    VELM_CFileStatus status;
    status.m_size = 77, status.m_attribute = 77;
    EXPECT_EQ(VELM_CFile::GetStatus(missing.c_str(), status) + VELM_CFile::GetStatus(nullptr, status), 0);
    EXPECT_TRUE(status.m_size == 77 && status.m_attribute == 77);
    const VELM_CFile file(path.c_str());
    for (const long long nSize : {0LL, 3LL, (1LL << 32) - 1, (1LL << 32) + 5}) {
        Put("");
        ASSERT_EQ(truncate64(path.c_str(), nSize), 0);
        EXPECT_TRUE(file.GetStatus(status) == 1 && status.m_attribute == 0);
        EXPECT_EQ(static_cast<uint32_t>(status.m_size), static_cast<uint32_t>(nSize));
        EXPECT_EQ(file.GetLength(), static_cast<uint32_t>(nSize));
    }
    const struct timespec times[] = {{1000, 0}, {2000, 0}}; // access, modification
    utimensat(AT_FDCWD, path.c_str(), times, 0);
    EXPECT_TRUE(file.GetStatus(status) == 1 && status.m_atime == 1000l && status.m_mtime == 2000l &&
                status.m_ctime > 3000l);
    EXPECT_TRUE(VELM_CFile::GetStatus("/", status) == 1 && status.m_attribute == 0x10);
}
