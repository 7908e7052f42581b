"""Runs gdb and talks to it. Shared by the tests of the printers."""

import re
import shutil
import subprocess
import sys

SKIPPED = 77
_MARK = "--end of the output--"


def why_not() -> str:
    """Returns why the tests cannot run here, or an empty text."""
    if not shutil.which("gdb"):
        return "gdb is not installed"
    done = subprocess.run(
        ["gdb", "-nx", "-batch", "-ex", "python print('has', 'python')", "-ex", "starti", "--args", "/bin/true"],
        capture_output=True, text=True, check=False, stdin=subprocess.DEVNULL)
    if "has python" not in done.stdout:
        return "gdb is built without Python"
    if "Program stopped" not in done.stdout:
        return "gdb may not trace a process here"
    return ""


def skip_unless_possible() -> None:
    reason = why_not()
    if reason:
        print(f"skipped: {reason}")
        sys.exit(SKIPPED)


class Debugger:
    """A running gdb. It has no commands but those that it is given."""

    def __init__(self, *arguments: str) -> None:
        command = ["gdb", "-nx", "-q", "-iex", "set debuginfod enabled off", "-iex", "set prompt", "-iex", "set width 0",
                   "-iex", "set height 0", "-iex", "set confirm off", *arguments]
        self._gdb = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                                     text=True, errors="replace")

    def __call__(self, command: str) -> str:
        """Runs a command and returns what gdb prints, without the number of the value."""
        self._gdb.stdin.write(f"{command}\necho \\n{_MARK}\\n\n")
        self._gdb.stdin.flush()
        lines = []
        for line in self._gdb.stdout:
            if line.rstrip("\n") == _MARK:
                break
            lines.append(line)
        else:
            raise RuntimeError("gdb has ended: " + "".join(lines))
        return re.sub(r"^\$\d+ = ", "", "".join(lines).strip("\n"))

    def close(self) -> None:
        self._gdb.communicate()
