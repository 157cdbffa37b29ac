// Arrays of strings and of pointers.
#include <glib.h>
#include <mcl/tavnomcl.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <vector>

#include <QStringList>
#include <QVector>

#include "bench.h"

namespace {

// Texts of 24 bytes, which are too long for the buffer inside a std::string object.
struct Texts {
    std::vector<char> block;
    explicit Texts(long n) : block(static_cast<size_t>(n) * 25)
    {
        for (long i = 0; i < n; ++i)
            std::snprintf(&block[static_cast<size_t>(i) * 25], 25, "%08x text %-10u",
                          bench::Scatter(static_cast<uint32_t>(i)), static_cast<unsigned>(i));
    }
    const char* operator[](long i) const { return &block[static_cast<size_t>(i) * 25]; }
};

struct OurStrings {
    VELM_CStringArray array, sorted;
    void Add(const char* psz) { array.Add(psz); }
    void Sort() { array.Sort(sorted); }
    long Count() const { return array.GetSize(); }
    bool IsAt(long i, const char* psz) const { return std::strcmp(array.m_data[i].m_data, psz) == 0; }
    std::string Sorted(long i) const { return sorted.m_data[i].m_data; }
};

struct StdStrings {
    std::vector<std::string> array, sorted;
    void Add(const char* psz) { array.push_back(psz); }
    void Sort()
    {
        sorted = array;
        std::sort(sorted.begin(), sorted.end());
    }
    long Count() const { return static_cast<long>(array.size()); }
    bool IsAt(long i, const char* psz) const { return array[static_cast<size_t>(i)] == psz; }
    std::string Sorted(long i) const { return sorted[static_cast<size_t>(i)]; }
};

struct QtStrings {
    QStringList array, sorted;
    void Add(const char* psz) { array.append(QString::fromLatin1(psz)); }
    void Sort()
    {
        sorted = array;
        sorted.sort();
    }
    long Count() const { return array.size(); }
    bool IsAt(long i, const char* psz) const { return array[static_cast<int>(i)] == QLatin1String(psz); }
    std::string Sorted(long i) const { return sorted[static_cast<int>(i)].toStdString(); }
};

struct GlibStrings {
    GPtrArray* array = g_ptr_array_new_with_free_func(g_free);
    GPtrArray* sorted = g_ptr_array_new_with_free_func(g_free);
    ~GlibStrings()
    {
        g_ptr_array_unref(array);
        g_ptr_array_unref(sorted);
    }
    static gint Compare(gconstpointer a, gconstpointer b)
    {
        return std::strcmp(*static_cast<char* const*>(a), *static_cast<char* const*>(b));
    }
    static const char* At(const GPtrArray* p, long i) { return static_cast<const char*>(p->pdata[i]); }
    void Add(const char* psz) { g_ptr_array_add(array, g_strdup(psz)); }
    void Sort()
    {
        for (guint i = 0; i < array->len; ++i)
            g_ptr_array_add(sorted, g_strdup(static_cast<const char*>(array->pdata[i])));
        g_ptr_array_sort(sorted, Compare);
    }
    long Count() const { return array->len; }
    bool IsAt(long i, const char* psz) const { return std::strcmp(At(array, i), psz) == 0; }
    std::string Sorted(long i) const { return At(sorted, i); }
};

template <class ARRAY> void AddStrings(const std::string& candidate)
{
    bench::Add("strings/add/" + candidate, [](benchmark::State& state, long n) {
        const Texts texts(n);
        for (auto _ : state) {
            ARRAY array;
            bench::Timed(state, [&] {
                for (long i = 0; i < n; ++i)
                    array.Add(texts[i]);
            });
            bool bGood = array.Count() == n;
            for (long i = 0; bGood && i < n; ++i)
                bGood = array.IsAt(i, texts[i]);
            bench::Check(state, bGood);
        }
    });
    bench::Add("strings/sort/" + candidate, [](benchmark::State& state, long n) {
        const Texts texts(n);
        std::vector<std::string> expected;
        for (long i = 0; i < n; ++i)
            expected.push_back(texts[i]);
        std::sort(expected.begin(), expected.end());
        for (auto _ : state) {
            ARRAY array;
            for (long i = 0; i < n; ++i)
                array.Add(texts[i]);
            bench::Timed(state, [&] { array.Sort(); });
            bool bGood = true;
            for (long i = 0; bGood && i < n; ++i)
                bGood = array.Sorted(i) == expected[static_cast<size_t>(i)];
            bench::Check(state, bGood);
        }
    });
}

struct OurPointers {
    VELM_CPtrArray array;
    void Add(int i, void* p) { array.SetAtGrow(i, p); }
    void* At(int i) const { return array.GetAt(i); }
};
struct StdPointers {
    std::vector<void*> array;
    void Add(int, void* p) { array.push_back(p); }
    void* At(int i) const { return array[static_cast<size_t>(i)]; }
};
struct QtPointers {
    QVector<void*> array;
    void Add(int, void* p) { array.append(p); }
    void* At(int i) const { return array[i]; }
};
struct GlibPointers {
    GPtrArray* array = g_ptr_array_new();
    ~GlibPointers() { g_ptr_array_unref(array); }
    void Add(int, void* p) { g_ptr_array_add(array, p); }
    void* At(int i) const { return array->pdata[i]; }
};

template <class ARRAY> void AddPointers(const std::string& candidate)
{
    bench::Add("pointers/grow/" + candidate, [](benchmark::State& state, long n) {
        std::vector<char> places(static_cast<size_t>(n));
        for (auto _ : state) {
            ARRAY array;
            bench::Timed(state, [&] {
                for (int i = 0; i < n; ++i)
                    array.Add(i, &places[static_cast<size_t>(i)]);
            });
            bool bGood = true;
            for (int i = 0; bGood && i < n; ++i)
                bGood = array.At(i) == &places[static_cast<size_t>(i)];
            bench::Check(state, bGood);
        }
    });
}

} // namespace

void bench::AddArrays()
{
    AddStrings<StdStrings>("std");
    AddStrings<QtStrings>("Qt");
    AddStrings<GlibStrings>("GLib");
    AddStrings<OurStrings>("ours");
    AddPointers<StdPointers>("std");
    AddPointers<QtPointers>("Qt");
    AddPointers<GlibPointers>("GLib");
    AddPointers<OurPointers>("ours");
}
