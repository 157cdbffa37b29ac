#include "tests/support/owners.h"

#include <cstdlib>
#include <random>

VELM_CRuntimeClass Style::classRecord = {"Style", 0, 1};
VELM_CRuntimeClass Part::classRecord = {"Part", 0, 1};
int Style::nAlive = 0;

void Style::Serialize(VELM_CArchive& ar)
{
    ar.IsStoring() ? ar << size : ar >> size;
}

Part::~Part()
{
    --Style::nAlive;
    delete pOwned;
    for (const Part* pPart : list)
        delete pPart;
    for (const auto& entry : byNumber)
        delete entry.second;
}

void Part::Serialize(VELM_CArchive& ar)
{
    if (ar.IsStoring()) {
        ar.WriteObject(pReferred);
        ar.WriteOwnedOrNull(pOwned);
        ar << current << unique << AfxOwned(list) << AfxOwnedOrNull(byNumber) << uniques << byName << AfxOwned(styles);
        ar << style;
    } else {
        pReferred = static_cast<Part*>(ar.ReadObject(&classRecord));
        ar.ReadOwnedOrNull(pOwned);
        ar >> current >> unique >> AfxOwned(list) >> AfxOwnedOrNull(byNumber) >> uniques >> byName >> AfxOwned(styles);
        ar >> style;
    }
}

const VELM_CClassTable& OwnerClasses()
{
    static VELM_CClassTable table;
    static const int nAdded = table.Add<Style>(&Style::classRecord) + table.Add<Part>(&Part::classRecord);
    if (nAdded != 2)
        std::abort();
    return table;
}

std::unique_ptr<Part> MakeParts(unsigned nSeed, unsigned nParts)
{
    std::mt19937 random(nSeed);
    const auto Below = [&](size_t n) { return random() % static_cast<unsigned>(n); };
    std::unique_ptr<Part> root(new Part);
    std::vector<Part*> parts{root.get()};
    std::vector<std::shared_ptr<Style>> styles{nullptr};
    root->unique.reset();
    for (unsigned i = 1; i < nParts; ++i) {
        Part* const pOwner = parts[Below(parts.size())];
        Part* const pNew = new Part;
        pNew->unique.reset();
        parts.push_back(pNew);
        const auto nWay = Below(6);
        if (nWay == 0)
            pOwner->byNumber[static_cast<int>(i)] = pNew;
        else if (nWay == 1)
            pOwner->uniques.emplace_back(pNew);
        else if (nWay == 2)
            pOwner->byName[std::string(i % 3, 'n')].emplace_back(pNew);
        else if (nWay == 3 && pOwner->pOwned == nullptr)
            pOwner->pOwned = pNew;
        else if (nWay < 5 && pOwner->unique == nullptr)
            pOwner->unique.reset(pNew);
        else
            pOwner->list.push_back(pNew);
        if (Below(3) == 0)
            styles.emplace_back(new Style);
        pNew->style = styles[Below(styles.size())];
        if (Below(2) == 0 && styles.back() != nullptr)
            pOwner->styles.push_back(styles.back());
        pOwner->current = pNew->style;
        pNew->pReferred = parts[Below(parts.size())];
    }
    return root;
}

std::string StoredParts(const Part& root)
{
    VELM_CMemoryFile file;
    VELM_CArchive ar(&file, VELM_CArchive::store);
    ar.SetClassTable(&OwnerClasses());
    ar.WriteObject(&root);
    if (!ar.AreOwnersComplete(&root))
        std::abort();
    ar.Close();
    return std::string(static_cast<const char*>(file.GetBytes()), file.GetSize());
}

std::string LoadParts(const std::string& bytes, int nBufSize)
{
    const int nBefore = Style::nAlive;
    std::string fault, again;
    {
        VELM_CMemoryFile file(bytes.data(), bytes.size());
        VELM_CArchive ar(&file, VELM_CArchive::load, nBufSize);
        ar.SetClassTable(&OwnerClasses());
        VELM_CObject* pRoot = nullptr;
        const int nRaised = pfm_protect([&] {
            pRoot = ar.ReadObject(&Part::classRecord);
            if (pRoot == nullptr)
                ar.RaiseInvalid("the root is NULL");
        });
        if (nRaised == 0 && ar.AreOwnersComplete(pRoot)) {
            const std::unique_ptr<Part> root(static_cast<Part*>(pRoot));
            again = StoredParts(*root);
        } else {
            fault = ar.GetErrorText();
            ar.DeleteLoadedObjects();
        }
    }
    if (Style::nAlive != nBefore || (nBufSize != 0 && !again.empty() && !LoadParts(again, 0).empty()))
        std::abort();
    return fault;
}
