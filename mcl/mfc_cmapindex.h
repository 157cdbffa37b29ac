/// \file
/// How maps find their keys without walking chains: which keys have hash values for that, and the index that they have.
#ifndef TAVNOMCL_MFC_CMAPINDEX_H
#define TAVNOMCL_MFC_CMAPINDEX_H

#include <stdint.h>
#include <string.h>

#include <string>
#include <type_traits>
#include <utility>

#include "host/fxStr.h"
#include "mcl/mfc_base.h"
#include "mcl/mfc_cstring.h"

/// \addtogroup collections
/// \{

/// Hashes the bytes of keys with a seed of its own, so that nobody can choose keys whose hash values are equal.
class VELM_API VELM_CKeyHasher {
public:
    /// With a random seed.
    VELM_CKeyHasher();
    /// The hash value of the bytes, as far as this hasher is concerned.
    unsigned operator()(const void* pBytes, unsigned long nBytes) const;

private:
    uint64_t m_seed[2];
};

/// How a map finds keys of a type without walking its chains, by a hidden index: `Hash` gives the hash value of a key,
/// and of whatever a map is given in its place. Equal keys, as `CompareElements` has it, must have equal hash values.
/// In general there is none, and chains are walked. There is one for integers, enumerations, pointers, `VELM_CString`,
/// `std::string` and `fxStr`. A program specialises this for keys of its own, before it uses the map:
///
///     template <> struct VELM_CKeyIndex<Point> {
///         static unsigned Hash(const VELM_CKeyHasher& hasher, Point key) { return hasher(&key, sizeof key); }
///     };
///
/// (Equal points have equal bytes, since a point has no padding.) A specialisation without `Hash` has the map walk its
/// chains, for a type whose `CompareElements` the program changes.
template <class KEY, class = void> struct VELM_CKeyIndex {
};
/// \cond
template <class KEY>
struct VELM_CKeyIndex<KEY, typename std::enable_if<std::is_integral<KEY>::value || std::is_enum<KEY>::value ||
                                                   std::is_pointer<KEY>::value>::type> {
    template <class ARG_KEY>
    static typename std::enable_if<std::is_convertible<ARG_KEY, KEY>::value && !std::is_floating_point<ARG_KEY>::value,
                                   unsigned>::type
    Hash(const VELM_CKeyHasher& hasher, ARG_KEY arg)
    {
        const KEY key = static_cast<KEY>(arg);
        return hasher(&key, sizeof key);
    }
};
struct VELM_CTextIndex {
    static unsigned Hash(const VELM_CKeyHasher& hasher, const char* key)
    {
        return hasher(key, key == NULL ? 0 : strlen(key));
    }
};
template <> struct VELM_CKeyIndex<VELM_CString> : VELM_CTextIndex {
    using VELM_CTextIndex::Hash;
    static unsigned Hash(const VELM_CKeyHasher& hasher, const VELM_CString& key) { return Hash(hasher, key.m_data); }
};
template <> struct VELM_CKeyIndex<fxStr> : VELM_CTextIndex {
    using VELM_CTextIndex::Hash;
    static unsigned Hash(const VELM_CKeyHasher& hasher, const fxStr& key)
    {
        return Hash(hasher, static_cast<const char*>(key));
    }
};
template <> struct VELM_CKeyIndex<std::string> : VELM_CTextIndex {
    using VELM_CTextIndex::Hash;
    static unsigned Hash(const VELM_CKeyHasher& hasher, const std::string& key)
    {
        return hasher(key.data(), key.size());
    }
};
// The same with no hash value where the key, or what stands for it, has none.
template <class KEY, class ARG_KEY, class = void> struct VELM_CTagOf {
    enum { bIndexed = 0 };
    static unsigned Tag(const VELM_CKeyHasher&, const ARG_KEY&) { return 0; }
    static unsigned TagOfKey(const VELM_CKeyHasher&, const KEY&) { return 0; }
};
template <class KEY, class ARG_KEY>
struct VELM_CTagOf<KEY, ARG_KEY,
                   decltype(void(VELM_CKeyIndex<KEY>::Hash(std::declval<const VELM_CKeyHasher&>(),
                                                           std::declval<const ARG_KEY&>())))> {
    enum { bIndexed = 1 };
    static unsigned Tag(const VELM_CKeyHasher& hasher, const ARG_KEY& key)
    {
        return VELM_CKeyIndex<KEY>::Hash(hasher, key);
    }
    static unsigned TagOfKey(const VELM_CKeyHasher& hasher, const KEY& key)
    {
        return VELM_CKeyIndex<KEY>::Hash(hasher, key);
    }
};

