"""Runs the callorv command, and speaks its packets without any of its code."""
import atexit
import contextlib
import functools
import hashlib
import itertools
import os
import re
import shutil
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import threading
import unittest
import zlib

import schemas

COMMAND = os.environ["CALLORV"]
signal.signal(signal.SIGINT, signal.default_int_handler)    # a shell's background jobs ignore it

DICTIONARY = """<?xml version='1.0' encoding='ISO-8859-1' ?>
<msg_dictionary>
  <msg no='3' name='Quote' ver='1.0'>
    <tag no='1' name='code' type='string' />
    <tag no='2' name='price' type='double' />
    <tag no='3' name='open' type='bool' />
    <tag no='4' name='rows' type='m4' array='Y' />
    <tag no='5' name='day' type='date' />
    <tag no='6' name='count' type='integer' />
    <tag no='7' name='list' type='integer' array='Y' />
    <tag no='8' name='head' type='m4' />
    <tag no='9' name='names' type='string' array='Y' />
  </msg>
  <msg no='4' name='QuoteRow'>
    <tag no='1' name='time' type='date' />
    <tag no='2' name='price' type='double' />
    <tag no='3' name='text' type='string' />
  </msg>
  <msg no='10' name='REJECT'>
    <tag no='6' name='SysCode' type='integer' />
    <tag no='7' name='SysReasonText' type='string' />
    <tag no='8' name='RefSvcNum' type='integer' />
  </msg>
</msg_dictionary>
"""

XML_HEAD = '<?xml version="1.0" encoding="ISO-8859-1" ?>'


# A small dictionary, and the keys "BRANCH-0042" and "A0123456789ABCDEFGHIJ", encrypted under the SEED key
# 00112233445566778899aabbccddeeff, which is not the command's.
FOREIGN_DICTIONARY = bytes.fromhex("f0f208c9a323f21ac7d70b3e10154cf91fc756dfeb2f8aaab238f5b27294f945"
                                   "8aaa3faf48ccbc73336d54c280d74a2ac46bf061d6ab43896b5075805eca895e")
FOREIGN_KEY_16 = bytes.fromhex("969878a48cfc8cae84c14cf8bdf7cf5d")
FOREIGN_KEY_32 = bytes.fromhex("cf813c546205197858fbf1fe9f80ee4856e11e57fdf4e7c98a1ed3175bea5d17")
FOREIGN = "encrypted under another SEED key, or damaged; try the callorv that was built with its SEED key, callorv "
FOREIGN_DICTIONARY_TEXT = FOREIGN + "dict rekey --from KEY, or encrypt the dictionary again: callorv dict encrypt"
FOREIGN_KEY_TEXT = FOREIGN + "key rekey --from KEY, or make the key file again: callorv key make"


def key_file(secret):
    """A key file with these 16 or 32 encrypted bytes, which stand at the beginning of the table."""
    table = (b"?" + secret).ljust(4096, b"?")
    index = bytes(range(1, len(secret) + 1)).ljust(32, b"\0")
    return hashlib.md5(table + index).digest() + table + index


def run_unprivileged(*args, **more):
    """The same as run(), as somebody who may read only what the mode of a file lets them: root may read everything."""
    drop = ["setpriv", "--bounding-set=-dac_override,-dac_read_search"] if os.geteuid() == 0 else []
    return run(*args, before=drop, **more)


