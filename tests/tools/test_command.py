"""What the subcommands have in common, their man pages and the completion for bash."""
import json
import os
import re
import shutil
import subprocess
import unittest

from support import COMMAND, Server, ToolTest, run

SOURCE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..")
with open(os.path.join(SOURCE, "include/callorv/version.h"), encoding="ascii") as header:
    VERSION = re.search(r'CALLORV_VERSION "(.*)"', header.read())[1]
COMMANDS = ["call", "serve", "decode", "dict check", "dict show", "dict diff", "dict schema",
            "dict dump", "dict encrypt", "dict decrypt", "dict html",
            "dict rekey", "key make", "key check", "key rekey", "generate"]


def options(command):
    """The long options that --help shows, but --help."""
    text = run(*command.split(), "--help").stdout.decode()
    return [name for name in re.findall(r"^  (?:-\w,)?(--[\w-]+)", text, re.M) if name != "--help"]


def man_page(name):
    with open(os.path.join(SOURCE, "docs", "man", f"{name}.1"), encoding="ascii") as file:
        return file.read().replace("\\-", "-").replace("\\(aq", "'").replace("\\en", "\\n")


class CommandTest(ToolTest):
    def test_version(self):
        self.assert_run(run("--version"), 0, f"callorv {VERSION}\nSEED key 52c533\n", "")    # the development key's

    def test_help_lists_the_commands(self):
        result = run("--help")
        self.assert_run(result, 0, err="")
        self.assertRegex(result.stdout.decode(), r"\nExamples:\n  callorv key make ")
        for name in ("call", "serve", "decode", "dict", "key", "generate"):
            self.assertRegex(result.stdout.decode(), rf"(?m)^  {name} {{3,}}\S")

    def test_usage(self):
        commands = "call, serve, decode, dict, key, generate"
        for args, command, text in (
                ((), "callorv", "a command is needed: " + commands),
                (("nosuch",), "callorv", "there is no command 'nosuch': " + commands),
                (("--nosuch",), "callorv", "unknown option --nosuch"),
                (("nos\x1buch",), "callorv", "there is no command 'nos\ufffduch': " + commands),
                (("key",), "callorv key", "a command is needed: make, check, rekey"),
                (("key", "nosuch"), "callorv key", "there is no command 'nosuch': make, check, rekey"),
                (("serve", "--dictonary"), "callorv serve",
                 "unknown option --dictonary; did you mean '--dictionary'?")):
            with self.subTest(args=args):
                self.assert_run(run(*args), 2, "", f"callorv: {text}\nTry '{command} --help'.\n")

    def test_an_unknown_option_is_called_one(self):
        for command in COMMANDS:
            for args in ((), ("a", "b", "c"), ("--help-me",)):
                with self.subTest(command=command, args=args):
                    self.assert_run(run(*command.split(), "--nothing-like-it=5", *args), 2, "",
                                    f"callorv: unknown option --nothing-like-it\nTry 'callorv {command} --help'.\n")
        for args, command, text in (
                (("call", "--timeot", "x", "1201"), "call", "unknown option --timeot; did you mean '--timeout'?"),
                (("decode", "-j"), "decode", "unknown option -j"),
                (("dict", "check", "--JSON", "x"), "dict check", "unknown option --JSON; did you mean '--json'?"),
                (("generate", "d.xml", "--out", "x"), "generate", "unknown option --out; did you mean '--output'?"),
                (("generate", "d.xml", "--output"), "generate", "--output needs DIR behind it"),
                (("dict", "chek"), "dict",
                 "there is no command 'chek': check, show, diff, schema, dump, encrypt, decrypt, rekey, html; did you mean 'check'?"),
                (("decode", "a", "b"), "decode", "unexpected argument 'b'")):
            with self.subTest(args=args):
                self.assert_usage(command, run(*args), text)

    def test_json_is_one_object_also_of_a_failure(self):
        missing = self.path("missing")
        empty = self.write("empty", "")
        for args, members, text in (
                (("decode", missing), {"packets": []}, f"{missing}: No such file or directory"),
                (("decode", empty), {"packets": []}, f"{empty}: no bytes"),
                (("decode", "--hex", self.dictionary), {"packets": []},
                 f"{self.dictionary}: line 1 has something else than hexadecimal digits"),
                (("dict", "check", self.dir), {"file": self.dir},
                 f"{self.dir}: a folder, not a file (the library says: Handler error : [F] (L:0, C:0) : unable to read data "
                 "from file)"),
                (("dict", "dump", empty), {},
                 f"{empty}: an empty file (the library says: InitDictionary(Handler error : "
                 f"[F]{empty} (L:1, C:1) : invalid document structure))"),
                (("generate", self.dictionary, "-o", empty), {"classes": []}, f"{empty}: Not a directory"),
                (("generate", self.dictionary, "-o", self.path("o"), "--message", "7"), {"classes": []},
                 "message 7 is not in the dictionary")):
            with self.subTest(args=args):
                result = run(*args, "--json")
                self.assert_run(result, 1, err=f"callorv: {text}\n")
                self.assertEqual(json.loads(result.stdout), {**members, "error": {"text": text}})
        result = run("key", "check", missing, "--json")
        self.assert_run(result, 1, err="")
        self.assertEqual(json.loads(result.stdout), {"file": missing, "sound": False, "error": {
            "text": f"{missing}: No such file or directory (the library says: File not found({missing}))"}})
        # wrong usage prints none
        for args in (("decode", "a", "b"), ("dict", "check"), ("dict", "dump"), ("key", "check"),
                     ("generate", self.dictionary, "-o", "x", "--namespace", "1")):
            self.assert_run(run(*args, "--json"), 2, "")

    def test_help_that_cannot_be_written_is_a_failure(self):
        for args in (["--help"], ["--version"], ["dict", "check", "--help"]):
            with self.subTest(args=args), open("/dev/full", "wb") as full:
                result = subprocess.run([COMMAND, *args], stdout=full, stderr=subprocess.PIPE, check=False)
                self.assert_run(result, 1, err="callorv: standard output cannot be written\n")

    def test_every_command_has_help_with_an_example(self):
        for command in COMMANDS:
            result = run(*command.split(), "--help")
            self.assert_run(result, 0, err="")
            self.assertRegex(result.stdout.decode(), rf"\nExamples?:\n  callorv {command} ")


