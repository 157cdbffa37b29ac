"""values_test.py PROGRAM...

Holds docs/values.md against what PROGRAM prints: a value of each type, with its bytes. The page shows the same bytes, and
an archive of all of them, one behind the other, is read by decode.py to be what it should.
"""

import os
import re
import subprocess
import sys

sys.dont_write_bytecode = True  # leaves the source tree as it is
import decode

PAGE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "docs", "values.md")


def byte(a):
    return a.bytes(1)[0]


def char(a):
    return a.bytes(1).decode()


def i16(a):
    return a.integer(2)


def i32(a):
    return a.integer(4)


def i64(a):
    return a.integer(8)


def several(*readers):
    return lambda a: tuple(read(a) for read in readers)


string, f32, f64 = decode.Archive.string, lambda a: a.number(4), lambda a: a.number(8)
shorts = lambda a: a.sequence(i16)
first = lambda pair: pair[0]
WANTED = {
    "bool": (decode.Archive.boolean, True), "char": (char, "a"), "short": (i16, -2), "int": (i32, -2),
    "unsigned": (decode.Archive.u32, 70000), "float": (f32, 1), "double": (f64, -2), "VELM_CString": (string, b"abc"),
    "VELM_CTime": (i64, -2), "VELM_CTimeSpan": (i64, 86400),
    "VELM_CStringArray": (lambda a: a.sequence(string), [b"a", b""]),
    "VELM_CObArray": (lambda a: a.sequence(decode.Archive.reference), [None, None]),
    "VELM_CMap<fxStr, char*, int, int>": (lambda a: a.sequence(several(string, i32)), [(b"abc", 258)]),
    "VELM_CMap<int, int, VELM_CString, const char*>": (lambda a: a.sequence(several(i32, string)), [(7, b"x")]),
    "enum": (i32, -1), "own": (several(i32, i32), (1, 2)), "other": (several(f64, f64), (1, -2)),
    "string": (string, b"a\0b"), "u16string": (lambda a: a.text(2), "a\u20ac"),
    "u32string": (lambda a: a.text(4), "\U0001F600"), "pair": (several(i16, char), (1, "a")),
    "tuple": (several(char, i16, string), ("a", 2, b"b")), "array": (several(i16, i16), (1, 2)), "vector": (shorts, [1, 2]),
    "vector<bool>": (lambda a: a.sequence(decode.Archive.boolean), [True, False]),
    "vector<int64_t>": (lambda a: a.sequence(i64), [-2, 1]),
    "vector<uint64_t>": (lambda a: a.sequence(i64), [0x0102030405060708]), "vector<long>": (lambda a: a.sequence(i64), [-3]),
    "vector of enum": (lambda a: a.sequence(i32), [1]), "vector of own": (lambda a: a.sequence(several(i32, i32)), [(1, 2)]),
    "vector of other": (lambda a: a.sequence(several(f64, f64)), [(1, -2)]), "deque": (shorts, [1, 2]), "list": (shorts, [1, 2]),
    "forward_list": (lambda a: a.sequence(string), [b"a", b"b"]), "set": (lambda a: a.ascending(char), ["a", "b"]),
    "multiset": (lambda a: a.ascending(char), ["a", "b", "b"]), "unordered_set": (lambda a: a.ascending(i16), [1, 2, 3]),
    "unordered_multiset": (lambda a: a.ascending(i16), [1, 3, 3]),
    "map": (lambda a: a.ascending(several(char, i16), first), [("a", 1), ("b", 2)]),
    "multimap": (lambda a: a.ascending(several(char, char), first), [("a", "x"), ("a", "w"), ("b", "y")]),
    "unordered_map": (lambda a: a.ascending(several(i64, char), first), [(-1, "a"), (2, "b")]),
    "unordered_multimap": (lambda a: a.ascending(several(char, char), first), [("a", "x"), ("b", "y")]),
    "bitset": (lambda a: a.bits(11), [0, 10]), "complex": (several(f32, f32), (1, -2)), "valarray": (shorts, [1, 2]),
    "duration": (i64, -2), "time_point": (i64, 86400),
    "optional": (lambda a: char(a) if a.boolean() else None, "a"),
    "optional without a value": (lambda a: char(a) if a.boolean() else None, None),
    "variant": (lambda a: a.variant(char, string, several()), (1, b"a")),
    "monostate": (lambda a: a.variant(char, several()), (1, ())), "byte": (byte, 200),
    "path": (lambda a: string(a).decode(), "a/\u00e9"), "unique_ptr": (decode.Archive.reference, None),
    "shared_ptr": (decode.Archive.reference, None),
}


def main(command):
    lines = subprocess.run(command, stdout=subprocess.PIPE, check=True).stdout.decode().splitlines()
    printed = dict(line.rsplit(":", 1) for line in lines)
    with open(PAGE, encoding="utf-8") as file:
        shown = dict(re.findall(r"^\| `([^`]+)` \|.*\| `([0-9A-F ]+)` \|$", file.read(), re.M))
    for name in set(printed) | set(shown) | set(WANTED):
        if not printed.get(name, "").strip() == shown.get(name) or name not in WANTED:
            sys.exit("%s: printed %s, shown %s" % (name, printed.get(name), shown.get(name)))
    archive = decode.Archive(bytes.fromhex("".join(printed.values())), {})
    for name in printed:
        read, wanted = WANTED[name]
        found = read(archive)
        if found != wanted:
            sys.exit("%s: %r, expected %r" % (name, found, wanted))
    archive.check(archive.offset == len(archive.data), "there is more")


main(sys.argv[1:])
