/// \file
/// Further values of the standard library in an archive: `complex`, `valarray`, `chrono` durations and times of day
/// and, from C++17 on, `filesystem::path`. These are apart from `mfc_std.h` because of their standard headers: a source
/// file that includes nothing else takes g++ about 1.1 seconds, where one with `mfc_std.h` takes 0.6.
///
/// A duration is the count of its own period in 8 bytes, so that it is loaded as the type that it was stored as: the
/// period is not in the stream. Its count is an integer. A time is one of `std::chrono::system_clock`; other clocks
/// begin anew when the machine does. What does not fit into the type that it is loaded into raises 1.
///
/// A path is a string of the bytes that the system has for it: on Linux UTF-8, with `/`, as programs use it.
#ifndef TAVNOMCL_MFC_STDVALUE_H
#define TAVNOMCL_MFC_STDVALUE_H

#include <limits.h>

#include <chrono>
#include <complex>
#include <valarray>
#if __cplusplus >= 201703L
#include <filesystem>
#endif

#include "mcl/mfc_std.h"

/// \addtogroup standard
/// \{

/// \cond
template <class TYPE> struct VELM_CIsBlock<std::complex<TYPE>> : VELM_CIsBlock<TYPE> {
};
template <class TYPE> struct VELM_CForm<std::complex<TYPE>> : VELM_CPartsForm<TYPE> {
    template <class HOW> static void Store(VELM_CArchive& ar, const std::complex<TYPE>& value, HOW how)
    {
        VELM_CForm<TYPE>::Store(ar, value.real(), how);
        VELM_CForm<TYPE>::Store(ar, value.imag(), how);
    }
    template <class HOW> static unsigned Load(VELM_CArchive& ar, std::complex<TYPE>& rValue, HOW how)
    {
        TYPE real = TYPE(), imaginary = TYPE();
        VELM_CForm<TYPE>::Load(ar, real, how);
        VELM_CForm<TYPE>::Load(ar, imaginary, how);
        if (!ar.IsDataEnded())
            rValue = std::complex<TYPE>(real, imaginary);
        return 0;
    }
    template <class HOW> static bool MayReplace(VELM_CArchive&, const std::complex<TYPE>&, HOW) { return true; }
};

// As a vector, and loaded as one: a valarray does not grow.
template <class TYPE> struct VELM_CForm<std::valarray<TYPE>> : VELM_CPartsForm<TYPE> {
    typedef std::vector<TYPE> Vector;
    enum { nLeast = 4 };
    template <class HOW> static void Store(VELM_CArchive& ar, const std::valarray<TYPE>& values, HOW how)
    {
        typedef VELM_CContainerForm<std::valarray<TYPE>, TYPE, VELM_CForm<TYPE>> Form;
        Form::Store(ar, values, how);
    }
    template <class HOW> static unsigned Load(VELM_CArchive& ar, std::valarray<TYPE>& rValues, HOW how)
    {
        static_assert(!VELM_CForm<TYPE>::template bOwner<HOW>() || VELM_CForm<TYPE>::nLeast == 0,
                      "the elements of a valarray own no objects");
        if (!ar.CanLoad())
            return VELM_CArchive::nRefused;
        rValues.resize(0);
        return AfxLoadHeld<Vector>(ar, how, [&](Vector& rHeld) {
            rValues.resize(rHeld.size());
            std::copy(rHeld.begin(), rHeld.end(), std::begin(rValues));
        });
    }
    template <class HOW> static bool MayReplace(VELM_CArchive&, const std::valarray<TYPE>&, HOW) { return true; }
};

template <class REP, class PERIOD>
struct VELM_CForm<std::chrono::duration<REP, PERIOD>, typename std::enable_if<std::is_integral<REP>::value>::type>
    : VELM_CLeafForm<std::chrono::duration<REP, PERIOD>, VELM_CForm<std::chrono::duration<REP, PERIOD>>, 8> {
    typedef std::chrono::duration<REP, PERIOD> Duration;
    static void Put(VELM_CArchive& ar, Duration value)
    {
        const long long nCount = static_cast<long long>(value.count());
        if ((nCount < 0) == (value.count() < REP()))
            ar.WriteInt64(nCount);
        else
            ar.RaiseInvalid("a duration does not fit into 8 bytes with a sign");
    }
    static void Get(VELM_CArchive& ar, Duration& rValue)
    {
        unsigned long long nBits = 0;
        if (!ar.Load64(nBits)) {
            ar.RaiseDataEnded();
            return;
        }
        const long long nCount = static_cast<long long>(nBits);
        const REP count = static_cast<REP>(nCount);
        if (static_cast<long long>(count) == nCount && (count < REP()) == (nCount < 0))
            rValue = Duration(count);
        else
            ar.RaiseInvalid("a duration does not fit into its type");
    }
};
template <class DURATION>
struct VELM_CForm<std::chrono::time_point<std::chrono::system_clock, DURATION>,
                  typename std::enable_if<std::is_integral<typename DURATION::rep>::value>::type>
    : VELM_CLeafForm<std::chrono::time_point<std::chrono::system_clock, DURATION>,
                     VELM_CForm<std::chrono::time_point<std::chrono::system_clock, DURATION>>, 8> {
    typedef std::chrono::time_point<std::chrono::system_clock, DURATION> Time;
    static void Put(VELM_CArchive& ar, Time time) { VELM_CForm<DURATION>::Put(ar, time.time_since_epoch()); }
    static void Get(VELM_CArchive& ar, Time& rTime)
    {
        DURATION sinceEpoch = rTime.time_since_epoch();
        VELM_CForm<DURATION>::Get(ar, sinceEpoch);
        rTime = Time(sinceEpoch);
    }
};

#if __cplusplus >= 201703L
template <>
struct VELM_CForm<std::filesystem::path> : VELM_CLeafForm<std::filesystem::path, VELM_CForm<std::filesystem::path>, 1> {
    static void Put(VELM_CArchive& ar, const std::filesystem::path& path) { ar << path.native(); }
    static void Get(VELM_CArchive& ar, std::filesystem::path& rPath)
    {
        if (ar.CanLoad())
            AfxLoadHeld<std::string>(ar, VELM_CRefers(), [&](std::string& rHeld) { rPath = std::move(rHeld); });
    }
};
#endif
/// \endcond

/// \}

#endif
