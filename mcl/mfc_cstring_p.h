// What the library does with strings where nothing may raise; private to it.
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

// A new empty string in raw room. False when there is no memory.
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

// Replaces the text by n bytes that lie elsewhere. False when there is no memory; nothing changes then.
inline bool AfxTryAssign(VELM_CString& rString, const char* p, std::size_t n)
{
    if (n >= INT_MAX)
        return false;
    if (n == 0 && rString.m_data == AfxMovedText)
        return true;
    char* pText = rString.m_data;
    if (n != static_cast<std::size_t>(rString.m_len)) {
        // A small block is at hand, and the old one will be for the next text; to resize it costs more.
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

// Cuts the text to its first n bytes.
inline void AfxTruncate(VELM_CString& rString, int n)
{
    if (n == rString.m_len)
        return;
    rString.m_len = n;
    rString.m_data[n] = '\0';
    void* pShorter = std::realloc(rString.m_data, static_cast<std::size_t>(n) + 1);
    if (pShorter != nullptr) // else the buffer stays longer than it has to be
        rString.m_data = static_cast<char*>(pShorter);
}

#endif
