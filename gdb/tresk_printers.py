# SPDX-License-Identifier: BSD-3-Clause
# Copyright (c) 2026 the Tresk authors
"""Pretty-printers of gdb for Tresk: pointers, sizes, indices, arrays, fragments and fields.

gdb loads this file by itself with the library, under the name libtresk.so.<version>-gdb.py; "source" does it by hand.

The printers read data members and nothing else: they call no function of the program, so that they work on core files,
and take no lock, so that what other threads change meanwhile may look torn. The dynamic type of an object is read from
its run-time type information in memory, which needs no debug information. Members of classes need it: the classes
must have been compiled with -g somewhere, in the library or in the program. What cannot be read is printed as
<unreadable>; no printer raises an exception.
"""

import json
import re

import gdb
import gdb.printing
import gdb.types

UNREADABLE = "<unreadable>"
NO_DEBUG_INFORMATION = ", <no debug information>"
# What a count, a rank or a text beyond these is, is no memory of the library.
MOST_REFERENCES = 1 << 30
MOST_DIMENSIONS = 64
LONGEST_TEXT = 1 << 16
RECORD_ALIGNMENT = 64
# The marks in the lowest bit of the word of a pointer object.
NO_CAST = 1


class Unreadable(Exception):
    """What is there is no object of the library."""


class NoType(Exception):
    """There is no debug information of a class."""


# Memory


def read_number(address, n_bytes=8, is_signed=False):
    """The number at an address."""
    if address <= 0:
        raise Unreadable()
    memory = bytes(gdb.selected_inferior().read_memory(address, n_bytes))
    order = "big" if "big endian" in gdb.execute("show endian", to_string=True) else "little"
    return int.from_bytes(memory, order, signed=is_signed)


def read_c_string(address, longest=4096):
    """The bytes at an address up to the first zero, as text."""
    if address <= 0:
        raise Unreadable()
    text = bytearray()
    while len(text) < longest:
        # Never beyond the end of a block, behind which there may be no memory.
        n_bytes = 64 - address % 64
        block = bytes(gdb.selected_inferior().read_memory(address, n_bytes))
        end = block.find(b"\0")
        if end >= 0:
            text += block[:end]
            return text.decode("ascii")
        text += block
        address += n_bytes
    raise Unreadable()


def plain(value):
    """The number or pointer inside a std::atomic, which may have any layout of the standard library."""
    for _ in range(8):
        kind = value.type.strip_typedefs()
        if kind.code not in (gdb.TYPE_CODE_STRUCT, gdb.TYPE_CODE_UNION):
            return value
        members = [field for field in kind.fields() if hasattr(field, "bitpos")]
        value = value[members[0]]
    raise Unreadable()


def number(value):
    return int(plain(value))


def type_named(name):
    """A complete type."""
    try:
        found = gdb.lookup_type(name)
    except gdb.error:
        raise NoType() from None
    if not found.fields():
        raise NoType()
    return found


def object_at(address, type_name):
    """The object of a type at an address."""
    return gdb.Value(address).cast(type_named(type_name).pointer()).dereference()


def complete(value):
    """The value, if there is debug information of its type."""
    if not gdb.types.get_basic_type(value.type).fields():
        raise NoType()
    return value


def text_of(string):
    """The contents of a std::string."""
    length = int(string["_M_string_length"])
    if length < 0 or length > LONGEST_TEXT:
        raise Unreadable()
    address = int(string["_M_dataplus"]["_M_p"])
    if length == 0:
        return ""
    return bytes(gdb.selected_inferior().read_memory(address, length)).decode("utf-8", "replace")


def quoted(text):
    """A text in quotation marks, as the terminal can show it."""
    shown = json.dumps(text, ensure_ascii=False)
    try:
        charset = gdb.host_charset()
        shown.encode(charset)
        return shown
    except Exception:
        return json.dumps(text)


def vector_range(vector, n_bytes):
    """Begin and length of a std::vector of elements of that many bytes."""
    implementation = vector["_M_impl"]
    begin, end = int(implementation["_M_start"]), int(implementation["_M_finish"])
    if end < begin or (end - begin) % n_bytes != 0:
        raise Unreadable()
    return begin, (end - begin) // n_bytes


# Run-time type information, by the common C++ ABI

demangled_names = {}


