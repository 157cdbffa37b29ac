// tavnoview diff: what two archives differ in, by path. Objects are the same where they are reached on the same way
// from the archives themselves, whatever their indexes.
#include <algorithm>
#include <map>

#include "command.h"
#include "json_sink.h"

namespace {

// A value with its parts.
struct Tree {
    const Type* pType = nullptr; // NULL for an object
    std::string name;            // of a field
    std::string text;            // of a plain value, as JSON
    uint32_t nObject = 0;        // of a reference
    std::vector<Tree> parts;
};

class TreeSink : public Sink {
public:
    explicit TreeSink(Tree& root) : m_open{&root} {}
    void Name(const std::string& name) override { m_name = name; }
    void Plain(const Type& type, const Value& value) override
    {
        Tree& tree = Add(&type);
        tree.nObject = value.nObject;
        Output text;
        JsonSink(text, JsonSink::compact).Plain(type, value);
        tree.text.swap(text.Text());
    }
    void Begin(const Type* pType, uint32_t nCount) override
    {
        if (pType == nullptr)
            return;
        Tree& tree = Add(pType);
        tree.text = pType->kind == Kind::variant ? std::to_string(nCount) : "";
        m_open.push_back(&tree);
    }
    void End(const Type* pType) override
    {
        if (pType != nullptr)
            m_open.pop_back();
    }

private:
    std::vector<Tree*> m_open; // an open tree is the last of its outer one, which does not grow meanwhile
    std::string m_name;

    Tree& Add(const Type* pType)
    {
        m_open.back()->parts.emplace_back();
        Tree& tree = m_open.back()->parts.back();
        tree.pType = pType;
        tree.name.swap(m_name);
        m_name.clear();
        return tree;
    }
};

class Comparison {
public:
    Comparison(Reader& a, Reader& b, Output& out) : m_readers{&a, &b}, m_out(out)
    {
        for (int i = 0; i < 2; ++i)
            m_other[i].resize(m_readers[i]->GetObjects().size());
    }

    // Whether nothing differs.
    bool Run()
    {
        m_pairs.push_back({0, 0, 0, ""});
        for (m_nNow = 0; m_nNow < m_pairs.size(); ++m_nNow) {
            const uint32_t nA = m_pairs[m_nNow].nA, nB = m_pairs[m_nNow].nB;
            if (nA != 0 && Class(0, nA) != Class(1, nB)) {
                Say("", "is a " + Class(0, nA) + ", and a " + Class(1, nB));
                continue;
            }
            if (nA != 0 && (!m_readers[0]->IsObject(nA) || !m_readers[1]->IsObject(nB)))
                continue; // the program's own
            Tree a, b;
            Read(0, nA, a);
            Read(1, nB, b);
            Compare(a, b, "");
        }
        return m_bSame;
    }

private:
    struct Pair {
        uint32_t nA, nB;
        size_t nFrom;     // the pair that refers to it
        std::string step; // and by which field
    };
    Reader* m_readers[2];
    Output& m_out;
    std::vector<uint32_t> m_other[2]; // of each object, that which it is compared with
    std::vector<Pair> m_pairs;
    size_t m_nNow = 0;
    bool m_bSame = true;

    std::string Class(int i, uint32_t n) const
    {
        const Reader::Met& met = m_readers[i]->MetOf(n);
        return met.pClass->name + " of schema " + std::to_string(met.nSchema);
    }
    void Read(int i, uint32_t n, Tree& rTree) const
    {
        TreeSink sink(rTree);
        if (n == 0)
            m_readers[i]->ShowArchive(sink);
        else
            m_readers[i]->ShowObject(n, sink);
    }

    void Say(const std::string& path, const std::string& text)
    {
        const size_t nMostSteps = 50;
        std::vector<std::string> steps = {path};
        for (size_t n = m_nNow; n != 0 && steps.size() < nMostSteps; n = m_pairs[n].nFrom)
            steps.push_back(m_pairs[n].step);
        std::string line = steps.size() == nMostSteps ? "..." : "";
        for (size_t i = steps.size(); i-- > 0;)
            line += (line.empty() || steps[i].empty() || steps[i][0] == '[' ? "" : ".") + steps[i];
        m_out.Put(line + ": " + text + "\n");
        m_bSame = false;
    }

    // What a value is known by in a container without order: its text, that of its parts or that of an object.
    std::string KeyOf(int i, const Tree& tree, bool bFollow = true) const
    {
        std::string key = tree.nObject != 0 ? "" : tree.text;
        if (tree.nObject != 0 && bFollow) {
            Tree object;
            Read(i, tree.nObject, object);
            key = Class(i, tree.nObject) + KeyOf(i, object, false);
        }
        for (const Tree& part : tree.parts)
            key += "\n" + KeyOf(i, part, bFollow);
        return key;
    }

    static std::string Shown(const Tree& tree)
    {
        if (tree.nObject != 0)
            return "object " + tree.text;
        return tree.parts.empty() && !tree.text.empty() ? tree.text : std::to_string(tree.parts.size()) + " values";
    }

