#!/usr/bin/env python3
"""scripts/find_key.py sees a key wherever it can be read in a package, a log or a program's debug information."""
import gzip
import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

KEY = "3f9aC1d07b5e428896f1E2a4d3c0b719"
RAW = bytes.fromhex(KEY)
FIND = pathlib.Path(__file__).resolve().parents[2] / "scripts/find_key.py"


class FindKey(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.work = pathlib.Path(folder.name)
        self.write("key", KEY.encode() + b"\n")

    def write(self, name, data):
        path = self.work / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(data)
        return path

    def found(self, *paths, status):
        done = subprocess.run([sys.executable, FIND, self.work / "key", *paths], text=True, stdout=subprocess.PIPE,
                              check=False)
        self.assertEqual(done.returncode, status)
        return done.stdout.replace(f"{self.work}/", "")

    def package(self, name, data):
        self.write("tree/DEBIAN/control", b"Package: p\nVersion: 1\nArchitecture: all\nMaintainer: x <x@callorv.invalid>\n"
                                          b"Description: p\n")
        self.write(f"tree/{name}", data)
        subprocess.run(["dpkg-deb", "--build", self.work / "tree", self.work / "p.deb"], check=True,
                       stdout=subprocess.DEVNULL)
        return self.work / "p.deb"

    def test_where_it_is_not(self):
        log = self.write("build.log", KEY[1:].encode() + RAW[1:])
        self.assertEqual(self.found(log, self.package("usr/x", b"x" + RAW[:15]), status=0),
                         "3 files searched for the SEED key\n")

    def test_in_a_log(self):
        for text in (KEY, KEY.upper(), KEY.lower()):
            log = self.write("build.log", b"c++ -DKEY=" + text.encode() + b" x.cpp\n")
            self.assertEqual(self.found(log, status=1),
                             "build.log: the SEED key as text\n1 files searched for the SEED key\n")

    def test_in_a_package(self):
        self.assertEqual(self.found(self.package("usr/x", b"x" + RAW), status=1),
                         "p.deb: /usr/x: the SEED key as bytes\n2 files searched for the SEED key\n")

    def test_compressed_in_a_package(self):
        self.assertEqual(self.found(self.package("usr/x.gz", gzip.compress(KEY.encode())), status=1),
                         "p.deb: /usr/x.gz: the SEED key as text\n2 files searched for the SEED key\n")

    def test_in_compressed_debug_information(self):
        self.write("key.cpp", f'#define SEED "{KEY}" {"/**/ SEED_" * 200}\nint i;\n'.encode())
        subprocess.run([os.environ["CXX"], *os.environ["CXXFLAGS"].split(), "-g3", "-gz", "-c", "key.cpp"], check=True,
                       cwd=self.work)
        self.assertNotIn(KEY.encode(), (self.work / "key.o").read_bytes())
        self.assertIn("key.o: the SEED key as text\n", self.found(self.work / "key.o", status=1))

    def test_without_a_key(self):
        self.write("key", b"")
        self.found(status=1)


if __name__ == "__main__":
    unittest.main()
