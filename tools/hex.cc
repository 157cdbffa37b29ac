// tavnoview hex: offset, bytes, path and value, line by line, for who writes a reader in another language.
#include "command.h"
#include "json_sink.h"

namespace {

class Lines : public Sink {
public:
    Lines(Reader& reader, Output& out) : m_reader(reader), m_out(out) {}

    void Plain(const Type& type, const Value& value) override
    {
        const unsigned long long nStart = m_reader.GetStart(), nEnd = m_reader.GetOffset();
        unsigned long long nAt = nStart;
        if (m_pRecord != nullptr) { // of a new class: tag, schema, length of the name, name
            Line(nAt, nAt + 4, "a new class, which gets index " + std::to_string(m_nRecord));
            Line(nAt + 4, nAt + 8, "  its schema: " + std::to_string(m_nSchema));
            Line(nAt + 8, nAt + 12, "  length of its name");
            Line(nAt + 12, nEnd, std::string("  its name: ") + m_pRecord);
            nAt = nEnd;
            m_pRecord = nullptr;
        }
        const size_t nMostShown = 1000;
        Output text;
        if (value.nLength > nMostShown)
            text.Format("%zu bytes", value.nLength);
        else
            JsonSink(text, JsonSink::compact).Plain(type, value);
        std::string meaning = text.Text();
        if (type.kind == Kind::reference && value.nObject != 0)
            meaning = Named(value.nObject) + (value.bNew ? ", which begins here" : ", again");
        Line(nAt, nEnd, meaning);
    }
    void Begin(const Type* pType, uint32_t nCount) override
    {
        if (pType == nullptr || m_reader.GetStart() == m_reader.GetOffset())
            return;
        Line(m_reader.GetStart(), m_reader.GetOffset(),
             pType->kind == Kind::optional  ? "is there"
             : pType->kind == Kind::variant ? "alternative " + std::to_string(nCount)
                                            : std::to_string(nCount) + " follow");
    }
    void Record(const char* lpszClass, unsigned nSchema) override
    {
        m_pRecord = lpszClass;
        m_nSchema = nSchema;
        m_nRecord = m_reader.GetObjects().size() - 1;
    }

private:
    static const unsigned nBytesShown = 12;
    Reader& m_reader;
    Output& m_out;
    const char* m_pRecord = nullptr; // a class record has been read, and not listed yet
    unsigned m_nSchema = 0;
    size_t m_nRecord = 0;

    std::string Named(uint32_t n) const { return m_reader.MetOf(n).pClass->name + "#" + std::to_string(n); }

    void Line(unsigned long long nFrom, unsigned long long nTo, const std::string& meaning)
    {
        const unsigned long long nBytes = nTo - nFrom;
        m_out.Format("%10llu  ", nFrom);
        for (unsigned i = 0; i < nBytesShown; ++i) {
            if (i < nBytes && (i + 1 < nBytesShown || nBytes == nBytesShown))
                m_out.Format("%02X ",
                             static_cast<unsigned>(static_cast<unsigned char>(m_reader.GetBytes()[nFrom + i])));
            else
                m_out.Put(i < nBytes ? ".. " : "   ");
        }
        const uint32_t nOwner = m_reader.GetOwner();
        const std::string path = m_reader.GetPath(false);
        m_out.Put(" " + (nOwner == 0 ? "" : Named(nOwner) + (path.empty() ? "" : ".")) + path + " = ");
        m_out.Put(meaning);
        m_out.Put('\n');
    }
};

} // namespace

int RunHex(const Arguments& arguments)
{
    Archive archive;
    Output out;
    if (!archive.Open(arguments, out))
        return trouble;
    Lines lines(*archive.m_pReader, out);
    const bool bWhole = archive.Scan(lines);
    return archive.Finish(out, bWhole);
}
