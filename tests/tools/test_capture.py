"""callorv decode: the calls of a capture."""
import json
import os
import random
import re
import signal
import struct
import subprocess
import unittest

from pcap import (ACK, ETHERNET, FIN, IPV4, LOOP, NULL, PSH, RAW, RST, SLL, SLL2, block, enhanced, frames, interface,
                  obsolete, pcap, pcapng, section, simple, to_ipv6, with_options, wrapped)
from support import COMMAND, XML_HEAD, ToolTest, packet, run

BODY = f'{XML_HEAD}<msg no="3" ver=""><t1><![CDATA[ABC]]></t1></msg>'.encode()
REQUEST = packet(BODY)
REPLY = packet(BODY * 3, message=4, compress=True, key=b" " * 20)
LONG = packet(b"x" * 5000, message=4, key=b" " * 20)
REJECTION = f'{XML_HEAD}<msg no="10" ver=""><t6>42</t6><t7><![CDATA[zu \xe9]]></t7></msg>'
REJECT = packet(REJECTION.encode("latin-1"), message=10, key=b" " * 20)
LINE = "2023-11-14T22:13:20.{:06}Z  127.0.0.1:{} > 127.0.0.1:7000  service 1201  message 3, 224 bytes"


def call(capture, reply=REPLY, request=REQUEST, mss=1460):
    connection = capture.connect()
    connection.ask(request, mss=mss)
    connection.answer(reply, mss=mss)
    connection.close()


class CaptureTest(ToolTest):
    def decode(self, data, *args):
        return run("decode", *args, stdin=data)

    def calls(self, data, *args, status=0):
        result = self.decode(data, "--json", *args)
        self.assertEqual(result.returncode, status, result.stdout.decode() + result.stderr.decode())
        return json.loads(result.stdout)

    def outcomes(self, data, *args, status=0):
        """(outcome, why) of each call, in the order of their ports."""
        calls = self.calls(data, *args, status=status)["calls"]
        return [(c["outcome"], c["why"]) for c in sorted(calls, key=lambda c: c["client"]["port"])]


class TimeLineTest(CaptureTest):
    def fill(self, capture):
        call(capture)
        call(capture, REJECT)
        call(capture, b"")
        call(capture, REPLY[:-3] + b"999")
        connection = capture.connect()
        connection.ask(REQUEST)

    def test_a_line_for_each_call(self):
        result = self.decode(pcap(frames(self.fill)))
        size = len(REPLY)
        at = [400 + 700 * i for i in range(5)]
        reject = f"message 10, {len(REJECT)} bytes"
        self.assertNotIn(reject, result.stdout.decode())
        self.assert_run(result, 1, "".join((
            LINE.format(at[0], 40000) + f"  0.100 ms  reply: message 4, {size} bytes\n",
            LINE.format(at[1], 40001) + "  0.100 ms  rejected: 42 (zu \u00e9)\n",
            LINE.format(at[2], 40002) + "  no reply: the client closed the connection\n",
            LINE.format(at[3], 40003) + "  0.100 ms  damaged: reply: Checksum is incorrect(-13)((M:"
            f"{sum(REPLY[:-3]) % 256},C:999))\n",
            LINE.format(at[4], 40004) + "  no reply: the capture ends\n",
            "5 calls: 1 reply, 1 rejected, 2 no reply, 1 damaged\n")),
            "callorv: standard input: 1 damaged among 5 calls\n")

    def test_as_json(self):
        path = self.write("calls.pcap", pcap(frames(self.fill)))
        result = run("decode", "--json", path)
        text = f"{path}: 1 damaged among 5 calls"
        self.assert_run(result, 1, err=f"callorv: {text}\n")
        report = json.loads(result.stdout)
        self.assertEqual({k: v for k, v in report.items() if k != "calls"},
                         {"frames": 32, "notes": [], "error": {"text": text}})
        ends = {"client": {"address": "127.0.0.1", "port": 40001}, "server": {"address": "127.0.0.1", "port": 7000}}
        self.assertEqual(report["calls"][1], {
            **ends, "service": 1201, "outcome": "rejected", "why": None, "latency_us": 100.0,
            "rejection": {"code": 42, "text": "zu \u00e9"},
            "request": {"time": "2023-11-14T22:13:20.001100Z", "message": 3, "size": 224, "wrong": []},
            "reply": {"time": "2023-11-14T22:13:20.001200Z", "message": 10, "size": len(REJECT), "wrong": []}})
        self.assertEqual([c["reply"] for c in report["calls"]][2], None)
        self.assertEqual(report["calls"][2]["latency_us"], None)

    def test_the_packets_of_each_call(self):
        data = pcap(frames(call))
        listing = self.decode(REQUEST).stdout.decode().split("\n", 1)[1]
        result = self.decode(data, "--detail")
        self.assert_run(result, 0, err="")
        self.assertIn("bytes\n  request:\n" + listing + "  reply:\n", result.stdout.decode())
        self.assertNotIn("USERKEY1", result.stdout.decode())
        self.assertIn("USERKEY1", self.decode(data, "--detail", "--show-key").stdout.decode())
        (found,) = self.calls(data, "--detail")["calls"]
        (alone,) = json.loads(self.decode(REQUEST, "--json").stdout)["packets"]
        self.assertEqual(found["request"]["packet"], alone)
        self.assert_run(self.decode(data, "--xml"), 0, f"{BODY.decode()}\n{BODY.decode() * 3}\n", "")

    def test_a_cut_header_hides_its_key(self):
        def fill(capture):
            for size in range(50, 128):
                connection = capture.connect()
                connection.ask(REQUEST[:size])
                connection.close()
        for args in ((), ("--detail",), ("--detail", "--json")):
            result = self.decode(pcap(frames(fill)), *args)
            self.assertEqual(result.returncode, 1)
            self.assertNotIn("SERKEY", result.stdout.decode())

    def test_the_port_of_the_server(self):
        data = pcap(frames(call))
        self.assertEqual(len(self.calls(data, "--port", 7000)["calls"]), 1)
        for port in (40000, 80):    # that of the client is not it
            self.assert_run(self.decode(data, "--port", port), 1, "0 calls\n",
                            "callorv: standard input: no call in it\n")
        middle = pcap(frames(call)[4:])
        self.assertEqual([c["client"]["port"] for c in self.calls(middle, "--port", 40000)["calls"]], [7000])


