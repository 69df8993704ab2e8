#!/usr/bin/env python3
"""documented.py XML: fails for a function, class or record of the public headers of which no comment says a word.

A comment serves the declarations that follow it without an empty line (header_filter.py). What is deleted cannot be called,
and a destructor, a copy and a default constructor do what the class says."""
import pathlib
import sys
import xml.etree.ElementTree as ET


def words(element):
    return any(text.strip() for text in element.find("detaileddescription").itertext())


def goes_without(function, owner):
    """Whether a function needs no words of its own."""
    name = function.findtext("name")
    if function.findtext("argsstring").replace(" ", "").endswith(("=delete", "=default")):
        return True
    own = owner.rsplit("::", maxsplit=1)[-1]
    takes = [kind for kind in ("".join(kind.itertext()) for kind in function.iterfind("param/type")) if kind != "void"]
    copied = [f"const {own} &", f"{own} &&", own, f"const {own}<T> &"]
    return name == f"~{own}" or name in (own, "operator=") and (not takes or len(takes) == 1 and takes[0] in copied)


def place(element):
    return element.find("location").get("file")


def main():
    seen, missing = set(), []
    for path in sorted(pathlib.Path(sys.argv[1]).glob("*.xml")):
        for compound in ET.parse(path).getroot().iterfind("compounddef"):
            owner, kind = compound.findtext("compoundname"), compound.get("kind")
            if kind not in ("class", "struct", "group", "file") or compound.get("prot") == "private":
                continue
            if kind in ("class", "struct"):
                seen.add(owner)
                if not words(compound):
                    missing.append(f"{place(compound)}: {owner}")
            for function in compound.iterfind("sectiondef/memberdef[@kind='function']"):
                if function.get("prot") == "private" or function.get("id") in seen:
                    continue
                seen.add(function.get("id"))
                if not words(function) and not goes_without(function, owner):
                    name = function.findtext("definition") + function.findtext("argsstring")
                    missing.append(f"{place(function)}: {name}")
    for one in missing:
        print(f"no comment says what this does: {one}", file=sys.stderr)
    print(f"documented: {len(seen) - len(missing)} of {len(seen)} functions, classes and records")
    return bool(missing) or len(seen) < 300


sys.exit(main())
