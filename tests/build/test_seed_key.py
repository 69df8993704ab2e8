#!/usr/bin/env python3
"""The SEED key of a build: from an option or from a file, one of the two, and never in what is said or logged."""
import os
import pathlib
import subprocess
import tempfile
import unittest

KEY = "3f9aC1d07b5e428896f1E2a4d3c0b719"
DEVELOPMENT = "43616c6c4f7276446576656c6f706d65"


class SeedKey(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory()
        cls.work = pathlib.Path(cls.folder.name)
        cls.build = cls.work / "build"
        cls.key = cls.write(KEY + "\n")

    @classmethod
    def tearDownClass(cls):
        cls.folder.cleanup()

    @classmethod
    def write(cls, text):
        path = cls.work / "seed.key"
        path.write_bytes(text.encode("latin-1"))
        return path

    def cmake(self, *arguments):
        """The exit status and what was said, in lines that no terminal has broken."""
        done = subprocess.run([os.environ["CMAKE_COMMAND"], *map(str, arguments)], cwd=self.work, text=True,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)
        return done.returncode, " ".join(done.stdout.split()), done.stdout

    def configure(self, *options):
        return self.cmake("-S", os.environ["SOURCES"], "-B", self.build, "-UCALLORV_SEED_KEY*", "-DCALLORV_TESTS=OFF",
                          "-DCALLORV_TOOLS=OFF", "-DCALLORV_EXAMPLES=OFF", *options)[:2]

    def refused(self, text, *options):
        status, said = self.configure(*options)
        self.assertEqual(status, 1)
        self.assertIn(text, said)
        self.assertNotIn(KEY, said)

    def object(self, *options):
        """The compiled key, the log of the build, and its files."""
        status, configured = self.configure(*options)
        self.assertEqual(status, 0, configured)
        status, _, log = self.cmake("--build", self.build, "--verbose", "--target", "callorv_crypt")
        self.assertEqual(status, 0, log)
        files = {p: p.read_bytes() for p in self.build.rglob("*") if p.is_file()}
        (compiled,) = [data for path, data in files.items() if path.name == "seed_key.cpp.o"]
        return compiled, configured + log, files

    def test_a_file_and_the_option_give_the_same_library(self):
        by_default, said, _ = self.object()
        self.assertIn("SEED key: development default, readable by anybody", said)
        by_option, said, _ = self.object(f"-DCALLORV_SEED_KEY={KEY}")
        self.assertIn("SEED key: set by CALLORV_SEED_KEY", said)
        by_file, said, _ = self.object("-DCALLORV_SEED_KEY_FILE=seed.key")
        self.assertIn("SEED key: read from CALLORV_SEED_KEY_FILE", said)
        self.assertEqual(by_option, by_file)
        self.assertNotEqual(by_default, by_file)
        self.write(DEVELOPMENT + "\n")              # a file that changes is noticed without being named again
        self.assertEqual(self.cmake("--build", self.build, "--target", "callorv_crypt")[0], 0)
        (compiled,) = self.build.rglob("seed_key.cpp.o")
        self.assertEqual(compiled.read_bytes(), by_default)
        self.write(KEY + "\n")

    def test_a_key_from_a_file_stands_in_one_header_that_only_its_owner_can_reach(self):
        _, log, files = self.object(f"-DCALLORV_SEED_KEY_FILE={self.key}")
        self.assertIn("seed_key.cpp", log)          # so the command that compiles it is there
        raw, texts = bytes.fromhex(KEY), (KEY.lower().encode(), KEY.encode().hex().encode())
        self.assertFalse(any(text in log.lower().encode() for text in texts))
        found = [path for path, data in files.items() if raw in data or any(text in data.lower() for text in texts)]
        self.assertEqual([path.name for path in found], ["seed_key_value.h"])
        self.assertEqual(found[0].parent.stat().st_mode & 0o777, 0o700)

    def test_one_of_the_two_is_given(self):
        text = "Give CALLORV_SEED_KEY or CALLORV_SEED_KEY_FILE, not both"
        for key in (KEY, DEVELOPMENT, ""):
            self.refused(text, f"-DCALLORV_SEED_KEY_FILE={self.key}", f"-DCALLORV_SEED_KEY={key}")

    def test_an_option_that_is_empty_is_refused(self):
        self.refused("CALLORV_SEED_KEY must be 32 hexadecimal digits", "-DCALLORV_SEED_KEY=")
        self.refused("CALLORV_SEED_KEY_FILE: there is no file", "-DCALLORV_SEED_KEY_FILE=")

    def test_a_file_that_is_missing_or_a_folder_is_named(self):
        for name in ("nothing.key", "."):
            path = self.work.resolve() if name == "." else self.work.resolve() / name
            self.refused(f"CALLORV_SEED_KEY_FILE: there is no file {path}", f"-DCALLORV_SEED_KEY_FILE={name}")

    def test_a_file_in_another_form_is_refused(self):
        for text in ("", "\n", KEY, KEY + " ", KEY + "\r\n", KEY + "\n\n", " " + KEY + "\n", KEY[1:] + "\n",
                     "0" + KEY + "\n", "0x" + KEY[2:] + "\n", KEY[:31] + "g\n", KEY[:31] + ";\n", KEY[:31] + "\0\n",
                     KEY[:31] + "\n\n", KEY + "\0", "\xef\xbb\xbf" + KEY + "\n"):
            with self.subTest(text=text):
                self.write(text)
                self.refused("CALLORV_SEED_KEY_FILE must hold 32 hexadecimal digits and a line end: "
                             f"{self.work.resolve()}/seed.key", "-DCALLORV_SEED_KEY_FILE=seed.key")
        self.write(KEY + "\n")


if __name__ == "__main__":
    unittest.main()
