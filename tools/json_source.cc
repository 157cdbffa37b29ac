#include "json_source.h"

#include <nlohmann/json.hpp>

namespace {

typedef nlohmann::json Json;

class Source : public nlohmann::json_sax<Json> {
public:
    typedef std::function<void(const Record&, const std::string&, bool)> Take;
    Source(const Take& take, std::string& rError) : m_take(take), m_error(rError) {}

    bool null() override { return Value(Node::null); }
    bool boolean(bool b) override { return Value(Node::boolean, b); }
    bool number_integer(number_integer_t n) override
    {
        return Value(Node::integer, n < 0 ? 0 - static_cast<unsigned long long>(n) : static_cast<unsigned long long>(n),
                     n < 0);
    }
    bool number_unsigned(number_unsigned_t n) override { return Value(Node::integer, n); }
    bool number_float(number_float_t, const string_t& written) override
    {
        return Value(Node::real, 0, false, &written);
    }
    bool string(string_t& text) override { return Value(Node::text, 0, false, &text); }
    bool binary(binary_t&) override { return false; }
    bool key(string_t& name) override
    {
        if (m_nDepth == 1)
            m_top = name;
        m_name = name;
        return true;
    }
    bool start_object(std::size_t) override { return Begin(Node::object); }
    bool start_array(std::size_t) override { return Begin(Node::array); }
    bool end_object() override { return End(); }
    bool end_array() override { return End(); }
    bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception& e) override
    {
        const std::string text = e.what(); // behind the library's own mark
        const size_t nMark = text.find("] ");
        m_error = nMark == std::string::npos ? text : text.substr(nMark + 2);
        return false;
    }

private:
    const Take& m_take;
    std::string& m_error;
    std::string m_top, m_name;
    size_t m_nDepth = 0; // of what is open
    size_t m_nObjects = 0;
    Record m_record;
    std::vector<std::pair<uint32_t, uint32_t>> m_open; // nodes that are open, each with its last part so far

    // Whether a value that begins now is a record of its own.
    bool IsRecord() const { return (m_nDepth == 1 && m_top == "archive") || (m_nDepth == 2 && m_top == "objects"); }
    bool Refuse(const std::string& text)
    {
        m_error = text;
        return false;
    }

    // A new node of the record; 0 where none is collected.
    uint32_t Add(Node::Kind kind)
    {
        if (m_open.empty()) {
            if (!IsRecord())
                return 0;
            m_record.nodes.assign(1, Node());
            m_record.text.clear();
        }
        const uint32_t n = static_cast<uint32_t>(m_record.nodes.size());
        m_record.nodes.emplace_back();
        Node& node = m_record.nodes.back();
        node.kind = kind;
        if (m_open.empty())
            return n;
        Node& outer = m_record.nodes[m_open.back().first];
        (m_open.back().second == 0 ? outer.nFirst : m_record.nodes[m_open.back().second].nNext) = n;
        m_open.back().second = n;
        if (outer.kind == Node::object) {
            node.nName = m_record.text.size();
            node.nNameLength = m_name.size();
            m_record.text += m_name;
        }
        return n;
    }

    bool Value(Node::Kind kind, unsigned long long nAmount = 0, bool bBelow = false, const std::string* pText = nullptr)
    {
        if (m_nDepth == 0)
            return Refuse("expected an object with \"archive\" and \"objects\"");
        if (m_nDepth == 1 && (m_top == "archive" || m_top == "objects"))
            return Refuse(m_top + ": expected " + (m_top == "archive" ? "an object" : "an array"));
        if (m_open.empty() && IsRecord())
            return Refuse("objects[" + std::to_string(m_nObjects) + "]: expected an object");
        const uint32_t n = Add(kind);
        if (n == 0)
            return true;
        Node& node = m_record.nodes[n];
        node.nAmount = nAmount;
        node.bBelow = bBelow;
        if (pText != nullptr) {
            node.nText = m_record.text.size();
            node.nTextLength = pText->size();
            m_record.text += *pText;
        }
        return true;
    }

    bool Begin(Node::Kind kind)
    {
        if (m_nDepth == 0 && kind != Node::object)
            return Refuse("expected an object with \"archive\" and \"objects\"");
        const bool bObjects = m_nDepth == 1 && m_top == "objects";
        if ((bObjects && kind != Node::array) || (!bObjects && m_open.empty() && IsRecord() && kind != Node::object))
            return Refuse((m_nDepth == 1 ? m_top : "objects[" + std::to_string(m_nObjects) + "]") + ": expected " +
                          (bObjects ? "an array" : "an object"));
        if (const uint32_t n = bObjects ? 0 : Add(kind))
            m_open.emplace_back(n, 0);
        ++m_nDepth;
        return true;
    }

    bool End()
    {
        --m_nDepth;
        if (m_open.empty())
            return true;
        m_open.pop_back();
        if (m_open.empty()) {
            const bool bArchive = m_nDepth == 1;
            m_take(m_record, bArchive ? m_top : "objects[" + std::to_string(m_nObjects++) + "]", bArchive);
        }
        return true;
    }
};

} // namespace

bool ReadRecords(const char* pBegin, const char* pEnd, const Source::Take& take, std::string& rError)
{
    Source source(take, rError);
    return Json::sax_parse(pBegin, pEnd, &source);
}
