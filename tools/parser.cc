// The language of descriptions (docs/description.md): a look over the text finds the names that are declared, then each
// body is read where it is needed first, so that names may be used before their declarations.
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "description.h"
#include "lexer.h"

namespace {

const struct {
    const char* lpszName;
    Kind kind;
    unsigned nBytes;
    bool bSigned;
} simpleTypes[] = {
    {"bool", Kind::boolean, 1, false},
    {"char", Kind::character, 1, false},
    {"int8", Kind::integer, 1, true},
    {"uint8", Kind::integer, 1, false},
    {"byte", Kind::integer, 1, false},
    {"int16", Kind::integer, 2, true},
    {"uint16", Kind::integer, 2, false},
    {"int32", Kind::integer, 4, true},
    {"uint32", Kind::integer, 4, false},
    {"int64", Kind::integer, 8, true},
    {"uint64", Kind::integer, 8, false},
    {"span", Kind::integer, 8, true},
    {"duration", Kind::integer, 8, true},
    {"time_point", Kind::integer, 8, true},
    {"float", Kind::real, 4, false},
    {"double", Kind::real, 8, false},
    {"count", Kind::count, 0, false},
    {"time", Kind::time, 8, true},
    {"string", Kind::string, 0, false},
    {"path", Kind::string, 0, false},
    {"u16string", Kind::wideString, 2, false},
    {"u32string", Kind::wideString, 4, false},
    {"line", Kind::line, 0, false},
    {"rest", Kind::rest, 0, false},
    {"monostate", Kind::nothing, 0, false},
    {"classref", Kind::classReference, 0, false},
};

// What has parts in angle brackets: how many, or 0 for any number; whether a length may follow, or must.
const struct {
    const char* lpszName;
    Kind kind;
    unsigned nParts;
    int nLength; // 0 for none, 1 where it may be left out, 2
    bool bUnordered;
} madeTypes[] = {
    {"vector", Kind::sequence, 1, 1, false},
    {"deque", Kind::sequence, 1, 1, false},
    {"list", Kind::sequence, 1, 1, false},
    {"forward_list", Kind::sequence, 1, 1, false},
    {"valarray", Kind::sequence, 1, 1, false},
    {"array", Kind::sequence, 1, 2, false},
    {"set", Kind::sequence, 1, 1, true},
    {"multiset", Kind::sequence, 1, 1, true},
    {"unordered_set", Kind::sequence, 1, 1, true},
    {"unordered_multiset", Kind::sequence, 1, 1, true},
    {"map", Kind::sequence, 2, 1, true},
    {"multimap", Kind::sequence, 2, 1, true},
    {"unordered_map", Kind::sequence, 2, 1, true},
    {"unordered_multimap", Kind::sequence, 2, 1, true},
    {"pair", Kind::tuple, 2, 0, false},
    {"tuple", Kind::tuple, 0, 0, false},
    {"complex", Kind::tuple, 1, 0, false},
    {"optional", Kind::optional, 1, 0, false},
    {"variant", Kind::variant, 0, 0, false},
    {"bytes", Kind::bytes, 0, 2, false},
    {"chars", Kind::chars, 0, 2, false},
    {"bitset", Kind::bitset, 0, 2, false},
};

const struct {
    const char* lpszName;
    bool bShared, bWeak, bNotNull;
} ownerTypes[] = {
    {"unique_ptr", false, false, false},
    {"shared_ptr", true, false, false},
    {"weak_ptr", true, true, false},
    {"owned", false, false, true},
};

const unsigned nMostNested = 500; // of what stands inside each other
const unsigned nMostTerms = 1000; // of one expression
const unsigned nMostItems = 5000; // of one class with its bases

} // namespace

class Parser {
public:
    Parser(Description& description, const std::string& text)
        : m_description(description), m_tokens(SplitText(description.m_path, text))
    {
    }

