#include "json_sink.h"

#include <charconv>
#include <cmath>
#include <cstring>

bool IsUtf8(const char* p, size_t n)
{
    const unsigned char* s = reinterpret_cast<const unsigned char*>(p);
    for (size_t i = 0; i < n;) {
        if (s[i] < 0x80) {
            ++i;
            continue;
        }
        const size_t nMore = s[i] >= 0xF0 ? 3 : s[i] >= 0xE0 ? 2 : 1;
        if (s[i] < 0xC2 || s[i] > 0xF4 || n - i <= nMore)
            return false;
        for (size_t k = 1; k <= nMore; ++k) {
            if ((s[i + k] & 0xC0) != 0x80)
                return false;
        }
        const unsigned nSecond = s[i + 1]; // overlong forms, surrogates, and what is above the last code point
        if ((s[i] == 0xE0 && nSecond < 0xA0) || (s[i] == 0xED && nSecond >= 0xA0) || (s[i] == 0xF0 && nSecond < 0x90) ||
            (s[i] == 0xF4 && nSecond >= 0x90))
            return false;
        i += nMore + 1;
    }
    return true;
}

static void PutHex(Output& out, const char* p, size_t n)
{
    out.Put('"');
    for (size_t i = 0; i < n; ++i) {
        const char two[] = {"0123456789abcdef"[static_cast<unsigned char>(p[i]) >> 4],
                            "0123456789abcdef"[static_cast<unsigned char>(p[i]) & 15]};
        out.Put(two, 2);
    }
    out.Put('"');
}

// "<" is escaped as well, so that the text can stand inside a page.
static void PutQuoted(Output& out, const char* p, size_t n)
{
    out.Put('"');
    for (size_t i = 0; i < n;) {
        size_t nPlain = i;
        while (nPlain < n && static_cast<unsigned char>(p[nPlain]) >= 0x20 && p[nPlain] != '"' && p[nPlain] != '\\' &&
               p[nPlain] != '<' && p[nPlain] != '\x7F')
            ++nPlain;
        out.Put(p + i, nPlain - i);
        i = nPlain;
        if (i == n)
            break;
        if (p[i] == '"' || p[i] == '\\')
            out.Put('\\'), out.Put(p[i]);
        else if (p[i] == '\n')
            out.Put("\\n");
        else
            out.Format("\\u%04x", static_cast<unsigned>(p[i]));
        ++i;
    }
    out.Put('"');
}

void PutJsonText(Output& out, const char* p, size_t n)
{
    if (IsUtf8(p, n)) {
        PutQuoted(out, p, n);
        return;
    }
    out.Put("{\"hex\":");
    PutHex(out, p, n);
    out.Put('}');
}

// Days since 1970 to the date, by the calendar's cycle of 400 years, which begin in March.
std::string TimeText(long long nSeconds)
{
    if (nSeconds < -62167219200LL || nSeconds > 253402300799LL)
        return "";
    const long long nDays = (nSeconds + 62167219200LL) / 86400 - 719528, nOfDay = nSeconds - nDays * 86400;
    const long long nShifted = nDays + 719468, nEra = (nShifted >= 0 ? nShifted : nShifted - 146096) / 146097;
    const long long nOfEra = nShifted - nEra * 146097;
    const long long nYear = (nOfEra - nOfEra / 1460 + nOfEra / 36524 - nOfEra / 146096) / 365;
    const long long nOfYear = nOfEra - (365 * nYear + nYear / 4 - nYear / 100), nMonth = (5 * nOfYear + 2) / 153;
    char text[80];
    std::snprintf(text, sizeof text, "%04lld-%02lld-%02lldT%02lld:%02lld:%02lldZ", nYear + nEra * 400 + (nMonth >= 10),
                  nMonth < 10 ? nMonth + 3 : nMonth - 9, nOfYear - (153 * nMonth + 2) / 5 + 1, nOfDay / 3600,
                  nOfDay / 60 % 60, nOfDay % 60);
    return text;
}

bool ParseTime(const std::string& text, unsigned long long& rSeconds)
{
    int nYear, nMonth, nDay, nHour, nMinute, nSecond;
    if (std::sscanf(text.c_str(), "%4d-%2d-%2dT%2d:%2d:%2dZ", &nYear, &nMonth, &nDay, &nHour, &nMinute, &nSecond) != 6)
        return false;
    const long long nShifted = nMonth > 2 ? nYear : nYear - 1, nEra = (nShifted >= 0 ? nShifted : nShifted - 399) / 400;
    const long long nOfEra = nShifted - nEra * 400;
    const long long nOfYear = (153 * (nMonth > 2 ? nMonth - 3 : nMonth + 9) + 2) / 5 + nDay - 1;
    const long long nDays = nEra * 146097 + nOfEra * 365 + nOfEra / 4 - nOfEra / 100 + nOfYear - 719468;
    const long long nSeconds = nDays * 86400 + nHour * 3600 + nMinute * 60 + nSecond;
    rSeconds = static_cast<unsigned long long>(nSeconds);
    return TimeText(nSeconds) == text; // so that a 31st of February is none
}

