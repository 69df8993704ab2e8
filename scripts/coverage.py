#!/usr/bin/env python3
"""Line and branch coverage of the library's layers, read with gcov from a build that was instrumented and run.

A line or branch of a template counts as taken where any instance took it; gcovr counts each instance, and the edges of
one for those of another. Edges that only an exception takes, which the compiler adds to nearly every call, are left out.
Prints a table by layer, then every line that was not reached in full and does not stand in the list, and fails when
there is one. The list has "# reason" lines, each followed by the lines that it is for: "path: text of the line".
"""
import argparse
import collections
import concurrent.futures
import gzip
import json
import os
import pathlib
import subprocess
import sys
import tempfile

LAYERS = ("base", "error", "crypt", "net", "xml", "dict", "msg", "form", "client", "capi")


def instances_at(functions, number):
    """How many instances the innermost function around a line has."""
    spans = [(f["start_line"], f["start_column"], f["end_line"]) for f in functions
             if f["start_line"] <= number <= f["end_line"]]
    return spans.count(max(spans)) if spans else 1


def fold(branches, instances):
    """Branches of several instances, one instance after the other, added up."""
    size, rest = divmod(len(branches), instances)
    return branches if rest else [sum(branches[i::size]) for i in range(size)]


def read_object(data):
    """What gcov says of one object file: (file, line, count, branch counts) for each of its lines."""
    entries = []
    with tempfile.TemporaryDirectory() as folder:
        subprocess.run(["gcov", "--json-format", "--branch-probabilities", str(data)], cwd=folder, check=True,
                       stdout=subprocess.DEVNULL)
        for report in pathlib.Path(folder).glob("*.gcov.json.gz"):
            with gzip.open(report) as text:
                content = json.load(text)
            for file in content["files"]:
                path = os.path.realpath(os.path.join(content["current_working_directory"], file["file"]))
                for line in file["lines"]:
                    branches = [branch["count"] for branch in line["branches"] if not branch["throw"]]
                    instances = instances_at(file["functions"], line["line_number"]) if branches else 1
                    entries.append((path, line["line_number"], line["count"], fold(branches, instances)))
    return entries


def layer_of(path):
    """The layer that a file under the root belongs to, or None."""
    parts = path.parts[2:] if path.parts[:2] == ("include", "callorv") else path.parts
    return parts[0] if len(parts) > 1 and parts[0] in LAYERS else None


def collect(root, build):
    """(file, line) -> (count, branch counts), of the layers."""
    lines = collections.defaultdict(lambda: [0, []])
    with concurrent.futures.ProcessPoolExecutor() as pool:
        for entries in pool.map(read_object, sorted(build.resolve().rglob("*.gcda"))):
            for name, number, count, branches in entries:
                path = pathlib.Path(os.path.relpath(name, root))
                if layer_of(path):
                    lines[path, number][0] += count
                    lines[path, number][1].append(branches)
    # Where a header's line has other branches in another object, the compiler added some: the fewest are the line's own.
    return {key: (count, [sum(branch) for branch in zip(*sorted(each, key=len))]) for key, (count, each) in lines.items()}


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("build", type=pathlib.Path)
    parser.add_argument("list", type=pathlib.Path)
    options = parser.parse_args()
    root = pathlib.Path(__file__).resolve().parent.parent
    tables = {layer: [0, 0, 0, 0] for layer in LAYERS}
    allowed = {line for line in options.list.read_text().splitlines() if line and not line.startswith("#")}
    missed, met = [], set()
    for (path, number), (count, branches) in sorted(collect(root, options.build).items()):
        table = tables[layer_of(path)]
        text = (root / path).read_text().splitlines()[number - 1].strip()
        if text.startswith("} catch ("):    # the branches of a handler are those of the exception's type
            branches = []
        taken = sum(1 for branch in branches if branch)
        for i, value in enumerate((1, count > 0, len(branches), taken)):
            table[i] += value
        if count == 0 or taken < len(branches):
            met.add(f"{path}: {text}")
            if f"{path}: {text}" not in allowed:
                missed.append(f"{path}:{number}: {'not run' if count == 0 else f'{taken} of {len(branches)}'}: {text}")

    print(f"{'layer':10}{'lines':>20}{'branches':>24}")
    for layer, (lines, run, branches, taken) in tables.items():
        line_rate, branch_rate = 100 * run / max(lines, 1), 100 * taken / max(branches, 1)
        print(f"{layer:10}{run:7} of {lines:5} {line_rate:5.1f}%{taken:9} of {branches:5} {branch_rate:5.1f}%")
    print(f"{len(met)} lines not reached in full, {len(missed)} of them not in {options.list}")
    for line in sorted(allowed - met):
        print(f"reached this time, though in {options.list}: {line}")
    print(*missed, sep="\n")
    sys.exit("coverage: these lines are neither reached nor explained" if missed else None)


if __name__ == "__main__":
    main()
