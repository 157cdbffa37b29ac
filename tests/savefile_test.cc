// Saving files: whatever fails, the old contents or the new; files in memory, progress.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "tests/support/faults.h"
#include "tests/support/watch.h"

namespace fs = std::filesystem;

static bool TakeError()
{
    const VELM_CFileException* p = VELM_CFile::getException();
    delete p;
    return p != nullptr;
}

// A folder with one file, "file", that holds "old".
class SaveFile : public testing::Test {
protected:
    const fs::path folder = testing::TempDir() + "tavnomcl_savefile_test" + std::to_string(getpid());
    const std::string path = folder / "file";

    void SetUp() override { Renew(); }
    void TearDown() override
    {
        bNoUnnamedFiles = false;
        fs::remove_all(folder);
    }
    void Renew()
    {
        fs::remove_all(folder);
        fs::create_directory(folder);
        std::ofstream(path) << "old";
        chmod(path.c_str(), 0640);
    }
    // What is there, as in "file 640 old; link -> file"; what stands in for long contents is "new".
    std::string Contents()
    {
        std::ostringstream seen;
        std::vector<fs::directory_entry> entries{fs::directory_iterator(folder), fs::directory_iterator()};
        std::sort(entries.begin(), entries.end());
        for (const auto& entry : entries) {
            seen << (seen.tellp() > 0 ? "; " : "") << entry.path().filename().string();
            if (entry.is_symlink()) {
                seen << " -> " << fs::read_symlink(entry).string();
            } else if (entry.is_regular_file()) {
                std::ostringstream text;
                text << std::ifstream(entry.path()).rdbuf();
                seen << " " << std::oct << static_cast<int>(entry.status().permissions()) << " "
                     << (text.str() == std::string(300, 'n') ? "new" : text.str());
            }
        }
        return seen.str();
    }
    // Saves the new contents with two writes. Returns whether that went well.
    static int Save(VELM_CSaveFile& file, const std::string& to)
    {
        if (!file.Open(to.c_str()))
            return 0;
        VELM_CArchive ar(&file, VELM_CArchive::store, 128);
        ar.Write(std::string(300, 'n').c_str(), 300);
        ar.Close();
        return file.Commit();
    }
    static int Save(const std::string& to)
    {
        VELM_CSaveFile file;
        return Save(file, to);
    }
};

// "old" or "new" for what the file holds when the call fails; "told" when Commit fails though the new file is there;
// a failed change of mode leaves a new file that only its owner reads.
TEST_F(SaveFile, EveryCallFailsOnce)
{
    const struct {
        const char* lpszName;
        bool bUnnamed;
        std::vector<std::string> outcomes; // the calls in their order
    } rows[] = {
        {"without a name", true, {"stat64 old", "openat old",   "readlinkat old", "faccessat old", "openat new",
                                  "flock new",  "access new",   "write old",      "write old",     "write old",
                                  "fchown new", "fchmod new",   "fsync old",      "fcntl old",     "close old",
                                  "linkat old", "renameat old", "fsync told",     "close new",     "close new"}},
        {"with a name", false, {"stat64 old", "openat old",   "readlinkat old", "faccessat old", "openat new",
                                "openat old", "flock new",    "fstat64 new",    "write old",     "write old",
                                "write old",  "fchown new",   "fchmod new",     "fsync old",     "fcntl old",
                                "close old",  "renameat old", "fsync told",     "close new",     "close new"}}};
    for (const auto& row : rows) {
        bNoUnnamedFiles = !row.bUnnamed;
        ASSERT_EQ(WithFault(0, 0, [&] { Save(path); }).size(), row.outcomes.size());
        for (const int nError : {EIO, ENOSPC, EXDEV, EINTR, static_cast<int>(comesUpShort)}) {
            const bool bHarmless = nError == EINTR || nError == comesUpShort;
            for (size_t i = 0; i < row.outcomes.size(); ++i) {
                Renew();
                VELM_CSaveFile file;
                int nSaved = -1;
                const auto calls = WithFault(static_cast<int>(i + 1), nError, [&] { nSaved = Save(file, path); });
                const std::string strWanted = row.outcomes[i], strFound = Contents();
                const bool bNew = strFound.rfind(" new") != std::string::npos;
                EXPECT_EQ(calls[i] + (nSaved ? " new"
                                      : bNew ? " told"
                                             : " old"),
                          bHarmless ? calls[i] + " new" : strWanted)
                    << row.lpszName << ", call " << i + 1 << ", error " << nError;
                const bool bPrivate = bNew && calls[i] == "fchmod" && !bHarmless;
                EXPECT_EQ(strFound, bPrivate ? "file 600 new"
                                    : bNew   ? "file 640 new"
                                             : "file 640 old")
                    << row.lpszName << ", " << calls[i] << " " << i + 1 << ", error " << nError;
                EXPECT_EQ(file.GetError(), nSaved ? 0 : nError) << calls[i];
                EXPECT_EQ(TakeError(), !nSaved && calls[i] == "write");
            }
        }
    }
}

