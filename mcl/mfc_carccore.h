/// \file
/// The archive: a buffered binary stream of bytes, 32-bit values, counts, strings, lines of text and graphs of objects.
///
/// One class, in three layers. Each layer uses the one below, and all bytes go through one buffer:
///
///     objects     WriteObject, WriteClass         ReadObject, ReadClass          references, class records
///                      |                               ^
///     values      <<, WriteCount, WriteString     >>, ReadCount, ReadString      encodings
///                      v                               |
///     bytes       Write, Flush                    Read, FillBuffer, Flush        the buffer
///                      |                               ^
///                      v                               |
///     VELM_CFile  Write                           Read, Seek
///
///     storing:  | waiting to be written | room              |
///     loading:  | delivered             | read ahead | stale |
///               m_lpBufStart            m_lpBufCur   m_lpBufMax (storing: the buffer's end)
///
/// Which functions to use:
///
/// | To move | store by | load by | when the data ends |
/// |---|---|---|---|
/// | bytes whose number both sides know | `Write` | `Read` | returns fewer |
/// | a byte, a 32-bit value, another number, a `bool` | `<<` | `>>` | raises 3 |
/// | a 64-bit value | `WriteUInt64`, `WriteInt64` | `ReadUInt64`, `ReadInt64` | raises 3 |
/// | an enumeration | `WriteEnum` | `ReadEnum` | raises 3 |
/// | a number of things that follow | `WriteCount` | `ReadCount` | raises 3 |
/// | a string with its length | `<<` | `>>` | raises 3 |
/// | text, line by line | `WriteString`, with the line ends | `ReadString` | returns NULL, or 0 |
/// | an object, with all that it refers to | `WriteObject` | `ReadObject` | raises 3 |
/// | a class alone | `WriteClass` | `ReadClass` | raises 3 |
///
/// What holds at every moment:
/// - `m_lpBufStart` <= `m_lpBufCur` <= `m_lpBufMax` <= `m_lpBufStart` + `m_nBufSize`. Storing, the bytes before
///   `m_lpBufCur` have not been written to the file yet. Loading, the position of the file is that of `m_lpBufMax`.
/// - An index is given once, to one object or class, and is below `nIndexLimit`. `m_nIndexCount` is the next index.
/// - A value is loaded whole or not at all. Once the data has ended inside a value, every further attempt to load one
///   fails, until `Flush`: see `IsDataEnded`.
///
/// The fields are public for compatibility: programs and debuggers use them, at their present offsets.
#ifndef TAVNOMCL_MFC_CARCCORE_H
#define TAVNOMCL_MFC_CARCCORE_H

#include <stdint.h>
#include <string.h>

#include <type_traits>

#include "mcl/mfc_base.h"
#include "mcl/mfc_carcex.h"
#include "mcl/mfc_cfile.h"
#include "mcl/mfc_crun.h"

/// \addtogroup archives
/// \{

class VELM_LOCAL VELM_CArchiveGraph;
class VELM_LOCAL VELM_CArchiveState;
class VELM_CClassTable;
class VELM_CMapPtrToPtr;
class VELM_CPtrArray;
struct VELM_CPtrAssoc;

/// Base class of values that a reader of several parts needs until it is done, and that a raise in between must not
/// lose. Such a value is made by operator new and passed to `VELM_CArchive::Hold`. From then on the archive owns it,
/// and deletes it in `VELM_CArchive::DropHeld`, or in its own destructor when a raise has left the reader.
class VELM_API VELM_CHeld {
public:
    VELM_CHeld() : m_pOuter(NULL), m_nDepth(0), m_nInHeld(0) {}
    VELM_CHeld(const VELM_CHeld&) = delete;
    VELM_CHeld& operator=(const VELM_CHeld&) = delete;
    virtual ~VELM_CHeld();

private:
    friend class VELM_CArchive;
    friend class VELM_CArchiveState;
    VELM_CHeld* m_pOuter; // the value that was held before this one
    unsigned m_nDepth;    // how many objects were under way then
    unsigned m_nInHeld;   // how many objects were owned by held values then
};

