"""Reads an archive by the rules of docs/archive-format.md.

Nothing here may come from the library's sources: what this module cannot read, the page does not explain.
It is stricter than a reader needs to be, and refuses every form that the page does not give for a value.
"""

import struct
import sys

sys.setrecursionlimit(10000)  # two calls for each object within an object


class FormatError(Exception):
    pass


class Object:
    pass


class Archive:
    """The values of `data`; readers[name, schema](archive, object) reads the data of an object of that class."""

    def __init__(self, data, readers):
        self.data, self.readers, self.offset, self.table = data, readers, 0, [None]

    def check(self, condition, message, *operands):
        if not condition:
            raise FormatError("offset %d: %s" % (self.offset, message % operands))

    def bytes(self, size):
        self.check(size <= len(self.data) - self.offset, "the data ends inside a value")
        self.offset += size
        return self.data[self.offset - size:self.offset]

    def u32(self, least=0):
        value = int.from_bytes(self.bytes(4), "little")
        self.check(value >= least, "%d is too small for the long form", value)
        return value

    def integer(self, size):
        return int.from_bytes(self.bytes(size), "little", signed=True)

    def number(self, size):
        return struct.unpack("<f" if size == 4 else "<d", self.bytes(size))[0]

    def boolean(self):
        value = self.bytes(1)[0]
        self.check(value <= 1, "%d is neither true nor false" % value)
        return value == 1

    def sequence(self, read):
        return [read(self) for _ in range(self.count())]

    def ascending(self, read, key=lambda element: element):
        elements = self.sequence(read)
        self.check(elements == sorted(elements, key=key), "the elements are not in ascending order")
        return elements

    def text(self, size):
        return self.bytes(size * self.count()).decode("utf-16-le" if size == 2 else "utf-32-le")

    def bits(self, size):
        value = int.from_bytes(self.bytes((size + 7) // 8), "little")
        self.check(value < 1 << size, "there is a bit behind the last one")
        return [bit for bit in range(size) if value >> bit & 1]

    def variant(self, *alternatives):
        number = self.count()
        self.check(number < len(alternatives), "there is no alternative %d" % number)
        return number, alternatives[number](self)

    def count(self):
        value = self.u32()
        self.check(value <= 0xFFFF, "count %X", value)
        return self.u32(0xFFFF) if value == 0xFFFF else value

    def string(self):
        size = self.bytes(1)[0]
        if size == 0xFF:
            size = self.u32(255)
            self.check(size < 65534 or size == 0xFFFF, "string length %X", size)
            size = self.u32(65534) if size == 0xFFFF else size
        return self.bytes(size)

    def reference(self):
        tag = self.u32()
        if tag == 0:
            return None
        self.check(tag <= 0xFFFF and tag != 0x8000, "tag %X", tag)
        if tag == 0xFFFF:
            schema = self.u32()
            entry = (self.bytes(self.u32()), schema)  # a class
            self.check(entry in self.readers and entry not in self.table, "unknown or known already: %r %d", *entry)
            self.table.append(entry)
        else:
            word = self.u32() if tag == 0x7FFF else (tag & 0x8000) << 16 | tag & 0x7FFF
            index = word & 0x7FFFFFFF
            self.check(tag != 0x7FFF or index >= 0x7FFF, "index %X in the long form", index)
            self.check(index < len(self.table), "index %d has not been given out", index)
            entry = self.table[index]
            self.check(isinstance(entry, tuple if word >> 31 else Object), "index %d is of the wrong kind", index)
            if not word >> 31:
                return entry
        obj = Object()
        self.table.append(obj)
        self.readers[entry](self, obj)
        return obj
