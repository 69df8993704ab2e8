#!/usr/bin/env python3
"""header_filter.py HEADER: the header as doxygen wants it, on standard output.

Comments here are plain. One is said of the declaration below it and of all that follow without an empty line and without a
comment of their own; one behind a declaration is said of that; `---- Title.` above an empty line begins a group of C functions
or, in a class, is said of what follows. What is indented in a comment is a list of names, or keeps its lines."""
import pathlib
import re
import sys

SCOPE = re.compile(r'\b(class|struct|union|enum|namespace)\b[^()]*$|extern "C"\s*$')
# What the comment above others is not said of.
NOT_SAID = re.compile(r"^\s*([#}]|static_assert|typedef|friend|$)|~\w+\(|= (delete|default);|operator=\(")
BEHIND = re.compile(r"^(.*?[^\s{(])\s+(?://|/\*)\s?(.*?)\s*(?:\*/)?$")


def escaped(text):
    """A line as reStructuredText takes it literally."""
    parts = text.split("`")
    if len(parts) % 2 == 0:
        sys.exit(f"header_filter: a ` without its other half: {text}")
    parts[::2] = (re.sub(r"([\\*|])|(?<=\w)(_)(?!\w)", lambda mark: "\\" + mark[0], part) for part in parts[::2])
    return "``".join(parts)


def entries(block):
    """Indented lines as a list, when they are names with what is said of them; none for other lines, as columns."""
    out = []
    for line in block:
        entry = re.fullmatch(r"  (\w+)  +(\S.*)", line)
        text = entry[2] if entry else line.strip()
        if "   " in text or not entry and (not out or not line.startswith("     ")):
            return []
        out += [escaped(entry[1]), "   " + escaped(text)] if entry else ["   " + escaped(text)]
    return out


def to_rst(lines):
    """A comment's lines: paragraphs, and blocks that keep their lines."""
    out, block = [], []
    for line in [*lines, ""]:
        if re.match(r"(p_\w+|returns)  +\S", line):
            line = "  " + line
        if line.startswith("  "):
            block.append(line)
            continue
        if block:
            out += ["", *(entries(block) or ["::", "", *("   " + one for one in block)]), ""]
            block = []
        out.append(escaped(line))
    return "\n".join(out).strip()


def doc(lines, mark="", before=""):
    return f"/**{mark} {before}\n@verbatim embed:rst\n{to_rst(lines)}\n@endverbatim */"


class Filter:
    """One header."""

    def __init__(self, path):
        self.lines = path.read_text(encoding="utf-8").splitlines()
        self.is_c = path.name == "callorv.h"
        self.at = 0
        self.out = []
        self.scopes = []        # of each open brace: "class", "around" others that hold declarations, None for the rest
        self.statement = ""     # what has come of the one that is not over
        self.said = None        # the comment that goes on, the depth at which it does, whether its first declaration is to come
        self.preface = []       # what is said of all that follows in a class
        self.group = False      # one is open

    def comment(self):
        """The lines of the comment that begins here, without marks."""
        line, found = self.lines[self.at].strip(), []
        if line.startswith("//"):
            while self.at < len(self.lines) and self.lines[self.at].strip().startswith("//"):
                found.append(re.sub(r"^// ?", "", self.lines[self.at].strip()))
                self.at += 1
            return found
        while True:
            line = self.lines[self.at].strip()
            self.at += 1
            found.append(re.sub(r"^/?\* ?", "", re.sub(r"\s*\*/$", "", line)) if line != "*/" else "")
            if line.endswith("*/"):
                return found

    def free(self, lines):
        """A comment that no declaration follows."""
        title = re.match(r"-{4} (.*)", lines[0])
        if title and self.is_c:
            name, _, rest = re.sub(r"\.? ?-{4}$", "", title[1]).partition(". ")
            name, _, more = name.partition(": ")
            rest = f"{more}. {rest}" if more else rest
            self.close()
            group = re.sub("[^a-z]+", "_", name.lower())
            self.out.append(doc([rest[:1].upper() + rest[1:], *lines[1:]], "", f"@defgroup {group} {name}"))
            self.out.append("/** @{ */")
            self.group = True
        elif title or "class" in self.scopes:
            self.preface = [re.sub("^-{4} ", "", lines[0]), *lines[1:], ""]
        else:
            self.out.append(doc(lines, "", "@file"))

    def close(self):
        if self.group:
            self.out.append("/** @} */")
        self.group = False

    def code(self, line):
        """One line that is no comment."""
        fresh = not self.statement.strip() and not NOT_SAID.search(line)
        behind = BEHIND.match(line) if line.count('"') % 2 == 0 else None
        if behind and behind[1].strip() == "}":    # what ends there
            behind = None
        text = behind[1] if behind else re.sub(r"\s*//.*", "", line)
        declares = all(self.scopes)
        if re.match(r"\s*(public|protected|private):", line):
            self.said, self.preface = None, []
        elif not line.strip():
            self.said = None
        elif fresh and declares and self.said and self.said[1] == len(self.scopes) and not behind and not self.said[2]:
            self.out.append(doc(self.said[0]))
        if fresh and self.said:
            self.said[2] = False
        if behind and declares:
            words = [behind[2]]
            while re.match(r"\s{20,}//", self.lines[self.at]):    # goes on below
                words.append(self.lines[self.at].strip()[2:].strip())
                self.at += 1
            text += " " + doc(words, "<")
        self.out.append(text)
        self.follow("" if line.strip().startswith("#") else behind[1] if behind else text)

    def follow(self, text):
        """Which braces are open, and whether a statement is."""
        for char in re.sub(r"'.'", "", text):
            if char == "{":
                kind = SCOPE.search(self.statement)
                self.scopes.append(None if not kind else "class" if kind[1] in ("class", "struct") else "around")
                self.statement = ""
            elif char == "}":
                if self.scopes:
                    self.scopes.pop()
                self.statement = ""
            elif char == ";":
                self.statement = ""
            else:
                self.statement += char
        self.statement = re.sub(r"\b(public|protected|private):|^\s+", "", self.statement) + " "

    def run(self):
        while self.at < len(self.lines):
            line = self.lines[self.at]
            if line.strip().startswith(("//", "/*")) and all(self.scopes):
                lines = self.comment()
                after = self.lines[self.at].strip() if self.at < len(self.lines) else ""
                if not after or after.startswith("#"):
                    self.free(lines)
                else:
                    lines[0] = re.sub("^-{4} ", "", lines[0])
                    self.out.append(doc(self.preface + lines))
                    self.said = [self.preface + lines, len(self.scopes), True]
                continue
            self.at += 1
            if line.startswith("#ifdef __cplusplus") and "}" in self.lines[self.at]:
                self.close()
            self.code(line)
        return "\n".join(self.out) + "\n"


print(Filter(pathlib.Path(sys.argv[1])).run(), end="")