/// A binary stream in one direction, storing to a `VELM_CFile` or loading from it, through one buffer.
///
/// The stream has no header and no padding; multi-byte values stand least significant byte first. The same values give
/// the same bytes on every machine.
///
/// The archive borrows the file: it neither opens nor closes it, and does not look at its errors (see
/// `VELM_CFile::ERROR_CODE`). A storing archive fills its buffer completely before anything reaches the file.
///
/// Every function that moves data asserts that the archive has the right direction, by "IsStoring()" or "IsLoading()",
/// and that it has its buffer. When such an assertion fails, no data is moved, and nothing is raised. If the mode
/// contains `noFlushOnDestroy`, the assertion of the direction fails always. Bytes and values are moved nevertheless,
/// in the direction of the mode's lowest bit; objects are not stored. The raise codes are the causes of
/// `VELM_CArchiveException`.
///
/// A storing archive remembers whether something could not be stored: see `IsWhole`. It tells that also to a file that
/// must know whether a save is whole, such as a `VELM_CSaveFile`.
class VELM_API VELM_CArchive {
public:
    /// Modes.
    enum {
        store = 0,           ///< From the caller's values to the file.
        load = 1,            ///< From the file to the caller.
        noFlushOnDestroy = 2 ///< Added to one of these: the destructor does not flush.
    };

    /// Tags of object and class references, and the limit of indexes.
    enum : unsigned {
        wNullTag = 0,               ///< The null object.
        wBigObjectTag = 0x7FFF,     ///< A reference in the long form follows, in 32 bits.
        wClassTag = 0x8000,         ///< Set in a short reference to a class that was stored before.
        wNewClassTag = 0xFFFF,      ///< A class record follows.
        dwBigClassTag = 0x80000000, ///< Set in a 32-bit reference to a class that was stored before.
        nIndexLimit = 0x3FFFFFFE    ///< Every index is below this.
    };

    void* m_pReserved;           ///< NULL; not used.
    int m_nReserved;             ///< 1; not used.
    int m_bDirectBuffer;         ///< 0.
    unsigned m_nCurSchema;       ///< What `GetObjectSchema` returns next; 0xFFFFFFFF for none.
    VELM_CString m_strFileName;  ///< The path that the file had when the archive was constructed.
    unsigned m_nMode;            ///< The mode.
    int m_bCallerBuf;            ///< Whether the buffer belongs to the caller.
    int m_nBufSize;              ///< The size of the buffer in bytes, at least 128.
    VELM_CFile* m_pFile;         ///< The file; NULL after `Close` and `Abort`.
    unsigned char* m_lpBufCur;   ///< Loading: the next byte to be delivered. Storing: the place of the next byte.
    unsigned char* m_lpBufMax;   ///< Loading: the end of the bytes read ahead. Storing: the end of the buffer.
    unsigned char* m_lpBufStart; ///< The buffer.
    unsigned m_nIndexCount;      ///< The next index of an object or class; 0 until there is a map or an array.
    union {
        /// Storing: the map from each object and class to its index. NULL until needed. A program may read the map at
        /// any time, also in two threads at once; once it has looked up a key, new objects take a little longer to
        /// store. When a program calls a member of the map that is not const, or `GetAssocAt`, the archive searches the
        /// map for each object from then on, which takes longer. A program that changes an index in a node in place
        /// must call the map's `WalkChains`; otherwise the archive goes on with the index that it has given.
        VELM_CMapPtrToPtr* m_pStoreMap;
        VELM_CPtrArray* m_pLoadArray; ///< Loading: the object or class of each index. NULL until needed.
    };
    VELM_CObject* m_pLoader; ///< What loads objects and classes, or NULL. It belongs to the archive.
    int m_nMapGrowth;        ///< The block size of the map, or the growth step of the array.
    unsigned m_nMapBuckets;  ///< The number of buckets of the map.

    /// Makes an archive over an open file. `lpBuf` is a buffer of `nBufSize` bytes, which stays the caller's and must
    /// live as long as the archive; with NULL, the archive allocates one. If `nBufSize` is below 128, the archive
    /// allocates 128 bytes and does not use `lpBuf`. Exhausted memory: see `AfxMemoryExhausted`.
    VELM_CArchive(VELM_CFile* pFile, unsigned nMode, int nBufSize = 65536, void* lpBuf = NULL);
    /// Flushes, unless the mode contains `noFlushOnDestroy` or the archive is closed, and releases what it owns. The
    /// objects that it has loaded are not deleted. What a flush raises is raised again at the end.
    ~VELM_CArchive();
    VELM_CArchive(const VELM_CArchive&) = delete;
    VELM_CArchive& operator=(const VELM_CArchive&) = delete;

    /// Whether the mode is `load` and nothing else.
    VELM_INLINE int IsLoading() const { return m_nMode == load; }
    /// Whether the mode is `store` and nothing else.
    VELM_INLINE int IsStoring() const { return m_nMode == store; }

