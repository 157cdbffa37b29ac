// A list of things to do, in a file that survives: the program of the guide.
#include <stdio.h>

#include <mcl/mfc_std.h>
#include <mcl/tavnomcl.h>

enum Urgency { Whenever, Soon, Now };
template <> struct VELM_CEnumRange<Urgency> : VELM_CFromTo<Urgency, Whenever, Now> {
};

// What tasks have in common with other entries.
class Entry : public VELM_CObject {
public:
    std::string text;
    bool done; // since version 2 of this class

    explicit Entry(const char* lpszText) : text(lpszText), done(false) {}
    void Serialize(VELM_CArchive& ar) override
    {
        const unsigned nVersion = ar.SerializeVersion("Entry", 2);
        ar & text & AfxSince(2, nVersion, done);
        if (text.empty())
            ar.RaiseInvalid("an entry has no text");
    }
};

class Task : public Entry {
public:
    static VELM_CRuntimeClass classRecord;
    Task* after;     // what has to be done before, or NULL; not owned
    Urgency urgency; // since schema 2

    explicit Task(const char* lpszText = "", Urgency u = Whenever, Task* pAfter = NULL)
        : Entry(lpszText), after(pAfter), urgency(u)
    {
    }
    VELM_CRuntimeClass* GetRuntimeClass() const override { return &classRecord; }
    void Serialize(VELM_CArchive& ar) override
    {
        Entry::Serialize(ar);
        ar & after & AfxSince(2, urgency);
    }
};

class List : public VELM_CObject {
public:
    static VELM_CRuntimeClass classRecord;
    std::vector<std::unique_ptr<Task>> tasks;
    std::map<std::string, double> hours;

    VELM_CRuntimeClass* GetRuntimeClass() const override { return &classRecord; }
    void Serialize(VELM_CArchive& ar) override { ar & AfxOwned(tasks) & hours; }
};

VELM_CRuntimeClass Task::classRecord = {"Task", 0, 2}; // name, a number that the library does not use, schema
VELM_CRuntimeClass List::classRecord = {"List", 0, 1};

const VELM_CClassTable& Classes()
{
    static VELM_CClassTable classes;
    static const int nAdded = classes.Add<Task>(&Task::classRecord) + classes.Add<List>(&List::classRecord);
    (void)nAdded;
    return classes;
}

// Loads a list and prints it, or what is wrong with the file. Returns whether there is a list.
bool Print(const char* lpszPath)
{
    VELM_CString error;
    const std::unique_ptr<List> pList(AfxLoadDocument<List>(lpszPath, Classes(), &error));
    if (pList == nullptr) {
        printf("%s\n", error.m_data);
        return false;
    }
    for (const std::unique_ptr<Task>& pTask : pList->tasks)
        printf("%s%s%s%s\n", pTask->done ? "(done) " : "", pTask->text.c_str(), pTask->after != NULL ? ", after: " : "",
               pTask->after != NULL ? pTask->after->text.c_str() : "");
    printf("%.1f hours\n", pList->hours["paint the door"]);
    return true;
}

int main()
{
    AfxSetNotices(0);
    List list;
    list.tasks.emplace_back(new Task("buy paint", Now));
    list.tasks.emplace_back(new Task("paint the door", Soon, list.tasks[0].get()));
    list.tasks[0]->done = true;
    list.hours["paint the door"] = 1.5;
    VELM_CString error;
    if (!AfxSaveDocument("todo.list", Classes(), &list, &error)) {
        printf("%s\n", error.m_data);
        return 1;
    }
    if (!Print("todo.list"))
        return 1;

    Task other("not on the list");
    list.tasks[1]->after = &other;
    if (!AfxSaveDocument("todo.list", Classes(), &list, &error)) // todo.list stays as it was
        printf("%s\n", error.m_data);

    FILE* pCut = fopen("cut.list", "wb"); // a damaged file
    if (pCut == NULL)
        return 1;
    fwrite("\377\377\0\0\1\0\0\0\4\0\0\0Li", 1, 14, pCut);
    fclose(pCut);
    return Print("cut.list");
}
