// Feeds classes that own each other in every way with arbitrary data. Whatever the data, nothing is leaked or deleted
// twice, and what loads can be stored and loaded again. With an argument "--seeds DIRECTORY" the program writes inputs.
#include <cstdlib>
#include <fstream>

#include "tests/support/owners.h"

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    if (*argc == 3 && std::string((*argv)[1]) == "--seeds") {
        for (unsigned i = 0; i < 20; ++i)
            std::ofstream((*argv)[2] + std::string("/parts") + std::to_string(i), std::ios::binary)
                << StoredParts(*MakeParts(i, 2 + i * i / 4));
        std::exit(0);
    }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize)
{
    LoadParts(std::string(reinterpret_cast<const char*>(pData), nSize), 128);
    return 0;
}
