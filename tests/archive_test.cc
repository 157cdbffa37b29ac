// The archive's buffer, and what it makes of bytes, 32-bit values, counts, strings and lines.
#include <gtest/gtest.h>

#include <map>
#include <sstream>

#include "tests/support/watch.h"

using std::string;
using std::to_string;
const unsigned store = VELM_CArchive::store, load = VELM_CArchive::load, noFlush = VELM_CArchive::noFlushOnDestroy;

// n bytes of all values, no two buffers alike.
static string Pattern(size_t n, size_t nFrom = 0)
{
    string text(n, '\0');
    for (size_t i = 0; i < n; ++i)
        text[i] = static_cast<char>((nFrom + i) * 31 + (nFrom + i) / 128);
    return text;
}

// An archive over a file of nSize bytes, the steps taken with it (see Seen), and what is seen: the calls that reach the
// file, reports, raises (which return), "=n" for n bytes read or waiting, and "|" before the archive's end.
struct Scenario {
    unsigned nMode;
    size_t nSize;
    const char *steps, *seen;
    int nBufSize = 128;
    unsigned nMostPerRead = ~0u;
    size_t nFailFrom = ~size_t{0};
};

static string Seen(const Scenario& s)
{
    MemoryFile file(Pattern(s.nSize));
    file.nMostPerRead = s.nMostPerRead;
    file.nFailFrom = s.nFailFrom;
    string seen, result;
    size_t nCalls = 1, nAt = 0; // the first call asks for the path; position in the stream
    const auto Note = [&](const string& outcome) {
        for (; nCalls < file.calls.size(); ++nCalls)
            seen += file.calls[nCalls] + " ";
        seen += outcome + (outcome == "" ? "" : " ") + result;
    };
    {
        VELM_CArchive ar(&file, s.nMode, s.nBufSize);
        const auto Show = [&](ptrdiff_t n) { result = "=" + to_string(n) + " "; };
        const auto Expect = [&](const string& bytes) { EXPECT_TRUE(bytes == Pattern(bytes.size(), nAt)) << s.steps; };
        unsigned char by;
        string bytes;
        std::map<char, std::function<void(unsigned)>> actions = {
            {'w', [&](unsigned n) { ar.Write(bytes.data(), n), nAt += n, Show(ar.m_lpBufCur - ar.m_lpBufStart); }},
            {'W', [&](unsigned n) { ar.Write(nullptr, n); }},
            {'r', [&](unsigned n) { Expect(bytes.substr(0, n = ar.Read(&bytes[0], n))), nAt += n, Show(n); }},
            {'R', [&](unsigned n) { EXPECT_EQ(ar.Read(nullptr, n), 0u); }},
            {'f', [&](unsigned n) { ar.FillBuffer(n), Show(ar.m_lpBufMax - ar.m_lpBufCur); }},
            {'c', [&](unsigned n) { Expect(string(ar.m_lpBufCur, ar.m_lpBufMax)), ar.m_lpBufCur += n, nAt += n; }},
            {'<', [&](unsigned n) { ar << static_cast<unsigned char>(n) << 1u; }},
            {'>', [&](unsigned) { ar >> by, ar.ReadCount(); }},
            {'F', [&](unsigned) { ar.Flush(); }},
            {'C', [&](unsigned) { ar.Close(); }},
            {'A', [&](unsigned) { ar.Abort(); }}};
        std::istringstream steps(s.steps);
        unsigned n = 0;
        for (char step; steps >> step >> n; result = "") {
            bytes = step == 'r' ? string(n, '#') : Pattern(n, nAt);
            Note(Outcome([&] { actions[step](n); }, true));
        }
        seen += "|";
    }
    Note("");
    EXPECT_TRUE(s.nSize != 0 || s.nFailFrom == 0 || file.data == Pattern(file.data.size())) << s.steps;
    return seen;
}

#define UNBUFFERED "m_bDirectBuffer || m_lpBufStart != NULL; m_bDirectBuffer || m_lpBufCur != NULL"

