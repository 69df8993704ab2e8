"""The build that scripts/mutants.py makes changes in: what a change touches is compiled beside the unchanged objects,
linked with them, and run."""
import dataclasses
import hashlib
import json
import os
import re
import shlex
import shutil
import signal
import subprocess
import threading

import mutations

LAYERS = ("base", "error", "crypt", "net", "xml", "dict", "msg", "form", "client", "capi")
LIBRARY = r"CMakeFiles/callorv_\w+\.dir/"       # its objects
LEAKS = "-fsanitize=leak"                        # at the link: looks for lost memory when the program ends
BUILT = {*LAYERS, "include", "tests", "fuzz", "tools", "examples", "cmake", "CMakeLists.txt"}


class Failed(Exception):
    """Why there can be no result."""


@dataclasses.dataclass
class Check:
    """A program of tests, and how it is run."""
    name: str
    command: list
    program: str = ""             # its path in the build, "" for what is run as it is
    cwd: str = "."
    env: dict = dataclasses.field(default_factory=dict)
    doctest: bool = False
    seconds: float = 0
    slow: list = dataclasses.field(default_factory=list)


class Processes:
    """Runs commands in a session of their own each, which ends with them."""

    def __init__(self):
        self.running, self.stopped, self.lock = set(), False, threading.Lock()

    def run(self, command, log, limit=None, **options):
        """The exit status, None when the time limit came first."""
        with open(log, "wb") as out:
            with self.lock:
                if self.stopped:
                    raise Failed("stopped")
                child = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=out, stderr=subprocess.STDOUT,
                                         start_new_session=True, **options)
                self.running.add(child)
            try:
                status = child.wait(limit)
            except subprocess.TimeoutExpired:
                status = None
            self.end(child)
            child.wait()
            with self.lock:
                self.running.discard(child)
                if self.stopped:            # by stop(), perhaps
                    raise Failed("stopped")
            return status

    @staticmethod
    def end(child):
        try:
            os.killpg(child.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass

    def stop(self):
        with self.lock:
            self.stopped = True
            for child in self.running:
                self.end(child)


def copy_tree(root, files, target):
    """Brings a copy up to date; what is the same keeps its time."""
    wanted = set(files)
    if target.exists():
        for path in [p for p in target.rglob("*") if p.is_file() and str(p.relative_to(target)) not in wanted]:
            path.unlink()
    for name in files:
        data, path = (root / name).read_bytes(), target / name
        if not path.exists() or path.read_bytes() != data:
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_bytes(data)
            shutil.copymode(root / name, path)


class Build:
    """The unchanged tree, built."""

    def __init__(self, root, folder, processes, jobs):
        self.folder, self.tree, self.dir = folder, folder / "tree", folder / "build"
        self.processes, self.jobs, self.lock = processes, jobs, threading.RLock()
        listed = subprocess.run(["git", "ls-files", "-z", "--cached", "--others", "--exclude-standard"], cwd=root,
                                check=True, capture_output=True, text=True).stdout
        self.files = [name for name in listed.split("\0") if name and (root / name).is_file()]
        folder.mkdir(parents=True, exist_ok=True)
        copy_tree(root, self.files, self.tree)
        state = hashlib.sha256()
        for name in sorted(self.files):
            if name.split("/")[0] in BUILT:
                state.update(name.encode() + b"\0" + (self.tree / name).read_bytes())
        self.fingerprint = state.hexdigest()
        self.all_checks = None
        self.links, self.originals, self.leaking = {}, {}, {}
        flags = ["-DCMAKE_BUILD_TYPE=Debug", "-DCMAKE_EXPORT_COMPILE_COMMANDS=ON"]
        flags += [f"-DCMAKE_{language}_FLAGS_DEBUG=-O0" for language in ("C", "CXX")]
        flags += [f"-DCMAKE_{kind}_LINKER_FLAGS=-fuse-ld=lld" for kind in ("EXE", "SHARED")]
        self.must(["cmake", "-S", str(self.tree), "-B", str(self.dir), "-G", "Ninja", *flags])
        self.units = [layer for layer in LAYERS if (self.tree / "tests/unit" / layer).is_dir()]
        self.make([f"unit_{layer}" for layer in self.units])

    def must(self, command):
        log = self.folder / "build.log"
        if self.processes.run(command, log) != 0:
            raise Failed(f"{' '.join(command)} failed:\n{log.read_text(errors='replace')[-4000:]}")

    def make(self, targets):
        self.must(["ninja", "-C", str(self.dir), f"-j{self.jobs}", *targets])
        self.compile = {}
        for entry in json.loads((self.dir / "compile_commands.json").read_text()):
            command = shlex.split(entry["command"])
            if os.path.basename(command[0]) == "ccache":
                del command[0]
            self.compile[command[command.index("-o") + 1]] = command
        self.deps, current = {}, None
        said = subprocess.run(["ninja", "-C", str(self.dir), "-t", "deps"], check=True, capture_output=True, text=True)
        for line in said.stdout.splitlines():
            if line.startswith("    "):
                self.deps[current].add(os.path.normpath(self.dir / line.strip()))
            elif ": #deps" in line:
                current = line.split(": #deps")[0]
                self.deps[current] = set()

    def link(self, target):
        """The command that links a program or library of the build."""
        with self.lock:
            if target not in self.links:
                said = subprocess.run(["ninja", "-C", str(self.dir), "-t", "commands", target], check=True,
                                      capture_output=True, text=True).stdout
                parts = [part for line in said.splitlines() for part in line.split(" && ") if f" -o {target} " in part]
                self.links[target] = shlex.split(parts[-1])
            return self.links[target]

    def unit_check(self, layer):
        return Check(f"unit_{layer}", [], f"tests/unit_{layer}", doctest=True)

    def other_checks(self, layer):
        """Everything but the unit tests of a folder: integration tests, other programs, the quick ones first, tools."""
        with self.lock:
            if self.all_checks is None:
                self.make(["all"])
                self.all_checks = self.read_checks()
        order = lambda check: (not check.program, not check.name.startswith("integration"), check.seconds)
        return sorted((check for check in self.all_checks if check.name != f"unit_{layer}"), key=order)

    def read_checks(self):
        said = subprocess.run(["ctest", "--show-only=json-v1"], cwd=self.dir, check=True, capture_output=True,
                              text=True)
        checks = {}
        for test in json.loads(said.stdout)["tests"]:
            command = test["command"]
            has = {entry["name"]: entry["value"] for entry in test.get("properties", [])}
            path = os.path.relpath(command[0], self.dir)
            program = "" if path.startswith("..") else path
            if not program and (not test["name"].startswith("tools: ") or "FIXTURES_REQUIRED" in has):    # the package
                continue
            name = os.path.basename(program) or test["name"]
            checks[name] = Check(name, command[1:] if program else command, program,
                                 has.get("WORKING_DIRECTORY", str(self.dir)),
                                 dict(x.split("=", 1) for x in has.get("ENVIRONMENT", [])),
                                 any(word.startswith("--test-case=") for word in command))
        return list(checks.values())

    def leaks(self, layer):
        """Whether a folder's unit tests lose memory by themselves."""
        with self.lock:
            if layer not in self.leaking:
                program, log = str(self.folder / f"unit_{layer}.leaks"), self.folder / "leaks.log"
                command = [*self.link(f"tests/unit_{layer}"), LEAKS]
                command[command.index("-o") + 1] = program
                self.processes.run(command, log, cwd=self.dir)
                self.leaking[layer] = self.is_leaking(program, log)
            return self.leaking[layer]

    def is_leaking(self, program, log):
        """Whether a program that looks for lost memory finds some. It needs more addresses than others are given."""
        self.processes.run(["prlimit", "--as=unlimited", program], log, 1200, cwd=self.dir / "tests")
        said = log.read_text(errors="replace")
        if "[doctest] test cases:" not in said or "LeakSanitizer: CHECK failed" in said:
            raise Failed(f"{program} cannot look for lost memory:\n{said[-2000:]}")
        return "LeakSanitizer: detected memory leaks" in said

    def original(self, output, optimised):
        """An object without the change, as it is built or optimised."""
        if not optimised:
            return (self.dir / output).read_bytes()
        with self.lock:
            if output not in self.originals:
                path = self.folder / "optimised" / output
                path.parent.mkdir(parents=True, exist_ok=True)
                command = list(self.compile[output])
                command[command.index("-o") + 1] = str(path)
                self.must([*command, "-O2"])
                self.originals[output] = path.read_bytes()
            return self.originals[output]


class Bench:
    """A copy of the tree in which one change is made, and what was built with it."""

    def __init__(self, build, number):
        self.build, self.folder = build, build.folder / str(number)
        self.tree, self.log = self.folder / "tree", self.folder / "log"
        copy_tree(build.tree, build.files, self.tree)

    def set(self, change):
        self.change = change
        self.whole = False
        self.objects, self.linked = {}, {}
        for name in ("made", "tmp"):
            shutil.rmtree(self.folder / name, ignore_errors=True)
            (self.folder / name).mkdir()
        text = (self.build.tree / change.path).read_text()
        (self.tree / change.path).write_text(mutations.apply(change, text))

    def reset(self):
        shutil.copyfile(self.build.tree / self.change.path, self.tree / self.change.path)

    def is_affected(self, output):
        """Whether an object is compiled anew. At first, what a header changes in the tests themselves is left alone:
        without optimisation the library's copies of its functions are those that are linked."""
        if not (self.whole or re.match(LIBRARY, output)):
            return False
        return str(self.build.tree / self.change.path) in self.build.deps.get(output, ())

    def needs_whole(self, check):
        """Whether the tests themselves have to be compiled anew, before they are believed to notice nothing."""
        self.whole = True
        needed = bool(check.program) and any(
            self.is_affected(word) and not re.match(LIBRARY, word) for word in self.build.link(check.program))
        self.whole = False
        return needed

    def compile(self, output, *flags):
        """The object of a source file with the change in it."""
        key = output, flags
        if key not in self.objects:
            path = self.folder / "made" / ("".join(flags) + output)
            path.parent.mkdir(parents=True, exist_ok=True)
            command = [word.replace(str(self.build.tree), str(self.tree)) for word in self.build.compile[output]]
            command[command.index("-o") + 1] = str(path)
            if self.build.processes.run([*command, *flags], self.log, 600, cwd=self.build.dir) != 0:
                raise SyntaxError(output)
            self.objects[key] = path
        return self.objects[key]

    def library_objects(self):
        return [output for output in self.build.compile if re.match(LIBRARY, output) and self.is_affected(output)]

    def is_same(self, optimised):
        """Whether the library's objects do not show the change. What a public header has may end in programs, too."""
        return not self.change.path.startswith("include/") and all(
            self.compile(output, *["-O2"] * optimised).read_bytes() == self.build.original(output, optimised)
            for output in self.library_objects())

    def made(self, target, *flags):
        """A program or library of the build, linked anew when the change is in its objects."""
        key = target, self.whole, flags
        if key not in self.linked:
            command, changed = self.build.link(target) + list(flags), bool(flags)
            for i, word in enumerate(command):
                if self.is_affected(word):
                    command[i], changed = str(self.compile(word)), True
                elif word != target and re.match(r"libcallorv\w*\.so", word):
                    self.made(word)
            if changed:
                library = [word for word in command if word.startswith("-Wl,-soname,")]
                path = self.folder / "made" / (library[0].split(",")[2] if library else target + ".run")
                command[command.index("-o") + 1] = str(path)
                path.parent.mkdir(parents=True, exist_ok=True)
                if self.build.processes.run(command, self.log, 600, cwd=self.build.dir) != 0:
                    raise SyntaxError(target)
            self.linked[key] = str(path) if changed else str(self.build.dir / target)
        return self.linked[key]

    def prepare(self, check):
        """What begins the command of a program of tests, made with the change."""
        if check.program:
            return [self.made(check.program)]
        for library in self.build.dir.glob("libcallorv*.so.*.*"):
            self.made(library.name)
        return []

    def fails(self, check):
        """What in a program of tests fails first, or None."""
        by = self.fails_as(check)
        if not by and self.needs_whole(check):
            self.whole = True
            by = self.fails_as(check)
            self.whole = False
        return by

    def fails_as(self, check):
        command = self.prepare(check)
        if not check.doctest:
            return self.run(check, command + check.command)
        names = ",".join(re.sub(r'[,"\\*]', "?", name) for name in check.slow)
        return (self.run(check, [*command, "-aa=1", *([f"-tce={names}"] if names else [])]) or
                (self.run(check, [*command, "-aa=1", f"-tc={names}"]) if names else None))

    def leaks(self, layer):
        """The unit tests, all of which have passed, that lose memory with the change, or None."""
        for name in dict.fromkeys((layer, "msg", "client")):    # messages and calls use nearly all the rest
            program, log = self.made(f"tests/unit_{name}", LEAKS), self.folder / "leaks.log"
            if self.build.is_leaking(program, log) and not self.build.leaks(name):
                return f"unit_{name}: memory is lost"
        return None

    def run(self, check, command):
        env = {**os.environ, **check.env,
               "LD_LIBRARY_PATH": str(self.folder / "made"), "TMPDIR": str(self.folder / "tmp")}
        limit = 30 + 6 * check.seconds
        log = self.folder / (check.name.replace(" ", "_") + ".log")
        status = self.build.processes.run(command, log, limit, cwd=self.build.dir / check.cwd, env=env)
        if status == 0:
            return None
        with open(log, errors="replace") as text:
            said = text.read(1 << 20)
        first = re.search(r"TEST CASE: *(.*)|^(?:FAIL|ERROR): (.*)", said, re.MULTILINE)
        return (f"{check.name}: {(first[1] or first[2]) if first else ''} "
                f"[{'time limit' if status is None else f'exit {status}'}]")
