"""What goes wrong is a callorv.Error, with code, text and service."""
import codecs
import datetime
import pathlib
import pickle
import subprocess
import sys
from typing import Any, Dict, List

import callorv
import pytest

from conftest import LIBRARY, World, write_config
from relay import Mode


@pytest.mark.parametrize("values, code, text", [
    ({"nothing": 1}, -18, "message Everything has no tag 'nothing'"),
    ({"nothing": None}, -18, "message Everything has no tag 'nothing'"),
    ({"rows": [{"nothing": 1}]}, -18, "message Row has no tag 'nothing'"),
    ({"text": 5}, -17, "Everything.text takes a str, not int"),
    ({"text": b"x"}, -17, "Everything.text takes a str, not bytes"),
    ({"text": ["x"]}, -17, "Everything.text takes a str, not list"),
    ({"text": "\u03a9"}, -28, "Everything.text: 'latin-1' codec can't encode character '\\u03a9' in position 0: "
                              "ordinal not in range(256)"),
    ({"text": "a\0b"}, -28, "Everything.text: a text has no NUL"),
    ({"number": 1.0}, -17, "Everything.number takes an int, not float"),
    ({"number": True}, -17, "Everything.number takes an int, not bool"),
    ({"number": 1 << 31}, -28, "Everything.number: 2147483648 has no place in 32 bits"),
    ({"number": -(1 << 31) - 1}, -28, "Everything.number: -2147483649 has no place in 32 bits"),
    ({"price": "1.5"}, -17, "Everything.price takes a float, not str"),
    ({"price": False}, -17, "Everything.price takes a float, not bool"),
    ({"flag": 1}, -17, "Everything.flag takes a bool, not int"),
    ({"day": datetime.datetime(2024, 1, 31)}, -17, "Everything.day takes a datetime.date or str, not datetime"),
    ({"day": "2024-01-31"}, -28, "Everything.day: a date has at most 8 characters"),
    ({"row": [{}]}, -17, "Everything.row takes a mapping, not list"),
    ({"rows": {}}, -17, "Everything.rows takes a list, of each a mapping, not dict"),
    ({"rows": 5}, -17, "Everything.rows takes a list, of each a mapping, not int"),
    ({"rows": [5]}, -17, "Everything.rows takes a list, of each a mapping, not int"),
    ({"texts": "abc"}, -17, "Everything.texts takes a list, of each a str, not str"),
    ({"numbers": [1, None]}, -17, "Everything.numbers takes a list, of each an int, not NoneType"),
    ({"texts": ["a", ""]}, -28, "Everything.texts: an element without a value cannot be sent"),
    ({"days": [""]}, -28, "Everything.days: an element without a value cannot be sent"),
    ({"rows": [{"text": None}]}, -28, "Everything.rows: an element without a value cannot be sent"),
    ({"rows": [{"text": "", "row": {"text": ""}}]}, -28, "Everything.rows: an element without a value cannot be sent"),
])
def test_a_value_that_cannot_be_sent(client: callorv.Client, values: Dict[str, Any], code: int, text: str) -> None:
    with pytest.raises(callorv.Error) as caught:
        client.call(7, "Everything", values)
    assert (caught.value.code, caught.value.text, caught.value.service) == (code, text, 0)


def test_rows_of_a_message_that_the_dictionary_lacks(client: callorv.Client) -> None:
    with pytest.raises(callorv.Error) as caught:
        client.call(7, "Odd", nowhere=[{}])
    assert (caught.value.code, caught.value.text) == (-19, "MSG_Error(-19) : Not defined msg in dictionary {3.msgnum=999}")


def test_too_large_for_a_double(client: callorv.Client) -> None:
    with pytest.raises(callorv.Error, match="has no place in a double"):
        client.call(7, "Everything", price=10**400)


@pytest.mark.parametrize("message", ["Nothing", "every\0thing", "\u03a9", 4711, 0, -1, 1 << 40])
def test_an_unknown_message(client: callorv.Client, message: Any) -> None:
    with pytest.raises(callorv.Error) as caught:
        client.call(7, message)
    assert (caught.value.code, caught.value.text) == (-19, f"the dictionary has no message {message!r}")


