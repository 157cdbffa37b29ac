// What the benchmarks share: registration, the clock, and files. One process measures one case at one size.
#ifndef BENCH_BENCH_H
#define BENCH_BENCH_H

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>
#include <valgrind/callgrind.h>

#include <cstdint>
#include <functional>
#include <string>

namespace bench {

typedef std::function<void(benchmark::State&, long n)> Case;

// Registers WORKLOAD/OPERATION/CANDIDATE. The order of registration is the order in which candidates take turns.
void Add(const std::string& name, Case run);

void AddGraphs();
void AddArrays();
void AddMaps();
void AddFiles();

// A path in the directory of the run, not shared with another process.
std::string TemporaryFile(const char* lpszName);

inline double dChildSeconds = 0; // CPU time of the children that have ended

// CPU time of this process and of its children that have ended. It contains neither time spent waiting for a disk nor
// the time of other processes. One call takes half a microsecond.
inline double CpuSeconds()
{
    timespec own;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &own);
    return dChildSeconds + static_cast<double>(own.tv_sec) + 1e-9 * static_cast<double>(own.tv_nsec);
}

// Measures one iteration of a benchmark, and is called once in each. A body that is too short for the clock is called
// nTimes; readers of the report divide by that number, which is in it. Callgrind collects the instructions of the body
// only.
template <class BODY> void Timed(benchmark::State& state, BODY body, long nTimes = 1)
{
    const double dStart = CpuSeconds();
    CALLGRIND_TOGGLE_COLLECT;
    for (long i = 0; i < nTimes; ++i)
        body();
    CALLGRIND_TOGGLE_COLLECT;
    state.SetIterationTime(CpuSeconds() - dStart);
    state.counters["times"] = static_cast<double>(nTimes);
    rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    state.counters["peak_kb"] = static_cast<double>(usage.ru_maxrss);
}

inline void Check(benchmark::State& state, bool bGood)
{
    if (!bGood)
        state.SkipWithError("wrong result");
}

// Runs the body in a child process, so that its memory does not count for this one. Returns what the body returned;
// false, too, if the child died.
template <class BODY> bool InChild(BODY body)
{
    const pid_t child = fork();
    if (child == 0)
        _exit(body() ? 0 : 1);
    int status = 0;
    rusage usage;
    if (child < 0 || wait4(child, &status, 0, &usage) != child)
        return false;
    for (const timeval& time : {usage.ru_utime, usage.ru_stime})
        dChildSeconds += static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_usec);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

inline uint32_t Scatter(uint32_t n)
{
    n = (n ^ (n >> 16)) * 0x45D9F3Bu;
    n = (n ^ (n >> 16)) * 0x45D9F3Bu;
    return n ^ (n >> 16);
}

} // namespace bench

#endif
