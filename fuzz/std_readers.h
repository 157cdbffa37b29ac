// Readers of every value that goes through an archive, for the fuzzer: one for each row of VisitValues.
#ifndef FUZZ_STD_READERS_H
#define FUZZ_STD_READERS_H

#include "tests/support/graph.h"
#include "tests/support/values.h"

// How many there are.
inline unsigned StdReaderCount()
{
    unsigned nReaders = 0;
    VisitValues([&](const char*, const auto&) { ++nReaders; });
    return nReaders;
}

// Loads a value of the type of that number twice over the same one, as far as the data goes. Whatever came, it can be
// stored, and what was stored is loaded and stored the same again.
inline void ReadStdValue(unsigned nReader, VELM_CArchive& ar)
{
    ar.SetClassTable(&GraphClasses());
    unsigned nAt = 0;
    VisitValues([&](const char*, const auto& row) {
        if (nAt++ != nReader)
            return;
        typedef typename std::decay<decltype(row)>::type Type;
        Type value{}, again{};
        const int nRaised = pfm_protect([&] { ar & value & value; });
        VELM_CMemoryFile first, second;
        const auto Store = [](VELM_CMemoryFile& file, Type& rValue) {
            VELM_CArchive to(&file, VELM_CArchive::store);
            if (pfm_protect([&] { to& rValue; }) != 0)
                to.Abort();
            return to.IsWhole() != 0;
        };
        if (Store(first, value) && nRaised == 0) {
            VELM_CMemoryFile stored(first.GetBytes(), first.GetSize());
            VELM_CArchive from(&stored, VELM_CArchive::load);
            from.SetClassTable(&GraphClasses());
            if (pfm_protect([&] { from& again; }) != 0 || from.IsAtEnd() == 0 || !Store(second, again) ||
                first.GetSize() != second.GetSize() ||
                memcmp(first.GetBytes(), second.GetBytes(), first.GetSize()) != 0)
                __builtin_trap();
            from.DeleteLoadedObjects();
        }
        ar.DeleteLoadedObjects();
    });
}

// The bytes of the row of that number, as an input.
inline void StoreStdValue(unsigned nReader, VELM_CArchive& ar)
{
    unsigned nAt = 0;
    VisitValues([&](const char*, const auto& row) {
        if (nAt++ == nReader)
            ar << row;
    });
}

#endif
