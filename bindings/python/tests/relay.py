"""Stands between clients and a server, in the tests' own process: as long as a call kept the interpreter's lock, nothing would move."""
import enum
import socket
import threading
from typing import Tuple


class Mode(enum.Enum):
    FORWARD = 1
    SILENT = 2    # takes the request and never answers
    CLOSE = 3     # takes the request and closes


class Relay:
    """Listens on `port` of 127.0.0.1. left is set when a client has left a silent connection."""

    def __init__(self, server: Tuple[str, int]) -> None:
        self.mode = Mode.FORWARD
        self.asked, self.left = threading.Event(), threading.Event()
        self._server = server
        self._listener = socket.create_server(("127.0.0.1", 0), backlog=1000)
        self.port: int = self._listener.getsockname()[1]
        threading.Thread(target=self._accept, daemon=True).start()

    def close(self) -> None:
        self._listener.close()

    def _accept(self) -> None:
        while True:
            try:
                client, _ = self._listener.accept()
            except OSError:
                return
            threading.Thread(target=self._serve, args=(client, self.mode), daemon=True).start()

    def _serve(self, client: socket.socket, mode: Mode) -> None:
        with client:
            if mode is Mode.FORWARD:
                with socket.create_connection(self._server) as server:
                    threading.Thread(target=_pump, args=(client, server), daemon=True).start()
                    _pump(server, client)
                return
            client.recv(1)
            self.asked.set()
            if mode is Mode.SILENT:
                try:
                    while client.recv(65536):
                        pass
                except OSError:
                    pass
                self.left.set()


def _pump(source: socket.socket, target: socket.socket) -> None:
    try:
        while data := source.recv(65536):
            target.sendall(data)
        target.shutdown(socket.SHUT_WR)
    except OSError:
        pass
