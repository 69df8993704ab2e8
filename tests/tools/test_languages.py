"""callorv generate --language: functions of C, compiled and in a call, and dataclasses of Python.

C++ is in test_generate.py, and a call from Python in bindings/python/tests."""
import json
import os
import pathlib
import subprocess
import sys
import unittest

from support import ToolTest, run

HERE = pathlib.Path(__file__).resolve().parent / "generated"
DICTIONARY = HERE / "dictionary.xml"
SOURCE = HERE.parent.parent.parent
CXX = os.environ["CALLORV_CXX"].split()
CC = [*CXX[:-1], os.environ["CALLORV_CC"]]
LOST = 'callorv: warning: message 5: tag 15 "lost" is left out: message 999 is not in the dictionary\n'
SHADOWED = ('callorv: warning: message 5: tag 10 "class" is left out: an earlier tag has its name, by which Python finds '
            'tags\n')
# Names that are made of each other's parts, that end comments, that are keywords, macros and methods, or no names at all.
CLASHES = """<msg_dictionary>
<msg no="1" name="A"><tag no="0" name="B_set_C" type="integer"/><tag no="1" name="C" type="integer"/>
  <tag no="2" name="new" type="m2"/><tag no="3" name="x_new" type="m2" array="Y"/></msg>
<msg no="2" name="A_B"><tag no="1" name="C" type="integer"/><tag no="2" name="set_C" type="integer"/></msg>
<msg no="3" name="AB"><tag no="1" name="C" type="integer"/></msg>
<msg no="4" name="a-b"><tag no="1" name="C" type="integer"/></msg>
<msg no="5" name="ABNo3"><tag no="1" name="C" type="integer"/></msg>
<msg no="6" name="A_new"><tag no="1" name="C" type="integer"/><tag no="2147483647" name="last" type="bool"/></msg>
<msg no="7" name="None"><tag no="1" name="*/ ??/" type="date" array="Y"/><tag no="2" name="/*" type="date"/></msg>
<msg no="8" name="none"/>
<msg no="9" name="*/ &quot;&quot;&quot; \\"><tag no="1" name="&quot;&quot;&quot;\\" type="string"/></msg>
<msg no="10" name=""><tag no="6" name="" type="string"/><tag no="7" name="?" type="bool"/></msg>
<msg no="11" name="restrict"><tag no="1" name="int" type="integer" array="Y"/><tag no="2" name="restrict" type="integer"/>
  <tag no="3" name="None" type="string"/><tag no="4" name="str" type="string"/><tag no="5" name="float" type="double"/>
  <tag no="6" name="bool" type="bool"/><tag no="7" name="list" type="string" array="Y"/>
  <tag no="8" name="classmethod" type="string"/><tag no="9" name="self" type="string"/>
  <tag no="10" name="cls" type="string"/><tag no="11" name="values" type="string"/><tag no="12" name="row" type="m11"/>
  <tag no="13" name="MSG_NUM" type="integer"/><tag no="14" name="to_values" type="string"/>
  <tag no="15" name="from_values" type="string"/><tag no="16" name="Restrict" type="m11" array="Y"/>
  <tag no="17" name="int_" type="integer"/><tag no="18" name="_t" type="integer"/><tag no="19" name="_datetime" type="date"/>
  <tag no="20" name="async" type="integer"/><tag no="21" name="main" type="integer"/><tag no="22" name="NULL" type="integer"/>
  <tag no="23" name="dict" type="integer"/><tag no="24" name="object" type="integer"/></msg>
<msg no="12" name="3D"><tag no="1" name="2nd" type="double"/></msg>
<msg no="13" name="M3D"/>
<msg no="14" name="MSG"><tag no="1" name="GetInt" type="integer"/></msg>
</msg_dictionary>
"""


def files(path):
    return {p.name: p.read_text(encoding="utf-8") for p in pathlib.Path(path).iterdir() if p.is_file()}


