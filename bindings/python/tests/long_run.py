"""long_run.py [CALLS]: a million calls, or so many, every tenth of them by acall; the process must not grow. Not for every day: a
million take some minutes."""
import asyncio
import pathlib
import resource
import sys
import tempfile

HERE = pathlib.Path(__file__).resolve().parent
sys.path[:0] = [str(HERE.parent), str(HERE)]
import callorv  # noqa: E402
from conftest import LIBRARY, echoing, write_config  # noqa: E402

GROWTH = 1 << 20    # bytes that may come from the allocator's way of keeping memory
WARM = 2000         # calls before the first look


def resident() -> int:
    pages = int(pathlib.Path("/proc/self/statm").read_text().split()[1])
    return pages * resource.getpagesize()


def main(calls: int) -> int:
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        with echoing(folder) as port:
            return run(callorv.Client(write_config(folder, port), library=LIBRARY), calls)


def run(client: callorv.Client, calls: int) -> int:
    loop = asyncio.new_event_loop()
    before = 0
    for i in range(calls):
        if i == WARM:
            before = resident()
        values = {"number": i, "text": "x" * (i % 200), "rows": [{"text": str(i), "numbers": [i, i]}] * (i % 4)}
        if i % 100 == 0:
            values["nothing"] = 1    # refused
        try:
            reply = loop.run_until_complete(client.acall(7, "Everything", values)) if i % 10 == 5 else client.call(7, 100, values)
            assert reply.number == i and len(reply.rows) == i % 4 and reply.rows.columns["text"] == [str(i)] * (i % 4)
        except callorv.Error as error:
            assert i % 100 == 0 and error.code == -18
    loop.close()
    grown = resident() - before
    descriptors = len(list(pathlib.Path("/proc/self/fd").iterdir()))
    print(f"{calls} calls: {grown / 1024:+.0f} KB, {descriptors} descriptors")
    return int(grown > GROWTH or descriptors > 20)


if __name__ == "__main__":
    sys.exit(main(int(sys.argv[1]) if len(sys.argv) > 1 else 1_000_000))