class ManPageTest(ToolTest):
    def test_every_option_is_explained(self):
        for command in COMMANDS:
            page = man_page("callorv-" + command.split()[0])
            for option in options(command):
                with self.subTest(command=command, option=option):
                    self.assertRegex(page, rf"(?m){option}\b")

    def test_no_option_is_made_up(self):
        for name in ("call", "serve", "decode", "dict", "key", "generate"):
            page = man_page("callorv-" + name)
            known = {option for command in COMMANDS for option in options(command)} | {"--help", "--version"}
            known |= {"--cflags", "--libs"}    # of pkg-config
            self.assertEqual(set(re.findall(r"(?<![-\w])--[\w-]+", page)) - known, set())

    def test_the_first_steps_work_as_they_stand(self):
        steps = man_page("callorv").split(".SH FIRST STEPS")[1].split(".SH ")[0]
        dictionary, prepare, serve, call, reply = re.findall(r"\.EX\n(.*?)\.EE\n", steps, re.S)
        self.write("dictionary.xml", dictionary)
        tools = os.path.join(self.dir, "bin")
        os.mkdir(tools)
        os.symlink(os.path.abspath(COMMAND), os.path.join(tools, "callorv"))

        def shell(text):
            env = {**os.environ, "PATH": tools + ":" + os.environ["PATH"]}
            return subprocess.run(["sh", "-ec", text], cwd=self.dir, env=env, capture_output=True, check=False)

        self.assert_run(shell(prepare), 0, err="")
        words = serve.split()
        self.assertEqual((words[:2], words[-2:]), (["callorv", "serve"], ["--port", "7000"]))
        here = os.getcwd()
        os.chdir(self.dir)
        self.addCleanup(os.chdir, here)
        with Server(*words[2:-2]) as server:    # a free port, as 7000 may be taken
            result = shell(call.replace("7000", str(server.port)))
        self.assert_run(result, 0, reply.replace("\\&", ""), "")


