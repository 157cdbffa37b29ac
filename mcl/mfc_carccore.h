/// \file
/// The archive: a buffered binary stream of bytes, 32-bit values, counts, strings, lines of text and graphs of objects.
///
/// One class, in three layers. Each stands on the one below, and every byte goes through `Write` or `Read`:
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
/// Which pair to pick:
///
/// | To move | store by | load by | when the data ends |
/// |---|---|---|---|
/// | bytes whose number both sides know | `Write` | `Read` | fewer come |
/// | a byte, a 32-bit value, another number, a `bool` | `<<` | `>>` | raises 3 |
/// | a 64-bit value | `WriteUInt64`, `WriteInt64` | `ReadUInt64`, `ReadInt64` | raises 3 |
/// | an enumeration | `WriteEnum` | `ReadEnum` | raises 3 |
/// | a number of things that follow | `WriteCount` | `ReadCount` | raises 3 |
/// | a string with its length | `<<` | `>>` | raises 3 |
/// | text, line by line | `WriteString`, with the line ends | `ReadString` | NULL, or 0 |
/// | an object, with all that it refers to | `WriteObject` | `ReadObject` | raises 3 |
/// | a class alone | `WriteClass` | `ReadClass` | raises 3 |
///
/// What is true at every moment:
/// - `m_lpBufStart` <= `m_lpBufCur` <= `m_lpBufMax` <= `m_lpBufStart` + `m_nBufSize`. Storing, what lies before
///   `m_lpBufCur` has not reached the file; loading, the file stands behind what lies before `m_lpBufMax`.
/// - An index is given once, to an object or a class, and stays below `nIndexLimit`. `m_nIndexCount` is the next one.
/// - A value comes whole or not at all. Once one came up short, the archive is at its end for every reader of values,
///   until `Flush`: see `IsDataEnded`.
///
/// The fields are public because they always were: programs and debuggers know them, at these places.
#ifndef TAVNOMCL_MFC_CARCCORE_H
#define TAVNOMCL_MFC_CARCCORE_H

#include <stdint.h>
#include <string.h>

#include <type_traits>
#include <utility>

#include "mcl/mfc_base.h"
#include "mcl/mfc_carcex.h"
#include "mcl/mfc_cfile.h"
#include "mcl/mfc_crun.h"

/// \addtogroup archives
/// \{

class VELM_LOCAL VELM_CArchiveInside;
class VELM_CClassTable;
class VELM_CMapPtrToPtr;
class VELM_CPtrArray;

/// Something that a reader needs until it is done, and that no raise may lose: made by operator new, and deleted by the
/// archive that holds it, by `VELM_CArchive::DropHeld` or with itself.
class VELM_API VELM_CHeld {
public:
    VELM_CHeld() : m_pOuter(NULL), m_nDepth(0), m_nInHeld(0) {}
    VELM_CHeld(const VELM_CHeld&) = delete;
    VELM_CHeld& operator=(const VELM_CHeld&) = delete;
    virtual ~VELM_CHeld();

private:
    friend class VELM_CArchive;
    friend class VELM_CArchiveInside;
    VELM_CHeld* m_pOuter; // held before this one
    unsigned m_nDepth;    // objects under way then
    unsigned m_nInHeld;   // and objects that held values owned
};

/// A binary stream in one direction, storing to a `VELM_CFile` or loading from it, through one buffer.
///
/// The stream has no header and no padding; multi-byte values stand least significant byte first. The same values give
/// the same bytes on every machine.
///
/// The archive borrows the file: it neither opens nor closes it, and does not look at its errors (see
/// `VELM_CFile::ERROR_CODE`). A storing archive fills its buffer completely before anything reaches the file. Every
/// transfer asserts that its direction is the archive's, "IsStoring()" or "IsLoading()", and that the archive has its
/// buffer; after such a failure nothing is transferred, and nothing raised. With `noFlushOnDestroy` in the mode, bytes
/// go in the direction of the lowest bit, though the assertion is reported; objects are not stored. The raise codes are
/// the causes of `VELM_CArchiveException`.
///
/// What a storing archive could not store, it remembers: see `IsWhole`. Files that answer for a whole save, such as
/// `VELM_CSaveFile`, are told.
class VELM_API VELM_CArchive {
public:
    /// Modes.
    enum {
        store = 0,           ///< From the caller's values to the file.
        load = 1,            ///< From the file to the caller.
        noFlushOnDestroy = 2 ///< Added to either: the destructor does not flush.
    };

