"""The printers: what gdb prints for an object, and the parts that it shows of it."""

import gdb
import gdb.printing

from .memory import Memory, Unknown, Unreadable, described, struct_of, value_at
from .objects import SET_TYPES, Data, Info, Record, Vector, counted, data_of, hexadecimal, length_problem
from .place import place_in_set, place_in_store
from .store import Page, PageShape, Store

_ERRORS = (Unreadable, Unknown, gdb.error)
_MOST_PATH_IDS = 16


class Printer:
    """What the printers share. An error becomes part of what is shown, and never an error of Python.

    text() returns what is shown before the parts, or None if the parts say everything.
    """

    def __init__(self, value):
        is_reference = value.type.strip_typedefs().code in (gdb.TYPE_CODE_REF, gdb.TYPE_CODE_RVALUE_REF)
        self.value = value.referenced_value() if is_reference else value
        self.memory = Memory()
        self._has_failed = False

    def to_string(self):
        try:
            return self.text()
        except _ERRORS as error:
            self._has_failed = True
            return "<{}>".format(error)

    def struct(self):
        return struct_of(self.memory, self.value)


class PartsPrinter(Printer):
    """A printer that also shows parts of the object."""

    def children(self):
        if self._has_failed:
            return
        try:
            for part in self.parts():
                yield part
        except _ERRORS as error:
            yield "...", "<{}>".format(error)


class IdPrinter(Printer):
    def text(self):
        stub = int(self.value["mStub"])
        return "id {:#x}".format(stub) if stub else "null id"


class PathPrinter(Printer):
    def text(self):
        ids = Array(self.struct().member("mObjectIds"))
        if ids.problem():
            return "<path whose mObjectIds {}>".format(ids.problem())
        shown = [hexadecimal(ids.number(i, 8)) for i in range(min(ids.length, _MOST_PATH_IDS))]
        if ids.length > len(shown):
            shown.append("... ({} ids)".format(ids.length))
        part = self.value["mSubentId"]
        return "path {}, part {} {}".format(" > ".join(shown) or "without ids", int(part["type"]), int(part["index"]))


class Array:
    """A GxArray."""

    def __init__(self, struct):
        self.memory = struct.memory
        self.length = struct.number("mLogicalLength")
        self.capacity = struct.number("mPhysicalLength")
        self.array = struct.number("mArray")

    def problem(self):
        return length_problem(self.length, self.capacity, self.array)

    def number(self, i, size):
        return self.memory.number(self.array + size * i, size)


class ArrayPrinter(PartsPrinter):
    def text(self):
        array = Array(self.struct())
        problem = array.problem()
        return "<array that {}>".format(problem) if problem else _named("array", array.length)

    def parts(self):
        array = Array(self.struct())
        if not array.problem():
            yield from _elements(self.memory, array.array, array.length, self.value.type)

    def display_hint(self):
        return "array"


class VectorPrinter(PartsPrinter):
    def text(self):
        vector = Vector(self.struct())
        if vector.problem():
            return "<vector that {}>".format(vector.problem())
        shared = ", shared by {}".format(vector.owners) if vector.length and vector.owners > 1 else ""
        return _named("vector", vector.length) + shared

    def parts(self):
        vector = Vector(self.struct())
        if not vector.problem():
            yield from _elements(self.memory, vector.array, vector.length, self.value.type)

    def display_hint(self):
        return "array"


def _named(noun, length):
    return "{} of {}".format(noun, length) if length else "empty " + noun


def _elements(memory, array, length, container):
    """Yields the elements of a container. Shows paths instead of the pointers to them."""
    element = container.strip_typedefs().template_argument(0)
    target = element.strip_typedefs()
    is_path = target.code == gdb.TYPE_CODE_PTR and str(target.target().unqualified()) == "GxDbFullSubentPath"
    for i in range(length):
        value = value_at(array + i * element.sizeof, element)
        memory.read(array + i * element.sizeof, element.sizeof)
        yield "[{}]".format(i), _pointed_to(memory, value) if is_path else value


def _pointed_to(memory, pointer):
    """Returns the object that a pointer points to, or a text if there is none."""
    address = int(pointer)
    if not address:
        return "null"
    target = pointer.type.strip_typedefs().target()
    try:
        memory.read(address, target.sizeof)
    except Unreadable:
        return "<{:#x} cannot be read>".format(address)
    return value_at(address, target)


class InfoPrinter(PartsPrinter):
    def text(self):
        problem = Info(self.struct()).problem()
        return "<info that {}>".format(problem) if problem else None

    def parts(self):
        info = Info(self.struct())
        for name in ("word0", "word1", "halfWord"):
            yield name, self.value[name]
        if info.points.length:
            yield "pointArray", self.value["pointArray"]
        for name, address, type_name in info.fields():
            yield name, self._field(address, type_name)

    def _field(self, address, type_name):
        if not address:
            return "<missing>"
        type_ = described(type_name)
        return _pointed_to(self.memory, gdb.Value(address).cast(type_.pointer())) if type_ else hexadecimal(address)


