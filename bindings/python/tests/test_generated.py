"""The classes that `callorv generate --language python` writes: their types, and calls with them."""
import datetime
import importlib
import pathlib
import subprocess
import sys
from typing import Any

import callorv
import pytest

from conftest import COMMAND, HERE

PACKAGE = "generated_messages"
TYPED = f"""import datetime
import callorv
from {PACKAGE}.everything_msg import Everything
from {PACKAGE}.row_msg import Row

def ask(client: callorv.Client) -> float:
    request = Everything(text="a", price=1, flag=True, day=datetime.date(2026, 1, 31), numbers=[1], rows=[Row(number=2)])
    reply = Everything.from_values(client.call(1001, Everything.MSG_NUM, request.to_values()))
    return reply.price or 0.0
"""
WRONG = f"""from {PACKAGE}.everything_msg import Everything
print(Everything(number="7", nosuch=1).rows[0].price + "x")
"""


@pytest.fixture(scope="module")
def folder(tmp_path_factory: pytest.TempPathFactory) -> pathlib.Path:
    """Where the package is."""
    path = tmp_path_factory.mktemp("generated")
    subprocess.run([COMMAND, "generate", "--language", "python", HERE / "dictionary.xml", "-o", path / PACKAGE], check=True,
                   capture_output=True)
    return path


@pytest.fixture()
def modules(folder: pathlib.Path, monkeypatch: pytest.MonkeyPatch) -> Any:
    """Gives a module of the package."""
    monkeypatch.syspath_prepend(str(folder))
    return lambda name: importlib.import_module(f"{PACKAGE}.{name}")


def test_the_types_are_strict(folder: pathlib.Path) -> None:
    (folder / "typed.py").write_text(TYPED)
    (folder / "wrong.py").write_text(WRONG)
    ran = subprocess.run([sys.executable, "-m", "mypy", "--strict", "--cache-dir", "/dev/null", "--no-error-summary",
                          PACKAGE, "typed.py", "wrong.py"], cwd=folder, capture_output=True, text=True)
    found = [line.split(":", 2)[:2] for line in ran.stdout.splitlines() if ": error:" in line]
    assert (found, ran.stderr) == ([["wrong.py", "2"]] * len(found), "") and len(found) == 4, ran.stdout
    assert 'Unexpected keyword argument "nosuch"' in ran.stdout


def test_a_call_brings_back_what_was_sent(client: callorv.Client, modules: Any) -> None:
    every, row, leaf = modules("everything_msg").Everything, modules("row_msg").Row, modules("leaf_msg").Leaf
    request = every(text="Z\u00fcrich", number=-7, price=0.1, flag=False, day=datetime.date(2026, 1, 31), row=row(text="one"),
                    texts=["a", "b"], numbers=[1, 2], prices=[0.5], flags=[True, False], days=["2026", datetime.date(1999, 9, 9)],
                    rows=[row(number=1, row=leaf(text="deep"), rows=[leaf(text="x"), leaf(text="y")]), row(flag=True)])
    reply = every.from_values(client.call(1001, every.MSG_NUM, request.to_values()))
    assert reply == request
    assert (type(reply.rows[0]), type(reply.rows[0].rows[1])) == (row, leaf)
    assert every.from_values(client.call(1001, "Everything")) == every()


def test_names_that_are_none_of_python(client: callorv.Client, modules: Any) -> None:
    odd = modules("odd_msg").Odd
    request = odd(class_0=1, two_words="2", items=3, deadline=4, service=5, leaves=[modules("leaf_msg").Leaf(text="l")])
    assert odd.from_values(client.call(1001, odd.MSG_NUM, request.to_values())) == request


def test_another_reply_is_refused(client: callorv.Client, modules: Any) -> None:
    reply = client.call(1001, "Leaf", text="x")
    with pytest.raises(callorv.Error) as caught:
        modules("odd_msg").Odd.from_values(reply)
    assert (caught.value.code, caught.value.text) == (-28, "the reply is message 102, not 103")
