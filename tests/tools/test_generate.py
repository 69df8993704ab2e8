"""callorv generate: the classes as text, compiled, and in a call; and callorv_generate() of CMake."""
import json
import os
import pathlib
import subprocess
import time
import unittest

from support import ToolTest, run

HERE = pathlib.Path(__file__).resolve().parent / "generated"
DICTIONARY = HERE / "dictionary.xml"
SOURCE = HERE.parent.parent.parent
COMPILER = os.environ["CALLORV_CXX"].split()
LEFT_OUT = 'callorv: warning: message 5: tag 15 "lost" is left out: message 999 is not in the dictionary\n'


def files(path):
    return {p.name: p.read_bytes() for p in pathlib.Path(path).iterdir()}


class GenerateTest(ToolTest):
    def generate(self, *options, dictionary=DICTIONARY, to="out"):
        return run("generate", dictionary, "-o", self.path(to), *options)

    def test_the_output_is_the_golden_one(self):
        self.assert_run(self.generate(), 0, f"12 classes in {self.path('out')}, 12 headers changed\n", LEFT_OUT)
        written, golden = files(self.path("out")), files(HERE / "golden")
        self.assertEqual(sorted(written), sorted(golden))
        for name, text in golden.items():
            with self.subTest(name):
                self.assertEqual(written[name].decode(), text.decode())

    def test_an_encrypted_dictionary_gives_the_same(self):
        secret = self.path("d.exml")
        run("dict", "encrypt", DICTIONARY, secret)
        self.assert_run(self.generate(dictionary=secret), 0, err=LEFT_OUT)
        self.assertEqual(files(self.path("out")), files(HERE / "golden"))

    def test_a_header_that_would_not_change_is_left_alone(self):
        self.generate()
        for path in pathlib.Path(self.path("out")).iterdir():
            os.utime(path, (1, 1))
        self.write("out/left_msg.h", "changed")
        os.remove(self.path("out/node_msg.h"))
        self.assert_run(self.generate(), 0, f"12 classes in {self.path('out')}, 2 headers changed\n", LEFT_OUT)
        self.assertEqual(files(self.path("out")), files(HERE / "golden"))
        old = [p.name for p in pathlib.Path(self.path("out")).iterdir() if p.stat().st_mtime == 1]
        self.assertEqual(len(old), 10)

    def test_chosen_messages_bring_what_they_hold(self):
        self.assert_run(self.generate("--message", 2), 0, f"2 classes in {self.path('out')}, 2 headers changed\n", "")
        self.assertEqual(sorted(files(self.path("out"))), ["left_msg.h", "right_msg.h"])
        self.assert_run(self.generate("--message", 9, "--message", 4, to="more"), 0, err="")
        self.assertEqual(sorted(files(self.path("more"))),
                         ["every_msg.h", "msg_base_msg.h", "node_msg.h", "string_msg.h"])
        # names do not depend on the choice
        self.generate("--message", 6, to="one")
        self.assertEqual(list(files(self.path("one"))), ["quote_row_6_msg.h"])

    def test_what_can_be_made_again_is_not_waited_for(self):
        seen = self.path("calls")
        subprocess.run(["strace", "-f", "-o", seen, "-e", "trace=fsync,fdatasync,sync,syncfs,rename", os.environ["CALLORV"],
                        "generate", DICTIONARY, "-o", self.path("out")], check=True, capture_output=True, timeout=60,
                       env={**os.environ, "LSAN_OPTIONS": "detect_leaks=0"})    # which cannot be traced
        text = self.read("calls").decode()
        self.assertEqual((text.count("rename("), text.count("sync")), (12, 0), text)

    def test_the_directory_is_made(self):
        self.assert_run(self.generate("--message", 6, to="some/new/place"), 0,
                        f"1 class in {self.path('some/new/place')}, 1 header changed\n", "")

    def test_json(self):
        result = self.generate("--json", "--message", 5)
        self.assert_run(result, 0, err=LEFT_OUT)
        self.assertEqual(json.loads(result.stdout)["classes"], [
            {"message": 1, "class": "msgs::CNode", "file": self.path("out/node_msg.h"), "written": True,
             "left_out": []},
            {"message": 5, "class": "msgs::COdd_names", "file": self.path("out/odd_names_msg.h"), "written": True,
             "left_out": ['tag 15 "lost" is left out: message 999 is not in the dictionary']}])

    def test_a_name_space_of_ones_own(self):
        self.assert_run(self.generate("--namespace", "shop::wire", "--message", 3), 0, err="")
        text = self.read("out/right_msg.h").decode()
        self.assertIn("#ifndef SHOP_WIRE_RIGHT_MSG_H\n", text)
        self.assertIn("\nnamespace shop { namespace wire {\n", text)
        self.assertIn("  ::std::vector< ::shop::wire::CLeft> lefts;", text)
        self.assertIn("\n} }    // namespace shop::wire\n", text)
        self.compile("out", "-std=c++11")

    def compile(self, folder, *options):
        """All headers together; in C++11 also in the other order and each alone."""
        names = sorted(p.name for p in pathlib.Path(self.path(folder)).glob("*.h"))
        more = [names[::-1], *([name] for name in names)] if "-std=c++11" in options else []
        for headers in [names, *more]:
            self.write("alone.cpp", "".join(f'#include "{h}"\n' for h in headers) +
                       "int main() { return sizeof(CMsgBase) == 0; }\n")
            result = subprocess.run([*COMPILER, *options, "-Wall", "-Wextra", "-Wshadow", "-pedantic", "-Werror",
                                     f"-I{SOURCE}/include", f"-I{folder}", "-c", "alone.cpp"],
                                    cwd=self.dir, capture_output=True, text=True, timeout=120, check=False)
            self.assertEqual((result.returncode, result.stderr), (0, ""), headers)

    def test_each_header_compiles_alone_without_a_warning(self):
        self.generate()
        for standard in ("c++11", "gnu++11", "c++20"):
            with self.subTest(standard):
                self.compile("out", f"-std={standard}")

    def test_a_call_with_the_classes(self):
        self.assert_run(self.run_with_echo(os.environ["GENERATED_CLIENT"], DICTIONARY), 0, "0 CCallOrvError: \ntext 7 20260131 1 200 label, ratio absent\n", "")

    def test_failures(self):
        self.assert_run(self.generate("--message", 77), 1, "", "callorv: message 77 is not in the dictionary\n")
        self.assertFalse(os.path.exists(self.path("out")))
        self.assert_run(self.generate(to="dictionary.xml"), 1, "",
                        f"callorv: {self.path('dictionary.xml')}: Not a directory\n")
        self.assert_run(self.generate(to="dictionary.xml/out"), 1, "",
                        f"callorv: {self.path('dictionary.xml/out')}: Not a directory\n")
        bad = self.write("bad.xml", "<msg_dictionary><msg no='0'/></msg_dictionary>")
        self.assert_run(self.generate(dictionary=bad), 1, "",
                        f"callorv: {bad}: the library says: InitDictionary(Handler error : msgnum=0); "
                        "callorv dict check says everything\n")

    def test_wrong_usage(self):
        for name in ("1a", "a::", "::a", "a b", "class", "a::int", "_a", "a__b", "a:b"):
            with self.subTest(name):
                self.assert_usage("generate", self.generate("--namespace=" + name),
                                  f"--namespace: '{name}' is no name for a name space")
        self.assert_usage("generate", run("generate"), "DICTIONARY is required")
        self.assert_usage("generate", run("generate", DICTIONARY), "--output is required")
        self.assert_usage("generate", self.generate("--message", "x"), "--message: Value x not in range 1 to 9999")
        self.assert_usage("generate", self.generate("--message", "1", "2"),
                          "unexpected argument '2'")

    def test_help_teaches_by_example(self):
        result = run("generate", "--help")
        self.assert_run(result, 0, err="")
        self.assertIn("Examples:\n  callorv generate ", result.stdout.decode())


