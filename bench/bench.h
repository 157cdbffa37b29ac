// What the benchmarks share: registration, the clock, and files. One process measures one case at one size.
#ifndef BENCH_BENCH_H
#define BENCH_BENCH_H

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <valgrind/callgrind.h>

#include <chrono>
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

// Measures one iteration: call it once for each. Its instructions are those that callgrind collects.
template <class BODY> void Timed(benchmark::State& state, BODY body)
{
    const auto start = std::chrono::steady_clock::now();
    CALLGRIND_TOGGLE_COLLECT;
    body();
    CALLGRIND_TOGGLE_COLLECT;
    state.SetIterationTime(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    state.counters["peak_kb"] = static_cast<double>(usage.ru_maxrss);
}

inline void Check(benchmark::State& state, bool bGood)
{
    if (!bGood)
        state.SkipWithError("wrong result");
}

// Runs the body in a child process, so that its memory is not counted here. Returns what the body returned.
template <class BODY> bool InChild(BODY body)
{
    const pid_t child = fork();
    if (child == 0)
        _exit(body() ? 0 : 1);
    int status = 0;
    return child > 0 && waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

inline uint32_t Scatter(uint32_t n)
{
    n = (n ^ (n >> 16)) * 0x45D9F3Bu;
    n = (n ^ (n >> 16)) * 0x45D9F3Bu;
    return n ^ (n >> 16);
}

} // namespace bench

#endif
