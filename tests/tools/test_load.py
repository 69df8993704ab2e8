"""callorv call --duration, --rate, --warm-up, and requests that vary."""
import collections
import json
import os
import pty
import re
import signal
import socket
import subprocess
import threading
import time
import unittest

from support import COMMAND, CallTest, message, packet, read_packet, run

UUID = r"[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}"


class Peer:
    """A server that keeps the requests' bodies, in the order in which they came, and calls hold(number) before each
    answer."""

    def __init__(self, hold=lambda number: None, answer=b"<msg no='3'/>", number=3):
        self.hold = hold
        self.reply = packet(answer, message=number)
        self.bodies = []
        self.changed = threading.Condition()
        self.threads = []

    def __enter__(self):
        self.listener = socket.create_server(("127.0.0.1", 0), backlog=1024)
        self.port = self.listener.getsockname()[1]
        self.threads.append(threading.Thread(target=self.accept))
        self.threads[0].start()
        return self

    def accept(self):
        while True:
            try:
                sock, _ = self.listener.accept()
            except OSError:    # shut down
                return
            self.threads.append(threading.Thread(target=self.answer, args=(sock,)))
            self.threads[-1].start()

    def answer(self, sock):
        with sock:
            data = read_packet(sock)
            with self.changed:
                self.bodies.append(data[128:-3].decode("latin-1"))
                number = len(self.bodies)
                self.changed.notify_all()
            self.hold(number)
            sock.sendall(self.reply)

    def wait_for(self, count):
        """Until so many requests have come."""
        with self.changed:
            assert self.changed.wait_for(lambda: len(self.bodies) >= count, timeout=60), self.bodies

    def texts(self, tag=1):
        """What a tag of the requests held."""
        return [re.search(f"<t{tag}>(?:<!.CDATA.)?(.*?)(?:]]>)?</t{tag}>", body, re.S)[1] for body in self.bodies]

    def __exit__(self, *_):
        self.listener.shutdown(socket.SHUT_RDWR)
        self.listener.close()
        for thread in self.threads:
            thread.join(timeout=60)


class LoadTest(CallTest):
    def measure(self, server, *args):
        """The object that is printed."""
        result = self.call(server, 1201, "Quote", "--json", *args)
        self.assert_run(result, 0, err="")
        seen = json.loads(result.stdout)
        self.assertEqual(sum(second["calls"] for second in seen["over_time"]), seen["calls"])
        self.assertEqual(sum(row["count"] for row in seen["histogram"]), seen["calls"])
        return seen

    def slower(self, seen, micros):
        """How many calls took longer, by the rows of the histogram."""
        return sum(row["count"] for row in seen["histogram"] if row["from_us"] >= micros)


