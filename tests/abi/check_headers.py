#!/usr/bin/env python3
"""Compare what programs have compiled in from the public headers with the recorded headers: check_headers.py RECORDED HEADERS

Enumerators, macros and the bodies of inline functions and templates stand in programs that were built long ago, and no tool for
libraries looks at them. Each one that is recorded must be there with the same value or text; there may be more. In which file
it stands does not matter.
"""
import difflib
import pathlib
import re
import sys

NOT_KEPT = re.compile(r"\w+_HP*$|CALLORV_VERSION")    # include guards, and what says which headers these are
MARK = re.compile(r"[{};]|\b(?:public|protected|private):(?!:)")
TEMPLATE = re.compile(r"^template ?<(?:[^<>]|<(?:[^<>]|<[^<>]*>)*>)*> ?")
SCOPE = re.compile(r"^(?:typedef )?(?:namespace|class|struct|union|extern \"C\")(?: CALLORV_API)? ?([\w:]*(?:<[^{]*?>)?)(?= ?:|$)")


def plain(text):
    return re.sub(r"\s+", " ", text).strip()


def end_of(text, start):
    """Where the brace is closed that is open before start."""
    depth = 1
    for mark in re.finditer(r"[{}]", text[start:]):
        depth += 1 if mark[0] == "{" else -1
        if depth == 0:
            return start + mark.start()
    raise ValueError("a brace stays open")


def enumerators(scope, body):
    """Each name with the text from which it counts and how far it has counted."""
    base, offset = "0", -1
    for entry in filter(None, map(plain, body.split(","))):
        name, _, value = map(plain, entry.partition("="))
        base, offset = (value, 0) if value else (base, offset + 1)
        if re.fullmatch(r"-?\d+", base):
            base, offset = str(int(base) + offset), 0
        yield f"enumerator {scope}{name}", f"{base} + {offset}"


def compiled_in(folder):
    found = {}
    for header in sorted(pathlib.Path(folder).rglob("*.h*")):
        text = re.sub(r"//.*|/\*[\s\S]*?\*/", "", header.read_text(encoding="utf-8")).replace("\\\n", " ")
        for name, value in re.findall(r"^ *# *define +(\w+(?:\([^)]*\))?)(.*)", text, re.MULTILINE):
            if not NOT_KEPT.match(name):
                found[f"macro {name}"] = plain(value)
        text = re.sub(r"^ *#.*", "", text, flags=re.MULTILINE)
        scopes, start = [""], 0
        while mark := MARK.search(text, start):
            head, start = plain(text[start:mark.start()]), mark.end()
            if mark[0] == "}":
                scopes.pop()
            if mark[0] != "{":
                continue
            scope = SCOPE.match(TEMPLATE.sub("", head))
            if scope:
                scopes.append(f"{scopes[-1]}{scope[1]}::" if scope[1] else scopes[-1])
                continue
            end = end_of(text, start)
            body, start = text[start:end], end + 1
            if re.match(r"(typedef )?enum\b", head):
                found.update(enumerators(scopes[-1], body))
            else:
                found[f"inline {scopes[-1]} {head}"] = plain(body)
    return found


def main():
    recorded, now = map(compiled_in, sys.argv[1:])
    if not recorded:
        sys.exit(f"{sys.argv[1]} has no headers of ours")
    bad = 0
    for name, value in recorded.items():
        if now.get(name) != value:
            bad += 1
            print(f"{name}: was {{ {value} }}, is {{ {now[name]} }}" if name in now else f"{name}: is gone; "
                  f"perhaps {difflib.get_close_matches(name, now, 1)} now")
    print(f"{len(recorded)} enumerators, macros and inline functions recorded, {bad} changed" + ": docs/abi.md says what then" * bool(bad))
    return 1 if bad else 0


if __name__ == "__main__":
    sys.exit(main())