void JsonSink::Colour(const char* lpszCode)
{
    if (m_style == coloured)
        m_out.Put(lpszCode);
}

void JsonSink::NewLine()
{
    m_out.Put('\n');
    if (m_style == compact)
        return;
    for (const char c : m_open) {
        if (c != ' ')
            m_out.Put("  ");
    }
}

void JsonSink::Before()
{
    if (!m_bFirst)
        m_out.Put(',');
    if (m_style != compact ? !m_open.empty() : m_bLines && (m_open.size() == 2 || (m_open.size() == 1 && !m_bFirst)))
        NewLine();
    m_bFirst = false;
    if (m_pName == nullptr)
        return;
    Colour("\033[34;1m");
    PutQuoted(m_out, m_pName->data(), m_pName->size());
    Colour("\033[0m");
    m_out.Put(m_style == compact ? ":" : ": ");
    m_pName = nullptr;
}

void JsonSink::Open(char c)
{
    m_open += c == '{' ? '}' : c == '[' ? ']' : ' ';
    if (c == ' ')
        return;
    const char closing = m_open.back();
    m_open.pop_back(); // what is before it belongs to what is around it
    Before();
    m_open += closing;
    m_out.Put(c);
    m_bFirst = true;
}

void JsonSink::Close()
{
    const char c = m_open.back();
    m_open.pop_back();
    m_pName = nullptr;
    if (c == ' ')
        return;
    if (!m_bFirst && (m_style != compact || (m_bLines && m_open.size() == 1)))
        NewLine();
    m_out.Put(c);
    m_bFirst = false;
}

void JsonSink::CloseTo(size_t nDepth)
{
    while (m_open.size() > nDepth)
        Close();
}

void JsonSink::Number(unsigned long long n)
{
    Before();
    m_out.Put(n);
}

void JsonSink::Text(const std::string& text)
{
    Before();
    Colour("\033[32m");
    PutJsonText(m_out, text.data(), text.size());
    Colour("\033[0m");
}

void JsonSink::Begin(const Type* pType, uint32_t nCount)
{
    if (pType == nullptr || pType->kind == Kind::aggregate)
        Open('{');
    else
        Open(pType->kind == Kind::optional && !pType->parts[0]->MayBeNull() ? ' ' : '[');
    if (pType != nullptr && pType->kind == Kind::variant)
        Number(nCount);
}

void JsonSink::End(const Type*)
{
    Close();
}

void JsonSink::Plain(const Type& type, const Value& value)
{
    Before();
    const bool bText = type.kind == Kind::string || type.kind == Kind::line || type.kind == Kind::chars;
    if (bText)
        Colour("\033[32m");
    PutScalar(type, value);
    if (bText)
        Colour("\033[0m");
}

void JsonSink::PutScalar(const Type& type, const Value& value)
{
    const char c = static_cast<char>(value.nBits);
    const std::string* pName;
    switch (type.kind) {
    case Kind::boolean:
        if (value.nBits > 1)
            m_out.Put(value.nBits);
        else
            m_out.Put(value.nBits != 0 ? "true" : "false");
        break;
    case Kind::character:
        if (c >= 0x20 && c < 0x7F)
            PutQuoted(m_out, &c, 1);
        else
            m_out.Put(value.nBits);
        break;
    case Kind::integer:
    case Kind::count:
        PutInteger(type, value.nBits);
        break;
    case Kind::real:
        PutReal(type, value.nBits);
        break;
    case Kind::time: {
        const std::string text = TimeText(static_cast<long long>(value.nBits));
        if (text.empty())
            PutInteger(type, value.nBits);
        else
            PutQuoted(m_out, text.data(), text.size());
        break;
    }
    case Kind::enumeration:
        pName = type.pEnumeration->NameOf(static_cast<long long>(value.nBits));
        if (pName == nullptr)
            PutInteger(type, value.nBits);
        else
            PutQuoted(m_out, pName->data(), pName->size());
        break;
    case Kind::string:
    case Kind::line:
    case Kind::chars:
        PutJsonText(m_out, value.pText, value.nLength);
        break;
    case Kind::wideString:
        PutWide(type, value);
        break;
    case Kind::bytes:
    case Kind::rest:
        PutHex(m_out, value.pText, value.nLength);
        break;
    case Kind::bitset:
        PutBits(type, value);
        break;
    case Kind::reference:
    case Kind::mapped:
        if (value.nObject == 0) {
            m_out.Put("null");
            break;
        }
        m_out.Put(m_bTagged ? "{\"ref\":" : "");
        m_out.Put(static_cast<unsigned long long>(value.nObject));
        m_out.Put(m_bTagged ? "}" : "");
        break;
    case Kind::classReference:
        m_out.Put("{\"class\":");
        PutQuoted(m_out, value.lpszClass, std::strlen(value.lpszClass));
        m_out.Format(",\"schema\":%u}", value.nSchema);
        break;
    default:
        m_out.Put("null");
    }
}

