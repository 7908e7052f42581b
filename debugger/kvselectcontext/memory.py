"""Reads objects from the memory of a process or of a core file."""

import gdb


_CLASSES = (gdb.TYPE_CODE_STRUCT, gdb.TYPE_CODE_UNION)


class Unreadable(Exception):
    """Memory cannot be read. The text says which."""


class Unknown(Exception):
    """The debug information lacks a type, or describes it as none that is known. The text says so."""


class Memory:
    """The memory of the program as it is now. Keeps what it has read, so it is only good until the program runs on."""

    _BLOCK = 4096

    def __init__(self):
        self._inferior = gdb.selected_inferior()
        self._blocks = {}
        self._layouts = {}
        endian = gdb.execute("show endian", False, True)
        self.byte_order = "big" if "big" in endian else "little"

    def read(self, address, size):
        """Returns `size` bytes. Raises Unreadable if one of them cannot be read."""
        block = address // self._BLOCK
        if address + size <= (block + 1) * self._BLOCK:
            kept = self._block(block)
            if kept is not None:
                start = address % self._BLOCK
                return kept[start : start + size]
        return self._read(address, size)

    def number(self, address, size, signed=False):
        return int.from_bytes(self.read(address, size), self.byte_order, signed=signed)

    def layout(self, type_):
        """Returns the layout of a type."""
        type_ = type_.strip_typedefs().unqualified()
        name = str(type_)
        if name not in self._layouts:
            self._layouts[name] = Layout(self, type_)
        return self._layouts[name]

    def at(self, address, layout):
        """Returns the object of this layout at the address."""
        return Struct(self, layout, address)

    def _block(self, number):
        if number not in self._blocks:
            try:
                self._blocks[number] = self._read(number * self._BLOCK, self._BLOCK)
            except Unreadable:
                self._blocks[number] = None  # the bytes that are wanted may still be readable
        return self._blocks[number]

    def _read(self, address, size):
        if address <= 0 or address + size > 1 << 64:
            raise Unreadable("memory at {:#x} cannot be read".format(address))
        try:
            return bytes(self._inferior.read_memory(address, size))
        except (gdb.error, OverflowError):
            raise Unreadable("memory at {:#x} cannot be read".format(address)) from None


class Layout:
    """The data members of a class with those of its bases: where they are, and of which type."""

    def __init__(self, memory, type_):
        self.type = type_
        self.size = type_.sizeof
        self._memory = memory
        self._members = {}
        self._numbers = {}
        self._related = {}
        self._collect(type_, 0)
        if not self._members:
            raise Unknown("no debug information describes {}; compile with -g".format(type_))

    def offset(self, name):
        return self._member(name)[0]

    def type_of(self, name):
        return self._member(name)[1]

    def of_member(self, name):
        """Returns the layout of a member that is an object."""
        if name not in self._related:
            self._related[name] = self._memory.layout(self.type_of(name))
        return self._related[name]

    def of_target(self, name):
        """Returns the layout of the objects that a member points to."""
        if name not in self._related:
            self._related[name] = self._memory.layout(self.type_of(name).target())
        return self._related[name]

    def number(self, name):
        """Returns offset, size and signedness of a member that is a number, or that wraps one.

        A class is read as its first member. So an id gives its stub, an atomic its value, and a vector the address of its
        block.
        """
        if name not in self._numbers:
            offset, type_ = self._member(name)
            while type_.code in _CLASSES:
                inner_offset, type_ = self._first(type_)
                offset += inner_offset
            self._numbers[name] = (offset, type_.sizeof, _is_signed(type_))
        return self._numbers[name]

    def _member(self, name):
        if name not in self._members:
            raise Unknown("{} has no member {}".format(self.type, name))
        return self._members[name]

    def _collect(self, type_, start):
        for field in type_.fields():
            if not hasattr(field, "bitpos"):
                continue  # a static member
            offset = start + field.bitpos // 8
            field_type = field.type.strip_typedefs()
            if field.is_base_class:
                self._collect(field_type, offset)
            else:
                self._members.setdefault(field.name, (offset, field_type))

    @staticmethod
    def _first(type_):
        for field in type_.fields():
            field_type = field.type.strip_typedefs()
            if hasattr(field, "bitpos") and not _is_empty(field_type):
                return field.bitpos // 8, field_type
        raise Unknown("no debug information describes {}; compile with -g".format(type_))


def _is_empty(type_):
    return type_.code in _CLASSES and not any(hasattr(field, "bitpos") for field in type_.fields())


def _is_signed(type_):
    return type_.code != gdb.TYPE_CODE_PTR and int(gdb.Value(-1).cast(type_)) < 0


class Struct:
    """An object in memory, read as a whole."""

    __slots__ = ("memory", "layout", "address", "_bytes")

    def __init__(self, memory, layout, address):
        self.memory = memory
        self.layout = layout
        self.address = address
        self._bytes = memory.read(address, layout.size)

    def number(self, name):
        offset, size, signed = self.layout.number(name)
        return int.from_bytes(self._bytes[offset : offset + size], self.memory.byte_order, signed=signed)

    def member(self, name):
        """Returns a member that is an object."""
        return Struct(self.memory, self.layout.of_member(name), self.address + self.layout.offset(name))

    def target(self, name):
        """Returns the object that a member points to, or None for a null pointer."""
        address = self.number(name)
        return Struct(self.memory, self.layout.of_target(name), address) if address else None


def described(name):
    """Returns the type of this name, or None if the debug information does not describe it."""
    try:
        type_ = gdb.lookup_type(name)
    except gdb.error:
        return None
    return type_ if type_.strip_typedefs().fields() else None


def value_at(address, type_):
    """Returns the object of this type as gdb shows it."""
    return gdb.Value(address).cast(type_.pointer()).dereference()


def struct_of(memory, value):
    """Returns the object of a value. Raises Unreadable for a value that is not in memory, such as one in a register."""
    try:
        address = int(value.address) if value.address is not None else 0
    except gdb.error:
        address = 0
    if not address:
        raise Unreadable("not in memory")
    return memory.at(address, memory.layout(value.type))
