"""The dissector on real calls: `callorv call` to `callorv serve`, through a wire that keeps what goes over it."""
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import time
import unittest
import zlib

from capture import ACK, FIN, PORT, PSH, RST, Capture, Shark

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "tools"))
from support import CallTest, Server, Wire, run

LONG = '<msg no="3" type="name"><code>{{tag:code}}</code>' + "<list>7</list>" * 200 + "</msg>"
REJECTED = '<msg no="10" type="name"><SysCode>42</SysCode><SysReasonText>closed today</SysReasonText></msg>'


class RealCallTest(CallTest):
    def setUp(self):
        super().setUp()
        self.write("replies/1201.xml", LONG)
        self.write("replies/1202.xml", REJECTED)
        self.file = self.path("calls.pcap")
        self.shark = Shark(self.file, "-2", "-o", f"callorv.dict:{self.dictionary}")

    def serve(self, *faults):
        more = [part for fault in faults for part in ("--fault", fault)]
        return Server("--dictionary", self.dictionary, "--replies", self.path("replies"), *more)

    def call_service(self, port, service="1201", deadline=60000):
        return run("call", "--config", self.config(port), "--deadline", deadline, service, "Quote", "code=ABC")

    def record(self, server, *services, deadline=60000):
        """Calls these services and writes the capture; returns the bytes of each call, request and reply."""
        calls = []
        with Capture(self.file) as capture:
            for service in services:
                with Wire(server.port) as wire:
                    self.call_service(wire.port, service, deadline)
                connection = capture.connect()
                for _, client, data in wire.events:
                    if data is None:
                        connection.send(client, b"", RST | ACK)
                    else:
                        connection.send(client, data, PSH | ACK if data else FIN | ACK)
                calls.append((wire.sent(True), wire.sent(False)))
        return calls

    def said(self):
        return [text for _, texts in sorted(self.shark.said().items()) for text in texts]

    def assert_whole(self, lines, kind, data, message, tags):
        """Compares a packet's lines with its bytes; returns what stands behind the checksum."""
        plain = zlib.decompress(data[128:-3]) if data[88:89] == b"Y" else data[128:-3]
        body = f"    Body: {len(data) - 131} bytes" + f", decompressed to {len(plain)}" * (data[88:89] == b"Y")
        number = int(data[26:30])
        expected = [f"CallOrv, {kind}: service {int(data[22:26])}, message {number} ({message})",
                    "    Begin string: QMX-SSP-V1.0", f"    Packet length: {len(data) - 3}",
                    f"    Service: {int(data[22:26])}", f"    Message: {number} ({message})",
                    f"    Extra: {int(data[30:40])}", f"    Time stamp: {data[40:55].decode()}",
                    "    User key: " + "US******" * bool(data[55:75].strip()),
                    f"    Aux13: {data[75:88].decode().rstrip()}",
                    f"    Compressed: {data[88:89].decode()}", f"    Body length: {len(plain)}",
                    f"    Aux8: {data[99:107].decode().rstrip()}", f"    Aux21: {data[107:128].decode().rstrip()}",
                    body, *tags, f"    Checksum: {int(data[-3:])} [correct]"]
        self.assertEqual(int(data[-3:]), sum(data[:-3]) % 256)
        self.assertEqual(lines[:len(expected)], expected)
        return lines[len(expected):]

    def test_a_call_and_its_compressed_reply(self):
        with self.serve() as server:
            ((request, reply),) = self.record(server, "1201")
        self.assertEqual(reply[88:89], b"Y")
        frames = self.shark.frames()
        (asked, (first,)), (answered, (second,)) = frames.items()
        time = f"    [Time from request to reply: {(answered - asked) * 1e-4:.9f} seconds]"
        self.assertEqual(self.assert_whole(first, "Request", request, "Quote", ["        code (1): ABC"]),
                         [f"    [Reply in: {answered}]", time])
        self.assertEqual(self.assert_whole(second, "Reply", reply, "Quote",
                                           ["        code (1): ABC"] + ["        list (7): 7"] * 200),
                         [f"    [Request in: {asked}]", time])
        self.assertEqual(self.said(), [])

    def test_a_rejection(self):
        with self.serve() as server:
            self.record(server, "1202", "1203")
        self.assertEqual(self.said()[0], "rejected: 42 (closed today)")
        self.assertRegex(self.said()[1], r"\Arejected: 404 \(.+\)\Z")

    def test_faults(self):
        with self.serve() as server:
            ((_, reply),) = self.record(server, "1201")
        whole = len(reply)
        for fault, *texts in (
                ("delay:1",), ("reject:77", r"rejected: 77 \(.*\)"),
                ("checksum", r"checksum (\d+) is incorrect, should be (\d+)"),
                ("zlib", "the body is no zlib stream"), ("truncate:64", "reply cut off by FIN after 64 of 128 bytes"),
                ("truncate:0", "no reply to the request in frame 4"),
                ("truncate:128", f"reply cut off by (FIN|RST) after 128 of {whole} bytes"),
                (f"truncate:{whole - 1}", f"reply cut off by (FIN|RST) after {whole - 1} of {whole} bytes"),
                ("reset", "no reply to the request in frame 4"), ("close", "no reply to the request in frame 4"),
                ("stall:150", f"reply cut off by (FIN|RST) after 150 of {whole} bytes"),
                ("stall:0", "no reply to the request in frame 4")):
            with self.subTest(fault=fault):
                with self.serve(fault) as server:
                    ((_, sent),) = self.record(server, "1201", deadline=300 if fault.startswith("stall") else 60000)
                said = self.said()
                self.assertEqual(len(said), len(texts), said)
                for text, pattern in zip(said, texts):
                    self.assertRegex(text, rf"\A{pattern}\Z")
                if fault == "checksum":
                    right = sum(sent[:-3]) % 256
                    self.assertEqual(said, [f"checksum {int(sent[-3:])} is incorrect, should be {right}"])

    def calls_of_shark(self):
        """(port of the client, service, message, message of the reply, microseconds until then) of each request."""
        rows = self.shark.fields("frame.number", "tcp.srcport", "callorv.service", "callorv.message",
                                 "callorv.request_in", "callorv.time")
        replies = {row[4]: (int(row[3]), round(float(row[5]) * 1e6)) for row in rows if row[3] and row[4]}
        return sorted((int(port), int(service), int(message), *replies.get(frame, (None, None)))
                      for frame, port, service, message, asked, _ in rows
                      if message and not asked and int(port) != PORT)

    def test_decode_says_the_same_calls(self):
        """Of sound calls, of faults, and of segments in disorder, repeated and lost."""
        with self.serve() as server:
            calls = self.record(server, "1201", "1202", "1203")
        (long, replied), *_ = calls
        with Capture(self.file) as capture:
            for request, reply in calls:
                connection = capture.connect()
                connection.ask(request, mss=100)
                connection.answer(reply, mss=200, after=1234)
                connection.close()
            for size, flags in ((0, FIN | ACK), (100, FIN | ACK), (len(replied) - 1, RST | ACK)):
                connection = capture.connect()
                connection.ask(long)
                connection.answer(replied[:size], flags=PSH | ACK)
                connection.answer(b"", flags=flags)
            connection = capture.connect()
            first = dict(connection.seq)
            halves = ((len(long) // 2, long[len(long) // 2:]), (0, long[:len(long) // 2 + 10]), (0, long[:50]))
            for at, part in halves:
                capture.frame(connection.ports[True], PORT, first[True] + at, first[False], PSH | ACK, part)
            connection.seq[True] = first[True] + len(long)
            connection.answer(replied)
            connection.close()
        self.shark = Shark(self.file, "-2", "-o", "tcp.reassemble_out_of_order:TRUE")
        result = run("decode", "--json", self.file)
        self.assertEqual(result.returncode, 1)
        found = json.loads(result.stdout)["calls"]
        ours = sorted((c["client"]["port"], c["service"], c["request"]["message"], c["reply"] and c["reply"]["message"],
                       c["latency_us"] and round(c["latency_us"]))
                      for c in found if c["outcome"] in ("reply", "rejected"))
        self.assertEqual(len(ours), 4)
        self.assertEqual(ours, [call for call in self.calls_of_shark() if call[3] is not None])
        self.assertEqual([c["outcome"] for c in found],
                         ["reply", "rejected", "rejected", "no reply", "damaged", "damaged", "reply"])
        said = [re.sub("frame .*", "frame", text) for text in self.said()
                if not text.startswith("rejected")]
        self.assertEqual(said, ["no reply to the request in frame", "reply cut off by FIN after 100 of 128 bytes",
                                f"reply cut off by RST after {len(replied) - 1} of {len(replied)} bytes"])
        self.assertEqual([c["why"] for c in found if c["outcome"] in ("no reply", "damaged")], [
            "the server closed the connection",
            "reply: the header ends after 100 of 128 bytes: the server closed the connection",
            f"reply: the packet ends after {len(replied) - 1} of {len(replied)} bytes: the server reset the "
            "connection"])

    def test_a_capture_of_the_loopback_interface(self):
        """By dumpcap where that is allowed, else from the bytes."""
        with self.serve() as server:
            self.shark = Shark(self.file, "-2", "-o", f"callorv.dict:{self.dictionary}", port=server.port)
            if not self.dump(server):
                self.record(server, "1201")
                self.shark = Shark(self.file, "-2", "-o", f"callorv.dict:{self.dictionary}")
        rows = self.shark.fields("callorv.service", "callorv.reply_in", "callorv.request_in", "callorv.checksum")
        self.assertEqual([row[0] for row in rows], ["1201", "1201"])
        frames = list(self.shark.frames())
        self.assertEqual([row[1:3] for row in rows], [[str(frames[1]), ""], ["", str(frames[0])]])
        self.assertEqual(self.said(), [])

    def dump(self, server):
        """A call while dumpcap watches, until it has seen both sides' ends; whether that is allowed."""
        dumpcap = shutil.which("dumpcap")
        if dumpcap is None:
            return False
        watch = subprocess.Popen([dumpcap, "-i", "lo", "-f", f"tcp port {server.port}", "-w", self.file],
                                 stderr=subprocess.PIPE, text=True, env={**os.environ, "LC_ALL": "C"})
        for line in watch.stderr:
            if line.startswith("File: "):
                break
        else:
            watch.communicate()
            return False
        self.assert_run(self.call_service(server.port), 0)
        ends = None
        limit = time.monotonic() + 60
        while time.monotonic() < limit:    # until the kernel has handed on all of it
            with open(self.file, "rb") as file:
                ends = subprocess.run(["tshark", "-r", "-", "-Y", "tcp.flags.fin == 1 || tcp.flags.reset == 1"],
                                      stdin=file, capture_output=True, text=True, check=False, timeout=60)
            if len(re.findall(r"\[(?:FIN|RST)", ends.stdout)) >= 2:
                break
        watch.terminate()
        watch.communicate(timeout=60)
        self.assertLess(time.monotonic(), limit, ends)
        return True


if __name__ == "__main__":
    unittest.main()