class FormTest(CaptureTest):
    """The same calls, whatever they are kept in."""

    def setUp(self):
        super().setUp()
        self.found = frames(lambda capture: (call(capture, LONG), call(capture, REJECT)))
        self.wanted = self.calls(pcap(self.found))

    def test_every_form_of_pcap(self):
        for order in "<>":
            self.assertEqual(self.calls(pcap(self.found, order=order)), self.wanted)
            exact = [(time + 7, data) for time, data in self.found]
            nano = self.calls(pcap(exact, order=order, nano=True))
            self.assertEqual(nano["calls"][0]["request"]["time"], "2023-11-14T22:13:20.000400007Z")
            self.assertEqual([c["outcome"] for c in nano["calls"]], ["reply", "rejected"])

    def test_every_link(self):
        for link in (12, 14, IPV4, ETHERNET, SLL, SLL2, NULL, LOOP):
            with self.subTest(link=link):
                wrapped_frames = [(time, wrapped(link, data)) for time, data in self.found]
                self.assertEqual(self.calls(pcap(wrapped_frames, link, ">")), self.wanted)
                self.assertEqual(self.calls(pcapng(wrapped_frames, link)), self.wanted)
        tagged = [(time, wrapped(ETHERNET, data, (0x88A8, 0x8100))) for time, data in self.found]
        self.assertEqual(self.calls(pcap(tagged, ETHERNET)), self.wanted)
        options = [(time, with_options(data)) for time, data in self.found]
        self.assertEqual(self.calls(pcap(options)), self.wanted)
        offload = [(time, data[:2] + b"\0\0" + data[4:]) for time, data in self.found]    # no length
        self.assertEqual(self.calls(pcap(offload)), self.wanted)

    def test_ipv6(self):
        extensions = ((0, bytes(7)), (60, b"\1" + bytes(14)), (43, bytes(7)), (51, b"\4" + bytes(22)), (44, bytes(7)))
        for more in ((), extensions):
            six = [(time, to_ipv6(data, more)) for time, data in self.found]
            calls = self.calls(pcap(six))["calls"]
            self.assertEqual([c["outcome"] for c in calls], ["reply", "rejected"])
            self.assertEqual((calls[0]["client"], calls[0]["server"]),
                             ({"address": "::1", "port": 40000}, {"address": "::2", "port": 7000}))
        line = self.decode(pcap([(time, wrapped(NULL, data)) for time, data in six], NULL)).stdout.decode()
        self.assertIn("Z  [::1]:40000 > [::2]:7000  service 1201", line)

    def test_sections_interfaces_and_units_of_time(self):
        one, two = self.found[:10], self.found[10:]
        data = section("<") + block("<", 0x0BAD, b"unknown") + interface("<", ETHERNET, 9) + interface("<", RAW, 0x94)
        for index, (time, frame) in enumerate(one):
            if index % 2:
                data += enhanced("<", 1, (time << 20) // 10**9 + 1, frame)
            else:
                data += enhanced("<", 0, time, wrapped(ETHERNET, frame))
        data += section(">") + interface(">", SLL, 6, 1_000_000_000)
        data += b"".join(obsolete(">", 0, time // 1000 - 10**15, wrapped(SLL, frame)) for time, frame in two)
        calls = self.calls(data)["calls"]
        self.assertEqual([c["outcome"] for c in calls], ["reply", "rejected"])
        self.assertRegex(calls[0]["request"]["time"], r"\A2023-11-14T22:13:20[.]000[34]\d{5}Z\Z")
        self.assertEqual(calls[1]["request"], self.wanted["calls"][1]["request"])

    def test_packets_without_a_time(self):
        data = section("<") + interface("<", RAW) + b"".join(simple("<", frame) for _, frame in self.found)
        (first, _) = self.calls(data)["calls"]
        self.assertEqual((first["outcome"], first["latency_us"], first["request"]["time"]), ("reply", None, None))
        self.assertTrue(self.decode(data).stdout.decode().startswith("-  127.0.0.1:40000 > "))

    def test_what_is_not_read_is_said(self):
        bad = [(0, wrapped(ETHERNET, self.found[0][1])[:20]), (0, bytes(12) + b"\x08\x06arp")]
        part = self.found[0][1]
        bad += [(0, wrapped(ETHERNET, part[:6] + flags + part[8:])) for flags in (b"\x20\0", b"\0\1")]
        good = [(time, wrapped(ETHERNET, data)) for time, data in self.found]
        result = self.decode(pcap(good + bad, ETHERNET))
        notes = ["2 frames with a fragment of an IP packet: not put together",
                 "1 frame without whole headers of IP and TCP: not read"]
        self.assert_run(result, 0, err="".join(f"callorv: warning: standard input: {n}\n" for n in notes))
        self.assertEqual(self.calls(pcap(good + bad, ETHERNET))["notes"], notes)
        self.assert_run(self.decode(pcap(good, 105)), 1, "0 calls\n", "callorv: warning: standard input: 17 frames of "
                        "link type 105: not read\ncallorv: standard input: no call in it\n")
        data = section("<") + enhanced("<", 0, 0, part)
        self.assertEqual(self.calls(data, status=1)["notes"],
                         ["1 frame of an interface that is not described: not read"])


class StreamTest(CaptureTest):
    """Segments as a network brings them."""

    def test_order_repetition_overlap_and_wrap(self):
        """One connection each; numbers of the first client go round."""
        rng = random.Random(1)

        def fill(capture):
            for kind in range(40):
                capture.next_port = 40000 + kind
                connection = capture.connect()
                asked, answered = connection.seq[True], connection.seq[False]
                pieces = [(True, at, REQUEST[at:at + 50 + kind]) for at in range(0, len(REQUEST), 50)]
                replies = [(False, at, LONG[at:at + 900 + kind]) for at in range(0, len(LONG), 900)]
                for part in (pieces, replies):
                    if kind % 4:
                        part += part[:kind % 7]
                        rng.shuffle(part)
                    for client, at, data in part:
                        base = asked if client else answered
                        capture.frame(connection.ports[client], connection.ports[not client], base + at, 0, PSH, data)
                connection.seq = {True: asked + len(REQUEST), False: answered + len(LONG)}
                connection.close()
        self.assertEqual(self.outcomes(pcap(frames(fill))), [("reply", None)] * 40)

    def test_what_repeats_otherwise_does_not_count(self):
        def fill(capture):
            connection = capture.connect()
            before = dict(connection.seq)
            connection.ask(REQUEST)
            connection.seq = before
            connection.ask(b"?" * len(REQUEST))
            connection.answer(REPLY)
            connection.close()
            connection.ask(b"")                      # and behind the end
            connection.answer(REPLY)
        self.assertEqual(self.outcomes(pcap(frames(fill)[:-1])), [("reply", None)])

    def lost(self, make, drop):
        """The outcomes of a call after these frames were taken out: those for which drop(number, data) holds."""
        found = frames(make)
        return pcap([frame for number, frame in enumerate(found) if not drop(number, frame[1])])

    def test_lost_segments(self):
        def fill(capture):
            call(capture, LONG, mss=1000)
        # frames: 3 to greet, the request, 6 of the reply, 2 to close
        for gone, outcome in (
                ({5}, ("damaged", "reply: 1000 bytes are missing in the capture")),
                ({4}, ("damaged", "reply: 1000 bytes are missing in the capture; 4131 bytes that begin no packet")),
                ({9}, ("damaged", "reply: 131 bytes are missing in the capture")),
                ({5, 7}, ("damaged", "reply: 1000 bytes are missing in the capture; 1000 bytes are missing in the "
                          "capture")),
                ({3}, ("damaged", "request: 224 bytes are missing in the capture")),
                ({4, 5, 6, 7, 8, 9}, ("damaged", "reply: 5131 bytes are missing in the capture")),
                ({0}, ("reply", None)), ({0, 1, 2}, ("reply", None)), ({0, 1, 2, 10, 11}, ("reply", None)),
                ({10}, ("reply", None))):
            with self.subTest(gone=gone):
                found = self.outcomes(self.lost(fill, lambda number, _, gone=gone: number in gone),
                                      status=1 if outcome[0] == "damaged" else 0)
                self.assertEqual(found, [outcome])

    def test_it_finds_the_next_packet_behind_a_gap(self):
        def fill(capture):
            connection = capture.connect()
            for _ in range(3):
                connection.ask(REQUEST, mss=100)
                connection.answer(REPLY)
            connection.close()
        # the middle of the second request, and the header of the third
        data = self.lost(fill, lambda number, _: number in (8,))
        self.assertEqual([o for o, _ in self.outcomes(data, status=1)], ["reply", "damaged", "reply"])

    def test_captures_that_begin_in_the_middle(self):
        def fill(capture):
            connection = capture.connect(greet=False)
            connection.answer(REPLY[40:])
            connection.ask(REQUEST)
            connection.answer(REPLY)
            connection = capture.connect(greet=False)
            connection.answer(REPLY)
            connection.ask(REQUEST)
            connection.answer(REJECT)
        self.assertEqual(self.outcomes(pcap(frames(fill))),
                         [("reply", None), ("reply", "the request is not in the capture"), ("rejected", None)])

    def test_ends(self):
        def fill(capture):
            for size, flags in ((0, RST), (0, FIN), (130, RST), (130, FIN), (60, FIN)):
                connection = capture.connect()
                connection.ask(REQUEST)
                connection.answer(REPLY[:size], flags=ACK | flags)
            connection = capture.connect()
            connection.ask(REQUEST[:130])
            connection.ask(b"", flags=RST)
            connection = capture.connect()
            connection.ask(REQUEST)
            connection.answer(b"HTTP/1.1 400 Bad Request\r\n\r\n")
            connection.close()
        size = len(REPLY)
        cut = f"reply: the packet ends after 130 of {size} bytes: the server "
        self.assertEqual(self.outcomes(pcap(frames(fill)), status=1), [
            ("no reply", "the server reset the connection"), ("no reply", "the server closed the connection"),
            ("damaged", cut + "reset the connection"), ("damaged", cut + "closed the connection"),
            ("damaged", "reply: the header ends after 60 of 128 bytes: the server closed the connection"),
            ("damaged", "request: the packet ends after 130 of 224 bytes: the client reset the connection"),
            ("damaged", "reply: 28 bytes that begin no packet")])

    def test_ports_that_are_used_again(self):
        def fill(capture):
            for size in (len(REPLY), 0, len(REPLY)):
                capture.next_port = 40000
                connection = capture.connect()
                connection.ask(REQUEST)
                connection.answer(REPLY[:size])
        self.assertEqual(self.outcomes(pcap(frames(fill))),
                         [("reply", None), ("no reply", "its ports are used again"), ("reply", None)])

    def test_frames_that_the_capture_cut(self):
        def fill(capture):
            call(capture, LONG, mss=1400)
        kept = [(time, data) for time, data in frames(fill)]
        self.assertEqual(self.outcomes(pcap(kept, snap=600), status=1), [
            ("damaged", "reply: " + "840 bytes are missing in the capture; " * 3 +
             "371 bytes are missing in the capture")])

    def test_a_packet_cut_off_after_any_byte(self):
        """On as many connections, with another protocol's between them."""
        def fill(capture):
            for size in range(1, len(REQUEST)):
                connection = capture.connect()
                connection.ask(REQUEST[:size])
                connection.close()
                other = capture.connect()
                other.ask(b"GET / HTTP/1.0\r\n\r\n")
                other.answer(b"QMX-SSP-V1")
                other.close()
        found = self.outcomes(pcap(frames(fill)), status=1)
        end = ": the client closed the connection"
        self.assertEqual(found, [("damaged", f"request: the header ends after {size} of 128 bytes{end}"
                                  if size < 128 else f"request: the packet ends after {size} of 224 bytes{end}")
                                 for size in range(12, len(REQUEST))])

    def test_bodies_that_grow_out_of_little(self):
        """Three requests of 45 MB in a small file: they do not wait for their replies together, nor make one object."""
        much = packet(bytes(45_000_000), compress=True)

        def fill(capture):
            connection = capture.connect()
            for _ in range(3):
                connection.ask(much)
        data = pcap(frames(fill))
        result = self.decode(data, "--detail", "--json")
        text = "more than 128 MB for one object; with --follow, each call is one"
        self.assert_run(result, 1, err=f"callorv: {text}\n")
        self.assertEqual(json.loads(result.stdout), {"calls": [], "error": {"text": text}})

    def test_thousands_of_packets_in_one_frame(self):
        """As no network has it; taking them out one by one would move the rest each time."""
        def fill(capture):
            connection = capture.connect()
            connection.ask(b"x")    # its place is taken by what follows
        many = 20000
        found = frames(fill)
        time, last = found[-1]
        found[-1] = (time, last[:2] + b"\0\0" + last[4:40] + packet(b"") * many)    # no length: all that is there
        result = self.decode(pcap(found, snap=2**24), "--follow")
        self.assertEqual((result.returncode, result.stdout.count(b"  no reply: ")), (0, many))

    def test_packets_that_claim_much(self):
        def fill(capture):
            for length in (b"2147483520", b"0067108864"):
                connection = capture.connect()
                connection.ask(packet(BODY, length=length))
                connection.answer(packet(BODY * 9, compress=True, plain=b"2147483647", key=b" " * 20))
                connection.close()
            call(capture, REPLY, packet(BODY, length=b"0000000127"))
        why = [w for _, w in self.outcomes(pcap(frames(fill)), status=1)]
        self.assertEqual(why[0], "request: body length 93 is not the packet's 2147483392 bytes; longer than 64 MB, and "
                         "not read; the packet ends after 224 of 2147483523 bytes: the client closed the connection; "
                         "reply: longer than 64 MB, and not read")
        self.assertEqual(len(why), 3)


class DamagedFileTest(CaptureTest):
    def test_files_that_end_too_early_or_are_damaged(self):
        found = frames(call)
        whole = pcap(found)
        ng = section("<") + interface("<", RAW)
        cut = "frame {}: the capture is cut off here"
        for data, text in (
                (whole[:23], "the capture ends inside its header"), (whole[:4], "the capture ends inside its header"),
                (whole[:30], cut.format(1)), (whole[:45], cut.format(1)), (whole[:-1], cut.format(len(found))),
                (whole[:4] + b"\3" + whole[5:], "pcap of version 3, which is not known"),
                (whole[:32] + b"\xff" * 4 + whole[36:],
                 "frame 1: 4294967295 bytes cannot be: the capture is damaged here"),
                (ng[:10], cut.format(1)), (ng[:7], cut.format(1)), (ng[:-1], cut.format(1)),
                (ng[:8] + b"abcd" + ng[12:], "frame 1: a section of an unknown order of bytes"),
                (ng + b"\6\0\0\0\x0b\0\0\0....", "frame 1: a block of 11 bytes cannot be: the capture is damaged here"),
                (ng + b"\6\0\0\0\xfc\xff\xff\xff....",
                 "frame 1: a block of 4294967292 bytes cannot be: the capture is damaged here"),
                (ng + b"\x99\0\0\0\xfc\xff\xff\xff....", cut.format(1)),
                (ng[:-4] + b"\0\0\0\0", "frame 1: a block's two lengths differ: the capture is damaged here"),
                (section("<") + block("<", 1, b""), "frame 1: an interface's block is too short"),
                (section("<") + interface("<", RAW, 0x40), "frame 1: an interface's times have an unknown unit"),
                (section("<") + block("<", 1, struct.pack("<HHIHH", RAW, 0, 0, 9, 99)),
                 "frame 1: an interface's option is longer than its block"),
                (ng + block("<", 6, b"short"), "frame 1: a packet's block is too short"),
                (ng + block("<", 6, struct.pack("<IIIII", 0, 0, 0, 99, 99)),
                 "frame 1: a packet is longer than its block: the capture is damaged here")):
            with self.subTest(text=text, data=data[:60]):
                path = self.write("bad", data)
                result = run("decode", path)
                self.assertEqual((result.returncode, result.stderr.decode()), (1, f"callorv: {path}: {text}\n"))

    def test_what_was_read_before_the_end_is_printed(self):
        whole = pcap(frames(lambda capture: (call(capture), call(capture))))
        result = self.decode(whole[:-5])
        self.assert_run(result, 1, err="callorv: standard input: frame 14: the capture is cut off here\n")
        self.assertIn("\n2 calls: 2 reply\n", result.stdout.decode())

    def test_bytes_that_nobody_chose(self):
        """Damaged anywhere: an answer each time, in an orderly way."""
        rng = random.Random(17)
        found = frames(lambda capture: (call(capture, LONG), call(capture, REJECT)))
        kinds = [pcap([(t, wrapped(ETHERNET, d)) for t, d in found], ETHERNET), pcapng(found), pcap(found, nano=True)]
        for turn in range(60):
            data = bytearray(kinds[turn % 3])
            for _ in range(rng.choice((1, 5, 50))):
                data[rng.randrange(4, len(data))] = rng.choice((0, 1, 0x7F, 0x80, 0xFF, rng.randrange(256)))
            result = self.decode(bytes(data[:rng.randrange(5, len(data))] if turn % 4 == 0 else data), "--detail")
            self.assertIn(result.returncode, (0, 1))
            self.assertNotIn("SERKEY", result.stdout.decode())


class FollowTest(CaptureTest):
    def follow(self, *args):
        process = subprocess.Popen([COMMAND, "decode", "--follow", *args, "-"], stdin=subprocess.PIPE,
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                   env={**os.environ, "ASAN_OPTIONS": os.environ.get("ASAN_OPTIONS", "") +
                                        ":quarantine_size_mb=1"})    # it keeps what is freed
        self.addCleanup(process.wait)
        for stream in (process.stdout, process.stderr):
            self.addCleanup(stream.close)
        return process

    def feed(self, process, data):
        process.stdin.write(data)
        process.stdin.flush()

    def test_each_call_as_soon_as_it_is_complete(self):
        found = frames(lambda capture: (call(capture), call(capture, REJECT)))
        for kind, args in ((pcap, ()), (pcapng, ("--json",))):
            process = self.follow(*args)
            self.feed(process, kind(found[:5]))    # up to the first reply
            first = process.stdout.readline().decode()
            rest = kind(found)[len(kind(found[:5])):]
            self.feed(process, rest[:-1])
            second = process.stdout.readline().decode()
            self.feed(process, rest[-1:])
            process.stdin.close()
            self.assertEqual((process.wait(60), process.stdout.read(), process.stderr.read()), (0, b"", b""))
            if args:
                self.assertEqual([json.loads(line)["outcome"] for line in (first, second)], ["reply", "rejected"])
            else:
                self.assertEqual(first, LINE.format(400, 40000) + f"  0.100 ms  reply: message 4, {len(REPLY)} bytes\n")
                self.assertEqual(second, LINE.format(1100, 40001) + "  0.100 ms  rejected: 42 (zu \u00e9)\n")

    def test_a_signal_ends_it_with_what_is_known(self):
        for number in (signal.SIGINT, signal.SIGTERM):
            process = self.follow()
            self.feed(process, pcap(frames(lambda capture: (call(capture), capture.connect().ask(REQUEST)))))
            process.stdout.readline()
            process.send_signal(number)
            self.assertEqual(process.stdout.read().decode(),
                             LINE.format(1100, 40001) + "  no reply: the capture ends\n")
            self.assertEqual((process.wait(60), process.stderr.read()), (0, b""))
            process.stdin.close()

    def test_a_writer_that_goes_on_does_not_keep_it(self):
        process = self.follow()
        self.feed(process, pcap(frames(call)))
        process.stdout.readline()    # it has begun
        writer = subprocess.Popen(["cat", "/dev/zero"], stdout=process.stdin, stderr=subprocess.DEVNULL)
        process.stdin.close()
        process.send_signal(signal.SIGINT)
        self.assertEqual((process.wait(60), process.stdout.read()), (0, b""))
        self.assertIn(" frames without whole headers of IP and TCP: not read\n", process.stderr.read().decode())
        self.assertNotEqual(writer.wait(60), 0)

    def test_nothing_is_not_wrong(self):
        self.assert_run(self.decode(pcap([]), "--follow"), 0, "", "")

    def test_memory_does_not_grow_with_the_capture(self):
        """Another 40 MB of calls take no 25 MB more than the first 4."""
        found = frames(lambda capture: [call(capture, LONG * 4) for _ in range(10)])
        head, frame = pcap([]), pcap(found)[24:]
        process = self.follow("--json")
        process.stdin.write(head)
        reader = subprocess.Popen(["cat"], stdin=process.stdout, stdout=subprocess.DEVNULL)
        peaks = []
        for size in (4 * 10**6, 40 * 10**6):
            for _ in range(size // len(frame)):
                process.stdin.write(frame)
            process.stdin.flush()
            with open(f"/proc/{process.pid}/status", encoding="ascii") as status:
                peaks.append(int(re.search(r"VmHWM:\s+(\d+) kB", status.read())[1]))
        process.stdin.close()
        self.assertEqual((process.wait(60), reader.wait(60)), (0, 0))
        self.assertLess(peaks[1] - peaks[0], 25000)

    def test_an_output_that_cannot_be_written(self):
        with open("/dev/full", "wb") as full:
            result = subprocess.run([COMMAND, "decode", "--follow"], input=pcap(frames(call)), stdout=full,
                                    stderr=subprocess.PIPE, check=False)
        self.assertEqual((result.returncode, result.stderr), (1, b"callorv: standard output cannot be written\n"))


class ArgumentTest(CaptureTest):
    def test_usage(self):
        for args, text in ((("--follow", "--hex"), "--follow excludes --hex"),
                           (("--follow", "--binary"), "--follow excludes --binary"),
                           (("--port", "0"), "--port: Value 0 not in range 1 to 65535"),
                           (("--port", "x"), "--port: Value x not in range 1 to 65535"),
                           (("--port",), "--port needs PORT behind it")):
            with self.subTest(args=args):
                self.assert_usage("decode", run("decode", *args), text)

    def test_packets_alone_are_no_capture(self):
        for args in (("--follow",), ("--detail",), ("--port", "7000")):
            self.assert_run(self.decode(REQUEST, *args), 1, "",
                            f"callorv: standard input: no pcap or pcapng capture, as {args[0]} needs\n")
        whole = pcap(frames(call))
        self.assertIn("not a packet: bytes 0 to ", self.decode(whole, "--binary").stdout.decode())

    def test_names(self):
        missing = self.path("no.pcap")
        self.assert_run(run("decode", "--follow", missing), 1, "", f"callorv: {missing}: No such file or directory\n")
        self.assert_run(run("decode", "--follow", self.dir), 1, "", f"callorv: {self.dir}: a folder, not a file\n")


if __name__ == "__main__":
    unittest.main()
