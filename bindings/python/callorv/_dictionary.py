"""What the message dictionary says."""
from __future__ import annotations

from dataclasses import dataclass
from typing import Dict, Iterator, Union

from . import _native
from ._error import Error
from ._native import Library


@dataclass(frozen=True)
class Tag:
    """A tag of a message. type is one of "string", "integer", "double", "bool", "date" and "submsg"; the rows of a "submsg" are
    messages of the number `rows`, which is 0 otherwise. is_array: the tag holds any number of values, as a list."""

    number: int
    name: str
    type: str
    rows: int
    is_array: bool


@dataclass(frozen=True)
class Definition:
    """A message, with its tags by name and in order. Of tags with the same name or number the first counts."""

    number: int
    name: str
    tags: Dict[str, Tag]


_TYPES = {_native.STRING: "string", _native.INTEGER: "integer", _native.DOUBLE: "double", _native.BOOL: "bool",
          _native.DATE: "date", _native.SUBMSG: "submsg"}


class Dictionary:
    """Definitions, each read when it is first asked for and then kept. Any thread."""

    def __init__(self, library: Library) -> None:
        self._library = library
        self._known: Dict[Union[int, str], Definition] = {}

    def __getitem__(self, message: Union[int, str]) -> Definition:
        """The definition of a message's number or name."""
        if not isinstance(message, (int, str)):
            raise Error(_native.TAG_TYPE, f"a message is an int or a str, not {type(message).__name__}")
        known = self._known.get(message)
        if known is None:
            known = self._known[message] = self._read(message)
        return known

    def __iter__(self) -> Iterator[int]:
        """The numbers of all messages."""
        number = int(self._library.MSG_NextMsg(0))
        while number > 0:
            yield number
            number = int(self._library.MSG_NextMsg(number))

    def tags_of(self, rows: Tag) -> Dict[str, Tag]:
        """The tags of a sub-message tag's rows; none when the dictionary lacks their message, of which there can then be none."""
        return self[rows.rows].tags if self._library.MSG_GetMsgName(rows.rows) is not None else {}

    def _read(self, message: Union[int, str]) -> Definition:
        library = self._library
        if isinstance(message, str):
            number = -1 if "\0" in message else int(library.MSG_FindMsg(message.encode("latin-1", "replace")))
        else:
            number = message if abs(message) < 1 << 31 else -1
        name = library.MSG_GetMsgName(number)
        if name is None:
            raise Error(_native.UNDEF_MSG, f"the dictionary has no message {message!r}")
        tags: Dict[str, Tag] = {}
        numbers = set()
        for index in range(library.MSG_GetTagCount(number)):
            tag = int(library.MSG_GetTagNum(number, index))
            tag_name = library.MSG_GetTagName(number, tag).decode("latin-1")
            if tag in numbers or tag_name in tags:
                continue
            numbers.add(tag)
            tags[tag_name] = Tag(tag, tag_name, _TYPES[library.MSG_GetTagType(number, tag)],
                                 int(library.MSG_GetTagSubMsg(number, tag)), bool(library.MSG_IsArrayTag(number, tag)))
        return Definition(number, name.decode("latin-1"), tags)
