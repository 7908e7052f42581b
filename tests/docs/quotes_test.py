#!/usr/bin/python3
"""Every piece of C++ in a Markdown page must stand in one of the files to which the page links, line by line.

Usage: quotes_test.py PAGE
"""

import re
import sys
from pathlib import Path

page = Path(sys.argv[1])
text = page.read_text(encoding="utf-8")
sources = {target: (page.parent / target).read_text(encoding="utf-8")
           for target in re.findall(r"\]\(([^)]+\.(?:cpp|h))\)", text)}
sources["tests"] = "".join(path.read_text(encoding="utf-8")
                           for path in (page.parent.parent / "tests" / "platform" / "opencascade").glob("*.cpp"))
quotes = re.findall(r"^ *```cpp\n(.*?)^ *```$", text, re.DOTALL | re.MULTILINE)
missing = [quote for quote in quotes if not any(quote in source for source in sources.values())]
for quote in missing:
    print(f"no file that the page links to has:\n{quote}")
sys.exit(1 if missing or not quotes else 0)
