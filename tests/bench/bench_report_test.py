#!/usr/bin/python3
"""Runs bench-report on a small run whose figures are known, and compares what it prints, writes and draws."""

import json
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

REPORT = sys.argv.pop() if len(sys.argv) > 1 else ""

OURS = "KvSelectContext"
VECTOR = "vector+unordered_multimap"
CASCADE = "NCollection List+DataMap"
MANY_MAIN_IDS = "KvSelectContext, n main ids"
CONTEXT = {"cpu": "Some CPU", "num_cpus": 4, "load_avg": [0.5, 0.25, 0.125], "governor": "performance", "left_out": ""}


def entries(name: str, figures: list[float], counter: str = "ns_per_item", region_us: float = 100,
            registered: int = 0) -> list[dict]:
    """The repetitions of one benchmark as kv_bench writes them, with an aggregate behind them."""
    common = {"family_index": registered, "name": name, "run_name": f"{name}/iterations:1/manual_time"}
    repetitions = [
        {**common, "run_type": "iteration", "repetition_index": i, counter: value, "shortest_region_us": region_us}
        for i, value in enumerate(figures)
    ]
    aggregate = {**common, "run_type": "aggregate", "aggregate_name": "mean", counter: 1e9}
    return [*repetitions, aggregate]


def benchmarks() -> list[dict]:
    """Reported in another order than registered, as interleaved benchmarks are."""
    return [
        *entries(f"memory/ascending/100/{OURS}", [150.5], "bytes_per_item", registered=9),
        *entries(f"select/ascending/100/{OURS}", [30, 10, 20]),
        *entries(f"select/ascending/100/{VECTOR}", [41, 40, 39]),
        *entries(f"select/ascending/100/{CASCADE}", [25, 24, 26]),
        *entries(f"select/ascending/1000000/{OURS}", [210, 190, 200]),
        *entries(f"select/ascending/1000000/{VECTOR}", [100, 100, 100]),
        *entries(f"memory/ascending/100/{VECTOR}", [301], "bytes_per_item", registered=9),
    ]


def with_one_main_id() -> list[dict]:
    name = "one main id, paths differ: merge, half overlapping/shuffled"
    return [
        *entries(f"select/shuffled/10/{OURS}", [20, 20, 20]),
        *entries(f"{name}/1000/{OURS}", [300, 300, 300], registered=1),
        *entries(f"{name}/1000/{MANY_MAIN_IDS}", [100, 100, 100], registered=2),
        *entries(f"{name}/1000/{VECTOR}", [600, 600, 600], registered=3),
        *entries(f"{name}/1000/{CASCADE}", [900, 900, 900], registered=3),
        *entries(f"{name}/100000/{OURS}", [400, 400, 400], registered=1),
        *entries(f"{name}/100000/{MANY_MAIN_IDS}", [200, 200, 200], registered=2),
    ]


TABLE = """\
operation  order         size   unit   ours  vector+hash  OpenCASCADE  /best  /OpenCASCADE
select     ascending      100     ns  20.0         40.0         25.0*   0.80          0.80
select     ascending  1000000     ns   200          100*           -    2.00             -
memory     ascending      100  bytes   150          301*           -    0.50             -

Machine: Some CPU; cores: 4; load before: 0.50 0.25 0.12; governor: performance.
Noise: (max - min) / median of 3 repetitions is 8.0% for the median benchmark, 100.0% at the ninth decile of 5.
"""

CSV = f"""\
operation,order,size,unit,{OURS},{VECTOR},{CASCADE},best_peer,ratio_to_best_peer,ratio_to_open_cascade,ratio_to_n_main_ids
select,ascending,100,ns,20,40,25,{CASCADE},0.8,0.8,
select,ascending,1000000,ns,200,100,,{VECTOR},2,,
memory,ascending,100,bytes,150.5,301,,{VECTOR},0.5,,
"""

GROWTH = """\
operation  order       100  1000000  growth
select     ascending  20.0      200   10.00
memory     ascending   150        -       -
"""

TABLES_WITH_ONE_MAIN_ID = """\
operation  order     size  unit   ours  /best  /OpenCASCADE
select     shuffled    10    ns  20.0       -             -

one main id   operation                order       size  unit  ours  n main ids  /n main ids  vector+hash  OpenCASCADE  /best
paths differ  merge, half overlapping  shuffled    1000    ns   300         100         3.00         600*         900    0.50
paths differ  merge, half overlapping  shuffled  100000    ns   400         200         2.00           -            -       -

Machine"""

