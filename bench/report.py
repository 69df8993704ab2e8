#!/usr/bin/env python3
"""report.py [--record] WORD_SIZE=FOLDER ...: makes tables and plots of what the benchmarks measured.

WORD_SIZE is x86-64 or i386, FOLDER has the benchmarks' *.json. Prints a table for each word size. With --record the
figures are kept in bench/recorded.json, the plots in docs/performance/ are drawn anew and so are the tables in
docs/performance.md. Exit status 1: a ratio or a size is more than twice the recorded one and misses its target, or is missing.
"""
import argparse
import collections
import json
import pathlib
import re
import statistics
import subprocess
import sys

TOP = pathlib.Path(__file__).resolve().parent.parent
RECORDED = TOP / "bench/recorded.json"
DOCUMENT = TOP / "docs/performance.md"
PLOTS = TOP / "docs/performance"
GROSS = 2    # times the recorded ratio

# measure, benchmarks (the worst counts), counter, unit, target for x86-64, target for i386; None: only to be seen
TABLE = [
    ("`CallServiceByMsg` ÷ raw exchange, 1-row reply, 1 thread", ["call/1"], "ratio", "", 1.15, 1.20),
    ("the same from 8 threads", ["call_threads/8"], "ratio", "", 1.20, 1.25),
    ("the same, 100-row reply, 1 thread", ["call/100"], "ratio", "", 1.5, 1.6),
    ("1-row reply ÷ (raw exchange + parse with a kept reader)", ["call_and_kept_parse/1"], "ratio", "", 0.96, 0.96),
    ("the same, 100-row reply", ["call_and_kept_parse/100"], "ratio", "", None, None),
    ("10,000-row reply ÷ (raw exchange + bare parse)", ["call_and_parse/10000"], "ratio", "", 0.32, 0.34),
    ("`LoadXml` ÷ bare parse with a fresh reader, 1 row", ["load/1"], "ratio", "", 0.045, 0.05),
    ("the same, 10 rows", ["load/10"], "ratio", "", 0.13, 0.15),
    ("the same, 100 rows", ["load/100"], "ratio", "", 0.21, 0.24),
    ("the same, 1,000 rows", ["load/1000"], "ratio", "", 0.23, 0.26),
    ("the same, 10,000 rows", ["load/10000"], "ratio", "", 0.30, 0.28),
    ("the same, 100 rows by name", ["load_by_name/100"], "ratio", "", 0.30, 0.32),
    ("the same, 100 rows in another form than `ToXml` writes", ["load_other/100"], "ratio", "", 1.20, 1.20),
    ("the same, 1,000 and 10,000 rows", ["load_other/1000", "load_other/10000"], "ratio", "", 1.32, 1.32),
    ("the same, 100 rows without the last byte", ["load_broken/100"], "ratio", "", 1.75, 1.75),
    ("`ToXml` ÷ snprintf and append, 10 to 10,000 rows", ["write/10", "write/100", "write/1000", "write/10000"],
     "ratio", "", 0.20, 0.25),
    ("`InitDictionary`, 9,999 messages of 20 tags ÷ bare parse", ["dictionary/9999"], "ratio", "", 1.40, 1.40),
    ("peak resident memory of that, beyond the bare parse", ["memory/dictionary"], "beyond_mb", " MB", 32, 20),
    ("memory of a row of 4 tags beyond `sizeof(CMsg)`", ["memory/row"], "beyond_bytes", " B", 220, 160),
    ("set or get a number by tag", ["value/set_int", "value/get_int", "value/set_double", "value/get_double"],
     "library_ns", " ns", 4, 8),
    ("set or get a 28-byte string by tag", ["value/set_string", "value/get_string"], "library_ns", " ns", 10, 20),
    ("`MSG_GetStr` of 28 bytes ÷ `GetValue` into a `CString`", ["value/MSG_GetStr"], "ratio", "", 1.2, 1.2),
    ("`MSG_GetStrLen` of 1 MB ÷ of 28 bytes", ["value/MSG_GetStrLen"], "ratio", "", 1.1, 1.1),
    ("a number by tag name ÷ by tag", ["name/set_int", "name/get_int"], "ratio", "", 3, 3),
    ("a number by tag name", ["name/set_int", "name/get_int"], "library_ns", " ns", None, None),
    ("checksum of 1 MB ÷ memcpy of 1 MB", ["checksum"], "ratio", "", 3.5, 6),
    ("a packet with 1.5 kB to compress ÷ compressing that with a kept state", ["packet/compressed"], "ratio", "", None, None),
    ("page faults of such a packet", ["memory/packet"], "faults", "", None, None),
    ("allocations of a call, without the parser's and the reply's", ["memory/allocations"], "beyond", "", 5, 5),
    ("`dlopen` and first `Initialize` ÷ the same for bare Xerces", ["first_use"], "ratio", "", 1.05, 1.05),
    ("one call in flight (`CallOrv_WaitAny`) ÷ `CallServiceByMsg`, 1-row reply", ["in_flight/1"], "ratio", "", 1.03, 1.03),
    ("64 in flight in 1 thread, own epoll ÷ bare epoll", ["in_flight/epoll"], "ratio", "", 1.25, 1.25),
    ("the same by `CallOrv_WaitAny`", ["in_flight/wait_any"], "ratio", "", 1.25, 1.25),
    ("64 in flight in 1 thread, own epoll ÷ (bare epoll + `LoadXml`)", ["in_flight/epoll_and_load"], "ratio", "", 1.09, 1.09),
    ("the same with `LoadXml`, by `CallOrv_WaitAny`", ["in_flight/wait_any_and_load"], "ratio", "", 1.09, 1.09),
    ("processor time, 64 in flight in 1 thread ÷ 64 threads with blocking calls", ["in_flight/work"], "ratio", "", 0.92, 0.92),
    ("32 in flight in each of 2 threads ÷ 64 threads with blocking calls", ["in_flight/two_threads"], "ratio", "", 0.91, 0.91),
    ("10,000 in flight, answered after 1 s: time beyond that, own epoll ÷ bare epoll", ["in_flight/10000"], "ratio_epoll", "",
     1.25, 1.25),
    ("the same 10,000, by `CallOrv_WaitAny`", ["in_flight/10000"], "ratio_wait_any", "", 1.25, 1.25),
    ("memory of a call that waits, beyond its messages", ["memory/waiting_call"], "bytes", " B", 1024, 1024),
    ("processor time of a step, 1 MB reply, median", ["step/1MB"], "median_ms", " ms", 0.15, 0.15),
    ("longest step of a 20 MB reply, median of replies", ["step/20MB"], "longest_ms", " ms", 0.5, 0.5),
]
WORD_SIZES = ["x86-64", "i386"]

