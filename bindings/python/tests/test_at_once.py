"""Calls at once: threads, tasks, deadlines, cancellation and signals."""
import asyncio
import pathlib
import signal
import subprocess
import sys
import threading
from typing import List, Optional

import callorv
import pytest

from conftest import LIBRARY, World
from relay import Mode


def test_threads_each_get_their_own_reply(client: callorv.Client) -> None:
    failed: List[object] = []

    def work(thread: int) -> None:
        for i in range(25):
            number = thread * 1000 + i
            reply = client.call(7, "Everything", number=number, rows=[{"number": number}] * 5)
            if reply.number != number or reply.rows.columns["number"] != [number] * 5:
                failed.append(reply)

    threads = [threading.Thread(target=work, args=(i,)) for i in range(8)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert failed == []


def test_tasks_each_get_their_own_reply(client: callorv.Client) -> None:
    async def many() -> List[callorv.Reply]:
        return await asyncio.gather(*(client.acall(7, "Everything", {"number": i}, text="x" * i) for i in range(100)))

    replies = asyncio.run(many())
    assert [(reply.number, len(reply.text or "")) for reply in replies] == [(i, i) for i in range(100)]


def test_a_long_request_and_reply(client: callorv.Client) -> None:
    numbers = list(range(200_000))    # more than a socket takes at once
    assert asyncio.run(client.acall(7, "Everything", numbers=numbers)).numbers == numbers


def test_what_fails_is_told_as_by_call(client: callorv.Client, world: World) -> None:
    with pytest.raises(callorv.Rejected) as caught:
        asyncio.run(client.acall(1234, "Unknown", text="x"))
    assert caught.value.code == 400 and caught.value.service == 1234
    with pytest.raises(callorv.Error, match="-18 message Everything has no tag 'nothing'"):
        asyncio.run(client.acall(7, "Everything", nothing=1))
    world.relay.mode = Mode.CLOSE
    try:
        with pytest.raises(callorv.Error) as failed:
            asyncio.run(client.acall(7, "Everything", number=1))
    finally:
        world.relay.mode = Mode.FORWARD
    assert failed.value.code == -5 and failed.value.service == -1


def test_a_deadline_ends_a_task_s_call(client: callorv.Client, world: World) -> None:
    world.relay.mode = Mode.SILENT
    try:
        with pytest.raises(callorv.Error) as caught:
            asyncio.run(client.acall(7, "Everything", number=1, deadline=0.03))
    finally:
        world.relay.mode = Mode.FORWARD
    assert (caught.value.code, caught.value.text) == (-5, "Socket timeout(-8)((header, 30 ms))")


def test_a_cancelled_task_closes_its_connection(client: callorv.Client, world: World) -> None:
    world.relay.mode = Mode.SILENT
    world.relay.asked.clear()
    world.relay.left.clear()

    async def cancelled() -> None:
        loop = asyncio.get_running_loop()
        task = asyncio.create_task(client.acall(7, "Everything", number=1))
        await loop.run_in_executor(None, world.relay.asked.wait, 60)
        task.cancel()
        with pytest.raises(asyncio.CancelledError):
            await task
        await loop.run_in_executor(None, world.relay.left.wait, 60)

    try:
        asyncio.run(cancelled())
    finally:
        world.relay.mode = Mode.FORWARD
    assert world.relay.left.is_set()
    assert asyncio.run(client.acall(7, "Everything", number=2)).number == 2


SCRIPT = """
import asyncio, signal, sys
import callorv
config, library, how = sys.argv[1:]
client = callorv.Client(config, library=library)
signal.signal(signal.SIGUSR1, lambda *_: print("handled", flush=True))
signal.signal(signal.SIGINT, signal.default_int_handler)    # which a shell's background job ignores
try:
    if how == "call":
        client.call(7, "Everything", number=1)
    else:
        asyncio.run(client.acall(7, "Everything", number=1))
except KeyboardInterrupt:
    print("interrupted")
except callorv.Error as error:
    print(error)
"""


@pytest.mark.parametrize("how, which, said", [
    ("call", signal.SIGINT, "interrupted\n"), ("acall", signal.SIGINT, "interrupted\n"),
    ("call", signal.SIGUSR1, "handled\n-5 Failed in select()(-10)((recv errno=4,Interrupted system call))\n")])
def test_a_signal_ends_a_call_in_the_main_thread(world: World, how: str, which: signal.Signals, said: str) -> None:
    world.relay.mode = Mode.SILENT
    world.relay.asked.clear()
    try:
        with subprocess.Popen([sys.executable, "-c", SCRIPT, world.config, LIBRARY, how], stdout=subprocess.PIPE, text=True) as child:
            assert world.relay.asked.wait(60)
            while state(child.pid) != "S":    # it has sent its request, and waits
                pass
            child.send_signal(which)
            out, _ = child.communicate(timeout=60)
    finally:
        world.relay.mode = Mode.FORWARD
    assert out == said


def state(pid: int) -> Optional[str]:
    """What a process does: S when it sleeps."""
    return pathlib.Path(f"/proc/{pid}/stat").read_text().rsplit(")", 1)[1].split()[0]
