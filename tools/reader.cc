#include "reader.h"

#include <cstdarg>
#include <cstring>

// The version of a base is told as a value of this type.
static const Type& VersionType()
{
    static Type type;
    type.kind = Kind::integer;
    type.name = "version";
    type.nBytes = 4;
    return type;
}

static const uint32_t nMostValues = 1000; // inside each other in one object

Reader::Reader(Description& description, const Input& input)
    : m_input(input), m_description(description), m_file(input.GetBytes(), static_cast<unsigned long>(input.GetSize())),
      m_ar(&m_file, VELM_CArchive::load, 512) // small: the walk goes to and fro in what is in memory already
{
    m_ar.m_nMapGrowth = 4096;
    m_ar.SetClassTable(&description.GetTable());
    m_objects.push_back({0, 0, 0, 0, 0});
}

void Reader::Fail(const char* lpszFormat, ...)
{
    char text[256];
    va_list args;
    va_start(args, lpszFormat);
    std::vsnprintf(text, sizeof text, lpszFormat, args);
    va_end(args);
    m_ar.SeekTo(m_nStart);
    m_ar.RaiseInvalid(text);
}

bool Reader::Scan(Sink& sink)
{
    m_pSink = &sink;
    m_bScanning = true;
    bool bGood = Walk(m_description.m_archive, 0, 0);
    if (bGood && m_ar.GetOffset() != m_input.GetSize()) {
        m_nStart = m_ar.GetOffset();
        bGood = pfm_protect([&] { Fail("%llu bytes are left", m_input.GetSize() - m_nStart); }) == 0;
    }
    if (!bGood) {
        m_nDamage = m_ar.GetOffset();
        m_error = m_ar.GetErrorText();
        const std::string path = GetPath();
        if (!path.empty())
            m_error += ", at " + path;
        if (const uint32_t nOwner = GetOwner())
            m_error += ", in " + MetOf(nOwner).pClass->name + " (index " + std::to_string(nOwner) + ")";
    }
    m_bScanning = false;
    return bGood;
}

bool Reader::ShowArchive(Sink& sink)
{
    m_pSink = &sink;
    m_nNext = 1;
    return m_ar.SeekTo(0) != 0 && Walk(m_description.m_archive, 0, 0);
}

bool Reader::ShowObject(uint32_t nIndex, Sink& sink)
{
    m_pSink = &sink;
    m_nNext = nIndex + 1;
    const Met& met = MetOf(nIndex);
    return m_ar.SeekTo(m_objects[nIndex].nStart) != 0 && Walk(*met.pClass, nIndex, met.nSchema);
}

bool Reader::Walk(const Aggregate& aggregate, uint32_t nObject, unsigned nSchema)
{
    m_frames.clear();
    m_variables.clear();
    m_nSteps = m_bScanning ? 0 : m_nSteps; // objects are shown one by one
    m_nDepth = 0;
    m_nValueFrames = 0;
    const int nRaised = pfm_protect([&] {
        m_pSink->Begin(nullptr, 0);
        Push(&aggregate, nullptr, 0, nObject);
        m_variables[0] = nSchema;
        while (!m_frames.empty()) {
            Frame& frame = m_frames.back();
            if (frame.pAggregate == nullptr) {
                if (frame.nAt == frame.nCount) {
                    Pop();
                    continue;
                }
                const std::vector<const Type*>& parts = frame.pType->parts;
                const uint32_t nAt = frame.nAt++;
                Enter(*(frame.pType->kind == Kind::variant ? parts[frame.nVariables]
                        : frame.pType->kind == Kind::tuple ? parts[nAt]
                                                           : parts[0]));
            } else if (const Item* const pItem = NextItem(frame)) {
                const size_t nVariables = frame.nVariables;
                const unsigned long long nBits = Enter(*pItem->pType); // the frame may have moved
                if (pItem->nVariable >= 0)
                    m_variables[nVariables + static_cast<size_t>(pItem->nVariable)] = static_cast<long long>(nBits);
            } else {
                Pop();
            }
        }
    });
    return nRaised == 0;
}

