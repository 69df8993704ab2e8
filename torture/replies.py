"""Damages reply packets in every way that is listed here, and compares what the library makes of each with the model.

python3 torture/replies.py --build DIR [--quick] [--seed N] [--only LABEL]
A failure prints the label of its case; --only takes it, or the beginning of several.
"""
import argparse
import itertools
import os
import random
import subprocess
import sys
import zlib

import reply_model
from reply_model import FIELDS, HEADER, TRAILER

BATCH = 200    # orders that surely fit into a pipe
STEP_BATCH = 1000    # the same for calls in flight, whose deadlines pass together
LARGE = 2**20    # bytes of the large body
LARGE_FLIPS = 100000
FITS = 64 * 1024    # as in the driver: longer ones cannot be sent by a peer that then stays silent

# What a field is replaced by, cut or filled up to its width in several ways. {length} is the true packet length.
NASTY = [b"", b" ", b"0", b"-0", b"1", b"-1", b"+1", b"--1", b"+-1", b"- 1", b"7", b"-8", b"-9", b"119", b"120", b"121",
         b"127", b"128", b"129", b"131", b"255", b"256", b"999", b"9999", b"65535", b"65536", b"1048576", b"16777216",
         b"2147483519", b"2147483520", b"2147483647", b"2147483648", b"4294967295", b"4294967296", b"9999999999",
         b"-999999999", b"99999999999999999999", b"0x80", b"0200", b"1e3", b"1.5", b"12a", b"a12", b"1 2", b"\t12",
         b"\r\n12", b"\v\f12", b"\xa012", b"12\0", b"\0", b"\x0012", b"1\x002", b"\xff", b"\x80", b"\x7f", b"\x1b[2J",
         b"%s%n%d", b"%99999d", b"<t1>", b"]]>", b"\\", b"~", b"'\"", b"key\t", b"\r key \n", b"QMX-SSP-V1.0",
         b"QMX-SSP-V1.1", b"qmx-ssp-v1.0"]


def packet(body, compress=False, **fields):
    sent = zlib.compress(body) if compress else body
    values = {"begin string": reply_model.BEGIN, "packet length": b"%010d" % (HEADER + len(sent)), "service": b"1201",
              "message": b"0003", "extra": b"0000000042", "time stamp": b"20260131-235959", "user key": b"USERKEY1",
              "aux13": b"aux thirteen", "compressed": b"Y" if compress else b"N", "body length": b"%010d" % len(body),
              "aux8": b"aux8", "aux21": b"aux twenty-one"}
    header = b"".join(values[name].ljust(width) for name, (_, width) in FIELDS.items())
    data = header + sent
    return data + b"%03d" % (sum(data) % 256)


def packets():
    """The valid packets by name."""
    rows = b"".join(b"<t6><t1><![CDATA[row %d]]></t1><t2>%d</t2></t6>" % (i, i * i * 7919 % 10007) for i in range(60))
    body = b'<?xml version="1.0" encoding="ISO-8859-1" ?><msg no="3" ver="1.0"><t1><![CDATA[KR\xd1]]></t1></msg>'
    large = random.Random(1).randbytes(LARGE)
    return {"plain": packet(body), "compressed": packet(body.replace(b"</msg>", rows + b"</msg>"), True),
            "short": packet(b"hello", True), "empty": packet(b""), "large": packet(large)}


class Case:
    def __init__(self, label, cut, puts=(), closes=True):
        self.label, self.cut, self.puts, self.closes = label, cut, puts, closes

    def order(self):
        words = ["close" if self.closes else "keep", str(self.cut)]
        words += [f"{at} {data.hex()}" for at, data in self.puts]
        return " ".join(words) + "\n"

    def expected(self, damaged):
        """damaged: the whole packet, as reply_model.Bytes"""
        old = [(at, damaged.put(at, data)) for at, data in self.puts]
        line = reply_model.receive(damaged, self.cut, self.closes).line()
        for at, data in reversed(old):
            damaged.put(at, data)
        return line


def fillings(value, width):
    """A value in a field of this width."""
    found = {value[:width].ljust(width), value[:width].rjust(width), value[:width].ljust(width, b"\0")}
    if value.isdigit():
        found.add(value[-width:].rjust(width, b"0"))
    return sorted(found)


def replacements(data):
    """Each header field, and the trailer, with each of the values that do not suit it."""
    fields = {**FIELDS, "checksum": (len(data) - TRAILER, TRAILER)}
    own = [b"%d" % (len(data) - TRAILER + change) for change in (-1, 1, TRAILER, -HEADER)]
    for name, (at, width) in fields.items():
        values = NASTY + own
        if width == 1:
            values = [bytes([byte]) for byte in range(256)]
        values = sorted({filled for value in values for filled in fillings(value, width)})
        for value in values:
            puts = [(at, value)]
            yield f"{name}={value.hex()}", puts
            if name != "checksum":
                changed = sum(value) - sum(data[at:at + width])
                mended = b"%03d" % ((int(data[-TRAILER:]) + changed) % 256)
                yield f"{name}={value.hex()} mended", puts + [(len(data) - TRAILER, mended)]