    void Parse()
    {
        while (Now().kind != Token::end)
            Declare();
        for (m_nAt = 0; Now().kind != Token::end;)
            Define();
        if (!m_bArchive)
            Expected("a paragraph \"archive\", which says what the archive begins with");
        for (size_t i = 0; i < m_description.m_aggregates.size(); ++i) {
            VELM_CRuntimeClass& record = m_description.m_aggregates[i].record;
            record.m_nClassInfo = static_cast<unsigned>(i);
            if (m_description.m_aggregates[i].bRecord)
                m_description.m_table.Add(&record, nullptr);
        }
    }

private:
    Description& m_description;
    std::vector<Token> m_tokens;
    size_t m_nAt = 0;
    unsigned m_nNested = 0;
    unsigned m_nTerms = 0;
    bool m_bArchive = false;
    Aggregate* m_pOwn = nullptr; // whose body is read
    int m_nVersion = 0;          // its variable that `since` and `until` go by
    struct Declared {
        size_t nAt;
        enum { unread, reading, read } state;
    };
    std::map<const Aggregate*, Declared> m_declared;

    struct Nested {
        Parser& parser;
        explicit Nested(Parser& p) : parser(p)
        {
            if (++parser.m_nNested > nMostNested)
                parser.Expected("fewer things inside each other");
        }
        ~Nested() { --parser.m_nNested; }
    };

    const Token& Now() const { return m_tokens[m_nAt]; }

    [[noreturn]] void Fail(const Token& token, const std::string& text) const
    {
        FailAt(m_description.m_path, token, text);
    }
    [[noreturn]] void Expected(const std::string& what) const
    {
        const Token& token = Now();
        Fail(token, "expected " + what + ", found " +
                        (token.kind == Token::end ? "the end of the text" : "\"" + token.value + "\""));
    }

    bool Is(const char* lpsz) const
    {
        return (Now().kind == Token::name || Now().kind == Token::sign) && Now().value == lpsz;
    }
    bool Take(const char* lpsz)
    {
        const bool bIs = Is(lpsz);
        m_nAt += bIs;
        return bIs;
    }
    void Need(const char* lpsz)
    {
        if (!Take(lpsz))
            Expected(std::string("\"") + lpsz + "\"");
    }
    std::string Name(const char* lpszWhat)
    {
        if (Now().kind != Token::name && Now().kind != Token::text)
            Expected(lpszWhat);
        return m_tokens[m_nAt++].value;
    }
    long long Number(const char* lpszWhat)
    {
        const bool bBelow = Take("-");
        if (Now().kind != Token::number)
            Expected(lpszWhat);
        const long long nValue = m_tokens[m_nAt++].nValue;
        return bBelow ? static_cast<long long>(0 - static_cast<unsigned long long>(nValue)) : nValue;
    }
    unsigned Version()
    {
        const Token& token = Now();
        const long long nValue = Number("a number");
        if (nValue < 0 || nValue > 0xFFFFFFFFLL)
            Fail(token, "expected a number of 32 bits");
        return static_cast<unsigned>(nValue);
    }

    // The first look: names, and enumerations whole.
    void Declare()
    {
        if (Take("enum")) {
            DeclareEnumeration();
            return;
        }
        const bool bClass = Is("class");
        if (!bClass && !Is("struct") && !Is("archive"))
            Expected("\"class\", \"struct\", \"enum\" or \"archive\"");
        if (!Take("archive")) {
            ++m_nAt;
            const Token& token = Now();
            const std::string name = Name("a name");
            m_description.m_aggregates.emplace_back();
            Aggregate& aggregate = m_description.m_aggregates.back();
            aggregate.name = name;
            aggregate.bClass = bClass;
            if (m_description.m_enumByName.count(name) != 0 || !m_description.m_byName.emplace(name, &aggregate).second)
                Fail(token, "expected a name that is not declared yet, found \"" + name + "\"");
            m_declared[&aggregate] = {m_nAt, Declared::unread};
        }
        while (!Is("{")) {
            if (Now().kind == Token::end)
                Expected("\"{\"");
            ++m_nAt;
        }
        unsigned nOpen = 0;
        do {
            nOpen += Is("{");
            nOpen -= Is("}");
            if (Now().kind == Token::end)
                Expected("\"}\"");
            ++m_nAt;
        } while (nOpen > 0);
        Take(";");
    }

