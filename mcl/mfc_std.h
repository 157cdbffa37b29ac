/// \file
/// The standard library's containers and smart pointers in an archive: a program that stores these includes this
/// header.
///
/// `<<` and `>>` for `std::string`, `vector`, `array`, `pair`, `map`, `unordered_map`, `set` and, from C++17 on,
/// `optional`, of each other and of everything else that `<<` and `>>` take.
///
/// Objects of classes derived from `VELM_CObject` go as references:
///
/// | A member, or the elements of a container | goes by | and is |
/// |---|---|---|
/// | `Task*` that is not owned | `WriteObject`, `ReadObject`; a container by `<<`, `>>` | any object, or NULL |
/// | `Task*` that the object deletes | `<<`, `>>` of `AfxOwned` | not NULL, and owned by nobody else |
/// | the same, or NULL | `<<`, `>>` of `AfxOwnedOrNull` | owned by nobody else |
/// | `std::unique_ptr<Task>` | `<<`, `>>`; of `AfxOwned` where it must not be NULL | owned by nobody else |
/// | `std::shared_ptr<Style>` | `<<`, `>>`; of `AfxOwned` where it must not be NULL | shared again |
/// | `std::weak_ptr<Style>` | `<<`, `>>` | shared as long as others share it |
///
/// Unique and shared owners of one object exclude each other. Shared owners that own each other in a circle are never
/// deleted, as always: one of them is to be a `std::weak_ptr`. The archive has a share of each shared object until it
/// is destroyed or deletes what it has loaded. An object that is loaded first as a base class which does not derive
/// from `std::enable_shared_from_this` does not know its owners by that.
///
/// Loading replaces what a container holds, and fills it as the data arrives: memory is never taken for what a count
/// claims. Where the data ends, 3 is raised, and the container holds the elements that were whole; a string or an
/// optional is empty then, and the number of an array in which it ends may be 0. A second element with the key of an
/// earlier one is dropped; with elements that own, it raises 5. So does loading over an owner that holds an object of
/// the same load. An element is loaded over a default value or over one that was moved from, so that its own `>>` sets
/// all of it. An element that takes no byte raises 1, storing and loading.
///
/// What is being loaded belongs to the archive, so that a raise loses nothing. An exception of a container, such as
/// `std::bad_alloc`, passes through to the caller and loses nothing either; the archive is to be destroyed then. An
/// element that raises while a container moves it may lose memory, never an element.
///
/// Data that is made to collide makes `std::unordered_map` slow; `std::map` is not affected.
#ifndef TAVNOMCL_MFC_STD_H
#define TAVNOMCL_MFC_STD_H

#include <stddef.h>
#include <string.h>

#include <algorithm>
#include <array>
#include <map>
#include <memory>
#include <new>
#include <set>
#include <string>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <vector>
#if __cplusplus >= 201703L
#include <optional>
#endif

#include "mcl/mfc_carcnum.h"
#include "mcl/mfc_carcown.h"
#include "mcl/mfc_memory.h"

/// \addtogroup standard
/// \{

/// \cond
// How pointers go: as references, or as owners. Smart pointers are owners in any case, and may be NULL but for
// AfxOwned.
struct VELM_CRefers {
    enum { bOwns = 0, bOrNull = 1 };
};
struct VELM_COwns {
    enum { bOwns = 1, bOrNull = 0 };
};
struct VELM_COwnsOrNull {
    enum { bOwns = 1, bOrNull = 1 };
};

// A plain pointer is where its owner keeps it, if the index is one.
inline void AfxAdopt(VELM_CArchive& ar, unsigned nIndex)
{
    if (nIndex != 0)
        ar.Adopt(nIndex, VELM_CArchive::plainOwner);
}

// A value that is being loaded, which no raise may lose, not even one of its constructor.
template <class TYPE> class VELM_LOCAL VELM_CHeldValue : public VELM_CHeld {
public:
    VELM_CHeldValue() : m_bBuilt(false) {}
    ~VELM_CHeldValue() override
    {
        if (m_bBuilt)
            Value().~TYPE();
    }
    TYPE& Build()
    {
        ::new (static_cast<void*>(m_room)) TYPE();
        m_bBuilt = true;
        return Value();
    }

private:
    TYPE& Value() { return *reinterpret_cast<TYPE*>(m_room); }
    bool m_bBuilt;
    alignas(TYPE) unsigned char m_room[sizeof(TYPE)];
};

