/// \file
/// The string value: an owned byte string, copied on assignment.
#ifndef TAVNOMCL_MFC_CSTRING_H
#define TAVNOMCL_MFC_CSTRING_H

#include <limits.h>
#include <stddef.h>
#include <string.h>

#include <string>
#if __cplusplus >= 201703L
#include <string_view>
#endif
#include <type_traits>

#include "mcl/mfc_base.h"
#include "mcl/mfc_memory.h"

/// \addtogroup values
/// \{

/// An owned, NUL-terminated byte string with an explicit length.
///
/// Each string owns one buffer of exactly `m_len` + 1 bytes, never shared and never NULL. Only a string that was moved
/// from has an empty buffer that is not its own, until it gets a text again. Operations that are given a length take
/// NUL bytes as part of the text. Operations that are given a plain pointer, and copies of strings, end at the first
/// NUL. The source of an operation may lie inside the string's own buffer. Exhausted memory: see `AfxMemoryExhausted`.
class VELM_API VELM_CString {
public:
    char* m_data; ///< The buffer, of `malloc`.
    int m_len;    ///< Length of the text in bytes.

    /// The empty string.
    VELM_CString();
    /// `n` bytes from `p`, NUL bytes included; empty when `n` is below 1.
    VELM_CString(const char* p, int n);
    /// \copydoc VELM_CString(const char*, int)
    VELM_CString(char* p, int n);
    /// A copy of a text; NULL gives the empty string.
    VELM_CString(const char* p);
    /// \copydoc VELM_CString(const char*)
    VELM_CString(char* p);
    /// \copydoc VELM_CString(const char*)
    VELM_CString(const unsigned char* p);
    /// A copy of the text up to the first NUL.
    VELM_CString(const VELM_CString& src);
    /// The text of `src` up to its first NUL, without a copy; `src` is empty then. Takes no memory.
    VELM_CString(VELM_CString&& src) noexcept;
    /// A copy of the whole text, NUL bytes included. It is a template so that no other type is converted to
    /// `std::string` for it.
    template <class TRAITS, class ALLOC> explicit VELM_CString(const std::basic_string<char, TRAITS, ALLOC>& src)
    {
        Init(src.data(), CheckLength(src.size()));
    }
#if __cplusplus >= 201703L
    /// \copydoc VELM_CString(const std::basic_string<char, TRAITS, ALLOC>&)
    template <class TRAITS> explicit VELM_CString(const std::basic_string_view<char, TRAITS>& src)
    {
        Init(src.data(), CheckLength(src.size()));
    }
    /// The whole text, until the string changes.
    explicit operator std::string_view() const
    {
        return std::string_view(m_data, static_cast<size_t>(m_len));
    }
#endif
    /// The whole text, NUL bytes included.
    explicit operator std::string() const
    {
        return std::string(m_data, static_cast<size_t>(m_len));
    }
    ~VELM_CString();

    /// Does what the constructor with a length does, on an object that has no buffer: an old buffer is not freed.
    void Init(const char* p, int n);

    /// Length of the text in bytes.
    VELM_INLINE int GetLength() const
    {
        return m_len;
    }
    /// 1 when the length is 0, else 0.
    VELM_INLINE int IsEmpty() const
    {
        return m_len == 0;
    }
    /// The byte at `nIndex`. Asserts "nIndex >= 0" and "nIndex < m_len"; after a failure NUL.
    char GetAt(int nIndex) const;
    /// \copydoc GetAt
    char operator[](int nIndex) const;
    /// The result of `strcmp` for the two texts.
    int Compare(const VELM_CString& s) const;
    /// The result of `strcmp` for the two texts; if `p` is NULL, the length of this one.
    int Compare(const char* p) const;
    /// Offset of the first byte that equals `ch`, which may be the final NUL; -1 when there is none or the string is
    /// empty.
    int Find(char ch) const;
    /// Offset of the first occurrence; -1 when there is none, or the text is NULL or empty.
    int Find(const char* p) const;

