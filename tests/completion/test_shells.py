"""The completion of the callorv command as somebody types into bash, zsh and fish."""
import os
import pathlib
import pty
import re
import select
import shutil
import subprocess
import sys
import tempfile
import unittest

SOURCE = pathlib.Path(__file__).resolve().parent.parent.parent
sys.path.insert(0, str(SOURCE / "tests" / "tools"))
from support import COMMAND, DICTIONARY, run

SCRIPTS = SOURCE / "tools" / "completion"
ODD = """<msg_dictionary><msg no="1" name="Odd Name"><tag no="1" name="a$(touch broken)" type="string"/>
  <tag no="2" name="it's" type="string"/></msg><msg no="2" name="Ev`touch broken`il;x"/></msg_dictionary>"""


class Folder:
    """A folder with a dictionary, a configuration and the command in bin/."""

    def __enter__(self):
        self.path = pathlib.Path(tempfile.mkdtemp(prefix="callorv-test-"))
        (self.path / "dictionary.xml").write_text(DICTIONARY)
        (self.path / "odd.xml").write_text(ODD)
        run("dict", "encrypt", self.path / "dictionary.xml", self.path / "sealed.exml")
        (self.path / "client.cfg").write_text("msg_dic=sealed.exml\n")
        (self.path / "my config.cfg").write_text("msg_dic=sealed.exml\n")
        (self.path / "replies").mkdir()
        (self.path / "bin").mkdir()
        (self.path / "bin" / "callorv").symlink_to(os.path.abspath(COMMAND))
        self.env = {"PATH": f"{self.path / 'bin'}:{os.environ['PATH']}", "HOME": str(self.path), "TERM": "xterm",
                    "LC_ALL": "C.UTF-8", "LD_LIBRARY_PATH": os.environ.get("LD_LIBRARY_PATH", "")}
        return self

    def __exit__(self, *_):
        shutil.rmtree(self.path)


class Terminal:
    """An interactive shell. Control-G hands over the line as it is now, and empties it."""

    def __init__(self, folder, command, setup):
        self.pipe = str(folder.path / "pipe")
        os.mkfifo(self.pipe)
        self.child, self.screen = pty.fork()
        if self.child == 0:
            os.chdir(folder.path)
            os.execvpe(command[0], command, folder.env)
        self.type(setup.replace("PIPE", self.pipe) + "\n")
        self.take()

    def type(self, text):
        os.write(self.screen, text.encode())

    def take(self):
        """What is handed over next; what the shell writes on the screen meanwhile is read away."""
        pipe = os.open(self.pipe, os.O_RDONLY | os.O_NONBLOCK)
        text = b""
        while not text.endswith(b"\n"):
            ready, _, _ = select.select([pipe, self.screen], [], [], 60)
            assert ready, f"no answer, only {text!r}"
            if self.screen in ready:
                os.read(self.screen, 65536)
            if pipe in ready:
                try:
                    text += os.read(pipe, 65536)
                except BlockingIOError:
                    pass
        os.close(pipe)
        return text.decode()[:-1]

    def complete(self, line):
        self.type(line + "\t\x07")
        return self.take()

    def close(self):
        os.close(self.screen)
        os.waitpid(self.child, 0)


BASH = f"""PS1= ; source {SCRIPTS}/callorv; bind 'set bell-style none'; bind 'set completion-query-items 0'
hand() {{ printf '%s\\n' "$READLINE_LINE" >PIPE; READLINE_LINE= READLINE_POINT=0; }}; bind -x '"\\C-g": hand'; hand"""
ZSH = f"""PS1= ; fpath=({SCRIPTS} $fpath); autoload -Uz compinit; compinit -u -D
LISTMAX=9999; setopt no_beep no_auto_menu
hand() {{ print -r -- "$BUFFER" >PIPE; BUFFER=; }}; zle -N hand; bindkey '^G' hand; bindkey -e '^G' hand; print >PIPE"""