// The forms: what each type is in the stream. A form has
//
//     bStandard        whether the operators of this header move the type
//     nLeast           bytes that a value takes at least; 0 where that is not known
//     nPlain<HOW>      whether the value is a pointer that owns (1), or has such pointers inside (2)
//     bOwner<HOW>      whether a value that is dropped may let go of an object that it owns
//     Store(ar, value, how), Load(ar, rValue, how)
//     MayReplace(ar, value, how)   false, after a raise that returned, where the value owns an object of this load
//
// Load delivers what VELM_CArchive::Adopt needs once a plain pointer is where its owner keeps it, else 0; nRefused
// where nothing could be loaded. This one is of what has operators of its own.
template <class TYPE, class ENABLE = void> struct VELM_CForm {
    enum { bStandard = 0, nLeast = std::is_arithmetic<TYPE>::value || std::is_same<TYPE, VELM_CString>::value ? 1 : 0 };
    template <class HOW> static constexpr int nPlain() { return 0; }
    template <class HOW> static constexpr bool bOwner() { return nLeast == 0; } // for all that is known
    template <class HOW> static void Store(VELM_CArchive& ar, const TYPE& value, HOW)
    {
        static_assert(!HOW::bOwns, "AfxOwned takes pointers to objects, and containers of these");
        ar << value;
    }
    template <class HOW> static unsigned Load(VELM_CArchive& ar, TYPE& rValue, HOW)
    {
        static_assert(!HOW::bOwns, "AfxOwned takes pointers to objects, and containers of these");
        ar >> rValue;
        return 0;
    }
    template <class HOW> static bool MayReplace(VELM_CArchive&, const TYPE&, HOW) { return true; }
};

template <class TYPE> struct VELM_CObjectClass {
    static_assert(std::is_base_of<VELM_CObject, TYPE>::value,
                  "a pointer goes through an archive when its class derives from VELM_CObject");
    static const VELM_CRuntimeClass* Record() { return VELM_CClassOf<TYPE>::Record(); }
    static const VELM_CObject* Root(const TYPE* pOb) { return pOb; }
};

template <class TYPE> struct VELM_CForm<TYPE*> {
    enum { bStandard = 0, nLeast = 4 };
    template <class HOW> static constexpr int nPlain() { return HOW::bOwns; }
    template <class HOW> static constexpr bool bOwner() { return HOW::bOwns; }
    static void Store(VELM_CArchive& ar, TYPE* pOb, VELM_CRefers)
    {
        ar.WriteObject(VELM_CObjectClass<TYPE>::Root(pOb));
    }
    template <class HOW> static void Store(VELM_CArchive& ar, TYPE* pOb, HOW)
    {
        ar.WriteForOwner(VELM_CObjectClass<TYPE>::Root(pOb), VELM_CArchive::plainOwner, HOW::bOrNull);
    }
    static unsigned Load(VELM_CArchive& ar, TYPE*& rpOb, VELM_CRefers)
    {
        rpOb = static_cast<TYPE*>(ar.ReadObject(VELM_CObjectClass<TYPE>::Record()));
        return 0;
    }
    template <class HOW> static unsigned Load(VELM_CArchive& ar, TYPE*& rpOb, HOW)
    {
        return AfxLoadOwned(ar, rpOb, HOW::bOrNull);
    }
    static bool MayReplace(VELM_CArchive&, TYPE*, VELM_CRefers) { return true; }
    template <class HOW> static bool MayReplace(VELM_CArchive& ar, TYPE* pOb, HOW) { return ar.MayReplace(pOb) != 0; }
};

// What the smart pointers have in common.
template <class TYPE> struct VELM_CSmartForm {
    enum { bStandard = 1, nLeast = 4 };
    template <class HOW> static constexpr int nPlain() { return 0; }
    template <class HOW> static constexpr bool bOwner() { return true; }
    static unsigned Result(unsigned nIndex) { return nIndex == VELM_CArchive::nRefused ? nIndex : 0; }
};

