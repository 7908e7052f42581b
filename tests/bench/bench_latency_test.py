#!/usr/bin/python3
"""Runs bench-latency on runs whose figures are known, and compares what it prints."""

import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

REPORT = sys.argv.pop() if len(sys.argv) > 1 else ""

HEAD = "operation,order,size,p50,p99,p99.99,max\n"
CLOCK = "reading the clock,ascending,1000,200,210,900,5000\n"

RUNS = HEAD + CLOCK + """\
select a new item,ascending,1000,300,400,500,900
select a new item,ascending,1000,320,390,800,70000
select a new item,ascending,1000,310,410,700,800
walk step,shuffled,1000,220,230,240,250
"""

TABLE = """\
Single calls, in ns of their thread's processor time. Each figure is the median of 3 runs.
Nothing is subtracted: the clock itself takes p50 200, p99 210, p99.99 900, max 5000.

operation          order      size  p50  p99  p99.99  max
select a new item  ascending  1000  310  400     700  900
walk step          shuffled   1000  220  230     240  250
"""


class BenchLatency(unittest.TestCase):
    maxDiff = None

    def report(self, latencies: str) -> subprocess.CompletedProcess:
        with tempfile.TemporaryDirectory() as directory:
            path = Path(directory) / "latency.csv"
            path.write_text(latencies, encoding="utf-8")
            return subprocess.run([REPORT, str(path)], capture_output=True, text=True, check=False)

    def test_prints_the_median_of_each_figure_and_what_the_clock_takes(self) -> None:
        done = self.report(RUNS)
        self.assertEqual((done.returncode, done.stderr, done.stdout), (0, "", TABLE))

    def test_says_that_there_was_one_run(self) -> None:
        self.assertIn("the median of 1 run.\n", self.report(HEAD + CLOCK + "walk step,shuffled,1000,1,2,3,4\n").stdout)

    def test_says_that_the_clock_is_unknown(self) -> None:
        self.assertIn("the clock itself takes unknown", self.report(HEAD + "walk step,shuffled,1000,1,2,3,4\n").stdout)

    def test_fails_when_nothing_was_timed(self) -> None:
        done = self.report(HEAD + CLOCK)
        self.assertEqual((done.returncode, done.stderr), (1, "bench-latency: nothing was timed\n"))


if __name__ == "__main__":
    unittest.main()
