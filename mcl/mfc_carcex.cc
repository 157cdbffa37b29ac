#include "mcl/mfc_carcex.h"

#include <cstdio>
#include <cstdlib>

VELM_CException::VELM_CException() : m_nFlag(1)
{
}

VELM_CException::VELM_CException(int nFlag) : m_nFlag(nFlag)
{
}

VELM_CException::~VELM_CException()
{
}

int VELM_CException::GetErrorMessage(char*, unsigned, unsigned*)
{
    return 1;
}

int VELM_CException::ReportError(unsigned, unsigned)
{
    return 0;
}

VELM_CArchiveException::VELM_CArchiveException(int cause, const char* lpszName) : m_cause(cause)
{
    m_strFileName = lpszName;
}

VELM_CArchiveException::~VELM_CArchiveException()
{
}

int VELM_CArchiveException::GetErrorMessage(char*, unsigned, unsigned*)
{
    return 1;
}

void AfxThrowArchiveException(int cause, const char*)
{
    pfm_raise(cause);
}

void AfxThrowNotSupportedException()
{
    pfm_raise(VELM_CArchiveException::causeGeneric);
}

void AfxThrowMemoryException()
{
    pfm_raise(VELM_CArchiveException::causeGeneric);
}

int AfxIsValidAddress(const void*, unsigned, int)
{
    return 1;
}

int AfxIsValidString(const char*, int)
{
    return 1;
}

void AfxMemoryExhausted()
{
    AfxThrowMemoryException();
    std::fputs("libtavnomcl: memory is exhausted\n", stderr);
    std::abort();
}

void* AfxAllocate(void* pOld, unsigned long nCount, unsigned long nSize, unsigned long nHeader)
{
    unsigned long nBytes;
    void* pNew = nullptr;
    if (!__builtin_mul_overflow(nCount, nSize, &nBytes) && !__builtin_add_overflow(nBytes, nHeader, &nBytes))
        pNew = std::realloc(pOld, nBytes == 0 ? 1 : nBytes);
    if (pNew == nullptr)
        AfxMemoryExhausted();
    return pNew;
}
