// Checks, in every build, the sizes and field offsets of the exported classes in both data models (ILP32 and LP64).
// Programs that were built earlier, and debuggers, rely on them: a class whose figures change here breaks them.
#include <cstddef>

#include "mcl/tavnomcl.h"

#pragma GCC diagnostic ignored "-Winvalid-offsetof"

#ifdef __LP64__
#define EXPECT_LAYOUT(value, ilp32, lp64) static_assert((value) == (lp64), "layout")
#else
#define EXPECT_LAYOUT(value, ilp32, lp64) static_assert((value) == (ilp32), "layout")
#endif
#define SIZE(type, ilp32, lp64) EXPECT_LAYOUT(sizeof(type), ilp32, lp64)
#define FIELD(type, field, ilp32, lp64) EXPECT_LAYOUT(offsetof(type, field), ilp32, lp64)

using PtrAssoc = VELM_CMapPtrToPtr::VELM_CAssoc;
using TextMap = VELM_CMap<fxStr, char*, int, int>;
using TextAssoc = TextMap::VELM_CAssoc;
using AddressMap = VELM_CMap<fxStr, const char*, int, int>;

SIZE(VELM_CObject, 8, 16);
FIELD(VELM_CObject, m_pOwned, 4, 8);
SIZE(VELM_CException, 12, 24);
FIELD(VELM_CException, m_nFlag, 8, 16);
SIZE(VELM_CArchiveException, 24, 40);
FIELD(VELM_CArchiveException, m_cause, 12, 20);
FIELD(VELM_CArchiveException, m_strFileName, 16, 24);
SIZE(VELM_CString, 8, 16);
FIELD(VELM_CString, m_data, 0, 0);
FIELD(VELM_CString, m_len, 4, 8);
SIZE(VELM_CTime, 4, 8);
FIELD(VELM_CTime, m_time, 0, 0);
SIZE(VELM_CTimeSpan, 4, 8);
FIELD(VELM_CTimeSpan, m_span, 0, 0);
SIZE(VELM_CPtrArray, 16, 24);
FIELD(VELM_CPtrArray, m_data, 0, 0);
FIELD(VELM_CPtrArray, m_size, 4, 8);
FIELD(VELM_CPtrArray, m_max_size, 8, 12);
FIELD(VELM_CPtrArray, m_grow_by, 12, 16);
SIZE(VELM_CStringArray, 40, 64);
FIELD(VELM_CStringArray, m_data, 0, 0);
FIELD(VELM_CStringArray, m_size, 4, 8);
FIELD(VELM_CStringArray, m_max_size, 8, 12);
SIZE(VELM_CObArray, 24, 40);
FIELD(VELM_CObArray, m_list, 8, 16);
SIZE(VELM_CPlex, 4, 8);
FIELD(VELM_CPlex, pNext, 0, 0);
SIZE(VELM_CMapPtrToPtr, 52, 88);
FIELD(VELM_CMapPtrToPtr, m_pHashTable, 8, 16);
FIELD(VELM_CMapPtrToPtr, m_nHashTableSize, 12, 24);
FIELD(VELM_CMapPtrToPtr, m_nCount, 16, 28);
FIELD(VELM_CMapPtrToPtr, m_pFreeList, 20, 32);
FIELD(VELM_CMapPtrToPtr, m_pBlocks, 24, 40);
FIELD(VELM_CMapPtrToPtr, m_nBlockSize, 28, 48);
SIZE(PtrAssoc, 20, 40);
FIELD(PtrAssoc, pNext, 0, 0);
FIELD(PtrAssoc, nHashValue, 4, 8);
FIELD(PtrAssoc, key, 8, 16);
FIELD(PtrAssoc, value, 12, 24);
FIELD(PtrAssoc, nValue, 16, 32);
SIZE(TextMap, 52, 88);
FIELD(TextMap, m_pHashTable, 8, 16);
FIELD(TextMap, m_nHashTableSize, 12, 24);
FIELD(TextMap, m_nCount, 16, 28);
FIELD(TextMap, m_pFreeList, 20, 32);
FIELD(TextMap, m_pBlocks, 24, 40);
FIELD(TextMap, m_nBlockSize, 28, 48);
SIZE(TextAssoc, 20, 40);
FIELD(TextAssoc, pNext, 0, 0);
FIELD(TextAssoc, nHashValue, 4, 8);
FIELD(TextAssoc, key, 8, 16);
FIELD(TextAssoc, value, 16, 32);
SIZE(AddressMap, 52, 88);
FIELD(AddressMap, m_nBlockSize, 28, 48);
SIZE(VELM_CFile, 16, 32);
FIELD(VELM_CFile, m_strFileName, 4, 8);
FIELD(VELM_CFile, m_pStream, 12, 24);
SIZE(VELM_CFileStatus, 1044, 1056);
FIELD(VELM_CFileStatus, m_ctime, 0, 0);
FIELD(VELM_CFileStatus, m_mtime, 4, 8);
FIELD(VELM_CFileStatus, m_atime, 8, 16);
FIELD(VELM_CFileStatus, m_size, 12, 24);
FIELD(VELM_CFileStatus, m_attribute, 16, 28);
FIELD(VELM_CFileStatus, m_reserved, 17, 29);
FIELD(VELM_CFileStatus, m_szFullName, 18, 30);
SIZE(VELM_CFileException, 28, 56);
FIELD(VELM_CFileException, m_cause, 4, 8);
FIELD(VELM_CFileException, m_lSysError, 8, 16);
FIELD(VELM_CFileException, m_strReserved, 12, 24);
FIELD(VELM_CFileException, m_strMessage, 20, 40);
SIZE(VELM_CSaveFile, 560, 584);
SIZE(VELM_CMemoryFile, 36, 72);
#if defined __i386__ || defined __LP64__ // on other machines its 64-bit fields are aligned differently
SIZE(VELM_CProgressFile, 44, 72);
#endif
SIZE(VELM_CRuntimeClass, 12, 16);
FIELD(VELM_CRuntimeClass, m_pszName, 0, 0);
FIELD(VELM_CRuntimeClass, m_nClassInfo, 4, 8);
FIELD(VELM_CRuntimeClass, m_nSchema, 8, 12);
SIZE(VELM_CArchive, 80, 136);
FIELD(VELM_CArchive, m_pReserved, 0, 0);
FIELD(VELM_CArchive, m_nReserved, 4, 8);
FIELD(VELM_CArchive, m_bDirectBuffer, 8, 12);
FIELD(VELM_CArchive, m_nCurSchema, 12, 16);
FIELD(VELM_CArchive, m_strFileName, 16, 24);
FIELD(VELM_CArchive, m_nMode, 24, 40);
FIELD(VELM_CArchive, m_bCallerBuf, 28, 44);
FIELD(VELM_CArchive, m_nBufSize, 32, 48);
FIELD(VELM_CArchive, m_pFile, 36, 56);
FIELD(VELM_CArchive, m_lpBufCur, 40, 64);
FIELD(VELM_CArchive, m_lpBufMax, 44, 72);
FIELD(VELM_CArchive, m_lpBufStart, 48, 80);
FIELD(VELM_CArchive, m_nIndexCount, 52, 88);
FIELD(VELM_CArchive, m_pStoreMap, 56, 96);
FIELD(VELM_CArchive, m_pLoadArray, 56, 96);
FIELD(VELM_CArchive, m_pLoader, 60, 104);
FIELD(VELM_CArchive, m_nMapGrowth, 64, 112);
FIELD(VELM_CArchive, m_nMapBuckets, 68, 116);
SIZE(VELM_CClassTable::Class, 24, 48);
FIELD(VELM_CClassTable::Class, pClass, 0, 0);
FIELD(VELM_CClassTable::Class, pfnCreate, 4, 8);
FIELD(VELM_CClassTable::Class, pBase, 8, 16);
SIZE(tavnomcl_dll, 4, 8);
FIELD(tavnomcl_dll, dll_name, 0, 0);
#if defined __i386__ || defined __x86_64__ // on other machines a jump buffer has another size
SIZE(pfm_cleanup_block, 532, 536);
FIELD(pfm_cleanup_block, jump, 8, 8);
FIELD(pfm_cleanup_block, nJumped, 528, 528);
#endif
