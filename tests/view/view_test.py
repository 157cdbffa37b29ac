"""Tests of tavnoview: view_test.py TAVNOVIEW SOURCES FOLDER PROGRAM=DESCRIPTION..."""
import json
import os
import random
import shutil
import struct
import subprocess
import sys

from random_archives import Archive, string

tavnoview, sources, folder = sys.argv[1:4]
emulator = os.environ.get("TAVNOMCL_EMULATOR", "").split()
shutil.rmtree(folder, ignore_errors=True)
os.makedirs(folder)
os.chdir(folder)


def run(*arguments, text=None, status=0):
    done = subprocess.run([*emulator, tavnoview, *arguments], input=text, capture_output=True)
    assert done.returncode == status, (arguments, done.returncode, done.stderr[-2000:])
    return done.stdout if status == 0 else done.stdout + done.stderr


def write(path, data):
    with open(path, "wb" if isinstance(data, bytes) else "w") as file:
        file.write(data)
    return path


def read(path):
    with open(path, "rb") as file:
        return file.read()


def back(archive, description):
    """To JSON and back gives the same bytes, also when somebody has sorted the members."""
    shown = run("json", archive, "-d", description)
    run("archive", "-", "-d", description, "-o", "back", text=shown)
    assert read("back") == read(archive), archive
    run("archive", "-", "-o", "back", "-d", description, text=json.dumps(json.loads(shown), sort_keys=True).encode())
    assert read("back") == read(archive), archive
    return json.loads(shown)


def test_random_archives():
    for seed in range(int(os.environ.get("TAVNOVIEW_SEEDS", "60"))):
        made = Archive(seed)
        write("a", made.bytes)
        write("a.desc", made.description)
        shown = back("a", "a.desc")
        assert made.json == shown["archive"], (seed, made.description)
        assert [made.objects[n] for n in sorted(made.objects)] == shown["objects"], (seed, made.description)
        for command in ("hex", "stats", "dot"):
            run(command, "a")
        assert run("diff", "a", "a", "-d", "a.desc") == b""
        # Damage: whatever is wrong, it is said, and what is shown is strict JSON.
        r = random.Random(seed)
        for _ in range(12):
            data = bytearray(made.bytes)
            for _ in range(r.randint(1, 3)):
                if data:
                    data[r.randrange(len(data))] = r.choice([0, 1, 0x7F, 0xFF, r.randrange(256)])
            write("damaged", bytes(data[:r.randint(0, len(data))]))
            done = subprocess.run([*emulator, tavnoview, "json", "damaged", "-d", "a.desc"], capture_output=True)
            assert done.returncode in (0, 1), (seed, done.stderr)
            assert ("error" in json.loads(done.stdout)) == (done.returncode == 1)


def test_programs():
    for argument in sys.argv[4:]:
        program, description = argument.split("=")
        before = set(os.listdir("."))
        name = os.path.basename(program)
        subprocess.run([*emulator, program] + (["store", f"{sources}/examples/depgraph/sample-status", "packages"]
                                               if name == "depgraph" else []), stdout=subprocess.DEVNULL)
        made = [f for f in set(os.listdir(".")) - before if f.endswith((".list", ".archive")) or f == "packages"]
        whole = [f for f in made if f != "cut.list"]
        assert whole, name
        for archive in whole:
            back(archive, description)
            assert b"nothing is wrong" in run("check", archive, "-d", description)


GUIDE = ["-d", f"{sources}/docs/examples/guide.desc"]


