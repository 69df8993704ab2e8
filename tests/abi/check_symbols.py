#!/usr/bin/env python3
"""Compare what a shared library exports with a committed list: check_symbols.py [--update] LIBRARY LIST

Callers' programs are linked to these names: one that goes away breaks them, and one that slips out can never be taken
back. One list serves 32-bit and 64-bit builds. What a 32-bit library imports must know dates after 2038.
"""
import argparse
import difflib
import pathlib
import re
import subprocess
import sys

# Code that compilers put into every program, other libraries and our own inner parts.
NEVER = re.compile(r"\b(std|__gnu_cxx|xercesc_\w+|callorv::detail)::")

# What has a twin with 64-bit times in a 32-bit program.
ENDS_2038 = re.compile(r" U ((?:time|localtime_r|gmtime_r|mktime|[fl]?stat(?:64)?|select|gettimeofday|clock_gettime)@.*)")


def imported_until_2038(library):
    with open(library, "rb") as file:
        if file.read(5)[4] != 1:    # not 32-bit
            return []
    table = subprocess.run(["nm", "--dynamic", "--undefined-only", library], check=True, capture_output=True, text=True)
    return ENDS_2038.findall(table.stdout)


def exported(library):
    table = subprocess.run(["nm", "--dynamic", "--defined-only", "--demangle", "--print-size", library],
                           check=True, capture_output=True, text=True).stdout
    names = set()
    for address, size, kind, name in re.findall(r"^(\w+) (?:(\w+) )?(\w) (.*)$", table, re.MULTILINE):
        if kind == "A":         # the version node itself
            continue
        # va_list is a pointer to char in a 32-bit program
        name = re.sub(r"@@\w+$", "", name).replace("__va_list_tag*", "char*")
        if name.startswith("vtable for "):    # a function more or less would move those of callers' own classes
            name += f" with {int(size, 16) // (len(address) // 2) - 2} functions"
        names.add(name)
    return sorted(names)


def main():
    parser = argparse.ArgumentParser(description="Compare what a shared library exports with a committed list.")
    parser.add_argument("--update", action="store_true", help="write LIST anew")
    parser.add_argument("library")
    parser.add_argument("list", type=pathlib.Path)
    options = parser.parse_args()

    names = exported(options.library)
    private = [name for name in names if NEVER.search(name)]
    if private or not names:
        print("may not be exported:" if private else "exports nothing", *private, sep="\n  ")
        return 1
    if options.update:
        options.list.write_text("".join(name + "\n" for name in names), encoding="ascii")
        return 0
    narrow = imported_until_2038(options.library)
    if narrow:
        print("imports what ends in 2038:", *narrow, sep="\n  ")
        return 1
    known = options.list.read_text(encoding="ascii").splitlines()
    difference = list(difflib.unified_diff(known, names, str(options.list), options.library, lineterm="", n=0))
    print(*difference, sep="\n", end="\n" if difference else "")
    return 1 if difference else 0


if __name__ == "__main__":
    sys.exit(main())