    /// Tags of object and class references, and the limit of indexes.
    enum : unsigned {
        wNullTag = 0,               ///< The null object.
        wBigObjectTag = 0x7FFF,     ///< A 32-bit index follows.
        wClassTag = 0x8000,         ///< Set in a short reference to a class that was stored before.
        wNewClassTag = 0xFFFF,      ///< A class record follows.
        dwBigClassTag = 0x80000000, ///< Set in a 32-bit reference to a class that was stored before.
        nIndexLimit = 0x3FFFFFFE    ///< Indexes are below this.
    };

    void* m_pReserved;           ///< NULL; not used.
    int m_nReserved;             ///< 1; not used.
    int m_bDirectBuffer;         ///< 0.
    unsigned m_nCurSchema;       ///< Schema of the object being loaded; 0xFFFFFFFF for none.
    VELM_CString m_strFileName;  ///< The file's path at construction.
    unsigned m_nMode;            ///< The mode.
    int m_bCallerBuf;            ///< Whether the buffer is the caller's.
    int m_nBufSize;              ///< Size of the buffer in bytes, at least 128.
    VELM_CFile* m_pFile;         ///< The file; NULL after `Close` and `Abort`.
    unsigned char* m_lpBufCur;   ///< The next byte to be delivered, or filled.
    unsigned char* m_lpBufMax;   ///< The end of the bytes read ahead, or of the buffer.
    unsigned char* m_lpBufStart; ///< The buffer.
    unsigned m_nIndexCount;      ///< The next index of an object or class, once there is a map or array; else 0.
    union {
        /// Storing: from object or class to index. NULL until needed. A program may read it at any time, also two
        /// threads of it at once; from its first look for a key on, new objects take a little longer. After a program
        /// has called a member that is not const, or `GetAssocAt`, the archive asks the map itself for each object,
        /// which takes longer. A program that changes an index in a node in place calls the map's `WalkChains` then:
        /// without that the archive goes on with the index that it gave.
        VELM_CMapPtrToPtr* m_pStoreMap;
        VELM_CPtrArray* m_pLoadArray; ///< Loading: from index to object or class. NULL until needed.
    };
    VELM_CObject* m_pLoader; ///< Owned; what loads objects and classes, or NULL.
    int m_nMapGrowth;        ///< Block size of the map, or growth step of the array.
    unsigned m_nMapBuckets;  ///< Number of buckets of the map.

    /// An archive over an open file. A buffer of `nBufSize` bytes is allocated, or `lpBuf` used, which stays the
    /// caller's; below 128, 128 bytes are allocated in any case.
    VELM_CArchive(VELM_CFile* pFile, unsigned nMode, int nBufSize = 65536, void* lpBuf = NULL);
    /// Flushes, unless `noFlushOnDestroy` is set or the archive is closed, and releases what the archive owns.
    ~VELM_CArchive();
    VELM_CArchive(const VELM_CArchive&) = delete;
    VELM_CArchive& operator=(const VELM_CArchive&) = delete;

    /// Whether the mode is `load` and nothing else.
    VELM_INLINE int IsLoading() const { return m_nMode == load; }
    /// Whether the mode is `store` and nothing else.
    VELM_INLINE int IsStoring() const { return m_nMode == store; }