    /// Forgets the file without flushing, and releases what the archive owns. All that is left to do with the archive
    /// is to destroy it: `WriteObject`, `WriteClass` and `MapObject` do nothing.
    void Abort();
    /// Flushes, and forgets the file, which stays open. The archive must not store or load anything after that.
    void Close();
    /// Loading: delivers up to `nMax` bytes to `lpBuf` and returns how many; fewer only when the data ends. Asserts
    /// "lpBuf != NULL" unless `nMax` is 0. Raises nothing.
    unsigned Read(void* lpBuf, unsigned nMax);
    /// Storing: stores `nMax` bytes from `lpBuf`. Asserts "lpBuf != NULL" unless `nMax` is 0.
    void Write(const void* lpBuf, unsigned nMax);
    /// Storing: writes the bytes in the buffer to the file. Loading: moves the file's position back to the first byte
    /// that has not been delivered, and lets readers look for data again after its end.
    void Flush();
    /// Loading: makes at least `nBytesNeeded` bytes available at `m_lpBufCur`. Raises 3 when the data ends before.
    /// Asserts "nBytesNeeded > 0" and "nBytesNeeded <= (UINT)m_nBufSize".
    void FillBuffer(unsigned nBytesNeeded);

    /// Stores a count: in 4 bytes if it is below 0xFFFF, else in 8. For a count above 0xFFFFFFFF, which is possible on
    /// 64-bit machines, the assertion "dwCount <= 0xFFFFFFFF" fails, 1 is raised, and nothing is stored.
    void WriteCount(unsigned long dwCount);
    /// Loads a count. Raises 3 when the data ends; returns 0 if the raise returns.
    unsigned long ReadCount();
    /// Stores a 64-bit value in 8 bytes. There is no `<<` for it, since `uint64_t` is `unsigned long` on some machines,
    /// and `<<` stores an `unsigned long` in 4 bytes.
    void WriteUInt64(unsigned long long nValue)
    {
        Store32(static_cast<uint32_t>(nValue));
        Store32(static_cast<uint32_t>(nValue >> 32));
    }
    /// Stores a 64-bit value in 8 bytes, as two's complement.
    void WriteInt64(long long nValue) { WriteUInt64(static_cast<unsigned long long>(nValue)); }
    /// Loads a 64-bit value. Raises 3 when the data ends; returns 0 if the raise returns.
    unsigned long long ReadUInt64()
    {
        unsigned long long nValue = 0;
        if (!Load64(nValue))
            RaiseDataEnded();
        return nValue;
    }
    /// \copydoc ReadUInt64
    long long ReadInt64() { return static_cast<long long>(ReadUInt64()); }
    /// Stores an enumerator in 4 bytes, as two's complement. Its type may be narrower, but not wider.
    template <class ENUM> void WriteEnum(ENUM nValue)
    {
        static_assert(std::is_enum<ENUM>::value && sizeof(ENUM) <= 4, "an enumeration of at most 4 bytes");
        Store32(static_cast<uint32_t>(nValue));
    }
    /// The same for an enumerator from `nFirst` to `nLast`. Raises 1 for any other value, which `ReadEnum` would
    /// refuse, and stores nothing.
    template <class ENUM> void WriteEnum(ENUM nValue, ENUM nFirst, ENUM nLast)
    {
        static_assert(std::is_enum<ENUM>::value && sizeof(ENUM) <= 4, "an enumeration of at most 4 bytes");
        StoreRange(static_cast<uint32_t>(nValue), static_cast<uint32_t>(nFirst), static_cast<uint32_t>(nLast));
    }
    /// Loads an enumerator from `nFirst` to `nLast`. Raises 3 when the data ends, and 1 for any other value; `rValue`
    /// keeps its value then.
    template <class ENUM> void ReadEnum(ENUM& rValue, ENUM nFirst, ENUM nLast)
    {
        static_assert(std::is_enum<ENUM>::value && sizeof(ENUM) <= 4, "an enumeration of at most 4 bytes");
        uint32_t nValue;
        if (LoadRange(nValue, static_cast<uint32_t>(nFirst), static_cast<uint32_t>(nLast)))
            rValue = static_cast<ENUM>(static_cast<typename std::underlying_type<ENUM>::type>(nValue));
    }
    /// Stores the bytes of a NUL-terminated text of any length, without its length and without the NUL. NULL stores
    /// nothing.
    void WriteString(const char* lpsz);
    /// Loads up to `nMax` bytes of a line, and puts a NUL behind them; `lpsz` must have room for `nMax` + 1 bytes. A
    /// line ends at a line feed, or at a carriage return together with the byte behind it, whatever that is. The line
    /// end is consumed, but not delivered. The rest of a longer line is left for the next call, and so is a line end
    /// that follows exactly `nMax` bytes.
    ///
    /// If `nMax` is negative as an int, up to -`nMax` bytes are loaded, and the last byte of the line end is delivered
    /// and counted with them. For example, of the bytes "ab\r\ncd" `ReadString(buf, 10)` delivers "ab", and
    /// `ReadString(buf, (unsigned)-10)` delivers "ab\n"; the next byte is the "c" in both cases.
    ///
    /// Returns `lpsz`. Returns NULL when the data ends, or something is raised, before any byte could be delivered.
    /// Raises nothing itself.
    char* ReadString(char* lpsz, unsigned nMax);
    /// Loads one line of any length, without its line end. Returns 1 if there was a line. At the end of the data it
    /// returns 0, and the string is empty.
    ///
    /// A last line without a line end is delivered with the result 1, too; but with 0 if its length is a multiple of
    /// 128, so look at the string as well. Behind a carriage return alone, the byte that follows it stays at the end of
    /// the line. A line that holds a NUL byte is not delivered whole.
    int ReadString(VELM_CString& rString);

