#!/usr/bin/python3
"""Looks at the sets of a program through gdb: in the stopped process, in its core file, and with damaged data."""

import re
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

from debugger import Debugger, skip_unless_possible

# The program, and the file that loads the printers. Names of tests may follow.
PROGRAM, LOAD = (sys.argv.pop(1), sys.argv.pop(1)) if len(sys.argv) > 2 else ("", "")

PYTHON_ERROR = re.compile(r"Python Exception|Traceback|Error occurred in Python")

FENCE = "fenceInfo = {index = 2, reserved = 0, param = 0.5}"
PLAIN_ITEMS = ("[0] = {mainEntId = id 0x10}, "
               "[1] = {mainEntId = id 0x20, subEntId = id 0x30, gsMarker = 7, "
               "nestedEntFullPath = vector of 2 = {id 0x30, id 0x20}}, "
               "[2] = {mainEntId = id 0x40, selectedEntityInfo = "
               "{word0 = 0, word1 = 0, halfWord = -1, " + FENCE + "}}, "
               "[3] = {mainEntId = id 0x50, gsMarker = 0, selectedEntityInfo = "
               "{word0 = 0, word1 = 0, halfWord = -1, "
               "matrix = {entry = {{1, 0, 0, 5}, {0, 1, 0, 0}, {0, 0, 1, 0}, {0, 0, 0, 1}}}}}")

PLAIN_TABLE = """\
set ADDRESS: data ADDRESS, 4 items
registered at ADDRESS: iterator on item 1
registered at ADDRESS: iterator at the end
registered at ADDRESS: iterator on no item
position  page  slot  main id  sub id  marker  nested path  flags
0         0     0     0x10     -       -       -            -
1         0     1     0x20     0x30    7       0x30 > 0x20  -
2         0     2     0x40     -       -       -            info, fenceInfo
3         0     3     0x50     -       0       -            info, matrix
all invariants hold"""

FULL_TABLE = """\
set ADDRESS: data ADDRESS, 1 item
position  page  slot  main id  sub id  marker  nested path                              flags
0         0     0     0x10     0x20    3       0x10 > 0x20 > 0x30 > 0x40 > ... (6 ids)  \
viewports 2, segments 1, parts 2, info, points 1, fenceInfo, matrix
all invariants hold"""


def stopped() -> Debugger:
    """Returns a gdb whose process has made all sets."""
    gdb = Debugger("-ex", f"source {LOAD}", PROGRAM)
    gdb("break allIsMade")
    gdb("run")
    gdb("up")
    return gdb


def without_addresses(text: str) -> str:
    """Replaces the addresses that differ from run to run. Those of ids are small."""
    return re.sub(r"0x[0-9a-f]{6,}", "ADDRESS", text)


class Shown(unittest.TestCase):
    maxDiff = None
    gdb: Debugger

    def prints(self, expression: str, expected: str) -> None:
        self.assertEqual(without_addresses(self.gdb(f"print {expression}")), expected)

    def reports(self, expression: str, expected: str) -> None:
        self.assertEqual(without_addresses(self.gdb(f"info kvset {expression}")), expected)

    def broken(self, expression: str) -> list:
        """Returns what `info kvset` says to be broken."""
        output = without_addresses(self.gdb(f"info kvset {expression}"))
        self.assertRegex(output, "^set ADDRESS: ")
        return [line[len("broken: "):] for line in output.splitlines() if line.startswith("broken: ")]


