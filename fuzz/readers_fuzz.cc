// Feeds every reader of the library with arbitrary data. The first byte of an input chooses the reader and the size
// of the archive's buffer; the rest is the archive.
//
// Whatever the data, a reader ends in a raise or in a sound result; a graph that loads must survive being stored and
// loaded again.
#include <cstdlib>

#include "fuzz/std_readers.h"

template <> struct VELM_CClassOf<Node> {
    static const VELM_CRuntimeClass* Record() { return &Node::record; }
};

static void Require(bool bHolds)
{
    if (!bHolds)
        std::abort();
}

// What body stores.
template <class BODY> static std::string Stored(BODY body)
{
    VELM_CMemoryFile file;
    VELM_CArchive ar(&file, VELM_CArchive::store);
    body(ar), ar.Close();
    return std::string(static_cast<const char*>(file.GetBytes()), file.GetSize());
}

// What the loaded graph looks like; "" when it could not be loaded.
static std::string LoadGraph(VELM_CArchive& ar, std::vector<VELM_CObject*>& roots)
{
    const int nRaised = pfm_protect([&] {
        for (unsigned long n = ar.ReadCount(); n > 0; --n)
            roots.push_back(ar.ReadObject(&Node::record));
    });
    Require((nRaised == 0) == (*ar.GetErrorText() == '\0'));
    return nRaised == 0 ? Describe(roots) : "";
}

static void Graphs(VELM_CArchive& ar)
{
    Node a(1), b(2);
    Leaf c(3, "leaf");
    a.links = {&b, &c, nullptr, &a}, c.links = {&b, &a};
    std::vector<VELM_CObject*> roots = {&a, &c}, loaded, again;
    const auto store = [&](VELM_CArchive& to) {
        to.WriteCount(roots.size());
        for (const VELM_CObject* pRoot : roots)
            to.WriteObject(pRoot);
    };
    if (ar.IsStoring())
        return store(ar);
    const std::string description = LoadGraph(ar, loaded);
    if (description.empty())
        return;
    roots = loaded;
    const std::string bytes = Stored(store);
    VELM_CMemoryFile file(bytes.data(), bytes.size());
    VELM_CArchive from(&file, VELM_CArchive::load);
    from.SetClassTable(&GraphClasses());
    Require(LoadGraph(from, again) == description);
    from.DeleteLoadedObjects();
}

static void Classes(VELM_CArchive& ar)
{
    unsigned nSchema;
    unsigned long nTag;
    if (ar.IsStoring())
        ar.WriteClass(&Node::record), Leaf::record.Store(ar), ar.WriteClass(&Node::record);
    pfm_protect([&] {
        while (!ar.IsStoring() && ar.ReadClass(&Node::record, &nSchema, &nTag) != nullptr)
            VELM_CRuntimeClass::Load(ar, &nSchema);
    });
}

static void Lines(VELM_CArchive& ar)
{
    VELM_CString text;
    char line[20];
    if (ar.IsStoring())
        return ar.WriteString("one\ntwo\r\n\n\rlast");
    while (ar.ReadString(text) && ar.ReadString(line, 19) != nullptr && ar.ReadString(line, -19u) != nullptr)
        Require(text.GetLength() >= 0);
}

enum Colour { Red = -1, Green, Blue };

static void Values(VELM_CArchive& ar)
{
    unsigned char by = 7;
    unsigned n = 8;
    unsigned long nLong = 9;
    VELM_CString text(std::string(300, 'x').c_str());
    short s = -1;
    double d = 2.5;
    Colour colour = Blue;
    if (ar.IsStoring()) {
        ar << by << n << nLong << text << true << 'c' << s << -2l << 1.5f << d;
        ar.WriteCount(70000), ar.WriteEnum(colour), ar.WriteInt64(-3);
        return;
    }
    pfm_protect([&] {
        for (bool b; !ar.IsAtEnd(); Require(colour >= Red && colour <= Blue)) {
            char c;
            long l;
            float f;
            ar >> by >> n >> nLong >> text >> b >> c >> s >> l >> f >> d;
            ar.ReadCount(), ar.ReadEnum(colour, Red, Blue), ar.ReadInt64();
        }
    });
}

template <class MAP> static void Map(VELM_CArchive& ar)
{
    MAP map(3);
    char key[] = "key";
    if (ar.IsStoring())
        map[key] = -2;
    pfm_protect([&] { map.Serialize(ar); });
    int nEntries = 0;
    for (const auto& entry : map)
        nEntries += entry.key.length() < 1u << 31;
    Require(nEntries == map.GetCount());
}

static void Arrays(VELM_CArchive& ar)
{
    VELM_CObArray array;
    VELM_CString texts[3] = {"one", "", std::string(300, 'x').c_str()};
    if (ar.IsStoring())
        array.InsertAt(0, static_cast<VELM_CObject*>(nullptr), 3);
    pfm_protect([&] { SerializeElements(ar, texts, 3), array.Serialize(ar); });
    for (VELM_CObject* pOb : array)
        delete pOb;
}

// Each stores a sample, or loads what it then has to survive.
static void (*const readers[])(VELM_CArchive&) = {Graphs,
                                                  Classes,
                                                  Lines,
                                                  Values,
                                                  Map<VELM_CMap<fxStr, char*, int, int>>,
                                                  Map<VELM_CMap<fxStr, const char*, int, int>>,
                                                  Arrays};

static unsigned ReaderCount()
{
    return static_cast<unsigned>(std::size(readers)) + StdReaderCount();
}

static void Read(unsigned nReader, VELM_CArchive& ar)
{
    const unsigned nOwn = static_cast<unsigned>(std::size(readers));
    if (nReader < nOwn)
        readers[nReader](ar);
    else if (ar.IsStoring())
        StoreStdValue(nReader - nOwn, ar);
    else
        ReadStdValue(nReader - nOwn, ar);
}

std::vector<std::string> Seeds()
{
    std::vector<std::string> seeds;
    for (unsigned i = 0; i < ReaderCount(); ++i)
        seeds.push_back(std::string(1, static_cast<char>(i)) + Stored([i](VELM_CArchive& ar) { Read(i, ar); }));
    return seeds;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize)
{
    if (nSize == 0)
        return 0;
    VELM_CMemoryFile file(pData + 1, nSize - 1);
    VELM_CArchive ar(&file, VELM_CArchive::load, pData[0] < 128 ? 128 : 4096);
    ar.SetClassTable(&GraphClasses());
    Read(pData[0] % ReaderCount(), ar);
    ar.DeleteLoadedObjects();
    return 0;
}
