"""Prints what Python costs beside C: a small call, and 1,000 rows of four tags as columns and as mappings. Needs a C compiler."""
import pathlib
import statistics
import subprocess
import sys
import tempfile
import time
from typing import Callable, List

HERE = pathlib.Path(__file__).resolve().parent
sys.path[:0] = [str(HERE.parent), str(HERE.parent / "tests")]
import callorv  # noqa: E402
from conftest import BUILD, LIBRARY, echoing, write_config  # noqa: E402

ROUNDS, CALLS, READS = 40, 50, 20
LIMITS = {"columns": 5.0, "mappings": 10.0}    # times C
CALL_LIMIT = 30.0    # microseconds more than C


def timed(work: Callable[[], object], count: int, clock: Callable[[], float]) -> float:
    start = clock()
    for _ in range(count):
        work()
    return (clock() - start) / count * 1e6


def main() -> int:
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        subprocess.run(["cc", "-O2", "-I", HERE.parents[2] / "include", HERE / "rows.c", "-o", folder / "rows", f"-L{BUILD}",
                        "-lcallorv", f"-Wl,-rpath,{BUILD},-rpath-link,{BUILD}"], check=True)
        with echoing(folder) as port:
            return compare(write_config(folder, port), folder / "rows")


def compare(config: pathlib.Path, program: pathlib.Path) -> int:
    client = callorv.Client(config, library=LIBRARY)
    library = client._library
    values = {"rows": [{"code": f"CODE-{i:04}", "number": i, "price": i + 0.25, "flag": i % 2 == 1} for i in range(1000)]}
    handle = library.MSG_GetNewMsg(104, None)
    client._values.fill(handle, client.definition(104), values)
    with subprocess.Popen([program, config], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True) as peer:
        assert peer.stdin is not None and peer.stdout is not None

        def in_c(what: str) -> float:
            assert peer.stdin is not None and peer.stdout is not None
            peer.stdin.write(what + "\n")
            peer.stdin.flush()
            return float(peer.stdout.readline())

        seen: List[List[float]] = [[], [], [], [], []]
        for _ in range(ROUNDS):    # in turn, as the machine may do other things meanwhile
            for times, value in zip(seen, (
                    in_c(f"read {READS}"), timed(lambda: client._values.read(handle).rows.columns, READS, time.thread_time),
                    timed(lambda: list(client._values.read(handle).rows), READS, time.thread_time), in_c(f"call {CALLS}"),
                    timed(lambda: client.call(7, "Everything", text="ACME", number=5), CALLS, time.perf_counter))):
                times.append(value)
    c_read, columns, mappings, c_call, call = map(statistics.median, seen)
    ratios = {"columns": columns / c_read, "mappings": mappings / c_read}
    print(f"1,000 rows of four tags: C {c_read:.0f} us, columns {columns:.0f} us ({ratios['columns']:.1f} times), "
          f"mappings {mappings:.0f} us ({ratios['mappings']:.1f} times)")
    print(f"a small call: C {c_call:.0f} us, Python {call:.0f} us ({call - c_call:+.0f} us)")
    return int(any(ratios[name] > limit for name, limit in LIMITS.items()) or call - c_call > CALL_LIMIT)


if __name__ == "__main__":
    sys.exit(main())
