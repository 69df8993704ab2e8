"""A call through the TLS tunnel that SECURITY.md describes: its certificates and its configuration of stunnel."""
import os
import re
import shutil
import subprocess
import threading
import unittest

from support import Server, ToolTest, Wire, run

SOURCE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..")
STUNNEL = shutil.which("stunnel4") or "stunnel"


def read(*path):
    with open(os.path.join(SOURCE, *path), encoding="ascii") as file:
        return file.read()


def make_certificates(folder):
    """Runs the commands of SECURITY.md in a new folder."""
    os.mkdir(folder)
    commands = re.search(r"```sh\n(openssl req .*?)```", read("SECURITY.md"), re.S)[1]
    subprocess.run(["sh", "-ec", commands], cwd=folder, check=True, capture_output=True)


class Stunnel:
    """A stunnel with a configuration of examples/stunnel, on a free port; replacements are [old, new]."""

    def __init__(self, folder, name, *replacements):
        text = read("examples", "stunnel", name)
        for old, new in replacements:
            assert old in text, old
            text = text.replace(old, new)
        self.path = os.path.join(folder, name)
        with open(self.path, "w", encoding="ascii") as file:
            file.write("syslog = no\ndebug = info\n" + text)
        self.log = ""

    def __enter__(self):
        self.process = subprocess.Popen([STUNNEL, self.path], stdout=subprocess.DEVNULL, stderr=subprocess.PIPE,
                                        text=True)
        for line in self.process.stderr:
            self.log += line
            if match := re.search(r"bound to 127\.0\.0\.1:(\d+)", line):
                self.port = int(match[1])
                break
        else:
            self.process.communicate()
            raise AssertionError(self.log)
        self.reader = threading.Thread(target=self.read_log)    # a pipe that nobody reads would fill up
        self.reader.start()
        return self

    def read_log(self):
        for line in self.process.stderr:
            self.log += line

    def __exit__(self, *_):
        self.process.terminate()
        self.reader.join(timeout=60)
        self.process.communicate(timeout=60)


class TunnelTest(ToolTest):
    def setUp(self):
        super().setUp()
        make_certificates(self.path("ours"))
        make_certificates(self.path("theirs"))    # of an authority that is not ours
        self.key = self.path("user.key")
        self.assert_run(run("key", "make", "--user-key", "TUNNEL-USER", "-o", self.key), 0)

    def call(self, server=(), client=()):
        """A call through both ends with these replacements besides; returns its result, and leaves the server, both
        ends and the wire between them."""
        ours = ("/etc/callorv", self.path("ours"))
        with Server("--dictionary", self.dictionary, "--echo") as self.server, \
             Stunnel(self.dir, "server.conf", *server, ours, ("= 7443", "= 127.0.0.1:0"),
                     ("127.0.0.1:7000", f"127.0.0.1:{self.server.port}")) as self.far, \
             Wire(self.far.port) as self.wire, \
             Stunnel(self.dir, "client.conf", *client, ours, ("server.example.com:7443", f"127.0.0.1:{self.wire.port}"),
                     ("127.0.0.1:7000", "127.0.0.1:0")) as self.near:
            return run("call", "--dictionary", self.dictionary, "--key-file", self.key, "--server",
                       f"127.0.0.1:{self.near.port}", "1201", "Quote", "code=SECRET")

    def test_a_call_and_nothing_of_it_is_on_the_wire(self):
        result = self.call()
        self.assert_run(result, 0, err="")
        self.assertIn("[1](code) SECRET\n", result.stdout.decode())
        self.assertIn(" user=TU********* ", self.server.log)
        for client in (True, False):
            seen = self.wire.sent(client)
            self.assertGreater(len(seen), 1000)
            for text in (b"QMX-SSP", b"TUNNEL-USER", b"SECRET"):
                self.assertNotIn(text, seen)

    def refused(self, who, why, **changes):
        result = self.call(**changes)
        self.assert_run(result, 1, "")
        # the tunnel may have closed before the request is sent, or after
        self.assertRegex(result.stderr.decode(), r"\Acallorv: .* \(the library says: (Socket closed\(-9\)|Failed in "
                                                 r"send\(\)\(-6\))")
        self.assertIn("served 0 calls, 0 errors", self.server.log)
        self.assertRegex(who().log, why)

    def test_a_server_of_another_authority_gets_no_call(self):
        theirs = ("/etc/callorv/server.example.com", self.path("theirs/server.example.com"))
        self.refused(lambda: self.near, "CERT: Pre-verification error", server=[theirs])

    def test_a_server_of_another_name_gets_no_call(self):
        self.refused(lambda: self.near, "CERT: Subject checks failed",
                     server=[("/etc/callorv/server.example.com", "/etc/callorv/client-1")])

    def test_a_client_of_another_authority_is_not_let_in(self):
        self.refused(lambda: self.far, "CERT: Pre-verification error",
                     client=[("/etc/callorv/client-1", self.path("theirs/client-1"))])

    def test_a_client_without_a_certificate_is_not_let_in(self):
        self.refused(lambda: self.far, "peer did not return a certificate",
                     client=[("cert = ", "; cert = "), ("key = ", "; key = ")])


if __name__ == "__main__":
    unittest.main()