TEST(Archive, CallsItsFileAndReportsAsPromised)
{
    const Scenario scenarios[] = {
        // Storing: whole buffers, then whole multiples of them, and the rest at the end.
        {store, 0, "w0 w10 w118 w1", "=0 =10 =128 Write 128 Write 0 =1 |Write 1 "},
        {store, 0, "w128 w128 w300", "=128 Write 128 Write 128 =0 Write 128 Write 128 =44 |Write 44 "},
        {store, 0, "w1 w127 w1000", "=1 =128 Write 128 Write 896 =104 |Write 104 ", -5},
        {store, 9, "w127 <1 <1", "=127 Write 128 Write 0 |Write 9 ", 127},
        {store, 0, "w300 w200 A0", "Write 128 Write 128 =44 Write 128 Write 0 =116 |", 128, 0, 0},
        // Loading: what is read ahead, then whole multiples directly, then a refill until enough has come.
        {load, 300, "r0 r3 r200", "=0 Read 0 Read 128 =3 Read 0 Read 128 =200 |Seek -53 1 "},
        {load, 258, "r256 r4", "Read 256 Read 128 =256 Read 0 Read 128 =2 |"},
        {load, 650, "r200 r250", "Read 200 Read 200 =200 Read 0 Read 200 =250 |Seek -150 1 ", 200},
        {load, 100, "r130 r1 A0 A0", "Read 128 Read 28 =100 Read 0 Read 128 =0 |"},
        {load, 20, "r7", "Read 0 Read 128 Read 123 =7 |Seek -3 1 ", 128, 5},
        {load, 300, "r130", "Read 128 Read 78 Read 28 Read 128 =130 |Seek -48 1 ", 128, 50},
        {load, 300, "r300", "Read 256 Read 128 =256 |", 128, ~0u, 2},
        // Filling the buffer reads behind what is kept, and only once something was consumed.
        {load, 200, "f4 f128 c126 f4 c2", "Read 128 =128 =128 Read 126 =74 |Seek -72 1 "},
        {load, 200, "f4 c1 f5 c1 f12 c0", "Read 128 Read 125 =6 Read 123 =8 Read 121 Read 118 =13 |Seek -13 1 ", 128,
         3},
        {load, 2, "f4 f4 r2", "Read 128 Read 126 raise 3 =2 raise 3 =2 =2 |"},
        {load, 130, "f1 c126 f4 c2 f4", "Read 128 =128 Read 126 =4 Read 126 raise 3 =2 |Seek -2 1 "},
        {load, 200, "f0 f129",
         "Read 128 nBytesNeeded > 0 =128 nBytesNeeded <= (UINT)m_nBufSize; raise 3 =128 |Seek -128 1 "},
        // Ends. Only the destructor minds that it shall not flush; the lowest bit of a mode is its direction.
        {store, 0, "w10 F0 w5 C0 W0 C0 A0", "=10 Write 10 =5 Write 5 |"},
        {store, 0, "C0 w300 w9 A0", "m_lpBufCur == m_lpBufStart =128 m_lpBufCur == m_lpBufStart =128 |"},
        {load, 200, "r10 F0 C0 r300 >0 f4", "Read 0 Read 128 =10 Seek -118 1 =0 raise 3; raise 3 raise 3 =0 |"},
        {store | noFlush, 0, "w10 F0 w5", "IsStoring() =10 Write 10 IsStoring() =5 |"},
        {load | noFlush, 200, "r10", "Read 0 Read 128 IsLoading() =10 |"},
        // What is reported, in order; nothing is transferred then.
        {store, 9, "r9 f9 >0", "IsLoading() =0 IsLoading() =128 IsLoading(); IsLoading(); raise 3; raise 3 |"},
        {load, 9, "w9 <0 R1", "IsStoring() =128 IsStoring(); IsStoring() lpBuf != NULL |"},
        {store, 9, "W1 A0 W1 W0 F0 <1",
         "lpBuf != NULL lpBuf != NULL; " UNBUFFERED " " UNBUFFERED " " UNBUFFERED "; " UNBUFFERED " |"},
        {load, 9, "A0 W1 C0 r1", "lpBuf != NULL; " UNBUFFERED "; IsStoring() " UNBUFFERED " " UNBUFFERED " =0 |"},
        {load, 9, "A0 f0",
         UNBUFFERED "; nBytesNeeded > 0; m_lpBufCur != NULL; m_lpBufStart != NULL; m_lpBufMax != NULL =0 |"},
    };
    for (const Scenario& s : scenarios)
        EXPECT_EQ(Seen(s), s.seen) << s.steps;
}

TEST(Archive, UsesTheCallersBufferFrom128BytesOn)
{
    unsigned char buffers[2][128] = {"-", "-"};
    MemoryFile file;
    VELM_CArchive small(&file, store, 127, buffers[0]), large(&file, store, 128, buffers[1]);
    small.WriteString("+"), large.WriteString("+");
    EXPECT_TRUE(buffers[0][0] == '-' && buffers[1][0] == '+');
}

