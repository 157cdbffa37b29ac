#include "mcl/mfc_cdoc.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>

#include "mcl/mfc_csavefile.h"

typedef void (*BodyProc)(VELM_CArchive& ar, void* pContext);

// Room for an archive that is constructed inside pfm_protect and destroyed outside, if it was constructed at all.
// Unless bGood is set, the objects that it has loaded are deleted with it, also when a C++ exception passes.
class ArchiveRoom {
public:
    ArchiveRoom() = default;
    ArchiveRoom(const ArchiveRoom&) = delete;
    ArchiveRoom& operator=(const ArchiveRoom&) = delete;
    ~ArchiveRoom()
    {
        if (m_pArchive == nullptr)
            return;
        if (!bGood)
            m_pArchive->DeleteLoadedObjects();
        m_pArchive->~VELM_CArchive();
    }
    VELM_CArchive& Make(VELM_CFile& file, unsigned nMode)
    {
        return *(m_pArchive = new (m_room) VELM_CArchive(&file, nMode));
    }
    VELM_CArchive* Get() const { return m_pArchive; }
    bool bGood = false;

private:
    alignas(VELM_CArchive) unsigned char m_room[sizeof(VELM_CArchive)];
    VELM_CArchive* m_pArchive = nullptr;
};

// The text of an error, in memory that needs no allocation.
struct ErrorText {
    char szText[2048] = "";

    void Set(const char* lpszPath, const char* lpszFault)
    {
        std::snprintf(szText, sizeof szText, "%s: %s", lpszPath, lpszFault);
    }
    // Takes the archive's error text. If there is none, or it is about something else than what was raised, the text
    // names the code of the raise.
    void SetFrom(const char* lpszPath, const VELM_CArchive& ar, int nRaised)
    {
        if (*ar.GetErrorText() != '\0' && (nRaised == 0 || nRaised == ar.GetErrorCause()))
            Set(lpszPath, ar.GetErrorText());
        else
            std::snprintf(szText, sizeof szText, "%s: raise %d%s", lpszPath, nRaised,
                          nRaised == VELM_CArchiveException::causeGeneric ? ": memory is exhausted" : "");
    }
};

// Calls the body, and delivers its error text to the caller. Raises outside of the body's own pfm_protect end here.
template <class BODY> static int Run(VELM_CString* pError, const char* lpszPath, BODY body)
{
    if (lpszPath == nullptr)
        lpszPath = "";
    ErrorText error;
    volatile int nDone = 0;
    error.Set(lpszPath, "memory is exhausted");
    pfm_protect([&] { nDone = body(lpszPath, error); });
    pfm_protect([&] {
        if (pError != nullptr)
            *pError = nDone ? "" : error.szText;
    });
    return nDone;
}

// When the program's function has closed or aborted the archive, nobody knows whether the document is whole.
static void RequireOpen(VELM_CArchive& ar)
{
    if (ar.m_pFile == nullptr)
        ar.RaiseInvalid("the archive was closed or aborted");
}

static int Save(const char* lpszPath, const VELM_CClassTable& classes, BodyProc pfnStore, void* pContext,
                ErrorText& error)
{
    VELM_CSaveFile file;
    ArchiveRoom room;
    volatile int nClosed = 0;
    const int nRaised = pfm_protect([&] {
        if (!file.Open(lpszPath))
            return;
        VELM_CArchive& ar = room.Make(file, VELM_CArchive::store);
        ar.SetClassTable(&classes);
        pfnStore(ar, pContext);
        RequireOpen(ar);
        if (!ar.AreOwnersComplete())
            return;
        ar.Close();
        nClosed = 1;
    });
    if (nClosed && file.Commit())
        return 1;
    if (room.Get() != nullptr) {
        error.SetFrom(lpszPath, *room.Get(), nRaised);
        room.Get()->Abort();
    }
    if (file.GetError() != 0)
        pfm_protect([&] { std::snprintf(error.szText, sizeof error.szText, "%s", file.GetErrorText().m_data); });
    return 0;
}

int AfxSaveDocument(const char* lpszPath, const VELM_CClassTable& classes, BodyProc pfnStore, void* pContext,
                    VELM_CString* pError)
{
    return Run(pError, lpszPath,
               [&](const char* lpszTo, ErrorText& error) { return Save(lpszTo, classes, pfnStore, pContext, error); });
}

int AfxSaveDocument(const char* lpszPath, const VELM_CClassTable& classes, const VELM_CObject* pRoot,
                    VELM_CString* pError)
{
    return AfxSaveDocument(
        lpszPath, classes, [](VELM_CArchive& ar, void* pOb) { ar.WriteOwned(static_cast<const VELM_CObject*>(pOb)); },
        const_cast<VELM_CObject*>(pRoot), pError);
}

static int Load(const char* lpszPath, const VELM_CClassTable& classes, BodyProc pfnLoad, void* pContext,
                ErrorText& error)
{
    VELM_CFile file;
    ArchiveRoom room;
    volatile int nLoaded = 0;
    // The errors of this load are told apart from earlier ones, which ERROR_CODE gets back at the end.
    struct ErrorsBefore {
        const int nCode = VELM_CFile::ERROR_CODE;
        ~ErrorsBefore() { VELM_CFile::ERROR_CODE |= nCode; }
    } before;
    VELM_CFile::ERROR_CODE = 0;
    const int nRaised = pfm_protect([&] {
        if (!file.Open(lpszPath)) {
            error.Set(lpszPath, std::strerror(errno));
            return;
        }
        VELM_CArchive& ar = room.Make(file, VELM_CArchive::load);
        ar.SetClassTable(&classes);
        pfnLoad(ar, pContext);
        RequireOpen(ar);
        if (!ar.IsAtEnd())
            ar.RaiseInvalid("more follows behind the document");
        else
            nLoaded = !ar.IsDataEnded() && ar.AreOwnersComplete();
    });
    VELM_CArchive* const pArchive = room.Get();
    if (!nLoaded && pArchive != nullptr) {
        error.SetFrom(lpszPath, *pArchive, nRaised);
        if (VELM_CFile::ERROR_CODE != 0)
            error.Set(lpszPath, "the file cannot be read");
        pfm_protect([&] { pArchive->DeleteLoadedObjects(); }); // a destructor of the program may raise
    }
    room.bGood = true; // either the load is good, or its objects have been deleted
    return nLoaded;
}

int AfxLoadDocument(const char* lpszPath, const VELM_CClassTable& classes, BodyProc pfnLoad, void* pContext,
                    VELM_CString* pError)
{
    return Run(pError, lpszPath, [&](const char* lpszFrom, ErrorText& error) {
        return Load(lpszFrom, classes, pfnLoad, pContext, error);
    });
}
