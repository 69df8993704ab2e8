"""What is sent comes back: every kind of value, through a server that echoes."""
import datetime
from typing import Any, Dict, List

import callorv
import pytest
from hypothesis import HealthCheck, given, settings
from hypothesis import strategies as st

from conftest import LIBRARY, World

QUICK = settings(deadline=None, database=None, max_examples=150, suppress_health_check=[HealthCheck.function_scoped_fixture,
                                                                         HealthCheck.too_slow])
# A text of the format: blanks at its ends go, and no text is no value.
CHARACTERS = "\t\n" + "".join(map(chr, [*range(0x20, 0x7F), *range(0xA0, 0x100)]))
TEXTS = st.text(CHARACTERS, min_size=1).map(lambda text: text.strip(" \t\n")).filter(lambda text: text and "]]>" not in text)
INTEGERS = st.integers(-2**31, 2**31 - 1)
# Sixteen digits are sent.
DOUBLES = st.floats(-1e308, 1e308).map(lambda value: float(f"{value:.15e}"))
DATES = st.dates() | st.text("0123456789-/.ABCxyz", min_size=1, max_size=8)
SCALARS: Dict[str, st.SearchStrategy[Any]] = {"text": TEXTS, "price": DOUBLES, "flag": st.booleans(), "day": DATES}
LEAVES: st.SearchStrategy[Dict[str, Any]] = st.fixed_dictionaries({"text": TEXTS})
ROWS: st.SearchStrategy[Dict[str, Any]] = st.fixed_dictionaries({"number": INTEGERS}, optional={
    **SCALARS, "row": LEAVES, "numbers": st.lists(INTEGERS, max_size=3), "rows": st.lists(LEAVES, max_size=3)})
MESSAGES: st.SearchStrategy[Dict[str, Any]] = st.fixed_dictionaries({"number": INTEGERS}, optional={
    **SCALARS, "row": ROWS, "rows": st.lists(ROWS, max_size=8), "texts": st.lists(TEXTS, max_size=4),
    "numbers": st.lists(INTEGERS, max_size=4), "prices": st.lists(DOUBLES, max_size=4),
    "flags": st.lists(st.booleans(), max_size=4), "days": st.lists(DATES, max_size=4)})
ARRAYS = ("rows", "texts", "numbers", "prices", "flags", "days")


def whole(client: callorv.Client, name: str, values: Dict[str, Any]) -> Dict[str, Any]:
    """The values as a reply has them: every tag, and dates where a text names one."""
    result: Dict[str, Any] = {}
    for tag in client.definition(name).tags.values():
        value = values.get(tag.name)
        if tag.type == "submsg":
            rows = client.definition(tag.rows).name
            if tag.is_array:
                value = [whole(client, rows, row) for row in value or []]
            elif value is not None:
                value = whole(client, rows, value)
        elif tag.type == "date":
            value = [as_date(day) for day in value or []] if tag.is_array else as_date(value)
        elif tag.is_array:
            value = value or []
        result[tag.name] = value
    return result


def as_date(value: Any) -> Any:
    if isinstance(value, str) and len(value) == 8 and value.isdigit():
        try:
            return datetime.date(int(value[:4]), int(value[4:6]), int(value[6:]))
        except ValueError:
            pass
    return value


@QUICK
@given(MESSAGES)
def test_every_value_round_trips(client: callorv.Client, values: Dict[str, Any]) -> None:
    reply = client.call(7, "Everything", values)
    assert reply == whole(client, "Everything", values)
    assert list(reply) == list(client.definition("Everything").tags)
    for row, sent in zip(reply.rows, values.get("rows", [])):
        assert row.number == sent["number"]
    if "rows" in values and values["rows"]:
        assert reply.rows.columns == {name: [row[name] for row in reply.rows] for name in client.definition("Row").tags}


