#!/usr/bin/env python3
"""The checks of the binary interface notice what breaks programs, and nothing else."""
import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

HERE = pathlib.Path(__file__).resolve().parent
HEADER = """// A header.
#define CALLORV_API __attribute__((visibility("default")))
#define CALLORV_LIMIT(a) ((a) + 1)
enum E_Code { CODE_OK = 0, CODE_BAD = -1, CODE_WORSE };
class CALLORV_API CThing {
 public:
  enum { SIZE = 4, TWICE };
  CThing() : m_i(0) {}    // ready
  virtual ~CThing();
  virtual int First(int p_i);
  int Get() const { return m_i; }
  template <class T>
  T As() const {
    if (m_i > SIZE) { return T(); }
    return T(m_i);
  }

 private:
  int m_i;
};
"""
SOURCE = '#include "thing.h"\nCThing::~CThing() {}\nint CThing::First(int p_i) { return m_i + static_cast<int>(p_i); }\n'


class Checks(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.work = pathlib.Path(folder.name)

    def write(self, folder, header):
        path = self.work / folder / "include/thing.h"
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(header, encoding="ascii")
        return path.parent

    def changed(self, *replacements):
        header = HEADER
        for old, new in replacements:
            self.assertEqual(header.count(old), 1)
            header = header.replace(old, new)
        return header

    def run_check(self, *command):
        done = subprocess.run([sys.executable, "-B", *command], stdout=subprocess.PIPE, text=True, check=False)
        return done.returncode, done.stdout


class Headers(Checks):
    def headers(self, *replacements):
        return self.run_check(HERE / "check_headers.py", self.write("then", HEADER),
                              self.write("now", self.changed(*replacements)))

    def test_headers_that_are_the_same(self):
        for replacements in ((), (("// ready", "/* as new */"),), ((" : m_i(0) {}", " :  m_i(0)\n  {\n  }"),)):
            self.assertEqual(self.headers(*replacements), (0, "10 enumerators, macros and inline functions recorded, 0 changed\n"))

    def test_headers_that_have_more(self):
        more = (("CODE_WORSE }", "CODE_WORSE, CODE_NEW }"), ("int First(int p_i);", "int First(int p_i);\n  int Two() { return 2; }"))
        self.assertEqual(self.headers(*more)[0], 0)

    def test_headers_that_break_programs(self):
        for old, new, text in (
                ("((a) + 1)", "((a) + 2)", "macro CALLORV_LIMIT(a): was { ((a) + 1) }, is { ((a) + 2) }\n"),
                ("#define CALLORV_LIMIT(a) ((a) + 1)", "", "macro CALLORV_LIMIT(a): is gone; perhaps ['macro CALLORV_API'] now\n"),
                ("CODE_BAD = -1, ", "CODE_BAD = -1, CODE_NEW, ", "enumerator CODE_WORSE: was { 0 + 0 }, is { 1 + 0 }\n"),
                ("SIZE = 4", "SIZE = 5", "enumerator CThing::SIZE: was { 4 + 0 }, is { 5 + 0 }\n"),
                ("return m_i; }", "return m_i + 1; }",
                 "inline CThing:: int Get() const: was { return m_i; }, is { return m_i + 1; }\n"),
                ("m_i > SIZE", "m_i >= SIZE", "inline CThing:: template <class T> T As() const: was { "),
                ("int Get() const {", "long Get() const {", "inline CThing:: int Get() const: is gone; perhaps "
                 "['inline CThing:: long Get() const'] now\n")):
            with self.subTest(new=new):
                status, said = self.headers((old, new))
                self.assertEqual(status, 1)
                self.assertIn(text, said)


class Libraries(Checks):
    def library(self, folder, header, source=SOURCE):
        include = self.write(folder, header)
        (self.work / folder / "thing.cpp").write_text(source, encoding="ascii")
        subprocess.run([os.environ["CXX"], *os.environ["CXXFLAGS"].split(), "-g", "-O1", "-shared", "-fPIC",
                        "-fvisibility=hidden", f"-I{include}", "thing.cpp", "-o", "libthing.so"],
                       cwd=self.work / folder, check=True)
        return "--headers", include, self.work / folder / "libthing.so"

    def test_what_breaks_programs_and_what_does_not(self):
        record = self.work / "thing.abi.xz"
        self.assertEqual(self.run_check(HERE / "check_abi.py", "--update", *self.library("then", HEADER), record)[0], 0)
        more = SOURCE + '__attribute__((visibility("default"))) int Added() { return 1; }\n'
        for status, header, source in (
                (0, "\n\n" + HEADER, SOURCE),
                (0, HEADER, more),
                (12, self.changed(("  virtual int First", "  virtual int Zeroth() { return 0; }\n  virtual int First")), SOURCE),
                (4, self.changed(("  int m_i;", "  int m_i;\n  double m_d;")), SOURCE),
                (12, self.changed(("First(int p_i)", "First(long p_i)")), SOURCE.replace("First(int", "First(long"))):
            with self.subTest(header=header, source=source):
                self.assertEqual(self.run_check(HERE / "check_abi.py", *self.library("now", header, source), record)[0], status)


if __name__ == "__main__":
    unittest.main()