def name_of(typeinfo):
    """The name of the type that a std::type_info in memory stands for."""
    mangled = read_c_string(read_number(typeinfo + 8)).lstrip("*")
    if not re.fullmatch(r"[A-Za-z0-9_.$]+", mangled):
        raise Unreadable()
    if mangled not in demangled_names:
        text = gdb.execute("demangle -l c++ -- _ZTI" + mangled, to_string=True).strip()
        prefix = "typeinfo for "
        demangled_names[mangled] = text[len(prefix) :] if text.startswith(prefix) else mangled
    return demangled_names[mangled]


class DynamicObject:
    """A whole object, found by the address of a part of it that has virtual functions."""

    def __init__(self, address):
        table = read_number(address)
        self.address = address + read_number(table - 16, is_signed=True)
        self.typeinfo = read_number(table - 8)
        self.name = name_of(self.typeinfo)

    def part(self, pattern):
        """Address and name of the first base, or the object itself, whose name matches; None without one."""
        return find_part(self.address, self.typeinfo, re.compile(pattern), 0)


def find_part(address, typeinfo, pattern, depth):
    name = name_of(typeinfo)
    if pattern.fullmatch(name):
        return address, name
    if depth > 32:
        raise Unreadable()
    for base, offset in bases_of(address, typeinfo):
        found = find_part(address + offset, base, pattern, depth + 1)
        if found is not None:
            return found
    return None


def bases_of(address, typeinfo):
    """Type and offset of each direct base of an object."""
    kind = gdb.execute("info symbol %d" % read_number(typeinfo), to_string=True)
    if "__si_class_type_info" in kind:
        return [(read_number(typeinfo + 16), 0)]
    if "__vmi_class_type_info" not in kind:
        return []
    n_bases = read_number(typeinfo + 20, 4)
    if n_bases > 256:
        raise Unreadable()
    bases = []
    for i in range(n_bases):
        entry = typeinfo + 24 + 16 * i
        flags = read_number(entry + 8, is_signed=True)
        offset = flags >> 8
        if flags & 1:  # a virtual base: the offset stands in the virtual table
            offset = read_number(read_number(address) + offset, is_signed=True)
        bases.append((read_number(entry), offset))
    return bases


# Pointers


class Pointer:
    """What a counted pointer refers to."""

    def __init__(self, value):
        word = number(value["word_"])
        self.is_typed = (word & NO_CAST) == 0
        self.record = word & ~NO_CAST
        self.strong = self.weak = self.object = 0
        self.is_claimed = self.is_ending = False
        if self.record == 0:
            return
        if self.record % RECORD_ALIGNMENT != 0:
            raise Unreadable()
        record = object_at(self.record, "Ostrel::ReferenceRecord")
        self.strong = number(record["strong"])
        self.weak = number(record["weak"])
        self.object = number(record["object"])
        self.is_claimed = number(record["deferred"]) != 0
        self.is_ending = number(record["underUnction"]) != 0
        if not -MOST_REFERENCES < self.strong < MOST_REFERENCES or not 0 <= self.weak < MOST_REFERENCES:
            raise Unreadable()

    def is_empty(self):
        return self.record == 0

    def is_alive(self):
        return self.strong > 0 and self.object != 0 and self.weak > 0

    def dynamic(self):
        return DynamicObject(self.object)


class PointerPrinter:
    """StrongPtr to Tresk::Field, strong 1, weak 3"""

    def __init__(self, value):
        self.value = value

    def to_string(self):
        try:
            kind = re.match(r"Ostrel::(\w+)<", str(gdb.types.get_basic_type(self.value.type))).group(1)
            return kind + self.describe(Pointer(self.value))
        except NoType:
            return kind + NO_DEBUG_INFORMATION
        except Exception:
            return UNREADABLE

    def describe(self, pointer):
        if pointer.is_empty():
            return ", empty"
        if pointer.weak == 0:
            return ", stale: nobody holds the record"
        if not pointer.is_alive():
            return ", expired, weak %d" % pointer.weak
        text = "" if pointer.is_typed else ", not of its type,"
        text += " to %s, strong %d, weak %d" % (pointer.dynamic().name, pointer.strong, pointer.weak)
        if not pointer.is_claimed:
            text += ", not owned yet"
        if pointer.is_ending:
            text += ", about to end"
        return text

    def children(self):
        try:
            pointer = Pointer(self.value)
            if not pointer.is_alive() or not pointer.is_typed:
                return []
            kind = gdb.types.get_basic_type(self.value.type)
            target = kind.template_argument(0)
            if target == kind.template_argument(1):
                address = pointer.object
            else:
                address = number(self.value["typed_"])
            return [("get()", gdb.Value(address).cast(target.pointer()))]
        except Exception:
            return []


