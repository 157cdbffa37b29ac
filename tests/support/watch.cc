#include "tests/support/watch.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

HostWatch* HostWatch::s_pCurrent = nullptr;

// A process that ends while it tests fails, with whatever status.
static bool bTesting = false;
struct EndListener : testing::EmptyTestEventListener {
    void OnTestProgramStart(const testing::UnitTest&) override { bTesting = true; }
    void OnTestProgramEnd(const testing::UnitTest&) override { bTesting = false; }
    static void AtExit()
    {
        if (bTesting)
            std::fputs("a test has ended the process\n", stderr), _exit(1);
    }
};
static const bool bListening =
    (testing::UnitTest::GetInstance()->listeners().Append(new EndListener), std::atexit(EndListener::AtExit) == 0);

std::string HostWatch::Texts() const
{
    std::string texts;
    for (const Report& report : reports)
        texts += (texts.empty() ? "" : "; ") + report.text;
    for (const int code : raises)
        texts += (texts.empty() ? "raise " : "; raise ") + std::to_string(code);
    return texts;
}

// The test program's own host routines take precedence over those of the host library.
void pfm_assert_fail(const char* lpszText, const char* lpszFile, int nLine)
{
    if (HostWatch::s_pCurrent != nullptr)
        HostWatch::s_pCurrent->reports.push_back({lpszText, lpszFile});
    else
        ADD_FAILURE() << lpszFile << ":" << nLine << ": assertion failed: " << lpszText;
}

void pfm_raise(int code)
{
    if (HostWatch::s_pCurrent ==
        nullptr) // no jump, for which there may be no block: that would end the program, and all other tests
        throw std::runtime_error("raise " + std::to_string(code));
    HostWatch::s_pCurrent->raises.push_back(code);
    if (HostWatch::s_pCurrent->bRaiseReturns)
        return;
    static const auto pHostRaise = reinterpret_cast<void (*)(int)>(dlsym(RTLD_NEXT, "pfm_raise"));
    pHostRaise(code);
}

std::string Outcome(const std::function<void()>& body, bool bRaiseReturns)
{
    HostWatch watch(bRaiseReturns);
    pfm_protect(body);
    return watch.Texts();
}

std::string Printed(const std::function<void()>& body)
{
    testing::internal::CaptureStdout();
    body();
    const std::string printed = testing::internal::GetCapturedStdout();
    if (testing::Test::HasFailure()) // the framework reports what fails on standard output, too
        std::fputs(printed.c_str(), stdout);
    return printed;
}

VELM_CString MemoryFile::GetFilePath() const
{
    const_cast<MemoryFile*>(this)->calls.push_back("GetFilePath");
    return VELM_CFile::GetFilePath();
}

unsigned MemoryFile::Read(void* lpBuf, unsigned nCount)
{
    calls.push_back("Read " + std::to_string(nCount));
    const unsigned nLeft = static_cast<unsigned>(data.size()) - nPosition;
    const unsigned n = std::min({nCount, nLeft, nMostPerRead});
    std::memcpy(lpBuf, data.data() + nPosition, n);
    nPosition += n;
    return n;
}

void MemoryFile::Write(const void* lpBuf, unsigned nCount)
{
    calls.push_back("Write " + std::to_string(nCount));
    data.append(static_cast<const char*>(lpBuf), nCount);
}

long MemoryFile::Seek(long lOff, unsigned nFrom)
{
    calls.push_back("Seek " + std::to_string(lOff) + " " + std::to_string(nFrom));
    nPosition = static_cast<unsigned>(static_cast<long>(nPosition) + lOff);
    return 0;
}

std::string Stored(const std::function<void(VELM_CArchive&)>& body, int nBufSize)
{
    MemoryFile file;
    {
        VELM_CArchive ar(&file, VELM_CArchive::store, nBufSize);
        body(ar);
    }
    return file.data;
}

std::string Bytes(const char* hex)
{
    std::string bytes;
    for (; *hex != '\0'; ++hex) {
        if (*hex != ' ') {
            bytes += static_cast<char>(std::stoi(std::string(hex, 2), nullptr, 16));
            ++hex;
        }
    }
    return bytes;
}
