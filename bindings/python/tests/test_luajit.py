"""The same C interface from another language: nothing of it is Python's."""
import pathlib
import subprocess

from conftest import LIBRARY, World


def test_luajit_calls_a_service(world: World) -> None:
    program = pathlib.Path(__file__).with_name("call.lua")
    ran = subprocess.run(["luajit", program, LIBRARY, world.config], capture_output=True, text=True)
    assert (ran.stdout, ran.stderr) == ("Everything: 3 rows, 10.5 - 30.5, first second\n", "")