    /// Forgets the file without flushing and releases what the archive owns. The archive can only be destroyed then:
    /// `WriteObject`, `WriteClass` and `MapObject` do nothing.
    void Abort();
    /// Flushes, and forgets the file, which stays open. The archive can only be destroyed then.
    void Close();
    /// Loading: delivers up to `nMax` bytes and returns how many; fewer only when the data ends. Raises nothing.
    unsigned Read(void* lpBuf, unsigned nMax);
    /// Storing: takes the bytes.
    void Write(const void* lpBuf, unsigned nMax);
    /// Storing: hands the waiting bytes to the file. Loading: moves the file's position back to the first byte that
    /// was not delivered.
    void Flush();
    /// Loading: makes at least `nBytesNeeded` bytes available at `m_lpBufCur`; raises 3 when the data ends before.
    /// Asserts "nBytesNeeded > 0" and "nBytesNeeded <= (UINT)m_nBufSize".
    void FillBuffer(unsigned nBytesNeeded);

    /// Stores a count: 4 bytes below 0xFFFF, else 8. A count above 0xFFFFFFFF fails "dwCount <= 0xFFFFFFFF" and raises
    /// 1; nothing is stored.
    void WriteCount(unsigned long dwCount);
    /// Loads a count. Raises 3 when the data ends; where that returns, 0.
    unsigned long ReadCount();
    /// Stores a 64-bit value in 8 bytes. By name: `uint64_t` is `unsigned long` on some machines, which `<<` stores
    /// in 4.
    void WriteUInt64(unsigned long long nValue)
    {
        Store32(static_cast<uint32_t>(nValue));
        Store32(static_cast<uint32_t>(nValue >> 32));
    }
    /// Stores a 64-bit value in 8 bytes, as two's complement.
    void WriteInt64(long long nValue) { WriteUInt64(static_cast<unsigned long long>(nValue)); }
    /// Loads a 64-bit value. Raises 3 when the data ends; where that returns, 0.
    unsigned long long ReadUInt64()
    {
        unsigned long long nValue = 0;
        if (!Load64(nValue))
            RaiseDataEnded();
        return nValue;
    }
    /// \copydoc ReadUInt64
    long long ReadInt64() { return static_cast<long long>(ReadUInt64()); }
    /// Stores an enumerator in 4 bytes, as two's complement, whatever the width of its type, which is at most 4 bytes.
    template <class ENUM> void WriteEnum(ENUM nValue)
    {
        static_assert(std::is_enum<ENUM>::value && sizeof(ENUM) <= 4, "an enumeration of at most 4 bytes");
        Store32(static_cast<uint32_t>(nValue));
    }
    /// The same of an enumerator from `nFirst` to `nLast`. Raises 1 for a value outside of these, which `ReadEnum`
    /// would refuse; nothing is stored then.
    template <class ENUM> void WriteEnum(ENUM nValue, ENUM nFirst, ENUM nLast)
    {
        static_assert(std::is_enum<ENUM>::value && sizeof(ENUM) <= 4, "an enumeration of at most 4 bytes");
        StoreRange(static_cast<uint32_t>(nValue), static_cast<uint32_t>(nFirst), static_cast<uint32_t>(nLast));
    }
    /// Loads an enumerator from `nFirst` to `nLast`. Raises 3 when the data ends, and 1 for a value outside of these;
    /// the operand keeps its value then.
    template <class ENUM> void ReadEnum(ENUM& rValue, ENUM nFirst, ENUM nLast)
    {
        static_assert(std::is_enum<ENUM>::value && sizeof(ENUM) <= 4, "an enumeration of at most 4 bytes");
        uint32_t nValue;
        if (LoadRange(nValue, static_cast<uint32_t>(nFirst), static_cast<uint32_t>(nLast)))
            rValue = static_cast<ENUM>(static_cast<typename std::underlying_type<ENUM>::type>(nValue));
    }
    /// Stores the bytes of the text, of any length, without a length or a terminator.
    void WriteString(const char* lpsz);
    /// Loads one line: up to `nMax` bytes before a line feed, or a carriage return and the byte behind it. The line
    /// end is consumed and dropped; with a negative `nMax` as an int, of that many bytes, one byte of it is kept. The
    /// buffer has room for one byte more: the final NUL. Returns the buffer; NULL at the end of the data. Raises
    /// nothing.
    char* ReadString(char* lpsz, unsigned nMax);
    /// Loads one line of any length, without its line end. Returns 1; 0 and an empty string at the end of the data. A
    /// last line without a line end gives 1 as well; 0, but with its text, where its length is a multiple of 128.
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
    /// Loading: goes on at that offset, as `GetOffset` counts, for a reader that knows its way. Indexes stay as they
    /// are. Returns 1; 0, and the next byte is the one that it was, when the file has no such place or the archive
    /// stores.
    int SeekTo(unsigned long long nOffset);

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
    VELM_CArchiveInside* m_pInside; // what needs no field here: errors, what is held, depth; see mfc_carccore_p.h
    friend class VELM_CArchiveInside;