template <class TYPE> struct VELM_CForm<std::unique_ptr<TYPE>> : VELM_CSmartForm<TYPE> {
    typedef std::unique_ptr<TYPE> Pointer;
    template <class HOW> static void Store(VELM_CArchive& ar, const Pointer& pOb, HOW)
    {
        ar.WriteForOwner(VELM_CObjectClass<TYPE>::Root(pOb.get()), VELM_CArchive::smartOwner, HOW::bOrNull);
    }
    template <class HOW> static unsigned Load(VELM_CArchive& ar, Pointer& rpOb, HOW how)
    {
        unsigned nIndex = VELM_CArchive::nRefused;
        if (!ar.CanLoad() || !MayReplace(ar, rpOb, how))
            return nIndex;
        rpOb.reset();
        VELM_CObject* const pOb =
            ar.ReadForOwner(VELM_CObjectClass<TYPE>::Record(), VELM_CArchive::smartOwner, HOW::bOrNull, nIndex);
        rpOb.reset(static_cast<TYPE*>(pOb));
        ar.Adopt(nIndex, VELM_CArchive::smartOwner);
        return VELM_CSmartForm<TYPE>::Result(nIndex);
    }
    template <class HOW> static bool MayReplace(VELM_CArchive& ar, const Pointer& pOb, HOW)
    {
        return ar.MayReplace(pOb.get()) != 0;
    }
};

// The archive's share of an object.
class VELM_LOCAL VELM_CHeldShare : public VELM_CHeld {
public:
    std::shared_ptr<VELM_CObject> pOb;
};

// Raises where there is no memory: a std::shared_ptr that throws would delete the object.
template <class TYPE> struct VELM_CRaisingAllocator {
    typedef TYPE value_type;
    VELM_CRaisingAllocator() {}
    template <class OTHER> VELM_CRaisingAllocator(const VELM_CRaisingAllocator<OTHER>&) {}
    TYPE* allocate(size_t n) { return static_cast<TYPE*>(AfxNew(::operator new(n * sizeof(TYPE), std::nothrow))); }
    void deallocate(TYPE* p, size_t) { ::operator delete(p); }
    template <class OTHER> bool operator==(const VELM_CRaisingAllocator<OTHER>&) const { return true; }
    template <class OTHER> bool operator!=(const VELM_CRaisingAllocator<OTHER>&) const { return false; }
};

template <class TYPE> std::shared_ptr<TYPE> AfxShare(VELM_CObject* pOb)
{
    return std::shared_ptr<TYPE>(static_cast<TYPE*>(pOb), std::default_delete<TYPE>(), VELM_CRaisingAllocator<TYPE>());
}

// Loads a reference to an object, and sets the pointer to share it.
template <class TYPE, class POINTER>
unsigned AfxLoadShare(VELM_CArchive& ar, POINTER& rpOb, VELM_CArchive::Owner kind, int bOrNull)
{
    typedef typename std::remove_const<TYPE>::type Made;
    unsigned nIndex;
    VELM_CObject* const pOb = ar.ReadForOwner(VELM_CObjectClass<TYPE>::Record(), kind, bOrNull, nIndex);
    if (pOb == NULL) {
        rpOb.reset();
    } else if (nIndex == 0) { // not the archive's any more
        rpOb = AfxShare<Made>(pOb);
    } else {
        VELM_CHeldShare* pShare = static_cast<VELM_CHeldShare*>(ar.ShareOf(nIndex));
        if (pShare == NULL) {
            pShare = AfxNew(new (std::nothrow) VELM_CHeldShare);
            ar.Hold(pShare);
            pShare->pOb = AfxShare<Made>(pOb);
            ar.KeepShare(nIndex, pShare, kind);
        } else {
            ar.Adopt(nIndex, kind);
        }
        rpOb = std::shared_ptr<TYPE>(pShare->pOb, static_cast<TYPE*>(pOb));
    }
    return VELM_CSmartForm<TYPE>::Result(nIndex);
}

