// tavnoview archive: JSON back into an archive.
//
// The records come in any order, and the bytes of an object stand inside the first one that refers to it. So each
// record becomes bytes of its own first, in a temporary file, with the references beside them in another; then they are
// put together from the archive itself on, by the library's references, with a stack of what is under way.
#include <algorithm>
#include <cstring>
#include <deque>
#include <map>

#include "command.h"
#include "encoder.h"

namespace {

// What an archive writes, in a temporary file.
class SpoolFile : public VELM_CFile {
public:
    explicit SpoolFile(std::FILE* pFile) : m_pFile(pFile) {}
    void Write(const void* lpBuf, unsigned nCount) override { std::fwrite(lpBuf, 1, nCount, m_pFile); }

private:
    std::FILE* m_pFile;
};

// One record: an object, what the program maps, or the archive itself.
class Part : public VELM_CObject {
public:
    VELM_CRuntimeClass* m_pRecord = nullptr; // NULL for the archive itself
    const Aggregate* m_pClass = nullptr;
    unsigned long long m_nBytes = 0, m_nReferred = 0; // where its own begin
    uint32_t m_nIndex = 0;
    bool m_bStored = false, m_bMapped = false, m_bOwned = false;
    VELM_CRuntimeClass* GetRuntimeClass() const override { return m_pRecord; }
};

class Builder {
public:
    Builder(const Description& description, const Input& json)
        : m_description(description), m_json(json), m_pBytes(OpenSpool()), m_pReferred(OpenSpool())
    {
    }
    ~Builder()
    {
        for (std::FILE* pFile : {m_pBytes, m_pReferred}) {
            if (pFile != nullptr)
                std::fclose(pFile);
        }
    }
    Builder(const Builder&) = delete;
    Builder& operator=(const Builder&) = delete;

    // The records as bytes. False, and what is wrong.
    bool Encode(std::string& rError);
    bool Save(const std::string& path, std::string& rError);
    // Objects that nothing refers to.
    std::string GetLeftOut() const;

private:
    const Description& m_description;
    const Input& m_json;
    std::FILE *m_pBytes, *m_pReferred;
    Input m_bytes, m_referred;
    std::deque<Part> m_parts; // in the order of the records; then what is mapped
    size_t m_nRecords = 0, m_nArchive = 0;
    bool m_bArchive = false;
    std::vector<std::pair<uint32_t, uint32_t>> m_byIndex; // the index in the JSON, and the part
    std::map<std::pair<const Aggregate*, unsigned>, VELM_CRuntimeClass> m_records; // of each class and schema
    unsigned long long m_nWatched = ~0ULL;
    std::string m_watched;

