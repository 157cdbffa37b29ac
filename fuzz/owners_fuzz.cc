// Feeds classes that own each other in every way with arbitrary data. Whatever the data, nothing is leaked or deleted
// twice, and what loads can be stored and loaded again.
#include "tests/support/owners.h"

std::vector<std::string> Seeds()
{
    std::vector<std::string> seeds;
    for (unsigned i = 0; i < 20; ++i)
        seeds.push_back(StoredParts(*MakeParts(i, 2 + i * i / 4)));
    return seeds;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize)
{
    LoadParts(std::string(reinterpret_cast<const char*>(pData), nSize), 128);
    return 0;
}
