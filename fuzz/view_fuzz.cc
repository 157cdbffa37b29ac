// Feeds tavnoview with a description and an archive, both from anywhere: the text up to a NUL, and the bytes behind it.
// Whatever they are, it ends soon, and what it shows is strict JSON.
#include <cstdlib>
#include <nlohmann/json.hpp>

#include "json_sink.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* pData, size_t nSize)
{
    AfxSetNotices(0);
    const std::string all(reinterpret_cast<const char*>(pData), nSize);
    const size_t nText = std::min(all.find('\0'), nSize);
    std::string error;
    const std::unique_ptr<Description> pDescription = ParseDescription("text", all.substr(0, nText), error);
    if (pDescription == nullptr)
        return error.empty() ? std::abort(), 0 : 0;
    Input input;
    input.Use(all.data() + std::min(nText + 1, nSize), nSize - std::min(nText + 1, nSize));
    Reader reader(*pDescription, input);
    Sink silent;
    const bool bWhole = reader.Scan(silent);
    Output out;
    JsonSink json(out, JsonSink::compact);
    json.Open('{');
    WriteMembers(
        reader, json, [](uint32_t) { return true; }, true);
    json.Close();
    if (!nlohmann::json::accept(out.Text()) || bWhole != reader.GetError().empty())
        std::abort();
    return 0;
}
