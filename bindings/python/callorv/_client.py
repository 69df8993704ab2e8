"""Calls."""
from __future__ import annotations

import asyncio
import math
import operator
import os
import threading
from ctypes import byref
from typing import Any, List, Mapping, Optional, Tuple, Union

from . import _native
from ._dictionary import Definition, Dictionary
from ._error import Error, Rejected
from ._native import ErrorRecord, Library
from ._result import Reply
from ._values import Values

_Path = Union[str, "os.PathLike[str]"]
_POLLOUT = 4

_lock = threading.Lock()
_set_up: Optional[Tuple[int, str, bytes]] = None    # library, configuration file and its content


def _initialize(library: Library, config: str) -> None:
    """Sets the process up, once; Error when it was with another configuration."""
    global _set_up
    with _lock:
        try:
            with open(config, "rb") as file:
                wanted = library.handle, os.path.realpath(config), file.read()
        except (OSError, ValueError) as error:
            raise Error(_native.CONFIG, f"{config}: {getattr(error, 'strerror', error)}") from None
        if _set_up is None:
            record = ErrorRecord()
            if library.CallOrv_Initialize(os.fsencode(config), byref(record)) != 0:
                raise Error(record.iCode, record.szText.decode("latin-1"), record.iRefSvcNum)
            _set_up = wanted
        elif _set_up != wanted:
            raise Error(_native.CONFIG, f"{config}: this process is set up with another configuration or library, from {_set_up[1]}")