// Values and their bytes: b yte, i nt, l ong, c ount; a s tring of that length is followed by Pattern(length).
static const char encodings[] =
    "b0:00 b255:FF i1:01000000 i4275878552:98BADCFE l2309737967:EFCDAB89 c5:05000000 c65534:FEFF0000 "
    "c65535:FFFF0000FFFF0000 c70000:FFFF000070110100 c4294967295:FFFF0000FFFFFFFF s0:00 s3:03 s254:FE s255:FFFF000000 "
    "s300:FF2C010000 s65533:FFFDFF0000 s65534:FFFFFF0000FEFF0000 s65535:FFFFFF0000FFFF0000 s70000:FFFFFF000070110100";

template <class T> static T Move(VELM_CArchive& ar, T value)
{
    ar.IsStoring() ? ar << value : ar >> value;
    return value;
}

// Stores n or the text, or loads over it.
static void Transfer(VELM_CArchive& ar, char kind, unsigned long& n, VELM_CString& text)
{
    if (kind == 'b')
        n = Move(ar, static_cast<unsigned char>(n));
    else if (kind == 'i')
        n = Move(ar, static_cast<unsigned>(n));
    else if (kind == 's')
        ar.IsStoring() ? ar << text : ar >> text;
    else if (kind == 'l')
        ar.IsStoring() ? ar << n : ar >> n;
    else
        ar.IsStoring() ? ar.WriteCount(n) : void(n = ar.ReadCount());
}

TEST(ArchiveEncoding, IsByteExactAndReadBackAndEveryPrefixRaisesOnce)
{
    std::istringstream in(encodings);
    char kind, colon;
    unsigned long n;
    for (string hex; in >> kind >> n >> colon >> hex;) {
        SCOPED_TRACE(kind + to_string(n));
        const string content = Pattern(kind == 's' ? n : 0), bytes = Bytes(hex.c_str()) + content;
        VELM_CString text(content.data(), static_cast<int>(content.size()));
        for (const int nBufSize : {128, 65536}) {
            const auto Twice = [&](VELM_CArchive& ar) { Transfer(ar, kind, n, text), Transfer(ar, kind, n, text); };
            ASSERT_TRUE(Stored(Twice, nBufSize) == bytes + bytes);
            MemoryFile file(bytes + bytes + "z");
            file.nMostPerRead = 7;
            VELM_CArchive ar(&file, load, nBufSize);
            unsigned long nLoaded = ~n;
            VELM_CString loaded("old");
            Transfer(ar, kind, nLoaded, loaded), Transfer(ar, kind, nLoaded, loaded);
            EXPECT_EQ(nLoaded, kind == 's' ? ~n : n);
            EXPECT_TRUE(kind != 's' || string(loaded.m_data, n + 1) == content + '\0');
            EXPECT_EQ(Move(ar, static_cast<unsigned char>(0)), 'z');
        }
        for (size_t i = 0; i < bytes.size(); i += i < 20 || i + 1000 > bytes.size() ? 1 : 977) {
            for (const bool bReturns : {false, true}) {
                MemoryFile file(bytes.substr(0, i));
                VELM_CArchive ar(&file, load, 128);
                text = "old", n = 0x77;
                ASSERT_EQ(Outcome([&] { Transfer(ar, kind, n, text); }, bReturns), "raise 3") << i;
                ASSERT_EQ(n, bReturns && kind == 'c' ? 0 : 0x77u) << i;
                ASSERT_STREQ(text.m_data, kind == 's' ? "" : "old");
            }
        }
    }
}

TEST(ArchiveEncoding, AHostileLengthCostsNoMoreThanTheDataEarns)
{
    for (const char* length : {"FF FFFFFFFF", "FF FFFF0000 FFFFFFFF", "FF FFFFFF7F", "FF 00000080"}) {
        MemoryFile file(Bytes(length) + Pattern(20000));
        VELM_CArchive ar(&file, load, 128);
        VELM_CString text;
        EXPECT_EQ(Outcome([&] { ar >> text; }), "raise 3");
        for (size_t i = 1; i < file.calls.size(); ++i)
            EXPECT_LE(std::stoul(file.calls[i].substr(5)), i < 9 ? 8192 : 32768u) << length;
    }
}

