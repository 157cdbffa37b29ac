/// \file
/// How maps find their keys without walking chains: the index of a map, and the hash values of keys for it.
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

/// Hashes the bytes of keys. Each hasher has a random seed, so that nobody can choose keys whose hash values are equal.
class VELM_API VELM_CKeyHasher {
public:
    /// A hasher with a new random seed.
    VELM_CKeyHasher();
    /// The hash value of `nBytes` bytes; another hasher gives another one.
    unsigned operator()(const void* pBytes, unsigned long nBytes) const;

private:
    uint64_t m_seed[2];
};

/// Gives the keys of a type a hash value for a hidden index, by which a map finds them without walking its chains.
///
/// `Hash` returns the hash value of a key, and of an argument that a map takes in a key's place. Keys that are equal
/// by `CompareElements` must have equal hash values. Integers, enumerations, pointers, `VELM_CString`, `std::string`
/// and `fxStr` have a hash value; for keys of other types a map walks its chains. A program specialises this template
/// for keys of its own before it uses the map:
///
///     template <> struct VELM_CKeyIndex<Point> {
///         static unsigned Hash(const VELM_CKeyHasher& hasher, Point key) { return hasher(&key, sizeof key); }
///     };
///
/// This example requires that `Point` has no padding, so that equal points have equal bytes. A program that changes
/// `CompareElements` for a key type specialises this template without `Hash`: then the map walks its chains.
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
// The hash values of a map's keys and of the arguments in their place; bIndexed is 0 if they have none.
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

// The node of the pointer-keyed map where pointers have 64 bits. Its 8 bytes of padding, the gaps, are for the index.
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

// A place in the first table of an index, of an entry or free for one.
struct VELM_CMapPlace {
    void* pLine;
    unsigned i;
};

// The index of a map, which mfc_cmapindex.cc explains.
class VELM_API VELM_CMapIndex {
public:
    enum {
        nFewest = 48, // a map with fewer entries has no index, since it would not be faster with one
        nNear = 8     // so many nodes of a chain are walked before an index, or its second table, is made
    };

    // Fields of a map. If they differ from the index's copy of them, a program has changed the map by hand, and the
    // index must not be used.
    struct Chains {
        VELM_CMapLink* pHeads;
        unsigned nBuckets;
        int nCount;
    };
    // The tag of a node's key.
    typedef unsigned (*TagProc)(const VELM_CKeyHasher& hasher, const VELM_CMapNode* pNode);
    // Whether a node has the key.
    typedef bool (*MatchesProc)(const VELM_CMapNode* pNode, const void* pKey);

    // Makes an index of the nodes on the chains. Returns NULL when there is no memory, and Never() if the chains have
    // more nodes than the map counts. bGaps says that the nodes are laid out as VELM_CMapGapNode.
    static VELM_CMapIndex* Make(const Chains& of, TagProc pfnTag, bool bGaps);
    // A mark in place of an index: the map makes none until it is empty again.
    static VELM_CMapIndex* Never() { return reinterpret_cast<VELM_CMapIndex*>(1); }
    static bool Is(const VELM_CMapIndex* pIndex) { return reinterpret_cast<uintptr_t>(pIndex) > 1; }
    static void Delete(VELM_CMapIndex* pIndex);
    bool IsOf(const Chains& of) const
    {
        return of.nCount == m_of.nCount && of.pHeads == m_of.pHeads && of.nBuckets == m_of.nBuckets;
    }
    // The node of the key in the bucket, and its place. NULL when there is none: then the place is free for it.
    VELM_CMapNode* Find(unsigned nTag, unsigned nBucket, MatchesProc pfnMatches, const void* pKey,
                        VELM_CMapPlace& rPlace) const;
    // Adds a node that has become the head of its chain. False when there is no memory for it.
    bool Add(const VELM_CMapPlace& place, unsigned nTag, VELM_CMapNode* pNode);
    // Removes the node at the place from its chain and from the index. False, and nothing is changed, when the node is
    // not on the chain.
    bool Unlink(const VELM_CMapPlace& place, VELM_CMapNode* pNode);
    // Follows the map's own count, which the map lowers when it frees an unlinked node.
    void CountRemoved() { --m_of.nCount; }

    const VELM_CKeyHasher m_hasher;

protected:
    explicit VELM_CMapIndex(const Chains& of) : m_of(of) {}
    Chains m_of;
};
/// \endcond

/// \}

#endif