# Sizes and indices


class SizePrinter:
    """128x64x3"""

    def __init__(self, value):
        self.value = value

    def to_string(self):
        try:
            rank = int(self.value["rank_"])
            if not 0 <= rank <= MOST_DIMENSIONS:
                return UNREADABLE
            if rank == 0:
                return "rank 0"
            return "x".join(str(int(self.value["extents_"][d])) for d in range(rank))
        except Exception:
            return UNREADABLE


def entries_of(index):
    values = index["values_"]
    first, last = values.type.strip_typedefs().range()
    return [int(values[d]) for d in range(first, last + 1)]


class IndexPrinter:
    """(7, 5)"""

    def __init__(self, value):
        self.value = value

    def to_string(self):
        try:
            return "(" + ", ".join(str(entry) for entry in entries_of(self.value)) + ")"
        except Exception:
            return UNREADABLE


# Arrays


class ArrayPrinter:
    """Tresk::MemArray<2, double> of 300x200 = {0, 1.5, ...}"""

    HOLDING = r"Tresk::ReferencingMemArray<.*>"

    def __init__(self, value):
        self.value = value

    def find(self):
        """The part of the array that holds elements; None if it computes them."""
        part = DynamicObject(int(self.value.address)).part(self.HOLDING)
        return None if part is None else object_at(*part)

    def to_string(self):
        try:
            name = DynamicObject(int(self.value.address)).name
            try:
                array = self.find()
            except NoType:
                return name + NO_DEBUG_INFORMATION
            if array is None:
                return name + ", which computes its elements"
            text = name + " of " + "x".join(str(extent) for extent in entries_of(array["extents"]))
            return text if int(array["data"]) != 0 else text + ", without memory"
        except Exception:
            return UNREADABLE

    def children(self):
        """The elements in order; gdb asks for as many as it prints."""
        try:
            array = self.find()
            if array is None or int(array["data"]) == 0:
                return
            data = array["data"]
            stride, span, offset = (int(array[name]) for name in ("stride", "span", "offset"))
            element = array.type.template_argument(1)
            is_unit = str(data.type.target().unqualified()) == str(element.strip_typedefs().unqualified())
            n_components = 1 if is_unit else int(element.strip_typedefs().template_argument(1))
            n_elements = 1
            for extent in entries_of(array["extents"]):
                n_elements *= extent
        except Exception:
            return
        for e in range(n_elements):
            try:
                unit = data + (e + offset) * stride
                if is_unit:
                    shown = unit.dereference()
                    shown.fetch_lazy()
                else:
                    components = [(unit + c * span).dereference() for c in range(n_components)]
                    shown = "(" + ", ".join(str(component) for component in components) + ")"
            except Exception:
                yield "[%d]" % e, UNREADABLE
                return
            yield "[%d]" % e, shown

    def display_hint(self):
        return "array"


# Fragments and fields


def fragment_name(pointer):
    """The name of the fragment of a pointer; None without one."""
    if not pointer.is_alive():
        return None
    return text_of(object_at(pointer.object, "Tresk::FragmentID")["name_"])


class FragmentPrinter:
    """fragment "day 3", number 2"""

    def __init__(self, value):
        self.value = value

    def to_string(self):
        try:
            value = complete(self.value)
            return "fragment %s, number %d" % (quoted(text_of(value["name_"])), number(value["number_"]))
        except NoType:
            return "fragment" + NO_DEBUG_INFORMATION
        except Exception:
            return UNREADABLE


def fragments_of(collection):
    """Address and number of the fragment pointers of a collection, and their bytes."""
    chunk = Pointer(collection["identifiers_"])
    n_bytes = type_named("Ostrel::StrongPtr<Tresk::FragmentID, Tresk::FragmentID>").sizeof
    if not chunk.is_alive():
        return 0, 0, n_bytes
    # The elements stand in a vector that is the second base of the chunk: behind the first one.
    part, _ = chunk.dynamic().part(r"Ostrel::ChunkBase")
    vector = part + type_named("Ostrel::ChunkBase").sizeof
    begin, end, room = (read_number(vector + 8 * i) for i in range(3))
    if not begin <= end <= room or (end - begin) % n_bytes != 0:
        raise Unreadable()
    return begin, (end - begin) // n_bytes, n_bytes


