#include "mcl/mfc_cmemfile.h"

#include <limits.h>
#include <stdlib.h>
#include <string.h>

#include "mcl/mfc_memory.h"

VELM_CMemoryFile::VELM_CMemoryFile() : m_pBytes(nullptr), m_nSize(0), m_nCapacity(0), m_nPosition(0), m_bCallerBytes(0)
{
}

VELM_CMemoryFile::VELM_CMemoryFile(const void* lpBytes, unsigned long nCount)
    : m_pBytes(static_cast<unsigned char*>(const_cast<void*>(lpBytes))), m_nSize(nCount), m_nCapacity(0),
      m_nPosition(0), m_bCallerBytes(1)
{
}

VELM_CMemoryFile::~VELM_CMemoryFile()
{
    free(Detach());
}

int VELM_CMemoryFile::Open(const char*, unsigned, VELM_CFileException* pError)
{
    if (pError != nullptr)
        pError->m_strMessage = "Can't open file";
    return 0;
}

long VELM_CMemoryFile::Seek(long lOff, unsigned nFrom)
{
    const unsigned long origins[] = {0, m_nPosition, m_nSize};
    if (nFrom >= sizeof origins / sizeof *origins)
        return -1;
    unsigned long nTo;
    if (__builtin_add_overflow(origins[nFrom], lOff, &nTo) || nTo > m_nSize)
        return -1;
    m_nPosition = nTo;
    return 0;
}

unsigned long VELM_CMemoryFile::GetLength() const
{
    return static_cast<uint32_t>(m_nSize);
}

unsigned VELM_CMemoryFile::Read(void* lpBuf, unsigned nCount)
{
    const unsigned long nLeft = m_nSize - m_nPosition;
    if (nCount > nLeft)
        nCount = static_cast<unsigned>(nLeft);
    if (nCount > 0)
        memcpy(lpBuf, m_pBytes + m_nPosition, nCount);
    m_nPosition += nCount;
    return nCount;
}

void VELM_CMemoryFile::Write(const void* lpBuf, unsigned nCount)
{
    if (nCount == 0)
        return;
    if (m_bCallerBytes) {
        ERROR_CODE = 1;
        return;
    }
    if (nCount > m_nCapacity - m_nPosition) {
        // The capacity doubles, so that many small writes take linear time. A block larger than a quarter of the
        // address space only grows by what is needed.
        const unsigned long nMore = m_nCapacity < ULONG_MAX / 4 && nCount < m_nCapacity ? m_nCapacity : nCount;
        m_pBytes = static_cast<unsigned char*>(AfxAllocate(m_pBytes, m_nPosition, 1, nMore));
        m_nCapacity = m_nPosition + nMore;
    }
    memcpy(m_pBytes + m_nPosition, lpBuf, nCount);
    m_nPosition += nCount;
    if (m_nSize < m_nPosition)
        m_nSize = m_nPosition;
}

const void* VELM_CMemoryFile::GetBytes() const
{
    return m_pBytes;
}

unsigned long VELM_CMemoryFile::GetSize() const
{
    return m_nSize;
}

void* VELM_CMemoryFile::Detach()
{
    if (m_bCallerBytes)
        return nullptr;
    void* pBytes = m_pBytes;
    m_pBytes = nullptr;
    m_nSize = m_nCapacity = m_nPosition = 0;
    return pBytes;
}