@pytest.mark.parametrize("service, text", [("x", "a service is an int, not str"),
                                           (1 << 31, "service 2147483648 has no place in 32 bits")])
def test_a_service_that_is_none(client: callorv.Client, service: Any, text: str) -> None:
    with pytest.raises(callorv.Error) as caught:
        client.call(service, "Everything")
    assert (caught.value.code, caught.value.text) == (-28, text)


@pytest.mark.parametrize("message, values, text", [(None, {}, "a message is an int or a str, not NoneType"),
                                                   ([1], {}, "a message is an int or a str, not list"),
                                                   (100, [("number", 1)], "values are a mapping, not list")])
def test_arguments_of_the_wrong_type(client: callorv.Client, message: Any, values: Any, text: str) -> None:
    with pytest.raises(callorv.Error) as caught:
        client.call(7, message, values)
    assert (caught.value.code, caught.value.text) == (-17, text)


@pytest.mark.parametrize("deadline", [0, -1, float("nan"), float("inf"), "1"])
def test_a_deadline_that_is_none(client: callorv.Client, deadline: Any) -> None:
    with pytest.raises(callorv.Error) as caught:
        client.call(7, "Everything", deadline=deadline)
    assert (caught.value.code, caught.value.text) == (-28, f"a deadline is some seconds, not {deadline!r}")


def test_a_rejection_is_the_server_s(client: callorv.Client) -> None:
    with pytest.raises(callorv.Rejected) as caught:
        client.call(1234, "Unknown", text="x")
    assert caught.value.code == 400 and caught.value.service == 1234
    assert caught.value.text == "Handler error : Unknown msgno(199)"
    assert str(caught.value) == f"400 {caught.value.text}"
    again = pickle.loads(pickle.dumps(caught.value))
    assert isinstance(again, callorv.Rejected) and vars(again) == vars(caught.value)


def test_a_connection_that_is_closed(client: callorv.Client, world: World) -> None:
    world.relay.mode = Mode.CLOSE
    try:
        with pytest.raises(callorv.Error) as caught:
            client.call(7, "Everything", number=1, text="x" * 5)
    finally:
        world.relay.mode = Mode.FORWARD
    assert not isinstance(caught.value, callorv.Rejected)
    assert caught.value.code == -5 and caught.value.service == -1


def test_a_deadline_that_passes(client: callorv.Client, world: World) -> None:
    world.relay.mode = Mode.SILENT
    try:
        with pytest.raises(callorv.Error) as caught:
            client.call(7, "Everything", number=1, deadline=0.0301)
    finally:
        world.relay.mode = Mode.FORWARD
    assert (caught.value.code, caught.value.text) == (-5, "Socket timeout(-8)((header, 31 ms))")


def test_a_reply_that_is_not_in_the_encoding(client: callorv.Client, world: World) -> None:
    ascii_codec, latin_codec = codecs.lookup("ascii"), codecs.lookup("latin-1")
    codecs.register(lambda name: codecs.CodecInfo(latin_codec.encode, ascii_codec.decode, name="narrow")
                    if name == "narrow" else None)
    narrow = callorv.Client(world.config, library=LIBRARY, encoding="narrow")
    assert narrow.call(7, "Everything", text="e").text == "e"
    several: List[Dict[str, Any]] = [{"text": "\u00e9"}, {"rows": [{"text": "\u00e9"}]}, {"days": ["\u00e9"]}]
    for values in several:
        with pytest.raises(callorv.Error) as caught:
            narrow.call(7, "Everything", values)
        assert caught.value.code == -28
        assert caught.value.text == "a text of the reply: 'ascii' codec can't decode byte 0xe9 in position 0: ordinal not in range(128)"


