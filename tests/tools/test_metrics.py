"""callorv serve --metrics: what Prometheus reads."""
import contextlib
import re
import socket
import unittest

from support import Server, ToolTest, message, packet, read_all, read_packet, run

REQUEST = message(3, "<t1><![CDATA[ABC]]></t1>")
BUCKETS = ["0.0001", "0.00025", "0.0005", "0.001", "0.0025", "0.005", "0.01", "0.025", "0.05", "0.1", "0.25", "0.5", "1", "2.5",
           "5", "10", "+Inf"]
KINDS = ["refused", "bad_request", "user_key", "no_reply", "bad_reply", "fault", "failed"]


class MetricsTest(ToolTest):
    @contextlib.contextmanager
    def serve(self, *args):
        """A server, and the port of its counters."""
        with Server("--dictionary", self.dictionary, "--metrics", "127.0.0.1:0", "--quiet", *args) as server:
            match = re.fullmatch(r"metrics on 127\.0\.0\.1 (\d+)\n", server.process.stdout.readline().decode())
            self.port = int(match[1])
            yield server

    def connect(self):
        return socket.create_connection(("127.0.0.1", self.port), timeout=30)

    def ask(self, request):
        with self.connect() as sock:
            sock.sendall(request)
            return read_all(sock).decode()

    def values(self):
        """The counters by name and labels."""
        head, body = self.ask(b"GET /metrics HTTP/1.1\r\nHost: here\r\n\r\n").split("\r\n\r\n", 1)
        self.assertEqual(head.split("\r\n"), ["HTTP/1.1 200 OK", "Content-Type: text/plain; version=0.0.4; charset=utf-8",
                                             f"Content-Length: {len(body)}", "Connection: close"])
        self.text = body
        return {name: float(value) for name, value in re.findall(r"^([^# ][^ ]*) (\S+)$", body, re.M)}

    def settled(self, server, closed):
        """The counters when so many connections have been closed."""
        while True:    # a server sees that a moment later
            values = self.values()
            if values["callorv_serve_connections_total"] - values["callorv_serve_connections_open"] >= closed:
                return values
            self.assertIsNone(server.process.poll())


