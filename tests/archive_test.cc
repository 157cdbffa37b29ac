// The archive's buffer, and what it makes of bytes, 32-bit values, counts, strings and lines.
#include <gtest/gtest.h>

#include <map>
#include <optional>
#include <random>
#include <sstream>

#include "tests/support/watch.h"

using std::string;
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
    unsigned nMode, nSize;
    const char *steps, *seen;
    int nBufSize = 128;
    unsigned nMostPerRead = ~0u;
};

static string Seen(const Scenario& s)
{
    MemoryFile file(Pattern(s.nSize));
    file.nMostPerRead = s.nMostPerRead;
    std::optional<VELM_CArchive> ar(std::in_place, &file, s.nMode, s.nBufSize);
    string seen, result, bytes;
    unsigned nArgument, nCalls = 1, nAt = 0; // the first call asks for the path; position in the stream
    const auto Show = [&](auto n) { result = "=" + std::to_string(n) + " "; };
    const auto Expect = [&](const string& came) { EXPECT_TRUE(came == Pattern(came.size(), nAt)) << s.steps; };
    std::map<char, std::function<void(unsigned)>> actions = {
        {'w', [&](unsigned n) { ar->Write(bytes.data(), n), nAt += n, Show(ar->m_lpBufCur - ar->m_lpBufStart); }},
        {'W', [&](unsigned n) { ar->Write(nullptr, n); }},
        {'r', [&](unsigned n) { Expect(bytes.substr(0, n = ar->Read(&bytes[0], n))), nAt += n, Show(n); }},
        {'R', [&](unsigned n) { EXPECT_EQ(ar->Read(nullptr, n), 0u); }},
        {'f', [&](unsigned n) { ar->FillBuffer(n), Show(ar->m_lpBufMax - ar->m_lpBufCur); }},
        {'c', [&](unsigned n) { Expect(string(ar->m_lpBufCur, ar->m_lpBufMax)), ar->m_lpBufCur += n, nAt += n; }},
        {'<', [&](unsigned n) { *ar << static_cast<unsigned char>(n) << 1u; }},
        {'>', [&](unsigned n) { *ar >> n, ar->ReadCount(); }},
        {'e', [&](unsigned) { Show(ar->IsAtEnd()); }},
        {'F', [&](unsigned) { ar->Flush(); }},
        {'C', [&](unsigned) { ar->Close(); }},
        {'A', [&](unsigned) { ar->Abort(); }},
        {'|', [&](unsigned) { seen += "|", ar.reset(); }}};
    std::istringstream steps(s.steps + string(" |0"));
    for (char step; steps >> step >> nArgument; result = "") {
        bytes = step == 'r' ? string(nArgument, '#') : Pattern(nArgument, nAt);
        const string outcome = Outcome([&] { actions[step](nArgument); }, true);
        for (; nCalls < file.calls.size(); ++nCalls)
            seen += file.calls[nCalls] + " ";
        seen += outcome + (outcome == "" ? "" : " ") + result;
    }
    return s.nSize != 0 || file.data == Pattern(file.data.size()) ? seen : "other bytes in the file";
}

#define GONE "m_bDirectBuffer || m_lpBufStart != NULL; m_bDirectBuffer || m_lpBufCur != NULL"

