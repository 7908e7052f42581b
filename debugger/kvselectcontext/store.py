"""Walks through a store: its pages, and their slots."""

from .memory import Unreadable

# The number of items has 32 bits, so a store has no more pages than this.
_MOST_PAGES = 1 << 20


def ignore(_problem):
    """Takes the problems that nobody asks for."""


class PageShape:
    """What all pages of a store have in common."""

    def __init__(self, page):
        self.page = page
        self.slot = page.of_target("slots")
        self.slots_per_page = int(page.type_of("occupied").template_argument(0))
        self.block_bytes = self.slots_per_page * self.slot.size


class Page:
    """A page with its slots, as far as they can be read."""

    def __init__(self, shape, number, struct):
        self.shape = shape
        self.number = number  # place in the chain, counted from 0
        self.struct = struct
        self.slots = struct.number("slots")
        self.fill_end = struct.number("fillEnd")
        self.live_count = struct.number("liveCount")
        self._block = None

    @property
    def block_end(self):
        return self.slots + self.shape.block_bytes if self.slots else 0

    @property
    def used(self):
        """The number of slots before fillEnd, or all if fillEnd is not an end of slots of this page."""
        used, rest = divmod(self.fill_end - self.slots, self.shape.slot.size)
        return used if rest == 0 and 0 <= used <= self.shape.slots_per_page else self.shape.slots_per_page

    @property
    def has_sound_end(self):
        return self.slots + self.used * self.shape.slot.size == self.fill_end

    def marks(self):
        """Returns the `free` byte of every slot."""
        return self._bytes()[self.shape.slot.offset("free") :: self.shape.slot.size]

    def occupied(self):
        """Returns the numbers of the occupied slots."""
        marks = self.marks()
        return [i for i in range(self.used) if marks[i] == 0]

    def count_occupied(self, before=None):
        """Counts the occupied slots: all, or those before slot number `before`."""
        return self.marks()[: self.used if before is None else min(before, self.used)].count(0)

    def value(self, number):
        """Returns the value of a slot as a number."""
        offset, size, _ = self.shape.slot.number("value")
        start = number * self.shape.slot.size + offset
        return int.from_bytes(self._bytes()[start : start + size], self.struct.memory.byte_order)

    def address_of(self, number):
        return self.slots + number * self.shape.slot.size

    def number_of(self, slot):
        """Returns the number of the slot at this address, or None if the page has no slot there."""
        number, rest = divmod(slot - self.slots, self.shape.slot.size)
        return number if self.slots and rest == 0 and 0 <= number < self.shape.slots_per_page else None

    def _bytes(self):
        if self._block is None:
            try:
                self._block = self.struct.memory.read(self.slots, self.shape.block_bytes)
            except Unreadable:
                raise Unreadable("the slots of page {} cannot be read".format(self.number)) from None
        return self._block


class Store:
    """A KvTrucker."""

    def __init__(self, struct):
        self.struct = struct
        self.shape = PageShape(struct.layout.of_target("head"))
        self._kept = None

    def pages(self, tell=ignore):
        """Returns the pages of the chain, up to where it is broken. Calls tell() with what is broken."""
        if self._kept is None:
            problems = []
            self._kept = (list(self._walk(problems.append)), problems)
        pages, problems = self._kept
        for problem in problems:
            tell(problem)
        return pages

    def page_at(self, address):
        """Returns the page of the chain that is at this address, or None."""
        return next((page for page in self.pages() if page.struct.address == address), None)

    def count_occupied(self):
        """Counts the occupied slots of all pages that can be read."""
        return sum(_counted(page) for page in self.pages())

    def position_of(self, page, number):
        """Returns the number of occupied slots before this slot of the page."""
        before = sum(_counted(other) for other in self.pages()[: page.number])
        return before + page.count_occupied(number)

    def occupied(self):
        """Yields page and number of every occupied slot, in store order. Skips pages that cannot be read."""
        for page in self.pages():
            try:
                numbers = page.occupied()
            except Unreadable:
                continue
            for number in numbers:
                yield page, number

    def tail(self):
        """Returns the tail, also if it is not in the chain. Returns None if there is no tail."""
        struct = self.struct.target("tail")
        return Page(self.shape, -1, struct) if struct else None

    def epoch(self):
        return self.struct.memory.number(self.struct.number("mEpoch"), 4)

    def _walk(self, tell):
        numbers = {}
        address = self.struct.number("head")
        while address:
            if address in numbers:
                tell("page {} leads back to page {}".format(len(numbers) - 1, numbers[address]))
                return
            if len(numbers) == _MOST_PAGES:
                tell("the chain has more than {} pages".format(_MOST_PAGES))
                return
            try:
                page = Page(self.shape, len(numbers), self.struct.memory.at(address, self.shape.page))
            except Unreadable:
                tell("page {} at {:#x} cannot be read".format(len(numbers), address))
                return
            numbers[address] = page.number
            yield page
            address = page.struct.number("next")


def _counted(page):
    try:
        return page.count_occupied()
    except Unreadable:
        return 0