class CountersTest(MetricsTest):
    def test_everything_is_there_from_the_start(self):
        with self.serve("--echo"):
            values = self.values()
        names = (["callorv_serve_calls_total{service=\"other\"}"] +
                 [f"callorv_serve_errors_total{{kind=\"{kind}\"}}" for kind in KINDS] +
                 [f"callorv_serve_call_duration_seconds_bucket{{le=\"{end}\"}}" for end in BUCKETS] +
                 ["callorv_serve_call_duration_seconds_sum", "callorv_serve_call_duration_seconds_count",
                  "callorv_serve_received_bytes_total", "callorv_serve_sent_bytes_total", "callorv_serve_connections_total",
                  "callorv_serve_connections_open"])
        build = next(name for name in values if name.startswith("callorv_serve_build_info"))
        self.assertRegex(build, r'\Acallorv_serve_build_info\{version="\d+\.\d+\.\d+[^"]*"\}\Z')
        self.assertEqual(list(values), names + ["callorv_serve_uptime_seconds", build])
        self.assertEqual({name: values[name] for name in names}, dict.fromkeys(names, 0))
        self.assertEqual(values[build], 1)
        for name in {re.sub(r"(_bucket|_sum|_count)?(\{.*)?$", "", name) for name in values}:
            self.assertRegex(self.text, rf"(?m)^# HELP {name} [A-Z].*\.\n# TYPE {name} (counter|gauge|histogram)\n{name}")

    def test_calls_errors_bytes_and_connections(self):
        self.write("rules.json", '{"user_keys": ["USERKEY1"], "rules": [{"service": 2, "reply": "x.xml"},'
                                 '{"service": 3, "fault": "close"}, {"service": 4, "reply": {"reject": 1}},'
                                 '{"service": 5, "reply": {"message": 3, "values": {"6": "{{tag:1}}"}}}]}')
        self.write("x.xml", "<msg no='3'/>")
        sent = received = 0
        with self.serve("--rules", self.path("rules.json")) as server:
            calls = [packet(REQUEST, service=service) for service in (2, 2, 3, 4, 4, 5, 77)]
            calls += [packet(REQUEST, service=2, key=b"no".ljust(20)), packet(message(4, ""), service=2)]
            for data in calls:
                sent += len(data)
                received += len(server.ask_raw(data)) if int(data[22:26]) == 3 else len(server.ask(data).data)
            server.ask_raw(packet(REQUEST, checksum=b"000"))
            with server.connect() as sock:
                sock.sendall(packet(REQUEST, service=2))
                received += len(read_packet(sock))
                sent += len(calls[0])
                values = self.settled(server, 10)
                self.assertEqual(values["callorv_serve_connections_open"], 1)
        calls = {name[35:-2]: value for name, value in values.items() if "calls_total" in name}
        self.assertEqual(calls, {"2": 5, "3": 1, "4": 2, "5": 1, "77": 1, "other": 0})
        errors = {name[33:-2]: value for name, value in values.items() if "errors_total" in name}
        self.assertEqual(errors, {"refused": 1, "bad_request": 1, "user_key": 1, "no_reply": 1, "bad_reply": 1, "fault": 1,
                                  "failed": 0})
        self.assertEqual(values["callorv_serve_received_bytes_total"], sent)
        self.assertEqual(values["callorv_serve_sent_bytes_total"], received)
        self.assertEqual(values["callorv_serve_connections_total"], 11)

    def test_the_histogram_counts_upwards(self):
        with self.serve("--echo", "--fault", "delay:30@50") as server:
            for _ in range(4):
                server.ask(packet(REQUEST))
            values = self.settled(server, 4)
        counts = [values[f"callorv_serve_call_duration_seconds_bucket{{le=\"{end}\"}}"] for end in BUCKETS]
        self.assertEqual(counts, sorted(counts))
        self.assertEqual(counts[-1], 4)
        self.assertLessEqual(counts[BUCKETS.index("0.025")], 2)    # two took 30 ms
        self.assertEqual(values["callorv_serve_call_duration_seconds_count"], 4)
        self.assertGreaterEqual(values["callorv_serve_call_duration_seconds_sum"], 0.06)
        self.assertGreater(values["callorv_serve_uptime_seconds"], 0.06)

    def test_a_hundred_services_have_a_line_each(self):
        with self.serve("--echo") as server, server.connect() as sock:
            for service in range(120):
                sock.sendall(packet(REQUEST, service=service))
                read_packet(sock)
            sock.shutdown(socket.SHUT_WR)
            self.assertEqual(sock.recv(1), b"")
            calls = {name[35:-2]: value for name, value in self.settled(server, 1).items() if "calls_total" in name}
        self.assertEqual(calls, {**{str(service): 1 for service in range(100)}, "other": 20})