// Beyond 2^53 in quotes: many readers take numbers for doubles.
void JsonSink::PutInteger(const Type& type, unsigned long long nBits)
{
    const bool bBelow = type.bSigned && static_cast<long long>(nBits) < 0;
    const unsigned long long nAmount = bBelow ? 0 - nBits : nBits;
    const bool bQuoted = nAmount > 1ULL << 53;
    if (bQuoted)
        m_out.Put('"');
    if (bBelow)
        m_out.Put('-');
    m_out.Put(nAmount);
    if (bQuoted)
        m_out.Put('"');
}

// The shortest text that gives the very number again; what is none, by its bits.
void JsonSink::PutReal(const Type& type, unsigned long long nBits)
{
    char text[40];
    float single;
    double value;
    const uint32_t nLow = static_cast<uint32_t>(nBits);
    std::memcpy(&single, &nLow, sizeof single);
    std::memcpy(&value, &nBits, sizeof value);
    const bool bSingle = type.nBytes == 4;
    const bool bNumber = bSingle ? (nBits >> 23 & 0xFF) != 0xFF : (nBits >> 52 & 0x7FF) != 0x7FF;
    if (!bNumber) {
        std::snprintf(text, sizeof text, "\"bits:%0*llx\"", static_cast<int>(2 * type.nBytes), nBits);
        m_out.Put(text);
    } else if (nBits == 1ULL << (8 * type.nBytes - 1)) {
        m_out.Put("-0.0");
    } else {
        const auto done =
            bSingle ? std::to_chars(text, text + sizeof text, single) : std::to_chars(text, text + sizeof text, value);
        m_out.Put(text, static_cast<size_t>(done.ptr - text));
    }
}

// As UTF-8, where the units are text; else the numbers of the units.
void JsonSink::PutWide(const Type& type, const Value& value)
{
    const unsigned char* const p = reinterpret_cast<const unsigned char*>(value.pText);
    const size_t nUnits = value.nLength / type.nBytes;
    const auto Unit = [&](size_t i) {
        uint32_t nUnit = 0;
        for (unsigned k = type.nBytes; k-- > 0;)
            nUnit = nUnit << 8 | p[i * type.nBytes + k];
        return nUnit;
    };
    std::string text;
    bool bText = true;
    for (size_t i = 0; i < nUnits && bText; ++i) {
        uint32_t n = Unit(i);
        if (type.nBytes == 2 && n >= 0xD800 && n < 0xDC00 && i + 1 < nUnits && Unit(i + 1) >> 10 == 0x37)
            n = 0x10000 + ((n & 0x3FF) << 10) + (Unit(++i) & 0x3FF);
        bText = n <= 0x10FFFF && n >> 11 != 0x1B;
        const auto Add = [&](uint32_t nByte) { text += static_cast<char>(nByte); };
        if (n < 0x80) {
            Add(n);
            continue;
        }
        const int nMore = n < 0x800 ? 1 : n < 0x10000 ? 2 : 3;
        static const uint32_t leads[] = {0, 0xC0, 0xE0, 0xF0};
        Add(leads[nMore] | n >> 6 * nMore);
        for (int k = nMore; k-- > 0;)
            Add(0x80 | (n >> 6 * k & 0x3F));
    }
    if (bText) {
        PutQuoted(m_out, text.data(), text.size());
        return;
    }
    m_out.Put('[');
    for (size_t i = 0; i < nUnits; ++i) {
        m_out.Put(i == 0 ? "" : ",");
        m_out.Put(static_cast<unsigned long long>(Unit(i)));
    }
    m_out.Put(']');
}

void JsonSink::PutBits(const Type& type, const Value& value)
{
    m_out.Put('"');
    for (unsigned i = type.nBytes; i-- > 0;)
        m_out.Put(value.pText[i / 8] >> i % 8 & 1 ? '1' : '0');
    m_out.Put('"');
}
