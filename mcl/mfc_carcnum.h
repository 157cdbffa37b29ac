/// \file
/// Numbers in an archive other than the unsigned ones of `mfc_carccore.h`: `bool`, characters, signed integers, short
/// ones and floating-point numbers. Whatever has no operators at all is refused here, when it is compiled.
#ifndef TAVNOMCL_MFC_CARCNUM_H
#define TAVNOMCL_MFC_CARCNUM_H

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <type_traits>
#include <utility>

#include "mcl/mfc_carccore.h"

/// \addtogroup archives
/// \{

/// How `<<` and `>>` move the numbers that are not unsigned: `nBytes` of two's complement or IEEE 754, 0 for a type
/// that they do not move by this. The operators for these are templates of exactly these types: what converts to a
/// number, as a pointer does to `bool` and an enumeration to `int`, means what it did without them, and a program's own
/// operators go before.
template <class TYPE> struct VELM_CValueForm {
    enum { nBytes = 0 };
};
/// \cond
template <class TYPE, int BYTES> struct VELM_CIntegerForm {
    enum { nBytes = BYTES };
    static bool Fits(TYPE) { return true; }
    static unsigned long long Bits(TYPE value) { return static_cast<unsigned long long>(value); }
    static void SetBits(TYPE& rValue, unsigned long long nBits) { rValue = static_cast<TYPE>(nBits); }
};
// Never copied as a number: the x87 unit changes the bits of a signalling NaN.
template <class TYPE, class UINT> struct VELM_CFloatForm {
    static_assert(sizeof(TYPE) == sizeof(UINT), "IEEE 754");
    enum { nBytes = sizeof(UINT) };
    static bool Fits(const TYPE&) { return true; }
    static unsigned long long Bits(const TYPE& value)
    {
        UINT nBits;
        memcpy(&nBits, &value, sizeof nBits);
        return nBits;
    }
    static void SetBits(TYPE& rValue, unsigned long long nAll)
    {
        const UINT nBits = static_cast<UINT>(nAll);
        memcpy(&rValue, &nBits, sizeof nBits);
    }
};
template <> struct VELM_CValueForm<bool> : VELM_CIntegerForm<bool, 1> {
};
template <> struct VELM_CValueForm<char> : VELM_CIntegerForm<char, 1> {
};
template <> struct VELM_CValueForm<signed char> : VELM_CIntegerForm<signed char, 1> {
};
template <> struct VELM_CValueForm<short> : VELM_CIntegerForm<short, 2> {
};
template <> struct VELM_CValueForm<unsigned short> : VELM_CIntegerForm<unsigned short, 2> {
};
template <> struct VELM_CValueForm<int> : VELM_CIntegerForm<int, 4> {
};
template <> struct VELM_CValueForm<long> : VELM_CIntegerForm<long, 4> {
    static bool Fits(long n) { return VELM_ASSERT(n >= INT32_MIN && n <= INT32_MAX); }
    static void SetBits(long& rValue, unsigned long long nBits) { rValue = static_cast<int32_t>(nBits); }
};
template <> struct VELM_CValueForm<float> : VELM_CFloatForm<float, uint32_t> {
};
template <> struct VELM_CValueForm<double> : VELM_CFloatForm<double, uint64_t> {
};

// Of pointers, so that a class that is only declared may have operators of its own.
template <class ARCHIVE, bool bMoved>
struct VELM_CWhereMoved
    : std::enable_if<bMoved && std::is_convertible<ARCHIVE*, VELM_CArchive*>::value, VELM_CArchive&> {
};
template <class TYPE>
struct VELM_CIsFloat
    : std::integral_constant<bool, std::is_same<TYPE, float>::value || std::is_same<TYPE, double>::value> {
};

// Whether a program has operators of its own for the number. For what is only converted to an archive, none of the
// templates here is a candidate, and three of the other operators here are equally good: without a program's own, the
// expression is an error.
struct VELM_CConvertedArchive {
    operator VELM_CArchive&() const;
};
template <class TYPE, class = void> struct VELM_CStoresByOwn : std::false_type {
};
template <class TYPE>
struct VELM_CStoresByOwn<TYPE, decltype(void(std::declval<VELM_CConvertedArchive&>() << std::declval<const TYPE&>()))>
    : std::true_type {
};
template <class TYPE, class = void> struct VELM_CLoadsByOwn : std::false_type {
};
template <class TYPE>
struct VELM_CLoadsByOwn<TYPE, decltype(void(std::declval<VELM_CConvertedArchive&>() >> std::declval<TYPE&>()))>
    : std::true_type {
};

