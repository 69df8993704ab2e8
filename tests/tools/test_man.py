"""The examples of the man pages, each as it is printed, with the command as it is installed."""
import json
import os
import pathlib
import re
import subprocess
import sys
import unittest

from pcap import frames, pcap
from support import Server, ToolTest, run

SOURCE = pathlib.Path(__file__).resolve().parent.parent.parent
PREFIX = pathlib.Path(os.environ["CALLORV_PREFIX"])
LIBRARIES = PREFIX / os.environ["CALLORV_LIBDIR"]

DICTIONARY = """<msg_dictionary>
<msg no="3" name="Quote"><tag no="1" name="code" type="string"/><tag no="2" name="price" type="double"/>
  <tag no="3" name="rows" type="m4" array="Y"/></msg>
<msg no="4" name="QuoteRow"><tag no="1" name="price" type="double"/><tag no="2" name="volume" type="integer"/></msg>
<msg no="10" name="REJECT"><tag no="6" name="SysCode" type="integer"/>
  <tag no="7" name="SysReasonText" type="string"/><tag no="8" name="RefSvcNum" type="integer"/></msg>
<msg no="120" name="QuoteReply"><tag no="1" name="rows" type="m4" array="Y"/></msg>
</msg_dictionary>
"""


def examples(name, section="EXAMPLES"):
    """The blocks of a page's section as somebody copies them from the terminal."""
    text = (SOURCE / "docs" / "man" / f"{name}.1").read_text(encoding="ascii")
    text = text.replace("\\-", "-").replace("\\(aq", "'").replace("\\en", "\\n").replace("\\&", "")
    text = text.replace("\\e\n", "\\\n")
    return re.findall(r"\.EX\n(.*?)\.EE\n", text.split(f".SH {section}\n")[1].split("\n.SH ")[0] + "\n", re.S)


