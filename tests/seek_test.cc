#include <gtest/gtest.h>
#include <mcl/tavnomcl.h>

#include <cstdio>
#include <random>
#include <string>

// Wherever a reader goes, it finds the byte that stands there, and knows where it is.
TEST(Seek, AReaderGoesWhereItLikes)
{
    std::string bytes(5000, '\0');
    for (size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<char>(i * 37 >> 3);
    VELM_CMemoryFile memory(bytes.data(), static_cast<unsigned long>(bytes.size()));
    VELM_CArchive ar(&memory, VELM_CArchive::load, 128);
    std::mt19937 random(1);
    size_t nAt = 0;
    char came[200];
    for (int i = 0; i < 5000; ++i) {
        const size_t nTo = random() % 4 == 0 ? random() % 6000 : nAt + random() % 40;
        ASSERT_EQ(nTo <= bytes.size(), ar.SeekTo(nTo));
        nAt = nTo <= bytes.size() ? nTo : nAt;
        ASSERT_EQ(nAt, ar.GetOffset());
        const unsigned long nWanted = random() % sizeof came, nCame = ar.LoadBlock(came, nWanted);
        ASSERT_EQ(bytes.substr(nAt, nWanted), std::string(came, nCame));
        nAt += nCame;
    }
    VELM_CMemoryFile target;
    VELM_CArchive storing(&target, VELM_CArchive::store);
    EXPECT_EQ(0, storing.SeekTo(0));
}