CSV_WITH_ONE_MAIN_ID = f"""\
operation,order,size,unit,{OURS},"{MANY_MAIN_IDS}",{VECTOR},{CASCADE},\
best_peer,ratio_to_best_peer,ratio_to_open_cascade,ratio_to_n_main_ids
select,shuffled,10,ns,20,,,,,,,
"one main id, paths differ: merge, half overlapping",shuffled,1000,ns,300,100,600,900,{VECTOR},0.5,0.333333,3
"one main id, paths differ: merge, half overlapping",shuffled,100000,ns,400,200,,,,,,2
"""

DOCUMENTED_ONE_MAIN_ID = """\
| Operation | Order | 10 |
|---|---|--:|
| select | shuffled | 20.0 ns; -; - |

Items that all share one main id. Each cell: ours; ours / best contender (which that is); ours / ours with as many main ids as items.

| Operation | Order | 10^3 | 10^5 |
|---|---|--:|--:|
| one main id, paths differ: merge, half overlapping | shuffled | 300 ns; 0.50 (vector+hash); 3.00 | 400 ns; -; 2.00 |

![Cost per item of each operation, shuffled ids](page-shuffled.svg)
"""

PAGE = """\
before
<!-- results begin: written by scripts/bench --document -->
old
<!-- results end -->
behind
"""

DOCUMENTED = """\
before
<!-- results begin: written by scripts/bench --document -->

Machine: Some CPU; cores: 4; load before: 0.50 0.25 0.12; governor: performance.
Noise: (max - min) / median of 3 repetitions is 8.0% for the median benchmark, 100.0% at the ninth decile of 5.

Each cell: ours; ours / best contender (which that is); ours / Open CASCADE's. Below 1, ours costs less.

| Operation | Order | 10^2 | 10^6 |
|---|---|--:|--:|
| select | ascending | 20.0 ns; 0.80 (OpenCASCADE); 0.80 | 200 ns; 2.00 (vector+hash); - |
| memory | ascending | 150 bytes; 0.50 (vector+hash); - | - |

![Cost per item of each operation, ascending ids](page-ascending.svg)

<!-- results end -->
behind
"""


