"""callorv call --stream: calls that come as lines, results that go as lines."""
import json
import os
import pathlib
import pty
import resource
import signal
import socket
import subprocess
import threading
import unittest

import schemas
from support import COMMAND, CallTest, Server, Wire, message, packet, read_packet


def line(code="ABC", **members):
    return json.dumps({"service": 1201, "message": "Quote", "data": {"code": code}, **members}) + "\n"


class StreamTest(CallTest):
    def stream(self, server, text, *args, status=0, err=""):
        """The results of these lines."""
        text = text if isinstance(text, bytes) else text.encode()
        result = self.call(server, "--stream", *args, stdin=text)
        self.assert_run(result, status, err=err)
        self.assertTrue(result.stdout == b"" or result.stdout.endswith(b"\n"))
        return [json.loads(text) for text in result.stdout.splitlines()]

    def popen(self, server, *args, **more):
        """A stream under way, whose lines are checked."""
        port = server if isinstance(server, int) else server.port
        process = subprocess.Popen([COMMAND, "call", "--config", self.config(port), "--stream", *map(str, args)],
                                   **{**dict.fromkeys(("stdin", "stdout", "stderr"), subprocess.PIPE), **more})
        self.addCleanup(process.communicate)
        self.addCleanup(process.kill)
        return process

    def tell(self, process, text):
        process.stdin.write(text.encode())
        process.stdin.flush()

    def hear(self, process):
        """The next result."""
        result = json.loads(process.stdout.readline())
        self.assertEqual(schemas.complaints("call-stream-result", result), [])
        return result