class HttpTest(MetricsTest):
    def test_what_is_no_get_of_metrics(self):
        bad, missing, other = "400 Bad Request", "404 Not Found", "405 Method Not Allowed"
        with self.serve("--echo"):
            for line, status in (("GET /metrics HTTP/1.0", "200 OK"), ("GET /metrics?a=b HTTP/1.1", "200 OK"),
                                 ("GET / HTTP/1.1", missing), ("GET /metrics/ HTTP/1.1", missing),
                                 ("GET /../metrics HTTP/1.1", missing), ("POST / HTTP/1.1", missing),
                                 ("POST /metrics HTTP/1.1", other), ("HEAD /metrics HTTP/1.1", other),
                                 ("get /metrics HTTP/1.1", other), ("GET /metrics", bad), ("GET /metrics HTTP/2.0", bad),
                                 ("GET  /metrics HTTP/1.1", bad), ("GET /met rics HTTP/1.1", bad), ("", bad), ("GET", bad),
                                 (" /metrics HTTP/1.1", bad), ("GET HTTP/1.1", bad), ("GET /metrics HTTP/1.", bad),
                                 ("GET /m\x01trics HTTP/1.1", bad), ("GET /m\xfctrics HTTP/1.1", bad)):
                with self.subTest(line=line):
                    head, body = self.ask(line.encode("latin-1") + b"\r\nHost: x\r\n\r\nmore that is not read").split("\r\n\r\n", 1)
                    self.assertEqual(head.split("\r\n")[0], "HTTP/1.1 " + status)
                    self.assertIn(f"\r\nContent-Length: {len(body)}\r\n", head + "\r\n")
                    self.assertEqual("\r\nAllow: GET" in head, status == other)
                    if status != "200 OK":
                        self.assertEqual(body, status + "\n")

    def test_long_split_and_broken_requests(self):
        with self.serve("--echo") as server:
            fits = b"GET /metrics HTTP/1.1\r\nX: " + b"x" * 8000 + b"\r\n\r\n"
            self.assertIn("200 OK", self.ask(fits))
            for request in (b"x" * 100000, b"GET /metrics HTTP/1.1\r\nX: " + b"x" * 9000 + b"\r\n\r\n", b"\r\n" * 1 + b"y" * 9000):
                self.assertEqual(self.ask(request).split("\r\n")[0], "HTTP/1.1 431 Request Header Fields Too Large")
            with self.connect() as sock:
                for byte in b"GET /metrics HTTP/1.1\r\n\r\n":
                    sock.sendall(bytes([byte]))
                self.assertIn(b"200 OK", read_all(sock))
            for part in (b"", b"GET /metrics HTTP/1.1\r\n"):
                with self.connect() as sock:
                    sock.sendall(part)
                    sock.shutdown(socket.SHUT_WR)
                    self.assertEqual(read_all(sock)[:24], b"HTTP/1.1 400 Bad Request"[:24] if part else b"")
            self.assertEqual(self.values()["callorv_serve_connections_total"], 0)
        self.assertEqual(server.status, 0)

    def test_idle_connections_are_few_and_cut_off_in_time(self):
        with self.serve("--echo", "--timeout", 1) as server:
            with contextlib.ExitStack() as stack:
                socks = [stack.enter_context(self.connect()) for _ in range(20)]
                for sock in socks[16:]:
                    self.assertEqual(sock.recv(1), b"")    # at once
                socks[0].sendall(b"GET /metrics HTTP/1.1\r\n\r\n")
                self.assertIn(b"200 OK", read_all(socks[0]))
                for sock in socks[1:16]:
                    self.assertEqual(sock.recv(1), b"")    # after a second
            self.assertEqual(server.ask(packet(REQUEST)).body, REQUEST)
            self.assertEqual(self.values()["callorv_serve_connections_total"], 1)

    def test_the_end_does_not_wait_for_it(self):
        with self.serve("--echo") as server, self.connect() as idle:
            idle.sendall(b"GET")
        self.assertEqual(server.status, 0)


class ArgumentTest(MetricsTest):
    def test_usage_and_failures(self):
        for place in ("9464", ":9464", "localhost", "localhost:", "localhost:x", "localhost:65536", "localhost:-1"):
            result = run("serve", "--dictionary", self.dictionary, "--echo", "--metrics=" + place)
            self.assert_usage("serve", result, f"--metrics {place}: HOST:PORT belongs here, as 127.0.0.1:9464")
        with socket.create_server(("127.0.0.1", 0)) as taken:
            port = taken.getsockname()[1]
            result = run("serve", "--dictionary", self.dictionary, "--echo", "--metrics", f"127.0.0.1:{port}")
            self.assert_run(result, 1, "", f"callorv: listen on 127.0.0.1 {port}: Address already in use\n")


if __name__ == "__main__":
    unittest.main()
