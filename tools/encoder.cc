#include "encoder.h"

#include <charconv>
#include <cstring>

#include "json_sink.h"

static const unsigned nMostNested = 1000; // values inside each other in one object

void Encoder::Fail(const Step* pAt, const std::string& text) const
{
    std::string path;
    for (; pAt != nullptr; pAt = pAt->pOuter)
        path = (pAt->pName != nullptr ? "." + *pAt->pName : "[" + std::to_string(pAt->nIndex) + "]") + path;
    throw WrongEdit{*m_pPath + path + ": " + text};
}

void Encoder::Encode(const Record& record, const Node& fields, const Aggregate& aggregate, unsigned nSchema,
                     const std::string& path)
{
    m_pRecord = &record;
    m_pPath = &path;
    m_variables.clear();
    m_nVariables = m_nNested = 0;
    PutFields(aggregate, fields, nullptr, nSchema);
}

const Node* Encoder::Member(const Node& node, const std::string& name, const Node*& rExpected) const
{
    const auto Is = [&](const Node* p) {
        return !p->bTaken && m_pRecord->text.compare(p->nName, p->nNameLength, name) == 0;
    };
    const Node* p = rExpected;
    if (p == nullptr || !Is(p)) { // the order in JSON is free
        p = m_pRecord->First(node);
        while (p != nullptr && !Is(p))
            p = m_pRecord->Next(*p);
    }
    if (p == nullptr)
        return nullptr;
    p->bTaken = true;
    rExpected = m_pRecord->Next(*p);
    return p;
}

void Encoder::PutFields(const Aggregate& aggregate, const Node& node, const Step* pAt, long long nSchema)
{
    if (node.kind != Node::object)
        Expected(pAt, "an object with fields");
    const size_t nOuter = m_nVariables, nOwn = m_variables.size();
    m_nVariables = nOwn;
    m_variables.resize(nOwn + aggregate.nVariables, 0);
    m_variables[nOwn] = nSchema;
    const Node* pExpected = m_pRecord->First(node);
    for (size_t i = 0; i < aggregate.items.size(); ++i) {
        const Item& item = aggregate.items[i];
        if (item.op == Item::jump || (item.op == Item::branch && item.pCondition->Evaluate(&m_variables[nOwn]) == 0)) {
            i = item.nTarget - size_t{1};
            continue;
        }
        if (item.op == Item::branch)
            continue;
        const Node* const pValue = Member(node, item.name, pExpected);
        const Step step = {pAt, &item.name, 0};
        if (pValue == nullptr)
            Fail(&step, "is missing");
        if (item.op == Item::version) {
            const unsigned long long nVersion = Integer(*pValue, 4, false, &step);
            if (nVersion > item.nNewest)
                Expected(&step, "a version up to " + std::to_string(item.nNewest));
            PutBits(nVersion, 4);
            m_variables[nOwn + static_cast<size_t>(item.nVariable)] = static_cast<long long>(nVersion);
            continue;
        }
        const long long nValue = Put(*item.pType, *pValue, &step);
        if (item.nVariable >= 0)
            m_variables[nOwn + static_cast<size_t>(item.nVariable)] = nValue;
    }
    for (const Node* p = m_pRecord->First(node); p != nullptr; p = m_pRecord->Next(*p)) {
        const std::string name = p->bTaken ? "" : m_pRecord->NameOf(*p);
        const Step step = {pAt, &name, 0};
        if (!p->bTaken)
            Fail(&step, "no such field is there by the description");
    }
    m_variables.resize(nOwn);
    m_nVariables = nOuter;
}

