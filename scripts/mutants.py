"""Makes one small change after the other to the library's sources and counts those that the tests notice.

Everything happens in build/mutants: a copy of the tree that is built once without optimisation, and a copy for each job
in which one file at a time is changed. Only what includes that file is compiled, next to the objects of the build, and
only the programs that have it are linked anew: first the unit tests of its folder, and, as long as none fails, the
integration tests, everything else that links or loads the library, and the tools' tests. A change that ends in a crash
or twice not within the time limit is noticed, and so is one after which memory is lost. One that does not compile is
not counted, nor one whose optimised objects are the same as before.

What was found out is kept in build/mutants/state.json, so that a run goes on where it was stopped: after an edit of the
tree only what was not noticed is tried again.
"""
import argparse
import concurrent.futures
import json
import os
import pathlib
import re
import resource
import signal
import sys
import threading
import time

sys.dont_write_bytecode = True
import mutations
from mutants_build import LAYERS, Bench, Build, Failed, Processes

REPEATED = 10              # changes in the list that CI repeats
SLOW = 0.25                # seconds: test cases that take longer come after the others
GB = 1 << 30


class Run:
    """Tries changes and keeps what came of them."""

    def __init__(self, root, jobs, again):
        self.root, self.folder, self.jobs = root, root / "build/mutants", jobs
        self.processes, self.lock = Processes(), threading.Lock()
        self.build = Build(root, self.folder, self.processes, jobs)
        paths = [name for name in self.build.files if name.endswith((".cpp", ".h", ".hpp")) and
                 (name.split("/")[0] in LAYERS or name.startswith("include/"))]
        self.sources = mutations.Sources({path: (self.build.tree / path).read_text() for path in paths})
        self.state_file = self.folder / "state.json"
        self.state = {"results": {}}
        if self.state_file.exists() and not again:
            self.state = json.loads(self.state_file.read_text())
        if self.state.get("tree") != self.build.fingerprint:
            kept = {key: value for key, value in self.state["results"].items() if value["result"] != "survived"}
            self.state = {"tree": self.build.fingerprint, "results": kept, "times": self.state.get("times", {}),
                          "passed": []}
        self.idle = [Bench(self.build, number) for number in range(1, jobs + 1)]

    def save(self):
        part = self.state_file.with_suffix(".new")
        part.write_text(json.dumps(self.state, indent=1))
        part.replace(self.state_file)

    def layer(self, change):
        parts = change.path.split("/")
        return parts[2] if parts[0] == "include" and len(parts) > 3 else parts[0]

    def fails(self, bench, check):
        """What in a program of tests fails first with the change, or None."""
        self.time(check)
        by = bench.fails(check)
        if by and check.name not in self.state["passed"]:
            self.time(check, True)
        if by and by.endswith("[time limit]"):       # does it hang, or has the machine more to do than it had?
            self.time(check, True)
            by = bench.fails(check)
        return by

    def time(self, check, anew=False):
        """Runs the tests without a change: they must pass, and it must be known how long they take."""
        with self.lock:
            if check.name not in self.state["times"] or anew:
                command = [str(self.build.dir / check.program)] if check.program else []
                command += ["-d", "-s=false"] if check.doctest else check.command
                log, start = self.folder / "time.log", time.monotonic()
                status = self.processes.run(command, log, 1200, cwd=self.build.dir / check.cwd,
                                            env={**os.environ, **check.env})
                said = log.read_text(errors="replace")
                if status != 0:
                    raise Failed(f"{check.name} fails without any change:\n{said[-4000:]}")
                slow = [m[2] for m in re.finditer(r"^([\d.]+) s: (.*)$", said, re.MULTILINE) if float(m[1]) > SLOW]
                self.state["times"][check.name] = [time.monotonic() - start, slow]
                self.state["passed"] = sorted({check.name, *self.state["passed"]})
            check.seconds, check.slow = self.state["times"][check.name]

    def judge(self, bench, change):
        """The result for a change, and by what."""
        try:
            bench.set(change)
            if bench.is_same(False):
                return "no change", ""
            layer = self.layer(change)
            by = layer in self.build.units and self.fails(bench, self.build.unit_check(layer))
            if by:
                return "killed", by
            if bench.is_same(True):
                return "no change", ""
            checks = self.build.other_checks(layer)
            for check in [check for check in checks if check.program]:
                by = self.fails(bench, check)
                if by:
                    return "killed", by
            tools = [check for check in checks if not check.program]
            with concurrent.futures.ThreadPoolExecutor(4) as pool:      # they wait more than they work
                by = list(filter(None, pool.map(lambda check: self.fails(bench, check), tools)))
            if by:
                return "killed", by[0]
            by = layer in self.build.units and bench.leaks(layer)
            return ("killed", by) if by else ("survived", "")
        except SyntaxError:
            return "does not compile", ""
        finally:
            bench.reset()

    def result(self, change):
        key, start = self.sources.key(change), time.monotonic()
        with self.lock:
            known = self.state["results"].get(key)
            if known:
                return known
            bench = self.idle.pop()
        try:
            result, by = self.judge(bench, change)
        finally:
            with self.lock:
                self.idle.append(bench)
        with self.lock:
            value = {"result": result, "by": by, "seconds": round(time.monotonic() - start, 1)}
            self.state["results"][key] = value
            self.save()
            return value

    def all(self, changes, count):
        """(change, result) of the first ones in number that count."""
        done, running, rest = [], {}, iter(changes)
        with concurrent.futures.ThreadPoolExecutor(self.jobs) as pool:
            try:
                while True:
                    while len(done) + len(running) < count:
                        change = next(rest, None)
                        if change is None:
                            break
                        running[pool.submit(self.result, change)] = change
                    if not running:
                        return done
                    for future in concurrent.futures.wait(running, return_when=concurrent.futures.FIRST_COMPLETED)[0]:
                        change, value = running.pop(future), future.result()
                        counts = value["result"] in ("killed", "survived")
                        if counts:
                            done.append((change, value))
                        print(f"{len(done) if counts else '-':>4} {value['result']:<9}{value['seconds']:>6} s  "
                              f"{change.path}:{change.first + 1}: {change.kind}: {' '.join(change.after)}"
                              f"{'  by ' + value['by'] if value['by'] else ''}", flush=True)
            except BaseException:
                self.processes.stop()
                raise


