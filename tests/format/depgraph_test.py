"""depgraph_test.py DEPGRAPH STATUS WORKDIR EXAMPLE

Holds docs/archive-format.md against what the programs write. The archive that DEPGRAPH stores of STATUS, read by
decode.py, must be the graph that STATUS describes. The page's worked example must be what EXAMPLE prints, and must mean
what the page says.
"""

import os
import re
import subprocess
import sys

sys.dont_write_bytecode = True  # leaves the source tree as it is
import decode

PAGE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "docs", "archive-format.md")


def expect(what, found, wanted):
    if found != wanted:
        sys.exit("%s: %r, expected %r" % (what, found, wanted))


def run(command, directory, wanted=(0, b"")):
    """What the command prints; it must end with that status, and say that on standard error."""
    emulator = os.environ.get("TAVNOMCL_EMULATOR", "").split()
    done = subprocess.run(emulator + command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, cwd=directory)
    expect(" ".join(command), (done.returncode, done.stderr), wanted)
    return done.stdout


def read_status(status):
    """The installed packages as (name, version, size, places of the dependencies in this list)."""
    unfolded = re.sub(rb"\n[ \t]+", b" ", status)
    stanzas = [dict(re.findall(rb"^([^:\n]+):[ \t]*(.*?)[ \t]*$", stanza, re.M)) for stanza in unfolded.split(b"\n\n")]
    installed = [fields for fields in stanzas if fields.get(b"Status") == b"install ok installed"]
    places = {}
    for place, fields in enumerate(installed):
        places.setdefault(fields[b"Package"], place)
    for fields in installed:
        clauses = b",".join(fields[key] for key in fields if key in (b"Depends", b"Pre-Depends")).split(b",")
        needed = []
        for clause in clauses:
            names = [re.match(rb"[^\s:(]*", choice.strip())[0] for choice in clause.split(b"|")]
            needed += [place for place in [places[name] for name in names if name in places][:1] if place not in needed]
        yield [fields[b"Package"], fields[b"Version"], int(fields.get(b"Installed-Size", 0)), needed]


def read_list(data, name, *kinds):
    """An archive that is a count and that many references to objects of one class of schema 1, each of some values and
    references: the values of each with the places of the others, and the table of indexes."""
    def read(archive, obj):
        obj.values = [getattr(archive, kind)() for kind in kinds]
        obj.links = [archive.reference() for _ in range(archive.count())]

    archive = decode.Archive(data, {(name, 1): read})
    listed = [archive.reference() for _ in range(archive.count())]
    expect("bytes behind the last reference", len(data) - archive.offset, 0)
    places = {obj: place for place, obj in enumerate(listed)}
    return [obj.values + [[places.get(link) for link in obj.links]] for obj in listed], listed, archive.table


def main(depgraph, status, directory, example):
    os.makedirs(directory, exist_ok=True)
    with open(PAGE, encoding="utf-8") as file:
        block = re.search(r"^```archive-example\n(.*?)^```$", file.read(), re.M | re.S)[1]
    data = b""
    for line in block.splitlines():
        offset, rest = line.split(None, 1)
        expect("worked example: offset", int(offset), len(data))
        data += bytes.fromhex(rest.split("  ")[0])
    printed = re.findall(rb"\b(?:[0-9A-Fa-f]{2}){16,}\b", run([example], directory))
    expect("worked example: bytes", [text.decode().lower() for text in printed], [data.hex()])
    cities, (oslo, bergen), table = read_list(data, b"City", "string", "u32")
    expect("worked example", cities, [[b"Oslo", 709000, [1]], [b"Bergen", 294000, [0, None]]])
    expect("worked example: indexes", table, [None, (b"City", 1), oslo, bergen])

    path = os.path.join(directory, "archive")
    with open(path, "wb"):
        run([depgraph, "store", status, path], directory)  # in place of another one
    with open(status, "rb") as file:
        wanted = list(read_status(file.read()))
    with open(path, "rb") as file:
        found, listed, table = read_list(file.read(), b"Package", "string", "string", "u32")
    for number, (package, expected) in enumerate(zip(found, wanted)):
        expect("package %d" % number, package, expected)
    expect("packages, different ones, objects beside NULL and the class",
           (len(found), len(set(listed)), len(table) - 2), (len(wanted),) * 3)
    dependencies = sum(len(package[-1]) for package in wanted)
    expect("a graph with dependencies", dependencies > 0, True)
    run([depgraph, "store", status, "/dev/full"], directory, (1, b"depgraph: /dev/full: No space left on device\n"))
    print("%d packages, %d dependencies: equal" % (len(found), dependencies))


try:
    main(*map(os.path.abspath, sys.argv[1:]))
except decode.FormatError as problem:
    sys.exit(str(problem))
