// The inputs that a fuzzer begins with. Under libFuzzer, the arguments "--seeds DIRECTORY" have the program write them.
// Without it, the program feeds them by itself: whole, cut everywhere, and damaged.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "mcl/tavnomcl.h"

std::vector<std::string> Seeds();
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize);

#ifdef TAVNOMCL_LIBFUZZER
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    if (*argc != 3 || std::string((*argv)[1]) != "--seeds")
        return 0;
    int n = 0;
    for (const std::string& seed : Seeds())
        std::ofstream((*argv)[2] + std::string("/seed") + std::to_string(n++), std::ios::binary) << seed;
    std::exit(0);
}
#else
static void Feed(const std::string& input)
{
    const std::vector<uint8_t> bytes(input.begin(), input.end()); // as long as they are: a read behind them is noticed
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
}

int main()
{
    AfxSetNotices(0);
    std::mt19937 random(1);
    const std::vector<std::string> seeds = Seeds();
    for (const std::string& seed : seeds) {
        for (size_t n = 0; n <= seed.size(); ++n)
            Feed(seed.substr(0, n));
        for (size_t i = 0; seed.size() > 1 && i < 16000 / seeds.size(); ++i) {
            std::string damaged = seed;
            for (unsigned n = random() % 4 + 1; n > 0; --n) // the first byte chooses the reader
                damaged[1 + random() % (seed.size() - 1)] = "\0\1\x7F\x80\xFF"[random() % 5];
            Feed(damaged.substr(0, random() % 4 == 0 ? random() % seed.size() : seed.size()));
        }
    }
}
#endif