@pytest.mark.parametrize("encoding", ["utf-16", "no such encoding", "rot13"])
def test_an_encoding_that_does_not_do(world: World, encoding: str) -> None:
    with pytest.raises(callorv.Error, match="is no encoding for texts that end with a NUL"):
        callorv.Client(world.config, library=LIBRARY, encoding=encoding)


def test_a_client_shares_the_set_up_of_its_file(client: callorv.Client, world: World, tmp_path: pathlib.Path) -> None:
    link = tmp_path / "link.cfg"
    link.symlink_to(world.config)
    for config in (str(world.config), str(link)):
        with callorv.Client(config, library=LIBRARY) as second:
            assert second.call(7, "Everything", number=1).number == 1
        with pytest.raises(callorv.Error, match="-35 the client is closed"):
            second.call(7, "Everything", number=1)
    assert client.call(7, "Everything", number=1).number == 1


def test_a_client_of_another_configuration_is_an_error(client: callorv.Client, world: World) -> None:
    other = write_config(world.config.parent, 1, "other.cfg")
    with pytest.raises(callorv.Error) as caught:
        callorv.Client(other, library=LIBRARY)
    assert (caught.value.code, caught.value.text) == (
        -34, f"{other}: this process is set up with another configuration or library, from {world.config.resolve()}")
    content = world.config.read_text()
    world.config.write_text(content + "\n")
    try:
        with pytest.raises(callorv.Error, match="another configuration"):
            callorv.Client(world.config, library=LIBRARY)
    finally:
        world.config.write_text(content)


def test_a_configuration_or_library_that_is_not_there(tmp_path: pathlib.Path) -> None:
    with pytest.raises(callorv.Error) as caught:
        callorv.Client(tmp_path / "none.cfg", library=LIBRARY)
    assert (caught.value.code, caught.value.text) == (-34, f"{tmp_path}/none.cfg: No such file or directory")
    for odd in (str(tmp_path), "a\0b"):
        with pytest.raises(callorv.Error) as caught:
            callorv.Client(odd, library=LIBRARY)
        assert caught.value.code == -34
    with pytest.raises(callorv.Error) as caught:
        callorv.Client(tmp_path / "none.cfg", library=tmp_path / "none.so")
    assert caught.value.code == -35 and "none.so" in caught.value.text
    with pytest.raises(callorv.Error, match="undefined symbol: CallOrv_Initialize"):
        callorv.Client(tmp_path / "none.cfg", library="libc.so.6")


def test_a_set_up_that_fails_can_be_tried_again(world: World) -> None:
    script = """
import sys
import callorv
broken, good, library = sys.argv[1:]
for config in broken, broken:
    try:
        callorv.Client(config, library=library)
    except callorv.Error as error:
        print(error.code, error.text)
print(callorv.Client(good, library=library).call(7, "Everything", number=5).number)
"""
    broken = world.config.parent / "broken.cfg"
    broken.write_text(world.config.read_text().replace("user.key", "no.key"))
    ran = subprocess.run([sys.executable, "-c", script, broken, world.config, LIBRARY], capture_output=True, text=True)
    wanted = f"0 File not found({world.config.parent}/no.key)\n"
    assert (ran.stdout, ran.stderr) == (wanted * 2 + "5\n", "")


def test_the_dictionary_can_be_asked(client: callorv.Client) -> None:
    assert [message.name for message in client.messages()] == ["REJECT", "Everything", "Row", "Leaf", "Odd", "Table", "TableRow",
                                                               "Unknown"]
    tags = client.definition("Everything").tags
    assert tags["rows"] == callorv.Tag(16, "rows", "submsg", 101, True)
    assert tags["day"] == callorv.Tag(5, "day", "date", 0, False)
    assert [(tag.number, name) for name, tag in client.definition("Odd").tags.items()] == [
        (0, "class"), (1, "two words"), (2, "items"), (3, "deadline"), (5, "service"),
        (6, "nowhere"), (7, "leaves")]


def test_resolving(client: callorv.Client) -> None:
    client.resolve()
    assert client.call(7, "Everything", number=5, deadline=20).number == 5