class ShellTest(unittest.TestCase):
    """What the words become; those for which there are several stay as far as they have in common."""

    LINES = (
        ("callorv dec", "callorv decode "), ("callorv dict sc", "callorv dict schema "),
        ("callorv key r", "callorv key rekey "), ("callorv call --conf", "callorv call --config "),
        ("callorv call --config cl", "callorv call --config client.cfg "),
        ("callorv call --config=cl", "callorv call --config=client.cfg "),
        ("callorv call --format x", "callorv call --format xml "),
        ("callorv call --format=j", "callorv call --format=json "),
        ("callorv call --config client.cfg 1201 QuoteR", "callorv call --config client.cfg 1201 QuoteRow "),
        ("callorv call --config client.cfg 1201 Quote co", "callorv call --config client.cfg 1201 Quote co"),
        ("callorv call --config client.cfg 1201 Quote cod", "callorv call --config client.cfg 1201 Quote code="),
        ("callorv call --config client.cfg 1201 Quote code=A pri",
         "callorv call --config client.cfg 1201 Quote code=A price="),
        ("callorv call --config client.cfg 1201 Quote head.p",
         "callorv call --config client.cfg 1201 Quote head.price="),
        ("callorv call --dictionary dictionary.xml 1201 REJ", "callorv call --dictionary dictionary.xml 1201 REJECT "),
        ("callorv dict show sealed.exml REJ", "callorv dict show sealed.exml REJECT "),
        ("callorv serve --replies re", "callorv serve --replies replies/"),
        ("callorv serve --fault del", "callorv serve --fault delay:"),
        ("callorv serve --fault zl", "callorv serve --fault zlib"),
        ("callorv generate dictionary.xml --message 1", "callorv generate dictionary.xml --message 10 "),
        ("callorv decode dictio", "callorv decode dictionary.xml "),
        ("callorv nosuch x", "callorv nosuch x"),
        ("callorv call --config no.cfg 1 Q", "callorv call --config no.cfg 1 Q"))

    # Of bash and zsh, which quote in the same way.
    ODD_LINES = (
        ("callorv call --dictionary odd.xml 1 Od", "callorv call --dictionary odd.xml 1 Odd\\ Name "),
        ("callorv call --dictionary odd.xml 1 Ev",
         "callorv call --dictionary odd.xml 1 Ev\\`touch\\ broken\\`il\\;x "),
        ("callorv call --dictionary odd.xml 1 1 a",
         "callorv call --dictionary odd.xml 1 1 a\\$\\(touch\\ broken\\)="),
        ("callorv call --config my", "callorv call --config my\\ config.cfg "),
        ("callorv call --config my\\ config.cfg 1 RE", "callorv call --config my\\ config.cfg 1 REJECT "),
        ("callorv call --config ~/client.cfg 1 RE", "callorv call --config ~/client.cfg 1 REJECT "))

    def check(self, terminal, rows):
        self.addCleanup(terminal.close)
        for line, wanted in rows:
            with self.subTest(line):
                self.assertEqual(terminal.complete(line), wanted)

    def test_bash(self):
        with Folder() as folder:
            more = (("callorv call --dictionary odd.xml 1 1 it", "callorv call --dictionary odd.xml 1 1 it\\'s="),
                    ("callorv call --config 'my config.cfg' 1 RE", "callorv call --config 'my config.cfg' 1 REJECT "),
                    ("~/bin/callorv dec", "~/bin/callorv decode "))
            terminal = Terminal(folder, ["bash", "--norc", "--noprofile", "-i"], BASH)
            self.check(terminal, self.LINES + self.ODD_LINES + more)
            self.assertFalse((folder.path / "broken").exists())

    def test_zsh(self):
        with Folder() as folder:
            self.check(Terminal(folder, ["zsh", "-f", "-i"], ZSH), self.LINES + self.ODD_LINES)
            self.assertFalse((folder.path / "broken").exists())

    def test_fish(self):
        with Folder() as folder:
            rows = [(line, wanted) for line, wanted in self.LINES if line != wanted]
            lines = [line for line, _ in rows]
            lines += ["callorv call --dictionary odd.xml 1 O", "callorv ", "callorv nosuch x"]
            program = f"source {SCRIPTS}/callorv.fish\n" + "".join(f"complete -C '{line}'\necho .\n" for line in lines)
            result = subprocess.run(["fish", "--no-config", "-c", program], cwd=folder.path, env=folder.env,
                                    capture_output=True, check=False, timeout=60)
            self.assertEqual((result.returncode, result.stderr.decode()), (0, ""))
            *answers, odd, commands, nothing, _ = re.split(r"(?m)^[.]$\n?", result.stdout.decode())
            for (line, wanted), answer in zip(rows, answers):
                with self.subTest(line):
                    (found,) = answer.splitlines()
                    self.assertEqual(found.split("\t")[0], wanted.split(" ")[-1] or wanted.split(" ")[-2])
            self.assertEqual((odd, nothing), ("Odd Name\tmessage 1\n", ""))
            self.assertIn("decode\tPrint captured packets, or the calls of a capture\n", commands)
            self.assertFalse((folder.path / "broken").exists())


if __name__ == "__main__":
    unittest.main()