TEST(Archive, CallsItsFileAndReportsAsPromised)
{
    const std::pair<const char*, std::vector<Scenario>> promises[] = {
        {"storing writes whole buffers, then whole multiples of them, and the rest at the end",
         {{store, 9, "w0 w10 w117 <1 <1", "=0 =10 =127 Write 128 Write 0 |Write 9 ", 127},
          {store, 0, "w1 w127 w128 w1000", "=1 =128 Write 128 Write 128 =0 Write 128 Write 768 =104 |Write 104 ", -5},
          {store, 0, "w150 w500", "=150 Write 200 Write 400 =50 |Write 50 ", 200}}},
        {"a value may lie over the end of the buffer, and reach up to it",
         {{store, 9, "w124 <1", "=124 Write 128 Write 0 |Write 1 "}, {store, 9, "w123 <1", "=123 |Write 128 "}}},
        {"loading takes what is read ahead, then whole multiples directly, then refills until enough has come",
         {{load, 300, "r0 R1 r3 r200", "=0 lpBuf != NULL Read 0 Read 128 =3 Read 0 Read 128 =200 |Seek -53 1 "},
          {load, 258, "r256 r4", "Read 256 Read 128 =256 Read 0 Read 128 =2 |"},
          {load, 100, "r130 r1 A0 A0 r1", "Read 128 Read 28 =100 Read 0 Read 128 =0 " GONE " =0 |"},
          {load, 400, "r300", "Read 200 Read 110 Read 20 Read 200 Read 110 =300 |Seek -80 1 ", 200, 90}}},
        {"the end of the data is looked for inside the buffer, and nothing is lost by that",
         {{load, 130, "r128 e0 r2 e0", "Read 128 Read 128 =128 =0 =2 Read 128 =1 |"},
          {load, 128, "r1 e0 r127 e0", "Read 0 Read 128 =1 =0 =127 Read 128 =1 |"}}},
        {"filling the buffer reads behind what is kept, only once something was consumed, and raises 3 at the end",
         {{load, 99, "f4 c1 f5 c1 f12", "Read 128 Read 125 =6 Read 123 =8 Read 121 Read 118 =13 |Seek -13 1 ", 128, 3},
          {load, 130, "f1 c126 f4 c2 f4 f4 r2", "Read 128 =128 Read 126 =4 Read 126 raise 3 =2 raise 3 =2 =2 |"},
          {load, 9, "f0 f129",
           "Read 128 nBytesNeeded > 0 =9 nBytesNeeded <= (UINT)m_nBufSize; raise 3 =9 |Seek -9 1 "}}},
        {"Flush, Close and the end bring the file up to date, and after Abort nothing more is transferred",
         {{store, 0, "w10 F0 w5 C0 W0 C0 A0", "=10 Write 10 =5 Write 5 |"},
          {store, 0, "C0 w300 w9 A0", "=0 =0 |"},
          {load, 200, "r10 F0 C0 r300 >0 f4", "Read 0 Read 128 =10 Seek -118 1 =0 raise 3; raise 3 raise 3 =0 |"}}},
        {"only the destructor minds that it shall not flush; the lowest bit of a mode is its direction",
         {{store | noFlush, 0, "w10 F0 w5", "IsStoring() =10 Write 10 IsStoring() =5 |"},
          {load | noFlush, 200, "r10", "Read 0 Read 128 IsLoading() =10 |"}}},
        {"each broken precondition is reported, in its order, and nothing is transferred then",
         {{store, 9, "r9 f9 >0", "IsLoading() =0 IsLoading() =128 IsLoading(); IsLoading() |"},
          {load, 9, "r3 <0 W1", "Read 0 Read 128 =3 IsStoring(); IsStoring() lpBuf != NULL; IsStoring() |Seek -6 1 "},
          {store, 9, "W1 A0 W1 W0 F0 <1", "lpBuf != NULL lpBuf != NULL; " GONE " " GONE " " GONE "; " GONE " |"},
          {load, 9, "A0 f0",
           GONE "; nBytesNeeded > 0; m_lpBufCur != NULL; m_lpBufStart != NULL; m_lpBufMax != NULL =0 |"}}}};
    for (const auto& promise : promises) {
        for (const Scenario& s : promise.second)
            EXPECT_EQ(Seen(s), s.seen) << promise.first << "; not so by the steps " << s.steps;
    }
    const VELM_CArchive ar(nullptr, store);
    EXPECT_EQ(Row() << !ar.m_pReserved << ar.m_nReserved << ar.m_bDirectBuffer << ar.m_nCurSchema << ar.m_nIndexCount
                    << ar.m_bCallerBuf << ar.m_nBufSize << ar.m_nMapGrowth << ar.m_nMapBuckets,
              "1 1 0 4294967295 0 0 65536 16 137");
}

// Values and their bytes: b yte, i nt, l ong, c ount; a s tring of that length is followed by Pattern(length).
static const char encodings[] =
    "b255:FF i4275878552:98BADCFE l2309737967:EFCDAB89 c65534:FEFF0000 c65535:FFFF0000FFFF0000 s254:FE s255:FFFF000000 "
    "c4294967295:FFFF0000FFFFFFFF s0:00 s65533:FFFDFF0000 s65534:FFFFFF0000FEFF0000 s65536:FFFFFF000000000100";

// Stores n or the text, or loads over it.
static void Transfer(VELM_CArchive& ar, char kind, unsigned long& n, VELM_CString& text)
{
    const bool bStore = ar.IsStoring();
    unsigned char by = static_cast<unsigned char>(n);
    unsigned dw = static_cast<unsigned>(n);
    if (kind == 'c')
        bStore ? ar.WriteCount(n) : void(n = ar.ReadCount());
    else if (bStore)
        kind == 'b' ? ar << by : kind == 'i' ? ar << dw : kind == 'l' ? ar << n : ar << text;
    else
        kind == 'b' ? ar >> by : kind == 'i' ? ar >> dw : kind == 'l' ? ar >> n : ar >> text;
    n = kind == 'b' ? by : kind == 'i' ? dw : n;
}

