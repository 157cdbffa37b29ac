// tavnobench --list | CASE N [options of Google Benchmark]
#include <cstdio>
#include <cstdlib>
#include <map>
#include <vector>

#include "bench.h"

namespace {

std::vector<std::pair<std::string, bench::Case>> cases;

struct TemporaryFiles : std::vector<std::string> {
    ~TemporaryFiles()
    {
        for (const std::string& path : *this)
            unlink(path.c_str());
    }
} temporaryFiles;

} // namespace

void bench::Add(const std::string& name, Case run)
{
    cases.emplace_back(name, std::move(run));
}

std::string bench::TemporaryFile(const char* lpszName)
{
    static const std::string prefix = "tmp." + std::to_string(getpid()) + "."; // removed by TemporaryFiles
    temporaryFiles.push_back(prefix + lpszName);
    return temporaryFiles.back();
}

int main(int argc, char** argv)
{
    bench::AddGraphs();
    bench::AddArrays();
    bench::AddMaps();
    bench::AddFiles();
    const std::string name = argc > 1 ? argv[1] : "";
    if (name == "--list") {
        for (const auto& each : cases)
            std::puts(each.first.c_str());
        return 0;
    }
    const long n = argc > 2 ? std::atol(argv[2]) : 0;
    for (const auto& each : cases) {
        if (each.first == name && n > 0)
            benchmark::RegisterBenchmark(name.c_str(), [&](benchmark::State& state) {
                each.second(state, n);
            })->UseManualTime();
    }
    argc -= 2;
    argv += 2;
    if (argc < 1) {
        std::fputs("usage: tavnobench --list | CASE N [options of Google Benchmark]\n", stderr);
        return 2;
    }
    benchmark::Initialize(&argc, argv);
    return benchmark::RunSpecifiedBenchmarks() == 1 ? 0 : 1;
}