template <class TYPE> struct VELM_CForm<std::shared_ptr<TYPE>> : VELM_CSmartForm<TYPE> {
    typedef std::shared_ptr<TYPE> Pointer;
    template <class HOW> static void Store(VELM_CArchive& ar, const Pointer& pOb, HOW)
    {
        ar.WriteForOwner(VELM_CObjectClass<TYPE>::Root(pOb.get()), VELM_CArchive::sharedOwner, HOW::bOrNull);
    }
    template <class HOW> static unsigned Load(VELM_CArchive& ar, Pointer& rpOb, HOW how)
    {
        if (!ar.CanLoad() || !MayReplace(ar, rpOb, how))
            return VELM_CArchive::nRefused;
        return AfxLoadShare<TYPE>(ar, rpOb, VELM_CArchive::sharedOwner, HOW::bOrNull);
    }
    template <class HOW> static bool MayReplace(VELM_CArchive& ar, const Pointer& pOb, HOW)
    {
        return ar.MayReplace(pOb.get()) != 0;
    }
};

template <class TYPE> struct VELM_CForm<std::weak_ptr<TYPE>> : VELM_CSmartForm<TYPE> {
    typedef std::weak_ptr<TYPE> Pointer;
    template <class HOW> static constexpr bool bOwner() { return false; }
    template <class HOW> static void Store(VELM_CArchive& ar, const Pointer& pOb, HOW)
    {
        const TYPE* const pShared = pOb.lock().get(); // which others share
        ar.WriteForOwner(VELM_CObjectClass<TYPE>::Root(pShared), VELM_CArchive::weakOwner, HOW::bOrNull);
    }
    template <class HOW> static unsigned Load(VELM_CArchive& ar, Pointer& rpOb, HOW)
    {
        if (!ar.CanLoad())
            return VELM_CArchive::nRefused;
        return AfxLoadShare<TYPE>(ar, rpOb, VELM_CArchive::weakOwner, HOW::bOrNull);
    }
    template <class HOW> static bool MayReplace(VELM_CArchive&, const Pointer&, HOW) { return true; }
};

// Whether many values of the type go as a block: numbers, and arrays of these.
template <class TYPE> struct VELM_CIsBlock : VELM_CIsPlainNumber<TYPE> {
};
template <class TYPE, size_t SIZE> struct VELM_CIsBlock<std::array<TYPE, SIZE>> : VELM_CIsBlock<TYPE> {
};

// Loads such values into an empty vector or string. Returns 0 where the data ended before: it has those that were whole
// then, as also after a raise of the file.
template <class BLOCK> int AfxLoadBlock(VELM_CArchive& ar, BLOCK& rValues, size_t nTotal)
{
    const size_t nSize = sizeof(typename BLOCK::value_type);
    const size_t nMostAtOnce = std::max<size_t>((1u << 20) / nSize, 1); // in the cache still when they are overwritten
    if (nTotal != 0 && nTotal <= static_cast<size_t>(ar.m_lpBufMax - ar.m_lpBufCur) / nSize) { // nothing raises
        rValues.resize(nTotal);
        AfxLoadValues(ar, &rValues[0], nTotal);
        return 1;
    }
    for (size_t nHave = 0; nHave < nTotal;) {
        const size_t nCame = nHave * nSize + static_cast<size_t>(ar.m_lpBufMax - ar.m_lpBufCur);
        const size_t nRoom = static_cast<size_t>(ar.RoomFor(nCame, 1ull * nTotal * nSize) / nSize);
        if (rValues.capacity() < std::max(nRoom, nHave + 1))
            rValues.reserve(std::max(nRoom, nHave + 1));
        const size_t nEnd = std::min(std::min(nTotal, rValues.capacity()), nHave + nMostAtOnce);
        rValues.resize(nEnd);
        int nRaised;
        nHave += ar.TryLoadBlock(&rValues[nHave], (nEnd - nHave) * nSize, nRaised) / nSize;
        if (nHave < nEnd) {
            rValues.resize(nHave);
            if (nRaised != 0)
                pfm_raise(nRaised);
            return 0;
        }
    }
    return 1;
}