// What the nodes of all maps begin with.
struct __attribute__((may_alias)) VELM_CMapNode {
    VELM_CMapNode* pNext;
    unsigned nHashValue;
};

// The node of the pointer-keyed map where pointers have 64 bits: 8 of its bytes are no field's, and are the index's to
// use.
struct VELM_CMapGapNode {
    VELM_CMapNode* pNext;
    unsigned nHashValue;
    uint32_t nLinkLow;
    void* key;
    void* value;
    unsigned nValue;
    uint32_t nLinkHigh;
};

// A link of a chain, whatever the map's nodes are.
typedef VELM_CMapNode* __attribute__((may_alias)) VELM_CMapLink;

// A place in an index, for an entry that is there or may be put there.
struct VELM_CMapPlace {
    void* pLine;
    unsigned i;
};

// Finds the nodes of a map without walking its chains; see mfc_cmapindex.cc.
class VELM_API VELM_CMapIndex {
public:
    enum {
        nFewest = 48, // entries of a map that has an index: fewer are found as quickly without one
        nNear = 8     // nodes of a chain that are walked before what spares that is made
    };

    // The fields of a map. Where they are other ones than when the index was used last, somebody else has changed the
    // map, and the index is no longer right.
    struct Chains {
        VELM_CMapLink* pHeads;
        unsigned nBuckets;
        int nCount;
    };
    // The tag of a node's key.
    typedef unsigned (*TagProc)(const VELM_CKeyHasher& hasher, const VELM_CMapNode* pNode);
    // Whether a node has the key.
    typedef bool (*MatchesProc)(const VELM_CMapNode* pNode, const void* pKey);

    // An index of what is on the chains. NULL without memory; Never() if that are not as many nodes as are counted.
    // bGaps: the nodes are laid out as VELM_CMapGapNode.
    static VELM_CMapIndex* Make(const Chains& of, TagProc pfnTag, bool bGaps);
    // Stands in the place of an index in a map that has none until it is empty again.
    static VELM_CMapIndex* Never() { return reinterpret_cast<VELM_CMapIndex*>(1); }
    static bool Is(const VELM_CMapIndex* pIndex) { return reinterpret_cast<uintptr_t>(pIndex) > 1; }
    static void Delete(VELM_CMapIndex* pIndex);
    bool IsOf(const Chains& of) const
    {
        return of.nCount == m_of.nCount && of.pHeads == m_of.pHeads && of.nBuckets == m_of.nBuckets;
    }
    // The node of a key in the bucket. NULL when there is none, and the place is for it.
    VELM_CMapNode* Find(unsigned nTag, unsigned nBucket, MatchesProc pfnMatches, const void* pKey,
                        VELM_CMapPlace& rPlace) const;
    // A node has been made the head of its chain. False when there is no memory to note it.
    bool Add(const VELM_CMapPlace& place, unsigned nTag, VELM_CMapNode* pNode);
    // Takes the node at the place off its chain. False, and nothing is changed, when it is not there.
    bool Unlink(const VELM_CMapPlace& place, VELM_CMapNode* pNode);
    // The map counts the unlinked node no longer.
    void CountRemoved() { --m_of.nCount; }

    const VELM_CKeyHasher m_hasher;

protected:
    explicit VELM_CMapIndex(const Chains& of) : m_of(of) {}
    Chains m_of;
};
/// \endcond

/// \}

#endif