class LineTest(StreamTest):
    def test_a_line_becomes_a_result(self):
        reply = {"message": 3, "name": "Quote", "version": "", "values": {"code": "Z\u00fcrich", "price": 0.1}}
        with self.echo() as server:
            result, = self.stream(server, '{"service":1201,"message":"Quote","id":1,'
                                          '"data":{"code":"Z\u00fcrich","price":0.1}}\n')
        self.assertGreater(result.pop("latency_us"), 0)
        self.assertEqual(result, {"id": 1, "code": 0, "reply": reply})

    def test_what_a_line_may_be(self):
        lines = (('{"service":7,"message":3}', "null", {}),
                 (b'{"service":7.0,"message":"Quote","data":null}', "null", {}),
                 ('{"service":0,"message":null,"data":{"message":"Quote","values":{"count":5}}}', "null", {"count": 5}),
                 ('\t{ "id" : [1.50,{"a":"\\u00fc\\"\\n"},null,-0,1e3], "service" : 9999, "message" : 3 } \r',
                  '[1.50,{"a":"\u00fc\\"\\n"},null,-0,1e3]', {}),
                 ('{"id":"x","message":3,"service":1,"data":{"rows":[{},{"text":"a"}]}}', '"x"',
                  {"rows": [{}, {"text": "a"}]}))
        text = b"\n \t\r\n".join(t if isinstance(t, bytes) else t.encode() for t, _, _ in lines)
        with self.echo() as server:
            result = self.call(server, "--stream", stdin=text)
        self.assert_run(result, 0, err="")
        results = result.stdout.decode().splitlines()
        self.assertEqual(len(results), len(lines))
        for got, (_, ident, values) in zip(results, lines):
            self.assertTrue(got.startswith(f'{{"id":{ident},"code":0,"latency_us":'), got)
            self.assertEqual(json.loads(got)["reply"]["values"], values)

    def test_a_broken_line_is_an_error_line(self):
        head = '{"service":7,"message":3,'
        number = "stands where a service's number from 0 to 9999 belongs"
        wrong = (("x", "column 1: invalid literal", 0, None),
                 ("{", "column 2: unexpected end of input; expected string literal; each object stands on one line, "
                  "as jq -c writes it", 0, None),
                 ('"service": 7,', "column 10: unexpected ':'; expected end of input", 0, None),
                 ("[]", "an array stands where an object with service, message and data belongs", 0, None),
                 ("5", "5 stands where an object with service, message and data belongs", 0, None),
                 ('{"id":1}', "there is no member service", 0, 1),
                 ('{"service":7,"id":1}', "there is no member message, nor data that says which it is", 7, 1),
                 ('{"service":7,"data":{},"id":1}',
                  "/data: says not which message it is: its members message and values would", 7, 1),
                 ('{"service":"7","message":3}', f"/service: '7' {number}", 0, None),
                 ('{"service":10000,"message":3}', f"/service: 10000 {number}", 0, None),
                 ('{"service":-1,"message":3}', f"/service: -1 {number}", 0, None),
                 ('{"service":null,"message":3}', f"/service: null {number}", 0, None),
                 ('{"service":7,"message":"Qoute"}',
                  "/message: no message 'Qoute' in the dictionary; did you mean 'Quote'?", 7,
                  None),
                 ('{"service":7,"message":99}', "/message: no message '99' in the dictionary", 7, None),
                 ('{"service":7,"message":[]}',
                  "/message: an array stands where a message's number or name belongs", 7, None),
                 ('{"service":7,"mesage":3}',
                  "/mesage: a line has no member but service, message, data and id; did you mean 'message'?", 0, None),
                 (head + '"data":[]}', "/data: an array stands where an object with values belongs", 7, None),
                 (head + '"id":{"n":2},"data":{"rows":[{"prise":1}]}}',
                  "/data/rows/0/prise: message 4 has no tag 'prise'; did you mean 'price'?", 7, {"n": 2}),
                 (head + '"data":{"message":4,"values":{}}}',
                  "/data/message: message 4 contradicts MESSAGE, which is 3", 7, None),
                 (head + '"message":4}', "/message: the name comes twice", 0, None),
                 (head + '"data":{"code":"{{nosuch}}"}}', None, 0, None))
        with self.echo() as server:
            results = self.stream(server, "".join(f"{text}\n{line(id='sound')}" for text, *_ in wrong), "--ordered",
                                  status=1, err=f"callorv: {len(wrong)} of {2 * len(wrong)} lines failed\n")
        self.assertEqual([(r["id"], r["code"]) for r in results[1::2]], [("sound", 0)] * len(wrong))
        for number, (result, (text, why, service, ident)) in enumerate(zip(results[::2], wrong)):
            with self.subTest(text=text):
                said = f"line {2 * number + 1}: "
                self.assertTrue(result["error"]["text"].startswith(said), result)
                if why is not None:
                    self.assertEqual(result, {"id": ident, "code": -1, "latency_us": None, "error": {
                        "code": 0, "text": said + why, "service": service, "rejected": False, "stage": "request",
                        "address": None, "errno": None}})

    def test_no_utf_8(self):
        with self.echo() as server:
            broken, sound = self.stream(server, b'{"service":7,"message":3,"data":{"code":"\xff"}}\n' + line().encode(),
                                        "--ordered", status=1, err="callorv: 1 of 2 lines failed\n")
        self.assertEqual((broken["code"], sound["code"]), (-1, 0))

    def test_a_line_that_is_too_long(self):
        longest = 16 << 20
        text = "x" * (longest + 1) + "\n" + line(id=1) + " " * longest + line(id=2) + line(id=3)
        text += "y" * (longest + 70000)
        with self.echo() as server:
            results = self.stream(server, text, "--ordered", status=1, err="callorv: 3 of 5 lines failed\n")
        self.assertEqual([r["id"] for r in results], [None, 1, None, 3, None])
        self.assertEqual([r["error"]["text"] for r in results if "error" in r],
                         [f"line {number}: more than 16777216 bytes" for number in (1, 3, 5)])

    def test_a_tag_that_is_defined_twice_stands_once_in_a_reply(self):
        self.dictionary = self.write("twice.xml", "<msg_dictionary><msg no='3' name='Twice'>" +
                                     "<tag no='1' name='a' type='integer'/>" * 2 + "</msg></msg_dictionary>")
        with self.echo() as server:
            result = self.call(server, "--stream", stdin=b'{"service":1,"message":3,"data":{"a":7}}')
        self.assertEqual(result.stdout.count(b'"a":7'), 1, result)

    def test_nothing_is_no_line(self):
        with self.echo() as server:
            for text in ("", "\n", " \n\t\n\n"):
                self.assertEqual(self.stream(server, text), [])

    def test_placeholders(self):
        self.write("codes.csv", "code\nA\nB\n")
        codes = "{{csv:%s:code}}" % self.path("codes.csv")
        text = '{"service":7,"message":3,"data":{"code":"%s","names":["{{n}}","{{{{"]}}\n' % codes
        with self.echo() as server:
            results = self.stream(server, text * 3, "--ordered")
        self.assertEqual([r["reply"]["values"] for r in results],
                         [{"code": code, "names": [str(n), "{{"]} for n, code in ((1, "A"), (2, "B"), (3, "A"))])