void Reader::Push(const Aggregate* pAggregate, const Type* pType, uint32_t nCount, uint32_t nObject)
{
    Frame frame = {pAggregate, pType, 0, nCount, static_cast<uint32_t>(m_variables.size()), nObject};
    if (nObject != 0) {
        ++m_nDepth;
        frame.nCount = m_nValueFrames;
        m_nValueFrames = 0;
    } else if (++m_nValueFrames > nMostValues) {
        Fail("values are nested deeper than %u", nMostValues);
    }
    if (pAggregate != nullptr) {
        size_t i = m_frames.size(); // an embedded one goes by the schema of the object that it is in
        while (i > 0 && m_frames[i - 1].pAggregate == nullptr)
            --i;
        const long long nSchema = i == 0 ? 0 : m_variables[m_frames[i - 1].nVariables];
        m_variables.resize(m_variables.size() + pAggregate->nVariables, 0);
        m_variables[frame.nVariables] = nSchema;
    }
    m_frames.push_back(frame);
}

void Reader::Pop()
{
    const Frame frame = m_frames.back();
    m_pSink->End(frame.pType);
    m_frames.pop_back();
    if (frame.pAggregate != nullptr)
        m_variables.resize(frame.nVariables);
    if (frame.nObject == 0) {
        --m_nValueFrames;
        return;
    }
    --m_nDepth;
    m_nValueFrames = frame.nCount;
    if (m_bScanning) {
        Object& object = m_objects[frame.nObject];
        object.nEnd = m_ar.GetOffset() & ((1ULL << 62) - 1);
        object.nLast = static_cast<uint32_t>(m_objects.size() - 1);
        m_pSink->EndObject(frame.nObject);
    }
}

// Goes on to the next field that is there; NULL behind the last.
const Item* Reader::NextItem(Frame& frame)
{
    const std::vector<Item>& items = frame.pAggregate->items;
    long long* const pVariables = &m_variables[frame.nVariables];
    while (frame.nAt < items.size()) {
        const Item& item = items[frame.nAt++];
        if (item.op == Item::branch && item.pCondition->Evaluate(pVariables) == 0)
            frame.nAt = item.nTarget;
        if (item.op == Item::jump)
            frame.nAt = item.nTarget;
        if (item.op == Item::version) {
            Value value;
            m_nStart = m_ar.GetOffset();
            m_pSink->Name(item.name);
            value.nBits = LoadBits(4, false);
            if (value.nBits > item.nNewest)
                Fail("%s is %llu; the newest known is %u", item.name.c_str(), value.nBits, item.nNewest);
            pVariables[item.nVariable] = static_cast<long long>(value.nBits);
            m_pSink->Plain(VersionType(), value);
        }
        if (item.op != Item::field)
            continue;
        if (item.nTaken >= 0 && pVariables[item.nTaken]++ != 0) {
            m_nStart = m_ar.GetOffset();
            Fail("by the description the field %s comes twice", item.name.c_str());
        }
        m_pSink->Name(item.name);
        return &item;
    }
    return nullptr;
}

unsigned long long Reader::LoadBits(unsigned nBytes, bool bSigned)
{
    unsigned char low = 0, high = 0;
    uint32_t dw = 0;
    unsigned long long nBits = 0;
    bool bCame;
    if (nBytes <= 2) {
        bCame = m_ar.LoadByte(low) && (nBytes == 1 || m_ar.LoadByte(high));
        nBits = low | static_cast<unsigned>(high) << 8;
    } else if (nBytes == 4) {
        bCame = m_ar.Load32(dw) != 0;
        nBits = dw;
    } else {
        bCame = m_ar.Load64(nBits) != 0;
    }
    if (!bCame)
        m_ar.RaiseDataEnded();
    const unsigned long long nSign = 1ULL << (8 * nBytes - 1);
    return bSigned && nBytes < 8 ? (nBits ^ nSign) - nSign : nBits;
}

