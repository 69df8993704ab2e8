#!/usr/bin/env python3
"""The examples of calls in flight, against the command's server."""
import os
import pathlib
import subprocess
import time
import unittest

from support import Server, ToolTest, run

DATA = pathlib.Path(os.environ["EXAMPLE_DATA"])
QUOTE = (DATA / "replies/1001.xml").read_text(encoding="latin-1")


class InFlight(ToolTest):
    def example(self, name, server):
        """Runs an example; its exit status and output."""
        run("key", "make", "--user-key", "EXAMPLE", "-o", self.path("user.key"))
        config = self.write("callorv.cfg", f"msg_dic={DATA}/dictionary.xml\nkey_file={self.path('user.key')}\n"
                                           f"server=127.0.0.1 {server.port}\n")
        result = subprocess.run([os.environ[name], config], capture_output=True, timeout=60, check=False)
        return result.returncode, result.stdout.decode(), result.stderr.decode()

    def serve(self, *args, replies=DATA / "replies"):
        return Server("--dictionary", DATA / "dictionary.xml", "--replies", replies, *args)

    def test_a_page_asks_100_services_at_once(self):
        os.mkdir(self.path("replies"))
        for service in range(1001, 1101):
            self.write(f"replies/{service}.xml", QUOTE.replace("1.012500000000000e+02", f"{service}.5"))
        os.remove(self.path("replies/1044.xml"))
        with self.serve("--delay", "500", replies=self.path("replies")) as server:
            start = time.monotonic()
            status, out, err = self.example("EXAMPLE_PAGE", server)
            taken = time.monotonic() - start
        should = [f"{service}: {service}.50" for service in range(1001, 1101)]
        should[43] = "1044: 404 no reply file 1044.xml"
        self.assertEqual((status, sorted(out.splitlines()), err), (0, should, ""))
        self.assertLess(taken, 25)    # half of what they take one after the other

    def test_calls_are_watched_by_epoll(self):
        with self.serve() as server:
            self.assertEqual(self.example("EXAMPLE_WATCH", server), (0, "200 of 200 answered\n", ""))
        with self.serve("--fault", "close@50") as server:
            self.assertEqual(self.example("EXAMPLE_WATCH", server),
                             (0, "-5 Socket closed(-9)(OK)\n" * 100 + "100 of 200 answered\n", ""))

    def test_the_first_answer_wins_and_the_other_call_is_cancelled(self):
        with self.serve("--fault", "delay:60000@50") as server:
            self.assertEqual(self.example("EXAMPLE_RACE", server), (0, "101.25\n", ""))
        with self.serve("--fault", "close@50") as server:
            status, out, err = self.example("EXAMPLE_RACE", server)
        self.assertEqual((status, out.splitlines()[-1], err), (0, "101.25", ""))
        with self.serve("--fault", "stall:130") as server:
            self.assertEqual(self.example("EXAMPLE_RACE", server),
                             (1, "-5 Socket timeout(-8)((body, 3000 ms))\n" * 2, ""))

    def test_the_examples_say_what_they_lack(self):
        for name in "EXAMPLE_PAGE", "EXAMPLE_WATCH", "EXAMPLE_RACE":
            with self.subTest(name):
                for args, text in (((), "usage: "), (("/nonexistent/cfg",), "initialisation: File open failed")):
                    result = subprocess.run([os.environ[name], *args], capture_output=True, timeout=60, check=False)
                    self.assertEqual(result.returncode, 1)
                    self.assertTrue(result.stderr.decode().startswith(text), result.stderr)


if __name__ == "__main__":
    unittest.main()
