// tavnoview json: what the archive holds itself, then its objects by their indexes.
#include <unistd.h>

#include "command.h"
#include "json_sink.h"

namespace {

// Notes which objects are referred to.
class References : public Sink {
public:
    std::vector<uint32_t> m_objects;
    void Plain(const Type& type, const Value& value) override
    {
        if (type.kind == Kind::reference && value.nObject != 0)
            m_objects.push_back(value.nObject);
    }
};

// Marks what is so many references from the object, or from the archive itself for 0.
std::vector<bool> Near(Reader& reader, uint32_t nFrom, long nDepth)
{
    std::vector<bool> near(reader.GetObjects().size());
    References next;
    if (nFrom == 0)
        reader.ShowArchive(next);
    else
        next.m_objects.push_back(nFrom);
    for (long i = 0; i <= nDepth && !next.m_objects.empty(); ++i) {
        std::vector<uint32_t> now;
        now.swap(next.m_objects);
        for (const uint32_t nObject : now) {
            if (near[nObject] || !reader.IsObject(nObject))
                continue;
            near[nObject] = true;
            if (i < nDepth)
                reader.ShowObject(nObject, next);
        }
    }
    return near;
}

} // namespace

void WriteMembers(Reader& reader, JsonSink& json, const std::function<bool(uint32_t)>& wanted, bool bArchive)
{
    if (bArchive) {
        json.Member("archive");
        reader.ShowArchive(json);
        json.CloseTo(1);
    }
    json.Member("objects");
    json.Open('[');
    for (uint32_t i = 1; i < reader.GetObjects().size(); ++i) {
        if (!reader.IsObject(i) || !wanted(i))
            continue;
        json.Open('{');
        json.Member("index");
        json.Number(i);
        json.Member("class");
        json.Text(reader.MetOf(i).pClass->name);
        json.Member("schema");
        json.Number(reader.MetOf(i).nSchema);
        json.Member("fields");
        reader.ShowObject(i, json);
        json.CloseTo(2);
    }
    json.Close();
}

int RunJson(const Arguments& arguments)
{
    Archive archive;
    Output out;
    if (!archive.Open(arguments, out))
        return trouble;
    Reader& reader = *archive.m_pReader;
    Sink silent;
    const bool bWhole = archive.Scan(silent);
    if (arguments.nObject != 0 && !reader.IsObject(arguments.nObject))
        return Trouble(archive.m_input.m_path + ": there is no object " + std::to_string(arguments.nObject));
    const uint32_t nOnly = static_cast<uint32_t>(arguments.nObject);
    const bool bSome = nOnly != 0 || arguments.nDepth >= 0;
    std::vector<bool> near;
    if (bSome)
        near = Near(reader, nOnly, std::max(arguments.nDepth, 0L));

    const bool bTerminal = arguments.output.empty() && isatty(1) != 0;
    JsonSink json(out, bTerminal ? JsonSink::coloured : JsonSink::compact);
    json.m_bLines = true;
    json.Open('{');
    Progress progress(archive.m_input.GetSize());
    const auto Wanted = [&](uint32_t i) {
        progress.Show(reader.GetObjects()[i].nStart);
        return (!bSome || near[i]) && (arguments.select.empty() || reader.MetOf(i).pClass->name == arguments.select);
    };
    WriteMembers(reader, json, Wanted, nOnly == 0 && arguments.select.empty());
    if (!bWhole) {
        json.Member("error");
        json.Text(reader.GetError());
    }
    json.Close();
    out.Put("\n");
    return archive.Finish(out, bWhole);
}