unsigned long long Reader::LoadLength(const Length& length)
{
    if (length.pPrefix != nullptr) {
        const unsigned long long nLength = length.pPrefix->kind == Kind::count
                                               ? m_ar.ReadCount()
                                               : LoadBits(length.pPrefix->nBytes, length.pPrefix->bSigned);
        if (nLength > 0xFFFFFFFF)
            Fail("the length %lld is not possible", static_cast<long long>(nLength));
        return nLength;
    }
    size_t i = m_frames.size();
    while (i > 0 && m_frames[i - 1].pAggregate == nullptr)
        --i;
    const long long nLength = length.pExpression->Evaluate(&m_variables[m_frames[i - 1].nVariables]);
    if (nLength < 0 || nLength > 0xFFFFFFFFLL)
        Fail("the length %lld is not possible", nLength);
    return static_cast<unsigned long long>(nLength);
}

void Reader::TakeText(unsigned long long nLength, Value& rValue)
{
    const unsigned long long nAt = m_ar.GetOffset();
    if (nLength > m_input.GetSize() - nAt) { // by the library: it says how far the data went
        m_ar.SeekTo(m_input.GetSize());
        unsigned char by = 0;
        m_ar >> by;
    }
    rValue.pText = m_input.GetBytes() + nAt;
    rValue.nLength = static_cast<size_t>(nLength);
    m_ar.SeekTo(nAt + nLength);
}

// Reads one value, or the beginning of one that has parts. Delivers a number.
unsigned long long Reader::Enter(const Type& type)
{
    m_nStart = m_ar.GetOffset();
    if (!m_bScanning && m_nStart >= m_nDamage)
        Fail("the damage");
    if (++m_nSteps % 65536 == 0) {
        if (m_bScanning && m_nSteps > (1 << 20) + 64 * m_nStart)
            Fail("the description asks for more values than the archive can hold");
        if (m_progress)
            m_progress(m_nStart);
    }
    Value value;
    switch (type.kind) {
    case Kind::boolean:
    case Kind::character:
    case Kind::integer:
    case Kind::real:
    case Kind::time:
    case Kind::enumeration:
        value.nBits = LoadBits(type.nBytes, type.bSigned);
        if (type.kind == Kind::enumeration && !type.pEnumeration->bOpen &&
            type.pEnumeration->NameOf(static_cast<long long>(value.nBits)) == nullptr)
            Fail("%lld is no value of %s", static_cast<long long>(value.nBits), type.name.c_str());
        break;
    case Kind::count:
        value.nBits = m_ar.ReadCount();
        break;
    case Kind::nothing:
        break;
    case Kind::reference:
    case Kind::classReference:
        EnterReference(type);
        return 0;
    case Kind::mapped:
        EnterMapped(type);
        return 0;
    default:
        if (type.IsMade())
            EnterMade(type);
        else
            EnterText(type);
        return 0;
    }
    m_pSink->Plain(type, value);
    return value.nBits;
}

void Reader::EnterText(const Type& type)
{
    Value value;
    unsigned long nLength = 0;
    switch (type.kind) {
    case Kind::string:
        if (!m_ar.LoadLength(nLength))
            m_ar.RaiseDataEnded();
        TakeText(nLength, value);
        break;
    case Kind::wideString:
        TakeText(static_cast<unsigned long long>(m_ar.ReadCount()) * type.nBytes, value);
        break;
    case Kind::bitset:
        TakeText((type.nBytes + 7) / 8, value);
        if (type.nBytes % 8 != 0 && static_cast<unsigned char>(value.pText[value.nLength - 1]) >> type.nBytes % 8 != 0)
            Fail("a bit is set behind the last of %u", type.nBytes);
        break;
    case Kind::rest:
        TakeText(m_input.GetSize() - m_nStart, value);
        break;
    case Kind::line: {
        const char* const p = m_input.GetBytes() + m_nStart;
        const unsigned long long nLeft = m_input.GetSize() - m_nStart;
        unsigned long long n = 0;
        while (n < nLeft && p[n] != '\n' && p[n] != '\r')
            ++n;
        const unsigned long long nEnd = n == nLeft ? n : p[n] == '\n' || n + 1 == nLeft ? n + 1 : n + 2;
        TakeText(nEnd == 0 ? 1 : nEnd, value);
        break;
    }
    default:
        TakeText(LoadLength(type.length), value);
    }
    m_pSink->Plain(type, value);
}

