/// \file
/// A stand-in for the string class of the host's companion library, with what the template maps need for their keys.
#ifndef TAVNOHOST_FXSTR_H
#define TAVNOHOST_FXSTR_H

#ifndef TAVNOHOST_API
#define TAVNOHOST_API __attribute__((visibility("default")))
#endif

/// A NUL-terminated text, which the string owns. An empty string owns no memory. Exhausted memory raises 1 and changes
/// nothing.
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

    /// The text: never NULL, and valid until the string changes. It belongs to the string.
    operator char*() const { return m_data; }
    /// The number of characters.
    unsigned length() const { return m_length; }

private:
    char* m_data; // a block of malloc; or the empty text that all empty strings share
    unsigned m_length;
};

/// Whether the string holds exactly this text; NULL counts as the empty text.
TAVNOHOST_API bool operator==(const fxStr& str, const char* lpszText);

#endif
