/// \file
/// The standard library's containers and smart pointers in an archive: a program that stores these includes this
/// header. It brings the standard headers of all of them: a source file that includes nothing else takes g++ about 0.6
/// seconds, where one with `tavnomcl.h` takes 0.4. The types whose headers take longer are in `mfc_stdvalue.h`.
///
/// `&`, `<<` and `>>` for `string`, `u16string`, `u32string`, `vector`, `deque`, `list`, `forward_list`, `array`,
/// `pair`, `tuple`, `bitset`, `set`, `map`, their `unordered_` and `multi` kinds and, from C++17 on, `optional`,
/// `variant`, `monostate`, `byte` and (stored only) `string_view`; of each other and of everything else that goes
/// through an archive. The page docs/values.md has the bytes of each.
///
/// Objects of classes derived from `VELM_CObject` go as references:
///
/// | A member, or the elements of a container | goes by | and is |
/// |---|---|---|
/// | `Task*` that is not owned | `&`; a container also by `<<`, `>>` | any object, or NULL |
/// | `Task*` that the object deletes | `AfxOwned` | not NULL, and owned by nobody else |
/// | the same, or NULL | `AfxOwnedOrNull` | owned by nobody else |
/// | `std::unique_ptr<Task>` | `&`, `<<`, `>>`; of `AfxOwned` where it must not be NULL | owned by nobody else |
/// | `std::shared_ptr<Style>` | `&`, `<<`, `>>`; of `AfxOwned` where it must not be NULL | shared again |
/// | `std::weak_ptr<Style>` | `&`, `<<`, `>>` | shared as long as others share it |
///
/// Unique and shared owners of one object exclude each other. Shared owners that own each other in a circle are never
/// deleted, as always: one of them is to be a `std::weak_ptr`. The archive has a share of each shared object until it
/// is destroyed or deletes what it has loaded. An object that is loaded first as a base class which does not derive
/// from `std::enable_shared_from_this` does not know its owners by that.
///
/// In a container each integer of type `long`, `long long` or the unsigned kinds takes 8 bytes, so that `int64_t` has
/// the same bytes on every machine. (`size_t` has not: it is `unsigned int` on some.) The `unordered_` containers are
/// stored in ascending order of their keys, so that equal contents have equal bytes; those whose keys refer to objects
/// or have no `<` in the order in which they have them.
///
/// Loading replaces what a container holds, and fills it as the data arrives: memory is never taken for what a count
/// claims. Where the data ends, 3 is raised, and the container holds the elements that were whole; a string or an
/// optional is empty then, a variant keeps its value, and the number of an array in which it ends may be 0. A second
/// element with the key of an earlier one is dropped, but by the `multi` kinds; with elements that own, it raises 5. So
/// does loading over an owner that holds an object of the same load. An element is loaded over a default value or over
/// one that was moved from, so that its own `>>` sets all of it. An element that takes no byte raises 1, storing and
/// loading.
///
/// What is being loaded belongs to the archive, so that a raise loses nothing. An exception of a container, such as
/// `std::bad_alloc`, passes through to the caller and loses nothing either; the archive is to be destroyed then. An
/// element that raises while a container moves it may lose memory, never an element.
///
/// Data that is made to collide makes the `unordered_` containers slow; the ordered ones are not affected.
#ifndef TAVNOMCL_MFC_STD_H
#define TAVNOMCL_MFC_STD_H

#include <stddef.h>
#include <string.h>

#include <algorithm>
#include <array>
#include <bitset>
#include <deque>
#include <forward_list>
#include <functional>
#include <iterator>
#include <list>
#include <map>
#include <memory>
#include <new>
#include <set>
#include <string>
#include <tuple>
#include <type_traits>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>
#if __cplusplus >= 201703L
#include <cstddef>
#include <optional>
#include <string_view>
#include <variant>
#endif

#include "mcl/mfc_carcform.h"

/// \addtogroup standard
/// \{