// Whether `<<` and `>>` take a type. The operators that refuse one are for VELM_CArchive itself, and not for a class
// that is derived from it, so that asking does not end in their message. An enumeration counts only when both take it:
// some convert to a number, which is stored, and cannot be loaded.
struct VELM_CProbe : VELM_CArchive {};
template <class TYPE, class = void> struct VELM_CStores : std::false_type {
};
template <class TYPE>
struct VELM_CStores<TYPE, decltype(void(std::declval<VELM_CProbe&>() << std::declval<const TYPE&>()))>
    : std::true_type {
};
template <class TYPE, class = void> struct VELM_CLoads : std::false_type {
};
template <class TYPE>
struct VELM_CLoads<TYPE, decltype(void(std::declval<VELM_CProbe&>() >> std::declval<TYPE&>()))> : std::true_type {
};
template <bool bLoads, class TYPE>
struct VELM_CMoves
    : std::conditional<std::is_enum<TYPE>::value,
                       std::integral_constant<bool, VELM_CStores<TYPE>::value && VELM_CLoads<TYPE>::value>,
                       typename std::conditional<bLoads, VELM_CLoads<TYPE>, VELM_CStores<TYPE>>::type>::type {
};
template <class ARCHIVE, bool bLoads, class TYPE> struct VELM_CWhereRefused {
};
template <bool bLoads, class TYPE>
struct VELM_CWhereRefused<VELM_CArchive, bLoads, TYPE>
    : std::enable_if<!VELM_CMoves<bLoads, TYPE>::value, VELM_CArchive&> {
};
// Named after what is wrong with the type in its argument, for the compiler's message; void stands for no such type.
template <class TYPE> struct VELM_CHasForm {
    static constexpr bool value = std::is_void<TYPE>::value;
};
#define VELM_NO_FORM "docs/values.md says what goes through an archive, and how a type of your own does"

// Whether a type is of numbers that have the same bytes in memory as in the stream, so that many go as a block.
template <class TYPE, bool = std::is_arithmetic<TYPE>::value> struct VELM_CIsPlainNumber : std::false_type {
};
template <class TYPE>
struct VELM_CIsPlainNumber<TYPE, true>
    : std::integral_constant<bool, VELM_CValueForm<TYPE>::nBytes == sizeof(TYPE) && !std::is_same<TYPE, bool>::value &&
                                       (sizeof(TYPE) == 1 || __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__) &&
                                       !VELM_CStoresByOwn<TYPE>::value && !VELM_CLoadsByOwn<TYPE>::value> {
};
template <> struct VELM_CIsPlainNumber<unsigned char, true> : std::true_type {
};
template <>
struct VELM_CIsPlainNumber<unsigned, true> : std::integral_constant<bool, __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__> {
};
template <>
struct VELM_CIsPlainNumber<unsigned long, true>
    : std::integral_constant<bool, VELM_CIsPlainNumber<unsigned>::value && sizeof(unsigned long) == 4> {
};

// Stores such values.
template <class TYPE> void AfxStoreValues(VELM_CArchive& ar, const TYPE* pValues, size_t nCount)
{
    const size_t nBytes = nCount * sizeof(TYPE);
    if (nBytes == 0 || !ar.IsStoring() || static_cast<size_t>(ar.m_lpBufMax - ar.m_lpBufCur) < nBytes) {
        ar.StoreBlock(pValues, nBytes);
        return;
    }
    memcpy(ar.m_lpBufCur, pValues, nBytes);
    ar.m_lpBufCur += nBytes;
}

// Loads them. Where the data ends, the one in which it ends is 0, and the later ones stay as they were.
template <class TYPE> void AfxLoadValues(VELM_CArchive& ar, TYPE* pValues, size_t nCount)
{
    const size_t nBytes = nCount * sizeof(TYPE);
    if (nBytes != 0 && ar.IsLoading() && static_cast<size_t>(ar.m_lpBufMax - ar.m_lpBufCur) >= nBytes) {
        memcpy(static_cast<void*>(pValues), ar.m_lpBufCur, nBytes);
        ar.m_lpBufCur += nBytes;
        return;
    }
    const size_t nCame = ar.LoadBlock(pValues, nBytes);
    if (nCame == nBytes)
        return;
    if (nCame % sizeof(TYPE) != 0)
        memset(static_cast<void*>(pValues + nCame / sizeof(TYPE)), 0, sizeof(TYPE));
    ar.RaiseDataEnded();
}

