// Benchmarks of maps from pointers and from strings: set, get and remove each key.
#include <absl/container/flat_hash_map.h>
#include <glib.h>
#include <mcl/tavnomcl.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <unordered_map>
#include <vector>

#include <QByteArray>
#include <QHash>

#include "bench.h"

namespace {

// Pointers to objects of 32 bytes. Their first words, which our map hashes, differ; or they are all the same, as in
// objects of one class.
template <bool IS_ONE_CLASS> struct Pointers {
    struct Object {
        uint32_t nWord, rest[7];
    };
    typedef void* Key;
    std::vector<Object> objects;
    std::vector<Key> keys;
    explicit Pointers(long n) : objects(static_cast<size_t>(n))
    {
        for (Object& object : objects) {
            object.nWord = IS_ONE_CLASS ? 4711 : bench::Scatter(static_cast<uint32_t>(keys.size()));
            keys.push_back(&object);
        }
    }
};

struct Strings {
    typedef char* Key;
    std::vector<std::string> texts;
    std::vector<Key> keys;
    explicit Strings(long n)
    {
        for (long i = 0; i < n; ++i)
            texts.push_back("the key with number " + std::to_string(i));
        for (std::string& text : texts)
            keys.push_back(&text[0]);
    }
};

template <class MAP> struct StdLike {
    MAP map;
    explicit StdLike(long) {}
    template <class KEY> void Set(KEY key, int n) { map[key] = n; }
    template <class KEY> int Get(KEY key) const
    {
        const auto it = map.find(key);
        return it == map.end() ? -1 : it->second;
    }
    template <class KEY> void Remove(KEY key) { map.erase(key); }
    long Count() const { return static_cast<long>(map.size()); }
};
typedef StdLike<std::unordered_map<void*, int>> StdPointers;
typedef StdLike<std::unordered_map<std::string, int>> StdStrings;
typedef StdLike<absl::flat_hash_map<void*, int>> AbseilPointers;
typedef StdLike<absl::flat_hash_map<std::string, int>> AbseilStrings;

template <class KEY> struct Qt5 {
    QHash<KEY, int> map;
    explicit Qt5(long) {}
    void Set(const KEY& key, int n) { map.insert(key, n); }
    int Get(const KEY& key) const { return map.value(key, -1); }
    void Remove(const KEY& key) { map.remove(key); }
    long Count() const { return map.size(); }
};

template <bool OF_STRINGS> struct Glib {
    GHashTable* map = OF_STRINGS ? g_hash_table_new_full(g_str_hash, g_str_equal, g_free, nullptr)
                                 : g_hash_table_new(nullptr, nullptr);
    explicit Glib(long) {}
    ~Glib() { g_hash_table_unref(map); }
    void Set(void* key, int n)
    {
        void* own = OF_STRINGS ? g_strdup(static_cast<char*>(key)) : key;
        g_hash_table_insert(map, own, GINT_TO_POINTER(n));
    }
    int Get(void* key) const
    {
        void* value = nullptr;
        return g_hash_table_lookup_extended(map, key, nullptr, &value) ? GPOINTER_TO_INT(value) : -1;
    }
    void Remove(void* key) { g_hash_table_remove(map, key); }
    long Count() const { return g_hash_table_size(map); }
};

// Our map with the 17 buckets that it has by default or, if IS_WIDE, with twice as many buckets as keys.
template <bool IS_WIDE> struct OurPointers {
    VELM_CMapPtrToPtr map;
    explicit OurPointers(long n)
    {
        if (IS_WIDE)
            map.InitHashTable(2 * static_cast<unsigned>(n) + 1);
    }
    void Set(void* key, int n) { map.SetAt(key, reinterpret_cast<void*>(static_cast<intptr_t>(n))); }
    int Get(void* key) const
    {
        void* value;
        return map.Lookup(key, value) ? static_cast<int>(reinterpret_cast<intptr_t>(value)) : -1;
    }
    void Remove(void* key) { map.RemoveKey(key); }
    long Count() const { return map.GetCount(); }
};

template <bool IS_WIDE> struct OurStrings {
    VELM_CMap<fxStr, char*, int, int> map;
    explicit OurStrings(long n)
    {
        if (IS_WIDE)
            map.InitHashTable(2 * static_cast<unsigned>(n) + 1);
    }
    void Set(char* key, int n) { map.SetAt(key, n); }
    int Get(char* key) const
    {
        int n;
        return map.Lookup(key, n) ? n : -1;
    }
    void Remove(char* key) { map.RemoveKey(key); }
    long Count() const { return map.GetCount(); }
};

template <class KEYS, class MAP> void Fill(MAP& map, const KEYS& keys)
{
    for (size_t i = 0; i < keys.keys.size(); ++i)
        map.Set(keys.keys[i], static_cast<int>(i));
}

template <class KEYS, class MAP> void AddMap(const std::string& workload, const std::string& candidate)
{
    bench::Add(workload + "/set/" + candidate, [](benchmark::State& state, long n) {
        const KEYS keys(n);
        for (auto _ : state) {
            MAP map(n);
            bench::Timed(state, [&] { Fill(map, keys); });
            bool bGood = map.Count() == n;
            // Getting up to about a thousand keys checks the setting.
            for (long i = 0; bGood && i < n; i += 1 + n / 1000)
                bGood = map.Get(keys.keys[static_cast<size_t>(i)]) == i;
            bench::Check(state, bGood);
        }
    });
    bench::Add(workload + "/get/" + candidate, [](benchmark::State& state, long n) {
        const KEYS keys(n);
        MAP map(n);
        Fill(map, keys);
        for (auto _ : state) {
            bool bGood = true;
            const auto getAll = [&] {
                for (long i = 0; i < n; ++i)
                    bGood &= map.Get(keys.keys[static_cast<size_t>(i)]) == i;
            };
            bench::Timed(state, getAll, 1 + 100000 / n);
            bench::Check(state, bGood);
        }
    });
    bench::Add(workload + "/remove/" + candidate, [](benchmark::State& state, long n) {
        const KEYS keys(n);
        std::vector<typename KEYS::Key> order = keys.keys;
        for (size_t i = order.size(); i > 1; --i)
            std::swap(order[i - 1], order[bench::Scatter(static_cast<uint32_t>(i)) % i]);
        for (auto _ : state) {
            MAP map(n);
            Fill(map, keys);
            const bool bFull = map.Count() == n;
            bench::Timed(state, [&] {
                for (const auto& key : order)
                    map.Remove(key);
            });
            bench::Check(state, bFull && map.Count() == 0);
        }
    });
}

template <bool IS_ONE_CLASS> void AddPointerMaps(const std::string& workload)
{
    typedef Pointers<IS_ONE_CLASS> Keys;
    AddMap<Keys, StdPointers>(workload, "std");
    AddMap<Keys, AbseilPointers>(workload, "abseil");
    AddMap<Keys, Qt5<void*>>(workload, "Qt");
    AddMap<Keys, Glib<false>>(workload, "GLib");
    AddMap<Keys, OurPointers<false>>(workload, "ours");
    AddMap<Keys, OurPointers<true>>(workload, "ours, wide");
}

} // namespace

void bench::AddMaps()
{
    AddPointerMaps<false>("ptrmap");
    AddPointerMaps<true>("ptrmap1"); // keys of one class
    AddMap<Strings, StdStrings>("strmap", "std");
    AddMap<Strings, AbseilStrings>("strmap", "abseil");
    AddMap<Strings, Qt5<QByteArray>>("strmap", "Qt");
    AddMap<Strings, Glib<true>>("strmap", "GLib");
    AddMap<Strings, OurStrings<false>>("strmap", "ours");
    AddMap<Strings, OurStrings<true>>("strmap", "ours, wide");
}
