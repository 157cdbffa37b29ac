// Classes that own in every way there is: Part owns Parts, and shares Styles, which own nothing.
#ifndef TESTS_SUPPORT_OWNERS_H
#define TESTS_SUPPORT_OWNERS_H

#include <string>

#include "mcl/mfc_std.h"
#include "mcl/tavnomcl.h"

class Style : public VELM_CObject {
public:
    static VELM_CRuntimeClass classRecord;
    static int nAlive; // of all classes here
    int size = 0;

    Style() { ++nAlive; }
    ~Style() override { --nAlive; }
    VELM_CRuntimeClass* GetRuntimeClass() const override { return &classRecord; }
    void Serialize(VELM_CArchive& ar) override;
};

class Part : public VELM_CObject {
public:
    static VELM_CRuntimeClass classRecord;
    Part *pOwned = nullptr, *pReferred = nullptr;
    std::unique_ptr<Part> unique{new Part(0)}; // a default, which loading replaces
    std::vector<Part*> list;
    std::map<int, Part*> byNumber;
    std::vector<std::unique_ptr<Part>> uniques;
    std::map<std::string, std::vector<std::unique_ptr<Part>>> byName;
    std::shared_ptr<Style> style;
    std::vector<std::shared_ptr<Style>> styles;
    std::weak_ptr<Style> current;

    Part() { ++Style::nAlive; }
    ~Part() override;
    VELM_CRuntimeClass* GetRuntimeClass() const override { return &classRecord; }
    void Serialize(VELM_CArchive& ar) override;

private:
    explicit Part(int) : unique(nullptr) { ++Style::nAlive; }
};

const VELM_CClassTable& OwnerClasses();

// A graph of about nParts Parts, different for each seed, and what it is in an archive.
std::unique_ptr<Part> MakeParts(unsigned nSeed, unsigned nParts);
std::string StoredParts(const Part& root);

// Loads a Part and deletes it, or what was loaded until a raise. What was wrong; "" for nothing. Aborts where that
// leaves an object, or where what was loaded cannot be stored and loaded again.
std::string LoadParts(const std::string& bytes, int nBufSize);

#endif
