"""depgraph_test.py DEPGRAPH STATUS WORKDIR [EXAMPLE]

Holds docs/archive-format.md against what the programs write. The archive that DEPGRAPH stores of STATUS, read by
decode.py, must be the graph that STATUS describes. With EXAMPLE, the page's worked example must be what that program
prints, and must mean what the page says.
"""

import os
import re
import subprocess
import sys

sys.dont_write_bytecode = True  # leaves the source tree as it is
import decode

PAGE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "docs", "archive-format.md")


class Failure(Exception):
    pass


def expect(what, found, wanted):
    if found != wanted:
        raise Failure("%s: %r, expected %r" % (what, found, wanted))


def run(command, directory):
    emulator = os.environ.get("TAVNOMCL_EMULATOR", "").split()
    done = subprocess.run(emulator + command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, cwd=directory)
    if done.returncode != 0:
        raise Failure("%s: exit status %d: %r" % (" ".join(command), done.returncode, done.stderr))
    return done.stdout


def read_status(status):
    """The installed packages as (name, version, size, places of the dependencies in this list)."""
    unfolded = re.sub(rb"\n[ \t]+", b" ", status)
    stanzas = [dict(re.findall(rb"^([^:\n]+):[ \t]*(.*?)[ \t]*$", stanza, re.M)) for stanza in unfolded.split(b"\n\n")]
    installed = [fields for fields in stanzas if fields.get(b"Status") == b"install ok installed"]
    places = {}
    for place, fields in enumerate(installed):
        places.setdefault(fields[b"Package"], place)
    packages = []
    for fields in installed:
        clauses = b",".join(fields[key] for key in fields if key in (b"Depends", b"Pre-Depends")).split(b",")
        needed = []
        for clause in clauses:
            names = [re.match(rb"[^\s:(]*", choice.strip())[0] for choice in clause.split(b"|")]
            met = [places[name] for name in names if name in places]
            if met and met[0] not in needed:
                needed.append(met[0])
        packages.append((fields[b"Package"], fields[b"Version"], int(fields.get(b"Installed-Size", 0)), needed))
    return packages


def read_package(archive, package):
    package.name = archive.string()
    package.version = archive.string()
    package.size = archive.u32()
    package.needed = []
    for _ in range(archive.count()):
        package.needed.append(archive.reference())


def read_city(archive, city):
    city.name = archive.string()
    city.population = archive.u32()
    city.roads = []
    for _ in range(archive.count()):
        city.roads.append(archive.reference())


def read_list(data, name, reader):
    """An archive that is a count and that many references to objects of one class of schema 1."""
    archive = decode.Archive(data, {(name, 1): reader})
    listed = []
    for _ in range(archive.count()):
        listed.append(archive.reference())
    expect("bytes behind the last reference", len(data) - archive.offset, 0)
    return listed, archive.table


def test_depgraph(depgraph, status, directory):
    path = os.path.join(directory, "archive")
    if os.path.exists(path):
        os.remove(path)
    run([depgraph, "store", status, path], directory)
    with open(status, "rb") as file:
        wanted = read_status(file.read())
    with open(path, "rb") as file:
        found, table = read_list(file.read(), b"Package", read_package)

    dependencies = sum(len(needed) for *_, needed in wanted)
    if dependencies == 0:
        raise Failure("%s: the graph is empty" % status)
    expect("number of packages", len(found), len(wanted))
    expect("number of objects", len(table) - 2, len(wanted))  # besides null and the class
    places = {package: place for place, package in enumerate(found)}
    for number, (package, (name, version, size, needed)) in enumerate(zip(found, wanted)):
        what = "package %d, %s" % (number, name.decode(errors="replace"))
        if package is None or places[package] != number:
            raise Failure("%s: null, or listed twice" % what)
        expect(what + ": name", package.name, name)
        expect(what + ": version", package.version, version)
        expect(what + ": size", package.size, size)
        expect(what + ": dependencies", [places.get(other) for other in package.needed], needed)
    return "%d packages, %d dependencies: equal" % (len(found), dependencies)


def test_example(example, directory):
    with open(PAGE, encoding="utf-8") as file:
        block = re.search(r"^```archive-example\n(.*?)^```$", file.read(), re.M | re.S)[1]
    data = b""
    for line in block.splitlines():
        offset, rest = line.split(None, 1)
        expect("worked example: offset", int(offset), len(data))
        data += bytes.fromhex(rest.split("  ")[0])
    printed = re.findall(rb"\b(?:[0-9A-Fa-f]{2}){16,}\b", run([example], directory))
    expect("worked example: bytes", [text.decode().lower() for text in printed], [data.hex()])

    (oslo, bergen), table = read_list(data, b"City", read_city)
    expect("Oslo", (oslo.name, oslo.population, oslo.roads), (b"Oslo", 709000, [bergen]))
    expect("Bergen", (bergen.name, bergen.population, bergen.roads), (b"Bergen", 294000, [oslo, None]))
    expect("worked example: indexes", table, [None, oslo.cls, oslo, bergen])


def main(arguments):
    if len(arguments) not in (3, 4):
        sys.exit(__doc__)
    depgraph, status, directory = map(os.path.abspath, arguments[:3])
    os.makedirs(directory, exist_ok=True)
    try:
        if len(arguments) == 4:
            test_example(os.path.abspath(arguments[3]), directory)
        print(test_depgraph(depgraph, status, directory))
    except (Failure, decode.FormatError, OSError) as problem:
        sys.exit("depgraph_test: %s" % problem)


main(sys.argv[1:])