    bool ReadAll(std::string& rError);
    bool Check(unsigned long long nReferred, const Referred& referred, bool bInObject);
    bool FindTwice(std::string& rError);
    void AddRecord(Encoder& encoder, VELM_CArchive& ar, const Record& record, const std::string& path, bool bArchive);
    VELM_CRuntimeClass* RecordOf(const Aggregate& cls, unsigned nSchema);
    Part* Find(uint32_t nIndex);
    void Store(VELM_CArchive& ar);
    const Referred* ReferredAt(unsigned long long n) const
    {
        return reinterpret_cast<const Referred*>(m_referred.GetBytes()) + n;
    }
    unsigned long long BytesEnd(size_t nPart) const
    {
        return nPart + 1 < m_nRecords ? m_parts[nPart + 1].m_nBytes : m_bytes.GetSize();
    }
    unsigned long long ReferredEnd(size_t nPart) const
    {
        return nPart + 1 < m_nRecords ? m_parts[nPart + 1].m_nReferred : m_referred.GetSize() / sizeof(Referred);
    }
};

VELM_CRuntimeClass* Builder::RecordOf(const Aggregate& cls, unsigned nSchema)
{
    const auto added = m_records.emplace(std::make_pair(&cls, nSchema), VELM_CRuntimeClass());
    if (added.second)
        added.first->second = {cls.record.m_pszName, 0, nSchema};
    return &added.first->second;
}

Part* Builder::Find(uint32_t nIndex)
{
    const auto found = std::lower_bound(m_byIndex.begin(), m_byIndex.end(), std::make_pair(nIndex, 0U));
    return found == m_byIndex.end() || found->first != nIndex ? nullptr : &m_parts[found->second];
}

void Builder::AddRecord(Encoder& encoder, VELM_CArchive& ar, const Record& record, const std::string& path,
                        bool bArchive)
{
    const bool bFirst = m_nWatched == ~0ULL; // else all has been read already
    if (bFirst)
        m_parts.emplace_back();
    Part ignored;
    Part& part = bFirst ? m_parts.back() : ignored;
    part.m_nBytes = ar.GetOffset();
    part.m_nReferred = encoder.GetReferences();
    if (bArchive) {
        if (m_bArchive && bFirst)
            throw WrongEdit{"archive: is there twice"};
        m_bArchive = true;
        m_nArchive = bFirst ? m_parts.size() - 1 : m_nArchive;
        encoder.Encode(record, record.Root(), m_description.m_archive, 0, path);
        return;
    }
    const Node *pIndex = nullptr, *pClass = nullptr, *pSchema = nullptr, *pFields = nullptr;
    for (const Node* p = record.First(record.Root()); p != nullptr; p = record.Next(*p)) {
        const std::string name = record.NameOf(*p);
        const Node** const pp = name == "index"    ? &pIndex
                                : name == "class"  ? &pClass
                                : name == "schema" ? &pSchema
                                : name == "fields" ? &pFields
                                                   : nullptr;
        if (pp == nullptr || *pp != nullptr)
            throw WrongEdit{path + "." + name +
                            ": expected \"index\", \"class\", \"schema\" and \"fields\", each once"};
        *pp = p;
    }
    if (pIndex == nullptr || pIndex->kind != Node::integer || pIndex->bBelow || pIndex->nAmount == 0 ||
        pIndex->nAmount >= VELM_CArchive::nIndexLimit)
        throw WrongEdit{path + ".index: expected an index above 0"};
    part.m_nIndex = static_cast<uint32_t>(pIndex->nAmount);
    part.m_pClass =
        pClass == nullptr || pClass->kind != Node::text ? nullptr : m_description.FindClass(record.TextOf(*pClass));
    if (part.m_pClass == nullptr)
        throw WrongEdit{path + ".class: expected a class that the description has with a schema"};
    unsigned nSchema = part.m_pClass->record.m_nSchema;
    if (pSchema != nullptr) {
        if (pSchema->kind != Node::integer || pSchema->bBelow || pSchema->nAmount > nSchema)
            throw WrongEdit{path + ".schema: expected a schema up to " + std::to_string(nSchema)};
        nSchema = static_cast<unsigned>(pSchema->nAmount);
    }
    if (pFields == nullptr)
        throw WrongEdit{path + ".fields: is missing"};
    part.m_pRecord = RecordOf(*part.m_pClass, nSchema);
    encoder.Encode(record, *pFields, *part.m_pClass, nSchema, path + ".fields");
}

// Reads the JSON, to the end or to the reference that is watched for.
bool Builder::ReadAll(std::string& rError)
{
    SpoolFile bytes(m_pBytes);
    VELM_CArchive ar(&bytes, VELM_CArchive::store);
    Encoder encoder(m_description, ar, m_pReferred);
    if (m_nWatched != ~0ULL)
        encoder.WatchFor(m_nWatched, m_watched);
    bool bGood = false;
    try {
        bGood = ReadRecords(
            m_json.GetBytes(), m_json.GetBytes() + m_json.GetSize(),
            [&](const Record& record, const std::string& path, bool bArchive) {
                AddRecord(encoder, ar, record, path, bArchive);
            },
            rError);
    } catch (const WrongEdit& wrong) {
        rError = wrong.text;
    }
    ar.Close();
    return bGood;
}

// Whether a reference can be stored; else what is wrong with it is to be found again, for its path.
bool Builder::Check(unsigned long long nReferred, const Referred& referred, bool bInObject)
{
    const Type& type = *referred.pType;
    if (type.kind != Kind::reference)
        return true;
    m_watched.clear();
    if (referred.nObject == 0) {
        if (type.bNotNull)
            m_watched = "an object that is owned is null";
    } else if (Part* const pPart = Find(referred.nObject)) {
        if (!pPart->m_pClass->IsDerivedFrom(type.pAggregate))
            m_watched = "object " + std::to_string(referred.nObject) + " is a " + pPart->m_pClass->name + ", not a " +
                        type.pAggregate->name;
        else if (type.bOwner && !type.bShared && bInObject && pPart->m_bOwned)
            m_watched = "object " + std::to_string(referred.nObject) + " has an owner already";
        pPart->m_bOwned = pPart->m_bOwned || (type.bOwner && !type.bShared);
    } else {
        m_watched = "there is no object " + std::to_string(referred.nObject);
    }
    m_nWatched = m_watched.empty() ? m_nWatched : nReferred;
    return m_watched.empty();
}

bool Builder::FindTwice(std::string& rError)
{
    std::sort(m_byIndex.begin(), m_byIndex.end());
    for (size_t i = 1; i < m_byIndex.size(); ++i) {
        if (m_byIndex[i].first == m_byIndex[i - 1].first) {
            const size_t n = m_byIndex[i].second - (m_bArchive && m_nArchive < m_byIndex[i].second);
            rError = "objects[" + std::to_string(n) + "].index: " + std::to_string(m_byIndex[i].first) +
                     " is another object's as well";
            return true;
        }
    }
    return false;
}

bool Builder::Encode(std::string& rError)
{
    if (m_pBytes == nullptr || m_pReferred == nullptr) {
        rError = std::string("a temporary file: ") + std::strerror(errno);
        return false;
    }
    if (!ReadAll(rError))
        return false;
    if (!m_bArchive) {
        rError = "archive: is missing";
        return false;
    }
    if (!m_bytes.Map(m_pBytes, rError) || !m_referred.Map(m_pReferred, rError))
        return false;
    m_nRecords = m_parts.size();
    for (size_t i = 0; i < m_nRecords; ++i) {
        if (i != m_nArchive)
            m_byIndex.emplace_back(m_parts[i].m_nIndex, static_cast<uint32_t>(i));
    }
    const unsigned long long nReferred = m_referred.GetSize() / sizeof(Referred);
    for (unsigned long long i = 0; i < nReferred; ++i) {
        const Referred& referred = *ReferredAt(i);
        if (referred.pType->kind != Kind::mapped)
            continue;
        m_byIndex.emplace_back(referred.nObject, static_cast<uint32_t>(m_parts.size()));
        m_parts.emplace_back();
        m_parts.back().m_pClass = referred.pType->pAggregate;
        m_parts.back().m_bMapped = true;
    }
    if (FindTwice(rError))
        return false;
    for (size_t i = 0; i < m_nRecords; ++i) {
        for (unsigned long long n = m_parts[i].m_nReferred; n < ReferredEnd(i); ++n) {
            if (!Check(n, *ReferredAt(n), i != m_nArchive)) {
                ReadAll(rError);
                return false;
            }
        }
    }
    return true;
}

void Builder::Store(VELM_CArchive& ar)
{
    struct Frame {
        size_t nPart;
        unsigned long long nBytes, nReferred;
    };
    std::vector<Frame> frames = {{m_nArchive, m_parts[m_nArchive].m_nBytes, m_parts[m_nArchive].m_nReferred}};
    while (!frames.empty()) {
        Frame& frame = frames.back();
        const bool bMore = frame.nReferred < ReferredEnd(frame.nPart);
        const Referred* const pReferred = bMore ? ReferredAt(frame.nReferred) : nullptr;
        const unsigned long long nTo = bMore ? pReferred->nAt : BytesEnd(frame.nPart);
        ar.StoreBlock(m_bytes.GetBytes() + frame.nBytes, static_cast<unsigned long>(nTo - frame.nBytes));
        frame.nBytes = nTo;
        ++frame.nReferred;
        if (!bMore) {
            frames.pop_back();
        } else if (pReferred->pType->kind == Kind::classReference) {
            ar.WriteClass(RecordOf(*pReferred->pClass, pReferred->nSchema));
        } else if (pReferred->nObject == 0) {
            ar.WriteObject(nullptr);
        } else {
            const auto found =
                std::lower_bound(m_byIndex.begin(), m_byIndex.end(), std::make_pair(pReferred->nObject, 0U));
            Part& part = m_parts[found->second];
            if (pReferred->pType->kind == Kind::mapped) {
                ar.MapObject(&part);
            } else if (part.m_bStored) {
                ar.WriteObject(&part);
                continue;
            } else if (part.m_bMapped) {
                ar.RaiseInvalid("an object is referred to before it is mapped");
            } else {
                ar.WriteClass(part.m_pRecord);
                ar.MapObject(&part);
                frames.push_back({found->second, part.m_nBytes, part.m_nReferred});
            }
            part.m_bStored = true;
        }
    }
}

bool Builder::Save(const std::string& path, std::string& rError)
{
    VELM_CSaveFile file;
    if (!file.Open(path == "-" ? "/dev/stdout" : path.c_str())) {
        rError = file.GetErrorText().m_data;
        return false;
    }
    VELM_CArchive ar(&file, VELM_CArchive::store);
    const int nRaised = pfm_protect([&] {
        Store(ar);
        ar.Close();
    });
    if (nRaised != 0)
        ar.Abort();
    if (nRaised == 0 && file.Commit())
        return true;
    rError = nRaised != 0 ? path + ": " + ar.GetErrorText() : std::string(file.GetErrorText().m_data);
    return false;
}

std::string Builder::GetLeftOut() const
{
    size_t nLeftOut = 0;
    std::string first;
    for (size_t i = 0; i < m_nRecords; ++i) {
        if (i == m_nArchive || m_parts[i].m_bStored)
            continue;
        if (nLeftOut++ == 0)
            first = "objects[" + std::to_string(i - (m_nArchive < i)) + "]: nothing refers to object " +
                    std::to_string(m_parts[i].m_nIndex) + ", which is left out";
    }
    return nLeftOut < 2 ? first : first + ", and " + std::to_string(nLeftOut - 1) + " more";
}

} // namespace

int RunArchive(const Arguments& arguments)
{
    std::string error;
    Input json;
    if (arguments.description.empty() || arguments.output.empty())
        return Trouble("archive needs -d DESC and -o FILE");
    const std::unique_ptr<Description> pDescription = ReadDescription(arguments.description, error);
    if (pDescription == nullptr || !json.Open(arguments.files[0], error))
        return Trouble(error);
    Builder builder(*pDescription, json);
    if (!builder.Encode(error)) {
        Trouble(json.m_path + ": " + error);
        return different;
    }
    if (!builder.Save(arguments.output, error))
        return Trouble(error);
    const std::string leftOut = builder.GetLeftOut();
    if (!leftOut.empty())
        Trouble(json.m_path + ": " + leftOut);
    return good;
}