class BenchReport(unittest.TestCase):
    maxDiff = None

    def setUp(self) -> None:
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.directory = Path(directory.name)

    def report(self, measured: list[dict], *arguments: str, context: dict = CONTEXT) -> subprocess.CompletedProcess:
        results = self.directory / "results.json"
        results.write_text(json.dumps({"context": context, "benchmarks": measured}), encoding="utf-8")
        return subprocess.run([REPORT, str(results), *arguments], capture_output=True, text=True, check=False)

    def test_prints_medians_and_ratios(self) -> None:
        done = self.report(benchmarks())
        self.assertEqual((done.returncode, done.stderr, done.stdout), (0, "", TABLE))

    def test_writes_csv(self) -> None:
        written = self.directory / "results.csv"
        self.report(benchmarks(), "--csv", str(written))
        self.assertEqual(written.read_text(encoding="utf-8"), CSV)

    def test_prints_items_with_one_main_id_beside_those_with_many(self) -> None:
        done = self.report(with_one_main_id())
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        self.assertEqual(done.stdout[:len(TABLES_WITH_ONE_MAIN_ID)], TABLES_WITH_ONE_MAIN_ID)

    def test_prints_one_table_where_all_items_have_one_main_id(self) -> None:
        done = self.report([entry for entry in with_one_main_id() if entry["name"].startswith("one")])
        self.assertTrue(done.stdout.startswith("one main id "), done.stdout)

    def test_writes_csv_of_items_with_one_main_id(self) -> None:
        written = self.directory / "results.csv"
        self.report(with_one_main_id(), "--csv", str(written))
        self.assertEqual(written.read_text(encoding="utf-8"), CSV_WITH_ONE_MAIN_ID)

    def test_documents_items_with_one_main_id(self) -> None:
        page = self.directory / "page.md"
        page.write_text(PAGE, encoding="utf-8")
        self.assertEqual(self.report(with_one_main_id(), "--document", str(page)).returncode, 0)
        self.assertIn(DOCUMENTED_ONE_MAIN_ID, page.read_text(encoding="utf-8"))

    def test_draws_no_items_with_one_main_id(self) -> None:
        done = self.report(with_one_main_id(), "--plot", str(self.directory / "plot"))
        self.assertEqual(done.stderr, "")
        self.assertNotIn("one main id", (self.directory / "plot-shuffled.svg").read_text(encoding="utf-8"))

    def test_prints_growth_of_our_own_cost(self) -> None:
        done = self.report(benchmarks(), "--growth")
        self.assertEqual(done.stdout.partition("\n\n")[0] + "\n", GROWTH)

    def test_draws_every_contender(self) -> None:
        done = self.report(benchmarks(), "--plot", str(self.directory / "plot"))
        self.assertEqual(done.stderr, "")
        picture = (self.directory / "plot-ascending.svg").read_text(encoding="utf-8")
        for text in (OURS, VECTOR, CASCADE, "select", "memory"):
            self.assertIn(f">{text}</text>", picture)
        self.assertEqual((self.directory / "plot-ascending.png").read_bytes()[:8], b"\x89PNG\r\n\x1a\n")

    def test_writes_results_between_the_markers_of_a_page(self) -> None:
        page = self.directory / "page.md"
        page.write_text(PAGE, encoding="utf-8")
        for _ in range(2):  # the second time, over its own text
            self.assertEqual(self.report(benchmarks(), "--document", str(page)).returncode, 0)
            self.assertEqual(page.read_text(encoding="utf-8"), DOCUMENTED)
        self.assertEqual([p.name for p in sorted(self.directory.glob("page-*"))], ["page-ascending.svg"])

    def test_leaves_a_page_without_markers_alone(self) -> None:
        page = self.directory / "page.md"
        page.write_text("no markers\n", encoding="utf-8")
        done = self.report(benchmarks(), "--document", str(page))
        self.assertEqual(done.returncode, 1)
        self.assertIn("needs one line", done.stderr)
        self.assertEqual(page.read_text(encoding="utf-8"), "no markers\n")

    def test_prints_no_ratio_of_zero(self) -> None:
        done = self.report([*entries(f"walk/shuffled/100/{OURS}", [1, 1]), *entries(f"walk/shuffled/100/{VECTOR}", [201, 201])])
        self.assertIn("  <0.01", done.stdout)
        self.assertNotIn("0.00", done.stdout)

    def test_says_what_is_left_out(self) -> None:
        done = self.report(benchmarks(), context={**CONTEXT, "left_out": "QList+QMultiHash"})
        self.assertIn("Left out, their packages are not installed: QList+QMultiHash.\n", done.stdout)

    def test_names_what_was_timed_too_briefly(self) -> None:
        done = self.report([*entries(f"walk/shuffled/100/{OURS}", [1, 2], region_us=49),
                            *entries(f"walk/shuffled/100/{VECTOR}", [1, 2], region_us=50),
                            *entries(f"walk/shuffled/100/{CASCADE}", [1, 2], region_us=1)])
        self.assertIn(f"Timed in less than 50 us: walk/shuffled/100/{OURS}, walk/shuffled/100/{CASCADE}\n", done.stdout)

    def test_fails_when_a_measurement_failed(self) -> None:
        name = f"walk/shuffled/100/{OURS}"
        failed = {"family_index": 0, "name": name, "run_name": name, "run_type": "iteration", "error_occurred": True, "error_message": "died"}
        done = self.report([*benchmarks(), failed], "--csv", str(self.directory / "results.csv"))
        self.assertEqual(done.returncode, 1)
        self.assertIn(f"FAILED: {name}: died\n", done.stdout)
        self.assertFalse((self.directory / "results.csv").exists())

    def test_fails_when_nothing_was_measured(self) -> None:
        done = self.report([])
        self.assertEqual(done.returncode, 1)
        self.assertIn("nothing was measured", done.stderr)

    def test_fails_when_no_benchmark_matched(self) -> None:
        results = self.directory / "results.json"
        results.write_text("", encoding="utf-8")
        done = subprocess.run([REPORT, str(results)], capture_output=True, text=True, check=False)
        self.assertEqual((done.returncode, done.stderr), (1, "bench-report: nothing was measured\n"))


if __name__ == "__main__":
    unittest.main()