    void DeclareEnumeration()
    {
        m_description.m_enumerations.emplace_back();
        Enumeration& enumeration = m_description.m_enumerations.back();
        enumeration.name = Name("a name");
        if (m_description.m_byName.count(enumeration.name) != 0 ||
            !m_description.m_enumByName.emplace(enumeration.name, &enumeration).second)
            Fail(m_tokens[m_nAt - 1], "expected a name that is not declared yet, found \"" + enumeration.name + "\"");
        if (Take(":")) {
            const Type* const pWidth = ReadType();
            if (pWidth->kind != Kind::integer) {
                --m_nAt;
                Expected("an integer type");
            }
            enumeration.nBytes = pWidth->nBytes;
            enumeration.bSigned = pWidth->bSigned;
        }
        Need("{");
        for (long long nNext = 0; !Take("}"); ++nNext) {
            if (Take("...")) {
                enumeration.bOpen = true;
                Need("}");
                break;
            }
            const std::string name = Name("the name of a value, \"...\" or \"}\"");
            if (Take("="))
                nNext = Number("a number");
            enumeration.values.emplace_back(name, nNext);
            enumeration.names.emplace(nNext, name);
            if (!Is("}"))
                Need(",");
        }
        Take(";");
    }

    // The second look.
    void Define()
    {
        if (Is("enum")) {
            while (!Take("}"))
                ++m_nAt;
        } else if (Take("archive")) {
            if (m_bArchive)
                Fail(m_tokens[m_nAt - 1], "expected one paragraph \"archive\"");
            m_bArchive = true;
            m_description.m_archive.name = "archive";
            Body(m_description.m_archive);
        } else {
            ++m_nAt;
            Read(*m_description.m_byName[Name("a name")]);
        }
        Take(";");
    }

    // Reads the body of an aggregate, unless that has been done, and goes on behind it if it stands here.
    void Read(Aggregate& aggregate)
    {
        Declared& declared = m_declared[&aggregate];
        if (declared.state == Declared::reading)
            Fail(m_tokens[m_nAt - 1], "expected a base that does not derive from this class");
        const bool bHere = m_nAt == declared.nAt;
        const size_t nBack = m_nAt;
        if (declared.state == Declared::unread) {
            Aggregate* const pOuter = m_pOwn;
            declared.state = Declared::reading;
            m_nAt = declared.nAt;
            Body(aggregate);
            declared.state = Declared::read;
            m_pOwn = pOuter;
        } else if (bHere) { // it has been read for a class that derives from it
            unsigned nOpen = 0;
            do {
                nOpen += Is("{");
                nOpen -= Is("}");
                ++m_nAt;
            } while (nOpen > 0 || m_tokens[m_nAt - 1].value != "}");
        }
        if (!bHere)
            m_nAt = nBack;
    }

    void Body(Aggregate& aggregate)
    {
        const Nested nested(*this);
        if (&aggregate != &m_description.m_archive && Take(":")) {
            const Token& token = Now();
            const auto found = m_description.m_byName.find(Name("the name of a base"));
            if (found == m_description.m_byName.end() || (aggregate.bClass && !found->second->bClass))
                Fail(token, "expected a declared class, found \"" + token.value + "\"");
            Read(*found->second);
            aggregate.pBase = found->second;
            aggregate.items = found->second->items;
            aggregate.nVariables = found->second->nVariables;
        }
        if (aggregate.bClass && Take("schema")) {
            aggregate.bRecord = true;
            aggregate.record.m_pszName = aggregate.name.c_str();
            aggregate.record.m_nSchema = Version();
            if (aggregate.record.m_nSchema >= VELM_CRuntimeClass::nNoSchema)
                Fail(m_tokens[m_nAt - 1], "expected a schema below 65535");
        }
        m_pOwn = &aggregate;
        m_nVersion = 0;
        if (Take("version")) {
            Item item(Item::version, aggregate.name + "::version");
            item.nVariable = m_nVersion = NewVariable();
            item.nNewest = Version();
            aggregate.items.push_back(item);
        }
        Block();
    }

    int NewVariable() { return static_cast<int>(m_pOwn->nVariables++); }

    void Block()
    {
        Need("{");
        while (!Take("}"))
            OneItem();
    }

