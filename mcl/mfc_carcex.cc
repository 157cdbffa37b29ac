#include "mcl/mfc_carcex.h"

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

VELM_CArchiveException::VELM_CArchiveException(int cause, const char* lpszName)
    : m_cause(cause), m_strFileName(lpszName)
{
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
