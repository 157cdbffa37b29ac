"""GDB pretty-printers for the library's strings, times, arrays and maps.

GDB loads this file together with the library when it is installed as libtavnomcl.so.X.Y.Z-gdb.py. Otherwise use GDB's
command `source` with this file. An object whose fields cannot be right prints as a note in angle brackets; `print/r`
shows its fields.
"""

from datetime import datetime, timedelta

import gdb
import gdb.printing
import gdb.types


def check(holds, complaint):
    if not holds:
        raise ValueError(complaint)


def check_block(pointer, count):
    """Raises ValueError unless `count` elements at the pointer fit into the address space, and reads the last one."""
    end = int(pointer) + count * pointer.type.target().sizeof
    check(int(pointer) != 0 or count == 0, "no block")
    check(end <= 1 << 8 * pointer.type.sizeof, "block beyond the address space")
    if count > 0:
        pointer[count - 1].fetch_lazy()


def type_name(value):
    return gdb.types.get_basic_type(value.type).name


class Plain:
    """Prints a text without quotes."""

    def __init__(self, text):
        self.text = text

    def to_string(self):
        return self.text


class String:
    """Prints a text of known length by GDB's own settings for strings."""

    def __init__(self, data, length):
        check(length >= 0, f"length {length}")
        check_block(data, length + 1)
        check(int(data[length]) == 0, "no NUL behind the text")
        if gdb.parameter("print null-stop"):
            length = gdb.selected_inferior().search_memory(int(data), length + 1, b"\0") - int(data)
        elif length > 0 and int(data[length - 1]) == 0:
            length += 1  # GDB leaves out one NUL at the end: this makes it the one behind the text
        self.text = data.lazy_string(length=length)

    def to_string(self):
        return self.text

    def display_hint(self):
        return "string"


class Array:
    """Prints the elements of a block, whose free room lies behind the first `gap` elements, or behind all of them."""

    def __init__(self, value, data, size, capacity, gap=None):
        check(0 <= size <= capacity, f"length {size}, capacity {capacity}")
        self.gap = size if gap is None else gap
        self.free = capacity - size
        check(0 <= self.gap <= size, f"length {size}, gap at {self.gap}")
        check_block(data, size if self.gap == size else capacity)
        self.title = f"{type_name(value)} of length {size}, capacity {capacity}"
        self.data = data
        self.size = size

    def to_string(self):
        return self.title

    def children(self):
        for i in range(self.size):
            try:
                element = self.data[i if i < self.gap else i + self.free]
                element.fetch_lazy()
            except gdb.error as error:
                yield f"[{i}]", f"<invalid: {error}>"
                return
            yield f"[{i}]", element

    def display_hint(self):
        return "array"


class Map:
    """Prints the entries of a map in the order of iteration: bucket by bucket, each chain from its head."""

    def __init__(self, value):
        self.table = value["m_pHashTable"]
        self.buckets = int(value["m_nHashTableSize"])
        self.count = int(value["m_nCount"])
        self.title = f"{type_name(value)} of count {self.count}, buckets {self.buckets}"
        check(self.count >= 0, f"count {self.count}")
        if int(self.table) == 0:
            check(self.count == 0, f"count {self.count}, no table")
            self.buckets = 0
        check_block(self.table, self.buckets)

    def to_string(self):
        return self.title

    def nodes(self):
        seen = set()
        for bucket in range(self.buckets):
            node = self.table[bucket]
            while int(node) != 0:
                check(int(node) not in seen, f"bucket {bucket} comes to {node} again")
                check(int(node["nHashValue"]) == bucket, f"bucket {bucket} holds {node} of another")
                check(len(seen) < self.count, f"more than {self.count} entries")
                seen.add(int(node))
                yield node
                node = node["pNext"]
        check(len(seen) == self.count, f"only {len(seen)} entries")

    def keys_and_values(self):
        try:
            for node in self.nodes():
                node.dereference().fetch_lazy()
                yield node["key"]
                yield self.value_in(node)
        except (gdb.error, ValueError) as error:
            yield "..."
            yield f"<invalid: {error}>"

    def children(self):
        return ((f"[{i}]", child) for i, child in enumerate(self.keys_and_values()))

    @staticmethod
    def value_in(node):
        return node["value"]

    def display_hint(self):
        return "map"


class PtrMap(Map):
    """Prints a map whose nodes have a second value, which is shown unless it is 0."""

    @staticmethod
    def value_in(node):
        second = int(node["nValue"])
        return f"{node['value']} (nValue {second})" if second else node["value"]


def object_array(value):
    objects = value["m_list"]
    base = gdb.types.get_basic_type(value.type).fields()[0].type
    data = objects["m_items"].cast(base.pointer().pointer())
    return Array(value, data, int(objects["count"]), int(objects["m_capacity"]), int(objects["m_gap"]))


def time(value):
    seconds = int(value["m_time"])
    try:
        return Plain(f"{datetime(1970, 1, 1) + timedelta(seconds=seconds)} UTC ({seconds})")
    except OverflowError:
        return Plain(f"<invalid date> ({seconds})")


def time_span(value):
    seconds = int(value["m_span"])
    minutes, s = divmod(abs(seconds), 60)
    hours, m = divmod(minutes, 60)
    return Plain(f"{'-' if seconds < 0 else ''}{hours // 24}d {hours % 24}:{m:02}:{s:02}")


def guarded(make):
    """Returns a function that returns the printer that `make` makes. It returns a note if `make` raises, and None for a
    type whose fields GDB does not know."""

    def printer(value):
        if not gdb.types.get_basic_type(value.type).fields():
            return None
        try:
            return make(value)
        except Exception as error:  # whatever an object holds, it must not end GDB's command
            return Plain(f"<invalid {type_name(value)}: {error}>")

    return printer


def load():
    printers = gdb.printing.RegexpCollectionPrettyPrinter("tavnomcl")
    for pattern, make in (
        ("VELM_CString", lambda v: String(v["m_data"], int(v["m_len"]))),
        ("fxStr", lambda v: String(v["m_data"], int(v["m_length"]))),
        ("VELM_CTime", time),
        ("VELM_CTimeSpan", time_span),
        ("VELM_C(Ptr|String)Array", lambda v: Array(v, v["m_data"], int(v["m_size"]), int(v["m_max_size"]))),
        ("VELM_CObArray", object_array),
        ("VELM_CMapPtrToPtr|VELM_CMapTable<VELM_CPtrAssoc,.*>", PtrMap),
        ("VELM_CMap(Table)?<.*>", Map),
    ):
        printers.add_printer(pattern, f"^({pattern})$", guarded(make))
    gdb.printing.register_pretty_printer(gdb.current_objfile(), printers, replace=True)


load()
