// The bytes of a file, or of standard input, which go to a temporary file first: all commands look at them more than
// once.
#ifndef TAVNOVIEW_INPUT_H
#define TAVNOVIEW_INPUT_H

#include <cstddef>
#include <cstdio>
#include <string>

// A temporary file without a name, for what need not be in memory; NULL when there is none.
std::FILE* OpenSpool();

class Input {
public:
    std::string m_path; // as it is named in messages

    Input() = default;
    Input(const Input&) = delete;
    Input& operator=(const Input&) = delete;
    ~Input();
    // "-" is standard input. False, and what went wrong.
    bool Open(const std::string& path, std::string& rError);
    // What has been written to the file.
    bool Map(std::FILE* pFile, std::string& rError);
    // Bytes of the caller's, which live longer.
    void Use(const char* pBytes, size_t nSize) { m_pBytes = pBytes, m_nSize = nSize; }
    const char* GetBytes() const { return m_pBytes; }
    size_t GetSize() const { return m_nSize; }

private:
    const char* m_pBytes = "";
    size_t m_nSize = 0;
    bool m_bMapped = false;
    bool Map(int nFile, std::string& rError);
};

#endif
