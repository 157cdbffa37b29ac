// A list of things to do, in a file that survives: the program of the guide.
#include <stdio.h>

#include <mcl/mfc_std.h>
#include <mcl/tavnomcl.h>

enum Urgency { Whenever, Soon, Now };

class Task : public VELM_CObject {
public:
    static VELM_CRuntimeClass classRecord;
    std::string text;
    Urgency urgency; // since schema 2
    Task* after;     // what has to be done before, or NULL; not owned

    explicit Task(const char* lpszText = "", Urgency u = Whenever, Task* pAfter = NULL)
        : text(lpszText), urgency(u), after(pAfter)
    {
    }
    VELM_CRuntimeClass* GetRuntimeClass() const override { return &classRecord; }
    void Serialize(VELM_CArchive& ar) override
    {
        if (ar.IsStoring()) {
            ar << text;
            ar.WriteObject(after);
            ar.WriteEnum(urgency);
        } else {
            const unsigned nSchema = ar.GetObjectSchema(); // before anything else is loaded
            ar >> text;
            after = static_cast<Task*>(ar.ReadObject(&classRecord));
            if (nSchema >= 2)
                ar.ReadEnum(urgency, Whenever, Now);
        }
    }
};

class List : public VELM_CObject {
public:
    static VELM_CRuntimeClass classRecord;
    std::vector<Task*> tasks; // owned
    std::map<std::string, double> hours;

    ~List() override
    {
        for (Task* pTask : tasks)
            delete pTask;
    }
    VELM_CRuntimeClass* GetRuntimeClass() const override { return &classRecord; }
    void Serialize(VELM_CArchive& ar) override
    {
        if (ar.IsStoring())
            ar << tasks << hours;
        else
            ar >> tasks >> hours;
    }
};

VELM_CRuntimeClass Task::classRecord = {"Task", 0, 2}; // name, a field of your own, schema
VELM_CRuntimeClass List::classRecord = {"List", 0, 1};

// 1 when the list is safe on the disk; else 0, and the old file is as it was.
int Save(const List& list, const char* lpszPath)
{
    VELM_CSaveFile file;
    if (file.Open(lpszPath)) {
        VELM_CArchive ar(&file, VELM_CArchive::store);
        ar.WriteObject(&list);
        ar.Close();
    }
    if (file.Commit())
        return 1;
    fprintf(stderr, "%s\n", file.GetErrorText().m_data);
    return 0;
}

// The list, which the caller deletes; NULL where the file holds none.
List* Load(const char* lpszPath)
{
    VELM_CClassTable classes;
    classes.Add<Task>(&Task::classRecord);
    classes.Add<List>(&List::classRecord, NULL, [](VELM_CObject* pOb) { static_cast<List*>(pOb)->tasks.clear(); });

    VELM_CFile file;
    if (!file.Open(lpszPath)) {
        printf("%s cannot be opened\n", lpszPath);
        return NULL;
    }
    VELM_CArchive ar(&file, VELM_CArchive::load);
    ar.SetClassTable(&classes);
    VELM_CObject* pLoaded = NULL;
    const int nRaised = pfm_protect([&] { pLoaded = ar.ReadObject(&List::classRecord); });
    if (nRaised == 0 && pLoaded != NULL && ar.IsAtEnd())
        return static_cast<List*>(pLoaded);
    printf("%s: %s\n", lpszPath, nRaised != 0 ? ar.GetErrorText() : "not one list, and nothing else");
    ar.DeleteLoadedObjects(); // whatever had been made
    return NULL;
}

int main()
{
    AfxSetNotices(0);
    List list;
    list.tasks.push_back(new Task("buy paint", Now));
    list.tasks.push_back(new Task("paint the door", Soon, list.tasks[0]));
    list.hours["paint the door"] = 1.5;
    if (!Save(list, "todo.list"))
        return 1;

    List* pLoaded = Load("todo.list");
    if (pLoaded == NULL)
        return 1;
    for (const Task* pTask : pLoaded->tasks)
        printf("%s%s%s\n", pTask->text.c_str(), pTask->after != NULL ? ", after: " : "",
               pTask->after != NULL ? pTask->after->text.c_str() : "");
    printf("%.1f hours\n", pLoaded->hours["paint the door"]);
    delete pLoaded;

    FILE* pCut = fopen("cut.list", "wb"); // a damaged file
    if (pCut == NULL)
        return 1;
    fwrite("\377\377\0\0\1\0\0\0\4\0\0\0Li", 1, 14, pCut);
    fclose(pCut);
    pLoaded = Load("cut.list");
    return pLoaded != NULL;
}