    /// Stores an object reference, and the object when it is new to the archive: its class, then its `Serialize`.
    /// Asserts "pClassRef != NULL" and, of a new class, "pClassRef->m_pszName != NULL". Raises 1 for a class with the
    /// schema 0xFFFF, 5 when no index is left.
    ///
    /// Objects are known by their addresses: each must live until the last one is stored, or another one at its address
    /// is taken for it.
    void WriteObject(const VELM_CObject* pOb);
    /// Loads an object reference: NULL, an object that the archive had before, or a new object, which its class's
    /// table entry makes, which gets its index, and whose `Serialize` is called then. The object is of the requested
    /// class or of one derived from it; NULL requests nothing. See `SetClassTable` for what can be wrong.
    ///
    /// Without a class table: loads and drops 4 bytes and returns NULL. Raises 1 when the requested class has the
    /// schema 0xFFFF, 3 when the data ends.
    VELM_CObject* ReadObject(const VELM_CRuntimeClass* pClassRefRequested);
    /// Stores a class reference, and the class record when it is new to the archive. Asserts and raises as
    /// `WriteObject`.
    void WriteClass(const VELM_CRuntimeClass* pClassRef);
    /// Loads a class reference and returns the class, its stored schema through `pSchema`. Where an object reference
    /// stands instead, returns NULL and its index through `pObTag`, or raises 5 when that is NULL.
    ///
    /// Without a class table: loads and drops 4 bytes, stores 0 through `pObTag` and returns NULL; raises 5 when
    /// `pObTag` is NULL. Raises 1 and 3 as `ReadObject`.
    VELM_CRuntimeClass* ReadClass(const VELM_CRuntimeClass* pClassRefRequested, unsigned* pSchema = NULL,
                                  unsigned long* pObTag = NULL);
    /// `WriteClass` when storing, else `ReadClass` of a class reference alone.
    void SerializeClass(const VELM_CRuntimeClass* pClassRef);
    /// Gives the object the next index without storing or loading anything. NULL: nothing but the map or array, which
    /// every operation on objects makes when there is none. Raises 5 when no index is left.
    void MapObject(const VELM_CObject* pOb);
    /// Loading: switches the loading of objects and classes on, with these classes; NULL switches it off again.
    /// Storing: `WriteObject` and `WriteClass` raise 1, before any byte, where a program with this table could not load
    /// what they store: a class that is not in it, an object of an abstract class, and one of a C++ class that is
    /// derived from the one that was added by `VELM_CClassTable::Add<TYPE>` and has no class record of its own. The
    /// table outlives the archive.
    ///
    /// The data may come from anywhere. What is wrong in it ends in a raise, which `GetErrorText` explains: 3 when it
    /// ends; 5 for an index that was not given out, that is an object where a class is needed or a class where an
    /// object is, or when no index is left; 1 for a class that is not in the table, that has the stored schema 0xFFFF
    /// or a newer one than in the table, or that is not the requested one, and for objects that are nested too deep.
    /// After a raise, `DeleteLoadedObjects` and destruction are all that is left to do with the archive.
    void SetClassTable(const VELM_CClassTable* pTable);
    /// How deep objects may be nested in each other's `Serialize`, storing and loading; 1,000,000 unless set. Deeper
    /// ones raise 1, as does a level for which there is no memory.
    ///
    /// The size of the caller's stack is no limit. When the calls of an archive have used 16 KiB of it, or a quarter of
    /// what was left if that is less, they go on on segments of memory of the archive's own, of 2, 4, 8 and so on up to
    /// 64 MiB, which are released with the archive. This is address space; the system gives memory as it is used, about
    /// 300 bytes for each level and what the class's `Serialize` takes. A `Serialize` that runs on a segment has at
    /// least 1 MiB of stack. Below lies 1 MiB that cannot be accessed: a frame that needs more ends the process there.
    /// A 32-bit process has room for some hundred archives that are this deep at once.
    ///
    /// A `Serialize` may use other archives, which may use this one. It may go on on another stack, that of a coroutine
    /// or of a thread that it waits for, if that is memory of its own and no array inside a function. What is raised
    /// there is caught there by a cleanup block, and raised again by the `Serialize`. A C++ exception that leaves a
    /// `Serialize` on a segment ends the process by `std::terminate`.
    void SetMaxDepth(unsigned nMaxDepth);
    /// What went wrong last, at which offset in the stream and inside which objects, in one line of printable
    /// characters, such as "offset 812: the data ends, in Rect (index 31) in Layer (9) in Document (1)"; "" for
    /// nothing. Of many objects inside each other those in the middle are counted. Valid until the next failure, also
    /// after `Abort`.
    const char* GetErrorText() const;
    /// The code that was raised with that text; 0 where none was.
    int GetErrorCause() const;
    /// Storing: 1 while all that was to be stored has been; 0 after a check by which something was not stored, after a
    /// raise amid an object or a write of the file, and after bytes were dropped by `Abort` or stored after `Close`.
    /// Asked in a `Serialize`, it answers for what is complete. A file's own failures are the file's to tell.
    /// Loading: 1.
    int IsWhole() const;
    /// For a program's own writers: notes that something was not stored, without a raise. `GetErrorText` has the text.
    void NoteLoss(const char* lpszText);
    /// For a program's own checks, storing and loading: raises 1, with the text in `GetErrorText`, which adds the
    /// offset of the next byte and the objects under way.
    void RaiseInvalid(const char* lpszText);
    /// The same, and raises 5, as for an object that is not where it should be.
    void RaiseBadIndex(const char* lpszText);
    /// Loading: deletes every object that this archive has made and that no other object owns; owners delete theirs.
    /// First objects of classes with a function for it let go of what they refer to (see `VELM_CClassTable::Add`),
    /// which nobody owns then. Otherwise the objects are the caller's. After `Abort` none is known any more.
    void DeleteLoadedObjects();

