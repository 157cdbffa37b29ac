#include "mcl/mfc_cprogfile.h"

VELM_CProgressFile::VELM_CProgressFile(VELM_CFile* pFile, unsigned long long nTotal, VELM_PROGRESS pfnProgress,
                                       void* pContext)
    : VELM_CFile(pFile->GetFilePath().m_data), m_pFile(pFile), m_pfnProgress(pfnProgress), m_pContext(pContext),
      m_nDone(0), m_nTotal(nTotal)
{
}

VELM_CProgressFile::~VELM_CProgressFile()
{
}

int VELM_CProgressFile::Open(const char* lpszFileName, unsigned nOpenFlags, VELM_CFileException* pError)
{
    m_strFileName = lpszFileName;
    return m_pFile->Open(lpszFileName, nOpenFlags, pError);
}

long VELM_CProgressFile::Seek(long lOff, unsigned nFrom)
{
    return m_pFile->Seek(lOff, nFrom);
}

void VELM_CProgressFile::SetLength(unsigned long nNewLength)
{
    m_pFile->SetLength(nNewLength);
}

unsigned long VELM_CProgressFile::GetLength() const
{
    return m_pFile->GetLength();
}

unsigned VELM_CProgressFile::Read(void* lpBuf, unsigned nCount)
{
    const unsigned nRead = m_pFile->Read(lpBuf, nCount);
    Report(nRead);
    return nRead;
}

void VELM_CProgressFile::Write(const void* lpBuf, unsigned nCount)
{
    m_pFile->Write(lpBuf, nCount);
    Report(nCount);
}

void VELM_CProgressFile::Close()
{
    m_pFile->Close();
}

VELM_CSaveState* VELM_CProgressFile::GetSaveState() const
{
    return m_pFile->GetSaveState();
}

unsigned long long VELM_CProgressFile::GetDone() const
{
    return m_nDone;
}

void VELM_CProgressFile::Report(unsigned nCount)
{
    if (nCount == 0)
        return;
    m_nDone += nCount;
    m_pfnProgress(m_pContext, m_nDone, m_nTotal);
}