/// \cond
// What the smart pointers have in common.
template <class TYPE> struct VELM_CSmartForm {
    typedef VELM_CParts<> Parts;
    enum { bStandard = 1, nLeast = 4, bReference = 1 };
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
template <class TYPE>
struct VELM_CIsBlock
    : std::conditional<VELM_CIsLongForm<TYPE>::value,
                       std::integral_constant<bool, sizeof(TYPE) == 8 && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__>,
                       VELM_CIsPlainNumber<TYPE>>::type {
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

template <class TRAITS, class ALLOC>
struct VELM_CForm<std::basic_string<char, TRAITS, ALLOC>>
    : VELM_CLeafForm<std::basic_string<char, TRAITS, ALLOC>, VELM_CForm<std::basic_string<char, TRAITS, ALLOC>>, 1> {
    typedef std::basic_string<char, TRAITS, ALLOC> String;
    static void Put(VELM_CArchive& ar, const String& str)
    {
        ar.StorePrefixed(str.data(), static_cast<unsigned long>(str.size()));
    }
    static void Get(VELM_CArchive& ar, String& str)
    {
        unsigned long nLength = 0;
        if (!ar.CanLoad())
            return;
        str.clear();
        if (!ar.LoadLength(nLength) || !AfxLoadBlock(ar, str, nLength)) {
            str.clear();
            ar.RaiseDataEnded();
        }
    }
};

// A unit of a wider string, as the number of that width.
template <class CHAR, class UINT>
struct VELM_CUnitForm : VELM_CLeafForm<CHAR, VELM_CUnitForm<CHAR, UINT>, sizeof(UINT)> {
    enum { bStandard = 0 };
    static void Put(VELM_CArchive& ar, CHAR ch) { ar << static_cast<UINT>(ch); }
    static void Get(VELM_CArchive& ar, CHAR& ch)
    {
        UINT nUnit = 0;
        ar >> nUnit;
        ch = static_cast<CHAR>(nUnit);
    }
};
template <class TRAITS, class ALLOC>
struct VELM_CForm<std::basic_string<char16_t, TRAITS, ALLOC>>
    : VELM_CContainerForm<std::basic_string<char16_t, TRAITS, ALLOC>, char16_t,
                          VELM_CUnitForm<char16_t, unsigned short>> {
};
template <class TRAITS, class ALLOC>
struct VELM_CForm<std::basic_string<char32_t, TRAITS, ALLOC>>
    : VELM_CContainerForm<std::basic_string<char32_t, TRAITS, ALLOC>, char32_t, VELM_CUnitForm<char32_t, unsigned>> {
};

// The elements in their order, without a count.
template <class PRODUCT, size_t I = 0, bool = I == std::tuple_size<PRODUCT>::value> struct VELM_CEachOf {
    template <class HOW> static void Store(VELM_CArchive&, const PRODUCT&, HOW) {}
    template <class HOW> static unsigned Load(VELM_CArchive&, PRODUCT&, HOW) { return 0; }
    template <class HOW> static bool MayReplace(VELM_CArchive&, const PRODUCT&, HOW) { return true; }
};
template <class PRODUCT, size_t I> struct VELM_CEachOf<PRODUCT, I, false> {
    typedef VELM_CForm<typename std::remove_const<typename std::tuple_element<I, PRODUCT>::type>::type> Form;
    typedef VELM_CEachOf<PRODUCT, I + 1> Rest;
    template <class HOW> static void Store(VELM_CArchive& ar, const PRODUCT& product, HOW how)
    {
        Form::Store(ar, std::get<I>(product), how);
        Rest::Store(ar, product, how);
    }
    template <class HOW> static unsigned Load(VELM_CArchive& ar, PRODUCT& rProduct, HOW how)
    {
        const unsigned nIndex = Form::Load(ar, std::get<I>(rProduct), how);
        AfxAdopt(ar, nIndex);
        if (nIndex == VELM_CArchive::nRefused || ar.IsDataEnded())
            return nIndex == VELM_CArchive::nRefused ? nIndex : 0;
        return Rest::Load(ar, rProduct, how);
    }
    template <class HOW> static bool MayReplace(VELM_CArchive& ar, const PRODUCT& product, HOW how)
    {
        return Form::MayReplace(ar, std::get<I>(product), how) && Rest::MayReplace(ar, product, how);
    }
};
template <class FIRST, class SECOND>
struct VELM_CForm<std::pair<FIRST, SECOND>> : VELM_CPartsForm<typename std::remove_const<FIRST>::type, SECOND>,
                                              VELM_CEachOf<std::pair<FIRST, SECOND>> {
};
template <class... TYPES>
struct VELM_CForm<std::tuple<TYPES...>> : VELM_CPartsForm<TYPES...>, VELM_CEachOf<std::tuple<TYPES...>> {
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
        if (VELM_CForm::StoreCount(ar, elements.size()))
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
template <class TYPE, class ALLOC>
struct VELM_CForm<std::deque<TYPE, ALLOC>> : VELM_CContainerForm<std::deque<TYPE, ALLOC>, TYPE, VELM_CForm<TYPE>> {
};
template <class TYPE, class ALLOC>
struct VELM_CForm<std::list<TYPE, ALLOC>> : VELM_CContainerForm<std::list<TYPE, ALLOC>, TYPE, VELM_CForm<TYPE>> {
};
template <class TYPE, class ALLOC> struct VELM_CFiller<std::forward_list<TYPE, ALLOC>> {
    typedef std::forward_list<TYPE, ALLOC> List;
    explicit VELM_CFiller(List& elements) : m_last(elements.before_begin()) {}
    static size_t Size(const List& elements)
    {
        return static_cast<size_t>(std::distance(elements.begin(), elements.end()));
    }
    static void Clear(List& elements) { elements.clear(); }
    static const TYPE& View(const TYPE& element) { return element; }
    static bool HasKeyOf(List&, const TYPE&) { return false; }
    void Add(List& elements, TYPE& rValue) { m_last = elements.insert_after(m_last, std::move(rValue)); }

private:
    typename List::iterator m_last;
};
template <class TYPE, class ALLOC>
struct VELM_CForm<std::forward_list<TYPE, ALLOC>>
    : VELM_CContainerForm<std::forward_list<TYPE, ALLOC>, TYPE, VELM_CForm<TYPE>> {
};

// Containers with keys: what an element's key is, and whether one may be there again.
template <class VALUE> struct VELM_CSetElement {
    typedef VALUE Value;
    typedef VALUE Key;
    typedef VELM_CForm<VALUE> Form;
    static const VALUE& KeyOf(const VALUE& element) { return element; }
};
template <class KEY, class VALUE> struct VELM_CMapElement {
    typedef std::pair<KEY, VALUE> Value;
    typedef KEY Key;
    typedef VELM_CEntryForm<KEY, VALUE> Form;
    template <class ENTRY> static const KEY& KeyOf(const ENTRY& entry) { return entry.first; }
};
template <class CONTAINER, class ELEMENT> struct VELM_CUniqueFiller {
    explicit VELM_CUniqueFiller(CONTAINER&) {}
    static size_t Size(const CONTAINER& elements) { return elements.size(); }
    static void Clear(CONTAINER& elements) { elements.clear(); }
    template <class VALUE> static const VALUE& View(const VALUE& element) { return element; }
    static bool HasKeyOf(CONTAINER& elements, const typename ELEMENT::Value& value)
    {
        return elements.find(ELEMENT::KeyOf(value)) != elements.end();
    }
    void Add(CONTAINER& elements, typename ELEMENT::Value& rValue)
    {
        elements.insert(elements.end(), std::move(rValue));
    }
};
// Equal ones stay in their order: those that are ordered go to the end of theirs, others behind the last new one.
template <class CONTAINER, class ELEMENT> struct VELM_CMultiFiller : VELM_CUniqueFiller<CONTAINER, ELEMENT> {
    using VELM_CUniqueFiller<CONTAINER, ELEMENT>::VELM_CUniqueFiller;
    static bool HasKeyOf(CONTAINER&, const typename ELEMENT::Value&) { return false; }
};
template <class CONTAINER, class ELEMENT> struct VELM_CUnorderedMultiFiller : VELM_CMultiFiller<CONTAINER, ELEMENT> {
    explicit VELM_CUnorderedMultiFiller(CONTAINER& elements)
        : VELM_CMultiFiller<CONTAINER, ELEMENT>(elements), m_last(elements.end())
    {
    }
    void Add(CONTAINER& elements, typename ELEMENT::Value& rValue)
    {
        m_last = elements.insert(m_last, std::move(rValue));
    }

private:
    typename CONTAINER::const_iterator m_last;
};
template <class KEY, class = void> struct VELM_CIsSorted : std::false_type {
};
template <class KEY>
struct VELM_CIsSorted<KEY, decltype(void(static_cast<bool>(std::declval<const KEY&>() < std::declval<const KEY&>())))>
    : std::integral_constant<bool, !VELM_CForm<KEY>::bReference> {
};
template <class CONTAINER, class ELEMENT>
struct VELM_CKeyedForm : VELM_CContainerForm<CONTAINER, typename ELEMENT::Value, typename ELEMENT::Form> {
};
// The archive holds the order: a raise must not lose it. A stable sort keeps within its bounds whatever `<` answers, as
// for a NaN, and equal keys as they were.
template <class CONTAINER, class ELEMENT, bool = VELM_CIsSorted<typename ELEMENT::Key>::value>
struct VELM_CUnorderedForm : VELM_CKeyedForm<CONTAINER, ELEMENT> {
};
template <class CONTAINER, class ELEMENT>
struct VELM_CUnorderedForm<CONTAINER, ELEMENT, true> : VELM_CKeyedForm<CONTAINER, ELEMENT> {
    template <class HOW> static void Store(VELM_CArchive& ar, const CONTAINER& elements, HOW how)
    {
        typedef typename CONTAINER::value_type Value;
        typedef VELM_CHeldValue<std::vector<const Value*>> Held;
        Held* const pHeld = Held::Hold(ar);
        std::vector<const Value*>& order = pHeld->Build();
        order.reserve(elements.size());
        for (const Value& element : elements)
            order.push_back(std::addressof(element));
        std::stable_sort(order.begin(), order.end(), [](const Value* pA, const Value* pB) {
            return static_cast<bool>(ELEMENT::KeyOf(*pA) < ELEMENT::KeyOf(*pB));
        });
        bool bGood = VELM_CUnorderedForm::StoreCount(ar, order.size());
        for (size_t i = 0; bGood && i < order.size(); ++i)
            bGood = VELM_CUnorderedForm::StoreElement(ar, *order[i], how);
        ar.DropHeld(pHeld);
    }
};
template <class KEY, class LESS, class ALLOC>
struct VELM_CFiller<std::set<KEY, LESS, ALLOC>>
    : VELM_CUniqueFiller<std::set<KEY, LESS, ALLOC>, VELM_CSetElement<KEY>> {
    using VELM_CUniqueFiller<std::set<KEY, LESS, ALLOC>, VELM_CSetElement<KEY>>::VELM_CUniqueFiller;
};
template <class KEY, class LESS, class ALLOC>
struct VELM_CForm<std::set<KEY, LESS, ALLOC>> : VELM_CKeyedForm<std::set<KEY, LESS, ALLOC>, VELM_CSetElement<KEY>> {
};
template <class KEY, class VALUE, class LESS, class ALLOC>
struct VELM_CFiller<std::map<KEY, VALUE, LESS, ALLOC>>
    : VELM_CUniqueFiller<std::map<KEY, VALUE, LESS, ALLOC>, VELM_CMapElement<KEY, VALUE>> {
    using VELM_CUniqueFiller<std::map<KEY, VALUE, LESS, ALLOC>, VELM_CMapElement<KEY, VALUE>>::VELM_CUniqueFiller;
};
template <class KEY, class VALUE, class LESS, class ALLOC>
struct VELM_CForm<std::map<KEY, VALUE, LESS, ALLOC>>
    : VELM_CKeyedForm<std::map<KEY, VALUE, LESS, ALLOC>, VELM_CMapElement<KEY, VALUE>> {
};
template <class KEY, class HASH, class EQUAL, class ALLOC>
struct VELM_CFiller<std::unordered_set<KEY, HASH, EQUAL, ALLOC>>
    : VELM_CUniqueFiller<std::unordered_set<KEY, HASH, EQUAL, ALLOC>, VELM_CSetElement<KEY>> {
    using VELM_CUniqueFiller<std::unordered_set<KEY, HASH, EQUAL, ALLOC>, VELM_CSetElement<KEY>>::VELM_CUniqueFiller;
};
template <class KEY, class HASH, class EQUAL, class ALLOC>
struct VELM_CForm<std::unordered_set<KEY, HASH, EQUAL, ALLOC>>
    : VELM_CUnorderedForm<std::unordered_set<KEY, HASH, EQUAL, ALLOC>, VELM_CSetElement<KEY>> {
};
template <class KEY, class VALUE, class HASH, class EQUAL, class ALLOC>
struct VELM_CFiller<std::unordered_map<KEY, VALUE, HASH, EQUAL, ALLOC>>
    : VELM_CUniqueFiller<std::unordered_map<KEY, VALUE, HASH, EQUAL, ALLOC>, VELM_CMapElement<KEY, VALUE>> {
    using VELM_CUniqueFiller<std::unordered_map<KEY, VALUE, HASH, EQUAL, ALLOC>,
                             VELM_CMapElement<KEY, VALUE>>::VELM_CUniqueFiller;
};
template <class KEY, class VALUE, class HASH, class EQUAL, class ALLOC>
struct VELM_CForm<std::unordered_map<KEY, VALUE, HASH, EQUAL, ALLOC>>
    : VELM_CUnorderedForm<std::unordered_map<KEY, VALUE, HASH, EQUAL, ALLOC>, VELM_CMapElement<KEY, VALUE>> {
};
template <class KEY, class LESS, class ALLOC>
struct VELM_CFiller<std::multiset<KEY, LESS, ALLOC>>
    : VELM_CMultiFiller<std::multiset<KEY, LESS, ALLOC>, VELM_CSetElement<KEY>> {
    using VELM_CMultiFiller<std::multiset<KEY, LESS, ALLOC>, VELM_CSetElement<KEY>>::VELM_CMultiFiller;
};
template <class KEY, class LESS, class ALLOC>
struct VELM_CForm<std::multiset<KEY, LESS, ALLOC>>
    : VELM_CKeyedForm<std::multiset<KEY, LESS, ALLOC>, VELM_CSetElement<KEY>> {
};
template <class KEY, class VALUE, class LESS, class ALLOC>
struct VELM_CFiller<std::multimap<KEY, VALUE, LESS, ALLOC>>
    : VELM_CMultiFiller<std::multimap<KEY, VALUE, LESS, ALLOC>, VELM_CMapElement<KEY, VALUE>> {
    using VELM_CMultiFiller<std::multimap<KEY, VALUE, LESS, ALLOC>, VELM_CMapElement<KEY, VALUE>>::VELM_CMultiFiller;
};
template <class KEY, class VALUE, class LESS, class ALLOC>
struct VELM_CForm<std::multimap<KEY, VALUE, LESS, ALLOC>>
    : VELM_CKeyedForm<std::multimap<KEY, VALUE, LESS, ALLOC>, VELM_CMapElement<KEY, VALUE>> {
};
template <class KEY, class HASH, class EQUAL, class ALLOC>
struct VELM_CFiller<std::unordered_multiset<KEY, HASH, EQUAL, ALLOC>>
    : VELM_CUnorderedMultiFiller<std::unordered_multiset<KEY, HASH, EQUAL, ALLOC>, VELM_CSetElement<KEY>> {
    using VELM_CUnorderedMultiFiller<std::unordered_multiset<KEY, HASH, EQUAL, ALLOC>,
                                     VELM_CSetElement<KEY>>::VELM_CUnorderedMultiFiller;
};
template <class KEY, class HASH, class EQUAL, class ALLOC>
struct VELM_CForm<std::unordered_multiset<KEY, HASH, EQUAL, ALLOC>>
    : VELM_CUnorderedForm<std::unordered_multiset<KEY, HASH, EQUAL, ALLOC>, VELM_CSetElement<KEY>> {
};
template <class KEY, class VALUE, class HASH, class EQUAL, class ALLOC>
struct VELM_CFiller<std::unordered_multimap<KEY, VALUE, HASH, EQUAL, ALLOC>>
    : VELM_CUnorderedMultiFiller<std::unordered_multimap<KEY, VALUE, HASH, EQUAL, ALLOC>,
                                 VELM_CMapElement<KEY, VALUE>> {
    using VELM_CUnorderedMultiFiller<std::unordered_multimap<KEY, VALUE, HASH, EQUAL, ALLOC>,
                                     VELM_CMapElement<KEY, VALUE>>::VELM_CUnorderedMultiFiller;
};
template <class KEY, class VALUE, class HASH, class EQUAL, class ALLOC>
struct VELM_CForm<std::unordered_multimap<KEY, VALUE, HASH, EQUAL, ALLOC>>
    : VELM_CUnorderedForm<std::unordered_multimap<KEY, VALUE, HASH, EQUAL, ALLOC>, VELM_CMapElement<KEY, VALUE>> {
};

template <class TYPE, size_t SIZE> struct VELM_CForm<std::array<TYPE, SIZE>> {
    typedef std::array<TYPE, SIZE> Array;
    typedef VELM_CForm<TYPE> Element;
    typedef VELM_CParts<TYPE> Parts;
    enum { bStandard = 1, nLeast = int(SIZE) * int(Element::nLeast), bReference = Element::bReference };
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

// Bit 0 is the lowest bit of the first byte.
template <size_t SIZE>
struct VELM_CForm<std::bitset<SIZE>>
    : VELM_CLeafForm<std::bitset<SIZE>, VELM_CForm<std::bitset<SIZE>>, static_cast<int>((SIZE + 7) / 8)> {
    static void Put(VELM_CArchive& ar, const std::bitset<SIZE>& bits)
    {
        for (size_t nFirst = 0; nFirst < SIZE; nFirst += 8) {
            unsigned nByte = 0;
            for (size_t i = nFirst; i < SIZE && i < nFirst + 8; ++i)
                nByte |= static_cast<unsigned>(bits[i]) << (i - nFirst);
            ar << static_cast<unsigned char>(nByte);
        }
    }
    static void Get(VELM_CArchive& ar, std::bitset<SIZE>& bits)
    {
        bits.reset();
        for (size_t nFirst = 0; nFirst < SIZE; nFirst += 8) {
            unsigned char by = 0;
            if (!ar.LoadByte(by)) {
                bits.reset();
                ar.RaiseDataEnded();
                return;
            }
            for (size_t i = nFirst; i < nFirst + 8 && by >> (i - nFirst) != 0; ++i) {
                if (i < SIZE) {
                    bits[i] = (by >> (i - nFirst) & 1) != 0;
                } else {
                    bits.reset();
                    ar.RaiseInvalid("a bitset has a bit behind its last one");
                    return;
                }
            }
        }
    }
};

#if __cplusplus >= 201703L
template <class TRAITS>
struct VELM_CForm<std::basic_string_view<char, TRAITS>>
    : VELM_CLeafForm<std::basic_string_view<char, TRAITS>, VELM_CForm<std::basic_string_view<char, TRAITS>>, 1> {
    typedef VELM_CStoredOnly<std::basic_string_view<char, TRAITS>> Parts;
    static void Put(VELM_CArchive& ar, std::basic_string_view<char, TRAITS> str)
    {
        ar.StorePrefixed(str.data(), static_cast<unsigned long>(str.size()));
    }
};

template <> struct VELM_CIsBlock<std::byte> : std::true_type {
};
template <> struct VELM_CForm<std::byte> : VELM_CLeafForm<std::byte, VELM_CForm<std::byte>, 1> {
    static void Put(VELM_CArchive& ar, std::byte by) { ar << static_cast<unsigned char>(by); }
    static void Get(VELM_CArchive& ar, std::byte& rByte)
    {
        unsigned char by = std::to_integer<unsigned char>(rByte);
        ar >> by;
        rByte = std::byte{by};
    }
};

template <> struct VELM_CForm<std::monostate> : VELM_CLeafForm<std::monostate, VELM_CForm<std::monostate>, 0> {
    static void Put(VELM_CArchive&, std::monostate) {}
    static void Get(VELM_CArchive&, std::monostate&) {}
};

// Whether there is a value, in 1 byte, then the value.
template <class TYPE> struct VELM_CForm<std::optional<TYPE>> : VELM_CPartsForm<TYPE> {
    typedef std::optional<TYPE> Optional;
    enum { nLeast = 1 };
    template <class HOW> static void Store(VELM_CArchive& ar, const Optional& value, HOW how)
    {
        ar << value.has_value();
        if (value.has_value())
            VELM_CForm<TYPE>::Store(ar, *value, how);
    }
    template <class HOW> static unsigned Load(VELM_CArchive& ar, Optional& rValue, HOW how)
    {
        if (!ar.CanLoad() || !MayReplace(ar, rValue, how))
            return VELM_CArchive::nRefused;
        rValue.reset();
        unsigned char byThere = 0;
        ar >> byThere;
        if (byThere == 1)
            return AfxLoadHeld<TYPE>(ar, how, [&](TYPE& rHeld) { rValue = std::move(rHeld); });
        if (byThere == 0)
            return 0;
        ar.RaiseInvalid("an optional is neither there nor not");
        return VELM_CArchive::nRefused;
    }
    template <class HOW> static bool MayReplace(VELM_CArchive& ar, const Optional& value, HOW how)
    {
        return !value.has_value() || VELM_CForm<TYPE>::MayReplace(ar, *value, how);
    }
};

// The number of the alternative, as a count, then its value.
template <class... TYPES> struct VELM_CForm<std::variant<TYPES...>> : VELM_CPartsForm<TYPES...> {
    typedef std::variant<TYPES...> Variant;
    enum { nLeast = 4 };
    template <class HOW> static void Store(VELM_CArchive& ar, const Variant& value, HOW how)
    {
        if (value.valueless_by_exception()) {
            ar.RaiseInvalid("a variant has no value");
            return;
        }
        ar.WriteCount(static_cast<unsigned long>(value.index()));
        At<0>(value.index(), [&](auto i) {
            typedef VELM_CForm<std::variant_alternative_t<decltype(i)::value, Variant>> Form;
            Form::Store(ar, *std::get_if<decltype(i)::value>(&value), how);
            return true;
        });
    }
    template <class HOW> static unsigned Load(VELM_CArchive& ar, Variant& rValue, HOW how)
    {
        if (!ar.CanLoad() || !MayReplace(ar, rValue, how))
            return VELM_CArchive::nRefused;
        const unsigned long nAlternative = ar.ReadCount();
        if (ar.IsDataEnded())
            return VELM_CArchive::nRefused;
        unsigned nResult = VELM_CArchive::nRefused;
        if (nAlternative >= sizeof...(TYPES))
            ar.RaiseInvalid("a variant has no such alternative");
        At<0>(nAlternative, [&](auto i) {
            typedef std::variant_alternative_t<decltype(i)::value, Variant> Type;
            nResult = AfxLoadHeld<Type>(
                ar, how, [&](Type& rHeld) { rValue.template emplace<decltype(i)::value>(std::move(rHeld)); });
            return true;
        });
        return nResult;
    }
    template <class HOW> static bool MayReplace(VELM_CArchive& ar, const Variant& value, HOW how)
    {
        return At<0>(value.index(), [&](auto i) {
            typedef VELM_CForm<std::variant_alternative_t<decltype(i)::value, Variant>> Form;
            return Form::MayReplace(ar, *std::get_if<decltype(i)::value>(&value), how);
        });
    }

private:
    // What body answers for the alternative of that number; true where there is none.
    template <size_t I, class BODY> static bool At(size_t nAlternative, const BODY& body)
    {
        if constexpr (I < sizeof...(TYPES)) {
            return nAlternative == I ? body(std::integral_constant<size_t, I>()) : At<I + 1>(nAlternative, body);
        }
        return true;
    }
};
#endif
/// \endcond

/// \}

#endif
