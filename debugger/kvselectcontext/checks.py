"""Compares a set with the invariants that the headers of the library state."""

from .memory import Unreadable
from .objects import Record, hexadecimal, length_problem

_SHOWN_OF_A_KIND = 5
_ENTRIES_TOO_MANY = 1000  # a walk through a damaged index ends when it has found that many more entries than items


class Problems:
    """The invariants that are broken. Shows the first problems of each kind, and counts the others.

    A kind reads like "slots with a wrong mark".
    """

    def __init__(self):
        self._kinds = {}

    def add(self, kind, text):
        self._kinds.setdefault(kind, []).append(text)

    def lines(self):
        for kind, texts in self._kinds.items():
            for text in texts[:_SHOWN_OF_A_KIND]:
                yield text
            if len(texts) > _SHOWN_OF_A_KIND:
                yield "and {} more {}".format(len(texts) - _SHOWN_OF_A_KIND, kind)


class Item:
    """An occupied slot."""

    def __init__(self, page, number):
        self.page = page
        self.number = number

    @property
    def slot(self):
        return self.page.address_of(self.number)

    def record(self):
        """Returns the record. Raises Unreadable if there is none that can be read."""
        address = self.page.value(self.number)
        if not address:
            raise Unreadable("no record")
        try:
            return Record(self.page.struct.memory.at(address, self.page.shape.slot.of_target("value")))
        except Unreadable:
            raise Unreadable("the record at {:#x} cannot be read".format(address)) from None


def items_of(store):
    return [Item(page, number) for page, number in store.occupied()] if store else []


def check_registry(set_, problems):
    """The set's iterators: each is registered once, and walks this set."""
    array = set_.member("iterators")
    length, storage = array.number("mLogicalLength"), array.number("mArray")
    problem = length_problem(length, array.number("mPhysicalLength"), storage)
    if problem:
        problems.add("wrong lists of iterators", "the list of iterators " + problem)
        return []
    seen = set()
    registered = []
    iterator_layout = set_.memory.layout(array.layout.type_of("mArray").target().strip_typedefs().target())
    for i in range(length):
        address = set_.memory.number(storage + 8 * i, 8)
        if address in seen:
            problems.add("iterators that are registered twice", "iterator {:#x} is registered twice".format(address))
            continue
        seen.add(address)
        try:
            iterator = set_.memory.at(address, iterator_layout)
        except Unreadable:
            problems.add("iterators that cannot be read", "the registered iterator {} cannot be read".format(hexadecimal(address)))
            continue
        registered.append(iterator)
        if iterator.number("set") != set_.address:
            problems.add("iterators of another set", "iterator {:#x} is registered, but walks another set".format(address))
    return registered


def check_store(store, problems):
    """The chain and the pages of a store."""
    head, tail = store.struct.number("head"), store.struct.number("tail")
    if (head == 0) != (tail == 0):
        problems.add("wrong ends", "the store has a {} only".format("tail" if tail else "head"))
    is_whole = True

    def tell(problem):
        nonlocal is_whole
        is_whole = False
        problems.add("damages of the chain", problem)

    pages = store.pages(tell)
    if is_whole and pages and tail and pages[-1].struct.address != tail:
        problems.add("wrong ends", "the last page of the chain is not the tail")
    for page in pages:
        try:
            _check_page(page, problems)
        except Unreadable as error:
            problems.add("pages that cannot be read", str(error))


def _check_page(page, problems):
    if not page.slots:
        problems.add("pages without slots", "page {} has no slots".format(page.number))
        return
    if not page.has_sound_end:
        problems.add("pages with a wrong fillEnd", "page {}: fillEnd {:#x} is no slot of it".format(page.number, page.fill_end))
    marks = page.marks()
    for number, mark in enumerate(marks):
        if mark > 1:
            problems.add("slots with a wrong mark", "page {}: slot {} is marked {}".format(page.number, number, mark))
        elif mark == 0 and number >= page.used:
            problems.add("occupied slots behind fillEnd", "page {}: slot {} is occupied, but fillEnd is before it".format(page.number, number))
    occupied = page.count_occupied()
    if occupied != page.live_count:
        problems.add(
            "pages with a wrong liveCount",
            "page {}: liveCount is {}, but {} occupied".format(page.number, page.live_count, _slots_are(occupied)),
        )


def check_count(data, items, problems):
    if data.owners == 0:
        problems.add("wrong reference counts", "refCount is 0, but a set has the data")
    if data.count != len(items):
        problems.add("wrong counts", "entityCount is {}, but {} occupied".format(data.count, _slots_are(len(items))))


def check_records(items, problems):
    """Every slot has a record of its own, whose parts are whole. Returns the main ids, None for records that cannot be read."""
    positions = {}
    main_ids = []
    for position, item in enumerate(items):
        try:
            record = item.record()
        except Unreadable as error:
            problems.add("records that cannot be read", "item {}: {}".format(position, error))
            main_ids.append(None)
            continue
        main_ids.append(record.main_id)
        first = positions.setdefault(record.struct.address, position)
        if first != position:
            problems.add("records that are in two slots", "items {} and {} have the same record".format(first, position))
        for problem in record.problems():
            problems.add("damages of records", "item {}: {}".format(position, problem))
    return main_ids


class IndexCheck:
    """The index has one entry for each item, under the item's main id."""

    def __init__(self, index, items, main_ids, problems):
        self._index = index
        self._main_ids = main_ids
        self._positions = {item.slot: position for position, item in enumerate(items)}
        self._problems = problems
        self._indexed = set()
        self._last = (None, -1)
        self._is_whole = True

    def run(self):
        count = 0
        for main_id, slot in self._index.entries(2 * len(self._positions) + _ENTRIES_TOO_MANY, self._tell):
            count += 1
            self._check_entry(main_id, slot)
        if self._is_whole:
            self._check_totals(count)

    def _tell(self, problem):
        self._is_whole = False
        self._problems.add("damages of the index", problem)

    def _check_entry(self, main_id, slot):
        position = self._positions.get(slot)
        if position is None:
            text = "the index entry of {} names {:#x}, which is no occupied slot".format(hexadecimal(main_id), slot)
            self._problems.add("entries that name no item", text)
            return
        if position in self._indexed:
            self._problems.add("items that are indexed twice", "item {} is indexed twice".format(position))
        self._indexed.add(position)
        actual = self._main_ids[position]
        if actual not in (None, main_id):
            text = "item {} is indexed under {}, but its main id is {}"
            text = text.format(position, hexadecimal(main_id), hexadecimal(actual))
            self._problems.add("items that are indexed under another main id", text)
        if main_id == self._last[0] and position < self._last[1]:
            text = "items {} and {} of one main id are indexed in another order".format(position, self._last[1])
            self._problems.add("items that are indexed in another order", text)
        self._last = (main_id, position)

    def _check_totals(self, count):
        if count != self._index.count:
            text = "the index counts {}, but has {}".format(_entries(self._index.count), count)
            self._problems.add("wrong sizes of the index", text)
        if count != len(self._positions):
            text = "the index has {}, but {} occupied".format(_entries(count), _slots_are(len(self._positions)))
            self._problems.add("wrong numbers of entries", text)
        for position in sorted(set(self._positions.values()) - self._indexed):
            self._problems.add("items without an index entry", "item {} has no index entry".format(position))


def _slots_are(number):
    return "1 slot is" if number == 1 else "{} slots are".format(number)


def _entries(number):
    return "1 entry" if number == 1 else "{} entries".format(number)