class WhatIsWhole:
    """What holds for the process, and for its core file."""

    def test_an_id_is_shown_by_its_stub(self) -> None:
        self.prints("someId", "id 0x10")
        self.prints("nullId", "null id")

    def test_a_path_is_shown_by_its_ids_and_its_part(self) -> None:
        self.prints("path", "path 0x10 > 0x20, part 3 4")
        self.prints("emptyPath", "path without ids, part 0 0")

    def test_a_vector_is_shown_as_its_elements(self) -> None:
        self.prints("ids", "vector of 2 = {id 0x10, id 0x20}")
        self.prints("emptyVector", "empty vector")

    def test_a_vector_tells_how_many_share_it(self) -> None:
        self.prints("numbers", "vector of 3, shared by 2 = {7, 0, 0}")
        self.prints("sameNumbers", "vector of 3, shared by 2 = {7, 0, 0}")

    def test_an_array_is_shown_as_its_elements(self) -> None:
        self.prints("array", "array of 2 = {0, 5}")
        self.prints("empty.iterators", "empty array")

    def test_a_set_is_shown_as_its_items_with_the_present_fields_of_their_infos(self) -> None:
        self.prints("plain", "set of 4 items = {" + PLAIN_ITEMS + "}")

    def test_the_data_of_a_set_is_shown_as_its_items(self) -> None:
        self.prints("*plain.sharedData", "data of 4 items = {" + PLAIN_ITEMS + "}")

    def test_a_set_is_shown_through_a_reference_and_as_its_accessor(self) -> None:
        shown = "set of 4 items = {" + PLAIN_ITEMS + "}"
        self.prints("*(GxapSSetWriteAccessor*)&plain", shown)
        self.gdb("down")
        self.addCleanup(self.gdb, "up")
        self.prints("set", shown)

    def test_a_record_is_shown_with_all_that_it_has(self) -> None:
        self.prints("full", "set of 1 item = {[0] = {mainEntId = id 0x10, subEntId = id 0x20, gsMarker = 3, "
                    "hlVpArray = vector of 2 = {0, 9}, "
                    "nestedEntFullPath = vector of 6 = {id 0x10, id 0x20, id 0x30, id 0x40, id 0x50, id 0x60}, "
                    "highlightSegmentArray = vector of 1 = {path 0x10 > 0x20, part 1 8}, "
                    "subselPathArray = vector of 2 = {path 0x10, part 2 4, null}, "
                    "selectedEntityInfo = {word0 = 6, word1 = 0, halfWord = -1, "
                    "pointArray = vector of 1 = {{x = 1.5, y = 0, z = 0}}, " + FENCE + ", "
                    "matrix = {entry = {{1, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}, {0, 0, 0, 1}}}}}}")

    def test_an_empty_set_has_no_items(self) -> None:
        self.prints("empty", "set of 0 items")

    def test_a_set_without_data_says_so(self) -> None:
        self.prints("without", "set without data")

    def test_a_set_tells_how_many_share_its_data(self) -> None:
        items = "[0] = {mainEntId = id 0x10}, [1] = {mainEntId = id 0x20}"
        self.prints("shared", "set of 2 items, refCount 2 = {" + items + "}")
        self.prints("sharer", "set of 2 items, refCount 2 = {" + items + "}")

    def test_a_set_tells_its_modes(self) -> None:
        self.prints("modes", "set of 2 items, not unique, nested mode = {[0] = {mainEntId = id 0x10}, "
                    "[1] = {mainEntId = id 0x10}}")

    def test_a_set_leaves_its_holes_out(self) -> None:
        self.prints("holes", "set of 3 items = {[0] = {mainEntId = id 0x10}, [1] = {mainEntId = id 0x30}, "
                    "[2] = {mainEntId = id 0x50}}")

    def test_a_large_set_is_shown_in_part(self) -> None:
        self.gdb("set print elements 2")
        self.addCleanup(self.gdb, "set print elements 200")
        self.prints("pages", "set of 4098 items = {[0] = {mainEntId = id 0x10010}, "
                    "[1] = {mainEntId = id 0x10020}...}")

    def test_a_store_is_shown_as_its_pages(self) -> None:
        self.prints("*holes.sharedData->entities", "store of 3 items in 1 page = {page 0 = page of 3 items in 5 used slots = "
                    "{[0] = {mainEntId = id 0x10}, [2] = {mainEntId = id 0x30}, "
                    "[4] = {mainEntId = id 0x50}}}")
        self.prints("*empty.sharedData->entities", "store of 0 items in 0 pages")

    def test_a_page_is_shown_as_its_slots(self) -> None:
        self.prints("*pages.sharedData->entities->tail", "page of 2 items in 2 used slots = "
                    "{[0] = {mainEntId = id 0x20010}, [1] = {mainEntId = id 0x20020}}")

    def test_a_released_page_is_no_longer_counted(self) -> None:
        self.assertTrue(self.gdb("print *pages.sharedData->entities").startswith("store of 4098 items in 2 pages = {"))

    def test_an_iterator_shows_its_item(self) -> None:
        self.prints("onItem", "iterator on item 1 = {item = {mainEntId = id 0x20, subEntId = id 0x30, gsMarker = 7, "
                    "nestedEntFullPath = vector of 2 = {id 0x30, id 0x20}}}")

    def test_an_iterator_tells_when_its_index_is_another_than_its_position(self) -> None:
        self.prints("afterRemoved", "iterator on item 1 (index 2) = {item = {mainEntId = id 0x30}}")
        self.prints("onLaterPage", "iterator on item 4097 (index 8193) = {item = {mainEntId = id 0x20020}}")

    def test_an_iterator_at_the_end_has_no_item(self) -> None:
        self.prints("atEnd", "iterator at the end")

    def test_an_iterator_at_a_former_end_is_on_no_item(self) -> None:
        self.prints("formerEnd", "iterator at a former end, on no item")

    def test_an_iterator_beyond_the_end_is_on_no_item(self) -> None:
        self.prints("beyond", "iterator on no item")

    def test_an_iterator_before_the_first_item_says_so(self) -> None:
        self.prints("beforeFirst", "iterator before the first item")

    def test_an_iterator_on_a_removed_item_says_so(self) -> None:
        self.prints("onRemoved", "iterator on a removed item")

    def test_an_iterator_on_a_released_page_is_stale(self) -> None:
        self.prints("stale", "stale iterator: its page was freed")

    def test_a_disabled_iterator_says_so(self) -> None:
        self.prints("disabled", "disabled iterator")
        self.prints("orphan", "disabled iterator: its set is gone")

    def test_the_iterator_of_a_store_tells_its_place(self) -> None:
        self.prints("*onItem.truckerIterator", "iterator on item 1")
        self.prints("*atEnd.truckerIterator", "iterator at the end")

    def test_the_command_prints_the_table_of_a_set(self) -> None:
        self.reports("plain", PLAIN_TABLE)
        self.reports("full", FULL_TABLE)

    def test_the_command_takes_pointers_references_and_addresses(self) -> None:
        self.gdb("down")
        self.addCleanup(self.gdb, "up")
        self.reports("set", PLAIN_TABLE)
        self.reports("pointer", PLAIN_TABLE)
        self.reports("*(GxapSSetWriteAccessor*)pointer", PLAIN_TABLE)
        self.reports("address", PLAIN_TABLE)

    def test_the_command_takes_the_data_of_a_set(self) -> None:
        lines = [line for line in PLAIN_TABLE.splitlines() if not line.startswith("registered")]
        lines[0] = "data ADDRESS: 4 items"
        self.reports("*plain.sharedData", "\n".join(lines))
        self.reports("plain.sharedData", "\n".join(lines))

    def test_the_command_on_an_empty_set_has_no_table(self) -> None:
        self.reports("empty", "set ADDRESS: data ADDRESS, 0 items\nall invariants hold")
        self.reports("without", "set ADDRESS: no data\nall invariants hold")

    def test_the_command_tells_slots_from_positions(self) -> None:
        self.reports("holes", "set ADDRESS: data ADDRESS, 3 items\n"
                     "registered at ADDRESS: iterator on a removed item\n"
                     "registered at ADDRESS: iterator on item 1 (index 2)\n"
                     "position  page  slot  main id  sub id  marker  nested path  flags\n"
                     "0         0     0     0x10     -       -       -            -\n"
                     "1         0     2     0x30     -       -       -            -\n"
                     "2         0     4     0x50     -       -       -            -\n"
                     "all invariants hold")

    def test_the_command_prints_as_many_items_as_gdb_prints_elements(self) -> None:
        self.gdb("set print elements 1")
        self.addCleanup(self.gdb, "set print elements 200")
        report = self.gdb("info kvset pages")
        self.assertEqual(report.splitlines()[-2:], ["... and 4097 more items", "all invariants hold"])
        self.assertEqual(report.splitlines()[-3].split()[:4], ["0", "0", "0", "0x10010"])

    def test_the_command_tells_modes_and_references(self) -> None:
        self.assertEqual(without_addresses(self.gdb("info kvset modes")).splitlines()[0],
                         "set ADDRESS: data ADDRESS, 2 items, not unique, nested mode, lispRefCnt 1")

    def test_the_command_tells_which_item_lacks_an_index_entry(self) -> None:
        self.assertEqual(self.broken("unindexed"), ["the index has 0 entries, but 1 slot is occupied",
                                                    "item 0 has no index entry"])

    def test_the_command_refuses_what_is_no_set(self) -> None:
        self.reports("someId", "info kvset: someId is no set, and no data of a set: its type is GxDbObjectId")
        self.reports("nothing", 'info kvset: No symbol "nothing" in current context.')
        self.reports("", "info kvset needs an expression that gives a set.")
        self.reports("(GxapSelectSet*)0", "info kvset: the pointer is null")
        self.reports("16", "info kvset: memory at 0x10 cannot be read")