    // Items that are passed over where the condition does not hold, and others in its place.
    template <class THEN, class ELSE>
    void Where(const std::shared_ptr<Expression>& pCondition, THEN thenItems, ELSE elseItems)
    {
        const size_t nBranch = m_pOwn->items.size();
        m_pOwn->items.emplace_back(Item::branch);
        m_pOwn->items.back().pCondition = pCondition;
        thenItems();
        const size_t nJump = m_pOwn->items.size();
        m_pOwn->items.emplace_back(Item::jump);
        m_pOwn->items[nBranch].nTarget = static_cast<unsigned>(nJump + 1);
        elseItems();
        m_pOwn->items[nJump].nTarget = static_cast<unsigned>(m_pOwn->items.size());
    }

    void OneItem()
    {
        const Nested nested(*this);
        if (m_pOwn->items.size() > nMostItems)
            Expected("fewer fields in a class");
        const auto Items = [&] { Is("{") ? Block() : OneItem(); };
        if (Take("if")) {
            Need("(");
            const auto pCondition = Condition();
            Need(")");
            Where(pCondition, Items, [&] {
                if (Take("else"))
                    Items();
            });
        } else if (Take("switch")) {
            Need("(");
            const auto pValue = Condition();
            Need(")");
            Need("{");
            Cases(pValue);
            Need("}");
        } else {
            OneField();
        }
    }

    void Cases(const std::shared_ptr<Expression>& pValue)
    {
        const Nested nested(*this);
        const auto Items = [&] {
            while (!Is("case") && !Is("default") && !Is("}"))
                OneItem();
        };
        if (Take("default")) {
            Need(":");
            Items();
        } else if (Take("case")) {
            std::shared_ptr<Expression> pAny;
            m_nTerms = 0;
            do {
                const auto pIs = Make(Expression::equal, pValue, Primary());
                pAny = pAny == nullptr ? pIs : Make(Expression::either, pAny, pIs);
            } while (Take(","));
            Need(":");
            Where(pAny, Items, [&] { Cases(pValue); });
        } else if (!Is("}")) {
            Expected("\"case\", \"default\" or \"}\"");
        }
    }

    void OneField()
    {
        Item item(Item::field);
        item.pType = ReadType();
        const Token& token = Now();
        item.name = Name("the name of the field");
        const size_t nBranch = m_pOwn->items.size();
        std::shared_ptr<Expression> pWhen;
        const auto And = [&](const std::shared_ptr<Expression>& p) {
            pWhen = pWhen == nullptr ? p : Make(Expression::both, pWhen, p);
        };
        m_nTerms = 0;
        if (Take("since"))
            And(Make(Expression::atMost, Constant(Version()), Variable(m_nVersion)));
        if (Take("until"))
            And(Make(Expression::atMost, Variable(m_nVersion), Constant(Version())));
        if (!Take(";"))
            Expected("\";\"");
        for (Item& other : m_pOwn->items) {
            if (other.op != Item::field || other.name != item.name)
                continue;
            if (other.nTaken == -1)
                other.nTaken = NewVariable();
            item.nTaken = other.nTaken;
        }
        if (item.name.find("::") != std::string::npos)
            Fail(token, "expected a name without \"::\"");
        if (pWhen != nullptr) {
            m_pOwn->items.emplace_back(Item::branch);
            m_pOwn->items[nBranch].pCondition = pWhen;
            m_pOwn->items[nBranch].nTarget = static_cast<unsigned>(nBranch + 2);
        }
        m_pOwn->items.push_back(item);
    }

    static std::shared_ptr<Expression> Constant(long long nValue)
    {
        return std::make_shared<Expression>(Expression{Expression::constant, nValue, nullptr, nullptr});
    }
    static std::shared_ptr<Expression> Variable(int nVariable)
    {
        return std::make_shared<Expression>(Expression{Expression::variable, nVariable, nullptr, nullptr});
    }
    std::shared_ptr<Expression> Make(Expression::Op op, std::shared_ptr<Expression> pLeft,
                                     std::shared_ptr<Expression> pRight)
    {
        if (++m_nTerms > nMostTerms)
            Expected("a shorter expression");
        return std::make_shared<Expression>(Expression{op, 0, std::move(pLeft), std::move(pRight)});
    }

    std::shared_ptr<Expression> Condition()
    {
        m_nTerms = 0;
        return Binary(0);
    }