    /// Makes the string empty.
    void Empty();
    /// Replaces the text by `n` bytes from `p`, NUL bytes included; empty when `n` is below 1.
    void Set(const char* p, int n);
    /// Replaces the text by that of `src` up to its first NUL.
    const VELM_CString& operator=(const VELM_CString& src);
    /// Takes the text of `src` up to its first NUL, without a copy; `src` is empty then, unless it is this string.
    VELM_CString& operator=(VELM_CString&& src) noexcept;
    /// Replaces the text; NULL gives the empty string.
    const VELM_CString& operator=(const char* p);
    /// \copydoc operator=(const char*)
    const VELM_CString& operator=(char* p);
    /// \copydoc operator=(const char*)
    const VELM_CString& operator=(const unsigned char* p);
    /// Replaces the text by the whole one of `src`, NUL bytes included.
    template <class TRAITS, class ALLOC>
    const VELM_CString& operator=(const std::basic_string<char, TRAITS, ALLOC>& src)
    {
        Set(src.data(), CheckLength(src.size()));
        return *this;
    }
#if __cplusplus >= 201703L
    /// \copydoc operator=(const std::basic_string<char, TRAITS, ALLOC>&)
    template <class TRAITS> const VELM_CString& operator=(const std::basic_string_view<char, TRAITS>& src)
    {
        Set(src.data(), CheckLength(src.size()));
        return *this;
    }
#endif
    /// Appends the text of `src` up to its first NUL.
    const VELM_CString& operator+=(const VELM_CString& src);
    /// Appends a text; NULL and the empty text change nothing.
    const VELM_CString& operator+=(const char* p);
    /// \copydoc operator+=(const char*)
    const VELM_CString& operator+=(char* p);
    /// \copydoc operator+=(const char*)
    const VELM_CString& Concat(const char* p);
    /// Appends `n` bytes, NUL bytes included; NULL or a length below 1 change nothing.
    const VELM_CString& Concat(const char* p, int n);

private:
    static int CheckLength(size_t n)
    {
        if (n >= INT_MAX)
            AfxMemoryExhausted();
        return static_cast<int>(n);
    }
};

/// 1 when the texts are equal, as by `strcmp`, else 0.
VELM_API int operator==(const VELM_CString& a, const VELM_CString& b);
/// 1 when the texts differ, as by `strcmp`, else 0.
VELM_API int operator!=(const VELM_CString& a, const VELM_CString& b);
/// 1 when `a` sorts before `b`, as by `strcmp`, else 0.
VELM_API int operator<(const VELM_CString& a, const VELM_CString& b);
/// 1 when `a` sorts after `b`, as by `strcmp`, else 0.
VELM_API int operator>(const VELM_CString& a, const VELM_CString& b);
/// 1 when `a` does not sort after `b`, as by `strcmp`, else 0.
VELM_API int operator<=(const VELM_CString& a, const VELM_CString& b);
/// 1 when `a` does not sort before `b`, as by `strcmp`, else 0.
VELM_API int operator>=(const VELM_CString& a, const VELM_CString& b);

/// \cond
// A std::string or a std::string_view.
template <class TEXT> struct VELM_CIsText : std::false_type {
};
template <class TRAITS, class ALLOC> struct VELM_CIsText<std::basic_string<char, TRAITS, ALLOC>> : std::true_type {
};
#if __cplusplus >= 201703L
template <class TRAITS> struct VELM_CIsText<std::basic_string_view<char, TRAITS>> : std::true_type {
};
#endif
/// \endcond

/// Whether the whole texts are equal, NUL bytes included: of a string and a `std::string` or `std::string_view`.
template <class TEXT>
typename std::enable_if<VELM_CIsText<TEXT>::value, bool>::type operator==(const VELM_CString& a, const TEXT& b)
{
    const size_t nLength = static_cast<size_t>(a.m_len);
    return nLength == b.size() && (nLength == 0 || memcmp(a.m_data, b.data(), nLength) == 0);
}
/// \copydoc operator==(const VELM_CString&, const TEXT&)
template <class TEXT>
typename std::enable_if<VELM_CIsText<TEXT>::value, bool>::type operator==(const TEXT& a, const VELM_CString& b)
{
    return operator==(b, a);
}
/// Whether the whole texts differ.
template <class TEXT>
typename std::enable_if<VELM_CIsText<TEXT>::value, bool>::type operator!=(const VELM_CString& a, const TEXT& b)
{
    return !operator==(a, b);
}
/// \copydoc operator!=(const VELM_CString&, const TEXT&)
template <class TEXT>
typename std::enable_if<VELM_CIsText<TEXT>::value, bool>::type operator!=(const TEXT& a, const VELM_CString& b)
{
    return !operator==(b, a);
}

/// Prints the whole text, as a `std::string` is printed. A program's own operator, which is no template, is preferred.
template <class TRAITS>
std::basic_ostream<char, TRAITS>& operator<<(std::basic_ostream<char, TRAITS>& stream, const VELM_CString& str)
{
    return stream << std::basic_string<char, TRAITS>(str.m_data, static_cast<size_t>(str.m_len));
}

/// \}

namespace std {
/// The hash value of the text up to its first NUL, as `operator==` compares it.
/// \ingroup values
template <> struct hash<VELM_CString> {
    /// The hash value.
    size_t operator()(const VELM_CString& str) const noexcept
    {
        size_t nHash = 2166136261u;
        for (const char* p = str.m_data; *p != '\0'; ++p)
            nHash = (nHash ^ static_cast<unsigned char>(*p)) * 16777619u;
        return nHash;
    }
};
} // namespace std

#endif
