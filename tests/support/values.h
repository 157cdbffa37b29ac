// One value of each type that goes through an archive as a value, with the name that docs/values.md has for it.
#ifndef TESTS_SUPPORT_VALUES_H
#define TESTS_SUPPORT_VALUES_H

#include "mcl/mfc_stdvalue.h"
#include "mcl/tavnomcl.h"

// An enumeration, a class of the program's own, and one of somebody else.
enum class Level : signed char { Low = -1, Middle, High };
template <> struct VELM_CEnumRange<Level> : VELM_CFromTo<Level, Level::Low, Level::High> {
};
struct Size {
    int width, height;
    void Serialize(VELM_CArchive& ar) { ar & width & height; }
};
namespace geo {
struct Point {
    double x, y;
};
} // namespace geo
template <> struct VELM_CSerializer<geo::Point> {
    static void Serialize(VELM_CArchive& ar, geo::Point& r) { ar & r.x & r.y; }
};

// Calls visit(name, value) for each; a value is a const reference.
template <class VISIT> void VisitValues(const VISIT& visit)
{
    using namespace std::chrono;
    VELM_CStringArray strings;
    strings.Add("a"), strings.Add("");
    VELM_CObArray objects;
    objects.InsertAt(0, NULL, 2);
    VELM_CMap<fxStr, char*, int, int> byText;
    byText[const_cast<char*>("abc")] = 258;
    VELM_CMap<int, int, VELM_CString, const char*> byNumber;
    byNumber[7] = "x";
    visit("bool", true);
    visit("char", 'a');
    visit("short", static_cast<short>(-2));
    visit("int", -2);
    visit("unsigned", 70000u);
    visit("float", 1.0f);
    visit("double", -2.0);
    visit("VELM_CString", VELM_CString("abc"));
    visit("VELM_CTime", VELM_CTime(-2));
    visit("VELM_CTimeSpan", VELM_CTimeSpan(86400));
    visit("VELM_CStringArray", strings);
    visit("VELM_CObArray", objects);
    visit("VELM_CMap<fxStr, char*, int, int>", byText);
    visit("VELM_CMap<int, int, VELM_CString, const char*>", byNumber);
    visit("enum", Level::Low);
    visit("own", Size{1, 2});
    visit("other", geo::Point{1, -2});
    visit("string", std::string("a\0b", 3));
    visit("u16string", std::u16string(u"a\u20AC"));
    visit("u32string", std::u32string(U"\U0001F600"));
    visit("pair", std::pair<short, char>(1, 'a'));
    visit("tuple", std::tuple<char, short, std::string>('a', static_cast<short>(2), "b"));
    visit("array", std::array<short, 2>{{1, 2}});
    visit("vector", std::vector<short>{1, 2});
    visit("vector<bool>", std::vector<bool>{true, false});
    visit("vector<int64_t>", std::vector<int64_t>{-2, 1});
    visit("vector<uint64_t>", std::vector<uint64_t>{0x0102030405060708});
    visit("vector<long>", std::vector<long>{-3});
    visit("vector of enum", std::vector<Level>{Level::High});
    visit("vector of own", std::vector<Size>{{1, 2}});
    visit("vector of other", std::vector<geo::Point>{{1, -2}});
    visit("deque", std::deque<short>{1, 2});
    visit("list", std::list<short>{1, 2});
    visit("forward_list", std::forward_list<std::string>{"a", "b"});
    visit("set", std::set<char>{'b', 'a'});
    visit("multiset", std::multiset<char>{'b', 'a', 'b'});
    visit("unordered_set", std::unordered_set<short>{3, 1, 2});
    visit("unordered_multiset", std::unordered_multiset<short>{3, 1, 3});
    visit("map", std::map<char, short>{{'b', static_cast<short>(2)}, {'a', static_cast<short>(1)}});
    visit("multimap", std::multimap<char, char>{{'a', 'x'}, {'b', 'y'}, {'a', 'w'}});
    visit("unordered_map", std::unordered_map<int64_t, char>{{2, 'b'}, {-1, 'a'}});
    visit("unordered_multimap", std::unordered_multimap<char, char>{{'b', 'y'}, {'a', 'x'}});
    visit("bitset", std::bitset<11>(0x401));
    visit("complex", std::complex<float>(1, -2));
    visit("valarray", std::valarray<short>{1, 2});
    visit("duration", milliseconds(-2));
    visit("time_point", time_point<system_clock, seconds>(seconds(86400)));
    visit("optional", std::optional<char>('a'));
    visit("optional without a value", std::optional<char>());
    visit("variant", std::variant<char, std::string, std::monostate>(std::string("a")));
    visit("monostate", std::variant<char, std::monostate>(std::monostate()));
    visit("byte", std::byte{200});
    visit("path", std::filesystem::path("a/\u00E9"));
    visit("unique_ptr", std::unique_ptr<VELM_CObject>());
    visit("shared_ptr", std::shared_ptr<VELM_CObject>());
}

#endif