# file, title, size axis, series: (benchmarks, counter, label)
GROWTH = [
    ("rows", "A reply read and written", "rows",
     [("load", "library_ns", "LoadXml"), ("load", "floor_ns", "bare parse"),
      ("write", "library_ns", "ToXml"), ("write", "floor_ns", "snprintf and append")]),
    ("call", "A whole call", "rows of the reply",
     [("call", "library_ns", "CallServiceByMsg"), ("call", "floor_ns", "raw exchange and bare parse")]),
    ("threads", "Threads calling at once", "threads",
     [("threads", "library_ns", "CallServiceByMsg, wall time of one"), ("threads", "floor_ns", "raw exchange")]),
    ("string", "A message with one long string", "bytes",
     [("load_string", "library_ns", "LoadXml"), ("load_string", "floor_ns", "bare parse"),
      ("write_string", "library_ns", "ToXml"), ("write_string", "floor_ns", "copy of the string")]),
    ("dictionary", "A dictionary of messages with 20 tags", "messages",
     [("dictionary", "library_ns", "InitDictionary"), ("dictionary", "floor_ns", "bare parse")]),
    ("bucket", "All tags in one hash chain, each set and read", "tags", [("bucket", "library_ns", "set and get")]),
]


def read(folder):
    """What was measured, by benchmark and counter: of several runs the median."""
    runs = collections.defaultdict(lambda: collections.defaultdict(list))
    for path in sorted(pathlib.Path(folder).glob("*.json")):
        for entry in json.loads(path.read_text())["benchmarks"]:
            name = re.sub(r"/(iterations:\d+|manual_time)", "", entry["name"])
            for key, value in entry.items():
                if isinstance(value, float):
                    runs[name][key].append(value)
    return {name: {key: statistics.median(values) for key, values in counters.items()} for name, counters in runs.items()}


def worst(figures, names, counter):
    values = [figures[name][counter] for name in names if name in figures]
    return max(values) if len(values) == len(names) else None


def number(value):
    return f"{value:.0f}" if value >= 100 else f"{value:.1f}" if value >= 10 else f"{value:.2f}"


def table(size, figures):
    lines = ["| Measure | Target | Measured | |", "|---|---|---|---|"]
    for measure, names, counter, unit, *targets in TABLE:
        value, target = worst(figures, names, counter), targets[WORD_SIZES.index(size)]
        aim = "" if target is None else f"{target}{unit}"
        if value is None:
            lines.append(f"| {measure} | {aim} | not measured | |")
        else:
            met = "" if target is None else "met" if value <= target else "**missed**"
            lines.append(f"| {measure} | {aim} | {number(value)}{unit} | {met} |")
    return lines


def series(figures, name, counter):
    points = [(int(key.rsplit("/", 1)[1]), figures[key][counter]) for key in figures
              if key.startswith(f"growth/{name}/") and counter in figures[key]]
    return sorted(points)


def growth_of(figures, name, counter):
    """The ends of the upper part of a plot, and what one unit (a row, a byte, ...) costs at the one against the other."""
    points = series(figures, name, counter)
    if len(points) < 2:
        return None
    last = points[-1]
    first = max((point for point in points if point[0] <= last[0] / 8), default=points[0])
    units = 1 if name == "threads" else last[0] / first[0]    # the time of one call, whoever else calls
    return first[0], last[0], last[1] / first[1] / units


