// Classes whose objects form graphs: Node, Leaf (a Node, at schema 2 with a name), Other, Abstract (a
// Node); and Doing, whose objects do what a test says.
#ifndef TESTS_SUPPORT_GRAPH_H
#define TESTS_SUPPORT_GRAPH_H

#include <functional>
#include <string>
#include <vector>

#include "mcl/tavnomcl.h"

class Node : public VELM_CObject {
public:
    static VELM_CRuntimeClass record;
    unsigned value;
    std::vector<VELM_CObject*> links;

    explicit Node(unsigned nValue = 0) : value(nValue) {}
    VELM_CRuntimeClass* GetRuntimeClass() const override { return &record; }
    void Serialize(VELM_CArchive& ar) override;
};

class Leaf : public Node {
public:
    static VELM_CRuntimeClass record;
    VELM_CString name;

    explicit Leaf(unsigned nValue = 0, const char* lpszName = "") : Node(nValue), name(lpszName) {}
    VELM_CRuntimeClass* GetRuntimeClass() const override { return &record; }
    void Serialize(VELM_CArchive& ar) override;
};

class Other : public VELM_CObject {
public:
    static VELM_CRuntimeClass record;
    VELM_CRuntimeClass* GetRuntimeClass() const override { return &record; }
    void Serialize(VELM_CArchive&) override {}
};

// Does something with the archive while it is stored, and while it is loaded.
class Doing : public VELM_CObject {
public:
    static VELM_CRuntimeClass record;
    static std::function<void(Doing& ob, VELM_CArchive& ar)> loading;
    std::function<void(VELM_CArchive& ar)> storing;

    explicit Doing(std::function<void(VELM_CArchive&)> body = nullptr) : storing(std::move(body)) {}
    VELM_CRuntimeClass* GetRuntimeClass() const override { return &record; }
    void Serialize(VELM_CArchive& ar) override;
};

// All but Doing.
const VELM_CClassTable& GraphClasses();

// The graph as text, equal for equal shapes: each object by the number in which it is met. Aborts where an object is
// no Node.
std::string Describe(const std::vector<VELM_CObject*>& roots);

#endif
