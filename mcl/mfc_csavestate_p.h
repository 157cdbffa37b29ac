// The state of one save, which its file shares with the archives that store to it; private to the library.
//
// A file that must know whether a save is whole, such as VELM_CSaveFile, makes a new state in each Open. The file and
// each of its archives hold a reference, and the last one to release it deletes the state: a raise may skip the end of
// an archive, and an archive may outlive the Open in which it began, or even the file.
#ifndef TAVNOMCL_MFC_CSAVESTATE_P_H
#define TAVNOMCL_MFC_CSAVESTATE_P_H

#include <cstdio>
#include <new>

#include "mcl/mfc_base.h"

class VELM_LOCAL VELM_CSaveState {
public:
    // The caller has the only reference to the new state. NULL when there is no memory.
    static VELM_CSaveState* New() { return new (std::nothrow) VELM_CSaveState; }
    void Hold() { ++m_nHolders; }
    void Release()
    {
        if (--m_nHolders == 0)
            delete this;
    }

    void BeginArchive() { ++m_nArchives; }
    void EndArchive() { --m_nArchives; }
    // Notes that something was not stored. Only the first text is kept.
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
    int m_nArchives = 0; // archives that have begun and not ended
    char m_szLost[1024] = "";
};

#endif
