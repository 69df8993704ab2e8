"""A server that echoes, and a client of it: the one of this process."""
import dataclasses
import os
import pathlib
import subprocess
from typing import Iterator

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


@pytest.fixture(scope="session")
def world(tmp_path_factory: pytest.TempPathFactory) -> Iterator[World]:
    folder = tmp_path_factory.mktemp("callorv")
    subprocess.run([COMMAND, "key", "make", "--user-key", "TEST-USER-1", "-o", folder / "user.key"], check=True)
    definitions = (HERE / "dictionary.xml").read_text("latin-1")
    (folder / "server.xml").write_text(definitions, "latin-1")
    # The server does not know message 199, and rejects it.
    (folder / "client.xml").write_text(definitions.replace("</msg_dictionary>", '<msg no="199" name="Unknown">'
                                       '<tag no="1" name="text" type="string" /></msg></msg_dictionary>'), "latin-1")
    with subprocess.Popen([COMMAND, "serve", "--dictionary", folder / "server.xml", "--echo", "--quiet"],
                          stdout=subprocess.PIPE, text=True) as server:
        assert server.stdout is not None
        host, port = server.stdout.readline().removeprefix("listening on ").split()
        relay = Relay((host, int(port)))
        yield World(relay, write_config(folder, relay.port))
        relay.close()
        server.terminate()


def write_config(folder: pathlib.Path, port: int, name: str = "client.cfg") -> pathlib.Path:
    config = folder / name
    config.write_text(f"msg_dic = {folder}/client.xml\nkey_file = {folder}/user.key\nserver = 127.0.0.1 {port}\ntimeout = 60\n")
    return config


@pytest.fixture(scope="session")
def client(world: World) -> callorv.Client:
    return callorv.Client(world.config, library=LIBRARY)
