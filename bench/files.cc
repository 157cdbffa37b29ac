// Benchmarks of files: lines of text, one huge string, blocks of values, and the demo, which reads a status file.
#include <mcl/mfc_std.h>
#include <mcl/tavnomcl.h>
#include <spawn.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>
#include <unordered_map>
#include <vector>

#include "bench.h"

namespace {

std::string Line(long i)
{
    return "line " + std::to_string(i) + std::string(bench::Scatter(static_cast<uint32_t>(i)) % 60, '.');
}

// A checksum over all lines, which tells whether they were read correctly.
struct LineSum {
    uint64_t nSum = 0;
    void Add(const char* p, size_t nLength)
    {
        nSum = nSum * 31 + nLength +
               (nLength ? static_cast<unsigned char>(p[nLength - 1]) + static_cast<unsigned char>(p[nLength / 2]) : 0);
    }
};

template <class READ> void AddLines(const std::string& candidate, READ read, const char* lpszLineEnd)
{
    const std::string operation = lpszLineEnd[0] == '\r' ? "read CR LF" : "read";
    bench::Add("lines/" + operation + "/" + candidate, [=](benchmark::State& state, long n) {
        static const std::string path = bench::TemporaryFile("lines");
        LineSum expected;
        std::ofstream file(path);
        for (long i = 0; i < n; ++i) {
            const std::string line = Line(i);
            expected.Add(line.data(), line.size());
            file << line << lpszLineEnd;
        }
        file.close();
        for (auto _ : state) {
            LineSum sum;
            bench::Timed(state, [&] { read(path.c_str(), sum); });
            bench::Check(state, sum.nSum == expected.nSum);
        }
    });
}

void GetLines(const char* lpszFile, LineSum& sum)
{
    std::ifstream file(lpszFile);
    for (std::string line; std::getline(file, line);)
        sum.Add(line.data(), line.size() - (!line.empty() && line.back() == '\r'));
}

void ReadStrings(const char* lpszFile, LineSum& sum)
{
    VELM_CFile file;
    file.Open(lpszFile);
    VELM_CArchive ar(&file, VELM_CArchive::load);
    VELM_CString line;
    while (ar.ReadString(line))
        sum.Add(line.m_data, static_cast<size_t>(line.m_len));
}

void ReadStringsIntoBuffer(const char* lpszFile, LineSum& sum)
{
    VELM_CFile file;
    file.Open(lpszFile);
    VELM_CArchive ar(&file, VELM_CArchive::load);
    char line[128];
    while (ar.ReadString(line, sizeof line) != nullptr)
        sum.Add(line, std::strlen(line));
}

// A file in memory, so that only the copying is measured.
class MemoryFile : public VELM_CFile {
public:
    std::vector<char> bytes;
    size_t nPosition = 0;

