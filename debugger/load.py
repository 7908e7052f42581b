"""Loads the printers for the objects of libKvSelectContext into gdb: source this file."""

import os
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))

import kvselectcontext  # noqa: E402

kvselectcontext.register(None)
