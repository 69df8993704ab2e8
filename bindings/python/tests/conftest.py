"""A server that echoes, and a client of it: the one of this process."""
import contextlib
import dataclasses
import os
import pathlib
import subprocess
from typing import Iterator, Union

import callorv
import pytest

from relay import Relay

HERE = pathlib.Path(__file__).resolve().parent
BUILD = pathlib.Path(os.environ.get("CALLORV_BUILD", HERE.parents[2] / "build" / "native")).resolve()
LIBRARY = BUILD / "libcallorv.so.1"
COMMAND = BUILD / "tools" / "callorv"


@dataclasses.dataclass
class World:
    """A relay before the server, and the files of its clients."""

    relay: Relay
    config: pathlib.Path


@contextlib.contextmanager
def serving(*arguments: Union[str, pathlib.Path]) -> Iterator[int]:
    """A server with these arguments; gives its port."""
    with subprocess.Popen([COMMAND, "serve", *arguments, "--quiet"], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
                          text=True) as server:
        assert server.stdout is not None
        try:
            yield int(server.stdout.readline().split()[-1])
        finally:
            server.terminate()


@contextlib.contextmanager
def echoing(folder: pathlib.Path) -> Iterator[int]:
    """A server that echoes, which does not know message 199 and rejects it; the key and the dictionary of its clients are in
    the folder then."""
    subprocess.run([COMMAND, "key", "make", "--user-key", "TEST-USER-1", "-o", folder / "user.key"], check=True)
    definitions = (HERE / "dictionary.xml").read_text("latin-1")
    (folder / "server.xml").write_text(definitions, "latin-1")
    (folder / "client.xml").write_text(definitions.replace("</msg_dictionary>", '<msg no="199" name="Unknown">'
                                       '<tag no="1" name="text" type="string" /></msg></msg_dictionary>'), "latin-1")
    with serving("--dictionary", folder / "server.xml", "--echo") as port:
        yield port


def write_config(folder: pathlib.Path, port: int, name: str = "client.cfg") -> pathlib.Path:
    config = folder / name
    config.write_text(f"msg_dic = {folder}/client.xml\nkey_file = {folder}/user.key\nserver = 127.0.0.1 {port}\n"
                      "timeout = 60\n")
    return config


@pytest.fixture(scope="session")
def world(tmp_path_factory: pytest.TempPathFactory) -> Iterator[World]:
    folder = tmp_path_factory.mktemp("callorv")
    with echoing(folder) as port:
        relay = Relay(("127.0.0.1", port))
        yield World(relay, write_config(folder, relay.port))
        relay.close()


@pytest.fixture(scope="session")
def client(world: World) -> callorv.Client:
    return callorv.Client(world.config, library=LIBRARY)