class CompletionTest(ToolTest):
    def complete(self, line):
        """What bash offers for the last word of a line."""
        tools = os.path.join(self.dir, "..", os.path.basename(self.dir) + ".bin")
        if not os.path.exists(tools):
            os.mkdir(tools)
            self.addCleanup(shutil.rmtree, tools)
            os.symlink(os.path.abspath(COMMAND), os.path.join(tools, "callorv"))
        script = f"""source {SOURCE}/tools/completion/callorv
            COMP_WORDS=({line}) COMP_CWORD=$((${{#COMP_WORDS[@]}} - 1))
            _callorv callorv "${{COMP_WORDS[COMP_CWORD]}}" "${{COMP_WORDS[COMP_CWORD - 1]}}"
            printf '%s\\n' "${{COMPREPLY[@]}}" """
        result = subprocess.run(["bash", "-c", script], cwd=self.dir, capture_output=True, check=False,
                                env={**os.environ, "PATH": tools + ":" + os.environ["PATH"]})
        self.assertEqual((result.returncode, result.stderr), (0, b""))
        return result.stdout.decode().split()

    def test_commands(self):
        self.assertEqual(self.complete("callorv ''"), ["call", "serve", "decode", "dict", "key", "generate", "--help",
                                                       "--version"])
        self.assertEqual(self.complete("callorv d"), ["decode", "dict"])
        self.assertEqual(self.complete("callorv dict ''"), ["check", "show", "diff", "schema", "dump", "encrypt", "decrypt",
                                                            "rekey", "html", "--help"])
        self.assertEqual(self.complete("callorv key m"), ["make"])

    def test_every_option(self):
        for command in COMMANDS:
            with self.subTest(command=command):
                self.assertEqual(sorted(self.complete(f"callorv {command} --")), sorted([*options(command), "--help"]))

    def test_what_cannot_be_read_has_no_names(self):
        os.mkfifo(self.path("pipe"))    # nobody writes into it
        self.write("broken.xml", "<msg_dictionary")
        self.write("client.cfg", "msg_dic=pipe\n")
        for args in (("--dictionary", "pipe"), ("--dictionary", "broken.xml"), ("--dictionary", "none"),
                     ("--config", "client.cfg"), ("--config", "pipe"), ("--config", "none"), ()):
            for more in (["1", "Q"], ["1", "Quote", "x"]):
                args = [arg if arg[0] == "-" else self.path(arg) for arg in args]
                self.assert_run(run("complete", "call", *args, *more), 0, "words\n" if more[-1] == "Q" else "parts\n", "")
        self.assert_run(run("complete"), 0, err="")
        self.assert_run(run("complete", "nosuch", "--config", "-", "--="), 0, "words\n", "")

    def test_values(self):
        self.assertEqual(self.complete("callorv call --format ''"), ["dump", "xml", "json"])
        self.assertEqual(self.complete("callorv serve --fault re"), ["reset", "reject"])
        self.assertEqual(self.complete("callorv serve --port ''"), [])
        self.assertEqual(self.complete("callorv generate --language c"), ["c++", "c"])
        self.write("other.exml", "")
        os.mkdir(self.path("replies"))
        for line in ("callorv call --config", "callorv serve --dictionary", "callorv dict check", "callorv decode",
                     "callorv generate", "callorv dict html dictionary.xml -o"):
            self.assertEqual(sorted(self.complete(line + " ''")), ["dictionary.xml", "other.exml", "replies"])
        self.assertEqual(sorted(self.complete("callorv call --data @")), ["@dictionary.xml", "@other.exml", "@replies"])
        for line in ("callorv serve --replies", "callorv serve --record", "callorv generate -o"):
            self.assertEqual(self.complete(line + " ''"), ["replies"])


if __name__ == "__main__":
    unittest.main()
