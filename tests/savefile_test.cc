// Saving files: whatever fails, the old contents or the new; files in memory.
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
#include <random>
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

// Runs body with each of its calls failing once, by each error. What comes of it is `wanted`: the calls in their order,
// each with what body tells when it fails, and a semicolon. Where an error is harmless, body tells `good` each time.
using Fault = std::function<void(const std::function<void()>& act)>;
static void FailEachCall(const std::string& wanted, const std::vector<int>& harmless, const std::string& good,
                         const std::function<std::string(int nError, const Fault& fault)>& body)
{
    for (const int nError : {EIO, ENOSPC, EXDEV, EINTR, static_cast<int>(comesUpShort)}) {
        const bool bHarmless = std::find(harmless.begin(), harmless.end(), nError) != harmless.end();
        std::string strSeen, strGood;
        for (int nCall = 1; nCall <= std::count(wanted.begin(), wanted.end(), ';'); ++nCall) {
            std::vector<std::string> calls;
            const std::string strTold = body(nError, [&](const auto& act) { calls = WithFault(nCall, nError, act); });
            strSeen += calls.at(static_cast<size_t>(nCall) - 1) + " " + strTold + ";";
            strGood += calls.at(static_cast<size_t>(nCall) - 1) + " " + good + ";";
        }
        EXPECT_EQ(strSeen, bHarmless ? strGood : wanted) << "by error " << nError;
    }
}

// What the file holds when a call fails; "told" when Commit fails though the new file is there; a failed change of mode
// leaves a new file that only its owner reads.
TEST_F(SaveFile, EveryCallFailsOnce)
{
    const char* const wanted[] = {
        "stat64 old;openat old;readlinkat old;faccessat old;openat new;openat old;flock new;fstat64 new;"
        "write error;write error;write error;fchown new;fchmod private;fsync old;fcntl old;close old;renameat old;"
        "fsync told;close new;close new;",
        "stat64 old;openat old;readlinkat old;faccessat old;openat new;flock new;access new;"
        "write error;write error;write error;fchown new;fchmod private;fsync old;fcntl old;close old;linkat old;"
        "renameat old;fsync told;close new;close new;"};
    for (const bool bUnnamed : {true, false}) {
        bNoUnnamedFiles = !bUnnamed;
        ASSERT_EQ(WithFault(0, 0, [&] { Save(path); }).size(), 20u);
        FailEachCall(wanted[bUnnamed], {EINTR, comesUpShort}, "new", [&](int nError, const auto& fault) {
            VELM_CSaveFile file;
            int nSaved = -1;
            Renew();
            fault([&] { nSaved = Save(file, path); });
            EXPECT_EQ(file.GetError(), nSaved ? 0 : nError);
            const bool bError = TakeError();
            const std::string strFound = Contents();
            return strFound == "file 640 old"   ? bError   ? "error"
                                                  : nSaved ? "lost"
                                                           : "old"
                   : strFound == "file 640 new" ? nSaved ? "new" : "told"
                   : strFound == "file 600 new" ? "private"
                                                : strFound;
        });
    }
}

// Another group does not get the rights of the old one, and nobody those of a program that runs as its owner.
TEST_F(SaveFile, KeepsAccessAsFarAsItMay)
{
    const char* const wanted[] = {"file 4751 new", "file 751 new", "file 711 new"};
    for (int nFailures = 0; nFailures < 3; ++nFailures) {
        Renew();
        chmod(path.c_str(), 04751);
        WithFault(
            11, EPERM, [&] { EXPECT_EQ(Save(path), 1); }, nFailures);
        EXPECT_EQ(Contents(), wanted[nFailures]);
    }
    // Nor does it take more than a folder that can be searched.
    WithFault(2, EACCES, [&] { EXPECT_EQ(Save(path), 1); });
    WithFault(
        2, EACCES, [&] { EXPECT_EQ(Save(path), 0); }, 2);
}

