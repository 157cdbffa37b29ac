// depgraph: the dependency graph of the installed packages, in one archive.
#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>

#include "dot.h"
#include "dump.h"
#include "failure.h"
#include "graph.h"
#include "status.h"
#include "summary.h"

static const char usage[] =
    "usage: depgraph store STATUS ARCHIVE   store the graph of the packages that a status file lists as installed\n"
    "       depgraph show ARCHIVE [COPY]    load a graph and sum it up; store it again as COPY, the very same bytes\n"
    "       depgraph why ARCHIVE PACKAGE    load a graph and print the shortest chain of dependencies to a package\n"
    "       depgraph dot ARCHIVE [PACKAGE]  load a graph and print it, or a package and its neighbours, for Graphviz\n"
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

static bool Store(const char* lpszStatus, const char* lpszArchive)
{
    const Stopwatch stopwatch;
    Graph graph;
    unsigned long long nBytes;
    if (!ReadStatus(lpszStatus, graph) || !graph.Store(lpszArchive, nBytes))
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
    return lpszCopy == nullptr || graph.Store(lpszCopy, nBytes);
}

static bool Why(const char* lpszArchive, const char* lpszPackage)
{
    Graph graph;
    unsigned long long nBytes;
    return graph.Load(lpszArchive, nBytes) && PrintChain(graph, lpszArchive, lpszPackage);
}

// lpszPackage may be NULL.
static bool Dot(const char* lpszArchive, const char* lpszPackage)
{
    Graph graph;
    unsigned long long nBytes;
    return graph.Load(lpszArchive, nBytes) && PrintDot(graph, lpszArchive, lpszPackage);
}

int main(int argc, char** argv)
{
    AfxSetNotices(0);              // standard output is for the program's own data
    std::signal(SIGPIPE, SIG_IGN); // a failed write is reported and does not end the program
    std::signal(SIGXFSZ, SIG_IGN);
    const auto IsCommand = [&](const char* lpszName, int nArguments) {
        return argc == 2 + nArguments && std::strcmp(argv[1], lpszName) == 0;
    };
    bool bGood = false;
    bool bKnown = true;
    // A raise that no function above catches, because memory is exhausted, ends here.
    const int nRaised = pfm_protect([&] {
        if (IsCommand("store", 2))
            bGood = Store(argv[2], argv[3]);
        else if (IsCommand("show", 1) || IsCommand("show", 2))
            bGood = Show(argv[2], argv[3]); // argv[3] is NULL if there is no such argument
        else if (IsCommand("why", 2))
            bGood = Why(argv[2], argv[3]);
        else if (IsCommand("dot", 1) || IsCommand("dot", 2))
            bGood = Dot(argv[2], argv[3]);
        else if (IsCommand("--help", 0))
            bGood = std::fputs(usage, stdout) >= 0;
        else
            bKnown = false;
    });
    if (nRaised != 0)
        bGood = Fail(argv[2], "%s", lpszNoMemory);
    if (!bKnown) {
        std::fputs(usage, stderr);
        return 2;
    }
    if (std::fflush(stdout) != 0 || std::ferror(stdout))
        bGood = Fail("standard output", "%s", std::strerror(errno));
    return bGood ? 0 : 1;
}
