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
/// contains `noFlushOnDestroy`, the assertion of the direction always fails. Bytes and values are moved nevertheless,
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
    /// Loading: makes at least `nBytesNeeded` bytes available at `m_lpBufCur`. Raises 3 when the data ends before. Does
    /// not read from the file again when no byte has been delivered since the buffer was last filled. Asserts
    /// "nBytesNeeded > 0" and "nBytesNeeded <= (UINT)m_nBufSize".
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
    /// If `nMax` is negative as an int, its absolute value is the limit, and the last byte of the line end is delivered
    /// as well. For example, of the bytes "ab\r\ncd" `ReadString(buf, 10)` delivers "ab", and
    /// `ReadString(buf, (unsigned)-10)` delivers "ab\n"; the next byte is the "c" in both cases.
    ///
    /// Returns `lpsz`; NULL when the data ends, or the file raises, before any byte could be delivered. No raise leaves
    /// the call.
    char* ReadString(char* lpsz, unsigned nMax);
    /// Loads one line of any length, without its line end. Returns 1 if there was a line. At the end of the data it
    /// returns 0, and the string is empty.
    ///
    /// A last line without a line end is delivered with the result 1, too; but with 0 if its length is a multiple of
    /// 128, so look at the string as well. Behind a carriage return alone, the byte that follows it stays at the end of
    /// the line. A line that holds a NUL byte is not delivered whole.
    int ReadString(VELM_CString& rString);

    /// Stores an object reference. If the object is new to the archive, it stores a reference to the object's class,
    /// and calls the object's `Serialize`. NULL is stored as the null object. Asserts that the object has a class
    /// record, "pClassRef != NULL", and that a new class has a name, "pClassRef->m_pszName != NULL"; when one of these
    /// fails, the object is not stored. Raises 1 for a class with the schema 0xFFFF, for objects nested too deep (see
    /// `SetMaxDepth`) and for what the class table refuses (see `SetClassTable`), and 5 when no index is left.
    ///
    /// The archive knows objects by their addresses. So each object must live until the last one is stored: a new
    /// object at the address of a dead one would be taken for that.
    void WriteObject(const VELM_CObject* pOb);
    /// Loads an object reference. Returns NULL, an object that the archive has had before, or a new object. A new
    /// object is made by the function in the class table, gets the next index, and then loads its data in its
    /// `Serialize`. It belongs to the caller, unless it is loaded for an owner or deleted by `DeleteLoadedObjects`.
    ///
    /// The object must be of the requested class or of one derived from it; NULL allows any class. Raises 1 when the
    /// requested class has the schema 0xFFFF. See `SetClassTable` for what can be wrong with the data. If the raise
    /// returns, the result is NULL.
    ///
    /// Without a class table: loads and drops 4 bytes, and returns NULL. Raises 3 when the data ends.
    VELM_CObject* ReadObject(const VELM_CRuntimeClass* pClassRefRequested);
    /// Stores a class reference. If the class is new to the archive, it stores the class record. Asserts and raises as
    /// `WriteObject` does.
    void WriteClass(const VELM_CRuntimeClass* pClassRef);
    /// Loads a class reference. Returns the class, and its stored schema through `pSchema`, which may be NULL. The
    /// class must be the requested one or derived from it; NULL allows any class. If the data has an object reference
    /// instead, returns NULL, and the object's index through `pObTag`; raises 5 if `pObTag` is NULL. Otherwise raises
    /// as `ReadObject` does, and returns NULL if the raise returns.
    ///
    /// Without a class table: loads and drops 4 bytes, delivers 0 through `pObTag`, and returns NULL; raises 5 if
    /// `pObTag` is NULL.
    VELM_CRuntimeClass* ReadClass(const VELM_CRuntimeClass* pClassRefRequested, unsigned* pSchema = NULL,
                                  unsigned long* pObTag = NULL);
    /// Storing: calls `WriteClass`. Loading: calls `ReadClass` without `pSchema` and `pObTag`, which raises 5 for an
    /// object reference, and without a class table.
    void SerializeClass(const VELM_CRuntimeClass* pClassRef);
    /// Gives the object the next index without storing or loading anything. The object remains the program's: the
    /// archive does not delete it, and no object can own it. NULL gets no index; the store map or the load array is
    /// made if there is none, as by every operation on objects. Raises 5 when no index is left.
    void MapObject(const VELM_CObject* pOb);
    /// Loading: the archive loads objects of the classes in this table; with NULL it loads no objects. Storing:
    /// `WriteObject` and `WriteClass` raise 1, before any byte is stored, for what a program with this table could not
    /// load. That is a class that is not in the table, an object of an abstract class, and an object of a C++ class
    /// that is derived from the one added by `VELM_CClassTable::Add<TYPE>` and has no class record of its own. The
    /// table must outlive the archive.
    ///
    /// The data may come from anywhere. Whatever is wrong with it ends in a raise, which `GetErrorText` explains:
    /// - 3 when the data ends;
    /// - 5 for an index that has not been given out, for a class in place of an object or an object in place of a
    ///   class, for a tag that is never stored, and when no index is left;
    /// - 1 for a class that is not in the table, is abstract or is not the requested one, for a schema that is 0xFFFF
    ///   or newer than the table's, and for objects that are nested too deep.
    ///
    /// After a raise the archive can only delete the loaded objects, by `DeleteLoadedObjects`, and be destroyed.
    void SetClassTable(const VELM_CClassTable* pTable);
    /// Sets how deep objects may be nested in each other's `Serialize`, storing and loading. Without this call it is
    /// 1,000,000. Deeper objects raise 1, and so does a level for which there is no memory.
    ///
    /// The size of the caller's stack does not limit the depth. When the calls of an archive have used 16 KiB of it, or
    /// a quarter of what was left if that is less, they continue on segments: memory that the archive uses as a stack,
    /// and releases at its end. The segments have 2, 4, 8 and so on up to 64 MiB of address space. The system provides
    /// the memory as it is used: about 300 bytes for each level, and what the class's `Serialize` takes. A `Serialize`
    /// that runs on a segment has at least 1 MiB of stack. Below the segment lies 1 MiB that cannot be accessed: a
    /// frame that is too large ends the process there. Address space is scarce in a 32-bit process: an archive whose
    /// calls are on a segment takes at least 3 MiB of it, and one with 1,000,000 levels takes several hundred MiB.
    ///
    /// A `Serialize` may use other archives, which may use this one. It may continue on another stack, that of a
    /// coroutine or of a thread that it waits for, provided that this stack is not an array inside a function. A raise
    /// must not jump from one stack to another: the other stack needs a cleanup block that catches it, and the
    /// `Serialize` raises it again. A C++ exception that leaves a `Serialize` on a segment ends the process by
    /// `std::terminate`.
    void SetMaxDepth(unsigned nMaxDepth);
    /// Returns what went wrong last, with its offset in the stream and the objects in which it happened, in one line of
    /// printable characters. An example is "offset 812: the data ends, in Rect (index 31) in Layer (9) in Document
    /// (1)". If many objects are nested in each other, those in the middle are only counted. Returns "" when nothing
    /// went wrong. The text belongs to the archive and is valid until the next failure, also after `Abort`.
    const char* GetErrorText() const;
    /// Returns the code that was raised with that text; 0 when nothing was raised.
    int GetErrorCause() const;
    /// Storing: returns 1 as long as everything that should be stored has been. Returns 0 after a failed check because
    /// of which something was not stored, after a raise in the middle of an object or of a write to the file, after
    /// `Abort` has dropped bytes, and after a write that followed `Close`. Inside a `Serialize`, the objects under way
    /// do not count as missing. The file's own failures are not considered; ask the file. Loading: returns 1.
    int IsWhole() const;
    /// For a program's own writers: notes that something was not stored, without a raise. `GetErrorText` returns the
    /// text, and `IsWhole` returns 0 from then on. Does nothing when loading.
    void NoteLoss(const char* lpszText);
    /// For a program's own checks, storing and loading: raises 1. `GetErrorText` returns the text, with the offset of
    /// the next byte and the objects under way.
    void RaiseInvalid(const char* lpszText);
    /// The same with the code 5, for an object that is not where it should be.
    void RaiseBadIndex(const char* lpszText);
    /// Loading: deletes the objects that this archive has made. Objects that are owned by others are left to their
    /// owners. Before the first deletion, every object whose class has a function for it forgets the objects that it
    /// refers to (see `VELM_CClassTable::Add`); these have no owner then, and are deleted as well. Without this call
    /// the loaded objects are the caller's. After `Abort` the archive knows no objects, and deletes none.
    void DeleteLoadedObjects();

    /// \name Owners
    ///
    /// An object owns another one if its destructor deletes it. A class that stores and loads what it owns by these
    /// functions tells the archive about it. The archive then refuses data in which an object has two owners or owns
    /// itself through others, or in which an owned object is missing. `AfxOwned` and the smart pointers of the standard
    /// library, in `mfc_std.h`, use the same functions.
    /// \{

    /// The kinds of owners: `plainOwner` is a plain pointer, whose holder deletes the object; `smartOwner` is a smart
    /// pointer that owns the object alone; `sharedOwner` is one of several smart pointers that share it; `weakOwner` is
    /// a pointer to a shared object that does not keep it alive.
    enum Owner { plainOwner, smartOwner, sharedOwner, weakOwner };

    /// Loads an object into a pointer that owns it. The owner is the object whose `Serialize` is running, from the
    /// moment at which the pointer is in `rpOb`. Outside of all objects the owner is the caller; as long as the load is
    /// not finished, `DeleteLoadedObjects` deletes the object nevertheless.
    ///
    /// The object must be of the class `TYPE` or of one derived from it; see `VELM_CClassOf`. Raises as `ReadObject`
    /// does, and raises 5 for NULL, for an object that has an owner already or would own itself through others, and for
    /// an object that the program has mapped by `MapObject`. `rpOb` keeps its value then. An object may get its owner
    /// after others have referred to it. As long as the load goes on, the owner must not delete the object, since the
    /// data may refer to it again.
    template <class TYPE> void ReadOwned(TYPE*& rpOb);
    /// The same, but NULL is allowed.
    template <class TYPE> void ReadOwnedOrNull(TYPE*& rpOb);
    /// Stores an object that is owned by the object whose `Serialize` is running, or by the caller outside of all
    /// objects. Raises as `WriteObject` does, and raises 1 for everything that `ReadOwned` would refuse.
    void WriteOwned(const VELM_CObject* pOb) { WriteForOwner(pOb, plainOwner, 0); }
    /// The same, but NULL is allowed.
    void WriteOwnedOrNull(const VELM_CObject* pOb) { WriteForOwner(pOb, plainOwner, 1); }
    /// Returns 1 when every object of this archive except `pRoot` has an owner, which may be the caller. A caller who
    /// deletes `pRoot` and the objects that it owns then leaves nothing behind. Otherwise returns 0, and `GetErrorText`
    /// names the first object without an owner; a storing archive is not whole then. Also returns 1 when the program's
    /// objects own none at all.
    int AreOwnersComplete(const VELM_CObject* pRoot = NULL);
    /// \}

    /// Returns the schema of the object that is being loaded, when asked for the first time; 0xFFFFFFFF after that.
    unsigned GetObjectSchema();
    /// Returns the schema of the object whose `Serialize` is running, however often it is asked: loading, the stored
    /// schema; storing, the schema in its class record. Returns 0xFFFFFFFF outside of all objects.
    unsigned GetSchema() const;
    /// Stores or loads the version of a base class, which needs one of its own because the schema in the stream belongs
    /// to the object's class alone. Storing: stores `nNewest` in 4 bytes and returns it. Loading: loads the stored
    /// version and returns it. Raises 3 when the data ends, and 1 for a version above `nNewest`; the error text
    /// contains `lpszName`. Returns 0 if the raise returns.
    unsigned SerializeVersion(const char* lpszName, unsigned nNewest);
    /// Raises 5 when no index is left.
    void CheckCount();
    /// Loading: returns 1 when no data is left, or when the data has ended inside a value; else 0. It may read ahead,
    /// but delivers nothing. Asserts "IsLoading()", and returns 1 when that fails. Raises nothing.
    int IsAtEnd();

    /// \name For readers and writers of further types
    /// \{

    /// Loads `nBytes` bytes, or those that come before the data ends. Returns how many have come.
    unsigned long LoadBlock(void* lpBuf, unsigned long nBytes);
    /// The same, but catches a raise, such as one by the file, and delivers its code through `rRaised`; 0 when there
    /// was none. The result is 0 after a raise. This is for a reader that must put its destination in order before it
    /// raises the code again.
    unsigned long TryLoadBlock(void* lpBuf, unsigned long nBytes, int& rRaised);
    /// Stores `nBytes` bytes.
    void StoreBlock(const void* lpBuf, unsigned long nBytes);
    /// Loads `nBytes` bytes. Returns 1. Returns 0 when the data ends before; the bytes that have come are consumed
    /// then.
    int LoadWhole(void* lpBuf, unsigned nBytes);
    /// Returns how many bytes a reader should have allocated for data that claims to be `nTotal` bytes long, when
    /// `nCame` of these have come. The result is at most 4096, or 16 times as many as have come if that is more: so a
    /// false length costs memory only in proportion to the data that is there. It is more than `nCame`, unless all has
    /// come. Little is copied when the memory grows, since the sizes are `nTotal`, a sixteenth of it, a sixteenth of
    /// that, and so on, from the smallest upwards.
    static unsigned long long RoomFor(unsigned long long nCame, unsigned long long nTotal);
    /// Loads one byte. Returns 1, or 0 when the data ends.
    int LoadByte(unsigned char& rValue)
    {
        if (!IsLoading() || m_lpBufCur == m_lpBufMax)
            return LoadWhole(&rValue, 1);
        rValue = *m_lpBufCur++;
        return 1;
    }
    /// Loads a 32-bit value. Returns 1, or 0 when the data ends.
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
    /// Loads a 64-bit value. Returns 1, or 0 when the data ends.
    int Load64(unsigned long long& rValue)
    {
        uint32_t nLow, nHigh;
        if (!Load32(nLow) || !Load32(nHigh))
            return 0;
        rValue = nLow | static_cast<unsigned long long>(nHigh) << 32;
        return 1;
    }
    /// Loads a 32-bit value in the range from `nFirst` to `nLast`. The range goes upwards from `nFirst`, and may pass
    /// from 0xFFFFFFFF to 0, so it serves for signed values as well. Returns 1. Raises 3 when the data ends, and 1 for
    /// a value outside of the range; returns 0 if the raise returns, and `rValue` keeps its value.
    int LoadRange(unsigned& rValue, unsigned nFirst, unsigned nLast);
    /// Stores a 32-bit value in a range like that of `LoadRange`. Raises 1 for a value outside of the range, and stores
    /// nothing.
    void StoreRange(unsigned nValue, unsigned nFirst, unsigned nLast);
    /// Loads the length that stands before the bytes of a string. Returns 1, or 0 when the data ends.
    int LoadLength(unsigned long& rLength);
    /// Stores a string: its length, then its bytes. For a length above 0xFFFFFFFF the assertion
    /// "nLength <= 0xFFFFFFFF" fails, 1 is raised, and nothing is stored.
    void StorePrefixed(const char* lpch, unsigned long nLength);
    /// Loads a string that stands behind its length. Returns 1. Returns 0 when the data ends; the string is empty then.
    /// Memory grows only as data arrives.
    int LoadPrefixed(VELM_CString& rString);
    /// Returns 1 when the archive can load bytes. Otherwise asserts "IsLoading()" and returns 0. A reader calls this
    /// before it empties its destination.
    int CanLoad() const { return IsInbound() || VELM_ASSERT(IsLoading()); }
    /// Returns whether the data has ended inside a value. From then on every function that loads values finds the end
    /// at once, without asking the file, so a loop should ask this and stop. `Flush` makes these functions look again.
    /// `Read` and `ReadString` look always.
    int IsDataEnded() const { return m_nDataEnd != dataGoesOn; }
    /// Raises 3 if a function that loads a value has found the end of the data, and this has not been raised since.
    void RaiseDataEnded();
    /// Hands over a value that a reader needs until `DropHeld`. After a raise, the archive deletes the value in its
    /// destructor. Cannot fail.
    void Hold(VELM_CHeld* pHeld);
    /// Deletes a value that is held.
    void DropHeld(VELM_CHeld* pHeld);
    /// Tells the archive that the smart pointers in a held value have been moved to the place where their owner keeps
    /// them. Does nothing if that place is in another held value.
    void MovedFromHeld(VELM_CHeld* pHeld);
    /// Returns the offset of the next byte in the stream.
    unsigned long long GetOffset() const;
    /// Loading: goes on at that offset, as `GetOffset` counts, for a reader that knows its way. Indexes stay as they
    /// are. Returns 1; 0, and the next byte is the one that it was, when the file has no such place or the archive
    /// stores.
    int SeekTo(unsigned long long nOffset);

    /// Loads an object for an owner of that kind. The reader puts the pointer where the owner keeps it, and then calls
    /// `Adopt` with `rIndex`. NULL is allowed if `bOrNull` is set, and comes with the index 0. Raises as `ReadOwned`
    /// does; if the raise returns, the result is NULL and `rIndex` is `nRefused`.
    VELM_CObject* ReadForOwner(const VELM_CRuntimeClass* pClassRefRequested, Owner kind, int bOrNull, unsigned& rIndex);
    /// Notes that the object of that index has an owner of that kind: the object whose `Serialize` is running, or the
    /// caller outside of all objects. Does nothing for the indexes 0 and `nRefused`. Cannot fail.
    void Adopt(unsigned nIndex, Owner kind);
    /// Loading: returns how many times an object has got an owner so far. A container whose data has the same key twice
    /// drops one of the elements. If that element has become an owner while it was loaded, the container must raise 5
    /// instead, since the data may refer to the owned object again. Two calls of this function tell.
    unsigned GetAdoptions() const;
    /// Stores an object that has an owner of that kind. NULL is allowed if `bOrNull` is set. Raises as `WriteOwned`
    /// does.
    void WriteForOwner(const VELM_CObject* pOb, Owner kind, int bOrNull);
    /// Returns 1 when an owner may let go of the object in order to load another one in its place. Raises 5 for an
    /// object that this archive has made, since the data may refer to it again; returns 0 if the raise returns.
    int MayReplace(const VELM_CObject* pOb);
    /// Returns the share that the archive keeps of an object with shared owners; NULL when there is none.
    VELM_CHeld* ShareOf(unsigned nIndex) const;
    /// Makes a value that is held by `Hold` the archive's share of the object of that index, and notes that the object
    /// has an owner of that kind.
    void KeepShare(unsigned nIndex, VELM_CHeld* pShare, Owner kind);
    enum : unsigned { nRefused = 0xFFFFFFFF }; ///< Stands for the index of an object that could not be loaded.
    /// \}

