// Stores a graph of objects in an archive, and loads it back.
#include <stdio.h>

#include <mcl/tavnomcl.h>

class Person : public VELM_CObject {
public:
    static VELM_CRuntimeClass classRecord;
    VELM_CString name;
    Person* friendOf; // not owned

    explicit Person(const char* lpszName = "") : name(lpszName), friendOf(NULL) {}
    VELM_CRuntimeClass* GetRuntimeClass() const override { return &classRecord; }
    void Serialize(VELM_CArchive& ar) override
    {
        if (ar.IsStoring()) {
            ar << name;
            ar.WriteObject(friendOf);
        } else {
            ar >> name;
            friendOf = static_cast<Person*>(ar.ReadObject(&classRecord));
        }
    }
};

VELM_CRuntimeClass Person::classRecord = {"Person", 0, 1}; // name, a field of your own, schema

int main()
{
    AfxSetNotices(0); // what the program prints is its own
    Person ada("Ada"), ben("Ben");
    ada.friendOf = &ben;
    ben.friendOf = &ada; // a cycle

    VELM_CSaveFile saved; // the old archive stays until the new one is whole
    if (!saved.Open("people.archive"))
        return 1;
    VELM_CArchive out(&saved, VELM_CArchive::store);
    out.WriteObject(&ada); // and all that it refers to
    out.Close();
    if (!saved.Commit()) { // answers for everything since Open
        printf("%s\n", saved.GetErrorText().m_data);
        return 1;
    }

    VELM_CClassTable classes; // what may be loaded
    classes.Add<Person>(&Person::classRecord);
    VELM_CFile file;
    if (!file.Open("people.archive"))
        return 1;
    VELM_CArchive in(&file, VELM_CArchive::load);
    in.SetClassTable(&classes);
    Person* pLoaded = NULL;
    const int nRaised = pfm_protect([&] { pLoaded = static_cast<Person*>(in.ReadObject(&Person::classRecord)); });
    if (nRaised == 0)
        printf("%s -> %s -> %s\n", pLoaded->name.m_data, pLoaded->friendOf->name.m_data,
               pLoaded->friendOf->friendOf->name.m_data);
    else
        printf("people.archive: %s\n", in.GetErrorText());
    in.DeleteLoadedObjects();
    return nRaised;
}
