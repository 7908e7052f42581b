#!/usr/bin/python3
"""Runs bench-counts on dumps, tables and timings whose figures are known, and compares what it prints and writes."""

import json
import os
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

REPORT = sys.argv.pop() if len(sys.argv) > 1 else ""

EVENTS = "events: Ir Dr Dw I1mr D1mr D1mw ILmr DLmr DLmw"
CSV_HEAD = "operation,order,size,instructions,first_level_misses,last_level_misses,bytes\n"
COST = "Cost: instructions + 10 x first-level misses + 100 x last-level misses, the usual estimate of cycles, per item.\n"

TABLE = """\
operation         order       size  instructions  first-level misses  last-level misses   cost  bytes
walk              shuffled   10000          50.0               6.000              1.500  260.0   -2.0
merge, half over  ascending    100          10.0               0.000              0.000   10.0   24.0

"""

ABLATION = """\
without     operation  order     size  cost with  cost without  without/with
page_index  f          shuffled   100      100.0         600.0          6.00
page_index  e          shuffled   100      100.0         500.0          5.00
page_index  d          shuffled   100      100.0         400.0          4.00
page_index  c          shuffled   100      100.0         300.0          3.00
page_index  b          shuffled   100      100.0         200.0          2.00
page_index  a          shuffled   100      100.0          50.0          0.50
id_hash     a          shuffled   100      100.0         130.0          1.30

"""

COMPARISON = """\
operation  order     size  cost before  cost after  after/before  instructions  bytes before  bytes after
select     shuffled   100        130.0       133.9         1.030         1.030           8.0          8.2
walk       shuffled   100        100.0        50.0         0.500         0.500           0.0          0.0

"""

TIMED = """\
without       operation  order     size  ns with  ns without  without/with  lowest  highest
large_blocks  select     shuffled  1000     20.0        22.0          1.20    1.10     1.50

Time per item, and the median, lowest and highest ratio of 3 rounds with one run of each.
"""


def part(trigger: str, totals: str) -> str:
    return f"part: 1\n\ndesc: Timerange: Basic block 0 - 1\ndesc: Trigger: {trigger}\n{EVENTS}\nfn=(1) main\n0 3\ntotals: {totals}\n"


def row(operation: str, instructions: float, first: float = 0, last: float = 0, added: float = 0) -> str:
    return f"{operation},shuffled,100,{instructions},{first},{last},{added}\n"


