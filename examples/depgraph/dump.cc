#include "dump.h"

#include <mcl/tavnomcl.h>

#include <cstdarg>
#include <cstdio>

#include "failure.h"

// Reads the archive value by value, and prints the bytes of each beside its meaning. It reads only the short form of
// references, since it stops long before the indexes of objects need the long form.
class Dump {
public:
    explicit Dump(const char* lpszArchive) : m_ar(&m_file, VELM_CArchive::load)
    {
        m_file.Open(lpszArchive);
        m_names.Add("nothing"); // index 0
    }

    void Print()
    {
        std::printf("\n  offset  %-*s  meaning\n", 3 * nBytesShown - 1, "bytes");
        const unsigned long nPackages = m_ar.ReadCount();
        Line(0, "packages: %lu", nPackages);
        for (unsigned long i = 0; i < nPackages && m_nLinesLeft > 0; ++i)
            Object(0);
        if (m_nLinesLeft == 0)
            std::printf("     ...\n");
    }

private:
    static const unsigned nBytesShown = 12;

    VELM_CFile m_file;
    VELM_CArchive m_ar;
    long m_nOffset = 0; // offset of the first byte that no line has shown yet
    int m_nLinesLeft = 20;
    VELM_CStringArray m_names; // names of the objects and classes so far, by index
    VELM_CString m_strText;

    // Prints a line with the bytes that have been read since the last line, and with this meaning.
    __attribute__((format(printf, 3, 4))) void Line(int nDepth, const char* lpszFormat, ...)
    {
        if (m_nLinesLeft == 0)
            return;
        --m_nLinesLeft;
        m_ar.Flush(); // moves the file's position back to the end of the value
        const unsigned nBytes = static_cast<unsigned>(std::ftell(m_file.m_pStream) - m_nOffset);
        const unsigned nShown = nBytes <= nBytesShown ? nBytes : nBytesShown - 1;
        unsigned char bytes[nBytesShown];
        m_file.Seek(m_nOffset, 0);
        m_file.Read(bytes, nShown);
        std::printf("%8ld  ", m_nOffset);
        for (unsigned i = 0; i < nBytesShown; ++i) {
            if (i < nShown)
                std::printf("%02x ", bytes[i]);
            else
                std::printf("%s", i < nBytes ? ".. " : "   ");
        }
        char meaning[128];
        va_list args;
        va_start(args, lpszFormat);
        std::vsnprintf(meaning, sizeof meaning, lpszFormat, args);
        va_end(args);
        std::printf(" %*s%s\n", 2 * nDepth, "", Printable(meaning).m_data);
        m_nOffset += nBytes;
        m_file.Seek(m_nOffset, 0);
    }

    const char* NameOf(unsigned nIndex) { return m_names.ElementAt(static_cast<int>(nIndex)).m_data; }

    // Reads and prints a reference to an object and, if the object is new, its class record and its data.
    void Object(int nDepth)
    {
        unsigned nTag = 0;
        m_ar >> nTag;
        if (nTag == VELM_CArchive::wNewClassTag) {
            Line(nDepth, "new object of a new class:");
            ClassRecord(nDepth);
        } else if ((nTag & VELM_CArchive::wClassTag) != 0) {
            nTag &= ~VELM_CArchive::wClassTag;
            Line(nDepth, "new object of class %u, %s", nTag, NameOf(nTag));
        } else {
            Line(nDepth, "object %u again, %s", nTag, NameOf(nTag));
            return;
        }
        m_ar >> m_strText;
        Line(nDepth, "object %d, name \"%s\"", m_names.GetSize(), m_strText.m_data);
        m_names.Add(m_strText);
        m_ar >> m_strText;
        Line(nDepth, "version \"%s\"", m_strText.m_data);
        unsigned nSize = 0;
        m_ar >> nSize;
        Line(nDepth, "installed size: %u KiB", nSize);
        const unsigned long nDependencies = m_ar.ReadCount();
        Line(nDepth, "dependencies: %lu", nDependencies);
        for (unsigned long i = 0; i < nDependencies && m_nLinesLeft > 0; ++i)
            Object(nDepth + 1);
    }

    void ClassRecord(int nDepth)
    {
        unsigned nSchema = 0, nLength = 0;
        m_ar >> nSchema;
        Line(nDepth, "schema %u", nSchema);
        m_ar >> nLength;
        Line(nDepth, "bytes of the class name: %u", nLength);
        char name[32];
        const unsigned nRead = m_ar.Read(name, nLength < sizeof name ? nLength : sizeof name - 1);
        name[nRead] = '\0';
        Line(nDepth, "class %d, \"%s\"", m_names.GetSize(), name);
        m_names.Add(name);
    }
};

void PrintDump(const char* lpszArchive)
{
    Dump dump(lpszArchive);
    pfm_protect([&] { dump.Print(); }); // if somebody has changed the file, a raise ends the dump early
}
