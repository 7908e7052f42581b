"""The command `info kvset`."""

import gdb

from .checks import IndexCheck, Problems, check_count, check_records, check_registry, check_store, items_of
from .index import Index
from .memory import Memory, Unknown, Unreadable, described, struct_of, value_at
from .objects import DATA_TYPE, NO_MARKER, SET_TYPES, Data, counted, data_of, hexadecimal
from .place import place_in_set

_MOST_PATH_IDS = 4
_HEADINGS = ["position", "page", "slot", "main id", "sub id", "marker", "nested path", "flags"]


class InfoKvSet(gdb.Command):
    """Show the items of a selection set as a table, and the invariants that the set breaks.

Usage: info kvset EXPRESSION

EXPRESSION is a set, the data of a set, a pointer or reference to one, or the address of a set.  The table has as many
items as "set print elements" allows.  The position is that of the item in the set; page and slot are where the store has it.
"-" stands for what an item does not have.  Ids are shown, and compared, by the addresses of their stubs.

The flags: viewports, segments and parts, each with its number, when the item is highlighted or sub-selected; info, and
points, fenceInfo and matrix if the info has them.

Runs nothing in the process, and also works on a core file."""

    def __init__(self):
        super().__init__("info kvset", gdb.COMMAND_DATA, gdb.COMPLETE_EXPRESSION)

    def invoke(self, argument, _from_tty):
        if not argument.strip():
            raise gdb.GdbError("info kvset needs an expression that gives a set.")
        try:
            for line in report_on(_value_of(argument)):
                print(line)
        except (Unreadable, Unknown, gdb.error) as error:
            raise gdb.GdbError("info kvset: {}".format(error)) from None


def _value_of(expression):
    """Returns the set or the data that an expression gives, points to, or is the address of."""
    value = gdb.parse_and_eval(expression)
    type_ = value.type.strip_typedefs()
    if type_.code in (gdb.TYPE_CODE_REF, gdb.TYPE_CODE_RVALUE_REF):
        value = value.referenced_value()
    elif type_.code == gdb.TYPE_CODE_PTR and type_.target().strip_typedefs().code != gdb.TYPE_CODE_VOID:
        value = _pointed_to(int(value), type_.target())
    elif type_.code in (gdb.TYPE_CODE_INT, gdb.TYPE_CODE_PTR):
        value = _pointed_to(int(value), _set_type())
    name = str(value.type.strip_typedefs().unqualified())
    if name not in SET_TYPES + (DATA_TYPE,):
        raise Unknown("{} is no set, and no data of a set: its type is {}".format(expression, name))
    return value


def _pointed_to(address, type_):
    if not address:
        raise Unreadable("the pointer is null")
    return value_at(address, type_)


def _set_type():
    type_ = described(SET_TYPES[0])
    if not type_:
        raise Unknown(
            "no debug information describes {}; compile the program, or the library, with -g".format(SET_TYPES[0])
        )
    return type_


def report_on(value):
    """Yields the lines of the report on a set, or on the data of one."""
    struct = struct_of(Memory(), value)
    problems = Problems()
    if str(value.type.strip_typedefs().unqualified()) == DATA_TYPE:
        data = Data(struct)
        yield "data {:#x}: {}".format(struct.address, data.summary())
    else:
        iterators = check_registry(struct, problems)
        data = data_of(struct)
        yield _heading(struct, data)
        yield from _iterator_lines(iterators)
    if data:
        yield from _data_lines(data, problems)
    broken = list(problems.lines())
    for line in broken:
        yield "broken: " + line
    if not broken:
        yield "all invariants hold"


def _heading(set_, data):
    text = "set {:#x}: ".format(set_.address)
    text += "data {:#x}, {}".format(data.struct.address, data.summary()) if data else "no data"
    references = set_.number("lispRefCnt")
    return "{}, lispRefCnt {}".format(text, references) if references else text


def _iterator_lines(iterators):
    for iterator in iterators[: _most_rows(len(iterators))]:
        try:
            place = place_in_set(iterator).text
        except Unreadable as error:
            place = str(error)
        yield "registered at {:#x}: {}".format(iterator.address, place)


def _data_lines(data, problems):
    store = data.store()
    items = items_of(store)
    if items:
        yield from _table(items)
    if store:
        check_store(store, problems)
    else:
        problems.add("missing stores", "the data has no store")
    check_count(data, items, problems)
    main_ids = check_records(items, problems)
    try:
        IndexCheck(Index(data), items, main_ids, problems).run()
    except Unknown:
        yield "the index is not checked: its std::multimap is not that of libstdc++"


def _table(items):
    shown = _most_rows(len(items))
    rows = [_HEADINGS] + [_row(position, item) for position, item in enumerate(items[:shown])]
    widths = [max(len(row[i]) for row in rows) for i in range(len(_HEADINGS))]
    for row in rows:
        yield "  ".join(cell.ljust(width) for cell, width in zip(row, widths)).rstrip()
    if len(items) > shown:
        yield "... and {}".format(counted(len(items) - shown, "more item"))


def _most_rows(length):
    return min(gdb.parameter("print elements") or length, length)


def _row(position, item):
    place = [str(position), str(item.page.number), str(item.number)]
    try:
        record = item.record()
    except Unreadable as error:
        return place + ["<{}>".format(error)] + [""] * (len(_HEADINGS) - len(place) - 1)
    keys = [hexadecimal(record.main_id), hexadecimal(record.sub_id) if record.sub_id else "-"]
    marker = "-" if record.marker == NO_MARKER else str(record.marker)
    return place + keys + [marker, _guarded(_path_cell, record), _guarded(_flags_cell, record)]


def _guarded(cell, record):
    try:
        return cell(record) or "-"
    except Unreadable:
        return "<damaged>"


def _path_cell(record):
    path = record.vector("nestedEntFullPath")
    if path.problem():
        return "<damaged>"
    shown = [hexadecimal(stub) for stub in path.first(_MOST_PATH_IDS)]
    if path.length > len(shown):
        shown.append("... ({} ids)".format(path.length))
    return " > ".join(shown)


def _flags_cell(record):
    flags = []
    for name, flag in (("hlVpArray", "viewports"), ("highlightSegmentArray", "segments"), ("subselPathArray", "parts")):
        vector = record.vector(name)
        if vector and vector.length:
            flags.append("{} {}".format(flag, vector.length))
    info = record.info()
    if info:
        flags.append("info")
        if info.points.length:
            flags.append("points {}".format(info.points.length))
        flags.extend(name for name, _, _ in info.fields())
    return ", ".join(flags)
