#include "output.h"

#include <cerrno>
#include <charconv>
#include <cstdarg>
#include <cstdio>
#include <cstring>

bool Output::Open(const std::string& path, std::string& rError)
{
    m_target = path.empty() || path == "-" ? standard : file;
    if (m_target == standard || m_file.Open(path.c_str()))
        return true;
    rError = m_file.GetErrorText().m_data;
    return false;
}

void Output::Put(unsigned long long n)
{
    char digits[24];
    Put(digits, static_cast<size_t>(std::to_chars(digits, digits + sizeof digits, n).ptr - digits));
}

void Output::Format(const char* lpszFormat, ...)
{
    char text[512];
    va_list args;
    va_start(args, lpszFormat);
    const int n = std::vsnprintf(text, sizeof text, lpszFormat, args);
    va_end(args);
    Put(text, std::min(static_cast<size_t>(n), sizeof text - 1));
}

void Output::Flush()
{
    if (m_target == standard)
        m_bFailed = std::fwrite(m_text.data(), 1, m_text.size(), stdout) != m_text.size() || m_bFailed;
    for (size_t n = 0; m_target == file && n < m_text.size(); n += 1 << 30)
        m_file.Write(m_text.data() + n, static_cast<unsigned>(std::min(m_text.size() - n, size_t{1} << 30)));
    m_text.clear();
}

bool Output::Finish(std::string& rError)
{
    Flush();
    if (m_target == standard && (std::fflush(stdout) != 0 || m_bFailed))
        rError = std::string("standard output: ") + std::strerror(errno);
    else if (m_target == file && !m_file.Commit())
        rError = m_file.GetErrorText().m_data;
    else
        return true;
    return false;
}