class DurationTest(LoadTest):
    def test_the_time_ends_it(self):
        with self.echo("--quiet", "--delay", 150) as server:
            for more in (), ("--threads", 2), ("--in-flight", 2):
                seen = self.measure(server, "--duration", "200ms", *more)
                self.assertGreaterEqual(seen["seconds"], 0.2)
                self.assertGreaterEqual(seen["calls"], 2 if more else 1)    # the first has begun in time
                self.assertLessEqual(seen["calls"], 4 if more else 2)
                self.assertEqual((seen["duration"], seen["rate"], seen["not_begun"], seen["interrupted"]),
                                 (0.2, None, 0, False))

    def test_repeat_ends_it_before(self):
        with self.echo("--quiet") as server:
            for more in (), ("--rate", 1000000), ("--in-flight", 3), ("--in-flight", 3, "--rate", 1000000):
                self.assertEqual(self.measure(server, "--duration", "1h", "--repeat", 7, *more)["calls"], 7)

    def test_units(self):
        with self.echo("--quiet") as server:
            for text, seconds in (("50ms", 0.05), ("0.05s", 0.05), ("0.001m", 0.06), ("1.5h", 5400), ("168h", 604800)):
                self.assertEqual(self.measure(server, "--duration", text, "--repeat", 1)["duration"], seconds)

    def test_for_people(self):
        with self.echo("--quiet") as server:
            result = self.call(server, 1201, "Quote", "--duration", "1s", "--rate", 5, "--warm-up", "400ms")
        self.assert_run(result, 0, err="")
        self.assertRegex(result.stdout.decode(),
                         r"\A5 calls from 1 thread in \d\.\d{3} s: \d+ calls/s, 5 wanted\n"
                         r"not counted: 2 calls of the 0.4 s before, to warm up\nlatency  50 % ")

    def test_warm_up_is_not_counted(self):
        with self.echo("--quiet", "--delay", 30) as server:
            seen = [self.measure(server, "--warm-up", "400ms", "--repeat", 3, *more)
                    for more in ((), ("--in-flight", 2), ("--rate", 5), ("--rate", 5, "--in-flight", 2))]
        for one in seen:
            self.assertEqual((one["calls"], one["warm_up"]["seconds"]), (3, 0.4))
            self.assertGreaterEqual(one["warm_up"]["calls"], 1)
        self.assertEqual([one["warm_up"]["calls"] for one in seen[2:]], [2, 2])    # due after 0 and 200 ms
        self.assertIn(f"served {sum(one['calls'] + one['warm_up']['calls'] for one in seen)} calls", server.log)

    def test_a_bar_shows_the_time_that_is_over(self):
        master, slave = pty.openpty()
        with self.echo("--quiet") as server:
            command = [COMMAND, "call", "--config", self.config(server.port), "1201", "Quote", "--duration", "500ms"]
            with subprocess.Popen([*command, "--rate", "20"], stdout=subprocess.PIPE, stderr=slave) as process:
                os.close(slave)
                self.assertIn(b" 20 wanted\n", process.stdout.read())
                self.assertEqual(process.wait(60), 0)
        seen = os.read(master, 65536)
        os.close(master)
        self.assertRegex(seen, rb"\A(\r\x1b\[K\[#*\.*\] +\d+ %  \d+  \d+/s  0 failed)+\r\x1b\[K\Z")
        shares = [int(share) for share in re.findall(rb"(\d+) %", seen)]
        self.assertEqual((shares, shares[-1] > 0), (sorted(shares), True))


class RateTest(LoadTest):
    def test_calls_come_at_their_time(self):
        with self.echo("--quiet") as server:
            for more in (), ("--in-flight", 4), ("--threads", 3), ("--threads", 2, "--in-flight", 2):
                seen = self.measure(server, "--duration", "300ms", "--rate", 12.5, *more)
                self.assertEqual((seen["calls"] + seen["not_begun"], seen["rate"]), (4, 12.5))    # every 80 ms
                self.assertGreaterEqual(seen["seconds"], 0.3)
            seen = self.measure(server, "--repeat", 201, "--rate", 1000, "--threads", 8)
            self.assertGreaterEqual(seen["seconds"], 0.2)

    def test_latency_counts_from_when_a_call_was_due(self):
        with self.echo("--quiet", "--delay", 50) as server:
            for more in (), ("--in-flight", 1):
                seen = self.measure(server, "--rate", 100, "--repeat", 8, *more)
                self.assertGreaterEqual(seen["latency_us"]["max"], 8 * 50000 - 70000)    # the last is due after 70 ms
                self.assertGreaterEqual(seen["latency_us"]["p50"], 4 * 50000 - 30000)
                self.assertGreaterEqual(seen["latency_us"]["min"], 50000)

    def test_a_stall_is_not_hidden(self):
        def stall(number):    # from the third request on, for 300 ms
            if number == 3:
                time.sleep(0.3)

        with Peer(stall) as peer:
            seen = self.measure(peer, "--rate", 100, "--repeat", 35)
        self.assertEqual(seen["calls"], 35)
        # Those due in the first 175 ms of the stall waited for 125 ms and more; of a closed loop it would be one call.
        self.assertGreaterEqual(self.slower(seen, 125000), 17)
        with Peer(stall) as peer:    # of four slots three go on
            seen = self.measure(peer, "--rate", 100, "--repeat", 35, "--in-flight", 4)
        self.assertEqual(seen["calls"], 35)
        self.assertGreaterEqual(self.slower(seen, 250000), 1)

    def test_calls_that_find_no_free_thread_by_the_end_are_told(self):
        with self.echo("--quiet", "--delay", 800) as server:
            for more in (), ("--in-flight", 1):
                seen = self.measure(server, "--rate", 20, "--duration", "500ms", *more)
                self.assertEqual((seen["calls"], seen["not_begun"]), (1, 9))
            result = self.call(server, 1201, "Quote", "--rate", 20, "--duration", "500ms")
        self.assertIn("\nnot made: 9 calls that no thread was free for when due; ", result.stdout.decode())