// Stores a value; delivers a number.
long long Encoder::Put(const Type& type, const Node& node, const Step* pAt)
{
    unsigned long long nBits = 0;
    const std::string text = node.kind == Node::text && !type.IsMade() ? m_pRecord->TextOf(node) : "";
    switch (type.kind) {
    case Kind::boolean:
        nBits = node.kind == Node::boolean ? node.nAmount : Integer(node, 1, false, pAt);
        break;
    case Kind::character:
        if (node.kind == Node::text && text.size() != 1)
            Expected(pAt, "one character or a number");
        nBits = node.kind == Node::text ? static_cast<unsigned char>(text[0]) : Integer(node, 1, false, pAt);
        break;
    case Kind::integer:
        nBits = Integer(node, type.nBytes, type.bSigned, pAt);
        break;
    case Kind::count:
        nBits = Integer(node, 4, false, pAt);
        m_ar.WriteCount(static_cast<unsigned long>(nBits));
        return static_cast<long long>(nBits);
    case Kind::time:
        if (node.kind != Node::text || !ParseTime(text, nBits))
            nBits = Integer(node, 8, true, pAt);
        break;
    case Kind::enumeration: {
        const Enumeration& enumeration = *type.pEnumeration;
        size_t i = 0;
        while (i < enumeration.values.size() && enumeration.values[i].first != text)
            ++i;
        if (i < enumeration.values.size() && node.kind == Node::text)
            nBits = static_cast<unsigned long long>(enumeration.values[i].second);
        else if (node.kind == Node::integer || enumeration.bOpen)
            nBits = Integer(node, type.nBytes, type.bSigned, pAt);
        else
            Expected(pAt, "a value of " + enumeration.name);
        if (!enumeration.bOpen && enumeration.NameOf(static_cast<long long>(nBits)) == nullptr)
            Expected(pAt, "a value of " + enumeration.name);
        break;
    }
    case Kind::real:
        PutReal(type, node, pAt);
        return 0;
    case Kind::nothing:
        if (node.kind != Node::null)
            Expected(pAt, "null");
        return 0;
    case Kind::reference:
    case Kind::mapped:
    case Kind::classReference:
        PutReference(type, node, pAt);
        return 0;
    default:
        if (!type.IsMade()) {
            PutText(type, node, pAt);
            return 0;
        }
        if (++m_nNested > nMostNested)
            Fail(pAt, "values are nested too deep");
        PutMade(type, node, pAt);
        --m_nNested;
        return 0;
    }
    PutBits(nBits, type.nBytes);
    return static_cast<long long>(nBits);
}

void Encoder::PutBits(unsigned long long nBits, unsigned nBytes)
{
    if (nBytes == 4) {
        m_ar.Store32(static_cast<uint32_t>(nBits));
        return;
    }
    for (; nBytes > 0; --nBytes, nBits >>= 8)
        m_ar << static_cast<unsigned char>(nBits);
}

// As a number, or in quotes.
unsigned long long Encoder::Integer(const Node& node, unsigned nBytes, bool bSigned, const Step* pAt) const
{
    unsigned long long nAmount = node.nAmount;
    bool bBelow = node.bBelow, bNumber = node.kind == Node::integer;
    if (node.kind == Node::text) {
        const std::string text = m_pRecord->TextOf(node);
        bBelow = text[0] == '-';
        const auto done = std::from_chars(text.data() + bBelow, text.data() + text.size(), nAmount);
        bNumber = done.ec == std::errc() && done.ptr == text.data() + text.size();
    }
    const unsigned nBits = 8 * nBytes - bSigned;
    const unsigned long long nMost = nBits == 64 ? ~0ULL : (1ULL << nBits) - 1;
    if (!bNumber || (bBelow ? !bSigned || nAmount > nMost + 1 : nAmount > nMost))
        Expected(pAt, std::string("an integer of ") + std::to_string(8 * nBytes) + " bits" +
                          (bSigned ? "" : ", not below 0"));
    return bBelow ? 0 - nAmount : nAmount;
}

void Encoder::PutReal(const Type& type, const Node& node, const Step* pAt)
{
    const std::string text =
        node.kind == Node::real || node.kind == Node::text ? m_pRecord->TextOf(node) : std::string();
    const char* const pEnd = text.data() + text.size();
    unsigned long long nBits = 0;
    bool bGood = true;
    if (text.compare(0, 5, "bits:") == 0 && node.kind == Node::text) {
        const auto done = std::from_chars(text.data() + 5, pEnd, nBits, 16);
        bGood = done.ec == std::errc() && done.ptr == pEnd && text.size() == 5 + 2 * type.nBytes;
    } else if (type.nBytes == 4) {
        float value = static_cast<float>(node.nAmount) * (node.bBelow ? -1.F : 1.F);
        bGood = node.kind == Node::integer ||
                (node.kind == Node::real && std::from_chars(text.data(), pEnd, value).ec == std::errc());
        uint32_t n;
        std::memcpy(&n, &value, sizeof n);
        nBits = n;
    } else {
        double value = static_cast<double>(node.nAmount) * (node.bBelow ? -1.0 : 1.0);
        bGood = node.kind == Node::integer ||
                (node.kind == Node::real && std::from_chars(text.data(), pEnd, value).ec == std::errc());
        std::memcpy(&nBits, &value, sizeof nBits);
    }
    if (!bGood)
        Expected(pAt, type.nBytes == 4 ? "a number that a float holds" : "a number that a double holds");
    PutBits(nBits, type.nBytes);
}

