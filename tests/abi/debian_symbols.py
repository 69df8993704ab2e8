#!/usr/bin/env python3
"""Compare the symbols files of the Debian packages with cmake/*.symbols: debian_symbols.py [--update]

A package that was built with a new function must ask for a library that has it: a symbols file says since which version each
one is there. --update adds what is new, with the version of these sources, and takes out what is gone.
"""
import argparse
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]


def lines(library, version):
    """The symbols file of a library without versions but for the new symbols."""
    major = version.split(".")[0]
    node = f"{library.upper()}_{major}"
    package = f"lib{library.replace('_', '-')}{major}"
    path = ROOT / "debian" / f"{package}.symbols"
    known = {}
    if path.exists():
        known = dict(re.findall(r"^ (\S.*) (\S+)$", path.read_text(encoding="ascii"), re.MULTILINE))
    names = (ROOT / "cmake" / f"{library}.symbols").read_text(encoding="ascii").splitlines()
    symbols = [node + "@" + node]
    for name in sorted(re.sub(r" with \d+ functions$", "", name) for name in names):
        symbols.append(f"{name}@{node}" if re.fullmatch(r"\w+", name) else f'(c++)"{name}@{node}"')
    head = [f"lib{library}.so.{major} {package} #MINVER#", "* Build-Depends-Package: libcallorv-dev"]
    return path, head + [f" {symbol} {known.get(symbol, version)}" for symbol in symbols]


def main():
    parser = argparse.ArgumentParser(description="Compare debian/*.symbols with cmake/*.symbols.")
    parser.add_argument("--update", action="store_true", help="write debian/*.symbols anew")
    options = parser.parse_args()
    header = (ROOT / "include/callorv/version.h").read_text(encoding="ascii")
    version = re.search(r'CALLORV_VERSION "(.*)"', header)[1]
    status = 0
    for library in ("callorv", "callorv_dat"):
        path, wanted = lines(library, version)
        text = "".join(line + "\n" for line in wanted)
        if options.update:
            path.write_text(text, encoding="ascii")
        elif path.read_text(encoding="ascii") != text:
            print(f"{path.relative_to(ROOT)} is not what cmake/{library}.symbols says: run {sys.argv[0]} --update")
            status = 1
    return status


if __name__ == "__main__":
    sys.exit(main())