TEST_F(SaveFile, EveryCallIsInterruptedOnce)
{
    for (const bool bUnnamed : {true, false}) {
        Renew();
        bNoUnnamedFiles = !bUnnamed;
        std::ofstream(folder / ".file.save0") << "left"; // by a process that died
        WithFault(eachOnce, EINTR, [&] { EXPECT_EQ(Save(path), 1); });
        EXPECT_EQ(Contents(), "file 640 new");
    }
}

TEST_F(SaveFile, TheOldFileStaysWithoutCommit)
{
    for (const bool bUnnamed : {true, false}) {
        bNoUnnamedFiles = !bUnnamed;
        {
            VELM_CSaveFile file, other;
            EXPECT_EQ(file.Commit(), 0);
            EXPECT_EQ(file.GetError(), EBADF);
            ASSERT_EQ(file.Open(path.c_str()), 1);
            file.Write("lost", 4);
            EXPECT_EQ(file.GetLength(), 4u);
            EXPECT_EQ(Save(other, folder / "other"), 1); // meanwhile
            EXPECT_EQ(Save(other, path), 1);
            EXPECT_EQ(file.Open(path.c_str()), 1); // drops
            EXPECT_EQ(file.GetLength(), 0u);
            file.Write("lost", 4), file.Close();
            EXPECT_EQ(file.GetLength(), 300u);
            EXPECT_EQ(file.Open(path.c_str()), 1); // and the destructor
        }
        EXPECT_EQ(Contents(), "file 640 new; other 644 new");
    }
    VELM_CSaveFile late;
    late.Write("x", 1);
    EXPECT_TRUE(TakeError());
}

TEST_F(SaveFile, FollowsLinks)
{
    fs::create_directory(folder / "sub");
    fs::create_symlink("../dangling", folder / "sub/a");
    fs::create_symlink("sub/a", folder / "b");
    fs::create_symlink("file", folder / "c");
    fs::create_symlink("d", folder / "d");
    EXPECT_EQ(Save(folder / "b"), 1);
    EXPECT_EQ(Save(folder / "c"), 1);
    EXPECT_EQ(Contents(), "b -> sub/a; c -> file; d -> d; dangling 644 new; file 640 new; sub");
    VELM_CSaveFile file;
    VELM_CFileException e(7, 8, "");
    EXPECT_EQ(file.Open((folder / "d").c_str(), 0, &e), 0);
    EXPECT_STREQ(e.m_strMessage.m_data, "Can't open file");
    EXPECT_EQ(file.GetErrorText(), ((folder / "d").string() + ": Too many levels of symbolic links").c_str());
}

TEST_F(SaveFile, RefusesWhatItCannotReplace)
{
    const struct {
        std::string path;
        unsigned nFlags;
        int nError;
    } rows[] = {{"", 0, ENOENT},
                {folder, 0, EISDIR},
                {path + "/x", 0, ENOTDIR},
                {folder / "no/x", 0, ENOENT},
                {folder / "new/", 0, ENOENT},
                {std::string(PATH_MAX, 'x'), 0, ENAMETOOLONG},
                {folder / std::string(256, 'x'), 0, ENAMETOOLONG},
                {path, VELM_CFile::modeAppend, EINVAL}};
    for (const auto& row : rows) {
        VELM_CSaveFile file;
        EXPECT_EQ(file.Open(row.path.c_str(), row.nFlags), 0) << row.path;
        EXPECT_EQ(file.GetError(), row.nError) << row.path;
        EXPECT_EQ(file.Commit(), 0) << row.path;
        EXPECT_EQ(file.GetError(), row.nError) << row.path; // the first one
    }
    EXPECT_EQ(Save(folder / std::string(255, 'x')), 1);
}

