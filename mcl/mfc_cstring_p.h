// Operations on strings that report exhausted memory instead of raising; private to the library.
#ifndef TAVNOMCL_MFC_CSTRING_P_H
#define TAVNOMCL_MFC_CSTRING_P_H

#include <climits>
#include <cstdlib>
#include <cstring>

#include "mcl/mfc_cstring.h"

// The text of strings that were moved from: it is no block, and never changes.
extern VELM_LOCAL char AfxMovedText[1];

// Frees the text of a string.
inline void AfxFreeText(char* pText)
{
    if (pText != AfxMovedText)
        std::free(pText);
}

// Constructs an empty string in raw memory. False when there is no memory for its buffer.
inline bool AfxTryConstruct(VELM_CString* pRoom)
{
    char* pText = static_cast<char*>(std::malloc(1));
    if (pText == nullptr)
        return false;
    *pText = '\0';
    pRoom->m_data = pText;
    pRoom->m_len = 0;
    return true;
}

// Replaces the text by n bytes that do not lie in the string's buffer. False, and nothing is changed, when there is no
// memory.
inline bool AfxTryAssign(VELM_CString& rString, const char* p, std::size_t n)
{
    if (n >= INT_MAX)
        return false;
    if (n == 0 && rString.m_data == AfxMovedText)
        return true;
    char* pText = rString.m_data;
    if (n != static_cast<std::size_t>(rString.m_len)) {
        // For small blocks, malloc and free are quicker than realloc: the allocator keeps freed ones ready.
        const bool bSmall = pText == AfxMovedText || (n < 1024 && rString.m_len < 1024);
        pText = static_cast<char*>(bSmall ? std::malloc(n + 1) : std::realloc(pText, n + 1));
        if (pText == nullptr)
            return false;
        if (bSmall)
            AfxFreeText(rString.m_data);
    }
    if (n > 0)
        std::memcpy(pText, p, n);
    pText[n] = '\0';
    rString.m_data = pText;
    rString.m_len = static_cast<int>(n);
    return true;
}

// Cuts the text to its first n bytes; cannot fail.
inline void AfxTruncate(VELM_CString& rString, int n)
{
    if (n == rString.m_len)
        return;
    rString.m_len = n;
    rString.m_data[n] = '\0';
    void* pShorter = std::realloc(rString.m_data, static_cast<std::size_t>(n) + 1);
    if (pShorter != nullptr) // otherwise the buffer stays as long as it was
        rString.m_data = static_cast<char*>(pShorter);
}

#endif
