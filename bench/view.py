"""tavnoview beside jq and a reader in Python, on a graph of many objects: view.py TAVNOVIEW [OBJECTS]."""
import os
import random
import struct
import subprocess
import sys
import tempfile
import time

DESCRIPTION = """archive { vector<Package*> packages; }
class Package schema 1 { string name; string version; uint32 installedSize; vector<Package*> dependencies; }
"""


def write_json(path, objects):
    """Each refers to a few others, mostly later ones, so that objects stand deep inside each other."""
    r = random.Random(1)
    with open(path, "w") as file:
        file.write('{"archive":{"packages":[' + ",".join(str(i) for i in range(2, objects + 2)) + ']},"objects":[')
        for i in range(objects):
            needed = ",".join(str(r.randrange(2, objects + 2)) for _ in range(i % 7))
            file.write(f'{"," if i else ""}\n{{"index":{i + 2},"class":"Package","schema":1,"fields":{{"name":"package-{i}",'
                       f'"version":"1.{i % 77}-{i % 13}","installedSize":{i * 7 % 10007},"dependencies":[{needed}]}}}}')
        file.write("]}\n")


def read_in_python(path):
    """The same archive, read as somebody would who has an afternoon. Returns the number of objects."""
    data = open(path, "rb").read()
    at, table, stack = 0, [None], []

    def word():
        nonlocal at
        at += 4
        return struct.unpack_from("<I", data, at - 4)[0]

    def count():
        n = word()
        return word() if n == 0xFFFF else n

    def text():
        nonlocal at
        n = data[at]
        at += 1
        if n == 255:
            n = count()
        at += n
        return data[at - n:at].decode()

    def reference():
        nonlocal at
        tag = word()
        if tag == 0x7FFF:
            tag = word()
            known = None if tag >= 0x80000000 else tag
        elif tag == 0xFFFF:
            word()
            length = word()
            at += length
            table.append("class")
            known = None
        else:
            known = None if tag >= 0x8000 else tag
        if known is not None:
            return known
        table.append({"index": len(table), "name": text(), "version": text(), "size": word()})
        stack.append([table[-1], count(), []])
        return len(table) - 1

    packages = []
    for _ in range(count()):
        packages.append(reference())
        while stack:
            package, left, needed = stack[-1]
            if left == len(needed):
                package["dependencies"] = needed
                stack.pop()
            else:
                needed.append(reference())
    return len(packages)


def measure(command, out):
    """Seconds of the processor, and peak memory in bytes, of the best of three runs."""
    best = None
    for _ in range(3):
        with open(out, "wb") as file:
            process = subprocess.Popen(command, stdout=file, stderr=subprocess.DEVNULL)
            status, used = os.wait4(process.pid, 0)[1:]
        assert status == 0, command
        seconds = used.ru_utime + used.ru_stime
        if best is None or seconds < best[0]:
            best = seconds, used.ru_maxrss * 1024
    return best


def main():
    tavnoview, objects = os.path.abspath(sys.argv[1]), int(sys.argv[2]) if len(sys.argv) > 2 else 1000000
    with tempfile.TemporaryDirectory() as folder:
        os.chdir(folder)
        with open("p.desc", "w") as file:
            file.write(DESCRIPTION)
        write_json("p.json", objects)
        build = [tavnoview, "archive", "p.json", "-d", "p.desc", "-o", "p"]
        subprocess.run(build, check=True)
        rows = [("tavnoview json", measure([tavnoview, "json", "p", "-d", "p.desc"], "p.json"), os.path.getsize("p")),
                ("tavnoview archive", measure(build, "out"), os.path.getsize("p.json")),
                ("tavnoview check", measure([tavnoview, "check", "p", "-d", "p.desc"], "out"), os.path.getsize("p")),
                ("jq .", measure(["jq", ".", "p.json"], "out"), os.path.getsize("p.json")),
                ("Python, to objects", measure([sys.executable, os.path.join(here, "view.py"), "--read", "p"], "out"),
                 os.path.getsize("p"))]
        print(f"{objects} objects; an archive of {os.path.getsize('p') / 1e6:.1f} MB, as JSON {os.path.getsize('p.json') / 1e6:.1f} MB\n")
        print("| | seconds | MB/s of its input | bytes of memory an object |\n|---|---|---|---|")
        for name, (seconds, memory), size in rows:
            print(f"| {name} | {seconds:.2f} | {size / 1e6 / seconds:.1f} | {memory / objects:.0f} |")


here = os.path.dirname(os.path.abspath(__file__))
if sys.argv[1] == "--read":
    print(read_in_python(sys.argv[2]))
else:
    main()