def state_of(creator):
    """What a creator holds, in words."""
    if creator.is_empty():
        return "no creator"
    if not creator.is_alive():
        return "creator gone"
    whole = creator.dynamic()
    try:
        asynchronous = whole.part(r"Tresk::AsynchronCreator")
        if asynchronous is not None and number(object_at(*asynchronous)["isUnderCreation_"]) != 0:
            return "in production, " + whole.name
    except NoType:
        pass  # nothing is known of its productions then
    holder = whole.part(r"Ostrel::Creator<Tresk::MemBase, Tresk::CreativeArrayBase>")
    if holder is None:
        return whole.name
    try:
        data = Pointer(object_at(*holder)["data"])
    except NoType:
        return whole.name + NO_DEBUG_INFORMATION
    if not data.is_alive():
        return "not held, " + whole.name
    return "held, %s with %s" % (whole.name, data.dynamic().name)


class FieldPrinter:
    """field of 2 fragments, 2 in the collection = {["day 1"] = not held, Tresk::FunctionalCreator, ...}"""

    def __init__(self, value):
        self.value = value
        self.begin_keys = self.begin_values = self.n_entries = self.n_bytes = 0
        self.names = (0, 0, 0)

    def find(self):
        table = complete(self.value)["fragments_"]
        self.n_bytes = type_named("Ostrel::StrongPtr<Tresk::CreativeArrayBase, Ostrel::Creature>").sizeof
        self.begin_keys, self.n_entries = vector_range(table["keys"], 4)
        self.begin_values, n_values = vector_range(table["values"], self.n_bytes)
        if n_values != self.n_entries:
            raise Unreadable()  # a binding is under way, or this is no field
        collection = Pointer(self.value["collection_"])
        if collection.is_alive():
            self.names = fragments_of(object_at(collection.object, "Tresk::FragmentIDCollection"))

    def entry(self, i):
        """Name and state of an entry."""
        key = read_number(self.begin_keys + 4 * i, 4)
        name = None
        begin, n_names, n_bytes = self.names
        if key < n_names:
            slot = object_at(begin + key * n_bytes, "Ostrel::StrongPtr<Tresk::FragmentID, Tresk::FragmentID>")
            name = fragment_name(Pointer(slot))
        value = object_at(
            self.begin_values + i * self.n_bytes, "Ostrel::StrongPtr<Tresk::CreativeArrayBase, Ostrel::Creature>"
        )
        label = "[%d]" % key if name is None else "[%s]" % quoted(name)
        return label, state_of(Pointer(value))

    def to_string(self):
        try:
            self.find()
            text = "field of %d fragment%s" % (self.n_entries, "" if self.n_entries == 1 else "s")
            return text + (", %d in the collection" % self.names[1])
        except NoType:
            return "field" + NO_DEBUG_INFORMATION
        except Exception:
            return UNREADABLE

    def children(self):
        try:
            self.find()
        except Exception:
            return
        for i in range(self.n_entries):
            try:
                yield self.entry(i)
            except Exception:
                yield "[entry %d]" % i, UNREADABLE


def collection():
    printers = gdb.printing.RegexpCollectionPrettyPrinter("tresk")
    printers.add_printer("pointer", r"^Ostrel::(StrongPtr|WeakPtr|DynPtr)<.*>$", PointerPrinter)
    printers.add_printer("size", r"^Tresk::DynamicSize$", SizePrinter)
    printers.add_printer("index", r"^Tresk::MultiIndex<.*>$", IndexPrinter)
    arrays = r"^Tresk::(MemBase|(MemArray|ReferencingMemArray|MemArrayBase|TypedArray)<.*>)$"
    printers.add_printer("array", arrays, ArrayPrinter)
    printers.add_printer("fragment", r"^Tresk::FragmentID$", FragmentPrinter)
    fields = r"^Tresk::(Field|(RegularlyFragmentedField|ComputationalField)<.*>)$"
    printers.add_printer("field", fields, FieldPrinter)
    return printers


gdb.printing.register_pretty_printer(gdb.current_objfile(), collection(), replace=True)
