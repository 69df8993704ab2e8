"""Calls under load through HAProxy, as examples/haproxy/haproxy.cfg sets it up, to servers that are killed, restarted,
drained and slow. No reply may be another call's; what fails fails with the codes of docs/load-balancer.md."""
import collections
import contextlib
import csv
import os
import pathlib
import re
import signal
import socket
import subprocess
import sys
import time
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "tools"))
from support import CallTest, Reply, Server, packet

SOURCE = pathlib.Path(__file__).resolve().parent.parent.parent
CONFIG = (SOURCE / "examples" / "haproxy" / "haproxy.cfg").read_text(encoding="ascii")
LOAD = os.environ["CALL_LOAD"]
THREADS = 16
DEADLINE_MS = 60000    # of a call that nobody expects to fail
PATIENCE = 120         # seconds until something that must come is given up
CLOSED = r"-3 -5 Socket closed\(-9\)\((OK|\(Connection reset by peer\))\)"
GONE = rf"{CLOSED}|-3 -4 Failed in send\(\)\(-6\).*"    # the balancer closed before the request was sent
TIMEOUT = r"-3 -5 Socket timeout\(-8\)\(\(header, \d+ ms\)\)"


class Load:
    """call_load until the end of `with`; then outcomes has the counts."""

    def __init__(self, config, threads=THREADS, deadline=DEADLINE_MS):
        self.line = [LOAD, config, str(threads), str(deadline)]
        self.calls = 0

    def __enter__(self):
        self.process = subprocess.Popen(self.line, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        return self

    def more(self, calls):
        """Waits until so many more calls are over."""
        goal = self.calls + calls
        while self.calls < goal:
            self.calls = int(self.process.stdout.readline())

    def __exit__(self, *_):
        out, _ = self.process.communicate(timeout=PATIENCE)
        self.outcomes = {}
        for line in out.splitlines():
            if match := re.fullmatch(r"(\d+) ms was the longest call", line):
                self.longest = int(match[1])
            elif match := re.fullmatch(r"(.*) us of processor time a call", line):
                self.cost = float(match[1])
            elif match := re.fullmatch(r"(\d+) (.+)", line):
                self.outcomes[match[2]] = int(match[1])
        self.status = self.process.returncode

    @property
    def failed(self):
        return {text: count for text, count in self.outcomes.items() if text != "ok"}


class Balancer:
    """HAProxy with the example's configuration, in which addresses and paths are replaced, and more if asked for."""

    def __init__(self, folder, ports, *replacements):
        self.path, self.socket_path = os.path.join(folder, "haproxy.cfg"), os.path.join(folder, "admin.sock")
        self.listener = socket.create_server(("127.0.0.1", 0), backlog=1024)
        self.port = self.listener.getsockname()[1]
        text = CONFIG
        for old, new in (("    user haproxy\n    group haproxy\n", ""),
                         ("log /dev/log local0", "log stderr format raw local0"),
                         ("maxconn 20000", "maxconn 4000"),    # the machine may not have so many descriptors
                         ("/run/haproxy/admin.sock", self.socket_path),
                         ("bind :7000", f"bind fd@{self.listener.fileno()}"),
                         *((f"192.0.2.{11 + i}:7000", f"127.0.0.1:{port}") for i, port in enumerate(ports)),
                         *replacements):
            assert old in text, old
            text = text.replace(old, new)
        pathlib.Path(self.path).write_text(text, encoding="ascii")
        self.log_path = os.path.join(folder, "haproxy.log")

    def __enter__(self):
        with open(self.log_path, "w", encoding="utf-8") as log:
            self.process = subprocess.Popen(["haproxy", "-db", "-f", self.path], pass_fds=[self.listener.fileno()],
                                            stderr=log, stdout=log)
        self.listener.close()
        return self

    def __exit__(self, *_):
        if self.process.poll() is None:
            self.wait_for("FRONTEND", scur="0")    # what is logged is logged then
            self.dropped = int(re.search(r"DroppedLogs: (\d+)", self.ask("show info"))[1])
        self.process.kill()
        _, _, used = os.wait4(self.process.pid, 0)
        self.process.returncode = -signal.SIGKILL
        self.processor_time = used.ru_utime + used.ru_stime
        self.log = pathlib.Path(self.log_path).read_text(encoding="utf-8")

    def states(self):
        """How connections that brought the client nothing ended, from the log: two letters and how often."""
        return collections.Counter(re.findall(r" 0 ([A-Za-z-]{2}) \d+/\d+/\d+/\d+/\+?\d+ ", self.log))

    def ask(self, command):
        with socket.socket(socket.AF_UNIX) as admin:
            admin.settimeout(PATIENCE)
            admin.connect(self.socket_path)
            admin.sendall(command.encode() + b"\n")
            return b"".join(iter(lambda: admin.recv(65536), b"")).decode()

    def server(self, name):
        """The statistics of a server, or of the FRONTEND."""
        rows = csv.DictReader(self.ask("show stat").lstrip("# ").splitlines())
        return next(row for row in rows if row["svname"] == name)

    def wait_for(self, name, **values):
        """Until the statistics of a server are these."""
        end, row = time.monotonic() + PATIENCE, {}
        while time.monotonic() < end and self.process.poll() is None:
            with contextlib.suppress(OSError):    # it has not begun yet
                row = self.server(name)
                if all(re.fullmatch(value, row[key]) for key, value in values.items()):
                    return
        raise AssertionError(f"{name} is not {values}: {row} {pathlib.Path(self.log_path).read_text(encoding='utf-8')}")

    def wait_up(self, *names):
        for name in names:
            self.wait_for(name, status="UP", check_status="L7OK")


class BalancerTest(CallTest):
    """Three servers behind a balancer."""

    def setUp(self):
        super().setUp()
        self.stack = self.enterContext(contextlib.ExitStack())
        self.ended = []    # servers that are over

    def start(self, *replacements, options=((), (), ())):
        self.servers = [self.stack.enter_context(self.make_server(*more)) for more in options]
        ports = [server.port for server in self.servers]
        self.balancer = self.stack.enter_context(Balancer(self.dir, ports, *replacements))
        self.balancer.wait_up("s1", "s2", "s3")
        self.client = self.config(self.balancer.port)

    def make_server(self, *more):
        return self.echo("--threads", "1", *more)

    def restart(self, number):
        """Another server in the place of one that is over."""
        self.servers[number] = self.stack.enter_context(self.make_server("--port", self.servers[number].port))

    def stop(self, number, how):
        """Ends a server; its log is then there."""
        server = self.servers[number]
        server.send_signal(how)
        server.process.wait(timeout=PATIENCE)
        self.ended.append(server)

    def finish(self):
        """Ends the balancer and the servers; returns how many calls the servers answered."""
        self.stack.close()
        servers = {id(server): server for server in [*self.servers, *self.ended]}.values()
        return sum(len(re.findall(r" service=1201 .* result=ok\n", server.log)) for server in servers)

    def assert_failed(self, load, pattern, least=0, most=None):
        """Only so many calls failed, and all with this outcome."""
        self.assertEqual(load.status, 0)
        for text in load.failed:
            self.assertRegex(text, rf"\A(?:{pattern})\Z")
        count = sum(load.failed.values())
        self.assertGreaterEqual(count, least, load.outcomes)
        self.assertLessEqual(count, count if most is None else most, load.outcomes)
        return count

    def tell(self, what, load, executed=None):
        """A line of figures for docs/load-balancer.md."""
        ok, failed = load.outcomes.get("ok", 0), sum(load.failed.values())
        print(f"{what}: {ok} good, {failed} failed {load.failed or ''}, longest {load.longest} ms" +
              (f", {executed} answered by servers" if executed is not None else ""), file=sys.stderr)


class ConfigurationTest(BalancerTest):
    def test_the_example_is_valid_as_it_stands(self):
        result = subprocess.run(["haproxy", "-c", "-f", SOURCE / "examples" / "haproxy" / "haproxy.cfg"],
                                capture_output=True, text=True, check=False)
        self.assertEqual((result.returncode, result.stdout, result.stderr), (0, "Configuration file is valid\n", ""))

    def test_the_health_check_is_a_packet_and_gets_one(self):
        data = bytes.fromhex(re.search(r"send-binary ([0-9a-f]+)\n", CONFIG)[1])
        self.assertEqual(data, packet(b"", service=0, message=0, key=b" " * 20, time=data[40:55]))
        self.assertRegex(data[40:55], rb"\A\d{8}-\d{6}\Z")
        with self.echo() as server:
            reply = server.ask(data)
        self.assertEqual((reply.service, reply.message), (0, 10))
        self.assertIsInstance(reply, Reply)

    def test_what_does_not_speak_the_protocol_is_down(self):
        """Ports where somebody says nothing, where somebody says something else, and where nobody listens."""
        with socket.create_server(("127.0.0.1", 0)) as silent, socket.create_server(("127.0.0.1", 0)) as other, \
             socket.create_server(("127.0.0.1", 0)) as closed:
            ports = [listener.getsockname()[1] for listener in (silent, other, closed)]
            closed.close()
            other.settimeout(PATIENCE)
            with Balancer(self.dir, ports) as balancer:
                for _ in range(2):
                    with contextlib.closing(other.accept()[0]) as sock:
                        sock.sendall(b"XYZ-SSP-V2.0" + b"0" * 119)
                balancer.wait_for("s3", status="DOWN", check_status="L4CON")
                balancer.wait_for("s2", status="DOWN", check_status="L7.*")
                balancer.wait_for("s1", status="DOWN", check_status="L7TOUT")


class LoadTest(BalancerTest):
    def test_a_reply_of_another_call_would_be_noticed(self):
        self.write("replies/1201.xml", '<msg no="3" type="name"><code>0-0;</code><count>{{tag:count}}</count></msg>')
        with Server("--dictionary", self.dictionary, "--replies", self.path("replies")) as server:
            with Load(self.config(server.port), threads=1) as load:
                load.more(100)
        self.assertEqual(load.outcomes.pop("ok"), 1)    # the first call's own value
        self.assertEqual(set(load.outcomes), {"mixed up: another's value"})

    def test_every_reply_is_to_its_own_request(self):
        self.start()
        with Load(self.client) as load:
            load.more(6000)
        shares = [int(self.balancer.server(name)["stot"]) for name in ("s1", "s2", "s3")]
        executed = self.finish()
        self.assert_failed(load, "", most=0)
        self.assertEqual(executed, load.outcomes["ok"])
        self.assertGreater(min(shares), executed // 10)
        self.tell("steady", load, executed)
        print(f"  processor time a call: client {load.cost:.0f} us, HAProxy "
              f"{self.balancer.processor_time / executed * 1e6:.0f} us", file=sys.stderr)

    def test_draining_and_restarting_lose_no_call(self):
        self.start()
        with Load(self.client) as load:
            for number, name in enumerate(("s1", "s2", "s3")):    # a new version of all servers, one after the other
                load.more(500)
                self.balancer.ask(f"set server servers/{name} state drain")
                self.balancer.wait_for(name, scur="0", status="DRAIN.*")
                self.stop(number, signal.SIGTERM)
                load.more(500)
                self.restart(number)
                self.balancer.ask(f"set server servers/{name} state ready")
                self.balancer.wait_up(name)
                before = self.balancer.server(name)["stot"]
                while self.balancer.server(name)["stot"] == before:    # it gets calls again
                    load.more(100)
        executed = self.finish()
        self.assert_failed(load, "", most=0)
        self.assertEqual(executed, load.outcomes["ok"])
        self.tell("drained and restarted, each server once", load, executed)

    def assert_logged(self, failed, *ways):
        """HAProxy's log has the failed calls, ended in one of these ways, but for lines that HAProxy counts as dropped: its
        threads do not wait long for each other to write."""
        states = self.balancer.states()
        self.assertLessEqual(set(states), set(ways))
        self.assertLessEqual(sum(states.values()), failed, states)
        self.assertGreaterEqual(sum(states.values()), failed - self.balancer.dropped, states)

    def lose(self, how, what, unlogged=0):
        """One server after the other goes without draining, and comes again. So many calls are answered, but not in the
        servers' logs."""
        self.start()
        with Load(self.client) as load:
            for number, name in enumerate(("s1", "s2", "s3")):
                load.more(500)
                self.stop(number, how)
                load.more(500)
                self.balancer.wait_for(name, status="DOWN")
                load.more(500)
                self.restart(number)
                self.balancer.wait_up(name)
        executed = self.finish()
        failed = self.assert_failed(load, CLOSED, most=3 * THREADS)    # those that were under way
        self.assertGreaterEqual(executed, load.outcomes["ok"] - unlogged)
        self.assertLessEqual(executed, load.outcomes["ok"] + failed)
        self.assert_logged(failed, "SD", "--", "SC")    # it died in the call, closed in it, or before it
        self.tell(what, load, executed)

    def test_a_kill_costs_the_calls_under_way(self):
        self.lose(signal.SIGKILL, "kill -9, each server once", unlogged=3)    # by each server's one thread

    def test_a_stop_without_draining(self):
        self.lose(signal.SIGTERM, "SIGTERM without draining, each server once")

    def test_all_servers_gone_and_back(self):
        self.start()
        for number in range(3):
            self.stop(number, signal.SIGTERM)
        for name in ("s1", "s2", "s3"):
            self.balancer.wait_for(name, status="DOWN")
        with Load(self.client) as nobody:
            nobody.more(500)
        for number in range(3):
            self.restart(number)
        self.balancer.wait_up("s1", "s2", "s3")
        with Load(self.client) as load:
            load.more(500)
        executed = self.finish()
        self.assertEqual(sum(nobody.failed.values()), self.assert_failed(nobody, GONE))
        self.assertEqual(nobody.outcomes.get("ok"), None)
        self.assert_logged(sum(nobody.failed.values()), "SC")
        self.assert_failed(load, "", most=0)
        self.assertEqual(executed, load.outcomes["ok"])
        self.tell("all servers gone", nobody)

    def test_a_slow_server_gets_fewer_calls(self):
        self.start(options=(("--delay", "100"), (), ()))
        with Load(self.client) as load:
            load.more(3000)
        slow, *fast = (int(self.balancer.server(name)["stot"]) for name in ("s1", "s2", "s3"))
        executed = self.finish()
        self.assert_failed(load, "", most=0)
        self.assertEqual(executed, load.outcomes["ok"])
        self.assertLess(slow, min(fast))
        self.tell(f"one of three answers after 100 ms ({slow} calls of {slow + sum(fast)})", load, executed)

    def test_a_frozen_server_costs_time_outs_until_it_is_down(self):
        self.start()
        with Load(self.client, deadline=5000) as load:
            load.more(500)
            os.kill(self.servers[0].process.pid, signal.SIGSTOP)
            self.balancer.wait_for("s1", status="DOWN")
            load.more(500)
        with Load(self.client, deadline=5000) as without:
            without.more(500)
        os.kill(self.servers[0].process.pid, signal.SIGCONT)
        self.balancer.wait_up("s1")
        with Load(self.client) as again:
            again.more(1000)
        executed = self.finish()
        failed = self.assert_failed(load, TIMEOUT.replace(r"\d+", "5000"), least=1, most=4 * THREADS)
        self.assert_failed(without, "", most=0)
        self.assert_failed(again, "", most=0)
        good = sum(each.outcomes["ok"] for each in (load, without, again))
        self.assertLessEqual(good, executed)
        self.assertLessEqual(executed, good + failed)
        self.tell("a server frozen", load)

    def test_calls_that_find_no_place(self):
        """Those that wait too long for one are closed."""
        self.start(("maxconn 2000", "maxconn 1"), ("timeout queue 2s", "timeout queue 200ms"),
                   options=[("--delay", "500")] * 3)
        with Load(self.client) as load:
            load.more(100)
        executed = self.finish()
        self.assert_failed(load, GONE, least=1)
        self.assertGreaterEqual(load.outcomes["ok"], 3)
        self.assertEqual(executed, load.outcomes["ok"])
        self.assert_logged(sum(load.failed.values()), "sQ")
        self.tell("three places for 16 threads, 500 ms a call, queue of 200 ms", load, executed)

    def test_a_balancer_that_gives_up_before_the_client_hides_the_reason(self):
        self.start(("timeout server 120s", "timeout server 200ms"), options=[("--delay", "500")] * 3)
        with Load(self.client) as load:
            load.more(100)
        self.finish()
        self.assert_failed(load, CLOSED, least=100)
        self.assert_logged(sum(load.failed.values()), "sD")
        self.tell("time-out of the balancer below the service's time", load)


if __name__ == "__main__":
    unittest.main()
