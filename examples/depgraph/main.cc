// depgraph: the dependency graph of the installed packages, in one archive.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "dump.h"
#include "failure.h"
#include "graph.h"
#include "status.h"
#include "summary.h"

static const char usage[] =
    "usage: depgraph store STATUS ARCHIVE   store the graph of the packages that a status file lists as installed\n"
    "       depgraph show ARCHIVE [COPY]    load a graph and sum it up; store it again as COPY, the very same bytes\n"
    "       depgraph why ARCHIVE PACKAGE    load a graph and print the shortest chain of dependencies to a package\n"
    "       depgraph --help                 print this\n";

class Stopwatch {
public:
    double Seconds() const { return std::chrono::duration<double>(Clock::now() - m_start).count(); }

private:
    typedef std::chrono::steady_clock Clock;
    Clock::time_point m_start = Clock::now();
};

// Whether something is there that is no regular file, such as a device or a pipe.
static bool IsDevice(const char* lpszFile)
{
    struct stat64 status;
    return stat64(lpszFile, &status) == 0 && !S_ISREG(status.st_mode);
}

// Writes the file, and checks that every byte has arrived in it. Returns NULL, or what went wrong.
static const char* WriteFile(const Graph& graph, const char* lpszFile, bool bDevice, unsigned long long& rBytes)
{
    CountingFile file;
    if (!file.Open(lpszFile, 1))
        return std::strerror(errno);
    const char* lpszError = graph.Store(file);
    rBytes = file.m_nBytes;
    if (lpszError == nullptr && !bDevice && file.GetLength() != static_cast<uint32_t>(rBytes))
        lpszError = "not all data could be written";
    return lpszError;
}

// Writes the archive under another name, and gives it its own only when it is complete: so a failure neither leaves
// half an archive nor destroys an older one. A device or a pipe cannot be replaced, and is written directly.
static bool WriteArchive(const Graph& graph, const char* lpszArchive, unsigned long long& rBytes)
{
    const bool bDevice = IsDevice(lpszArchive);
    if (bDevice) {
        const char* lpszError = WriteFile(graph, lpszArchive, bDevice, rBytes);
        return lpszError == nullptr || Fail(lpszArchive, "%s", lpszError);
    }
    char* lpszReal = realpath(lpszArchive, nullptr); // links stay, and point to the new archive
    const VELM_CString strArchive(lpszReal != nullptr ? lpszReal : lpszArchive);
    std::free(lpszReal);
    char suffix[32];
    std::snprintf(suffix, sizeof suffix, ".%ld.tmp", static_cast<long>(getpid()));
    VELM_CString strTemporary(strArchive);
    strTemporary += suffix;

    const int fd = open(strTemporary.m_data, O_WRONLY | O_CREAT | O_EXCL, 0666);
    if (fd == -1)
        return Fail(lpszArchive, "%s", std::strerror(errno));
    close(fd);
    const char* lpszError = WriteFile(graph, strTemporary.m_data, bDevice, rBytes);
    if (lpszError == nullptr && std::rename(strTemporary.m_data, strArchive.m_data) != 0)
        lpszError = std::strerror(errno);
    if (lpszError == nullptr)
        return true;
    unlink(strTemporary.m_data);
    return Fail(lpszArchive, "%s", lpszError);
}

static bool Store(const char* lpszStatus, const char* lpszArchive)
{
    const Stopwatch stopwatch;
    Graph graph;
    unsigned long long nBytes;
    if (!ReadStatus(lpszStatus, graph) || !WriteArchive(graph, lpszArchive, nBytes))
        return false;
    PrintSummary(graph, nBytes, stopwatch.Seconds());
    if (!IsDevice(lpszArchive))
        PrintDump(lpszArchive);
    return true;
}

// lpszCopy may be NULL.
static bool Show(const char* lpszArchive, const char* lpszCopy)
{
    const Stopwatch stopwatch;
    Graph graph;
    unsigned long long nBytes;
    if (!graph.Load(lpszArchive, nBytes))
        return false;
    PrintSummary(graph, nBytes, stopwatch.Seconds());
    return lpszCopy == nullptr || WriteArchive(graph, lpszCopy, nBytes);
}

static bool Why(const char* lpszArchive, const char* lpszPackage)
{
    Graph graph;
    unsigned long long nBytes;
    return graph.Load(lpszArchive, nBytes) && PrintChain(graph, lpszArchive, lpszPackage);
}

int main(int argc, char** argv)
{
    std::signal(SIGPIPE, SIG_IGN); // a failed write is reported, and does not end the program
    std::signal(SIGXFSZ, SIG_IGN);
    const auto IsCommand = [&](const char* lpszName, int nArguments) {
        return argc == 2 + nArguments && std::strcmp(argv[1], lpszName) == 0;
    };
    bool bGood;
    if (IsCommand("store", 2)) {
        bGood = Store(argv[2], argv[3]);
    } else if (IsCommand("show", 1) || IsCommand("show", 2)) {
        bGood = Show(argv[2], argv[3]); // NULL behind the last argument
    } else if (IsCommand("why", 2)) {
        bGood = Why(argv[2], argv[3]);
    } else if (IsCommand("--help", 0)) {
        bGood = std::fputs(usage, stdout) >= 0;
    } else {
        std::fputs(usage, stderr);
        return 2;
    }
    if (std::fflush(stdout) != 0 || std::ferror(stdout))
        bGood = Fail("standard output", "%s", std::strerror(errno));
    return bGood ? 0 : 1;
}