class InterruptTest(LoadTest):
    def start(self, port, *args):
        command = [COMMAND, "call", "--config", self.config(port), "1201", "Quote", "--json", *map(str, args)]
        return subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE)

    def test_what_was_measured_is_printed(self):
        for number, more in ((signal.SIGINT, ("--duration", "1h", "--rate", 100)),
                             (signal.SIGTERM, ("--repeat", 1000000000, "--threads", 3)),
                             (signal.SIGINT, ("--duration", "1h", "--rate", 0.5, "--in-flight", 9)),
                             (signal.SIGINT, ("--duration", "1h", "--in-flight", 3))):
            with self.subTest(more), Peer() as peer, self.start(peer.port, *more) as process:
                peer.wait_for(1 if 0.5 in more else 5)
                process.send_signal(number)
                out, err = process.communicate(timeout=60)
                self.assertEqual((process.returncode, err.decode()), (
                    0, "callorv: no more calls begin; those under way end. Once more, and nothing is printed.\n"))
                seen = json.loads(out)
                self.assertEqual((seen["calls"], seen["interrupted"]), (len(peer.bodies), True))

    def test_calls_under_way_end_and_are_counted(self):
        for more in ("--threads", 2), ("--in-flight", 2):
            gate = threading.Event()
            with Peer(lambda number, gate=gate: gate.wait(60) if number > 3 else None) as peer:
                with self.start(peer.port, "--duration", "1h", *more) as process:
                    peer.wait_for(5)
                    process.send_signal(signal.SIGINT)
                    self.assertIn(b"no more calls begin", process.stderr.readline())
                    gate.set()
                    out, _ = process.communicate(timeout=60)
                self.assertEqual((process.returncode, json.loads(out)["calls"]), (0, 5))

    def test_the_second_signal_ends_it(self):
        gate = threading.Event()
        with Peer(lambda number: gate.wait(60)) as peer, self.start(peer.port, "--duration", "1h") as process:
            peer.wait_for(1)
            process.send_signal(signal.SIGINT)
            process.stderr.readline()
            process.send_signal(signal.SIGINT)
            out, err = process.communicate(timeout=60)
            self.assertEqual((process.returncode, out, err), (-signal.SIGINT, b"", b""))
            gate.set()