def test_guide():
    """The page shows what the program prints."""
    guide = read(f"{sources}/docs/guide.md").decode()
    place = guide.find("## Why does it not load?")
    assert place != -1
    shell = [block.split("```")[0] for block in guide[place:].split("```console\n$ ")[1:]]
    assert shell
    shutil.copy(f"{sources}/docs/examples/guide.desc", "guide.desc")
    os.makedirs("bin")
    write("bin/tavnoview", "#!/bin/sh\nexec " + " ".join([*emulator, tavnoview]) + ' "$@"\n')
    os.chmod("bin/tavnoview", 0o755)
    for block in shell:
        command, expected = block.split("\n", 1)
        done = subprocess.run("PATH=bin:$PATH; " + command, shell=True, text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        assert done.stdout == expected, (command, done.stdout)


def test_wrong_edits():
    shown = run("json", "todo.list", *GUIDE).decode()
    write("kept", "old")
    for old, new, expected in [
            ('"urgency":"Soon"', '"urgency":"Sooon"', "objects[2].fields.urgency: expected a value of Urgency"),
            ('"after":4', '"after":44', "objects[2].fields.after: there is no object 44"),
            ('"after":4', '"after":2', "objects[2].fields.after: object 2 is a List, not a Task"),
            ('"tasks":[4,5]', '"tasks":[4,4]', "objects[0].fields.tasks[1]: object 4 has an owner already"),
            ('"tasks":[4,5]', '"tasks":[4,null]', "objects[0].fields.tasks[1]: an object that is owned is null"),
            ('1.5]', '"long"]', "objects[0].fields.hours[0][1]: expected a number that a double holds"),
            ('"done":true', '"don":true', "objects[1].fields.done: is missing"),
            ('"done":true', '"done":true,"more":1', "objects[1].fields.more: no such field"),
            ('"done":true', '"done":256', "objects[1].fields.done: expected an integer of 8 bits"),
            ('"index":5', '"index":4', "objects[2].index: 4 is another object's as well"),
            ('"schema":2', '"schema":3', "objects[1].schema: expected a schema up to 2"),
            ('"class":"Task"', '"class":"Entry"', "objects[1].class: expected a class"),
            ('"objects":', '"objects":1,"x":', "objects: expected an array"), ('"archive":{', '"archiv":{', "archive: is missing"),
            ('"text":"buy paint"', '"text":', "parse error at line")]:
        assert old in shown
        said = run("archive", "-", *GUIDE, "-o", "kept", text=shown.replace(old, new, 1).encode(), status=1).decode()
        assert expected in said and read("kept") == b"old", said
    # An added object, and one that is left out.
    document = json.loads(shown)
    document["objects"].append({**document["objects"][1], "index": 900})
    document["objects"][0]["fields"]["tasks"] = [900, 5]
    document["objects"][2]["fields"]["after"] = None
    run("archive", "-", *GUIDE, "-o", "edited.list", text=json.dumps(document).encode())
    assert len(json.loads(run("json", "edited.list", *GUIDE))["objects"]) == 3
    said = run("diff", "todo.list", "edited.list", *GUIDE, status=1).decode()
    assert said == "list.tasks[1].after: object 4 and null\n", said


def test_mistakes():
    for text, expected in [
            ("class A {", '1:10: expected "}", found the end of the text'), ("archive { int x; }", '1:11: expected a type, found "int"'),
            ("archive { uint8 x }", '1:19: expected ";", found "}"'), ("archive {}\nclass A : B {}", '2:11: expected a declared class, found "B"'),
            ("archive {}\nclass A : A {}", "expected a base that does not derive"), ("class A {}", 'expected a paragraph "archive"'),
            ("archive { string s; if (s) byte x; }", "1:25: expected a field that is a number"),
            ("archive { array<byte, -> x; }", "1:24: expected a number"), ("archive { byte x since; }", "1:23: expected a number"),
            ("archive { vector<byte x; }", '1:23: expected ">", found "x"'), ("archive {} enum E { A", '1:22: expected ","'),
            ("archive { " + "optional<" * 2000 + "}", "expected fewer things"), ("archive { byte @; }", "1:16: expected the name of the field")]:
        write("m.desc", text)
        said = run("json", "todo.list", "m.desc", status=2).decode()
        assert "m.desc:" in said and expected in said, (text[:99], said)


def test_checks():
    both = "archive { owned<N> a; owned<N> b; N* c; }\nclass N schema 1 { unique_ptr<N> next; N* other; }"
    node = struct.pack("<III", 0xFFFF, 1, 1) + b"N"
    again = struct.pack("<I", 0x8001)
    null, first = struct.pack("<I", 0), struct.pack("<I", 2)
    write("n.desc", both)
    for data, expected in [
            (node + null * 2 + again + null * 2 + null, None), (node + null * 2 + first + null, "offset 21: object 2, a N, has an owner already, at b"),
            (node + first + null + again + null * 2 + null, "offset 13: object 2, a N, would own itself, at a.next"),
            (node + null + again + null * 2 + again + null * 2 + null, "offset 21: object 3, a N, has no owner"),
            (node + null * 2 + null * 2, "offset 21: an object that is owned is null, at b"),
            (node + null * 2 + again + null * 2 + null + b"x", "1 bytes are left"),
            (node + null + struct.pack("<I", 7), "offset 17: index 7 is not one of the 2 given so far, at a.other, in N (index 2)")]:
        said = run("check", write("n", data), status=0 if expected is None else 1).decode()
        assert (expected or "nothing is wrong") in said, said
    run("check", "missing", "-d", "n.desc", status=2)
    # What nobody would wait for, or has memory for.
    for text, data in [("struct S { S s; } archive { S s; }", b""), ("archive { vector<monostate> v; }", b"\xff\xff\0\0" + b"\xff" * 4),
                       ("archive { array<array<monostate, 65536>, 65536> v; }", b""), ("archive { string s; }", b"\xff\xff\xff\0\0" + b"\xff" * 4),
                       ("struct S { optional<S> s; } archive { S s; }", b"\1" * 100000), ("archive { bytes<uint64> b; }", b"\xff" * 8)]:
        write("h.desc", text)
        run("check", write("h", data), "-d", "h.desc", status=1)


def test_deep():
    n = 1000000
    head = struct.pack("<III", 0xFFFF, 1, 4) + b"Item"
    write("deep", head + struct.pack("<I", 0x8001) * (n - 1) + struct.pack("<I", 0) + b"\2ab" * n)
    write("deep.desc", "archive { owned<Item> first; } class Item schema 1 { unique_ptr<Item> next; string name; }")
    run("check", "deep")
    run("json", "deep", "-o", "deep.json")
    run("archive", "deep.json", "-d", "deep.desc", "-o", "back")
    assert read("back") == read("deep")
    assert json.loads(run("json", "deep", "--object", "500000", "--depth", "2"))["objects"][2]["fields"] == {"next": 500003, "name": "ab"}


def test_diff():
    """Order and indexes do not count where they mean nothing."""
    write("d.desc", "archive { map<string, T*> m; set<string> s; T* t; } class T schema 1 { string name; optional<int8> n; }")
    new, again = struct.pack("<III", 0xFFFF, 1, 1) + b"T", struct.pack("<I", 0x8001)
    two = struct.pack("<I", 2)
    a = two + string(b"k") + new + string(b"x") + b"\1\5" + string(b"l") + again + string(b"y") + b"\0"
    b = two + string(b"l") + new + string(b"y") + b"\0" + string(b"k") + again + string(b"x") + b"\1\5"
    s = [two + string(x) + string(y) for x, y in (b"pq", b"qp") for x, y in [(bytes([x]), bytes([y]))]]
    write("a", a + s[0] + two)
    write("b", b + s[1] + struct.pack("<I", 3))
    assert run("diff", "a", "b", "-d", "d.desc") == b""
    write("b", b + s[1].replace(b"q", b"r") + two)
    said = run("diff", "a", "b", "d.desc", status=1).decode()
    assert said == ('s["q"]: only in the first: "q"\ns["r"]: only in the second: "r"\n'
                    't: refers to another object: 2 and 2\n'), said


for name, test in list(globals().items()):
    if name.startswith("test_") and callable(test):
        test()
        print(name)
