"""Small changes to C++ sources: which ones there are, and how one is written down and found again.

A change is kept as lines of text with those around it, never as line numbers: files may grow, shrink and move.
"""
import bisect
import collections
import dataclasses
import hashlib
import re

TOKEN = re.compile(r"""
    (?P<directive>^[ \t]*\#(?:\\\n|[^\n])*)
  | (?P<blank>\s+)
  | (?P<comment>//[^\n]*|/\*.*?\*/)
  | (?P<string>(?:u8|[uUL])?R"(?P<end>[^()\s\\]{0,16})\(.*?\)(?P=end)"|(?:u8|[uUL])?"(?:\\.|[^"\\\n])*")
  | (?P<char>(?:u8|[uUL])?'(?:\\.|[^'\\\n])+')
  | (?P<number>\.?\d(?:[eEpP][+-]|'?[\w.])*)
  | (?P<word>[A-Za-z_]\w*)
  | (?P<sign><<=|>>=|\.\.\.|->\*|::|->|\+\+|--|<<|>>|<=|>=|==|!=|&&|\|\||[-+*/%&|^]=|.)
""", re.VERBOSE | re.DOTALL | re.MULTILINE)

COMPARISON = {"<": ("<=", ">="), "<=": ("<", ">"), ">": (">=", "<="), ">=": (">", "<"), "==": ("!=",), "!=": ("==",)}
ARITHMETIC = {"+": "-", "-": "+", "*": "/", "/": "*", "%": "*", "&": "|", "|": "&", "^": "&", "<<": ">>", ">>": "<<",
              "+=": "-=", "-=": "+=", "*=": "+=", "|=": "&=", "&=": "|=", "^=": "&=", "<<=": ">>=", ">>=": "<<=",
              "++": "--", "--": "++"}
LOGIC = {"&&": "||", "||": "&&"}
TRUTH = {"true": "false", "false": "true"}
NO_STATEMENT = set("""auto bool case char class const constexpr default do double else enum extern float for friend goto
    if int long namespace private protected public return short signed static static_assert struct switch template try
    typedef union unsigned using void volatile while catch thread_local inline""".split())
OPENS, CLOSES = {"(": ")", "[": "]", "{": "}"}, {")", "]", "}"}


@dataclasses.dataclass(frozen=True)
class Token:
    kind: str
    text: str
    start: int
    end: int
    spaced: bool          # white space on both sides, as around a binary operator


@dataclasses.dataclass(frozen=True)
class Change:
    """Lines first..last (counted from 0) of a file become others; lines without indentation and trailing blanks."""
    path: str
    first: int
    last: int
    before: tuple
    after: tuple
    kind: str = ""

    def place(self):
        return self.path, self.first, self.last, self.after


def tokens_of(text):
    found = [(m.lastgroup if m.lastgroup != "end" else "string", m) for m in TOKEN.finditer(text)]
    return [Token(kind, m.group(), m.start(), m.end(),
                  text[m.start() - 1:m.start()].isspace() and text[m.end():m.end() + 1].isspace())
            for kind, m in found if kind not in ("blank", "comment", "directive")]


def is_type_head(head):
    """Whether what stands before a brace begins a class; a template's parameters do not count."""
    if head and head[0].text == "template":
        depth = 0
        for i, token in enumerate(head):
            depth += {"<": 1, ">": -1, ">>": -2}.get(token.text, 0)
            if i and depth == 0:
                head = head[i + 1:]
                break
    return bool(head) and head[0].text in ("class", "struct", "union")


def kind_of_brace(head, outer):
    """What a brace opens, by what stands before it: data, outer (a class or name space), code or value."""
    words = [token.text for token in head]
    if "enum" in words[:2]:
        return "data"
    if is_type_head(head) or "namespace" in words[:2] or words[:1] == ["extern"] and head[-1].kind == "string":
        return "outer"
    if outer != "outer":
        return outer
    return "value" if "=" in words or ")" not in words else "code"


def places_of(tokens):
    """For each token where it stands: code, value (what something is initialised with), or None; and whether inside of
    parentheses."""
    stack, head, held = [["outer", [], 0]], [], []
    places, skip, init, value = [], False, False, False
    for i, token in enumerate(tokens):
        scope = stack[-1]
        text = token.text
        if text == "static_assert":
            skip = True
        where = scope[0]
        if where == "outer":
            where = "code" if init else "value" if value else None
        places.append((None if skip or where == "data" else where, scope[2] > 0))
        if text in ("(", "["):
            scope[2] += 1
        elif text in (")", "]"):
            scope[2] -= 1
        if text == "{":
            stack.append([kind_of_brace(head, scope[0]), head, 0])
            head = []
        elif text == "}" and len(stack) > 1:
            following = tokens[i + 1].text if i + 1 < len(tokens) else ""
            held = stack.pop()[1]
            head = held if stack[-1][0] == "outer" and following in (",", "{", ";") else []
            if not head:
                init = value = False
        elif text == ";" and scope[2] == 0:
            head, skip, init, value = [], False, False, False
        else:
            head.append(token)
            if scope[0] == "outer" and scope[2] == 0:
                if text in ("public", "private", "protected"):
                    head = []
                if text == ":" and any(t.text == ")" for t in head):
                    init = True
                if text == "=":
                    value = True
                if text == ":" and head[0].text == ":":      # behind public
                    head = []
    return places


