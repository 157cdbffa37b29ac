// Where a command writes: standard output, a file that is saved safely, or a text in memory.
#ifndef TAVNOVIEW_OUTPUT_H
#define TAVNOVIEW_OUTPUT_H

#include <mcl/tavnomcl.h>

#include <string>

class Output {
public:
    enum Target { memory, standard, file };
    Output() = default;
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;
    // "" is standard output.
    bool Open(const std::string& path, std::string& rError);
    void Put(const char* p, size_t n)
    {
        m_text.append(p, n);
        if (m_text.size() > nMostKept && m_target != memory)
            Flush();
    }
    void Put(const std::string& text) { Put(text.data(), text.size()); }
    void Put(const char* lpsz) { Put(lpsz, std::char_traits<char>::length(lpsz)); }
    void Put(char c) { Put(&c, 1); }
    void Put(unsigned long long n);
    __attribute__((format(printf, 2, 3))) void Format(const char* lpszFormat, ...);
    // Completes what was written.
    bool Finish(std::string& rError);
    std::string& Text() { return m_text; }

private:
    static const size_t nMostKept = 65536;
    Target m_target = memory;
    std::string m_text; // not written yet
    VELM_CSaveFile m_file;
    bool m_bFailed = false;
    void Flush();
};

#endif