class ManTest(ToolTest):
    def setUp(self):
        super().setUp()
        for name in ("dictionary.xml", "msg_dic.xml"):
            self.write(name, DICTIONARY)
        for name in ("dictionary.exml", "msg_dic.exml"):
            self.assert_run(run("dict", "encrypt", self.dictionary, self.path(name)), 0, "", "")
        self.assert_run(run("key", "make", "--user-key", "TRYOUT", "-o", self.path("user.key")), 0)
        self.write("new.seed", "00112233445566778899aabbccddeeff\n")
        os.chmod(self.path("new.seed"), 0o600)
        for service in (1201, 1202):
            self.write(f"replies/{service}.xml", "<msg no='3'><t1>{{tag:code}}</t1><t2>1.5</t2></msg>")

    def shell(self, text):
        """Runs a block in the test's folder, with what is installed."""
        env = {**os.environ, "PATH": f"{PREFIX / 'bin'}:{os.environ['PATH']}", "LD_LIBRARY_PATH": str(LIBRARIES),
               "PKG_CONFIG_PATH": str(LIBRARIES / "pkgconfig"), "CMAKE_PREFIX_PATH": str(PREFIX)}
        return subprocess.run(["bash", "-e", "-o", "pipefail", "-c", text], cwd=self.dir, env=env, capture_output=True,
                              stdin=subprocess.DEVNULL, timeout=250, check=False)

    def served(self, *options):
        """A server whose address the client's configuration has."""
        here = os.getcwd()
        os.chdir(self.dir)
        self.addCleanup(os.chdir, here)
        server = Server("--dictionary", "dictionary.xml", *(options or ("--replies", "replies")))
        self.addCleanup(server.__exit__)
        server.__enter__()
        self.write("client.cfg", f"msg_dic=dictionary.xml\nkey_file=user.key\nserver=127.0.0.1 {server.port}\n")

    def recorded(self):
        """The packets of a call."""
        self.served("--replies", "replies", "--record", "packets")
        self.assert_run(self.shell("callorv call --config client.cfg 1201 Quote code=ABC"), 0, err="")

    def test_call(self):
        self.served()
        blocks = examples("callorv-call")
        self.assertGreater(len(blocks), 4)
        for block in blocks:
            block = re.sub(r"(--duration|--warm-up) (\d+)s", r"\1 \g<2>0ms", block)    # a hundredth of what people wait for
            with self.subTest(block):
                result = self.shell(block)
                self.assert_run(result, 0, err=None if "--trace" in block else "")
                self.assertNotEqual(result.stdout, b"")

    def test_serve(self):
        starts, rules, turn = examples("callorv-serve")
        here = os.getcwd()
        os.chdir(self.dir)
        self.addCleanup(os.chdir, here)
        for line in starts.splitlines():
            words = line.replace(" --port 7000", "").split()    # another program may have it
            self.assertEqual(words[:2], ["callorv", "serve"])
            with self.subTest(line), Server(*words[2:]):
                pass    # it has greeted
        *document, start = rules.splitlines()
        self.assert_run(self.shell("\n".join(document)), 0, "", "")
        self.served(*start.split()[4:])
        self.assert_run(self.shell("callorv call --config client.cfg 1201 Quote code=A"), 0, err="")
        self.assert_run(self.shell("callorv call --config client.cfg 1201 Quote code=B"), 0, err="")
        self.assert_run(self.shell("callorv call --config client.cfg 1201 Quote code=C"), 1, "", "callorv: rejected by "
                        "the server: Code=17, Text=closed after B, RefSvcNum=1201\n")
        self.recorded()
        before = self.read("replies/1201.xml")
        self.assert_run(self.shell(turn), 0, "", "")
        self.assertNotEqual(self.read("replies/1201.xml"), before)
        self.assert_run(self.shell("callorv call --config client.cfg 1201 Quote"), 0, err="")

    def test_decode(self):
        self.recorded()
        self.write("capture.bin", self.read("packets/000001-1201-request.packet"))
        blocks = examples("callorv-decode")
        one, services, digits = (self.shell(block) for block in blocks[:3])
        self.assert_run(one, 0, err="")
        self.assert_run(services, 0, "1201\n", "")
        self.assert_run(digits, 0, one.stdout.decode(), "")
        request, reply = (self.read(f"packets/000001-1201-{kind}.packet") for kind in ("request", "reply"))

        def call(capture):
            connection = capture.connect()
            connection.ask(request)
            connection.answer(reply, after=20000)
        self.write("calls.pcap", pcap(frames(call)))
        lines, follow = blocks[3:]
        line, slow = (self.shell(part) for part in lines.splitlines())
        self.assert_run(line, 0, "2023-11-14T22:13:20.000400Z  127.0.0.1:40000 > 127.0.0.1:7000  service 1201  "
                        f"message 3, {len(request)} bytes  20.000 ms  reply: message 3, {len(reply)} bytes\n"
                        "1 call: 1 reply\n", "")
        self.assert_run(slow, 0, err="")
        self.assertEqual(json.loads(slow.stdout)["latency_us"], 20000)
        nobody = "tcpdump() { cat calls.pcap; }\n"    # not everybody may listen
        self.assert_run(self.shell(nobody + follow), 0, line.stdout.decode().split("1 call:")[0], "")

    def test_dict(self):
        lines, wrong, report, change, changes, line = examples("callorv-dict")
        for line in lines.splitlines():
            with self.subTest(line):
                self.assert_run(self.shell(line), 0, err="")
        back = "callorv dict rekey --from new.seed msg_dic.exml && callorv dict decrypt msg_dic.exml"
        self.assert_run(self.shell(back), 0, DICTIONARY, "")
        result = self.shell(wrong)
        self.assertEqual((result.returncode, (result.stdout + result.stderr).decode()), (1, report))
        result = self.shell(change)
        self.assertEqual((result.returncode, (result.stdout + result.stderr).decode()), (1, changes))
        self.served("--echo")
        self.assert_run(self.shell(self.shell(line).stdout.decode()), 0, err="")    # what is printed can be sent

    def test_key(self):
        os.remove(self.path("user.key"))
        lines, rekey = examples("callorv-key")
        make, check, ask = lines.splitlines()
        self.assert_run(self.shell(make), 0, "", "")
        self.assert_run(self.shell(check), 0, "user.key: sound, a key of 11 characters in the 16-byte form\n", "")
        person = "systemd-ask-password() { echo TYPED; }\n"    # nobody is there to be asked
        self.assert_run(self.shell(person + ask), 0, "", "")
        self.assert_run(self.shell("callorv key check --show user.key | tail -1"), 0, "TYPED\n", "")
        self.assert_run(self.shell(rekey), 0, "", "")
        back = "callorv key rekey --from new.seed user.key && callorv key check --show user.key | tail -1"
        self.assert_run(self.shell(back), 0, "TYPED\n", "")

    def test_generate(self):
        make, program, build = examples("callorv-generate")
        all_of_them, some = make.splitlines()
        self.assert_run(self.shell(all_of_them), 0, "4 classes in generated, 4 headers changed\n", "")
        self.assert_run(self.shell(some), 0, err="")
        self.write("main.cpp", program)
        self.assert_run(self.shell(build), 0, "", "")
        self.write("replies/1201.xml", "<msg no='120' type='name'><rows><volume>7</volume></rows>"
                                       "<rows><volume>8</volume></rows></msg>")
        self.served()
        self.assert_run(self.shell("./shop"), 0, "7\n8\n", "")

    def test_generate_for_c_and_python(self):
        self.write("replies/1201.xml", "<msg no='120' type='name'><rows><volume>7</volume></rows>"
                                       "<rows><volume>8</volume></rows></msg>")
        self.served()
        make, program, build = examples("callorv-generate", "C")[2:]
        self.assert_run(self.shell(make), 0, "4 messages in generated, 4 headers changed\n", "")
        self.write("quote.c", program)
        self.assert_run(self.shell(build + "./quote"), 0, "7\n8\n", "")
        make, program = examples("callorv-generate", "PYTHON")[1:]
        self.assert_run(self.shell(make), 0, "4 classes in shop_messages, 4 modules changed\n", "")
        self.write("quote.py", program)
        module = f"PYTHONPATH={SOURCE}/bindings/python {sys.executable} -B quote.py"
        self.assert_run(self.shell(module), 0, "7\n8\n", "")

    def test_generate_with_cmake(self):
        self.write("main.cpp", '#include "quote_msg.h"\nint main() { return msgs::CQuote().code.IsSet(); }\n')
        project, = examples("callorv-generate", "CMAKE")
        self.write("CMakeLists.txt", "cmake_minimum_required(VERSION 3.16)\nproject(shop CXX)\n" + project)
        self.assert_run(self.shell("cmake -S . -B build && cmake --build build && build/shop"), 0, err="")


if __name__ == "__main__":
    unittest.main()