template <class TRAITS, class ALLOC> struct VELM_CForm<std::basic_string<char, TRAITS, ALLOC>> {
    typedef std::basic_string<char, TRAITS, ALLOC> String;
    enum { bStandard = 1, nLeast = 1 };
    template <class HOW> static constexpr int nPlain() { return 0; }
    template <class HOW> static constexpr bool bOwner() { return false; }
    template <class HOW> static void Store(VELM_CArchive& ar, const String& str, HOW)
    {
        static_assert(!HOW::bOwns, "AfxOwned takes pointers to objects, and containers of these");
        ar.StorePrefixed(str.data(), static_cast<unsigned long>(str.size()));
    }
    template <class HOW> static unsigned Load(VELM_CArchive& ar, String& str, HOW)
    {
        static_assert(!HOW::bOwns, "AfxOwned takes pointers to objects, and containers of these");
        unsigned long nLength = 0;
        if (!ar.CanLoad())
            return 0;
        str.clear();
        if (!ar.LoadLength(nLength) || !AfxLoadBlock(ar, str, nLength)) {
            str.clear();
            ar.RaiseDataEnded();
        }
        return 0;
    }
    template <class HOW> static bool MayReplace(VELM_CArchive&, const String&, HOW) { return true; }
};

// Two values, without a count. As an entry of a map it is the value that may own, not the key.
template <class FIRST, class SECOND, bool bEntry> struct VELM_CPairForm {
    typedef std::pair<FIRST, SECOND> Pair;
    typedef VELM_CForm<typename std::remove_const<FIRST>::type> First;
    typedef VELM_CForm<SECOND> Second;
    template <class HOW> using FirstHow = typename std::conditional<bEntry, VELM_CRefers, HOW>::type;
    enum { bStandard = 1, nLeast = int(First::nLeast) + int(Second::nLeast) };
    template <class HOW> static constexpr int nPlain()
    {
        return bEntry                                                            ? Second::template nPlain<HOW>()
               : First::template nPlain<HOW>() || Second::template nPlain<HOW>() ? 2
                                                                                 : 0;
    }
    template <class HOW> static constexpr bool bOwner()
    {
        return First::template bOwner<FirstHow<HOW>>() || Second::template bOwner<HOW>();
    }
    template <class BOTH, class HOW> static void Store(VELM_CArchive& ar, const BOTH& both, HOW how)
    {
        First::Store(ar, both.first, FirstHow<HOW>());
        Second::Store(ar, both.second, how);
    }
    template <class HOW> static unsigned Load(VELM_CArchive& ar, Pair& both, HOW how)
    {
        const unsigned nFirst = First::Load(ar, both.first, FirstHow<HOW>());
        AfxAdopt(ar, nFirst);
        if (nFirst == VELM_CArchive::nRefused || ar.IsDataEnded())
            return nFirst;
        const unsigned nSecond = Second::Load(ar, both.second, how);
        if (bEntry) // which is not in its map yet
            return nSecond;
        AfxAdopt(ar, nSecond);
        return nSecond == VELM_CArchive::nRefused ? nSecond : 0;
    }
    template <class BOTH, class HOW> static bool MayReplace(VELM_CArchive& ar, const BOTH& both, HOW how)
    {
        return First::MayReplace(ar, both.first, FirstHow<HOW>()) && Second::MayReplace(ar, both.second, how);
    }
};
template <class FIRST, class SECOND>
struct VELM_CForm<std::pair<FIRST, SECOND>> : VELM_CPairForm<FIRST, SECOND, false> {
};

// An element that takes no byte would let a few bytes claim any number of them.
template <class FORM> class VELM_CProgress {
public:
    explicit VELM_CProgress(const VELM_CArchive& ar) : m_nOffset(FORM::nLeast != 0 ? 0 : ar.GetOffset()) {}
    bool Require(VELM_CArchive& ar) const
    {
        if (FORM::nLeast != 0 || ar.GetOffset() != m_nOffset || ar.IsDataEnded())
            return true;
        ar.RaiseInvalid("an element of a container takes no byte");
        return false;
    }

private:
    const unsigned long long m_nOffset;
};

template <class FORM, class CONTAINER, class HOW>
bool AfxMayReplaceAll(VELM_CArchive& ar, const CONTAINER& elements, HOW how)
{
    for (const auto& element : elements) {
        if (!FORM::MayReplace(ar, element, how))
            return false;
    }
    return true;
}