def cases(name, data, quick, seed):
    """All cases of one packet."""
    size, large = len(data), len(data) > FITS
    ways = [True] if large else [True, False]

    def flip(bit):
        return f"flip {bit}", [(bit // 8, bytes([data[bit // 8] ^ 1 << bit % 8]))]

    cuts = range(size + 1)
    if large and quick:
        cuts = itertools.chain(range(300), range(300, size - 300, 4099), range(size - 300, size + 1))
    if large:
        chance = random.Random(seed)
        bits = (chance.randrange(8 * size) for _ in range(1000 if quick else LARGE_FLIPS))
    else:
        bits = range(8 * size)
    for closes in ways:
        prefix, suffix = name + " ", "" if closes else " stays open"
        for cut in cuts:
            yield Case(f"{prefix}cut {cut}{suffix}", cut, closes=closes)
        for label, puts in itertools.chain(map(flip, bits), replacements(data)):
            yield Case(prefix + label + suffix, size, puts, closes)


DEADLINE = 500    # as in the driver
# What the reply of a packet comes to that is no message: result, code and text.
NO_MESSAGE = "-3 -7 " + reply_model.shown(b"-21, XML parsing failed(Handler error : [F]MemData (L:1, C:1) "
                                          b"invalid document structure)") + " ~"


class StepCase:
    """A call in flight, which gets the first cut bytes of a packet one by one."""

    def __init__(self, name, cut, end):
        self.label, self.cut, self.end = f"{name} steps {cut} {end}", cut, end

    def order(self):
        return f"{self.end} {self.cut}\n"

    def expected(self, packet):
        if self.end == "cancel":
            return "cancelled 0"
        outcome = reply_model.receive(packet, self.cut, self.end == "close", DEADLINE)
        if outcome.code != 0:
            return f"-3 -5 {reply_model.shown(outcome.text)} ~"
        body = bytes(packet.data[HEADER:-TRAILER])
        if outcome.compressed:
            body = zlib.decompress(body)
        return f"0 0 ~ {reply_model.shown(body)}" if body[:1] == b"<" else NO_MESSAGE


class Driver:
    def __init__(self, build, name):
        program = os.path.join(build, "torture", "torture_" + name)
        self.process = subprocess.Popen([program], stdin=subprocess.PIPE, stdout=subprocess.PIPE)

    def send(self, data):
        self.process.stdin.write(data)
        self.process.stdin.flush()

    def line(self):
        return self.process.stdout.readline().decode().rstrip()


def main():
    options = argparse.ArgumentParser()
    options.add_argument("--build", required=True)
    options.add_argument("--quick", action="store_true")
    options.add_argument("--seed", type=int, default=random.randrange(2**32))
    options.add_argument("--only", default="")
    args = options.parse_args()
    print(f"replies: --seed {args.seed}", file=sys.stderr)

    driver, stepper = Driver(args.build, "reply_driver"), Driver(args.build, "step_driver")
    tried = survived = 0
    outcomes = {}

    def judge(case, line, seen):
        nonlocal tried, survived
        tried += 1
        survived += seen == line
        if seen != line:
            print(f"replies: FAILED: {case.label}\n  expected {line}\n  seen     {seen}", file=sys.stderr)
            if not seen:
                sys.exit("replies: the driver has ended")

    for name, data in packets().items():
        driver.send(b"packet %d\n%s" % (len(data), data))
        damaged = reply_model.Bytes(data)
        chosen = (case for case in cases(name, data, args.quick, args.seed) if case.label.startswith(args.only))
        while batch := list(itertools.islice(chosen, BATCH)):
            driver.send("".join(case.order() for case in batch).encode())
            expected = [case.expected(damaged) for case in batch]
            for case, line in zip(batch, expected):
                code = line.split(" ", 1)[0]
                outcomes[code] = outcomes.get(code, 0) + 1
                judge(case, line, driver.line())
        steps = [] if len(data) > FITS else [StepCase(name, cut, end) for cut in range(len(data) + 1)
                                             for end in ("keep", "close", "cancel")]
        steps = [case for case in steps if case.label.startswith(args.only)]
        stepper.send(b"packet %d\n%s" % (len(data), data))
        for at in range(0, len(steps), STEP_BATCH):
            batch = steps[at:at + STEP_BATCH]
            stepper.send(("".join(case.order() for case in batch) + "end\n").encode())
            for case in batch:
                judge(case, case.expected(damaged), stepper.line())
        print(f"replies: {name}: {tried} cases so far", file=sys.stderr)
    for each in driver, stepper:
        each.process.stdin.close()
        if each.process.wait() != 0:
            sys.exit(f"replies: the driver ended with {each.process.returncode}")
    print("replies: codes", *(f"{code}: {count}" for code, count in sorted(outcomes.items())), sep="  ",
          file=sys.stderr)
    print(f"replies: {tried} cases, {survived} survived")
    return 0 if tried == survived > 0 else 1


sys.exit(main())