def other_number(text):
    match = re.fullmatch(r"(0[xX][0-9a-fA-F']+|\d[\d']*)([uUlLzZ]*)", text)
    if not match:
        return []
    hexadecimal = match[1][:2].lower() == "0x"
    value = int(match[1].replace("'", ""), 0 if hexadecimal else 10)
    return [(hex(v) if hexadecimal else str(v)) + match[2] for v in (value + 1, value - 1) if v >= 0]


def other_char(text):
    head, body = text[:text.index("'") + 1], text[text.index("'") + 1:-1]
    if body.startswith("\\"):
        return [head + ("\\1" if body == "\\0" else "~") + "'"]
    other = chr(ord(body[0]) + 1)
    return [head + ("~" if other in "'\\\x7f" else other) + "'"]


def matching(tokens, at):
    """The index of the bracket that closes the one at an index."""
    depth = 0
    for i in range(at, len(tokens)):
        depth += (tokens[i].text in OPENS) - (tokens[i].text in CLOSES)
        if depth == 0:
            return i
    return len(tokens) - 1


def statement_end(tokens, at):
    """The index of the ';' of an expression statement that begins at an index, or None."""
    first = tokens[at]
    if first.text in NO_STATEMENT or first.kind not in ("word", "sign") or first.text in "{};:)":
        if not (first.text == "return" and tokens[at + 1].text == ";"):
            return None
    if first.kind == "word" and first.text not in ("delete", "throw", "return", "break", "continue", "new"):
        i, word = at, True               # a chain of names; a declaration has another name behind it
        while i + 1 < len(tokens):
            i += 1
            if tokens[i].text == "<" and not tokens[i].spaced:
                depth = 0
                for i in range(i, len(tokens)):
                    depth += {"<": 1, ">": -1, ">>": -2}.get(tokens[i].text, 0)
                    if depth <= 0:
                        break
                word = True
            elif word and tokens[i].text in ("::", ".", "->"):
                word = False
            elif not word and tokens[i].kind == "word":
                word = True
            else:
                break
        if tokens[i].kind == "word" or tokens[i].text in ("*", "&", "&&", "{"):
            return None
    depth = 0
    for i in range(at, min(at + 200, len(tokens))):
        if tokens[i].text == ";":
            return i if depth == 0 else None
        depth += (tokens[i].text in OPENS) - (tokens[i].text in CLOSES)
        if depth < 0:
            return None
    return None


def edits_of(text):
    """(start, end, replacement, kind) of every small change."""
    tokens = tokens_of(text)
    places = places_of(tokens)
    for i, (token, (where, inside)) in enumerate(zip(tokens, places)):
        if where is None:
            continue
        last = tokens[i - 1] if i else Token("sign", ";", 0, 0, False)
        following = tokens[i + 1] if i + 1 < len(tokens) else last
        operand = (last.kind in ("word", "number", "char") and last.text not in ("return", "case") or
                   last.text in (")", "]"))
        new = []
        if token.kind == "number":
            declared = last.text == "[" and tokens[i - 2].kind == "word" and (
                tokens[i - 3].kind == "word" and tokens[i - 3].text != "return" or tokens[i - 3].text in ("*", "::"))
            if not (declared or last.text == "<" and not last.spaced):
                new += [(other, "constant") for other in other_number(token.text)]
        elif token.kind == "char":
            new += [(other, "constant") for other in other_char(token.text)]
        elif token.text in TRUTH:
            new.append((TRUTH[token.text], "true/false"))
        elif token.text in COMPARISON and (token.spaced or token.text not in ("<", ">")) and last.text != "operator":
            new += [(other, "comparison") for other in COMPARISON[token.text]]
        elif token.text in LOGIC and token.spaced:
            new.append((LOGIC[token.text], "and/or"))
        elif token.text == "!":
            new.append(("", "negation"))
        elif token.text == "-" and not operand and not token.spaced:
            new.append(("", "sign"))
        elif token.text in ("++", "--") and (operand or following.kind == "word" or following.text == "*"):
            new.append((ARITHMETIC[token.text], "arithmetic"))
        elif token.text in ARITHMETIC and token.spaced and operand:
            new.append((ARITHMETIC[token.text], "arithmetic"))
        for replacement, kind in new:
            yield token.start, token.end, replacement, kind
        if where != "code":
            continue
        if token.text in ("if", "while") and following.text == "(":
            close = matching(tokens, i + 1)
            if not any(t.text == ";" for t in tokens[i + 1:close]):
                yield (following.end, tokens[close].start,
                       "!(" + text[following.end:tokens[close].start] + ")", "negation")
        if not inside and (last.text in ("{", "}", ";", "else") or last.text == ":" and ends_label(tokens, i - 1) or
                           last.text == ")" and closes_condition(tokens, i - 1)):
            end = statement_end(tokens, i)
            if end is not None:
                yield token.start, tokens[end].start, "", "statement"


