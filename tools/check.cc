// tavnoview check: all of an archive is read; what the description's program would refuse is listed.
#include "command.h"

namespace {

// Who owns what, as the library keeps it for a loading program: objects with one owner form a forest.
class Owners : public Sink {
public:
    Owners(Reader& reader, const std::string& path) : m_reader(reader), m_path(path) {}

    std::vector<std::string> m_problems;
    bool m_bUsed = false;

    void Plain(const Type& type, const Value& value) override
    {
        if (type.kind != Kind::reference)
            return;
        const uint32_t nOwner = m_reader.GetOwner(), nObject = value.nObject;
        if (nObject == 0) {
            if (type.bNotNull)
                Note("an object that is owned is null");
            return;
        }
        Grow(nObject);
        if (!type.bOwner) {
            m_owned[nObject] = m_owned[nObject] == nobody && nOwner == 0 ? callers : m_owned[nObject];
            return;
        }
        m_bUsed = true;
        const std::string object = "object " + std::to_string(nObject) + ", a " + m_reader.MetOf(nObject).pClass->name;
        if (!m_reader.IsObject(nObject))
            Note(object + ", is the program's own");
        else if (!type.bShared && nOwner != 0 && RootOf(nOwner) == nObject)
            Note(object + ", would own itself");
        else if (m_owned[nObject] == one || (m_owned[nObject] == shared && !type.bShared))
            Note(object + (m_owned[nObject] == one ? ", has an owner already" : ", has shared owners"));
        else if (!type.bShared && nOwner != 0)
            m_roots[nObject] = RootOf(nOwner);
        m_owned[nObject] = !type.bShared ? one : type.bWeak && m_owned[nObject] != shared ? weak : shared;
    }

    // What nobody owns, where the description knows owners at all.
    void NoteUnowned()
    {
        for (uint32_t i = 1; m_bUsed && i < m_reader.GetObjects().size(); ++i) {
            if (m_reader.IsObject(i) && (i >= m_owned.size() || m_owned[i] == nobody || m_owned[i] == weak))
                m_problems.push_back(m_path + ": offset " + std::to_string(m_reader.GetObjects()[i].nStart) +
                                     ": object " + std::to_string(i) + ", a " + m_reader.MetOf(i).pClass->name +
                                     ", has no owner");
        }
    }

private:
    enum Owned : unsigned char { nobody, callers, one, shared, weak };
    Reader& m_reader;
    const std::string m_path;
    std::vector<Owned> m_owned;
    std::vector<uint32_t> m_roots; // above each object: the way to the root of its tree

    void Grow(uint32_t nObject)
    {
        while (m_owned.size() <= nObject) {
            m_roots.push_back(static_cast<uint32_t>(m_roots.size()));
            m_owned.push_back(nobody);
        }
    }
    uint32_t RootOf(uint32_t n)
    {
        for (Grow(n); m_roots[n] != n;)
            n = m_roots[n] = m_roots[m_roots[n]];
        return n;
    }
    void Note(const std::string& text)
    {
        m_problems.push_back(m_path + ": offset " + std::to_string(m_reader.GetStart()) + ": " + text + ", at " +
                             m_reader.GetPath());
    }
};

} // namespace

int RunCheck(const Arguments& arguments)
{
    const size_t nMostPrinted = 100;
    Archive archive;
    std::string error;
    Output out;
    if (!archive.Open(arguments, out))
        return trouble;
    Reader& reader = *archive.m_pReader;
    Owners owners(reader, archive.m_input.m_path);
    const bool bWhole = archive.Scan(owners);
    if (!bWhole)
        owners.m_problems.push_back(archive.GetError());
    else
        owners.NoteUnowned();
    for (size_t i = 0; i < owners.m_problems.size() && i < nMostPrinted; ++i)
        out.Put(owners.m_problems[i] + "\n");
    if (owners.m_problems.size() > nMostPrinted)
        out.Format("... %zu in all\n", owners.m_problems.size());
    if (owners.m_problems.empty())
        out.Put(archive.m_input.m_path + ": nothing is wrong\n");
    if (!out.Finish(error))
        return Trouble(error);
    return owners.m_problems.empty() ? good : different;
}