class LanguageTest(ToolTest):
    def generate(self, language, *options, dictionary=DICTIONARY, to="out"):
        return run("generate", "--language", language, dictionary, "-o", self.path(to), *options)

    def test_what_is_no_language(self):
        for language in ("java", "C", ""):
            self.assert_usage("generate", self.generate(language), f"--language: '{language}' is none of c++, c, python")
        self.assert_usage("generate", run("generate", DICTIONARY, "-o", "x", "--language"),
                          "--language needs LANGUAGE behind it")
        self.assertFalse(os.path.exists(self.path("out")))

    def test_c_plus_plus_is_the_default(self):
        self.assert_run(self.generate("c++"), 0, f"12 classes in {self.path('out')}, 12 headers changed\n", LOST)
        golden = {p.name: p.read_text(encoding="utf-8") for p in (HERE / "golden").iterdir()}
        self.assertEqual(files(self.path("out")), golden)

    def test_files_that_would_not_change_are_left_alone(self):
        for language, what, warning in (("c", "messages", LOST), ("python", "classes", LOST + SHADOWED)):
            kind = "header" if language == "c" else "module"
            to = self.path(language)
            self.assert_run(self.generate(language, to=language), 0, f"12 {what} in {to}, 12 {kind}s changed\n", warning)
            first = files(to)
            name = next(name for name in sorted(first) if name.startswith("node"))
            for path in pathlib.Path(to).iterdir():
                os.utime(path, (1, 1))
            self.write(f"{language}/{name}", "changed")
            self.assert_run(self.generate(language, to=language), 0, f"12 {what} in {to}, 1 {kind} changed\n", warning)
            self.assertEqual(files(to), first)
            self.assertEqual([p.name for p in pathlib.Path(to).iterdir() if p.stat().st_mtime != 1], [name])
            result = self.generate(language, "--message", 2, to="some")
            self.assert_run(result, 0, f"2 {what} in {self.path('some')}, 2 {kind}s changed\n", "")
        self.assertEqual(sorted(files(self.path("some"))),
                         ["__init__.py", "left_msg.py", "left_msg_c.h", "right_msg.py", "right_msg_c.h"])

    def test_thousands_of_messages(self):
        many = "".join(f"<msg no='{i}' name='M'><tag no='1' name='t' type='m{i % 9999 + 1}'/></msg>"
                       for i in range(1, 10000))
        path = self.write("many.xml", f"<msg_dictionary>{many}</msg_dictionary>")
        out = self.path("out")
        self.assert_run(self.generate("c", dictionary=path), 0, f"9999 messages in {out}, 9999 headers changed\n", "")
        self.assertEqual(len(files(out)), 9999)
        self.compile(["mno9999_msg_c.h", "mno1_msg_c.h"], [[*CC, "-std=c99"]])

    # ---- C

    def compile(self, names, compilers):
        """Each header alone, and all together."""
        every = "".join(f'#include "{name}"\n' for name in names) + "int main(void) { return 0; }\n"
        for compiler in compilers:
            suffix = "cpp" if compiler[:len(CXX)] == CXX else "c"
            for text in [every, *(f'#include "{name}"\nextern int unused;\n' for name in names)]:
                result = subprocess.run([*compiler, "-Wall", "-Wextra", "-pedantic", "-Werror", f"-I{SOURCE}/include",
                                         "-Iout", "-c", self.write(f"some.{suffix}", text)],
                                        cwd=self.dir, capture_output=True, text=True, timeout=120, check=False)
                self.assertEqual((result.returncode, result.stderr), (0, ""), [compiler, text])

    COMPILERS = [[*CC, "-std=c99"], [*CC, "-std=gnu11"], [*CXX, "-std=c++11"], [*CXX, "-std=gnu++20"]]

    def test_c_compiles_without_a_warning(self):
        self.generate("c")
        self.compile(sorted(files(self.path("out"))), self.COMPILERS)

    def test_names_that_clash_in_c(self):
        path = self.write("clashes.xml", CLASHES)
        self.assert_run(self.generate("c", "--namespace", "shop::wire", dictionary=path), 0, err="")
        text = files(self.path("out"))
        self.assertEqual(sorted(text), sorted(
            f"{name}_msg_c.h" for name in (
                "a", "abno2", "abno3_no3", "abno4", "abno3_no5", "anew", "none_msg_no7", "none_msg_no8", "msg9", "msg10",
                "restrict", "m3_dno12", "m3_dno13", "msg")))
        self.assertIn("#ifndef SHOP_WIRE_A_MSG_C_H\n", text["a_msg_c.h"])
        self.assertIn("static inline int shop_wire_A_set_B_set_C(CMsg* msg, int v) {", text["a_msg_c.h"])
        self.assertIn("  shop_wire_ANew_TAG_last = 2147483647\n", text["anew_msg_c.h"])
        self.compile(sorted(text), self.COMPILERS[::2])

    def test_a_call_from_c(self):
        self.assert_run(self.run_with_echo(os.environ["GENERATED_C_CLIENT"], DICTIONARY), 0, "0, ; first check that failed: line 0\n", "")

    def test_json_of_c(self):
        result = self.generate("c", "--json", "--message", 1)
        self.assertEqual(json.loads(result.stdout)["classes"], [
            {"message": 1, "class": "msgs_Node", "file": self.path("out/node_msg_c.h"), "written": True, "left_out": []}])
        self.assert_usage("generate", self.generate("c", "--namespace", "a b"),
                          "--namespace: 'a b' is no name for a name space")

    # ---- Python

    def python(self, text):
        """What a program prints, which sees the package out and the module callorv."""
        environment = {**os.environ, "PYTHONPATH": f"{SOURCE}/bindings/python"}
        result = subprocess.run([sys.executable, "-B", "-W", "error", "-c", text], cwd=self.dir, env=environment,
                                capture_output=True, text=True, timeout=60, check=False)
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        return result.stdout

    def test_python_values(self):
        self.assert_run(self.generate("python"), 0, err=LOST + SHADOWED)
        self.assertEqual(self.python("""
import datetime
from out.every_msg import Every
from out.node_msg import Node
every = Every(text="t", flag=False, day=datetime.date(2026, 1, 31), numbers=[1, 2], node=Node(label="x"))
every.nodes = [Node(next=Node(label="deep")), Node()]
values = every.to_values()
print({name: value for name, value in values.items() if value not in (None, [])})
again = Every.from_values(values)
print(again == every, again is every, again.numbers is every.numbers, Every.MSG_NUM)
print(Every() == Every.from_values(Every().to_values()))
try:
    Every.from_values({"text": "only"})
except KeyError as error:
    print("no", error)
"""), "{'text': 't', 'flag': False, 'day': datetime.date(2026, 1, 31), 'node': {'label': 'x', 'next': None, 'children': []}, "
      "'numbers': [1, 2], 'nodes': [{'label': None, 'next': {'label': 'deep', 'next': None, 'children': []}, 'children': []}, "
      "{'label': None, 'next': None, 'children': []}]}\nTrue False False 4\nTrue\nno 'number'\n")

    def test_python_takes_no_other_reply(self):
        self.generate("python", "--message", 2)
        self.assertEqual(self.python("""
import callorv
from out.left_msg import Left
reply = callorv.Reply({"rights": [], "mate": {"lefts": [], "value": 3}})
reply.definition = callorv.Definition(2, "Left", {})
print(Left.from_values(reply).mate)
reply.definition = callorv.Definition(10, "REJECT", {})
try:
    Left.from_values(reply)
except callorv.Error as error:
    print(error)
"""), "Right(lefts=[], value=3)\n-28 the reply is message 10, not 2\n")

    def test_names_that_clash_in_python(self):
        path = self.write("clashes.xml", CLASHES)
        self.assert_run(self.generate("python", dictionary=path), 0, err="")
        self.assertEqual(self.python("""
import dataclasses, importlib, pathlib
seen = {}
for path in sorted(pathlib.Path("out").glob("*_msg.py")):
    module = importlib.import_module("out." + path.stem)
    kind, = (value for name, value in vars(module).items() if isinstance(value, type))
    empty = kind()
    assert kind.from_values(empty.to_values()) == empty, kind
    seen[kind.MSG_NUM] = kind
print(*(kind.__name__ for _, kind in sorted(seen.items())))
print(*(field.name for field in dataclasses.fields(seen[11])))
print(seen[11](int_1=[1], self_="s", cls="c", row=seen[11](None_="n")).to_values()["row"]["None"])
print(*seen[9]().to_values(), *(field.name for field in dataclasses.fields(seen[10])))
"""), "A ABNo2 ABNo3No3 ABNo4 ABNo3No5 ANew NoneMsgNo7 NoneMsgNo8 Msg9 Msg10 Restrict M3DNo12 M3DNo13 MSG\n"
      "int_1 restrict None_ str_ float_ bool_ list_ classmethod_ self_ cls values row MSG_NUM_ to_values_ from_values_ Restrict_ "
      "int_17 t datetime async_ main NULL dict object\nn\n\"\"\"\\ t6 t7\n")

    def test_a_package_of_ones_own_stays(self):
        self.write("out/__init__.py", "x = 1\n")
        self.generate("python", "--message", 1)
        self.assertEqual(files(self.path("out"))["__init__.py"], "x = 1\n")
        self.assertEqual(self.python("import out; from out.node_msg import Node; print(out.x, Node.MSG_NUM)"), "1 1\n")

    def test_python_has_no_name_spaces(self):
        self.assert_usage("generate", self.generate("python", "--namespace", "msgs"),
                          "--namespace: Python has none; the classes are in the package that DIR is")


if __name__ == "__main__":
    unittest.main()
