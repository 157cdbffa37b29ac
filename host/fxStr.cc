#include "host/fxStr.h"

#include <cstdlib>
#include <cstring>

#include "host/memory_p.h"

static char emptyText[1];

// A block for the text and its final NUL; for no characters, the empty text that all empty strings share.
static char* NewText(unsigned nLength)
{
    if (nLength == 0)
        return emptyText;
    char* pText = static_cast<char*>(AllocateOrRaise(nullptr, std::size_t{nLength} + 1, 1));
    pText[nLength] = '\0';
    return pText;
}

static void FreeText(char* pText)
{
    if (pText != emptyText)
        std::free(pText);
}

fxStr::fxStr(unsigned nLength) : m_data(NewText(nLength)), m_length(nLength)
{
    std::memset(m_data, ' ', nLength);
}

fxStr::fxStr(const char* lpszText) : m_data(emptyText), m_length(0)
{
    *this = lpszText;
}

fxStr::fxStr(const fxStr& src) : m_data(emptyText), m_length(0)
{
    *this = src;
}

fxStr::~fxStr()
{
    FreeText(m_data);
}

fxStr& fxStr::operator=(const char* lpszText)
{
    const unsigned nLength = lpszText == nullptr ? 0 : static_cast<unsigned>(std::strlen(lpszText));
    char* pText = NewText(nLength);
    if (nLength != 0)
        std::memcpy(pText, lpszText, nLength);
    FreeText(m_data);
    m_data = pText;
    m_length = nLength;
    return *this;
}

fxStr& fxStr::operator=(const fxStr& src)
{
    return *this = src.m_data;
}

bool operator==(const fxStr& str, const char* lpszText)
{
    return std::strcmp(str, lpszText == nullptr ? "" : lpszText) == 0;
}