class CMakeTest(ToolTest):
    """A project of its own that uses cmake/callorv-generate.cmake; it need not run to see what is compiled."""

    PROJECT = f"""
cmake_minimum_required(VERSION 3.19)
project(user LANGUAGES CXX)
include({SOURCE}/cmake/callorv-generate.cmake)
add_executable(user main.cpp)
target_include_directories(user PRIVATE {SOURCE}/include)
target_compile_features(user PRIVATE cxx_std_11)
callorv_generate(user dic/messages.xml MESSAGES 2 NAMESPACE shop)
target_sources(user PRIVATE later.cpp)
"""

    def setUp(self):
        super().setUp()
        self.write("user/CMakeLists.txt", self.PROJECT)
        self.write("user/main.cpp", '#include "left_msg.h"\nint main() { return sizeof(shop::CLeft) == 0; }\n')
        self.write("user/later.cpp", "#include <right_msg.h>\nint Value() { return shop::CRight::MSG_NUM; }\n")
        self.write("user/dic/messages.xml", DICTIONARY.read_bytes())

    def cmake(self, *args, **kwargs):
        return subprocess.run(["cmake", *args], cwd=self.dir, capture_output=True, text=True, timeout=200, check=False,
                              env={**os.environ, "CXX": COMPILER[-1]}, **kwargs)

    def configure(self):
        return self.cmake("-S", "user", "-B", "build", f"-DCALLORV_COMMAND={os.environ['CALLORV']}",
                          "-DCMAKE_EXE_LINKER_FLAGS=-Wl,--unresolved-symbols=ignore-all")

    def build(self):
        result = self.cmake("--build", "build")
        self.assertEqual(result.returncode, 0, result.stdout + result.stderr)
        return result.stdout

    def test_headers_come_before_and_with_the_sources(self):
        result = self.configure()
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertIn("Generating the messages of user", self.build())
        self.assertEqual(sorted(files(self.path("build/user_messages"))), ["left_msg.h", "right_msg.h"])
        self.assertNotIn("Building", self.build())
        text = self.read("user/dic/messages.xml").decode("latin-1")
        self.write("user/dic/messages.xml", text.replace('name="value"', 'name="amount"').encode("latin-1"))
        later = time.time() + 10    # newer than what was just built
        os.utime(self.path("user/dic/messages.xml"), (later, later))
        out = self.build()
        self.assertIn("main.cpp.o", out)
        self.assertIn("later.cpp.o", out)
        self.assertIn("::CInt amount;", self.read("build/user_messages/right_msg.h").decode())

    def test_wrong_arguments(self):
        for call, text in (("callorv_generate(user dic/messages.xml NONSENSE)", "wrong arguments: NONSENSE"),
                           ("callorv_generate(user dic/messages.xml MESSAGES 2 NAMESPACE)",
                            "wrong arguments: NAMESPACE")):
            with self.subTest(call):
                self.write("user/CMakeLists.txt", self.PROJECT + call + "\n")
                result = self.configure()
                self.assertEqual(result.returncode, 1)
                self.assertIn("callorv_generate: " + text, result.stderr)
        self.write("user/CMakeLists.txt", self.PROJECT + "callorv_generate(user dic/messages.xml LANGUAGE python)\n")
        self.assertIn("callorv_generate: LANGUAGE is c++ or c, not python", self.configure().stderr)
        self.write("user/sub/CMakeLists.txt", "callorv_generate(user ../dic/messages.xml)\n")
        self.write("user/CMakeLists.txt", self.PROJECT + "add_subdirectory(sub)\n")
        self.assertIn("callorv_generate: target user is not made in this directory", self.configure().stderr)

    def test_a_dictionary_that_does_not_load_stops_the_build(self):
        self.write("user/dic/messages.xml", "<nothing/>")
        self.assertEqual(self.configure().returncode, 0)
        result = self.cmake("--build", "build")
        self.assertNotEqual(result.returncode, 0)
        self.assertIn("Unknown root element - nothing", result.stdout + result.stderr)


if __name__ == "__main__":
    unittest.main()
