#!/usr/bin/python3
"""Looks at a set of a program that uses the installed library. gdb finds the printers by itself."""

import sys
import unittest

from debugger import Debugger, skip_unless_possible

PREFIX = sys.argv.pop() if len(sys.argv) > 2 else ""
PROGRAM = sys.argv.pop() if len(sys.argv) > 1 else ""


class AutoLoad(unittest.TestCase):
    def setUp(self) -> None:
        # These are gdb's own directories if the prefix is that of gdb.
        directory = f"{PREFIX}/share/gdb/auto-load"
        self.gdb = Debugger("-iex", f"add-auto-load-scripts-directory {directory}",
                            "-iex", f"add-auto-load-safe-path {directory}", PROGRAM)
        self.addCleanup(self.gdb.close)

    def test_the_printers_come_with_the_library(self) -> None:
        self.assertNotIn("KvSelectContext", self.gdb("info pretty-printer"))
        self.gdb("break walkedItems")
        self.gdb("run")
        self.assertRegex(self.gdb("print set"), r"set of 2 items = \{\[0\] = \{mainEntId = id 0x[0-9a-f]+\}, "
                                                r"\[1\] = \{mainEntId = id 0x[0-9a-f]+\}\}$")
        self.assertTrue(self.gdb("info kvset set").endswith("all invariants hold"))

    def test_the_printers_go_with_the_program(self) -> None:
        self.gdb("break walkedItems")
        self.gdb("run")
        self.gdb("kill")
        self.gdb("file")
        self.assertNotIn("KvSelectContext", self.gdb("info pretty-printer"))


if __name__ == "__main__":
    skip_unless_possible()
    unittest.main()