static int HexDigit(char c)
{
    return c >= '0' && c <= '9'   ? c - '0'
           : c >= 'a' && c <= 'f' ? c - 'a' + 10
           : c >= 'A' && c <= 'F' ? c - 'A' + 10
                                  : -1;
}

std::string Encoder::Hex(const Node& node, const Step* pAt) const
{
    std::string bytes;
    const std::string text = node.kind == Node::text ? m_pRecord->TextOf(node) : "?";
    for (size_t i = 0; i < text.size(); i += 2) {
        const int nHigh = HexDigit(text[i]), nLow = i + 1 < text.size() ? HexDigit(text[i + 1]) : -1;
        if (nHigh < 0 || nLow < 0)
            Expected(pAt, "bytes as pairs of hexadecimal digits");
        bytes += static_cast<char>(nHigh << 4 | nLow);
    }
    return bytes;
}

// A text, or {"hex": "..."}.
std::string Encoder::Text(const Node& node, const Step* pAt) const
{
    if (node.kind == Node::text)
        return m_pRecord->TextOf(node);
    const Node* const pHex = node.kind == Node::object ? m_pRecord->First(node) : nullptr;
    if (pHex == nullptr || m_pRecord->Next(*pHex) != nullptr || m_pRecord->NameOf(*pHex) != "hex")
        Expected(pAt, "a text");
    return Hex(*pHex, pAt);
}

void Encoder::PutLength(const Length& length, unsigned long long n, const Step* pAt)
{
    if (length.pPrefix == nullptr) {
        const long long nWanted = length.pExpression->Evaluate(&m_variables[m_nVariables]);
        if (nWanted < 0 || static_cast<unsigned long long>(nWanted) != n)
            Expected(pAt, "a length of " + std::to_string(nWanted) + ", not of " + std::to_string(n));
        return;
    }
    const Type& prefix = *length.pPrefix;
    const unsigned nBits = prefix.kind == Kind::count ? 32 : std::min(32U, 8 * prefix.nBytes - prefix.bSigned);
    if (n >> nBits != 0)
        Fail(pAt, "is too long");
    if (prefix.kind == Kind::count)
        m_ar.WriteCount(static_cast<unsigned long>(n));
    else
        PutBits(n, prefix.nBytes);
}

void Encoder::PutText(const Type& type, const Node& node, const Step* pAt)
{
    if (type.kind == Kind::wideString) {
        PutWide(type, node, pAt);
        return;
    }
    const bool bHex = type.kind == Kind::bytes || type.kind == Kind::rest;
    std::string text = bHex ? Hex(node, pAt) : Text(node, pAt);
    if (type.kind == Kind::line) {
        const size_t nEnd = text.find_first_of("\r\n");
        if (nEnd != std::string::npos && nEnd + (text[nEnd] == '\n' ? 1U : 2U) < text.size())
            Expected(pAt, "one line of text");
    } else if (type.kind == Kind::bitset) {
        if (text.size() != type.nBytes || text.find_first_not_of("01") != std::string::npos)
            Expected(pAt, std::to_string(type.nBytes) + " digits 0 or 1");
        std::string bytes((type.nBytes + 7) / 8, '\0');
        for (size_t i = 0; i < text.size(); ++i) {
            char& rByte = bytes[(text.size() - 1 - i) / 8];
            rByte = static_cast<char>(rByte | (text[i] - '0') << (text.size() - 1 - i) % 8);
        }
        text.swap(bytes);
    } else if (type.kind == Kind::string) {
        if (text.size() > 0xFFFFFFFF)
            Fail(pAt, "is too long");
        m_ar.StorePrefixed(text.data(), static_cast<unsigned long>(text.size()));
        return;
    } else if (type.kind != Kind::rest) {
        PutLength(type.length, text.size(), pAt);
    }
    m_ar.StoreBlock(text.data(), static_cast<unsigned long>(text.size()));
}

