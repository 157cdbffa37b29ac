// The record of one save: which archives store to its file, and what they could not store. Private to the library.
//
// A save file makes a record in each Open. The file and every archive on it share the record by counted references,
// since a raise may skip the end of an archive, and an archive may outlive the file or its next Open.
#ifndef TAVNOMCL_MFC_CSAVESTATE_P_H
#define TAVNOMCL_MFC_CSAVESTATE_P_H

#include <cstdio>
#include <new>

#include "mcl/mfc_base.h"

class VELM_LOCAL VELM_CSaveState {
public:
    // A new record with one reference, which the caller has; NULL when there is no memory.
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
    int m_nArchives = 0; // archives that have begun and not ended
    char m_szLost[1024] = "";
};

#endif
