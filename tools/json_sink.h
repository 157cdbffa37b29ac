// Values as strict JSON: what a walk tells becomes text, or what has been told when it ends early.
//
// What JSON has no form for: docs/description.md says how it is written, and json_source.cc reads it back.
#ifndef TAVNOVIEW_JSON_SINK_H
#define TAVNOVIEW_JSON_SINK_H

#include "output.h"
#include "reader.h"

// A text in quotes, or {"hex": "..."} where it is not UTF-8.
void PutJsonText(Output& out, const char* p, size_t n);
bool IsUtf8(const char* p, size_t n);
// "2026-11-23T21:16:44Z"; empty for a year that has no four digits.
std::string TimeText(long long nSeconds);
// Reads such a text; false where it is none.
bool ParseTime(const std::string& text, unsigned long long& rSeconds);

class JsonSink : public Sink {
public:
    enum Style { compact, pretty, coloured };
    bool m_bLines = false; // compact: the members of what is outermost, and the parts of these, each on its own line
    // bTagged: references as {"ref": n}, for readers without the description.
    JsonSink(Output& out, Style style, bool bTagged = false) : m_out(out), m_style(style), m_bTagged(bTagged) {}

    void Name(const std::string& name) override { m_pName = &name; }
    void Plain(const Type& type, const Value& value) override;
    void Begin(const Type* pType, uint32_t nCount) override;
    void End(const Type* pType) override;

    // For what stands around the values.
    void Member(const char* lpszName) { m_name = lpszName, m_pName = &m_name; }
    void Open(char c);
    void Close();
    void Number(unsigned long long n);
    void Text(const std::string& text);
    // Ends what is begun, down to that depth: a walk has ended early.
    void CloseTo(size_t nDepth);
    size_t GetDepth() const { return m_open.size(); }

private:
    Output& m_out;
    Style m_style;
    bool m_bTagged;
    std::string m_open; // what closes what is open; a blank for nothing
    bool m_bFirst = true;
    const std::string* m_pName = nullptr; // of the value that comes next
    std::string m_name;

    void Before();
    void NewLine();
    void Colour(const char* lpszCode);
    void PutScalar(const Type& type, const Value& value);
    void PutInteger(const Type& type, unsigned long long nBits);
    void PutReal(const Type& type, unsigned long long nBits);
    void PutWide(const Type& type, const Value& value);
    void PutBits(const Type& type, const Value& value);
};

// Of an archive that has been scanned: the members "archive" and "objects", with the objects that are wanted.
void WriteMembers(Reader& reader, JsonSink& json, const std::function<bool(uint32_t)>& wanted, bool bArchive);

#endif