class PlaceholderTest(LoadTest):
    def test_every_kind(self):
        self.write("a.csv", 'code,"a ""b""",text\r\nA,1,"x, y"\r\n"B",2,"<&"\r\nC,3,"two\nlines"')
        for more in (), ("--in-flight", 1):
            with Peer() as peer:
                self.measure(peer, "--repeat", 5, *more,
                             f"code={{{{n}}}} {{{{csv:{self.path('a.csv')}:text}}}}"
                             f" {{{{{{{{n}}}} {{{{uuid}}}} {{{{uuid}}}}}}}}",
                             "count={{rand:-3:-2}}", f"price={{{{csv:{self.path('a.csv')}:a \"b\"}}}}")
            self.assertEqual([re.sub(UUID, "U", text) for text in peer.texts()],
                             ["1 x, y {{n}} U U}}", "2 <& {{n}} U U}}", "3 two\nlines {{n}} U U}}",
                              "4 x, y {{n}} U U}}", "5 <& {{n}} U U}}"])
            self.assertEqual(len(set(re.findall(UUID, "".join(peer.bodies)))), 10)
            self.assertLessEqual(set(peer.texts(6)), {"-3", "-2"})
            self.assertEqual([float(text) for text in peer.texts(2)], [1, 2, 3, 1, 2])

    def test_in_a_file(self):
        self.write("a.csv", "x\n<&\n7\n")
        xml = self.write("quote.xml", "<msg no='3' ver='{{n}}' type='name'>"
                                      f"<code>{{{{csv:{self.path('a.csv')}:x}}}}</code>"
                                      f"<rows><text>{{{{n}}}}</text></rows><rows><text>{{{{{{{{</text>"
                                      "</rows></msg>")
        with Peer() as peer:
            self.assert_run(self.call(peer, 1201, "--xml", xml, "--repeat", 3, "count={{n}}"), 0, err="")
        self.assertEqual([(text, re.search('ver="(.*?)"', body)[1], re.findall("<t3><!.CDATA.(.*?)]]></t3>", body))
                          for text, body in zip(peer.texts(), peer.bodies)],
                         [("<&", "1", ["1", "{{"]), ("7", "2", ["2", "{{"]), ("<&", "3", ["3", "{{"])])
        self.assertEqual(peer.texts(6), ["1", "2", "3"])

    def test_in_json(self):
        self.write("a.csv", 'x,p\n"a ""b"" \\ \t\u00e4",1.5\n7,2\n')
        file = self.path("a.csv")
        data = (f'{{"code":"{{{{n}}}} {{{{csv:{file}:x}}}}","count":{{{{n}}}},'
                f'"rows":[{{"price":{{{{csv:{file}:p}}}}}}]}}')
        with Peer() as peer:
            self.measure(peer, "--data", data, "--repeat", 2)
        self.assertEqual(peer.texts(), ['1 a "b" \\ \t\u00e4', "2 7"])
        self.assertEqual(peer.texts(6), ["1", "2"])
        self.assertEqual([float(text) for text in peer.texts(2)], [1.5, 2])

    def test_every_number_comes_once(self):
        for more in ("--threads", 8), ("--threads", 2, "--in-flight", 8), ("--threads", 4, "--rate", 100000):
            with Peer() as peer:
                self.measure(peer, "--repeat", 120, "count={{n}}", "code={{rand:1:2}}", *more)
            self.assertEqual(sorted(map(int, peer.texts(6))), list(range(1, 121)))
            self.assertEqual(set(collections.Counter(peer.texts())), {"1", "2"})    # both, with 1 : 2^119

    def test_numbers_go_on_after_the_warm_up(self):
        with Peer() as peer:
            self.measure(peer, "--repeat", 2, "--rate", 200, "--warm-up", "10ms", "count={{n}}")
        self.assertEqual(peer.texts(6), ["1", "2", "3", "4"])

    def test_a_single_call_sends_texts_as_they_stand(self):
        with Peer() as peer:
            for text in "{{x}} {{{{ {{", "{{tag:1}}", "{{ n }}":
                self.assert_run(self.call(peer, 1201, "Quote", "code=" + text), 0, err="")
            for text in "{{n}}", "{{uuid}}", "{{rand:1}}", "{{csv:a}}":
                self.assert_run(self.call(peer, 1201, "Quote",
                                f"code={{{{x {text}"), 0, err=f"callorv: warning: {text} is "
                                "sent as it stands: it is replaced with --repeat, --duration and --stream\n")
        self.assertEqual(peer.texts(), ["{{x}} {{{{ {{", "{{tag:1}}", "{{ n }}", "{{x {{n}}", "{{x {{uuid}}",
                                        "{{x {{rand:1}}", "{{x {{csv:a}}"])

    def test_what_is_refused(self):
        known = "; there are {{n}}, {{uuid}}, {{rand:MIN:MAX}} and {{csv:FILE:COLUMN}}; {{ itself is written {{{{"
        numbers = "two whole numbers are needed, as in {{rand:1:100}}"
        table = "a file and a column are needed, as in {{csv:shares.csv:code}}"
        files = {"none.csv": "", "names.csv": "a,b\n", "few.csv": "a,b\n1",
                 "ragged.csv": "a,b\r\n1,2\r\n\"x\n\",2,3\r\n", "open.csv": "a,b\n1,\"2\n3,4\n",
                 "middle.csv": "a,b\n1,2\n3,4\"5\"\n", "behind.csv": "a,b\n\"1\"2,3\n",
                 "empty.csv": "a\n1\n\n2\n", "two.csv": "a,a\n1,2\n", "good.csv": "\ufeffa,price\n1,2\n3,x\n"}
        for name, text in files.items():
            self.write(name, text)
        for text, words in (
                ("{{nn}}", "{{nn}}: no placeholder" + known), ("{{}}", "{{}}: no placeholder" + known),
                ("{{n:1}}", "{{n:1}}: no placeholder" + known), ("{{ n }}", "{{ n }}: no placeholder" + known),
                ("{{tag:1}}", "{{tag:1}}: no placeholder" + known), ("{{{n}}}", "{{{n}}: no placeholder" + known),
                ("a{{n", "'{{n': {{ without }}; {{ itself is written {{{{"),
                ("{{rand}}", "{{rand}}: " + numbers), ("{{rand:1}}", "{{rand:1}}: " + numbers),
                ("{{rand:1:}}", "{{rand:1:}}: " + numbers), ("{{rand:a:2}}", "{{rand:a:2}}: " + numbers),
                ("{{rand:1:2:3}}", "{{rand:1:2:3}}: " + numbers),
                ("{{rand:1:9223372036854775808}}", "{{rand:1:9223372036854775808}}: " + numbers),
                ("{{rand:2:1}}", "{{rand:2:1}}: 2 is more than 1"),
                ("{{csv}}", "{{csv}}: " + table), ("{{csv:a.csv}}", "{{csv:a.csv}}: " + table),
                ("{{csv:a.csv:}}", "{{csv:a.csv:}}: " + table), ("{{csv::a}}", "{{csv::a}}: " + table),
                ("{{csv:-:a}}", "{{csv:-:a}}: a table comes from a file, not from standard input"),
                ("{{csv:lost.csv:a}}", "lost.csv: No such file or directory"),
                ("{{csv:.:a}}", ".: a folder, not a file"),
                ("{{csv:none.csv:a}}", "none.csv:1: no line with the columns' names"),
                ("{{csv:names.csv:a}}", "names.csv:2: no row below the columns' names"),
                ("{{csv:ragged.csv:a}}", "ragged.csv:3: 3 fields, where line 1 names 2 columns"),
                ("{{csv:few.csv:a}}", "few.csv:2: 1 field, where line 1 names 2 columns"),
                ("{{csv:open.csv:a}}", "open.csv:2: a quote is opened and not closed"),
                ("{{csv:middle.csv:a}}", "middle.csv:3: a quote in the middle of a field"),
                ("{{csv:behind.csv:a}}", "behind.csv:2: text behind a closing quote"),
                ("{{csv:empty.csv:a}}", "empty.csv:3: an empty line; the field of one that is empty is written \"\""),
                ("{{csv:two.csv:a}}", "two.csv:1: more than one column 'a'"),
                ("{{csv:good.csv:prise}}", "good.csv:1: no column 'prise'; did you mean 'price'?")):
            with self.subTest(text):
                result = subprocess.run([COMMAND, "call", "--config", self.config(1), "1201", "Quote", "--repeat", "1",
                                         "code=" + text], cwd=self.dir, capture_output=True, timeout=60, check=False)
                self.assert_run(result, 1, "", f"callorv: {words}\n")
        with Peer() as peer:    # a row that does not fit is found before anything is sent
            result = self.call(peer, 1201, "Quote", "--repeat", 1, f"price={{{{csv:{self.path('good.csv')}:price}}}}")
        self.assert_run(result, 1, "", "callorv: the request of call 2: price: 'x' is no number\n")
        self.assertEqual(peer.bodies, [])