    /// \name Owners
    ///
    /// An object may delete what it refers to in its destructor: it owns that. An archive that knows of it refuses
    /// files in which two own one object, in which an object owns itself through others, and in which something is
    /// missing that must be there. `AfxOwned` and the smart pointers of the standard library do the same, in
    /// `mfc_std.h`.
    /// \{

    /// Who is to own an object: `plainOwner`, a pointer that its holder deletes; `smartOwner`, one that deletes by
    /// itself; `sharedOwner`, one of several that share the object; `weakOwner`, one that shares it only while others
    /// do.
    enum Owner { plainOwner, smartOwner, sharedOwner, weakOwner };

    /// Loads an object that is owned from now on by the object whose `Serialize` is running: adopted as soon as the
    /// pointer is in the operand. Outside of all objects it is the caller's, and `DeleteLoadedObjects` deletes it
    /// still.
    ///
    /// Raises as `ReadObject`, and 5 for NULL, for an object that has an owner already or would own itself through
    /// others, and for one that the program has mapped by `MapObject`; the operand keeps its value then. An object that
    /// others refer to already may be adopted. While the load goes on, what has been adopted must not be deleted by
    /// hand: the file may refer to it again.
    template <class TYPE> void ReadOwned(TYPE*& rpOb);
    /// The same, where NULL is allowed.
    template <class TYPE> void ReadOwnedOrNull(TYPE*& rpOb);
    /// Stores an object that the object whose `Serialize` is running owns. Raises as `WriteObject`, and 1 for what
    /// `ReadOwned` would refuse.
    void WriteOwned(const VELM_CObject* pOb) { WriteForOwner(pOb, plainOwner, 0); }
    /// The same, where NULL is allowed.
    void WriteOwnedOrNull(const VELM_CObject* pOb) { WriteForOwner(pOb, plainOwner, 1); }
    /// Whether every object of this archive but the root has an owner, or was loaded or stored as owned by the caller:
    /// then a caller who deletes these and the root loses nothing. Else 0, and `GetErrorText` names one that has none.
    /// 1 where nothing has been owned at all. Storing, an archive that answers 0 is not whole.
    int AreOwnersComplete(const VELM_CObject* pRoot = NULL);
    /// \}