TEST(ArchiveEncoding, IsByteExactAndReadBackAndEveryPrefixRaisesOnce)
{
    std::istringstream in(encodings);
    char kind, colon;
    unsigned long n;
    for (string hex; in >> kind >> n >> colon >> hex;) {
        const string content = Pattern(kind == 's' ? n : 0), bytes = Bytes(hex.c_str()) + content;
        const unsigned long nStored = n;
        VELM_CString text(content.data(), static_cast<int>(content.size()));
        const auto Twice = [&](VELM_CArchive& ar) { Transfer(ar, kind, n, text), Transfer(ar, kind, n, text); };
        ASSERT_TRUE(Stored(Twice, 128) == bytes + bytes) << kind << n;
        MemoryFile file(bytes + bytes + "z");
        file.nMostPerRead = 7; // so that values lie across the end of what is read ahead
        VELM_CArchive from(&file, load, 128);
        n = kind == 's' ? n : ~n, text = kind == 's' ? "old" : "", Twice(from);
        EXPECT_EQ(n, nStored) << kind;
        EXPECT_TRUE(string(text.m_data, content.size() + 1) == content + '\0') << kind << nStored;
        EXPECT_EQ(Row() << from.Read(&colon, 1) << colon, "1 z") << kind << nStored;
        for (size_t i = 0; i < 2 * bytes.size(); i += i < 40 || i + 2000 > 2 * bytes.size() ? 1 : 1953) {
            LoadingArchive ar(bytes.substr(0, i / 2), nullptr, 128);
            text = "old", n = 0x77;
            ASSERT_EQ(Outcome([&] { Transfer(ar, kind, n, text); }, i % 2 != 0), "raise 3") << kind << nStored;
            ASSERT_EQ(n, i % 2 != 0 && kind == 'c' ? 0 : 0x77u) << kind << nStored << " cut to " << i / 2;
            ASSERT_STREQ(text.m_data, kind == 's' ? "" : "old") << nStored << " cut to " << i / 2;
        }
    }
}

TEST(ArchiveEncoding, AHostileLengthCostsNoMoreThanTheDataEarns)
{
    for (const char* length : {"FF FFFFFFFF", "FF FFFF0000 FFFFFFFF", "FF FFFFFF7F", "FF 00000080"}) {
        LoadingArchive ar(Bytes(length) + Pattern(20000), nullptr, 128);
        const MemoryFile& file = ar.file;
        VELM_CString text;
        EXPECT_EQ(Outcome([&] { ar >> text; }), "raise 3");
        for (size_t i = 1, nCame = 0; i < file.calls.size(); ++i) {
            const size_t nAsked = std::stoul(file.calls[i].substr(5));
            EXPECT_LE(nAsked, std::max<size_t>(4096, 16 * nCame)) << length;
            nCame = std::min(nCame + nAsked, file.data.size());
        }
    }
}

TEST(ArchiveEncoding, RefusesWhatIsTooLargeAndElementsStopWithTheData)
{
    VELM_CString elements[] = {"a", "", "old"};
    EXPECT_EQ(Stored([&](VELM_CArchive& ar) { SerializeElements(ar, elements, 2); }), Bytes("01 61 00"));
    MemoryFile file(Bytes("01 64 05 65"));
    unsigned char buffers[2][128];
    VELM_CArchive from(&file, load, 128, buffers[0]), small(&file, load, 127, buffers[1]);
    EXPECT_EQ(from.m_lpBufStart, buffers[0]);
    EXPECT_NE(small.m_lpBufStart, buffers[1]); // as that is too small
    EXPECT_EQ(Outcome([&] { SerializeElements(from, elements, 3); }, true), "raise 3");
    EXPECT_EQ(string(elements[0].m_data) + elements[1].m_data + elements[2].m_data, "dold");
    double numbers[] = {1, 2, 3};
    VELM_CArchive cut(&file, load);
    file.data += string(8, '\0'), file.nPosition = 4;
    EXPECT_EQ(Outcome([&] { SerializeElements(cut, numbers, 3); }, true), "raise 3");
    EXPECT_EQ(Row() << numbers[0] << numbers[1] << numbers[2], "0 2 3");
#if defined(__LP64__)
    const auto StoreLarge = [](VELM_CArchive& ar) {
        ar << 0x100000000ul, ar.WriteCount(0x100000000ul), ar.StorePrefixed("", 0x100000000ul);
    };
    EXPECT_EQ(Outcome([&] { EXPECT_EQ(Stored(StoreLarge), ""); }, true),
              "dw <= 0xFFFFFFFF; dwCount <= 0xFFFFFFFF; nLength <= 0xFFFFFFFF; raise 1; raise 1; raise 1");
#endif
}

