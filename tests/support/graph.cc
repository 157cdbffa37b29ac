#include "tests/support/graph.h"

#include <cstdlib>
#include <map>

VELM_CRuntimeClass Node::record = {"Node", 0, 1};
VELM_CRuntimeClass Leaf::record = {"Leaf", 0, 2};
VELM_CRuntimeClass Other::record = {"Other", 0, 1};
static VELM_CRuntimeClass abstractRecord = {"Abstract", 0, 1};

void Node::Serialize(VELM_CArchive& ar)
{
    if (ar.IsStoring()) {
        ar << value;
        ar.WriteCount(links.size());
        for (const VELM_CObject* pLink : links)
            ar.WriteObject(pLink);
    } else {
        ar >> value;
        for (unsigned long n = ar.ReadCount(); n > 0 && !ar.IsDataEnded(); --n)
            links.push_back(ar.ReadObject(&Node::record));
    }
}

void Leaf::Serialize(VELM_CArchive& ar)
{
    const unsigned nSchema = ar.GetObjectSchema();
    Node::Serialize(ar);
    if (ar.IsStoring())
        ar << name;
    else if (nSchema >= 2)
        ar >> name;
    else
        name = "(schema 1)";
}

VELM_CRuntimeClass Doing::record = {"Doing", 0, 3};
std::function<void(Doing&, VELM_CArchive&)> Doing::loading;

void Doing::Serialize(VELM_CArchive& ar)
{
    if (ar.IsStoring() ? storing != nullptr : loading != nullptr)
        ar.IsStoring() ? storing(ar) : loading(*this, ar);
}

const VELM_CClassTable& GraphClasses()
{
    static VELM_CClassTable table;
    static const int nAdded = table.Add<Node>(&Node::record) + table.Add<Leaf>(&Leaf::record, &Node::record) +
                              table.Add<Other>(&Other::record) + table.Add(&abstractRecord, nullptr, &Node::record);
    if (nAdded != 4)
        std::abort();
    return table;
}

std::string Describe(const std::vector<VELM_CObject*>& roots)
{
    std::map<const VELM_CObject*, size_t> numbers = {{nullptr, 0}};
    std::vector<const Node*> met;
    std::string text;
    const auto Links = [&](const std::vector<VELM_CObject*>& links) {
        for (const VELM_CObject* pLink : links) {
            if (numbers.emplace(pLink, met.size() + 1).second)
                met.push_back(dynamic_cast<const Node*>(pLink));
            text += " " + std::to_string(numbers[pLink]);
        }
    };
    Links(roots);
    for (size_t i = 0; i < met.size(); ++i) {
        const Node* pNode = met[i];
        if (pNode == nullptr)
            std::abort();
        const auto* pLeaf = dynamic_cast<const Leaf*>(pNode);
        text += std::string("\n") + pNode->GetRuntimeClass()->m_pszName + " " + std::to_string(pNode->value) +
                (pLeaf == nullptr ? "" : std::string(" ") + pLeaf->name.m_data) + ":";
        Links(pNode->links);
    }
    return text;
}