    /// The schema of the object being loaded, once; 0xFFFFFFFF after that.
    unsigned GetObjectSchema();
    /// The schema of the object whose `Serialize` is running, as often as asked: loading, that it was stored with;
    /// storing, that of its record. 0xFFFFFFFF outside of all objects.
    unsigned GetSchema() const;
    /// For a base class with versions of its own, since the schema in the stream is that of the object's class alone:
    /// storing, stores `nNewest` in 4 bytes and returns it; loading, loads and returns the number that was stored.
    /// Raises 3 when the data ends, and 1 for a number above `nNewest`, with the name in the text; where that returns,
    /// 0.
    unsigned SerializeVersion(const char* lpszName, unsigned nNewest);
    /// Raises 5 when no index is left.
    void CheckCount();
    /// Loading: 1 when nothing is left, or a value came up short; else 0. Reads ahead where it must, and delivers
    /// nothing. Raises nothing; 1 where nothing can be loaded, after the assertion "IsLoading()".
    int IsAtEnd();

    /// \name For readers and writers of further types
    /// \{

    /// Loads so many bytes, or those that come before the data ends. Returns how many.
    unsigned long LoadBlock(void* lpBuf, unsigned long nBytes);
    /// The same. A raise, of the file for instance, comes back: its code through `rRaised`, which is 0 otherwise. For
    /// who has to set right what he loads into, and raises it again.
    unsigned long TryLoadBlock(void* lpBuf, unsigned long nBytes, int& rRaised);
    /// Stores so many bytes.
    void StoreBlock(const void* lpBuf, unsigned long nBytes);
    /// Loads so many bytes. Returns 1; 0 when the data ended before: those that came are lost then.
    int LoadWhole(void* lpBuf, unsigned nBytes);
    /// How many bytes of memory a reader has for what claims to be `nTotal` bytes, once `nCame` of them have come: at
    /// most 16 times as many as have come, or 4096, so that a length that lies costs no more than the data earns; and
    /// more than have come, unless that is all. Growing moves little: the sizes are a sixteenth of the total, a
    /// sixteenth of that, and so on.
    static unsigned long long RoomFor(unsigned long long nCame, unsigned long long nTotal);
    /// Loads one byte. Returns 1; 0 when the data ended.
    int LoadByte(unsigned char& rValue)
    {
        if (!IsLoading() || m_lpBufCur == m_lpBufMax)
            return LoadWhole(&rValue, 1);
        rValue = *m_lpBufCur++;
        return 1;
    }
    /// Loads a 32-bit value. Returns 1; 0 when the data ended.
    int Load32(uint32_t& rValue)
    {
        unsigned char bytes[4];
        const unsigned char* p = bytes;
        if (IsLoading() && m_lpBufMax - m_lpBufCur >= 4) {
            p = m_lpBufCur;
            m_lpBufCur += 4;
        } else if (!LoadWhole(bytes, 4)) {
            return 0;
        }
        rValue = p[0] | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
        return 1;
    }
    /// Stores a 32-bit value.
    void Store32(uint32_t nValue)
    {
        unsigned char bytes[4];
        const bool bRoom = IsStoring() && m_lpBufMax - m_lpBufCur >= 4;
        unsigned char* p = bRoom ? m_lpBufCur : bytes;
        p[0] = static_cast<unsigned char>(nValue);
        p[1] = static_cast<unsigned char>(nValue >> 8);
        p[2] = static_cast<unsigned char>(nValue >> 16);
        p[3] = static_cast<unsigned char>(nValue >> 24);
        if (bRoom)
            m_lpBufCur += 4;
        else
            Write(bytes, 4);
    }
    /// Loads a 64-bit value. Returns 1; 0 when the data ended.
    int Load64(unsigned long long& rValue)
    {
        uint32_t nLow, nHigh;
        if (!Load32(nLow) || !Load32(nHigh))
            return 0;
        rValue = nLow | static_cast<unsigned long long>(nHigh) << 32;
        return 1;
    }
    /// Loads a 32-bit value from `nFirst` to `nLast`, counted upwards from `nFirst` and past 0xFFFFFFFF to 0. Returns
    /// 1; 0, where the raise returns, of 3 when the data ends and of 1 for a value outside of these.
    int LoadRange(unsigned& rValue, unsigned nFirst, unsigned nLast);
    /// Stores a 32-bit value from `nFirst` to `nLast`, counted as above. Raises 1 for a value outside of these.
    void StoreRange(unsigned nValue, unsigned nFirst, unsigned nLast);
    /// Loads the length that stands before the bytes of a string. Returns 1; 0 when the data ended.
    int LoadLength(unsigned long& rLength);
    /// Stores a string: its length, then its bytes. A length above 0xFFFFFFFF fails "nLength <= 0xFFFFFFFF" and
    /// raises 1.
    void StorePrefixed(const char* lpch, unsigned long nLength);
    /// Loads such a string. Returns 1; 0 and the empty string when the data ended. Memory grows only as data arrives.
    int LoadPrefixed(VELM_CString& rString);
    /// Whether bytes can be loaded: 0, after the assertion "IsLoading()", on an archive that stores. A reader asks it
    /// before it empties what it loads into.
    int CanLoad() const { return IsInbound() || VELM_ASSERT(IsLoading()); }
    /// Whether a value came up short. Once it did, `LoadByte` and its kin, and all that loads by them, find the end at
    /// once, so that a loop that asks ends; `Flush` makes them look again. `Read` and `ReadString` always look.
    int IsDataEnded() const { return m_nDataEnd != dataGoesOn; }
    /// Raises 3 when a value came up short, unless that was raised already. Each new attempt is raised again.
    void RaiseDataEnded();
    /// Takes what a reader needs until `DropHeld`; cannot fail. After a raise the archive deletes it with itself.
    void Hold(VELM_CHeld* pHeld);
    /// Deletes what is held.
    void DropHeld(VELM_CHeld* pHeld);
    /// What the held value owned is now where its owner keeps it, unless that is another held value.
    void MovedFromHeld(VELM_CHeld* pHeld);
    /// The offset of the next byte in the stream.
    unsigned long long GetOffset() const;

