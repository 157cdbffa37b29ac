// Prints, for each value, its name and its bytes.
#include "tests/support/values.h"

#include <cstdio>

int main()
{
    AfxSetNotices(0);
    VisitValues([](const char* lpszName, const auto& value) {
        VELM_CMemoryFile file;
        VELM_CArchive ar(&file, VELM_CArchive::store);
        ar << value;
        ar.Close();
        std::printf("%s:", lpszName);
        for (unsigned long i = 0; i < file.GetSize(); ++i)
            std::printf(" %02X", static_cast<const unsigned char*>(file.GetBytes())[i]);
        std::printf("\n");
    });
    return 0;
}
