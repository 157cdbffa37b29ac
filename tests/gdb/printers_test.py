#!/usr/bin/env python3
"""printers_test.py GDB PROGRAM: what GDB prints of the objects of subjects.cc, as they are and damaged."""

import os
import re
import subprocess
import sys

PRINTERS = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../gdb/tavnomcl_printers.py")
# Of each line: what to print and the answer, or the answers of a 64-bit and a 32-bit program; or a setting of GDB. TWO
# stands for two entries.
TABLE = r"""
emptyText => ""
text => "café \"x\"\n"
textRef => "café \"x\"\n"
nulText => "a\000b\000"
longText => 'x' <repeats 200 times>...
person => {<VELM_CString> = "Ada", age = 7}
fx => "gnat"
billion => 2001-09-09 01:46:40 UTC (1000000000)
before => 1969-12-31 23:59:59 UTC (-1)
farTime => <invalid date> (9223372036854775807) => 2038-01-19 03:14:07 UTC (2147483647)
span => 2d 3:04:05
minusSpan => -0d 1:00:01
emptyPointers => VELM_CPtrArray of length 0, capacity 0
pointers => VELM_CPtrArray of length 3, capacity 3 = {0x10, 0x0, <key0>}
strings => VELM_CStringArray of length 3, capacity 16 = {"one", "", "three"}
objects => VELM_CObArray of length 3, capacity 8 = {<objectOne>, 0x0, <objectTwo>}
emptyMap => VELM_CMapPtrToPtr of count 0, buckets 17
map => VELM_CMapPtrToPtr of count 3, buckets 17 = {TWO, [<key1>] = 0x1000}
mapTable => VELM_CMapTable<VELM_CPtrAssoc, void*> of count 3, buckets 17 = {TWO, [<key1>] = 0x1000}
counts => VELM_CMap<fxStr, char*, int, int> of count 2, buckets 17 = {["r"] = -3, ["a"] = 1}
names => VELM_CMap<int, int, VELM_CString, char const*> of count 2, buckets 17 = {[16] = "one", [32] = "two"}
set print elements 4
longText => "xxxx"...
strings => VELM_CStringArray of length 3, capacity 16 = {"one", "", "thre"...}
set print elements 200
set print null-stop on
nulText => "a"
strings.m_data[1].m_len = -1, strings => VELM_CStringArray of length 3, capacity 16 = {"one",
    <invalid VELM_CString: length -1>, "three"}
text.m_len = 3, text => <invalid VELM_CString: no NUL behind the text>
text.m_data = 0, text => <invalid VELM_CString: no block>
fx.m_data = 0x11111111, fx => <invalid fxStr: Cannot access memory at address ADDRESS>
pointers.m_size = 4, pointers => <invalid VELM_CPtrArray: length 4, capacity 3>
pointers.m_max_size = 2147483647, pointers.m_size = 2147483647, pointers =>
    <invalid VELM_CPtrArray: Cannot access memory at address ADDRESS> =>
    <invalid VELM_CPtrArray: block beyond the address space>
objects.m_list.m_gap = 4, objects => <invalid VELM_CObArray: length 3, gap at 4>
map.m_nCount = 2, map => VELM_CMapPtrToPtr of count 2, buckets 17 = {TWO, [...] = <invalid: more than 2 entries>}
map.m_nCount = 4, map => VELM_CMapPtrToPtr of count 4, buckets 17 = {TWO, [<key1>] = 0x1000, [...] = <invalid: only 3 entries>}
map.m_pHashTable[1].pNext.pNext = map.m_pHashTable[1], map => VELM_CMapPtrToPtr of count 4, buckets 17 =
    {TWO, [<key1>] = 0x1000, [...] = <invalid: bucket 1 comes to ADDRESS again>}
map.m_pHashTable[1].nHashValue = 9, map => VELM_CMapPtrToPtr of count 4, buckets 17 =
    {[<key0>] = 0x3000, [...] = <invalid: bucket 1 holds ADDRESS of another>}
map.m_pHashTable[0] = (VELM_CPtrAssoc*)0x11111110, map => VELM_CMapPtrToPtr of count 4, buckets 17 =
    {[...] = <invalid: Cannot access memory at address ADDRESS>}
map.m_pHashTable = 0, map => <invalid VELM_CMapPtrToPtr: count 4, no table>
"""


def main():
    gdb, program = sys.argv[1:]
    if not os.access(gdb, os.X_OK):
        print("skipped: there is no gdb here")
        return 77
    text = re.sub(r"\n +", " ", TABLE).replace("TWO", "[<key0>] = 0x3000, [<key18>] = 0x0 (nValue 5)")
    rows = [row.split(" => ") for row in text.strip().split("\n")]
    arguments = [gdb, "-nx", "-batch", "-ex", f"source {PRINTERS}", "-ex", "break marker", "-ex", "run"]
    for what, *answers in rows:
        arguments += ["-ex", "echo \\n#\\n", "-ex", "print " + what if answers else what]
    done = subprocess.run(arguments + [program], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, encoding="utf-8",
                          stderr=subprocess.STDOUT, env={**os.environ, "LC_ALL": "C.UTF-8"}, timeout=120)
    before, *printed = done.stdout.split("\n#\n")
    failures = int("Breakpoint 1, marker" not in before or len(printed) != len(rows))
    for (what, *answers), answer in zip(rows, printed):
        # Addresses differ from run to run: a symbol stands for its own.
        answer = re.sub(r"0x[0-9a-f]{6,}", "ADDRESS", re.sub(r"^\$\d+ = |0x[0-9a-f]+ (?=<)", "", answer.strip()))
        if answer not in (answers or [""]):
            failures += 1
            print(f"{what}\n  expected {answers}\n  got      {answer}")
    print(f"{len(rows)} answers of GDB, {failures} of them wrong" if printed else done.stdout)
    return failures > 0


sys.exit(main())
