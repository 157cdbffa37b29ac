// JSON read record by record: the value of "archive", and each element of "objects", as a small tree. Only one is in
// memory at a time.
#ifndef TAVNOVIEW_JSON_SOURCE_H
#define TAVNOVIEW_JSON_SOURCE_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

struct Node {
    enum Kind : unsigned char { null, boolean, integer, real, text, array, object } kind = null;
    bool bBelow = false;               // an integer below 0
    mutable bool bTaken = false;       // a member that was asked for
    uint32_t nFirst = 0, nNext = 0;    // the first part, and the next beside this one; 0 for none
    unsigned long long nAmount = 0;    // of an integer
    size_t nName = 0, nNameLength = 0; // of a member
    size_t nText = 0, nTextLength = 0; // also of a real number, as it is written
};

class Record {
public:
    std::vector<Node> nodes; // the root is at 1
    std::string text;        // of all names and texts

    const Node& Root() const { return nodes[1]; }
    const Node* First(const Node& node) const { return node.nFirst == 0 ? nullptr : &nodes[node.nFirst]; }
    const Node* Next(const Node& node) const { return node.nNext == 0 ? nullptr : &nodes[node.nNext]; }
    std::string TextOf(const Node& node) const { return text.substr(node.nText, node.nTextLength); }
    std::string NameOf(const Node& node) const { return text.substr(node.nName, node.nNameLength); }
};

// Calls `take` with each record and its path: "archive", "objects[0]", and so on. False, and what is wrong with the
// JSON itself.
bool ReadRecords(const char* pBegin, const char* pEnd,
                 const std::function<void(const Record&, const std::string& path, bool bArchive)>& take,
                 std::string& rError);

#endif
