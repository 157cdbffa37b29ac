// Saves a graph of objects in a file, and loads it back.
#include <stdio.h>

#include <mcl/mfc_std.h>
#include <mcl/tavnomcl.h>

class Person : public VELM_CObject {
public:
    static VELM_CRuntimeClass classRecord;
    std::string name;
    Person* friendOf; // another one of the club, or NULL

    explicit Person(const char* lpszName = "") : name(lpszName), friendOf(NULL) {}
    VELM_CRuntimeClass* GetRuntimeClass() const override { return &classRecord; }
    void Serialize(VELM_CArchive& ar) override { ar & name & friendOf; } // stores them, or loads them
};

class Club : public VELM_CObject {
public:
    static VELM_CRuntimeClass classRecord;
    std::vector<std::unique_ptr<Person>> members; // each is here once, and none is NULL

    VELM_CRuntimeClass* GetRuntimeClass() const override { return &classRecord; }
    void Serialize(VELM_CArchive& ar) override { ar & AfxOwned(members); }
};

VELM_CRuntimeClass Person::classRecord = {"Person", 0, 1}; // the name and the version of what is stored
VELM_CRuntimeClass Club::classRecord = {"Club", 0, 1};

int main()
{
    AfxSetNotices(0); // what the program prints is its own
    VELM_CClassTable classes;
    classes.Add<Person>(&Person::classRecord);
    classes.Add<Club>(&Club::classRecord);

    Club club;
    club.members.emplace_back(new Person("Ada"));
    club.members.emplace_back(new Person("Ben"));
    club.members[0]->friendOf = club.members[1].get();
    club.members[1]->friendOf = club.members[0].get(); // a cycle
    VELM_CString error;
    if (!AfxSaveDocument("club.archive", classes, &club, &error)) { // the old file stays until the new one is whole
        printf("%s\n", error.m_data);
        return 1;
    }

    const std::unique_ptr<Club> pLoaded(AfxLoadDocument<Club>("club.archive", classes, &error));
    if (pLoaded == nullptr) { // and nothing is left of what the file held
        printf("%s\n", error.m_data);
        return 1;
    }
    const Person& first = *pLoaded->members[0];
    printf("%s -> %s -> %s\n", first.name.c_str(), first.friendOf->name.c_str(),
           first.friendOf->friendOf->name.c_str());
    return 0;
}
