#!/usr/bin/env python3
"""named_files.py PAGE ...: fails for a page that names a file that does not exist; run from the top of the tree. A file is named by its
path from there, or as programs include it."""
import pathlib
import re
import sys

PATH = re.compile(r"(?<![\w./<-])((?:[\w.-]+/)+[\w-]+\.[a-z]\w*|CMakeLists\.txt|[A-Z]+\.md)(?![\w/*])")
LINK = re.compile(r"\]\([^)]*\)")


def main():
    bad, seen = [], 0
    for page in map(pathlib.Path, sys.argv[1:]):
        for number, line in enumerate(page.read_text(encoding="utf-8").splitlines(), 1):
            for name in PATH.findall(LINK.sub("]", line)):
                seen += 1
                if not pathlib.Path(name).is_file() and not pathlib.Path("include", name).is_file():
                    bad.append(f"{page}:{number}: there is no {name}")
    print("\n".join([*bad, f"{seen} files named in {len(sys.argv) - 1} pages, {len(bad)} of them are not there"]))
    return bool(bad) or not seen


sys.exit(main())