def read_changes(run, path):
    """The changes in a list, and a line for each entry that is for none."""
    changes, lost = [], []
    for _, entry in mutations.read_list(path.read_text() if path.exists() else ""):
        change = run.sources.read(entry)
        (lost if isinstance(change, str) else changes).append(
            f"{path.name}: {change}:\n{entry}\n" if isinstance(change, str) else change)
    return changes, lost


def renew(run, path, kept, done):
    """Writes the list that CI repeats: what is left of it, and from every folder in turn what its own tests noticed."""
    own = {layer: [] for layer in LAYERS}
    for change, value in done:
        layer = run.layer(change)
        if value["result"] == "killed" and value["by"].startswith(f"unit_{layer}:") and "time limit" not in value["by"]:
            own.setdefault(layer, []).append(change)
    chosen = list(kept[:REPEATED])
    while len(chosen) < REPEATED and any(own.values()):
        for changes in own.values():
            files = {change.path for change in chosen}
            if changes and len(chosen) < REPEATED:
                change = min(changes, key=lambda c: c.path in files)
                changes.remove(change)
                if change.place() not in {c.place() for c in chosen}:
                    chosen.append(change)
    head = ("# Changes to the sources that the tests noticed; CI makes them again (scripts/mutants --killed). Made by\n"
            "# scripts/mutants --renew, which replaces those whose text is gone.\n")
    path.write_text(head + "".join(f"\n{run.sources.write(change)}\n" for change in chosen))


def main():
    parser = argparse.ArgumentParser(prog="scripts/mutants", description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--count", type=int, default=200, help="how many changes (200)")
    parser.add_argument("--seed", type=int, default=1, help="which ones (1)")
    parser.add_argument("--jobs", type=int, default=os.cpu_count(), help="how many at a time (one for each processor)")
    parser.add_argument("--again", action="store_true", help="forget what earlier runs found out")
    parser.add_argument("--killed", action="store_true", help="those of scripts/mutants.killed, all of which must fail")
    parser.add_argument("--renew", action="store_true", help="write scripts/mutants.killed anew from this run")
    parser.add_argument("paths", nargs="*", metavar="PATH", help="only files that begin so, for example msg/ include/")
    options = parser.parse_args()
    root = pathlib.Path(__file__).resolve().parent.parent
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    resource.setrlimit(resource.RLIMIT_AS, (8 * GB, resource.RLIM_INFINITY))

    run = Run(root, options.jobs, options.again)
    unseen, lost = read_changes(run, root / "scripts/mutants.list")
    repeated, lost_repeated = read_changes(run, root / "scripts/mutants.killed")
    if options.killed:
        lost = lost_repeated
        changes, count = repeated, len(repeated)
        for change in repeated:
            run.state["results"].pop(run.sources.key(change), None)
    else:
        hidden = {change.place() for change in unseen}
        paths = [path for path in run.sources.texts if path.startswith(tuple(options.paths) or "")]
        sample = run.sources.sample(paths, options.seed)
        changes, count = [change for change in sample if change.place() not in hidden], options.count
    start = time.monotonic()
    done = run.all(changes, count)

    survivors = [change for change, value in done if value["result"] == "survived"]
    for change in survivors:
        print(f"\nsurvived, line {change.first + 1}:\n{run.sources.write(change)}")
    if options.renew:
        renew(run, root / "scripts/mutants.killed", repeated if not options.killed else
              [change for change, value in done if value["result"] == "killed"], done)
    if lost and not options.renew:
        print("", *lost, sep="\n")
    total, killed = len(done), len(done) - len(survivors)
    print(f"\n{killed} of {total} killed in {time.monotonic() - start:.0f} s")
    if options.killed and not options.renew and (survivors or lost or total < len(repeated)):
        sys.exit("mutants: all of scripts/mutants.killed must be found and fail; --renew replaces what is gone")
    if lost and not options.renew:
        sys.exit("mutants: scripts/mutants.list has entries without their text")


if __name__ == "__main__":
    signal.signal(signal.SIGTERM, signal.default_int_handler)
    try:
        main()
    except Failed as reason:
        sys.exit(f"mutants: {reason}")
    except KeyboardInterrupt:
        sys.exit("mutants: stopped; the next run goes on here")
