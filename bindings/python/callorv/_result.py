"""What a call brings."""
from __future__ import annotations

import functools
from typing import Any, Callable, Dict, Iterable, Iterator, List, Optional, Sequence, Tuple, Union, overload

from ._dictionary import Definition


class Message(Dict[str, Any]):
    """The values of a message by tag name, in the order of its definition, also as attributes where the name is none of a dict's
    own. Every tag is there: None has no value, an array tag without values is an empty list."""

    __slots__ = ()

    def __getattr__(self, name: str) -> Any:
        try:
            return self[name]
        except KeyError:
            raise AttributeError(f"the message has no tag {name!r}") from None


class Reply(Message):
    """A message that came as a reply; `definition` says which one."""

    __slots__ = ("definition",)
    definition: Definition


@functools.lru_cache(maxsize=None)
def _maker(names: Tuple[str, ...]) -> Callable[[Iterable[Tuple[Any, ...]]], List[Message]]:
    """Makes messages of tuples with a value for each name. Its text has the names as literals, since a dict that is written
    out takes a tenth of the time of dict(zip(names, values))."""
    values = [f"v{i}" for i in range(len(names))]
    items = ", ".join(f"{name!r}: {value}" for name, value in zip(names, values))
    maker: Callable[[Iterable[Tuple[Any, ...]]], List[Message]] = eval(
        f"lambda rows: [Message({{{items}}}) for {', '.join(values)}, in rows]", {"Message": Message})
    return maker


class Rows(Sequence[Message]):
    """The rows of an array tag: a sequence of messages, which are made when the first of them is asked for.

    columns  the same as lists, one for each tag of the rows, by its name: much faster to read
    """

    __slots__ = ("columns", "_count", "_rows")

    def __init__(self, columns: Dict[str, List[Any]], count: int) -> None:
        self.columns = columns
        self._count = count
        self._rows: Optional[List[Message]] = None

    def _all(self) -> List[Message]:
        if self._rows is None:
            if self.columns:
                self._rows = _maker(tuple(self.columns))(zip(*self.columns.values()))
            else:
                self._rows = [Message() for _ in range(self._count)]
        return self._rows

    @overload
    def __getitem__(self, index: int) -> Message: ...
    @overload
    def __getitem__(self, index: slice) -> List[Message]: ...
    def __getitem__(self, index: Union[int, slice]) -> Union[Message, List[Message]]:
        return self._all()[index]

    def __len__(self) -> int:
        return self._count

    def __iter__(self) -> Iterator[Message]:
        return iter(self._all())

    def __eq__(self, other: object) -> bool:
        if isinstance(other, (Rows, list, tuple)):
            return self._all() == list(other)
        return NotImplemented

    __hash__ = None  # type: ignore[assignment]

    def __repr__(self) -> str:
        return repr(self._all())
