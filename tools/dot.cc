// tavnoview dot: the objects and their references as a picture for Graphviz.
#include "command.h"
#include "json_sink.h"

namespace {

// What a picture shows of an object: its references by their fields, and its first text.
class Node : public Sink {
public:
    std::vector<std::pair<uint32_t, std::string>> m_references;
    std::string m_label;
    void Name(const std::string& name) override { m_name = name; }
    void Plain(const Type& type, const Value& value) override
    {
        if (type.kind == Kind::reference && value.nObject != 0)
            m_references.emplace_back(value.nObject, m_name);
        else if (type.kind == Kind::string && m_label.empty() && IsUtf8(value.pText, value.nLength))
            m_label.assign(value.pText, std::min<size_t>(value.nLength, 60));
    }

private:
    std::string m_name;
};

// In quotes, as the language has them; what is no printable character is left out.
std::string Quoted(const std::string& text)
{
    std::string quoted = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\')
            quoted += '\\';
        if (static_cast<unsigned char>(c) >= 0x20 && c != 0x7F)
            quoted += c;
    }
    return quoted + "\"";
}

} // namespace

int RunDot(const Arguments& arguments)
{
    Archive archive;
    Output out;
    if (!archive.Open(arguments, out))
        return trouble;
    Reader& reader = *archive.m_pReader;
    Sink silent;
    const bool bWhole = archive.Scan(silent);
    const uint32_t nCentre = static_cast<uint32_t>(arguments.nAround);
    if (arguments.nAround != 0 && !reader.IsObject(arguments.nAround))
        return Trouble(archive.m_input.m_path + ": there is no object " + std::to_string(arguments.nAround));
    const uint32_t nEnd = static_cast<uint32_t>(reader.GetObjects().size());
    std::vector<bool> shown(nEnd, nCentre == 0);
    for (uint32_t i = 1; i < nEnd && nCentre != 0; ++i) {
        if (!reader.IsObject(i))
            continue;
        Node node;
        reader.ShowObject(i, node);
        for (const auto& reference : node.m_references) {
            if (i == nCentre)
                shown[reference.first] = true;
            if (reference.first == nCentre)
                shown[i] = true;
        }
        shown[nCentre] = true;
    }
    out.Put("digraph {\n  rankdir=LR\n  node [shape=box, style=rounded, fontname=\"sans-serif\"]\n");
    for (uint32_t i = 1; i < nEnd; ++i) {
        if (!shown[i] || reader.GetObjects()[i].nWhat == Reader::Object::cls)
            continue;
        Node node;
        if (reader.IsObject(i))
            reader.ShowObject(i, node);
        const std::string label =
            reader.MetOf(i).pClass->name + "#" + std::to_string(i) + (node.m_label.empty() ? "" : " " + node.m_label);
        out.Put("  " + std::to_string(i) + " [label=" + Quoted(label) +
                (i == nCentre ? ", style=\"rounded,filled\", fillcolor=gold]\n" : "]\n"));
        for (const auto& reference : node.m_references) {
            if (shown[reference.first])
                out.Put("  " + std::to_string(i) + " -> " + std::to_string(reference.first) +
                        " [label=" + Quoted(reference.second) + "]\n");
        }
    }
    out.Put("}\n");
    return archive.Finish(out, bWhole);
}