class ReportTest(LoadTest):
    def test_every_kind_says_the_same(self):
        with self.echo("--quiet", "--fault", "reject:17@20") as server:
            args = ("--data", '{"code":"secret"}', "head.text=secret", "list=1", "list=2")
            result = self.call(server, 1201, "Quote", *args, "--repeat", 10, "--json", "--report", self.path("a.json"))
            self.assert_run(result, 1, err="callorv: 2 of 10 calls failed\n")
            self.assertEqual(result.stdout, self.read("a.json"))
            result = self.call(server, 1201, "Quote", *args, "--repeat", 10, "--threads", 2, "--json", "--report",
                               self.path("a.csv"))
            seen = json.loads(result.stdout)["over_time"]
            names, *lines = self.read("a.csv").decode().split("\n")
            self.assertEqual(names, "second,calls,failed,p50_us,p90_us,p99_us,max_us")
            self.assertEqual(lines, [*(",".join(map(str, (one["second"], one["calls"], one["failed"],
                                                          *one["latency_us"].values()))) for one in seen), ""])
            result = self.call(server, 1201, "Quote", *args, "--repeat", 10, "--report", self.path("a b.html"))
        self.assertRegex(result.stdout, rb"\A10 calls from 1 thread in ")
        page = self.read("a b.html").decode()
        self.assertIn(f"<code>callorv call --config {self.path('client.cfg')} --data \u2026 --repeat 10 --report "
                      f"'{self.path('a b.html')}' 1201 Quote head.text=\u2026 list=\u2026 list=\u2026</code>", page)
        self.assertNotIn("secret", page)
        self.assertIn('<td class="number">2</td><td class="number">17</td>'
                      '<td>rejected on request of --fault</td>', page)
        self.assertNotRegex(page, r"<script|https?:|@import|url\(")
        self.assertEqual(sorted(os.listdir(self.dir)),
                         ["a b.html", "a.csv", "a.json", "client.cfg", "dictionary.xml", "user.key"])

    def test_what_a_server_says_is_text_in_the_page(self):
        answer = message(10, "<t6>5</t6><t7><![CDATA[<script>x</script>&AE]]></t7>").replace(b"AE", b"\xe4")
        with Peer(answer=answer, number=10) as peer:
            self.call(peer, 1201, "Quote", "--repeat", 1, "--report", self.path("a.html"))
        self.assertIn("<td>&lt;script&gt;x&lt;/script&gt;&amp;\u00e4</td>", self.read("a.html").decode())

    def test_without_calls(self):
        with Peer() as peer:
            seen = self.measure(peer, "--duration", "20ms", "--rate", 0.001, "--warm-up", "10ms", "--report",
                                self.path("a.html"))
        self.assertEqual((seen["calls"], seen["warm_up"]["calls"], seen["calls_per_second"]), (0, 1, 0))
        self.assertIn("<dt>calls</dt><dd>0</dd>", self.read("a.html").decode())

    def test_a_file_that_cannot_be_is_said_before_anything_is_sent(self):
        os.mkdir(self.path("folder.csv"))
        with Peer() as peer:
            for name, status, text in (
                    ("lost/a.html", 1, "No such file or directory"), ("folder.csv", 1, "a folder, not a file"),
                    ("user.key/a.csv", 1, "Not a directory")):
                result = self.call(peer, 1201, "Quote", "--repeat", 1, "--report", self.path(name))
                self.assert_run(result, status, "", f"callorv: {self.path(name)}: {text}\n")
        self.assertEqual(peer.bodies, [])

    def test_a_file_that_cannot_be_written_in_the_end(self):
        def remove(_):
            os.rmdir(self.path("gone"))

        os.mkdir(self.path("gone"))
        path = self.path("gone/a.json")
        with Peer(remove) as peer:
            result = self.call(peer, 1201, "Quote", "--repeat", 1, "--report", path, "--json")
        self.assert_run(result, 1, err=f"callorv: {path}: No such file or directory\n")
        self.assertEqual(json.loads(result.stdout)["calls"], 1)


