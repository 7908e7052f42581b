"""Shows the objects of libKvSelectContext in gdb.

Everything is read from memory, at the places that the debug information gives. Nothing is called in the process. So a core
file can be looked at as well, and so can a process that stopped in the middle of an edit.
"""

from . import command, printers


def register(objfile):
    """Registers the printers with an object file, or for all files if `objfile` is None. Adds the command `info kvset`."""
    printers.register(objfile)
    command.InfoKvSet()