void Reader::EnterMade(const Type& type)
{
    if (type.kind == Kind::aggregate) {
        m_pSink->Begin(&type, 0);
        Push(type.pAggregate, &type, 0, 0);
        return;
    }
    uint32_t nCount = type.kind == Kind::tuple ? static_cast<uint32_t>(type.parts.size()) : 1, nAlternative = 0;
    if (type.kind == Kind::sequence) {
        nCount = static_cast<uint32_t>(LoadLength(type.length));
    } else if (type.kind == Kind::optional) {
        const unsigned long long nThere = LoadBits(1, false);
        if (nThere > 1)
            Fail("an optional value begins with %llu", nThere);
        if (nThere == 0) {
            m_pSink->Plain(type, Value());
            return;
        }
    } else if (type.kind == Kind::variant) {
        nAlternative = static_cast<uint32_t>(m_ar.ReadCount());
        if (nAlternative >= type.parts.size())
            Fail("%u is no alternative of a variant of %zu", nAlternative, type.parts.size());
    }
    m_pSink->Begin(&type, type.kind == Kind::variant ? nAlternative : nCount);
    Push(nullptr, &type, nCount, 0);
    if (type.kind == Kind::variant)
        m_frames.back().nVariables = nAlternative;
}

uint32_t Reader::AddMet(const Aggregate* pClass, unsigned nSchema)
{
    const auto added = m_metAt.emplace(std::make_pair(pClass, nSchema), static_cast<uint32_t>(m_met.size()));
    if (added.second)
        m_met.push_back({pClass, nSchema});
    return added.first->second;
}

// What ReadClass has read: a class that is new to the archive has an index now.
void Reader::NoteClass(const Aggregate* pClass, unsigned nSchema)
{
    if (m_ar.m_nIndexCount == m_objects.size())
        return;
    m_objects.push_back({0, 0, Object::cls, 0, AddMet(pClass, nSchema)});
    m_pSink->Record(pClass->name.c_str(), nSchema);
}

void Reader::EnterReference(const Type& type)
{
    Value value;
    const bool bClass = type.kind == Kind::classReference;
    if (!m_bScanning) {
        const bool bWhole = ShownReference(value, bClass);
        if (bWhole || value.nObject != 0)
            m_pSink->Plain(type, value);
        if (!bWhole)
            Fail("the damage");
        return;
    }
    unsigned nSchema = 0;
    unsigned long nIndex = 0;
    const VELM_CRuntimeClass* const pRecord = m_ar.ReadClass(nullptr, &nSchema, bClass ? nullptr : &nIndex);
    const Aggregate* pClass = nullptr;
    if (pRecord != nullptr) {
        pClass = m_description.ClassOf(*pRecord);
        NoteClass(pClass, nSchema);
    } else if (nIndex != 0) {
        pClass = MetOf(static_cast<uint32_t>(nIndex)).pClass;
    }
    if (bClass) {
        value.lpszClass = pRecord->m_pszName;
        value.nSchema = nSchema;
        m_pSink->Plain(type, value);
        return;
    }
    if (pClass != nullptr && !pClass->IsDerivedFrom(type.pAggregate))
        Fail("class \"%s\" is not \"%s\" or derived from it", pClass->name.c_str(), type.pAggregate->name.c_str());
    value.nObject = static_cast<uint32_t>(nIndex);
    value.bNew = pRecord != nullptr;
    if (value.bNew) {
        m_ar.MapObject(&m_standIn);
        value.nObject = static_cast<uint32_t>(m_objects.size());
        m_objects.push_back({m_ar.GetOffset(), 0, Object::object, 0, AddMet(pClass, nSchema)});
    }
    m_pSink->Plain(type, value);
    if (!value.bNew)
        return;
    m_pSink->BeginObject(value.nObject);
    m_pSink->Begin(nullptr, 0);
    Push(pClass, nullptr, 0, value.nObject);
    m_variables[m_frames.back().nVariables] = nSchema;
}