TEST_F(SaveFile, WritesDevicesAndPipesDirectly)
{
    VELM_CSaveFile full;
    EXPECT_EQ(Save(full, "/dev/full"), 0);
    EXPECT_EQ(full.GetErrorText(), "/dev/full: No space left on device");
    EXPECT_TRUE(TakeError());
    EXPECT_EQ(Save("/dev/null"), 1);
    const std::string pipe = folder / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const int fd = open(pipe.c_str(), O_RDWR | O_NONBLOCK);
    // The calls on a pipe, and what Commit says when one fails; a pipe knows no flushing, but a failing device does.
    const std::vector<std::string> outcomes = {"stat64 0", "open 0",  "write 0", "write 0", "write 0",
                                               "fsync 0",  "fcntl 0", "close 0", "close 1"};
    for (const int nError : {EIO, ENOSPC, EINTR, static_cast<int>(comesUpShort)}) {
        for (size_t i = 0; i < outcomes.size(); ++i) {
            int nSaved = -1;
            const auto calls = WithFault(static_cast<int>(i + 1), nError, [&] { nSaved = Save(pipe); });
            EXPECT_EQ(calls.at(i) + (nSaved ? " 1" : " 0"),
                      nError == EINTR || nError == comesUpShort ? calls[i] + " 1" : outcomes[i])
                << nError;
            char bytes[400];
            const ssize_t n = read(fd, bytes, sizeof bytes);
            EXPECT_TRUE(!nSaved || n == 300) << n;
            TakeError();
        }
    }
    close(fd);
}

// A process killed at each of its calls leaves the old file or the new one, and nothing that stays.
TEST_F(SaveFile, SurvivesKill)
{
    for (const bool bUnnamed : {true, false}) {
        bNoUnnamedFiles = !bUnnamed;
        for (int i = 1; i <= 20; ++i) {
            Renew();
            EXPECT_EXIT(WithFault(i, killsProcess, [&] { Save(path); }), testing::KilledBySignal(SIGKILL), "") << i;
            const std::string strFound = Contents();
            EXPECT_EQ(strFound.find("save") != std::string::npos, bUnnamed ? i == 17 : i >= 7 && i <= 17) << i;
            EXPECT_NE(strFound.find(i <= 17 ? "file 640 old" : "file 640 new"), std::string::npos) << i;
            EXPECT_EQ(Save(path), 1);
            EXPECT_EQ(Contents(), "file 640 new") << i;
        }
    }
}

// Saves and loads 8 bytes: what Open, getException, GetLength and then Open, Seek, Read, getException say, and the
// bytes.
TEST(File, EveryCallFailsOnce)
{
    const std::string path = testing::TempDir() + "tavnomcl_fault_test" + std::to_string(getpid());
    const std::string good = "1 0 8, 1 0 4 0 3456";
    const struct {
        const char* lpszCall;
        std::string error, shortened;
    } rows[] = {{"fopen64", "0 0 0, 1 0 0 0 ", good},    {"write", "1 1 0, 1 0 0 0 ", "1 0 4, 1 0 2 0 34"},
                {"stat64", "1 0 0, 1 0 4 0 3456", good}, {"fclose", good, good},
                {"fopen64", "1 0 8, 0 -1 0 0 ", good},   {"fseek", "1 0 8, 1 -1 4 0 1234", good},
                {"fread", "1 0 8, 1 0 0 1 ", good},      {"fclose", good, good}};
    int nCall = 0;
    for (const auto& row : rows) {
        ++nCall;
        for (const int nError : {EIO, ENOSPC, EINTR, static_cast<int>(comesUpShort)}) {
            std::ofstream{path};
            std::ostringstream seen;
            const auto calls = WithFault(nCall, nError, [&] {
                VELM_CFile file;
                char bytes[9] = "";
                seen << file.Open(path.c_str(), VELM_CFile::modeWrite) << " ";
                file.Write("12345678", 8);
                seen << TakeError() << " " << file.GetLength() << ", ";
                file.Close();
                seen << file.Open(path.c_str()) << " " << file.Seek(2, VELM_CFile::seekBegin) << " ";
                const unsigned nRead = file.Read(bytes, 4);
                seen << nRead << " " << TakeError() << " " << bytes;
            });
            EXPECT_EQ(calls.at(static_cast<size_t>(nCall) - 1), row.lpszCall) << nCall;
            EXPECT_EQ(seen.str(), nError == comesUpShort ? row.shortened : row.error) << row.lpszCall << nError;
        }
    }
    unlink(path.c_str());
}

