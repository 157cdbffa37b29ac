/// \file
/// String class of the companion library, as far as the template maps use it for their keys.
#ifndef TAVNOHOST_FXSTR_H
#define TAVNOHOST_FXSTR_H

#ifndef TAVNOHOST_API
#define TAVNOHOST_API __attribute__((visibility("default")))
#endif

/// An owned, NUL-terminated text. An empty string owns no memory. Exhausted memory raises 1 and changes nothing.
class TAVNOHOST_API fxStr {
public:
    /// A string of `nLength` blanks; 0 gives the empty string.
    explicit fxStr(unsigned nLength = 0);
    /// A copy of a text; NULL counts as the empty text.
    fxStr(const char* lpszText);
    /// A copy of a string.
    fxStr(const fxStr& src);
    ~fxStr();

    /// Takes a copy of the text; NULL counts as the empty text. The text may lie inside this string.
    fxStr& operator=(const char* lpszText);
    /// Takes a copy of the string.
    fxStr& operator=(const fxStr& src);

    /// The text; never NULL, valid until the string changes.
    operator char*() const { return m_data; }
    /// The number of characters.
    unsigned length() const { return m_length; }

private:
    char* m_data; // the shared empty text, or a block of malloc
    unsigned m_length;
};

/// Whether the string holds exactly this text; NULL counts as the empty text.
TAVNOHOST_API bool operator==(const fxStr& str, const char* lpszText);

#endif