class FailureTest(StreamTest):
    def test_a_rejection(self):
        self.write("replies/1201.xml", "<msg no='10'><t6>17</t6><t7>not today, \u00fcser</t7><t8>1201</t8></msg>")
        with Server("--dictionary", self.dictionary, "--replies", self.path("replies")) as server:
            result, = self.stream(server, line(id="a"), status=1, err="callorv: 1 of 1 line failed\n")
        self.assertGreater(result.pop("latency_us"), 0)
        self.assertEqual(result, {"id": "a", "code": 17, "error": {
            "code": 17, "text": "not today, \u00fcser", "service": 1201, "rejected": True, "stage": "reply",
            "address": f"127.0.0.1:{server.port}", "errno": None}})

    def test_nobody_listens(self):
        with socket.socket() as deaf:
            deaf.bind(("127.0.0.1", 0))
            port = deaf.getsockname()[1]
            results = self.stream(port, line() * 50, "--in-flight", 8, status=1, err="callorv: 50 of 50 lines failed\n")
        for result in results:
            self.assertGreaterEqual(result.pop("latency_us"), 0)
            self.assertEqual(result, {"id": None, "code": -3, "error": {
                "code": -3, "text": f"127.0.0.1:{port}: Connection refused; nobody listens there "
                                    "(the library says: Failed in connect()(-5)((connect)))",
                "service": 1201, "rejected": False, "stage": "connect", "address": f"127.0.0.1:{port}", "errno": 111}})

    def test_a_deadline(self):
        with self.echo("--fault", "stall:0") as server:
            results = self.stream(server, line() * 5, "--in-flight", 5, "--deadline", 50, status=1,
                                  err="callorv: 5 of 5 lines failed\n")
        for result in results:
            self.assertGreaterEqual(result["latency_us"], 50000)
            self.assertEqual((result["code"], result["error"]["stage"]), (-5, "receive"))
            self.assertIn(": the 50 ms were over while waiting for the reply (the library says: Socket timeout(-8)",
                          result["error"]["text"])

    def test_output_that_cannot_be_written(self):
        with self.echo() as server:
            for sink, why in (("/dev/full", "No space left on device"), (None, "Broken pipe")):
                if sink is None:
                    read_end, out = os.pipe()
                    os.close(read_end)
                else:
                    out = os.open(sink, os.O_WRONLY)
                process = self.popen(server, stdout=out)
                os.close(out)
                _, err = process.communicate(line().encode(), timeout=60)
                self.assertEqual(process.returncode, 1)
                self.assertIn(err.decode(), (f"callorv: standard output cannot be written: {why}\n",
                                             "callorv: standard output cannot be written: nobody reads it any more\n"))

    def test_a_reader_that_has_gone_ends_it_while_nothing_else_happens(self):
        with self.echo() as server:
            process = self.popen(server)
            self.tell(process, line())
            self.hear(process)
            process.stdout.close()
            self.assertEqual(process.wait(60), 1)
            self.assertEqual(process.stderr.read(),
                             b"callorv: standard output cannot be written: nobody reads it any more\n")

    def test_standard_input_that_cannot_be_read(self):
        folder = os.open(self.dir, os.O_RDONLY)
        self.addCleanup(os.close, folder)
        process = self.popen(1, stdin=folder)
        self.assertEqual(process.wait(60), 1)
        self.assertEqual(process.stderr.read(), b"callorv: standard input: a folder, not a file\n")

    def test_what_cannot_be_set_up(self):
        missing = self.path("missing.cfg")
        result = subprocess.run([COMMAND, "call", "--config", missing, "--stream"], input=line().encode(),
                                capture_output=True, check=False)
        self.assert_run(result, 1, "", f"callorv: {missing}: No such file or directory (the library says: File open "
                                       f"failed [{missing}](2,No such file or directory))\n")

    def test_too_many_in_flight(self):
        limit = resource.getrlimit(resource.RLIMIT_NOFILE)[1]
        self.assertLess(limit, 1 << 30)
        with self.echo() as server:
            process = self.popen(server, "--in-flight", 100,
                                 preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_NOFILE, (64, 100)))
            self.assertEqual(process.wait(60), 1)
            self.assertEqual(process.stderr.read(), b"callorv: --in-flight 100 needs 132 descriptors, of which the "
                                                    b"process may have 100 (ulimit -Hn)\n")
            process = self.popen(server, "--in-flight", 60,
                                 preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_NOFILE, (64, 100)))
            out, _ = process.communicate(line().encode() * 200, timeout=60)
            self.assertEqual((process.returncode, len(out.splitlines())), (0, 200))

    def test_usage(self):
        own = "--stream takes no SERVICE, MESSAGE and TAG=VALUE: each line has its own"
        for args, text in (
                (("--stream", 1201), own), (("--stream", 1201, "Quote", "code=a"), own),
                (("--ordered", 1201, "Quote"), "--ordered requires --stream"),
                (("--in-flight", 2, 1201, "Quote"), "--in-flight requires --repeat, --duration or --stream"),
                (("--stream", "--in-flight", 0), "--in-flight: Value 0 not in range 1 to 100000"),
                (("--stream", "--in-flight"), "--in-flight needs K behind it"),
                (("--stream", "--deadline", "x"), "--deadline: Value x not in range 1 to 86400000"),
                (("--stream", "--threads", 2), "--threads requires --repeat or --duration"),
                (("--stream", "--rate", 2), "--rate requires --repeat or --duration"),
                (("--stream", "--json"), "--json excludes --stream"),
                (("--stream", "--format", "xml"), "--format excludes --stream"),
                (("--stream", "--data", "{}"), "--data excludes --stream"),
                (("--stream", "--xml", "x"), "--xml excludes --stream"),
                (("--stream", "--repeat", 2), "--repeat excludes --stream"),
                (("--stream", "--duration", "1s"), "--duration excludes --stream"),
                (("--stream", "--trace"), "--trace excludes --stream")):
            with self.subTest(args=args):
                self.assert_usage("call", self.call(1, *args), text)


