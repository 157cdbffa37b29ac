// Feeds every reader of the library with arbitrary data. The first byte of an input chooses the reader and the size
// of the archive's buffer; the rest is the archive.
//
// Whatever the data, a reader ends in a raise or in a sound result; a graph that loads must survive being stored and
// loaded again. With an argument "--seeds DIRECTORY" the program writes inputs made by the library's own writers.
#include <unistd.h>

#include <cstdlib>
#include <fstream>

#include "mcl/mfc_std.h"
#include "tests/support/graph.h"

template <> struct VELM_CClassOf<Node> {
    static const VELM_CRuntimeClass* Record() { return &Node::record; }
};

namespace {

enum Reader {
    objects,
    classes,
    values,
    lines,
    textMap,
    addressMap,
    objectArray,
    strings,
    newValues,
    containers,
    readerCount
};

class BytesFile : public VELM_CFile {
public:
    std::string bytes;
    size_t nPosition = 0;

    explicit BytesFile(std::string contents = "") : bytes(std::move(contents)) {}
    unsigned Read(void* lpBuf, unsigned nCount) override
    {
        const size_t n = bytes.copy(static_cast<char*>(lpBuf), nCount, nPosition);
        nPosition += n;
        return static_cast<unsigned>(n);
    }
    void Write(const void* lpBuf, unsigned nCount) override { bytes.append(static_cast<const char*>(lpBuf), nCount); }
    long Seek(long, unsigned) override { return -1; }
};

void Require(bool bHolds)
{
    if (!bHolds)
        std::abort();
}

// Loads as many objects as there are. What the graph looks like; "" when it could not be loaded.
std::string LoadGraph(const std::string& bytes, int nBufSize, std::string* pStoredAgain)
{
    BytesFile file(bytes);
    VELM_CArchive ar(&file, VELM_CArchive::load, nBufSize);
    ar.SetClassTable(&GraphClasses());
    std::vector<VELM_CObject*> roots;
    const int nRaised = pfm_protect([&] {
        for (unsigned long n = ar.ReadCount(); n > 0; --n)
            roots.push_back(ar.ReadObject(&Node::record));
    });
    Require((nRaised == 0) == (*ar.GetErrorText() == '\0'));
    std::string description;
    if (nRaised == 0) {
        description = Describe(roots);
        BytesFile again;
        VELM_CArchive storing(&again, VELM_CArchive::store);
        storing.WriteCount(roots.size());
        for (const VELM_CObject* pRoot : roots)
            storing.WriteObject(pRoot);
        storing.Close();
        if (pStoredAgain != nullptr)
            *pStoredAgain = again.bytes;
    }
    ar.DeleteLoadedObjects();
    return description;
}

void ReadObjects(const std::string& bytes, int nBufSize)
{
    std::string storedAgain;
    const std::string description = LoadGraph(bytes, nBufSize, &storedAgain);
    if (!description.empty())
        Require(LoadGraph(storedAgain, nBufSize, nullptr) == description);
}

template <class Map> void ReadMap(VELM_CArchive& ar)
{
    Map map(3);
    pfm_protect([&] { map.Serialize(ar); });
    fxStr key;
    int nValue = 0, nEntries = 0;
    for (__POSITION* position = map.GetStartPosition(); position != nullptr; ++nEntries)
        map.GetNextAssoc(position, key, nValue);
    Require(nEntries == map.GetCount());
}

enum Colour { Red = -1, Green, Blue };

struct Containers {
    std::vector<std::vector<std::string>> nested;
    std::map<std::string, std::array<short, 2>> map;
    std::unordered_map<int, std::pair<bool, double>> unordered;
    std::set<std::string> set;
    std::optional<std::vector<bool>> optional;
    std::vector<Node*> nodes;
};

// Whatever was cut, the values can be stored again.
void ReadContainers(VELM_CArchive& ar)
{
    ar.SetClassTable(&GraphClasses());
    Containers c;
    pfm_protect([&] { ar >> c.nested >> c.map >> c.unordered >> c.set >> c.optional >> c.nodes; });
    BytesFile again;
    VELM_CArchive storing(&again, VELM_CArchive::store);
    storing << c.nested << c.map << c.unordered << c.set << c.optional << c.nodes;
    storing.Close();
    ar.DeleteLoadedObjects();
}

void ReadOther(Reader reader, VELM_CArchive& ar)
{
    unsigned nSchema;
    unsigned long nTag, nValue;
    unsigned char by;
    VELM_CString text, texts[3];
    char line[20];
    VELM_CObArray array;
    switch (reader) {
    case classes:
        ar.SetClassTable(&GraphClasses());
        pfm_protect([&] {
            while (ar.ReadClass(&Node::record, &nSchema, &nTag) != nullptr)
                VELM_CRuntimeClass::Load(ar, &nSchema);
        });
        break;
    case values:
        pfm_protect([&] {
            for (;;) {
                ar >> by >> nSchema >> nValue >> text;
                ar.ReadCount();
            }
        });
        break;
    case lines:
        while (ar.ReadString(text) && ar.ReadString(line, 19) != nullptr &&
               ar.ReadString(line, static_cast<unsigned>(-19)) != nullptr)
            Require(text.GetLength() >= 0);
        break;
    case textMap:
        ReadMap<VELM_CMap<fxStr, char*, int, int>>(ar);
        break;
    case addressMap:
        ReadMap<VELM_CMap<fxStr, const char*, int, int>>(ar);
        break;
    case objectArray:
        pfm_protect([&] { array.Serialize(ar); });
        for (int i = 0; i < array.GetSize(); ++i)
            delete array[i];
        break;
    case newValues:
        pfm_protect([&] {
            bool b;
            char c;
            short s;
            long l;
            float f;
            double d;
            Colour colour;
            while (!ar.IsAtEnd()) {
                ar >> b >> c >> s >> l >> f >> d;
                ar.ReadEnum(colour, Red, Blue);
                Require(colour >= Red && colour <= Blue);
                ar.ReadInt64();
            }
        });
        break;
    case containers:
        ReadContainers(ar);
        break;
    default:
        pfm_protect([&] { SerializeElements(ar, texts, 3); });
    }
}

// Inputs made by the library's own writers: one for each reader.
void WriteSeeds(const std::string& directory)
{
    for (int reader = 0; reader < readerCount; ++reader) {
        BytesFile file(std::string(1, static_cast<char>(reader)));
        VELM_CArchive ar(&file, VELM_CArchive::store);
        Node a(1), b(2);
        Leaf c(3, "leaf");
        a.links = {&b, &c, nullptr, &a};
        c.links = {&b, &a};
        char key[] = "key";
        VELM_CMap<fxStr, char*, int, int> map;
        map[key] = -2;
        VELM_CObArray array;
        array.InsertAt(0, nullptr, 3);
        VELM_CString texts[] = {"one", "", std::string(300, 'x').c_str()};
        switch (reader) {
        case objects:
            ar.WriteCount(2);
            ar.WriteObject(&a);
            ar.WriteObject(&c);
            break;
        case classes:
            ar.WriteClass(&Node::record);
            Leaf::record.Store(ar);
            ar.WriteClass(&Node::record);
            break;
        case values:
            ar << static_cast<unsigned char>(7) << 8u << 9ul << texts[2];
            ar.WriteCount(70000);
            break;
        case lines:
            ar.WriteString("one\ntwo\r\n\n\rlast");
            break;
        case objectArray:
            array.Serialize(ar);
            break;
        case strings:
            SerializeElements(ar, texts, 3);
            break;
        case newValues:
            ar << true << 'c' << static_cast<short>(-1) << -2l << 1.5f << 2.5;
            ar.WriteEnum(Blue);
            ar.WriteInt64(-3);
            break;
        case containers:
            ar << std::vector<std::vector<std::string>>{{"a", "b"}, {}};
            ar << std::map<std::string, std::array<short, 2>>{{"k", {{1, 2}}}};
            ar << std::unordered_map<int, std::pair<bool, double>>{{1, {true, 2.5}}};
            ar << std::set<std::string>{"p"} << std::optional<std::vector<bool>>({true, false});
            ar << std::vector<Node*>{&a, nullptr, &b};
            break;
        default:
            map.Serialize(ar);
        }
        ar.Close();
        std::ofstream(directory + "/reader" + std::to_string(reader), std::ios::binary) << file.bytes;
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    if (*argc == 3 && std::string((*argv)[1]) == "--seeds") {
        WriteSeeds((*argv)[2]);
        std::exit(0);
    }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize)
{
    if (nSize == 0)
        return 0;
    const Reader reader = static_cast<Reader>(pData[0] % readerCount);
    const int nBufSize = pData[0] >= 0x80 ? 65536 : 128;
    const std::string bytes(reinterpret_cast<const char*>(pData) + 1, nSize - 1);
    if (reader == objects) {
        ReadObjects(bytes, nBufSize);
    } else {
        BytesFile file(bytes);
        VELM_CArchive ar(&file, VELM_CArchive::load, nBufSize);
        ReadOther(reader, ar);
    }
    return 0;
}
