// One record of JSON as the bytes that a program would store, by the description. What it refers to is noted beside
// the bytes: indexes come only when all is put together.
#ifndef TAVNOVIEW_ENCODER_H
#define TAVNOVIEW_ENCODER_H

#include <cstdio>

#include "description.h"
#include "json_source.h"

// A wrong edit: its place in the JSON, and what was expected.
struct WrongEdit {
    std::string text;
};

// Stands between bytes: an object, a class, or one that the program maps.
struct Referred {
    unsigned long long nAt; // bytes before it
    const Type* pType;
    uint32_t nObject; // as the JSON numbers them
    uint32_t nSchema; // of a class reference
    const Aggregate* pClass;
};

class Encoder {
public:
    // To `ar`; the references to the file.
    Encoder(const Description& description, VELM_CArchive& ar, std::FILE* pReferred)
        : m_description(description), m_ar(ar), m_pReferred(pReferred)
    {
    }
    // The fields of an aggregate. Throws WrongEdit.
    void Encode(const Record& record, const Node& fields, const Aggregate& aggregate, unsigned nSchema,
                const std::string& path);
    unsigned long long GetReferences() const { return m_nReferences; }
    // Asks for the path of that reference: it is thrown with the text.
    void WatchFor(unsigned long long nReference, const std::string& text)
    {
        m_nWatched = nReference;
        m_watched = text;
    }

private:
    // The way to a value.
    struct Step {
        const Step* pOuter;
        const std::string* pName; // or NULL, and
        size_t nIndex;
    };
    const Description& m_description;
    VELM_CArchive& m_ar;
    std::FILE* m_pReferred;
    unsigned long long m_nReferences = 0, m_nWatched = ~0ULL;
    std::string m_watched;
    const Record* m_pRecord = nullptr;
    const std::string* m_pPath = nullptr;
    std::vector<long long> m_variables;
    size_t m_nVariables = 0; // where those of the innermost aggregate begin
    unsigned m_nNested = 0;

    [[noreturn]] void Fail(const Step* pAt, const std::string& text) const;
    [[noreturn]] void Expected(const Step* pAt, const std::string& what) const { Fail(pAt, "expected " + what); }
    void PutFields(const Aggregate& aggregate, const Node& node, const Step* pAt, long long nSchema);
    long long Put(const Type& type, const Node& node, const Step* pAt);
    void PutMade(const Type& type, const Node& node, const Step* pAt);
    void PutText(const Type& type, const Node& node, const Step* pAt);
    void PutReference(const Type& type, const Node& node, const Step* pAt);
    void PutReal(const Type& type, const Node& node, const Step* pAt);
    void PutWide(const Type& type, const Node& node, const Step* pAt);
    void PutBits(unsigned long long nBits, unsigned nBytes);
    void PutLength(const Length& length, unsigned long long n, const Step* pAt);
    unsigned long long Integer(const Node& node, unsigned nBytes, bool bSigned, const Step* pAt) const;
    std::string Text(const Node& node, const Step* pAt) const;
    std::string Hex(const Node& node, const Step* pAt) const;
    void NeedParts(const Node& node, unsigned long long nCount, const Step* pAt) const;
    const Node* Member(const Node& node, const std::string& name, const Node*& rExpected) const;
};

#endif
