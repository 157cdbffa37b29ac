/// \file
/// Values of every kind through an archive, by one function for both directions.
///
/// `ar & a & b` stores or loads by the archive's direction, so that a class says once what it consists of:
///
///     void Serialize(VELM_CArchive& ar) override
///     {
///         Shape::Serialize(ar);
///         ar & name & width;          // values, as << and >> move them
///         ar & style;                 // a pointer: a reference to an object, or NULL
///         ar & AfxOwned(children);    // pointers to objects that this one deletes
///         ar & AfxSince(2, opacity);  // there since schema 2 of the class
///     }
///
/// | A member | goes by | which is |
/// |---|---|---|
/// | a number, a string | `&`, `<<`, `>>` | its bytes |
/// | a `long`, or another integer of 64 bits | `AfxInt64`; in a container, as it is | 8 bytes, on every machine |
/// | an enumeration with a `VELM_CEnumRange` | `&`, `<<`, `>>` | 4 bytes, and none but those of its range |
/// | `Task*` that is not owned | `&`; or `WriteObject`, `ReadObject` | any object of the class, or NULL |
/// | `Task*` that the object deletes | `AfxOwned`; or `WriteOwned`, `ReadOwned` | not NULL, and owned by nobody else |
/// | the same, or NULL | `AfxOwnedOrNull` | owned by nobody else |
/// | a container of any of these | as its elements | see `mfc_std.h` |
/// | `VELM_CStringArray`, `VELM_CMap` | `&`, `<<`, `>>` | a count, and the elements |
/// | `VELM_CObArray` | the same, or `AfxOwned` | a count, and references to objects |
/// | `VELM_CTime`, `VELM_CTimeSpan` | `&`, `<<`, `>>` | the seconds in 8 bytes |
/// | a class with a `Serialize` that is no `VELM_CObject` | `&`, `<<`, `>>` | what it moves |
/// | a type of somebody else | the same, with a `VELM_CSerializer` | what that moves |
///
/// The page docs/values.md has all of them with their bytes. Whatever else is refused when it is compiled.
#ifndef TAVNOMCL_MFC_CARCFORM_H
#define TAVNOMCL_MFC_CARCFORM_H

#include <stddef.h>
#include <string.h>

#include <algorithm>
#include <new>
#include <type_traits>
#include <utility>

#include "mcl/mfc_carccore.h"
#include "mcl/mfc_carcown.h"
#include "mcl/mfc_cmap.h"
#include "mcl/mfc_coll.h"
#include "mcl/mfc_memory.h"
#include "mcl/mfc_template.h"
#include "mcl/mfc_time.h"

/// \addtogroup archives
/// \{

/// The first and the last of an enumeration, scoped or not. A program that specialises this may store and load its
/// values, in 4 bytes; another value raises 1, storing and loading:
///
///     template <> struct VELM_CEnumRange<Urgency> : VELM_CFromTo<Urgency, Whenever, Now> {};
template <class ENUM> struct VELM_CEnumRange {
};
/// The values from one to another.
template <class ENUM, ENUM FIRST, ENUM LAST> struct VELM_CFromTo {
    /// The first one.
    static constexpr ENUM First() { return FIRST; }
    /// The last one.
    static constexpr ENUM Last() { return LAST; }
};

