#!/usr/bin/env python3
"""Has GDB print known objects, with the printers sourced and with the printers found by GDB itself.

usage: printers_test.py GDB PROGRAM LIBRARY    (PROGRAM: subjects.cc with the shared LIBRARY)
"""

import os
import re
import shutil
import subprocess
import sys
import tempfile

PRINTERS = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../gdb/tavnomcl_printers.py")
# Of each line: what to print, the answer and, where it differs, the answer in a 32-bit program. Or a GDB setting.
TABLE = r"""
emptyText => ""
text => "café \"x\"\n"
nulText => "a\000b\000"
longText => 'x' <repeats 200 times>...
noText => (VELM_CString *) 0x0
*noText => Cannot access memory at address 0x0
textRef => "café \"x\"\n"
constText => "const"
person => {<VELM_CString> = "Ada", age = 7}
emptyFx => ""
fx => "gnat"
epoch => 1970-01-01 00:00:00 UTC (0)
billion => 2001-09-09 01:46:40 UTC (1000000000)
before => 1969-12-31 23:59:59 UTC (-1)
farTime => <invalid date> (9223372036854775807) => 2038-01-19 03:14:07 UTC (2147483647)
zeroSpan => 0d 0:00:00
span => 2d 3:04:05
minusSpan => -0d 1:00:01
emptyPointers => VELM_CPtrArray of length 0, capacity 0
pointers => VELM_CPtrArray of length 3, capacity 3 = {0x10, 0x0, <key0>}
emptyStrings => VELM_CStringArray of length 0, capacity 16
strings => VELM_CStringArray of length 3, capacity 16 = {"one", "", "three"}
emptyObjects => VELM_CObArray of length 0, capacity 0
objects => VELM_CObArray of length 3, capacity 8 = {<objectOne>, 0x0, <objectTwo>}
emptyMap => VELM_CMapPtrToPtr of count 0, buckets 17
map => VELM_CMapPtrToPtr of count 3, buckets 17 = {[<key0>] = 0x3000, [<key18>] = 0x0 (nValue 5), [<key1>] = 0x1000}
clearedMap => VELM_CMapPtrToPtr of count 0, buckets 17
mapTable => VELM_CMapTable<VELM_CPtrAssoc, void*> of count 3, buckets 17 = {[<key0>] = 0x3000, [<key18>] = 0x0
    (nValue 5), [<key1>] = 0x1000}
counts => VELM_CMap<fxStr, char*, int, int> of count 3, buckets 17 = {["r"] = -3, ["a"] = 1, ["b"] = 2}
countTable => VELM_CMapTable<VELM_CMapAssoc<fxStr, char*, int>, char*> of count 3, buckets 17 = {["r"] = -3, ["a"] = 1,
    ["b"] = 2}
constCounts => VELM_CMap<fxStr, char const*, int, int> of count 1, buckets 17 = {["only"] = 4}
names => VELM_CMap<int, int, VELM_CString, char const*> of count 2, buckets 17 = {[16] = "one", [32] = "two"}
zeroString.object => <invalid VELM_CString: no block>
wildString.object => <invalid VELM_CString: Cannot access memory at address ADDRESS>
freedString.object => <invalid VELM_CString: length -1515870811>
negativeString.object => <invalid VELM_CString: length -1>
hugeString.object => <invalid VELM_CString: Cannot access memory at address ADDRESS>
openString.object => <invalid VELM_CString: no NUL behind the text>
wildFx.object => <invalid fxStr: Cannot access memory at address ADDRESS>
wildPointers.object => <invalid VELM_CPtrArray: Cannot access memory at address ADDRESS>
freedPointers.object => <invalid VELM_CPtrArray: length -1515870811, capacity -1515870811>
overfullPointers.object => <invalid VELM_CPtrArray: length 4, capacity 3>
noPointers.object => <invalid VELM_CPtrArray: no block>
wildStrings.object => <invalid VELM_CStringArray: Cannot access memory at address ADDRESS>
halfStrings.object => VELM_CStringArray of length 1, capacity 1 = {<invalid VELM_CString: Cannot access memory at
    address ADDRESS>}
wildObjects.object => <invalid VELM_CObArray: Cannot access memory at address ADDRESS>
wildMap.object => <invalid VELM_CMapPtrToPtr: Cannot access memory at address ADDRESS>
freedMap.object => <invalid VELM_CMapPtrToPtr: count -1515870811>
strayMap => VELM_CMapPtrToPtr of count 3, buckets 17 = {[<key0>] = 0x3000, [<key18>] = 0x0, [...] = <invalid: Cannot
    access memory at address ADDRESS>}
shortMap => VELM_CMapPtrToPtr of count 2, buckets 17 = {[<key0>] = 0x3000, [<key18>] = 0x0, [...] = <invalid: more
    than 2 entries>}
longMap => VELM_CMapPtrToPtr of count 4, buckets 17 = {[<key0>] = 0x3000, [<key18>] = 0x0, [<key1>] = 0x1000, [...]
    = <invalid: only 3 entries>}
hugeMap => <invalid VELM_CMapPtrToPtr: Cannot access memory at address ADDRESS> => <invalid VELM_CMapPtrToPtr: block
    beyond the address space>
tablelessMap => <invalid VELM_CMapPtrToPtr: count 3, no table>
misplacedMap => VELM_CMapPtrToPtr of count 3, buckets 17 = {[<key0>] = 0x3000, [...] = <invalid: bucket 1 holds
    ADDRESS of another>}
set print elements unlimited
cyclicMap => VELM_CMapPtrToPtr of count 2147483647, buckets 17 = {[<key0>] = 0x3000, [<key18>] = 0x0, [<key1>] =
    0x1000, [...] = <invalid: bucket 1 comes to ADDRESS again>}
tornPointers.object => VELM_CPtrArray of length 20000, capacity 20000 = {0x0, 0x0, <invalid: Cannot access memory at
    address ADDRESS>}
set print elements 4
longText => "xxxx"...
nulText => "a\000b\000"...
strings => VELM_CStringArray of length 3, capacity 16 = {"one", "", "thre"...}
counts => VELM_CMap<fxStr, char*, int, int> of count 3, buckets 17 = {["r"] = -3, ["a"] = 1...}
set print elements 200
set print null-stop on
nulText => "a"
longText => 'x' <repeats 200 times>...
"""