class Client:
    """Calls the services of the server that a configuration file names. The file, its dictionary and the library serve all
    clients of the process: a second Client of the same file shares them, one of another is an Error.

    library   path of libcallorv.so.1, where the system's loader does not find it
    encoding  of the texts in messages; one in which a NUL is a byte

    Any number of threads may call at once. A with statement closes the client, which has nothing to give back.
    """

    def __init__(self, config: _Path, *, library: Optional[_Path] = None, encoding: str = "latin-1") -> None:
        try:
            self._library = Library(os.fspath(library) if library is not None else "libcallorv.so.1")
        except OSError as error:
            raise Error(_native.NOT_INIT, str(error)) from None
        self._dictionary = Dictionary(self._library)
        self._values = Values(self._library, self._dictionary, encoding)
        _initialize(self._library, os.fspath(config))
        self._is_closed = False

    def __enter__(self) -> Client:
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    def close(self) -> None:
        """Ends its use: further calls are an Error. Calls under way go on."""
        self._is_closed = True

    def definition(self, message: Union[int, str]) -> Definition:
        """What the dictionary says of a message, by its number or name."""
        return self._dictionary[message]

    def messages(self) -> List[Definition]:
        """All messages of the dictionary."""
        return [self._dictionary[number] for number in self._dictionary]

    def resolve(self) -> None:
        """Looks up the server's host name for the calls with a deadline and those of acall, which otherwise look it up each, and
        wait for that. Not while other threads call."""
        record = ErrorRecord()
        if self._library.CallOrv_Resolve(byref(record)) != 0:
            raise self._failure(record)

    def call(self, service: int, message: Union[int, str], values: Optional[Mapping[str, Any]] = None, /, *,
             deadline: Optional[float] = None, **tags: Any) -> Reply:
        """Calls a service with a message, by its number or name, and waits for the reply.

        values, tags  the message's values by tag name; a mapping for names that are no keywords
        deadline      seconds for all of the call; None: the configured time-out, for each wait

        Raises Rejected when the server refuses, Error for everything else. In the main thread a signal that Python handles
        ends the wait: with what the handler raises, as KeyboardInterrupt, or with an Error.
        """
        number, milliseconds = self._checked(service, deadline)
        record = ErrorRecord()
        with _Messages(self._library) as messages:
            request, reply = self._request(messages, message, values, tags), messages.new(0)
            if milliseconds is None:
                result = self._library.CallOrv_CallService(number, request, reply, byref(record))
            else:
                result = self._library.CallOrv_CallServiceWithin(number, request, reply, milliseconds, byref(record))
            if result != 0:
                raise self._failure(record, result)
            return self._values.read(reply)

    async def acall(self, service: int, message: Union[int, str], values: Optional[Mapping[str, Any]] = None, /, *,
                    deadline: Optional[float] = None, **tags: Any) -> Reply:
        """As call, for asyncio: holds no thread, and ends at once when its task is cancelled. Without a deadline the configured
        time-out bounds all of the call."""
        number, milliseconds = self._checked(service, deadline)
        library, record = self._library, ErrorRecord()
        with _Messages(library) as messages:
            request = self._request(messages, message, values, tags)
            call = library.CallOrv_Start(number, request, milliseconds or 0, byref(record))
        if call is None:
            raise self._failure(record)
        try:
            while library.CallOrv_Step(call):
                await _ready(library.CallOrv_GetFd(call), library.CallOrv_GetEvents(call), library.CallOrv_GetTimeLeft(call))
            with _Messages(library) as messages:
                reply = messages.new(0)
                finished, call = call, None
                result = library.CallOrv_Finish(finished, reply, byref(record))
                if result != 0:
                    raise self._failure(record, result)
                return self._values.read(reply)
        finally:
            library.CallOrv_Cancel(call)

    def _checked(self, service: int, deadline: Optional[float]) -> Tuple[int, Optional[int]]:
        """The service as the library takes it, and the deadline in milliseconds."""
        if self._is_closed:
            raise Error(_native.NOT_INIT, "the client is closed")
        try:
            number = operator.index(service)
        except TypeError:
            raise Error(_native.INPUT, f"a service is an int, not {type(service).__name__}") from None
        if not -(1 << 31) <= number < 1 << 31:
            raise Error(_native.INPUT, f"service {number} has no place in 32 bits")
        if deadline is None:
            return number, None
        if not isinstance(deadline, (int, float)) or not 0 < deadline < math.inf:
            raise Error(_native.INPUT, f"a deadline is some seconds, not {deadline!r}")
        return number, min(math.ceil(deadline * 1000), (1 << 31) - 1)

    def _request(self, messages: _Messages, message: Union[int, str], values: Optional[Mapping[str, Any]],
                 tags: Mapping[str, Any]) -> int:
        definition = self._dictionary[message]
        request = messages.new(definition.number)
        if values is not None:
            if not isinstance(values, Mapping):
                raise Error(_native.TAG_TYPE, f"values are a mapping, not {type(values).__name__}")
            self._values.fill(request, definition, values)
        self._values.fill(request, definition, tags)
        return request

    def _failure(self, record: ErrorRecord, result: int = -1) -> Error:
        kind = Rejected if result == _native.REJECTED else Error
        return kind(record.iCode, self._values.decode_failure(record.szText), record.iRefSvcNum)


class _Messages:
    """The messages of a call, which are freed at its end."""

    def __init__(self, library: Library) -> None:
        self._library = library
        self._handles: List[int] = []

    def __enter__(self) -> _Messages:
        return self

    def __exit__(self, *_: object) -> None:
        for handle in self._handles:
            self._library.MSG_Destroy(handle)

    def new(self, number: int) -> int:
        handle = self._library.MSG_GetNewMsg(number, None)
        if handle is None:
            raise Error(_native.MEMORY, "no memory for a message")
        self._handles.append(handle)
        return int(handle)


async def _ready(descriptor: int, events: int, milliseconds: int) -> None:
    """Waits until a descriptor has one of the events, or for so long."""
    loop = asyncio.get_running_loop()
    ready = loop.create_future()

    def wake() -> None:
        if not ready.done():
            ready.set_result(None)

    add, remove = (loop.add_writer, loop.remove_writer) if events & _POLLOUT else (loop.add_reader, loop.remove_reader)
    timer = loop.call_later(milliseconds / 1000, wake)
    add(descriptor, wake)
    try:
        await ready
    finally:
        remove(descriptor)
        timer.cancel()
