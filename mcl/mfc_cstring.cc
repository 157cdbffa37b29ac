#define VELM_EMIT_INLINES
#include "mcl/mfc_cstring.h"

#include <climits>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "mcl/mfc_cstring_p.h"
#include "mcl/mfc_memory.h"

char AfxMovedText[1];

static int TextLength(const char* p)
{
    const std::size_t n = p == nullptr ? 0 : std::strlen(p);
    if (n >= INT_MAX)
        AfxMemoryExhausted();
    return static_cast<int>(n);
}

// A new buffer that holds n bytes from p and the final NUL.
static char* NewText(const char* p, int n)
{
    char* pText = static_cast<char*>(AfxAllocate(nullptr, static_cast<std::size_t>(n), 1, 1));
    if (n > 0)
        std::memcpy(pText, p, static_cast<std::size_t>(n));
    pText[n] = '\0';
    return pText;
}

// The offset of p in the string's buffer; greater than the length if p points elsewhere.
static std::size_t OffsetIn(const VELM_CString& string, const char* p)
{
    return reinterpret_cast<std::size_t>(p) - reinterpret_cast<std::size_t>(string.m_data);
}

void VELM_CString::Init(const char* p, int n)
{
    const int nText = n > 0 ? n : 0;
    m_data = NewText(p, nText);
    m_len = nText;
}

VELM_CString::VELM_CString()
{
    Init(nullptr, 0);
}

VELM_CString::VELM_CString(const char* p, int n)
{
    Init(p, n);
}

VELM_CString::VELM_CString(char* p, int n)
{
    Init(p, n);
}

VELM_CString::VELM_CString(const char* p)
{
    Init(p, TextLength(p));
}

VELM_CString::VELM_CString(char* p)
{
    Init(p, TextLength(p));
}

VELM_CString::VELM_CString(const unsigned char* p) : VELM_CString(reinterpret_cast<const char*>(p))
{
}

VELM_CString::VELM_CString(const VELM_CString& src)
{
    Init(src.m_data, TextLength(src.m_data));
}

VELM_CString::VELM_CString(VELM_CString&& src) noexcept : m_data(src.m_data), m_len(src.m_len)
{
    src.m_data = AfxMovedText;
    src.m_len = 0;
    AfxTruncate(*this, static_cast<int>(std::strlen(m_data))); // what a copy has
}

VELM_CString& VELM_CString::operator=(VELM_CString&& src) noexcept
{
    if (this == &src)
        return *this;
    std::swap(m_data, src.m_data);
    std::swap(m_len, src.m_len);
    AfxTruncate(*this, static_cast<int>(std::strlen(m_data))); // as a copy would end
    AfxTruncate(src, 0);
    return *this;
}

VELM_CString::~VELM_CString()
{
    AfxFreeText(m_data);
}

char VELM_CString::GetAt(int nIndex) const
{
    const bool bNotBelow = VELM_ASSERT(nIndex >= 0);
    const bool bNotAbove = VELM_ASSERT(nIndex < m_len);
    return bNotBelow && bNotAbove ? m_data[nIndex] : '\0';
}

char VELM_CString::operator[](int nIndex) const
{
    return GetAt(nIndex);
}

int VELM_CString::Compare(const VELM_CString& s) const
{
    return std::strcmp(m_data, s.m_data);
}

int VELM_CString::Compare(const char* p) const
{
    return p == nullptr ? m_len : std::strcmp(m_data, p);
}

int VELM_CString::Find(char ch) const
{
    const char* pFound = m_len == 0 ? nullptr : std::strchr(m_data, ch);
    return pFound == nullptr ? -1 : static_cast<int>(pFound - m_data);
}

int VELM_CString::Find(const char* p) const
{
    const char* pFound = p == nullptr || *p == '\0' ? nullptr : std::strstr(m_data, p);
    return pFound == nullptr ? -1 : static_cast<int>(pFound - m_data);
}

void VELM_CString::Empty()
{
    Set(nullptr, 0);
}

void VELM_CString::Set(const char* p, int n)
{
    const int nText = n > 0 ? n : 0;
    if (nText > 0 && OffsetIn(*this, p) <= static_cast<std::size_t>(m_len)) {
        char* pNew = NewText(p, nText); // the source goes with the old buffer
        AfxFreeText(m_data);
        m_data = pNew;
        m_len = nText;
    } else if (!AfxTryAssign(*this, p, static_cast<std::size_t>(nText))) {
        AfxMemoryExhausted();
    }
}

const VELM_CString& VELM_CString::operator=(const VELM_CString& src)
{
    if (this != &src)
        *this = src.m_data;
    return *this;
}

const VELM_CString& VELM_CString::operator=(const char* p)
{
    if (p != m_data)
        Set(p, TextLength(p));
    return *this;
}

const VELM_CString& VELM_CString::operator=(char* p)
{
    return *this = static_cast<const char*>(p);
}

const VELM_CString& VELM_CString::operator=(const unsigned char* p)
{
    return *this = reinterpret_cast<const char*>(p);
}

const VELM_CString& VELM_CString::operator+=(const VELM_CString& src)
{
    return Concat(src.m_data);
}

const VELM_CString& VELM_CString::operator+=(const char* p)
{
    return Concat(p);
}

const VELM_CString& VELM_CString::operator+=(char* p)
{
    return Concat(p);
}

const VELM_CString& VELM_CString::Concat(const char* p)
{
    return Concat(p, TextLength(p));
}

const VELM_CString& VELM_CString::Concat(const char* p, int n)
{
    if (p == nullptr || n < 1)
        return *this;
    if (n >= INT_MAX - m_len)
        AfxMemoryExhausted();
    // If p points into the string's own buffer, the source moves with it, and may include the final NUL.
    const std::size_t nOffset = OffsetIn(*this, p);
    const bool bOwn = nOffset <= static_cast<std::size_t>(m_len);
    if (m_data == AfxMovedText)
        Init(nullptr, 0);
    m_data = static_cast<char*>(AfxAllocate(m_data, static_cast<std::size_t>(m_len + n), 1, 1));
    std::memmove(m_data + m_len, bOwn ? m_data + nOffset : p, static_cast<std::size_t>(n));
    m_len += n;
    m_data[m_len] = '\0';
    return *this;
}

int operator==(const VELM_CString& a, const VELM_CString& b)
{
    return a.Compare(b) == 0;
}

int operator!=(const VELM_CString& a, const VELM_CString& b)
{
    return a.Compare(b) != 0;
}

int operator<(const VELM_CString& a, const VELM_CString& b)
{
    return a.Compare(b) < 0;
}

int operator>(const VELM_CString& a, const VELM_CString& b)
{
    return a.Compare(b) > 0;
}

int operator<=(const VELM_CString& a, const VELM_CString& b)
{
    return a.Compare(b) <= 0;
}

int operator>=(const VELM_CString& a, const VELM_CString& b)
{
    return a.Compare(b) >= 0;
}