def session(gdb, program, load, commands):
    """What GDB answers to each command at the marker."""
    arguments = [gdb, "-nx", "-batch", *load, "-ex", "break marker", "-ex", "run"]
    for command in commands:
        arguments += ["-ex", "echo \\n#\\n", "-ex", command]
    done = subprocess.run(arguments + [program], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, encoding="utf-8", env={**os.environ, "LC_ALL": "C.UTF-8"},
                          timeout=120)
    before, *answers = done.stdout.split("\n#\n")
    if "Breakpoint 1, marker" not in before or len(answers) != len(commands):
        sys.exit(f"GDB did not come to the marker, or not to the end:\n{done.stdout}")
    # Addresses differ from run to run: a symbol stands for its own.
    return [re.sub(r"0x[0-9a-f]{6,}", "ADDRESS", re.sub(r"^\$\d+ = |0x[0-9a-f]+ (?=<)", "", answer.strip()))
            for answer in answers]


def main():
    gdb, program, library = sys.argv[1:]
    if not os.access(gdb, os.X_OK):
        print("skipped: there is no gdb here")
        return 77
    with open(program, "rb") as file:
        is_32_bit = file.read(5)[4] == 1
    rows = [row.split(" => ") for row in re.sub(r"\n +", " ", TABLE).strip().split("\n")]
    commands = [row[0] if len(row) == 1 else "print " + row[0] for row in rows]
    answers = ["" if len(row) == 1 else row[-1 if is_32_bit else 1] for row in rows]
    failures = 0
    with tempfile.TemporaryDirectory() as directory:
        directory = os.path.realpath(directory)
        copy = shutil.copy(os.path.realpath(library), directory)
        os.symlink(copy, os.path.join(directory, "libtavnomcl.so.1"))
        shutil.copy(PRINTERS, copy + "-gdb.py")
        for way, load in (
            ("sourced", ["-ex", f"source {PRINTERS}"]),
            ("loaded by itself", ["-iex", f"set auto-load safe-path {directory}",
                                  "-ex", f"set environment LD_LIBRARY_PATH {directory}"]),
        ):
            for command, expected, answer in zip(commands, answers, session(gdb, program, load, commands)):
                if answer != expected:
                    failures += 1
                    print(f"{way}: {command}\n  expected {expected}\n  got      {answer}")
    print(f"{2 * len(rows)} answers of GDB, {failures} of them wrong")
    return failures > 0


if __name__ == "__main__":
    sys.exit(main())