// What ReadString makes of a text, byte by byte.
struct LineModel {
    string text;
    size_t nAt = 0;

    bool Read(string& rLine, size_t nStop, bool bKeepLineEnd)
    {
        for (rLine = ""; rLine.size() < nStop;) {
            const bool bReturn = nAt < text.size() && text[nAt] == '\r', bLineEnd = bReturn || text[nAt] == '\n';
            nAt += bReturn;
            if (nAt >= text.size())
                return !rLine.empty();
            const char ch = text[nAt++];
            if (!bLineEnd || bKeepLineEnd)
                rLine += ch;
            if (bLineEnd)
                break;
        }
        return true;
    }
    bool Read(string& rLine)
    {
        string chunk;
        bool bCame;
        rLine = "";
        while ((bCame = Read(chunk, 128, true))) {
            chunk = chunk.c_str();
            rLine += chunk;
            if (chunk.size() < 128 || chunk.back() == '\n')
                break;
        }
        if (!rLine.empty() && rLine.back() == '\n')
            rLine.pop_back();
        return bCame;
    }
};

TEST(ArchiveLine, HasAnyLengthAndAnyEnd)
{
    std::mt19937 random(5);
    for (int nRound = 0; nRound < 300; ++nRound) {
        LineModel model;
        const size_t lengths[] = {0, 3, 126, 127, 128, 129, 255, 256, nRound == 0 ? 100000u : 1000u};
        for (int i = 0; i < 20; ++i) {
            const char* const ends[] = {"\n", "\r\n", "\rz", "\r\r", "\r", "\n\r\n", "z"};
            model.text += string(lengths[random() % 9], 'x') + ends[random() % 7] + string(random() % 5 == 0, '\0');
        }
        MemoryFile file(model.text);
        VELM_CArchive ar(&file, load, random() % 2 ? 128 : 4096);
        VELM_CString line("old");
        const auto ReadAll = [&] {
            string expected;
            for (bool bCame = true; bCame || model.nAt < model.text.size();) {
                const int nMax = static_cast<int>(random() % 300) - 150;
                std::vector<char> room(151, '#');
                if (nRound % 3 == 0 ? nMax < 0 : nMax < -140) {
                    bCame = model.Read(expected);
                    ASSERT_EQ(ar.ReadString(line), bCame) << nRound;
                    ASSERT_TRUE(string(line.m_data, static_cast<size_t>(line.m_len)) == expected) << nRound;
                } else {
                    bCame = model.Read(expected, static_cast<size_t>(std::abs(nMax)), nMax < 0);
                    ASSERT_EQ(ar.ReadString(room.data(), static_cast<unsigned>(nMax)) != nullptr, bCame) << nRound;
                    ASSERT_TRUE(bCame ? string(room.data(), expected.size() + 1) == expected + '\0' : room[0] == '#');
                }
            }
        };
        EXPECT_EQ(Outcome(ReadAll, nRound % 2 == 0).substr(0, 7), "raise 3");
        // The end of the data leaves no block behind that a later raise would come to.
        EXPECT_EQ(Outcome([&] { pfm_raise(7), ADD_FAILURE(); }), "raise 7");
    }
}

// Wherever a reader goes, it finds the byte that stands there, and knows where it is.
TEST(Archive, AReaderSeeksWhereItLikes)
{
    const string bytes = Pattern(5000);
    VELM_CMemoryFile memory(bytes.data(), static_cast<unsigned long>(bytes.size()));
    VELM_CArchive ar(&memory, load, 128);
    std::mt19937 random(1);
    size_t nAt = 0;
    char came[200];
    for (int i = 0; i < 5000; ++i) {
        const size_t nTo = random() % 4 == 0 ? random() % 6000 : nAt + random() % 40;
        ASSERT_EQ(nTo <= bytes.size(), ar.SeekTo(nTo));
        nAt = nTo <= bytes.size() ? nTo : nAt;
        ASSERT_EQ(nAt, ar.GetOffset());
        const unsigned long nWanted = random() % sizeof came, nCame = ar.LoadBlock(came, nWanted);
        ASSERT_EQ(bytes.substr(nAt, nWanted), string(came, nCame));
        nAt += nCame;
    }
    VELM_CMemoryFile target;
    VELM_CArchive storing(&target, VELM_CArchive::store);
    EXPECT_EQ(0, storing.SeekTo(0));
}