    explicit MemoryFile(size_t nSize) : bytes(nSize) {}
    void Write(const void* lpBuf, unsigned nCount) override
    {
        std::memcpy(&bytes[nPosition], lpBuf, nCount);
        nPosition += nCount;
    }
    unsigned Read(void* lpBuf, unsigned nCount) override
    {
        nCount = static_cast<unsigned>(std::min<size_t>(nCount, bytes.size() - nPosition));
        std::memcpy(lpBuf, bytes.data() + nPosition, nCount);
        nPosition += nCount;
        return nCount;
    }
    void Close() override {}
};

const size_t nLongestPrefix = 9; // bytes that an archive stores before the text of a long string

std::string HugeText(long n)
{
    std::string text(static_cast<size_t>(n), 'x');
    for (size_t i = 0; i < text.size(); i += 4096)
        text[i] = static_cast<char>('a' + i / 4096 % 23);
    return text;
}

void AddHugeStrings()
{
    bench::Add("hugestring/store/memcpy", [](benchmark::State& state, long n) {
        const std::string text = HugeText(n);
        std::vector<char> target(text.size());
        for (auto _ : state) {
            bench::Timed(state, [&] { std::memcpy(target.data(), text.data(), text.size()); });
            bench::Check(state, std::memcmp(target.data(), text.data(), text.size()) == 0);
        }
    });
    bench::Add("hugestring/store/ours", [](benchmark::State& state, long n) {
        const std::string text = HugeText(n);
        const VELM_CString str(text.data(), static_cast<int>(n));
        for (auto _ : state) {
            MemoryFile file(text.size() + nLongestPrefix);
            bench::Timed(state, [&] {
                VELM_CArchive ar(&file, VELM_CArchive::store);
                ar << str;
                ar.Close();
            });
            bench::Check(state, std::memcmp(&file.bytes[nLongestPrefix], text.data(), text.size()) == 0);
        }
    });
    // Both candidates allocate the memory that they load into.
    bench::Add("hugestring/load/memcpy", [](benchmark::State& state, long n) {
        const std::string text = HugeText(n);
        for (auto _ : state) {
            char* p = nullptr;
            bench::Timed(state, [&] {
                p = static_cast<char*>(std::malloc(text.size()));
                std::memcpy(p, text.data(), text.size());
                benchmark::ClobberMemory();
            });
            bench::Check(state, std::memcmp(p, text.data(), text.size()) == 0);
            std::free(p);
        }
    });
    bench::Add("hugestring/load/ours", [](benchmark::State& state, long n) {
        const std::string text = HugeText(n);
        MemoryFile file(text.size() + nLongestPrefix);
        {
            const VELM_CString str(text.data(), static_cast<int>(n));
            VELM_CArchive ar(&file, VELM_CArchive::store);
            ar << str;
            ar.Close();
        }
        for (auto _ : state) {
            VELM_CString loaded;
            file.nPosition = 0;
            bench::Timed(state, [&] {
                VELM_CArchive ar(&file, VELM_CArchive::load);
                ar >> loaded;
            });
            bench::Check(state, loaded.m_len == n && std::memcmp(loaded.m_data, text.data(), text.size()) == 0);
        }
    });
}

// Transfers values through an archive on a file in memory: as a container and, for comparison, as bytes by Write or
// Read.
template <class CONTAINER> void AddBlocks(const std::string& name)
{
    typedef typename CONTAINER::value_type Value;
    for (const bool bOurs : {false, true}) {
        const auto Make = [](long n) {
            CONTAINER values(static_cast<size_t>(n) / sizeof(Value), Value());
            for (size_t i = 0; i < values.size(); ++i)
                values[i] = static_cast<Value>(i % 127);
            return values;
        };
        const auto Store = [bOurs](VELM_CFile& file, const CONTAINER& values) {
            VELM_CArchive ar(&file, VELM_CArchive::store);
            if (bOurs)
                ar << values;
            else
                ar.Write(values.data(), static_cast<unsigned>(values.size() * sizeof(Value)));
        };
        const char* const lpszCandidate = bOurs ? "/ours" : "/Write, Read";
        bench::Add("blocks/store " + name + lpszCandidate, [=](benchmark::State& state, long n) {
            const CONTAINER values = Make(n);
            const size_t nBytes = values.size() * sizeof(Value);
            for (auto _ : state) {
                MemoryFile file(nBytes + nLongestPrefix);
                bench::Timed(state, [&] { Store(file, values); });
                bench::Check(state, std::memcmp(&file.bytes[file.nPosition - nBytes], values.data(), nBytes) == 0);
            }
        });
        bench::Add("blocks/load " + name + lpszCandidate, [=](benchmark::State& state, long n) {
            const CONTAINER values = Make(n);
            MemoryFile file(static_cast<size_t>(n) + nLongestPrefix);
            Store(file, values);
            for (auto _ : state) {
                CONTAINER loaded;
                file.nPosition = 0;
                bench::Timed(state, [&] {
                    VELM_CArchive ar(&file, VELM_CArchive::load);
                    if (bOurs) {
                        ar >> loaded;
                    } else {
                        loaded.resize(values.size());
                        ar.Read(&loaded[0], static_cast<unsigned>(values.size() * sizeof(Value)));
                    }
                });
                bench::Check(state, loaded == values);
            }
        });
    }
}

void WriteStatus(const char* lpszFile, long n)
{
    std::ofstream file(lpszFile);
    for (long i = 0; i < n; ++i) {
        file << "Package: package-" << i << "\nStatus: install ok installed\nPriority: optional\nSection: libs\n"
             << "Installed-Size: " << 10 + i % 5000 << "\nMaintainer: Some Maintainers <maintainers@example.org>\n"
             << "Architecture: amd64\nMulti-Arch: same\nVersion: 1." << i % 17 << '-' << i % 5 << '\n';
        for (long k = 0; i > 0 && k < i % 8; ++k) // on earlier packages at random, which makes no long chains
            file << (k ? ", " : "Depends: ") << "package-" << bench::Scatter(static_cast<uint32_t>(8 * i + k)) % i
                 << " (>= 1.0)";
        file << (i > 0 && i % 8 ? "\n" : "") << "Description: package number " << i
             << "\n This is the long description of it, of which there are\n some lines that a reader skips.\n"
             << "Homepage: https://example.org/package-" << i << "\n\n";
    }
}

// Reads the same file in plain C++: the packages and their dependencies. Returns the number of packages.
size_t ReadStatusPlainly(const char* lpszFile)
{
    struct Package {
        std::string name, version, depends;
        unsigned nSize = 0;
        std::vector<const Package*> dependencies;
    };
    std::vector<Package> packages(1);
    std::ifstream file(lpszFile);
    const auto Value = [](const std::string& line, const char* lpszField) -> const char* {
        const size_t nLength = std::strlen(lpszField);
        return line.compare(0, nLength, lpszField) == 0 ? line.c_str() + nLength : nullptr;
    };
    for (std::string line; std::getline(file, line);) {
        if (line.empty())
            packages.emplace_back();
        else if (const char* pszName = Value(line, "Package: "))
            packages.back().name = pszName;
        else if (const char* pszVersion = Value(line, "Version: "))
            packages.back().version = pszVersion;
        else if (const char* pszSize = Value(line, "Installed-Size: "))
            packages.back().nSize = static_cast<unsigned>(std::strtoul(pszSize, nullptr, 10));
        else if (const char* pszDepends = Value(line, "Depends: "))
            packages.back().depends = pszDepends;
    }
    if (packages.back().name.empty())
        packages.pop_back();
    std::unordered_map<std::string, const Package*> index;
    for (const Package& package : packages)
        index.emplace(package.name, &package);
    for (Package& package : packages) {
        for (size_t i = 0; i < package.depends.size();) {
            const size_t nEnd = std::min(package.depends.find(',', i), package.depends.size());
            const auto it = index.find(package.depends.substr(i, package.depends.find_first_of(" (,", i) - i));
            if (it != index.end())
                package.dependencies.push_back(it->second);
            i = package.depends.find_first_not_of(", ", nEnd);
        }
    }
    benchmark::DoNotOptimize(packages.data());
    return packages.size();
}

// The number of packages, with which an archive of the demo begins.
size_t StoredPackages(const char* lpszArchive)
{
    VELM_CFile file;
    file.Open(lpszArchive);
    VELM_CArchive ar(&file, VELM_CArchive::load);
    return ar.ReadCount();
}

void AddDemo()
{
    bench::Add("depgraph/store/plain C++", [](benchmark::State& state, long n) {
        static const std::string path = bench::TemporaryFile("status");
        WriteStatus(path.c_str(), n);
        for (auto _ : state) {
            bool bGood = false; // runs in a process of its own, as the demo does
            bench::Timed(state, [&] {
                bGood = bench::InChild([&] { return ReadStatusPlainly(path.c_str()) == static_cast<size_t>(n); });
            });
            bench::Check(state, bGood);
        }
    });
    bench::Add("depgraph/store/ours", [](benchmark::State& state, long n) {
        static const std::string path = bench::TemporaryFile("status"), archive = bench::TemporaryFile("archive");
        WriteStatus(path.c_str(), n);
        for (auto _ : state) {
            bool bGood = false;
            bench::Timed(state, [&] {
                bGood = bench::InChild([&] {
                    const int fd = open("/dev/null", O_WRONLY);
                    dup2(fd, STDOUT_FILENO);
                    execl(DEPGRAPH, DEPGRAPH, "store", path.c_str(), archive.c_str(), static_cast<char*>(nullptr));
                    return false;
                });
            });
            bench::Check(state, bGood && StoredPackages(archive.c_str()) == static_cast<size_t>(n));
        }
    });
}

} // namespace

void bench::AddFiles()
{
    for (const char* lpszLineEnd : {"\n", "\r\n"}) {
        AddLines("getline", GetLines, lpszLineEnd);
        AddLines("ours", ReadStrings, lpszLineEnd);
        AddLines("ours, char[]", ReadStringsIntoBuffer, lpszLineEnd);
    }
    AddHugeStrings();
    AddBlocks<std::vector<unsigned char>>("vector of bytes");
    AddBlocks<std::vector<double>>("vector of doubles");
    AddBlocks<std::string>("string");
    AddDemo();
}