@QUICK
@given(st.lists(st.fixed_dictionaries({"number": INTEGERS}, optional={"code": TEXTS, "price": DOUBLES, "flag": st.booleans()})))
def test_columns_have_none_where_a_row_has_no_value(client: callorv.Client, rows: List[Dict[str, Any]]) -> None:
    reply = client.call(7, "Table", rows=rows)
    assert len(reply.rows) == len(rows)
    for name, column in reply.rows.columns.items():
        assert column == [row.get(name) for row in rows]


def test_a_reply_is_a_mapping_with_attributes(client: callorv.Client) -> None:
    reply = client.call(7, "Everything", text="abc", rows=[{"price": 1.5}, {"price": 2}])
    assert reply["text"] == reply.text == "abc"
    assert reply.number is None and reply.row is None
    assert reply.texts == [] and reply.numbers == []
    assert [row.price for row in reply.rows] == [1.5, 2.0]
    assert reply.rows[1].price == 2.0 and reply.rows[-1]["price"] == 2.0
    assert [row.price for row in reply.rows[:1]] == [1.5]
    assert reply.rows.columns["price"] == [1.5, 2.0]
    assert reply.rows != [{"price": 1.5}]
    assert repr(reply.rows[:1]) == ("[{'text': None, 'number': None, 'price': 1.5, 'flag': None, 'day': None, 'row': None, "
                                    "'numbers': [], 'rows': []}]")
    assert reply.definition.name == "Everything" and reply.definition.number == 100
    with pytest.raises(AttributeError, match="the message has no tag 'nothing'"):
        _ = reply.nothing
    with pytest.raises(KeyError):
        _ = reply["nothing"]


def test_a_message_has_a_name_and_a_number(client: callorv.Client) -> None:
    assert client.call(7, 100, {"number": 5}).number == 5
    assert client.call(7, "Everything", {"number": 5}, text="x") == client.call(7, 100, {"text": "x", "number": 5})


def test_a_mapping_takes_names_that_are_no_keywords(client: callorv.Client) -> None:
    values: Dict[str, Any] = {"class": 1, "two words": "x", "items": 2, "deadline": 3, "service": 4}
    reply = client.call(7, "Odd", values)
    assert reply == {**values, "nowhere": [], "leaves": []}
    assert reply.nowhere.columns == {} and reply.leaves.columns == {"text": []}
    assert reply["class"] == 1 and reply["items"] == 2 and reply.service == 4
    assert client.call(7, "Odd", service=4).service == 4


def test_a_row_of_a_reply_is_a_request(client: callorv.Client) -> None:
    first = client.call(7, "Everything", number=1, rows=[{"number": 2, "rows": [{"text": "x"}]}])
    assert client.call(7, "Everything", first) == first
    assert client.call(7, "Everything", rows=first.rows).rows == first.rows


def test_texts_are_in_the_client_s_encoding(client: callorv.Client, world: World) -> None:
    with callorv.Client(world.config, library=LIBRARY, encoding="utf-8") as other:
        reply = other.call(7, "Everything", text="Ω \u4e2d", texts=["é", "ü"], rows=[{"text": "☃"}, {"number": 1}])
        assert (reply.text, reply.texts, reply.rows.columns["text"]) == ("Ω \u4e2d", ["é", "ü"], ["☃", None])
        latin = client.call(7, "Everything", text="é")
        assert latin.text == "é"
    with callorv.Client(world.config, library=LIBRARY, encoding="ascii") as other:
        with pytest.raises(callorv.Error, match="Everything.text: 'ascii' codec can't encode"):
            other.call(7, "Everything", text="é")


def test_long_texts_and_many_rows(client: callorv.Client) -> None:
    rows = [{"code": "x" * (i % 100), "number": i} for i in range(1, 3000)]
    reply = client.call(7, "Table", rows=rows)
    assert reply.rows.columns["code"] == [row["code"] or None for row in rows]
    assert reply.rows.columns["number"] == list(range(1, 3000))
    long = "y" * 1_000_000
    assert client.call(7, "Everything", text=long, rows=[{"text": long}, {"text": "z"}]).rows.columns["text"] == [long, "z"]
