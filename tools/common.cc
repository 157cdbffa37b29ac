#include <dirent.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "command.h"

int Trouble(const std::string& text)
{
    std::string printed = text; // what a file brings in does nothing to a terminal
    for (char& c : printed) {
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F)
            c = '?';
    }
    std::fflush(stdout);
    std::fprintf(stderr, "tavnoview: %s\n", printed.c_str());
    return trouble;
}

Progress::Progress(unsigned long long nTotal) : m_nTotal(nTotal)
{
    m_bShown = nTotal >= 1 << 24 && isatty(2) != 0;
}

void Progress::Show(unsigned long long nDone)
{
    const unsigned long long nPart = nDone * 50 / (m_nTotal + 1) + 1;
    if (!m_bShown || nPart == m_nShown)
        return;
    m_nShown = nPart;
    std::fprintf(stderr, "\r[%-50.*s] %3llu %%", static_cast<int>(nPart),
                 "==================================================", nPart * 2);
}

Progress::~Progress()
{
    if (m_nShown != 0)
        std::fprintf(stderr, "\r%60s\r", "");
}

std::vector<FoundRecord> FindRecords(const Input& input)
{
    std::vector<FoundRecord> found;
    const char* const pBytes = input.GetBytes();
    const size_t nSize = input.GetSize();
    const auto Load = [&](size_t n) {
        uint32_t value = 0;
        for (int i = 4; i-- > 0;)
            value = value << 8 | static_cast<unsigned char>(pBytes[n + static_cast<size_t>(i)]);
        return value;
    };
    for (size_t i = 0; i + 12 < nSize; ++i) {
        const void* const pNext = std::memchr(pBytes + i, 0xFF, nSize - i - 12);
        if (pNext == nullptr)
            break;
        i = static_cast<size_t>(static_cast<const char*>(pNext) - pBytes);
        const uint32_t nLength = Load(i + 8);
        if (Load(i) != VELM_CArchive::wNewClassTag || Load(i + 4) >= VELM_CRuntimeClass::nNoSchema || nLength == 0 ||
            nLength > 200 || nLength > nSize - i - 12)
            continue;
        const std::string name(pBytes + i + 12, nLength);
        const bool bName = std::all_of(name.begin(), name.end(), [](char c) {
            return std::isalnum(static_cast<unsigned char>(c)) || std::strchr("_:<>,.* -", c) != nullptr;
        });
        if (bName && found.size() < 100000)
            found.push_back({name, Load(i + 4), i});
    }
    return found;
}

// The descriptions in a folder, by their names.
static std::vector<std::string> DescriptionsIn(const std::string& folder)
{
    std::vector<std::string> paths;
    DIR* const pFolder = opendir(folder.c_str());
    while (const dirent* const pEntry = pFolder == nullptr ? nullptr : readdir(pFolder)) {
        const std::string name = pEntry->d_name;
        if (name.size() > 5 && name.compare(name.size() - 5, 5, ".desc") == 0)
            paths.push_back(folder + "/" + name);
    }
    if (pFolder != nullptr)
        closedir(pFolder);
    std::sort(paths.begin(), paths.end());
    return paths;
}

// The folder share/tavnomcl/descriptions beside this program's own.
static std::string InstalledDescriptions()
{
    char path[4096];
    const ssize_t n = readlink("/proc/self/exe", path, sizeof path);
    std::string folder(path, n < 0 ? 0 : static_cast<size_t>(n));
    for (int i = 0; i < 2; ++i)
        folder.resize(folder.find_last_of('/') == std::string::npos ? 0 : folder.find_last_of('/'));
    return folder + "/share/tavnomcl/descriptions";
}

// FILE.desc, or the first beside the file or among those that are installed that knows each class that is found.
static std::unique_ptr<Description> FindDescription(const std::string& path, const Input& input, std::string& rError)
{
    if (access((path + ".desc").c_str(), R_OK) == 0)
        return ReadDescription(path + ".desc", rError);
    const size_t nSlash = path.find_last_of('/');
    std::vector<std::string> paths = DescriptionsIn(nSlash == std::string::npos ? "." : path.substr(0, nSlash));
    const std::vector<std::string> installed = DescriptionsIn(InstalledDescriptions());
    paths.insert(paths.end(), installed.begin(), installed.end());
    const std::vector<FoundRecord> records = FindRecords(input);
    for (const std::string& candidate : paths) {
        std::string ignored;
        std::unique_ptr<Description> pDescription = ReadDescription(candidate, ignored);
        if (pDescription != nullptr && !records.empty() &&
            std::all_of(records.begin(), records.end(),
                        [&](const FoundRecord& record) { return pDescription->FindClass(record.name) != nullptr; }))
            return pDescription;
    }
    rError = input.m_path + ": no description is found" +
             (records.empty() ? "" : " that has the class \"" + records[0].name + "\"") +
             "; give one by -d (see `tavnoview --help`)";
    return nullptr;
}

bool Archive::Open(const std::string& path, const std::string& description, bool bMayLack)
{
    std::string error;
    bool bGood = m_input.Open(path, error);
    if (bGood) {
        m_pDescription =
            description.empty() ? FindDescription(path, m_input, error) : ReadDescription(description, error);
        if (m_pDescription == nullptr && description.empty() && bMayLack)
            return true;
        bGood = m_pDescription != nullptr;
    }
    if (!bGood) {
        Trouble(error);
        return false;
    }
    if (description.empty())
        std::fprintf(stderr, "tavnoview: read by %s\n", m_pDescription->m_path.c_str());
    m_pReader.reset(new Reader(*m_pDescription, m_input));
    return true;
}

bool Archive::Scan(Sink& sink)
{
    Progress progress(m_input.GetSize());
    m_pReader->m_progress = [&](unsigned long long nDone) { progress.Show(nDone); };
    const bool bGood = m_pReader->Scan(sink);
    m_pReader->m_progress = nullptr;
    return bGood;
}

bool Archive::Open(const Arguments& arguments, Output& out, bool bMayLack)
{
    std::string error;
    if (!Open(arguments.files[0], arguments.description, bMayLack))
        return false;
    return out.Open(arguments.output, error) || Trouble(error) == good;
}

int Archive::Finish(Output& out, bool bWhole) const
{
    std::string error;
    if (!out.Finish(error))
        return Trouble(error);
    if (!bWhole)
        Trouble(GetError());
    return bWhole ? good : different;
}