class Ready:
    """The command, started but for main(), which goes on in a child each time: ready.c."""

    MOST_BYTES = 60000    # of arguments and environment, or of standard input, which must fit into a pipe

    def __init__(self):
        self.lock = threading.Lock()
        self.socket, other = socket.socketpair(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        with other:
            process = subprocess.Popen([COMMAND], pass_fds=[other.fileno()], env={
                **os.environ, "LD_PRELOAD": os.environ["CALLORV_READY"], "READY_SOCKET": str(other.fileno())})
        atexit.register(process.wait)    # behind the other
        atexit.register(self.socket.close)

    def answer(self):
        return struct.unpack("i", self.socket.recv(4))[0]

    def run(self, command, stdin, timeout):
        """As subprocess.run() does; None when that has to do it."""
        os.umask(mask := os.umask(0o077))
        texts = [str(mask), os.getcwd(), str(len(command)), *command, *(f"{k}={v}" for k, v in os.environ.items())]
        message = b"".join(os.fsencode(text) + b"\0" for text in texts)
        if max(len(message), len(stdin)) > self.MOST_BYTES or not self.lock.acquire(blocking=False):
            return None
        with contextlib.ExitStack() as stack:
            stack.callback(self.lock.release)
            taken, given = os.pipe()
            os.write(given, stdin)
            os.close(given)
            stack.callback(os.close, taken)
            out, err = (stack.enter_context(open(os.memfd_create(name), "w+b")) for name in ("out", "err"))
            socket.send_fds(self.socket, [message], [taken, out.fileno(), err.fileno()])
            self.socket.settimeout(timeout)
            child = self.answer()
            try:
                status = self.answer()
            except TimeoutError as error:
                os.kill(child, signal.SIGKILL)
                self.answer()
                raise subprocess.TimeoutExpired(command, timeout) from error
            out.seek(0)
            err.seek(0)
            return subprocess.CompletedProcess(command, os.waitstatus_to_exitcode(status), out.read(), err.read())


@functools.cache
def ready():
    """The one of this process, if the command can be kept ready."""
    return Ready() if "CALLORV_READY" in os.environ else None


def run(*args, stdin=b"", timeout=250, before=()):
    """Runs the command to its end; standard input and both outputs are bytes. What --json prints is as docs/schemas
    says."""
    command = [*before, COMMAND, *map(str, args)]
    result = ready().run(command, stdin, timeout) if not before and ready() else None
    if result is None:
        result = subprocess.run(command, input=stdin, capture_output=True, timeout=timeout, check=False)
    if args:
        schemas.check(args, result.stdout)
    return result


def message(number, tags):
    return f'{XML_HEAD}<msg no="{number}" ver="">{tags}</msg>'.encode()


def header(body, service, message, **fields):
    """The 128 bytes before a body as it is sent; a field given by name replaces what belongs there."""
    values = {"begin": b"QMX-SSP-V1.0", "length": b"%010d" % (128 + len(body)), "service_field": b"%04d" % service,
              "message_field": b"%04d" % message, "extra": b"0000000000", "time": b"20260131-235959",
              "key": b"USERKEY1".ljust(20), "aux13": b" " * 13, "compressed": b"N", "plain": b"%010d" % len(body),
              "aux8": b" " * 8, "aux21": b" " * 21}
    values.update(fields)
    result = b"".join(values.values())
    assert len(result) == 128
    return result


def packet(body, service=1201, message=3, compress=False, checksum=None, **fields):
    """A whole packet."""
    sent = zlib.compress(body) if compress else body
    if compress:
        fields = {"compressed": b"Y", "plain": b"%010d" % len(body), **fields}
    result = header(sent, service, message, **fields) + sent
    return result + (b"%03d" % (sum(result) % 256) if checksum is None else checksum)


class Reply:
    """A packet taken apart by the wire's table; everything about it is asserted."""

    def __init__(self, data):
        self.data = data
        assert data[:12] == b"QMX-SSP-V1.0", data[:12]
        length = int(data[12:22])
        assert len(data) == length + 3, (len(data), length)
        assert int(data[length:]) == sum(data[:length]) % 256
        self.service, self.message = int(data[22:26]), int(data[26:30])
        self.extra = int(data[30:40])
        assert re.fullmatch(rb"\d{8}-\d{6}", data[40:55])
        self.key = data[55:75]
        self.compressed = {b"Y": True, b"N": False}[data[88:89]]
        self.sent = data[128:length]
        self.body = zlib.decompress(self.sent) if self.compressed else self.sent
        assert int(data[89:99]) == len(self.body)


def read_all(sock):
    """Every byte until the peer closes; ConnectionResetError when it resets."""
    pieces = []
    while piece := sock.recv(65536):
        pieces.append(piece)
    return b"".join(pieces)


def read_packet(sock):
    """Exactly one packet."""
    data = b""
    while len(data) < 128:
        piece = sock.recv(128 - len(data))
        assert piece, data
        data += piece
    while len(data) < int(data[12:22]) + 3:
        piece = sock.recv(int(data[12:22]) + 3 - len(data))
        assert piece, data
        data += piece
    return data


class Server:
    """`callorv serve` on a free port, stopped at the end of the `with` block; then log and status are there."""

    def __init__(self, *args, stop=signal.SIGTERM):
        self.args = args
        self.stop = stop
        self.told_to_stop = False

    def send_signal(self, number):
        self.process.send_signal(number)
        self.told_to_stop = True    # another signal would end it at once

    def __enter__(self):
        self.errors = tempfile.TemporaryFile()    # a pipe that nobody reads would fill up
        self.process = subprocess.Popen([COMMAND, "serve", *map(str, self.args)], stdout=subprocess.PIPE,
                                        stderr=self.errors)
        self.greeting = self.process.stdout.readline().decode()
        match = re.fullmatch(r"listening on 127\.0\.0\.1 (\d+)\n", self.greeting)
        if not match:
            self.__exit__()
            raise AssertionError(f"no greeting: {self.greeting!r} {self.log!r}")
        self.port = int(match[1])
        return self

    def connect(self):
        return socket.create_connection(("127.0.0.1", self.port), timeout=30)

    def ask(self, data):
        """Sends bytes on a connection of their own and returns one packet."""
        with self.connect() as sock:
            sock.sendall(data)
            return Reply(read_packet(sock))

    def ask_raw(self, data):
        """Sends bytes, and returns everything until the server closes."""
        with self.connect() as sock:
            sock.sendall(data)
            return read_all(sock)

    def __exit__(self, *_):
        if not self.told_to_stop:
            self.send_signal(self.stop)
        out, _ = self.process.communicate(timeout=60)
        self.errors.seek(0)
        self.rest, self.log, self.status = out.decode(), self.errors.read().decode(), self.process.returncode
        self.errors.close()


class Wire:
    """The network between a client and a server's port: hands bytes on and keeps all of them, as (number of the connection,
    whether the client sent it, bytes); no bytes are an end, and None is a reset, which the other side sees as an end."""

    def __init__(self, port):
        self.target = port
        self.events = []
        self.threads = []

    def __enter__(self):
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.port = self.listener.getsockname()[1]
        self.start(self.accept)
        return self

    def sent(self, client):
        """All bytes of one direction."""
        return b"".join(data or b"" for _, by_client, data in self.events if by_client == client)

    def start(self, function, *args):
        self.threads.append(threading.Thread(target=function, args=args))
        self.threads[-1].start()

    def accept(self):
        for number in itertools.count():
            try:
                near, _ = self.listener.accept()
            except OSError:    # shut down
                return
            self.start(self.carry, number, near, socket.create_connection(("127.0.0.1", self.target)))

    def carry(self, number, near, far):
        with near, far:
            back = threading.Thread(target=self.pass_on, args=(number, False, far, near))
            back.start()
            self.pass_on(number, True, near, far)
            back.join()

    def pass_on(self, number, client, source, sink):
        with contextlib.suppress(OSError):    # one of them has gone
            try:
                while piece := source.recv(65536):
                    self.events.append((number, client, piece))
                    sink.sendall(piece)
                self.events.append((number, client, b""))
            except ConnectionResetError:
                self.events.append((number, client, None))
        with contextlib.suppress(OSError):
            sink.shutdown(socket.SHUT_WR)

    def __exit__(self, *_):
        self.listener.shutdown(socket.SHUT_RDWR)
        self.listener.close()
        for thread in self.threads:
            thread.join(timeout=60)


class ToolTest(unittest.TestCase):
    """A test with a folder of its own, in which dictionary.xml is."""

    maxDiff = None

    def setUp(self):
        self.dir = tempfile.mkdtemp(prefix="callorv-test-")
        self.addCleanup(shutil.rmtree, self.dir)
        self.dictionary = self.write("dictionary.xml", DICTIONARY)
        os.environ["CCACHE_BASEDIR"] = self.dir    # what was compiled in another such folder need not be again

    def path(self, name):
        return os.path.join(self.dir, name)

    def write(self, name, data):
        path = self.path(name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "wb") as file:
            file.write(data if isinstance(data, bytes) else data.encode())
        return path

    def run_with_echo(self, program, dictionary):
        """Runs a program to its end with a configuration, whose server echoes."""
        run("key", "make", "--user-key", "KEY", "-o", self.path("user.key"))
        with Server("--dictionary", dictionary, "--echo") as server:
            config = self.write("callorv.cfg", f"msg_dic={dictionary}\nkey_file={self.path('user.key')}\n"
                                               f"server=127.0.0.1 {server.port}\n")
            return subprocess.run([program, config], capture_output=True, timeout=60, check=False)

    def read(self, name):
        with open(self.path(name), "rb") as file:
            return file.read()

    def assert_run(self, result, status, out=None, err=None):
        """Compares what is given; texts with \\A...\\Z-like care are compared whole, as text."""
        self.assertEqual(result.returncode, status, result)
        if out is not None:
            self.assertEqual(result.stdout.decode(), out)
        if err is not None:
            self.assertEqual(result.stderr.decode(), err)

    def assert_usage(self, command, result, text):
        """Exit status 2 and these two lines on standard error, nothing on standard output."""
        self.assert_run(result, 2, "", f"callorv: {text}\nTry 'callorv {command} --help'.\n")


class CallTest(ToolTest):
    """A test that calls, with a key file and a configuration."""

    def setUp(self):
        super().setUp()
        self.key = self.path("user.key")
        self.assert_run(run("key", "make", "--user-key", "USERKEY1", "-o", self.key), 0)

    def config(self, port, timeout=60):
        return self.write("client.cfg", f"msg_dic={self.dictionary}\nkey_file={self.key}\nserver=127.0.0.1 {port}\n"
                                        f"timeout={timeout}\n")

    def echo(self, *args):
        return Server("--dictionary", self.dictionary, "--echo", *args)

    def call(self, server, *args, stdin=b""):
        port = server if isinstance(server, int) else server.port
        return run("call", "--config", self.config(port), *args, stdin=stdin)

    def peer(self, answer):
        """A server for one connection that answers with these bytes; its port, and the request once it came."""
        listener = socket.create_server(("127.0.0.1", 0))
        seen = []

        def serve():
            try:
                sock, _ = listener.accept()
            except OSError:    # the test has ended without a call
                return
            with sock:
                seen.append(read_packet(sock))
                sock.sendall(answer)

        thread = threading.Thread(target=serve)
        thread.start()
        self.addCleanup(thread.join)
        self.addCleanup(listener.close)
        self.addCleanup(listener.shutdown, socket.SHUT_RDWR)
        return listener.getsockname()[1], seen