    // Operators as C++ binds them, the loosest first.
    std::shared_ptr<Expression> Binary(int nLevel)
    {
        static const struct {
            int nLevel;
            const char* lpszSign;
            Expression::Op op;
            bool bSwapped;
        } operators[] = {
            {0, "||", Expression::either, false},  {1, "&&", Expression::both, false},
            {2, "&", Expression::bitAnd, false},   {3, "==", Expression::equal, false},
            {3, "!=", Expression::unequal, false}, {4, "<", Expression::less, false},
            {4, "<=", Expression::atMost, false},  {4, ">", Expression::less, true},
            {4, ">=", Expression::atMost, true},   {5, "+", Expression::add, false},
            {5, "-", Expression::subtract, false},
        };
        if (nLevel == 6)
            return Primary();
        auto pLeft = Binary(nLevel + 1);
        for (bool bMore = true; bMore;) {
            bMore = false;
            for (const auto& o : operators) {
                if (o.nLevel == nLevel && !bMore && Take(o.lpszSign)) {
                    const auto pRight = Binary(nLevel + 1);
                    pLeft = Make(o.op, o.bSwapped ? pRight : pLeft, o.bSwapped ? pLeft : pRight);
                    bMore = true;
                }
            }
        }
        return pLeft;
    }

    std::shared_ptr<Expression> Primary()
    {
        const Nested nested(*this);
        if (Take("!"))
            return Make(Expression::negate, Primary(), nullptr);
        if (Take("(")) {
            const auto pInner = Binary(0);
            Need(")");
            return pInner;
        }
        if (Now().kind != Token::name)
            return Constant(Number("a number, or the name of an earlier field or of a value"));
        const std::string name = Now().value;
        for (size_t i = m_pOwn->items.size(); i-- > 0;) {
            Item& item = m_pOwn->items[i];
            if (item.op != Item::field || item.name != name)
                continue;
            if (!item.pType->IsInteger())
                Expected("a field that is a number");
            ++m_nAt;
            if (item.nVariable == -1) {
                const int nVariable = NewVariable();
                for (Item& same : m_pOwn->items) {
                    if (same.op == Item::field && same.name == name && same.pType->IsInteger())
                        same.nVariable = nVariable;
                }
            }
            return Variable(item.nVariable);
        }
        if (Take("schema"))
            return Variable(0);
        if (m_nVersion != 0 && Take("version"))
            return Variable(m_nVersion);
        for (const Enumeration& enumeration : m_description.m_enumerations) {
            for (const auto& value : enumeration.values) {
                if (value.first == name || enumeration.name + "::" + value.first == name) {
                    ++m_nAt;
                    return Constant(value.second);
                }
            }
        }
        Expected("the name of an earlier field or of a value");
    }

    Type& NewType(Kind kind, const std::string& name)
    {
        m_description.m_types.emplace_back();
        Type& type = m_description.m_types.back();
        type.kind = kind;
        type.name = name;
        return type;
    }

    const Type* ReadType()
    {
        const Nested nested(*this);
        const Token& token = Now();
        const std::string name = Name("a type");
        for (const auto& simple : simpleTypes) {
            if (name == simple.lpszName && token.kind == Token::name) {
                Type& type = NewType(simple.kind, name);
                type.nBytes = simple.nBytes;
                type.bSigned = simple.bSigned;
                return &type;
            }
        }
        for (const auto& made : madeTypes) {
            if (name == made.lpszName && Is("<"))
                return MadeType(made.lpszName, made.kind, made.nParts, made.nLength, made.bUnordered);
        }
        for (const auto& owner : ownerTypes) {
            if (name == owner.lpszName && Take("<")) {
                Type& type = NewType(Kind::reference, name);
                type.bOwner = true;
                type.bShared = owner.bShared;
                type.bWeak = owner.bWeak;
                type.bNotNull = owner.bNotNull;
                type.pAggregate = Referred();
                Need(">");
                return &type;
            }
        }
        if (name == "mapped" && Take("<")) {
            Type& type = NewType(Kind::mapped, name);
            type.pAggregate = Referred();
            Need(">");
            if (type.pAggregate == nullptr || !type.pAggregate->bRecord)
                Fail(token, "expected a class with a schema in \"mapped\"");
            return &type;
        }
        const auto enumeration = m_description.m_enumByName.find(name);
        if (enumeration != m_description.m_enumByName.end()) {
            Type& type = NewType(Kind::enumeration, name);
            type.nBytes = enumeration->second->nBytes;
            type.bSigned = enumeration->second->bSigned;
            type.pEnumeration = enumeration->second;
            return &type;
        }
        --m_nAt;
        const Aggregate* const pAggregate = Referred();
        if (Take("*")) {
            Type& type = NewType(Kind::reference, name + "*");
            type.pAggregate = pAggregate;
            return &type;
        }
        if (pAggregate == nullptr)
            Expected("\"*\"");
        Type& type = NewType(Kind::aggregate, name);
        type.pAggregate = pAggregate;
        return &type;
    }