    void OneSided(const Tree& tree, const std::string& path, bool bFirst)
    {
        Say(path, std::string(bFirst ? "only in the first: " : "only in the second: ") + Shown(tree));
    }

    void Compare(const Tree& a, const Tree& b, const std::string& path)
    {
        const bool bObject = a.pType == nullptr;
        if (!bObject && (a.pType->kind != b.pType->kind || a.parts.empty() != b.parts.empty() || !SameLeaf(a, b))) {
            if (a.nObject == 0 || b.nObject == 0)
                Say(path, Shown(a) + " and " + Shown(b));
            else
                Say(path, "refers to another object: " + a.text + " and " + b.text);
            return;
        }
        if (!bObject && a.nObject != 0) {
            if (m_other[0][a.nObject] == 0) {
                m_other[0][a.nObject] = b.nObject;
                m_other[1][b.nObject] = a.nObject;
                m_pairs.push_back({a.nObject, b.nObject, m_nNow, path});
            }
        } else if (!bObject && a.pType->bUnordered) {
            CompareUnordered(a, b, path);
        } else if (bObject || a.pType->kind == Kind::aggregate) {
            CompareFields(a, b, path);
        } else {
            for (size_t i = 0; i < std::max(a.parts.size(), b.parts.size()); ++i) {
                const std::string part = path + (a.pType->kind == Kind::optional ? "" : "[" + std::to_string(i) + "]");
                if (i < a.parts.size() && i < b.parts.size())
                    Compare(a.parts[i], b.parts[i], part);
                else
                    OneSided(i < a.parts.size() ? a.parts[i] : b.parts[i], part, i < a.parts.size());
            }
        }
    }

    // Whether plain values are equal; of objects, whether they may be the same.
    bool SameLeaf(const Tree& a, const Tree& b) const
    {
        if (a.nObject == 0 || b.nObject == 0)
            return a.nObject == b.nObject && a.text == b.text;
        return m_other[0][a.nObject] == b.nObject || (m_other[0][a.nObject] == 0 && m_other[1][b.nObject] == 0);
    }

    void CompareFields(const Tree& a, const Tree& b, const std::string& path)
    {
        const auto Named = [](const Tree& tree, const std::string& name) {
            return std::find_if(tree.parts.begin(), tree.parts.end(), [&](const Tree& t) { return t.name == name; });
        };
        const std::string dot = path.empty() ? "" : path + ".";
        for (const Tree& part : a.parts) {
            const auto found = Named(b, part.name);
            if (found != b.parts.end())
                Compare(part, *found, dot + part.name);
            else
                OneSided(part, dot + part.name, true);
        }
        for (const Tree& part : b.parts) {
            if (Named(a, part.name) == a.parts.end())
                OneSided(part, dot + part.name, false);
        }
    }

    void CompareUnordered(const Tree& a, const Tree& b, const std::string& path)
    {
        typedef std::vector<std::pair<std::string, const Tree*>> Sorted;
        Sorted sorted[2];
        for (int i = 0; i < 2; ++i) {
            for (const Tree& part : (i == 0 ? a : b).parts)
                sorted[i].emplace_back(KeyOf(i, part.pType->kind == Kind::tuple ? part.parts[0] : part), &part);
            std::stable_sort(sorted[i].begin(), sorted[i].end(),
                             [](const auto& x, const auto& y) { return x.first < y.first; });
        }
        auto p = sorted[0].begin(), q = sorted[1].begin();
        while (p != sorted[0].end() || q != sorted[1].end()) {
            const int nOrder = p == sorted[0].end() ? 1 : q == sorted[1].end() ? -1 : p->first.compare(q->first);
            const Tree& entry = *(nOrder > 0 ? q : p)->second;
            const Tree& key = entry.pType->kind == Kind::tuple ? entry.parts[0] : entry;
            const std::string part = path + "[" + Shown(key) + "]";
            if (nOrder != 0)
                OneSided(&key == &entry ? entry : entry.parts[1], part, nOrder < 0);
            else if (&key == &entry)
                Compare(entry, *q->second, part);
            else
                Compare(entry.parts[0], q->second->parts[0], part), Compare(entry.parts[1], q->second->parts[1], part);
            p += nOrder <= 0;
            q += nOrder >= 0;
        }
    }
};

} // namespace

int RunDiff(const Arguments& arguments)
{
    Archive a, b;
    std::string error;
    Output out;
    if (!a.Open(arguments.files[0], arguments.description) ||
        !b.Open(arguments.files[1], arguments.description.empty() ? a.m_pDescription->m_path : arguments.description))
        return trouble;
    if (!out.Open(arguments.output, error))
        return Trouble(error);
    Sink silent;
    for (Archive* const p : {&a, &b}) {
        if (!p->Scan(silent))
            return Trouble(p->GetError());
    }
    const bool bSame = Comparison(*a.m_pReader, *b.m_pReader, out).Run();
    if (!out.Finish(error))
        return Trouble(error);
    return bSame ? good : different;
}
