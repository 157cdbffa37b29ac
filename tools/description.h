// What a description says of the archives of one program: classes, structures, enumerations, and what stands around the
// objects. docs/description.md has the language; this is what the parser makes of it and all commands walk along.
#ifndef TAVNOVIEW_DESCRIPTION_H
#define TAVNOVIEW_DESCRIPTION_H

#include <mcl/tavnomcl.h>

#include <deque>
#include <map>
#include <memory>
#include <string>
#include <vector>

struct Aggregate;

struct Enumeration {
    std::string name;
    std::vector<std::pair<std::string, long long>> values;
    std::map<long long, std::string> names; // of each value the first
    bool bOpen = false;                     // other values may come as well
    unsigned nBytes = 4;
    bool bSigned = true;
    // The name of a value; NULL when it has none.
    const std::string* NameOf(long long nValue) const;
};

// A number that depends on earlier fields: a condition, or a length.
struct Expression {
    enum Op { constant, variable, negate, add, subtract, bitAnd, equal, unequal, less, atMost, both, either };
    Op op;
    long long nValue; // constant, or the place of the variable
    std::shared_ptr<Expression> pLeft, pRight;
    long long Evaluate(const long long* pVariables) const;
};

// How many elements a sequence has, or bytes.
struct Length {
    const struct Type* pPrefix = nullptr;    // stored before them as such a value, or
    std::shared_ptr<Expression> pExpression; // given
};

enum class Kind {
    // one value
    boolean,
    character,
    integer,
    real,
    count,
    time,
    enumeration,
    string,
    wideString,
    line,
    bytes,
    chars,
    rest,
    bitset,
    nothing,
    reference,
    classReference,
    mapped,
    // made of others
    aggregate,
    sequence,
    tuple,
    optional,
    variant
};

struct Type {
    Kind kind;
    std::string name;        // as it is written in a description
    unsigned nBytes = 0;     // of a number or a unit of a wide string; bits of a bitset
    bool bSigned = false;    // an integer
    bool bUnordered = false; // a sequence: the order of the elements means nothing
    bool bOwner = false;     // a reference: of an owner, of one of several, of one that never refers to nothing
    bool bShared = false;
    bool bWeak = false;
    bool bNotNull = false;
    const Aggregate* pAggregate = nullptr; // embedded, or referred to; NULL for a reference to any class
    const Enumeration* pEnumeration = nullptr;
    Length length;
    std::vector<const Type*> parts; // of a tuple or a variant; the element of a sequence or an optional

    bool IsInteger() const
    {
        return kind == Kind::boolean || kind == Kind::character || kind == Kind::integer || kind == Kind::count ||
               kind == Kind::enumeration;
    }
    bool IsMade() const { return kind >= Kind::aggregate; }
    // Whether a value may be shown as null, so that one that is there needs a mark inside an optional.
    bool MayBeNull() const { return kind == Kind::nothing || kind == Kind::reference || kind == Kind::optional; }
};

// One step through an aggregate.
struct Item {
    enum Op {
        field,   // a value
        version, // a 32-bit number, at most nNewest
        branch,  // to the item nTarget when the condition is 0
        jump     // to the item nTarget
    };
    explicit Item(Op o, std::string n = std::string()) : op(o), name(std::move(n)) {}
    Op op;
    std::string name;
    const Type* pType = nullptr;
    int nVariable = -1; // where the value is kept for expressions
    int nTaken = -1;    // the variable that tells whether a field of this name has come; where there are several
    unsigned nNewest = 0;
    std::shared_ptr<Expression> pCondition;
    unsigned nTarget = 0;
};

// A class or a structure, or what the archive itself holds. The items of its base stand before its own.
struct Aggregate {
    std::string name;
    bool bClass = false;
    bool bRecord = false; // a class whose objects stand in archives; `record` is theirs
    VELM_CRuntimeClass record = {nullptr, 0, 0};
    const Aggregate* pBase = nullptr;
    std::vector<Item> items;
    unsigned nVariables = 1; // the first is the schema of the object under way
    bool IsDerivedFrom(const Aggregate* pWanted) const;
};

class Description {
public:
    std::string m_path;
    Aggregate m_archive;

    Description() = default;
    Description(const Description&) = delete;
    Description& operator=(const Description&) = delete;

    const Aggregate* FindClass(const std::string& name) const;
    // The class that has the record.
    const Aggregate* ClassOf(const VELM_CRuntimeClass& record) const { return &m_aggregates[record.m_nClassInfo]; }
    // All classes whose objects stand in archives, for a loading one.
    VELM_CClassTable& GetTable() { return m_table; }
    const std::deque<Aggregate>& GetAggregates() const { return m_aggregates; }

private:
    friend class Parser;
    std::deque<Aggregate> m_aggregates; // these never move
    std::deque<Enumeration> m_enumerations;
    std::deque<Type> m_types;
    std::map<std::string, Aggregate*> m_byName;
    std::map<std::string, Enumeration*> m_enumByName;
    VELM_CClassTable m_table;
};

// Reads a description; NULL and "file:line:column: expected ..." for a mistake in it.
std::unique_ptr<Description> ParseDescription(const std::string& path, const std::string& text, std::string& rError);
// The same from a file.
std::unique_ptr<Description> ReadDescription(const std::string& path, std::string& rError);

#endif
