// A graph of objects stored in a file and loaded back: two 32-bit values, a name and a pointer to an earlier object.
#include <absl/container/flat_hash_map.h>
#include <mcl/tavnomcl.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <algorithm>
#include <boost/archive/binary_iarchive.hpp>
#include <boost/archive/binary_oarchive.hpp>
#include <boost/serialization/string.hpp>
#include <boost/serialization/vector.hpp>
#include <cereal/archives/binary.hpp>
#include <cereal/types/memory.hpp>
#include <cereal/types/string.hpp>
#include <cereal/types/vector.hpp>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include <QByteArray>
#include <QDataStream>
#include <QFile>
#include <QHash>

#include "bench.h"

namespace {

const unsigned nManyClasses = 1000;
unsigned nClasses = 1; // number of classes; the objects take them in turn
size_t nStride = 0;    // distance between the objects in bytes; 0: as the allocator places them
bool bChain = false;   // each object refers to the one before it, and the last is stored first: the deepest graph

// The values that object number i holds.
struct Facts {
    uint32_t a, b;
    char name[12];
    unsigned nNameLength;
    uint32_t nEarlier; // number of the earlier object; object 0 has none

    explicit Facts(uint32_t i)
        : a(bench::Scatter(i)), b(~i), nNameLength(6 + a % 7), nEarlier(i == 0   ? 0
                                                                        : bChain ? i - 1
                                                                                 : bench::Scatter(a) % i)
    {
        for (unsigned k = 0; k < sizeof name; ++k)
            name[k] = static_cast<char>('a' + ((i >> 2 * k) + a + k) % 26);
    }
    std::string_view Name() const { return {name, nNameLength}; }
};

// Memory for an object that is to be stored.
void* Place(size_t nSize)
{
    static char* pFree = nullptr;
    static size_t nLeft = 0;
    if (nStride == 0)
        return ::operator new(nSize);
    if (nLeft < nStride) {
        nLeft = size_t(1) << 33; // bytes of address space; memory is only taken for pages that are touched
        void* p = mmap(nullptr, nLeft, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        if (p == MAP_FAILED)
            std::abort();
        madvise(p, nLeft, MADV_NOHUGEPAGE); // otherwise one object could take a page of 2 MB
        pFree = static_cast<char*>(p);
    }
    void* p = pFree;
    pFree += nStride;
    nLeft -= nStride;
    return p;
}

std::string ClassName(unsigned nClass)
{
    return nClasses == 1 ? "Node" : "Node" + std::to_string(nClass);
}

// Code written by hand for this one job: an index of the final size, one block of memory, one write, one read.
struct ByHand {
    struct Node {
        uint32_t a, b;
        char* pszName;
        uint32_t nNameLength;
        uint32_t nClass;
        Node* pEarlier;
    };
    typedef Node* Pointer;

    static Node* New(uint32_t i, const Facts& facts, Node* pEarlier)
    {
        char* pszName = static_cast<char*>(std::malloc(facts.nNameLength + 1));
        std::memcpy(pszName, facts.name, facts.nNameLength);
        pszName[facts.nNameLength] = '\0';
        return new (Place(sizeof(Node))) Node{facts.a, facts.b, pszName, facts.nNameLength, i % nClasses, pEarlier};
    }
    static void Delete(Node* p)
    {
        std::free(p->pszName);
        if (nStride == 0)
            delete p;
    }
    static std::string_view Name(const Node* p) { return {p->pszName, p->nNameLength}; }

    class Writer {
    public:
        Writer(const std::vector<Node*>& nodes) : m_classes(nClasses)
        {
            m_indexes.reserve(nodes.size());
            m_pStart = m_p = static_cast<char*>(std::malloc(16 + 41 * nodes.size() + 24 * nClasses));
            if (nodes.size() >= 0xFFFF)
                Put(0xFFFF);
            Put(static_cast<uint32_t>(nodes.size()));
            for (const Node* p : nodes)
                Reference(p);
        }
        ~Writer() { std::free(m_pStart); }
        bool Write(const char* lpszFile) const
        {
            const int fd = open(lpszFile, O_WRONLY | O_CREAT | O_TRUNC, 0666);
            const ssize_t nBytes = m_p - m_pStart;
            const bool bGood = write(fd, m_pStart, static_cast<size_t>(nBytes)) == nBytes;
            return close(fd) == 0 && bGood;
        }

    private:
        void Put(uint32_t n)
        {
            std::memcpy(m_p, &n, 4);
            m_p += 4;
        }
        void PutBytes(const void* p, size_t nBytes)
        {
            std::memcpy(m_p, p, nBytes);
            m_p += nBytes;
        }
        void PutIndex(uint32_t nIndex, uint32_t nSmallFlag, uint32_t nBigFlag)
        {
            if (nIndex <= 0x7FFE) {
                Put(nIndex | nSmallFlag);
            } else {
                Put(0x7FFF);
                Put(nIndex | nBigFlag);
            }
        }
        void Reference(const Node* p)
        {
            if (p == nullptr)
                return Put(0);
            const auto [it, bNew] = m_indexes.try_emplace(p, 0);
            if (!bNew)
                return PutIndex(it->second, 0, 0);
            uint32_t& rClass = m_classes[p->nClass];
            if (rClass == 0) {
                const std::string name = ClassName(p->nClass);
                Put(0xFFFF);
                Put(1);
                Put(static_cast<uint32_t>(name.size()));
                PutBytes(name.data(), name.size());
                rClass = m_nNext++;
            } else {
                PutIndex(rClass, 0x8000, 0x80000000);
            }
            it->second = m_nNext++;
            Put(p->a);
            Put(p->b);
            *m_p++ = static_cast<char>(p->nNameLength);
            PutBytes(p->pszName, p->nNameLength);
            Reference(p->pEarlier);
        }
        absl::flat_hash_map<const Node*, uint32_t> m_indexes;
        std::vector<uint32_t> m_classes;
        uint32_t m_nNext = 1;
        char *m_pStart, *m_p;
    };
    static bool Store(const std::vector<Node*>& nodes, const char* lpszFile) { return Writer(nodes).Write(lpszFile); }

    class Reader {
    public:
        Reader(const char* p, std::vector<Node*>& nodes) : m_p(p)
        {
            uint32_t n = Get();
            if (n == 0xFFFF)
                n = Get();
            nodes.reserve(n);
            m_table.reserve(n + nClasses + 1);
            m_table.push_back({nullptr, 0});
            for (; n > 0; --n)
                nodes.push_back(Reference());
        }

    private:
        struct Entry {
            Node* pNode;
            uint32_t nClass;
        };
        uint32_t Get()
        {
            uint32_t n;
            std::memcpy(&n, m_p, 4);
            m_p += 4;
            return n;
        }
        Node* Reference()
        {
            uint32_t nTag = Get(), nClass;
            const bool bNewClass = nTag == 0xFFFF;
            if (nTag == 0x7FFF)
                nTag = Get();
            else if (nTag > 0x8000 && !bNewClass)
                nTag ^= 0x80008000;
            if (bNewClass) {
                m_p += 4;
                m_p += Get();
                nClass = m_nClasses++;
                m_table.push_back({nullptr, nClass});
            } else if ((nTag & 0x80000000) == 0) {
                return m_table[nTag].pNode;
            } else {
                nClass = m_table[nTag & 0x7FFFFFFF].nClass;
            }
            Node* p = new Node;
            m_table.push_back({p, 0});
            p->nClass = nClass;
            p->a = Get();
            p->b = Get();
            p->nNameLength = static_cast<unsigned char>(*m_p++);
            p->pszName = static_cast<char*>(std::malloc(p->nNameLength + 1));
            std::memcpy(p->pszName, m_p, p->nNameLength);
            p->pszName[p->nNameLength] = '\0';
            m_p += p->nNameLength;
            p->pEarlier = Reference();
            return p;
        }
        const char* m_p;
        std::vector<Entry> m_table;
        uint32_t m_nClasses = 0;
    };
    static bool Load(std::vector<Node*>& nodes, const char* lpszFile)
    {
        const int fd = open(lpszFile, O_RDONLY);
        struct stat status;
        if (fstat(fd, &status) != 0)
            return false;
        char* p = static_cast<char*>(std::malloc(static_cast<size_t>(status.st_size)));
        const bool bGood = read(fd, p, static_cast<size_t>(status.st_size)) == status.st_size;
        close(fd);
        if (bGood)
            Reader(p, nodes);
        std::free(p);
        return bGood;
    }
};

VELM_CRuntimeClass records[nManyClasses];

struct Ours {
    class Node : public VELM_CObject {
    public:
        uint32_t a, b;
        VELM_CString name;
        Node* pEarlier;

        VELM_CRuntimeClass* GetRuntimeClass() const override { return &records[0]; }
        void Serialize(VELM_CArchive& ar) override
        {
            if (ar.IsStoring()) {
                ar << a << b << name;
                ar.WriteObject(pEarlier);
            } else {
                ar >> a >> b >> name;
                pEarlier = static_cast<Node*>(ar.ReadObject(nullptr));
            }
        }
    };
    template <size_t CLASS> class OneOfMany : public Node {
        VELM_CRuntimeClass* GetRuntimeClass() const override { return &records[CLASS]; }
    };
    template <size_t CLASS> static Node* Make() { return new (Place(sizeof(OneOfMany<CLASS>))) OneOfMany<CLASS>; }
    template <size_t... CLASS> static Node* MakeOne(uint32_t i, std::index_sequence<CLASS...>)
    {
        static Node* (*const make[])() = {Make<CLASS>...};
        return make[i % nClasses]();
    }
    template <size_t... CLASS> static void AddClasses(VELM_CClassTable& table, std::index_sequence<CLASS...>)
    {
        (table.Add<OneOfMany<CLASS>>(&records[CLASS]), ...);
    }
    typedef std::make_index_sequence<nManyClasses> Classes;
    typedef Node* Pointer;

    static void NameClasses()
    {
        static std::string names[nManyClasses];
        for (unsigned i = 0; i < nClasses; ++i) {
            names[i] = ClassName(i);
            records[i] = {names[i].c_str(), 0, 1};
        }
    }
    static Node* New(uint32_t i, const Facts& facts, Node* pEarlier)
    {
        Node* p = nClasses == 1 ? new (Place(sizeof(Node))) Node : MakeOne(i, Classes());
        p->a = facts.a;
        p->b = facts.b;
        p->name.Set(facts.name, static_cast<int>(facts.nNameLength));
        p->pEarlier = pEarlier;
        return p;
    }
    static void Delete(Node* p)
    {
        if (nStride == 0)
            delete p;
    }
    static std::string_view Name(const Node* p) { return {p->name.m_data, static_cast<size_t>(p->name.m_len)}; }
    static bool Store(const std::vector<Node*>& nodes, const char* lpszFile)
    {
        NameClasses();
        VELM_CFile file;
        if (!file.Open(lpszFile, 1))
            return false;
        VELM_CArchive ar(&file, VELM_CArchive::store);
        ar.WriteCount(nodes.size());
        for (const Node* p : nodes)
            ar.WriteObject(p);
        ar.Close();
        file.Close();
        return VELM_CFile::ERROR_CODE == 0;
    }
    static bool Load(std::vector<Node*>& nodes, const char* lpszFile)
    {
        NameClasses();
        VELM_CClassTable table;
        if (nClasses == 1)
            table.Add<Node>(&records[0]);
        else
            AddClasses(table, Classes());
        VELM_CFile file;
        if (!file.Open(lpszFile))
            return false;
        VELM_CArchive ar(&file, VELM_CArchive::load);
        ar.SetClassTable(&table);
        return pfm_protect([&] {
                   unsigned long n = ar.ReadCount();
                   for (nodes.reserve(n); n > 0; --n)
                       nodes.push_back(static_cast<Node*>(ar.ReadObject(nullptr)));
               }) == 0;
    }
};

// What the node classes for the other libraries have in common.
template <class NODE, class POINTER, class STRING> struct PeerNode {
    uint32_t a, b;
    STRING name;
    POINTER pEarlier;

    template <class ARCHIVE> void Fields(ARCHIVE& ar) { ar& a& b& name& pEarlier; }
    static POINTER New(uint32_t, const Facts& facts, POINTER pEarlier)
    {
        POINTER p(new NODE);
        p->a = facts.a;
        p->b = facts.b;
        p->name = STRING(facts.name, static_cast<int>(facts.nNameLength));
        p->pEarlier = pEarlier;
        return p;
    }
    static std::string_view Name(const POINTER& p) { return {p->name.data(), static_cast<size_t>(p->name.size())}; }
};

struct CerealNode : PeerNode<CerealNode, std::shared_ptr<CerealNode>, std::string> {
    template <class ARCHIVE> void serialize(ARCHIVE& ar) { ar(a, b, name, pEarlier); }
};

struct Cereal : CerealNode {
    typedef std::shared_ptr<CerealNode> Pointer;
    static void Delete(Pointer& p) { p.reset(); }
    static bool Store(const std::vector<Pointer>& nodes, const char* lpszFile)
    {
        std::ofstream file(lpszFile, std::ios::binary);
        cereal::BinaryOutputArchive ar(file);
        ar(nodes);
        file.close();
        return file.good();
    }
    static bool Load(std::vector<Pointer>& nodes, const char* lpszFile)
    {
        std::ifstream file(lpszFile, std::ios::binary);
        cereal::BinaryInputArchive ar(file);
        ar(nodes);
        return file.good();
    }
};

struct BoostNode : PeerNode<BoostNode, BoostNode*, std::string> {
    template <class ARCHIVE> void serialize(ARCHIVE& ar, unsigned) { Fields(ar); }
};

struct Boost : BoostNode {
    typedef BoostNode* Pointer;
    static void Delete(Pointer p) { delete p; }
    static bool Store(const std::vector<Pointer>& nodes, const char* lpszFile)
    {
        std::ofstream file(lpszFile, std::ios::binary);
        boost::archive::binary_oarchive(file, boost::archive::no_header) << nodes;
        file.close();
        return file.good();
    }
    static bool Load(std::vector<Pointer>& nodes, const char* lpszFile)
    {
        std::ifstream file(lpszFile, std::ios::binary);
        boost::archive::binary_iarchive(file, boost::archive::no_header) >> nodes;
        return file.good();
    }
};

struct QtNode : PeerNode<QtNode, QtNode*, QByteArray> {};

// QDataStream cannot store pointers, so the program numbers its objects.
struct Qt5 : QtNode {
    typedef QtNode* Pointer;
    static void Delete(Pointer p) { delete p; }
    static bool Store(const std::vector<Pointer>& nodes, const char* lpszFile)
    {
        QFile file(lpszFile);
        if (!file.open(QIODevice::WriteOnly))
            return false;
        QDataStream stream(&file);
        QHash<const QtNode*, quint32> indexes;
        indexes.reserve(static_cast<int>(nodes.size()));
        stream << static_cast<quint32>(nodes.size());
        for (const QtNode* p : nodes) {
            stream << p->a << p->b << p->name << indexes.value(p->pEarlier);
            indexes.insert(p, static_cast<quint32>(indexes.size()) + 1);
        }
        file.close();
        return stream.status() == QDataStream::Ok;
    }
    static bool Load(std::vector<Pointer>& nodes, const char* lpszFile)
    {
        QFile file(lpszFile);
        if (!file.open(QIODevice::ReadOnly))
            return false;
        QDataStream stream(&file);
        quint32 n, nEarlier;
        stream >> n;
        for (nodes.reserve(n); n > 0; --n) {
            QtNode* p = new QtNode;
            stream >> p->a >> p->b >> p->name >> nEarlier;
            p->pEarlier = nEarlier ? nodes[nEarlier - 1] : nullptr;
            nodes.push_back(p);
        }
        return stream.status() == QDataStream::Ok;
    }
};

template <class PEER> std::vector<typename PEER::Pointer> Make(long n)
{
    std::vector<typename PEER::Pointer> nodes;
    nodes.reserve(static_cast<size_t>(n));
    for (uint32_t i = 0; i < n; ++i) {
        const Facts facts(i);
        nodes.push_back(PEER::New(i, facts, i ? nodes[facts.nEarlier] : nullptr));
    }
    if (bChain)
        std::reverse(nodes.begin(), nodes.end());
    return nodes;
}

template <class PEER> void Delete(std::vector<typename PEER::Pointer>& nodes)
{
    for (auto& p : nodes)
        PEER::Delete(p);
    nodes.clear();
}

template <class PEER> bool IsRight(std::vector<typename PEER::Pointer> nodes, long n)
{
    if (nodes.size() != static_cast<size_t>(n))
        return false;
    if (bChain)
        std::reverse(nodes.begin(), nodes.end());
    for (uint32_t i = 0; i < n; ++i) {
        const Facts facts(i);
        if (nodes[i] == nullptr || nodes[i]->a != facts.a || nodes[i]->b != facts.b ||
            PEER::Name(nodes[i]) != facts.Name() || nodes[i]->pEarlier != (i ? nodes[facts.nEarlier] : nullptr))
            return false;
    }
    return true;
}

bool IsSameFile(const char* lpszFile, const char* lpszOther)
{
    std::ifstream file(lpszFile), other(lpszOther);
    typedef std::istreambuf_iterator<char> Bytes;
    return file.good() && other.good() && std::equal(Bytes(file), Bytes(), Bytes(other), Bytes());
}

// The type that makes the file which a candidate loads. ByHand writes the same bytes as our library, so it makes our
// file, too, which therefore takes the same time to make whatever our speed is.
template <class PEER> struct Maker {
    typedef PEER Type;
};
template <> struct Maker<Ours> {
    typedef ByHand Type;
};

template <class PEER> bool IsStoredRight(const char* lpszFile, long n)
{
    std::vector<typename PEER::Pointer> nodes;
    if (!PEER::Load(nodes, lpszFile) || !IsRight<PEER>(nodes, n))
        return false;
    if (std::is_same<PEER, Ours>() && !bChain) { // a chain is too deep for the recursion in ByHand
        nStride = 0;
        const std::string expected = std::string(lpszFile) + ".expected";
        const bool bGood = ByHand::Store(Make<ByHand>(n), expected.c_str()) && IsSameFile(lpszFile, expected.c_str());
        unlink(expected.c_str());
        return bGood;
    }
    return true;
}

template <class PEER>
void AddStore(const std::string& name, unsigned nClassesOfCase, size_t nStrideOfCase, bool bChainOfCase = false)
{
    bench::Add(name, [=](benchmark::State& state, long n) {
        nClasses = nClassesOfCase;
        nStride = nStrideOfCase;
        bChain = bChainOfCase;
        static const std::string path = bench::TemporaryFile("graph");
        static auto nodes = Make<PEER>(n);
        static bool bChecked = false;
        for (auto _ : state) {
            bool bGood = false;
            unlink(path.c_str());
            bench::Timed(state, [&] { bGood = PEER::Store(nodes, path.c_str()); });
            bench::Check(state,
                         bGood && (bChecked || bench::InChild([&] { return IsStoredRight<PEER>(path.c_str(), n); })));
            bChecked = true;
        }
    });
}

template <class PEER> void AddLoad(const std::string& name, unsigned nClassesOfCase, bool bChainOfCase = false)
{
    bench::Add(name, [=](benchmark::State& state, long n) {
        nClasses = nClassesOfCase;
        bChain = bChainOfCase;
        static const std::string path = bench::TemporaryFile("graph");
        typedef typename Maker<PEER>::Type MakerOfFile;
        static const bool bMade = bench::InChild([&] {
            return bChain ? PEER::Store(Make<PEER>(n), path.c_str())
                          : MakerOfFile::Store(Make<MakerOfFile>(n), path.c_str());
        });
        for (auto _ : state) {
            bool bGood = false;
            std::vector<typename PEER::Pointer> nodes;
            bench::Timed(state, [&] { bGood = PEER::Load(nodes, path.c_str()); });
            bench::Check(state, bMade && bGood && IsRight<PEER>(nodes, n));
            Delete<PEER>(nodes);
        }
    });
}

template <class PEER> void AddChain(const std::string& candidate)
{
    AddStore<PEER>("depth/store/" + candidate, 1, 0, true);
    AddLoad<PEER>("depth/load/" + candidate, 1, true);
}

} // namespace

void bench::AddGraphs()
{
    AddStore<ByHand>("graph/store/by hand", 1, 0);
    AddStore<Cereal>("graph/store/cereal", 1, 0);
    AddStore<Boost>("graph/store/Boost", 1, 0);
    AddStore<Qt5>("graph/store/Qt", 1, 0);
    AddStore<Ours>("graph/store/ours", 1, 0);
    AddLoad<ByHand>("graph/load/by hand", 1);
    AddLoad<Cereal>("graph/load/cereal", 1);
    AddLoad<Boost>("graph/load/Boost", 1);
    AddLoad<Qt5>("graph/load/Qt", 1);
    AddLoad<Ours>("graph/load/ours", 1);
    AddStore<ByHand>("classes/store/by hand", nManyClasses, 0);
    AddStore<Ours>("classes/store/ours", nManyClasses, 0);
    AddLoad<ByHand>("classes/load/by hand", nManyClasses);
    AddLoad<Ours>("classes/load/ours", nManyClasses);
    AddStore<ByHand>("pages/store/by hand", 1, 4096);
    AddStore<Ours>("pages/store/ours", 1, 4096);
    AddChain<ByHand>("by hand");
    AddChain<Cereal>("cereal");
    AddChain<Boost>("Boost");
    AddChain<Ours>("ours");
}