class ArgumentTest(CallTest):
    def test_usage(self):
        time_text = " is no time: a number and a unit are needed, as in 500ms, 30s, 5m or 1.5h, up to 168h"
        rate_text = " is no rate: a number from 0.001 to 1000000 is needed, with up to three decimals"
        for args, text in (
                (("--rate", 5), "--rate requires --repeat or --duration"),
                (("--report", "a.html"), "--report requires --repeat or --duration"),
                *((("--repeat", 1, "--report", bad), f"--report: '{bad}' must end in .html, .csv or .json")
                  for bad in ("a.txt", "a", "-", ".html", "a.HTML", "a.html.gz", "html")),
                (("--warm-up", "1s"), "--warm-up requires --repeat or --duration"),
                (("--duration", "1s", "--trace"), "--duration excludes --trace"),
                (("--duration",), "--duration needs TIME behind it"),
                *((("--duration", bad), f"--duration: '{bad}'{time_text}")
                  for bad in ("0s", "5", "s", "-1s", "1d", "1 s", "1.s", ".5s", "1e3s", "1.2345s",
                              "169h", "604800.001s",
                              "1h30m", "9999999999s")),
                (("--repeat", 1, "--warm-up", "x"), f"--warm-up: 'x'{time_text}"),
                *((("--repeat", 1, "--rate", bad), f"--rate: '{bad}'{rate_text}")
                  for bad in ("0", "0.000", "-1", "x", "1.2345", "1000000.001", "1e3", "500/s", ".5", "99999999999"))):
            with self.subTest(args=args):
                result = run("call", "--config", "client.cfg", 1201, "Quote", *args)
                self.assert_usage("call", result, text)


if __name__ == "__main__":
    unittest.main()