TEST(ArchiveEncoding, StoresTextsAndElementsAndRefusesWhatIsTooLarge)
{
    VELM_CString elements[] = {"a", "", "old"};
    const auto StoreAll = [&](VELM_CArchive& ar) {
        ar.WriteString("ab\n"), ar.WriteString("");
        SerializeElements(ar, elements, 0), SerializeElements(ar, elements, 2);
    };
    EXPECT_EQ(Stored(StoreAll), Bytes("61 62 0A 01 61 00"));
    MemoryFile file(Bytes("02 62 63 01 64 05 65"));
    VELM_CArchive ar(&file, load), to(&file, store);
    SerializeElements(ar, elements, 1);
    EXPECT_STREQ(elements[0].m_data, "bc");
    EXPECT_EQ(Outcome([&] { SerializeElements(ar, elements, 3); }, true), "raise 3");
    EXPECT_EQ(string(elements[0].m_data) + elements[1].m_data + elements[2].m_data, "dold");
#if defined(__LP64__)
    const auto StoreLarge = [&] { to << 0x100000000ul, to.WriteCount(0x100000005ul); };
    EXPECT_EQ(Outcome(StoreLarge), "dw <= 0xFFFFFFFF; dwCount <= 0xFFFFFFFF");
    EXPECT_EQ(to.m_lpBufCur, to.m_lpBufStart);
#endif
}

TEST(ArchiveLine, EndsAtTheLineEndOrTheRoomOrTheData)
{
    // One stream, read with one limit after the other; "-" for NULL, which leaves the buffer untouched.
    const char data[] = "abcdefg\nab\r\nab\r\nab\rxab\rxab\r\r\n\nabc\nabc\nabc\nab\r\na\0b\nxy";
    const int limits[] = {5, 5, -10, 10, -10, 10, -10, 10, 0, 10, 3, 10, -3, -10, -4, -2, 10, 10, 10, 10, -10};
    const char lines[] = "abcde|fg|ab\n|ab|abx|ab|ab\r||||abc||abc|\n|abc\n|ab||a\0b|xy|-|-|";
    for (const char* end : {"", "\r"}) {
        for (const bool bReturns : {false, true}) {
            MemoryFile file(string(data, sizeof data - 1) + end);
            VELM_CArchive ar(&file, load, 128);
            string all;
            const auto ReadAll = [&] {
                for (const int nMax : limits) {
                    string line(12, '#');
                    const char* lpszRead = ar.ReadString(&line[0], static_cast<unsigned>(nMax));
                    const size_t nEnd = line.find_first_of('#');
                    all += lpszRead == nullptr && nEnd == 0 ? "-|" : line.substr(0, nEnd - 1) + "|";
                    EXPECT_TRUE(lpszRead == nullptr || (lpszRead == line.data() && line[nEnd - 1] == '\0'));
                }
            };
            EXPECT_EQ(Outcome(ReadAll, bReturns), "raise 3; raise 3; raise 3");
            EXPECT_EQ(all, string(lines, sizeof lines - 1));
            // The end of the data leaves no block behind that a later raise would come to.
            EXPECT_EQ(Outcome([&] { pfm_raise(7), ADD_FAILURE(); }), "raise 7");
        }
    }
}

TEST(ArchiveLine, HasAnyLength)
{
    const string x(100000, 'x'), x127 = x.substr(0, 127), x128 = x127 + "x", nul(1, '\0');
    const string data =
        "\nab\r\nab\rx" + x127 + "\n" + x127 + "\r\n" + x128 + "\r\n" + x + "\na" + nul + "b\n" + x128 + nul + "b\n";
    const string lines = "|ab|abx|" + x127 + "|" + x127 + "|" + x128 + "|" + x + "|a|" + x128 + "|";
    for (const string& end : {string(), string("abc"), x128, x128 + "x"}) {
        MemoryFile file(data + end);
        VELM_CArchive ar(&file, load, 4096);
        VELM_CString line("old");
        string all;
        const auto ReadAll = [&] {
            while (ar.ReadString(line))
                all += string(line.m_data, static_cast<size_t>(line.m_len)) + "|";
        };
        EXPECT_EQ(Outcome(ReadAll, end == "abc").substr(0, 7), "raise 3");
        EXPECT_EQ(all, lines + (end == "" || end == x128 ? "" : end + "|"));
        EXPECT_EQ(line.m_data, end == x128 ? end : ""); // what came is not lost
        EXPECT_LE(file.calls.size(), 60u);              // no call for each character
    }
}
