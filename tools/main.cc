// tavnoview: looks into archives by a description of their classes.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "command.h"

static const struct Command {
    const char* lpszName;
    int (*pfnRun)(const Arguments&);
    unsigned nFiles;
    const char* lpszOptions; // the letters of those it takes
    const char* lpszHelp;
} commands[] = {
    {"json", RunJson, 1, "dosnk",
     "tavnoview json FILE [-d DESC] [-o OUT] [--select CLASS] [--object N] [--depth N]\n"
     "Prints the archive as JSON: what it holds itself, then its objects by their indexes.\n"
     "  --select CLASS  only objects of that class\n"
     "  --object N      only the object with that index\n"
     "  --depth N       only what is reached from there, or from the archive itself, over N references\n"
     "example: tavnoview json todo.list -d guide.desc\n"},
    {"archive", RunArchive, 1, "do",
     "tavnoview archive JSON -d DESC -o FILE\n"
     "Makes an archive from what `tavnoview json` has printed, edited or not. Without an edit it is the same, byte "
     "for\n"
     "byte. A wrong edit is named by its path in the JSON, and FILE stays as it was.\n"
     "example: tavnoview json todo.list -d guide.desc | tavnoview archive - -d guide.desc -o again.list\n"},
    {"check", RunCheck, 1, "do",
     "tavnoview check FILE [-d DESC] [-o OUT]\n"
     "Reads all of an archive, and says what is wrong with it, at which offset and on which path: damage, objects\n"
     "that have two owners or none. The exit status is 0 when nothing is wrong, 1 when something is, 2 for trouble.\n"
     "example: tavnoview check todo.list -d guide.desc\n"},
    {"hex", RunHex, 1, "do",
     "tavnoview hex FILE [-d DESC] [-o OUT]\n"
     "Lists an archive value by value: offset, bytes, where it belongs, what it means.\n"
     "example: tavnoview hex todo.list -d guide.desc\n"},
    {"diff", RunDiff, 2, "do",
     "tavnoview diff A B [-d DESC] [-o OUT]\n"
     "Lists what two archives differ in, by path. Objects are compared that are reached on the same way from the\n"
     "archive, whatever their indexes; containers without order are compared by their keys. The exit status is 0 when\n"
     "nothing differs, 1 when something does, 2 for trouble.\n"
     "example: tavnoview diff old.list new.list -d guide.desc\n"},
    {"stats", RunStats, 1, "do",
     "tavnoview stats FILE [-d DESC] [-o OUT]\n"
     "Sums an archive up: its classes with their objects and bytes, the longest texts, how deep objects are inside\n"
     "each other, and how large they are. Without a description, what looks like class records.\n"
     "example: tavnoview stats todo.list -d guide.desc\n"},
    {"dot", RunDot, 1, "doa",
     "tavnoview dot FILE [-d DESC] [-o OUT] [--around N]\n"
     "Prints the objects and their references for Graphviz.\n"
     "  --around N  only the object with that index, what it refers to and what refers to it\n"
     "example: tavnoview dot todo.list -d guide.desc | dot -Tsvg -o todo.svg\n"},
    {"html", RunHtml, 1, "do",
     "tavnoview html FILE [-d DESC] -o PAGE\n"
     "Makes one page, to be opened in a browser, to look around in: from the archive along references and back, with\n"
     "a search by class and text.\n"
     "example: tavnoview html todo.list -d guide.desc -o todo.html\n"},
};

static const char introduction[] =
    "usage: tavnoview COMMAND FILE... [-d DESC] [options]\n"
    "  json     print an archive as JSON\n"
    "  archive  make an archive from such JSON\n"
    "  check    read all of an archive, and say what is wrong with it\n"
    "  hex      list its bytes with what they mean\n"
    "  diff     list what two archives differ in\n"
    "  stats    sum an archive up, also without a description\n"
    "  dot      draw its objects for Graphviz\n"
    "  html     make a page to look around in\n"
    "DESC describes the classes (docs/description.md). Without it FILE.desc is taken, or a description beside the\n"
    "file or in share/tavnomcl/descriptions that has the classes of the file. FILE may be - for standard input.\n"
    "`tavnoview COMMAND --help` says more. The exit status is 0, 1 for a damaged archive, a wrong edit or a\n"
    "difference, 2 for trouble.\n"
    "example: tavnoview json todo.list -d guide.desc\n";