// A reference that has been scanned: its form is right. A new object is passed; false where it did not end.
bool Reader::ShownReference(Value& rValue, bool bClass)
{
    unsigned long long nTag = LoadBits(4, false);
    bool bIsClass = nTag > VELM_CArchive::wClassTag;
    unsigned long long nIndex = bIsClass ? nTag - VELM_CArchive::wClassTag : nTag;
    if (nTag == VELM_CArchive::wNewClassTag) {
        LoadBits(4, false);
        m_ar.SeekTo(m_ar.GetOffset() + LoadBits(4, false));
        nIndex = m_nNext++;
    } else if (nTag == VELM_CArchive::wBigObjectTag) {
        nIndex = LoadBits(4, false);
        bIsClass = nIndex >= VELM_CArchive::dwBigClassTag;
        nIndex &= VELM_CArchive::dwBigClassTag - 1;
    }
    if (nIndex >= m_objects.size())
        return false;
    if (bClass) {
        rValue.lpszClass = MetOf(static_cast<uint32_t>(nIndex)).pClass->name.c_str();
        rValue.nSchema = MetOf(static_cast<uint32_t>(nIndex)).nSchema;
        return true;
    }
    if (bIsClass && m_nNext >= m_objects.size())
        return false;
    rValue.bNew = bIsClass;
    rValue.nObject = bIsClass ? m_nNext : static_cast<uint32_t>(nIndex);
    if (!bIsClass)
        return true;
    const Object& object = m_objects[m_nNext];
    m_nNext = object.nLast + 1;
    return object.nEnd != 0 && m_ar.SeekTo(object.nEnd) != 0;
}

void Reader::EnterMapped(const Type& type)
{
    Value value;
    value.nObject = m_bScanning ? static_cast<uint32_t>(m_objects.size()) : m_nNext++;
    if (m_bScanning) {
        m_ar.MapObject(&m_standIn);
        m_objects.push_back({0, 0, Object::mapped, 0, AddMet(type.pAggregate, type.pAggregate->record.m_nSchema)});
    }
    m_pSink->Plain(type, value);
}

uint32_t Reader::GetOwner() const
{
    size_t i = m_frames.size();
    while (i > 0 && m_frames[i - 1].nObject == 0)
        --i;
    return i == 0 ? 0 : m_frames[i - 1].nObject;
}

std::string Reader::GetPath(bool bWhole) const
{
    const size_t nMostShown = 40;
    size_t nFrom = 0, nFrames = m_frames.size();
    while (!bWhole && nFrames > 0 && m_frames[nFrames - 1].nObject == 0)
        --nFrames;
    nFrom = bWhole || nFrames == 0 ? 0 : nFrames - 1;
    nFrames = m_frames.size();
    std::string path;
    for (size_t i = nFrom; i < nFrames; ++i) {
        if (nFrames - nFrom > 2 * nMostShown && i == nFrom + nMostShown) {
            i = nFrames - nMostShown;
            path += "...";
        }
        const Frame& frame = m_frames[i];
        if (frame.nAt == 0)
            continue;
        if (frame.pAggregate != nullptr)
            path += (path.empty() ? "" : ".") + frame.pAggregate->items[frame.nAt - 1].name;
        else if (frame.pType->kind == Kind::sequence || frame.pType->kind == Kind::tuple)
            path += "[" + std::to_string(frame.nAt - 1) + "]";
    }
    return path;
}