    /// Loads a reference to an object that gets an owner of that kind, by `Adopt` with `rIndex`, once its pointer is
    /// where the owner keeps it. NULL with the index 0; or, after a raise that returned, with `nRefused`.
    VELM_CObject* ReadForOwner(const VELM_CRuntimeClass* pClassRefRequested, Owner kind, int bOrNull, unsigned& rIndex);
    /// The object of that index has an owner of that kind: the object whose `Serialize` is running. Cannot fail;
    /// nothing for 0 and `nRefused`.
    void Adopt(unsigned nIndex, Owner kind);
    /// Loading: how many objects have been adopted so far. A container that drops an element, since it has its key
    /// already, raises 5 where its elements have adopted some: the file may refer to these again.
    unsigned GetAdoptions() const;
    /// Stores a reference to an object that has an owner of that kind. Raises as `WriteOwned`.
    void WriteForOwner(const VELM_CObject* pOb, Owner kind, int bOrNull);
    /// Whether an owner may let go of the object to load another one: not of one that this archive has made, which the
    /// file may refer to again. Raises 5 then; where that returns, 0.
    int MayReplace(const VELM_CObject* pOb);
    /// What the archive holds for an object with shared owners; NULL for none.
    VELM_CHeld* ShareOf(unsigned nIndex) const;
    /// The archive holds this for the object of that index, which gets an owner of that kind. It was held by `Hold`.
    void KeepShare(unsigned nIndex, VELM_CHeld* pShare, Owner kind);
    enum : unsigned { nRefused = 0xFFFFFFFF }; ///< The index of an object that could not be loaded.
    /// \}

private:
    // A reader of values that comes up short sets dataEnded, as does one that finds that or dataEndRaised;
    // RaiseDataEnded turns dataEnded into dataEndRaised, and raises. So each attempt is raised once, by the reader or
    // by what called it.
    enum { dataGoesOn, dataEnded, dataEndRaised };
    int m_nDataEnd;
    VELM_CArchiveState* m_pState; // errors, what is held, depth, owners: see mfc_carccore_p.h and mfc_carcgraph_p.h
    friend class VELM_CArchiveGraph;
    friend class VELM_CArchiveState;