// Whether a container has the key of the element already.
template <class TYPE, class ALLOC> bool AfxHasKeyOf(const std::vector<TYPE, ALLOC>&, const TYPE&)
{
    return false;
}
template <class KEY, class LESS, class ALLOC> bool AfxHasKeyOf(const std::set<KEY, LESS, ALLOC>& keys, const KEY& key)
{
    return keys.find(key) != keys.end();
}
template <class MAP, class KEY> bool AfxHasKeyOf(const MAP& map, const std::pair<KEY, typename MAP::mapped_type>& entry)
{
    return map.find(entry.first) != map.end();
}

// A count, then the elements. VALUE: the type of element that is loaded, FORM: its form.
template <class CONTAINER, class VALUE, class FORM> struct VELM_CContainerForm {
    enum { bStandard = 1, nLeast = 4 };
    template <class HOW> static constexpr int nPlain() { return FORM::template nPlain<HOW>() != 0 ? 2 : 0; }
    template <class HOW> static constexpr bool bOwner() { return FORM::template bOwner<HOW>(); }
    template <class HOW> static void Store(VELM_CArchive& ar, const CONTAINER& elements, HOW how)
    {
        ar.WriteCount(static_cast<unsigned long>(elements.size())); // which refuses one that is too large
        if (elements.size() > 0xFFFFFFFF)
            return;
        for (const auto& element : elements) {
            const VELM_CProgress<FORM> progress(ar);
            FORM::Store(ar, element, how);
            if (!progress.Require(ar))
                return;
        }
    }
    // What could not be loaded stays held, since the file may refer to objects in it.
    template <class HOW> static unsigned Load(VELM_CArchive& ar, CONTAINER& elements, HOW how)
    {
        static_assert(FORM::template nPlain<HOW>() < 2,
                      "a container of containers owns by std::unique_ptr, not by plain pointers");
        if (!ar.CanLoad() || !MayReplace(ar, elements, how))
            return VELM_CArchive::nRefused;
        elements.clear();
        VELM_CHeldValue<VALUE>* pHeld = AfxNew(new (std::nothrow) VELM_CHeldValue<VALUE>);
        ar.Hold(pHeld);
        VALUE& rValue = pHeld->Build();
        const unsigned nAdopted = ar.GetAdoptions();
        for (unsigned long n = ar.ReadCount(); n > 0; --n) {
            const VELM_CProgress<FORM> progress(ar);
            const unsigned nIndex = FORM::Load(ar, rValue, how);
            if (nIndex == VELM_CArchive::nRefused || ar.IsDataEnded() || !progress.Require(ar)) {
                ar.RaiseDataEnded(); // of an element whose operator does not raise
                return VELM_CArchive::nRefused;
            }
            if (FORM::template bOwner<HOW>() && (nIndex != 0 || ar.GetAdoptions() != nAdopted) &&
                AfxHasKeyOf(elements, rValue)) {
                ar.RaiseBadIndex("an owner has the key of an earlier one");
                return VELM_CArchive::nRefused;
            }
            elements.insert(elements.end(), std::move(rValue));
            AfxAdopt(ar, nIndex);
            if (FORM::template bOwner<HOW>())
                ar.MovedFromHeld(pHeld);
        }
        ar.DropHeld(pHeld);
        return 0;
    }
    template <class HOW> static bool MayReplace(VELM_CArchive& ar, const CONTAINER& elements, HOW how)
    {
        return AfxMayReplaceAll<FORM>(ar, elements, how);
    }
};
template <class TYPE, class ALLOC>
struct VELM_CForm<std::vector<TYPE, ALLOC>, typename std::enable_if<!VELM_CIsBlock<TYPE>::value>::type>
    : VELM_CContainerForm<std::vector<TYPE, ALLOC>, TYPE, VELM_CForm<TYPE>> {
};
template <class TYPE, class ALLOC>
struct VELM_CForm<std::vector<TYPE, ALLOC>, typename std::enable_if<VELM_CIsBlock<TYPE>::value>::type>
    : VELM_CContainerForm<std::vector<TYPE, ALLOC>, TYPE, VELM_CForm<TYPE>> {
    typedef std::vector<TYPE, ALLOC> Vector;
    template <class HOW> static void Store(VELM_CArchive& ar, const Vector& elements, HOW)
    {
        static_assert(!HOW::bOwns, "AfxOwned takes pointers to objects, and containers of these");
        ar.WriteCount(static_cast<unsigned long>(elements.size())); // which refuses one that is too large
        if (elements.size() <= 0xFFFFFFFF)
            AfxStoreValues(ar, elements.data(), elements.size());
    }
    template <class HOW> static unsigned Load(VELM_CArchive& ar, Vector& elements, HOW)
    {
        static_assert(!HOW::bOwns, "AfxOwned takes pointers to objects, and containers of these");
        if (!ar.CanLoad())
            return VELM_CArchive::nRefused;
        elements.clear();
        if (AfxLoadBlock(ar, elements, ar.ReadCount()))
            return 0;
        ar.RaiseDataEnded();
        return VELM_CArchive::nRefused;
    }
};
template <class KEY, class LESS, class ALLOC>
struct VELM_CForm<std::set<KEY, LESS, ALLOC>> : VELM_CContainerForm<std::set<KEY, LESS, ALLOC>, KEY, VELM_CForm<KEY>> {
};
template <class KEY, class VALUE, class LESS, class ALLOC>
struct VELM_CForm<std::map<KEY, VALUE, LESS, ALLOC>>
    : VELM_CContainerForm<std::map<KEY, VALUE, LESS, ALLOC>, std::pair<KEY, VALUE>, VELM_CPairForm<KEY, VALUE, true>> {
};
template <class KEY, class VALUE, class HASH, class EQUAL, class ALLOC>
struct VELM_CForm<std::unordered_map<KEY, VALUE, HASH, EQUAL, ALLOC>>
    : VELM_CContainerForm<std::unordered_map<KEY, VALUE, HASH, EQUAL, ALLOC>, std::pair<KEY, VALUE>,
                          VELM_CPairForm<KEY, VALUE, true>> {
};