class BenchCounts(unittest.TestCase):
    maxDiff = None

    def setUp(self) -> None:
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.directory = Path(directory.name)

    def written(self, name: str, text: str) -> str:
        path = self.directory / name
        path.parent.mkdir(exist_ok=True)
        path.write_text(text, encoding="utf-8")
        return str(path)

    def report(self, *arguments: str) -> subprocess.CompletedProcess:
        return subprocess.run([REPORT, *arguments], capture_output=True, text=True, check=False)

    def counted(self) -> subprocess.CompletedProcess:
        """Of dumps the younger of which has the lower name."""
        end = part("Program termination", "0")
        last = self.written("dumps/1", part("Client Request: merge, half over/ascending/100/4/96", "40") + end)
        first = self.written("dumps/2", part("Client Request: walk/shuffled/10000/10/-20", "500 7 7 10 20 30 1 2 12") + end)
        self.written("dumps/0", end)
        os.utime(first, (1, 1))
        os.utime(last, (2, 2))
        return self.report("table", str(self.directory / "dumps"), str(self.directory / "counts.csv"))

    def test_prints_what_an_item_costs_in_the_order_of_counting(self) -> None:
        done = self.counted()
        self.assertEqual((done.returncode, done.stderr, done.stdout), (0, "", TABLE + COST))

    def test_writes_csv(self) -> None:
        self.counted()
        self.assertEqual((self.directory / "counts.csv").read_text(encoding="utf-8"),
                         CSV_HEAD + "walk,shuffled,10000,50,6,1.5,-2\n\"merge, half over\",ascending,100,10,0,0,24\n")

    def test_fails_when_nothing_was_counted(self) -> None:
        self.written("dumps/1", part("Program termination", "0"))
        done = self.report("table", str(self.directory / "dumps"), str(self.directory / "counts.csv"))
        self.assertEqual((done.returncode, done.stderr), (1, "bench-counts: nothing was counted\n"))

    def test_prints_where_each_shortcut_saves_most_and_least(self) -> None:
        everything = self.written("all.csv", CSV_HEAD + "".join(row(name, 50, 3, 0.2) for name in "abcdefg"))
        without = [
            self.written("page_index/counts.csv",
                         CSV_HEAD + row("a", 50) + "".join(row(name, 100 * i) for i, name in enumerate("bcdef", start=2))),
            self.written("id_hash/counts.csv", CSV_HEAD + row("a", 130)),
        ]
        done = self.report("ablation", everything, *without)
        self.assertEqual((done.returncode, done.stderr, done.stdout.partition(COST)[0]), (0, "", ABLATION))

    def test_compares_two_tables(self) -> None:
        before = self.written("before.csv", CSV_HEAD + row("walk", 100) + row("select", 130, added=8))
        after = self.written("after.csv", CSV_HEAD + row("walk", 50) + row("select", 133.9, added=8.2) + row("minus", 1))
        done = self.report("compare", before, after)
        self.assertEqual((done.returncode, done.stderr, done.stdout),
                         (0, "", COMPARISON + COST + "Only after: minus/shuffled/100\n"))

    def comparison_of(self, before: str, after: str) -> subprocess.CompletedProcess:
        return self.report("compare", self.written("before.csv", CSV_HEAD + before), self.written("after.csv", CSV_HEAD + after))

    def test_fails_when_instructions_are_up(self) -> None:
        done = self.comparison_of(row("walk", 100) + row("select", 100, 9), row("walk", 50) + row("select", 103.1, 1))
        self.assertEqual((done.returncode, done.stdout.partition("Up: ")[2]), (1, "select/shuffled/100\n"))

    def test_fails_when_cache_misses_are_up(self) -> None:
        self.assertEqual(self.comparison_of(row("walk", 100), row("walk", 100, 0.4)).returncode, 1)

    def test_fails_when_bytes_are_up(self) -> None:
        self.assertEqual(self.comparison_of(row("walk", 100, added=100), row("walk", 100, added=104)).returncode, 1)

    def test_fails_when_an_operation_begins_to_leave_memory(self) -> None:
        self.assertEqual(self.comparison_of(row("walk", 100), row("walk", 100, added=1)).returncode, 1)

    def test_fails_when_less_memory_is_freed(self) -> None:
        self.assertEqual(self.comparison_of(row("clear", 100, added=-100), row("clear", 100, added=-90)).returncode, 1)

    def test_fails_when_there_is_nothing_to_compare(self) -> None:
        table = self.written("table.csv", CSV_HEAD + row("walk", 100))
        done = self.report("compare", table, self.written("empty.csv", CSV_HEAD))
        self.assertEqual((done.returncode, done.stderr), (1, "bench-counts: nothing to compare\n"))

    def test_prints_the_median_ratio_of_rounds(self) -> None:
        for number, (with_it, without) in enumerate([(20, 22), (10, 15), (30, 36)], start=1):
            for side, nanoseconds in (("with", with_it), ("without", without)):
                entry = {"run_name": "select/shuffled/1000/KvSelectContext/iterations:1", "ns_per_item": nanoseconds}
                self.written(f"large_blocks/{side}-{number}.json", json.dumps({"benchmarks": [entry]}))
        done = self.report("timed", str(self.directory / "large_blocks"))
        self.assertEqual((done.returncode, done.stderr, done.stdout), (0, "", TIMED))


if __name__ == "__main__":
    unittest.main()
