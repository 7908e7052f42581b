"""Reads sets, their data and their records."""

from .memory import Unreadable
from .store import Store

SET_TYPES = ("GxapSelectSet", "GxapSSetWriteAccessor")
DATA_TYPE = "GxapSelectSet::SSetData"

NO_MARKER = -1

_VECTORS = ("hlVpArray", "nestedEntFullPath")
_LISTS = ("highlightSegmentArray", "subselPathArray")


class Vector:
    """A KvVector, by its block."""

    def __init__(self, struct):
        address = struct.number("data")
        block = struct.layout.of_member("data").of_target("block")
        self.block = struct.memory.at(address, block) if address else None

    def _number(self, name):
        return self.block.number(name) if self.block else 0

    @property
    def length(self):
        return self._number("logicalLength")

    @property
    def capacity(self):
        return self._number("physicalLength")

    @property
    def owners(self):
        return self._number("refCount")

    @property
    def array(self):
        return self._number("array")

    def problem(self):
        """Returns which invariant the vector breaks, or None."""
        if not self.block:
            return None
        if self.owners == 0:
            return "has a block without owners"
        return length_problem(self.length, self.capacity, self.array)

    def first(self, most):
        """Returns the first elements of a vector of pointers or ids, at most that many."""
        if not self.block or self.problem():
            return []
        return [self.block.memory.number(self.array + 8 * i, 8) for i in range(min(self.length, most))]


def length_problem(length, capacity, array):
    """Returns what is wrong with the lengths of a vector or an array, or None."""
    if not 0 <= length <= capacity:
        return "has length {} and capacity {}".format(length, capacity)
    if (capacity > 0) != (array != 0):
        return "has capacity {} and its storage at {:#x}".format(capacity, array)
    return None


class Info:
    """The optional fields of a GxapSelectedEntInfo."""

    # The fields with their bits and types, in the order of the block.
    _FIELDS = (("fenceInfo", 1, "GxapSelectedEntInfo::SelFenceIntersectInfo"), ("matrix", 2, "GxGeMatrix3d"))
    _HEAD_BYTES = 4
    _FIELD_BYTES = 8

    def __init__(self, struct):
        self.struct = struct
        self.points = Vector(struct.member("pointArray"))

    def fields(self):
        """Yields name, address and type name of the object of every field that `presenceBits` says to be present.

        The address is None if the block lacks the field.
        """
        bits = self.struct.number("presenceBits")
        offset = 0
        for name, bit, type_name in self._FIELDS:
            if bits & bit:
                yield name, self._pointer(offset), type_name
                offset += self._FIELD_BYTES

    def problem(self):
        """Returns which invariant the info breaks, or None."""
        bits = self.struct.number("presenceBits")
        if bits & ~3:
            return "has presenceBits {:#x}".format(bits)
        for name, address, _ in self.fields():
            if not address:
                return "has presenceBits {:#x}, but no {}".format(bits, name)
        points = self.points.problem()
        return "has a pointArray that " + points if points else None

    def _pointer(self, offset):
        block, memory = self.struct.number("elasticData"), self.struct.memory
        if not block or memory.number(block + 2, 2) < offset + self._FIELD_BYTES:
            return None
        return memory.number(block + self._HEAD_BYTES + offset, self._FIELD_BYTES) or None


class Record:
    """A selected_entity."""

    def __init__(self, struct):
        self.struct = struct
        self.main_id = struct.number("mainEntId")
        self.sub_id = struct.number("subEntId")
        self.marker = struct.number("gsMarker")

    def vector(self, name):
        """Returns a vector of the record: one that it has, or one that it points to. None for a null pointer."""
        struct = self.struct.member(name) if name in _VECTORS else self.struct.target(name)
        return Vector(struct) if struct else None

    def info(self):
        struct = self.struct.target("selectedEntityInfo")
        return Info(struct) if struct else None

    def problems(self):
        """Yields which invariants the record breaks."""
        if not self.main_id:
            yield "the main id is null"
        for name in _VECTORS + _LISTS + ("selectedEntityInfo",):
            problem = self._problem_of(name)
            if problem:
                yield "{} {}".format(name, problem)

    def _problem_of(self, name):
        try:
            part = self.info() if name == "selectedEntityInfo" else self.vector(name)
            return part.problem() if part else None
        except Unreadable:
            return "cannot be read"


class Data:
    """An SSetData."""

    def __init__(self, struct):
        self.struct = struct
        self.owners = struct.number("refCount")
        self.count = struct.number("entityCount")
        self.is_unique = struct.number("unique") != 0
        self.is_nested_mode = struct.number("selectByNestedMode") != 0
        self._store = None

    def store(self):
        """Returns the store, or None if there is none."""
        if self._store is None and self.struct.number("entities"):
            try:
                self._store = Store(self.struct.target("entities"))
            except Unreadable:
                raise Unreadable("the store {:#x} cannot be read".format(self.struct.number("entities"))) from None
        return self._store

    def summary(self):
        """Returns how many items there are, and what is special about the data."""
        store = self.store()
        if not store:
            return "no store"
        occupied = store.count_occupied()
        parts = [counted(occupied, "item")]
        store.pages(lambda problem: parts.append("<{}>".format(problem)))
        if occupied != self.count:
            parts.append("entityCount {}".format(self.count))
        if self.owners != 1:
            parts.append("refCount {}".format(self.owners))
        if not self.is_unique:
            parts.append("not unique")
        if self.is_nested_mode:
            parts.append("nested mode")
        return ", ".join(parts)


def data_of(set_):
    """Returns the data of a set, or None if it has none."""
    try:
        struct = set_.target("sharedData")
    except Unreadable:
        raise Unreadable("sharedData {:#x} cannot be read".format(set_.number("sharedData"))) from None
    return Data(struct) if struct else None


def counted(number, noun):
    return "{} {}{}".format(number, noun, "" if number == 1 else "s")


def hexadecimal(address):
    return "{:#x}".format(address) if address else "null"