template <class TYPE, size_t SIZE> struct VELM_CForm<std::array<TYPE, SIZE>> {
    typedef std::array<TYPE, SIZE> Array;
    typedef VELM_CForm<TYPE> Element;
    enum { bStandard = 1, nLeast = int(SIZE) * int(Element::nLeast) };
    template <class HOW> static constexpr int nPlain() { return Element::template nPlain<HOW>() != 0 ? 2 : 0; }
    template <class HOW> static constexpr bool bOwner() { return Element::template bOwner<HOW>(); }
    template <class HOW> static void Store(VELM_CArchive& ar, const Array& elements, HOW how)
    {
        static_assert(SIZE > 0, "an element takes a byte at least, so that no count costs more than the data");
        if (VELM_CIsBlock<TYPE>::value) {
            AfxStoreValues(ar, elements.data(), SIZE);
            return;
        }
        for (const TYPE& element : elements)
            Element::Store(ar, element, how);
    }
    template <class HOW> static unsigned Load(VELM_CArchive& ar, Array& elements, HOW how)
    {
        static_assert(SIZE > 0, "an element takes a byte at least, so that no count costs more than the data");
        if (!MayReplace(ar, elements, how))
            return VELM_CArchive::nRefused;
        if (VELM_CIsBlock<TYPE>::value) {
            AfxLoadValues(ar, elements.data(), SIZE);
            return 0;
        }
        for (size_t i = 0; i < SIZE && !ar.IsDataEnded(); ++i) {
            const unsigned nIndex = Element::Load(ar, elements[i], how);
            if (nIndex == VELM_CArchive::nRefused)
                return nIndex;
            AfxAdopt(ar, nIndex);
        }
        return 0;
    }
    template <class HOW> static bool MayReplace(VELM_CArchive& ar, const Array& elements, HOW how)
    {
        return AfxMayReplaceAll<Element>(ar, elements, how);
    }
};

