"""Tells where an iterator is, by the rules that the library follows."""

from .memory import Unreadable
from .store import Store

_BEFORE_FIRST = 0xFFFFFFFF
_EPOCH_GROUPS = 64


class Place:
    """Where an iterator is. `text` says it. `slot` is the address of its slot if it is on an item, otherwise 0."""

    def __init__(self, text, position=None, slot=0):
        self.text = text
        self.position = position
        self.slot = slot


def place_in_store(cursor):
    """Returns the place of a store's iterator."""
    trucker = cursor.target("trucker")
    if not trucker:
        return Place("iterator without a store")
    store = Store(trucker)
    if _is_end(cursor, store):
        return Place("iterator at the end")
    if not cursor.number("page"):
        before = cursor.number("position") == _BEFORE_FIRST
        return Place("iterator before the first item" if before else "iterator on no item")
    page = store.page_at(cursor.number("page"))
    if cursor.number("epoch") != store.epoch() and not (page and _is_own_page(cursor, page, store.epoch())):
        return Place("stale iterator: its page was freed")
    if not page:
        return Place("iterator on a page that is not in the chain")
    slot = cursor.number("slot")
    number = page.number_of(slot)
    if number is None:
        return Place("iterator at a former end, on no item" if slot == page.block_end else "iterator on no item")
    if page.marks()[number] != 0:
        return Place("iterator on a removed item")
    position = store.position_of(page, number)
    return Place("iterator on item {}".format(position), position, slot)


def place_in_set(iterator):
    """Returns the place of a set's iterator."""
    set_ = _readable_target(iterator, "set")
    if not iterator.number("truckerIterator"):
        return Place("disabled iterator" if set_ else "disabled iterator: its set is gone")
    if not set_:
        return Place("done iterator: its set is gone")
    data = _readable_target(set_, "sharedData")
    if not data or not data.number("entities"):
        return Place("done iterator: its set has no data")
    cursor = _readable_target(iterator, "truckerIterator")
    if cursor.number("trucker") != data.number("entities"):
        return Place("iterator of a store that its set no longer has")
    place = place_in_store(cursor)
    index = iterator.number("index")
    if place.position is not None and place.position != index:
        place.text += " (index {})".format(index)
    return place


def _readable_target(struct, name):
    try:
        return struct.target(name)
    except Unreadable:
        raise Unreadable("{} {:#x} cannot be read".format(name, struct.number(name))) from None


def _is_end(cursor, store):
    tail = store.tail()
    slot, page = cursor.number("slot"), cursor.number("page")
    if slot and slot < cursor.number("pageEnd"):
        return False
    if not tail:
        return slot == 0 and page == 0 and cursor.number("position") == 0
    return slot == tail.block_end and page == tail.struct.address and cursor.number("position") == tail.live_count


def _is_own_page(cursor, page, now):
    """Returns whether the page is the iterator's, and not a younger one at the same address."""
    epoch, birth = cursor.number("epoch"), page.struct.number("birth")
    if not _is_same_group(epoch, now):
        return False
    return not (_is_same_group(epoch, birth) and 0 < (birth - epoch) % (1 << 32) < 1 << 31)


def _is_same_group(a, b):
    return (a ^ b) % _EPOCH_GROUPS == 0