private:
    // A reader that finds the end of the data sets dataEnded, also when the end was known or raised before.
    // RaiseDataEnded changes that to dataEndRaised and raises. So each attempt is raised once, by the reader itself or
    // by its caller.
    enum { dataGoesOn, dataEnded, dataEndRaised };
    int m_nDataEnd;
    VELM_CArchiveState* m_pState; // the hidden state: see mfc_carccore_p.h and mfc_carcgraph_p.h
    friend class VELM_CArchiveGraph;
    friend class VELM_CArchiveState;

    // The lowest bit of the mode is the direction in which bytes move: IsInbound. The whole mode decides which member
    // of the union is in use: HasStoreMap.
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

/// Stores a 32-bit value in 4 bytes. For a value above 0xFFFFFFFF the assertion "dw <= 0xFFFFFFFF" fails, 1 is raised,
/// and nothing is stored.
VELM_INLINE VELM_CArchive& operator<<(VELM_CArchive& ar, unsigned long dw)
{
    if (VELM_ASSERT(dw <= 0xFFFFFFFF))
        ar.Store32(static_cast<uint32_t>(dw));
    else
        ar.RaiseInvalid("the value does not fit into 4 bytes");
    return ar;
}

/// Stores a string: first its length, in 1, 5 or 9 bytes, then its bytes.
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

/// Stores `nCount` strings by `<<`, or loads them by `>>`. If the data ends, and the raise returns, the string that was
/// being loaded is empty, and those behind it keep their texts.
VELM_API void SerializeElements(VELM_CArchive& ar, VELM_CString* pElements, int nCount);

/// \}

#endif