#if __cplusplus >= 201703L
// Whether there is a value, in 1 byte, then the value.
template <class TYPE> struct VELM_CForm<std::optional<TYPE>> {
    typedef std::optional<TYPE> Optional;
    typedef VELM_CForm<TYPE> Element;
    enum { bStandard = 1, nLeast = 1 };
    template <class HOW> static constexpr int nPlain() { return Element::template nPlain<HOW>() != 0 ? 2 : 0; }
    template <class HOW> static constexpr bool bOwner() { return Element::template bOwner<HOW>(); }
    template <class HOW> static void Store(VELM_CArchive& ar, const Optional& value, HOW how)
    {
        ar << value.has_value();
        if (value.has_value())
            Element::Store(ar, *value, how);
    }
    template <class HOW> static unsigned Load(VELM_CArchive& ar, Optional& rValue, HOW how)
    {
        static_assert(Element::template nPlain<HOW>() < 2,
                      "a container of containers owns by std::unique_ptr, not by plain pointers");
        if (!ar.CanLoad() || !MayReplace(ar, rValue, how))
            return VELM_CArchive::nRefused;
        rValue.reset();
        bool bThere = false;
        ar >> bThere;
        if (!bThere)
            return 0;
        VELM_CHeldValue<TYPE>* pHeld = AfxNew(new (std::nothrow) VELM_CHeldValue<TYPE>);
        ar.Hold(pHeld);
        TYPE& rHeld = pHeld->Build();
        const unsigned nIndex = Element::Load(ar, rHeld, how);
        if (nIndex == VELM_CArchive::nRefused || ar.IsDataEnded()) {
            ar.RaiseDataEnded();
            return VELM_CArchive::nRefused;
        }
        rValue = std::move(rHeld);
        AfxAdopt(ar, nIndex);
        ar.MovedFromHeld(pHeld);
        ar.DropHeld(pHeld);
        return 0;
    }
    template <class HOW> static bool MayReplace(VELM_CArchive& ar, const Optional& value, HOW how)
    {
        return !value.has_value() || Element::MayReplace(ar, *value, how);
    }
};
#endif

template <class TYPE, class HOW> struct VELM_COwnedOperand {
    TYPE& operand;
};
/// \endcond

/// Stores a value of the standard library. A string goes as a `VELM_CString`, NUL bytes kept; `pair` and `array`
/// without a count; `vector`, `set` and maps with a count before their elements, in the order in which they have them,
/// a map's as key and value; an `optional` as a `bool` and the value if there is one; smart pointers as object
/// references.
template <class TYPE>
typename std::enable_if<VELM_CForm<TYPE>::bStandard != 0, VELM_CArchive&>::type operator<<(VELM_CArchive& ar,
                                                                                           const TYPE& value)
{
    VELM_CForm<TYPE>::Store(ar, value, VELM_CRefers());
    return ar;
}

/// Loads a value of the standard library in the form in which `<<` stores it.
template <class TYPE>
typename std::enable_if<VELM_CForm<TYPE>::bStandard != 0, VELM_CArchive&>::type operator>>(VELM_CArchive& ar,
                                                                                           TYPE& rValue)
{
    VELM_CForm<TYPE>::Load(ar, rValue, VELM_CRefers());
    return ar;
}

/// A pointer to an object, or a container of such pointers, whose objects belong to whoever holds it: for `<<` and
/// `>>`, as in `ar >> AfxOwned(tasks)`. None is NULL. Raises as `VELM_CArchive::ReadOwned` and `WriteOwned`. Of a map,
/// the values are owned; a container of containers holds smart pointers.
template <class TYPE> VELM_COwnedOperand<TYPE, VELM_COwns> AfxOwned(TYPE& operand)
{
    return {operand};
}

/// The same, where NULL is allowed.
template <class TYPE> VELM_COwnedOperand<TYPE, VELM_COwnsOrNull> AfxOwnedOrNull(TYPE& operand)
{
    return {operand};
}

/// Stores what is owned.
template <class TYPE, class HOW>
VELM_CArchive& operator<<(VELM_CArchive& ar, const VELM_COwnedOperand<TYPE, HOW>& owned)
{
    VELM_CForm<typename std::remove_const<TYPE>::type>::Store(ar, owned.operand, HOW());
    return ar;
}

/// Loads what is owned.
template <class TYPE, class HOW>
VELM_CArchive& operator>>(VELM_CArchive& ar, const VELM_COwnedOperand<TYPE, HOW>& owned)
{
    AfxAdopt(ar, VELM_CForm<TYPE>::Load(ar, owned.operand, HOW()));
    return ar;
}

/// \}

#endif
