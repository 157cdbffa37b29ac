// One walk along an archive by its description, for all commands: it tells what it meets to a sink.
//
// The archive is read twice. `Scan` goes along it once, in the order of its bytes, into each object where it stands
// first, and notes where the data of each begins and ends. Then `ShowArchive` and `ShowObject` go along one thing,
// past the objects that stand inside it:
//
//     bytes    archive ( object 2 ( object 3 ) object 4 ( ) )
//     Scan     1 ------- 2 -------- 3 -------- 4 ----------->
//     Show     archive -(..................................)-    object 2 -(..........)-    object 3 -    object 4 -
//
// What is under way is on a stack of frames of its own, so that depth costs memory in proportion and no machine stack.
// A raise of the library, or of the reader by the library's means, ends a walk: nothing that owns memory is in a local
// variable meanwhile.
#ifndef TAVNOVIEW_READER_H
#define TAVNOVIEW_READER_H

#include <cstdint>
#include <functional>

#include "description.h"
#include "input.h"

struct Value {
    unsigned long long nBits = 0; // a number
    const char* pText = nullptr;  // a text, or bytes
    size_t nLength = 0;
    uint32_t nObject = 0;            // a reference: the index
    bool bNew = false;               // and whether the object stands here
    const char* lpszClass = nullptr; // a class reference
    unsigned nSchema = 0;
};

// What is told of a walk, in the order of the values. Inside `Begin` and `End` stand the fields of an aggregate (each
// announced by its name), or the parts of another made type, for which `nCount` is their number, or which alternative
// of a variant it is. While scanning, objects stand where they stand in the archive.
class Sink {
public:
    virtual ~Sink() = default;
    virtual void Name(const std::string&) {}
    virtual void Plain(const Type&, const Value&) {}
    virtual void Begin(const Type*, uint32_t /*nCount*/) {} // NULL for the archive itself and for an object
    virtual void End(const Type*) {}
    virtual void BeginObject(uint32_t) {}
    virtual void EndObject(uint32_t) {}
    virtual void Record(const char* /*lpszClass*/, unsigned /*nSchema*/) {} // of a class that is new to the archive
};

class Reader {
public:
    struct Object {
        enum : uint32_t { cls = 1, mapped = 2, object = 3 };
        uint64_t nStart;
        uint64_t nEnd : 62; // 0 where it did not end
        uint64_t nWhat : 2;
        uint32_t nLast; // the last index that was given inside it
        uint32_t nMet;  // its class
    };
    struct Met {
        const Aggregate* pClass;
        unsigned nSchema;
    };

    Reader(Description& description, const Input& input);
    std::function<void(unsigned long long)> m_progress; // called now and then with the offset

    // False, and GetError, for a damaged archive; what came before the damage has been told.
    bool Scan(Sink& sink);
    // After Scan. False where the damage is met.
    bool ShowArchive(Sink& sink);
    bool ShowObject(uint32_t nIndex, Sink& sink);

    const std::string& GetError() const { return m_error; }
    // By index, from 0 on.
    const std::vector<Object>& GetObjects() const { return m_objects; }
    bool IsObject(unsigned long long n) const
    {
        return n < m_objects.size() && m_objects[static_cast<size_t>(n)].nWhat == Object::object;
    }
    const Met& MetOf(uint32_t nIndex) const { return m_met[m_objects[nIndex].nMet]; }
    const std::vector<Met>& GetMet() const { return m_met; }

    // For sinks: the place of what is told.
    unsigned long long GetStart() const { return m_nStart; } // of the value
    unsigned long long GetOffset() const { return m_ar.GetOffset(); }
    const char* GetBytes() const { return m_input.GetBytes(); }
    size_t GetDepth() const { return m_nDepth; } // objects inside each other
    uint32_t GetOwner() const;                   // the innermost object; 0 for none
    // Such as "document.layers[2].shapes[14].style"; or from the innermost object on.
    std::string GetPath(bool bWhole = true) const;

private:
    struct Frame {
        const Aggregate* pAggregate; // or NULL, and
        const Type* pType;           // NULL for the archive and for an object
        uint32_t nAt;                // the next item or element
        uint32_t nCount;
        uint32_t nVariables; // where its variables begin
        uint32_t nObject;    // its index, or 0
    };
    const Input& m_input;
    Description& m_description;
    VELM_CMemoryFile m_file;
    mutable VELM_CArchive m_ar;
    VELM_CObject m_standIn; // for all objects; the archive only counts them
    Sink* m_pSink = nullptr;
    bool m_bScanning = false;
    std::vector<Frame> m_frames;
    std::vector<long long> m_variables;
    std::vector<Object> m_objects;
    std::vector<Met> m_met;
    std::map<std::pair<const Aggregate*, unsigned>, uint32_t> m_metAt;
    std::string m_error;
    unsigned long long m_nStart = 0;
    unsigned long long m_nDamage = ~0ULL;
    unsigned long long m_nSteps = 0;
    size_t m_nDepth = 0;
    uint32_t m_nValueFrames = 0; // inside the innermost object
    uint32_t m_nNext = 0;        // showing: the next index that the bytes give

    bool Walk(const Aggregate& aggregate, uint32_t nObject, unsigned nSchema);
    void Push(const Aggregate* pAggregate, const Type* pType, uint32_t nCount, uint32_t nObject);
    void Pop();
    const Item* NextItem(Frame& frame);
    unsigned long long Enter(const Type& type);
    unsigned long long LoadBits(unsigned nBytes, bool bSigned);
    unsigned long long LoadLength(const Length& length);
    void TakeText(unsigned long long nLength, Value& rValue);
    void EnterText(const Type& type);
    void EnterReference(const Type& type);
    bool ShownReference(Value& rValue, bool bClass);
    void EnterMapped(const Type& type);
    void EnterMade(const Type& type);
    uint32_t AddMet(const Aggregate* pClass, unsigned nSchema);
    void NoteClass(const Aggregate* pClass, unsigned nSchema);
    __attribute__((format(printf, 2, 3))) void Fail(const char* lpszFormat, ...);
};

#endif