TEST(MemoryFile, ReadsWritesAndSeeks)
{
    const char bytes[] = "abcdef";
    VELM_CMemoryFile reader(bytes, 6), writer;
    char got[10] = "";
    EXPECT_EQ(reader.Read(got, 4), 4u);
    std::ostringstream seen;
    const struct {
        long lOff;
        unsigned nFrom;
    } seeks[] = {{1, 0}, {2, 1}, {-3, 2}, {0, 3}, {-1, 0}, {7, 0}, {LONG_MIN, 1}, {LONG_MAX, 2}, {-6, 2}, {6, 0}};
    for (const auto& seek : seeks) {
        const long nResult = reader.Seek(seek.lOff, seek.nFrom);
        seen << nResult << (reader.Read(got, 1) == 1 ? got[0] : '-');
    }
    EXPECT_EQ(seen.str(), "0b0e0d-1e-1f-1--1--1-0a0-");
    reader.Write("x", 1);
    EXPECT_TRUE(TakeError());
    EXPECT_EQ(reader.Detach(), nullptr);
    EXPECT_EQ(reader.GetBytes(), bytes);
    EXPECT_EQ(reader.Open("/dev/null"), 0);

    EXPECT_EQ(writer.Detach(), nullptr);
    std::string wanted;
    for (int i = 0; i < 1000; ++i) {
        const std::string piece(static_cast<size_t>(i % 7), static_cast<char>('a' + i % 26));
        writer.Write(piece.c_str(), static_cast<unsigned>(piece.size()));
        wanted += piece;
    }
    writer.Seek(-2, VELM_CFile::seekEnd), writer.Write("UVW", 3); // over the end
    writer.Seek(1, VELM_CFile::seekBegin), writer.Write("X", 1);  // inside
    wanted.replace(wanted.size() - 2, 2, "UVW").replace(1, 1, "X");
    EXPECT_EQ(std::string(static_cast<const char*>(writer.GetBytes()), writer.GetSize()), wanted);
    EXPECT_EQ(writer.GetLength(), wanted.size());
    EXPECT_EQ(writer.Read(got, 3), 3u);
    EXPECT_EQ(std::string(got, 3), wanted.substr(2, 3));
    void* pBytes = writer.Detach();
    EXPECT_EQ(std::memcmp(pBytes, wanted.data(), wanted.size()), 0);
    EXPECT_EQ(writer.GetSize() + writer.Read(got, 1), 0u);
    std::free(pBytes);
}

TEST(ProgressFile, ReportsEachBuffer)
{
    std::ostringstream seen;
    VELM_CMemoryFile memory;
    VELM_CProgressFile file(
        &memory, 300,
        [](void* pSeen, unsigned long long nDone, unsigned long long nTotal) {
            *static_cast<std::ostringstream*>(pSeen) << nDone << "/" << nTotal << " ";
        },
        &seen);
    {
        VELM_CArchive ar(&file, VELM_CArchive::store, 128);
        for (int i = 0; i < 300; ++i)
            ar << static_cast<unsigned char>(i);
    }
    seen << file.Seek(0, VELM_CFile::seekBegin) << " " << file.GetLength() << " ";
    {
        VELM_CArchive ar(&file, VELM_CArchive::load, 200);
        unsigned char byte = 0;
        for (int i = 0; i < 300; ++i)
            ar >> byte;
        seen << ar.Read(&byte, 1) << " ";
    }
    EXPECT_EQ(seen.str(), "128/300 256/300 300/300 0 300 500/300 600/300 0 ");
    EXPECT_EQ(file.GetDone(), 600u);
}
