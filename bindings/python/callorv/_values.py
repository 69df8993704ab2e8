"""Values of Python into messages and out of them."""
from __future__ import annotations

import codecs
import datetime
import functools
import operator
from array import array
from ctypes import byref, c_double, c_int
from typing import Any, Callable, Dict, Iterable, List, Mapping, Optional

from . import _native
from ._dictionary import Definition, Dictionary, Tag
from ._error import Error
from ._native import Library, address
from ._result import Message, Reply, Rows

_TEXT_ROOM = 24    # bytes of a column's text at first; what needs more is read a second time


@functools.lru_cache(maxsize=4096)
def _to_date(text: bytes) -> Optional[datetime.date]:
    """The date that YYYYMMDD names; None for any other text."""
    try:
        return datetime.date(int(text[:4]), int(text[4:6]), int(text[6:])) if len(text) == 8 and text.isdigit() else None
    except ValueError:
        return None


class Values:
    """Writes and reads messages, in the encoding of their texts. Any thread, each with messages of its own."""

    def __init__(self, library: Library, dictionary: Dictionary, encoding: str) -> None:
        self._library, self._dictionary = library, dictionary
        try:
            self._encoding = codecs.lookup(encoding).name
            plain = "a\0".encode(self._encoding) == b"a\0"
        except (LookupError, TypeError):
            plain = False
        if not plain:    # texts end with a NUL
            raise Error(_native.INPUT, f"{encoding!r} is no encoding for texts that end with a NUL")
        self._set: Dict[str, Callable[[int, Definition, Tag, Any], bool]] = {
            "string": self._set_string, "integer": self._set_integer, "double": self._set_double, "bool": self._set_bool,
            "date": self._set_date, "submsg": self._set_message}
        self._get: Dict[str, Callable[[int, Tag, int], Any]] = {
            "string": self._get_string, "integer": self._get_integer, "double": self._get_double, "bool": self._get_bool,
            "date": self._get_date, "submsg": self._get_message}
        self._get_column: Dict[str, Callable[[int, Tag, Tag, int], List[Any]]] = {
            "string": self._string_column, "integer": self._integer_column, "double": self._double_column,
            "bool": self._bool_column, "date": self._date_column}

    # ---- into a message

    def fill(self, handle: int, definition: Definition, values: Mapping[str, Any]) -> bool:
        """Stores values by tag name, where None is no value; whether there was any. Error for what the dictionary does not have
        or take."""
        stored = False
        for name, value in values.items():
            tag = definition.tags.get(name)
            if tag is None:
                raise Error(_native.UNDEF_TAG, f"message {definition.name} has no tag {name!r}")
            if value is None:
                continue
            put = self._set[tag.type]
            if not tag.is_array:
                stored = put(handle, definition, tag, value) or stored
                continue
            if isinstance(value, (str, bytes, Mapping)) or not isinstance(value, Iterable):
                raise _wrong_type(definition, tag, value)
            for element in value:
                if not put(handle, definition, tag, element):    # those behind it would move up
                    raise _unfit(definition, tag, "an element without a value cannot be sent")
                stored = True
        return stored

    def _set_string(self, handle: int, definition: Definition, tag: Tag, value: Any) -> bool:
        if not isinstance(value, str):
            raise _wrong_type(definition, tag, value)
        self._checked(handle, self._library.MSG_SetStr(handle, tag.number, self._encode(definition, tag, value)))
        return value != ""

    def _set_integer(self, handle: int, definition: Definition, tag: Tag, value: Any) -> bool:
        try:
            number = operator.index(value)
        except TypeError:
            raise _wrong_type(definition, tag, value) from None
        if isinstance(value, bool):
            raise _wrong_type(definition, tag, value)
        if not -(1 << 31) <= number < 1 << 31:
            raise _unfit(definition, tag, f"{number} has no place in 32 bits")
        self._checked(handle, self._library.MSG_SetInt(handle, tag.number, number))
        return True

    def _set_double(self, handle: int, definition: Definition, tag: Tag, value: Any) -> bool:
        if isinstance(value, bool) or not isinstance(value, (float, int)):
            raise _wrong_type(definition, tag, value)
        try:
            number = float(value)
        except OverflowError:
            raise _unfit(definition, tag, f"{value} has no place in a double") from None
        self._checked(handle, self._library.MSG_SetDbl(handle, tag.number, number))
        return True

    def _set_bool(self, handle: int, definition: Definition, tag: Tag, value: Any) -> bool:
        if not isinstance(value, bool):
            raise _wrong_type(definition, tag, value)
        self._checked(handle, self._library.MSG_SetBool(handle, tag.number, value))
        return True

    def _set_date(self, handle: int, definition: Definition, tag: Tag, value: Any) -> bool:
        if isinstance(value, datetime.date) and not isinstance(value, datetime.datetime):    # whose time would be lost
            text = b"%04d%02d%02d" % (value.year, value.month, value.day)
        elif isinstance(value, str):
            text = self._encode(definition, tag, value)
        else:
            raise _wrong_type(definition, tag, value)
        if len(text) > 8:
            raise _unfit(definition, tag, "a date has at most 8 characters")
        self._checked(handle, self._library.MSG_SetDate(handle, tag.number, text))
        return text != b""

    def _set_message(self, handle: int, definition: Definition, tag: Tag, value: Any) -> bool:
        if not isinstance(value, Mapping):
            raise _wrong_type(definition, tag, value)
        code = c_int()
        row = self._library.MSG_NewSub(handle, tag.number, byref(code))
        self._checked(handle, code.value)
        return self.fill(row, self._dictionary[tag.rows], value)

    def _encode(self, definition: Definition, tag: Tag, text: str) -> bytes:
        try:
            encoded = text.encode(self._encoding)
        except UnicodeError as error:
            raise _unfit(definition, tag, str(error)) from None
        if b"\0" in encoded:
            raise _unfit(definition, tag, "a text has no NUL")
        return encoded

    # ---- out of a message

    def read(self, handle: int) -> Reply:
        """All values of a message."""
        definition = self._dictionary[int(self._library.MSG_GetSelfNum(handle))]
        reply = Reply(self._items(handle, definition))
        reply.definition = definition
        return reply

    def _items(self, handle: int, definition: Definition) -> Iterable[Any]:
        for tag in definition.tags.values():
            yield tag.name, self._values(handle, tag) if tag.is_array else self._value(handle, tag, 0)

    def _checked(self, handle: int, code: int) -> int:
        """A result of the message's; Error for a negative one."""
        if code < 0:
            raise Error(code, self._library.MSG_GetLastError(handle).decode("latin-1"))
        return code

    def _is_there(self, handle: int, code: int) -> bool:
        """Whether a getter found a value; Error when it failed otherwise."""
        return code != _native.NO_DATA and self._checked(handle, code) >= 0

    def _value(self, handle: int, tag: Tag, index: int) -> Any:
        return self._get[tag.type](handle, tag, index)

    def _values(self, handle: int, tag: Tag) -> Any:
        size = int(self._library.MSG_GetArrSize(handle, tag.number))
        size = size if self._is_there(handle, size) else 0
        if tag.type != "submsg":
            return [self._value(handle, tag, index) for index in range(size)]
        return Rows(self._columns(handle, tag, size), size)

    def _get_integer(self, handle: int, tag: Tag, index: int) -> Optional[int]:
        out = c_int()
        code = self._library.MSG_GetAtIntArr(handle, tag.number, index, byref(out))
        return out.value if self._is_there(handle, code) else None

    def _get_double(self, handle: int, tag: Tag, index: int) -> Optional[float]:
        out = c_double()
        code = self._library.MSG_GetAtDblArr(handle, tag.number, index, byref(out))
        return out.value if self._is_there(handle, code) else None

    def _get_bool(self, handle: int, tag: Tag, index: int) -> Optional[bool]:
        out = c_int()
        code = self._library.MSG_GetAtBoolArr(handle, tag.number, index, byref(out))
        return out.value != 0 if self._is_there(handle, code) else None

    def _get_string(self, handle: int, tag: Tag, index: int) -> Optional[str]:
        size = int(self._library.MSG_GetAtStrLen(handle, tag.number, index))
        if not self._is_there(handle, size):
            return None
        text = array("b", bytes(size + 1))
        self._checked(handle, self._library.MSG_GetAtStrArr(handle, tag.number, index, address(text)))
        return self._decode(text.tobytes()[:-1])

    def _get_date(self, handle: int, tag: Tag, index: int) -> Any:
        text = array("b", bytes(9))
        code = self._library.MSG_GetAtDateArr(handle, tag.number, index, address(text))
        return self._date(text.tobytes()) if self._is_there(handle, code) else None

    def _get_message(self, handle: int, tag: Tag, index: int) -> Optional[Message]:
        code = c_int()
        row = self._library.MSG_GetAtSubArr(handle, tag.number, index, byref(code))
        return Message(self._items(row, self._dictionary[tag.rows])) if self._is_there(handle, code.value) else None

    def _decode(self, text: bytes) -> str:
        try:
            return text.decode(self._encoding)
        except UnicodeError as error:
            raise Error(_native.INPUT, f"a text of the reply: {error}") from None

    def decode_failure(self, text: bytes) -> str:
        """What the server or the library says, readable in any case."""
        return text.decode(self._encoding, "backslashreplace")

    def _date(self, text: bytes) -> Any:
        text = text.rstrip(b"\0")
        return _to_date(text) or self._decode(text)

    # ---- columns: one tag of all rows

    def _columns(self, handle: int, rows: Tag, size: int) -> Dict[str, List[Any]]:
        columns: Dict[str, List[Any]] = {}
        for tag in self._dictionary.tags_of(rows).values():
            if size == 0:
                columns[tag.name] = []
            elif tag.is_array or tag.type == "submsg":
                columns[tag.name] = [self._of_row(handle, rows, index, tag) for index in range(size)]
            else:
                columns[tag.name] = self._get_column[tag.type](handle, rows, tag, size)
        return columns

    def _of_row(self, handle: int, rows: Tag, index: int, tag: Tag) -> Any:
        code = c_int()
        row = self._library.MSG_GetAtSubArr(handle, rows.number, index, byref(code))
        self._checked(handle, code.value)
        return self._values(row, tag) if tag.is_array else self._value(row, tag, 0)

    def _read_column(self, function: Callable[..., int], handle: int, rows: Tag, tag: Tag, out: array[Any],
                     size: int) -> bytes:
        """Fills out; gives the marks of what is there."""
        marks = array("B", bytes(size))
        self._checked(handle, function(handle, rows.number, tag.number, address(out), address(marks), size))
        return marks.tobytes()

    def _integer_column(self, handle: int, rows: Tag, tag: Tag, size: int) -> List[Optional[int]]:
        out = array("i", bytes(4 * size))
        marks = self._read_column(self._library.MSG_GetIntColumn, handle, rows, tag, out, size)
        return _marked(out.tolist(), marks)

    def _double_column(self, handle: int, rows: Tag, tag: Tag, size: int) -> List[Optional[float]]:
        out = array("d", bytes(8 * size))
        marks = self._read_column(self._library.MSG_GetDblColumn, handle, rows, tag, out, size)
        return _marked(out.tolist(), marks)

    def _bool_column(self, handle: int, rows: Tag, tag: Tag, size: int) -> List[Optional[bool]]:
        out = array("i", bytes(4 * size))
        marks = self._read_column(self._library.MSG_GetBoolColumn, handle, rows, tag, out, size)
        return _marked(memoryview(out.tobytes()[::4]).cast("?").tolist(), marks)    # the low byte of each, on x86

    def _date_column(self, handle: int, rows: Tag, tag: Tag, size: int) -> List[Any]:
        out = array("b", bytes(9 * size))
        marks = self._read_column(self._library.MSG_GetDateColumn, handle, rows, tag, out, size)
        texts = out.tobytes()
        return [self._date(texts[9 * i:9 * i + 9]) if mark else None for i, mark in enumerate(marks)]

    def _string_column(self, handle: int, rows: Tag, tag: Tag, size: int) -> List[Optional[str]]:
        offsets, marks = array("L", bytes(array("L").itemsize * (size + 1))), array("B", bytes(size))
        room = _TEXT_ROOM * size
        while True:
            buffer = array("b", bytes(room))
            code = self._library.MSG_GetStrColumn(handle, rows.number, tag.number, address(buffer), room, address(offsets),
                                                  address(marks), size)
            if code != _native.INDEX or offsets[size] <= room:
                break
            room = offsets[size]
        self._checked(handle, code)
        texts = memoryview(buffer)[:offsets[size]].tobytes()
        if self._encoding == "iso8859-1":    # a character a byte: all at once
            return _marked(texts.decode("latin-1").split("\0")[:size], marks.tobytes())
        return _marked([self._decode(text) for text in texts.split(b"\0")[:size]], marks.tobytes())


def _marked(values: List[Any], marks: bytes) -> List[Any]:
    """The values, with None where no mark is."""
    return values if 0 not in marks else [value if mark else None for value, mark in zip(values, marks)]


def _unfit(definition: Definition, tag: Tag, why: str) -> Error:
    return Error(_native.INPUT, f"{definition.name}.{tag.name}: {why}")


def _wrong_type(definition: Definition, tag: Tag, value: Any) -> Error:
    wanted = {"string": "a str", "integer": "an int", "double": "a float", "bool": "a bool", "date": "a datetime.date or str",
              "submsg": "a mapping"}[tag.type]
    return Error(_native.TAG_TYPE, f"{definition.name}.{tag.name} takes {'a list, of each ' if tag.is_array else ''}{wanted}, "
                 f"not {type(value).__name__}")