/// How a type goes through an archive that the library does not know: a program specialises this, whatever namespace
/// the type is of, and it goes alone and in every container. `Serialize` stores or loads by the archive's direction:
///
///     template <> struct VELM_CSerializer<geo::Point> {
///         static void Serialize(VELM_CArchive& ar, geo::Point& r) { ar & r.x & r.y; }
///     };
///
/// A class of the program's own has a member `void Serialize(VELM_CArchive&)` instead. Where a program has operators
/// `<<` and `>>` of its own for a type, these go before the member.
template <class TYPE, class = void> struct VELM_CSerializer {
};
/// \cond
template <class TYPE, class = void> struct VELM_CHasSerialize : std::false_type {
};
template <class TYPE>
struct VELM_CHasSerialize<TYPE, decltype(std::declval<TYPE&>().Serialize(std::declval<VELM_CArchive&>()))>
    : std::integral_constant<bool, !std::is_convertible<TYPE*, const VELM_CObject*>::value &&
                                       !VELM_CStoresByOwn<TYPE>::value && !VELM_CLoadsByOwn<TYPE>::value> {
};
template <class TYPE> struct VELM_CSerializer<TYPE, typename std::enable_if<VELM_CHasSerialize<TYPE>::value>::type> {
    static void Serialize(VELM_CArchive& ar, TYPE& rValue) { rValue.Serialize(ar); }
};

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
    // A new one, which the archive holds.
    static VELM_CHeldValue* Hold(VELM_CArchive& ar)
    {
        VELM_CHeldValue* const pHeld = AfxNew(new (std::nothrow) VELM_CHeldValue);
        ar.Hold(pHeld);
        return pHeld;
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
//     bReference       whether it is, or has inside, a reference to an object
//     Parts            the types that it consists of, which have forms of their own
//     nPlain<HOW>      whether the value is a pointer that owns (1), or has such pointers inside (2)
//     bOwner<HOW>      whether a value that is dropped may let go of an object that it owns
//     Store(ar, value, how), Load(ar, rValue, how)
//     MayReplace(ar, value, how)   false, after a raise that returned, where the value owns an object of this load
//
// Load delivers what VELM_CArchive::Adopt needs once a plain pointer is where its owner keeps it, else 0; nRefused
// where nothing could be loaded.
template <class TYPE, class ENABLE = void> struct VELM_CForm;

// The types that a form consists of, and what they have in common.
template <class... TYPES> struct VELM_CParts {
    enum { nSum = 0, bReference = 0 };
    template <class HOW> static constexpr bool bPlain() { return false; }
    template <class HOW> static constexpr bool bOwner() { return false; }
};
template <class FIRST, class... REST> struct VELM_CParts<FIRST, REST...> {
    typedef VELM_CForm<FIRST> First;
    typedef VELM_CParts<REST...> Rest;
    enum { nSum = int(First::nLeast) + int(Rest::nSum), bReference = int(First::bReference) || int(Rest::bReference) };
    template <class HOW> static constexpr bool bPlain()
    {
        return First::template nPlain<HOW>() != 0 || Rest::template bPlain<HOW>();
    }
    template <class HOW> static constexpr bool bOwner()
    {
        return First::template bOwner<HOW>() || Rest::template bOwner<HOW>();
    }
};
// Stand for the parts of a type of which nothing is known but its operators, and of one that cannot be loaded.
template <class TYPE> struct VELM_CUnknown {
};
template <class TYPE> struct VELM_CStoredOnly {
};

// What has no parts. FORM: Put(ar, value), Get(ar, rValue).
template <class TYPE, class FORM, int LEAST> struct VELM_CLeafForm {
    typedef VELM_CParts<> Parts;
    enum { bStandard = 1, nLeast = LEAST, bReference = 0 };
    template <class HOW> static constexpr int nPlain() { return 0; }
    template <class HOW> static constexpr bool bOwner() { return false; }
    template <class HOW> static void Store(VELM_CArchive& ar, const TYPE& value, HOW)
    {
        static_assert(!HOW::bOwns, "AfxOwned takes pointers to objects, and containers of these");
        FORM::Put(ar, value);
    }
    template <class HOW> static unsigned Load(VELM_CArchive& ar, TYPE& rValue, HOW)
    {
        static_assert(!HOW::bOwns, "AfxOwned takes pointers to objects, and containers of these");
        FORM::Get(ar, rValue);
        return 0;
    }
    template <class HOW> static bool MayReplace(VELM_CArchive&, const TYPE&, HOW) { return true; }
};

// What has operators of its own.
template <class TYPE, class ENABLE>
struct VELM_CForm : VELM_CLeafForm<TYPE, VELM_CForm<TYPE, ENABLE>,
                                   std::is_arithmetic<TYPE>::value || std::is_same<TYPE, VELM_CString>::value> {
    typedef VELM_CUnknown<TYPE> Parts;
    enum { bStandard = 0, bKnown = std::is_arithmetic<TYPE>::value || std::is_same<TYPE, VELM_CString>::value };
    template <class HOW> static constexpr bool bOwner() { return !bKnown; } // for all that is known
    static void Put(VELM_CArchive& ar, const TYPE& value) { ar << value; }
    static void Get(VELM_CArchive& ar, TYPE& rValue) { ar >> rValue; }
};

// What has a VELM_CSerializer.
template <class TYPE>
struct VELM_CForm<TYPE,
                  decltype(VELM_CSerializer<TYPE>::Serialize(std::declval<VELM_CArchive&>(), std::declval<TYPE&>()))>
    : VELM_CLeafForm<TYPE, VELM_CForm<TYPE>, 0> {
    template <class HOW> static constexpr bool bOwner() { return true; } // for all that is known
    static void Put(VELM_CArchive& ar, const TYPE& value)
    {
        VELM_CSerializer<TYPE>::Serialize(ar, const_cast<TYPE&>(value));
    }
    static void Get(VELM_CArchive& ar, TYPE& rValue) { VELM_CSerializer<TYPE>::Serialize(ar, rValue); }
};

template <class TYPE>
struct VELM_CForm<TYPE,
                  typename std::enable_if<std::is_same<decltype(VELM_CEnumRange<TYPE>::First()), TYPE>::value>::type>
    : VELM_CLeafForm<TYPE, VELM_CForm<TYPE>, 4> {
    typedef VELM_CEnumRange<TYPE> Range;
    static void Put(VELM_CArchive& ar, TYPE value) { ar.WriteEnum(value, Range::First(), Range::Last()); }
    static void Get(VELM_CArchive& ar, TYPE& rValue) { ar.ReadEnum(rValue, Range::First(), Range::Last()); }
};

// Integers whose widths differ between machines, and those of 64 bits, which they may be. Each takes 8 bytes wherever
// these forms move it: in a container, and by AfxInt64.
template <class TYPE>
struct VELM_CIsLong
    : std::integral_constant<bool, std::is_same<TYPE, long>::value || std::is_same<TYPE, unsigned long>::value ||
                                       std::is_same<TYPE, long long>::value ||
                                       std::is_same<TYPE, unsigned long long>::value> {
};
template <class TYPE, bool = VELM_CIsLong<TYPE>::value> struct VELM_CIsLongForm : std::false_type {
};
template <class TYPE>
struct VELM_CIsLongForm<TYPE, true>
    : std::integral_constant<bool, std::is_same<TYPE, unsigned long>::value || !VELM_CStoresByOwn<TYPE>::value> {
};
template <class TYPE>
struct VELM_CForm<TYPE, typename std::enable_if<VELM_CIsLongForm<TYPE>::value>::type>
    : VELM_CLeafForm<TYPE, VELM_CForm<TYPE>, 8> {
    enum { bStandard = 0 };
    typedef typename std::conditional<std::is_signed<TYPE>::value, long long, unsigned long long>::type Wide;
    static void Put(VELM_CArchive& ar, TYPE value)
    {
        ar.WriteUInt64(static_cast<unsigned long long>(static_cast<Wide>(value)));
    }
    static void Get(VELM_CArchive& ar, TYPE& rValue)
    {
        unsigned long long nBits = 0;
        if (!ar.Load64(nBits)) {
            ar.RaiseDataEnded();
            return;
        }
        const TYPE value = static_cast<TYPE>(nBits);
        if (static_cast<unsigned long long>(static_cast<Wide>(value)) == nBits)
            rValue = value;
        else
            ar.RaiseInvalid("the value does not fit into a long of this machine");
    }
};

template <class TYPE> struct VELM_CObjectClass {
    static_assert(std::is_base_of<VELM_CObject, TYPE>::value,
                  "a pointer goes through an archive when its class derives from VELM_CObject: see docs/values.md");
    static const VELM_CRuntimeClass* Record() { return VELM_CClassOf<TYPE>::Record(); }
    static const VELM_CObject* Root(const TYPE* pOb) { return pOb; }
};

template <class TYPE> struct VELM_CForm<TYPE*> {
    typedef VELM_CParts<> Parts;
    enum { bStandard = 0, nLeast = 4, bReference = 1 };
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

// What has parts, without a count.
template <class... TYPES> struct VELM_CPartsForm {
    typedef VELM_CParts<TYPES...> Parts;
    enum { bStandard = 1, nLeast = Parts::nSum, bReference = Parts::bReference };
    template <class HOW> static constexpr int nPlain() { return Parts::template bPlain<HOW>() ? 2 : 0; }
    template <class HOW> static constexpr bool bOwner() { return Parts::template bOwner<HOW>(); }
};

// An entry of a map: the value may own, the key does not.
template <class KEY, class VALUE> struct VELM_CEntryForm : VELM_CPartsForm<KEY, VALUE> {
    typedef VELM_CForm<KEY> First;
    typedef VELM_CForm<VALUE> Second;
    template <class HOW> static constexpr int nPlain() { return Second::template nPlain<HOW>(); }
    template <class HOW> static constexpr bool bOwner()
    {
        return First::template bOwner<VELM_CRefers>() || Second::template bOwner<HOW>();
    }
    template <class BOTH, class HOW> static void Store(VELM_CArchive& ar, const BOTH& both, HOW how)
    {
        First::Store(ar, both.first, VELM_CRefers());
        Second::Store(ar, both.second, how);
    }
    template <class HOW> static unsigned Load(VELM_CArchive& ar, std::pair<KEY, VALUE>& both, HOW how)
    {
        const unsigned nFirst = First::Load(ar, both.first, VELM_CRefers());
        if (nFirst == VELM_CArchive::nRefused || ar.IsDataEnded())
            return nFirst;
        return Second::Load(ar, both.second, how); // which is not in its map yet
    }
    template <class BOTH, class HOW> static bool MayReplace(VELM_CArchive& ar, const BOTH& both, HOW how)
    {
        return First::MayReplace(ar, both.first, VELM_CRefers()) && Second::MayReplace(ar, both.second, how);
    }
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

// Puts elements into a container, behind those that it has. Fields of one are places in the container, if anything.
template <class CONTAINER> struct VELM_CFiller {
    typedef CONTAINER Container;
    explicit VELM_CFiller(Container&) {}
    static size_t Size(const Container& elements) { return elements.size(); }
    static void Clear(Container& elements) { elements.clear(); }
    template <class ELEMENT> static const ELEMENT& View(const ELEMENT& element) { return element; }
    template <class VALUE> static bool HasKeyOf(Container&, const VALUE&) { return false; }
    template <class VALUE> void Add(Container& elements, VALUE& rValue)
    {
        elements.insert(elements.end(), std::move(rValue));
    }
};

template <class FORM, class CONTAINER, class HOW>
bool AfxMayReplaceAll(VELM_CArchive& ar, const CONTAINER& elements, HOW how)
{
    if (!FORM::template bOwner<HOW>())
        return true;
    for (const auto& element : elements) {
        if (!FORM::MayReplace(ar, VELM_CFiller<CONTAINER>::View(element), how))
            return false;
    }
    return true;
}

// A count, then the elements. VALUE: the type of element that is loaded, FORM: its form.
template <class CONTAINER, class VALUE, class FORM> struct VELM_CContainerForm {
    typedef VELM_CFiller<CONTAINER> Filler;
    typedef typename FORM::Parts Parts;
    enum { bStandard = 1, nLeast = 4, bReference = FORM::bReference };
    template <class HOW> static constexpr int nPlain() { return FORM::template nPlain<HOW>() != 0 ? 2 : 0; }
    template <class HOW> static constexpr bool bOwner() { return FORM::template bOwner<HOW>(); }
    static bool StoreCount(VELM_CArchive& ar, size_t nCount)
    {
        ar.WriteCount(static_cast<unsigned long>(nCount)); // which refuses one that is too large
        return nCount <= 0xFFFFFFFF;
    }
    template <class ELEMENT, class HOW> static bool StoreElement(VELM_CArchive& ar, const ELEMENT& element, HOW how)
    {
        const VELM_CProgress<FORM> progress(ar);
        FORM::Store(ar, Filler::View(element), how);
        return progress.Require(ar);
    }
    template <class HOW> static void Store(VELM_CArchive& ar, const CONTAINER& elements, HOW how)
    {
        if (!StoreCount(ar, Filler::Size(elements)))
            return;
        for (const auto& element : elements) {
            if (!StoreElement(ar, element, how))
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
        Filler::Clear(elements);
        VELM_CHeldValue<VALUE>* const pHeld = VELM_CHeldValue<VALUE>::Hold(ar);
        VALUE& rValue = pHeld->Build();
        Filler filler(elements);
        const unsigned nAdopted = ar.GetAdoptions();
        for (unsigned long n = ar.ReadCount(); n > 0; --n) {
            const VELM_CProgress<FORM> progress(ar);
            const unsigned nIndex = FORM::Load(ar, rValue, how);
            if (nIndex == VELM_CArchive::nRefused || ar.IsDataEnded() || !progress.Require(ar)) {
                ar.RaiseDataEnded(); // of an element whose operator does not raise
                return VELM_CArchive::nRefused;
            }
            if (FORM::template bOwner<HOW>() && (nIndex != 0 || ar.GetAdoptions() != nAdopted) &&
                Filler::HasKeyOf(elements, rValue)) {
                ar.RaiseBadIndex("an owner has the key of an earlier one");
                return VELM_CArchive::nRefused;
            }
            filler.Add(elements, rValue);
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

// Loads a value that is not in its place yet: `place` moves it there. The result is that of a form's Load.
template <class TYPE, class HOW, class PLACE> unsigned AfxLoadHeld(VELM_CArchive& ar, HOW how, const PLACE& place)
{
    static_assert(VELM_CForm<TYPE>::template nPlain<HOW>() < 2,
                  "a container of containers owns by std::unique_ptr, not by plain pointers");
    VELM_CHeldValue<TYPE>* const pHeld = VELM_CHeldValue<TYPE>::Hold(ar);
    TYPE& rHeld = pHeld->Build();
    const unsigned nIndex = VELM_CForm<TYPE>::Load(ar, rHeld, how);
    if (nIndex == VELM_CArchive::nRefused || ar.IsDataEnded()) {
        ar.RaiseDataEnded();
        return VELM_CArchive::nRefused;
    }
    place(rHeld);
    AfxAdopt(ar, nIndex);
    ar.MovedFromHeld(pHeld);
    ar.DropHeld(pHeld);
    return 0;
}

template <class TIME, class FIELD> struct VELM_CTimeForm : VELM_CLeafForm<TIME, VELM_CTimeForm<TIME, FIELD>, 8> {
    static FIELD& Seconds(VELM_CTime& rTime) { return rTime.m_time; }
    static FIELD& Seconds(VELM_CTimeSpan& rSpan) { return rSpan.m_span; }
    static void Put(VELM_CArchive& ar, TIME time) { VELM_CForm<FIELD>::Put(ar, Seconds(time)); }
    static void Get(VELM_CArchive& ar, TIME& rTime) { VELM_CForm<FIELD>::Get(ar, Seconds(rTime)); }
};
template <> struct VELM_CForm<VELM_CTime> : VELM_CTimeForm<VELM_CTime, time_t> {
};
template <> struct VELM_CForm<VELM_CTimeSpan> : VELM_CTimeForm<VELM_CTimeSpan, long> {
};

// As a VELM_CString.
template <> struct VELM_CForm<fxStr> : VELM_CLeafForm<fxStr, VELM_CForm<fxStr>, 1> {
    static void Put(VELM_CArchive& ar, const fxStr& str) { SerializeElements(ar, const_cast<fxStr*>(&str), 1); }
    static void Get(VELM_CArchive& ar, fxStr& str) { SerializeElements(ar, &str, 1); }
};

template <> struct VELM_CFiller<VELM_CStringArray> {
    explicit VELM_CFiller(VELM_CStringArray&) {}
    static size_t Size(const VELM_CStringArray& strings) { return static_cast<size_t>(strings.GetSize()); }
    static void Clear(VELM_CStringArray& strings) { strings.RemoveAll(); }
    static const VELM_CString& View(const VELM_CString& str) { return str; }
    static bool HasKeyOf(VELM_CStringArray&, const VELM_CString&) { return false; }
    void Add(VELM_CStringArray& strings, const VELM_CString& str) { strings.Add(str); }
};
template <>
struct VELM_CForm<VELM_CStringArray> : VELM_CContainerForm<VELM_CStringArray, VELM_CString, VELM_CForm<VELM_CString>> {
};

template <> struct VELM_CFiller<VELM_CObArray> {
    explicit VELM_CFiller(VELM_CObArray&) {}
    static size_t Size(const VELM_CObArray& objects) { return static_cast<size_t>(objects.GetSize()); }
    static void Clear(VELM_CObArray& objects) { objects.m_list.clear(); }
    static VELM_CObject* View(VELM_CObject* pOb) { return pOb; }
    static bool HasKeyOf(VELM_CObArray&, VELM_CObject*) { return false; }
    void Add(VELM_CObArray& objects, VELM_CObject* pOb) { objects.m_list.append(pOb); }
};
template <>
struct VELM_CForm<VELM_CObArray> : VELM_CContainerForm<VELM_CObArray, VELM_CObject*, VELM_CForm<VELM_CObject*>> {
};

// An array whose capacity doubles when it is full: by itself it grows in steps.
inline void AfxAppend(VELM_CPtrArray& pointers, void* pOb)
{
    const int nSize = pointers.GetSize(), nGrowBy = pointers.m_grow_by;
    pointers.SetSize(nSize + 1, nSize);
    pointers.m_grow_by = nGrowBy;
    pointers.m_data[nSize] = pOb;
}
inline void AfxAppend(VELM_CObArray& objects, VELM_CObject* pOb)
{
    objects.m_list.append(pOb);
}
template <class TYPE, class ARRAY> struct VELM_CFiller<VELM_CArrayView<TYPE, ARRAY>> {
    typedef VELM_CArrayView<TYPE, ARRAY> Elements;
    explicit VELM_CFiller(Elements&) {}
    static size_t Size(const Elements& view) { return static_cast<size_t>(view.GetArray().GetSize()); }
    static void Clear(Elements& view) { view.GetArray() = ARRAY(); }
    static TYPE* View(TYPE* pOb) { return pOb; }
    static bool HasKeyOf(Elements&, TYPE*) { return false; }
    void Add(Elements& view, TYPE* pOb) { AfxAppend(view.GetArray(), pOb); }
};
template <class TYPE, class ARRAY>
struct VELM_CForm<VELM_CArrayView<TYPE, ARRAY>>
    : VELM_CContainerForm<VELM_CArrayView<TYPE, ARRAY>, TYPE*, VELM_CForm<TYPE*>> {
};

template <class KEY, class ARG_KEY, class VALUE, class ARG_VALUE>
struct VELM_CFiller<VELM_CMap<KEY, ARG_KEY, VALUE, ARG_VALUE>> {
    typedef VELM_CMap<KEY, ARG_KEY, VALUE, ARG_VALUE> Map;
    typedef typename Map::VELM_CAssoc::KeyOf KeyOf;
    explicit VELM_CFiller(Map&) {}
    static size_t Size(const Map& map) { return static_cast<size_t>(map.GetCount()); }
    static void Clear(Map& map) { map.RemoveAll(); }
    static std::pair<const KEY&, const VALUE&> View(const VELM_CMapEntry<KEY, const VALUE>& entry)
    {
        return {entry.key, entry.value};
    }
    static bool HasKeyOf(Map& map, const std::pair<KEY, VALUE>& entry)
    {
        unsigned nHash;
        return map.GetAssocAt(KeyOf::Argument(entry.first), nHash) != NULL;
    }
    void Add(Map& map, std::pair<KEY, VALUE>& entry)
    {
        const int nBefore = map.GetCount();
        VALUE& rValue = map[KeyOf::Argument(entry.first)];
        if (map.GetCount() != nBefore)
            rValue = std::move(entry.second);
    }
};
template <class KEY, class ARG_KEY, class VALUE, class ARG_VALUE>
struct VELM_CForm<VELM_CMap<KEY, ARG_KEY, VALUE, ARG_VALUE>>
    : VELM_CContainerForm<VELM_CMap<KEY, ARG_KEY, VALUE, ARG_VALUE>, std::pair<KEY, VALUE>,
                          VELM_CEntryForm<KEY, VALUE>> {
};

// The first type without a form of those that a type consists of; void for none.
template <bool bLoads, class PARTS> struct VELM_CFormless;
template <bool bLoads> struct VELM_CFormless<bLoads, VELM_CParts<>> {
    typedef void Type;
};
template <bool bLoads, class TYPE> struct VELM_CFormless<bLoads, VELM_CUnknown<TYPE>> {
    typedef typename std::conditional<VELM_CMoves<bLoads, TYPE>::value, void, TYPE>::type Type;
};
template <bool bLoads, class TYPE> struct VELM_CFormless<bLoads, VELM_CStoredOnly<TYPE>> {
    typedef typename std::conditional<bLoads, TYPE, void>::type Type;
};
template <bool bLoads, class FIRST, class... REST>
struct VELM_CFormless<bLoads, VELM_CParts<FIRST, REST...>>
    : std::conditional<std::is_void<typename VELM_CFormless<bLoads, typename VELM_CForm<FIRST>::Parts>::Type>::value,
                       VELM_CFormless<bLoads, VELM_CParts<REST...>>,
                       VELM_CFormless<bLoads, typename VELM_CForm<FIRST>::Parts>>::type {
};

// In the place of a form whose lack has been reported.
struct VELM_CNoForm {
    template <class... ANY> static void Store(ANY&&...) {}
    template <class... ANY> static unsigned Load(ANY&&...) { return 0; }
};
template <bool bLoads, class TYPE> struct VELM_CChecked {
    typedef typename VELM_CFormless<bLoads, VELM_CParts<TYPE>>::Type Lacks;
    typedef typename std::conditional<std::is_void<Lacks>::value, VELM_CForm<TYPE>, VELM_CNoForm>::type Form;
};

template <class ARCHIVE, class TYPE,
          bool = std::is_convertible<ARCHIVE*, VELM_CArchive*>::value && !std::is_arithmetic<TYPE>::value>
struct VELM_CWhereForm {
};
template <class ARCHIVE, class TYPE>
struct VELM_CWhereForm<ARCHIVE, TYPE, true> : std::enable_if<VELM_CForm<TYPE>::bStandard != 0, VELM_CArchive&> {
};

// What an operator takes with a word about how.
template <class TYPE, class HOW> struct VELM_COperand {
    TYPE& operand;
};
template <class OPERAND> struct VELM_CSinceOperand {
    unsigned nSince;
    int bSchema; // of the object's class; else of the version beside it
    unsigned nVersion;
    OPERAND operand;
};
/// \endcond

/// Stores a value that is made of others.
template <class ARCHIVE, class TYPE>
typename VELM_CWhereForm<ARCHIVE, TYPE>::type operator<<(ARCHIVE& rArchive, const TYPE& value)
{
    typedef VELM_CChecked<false, TYPE> Checked;
    static_assert(VELM_CHasForm<typename Checked::Lacks>::value, VELM_NO_FORM);
    VELM_CArchive& ar = rArchive;
    Checked::Form::Store(ar, value, VELM_CRefers());
    return ar;
}

/// Loads a value that is made of others.
template <class ARCHIVE, class TYPE>
typename VELM_CWhereForm<ARCHIVE, TYPE>::type operator>>(ARCHIVE& rArchive, TYPE& rValue)
{
    typedef VELM_CChecked<true, TYPE> Checked;
    static_assert(VELM_CHasForm<typename Checked::Lacks>::value, VELM_NO_FORM);
    VELM_CArchive& ar = rArchive;
    Checked::Form::Load(ar, rValue, VELM_CRefers());
    return ar;
}

/// A pointer to an object, or a container of such pointers, whose objects belong to whoever holds it: for `&`, `<<` and
/// `>>`, as in `ar & AfxOwned(tasks)`. None is NULL. Raises as `VELM_CArchive::ReadOwned` and `WriteOwned`. Of a map,
/// the values are owned; a container of containers holds smart pointers.
template <class TYPE> VELM_COperand<TYPE, VELM_COwns> AfxOwned(TYPE& operand)
{
    return {operand};
}

/// The same, where NULL is allowed.
template <class TYPE> VELM_COperand<TYPE, VELM_COwnsOrNull> AfxOwnedOrNull(TYPE& operand)
{
    return {operand};
}

/// A `long`, or another integer of 64 bits, alone: 8 bytes on every machine. A value that does not fit into a `long` of
/// 32 bits raises 1 when it is loaded.
template <class TYPE> VELM_COperand<TYPE, VELM_CRefers> AfxInt64(TYPE& rValue)
{
    static_assert(VELM_CIsLong<typename std::remove_const<TYPE>::type>::value,
                  "AfxInt64 takes a long or a long long, signed or not");
    return {rValue};
}

/// Stores what is owned, or an integer of 64 bits.
template <class TYPE, class HOW> VELM_CArchive& operator<<(VELM_CArchive& ar, const VELM_COperand<TYPE, HOW>& value)
{
    typedef VELM_CChecked<false, typename std::remove_const<TYPE>::type> Checked;
    static_assert(VELM_CHasForm<typename Checked::Lacks>::value, VELM_NO_FORM);
    Checked::Form::Store(ar, value.operand, HOW());
    return ar;
}

/// Loads what is owned, or an integer of 64 bits.
template <class TYPE, class HOW> VELM_CArchive& operator>>(VELM_CArchive& ar, const VELM_COperand<TYPE, HOW>& value)
{
    typedef VELM_CChecked<true, TYPE> Checked;
    static_assert(VELM_CHasForm<typename Checked::Lacks>::value, VELM_NO_FORM);
    AfxAdopt(ar, Checked::Form::Load(ar, value.operand, HOW()));
    return ar;
}

/// Stores or loads a value by the archive's direction: what `<<` stores and `>>` loads; and a pointer to an object of a
/// class with a record, as `WriteObject` and `ReadObject`. A `long`, alone, is 4 bytes to `<<` and 8 in a container,
/// so that `&` wants to know which: `AfxInt64`.
template <class TYPE> VELM_CArchive& operator&(VELM_CArchive& ar, TYPE& rValue)
{
    static_assert(!VELM_CIsLong<TYPE>::value, "ar & AfxInt64(n) moves a long, or another integer of 64 bits, in 8 "
                                              "bytes; << and >> move a long in 4: see docs/values.md");
    static_assert(!std::is_const<TYPE>::value, "ar & value may load into it: it must not be const");
    typedef typename VELM_CChecked<false, TYPE>::Lacks Lacks;
    typedef VELM_CChecked<true, TYPE> Checked;
    typedef typename std::conditional<std::is_void<Lacks>::value, typename Checked::Lacks, Lacks>::type Missing;
    static_assert(VELM_CHasForm<Missing>::value, VELM_NO_FORM);
    typedef typename std::conditional<VELM_CHasForm<Missing>::value, VELM_CForm<TYPE>, VELM_CNoForm>::type Form;
    if (ar.IsStoring())
        Form::Store(ar, rValue, VELM_CRefers());
    else
        Form::Load(ar, rValue, VELM_CRefers());
    return ar;
}

/// The same for what is owned, and for integers of 64 bits.
template <class TYPE, class HOW> VELM_CArchive& operator&(VELM_CArchive& ar, const VELM_COperand<TYPE, HOW>& value)
{
    return ar.IsStoring() ? ar << value : ar >> value;
}

/// Stores or loads the elements of an array as pointers to objects of a class; see `AfxOf`.
template <class TYPE, class ARRAY>
VELM_CArchive& operator&(VELM_CArchive& ar, const VELM_CArrayView<TYPE, ARRAY>& elements)
{
    VELM_CArrayView<TYPE, ARRAY> view = elements;
    return ar.IsStoring() ? ar << view : ar >> view;
}

/// A field that is there since a schema of the object's class (see `VELM_CArchive::GetSchema`): for `&`, as in
/// `ar & AfxSince(2, urgency)`. The fields of an object that was stored with an earlier schema stay as they are.
/// Raises 1 when an object is stored whose record has an earlier schema.
template <class TYPE> VELM_CSinceOperand<TYPE> AfxSince(unsigned nSchema, TYPE&& rValue)
{
    return {nSchema, 1, 0, static_cast<TYPE&&>(rValue)};
}

/// The same in a base class, by the number that it stores itself: `AfxSince(2, nVersion, done)`, where `nVersion` is
/// what `VELM_CArchive::SerializeVersion` has returned.
template <class TYPE> VELM_CSinceOperand<TYPE> AfxSince(unsigned nFirstVersion, unsigned nVersion, TYPE&& rValue)
{
    return {nFirstVersion, 0, nVersion, static_cast<TYPE&&>(rValue)};
}

/// Stores the field, or loads it where it is there.
template <class OPERAND> VELM_CArchive& operator&(VELM_CArchive& ar, const VELM_CSinceOperand<OPERAND>& since)
{
    if ((since.bSchema ? ar.GetSchema() : since.nVersion) >= since.nSince)
        return ar & since.operand;
    if (ar.IsStoring())
        ar.RaiseInvalid("a field is newer than the schema of its class");
    return ar;
}

/// \}

#endif
