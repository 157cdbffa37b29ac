// tavnoview html: the archive as JSON inside a page that shows it. The page is page.html, in which the data replaces a
// mark; texts are escaped so that none can end the element that they stand in.
#include <cstring>

#include "command.h"
#include "json_sink.h"
#include "page.h" // made of page.html

int RunHtml(const Arguments& arguments)
{
    Archive archive;
    Output out;
    if (arguments.output.empty())
        return Trouble("html needs -o PAGE");
    if (!archive.Open(arguments, out))
        return trouble;
    Sink silent;
    const bool bWhole = archive.Scan(silent);
    static const char mark[] = "<!--DATA-->";
    const char* const pMark = std::strstr(page, mark);
    out.Put(page, static_cast<size_t>(pMark - page));
    JsonSink json(out, JsonSink::compact, true);
    json.Open('{');
    json.Member("file");
    json.Text(archive.m_input.m_path);
    if (!bWhole) {
        json.Member("error");
        json.Text(archive.m_pReader->GetError());
    }
    WriteMembers(
        *archive.m_pReader, json, [](uint32_t) { return true; }, true);
    json.Close();
    out.Put(pMark + sizeof mark - 1);
    return archive.Finish(out, bWhole);
}