// What stands where a file under way would: of a process that died, or something else, which stays.
TEST_F(SaveFile, RemovesWhatIsLeftAndEveryCallIsInterruptedOnce)
{
    for (const bool bUnnamed : {true, false}) {
        Renew();
        bNoUnnamedFiles = !bUnnamed;
        fs::create_symlink("file", folder / ".file.save0");
        ASSERT_EQ(mkfifo((folder / ".file.save1").c_str(), 0600), 0);
        std::ofstream(folder / ".file.save2") << "left";
        WithFault(eachOnce, EINTR, [&] { EXPECT_EQ(Save(path), 1); });
        EXPECT_EQ(Contents(), ".file.save0 -> file; .file.save1; file 640 new");
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

TEST_F(SaveFile, FollowsLinksAndRefusesWhatItCannotReplace)
{
    fs::create_directory(folder / "sub");
    fs::create_symlink("../dangling", folder / "sub/a"), fs::create_symlink("sub/a", folder / "b");
    fs::create_symlink("file", folder / "c"), fs::create_symlink("d", folder / "d");
    EXPECT_EQ(Row() << Save(folder / "b") << Save(folder / "c"), "1 1");
    EXPECT_EQ(Contents(), "b -> sub/a; c -> file; d -> d; dangling 644 new; file 640 new; sub");
    const std::tuple<std::string, int, unsigned> rows[] = {{"", ENOENT, 0},
                                                           {folder, EISDIR, 0},
                                                           {folder / "d", ELOOP, 0},
                                                           {path + "/x", ENOTDIR, 0},
                                                           {folder / "no/x", ENOENT, 0},
                                                           {folder / "new/", ENOENT, 0},
                                                           {std::string(PATH_MAX, 'x'), ENAMETOOLONG, 0},
                                                           {folder / std::string(256, 'x'), ENAMETOOLONG, 0},
                                                           {path, EINVAL, VELM_CFile::modeAppend}};
    for (const auto& [strPath, nError, nFlags] : rows) {
        VELM_CSaveFile file;
        VELM_CFileException e(7, 8, "");
        EXPECT_EQ(Row() << file.Open(strPath.c_str(), nFlags, &e) << file.Commit() << file.GetError() << e.m_strMessage,
                  "0 0 " + std::to_string(nError) + " Can't open file");
        EXPECT_EQ(file.GetErrorText(), (strPath + ": " + std::strerror(nError)).c_str());
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
    // A pipe knows no flushing, but a failing device does.
    FailEachCall("stat64 0;open 0;write 0;write 0;write 0;fsync 0;fcntl 0;close 0;close 1;", {EINTR, comesUpShort}, "1",
                 [&](int, const auto& fault) {
                     int nSaved = -1;
                     fault([&] { nSaved = Save(pipe); });
                     char bytes[400];
                     const ssize_t n = read(fd, bytes, sizeof bytes);
                     EXPECT_TRUE(!nSaved || n == 300) << n;
                     TakeError();
                     return std::to_string(nSaved);
                 });
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
    const std::string wanted =
        "fopen64 0 0 0, 1 0 0 0 ;write 1 1 0, 1 0 0 0 ;stat64 1 0 0, 1 0 4 0 3456;fclose " + good +
        ";fopen64 1 0 8, 0 -1 0 0 ;fseek 1 0 8, 1 -1 4 0 1234;fread 1 0 8, 1 0 0 1 ;fclose " + good + ";";
    FailEachCall(wanted, {comesUpShort}, good, [&](int nError, const auto& fault) {
        std::ofstream{path};
        std::ostringstream seen;
        fault([&] {
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
        // One write that comes up short is what the file has.
        return nError == comesUpShort && seen.str() == "1 0 4, 1 0 2 0 34" ? good : seen.str();
    });
    unlink(path.c_str());
}

TEST(MemoryFile, ReadsWritesAndSeeksAsAString)
{
    std::mt19937 engine(1);
    const auto random = [&](size_t n) { return static_cast<unsigned>(engine()) % static_cast<unsigned>(n); };
    std::string model;
    VELM_CMemoryFile file;
    EXPECT_EQ(file.Detach(), nullptr);
    for (size_t i = 0, nAt = 0; i < 6000; ++i) {
        const unsigned n = random(i % 1000 == 0 ? 3000 : 8), nFrom = random(4);
        std::string piece(n, static_cast<char>('a' + i % 26));
        const long lOff = i % 99 == 0 ? LONG_MIN : i % 98 == 0 ? LONG_MAX : static_cast<long>(random(30)) - 15;
        const size_t nTo = (nFrom == 0 ? 0 : nFrom == 1 ? nAt : model.size()) + static_cast<size_t>(lOff);
        const bool bSeeks = nFrom < 3 && nTo <= model.size();
        if (i % 3 == 0) {
            ASSERT_EQ(file.Seek(lOff, nFrom), bSeeks ? 0 : -1) << lOff << " from " << nFrom;
            nAt = bSeeks ? nTo : nAt;
        } else if (i % 3 == 1) {
            const std::string wanted = model.substr(nAt, n);
            ASSERT_EQ(file.Read(&piece[0], n), wanted.size());
            ASSERT_EQ(piece.substr(0, wanted.size()), wanted);
            nAt += wanted.size();
        } else {
            file.Write(piece.data(), n);
            model.replace(nAt, n, piece), nAt += n;
        }
        ASSERT_EQ(Row() << file.GetSize() << file.GetLength(), (Row() << model.size() << model.size()).Text());
        ASSERT_TRUE(std::string(static_cast<const char*>(file.GetBytes()), model.size()) == model) << i;
    }
    void* pBytes = file.Detach();
    EXPECT_EQ(std::memcmp(pBytes, model.data(), model.size()), 0);
    EXPECT_EQ(file.GetSize() + file.Read(&model[0], 1), 0u);
    std::free(pBytes);
    VELM_CMemoryFile given("abc", 3); // which stays the caller's
    given.Write("x", 1);
    EXPECT_EQ(Row() << TakeError() << !given.Detach() << given.GetSize(), "1 1 3");
}