    // The direction of a transfer is the lowest bit of the mode, whatever else is set there, and asked for by
    // IsInbound. Which member of the union is live is a question of the whole mode: HasStoreMap.
    bool IsInbound() const { return (m_nMode & load) != 0; }
    bool HasStoreMap() const { return m_nMode == store; }
    VELM_LOCAL VELM_CArchiveState* NewState();
    VELM_LOCAL VELM_CArchiveGraph& Graph() const;
    VELM_LOCAL void DropObjects();
    VELM_LOCAL bool CheckBuffer() const;
    bool HasMap() const { return m_pStoreMap != NULL && m_nIndexCount != 0; }
    VELM_LOCAL bool MakeMap();
    VELM_LOCAL void WriteAnyObject(const VELM_CObject* pOb, const void* pFrame);
    VELM_LOCAL void WriteNew(const VELM_CObject* pOb, VELM_CPtrAssoc* pAssoc, unsigned* pIndex, unsigned nMoves,
                             const void* pFrame);
    VELM_LOCAL void WriteOfClass(const VELM_CObject* pOb, const VELM_CRuntimeClass* pClassRef, VELM_CPtrAssoc* pAssoc,
                                 const void* pFrame);
    VELM_LOCAL bool StoreClass(const VELM_CRuntimeClass* pClassRef, const VELM_CObject* pOb);
    VELM_LOCAL bool StartReading(const VELM_CRuntimeClass* pClassRefRequested);
    VELM_LOCAL VELM_CObject* LoadObject(const VELM_CRuntimeClass* pClassRefRequested, unsigned& rIndex,
                                        const void* pFrame);
};

/// Stores one byte.
VELM_INLINE VELM_CArchive& operator<<(VELM_CArchive& ar, unsigned char by)
{
    if (ar.IsStoring() && ar.m_lpBufCur != ar.m_lpBufMax)
        *ar.m_lpBufCur++ = by;
    else
        ar.Write(&by, 1);
    return ar;
}

/// Stores a 32-bit value in 4 bytes.
VELM_INLINE VELM_CArchive& operator<<(VELM_CArchive& ar, unsigned int dw)
{
    ar.Store32(dw);
    return ar;
}

/// Stores a 32-bit value in 4 bytes. A value above 0xFFFFFFFF fails "dw <= 0xFFFFFFFF" and raises 1; nothing is stored.
VELM_INLINE VELM_CArchive& operator<<(VELM_CArchive& ar, unsigned long dw)
{
    if (VELM_ASSERT(dw <= 0xFFFFFFFF))
        ar.Store32(static_cast<uint32_t>(dw));
    else
        ar.RaiseInvalid("the value does not fit into 4 bytes");
    return ar;
}

/// Stores a string: its length in 1, 5 or 9 bytes, then its bytes.
VELM_INLINE VELM_CArchive& operator<<(VELM_CArchive& ar, const VELM_CString& str)
{
    ar.StorePrefixed(str.m_data, static_cast<unsigned long>(str.m_len));
    return ar;
}

/// Loads one byte. Raises 3 when the data ends; the operand keeps its value then.
VELM_INLINE VELM_CArchive& operator>>(VELM_CArchive& ar, unsigned char& by)
{
    if (!ar.LoadByte(by))
        ar.RaiseDataEnded();
    return ar;
}

/// Loads a 32-bit value. Raises 3 when the data ends; the operand keeps its value then.
VELM_INLINE VELM_CArchive& operator>>(VELM_CArchive& ar, unsigned int& dw)
{
    uint32_t nValue;
    if (ar.Load32(nValue))
        dw = nValue;
    else
        ar.RaiseDataEnded();
    return ar;
}

/// Loads a 32-bit value. Raises 3 when the data ends; the operand keeps its value then.
VELM_INLINE VELM_CArchive& operator>>(VELM_CArchive& ar, unsigned long& dw)
{
    uint32_t nValue;
    if (ar.Load32(nValue))
        dw = nValue;
    else
        ar.RaiseDataEnded();
    return ar;
}

/// Loads a string. Raises 3 when the data ends; the string is empty then.
VELM_INLINE VELM_CArchive& operator>>(VELM_CArchive& ar, VELM_CString& str)
{
    if (!ar.LoadPrefixed(str))
        ar.RaiseDataEnded();
    return ar;
}

/// Stores the strings, or loads over them; as the operators. Where the data ends, the later ones keep their texts.
VELM_API void SerializeElements(VELM_CArchive& ar, VELM_CString* pElements, int nCount);

/// \}

#endif