class RecordPrinter(PartsPrinter):
    """Leaves out what the record does not have: null ids and pointers, empty vectors, and the marker -1."""

    def text(self):
        problems = list(Record(self.struct()).problems())
        return "<item: {}>".format("; ".join(problems)) if problems else None

    def parts(self):
        record = Record(self.struct())
        yield "mainEntId", self.value["mainEntId"]
        if record.sub_id:
            yield "subEntId", self.value["subEntId"]
        if record.marker != -1:
            yield "gsMarker", self.value["gsMarker"]
        for name in ("hlVpArray", "nestedEntFullPath"):
            if record.vector(name).block and record.vector(name).length:
                yield name, self.value[name]
        for name in ("highlightSegmentArray", "subselPathArray", "selectedEntityInfo"):
            if record.struct.number(name):
                yield name, _pointed_to(self.memory, self.value[name])


class StorePrinter(PartsPrinter):
    def text(self):
        store = Store(self.struct())
        problems = []
        pages = store.pages(problems.append)
        text = "store of {} in {}".format(counted(store.count_occupied(), "item"), counted(len(pages), "page"))
        return "{}, <{}>".format(text, problems[0]) if problems else text

    def parts(self):
        store = Store(self.struct())
        for page in store.pages():
            yield "page {}".format(page.number), value_at(page.struct.address, store.shape.page.type)


class PagePrinter(PartsPrinter):
    def page(self):
        struct = self.struct()
        return Page(PageShape(struct.layout), 0, struct)

    def text(self):
        page = self.page()
        occupied = page.count_occupied()
        text = "page of {} in {}".format(counted(occupied, "item"), counted(page.used, "used slot"))
        return text if occupied == page.live_count else "{}, liveCount {}".format(text, page.live_count)

    def parts(self):
        page = self.page()
        for number in page.occupied():
            yield "[{}]".format(number), _item(self.memory, page, number)


def _item(memory, page, number):
    """Returns the value in a slot, and what it points to if it is a pointer to a record."""
    layout = page.shape.slot
    value = value_at(page.address_of(number) + layout.offset("value"), layout.type_of("value"))
    type_ = value.type.strip_typedefs()
    is_record = type_.code == gdb.TYPE_CODE_PTR and str(type_.target().unqualified()) == "selected_entity"
    return _pointed_to(memory, value) if is_record else value


class CursorPrinter(Printer):
    """The iterator of a store."""

    def text(self):
        return place_in_store(self.struct()).text


class IteratorPrinter(PartsPrinter):
    """The iterator of a set, with its item."""

    def text(self):
        return place_in_set(self.struct()).text

    def parts(self):
        struct = self.struct()
        place = place_in_set(struct)
        if not place.slot:
            return
        cursor = struct.target("truckerIterator")
        slot = cursor.layout.of_target("slot")
        value = value_at(place.slot + slot.offset("value"), slot.type_of("value"))
        yield "item", _pointed_to(self.memory, value)


class DataPrinter(PartsPrinter):
    noun = "data"

    def data(self):
        return Data(self.struct())

    def text(self):
        data = self.data()
        if not data:
            return self.noun + " without data"
        return "{} of {}".format(self.noun, data.summary()) if data.store() else self.noun + " without a store"

    def parts(self):
        data = self.data()
        store = data.store() if data else None
        if not store:
            return
        for position, (page, number) in enumerate(store.occupied()):
            yield "[{}]".format(position), _item(self.memory, page, number)


class SetPrinter(DataPrinter):
    noun = "set"

    def data(self):
        return data_of(self.struct())


def register(objfile):
    """Registers the printers with an object file, or for all files if `objfile` is None."""
    printers = gdb.printing.RegexpCollectionPrettyPrinter("KvSelectContext")
    for name, pattern, printer in (
        ("id", "^GxDbObjectId$", IdPrinter),
        ("path", "^GxDbFullSubentPath$", PathPrinter),
        ("array", "^GxArray<.*>$", ArrayPrinter),
        ("vector", "^KvVector<.*>$", VectorPrinter),
        ("info", "^GxapSelectedEntInfo$", InfoPrinter),
        ("record", "^selected_entity$", RecordPrinter),
        ("store", "^KvTrucker<.*>$", StorePrinter),
        ("page", "^KvTrucker<.*>::Page$", PagePrinter),
        ("cursor", "^KvTrucker<.*>::iterator$", CursorPrinter),
        ("iterator", "^GxapSelectSet::(ConstIterator|Iterator)$", IteratorPrinter),
        ("data", "^GxapSelectSet::SSetData$", DataPrinter),
        ("set", "^({})$".format("|".join(SET_TYPES)), SetPrinter),
    ):
        printers.add_printer(name, pattern, printer)
    gdb.printing.register_pretty_printer(objfile, printers, replace=True)
