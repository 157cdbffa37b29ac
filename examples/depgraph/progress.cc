#include "progress.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

static const int nWidth = 40;
static bool bDrawn = false;

// The size of the file if a bar is to be drawn for it, otherwise 0.
static unsigned long long SizeToDraw(const VELM_CFile& file)
{
    const long long nLeastSize = 10000000;
    struct stat64 status;
    const bool bDraw = isatty(STDERR_FILENO) && fstat64(fileno(file.m_pStream), &status) == 0 &&
                       S_ISREG(status.st_mode) && status.st_size > nLeastSize;
    return bDraw ? static_cast<unsigned long long>(status.st_size) : 0;
}

void EraseProgress()
{
    if (bDrawn)
        std::fprintf(stderr, "\r%*s\r", nWidth + static_cast<int>(sizeof "[] 100 %"), "");
    bDrawn = false;
}

static void Draw(void*, unsigned long long nDone, unsigned long long nTotal)
{
    if (nTotal == 0)
        return;
    if (nDone > nTotal)
        nDone = nTotal; // the file has grown
    bDrawn = true;
    const int nFilled = static_cast<int>(nDone * nWidth / nTotal);
    std::fprintf(stderr, "\r[%.*s%*s] %3d %%", nFilled, "########################################", nWidth - nFilled,
                 "", static_cast<int>(nDone * 100 / nTotal));
}

WatchedFile::WatchedFile(VELM_CFile* pOpenFile) : VELM_CProgressFile(pOpenFile, SizeToDraw(*pOpenFile), Draw)
{
}

WatchedFile::~WatchedFile()
{
    EraseProgress();
}