class FlowTest(StreamTest):
    def test_a_thousand_in_order_and_as_they_come(self):
        text = "".join(line(str(i), id=i) for i in range(1000))
        with self.echo("--threads", 8) as server:
            for args in ((), ("--in-flight", 64), ("--in-flight", 64, "--ordered")):
                results = self.stream(server, text, *args)
                pairs = [(r["id"], r["reply"]["values"]["code"]) for r in results]
                self.assertEqual(sorted(pairs), [(i, str(i)) for i in range(1000)])
                if "--in-flight" not in args or "--ordered" in args:
                    self.assertEqual(pairs, sorted(pairs))

    def slow_first(self, others=None):
        """The port of a server that answers the call "slow" when it is told, and all others at once; what tells it; and
        what is set when "slow" has come, with so many others when that is said."""
        listener = socket.create_server(("127.0.0.1", 0))
        go, arrived, came = threading.Event(), threading.Event(), []
        self.came = came

        def answer(sock):
            with sock:
                data = read_packet(sock)
                came.append(go.is_set())
                if len(came) == (others or 0) + 1:
                    arrived.set()
                if b"slow" in data:
                    go.wait(60)
                sock.sendall(packet(message(3, "")))

        def serve():
            while True:
                try:
                    sock, _ = listener.accept()
                except OSError:    # shut down
                    return
                threading.Thread(target=answer, args=(sock,), daemon=True).start()

        threading.Thread(target=serve, daemon=True).start()
        self.addCleanup(listener.close)
        self.addCleanup(listener.shutdown, socket.SHUT_RDWR)
        self.addCleanup(go.set)
        return listener.getsockname()[1], go, arrived

    def test_a_slow_call_holds_nobody_up(self):
        server, go, _ = self.slow_first()
        process = self.popen(server, "--in-flight", 2)
        self.tell(process, line("slow", id="slow") + line(id=1))
        self.assertEqual(self.hear(process)["id"], 1)
        for i in range(2, 6):    # lines that come while it is under way
            self.tell(process, line(id=i))
            self.assertEqual(self.hear(process)["id"], i)
        go.set()
        self.assertEqual(self.hear(process)["id"], "slow")    # while standard input is silent
        self.assertEqual(process.communicate(timeout=60), (b"", b""))
        self.assertEqual(process.returncode, 0)

    def test_in_order_a_slow_call_bounds_what_is_taken(self):
        server, go, arrived = self.slow_first(others=31)    # 16 times what may be under way
        with open(self.write("lines", line("slow", id=0) + "".join(line(id=i) for i in range(1, 200))), "rb") as lines:
            process = self.popen(server, "--in-flight", 2, "--ordered", stdin=lines)
        self.assertTrue(arrived.wait(60))
        self.assert_run(self.call(server, 1201, "Quote"), 0, err="")    # which is time enough for more to come
        self.assertEqual(len(self.came), 33)
        go.set()
        self.assertEqual([self.hear(process)["id"] for _ in range(200)], list(range(200)))
        self.assertEqual(process.wait(60), 0)

    def test_memory_is_bounded(self):
        with self.echo("--threads", 8) as server:
            process = self.popen(server, "--in-flight", 16,
                                 env={**os.environ, "ASAN_OPTIONS": "quarantine_size_mb=1"})
            peaks = []
            for count in (100, 1100):    # which, with their results, have 20 MB
                text = "".join(line(str(i).ljust(8000, "x"), id=i) for i in range(count))
                writer = threading.Thread(target=self.tell, args=(process, text))
                writer.start()
                for _ in range(count):
                    self.assertIn(b'"code":0,', process.stdout.readline())
                writer.join()
                with open(f"/proc/{process.pid}/status", encoding="ascii") as status:
                    peaks += [int(text.split()[1]) for text in status if text.startswith("VmHWM:")]
            self.assertEqual(process.communicate(timeout=60), (b"", b""))
        self.assertLess(peaks[1] - peaks[0], 8000)    # KB

    def test_a_reader_that_waits_gets_its_line(self):
        with self.echo() as server:
            process = self.popen(server, "--in-flight", 8)
            for i in range(20):
                self.tell(process, line(id=i))
                self.assertEqual(self.hear(process)["id"], i)

    def test_a_terminal(self):
        with self.echo() as server:
            near, far = pty.openpty()
            process = self.popen(server, stdin=far, stdout=far)
            os.close(far)
            os.write(near, line(id="typed").encode())
            seen = b""
            while b'"reply"' not in seen:
                seen += os.read(near, 65536)
            os.write(near, b"\x04")    # end of input
            self.assertEqual(process.wait(60), 0)
            os.close(near)
            self.assertIn(b'{"id":"typed","code":0,', seen)

    def test_a_signal_ends_it_with_what_was_begun(self):
        for number, name in ((signal.SIGINT, "SIGINT"), (signal.SIGTERM, "SIGTERM")):
            server, go, arrived = self.slow_first()
            process = self.popen(server, "--in-flight", 2)
            self.tell(process, "x\n" + line("slow", id="slow"))
            self.assertEqual(self.hear(process)["id"], None)
            self.assertTrue(arrived.wait(60))
            process.send_signal(number)
            go.set()
            self.assertEqual(self.hear(process)["id"], "slow")
            self.assertEqual(process.stdout.read(), b"")
            self.assertEqual(process.wait(60), 1)
            self.assertEqual(process.stderr.read().decode(), f"callorv: ended by {name} after 2 lines, 1 of which "
                                                             "failed; no call was begun for those behind\n")

    def test_the_second_signal_ends_it_at_once(self):
        server, _, arrived = self.slow_first()
        process = self.popen(server)
        self.tell(process, line("slow"))
        self.assertTrue(arrived.wait(60))
        while process.poll() is None:    # the first is taken whenever it is looked at
            process.send_signal(signal.SIGINT)
        self.assertEqual(process.returncode, -signal.SIGINT)

    def test_a_file_without_end_can_be_left(self):
        os.truncate(self.write("endless", ""), 1 << 40)    # of zeroes, which stand nowhere
        with open(self.path("endless"), "rb") as endless:
            process = self.popen(1, stdin=endless)
        while pathlib.Path(f"/proc/{process.pid}/fdinfo/0").read_text(encoding="ascii").startswith("pos:\t0\n"):
            self.assertIsNone(process.poll())
        process.send_signal(signal.SIGINT)
        self.assertEqual(process.communicate(timeout=60), (
            b"", b"callorv: ended by SIGINT after 0 lines, 0 of which failed; no call was begun for those behind\n"))
        self.assertEqual(process.returncode, 1)

    def test_so_many_are_under_way_and_no_more(self):
        with self.echo("--delay", 20, "--threads", 16) as server, Wire(server.port) as wire:
            self.stream(wire, "".join(line(id=i) for i in range(24)), "--in-flight", 8)
            events = list(wire.events)
        open_now, most = set(), 0
        for number, client, data in events:
            if client and data:
                open_now.add(number)
            elif not client and data:
                open_now.discard(number)
            most = max(most, len(open_now))
        self.assertLessEqual(most, 8)
        self.assertGreater(most, 1)


if __name__ == "__main__":
    unittest.main()