void Encoder::PutWide(const Type& type, const Node& node, const Step* pAt)
{
    std::vector<uint32_t> units;
    if (node.kind == Node::array) {
        for (const Node* p = m_pRecord->First(node); p != nullptr; p = m_pRecord->Next(*p)) {
            const Step step = {pAt, nullptr, units.size()};
            units.push_back(static_cast<uint32_t>(Integer(*p, type.nBytes, false, &step)));
        }
    }
    const std::string text = node.kind == Node::array ? "" : Text(node, pAt);
    if (!IsUtf8(text.data(), text.size()))
        Expected(pAt, "a text of Unicode characters");
    for (size_t i = 0; i < text.size();) {
        const unsigned nLead = static_cast<unsigned char>(text[i++]);
        const int nMore = nLead < 0x80 ? 0 : nLead < 0xE0 ? 1 : nLead < 0xF0 ? 2 : 3;
        uint32_t n = nMore == 0 ? nLead : nLead & (0x3FU >> nMore);
        for (int k = 0; k < nMore; ++k)
            n = n << 6 | (static_cast<unsigned char>(text[i++]) & 0x3FU);
        if (type.nBytes == 2 && n >= 0x10000) {
            units.push_back(0xD800 + ((n - 0x10000) >> 10));
            n = 0xDC00 + ((n - 0x10000) & 0x3FF);
        }
        units.push_back(n);
    }
    m_ar.WriteCount(static_cast<unsigned long>(units.size()));
    for (const uint32_t nUnit : units)
        PutBits(nUnit, type.nBytes);
}

void Encoder::PutReference(const Type& type, const Node& node, const Step* pAt)
{
    Referred referred = {m_ar.GetOffset(), &type, 0, 0, nullptr};
    if (type.kind == Kind::classReference) {
        const Node* pExpected = nullptr;
        const Node* const pClass = node.kind == Node::object ? Member(node, "class", pExpected) : nullptr;
        const Node* const pSchema = node.kind == Node::object ? Member(node, "schema", pExpected) : nullptr;
        if (pClass == nullptr || pSchema == nullptr)
            Expected(pAt, "{\"class\": ..., \"schema\": ...}");
        referred.pClass = m_description.FindClass(m_pRecord->TextOf(*pClass));
        referred.nSchema = static_cast<uint32_t>(Integer(*pSchema, 4, false, pAt));
        if (referred.pClass == nullptr || referred.nSchema > referred.pClass->record.m_nSchema)
            Expected(pAt, "a class of the description, with a schema that it has had");
    } else if (node.kind != Node::null) {
        const unsigned long long nObject = node.kind == Node::integer ? Integer(node, 4, false, pAt) : 0;
        if (nObject == 0 || nObject >= VELM_CArchive::nIndexLimit)
            Expected(pAt, "null or the index of an object");
        referred.nObject = static_cast<uint32_t>(nObject);
    }
    if (type.kind == Kind::mapped && referred.nObject == 0)
        Expected(pAt, "the index that the object gets");
    if (m_nReferences++ == m_nWatched)
        Fail(pAt, m_watched);
    std::fwrite(&referred, sizeof referred, 1, m_pReferred);
}

// As many parts as there must be.
void Encoder::NeedParts(const Node& node, unsigned long long nCount, const Step* pAt) const
{
    unsigned long long n = 0;
    for (const Node* p = m_pRecord->First(node); p != nullptr; p = m_pRecord->Next(*p))
        ++n;
    if (node.kind != Node::array || n != nCount)
        Expected(pAt, "an array of " + std::to_string(nCount));
}

void Encoder::PutMade(const Type& type, const Node& node, const Step* pAt)
{
    const Node* const pFirst = m_pRecord->First(node);
    if (type.kind == Kind::aggregate) {
        PutFields(*type.pAggregate, node, pAt, m_variables[m_nVariables]);
    } else if (type.kind == Kind::optional) {
        PutBits(node.kind != Node::null, 1);
        const bool bMarked = type.parts[0]->MayBeNull();
        if (node.kind != Node::null && bMarked)
            NeedParts(node, 1, pAt);
        if (node.kind != Node::null)
            Put(*type.parts[0], bMarked ? *pFirst : node, pAt);
    } else if (type.kind == Kind::variant) {
        NeedParts(node, 2, pAt);
        const unsigned long long n = Integer(*pFirst, 4, false, pAt);
        if (n >= type.parts.size())
            Expected(pAt, "an alternative below " + std::to_string(type.parts.size()));
        m_ar.WriteCount(static_cast<unsigned long>(n));
        Put(*type.parts[static_cast<size_t>(n)], *m_pRecord->Next(*pFirst), pAt);
    } else {
        if (node.kind != Node::array)
            Expected(pAt, "an array");
        unsigned long long nCount = 0;
        for (const Node* p = pFirst; p != nullptr; p = m_pRecord->Next(*p))
            ++nCount;
        if (type.kind == Kind::sequence)
            PutLength(type.length, nCount, pAt);
        else
            NeedParts(node, type.parts.size(), pAt);
        Step step = {pAt, nullptr, 0};
        for (const Node* p = pFirst; p != nullptr; p = m_pRecord->Next(*p), ++step.nIndex)
            Put(*type.parts[type.kind == Kind::tuple ? step.nIndex : 0], *p, &step);
    }
}