def ends_label(tokens, at):
    """Whether the ':' at an index ends a label of a switch."""
    for i in range(at - 1, -1, -1):
        if tokens[i].text in ("case", "default"):
            return True
        if tokens[i].text in (";", "{", "}", ":", "?"):
            return False
    return False


def closes_condition(tokens, at):
    """Whether the ')' at an index ends what if, for or while asks."""
    depth = 0
    for i in range(at, 0, -1):
        depth += (tokens[i].text == ")") - (tokens[i].text == "(")
        if depth == 0:
            return tokens[i - 1].text in ("if", "for", "while")
    return False


def changes_of(path, text):
    """Every small change to a source file."""
    starts = [0] + [m.end() for m in re.finditer("\n", text)]
    lines = text.split("\n")
    for start, end, replacement, kind in edits_of(text):
        first = sum(s <= start for s in starts) - 1
        last = sum(s < end for s in starts) - 1
        changed = text[starts[first]:start] + replacement + text[end:starts[last] + len(lines[last])]
        yield Change(path, first, last, strip(lines[first:last + 1]), strip(changed.split("\n")), kind)


def strip(lines):
    return tuple(line.strip() for line in lines if line.strip())


def apply(change, text):
    lines = text.split("\n")
    indent = re.match(r"\s*", lines[change.first])[0]
    lines[change.first:change.last + 1] = [indent + line for line in change.after]
    return "\n".join(lines)


class Sources:
    """The library's sources: path -> text."""

    def __init__(self, texts):
        self.texts = texts
        self.lines, self.at = {}, collections.defaultdict(list)     # those that are not blank; where each stands
        for path, text in texts.items():
            self.lines[path] = [(i, line.strip()) for i, line in enumerate(text.split("\n")) if line.strip()]
            for i, (_, line) in enumerate(self.lines[path]):
                self.at[line].append((path, i))

    def find(self, path, lines):
        """Where these lines stand one behind the other: (path, index among the lines that are not blank) each. In the
        file they are said to be in or, when it has them no more, in any."""
        found = [(name, i) for name, i in self.at.get(lines[0], [])
                 if [line for _, line in self.lines[name][i:i + len(lines)]] == lines]
        return [place for place in found if place[0] == path] or found

    def around(self, change, size):
        """The lines around a change, so many on either side: (those before it, those behind it)."""
        have = self.lines[change.path]
        at = bisect.bisect_left(have, (change.first, ""))
        end = at + len(change.before)
        return [line for _, line in have[max(at - size, 0):at]], [line for _, line in have[end:end + size]]

    def context(self, change):
        """As many of them as are needed to find it again, wherever its file and line have gone."""
        for size in range(9):
            before, behind = self.around(change, size)
            if len(self.find(change.path, before + list(change.before) + behind)) == 1:
                break
        return before, behind

    def key(self, change):
        """Says which change it is."""
        return hashlib.sha256("\n".join(self.write(change).split("\n")[1:]).encode()).hexdigest()

    def sample(self, paths, seed):
        """One change for each line that has any, in an order that the seed chooses and edits elsewhere leave alone."""
        lines = {}
        for path in paths:
            for change in changes_of(path, self.texts[path]):
                text = repr((seed, change.before, change.after, self.around(change, 1)))
                rank, line = hashlib.sha256(text.encode()).hexdigest(), (path, change.first)
                if line not in lines or rank < lines[line][0]:
                    lines[line] = rank, change
        return [change for _, change in sorted(lines.values(), key=lambda x: x[0][::-1])]

    def write(self, change):
        """A change as an entry of a list."""
        before, behind = self.context(change)
        return "\n".join([change.path, *("  " + x for x in before), *("- " + x for x in change.before),
                          *("+ " + x for x in change.after), *("  " + x for x in behind)])

    def read(self, entry):
        """The change that an entry of a list is for, or why there is none."""
        path, *rest = entry.split("\n")
        before = tuple(line[2:] for line in rest if line[:1] == "-")
        after = tuple(line[2:] for line in rest if line[:1] == "+")
        found = self.find(path, [line[2:] for line in rest if line[:1] != "+"])
        if len(found) != 1:
            return "its text is no longer found" if not found else f"its text is found in {len(found)} places"
        name, at = found[0]
        at += next(i for i, line in enumerate(rest) if line[:1] in ("-", "+"))
        numbers = self.lines[name]
        return Change(name, numbers[at][0], numbers[at + len(before) - 1][0], before, after, "listed")


def read_list(text):
    """The entries of a list: (reason, entry) each. Reasons are '#' lines in front of the entries that they are for."""
    reason = ""
    for block in re.split(r"\n\s*\n", text.strip("\n")):
        lines = block.split("\n")
        said = [line[1:].strip() for line in lines if line.startswith("#")]
        if said:
            reason = " ".join(said)
        entry = "\n".join(line.rstrip() for line in lines if not line.startswith("#"))
        if entry:
            yield reason, entry
