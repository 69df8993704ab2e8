#!/usr/bin/env python3
"""Compare what a shared library exports with a committed list: check_symbols.py [--update] LIBRARY LIST

Callers' programs are linked to these names: one that goes away breaks them, and one that slips out can never be taken
back. The list names what public headers declare outside private sections, and by hand what inline code in them calls
besides; the build exports just that, whatever was inlined. One list serves 32-bit and 64-bit builds. What a 32-bit
library imports must know dates after 2038.
"""
import argparse
import collections
import difflib
import pathlib
import re
import subprocess
import sys

HEADERS = pathlib.Path(__file__).resolve().parents[2] / "include" / "callorv"

# What has a twin with 64-bit times in a 32-bit program.
ENDS_2038 = re.compile(r"(time|localtime_r|gmtime_r|mktime|[fl]?stat(64)?|select|gettimeofday|clock_gettime)@")

Symbol = collections.namedtuple("Symbol", "size binding visibility section name")


def declared():
    """The names, without arguments, that public headers declare for callers."""
    names = set()
    for header in HEADERS.rglob("*.h"):
        text = re.sub(r"//.*|/\*[\s\S]*?\*/|^ *#.*", "", header.read_text(encoding="utf-8"), flags=re.MULTILINE)
        scopes, start = [["", False]], 0    # the exported class that is open, whether what follows is for callers
        for mark in re.finditer(r"[{};]|\b(?:public|protected|private):(?!:)", text):
            code, start = text[start:mark.start()], mark.end()
            scope, is_open = scopes[-1]
            exported_class = re.search(r"(class|struct) CALLORV_API (\w+)", code)
            if is_open:
                words = re.findall(r"operator\s*[^\s\w(]+|~?\w+", code)
                names.update(scope + re.sub(r"\s", "", word) for word in words)
            elif not scope:
                names.update(re.findall(r"CALLORV_API [^;]*?(operator[^\s\w(]+|\w+)\(", code))
            if mark[0] == "{":
                if exported_class:
                    name = scope + exported_class[2]
                    names.update(f"{what} for {name}" for what in ("vtable", "typeinfo", "typeinfo name"))
                    scopes.append([name + "::", exported_class[1] == "struct"])
                else:
                    scopes.append([scope, False])
            elif mark[0] == "}":
                scopes.pop()
            elif mark[0] != ";":
                scopes[-1][1] = mark[0] != "private:"
    return names


def is_declared(symbol, names):
    return re.sub(r"<\w+>|\(.*|(?<=operator) | with \d+ functions$", "", symbol) in names


def symbols(*files):
    """The defined symbols of a table and the undefined ones."""
    table = subprocess.run(["readelf", "--demangle", "--wide", *files], check=True, capture_output=True,
                           text=True).stdout
    entry = re.compile(r"^ *\d+: \w+ +(\w+) \w+ +(\w+) +(\w+) +(\w+) (.+)$", re.MULTILINE)
    found = [Symbol(*line) for line in entry.findall(table)]
    return [s for s in found if s.section not in ("UND", "ABS")], [s for s in found if s.section == "UND"]


def written(symbol, word):
    """A defined symbol as it stands in a list."""
    # va_list is a pointer to char in a 32-bit program
    name = re.sub(r"@@\w+$", "", symbol.name).replace("__va_list_tag*", "char*")
    if name.startswith("vtable for "):    # a function more or less would move those of callers' own classes
        name += f" with {int(symbol.size, 0) // word - 2} functions"
    return name


def main():
    parser = argparse.ArgumentParser(description="Compare what a shared library exports with a committed list.")
    parser.add_argument("--update", action="store_true", help="write LIST anew; the next build exports what it names")
    parser.add_argument("library", type=pathlib.Path, help="where it was built")
    parser.add_argument("list", type=pathlib.Path)
    options = parser.parse_args()

    with open(options.library, "rb") as file:
        word = 4 if file.read(5)[4] == 1 else 8
    exported, imported = symbols("--dyn-syms", options.library)
    exported = {written(symbol, word) for symbol in exported}
    known = options.list.read_text(encoding="ascii").splitlines()
    # The linker has made local what the list lacks; the objects of the build say what would be exported without one.
    objects = list(options.library.parent.glob("CMakeFiles/callorv_*.dir/**/*.o"))
    if not objects:
        sys.exit(f"{options.library.parent} is no build folder")
    there = {written(symbol, word) for symbol in symbols("--syms", *objects)[0]
             if symbol.binding != "LOCAL" and symbol.visibility == "DEFAULT"}
    there.intersection_update(written(symbol, word) for symbol in symbols("--syms", options.library)[0])
    names = declared()
    promised = {name for name in there if is_declared(name, names)}
    if options.update:
        promised.update(there.intersection(known))
        options.list.write_text("".join(name + "\n" for name in sorted(promised)), encoding="ascii")
        return 0

    narrow = [symbol.name for symbol in imported if ENDS_2038.match(symbol.name)]
    if narrow and word == 4:
        print("imports what ends in 2038:", *narrow, sep="\n  ")
        return 1
    difference = [*difflib.unified_diff(known, sorted(exported), str(options.list), str(options.library),
                                        lineterm="", n=0),
                  *(f"declared for callers, not exported: {name}" for name in sorted(promised.difference(known)))]
    print(*difference, sep="\n", end="\n" if difference else "")
    if difference:
        print(f"When that is meant: {sys.argv[0]} --update {options.library} {options.list}, and build again.")
    return 1 if difference else 0


if __name__ == "__main__":
    sys.exit(main())