    // The class that a pointer leads to; NULL for any.
    const Aggregate* Referred()
    {
        const Token& token = Now();
        const std::string name = Name("a class");
        if (token.kind == Token::name && name == "object")
            return nullptr;
        const auto found = m_description.m_byName.find(name);
        if (found == m_description.m_byName.end())
            Fail(token, "expected a type, found \"" + name + "\"");
        return found->second;
    }

    const Type* MadeType(const char* lpszName, Kind kind, unsigned nParts, int nLength, bool bUnordered)
    {
        Need("<");
        Type& type = NewType(kind, lpszName);
        type.bUnordered = bUnordered;
        const bool bNoParts = kind == Kind::bytes || kind == Kind::chars || kind == Kind::bitset;
        if (!bNoParts) {
            do {
                type.parts.push_back(ReadType());
            } while ((nParts == 0 || type.parts.size() < nParts) && (nParts != 0 ? (Need(","), true) : Take(",")));
        }
        if (kind == Kind::sequence && nParts == 2) {
            Type& entry = NewType(Kind::tuple, "pair");
            entry.parts.swap(type.parts);
            type.parts.push_back(&entry);
        }
        if (type.name == "complex")
            type.parts.push_back(type.parts[0]);
        if (nLength == 2 && !bNoParts)
            Need(",");
        if (nLength == 2 || (nLength == 1 && Take(","))) {
            ReadLength(type);
        } else if (nLength == 1) {
            type.length.pPrefix = &NewType(Kind::count, "count");
        }
        Need(">");
        return &type;
    }

    void ReadLength(Type& rType)
    {
        const Token& token = Now();
        for (const auto& simple : simpleTypes) {
            const bool bNumber = simple.kind == Kind::count || simple.kind == Kind::integer;
            if (rType.kind != Kind::bitset && bNumber && token.kind == Token::name && token.value == simple.lpszName) {
                rType.length.pPrefix = ReadType();
                return;
            }
        }
        m_nTerms = 0;
        rType.length.pExpression = Binary(5); // a sum: ">" ends it
        if (rType.kind != Kind::bitset)
            return;
        if (rType.length.pExpression->op != Expression::constant || rType.length.pExpression->nValue < 0 ||
            rType.length.pExpression->nValue > 65536)
            Fail(token, "expected a number of bits, at most 65536");
        rType.nBytes = static_cast<unsigned>(rType.length.pExpression->nValue);
    }
};

std::unique_ptr<Description> ParseDescription(const std::string& path, const std::string& text, std::string& rError)
{
    std::unique_ptr<Description> pDescription(new Description);
    pDescription->m_path = path;
    try {
        Parser(*pDescription, text).Parse();
    } catch (const Mistake& mistake) {
        rError = mistake.text;
        return nullptr;
    }
    return pDescription;
}

std::unique_ptr<Description> ReadDescription(const std::string& path, std::string& rError)
{
    std::FILE* const pFile = std::fopen(path.c_str(), "rb");
    std::string text;
    char part[4096];
    while (pFile != nullptr) {
        const size_t nCame = std::fread(part, 1, sizeof part, pFile);
        text.append(part, nCame);
        if (nCame < sizeof part)
            break;
    }
    const bool bRead = pFile != nullptr && std::ferror(pFile) == 0;
    if (!bRead)
        rError = path + ": " + std::strerror(errno);
    if (pFile != nullptr)
        std::fclose(pFile);
    return bRead ? ParseDescription(path, text, rError) : nullptr;
}
