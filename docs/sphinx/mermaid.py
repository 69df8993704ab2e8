"""Draws the two kinds of Mermaid pictures that the pages have: without a browser, and without the network."""
import html
import re

BLOCK = re.compile(r"```mermaid\n(.*?)```", re.S)
STEP, SMALL, LETTER = 34, 13, 7    # height of a row and of the letters, width of a letter about; in pixels


def flowchart(lines):
    """As a graph for graphviz."""
    out = ["```{graphviz}", "digraph {", f"  rankdir={lines[0].split()[1]};",
           '  node [shape=box, style=rounded, fontname="sans-serif", fontsize=11];',
           '  edge [fontname="sans-serif", fontsize=10];']
    for line in lines[1:]:
        match = re.fullmatch(r'(\w+)(?:\["(.*)"\])?(?: -->(?:\|(.*)\|)? (\w+))?', line)
        if not match:
            raise ValueError(f"not understood: {line}")
        name, text, label, other = match.groups()
        if text:
            out.append(f'  {name} [label="{text}"];'.replace("<br>", "\\n"))
        elif other:
            out.append(f'  {name} -> {other}' + (f' [label="{label}"];' if label else ";"))
        else:
            out.append(f"  {name};")
    return "\n".join([*out, "}", "```"])


def sequence(lines):
    """As SVG."""
    calls = []
    for line in lines[1:]:
        match = re.fullmatch(r"(\w+)(-?)->>(\w+): (.*)", line)
        if not match:
            raise ValueError(f"not understood: {line}")
        calls.append(match.groups())
    names = list(dict.fromkeys(name for call in calls for name in (call[0], call[2])))
    at = {name: number for number, name in enumerate(names)}
    column = max(30 + LETTER * len(text) // max(1, abs(at[caller] - at[callee])) for caller, _, callee, text in calls)
    place = {name: column // 2 + column * number for name, number in at.items()}
    width, height = column * len(names) + column // 2, STEP * (len(calls) + 2)
    out = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {height}" font-family="sans-serif" '
           f'font-size="{SMALL}" style="width:100%;max-width:{width}px" role="img"><defs>'
           '<marker id="end" viewBox="0 0 8 8" refX="8" refY="4" markerWidth="8" markerHeight="8" '
           'orient="auto-start-reverse"><path d="M0 0 8 4 0 8z"/></marker></defs>']
    for name, x in place.items():
        out.append(f'<path d="M{x} {STEP - 8}V{height}" stroke="#bbb"/>'
                   f'<text x="{x}" y="{STEP - 14}" text-anchor="middle" font-weight="bold">{name}</text>')
    for row, (caller, back, callee, text) in enumerate(calls):
        y, a, b = STEP * (row + 2), place[caller], place[callee]
        dashes = ' stroke-dasharray="5 4"' if back else ""
        way = f"M{a} {y}H{b}" if a != b else f"M{a} {y - 6}h24v12h-22"
        out.append(f'<path d="{way}" fill="none" stroke="#000"{dashes} marker-end="url(#end)"/>'
                   f'<text x="{min(a, b) + (30 if a == b else 6)}" y="{y - 6}">{html.escape(text)}</text>')
    return "\n".join(["```{raw} html", *out, "</svg>", "```"])


def drawn(text):
    """A page with its pictures drawn."""
    def draw(block):
        lines = [line.strip() for line in block[1].splitlines() if line.strip()]
        return flowchart(lines) if lines[0].startswith("flowchart") else sequence(lines)
    return BLOCK.sub(draw, text)