    // The direction of a transfer is the lowest bit of the mode, whatever else is set there, and asked for by
    // IsInbound. Which member of the union is live is a question of the whole mode: HasStoreMap.
    bool IsInbound() const { return (m_nMode & load) != 0; }
    bool HasStoreMap() const { return m_nMode == store; }
    VELM_LOCAL bool CheckBuffer() const;
    bool HasMap() const { return m_pStoreMap != NULL && m_nIndexCount != 0; }
    VELM_LOCAL bool MakeMap();
    VELM_LOCAL void WriteAnyObject(const VELM_CObject* pOb, const void* pFrame);
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

/// How `<<` and `>>` move the numbers that are not unsigned: `nBytes` of two's complement or IEEE 754, 0 for a type
/// that they do not move by this. The operators for these are templates of exactly these types: what converts to a
/// number, as a pointer does to `bool` and an enumeration to `int`, means what it did without them, and a program's own
/// operators go before.
template <class TYPE> struct VELM_CValueForm {
    enum { nBytes = 0 };
};
/// \cond
template <class TYPE, int BYTES> struct VELM_CIntegerForm {
    enum { nBytes = BYTES };
    static bool Fits(TYPE) { return true; }
    static unsigned long long Bits(TYPE value) { return static_cast<unsigned long long>(value); }
    static void SetBits(TYPE& rValue, unsigned long long nBits) { rValue = static_cast<TYPE>(nBits); }
};
// Never copied as a number: the x87 unit changes the bits of a signalling NaN.
template <class TYPE, class UINT> struct VELM_CFloatForm {
    static_assert(sizeof(TYPE) == sizeof(UINT), "IEEE 754");
    enum { nBytes = sizeof(UINT) };
    static bool Fits(const TYPE&) { return true; }
    static unsigned long long Bits(const TYPE& value)
    {
        UINT nBits;
        memcpy(&nBits, &value, sizeof nBits);
        return nBits;
    }
    static void SetBits(TYPE& rValue, unsigned long long nAll)
    {
        const UINT nBits = static_cast<UINT>(nAll);
        memcpy(&rValue, &nBits, sizeof nBits);
    }
};
template <> struct VELM_CValueForm<bool> : VELM_CIntegerForm<bool, 1> {
};
template <> struct VELM_CValueForm<char> : VELM_CIntegerForm<char, 1> {
};
template <> struct VELM_CValueForm<signed char> : VELM_CIntegerForm<signed char, 1> {
};
template <> struct VELM_CValueForm<short> : VELM_CIntegerForm<short, 2> {
};
template <> struct VELM_CValueForm<unsigned short> : VELM_CIntegerForm<unsigned short, 2> {
};
template <> struct VELM_CValueForm<int> : VELM_CIntegerForm<int, 4> {
};
template <> struct VELM_CValueForm<long> : VELM_CIntegerForm<long, 4> {
    static bool Fits(long n) { return VELM_ASSERT(n >= INT32_MIN && n <= INT32_MAX); }
    static void SetBits(long& rValue, unsigned long long nBits) { rValue = static_cast<int32_t>(nBits); }
};
template <> struct VELM_CValueForm<float> : VELM_CFloatForm<float, uint32_t> {
};
template <> struct VELM_CValueForm<double> : VELM_CFloatForm<double, uint64_t> {
};

// Of pointers, so that a class that is only declared may have operators of its own.
template <class ARCHIVE, bool bMoved>
struct VELM_CWhereMoved
    : std::enable_if<bMoved && std::is_convertible<ARCHIVE*, VELM_CArchive*>::value, VELM_CArchive&> {
};
template <class TYPE>
struct VELM_CIsLongLong : std::integral_constant<bool, std::is_same<TYPE, long long>::value ||
                                                           std::is_same<TYPE, unsigned long long>::value> {
};
template <class TYPE>
struct VELM_CIsFloat
    : std::integral_constant<bool, std::is_same<TYPE, float>::value || std::is_same<TYPE, double>::value> {
};

// Whether a program has operators of its own for the number. For what is only converted to an archive, none of the
// templates here is a candidate, and three of the other operators here are equally good: without a program's own, the
// expression is an error.
struct VELM_CConvertedArchive {
    operator VELM_CArchive&() const;
};
template <class TYPE, class = void> struct VELM_CStoresByOwn : std::false_type {
};
template <class TYPE>
struct VELM_CStoresByOwn<TYPE, decltype(void(std::declval<VELM_CConvertedArchive&>() << std::declval<const TYPE&>()))>
    : std::true_type {
};
template <class TYPE, class = void> struct VELM_CLoadsByOwn : std::false_type {
};
template <class TYPE>
struct VELM_CLoadsByOwn<TYPE, decltype(void(std::declval<VELM_CConvertedArchive&>() >> std::declval<TYPE&>()))>
    : std::true_type {
};

// Whether a type is of numbers that have the same bytes in memory as in the stream, so that many go as a block.
template <class TYPE, bool = std::is_arithmetic<TYPE>::value> struct VELM_CIsPlainNumber : std::false_type {
};
template <class TYPE>
struct VELM_CIsPlainNumber<TYPE, true>
    : std::integral_constant<bool, VELM_CValueForm<TYPE>::nBytes == sizeof(TYPE) && !std::is_same<TYPE, bool>::value &&
                                       (sizeof(TYPE) == 1 || __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__) &&
                                       !VELM_CStoresByOwn<TYPE>::value && !VELM_CLoadsByOwn<TYPE>::value> {
};
template <> struct VELM_CIsPlainNumber<unsigned char, true> : std::true_type {
};
template <>
struct VELM_CIsPlainNumber<unsigned, true> : std::integral_constant<bool, __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__> {
};
template <>
struct VELM_CIsPlainNumber<unsigned long, true>
    : std::integral_constant<bool, VELM_CIsPlainNumber<unsigned>::value && sizeof(unsigned long) == 4> {
};

// Stores such values.
template <class TYPE> void AfxStoreValues(VELM_CArchive& ar, const TYPE* pValues, size_t nCount)
{
    const size_t nBytes = nCount * sizeof(TYPE);
    if (nBytes == 0 || !ar.IsStoring() || static_cast<size_t>(ar.m_lpBufMax - ar.m_lpBufCur) < nBytes) {
        ar.StoreBlock(pValues, nBytes);
        return;
    }
    memcpy(ar.m_lpBufCur, pValues, nBytes);
    ar.m_lpBufCur += nBytes;
}

// Loads them. Where the data ends, the one in which it ends is 0, and the later ones stay as they were.
template <class TYPE> void AfxLoadValues(VELM_CArchive& ar, TYPE* pValues, size_t nCount)
{
    const size_t nBytes = nCount * sizeof(TYPE);
    if (nBytes != 0 && ar.IsLoading() && static_cast<size_t>(ar.m_lpBufMax - ar.m_lpBufCur) >= nBytes) {
        memcpy(static_cast<void*>(pValues), ar.m_lpBufCur, nBytes);
        ar.m_lpBufCur += nBytes;
        return;
    }
    const size_t nCame = ar.LoadBlock(pValues, nBytes);
    if (nCame == nBytes)
        return;
    if (nCame % sizeof(TYPE) != 0)
        memset(static_cast<void*>(pValues + nCame / sizeof(TYPE)), 0, sizeof(TYPE));
    ar.RaiseDataEnded();
}

template <class TYPE> VELM_CArchive& AfxStoreNumber(VELM_CArchive& ar, const TYPE& value)
{
    typedef VELM_CValueForm<TYPE> Form;
    if (!Form::Fits(value)) {
        ar.RaiseInvalid("the value does not fit into 4 bytes");
        return ar;
    }
    const unsigned long long nBits = Form::Bits(value);
    switch (static_cast<int>(Form::nBytes)) {
    case 1:
        return ar << static_cast<unsigned char>(nBits);
    case 2:
        return ar << static_cast<unsigned char>(nBits) << static_cast<unsigned char>(nBits >> 8);
    case 4:
        ar.Store32(static_cast<uint32_t>(nBits));
        return ar;
    default:
        ar.WriteUInt64(nBits);
        return ar;
    }
}
/// \endcond

/// Stores a `bool`, `char` or `signed char` in 1 byte, a `short` or `unsigned short` in 2, an `int` or `long` in 4. A
/// `long` that 4 bytes do not hold fails "n >= INT32_MIN && n <= INT32_MAX" and raises 1; nothing is stored.
template <class ARCHIVE, class TYPE>
typename VELM_CWhereMoved<ARCHIVE, VELM_CValueForm<TYPE>::nBytes != 0 && !VELM_CIsFloat<TYPE>::value>::type
operator<<(ARCHIVE& rArchive, TYPE value)
{
    return AfxStoreNumber(rArchive, value);
}

/// Stores a `float` in 4 bytes, a `double` in 8: each of its bits, also those of a NaN.
template <class ARCHIVE, class TYPE>
typename VELM_CWhereMoved<ARCHIVE, VELM_CIsFloat<TYPE>::value>::type operator<<(ARCHIVE& rArchive, const TYPE& value)
{
    return AfxStoreNumber(rArchive, value);
}

/// 64-bit values are stored by `VELM_CArchive::WriteInt64` and `WriteUInt64`.
template <class ARCHIVE, class TYPE>
typename VELM_CWhereMoved<ARCHIVE, VELM_CIsLongLong<TYPE>::value>::type operator<<(ARCHIVE&, TYPE) = delete;

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

/// Loads what the operator for these types stores; a `bool` is whether the byte is not 0. Raises 3 when the data ends;
/// the operand keeps its value then.
template <class ARCHIVE, class TYPE>
typename VELM_CWhereMoved<ARCHIVE, VELM_CValueForm<TYPE>::nBytes != 0>::type operator>>(ARCHIVE& rArchive, TYPE& rValue)
{
    VELM_CArchive& ar = rArchive;
    unsigned char nFirst, nSecond = 0;
    uint32_t nShort = 0;
    unsigned long long nBits = 0;
    int bCame = 0;
    switch (static_cast<int>(VELM_CValueForm<TYPE>::nBytes)) {
    case 1:
    case 2:
        bCame = ar.LoadByte(nFirst) && (VELM_CValueForm<TYPE>::nBytes == 1 || ar.LoadByte(nSecond));
        nBits = bCame ? nFirst | static_cast<unsigned>(nSecond) << 8 : 0;
        break;
    case 4:
        bCame = ar.Load32(nShort);
        nBits = nShort;
        break;
    default:
        bCame = ar.Load64(nBits);
    }
    if (bCame)
        VELM_CValueForm<TYPE>::SetBits(rValue, nBits);
    else
        ar.RaiseDataEnded();
    return ar;
}

/// 64-bit values are loaded by `VELM_CArchive::ReadInt64` and `ReadUInt64`.
template <class ARCHIVE, class TYPE>
typename VELM_CWhereMoved<ARCHIVE, VELM_CIsLongLong<TYPE>::value>::type operator>>(ARCHIVE&, TYPE&) = delete;

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
