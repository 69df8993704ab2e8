"""What goes wrong."""
from __future__ import annotations


class Error(Exception):
    """A call that failed, or a value that cannot be sent.

    code     the library's, negative, as docs/errors.md lists them (0 from the set-up); a rejection has the server's
    text     what it says
    service  the service that it is about; 0: none, -1: a call that failed on its way
    """

    def __init__(self, code: int, text: str, service: int = 0) -> None:
        super().__init__(code, text, service)
        self.code, self.text, self.service = code, text, service

    def __str__(self) -> str:
        return f"{self.code} {self.text}"


class Rejected(Error):
    """The server refused: code, text and service are its own."""
