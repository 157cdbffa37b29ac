// tavnoview stats: classes, objects, bytes, texts and depth; without a description, what the bytes let one guess.
#include <algorithm>
#include <map>

#include "command.h"
#include "json_sink.h"

namespace {

class Sums : public Sink {
public:
    explicit Sums(const Reader& reader) : m_reader(reader) {}

    struct Sum {
        unsigned long long nObjects = 0, nBytes = 0, nLargest = 0;
    };
    std::vector<Sum> m_sums;                               // by class and schema
    std::vector<std::pair<size_t, std::string>> m_longest; // texts, the longest first
    unsigned long long m_nTexts = 0, m_nTextBytes = 0, m_nReferences = 0, m_sizes[64] = {};
    size_t m_nDeepest = 0;

    void Plain(const Type& type, const Value& value) override
    {
        m_nReferences += type.kind == Kind::reference && value.nObject != 0;
        if (type.kind != Kind::string && type.kind != Kind::line && type.kind != Kind::chars)
            return;
        ++m_nTexts;
        m_nTextBytes += value.nLength;
        const size_t nMostTexts = 5;
        if (m_longest.size() == nMostTexts && value.nLength <= m_longest.back().first)
            return;
        m_longest.resize(std::min(m_longest.size(), nMostTexts - 1));
        const uint32_t nOwner = m_reader.GetOwner();
        m_longest.emplace_back(value.nLength, (nOwner == 0 ? "" : "object " + std::to_string(nOwner) + ", ") +
                                                  m_reader.GetPath(false));
        std::stable_sort(m_longest.begin(), m_longest.end(),
                         [](const auto& a, const auto& b) { return a.first > b.first; });
    }
    void BeginObject(uint32_t) override
    {
        m_inside.push_back(0);
        m_nDeepest = std::max(m_nDeepest, m_inside.size());
    }
    void EndObject(uint32_t n) override
    {
        const Reader::Object& object = m_reader.GetObjects()[n];
        const unsigned long long nAll = object.nEnd - object.nStart, nOwn = nAll - m_inside.back();
        m_inside.pop_back();
        if (!m_inside.empty())
            m_inside.back() += nAll;
        m_sums.resize(std::max(m_sums.size(), object.nMet + size_t{1}));
        Sum& sum = m_sums[object.nMet];
        ++sum.nObjects;
        sum.nBytes += nOwn;
        sum.nLargest = std::max(sum.nLargest, nOwn);
        int nClass = 0;
        while (nOwn >> nClass != 0)
            ++nClass;
        ++m_sizes[nClass];
    }

private:
    const Reader& m_reader;
    std::vector<unsigned long long> m_inside; // bytes of the objects inside each that is under way
};

void PrintGuess(const Input& input, Output& out)
{
    std::map<std::pair<std::string, unsigned>, unsigned long long> first;
    for (const FoundRecord& record : FindRecords(input))
        first.emplace(std::make_pair(record.name, record.nSchema), record.nOffset);
    out.Put(input.m_path + ": " + std::to_string(input.GetSize()) +
            " bytes; there is no description, so this is a guess from what looks like class records\n");
    if (!first.empty())
        out.Format("%-40s %6s %12s\n", "class", "schema", "offset");
    for (const auto& record : first)
        out.Format("%-40.200s %6u %12llu\n", record.first.first.c_str(), record.first.second, record.second);
}

void PrintSums(const Reader& reader, const Sums& sums, Output& out)
{
    out.Format("%-40s %6s %10s %12s %8s %8s\n", "class", "schema", "objects", "bytes", "each", "largest");
    for (size_t i = 0; i < sums.m_sums.size(); ++i) {
        const Sums::Sum& sum = sums.m_sums[i];
        if (sum.nObjects != 0)
            out.Format("%-40.200s %6u %10llu %12llu %8llu %8llu\n", reader.GetMet()[i].pClass->name.c_str(),
                       reader.GetMet()[i].nSchema, sum.nObjects, sum.nBytes, sum.nBytes / sum.nObjects, sum.nLargest);
    }
    out.Format("references: %llu; objects inside each other: up to %zu; texts: %llu of %llu bytes\n",
               sums.m_nReferences, sums.m_nDeepest, sums.m_nTexts, sums.m_nTextBytes);
    for (const auto& text : sums.m_longest)
        out.Format("  longest text: %zu bytes, %.300s\n", text.first, text.second.c_str());
    const unsigned long long nMost = *std::max_element(sums.m_sizes, sums.m_sizes + 64);
    for (int i = 0; i < 64 && nMost != 0; ++i) {
        if (sums.m_sizes[i] != 0)
            out.Format("  %10llu bytes and more: %10llu %s\n", i == 0 ? 0 : 1ULL << (i - 1), sums.m_sizes[i],
                       std::string(static_cast<size_t>((sums.m_sizes[i] * 40 + nMost - 1) / nMost), '#').c_str());
    }
}

} // namespace

int RunStats(const Arguments& arguments)
{
    Archive archive;
    Output out;
    if (!archive.Open(arguments, out, true))
        return trouble;
    bool bWhole = true;
    if (archive.m_pReader == nullptr) {
        PrintGuess(archive.m_input, out);
    } else {
        Sums sums(*archive.m_pReader);
        bWhole = archive.Scan(sums);
        out.Put(archive.m_input.m_path + ": " + std::to_string(archive.m_input.GetSize()) + " bytes\n");
        PrintSums(*archive.m_pReader, sums, out);
    }
    return archive.Finish(out, bWhole);
}
