// What the tests share: a host that records reports and raises, and a file in memory that records its calls.
#ifndef TESTS_SUPPORT_WATCH_H
#define TESTS_SUPPORT_WATCH_H

#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "mcl/tavnomcl.h"

// While it lives, failed checks and raises are recorded. Outside of one, both fail the test; a raise ends it.
class HostWatch {
public:
    struct Report {
        std::string text, file;
    };
    std::vector<Report> reports; // failed checks
    std::vector<int> raises;     // raised codes
    bool bRaiseReturns;          // whether pfm_raise comes back to the raising operation

    static HostWatch* s_pCurrent; // NULL outside

    explicit HostWatch(bool bReturns = false) : bRaiseReturns(bReturns) { s_pCurrent = this; }
    ~HostWatch() { s_pCurrent = nullptr; }
    // Both, as in "nIndex >= 0; raise 3"; "" for nothing.
    std::string Texts() const;
};

// Runs body and returns what it reported and raised.
// With bRaiseReturns, a raise comes back to the raising operation, else it ends the body.
std::string Outcome(const std::function<void()>& body, bool bRaiseReturns = false);

// Values as text, taken from left to right, a blank between two: EXPECT_EQ(Row() << a << b, "1 2") shows all of them.
class Row {
public:
    template <class VALUE> Row& operator<<(const VALUE& value)
    {
        std::ostringstream text;
        text << value;
        m_text += (m_text.empty() ? "" : " ") + text.str();
        return *this;
    }
    const std::string& Text() const { return m_text; }
    friend bool operator==(const Row& row, const std::string& text) { return row.m_text == text; }
    friend std::ostream& operator<<(std::ostream& to, const Row& row) { return to << row.m_text; }

private:
    std::string m_text;
};

// Runs body and returns what it printed on standard output.
std::string Printed(const std::function<void()>& body);

// A file in memory.
class MemoryFile : public VELM_CFile {
public:
    std::string data;               // the contents; writes append
    std::vector<std::string> calls; // such as "Read 128", "Write 44", "Seek -118 1", "GetFilePath"
    unsigned nPosition = 0;         // of the next read
    unsigned nMostPerRead = ~0u;    // a read delivers at most so many bytes

    explicit MemoryFile(std::string contents = "") : VELM_CFile("memory"), data(std::move(contents)) {}
    VELM_CString GetFilePath() const override;
    unsigned Read(void* lpBuf, unsigned nCount) override;
    void Write(const void* lpBuf, unsigned nCount) override;
    long Seek(long lOff, unsigned nFrom) override;
};

struct FileOfArchive {
    MemoryFile file;
};
// An archive that loads the bytes, with a class table where one is given.
class LoadingArchive : public FileOfArchive, public VELM_CArchive {
public:
    explicit LoadingArchive(std::string bytes, const VELM_CClassTable* pTable = nullptr, int nBufSize = 4096)
        : FileOfArchive{MemoryFile(std::move(bytes))}, VELM_CArchive(&file, load, nBufSize)
    {
        if (pTable != nullptr)
            SetClassTable(pTable);
    }
};

// The bytes that body stores through an archive with a buffer of that size.
std::string Stored(const std::function<void(VELM_CArchive&)>& body, int nBufSize = 4096);
// Bytes written as "01 61 FF", blanks optional.
std::string Bytes(const char* hex);

#endif
