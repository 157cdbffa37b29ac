// What the commands have in common: their arguments, the archive with its description, and how they end.
#ifndef TAVNOVIEW_COMMAND_H
#define TAVNOVIEW_COMMAND_H

#include <memory>
#include <string>
#include <vector>

#include "output.h"
#include "reader.h"

// How a command ends, as cmp and grep do.
enum Status { good = 0, different = 1, trouble = 2 };

struct Arguments {
    std::vector<std::string> files;
    std::string description, output, select;
    unsigned long long nObject = 0, nAround = 0; // 0 where not given
    long nDepth = -1;                            // -1 where not given
};

// "tavnoview: " and the text on standard error; delivers `trouble`.
int Trouble(const std::string& text);

// How far a walk is, on standard error, where that is a terminal and the file is large.
class Progress {
public:
    explicit Progress(unsigned long long nTotal);
    ~Progress();
    void Show(unsigned long long nDone);

private:
    unsigned long long m_nTotal, m_nShown = 0;
    bool m_bShown = false;
};

// An archive that is looked at: its bytes, and its description, which is looked for where none is given.
class Archive {
public:
    Input m_input;
    std::unique_ptr<Description> m_pDescription;
    std::unique_ptr<Reader> m_pReader;
    // Opens both. False, and what is wrong has been said. bMayLack: where no description is found, there is no reader.
    bool Open(const std::string& path, const std::string& description, bool bMayLack = false);
    // The same with the output, for a command that looks at one archive.
    bool Open(const Arguments& arguments, Output& out, bool bMayLack = false);
    // Reads all of it, telling the sink; false where it is damaged.
    bool Scan(Sink& sink);
    // Completes the output, and says what is wrong with a damaged archive. Delivers the status.
    int Finish(Output& out, bool bWhole) const;
    // What is wrong: "FILE: offset 812: ...".
    std::string GetError() const { return m_input.m_path + ": " + m_pReader->GetError(); }
};

// Names of classes that stand in the bytes as class records stand: a guess. Each once, with how often it was found.
struct FoundRecord {
    std::string name;
    unsigned nSchema;
    unsigned long long nOffset;
};
std::vector<FoundRecord> FindRecords(const Input& input);

int RunJson(const Arguments& arguments);
int RunArchive(const Arguments& arguments);
int RunCheck(const Arguments& arguments);
int RunHex(const Arguments& arguments);
int RunDiff(const Arguments& arguments);
int RunStats(const Arguments& arguments);
int RunDot(const Arguments& arguments);
int RunHtml(const Arguments& arguments);

#endif