static bool EndsIn(const std::string& text, const char* lpszEnd)
{
    const size_t n = std::strlen(lpszEnd);
    return text.size() > n && text.compare(text.size() - n, n, lpszEnd) == 0;
}

static int Usage(const std::string& text, const char* lpszHelp)
{
    Trouble(text);
    std::fputs(lpszHelp, stderr);
    return trouble;
}

static bool ParseNumber(const char* lpsz, unsigned long long& rValue)
{
    char* lpszEnd;
    rValue = std::strtoull(lpsz, &lpszEnd, 10);
    return *lpsz >= '0' && *lpsz <= '9' && *lpszEnd == '\0';
}

static int RunCommand(const Command& command, char** ppArguments)
{
    static const struct {
        const char* lpszName;
        char letter;
    } options[] = {{"-d", 'd'}, {"-o", 'o'}, {"--select", 's'}, {"--object", 'n'}, {"--depth", 'k'}, {"--around", 'a'}};
    Arguments arguments;
    bool bOptions = true;
    for (; *ppArguments != nullptr; ++ppArguments) {
        const std::string argument = *ppArguments;
        if (bOptions && (argument == "--help" || argument == "-h"))
            return std::fputs(command.lpszHelp, stdout) >= 0 ? good : trouble;
        if (bOptions && argument == "--") {
            bOptions = false;
            continue;
        }
        if (!bOptions || argument == "-" || argument[0] != '-') {
            arguments.files.push_back(argument);
            continue;
        }
        char letter = 0;
        for (const auto& option : options) {
            if (argument == option.lpszName && std::strchr(command.lpszOptions, option.letter) != nullptr)
                letter = option.letter;
        }
        if (letter == 0)
            return Usage(argument + ": no such option", command.lpszHelp);
        const char* const lpszValue = *++ppArguments;
        unsigned long long nValue = 0;
        const bool bNumber = letter == 'n' || letter == 'k' || letter == 'a';
        if (lpszValue == nullptr || (bNumber && !ParseNumber(lpszValue, nValue)))
            return Usage(argument + ": " + (bNumber ? "a number" : "a value") + " is missing", command.lpszHelp);
        if (letter == 'd')
            arguments.description = lpszValue;
        else if (letter == 'o')
            arguments.output = lpszValue;
        else if (letter == 's')
            arguments.select = lpszValue;
        else if (letter == 'k')
            arguments.nDepth = static_cast<long>(nValue);
        else
            (letter == 'n' ? arguments.nObject : arguments.nAround) = nValue;
    }
    // A description among the files is taken for what it is.
    for (size_t i = 0; i < arguments.files.size() && arguments.description.empty(); ++i) {
        if (arguments.files.size() > command.nFiles && EndsIn(arguments.files[i], ".desc")) {
            arguments.description = arguments.files[i];
            arguments.files.erase(arguments.files.begin() + static_cast<long>(i));
        }
    }
    if (arguments.files.size() != command.nFiles)
        return Usage(arguments.files.size() < command.nFiles ? "a file is missing" : "too many files",
                     command.lpszHelp);
    return command.pfnRun(arguments);
}

int main(int argc, char** argv)
{
    AfxSetNotices(0);
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
    const std::string name = argc < 2 ? "" : argv[1];
    if (name == "--help" || name == "-h")
        return std::fputs(introduction, stdout) >= 0 ? good : trouble;
    for (const Command& command : commands) {
        if (name != command.lpszName)
            continue;
        int nStatus = trouble;
        try {
            const int nRaised = pfm_protect([&] { nStatus = RunCommand(command, argv + 2); });
            return nRaised == 0 ? nStatus : Trouble("out of memory");
        } catch (const std::bad_alloc&) {
            return Trouble("out of memory");
        }
    }
    return Usage(name.empty() ? "a command is missing" : name + ": no such command", introduction);
}