def growth_table(all_figures):
    lines = ["| What grows | From | To | " + " | ".join(f"cost of a unit, {size}" for size in all_figures) + " |",
             "|---|---|---|" + "---|" * len(all_figures)]
    for _, _, axis, all_series in GROWTH:
        for name, _, label in (one for one in all_series if one[1] == "library_ns"):
            cells, ends = [], None
            for figures in all_figures.values():
                library, floor = (growth_of(figures, name, counter) for counter in ("library_ns", "floor_ns"))
                cells.append("" if library is None else
                             number(library[2]) + (f" ({number(floor[2])})" if floor is not None else ""))
                ends = library or ends
            if ends is not None:
                lines.append(f"| {label}: {axis} | {ends[0]:,} | {ends[1]:,} | " + " | ".join(cells) + " |")
    return lines if len(lines) > 2 else []


def draw(all_figures):
    PLOTS.mkdir(exist_ok=True)
    for file, title, axis, all_series in GROWTH:
        data, plots = [], []
        for size, figures in all_figures.items():
            for name, counter, label in all_series:
                points = series(figures, name, counter)
                if not points:
                    continue
                block = f"$d{len(data)}"
                data.append(f"{block} << EOD\n" + "".join(f"{x} {y / 1000:.3f}\n" for x, y in points) + "EOD\n")
                dash = 2 if size == "i386" else 1
                color = [key for key, _, _ in all_series].index(name) * 2 + (counter == "floor_ns") + 1
                plots.append(f'{block} with linespoints dashtype {dash} linecolor {color} pointtype 7 pointsize 0.4 '
                             f'title "{label}, {size}"')
        if not plots:
            continue
        script = "".join(data) + (
            'set terminal svg size 1000,480 dynamic background "white" font "sans-serif,13"\n'
            f'set title "{title}"\nset xlabel "{axis}"\nset ylabel "microseconds"\nset logscale xy\n'
            'set key outside right top Left reverse\nset grid\nset format "%.0s%c"\nplot ' + ", ".join(plots) + "\n")
        plot = subprocess.run(["gnuplot"], input=script, stdout=subprocess.PIPE, text=True, check=True).stdout
        (PLOTS / f"{file}.svg").write_text(re.sub(r" +$", "", plot, flags=re.M).rstrip() + "\n")


def fill_document(blocks):
    """Puts each block between its two marks."""
    text = DOCUMENT.read_text()
    for name, lines in blocks.items():
        text = re.sub(rf"(<!-- {name} -->\n).*?(<!-- end -->)",
                      lambda match, lines=lines: match[1] + "\n".join(lines) + "\n" + match[2], text, flags=re.S)
    DOCUMENT.write_text(text)


def gross_regressions(size, figures, recorded):
    for measure, names, counter, unit, *targets in TABLE:
        before, now, target = recorded.get(size, {}).get(measure), worst(figures, names, counter), targets[WORD_SIZES.index(size)]
        if before is None or unit == " ns":    # nanoseconds are another processor's
            continue
        if now is None:
            yield f"{size}: {measure}: not measured"
        elif now > (max(GROSS * before, target or 0) if before > 0 else before + GROSS):
            yield f"{size}: {measure}: {number(now)}{unit}, recorded {number(before)}{unit}"


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--record", action="store_true")
    parser.add_argument("results", nargs="+", metavar="WORD_SIZE=FOLDER")
    arguments = parser.parse_args()
    all_figures = {}
    for result in arguments.results:
        size, folder = result.split("=", 1)
        all_figures[size] = read(folder)
    recorded = json.loads(RECORDED.read_text()) if RECORDED.exists() else {}

    blocks = {f"table {size}": table(size, figures) for size, figures in all_figures.items()}
    growth = growth_table(all_figures)
    if growth:
        blocks["growth"] = growth
    for name, lines in blocks.items():
        print(f"\n## {name}\n\n" + "\n".join(lines))

    broken = [line for size, figures in all_figures.items() for line in gross_regressions(size, figures, recorded)]
    if arguments.record:
        for size, figures in all_figures.items():
            recorded[size] = {measure: round(worst(figures, names, counter), 3)
                              for measure, names, counter, *_ in TABLE}
        RECORDED.write_text(json.dumps(recorded, indent=1, ensure_ascii=False) + "\n")
        draw(all_figures)
        fill_document(blocks)
    print()
    print(*(f"gross regression: {line}" for line in broken), sep="\n", end="\n" if broken else "")
    missed = sum(line.endswith("**missed** |") for lines in blocks.values() for line in lines)
    targets = sum(row[-1] is not None for row in TABLE) * len(all_figures)
    print(f"{missed} of {targets} targets missed, {len(broken)} gross regressions")
    return 1 if broken and not arguments.record else 0


if __name__ == "__main__":
    sys.exit(main())
