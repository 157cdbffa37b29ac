// What one save knows of the archives that store to its file; private to the library.
//
// A file that answers for a whole save makes one in each Open. The file and every archive on it hold it together: a
// raise may skip the end of an archive, and an archive may outlive the Open that it began in, or the file.
#ifndef TAVNOMCL_MFC_CSAVESTATE_P_H
#define TAVNOMCL_MFC_CSAVESTATE_P_H

#include <cstdio>
#include <new>

#include "mcl/mfc_base.h"

class VELM_LOCAL VELM_CSaveState {
public:
    // Held once, by the caller; NULL when there is no memory.
    static VELM_CSaveState* New() { return new (std::nothrow) VELM_CSaveState; }
    void Hold() { ++m_nHolders; }
    void Release()
    {
        if (--m_nHolders == 0)
            delete this;
    }

    void BeginArchive() { ++m_nArchives; }
    void EndArchive() { --m_nArchives; }
    // Notes that something was not stored; the first text stays.
    void Lose(const char* lpszText)
    {
        if (IsWhole())
            std::snprintf(m_szLost, sizeof m_szLost, "%s", lpszText);
    }
    bool IsWhole() const { return m_szLost[0] == '\0'; }
    bool HasArchives() const { return m_nArchives != 0; }
    const char* LostText() const { return m_szLost; }

private:
    VELM_CSaveState() = default;
    ~VELM_CSaveState() = default;

    int m_nHolders = 1;
    int m_nArchives = 0; // that have begun and not ended
    char m_szLost[1024] = "";
};

#endif