template <class TYPE> VELM_CArchive& AfxStoreNumber(VELM_CArchive& ar, const TYPE& value)
{
    typedef VELM_CValueForm<TYPE> Form;
    if (!Form::Fits(value)) {
        ar.RaiseInvalid("the value does not fit into 4 bytes");
        return ar;
    }
    const unsigned long long nBits = Form::Bits(value);
    switch (static_cast<int>(Form::nBytes)) {
    case 1:
        return ar << static_cast<unsigned char>(nBits);
    case 2:
        return ar << static_cast<unsigned char>(nBits) << static_cast<unsigned char>(nBits >> 8);
    case 4:
        ar.Store32(static_cast<uint32_t>(nBits));
        return ar;
    default:
        ar.WriteUInt64(nBits);
        return ar;
    }
}
/// \endcond

/// Stores a `bool`, `char` or `signed char` in 1 byte, a `short` or `unsigned short` in 2, an `int` or `long` in 4. A
/// `long` that 4 bytes do not hold fails "n >= INT32_MIN && n <= INT32_MAX" and raises 1; nothing is stored.
template <class ARCHIVE, class TYPE>
typename VELM_CWhereMoved<ARCHIVE, VELM_CValueForm<TYPE>::nBytes != 0 && !VELM_CIsFloat<TYPE>::value>::type
operator<<(ARCHIVE& rArchive, TYPE value)
{
    return AfxStoreNumber(rArchive, value);
}

/// Stores a `float` in 4 bytes, a `double` in 8: each of its bits, also those of a NaN.
template <class ARCHIVE, class TYPE>
typename VELM_CWhereMoved<ARCHIVE, VELM_CIsFloat<TYPE>::value>::type operator<<(ARCHIVE& rArchive, const TYPE& value)
{
    return AfxStoreNumber(rArchive, value);
}

/// Loads what the operator for these types stores; a `bool` is whether the byte is not 0. Raises 3 when the data ends;
/// the operand keeps its value then.
template <class ARCHIVE, class TYPE>
typename VELM_CWhereMoved<ARCHIVE, VELM_CValueForm<TYPE>::nBytes != 0>::type operator>>(ARCHIVE& rArchive, TYPE& rValue)
{
    VELM_CArchive& ar = rArchive;
    unsigned char nFirst, nSecond = 0;
    uint32_t nShort = 0;
    unsigned long long nBits = 0;
    int bCame = 0;
    switch (static_cast<int>(VELM_CValueForm<TYPE>::nBytes)) {
    case 1:
    case 2:
        bCame = ar.LoadByte(nFirst) && (VELM_CValueForm<TYPE>::nBytes == 1 || ar.LoadByte(nSecond));
        nBits = bCame ? nFirst | static_cast<unsigned>(nSecond) << 8 : 0;
        break;
    case 4:
        bCame = ar.Load32(nShort);
        nBits = nShort;
        break;
    default:
        bCame = ar.Load64(nBits);
    }
    if (bCame)
        VELM_CValueForm<TYPE>::SetBits(rValue, nBits);
    else
        ar.RaiseDataEnded();
    return ar;
}

/// \cond
// A type without a form is refused by one sentence, and not by a list of all operators.
template <class ARCHIVE, class TYPE>
typename VELM_CWhereRefused<ARCHIVE, false, TYPE>::type operator<<(ARCHIVE& ar, const TYPE&)
{
    static_assert(VELM_CHasForm<TYPE>::value, VELM_NO_FORM);
    return ar;
}
template <class ARCHIVE, class TYPE>
typename VELM_CWhereRefused<ARCHIVE, true, TYPE>::type operator>>(ARCHIVE& ar, TYPE&)
{
    static_assert(VELM_CHasForm<TYPE>::value, VELM_NO_FORM);
    return ar;
}
/// \endcond

/// \}

#endif