class OnTheProcess(WhatIsWhole, Shown):
    @classmethod
    def setUpClass(cls) -> None:
        cls.gdb = stopped()

    @classmethod
    def tearDownClass(cls) -> None:
        cls.gdb.close()


class OnACoreFile(WhatIsWhole, Shown):
    @classmethod
    def setUpClass(cls) -> None:
        cls.directory = tempfile.TemporaryDirectory()
        core = str(Path(cls.directory.name) / "core")
        process = stopped()
        saved = process(f"generate-core-file {core}")
        process.close()
        if not Path(core).exists():
            raise RuntimeError(saved)
        cls.gdb = Debugger("-ex", f"source {LOAD}", PROGRAM, core)
        cls.gdb("up")

    @classmethod
    def tearDownClass(cls) -> None:
        cls.gdb.close()
        cls.directory.cleanup()


class OnDamagedData(Shown):
    """Each test damages the sets of one process, and repairs them afterwards."""

    @classmethod
    def setUpClass(cls) -> None:
        cls.gdb = stopped()

    @classmethod
    def tearDownClass(cls) -> None:
        cls.gdb.close()

    def setUp(self) -> None:
        for name in ("plain", "modes", "pages"):
            self.assertEqual(self.broken(name), [])
        self.gdb("set var $data = plain.sharedData")
        self.gdb("set var $store = $data->entities")
        self.gdb("set var $slots = $store->head->slots")
        self.gdb("set var $record = $slots[1].value")

    def damage(self, place: str, value: str) -> None:
        """Assigns a value. The variable that keeps the old one is named after the damages so far."""
        self.damages = getattr(self, "damages", 0) + 1
        kept = f"$kept{self.damages}"
        self.assertEqual(self.gdb(f"set var {kept} = {place}"), "")
        self.assertEqual(self.gdb(f"set var {place} = {value}"), "")
        self.addCleanup(self.gdb, f"set var {place} = {kept}")

    def test_a_wrong_count_is_shown_beside_the_true_one(self) -> None:
        self.damage("$data->entityCount", "7")
        self.prints("plain", "set of 4 items, entityCount 7 = {" + PLAIN_ITEMS + "}")
        self.assertEqual(self.broken("plain"), ["entityCount is 7, but 4 slots are occupied"])

    def test_data_that_nobody_owns_is_reported(self) -> None:
        self.damage("*(int*)&$data->refCount", "0")
        self.assertEqual(self.broken("plain"), ["refCount is 0, but a set has the data"])

    def test_data_without_a_store_is_reported(self) -> None:
        self.damage("$data->entities", "0")
        self.prints("plain", "set without a store")
        self.assertIn("the data has no store", self.broken("plain"))

    def test_data_that_cannot_be_read_is_reported(self) -> None:
        self.damage("plain.sharedData", "8")
        self.prints("plain", "<sharedData 0x8 cannot be read>")
        self.assertIn("info kvset: sharedData 0x8 cannot be read", self.gdb("info kvset plain"))

    def test_a_store_that_cannot_be_read_is_reported(self) -> None:
        self.damage("$data->entities", "8")
        self.prints("plain", "<the store 0x8 cannot be read>")

    def test_a_wrong_count_of_a_page_is_reported(self) -> None:
        self.damage("$store->head->liveCount", "9")
        self.assertEqual(self.broken("plain"), ["page 0: liveCount is 9, but 4 slots are occupied"])
        self.assertTrue(self.gdb("print *$store->head").startswith("page of 4 items in 4 used slots, liveCount 9 = {"))

    def test_a_chain_that_is_a_ring_is_walked_once(self) -> None:
        self.damage("pages.sharedData->entities->tail->next", "pages.sharedData->entities->head")
        self.assertEqual(self.broken("pages"), ["page 1 leads back to page 0"])
        self.assertTrue(self.gdb("print pages").startswith("set of 4098 items, <page 1 leads back to page 0> = {"))

    def test_a_page_that_cannot_be_read_is_reported(self) -> None:
        self.damage("pages.sharedData->entities->head->next", "8")
        self.assertIn("page 1 at 0x8 cannot be read", self.broken("pages"))
        self.assertIn("entityCount is 4098, but 4096 slots are occupied", self.broken("pages"))

    def test_slots_that_cannot_be_read_are_reported(self) -> None:
        self.damage("$store->head->slots", "8")
        self.assertIn("the slots of page 0 cannot be read", self.broken("plain"))

    def test_a_tail_that_is_not_the_last_page_is_reported(self) -> None:
        self.damage("pages.sharedData->entities->tail", "pages.sharedData->entities->head")
        self.assertEqual(self.broken("pages"), ["the last page of the chain is not the tail"])

    def test_a_store_with_one_end_is_reported(self) -> None:
        self.damage("$store->tail", "0")
        self.assertEqual(self.broken("plain"), ["the store has a head only"])

    def test_an_end_of_the_filled_part_outside_of_the_page_is_reported(self) -> None:
        self.damage("$store->head->fillEnd", "(char*)$slots + 7")
        self.assertIn("page 0: fillEnd ADDRESS is no slot of it", self.broken("plain"))

    def test_an_occupied_slot_behind_the_filled_part_is_reported(self) -> None:
        self.damage("$slots[6].free", "0")
        self.assertEqual(self.broken("plain"), ["page 0: slot 6 is occupied, but fillEnd is before it"])

    def test_a_mark_that_is_none_is_reported(self) -> None:
        self.damage("$slots[6].free", "5")
        self.assertEqual(self.broken("plain"), ["page 0: slot 6 is marked 5"])

    def test_a_slot_without_a_record_is_reported(self) -> None:
        self.damage("$slots[1].value", "0")
        self.assertEqual(self.broken("plain"), ["item 1: no record"])
        self.assertIn("[1] = null, ", self.gdb("print plain"))

    def test_a_record_that_cannot_be_read_is_reported(self) -> None:
        self.damage("$slots[1].value", "24")
        self.assertEqual(self.broken("plain"), ["item 1: the record at 0x18 cannot be read"])
        self.assertIn("[1] = <0x18 cannot be read>, ", self.gdb("print plain"))
        self.assertIn("\n1         0     1     <the record at 0x18 cannot be read>\n", self.gdb("info kvset plain"))

    def test_a_record_in_two_slots_is_reported(self) -> None:
        self.damage("$slots[3].value", "$slots[2].value")
        self.assertEqual(self.broken("plain"), ["items 2 and 3 have the same record",
                                                "item 3 is indexed under 0x50, but its main id is 0x40"])

    def test_an_item_with_another_main_id_than_in_the_index_is_reported(self) -> None:
        self.damage("$record->mainEntId.mStub", "0x990")
        self.assertEqual(self.broken("plain"), ["item 1 is indexed under 0x20, but its main id is 0x990"])

    def test_an_item_without_a_main_id_is_reported(self) -> None:
        self.damage("$record->mainEntId.mStub", "0")
        self.assertIn("item 1: the main id is null", self.broken("plain"))

    def test_a_vector_that_is_longer_than_its_storage_is_reported(self) -> None:
        self.damage("$record->nestedEntFullPath.data.block->logicalLength", "1000000")
        self.assertEqual(self.broken("plain"), ["item 1: nestedEntFullPath has length 1000000 and capacity 8"])
        self.prints("$record->nestedEntFullPath", "<vector that has length 1000000 and capacity 8>")

    def test_a_vector_that_cannot_be_read_is_reported(self) -> None:
        self.damage("$record->hlVpArray.data.block", "8")
        self.assertEqual(self.broken("plain"), ["item 1: hlVpArray cannot be read"])
        self.prints("$record->hlVpArray", "<memory at 0x8 cannot be read>")

    def test_elements_that_cannot_be_read_end_a_vector(self) -> None:
        self.damage("$record->nestedEntFullPath.data.block->array", "16")
        self.prints("$record->nestedEntFullPath", "vector of 2 = {<memory at 0x10 cannot be read>}")

    def test_a_field_that_an_info_lacks_is_reported(self) -> None:
        self.damage("$slots[2].value->selectedEntityInfo->presenceBits", "3")
        self.assertEqual(self.broken("plain"), ["item 2: selectedEntityInfo has presenceBits 0x3, but no matrix"])
        self.prints("*$slots[2].value->selectedEntityInfo", "<info that has presenceBits 0x3, but no matrix> = "
                    "{word0 = 0, word1 = 0, halfWord = -1, " + FENCE + ", matrix = <missing>}")

    def test_an_array_that_is_longer_than_its_storage_is_reported(self) -> None:
        self.damage("plain.iterators.mLogicalLength", "99")
        self.assertEqual(self.broken("plain"), ["the list of iterators has length 99 and capacity 8"])
        self.prints("plain.iterators", "<array that has length 99 and capacity 8>")

    def test_an_iterator_that_is_registered_twice_is_reported(self) -> None:
        self.damage("plain.iterators.mArray[1]", "plain.iterators.mArray[0]")
        self.assertEqual(self.broken("plain"), ["iterator ADDRESS is registered twice"])

    def test_an_iterator_that_is_registered_with_another_set_is_reported(self) -> None:
        self.damage("plain.iterators.mArray[1]", "&disabled")
        self.assertEqual(self.broken("plain"), ["iterator ADDRESS is registered, but walks another set"])

    def test_an_iterator_that_cannot_be_read_is_reported(self) -> None:
        self.damage("plain.iterators.mArray[1]", "8")
        self.assertEqual(self.broken("plain"), ["the registered iterator 0x8 cannot be read"])

    def test_an_iterator_of_a_store_that_is_gone_says_so(self) -> None:
        self.damage("plain.sharedData", "holes.sharedData")
        self.prints("onItem", "iterator of a store that its set no longer has")

    def test_an_iterator_on_a_page_outside_of_the_chain_says_so(self) -> None:
        self.damage("$store->head", "0")
        self.prints("onItem", "iterator on a page that is not in the chain")

    def test_an_iterator_that_is_older_than_the_page_at_its_address_is_stale(self) -> None:
        self.damage("onItem.truckerIterator->epoch", "onItem.truckerIterator->epoch - 64")
        self.prints("onItem", "stale iterator: its page was freed")

    def test_a_wrong_count_of_the_index_is_reported(self) -> None:
        self.damage("$data->dataMap._M_t._M_impl._M_node_count", "9")
        self.assertEqual(self.broken("plain"), ["the index counts 9 entries, but has 4"])

    def test_an_index_that_is_a_ring_is_walked_once(self) -> None:
        root = "$data->dataMap._M_t._M_impl._M_header._M_parent"
        self.damage(f"{root}->_M_left->_M_left", f"{root}")
        self.assertEqual(self.broken("plain"), ["the index reaches the entry at ADDRESS twice"])

    def test_an_index_entry_that_cannot_be_read_is_reported(self) -> None:
        self.damage("$data->dataMap._M_t._M_impl._M_header._M_parent->_M_left", "8")
        self.assertEqual(self.broken("plain"), ["the index entry at 0x8 cannot be read"])

    def test_an_index_entry_that_names_no_item_is_reported(self) -> None:
        self.damage("*(long*)($data->dataMap._M_t._M_impl._M_header._M_left + 1)", "0x70")
        self.damage("*(long*)((char*)($data->dataMap._M_t._M_impl._M_header._M_left + 1) + 8)", "0x70")
        self.assertEqual(self.broken("plain"), ["the index entry of 0x70 names 0x70, which is no occupied slot",
                                                "item 0 has no index entry"])

    def test_an_item_that_is_indexed_twice_is_reported(self) -> None:
        first = "((long*)($data->dataMap._M_t._M_impl._M_header._M_left + 1))"
        last = "((long*)($data->dataMap._M_t._M_impl._M_header._M_right + 1))"
        self.damage(f"{last}[1]", f"{first}[1]")
        self.assertEqual(self.broken("plain"), ["item 0 is indexed twice",
                                                "item 0 is indexed under 0x50, but its main id is 0x10",
                                                "item 3 has no index entry"])

    def test_entries_of_an_id_in_another_order_are_reported(self) -> None:
        header = "modes.sharedData->dataMap._M_t._M_impl._M_header"
        first, last = (f"((long*)({header}.{end} + 1))" for end in ("_M_left", "_M_right"))
        self.gdb(f"set var $slot = {first}[1]")
        self.damage(f"{first}[1]", f"{last}[1]")
        self.damage(f"{last}[1]", "$slot")
        self.assertEqual(self.broken("modes"), ["items 0 and 1 of one main id are indexed in another order"])

    def test_many_problems_of_a_kind_are_counted(self) -> None:
        self.damage("$slots[6].free", "5")
        for number in range(7, 13):
            self.damage(f"$slots[{number}].free", "5")
        self.assertEqual(self.broken("plain")[4:], ["page 0: slot 10 is marked 5", "and 2 more slots with a wrong mark"])


class OnRandomDamage(Shown):
    def test_no_damage_makes_an_error_of_python(self) -> None:
        gdb = stopped()
        self.addCleanup(gdb.close)
        report = gdb(f"source {Path(__file__).with_name('damage.py')}")
        self.assertNotRegex(report, PYTHON_ERROR)
        self.assertRegex(report, r"\d+ words were damaged")


class WithoutDebugInformation(Shown):
    def test_the_command_says_what_is_missing(self) -> None:
        with tempfile.TemporaryDirectory() as directory:
            stripped = str(Path(directory) / "stripped")
            subprocess.run(["strip", "--strip-debug", "-o", stripped, PROGRAM], check=True)
            self.gdb = Debugger("-ex", f"source {LOAD}", stripped)
            self.addCleanup(self.gdb.close)
            self.gdb("break main")
            self.gdb("run")
            self.reports("$sp", "info kvset: no debug information describes GxapSelectSet; "
                         "compile the program, or the library, with -g")


if __name__ == "__main__":
    skip_unless_possible()
    unittest.main()
