"""Random descriptions with archives of them, and what each archive holds as JSON: the format, written a second time."""
import os
import random
import struct
import sys


class Any:  # equal to every value
    def __eq__(self, other):
        return True


def count(n):
    return struct.pack("<I", n) if n < 0xFFFF else struct.pack("<II", 0xFFFF, n)


def string(data):
    n = len(data)
    if n < 255:
        return bytes([n]) + data
    return b"\xff" + (struct.pack("<I", n) if n < 65534 else struct.pack("<II", 0xFFFF, n)) + data


def text_of(data):
    try:
        return data.decode()
    except UnicodeDecodeError:
        return {"hex": data.hex()}


def number(n):
    return n if abs(n) <= 1 << 53 else str(n)


class Archive:
    """One archive with its description. A type is its name and a function that delivers bytes and JSON of a value."""

    def __init__(self, seed):
        self.random = r = random.Random(seed)
        self.paragraphs, self.next, self.objects, self.known, self.classes = [], 1, {}, {}, []
        self.nested = 0
        names = [f"Class{i}" for i in range(r.randint(1, 4))]
        bases = {n: r.choice([None] + names[:i]) for i, n in enumerate(names)}
        self.derived = {n: [m for m in names if self.is_derived(m, n, bases)] for n in names}
        self.names = names
        self.enum = {"A": 3, "B": -1, "C": 0}
        self.paragraphs.append("enum E { A = 3, B = -1, C }\nenum F : uint8 { X, Y, ... }")
        self.structs = []
        for i in range(2):
            self.structs.append((f"Struct{i}", self.aggregate(f"struct Struct{i}", r.choice([0, 3]), None)))
        self.layouts, self.schemas = {}, {}
        for name in names:
            base, schema = bases[name], r.choice([1, 5])
            head = f"class {name}" + (f" : {base}" if base else "") + f" schema {schema}"
            own = self.aggregate(head, r.choice([0, 2]), name)
            inherited = self.layouts[base] if base else (lambda schema: (b"", {}))
            self.layouts[name] = lambda schema, f=inherited, g=own: self.both(f, g, schema)
            self.schemas[name] = r.randint(0, schema)
        fields = self.aggregate("archive", 0, "archive")
        self.bytes, self.json = fields(0)
        self.description = "\n".join(self.paragraphs)

    @staticmethod
    def is_derived(name, base, bases):
        while name is not None and name != base:
            name = bases[name]
        return name == base

    @staticmethod
    def both(f, g, schema):
        a, b = f(schema), g(schema)
        return a[0] + b[0], {**a[1], **b[1]}

    def aggregate(self, head, version, name):
        """Writes a paragraph; delivers the function that makes the fields of one."""
        r, lines, makers = self.random, [], []
        prefix = (name or "f").lower() + "_"
        own = head.split()[1] if version else ""
        for i in range(r.randint(0 if version else 1, 4)):
            field, (type_, make) = f"{prefix}{i}", self.type(3)
            kind = r.choice(["plain", "plain", "since", "until", "if", "switch", "array"]) if name != "archive" else "plain"
            if kind == "plain":
                lines.append(f"{type_} {field};")
                makers.append(lambda s, v, field=field, make=make: self.one(field, make))
            elif kind in ("since", "until"):
                n = r.randint(0, 5)
                lines.append(f"{type_} {field} {kind} {n};")
                makers.append(lambda s, v, field=field, make=make, n=n, since=kind == "since":
                              self.one(field, make) if (v >= n if since else v <= n) else (b"", {}))
            elif kind == "array":
                lines.append(f"uint8 {field}n; array<{type_}, {field}n + 1> {field};")
                makers.append(lambda s, v, field=field, make=make: self.counted(field, make))
            else:
                other = self.type(1)
                lines.append(f"uint8 {field}k; " + (
                    f"if ({field}k & 4 && !({field}k == 5)) {type_} {field}; else {{ {other[0]} {field}; }}" if kind == "if" else
                    f"switch ({field}k) {{ case 1, Y: {type_} {field}; case 2: {other[0]} {field}; }}"))
                makers.append(lambda s, v, field=field, make=make, other=other[1], kind=kind:
                              self.chosen(field, make, other, kind))
        self.paragraphs.append(f"{head}{f' version {version}' if version else ''} {{\n  " + "\n  ".join(lines) + "\n}")

        def fields(schema):
            stored = self.random.randint(0, version)
            data, json = (struct.pack("<I", stored), {own + "::version": stored}) if version else (b"", {})
            for make in makers:
                more = make(schema, stored if version else schema)
                data, json = data + more[0], {**json, **more[1]}
            return data, json
        self.schema = 0
        return fields

    def one(self, field, make):
        data, json = make()
        return data, {field: json}

    def counted(self, field, make):
        n = self.random.randint(0, 3)
        parts = [make() for _ in range(n + 1)]
        return bytes([n]) + b"".join(p[0] for p in parts), {field + "n": n, field: [p[1] for p in parts]}

    def chosen(self, field, make, other, kind):
        k = self.random.choice([0, 1, 2, 4, 5, 7])
        make = (make if k & 4 and k != 5 else other) if kind == "if" else {1: make, 2: other}.get(k)
        data, json = self.one(field, make) if make else (b"", {})
        return bytes([k]) + data, {field + "k": k, **json}

    def type(self, depth):
        r = self.random
        choices = [self.number_type, self.text_type, self.reference_type, self.number_type, self.text_type]
        return r.choice(choices + [self.made_type] * 4 if depth else choices)(depth)

    def number_type(self, _):
        r = self.random
        name = r.choice(["bool", "char", "count", "time", "float", "double", "E", "F", "monostate"] +
                        [f"{u}int{n}" for u in ("", "u") for n in (8, 16, 32, 64)])
        if "int" in name:
            bits, signed = int(name.split("int")[1]), name[0] != "u"
            low, high = (-(1 << bits - 1), (1 << bits - 1) - 1) if signed else (0, (1 << bits) - 1)
            return name, lambda: (lambda n: ((n & (1 << bits) - 1).to_bytes(bits // 8, "little"), number(n)))(
                r.choice([low, high, 0, r.randint(low, high)]))
        real = {"float": ("<f", "<I", 4), "double": ("<d", "<Q", 8)}
        if name in real:
            form, whole, n = real[name]
            special = {4: [0x7FC00001, 0xFF800000], 8: [0x7FF0000000000001, 0xFFF8000000000000]}[n]

            def make():
                kind = r.randint(0, 2)
                if kind == 0:
                    bits = r.choice(special)
                    return struct.pack(whole, bits), f"bits:{bits:0{2 * n}x}"
                if kind == 1:
                    value = r.choice([-0.0, 0.5, -3.0, 1 / 1024])
                    return struct.pack(form, value), value
                return struct.pack(whole, r.getrandbits(8 * n)), Any()
            return name, make
        if name == "count":
            return name, lambda: (lambda n: (count(n), n))(r.choice([0, 0xFFFE, 0xFFFF, 0xFFFFFFFF]))
        if name == "time":
            return name, lambda: r.choice([
                (struct.pack("<q", 951782399), "2000-02-28T23:59:59Z"), (struct.pack("<q", -1), "1969-12-31T23:59:59Z"),
                (struct.pack("<q", 253402300800), 253402300800), (struct.pack("<q", -62167219200), "0000-01-01T00:00:00Z")])
        if name == "E":
            return name, lambda: (lambda k: (struct.pack("<i", self.enum[k]), k))(r.choice("ABC"))
        if name == "F":
            return name, lambda: r.choice([(b"\0", "X"), (b"\1", "Y"), (b"\xfe", 254)])
        if name == "bool":
            return name, lambda: r.choice([(b"\0", False), (b"\1", True), (b"\7", 7)])
        if name == "char":
            return name, lambda: r.choice([(b"a", "a"), (b'"', '"'), (b"\n", 10), (b"\xff", 255)])
        return name, lambda: (b"", None)

    def text_type(self, _):
        r = self.random
        texts = [b"", b"abc", "Gr\u00fc\u00dfe \u2603 \U0001F600".encode(), b"\xff\xfe", b"\xed\xa0\x80", b'a"\\\n\t\0</script>', b"x" * 254,
                 b"x" * 255, b"y" * 65533, b"y" * 65534]
        name = r.choice(["string", "path", "line", "u16string", "u32string", "chars", "bytes", "bitset"])
        if name in ("string", "path"):
            return name, lambda: (lambda t: (string(t), text_of(t)))(r.choice(texts))
        if name == "line":
            return name, lambda: (lambda t: (t, text_of(t)))(r.choice([b"\n", b"ab\r\n", b"\xff\n", b"c\rd"]))
        if name in ("u16string", "u32string"):
            code, width = ("utf-16-le", 2) if name[1] == "1" else ("utf-32-le", 4)
            bad = {2: (b"\x00\xd8", 0xD800), 4: (b"\x00\x00\x11\x00", 0x110000)}[width]

            def make():
                if r.random() < 0.2:
                    return count(1) + bad[0], [bad[1]]
                text = r.choice(["", "a\u00e9\u20ac\U0001F600"])
                data = text.encode(code)
                return count(len(data) // width) + data, text
            return name, make
        n = r.randint(0, 20)
        if name == "bitset":
            return f"bitset<{n}>", lambda: (lambda v: (v.to_bytes((n + 7) // 8, "little"), f"{v:0{n}b}" if n else ""))(
                r.getrandbits(n) if n else 0)
        data = lambda k: bytes(r.choice(b"ab\xff") for _ in range(k))
        shown = text_of if name == "chars" else bytes.hex
        if r.random() < 0.5:
            return f"{name}<{n}>", lambda: (lambda d: (d, shown(d)))(data(n))
        return f"{name}<uint16>", lambda: (lambda d: (struct.pack("<H", len(d)) + d, shown(d)))(data(r.randint(0, 9)))

    def made_type(self, depth):
        r = self.random
        (a, f), (b, g) = self.type(depth - 1), self.type(depth - 1)
        join = lambda *made: (b"".join(m[0] for m in made), [m[1] for m in made])
        several = lambda make: join(*[make() for _ in range(r.choice([0, 1, 3]))])
        kind = r.choice(["vector", "vector8", "map", "pair", "tuple", "complex", "array", "optional", "variant", "struct"])
        if kind == "struct" and self.structs:
            name, fields = r.choice(self.structs)
            return name, lambda: fields(self.schema)
        if kind == "vector8":
            return f"set<{a}, uint8>", lambda: (lambda m: (bytes([len(m[1])]) + m[0], m[1]))(several(f))
        if kind == "map":
            return f"map<{a}, {b}>", lambda: (lambda m: (count(len(m[1])) + m[0], m[1]))(several(lambda: join(f(), g())))
        if kind == "pair":
            return f"pair<{a}, {b}>", lambda: join(f(), g())
        if kind == "tuple":
            return f"tuple<{a}, {b}, {a}>", lambda: join(f(), g(), f())
        if kind == "complex":
            return f"complex<{a}>", lambda: join(f(), f())
        if kind == "array":
            return f"array<{a}, 2>", lambda: join(f(), f())
        if kind == "optional":
            marked = a.endswith("*") or a in ("monostate", "object*") or a.startswith(("optional<", "shared_ptr<"))
            return f"optional<{a}>", lambda: (b"\0", None) if r.random() < 0.4 else (
                lambda m: (b"\1" + m[0], [m[1]] if marked else m[1]))(f())
        if kind == "variant":
            return f"variant<{a}, {b}>", lambda: (lambda i: (lambda m: (count(i) + m[0], [i, m[1]]))((f, g)[i]()))(r.randint(0, 1))
        return f"vector<{a}>", lambda: (lambda m: (count(len(m[1])) + m[0], m[1]))(several(f))

    def reference_type(self, _):
        r = self.random
        wanted = r.choice(self.names + [None])
        name = f"{wanted}*" if wanted and r.random() < 0.7 else f"shared_ptr<{wanted}>" if wanted else "object*"
        return name, lambda: self.reference(self.derived[wanted] if wanted else self.names)

    def reference(self, classes):
        r = self.random
        known = [n for n, o in self.objects.items() if o["class"] in classes]
        if r.random() < 0.2 or self.nested > 6 or len(self.objects) > 60:
            n = r.choice([0] + known)
            return struct.pack("<I", n), n or None
        name = r.choice(classes)
        if name in self.known:
            data = struct.pack("<I", self.known[name] + 0x8000)
        else:
            data = struct.pack("<III", 0xFFFF, self.schemas[name], len(name)) + name.encode()
            self.known[name], self.next = self.next, self.next + 1
        n, self.next = self.next, self.next + 1
        schema, self.schema = self.schema, self.schemas[name]
        self.objects[n] = {"index": n, "class": name, "schema": self.schema}
        self.nested += 1
        fields, json = self.layouts[name](self.schema)
        self.nested, self.schema = self.nested - 1, schema
        self.objects[n]["fields"] = json
        return data + fields, n


if __name__ == "__main__":  # seeds for the fuzzer: a description, NUL, an archive
    for seed in range(100):
        made = Archive(seed)
        with open(os.path.join(sys.argv[1], f"seed{seed}"), "wb") as file:
            file.write(made.description.encode() + b"\0" + made.bytes)
