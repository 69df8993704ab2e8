"""callorv key rekey and dict rekey, and the fingerprint in --version; OpenSSL says what is right."""
import os
import stat
import subprocess
import unittest

from support import DICTIONARY, FOREIGN_KEY_16, FOREIGN_KEY_32, ToolTest, key_file, run

OURS = "43616c6c4f7276446576656c6f706d65"    # the development key, under which tests are built
OLD, NEW = "00112233445566778899aabbccddeeff", "0123456789ABCDEFfedcba9876543210"
TEXT = DICTIONARY.encode()


def openssl(data, key, *options):
    return subprocess.run(["openssl", "enc", "-seed-ecb", "-provider", "legacy", "-provider", "default", "-K", key,
                           *options], input=data, stdout=subprocess.PIPE, check=True).stdout


def fingerprint(key):
    return openssl(bytes(16), key, "-nopad")[:3].hex()


def mode(path):
    return stat.S_IMODE(os.stat(path).st_mode)


def secret(data):
    """The encrypted key in the bytes of a key file."""
    table, index = data[16:4112], data[4112:4144]
    return bytes(table[place] for place in index[:32 if index[16] else 16])


class RekeyTest(ToolTest):
    def setUp(self):
        super().setUp()
        self.old, self.new = self.seed("old.seed", OLD), self.seed("new.seed", NEW)

    def seed(self, name, text, end="\n"):
        path = self.write(name, text + end)
        os.chmod(path, 0o600)
        return path

    def rekey(self, kind, name, *options):
        return run(kind, "rekey", *options, self.path(name))

    def assert_refused(self, kind, name, text, *options):
        """Exit status 1 with this text, and the folder as it was."""
        before = {entry: self.read(entry) for entry in os.listdir(self.dir) if os.path.isfile(self.path(entry))}
        self.assert_run(self.rekey(kind, name, *options), 1, "", f"callorv: {text}\n")
        self.assertEqual({entry: self.read(entry) for entry in before}, before)
        self.assertEqual(set(os.listdir(self.dir)) - set(before), {"folder"} & set(os.listdir(self.dir)))


class VersionTest(RekeyTest):
    def test_the_fingerprint_is_that_of_the_build(self):
        result = run("--version")
        self.assert_run(result, 0, err="")
        self.assertEqual(result.stdout.decode().splitlines()[1], "SEED key " + fingerprint(OURS))


class DictTest(RekeyTest):
    def test_from_any_key_to_any(self):
        for source, target, *options in ((OLD, NEW, "--from", self.old, "--to", self.new),
                                         (OLD, OURS, "--from", self.old), (OURS, NEW, "--to", self.new)):
            with self.subTest(options=options):
                path = self.write("d.exml", openssl(TEXT, source))
                os.chmod(path, 0o640)
                self.assert_run(self.rekey("dict", "d.exml", *options), 0, "", "")
                self.assertEqual(self.read("d.exml"), openssl(TEXT, target))
                self.assertEqual(mode(path), 0o640)
        self.write("d.exml", openssl(TEXT, OLD))
        self.assert_run(self.rekey("dict", "d.exml", "--from", self.old), 0, "", "")
        self.assert_run(run("dict", "decrypt", self.path("d.exml")), 0, DICTIONARY, "")

    def test_into_another_file(self):
        self.write("d.exml", openssl(TEXT, OURS))
        old = os.umask(0o027)
        self.addCleanup(os.umask, old)
        for _ in range(2):    # it may be there
            self.assert_run(self.rekey("dict", "d.exml", "--to", self.new, "-o", self.path("e.exml")), 0, "", "")
            self.assertEqual(self.read("e.exml"), openssl(TEXT, NEW))
            self.assertEqual(mode(self.path("e.exml")), 0o640)
        self.assertEqual(self.read("d.exml"), openssl(TEXT, OURS))

    def test_the_padding_of_other_makers_stays(self):
        for end in (b"\0\0\0\4", b"?? \4"):
            plain = TEXT.ljust(len(TEXT) + -(len(TEXT) + 4) % 16) + end
            self.write("d.exml", openssl(plain, OURS, "-nopad"))
            self.assert_run(self.rekey("dict", "d.exml", "--to", self.new), 0, "", "")
            self.assertEqual(self.read("d.exml"), openssl(plain, NEW, "-nopad"))

    def test_what_is_refused(self):
        sealed = openssl(TEXT, OLD)
        path = self.write("d.exml", sealed)
        ours, old, new = map(fingerprint, (OURS, OLD, NEW))
        wrong = "encrypted under another SEED key, or damaged; it is not under SEED key {}: try another --from"
        for data, options, text in (
                (sealed, ("--to", self.new), wrong.format(ours)),
                (sealed, ("--from", self.new), wrong.format(new)),
                (sealed[:32] + b"damaged" + sealed[39:], ("--from", self.old), wrong.format(old)),
                (sealed, ("--from", self.new, "--to", self.old), f"encrypted under SEED key {old} already"),
                (openssl(TEXT, OURS), ("--from", self.old), f"encrypted under SEED key {ours} already"),
                (TEXT, ("--to", self.new), "plain XML, not encrypted; encrypt it: callorv dict encrypt"),
                (b"", ("--to", self.new), "an empty file"),
                (sealed[:-1], ("--from", self.old), f"{len(sealed) - 1} bytes, which is no multiple of 16; not "
                 "encrypted, or cut off: copy it again"),
                (openssl(sealed, OLD), ("--from", self.old), "encrypted twice; decrypt it once: callorv dict decrypt"),
                (openssl(b"no XML", OLD), ("--from", self.old), "encrypted, but what was encrypted is no XML")):
            with self.subTest(text=text, options=options):
                self.write("d.exml", data)
                self.assert_refused("dict", "d.exml", f"{path}: {text}", *options)
        self.write("d.exml", sealed)
        for other, name in ((self.seed("same.seed", OLD.upper()), OLD), (self.seed("ours.seed", OURS), OURS)):
            options = ("--from", self.old, "--to", other) if name == OLD else ("--from", other)
            self.assert_refused("dict", "d.exml", f"--from and --to are the same SEED key, {fingerprint(name)}",
                                *options)
        missing = self.path("no.exml")
        self.assert_refused("dict", "no.exml", f"{missing}: No such file or directory", "--to", self.new)
        os.mkdir(self.path("folder"))
        self.assert_refused("dict", "d.exml", f"{self.path('folder')}/x/d.exml: No such file or directory", "--from",
                            self.old, "-o", self.path("folder") + "/x/d.exml")
        self.assert_run(run("dict", "rekey", "--from", self.old, "/dev/null"), 2)

    def test_wrong_usage(self):
        path = self.write("d.exml", openssl(TEXT, OURS))
        for args, text in (((path,), "--from or --to is needed: which other SEED key is there?"),
                           ((), "FILE is required"), ((path, "--to"), "--to needs KEY behind it"),
                           ((path, "more"), "unexpected argument 'more'"),
                           ((self.dictionary, "--to", self.new), f"{self.dictionary}: the name must end in .exml, or "
                            "the library takes the file for plain XML"),
                           ((path, "--to", self.new, "-o", "x.xml"), "x.xml: the name must end in .exml, or the "
                            "library takes the file for plain XML")):
            self.assert_usage("dict rekey", run("dict", "rekey", *args), text)


class SeedFileTest(RekeyTest):
    def test_files_that_hold_no_seed_key(self):
        self.write("d.exml", openssl(TEXT, OURS))
        path = self.path("bad.seed")
        for text, end in ((OLD, ""), (OLD, "\r\n"), (OLD, "\n\n"), (OLD[:-1], "\n"), (OLD + "0", "\n"), ("", ""),
                          (OLD[:-1] + "g", "\n"), ("0x" + OLD[2:], "\n"), (OLD + OLD, "\n"),
                          (OLD[:16] + "-" * 16, "\n")):
            with self.subTest(text=text, end=end):
                self.seed("bad.seed", text, end)
                result = self.rekey("dict", "d.exml", "--to", path)
                self.assert_run(result, 1, "", f"callorv: {path}: no SEED key, which is 32 hexadecimal digits and a "
                                "line end\n")
                self.assertNotIn(OLD[:6].encode(), result.stderr)
        none = self.path("none.seed")
        self.assert_refused("dict", "d.exml", f"{none}: No such file or directory", "--from", none)
        os.mkdir(self.path("folder"))
        self.assert_refused("dict", "d.exml", f"{self.path('folder')}: a folder, not a file", "--to",
                            self.path("folder"))

    def test_one_that_others_may_read_gives_a_warning(self):
        self.write("d.exml", openssl(TEXT, OURS))
        os.chmod(self.new, 0o644)
        self.assert_run(self.rekey("dict", "d.exml", "--to", self.new), 0, "", f"callorv: warning: {self.new}: others "
                        "than the owner may access the SEED key: chmod 600\n")


class KeyTest(RekeyTest):
    def test_a_key_of_either_form(self):
        for plain in (b"BRANCH-0042", b"A0123456789ABCDEFGHIJ", b"K\xe9Y"):
            with self.subTest(plain=plain):
                before = key_file(openssl(plain, OLD))
                path = self.write("user.key", before)
                os.chmod(path, 0o644)
                self.assert_run(self.rekey("key", "user.key", "--from", self.old, "--to", self.new), 0, "", "")
                after = self.read("user.key")
                self.assertEqual(secret(after), openssl(plain, NEW))
                self.assertEqual(mode(path), 0o600)
                self.assertLess(sum(a == b for a, b in zip(before, after)), 100)    # 16 are expected by chance
                self.assert_run(self.rekey("key", "user.key", "--from", self.new), 0, "", "")
                shown = run("key", "check", "--show", path)
                self.assert_run(shown, 0)
                self.assertEqual(shown.stdout.decode().splitlines()[1], plain.decode("latin-1"))

    def test_the_padding_of_other_makers_and_what_is_behind_stay(self):
        plain = b"KEY".ljust(15, b"\0") + b"\x0d"
        self.write("user.key", key_file(openssl(plain, OURS, "-nopad")) + b"more")
        self.assert_run(self.rekey("key", "user.key", "--to", self.new), 0, "", "")
        after = self.read("user.key")
        self.assertEqual((secret(after), after[4144:]), (openssl(plain, NEW, "-nopad"), b"more"))

    def test_into_another_file_which_is_not_there_yet(self):
        path = self.write("user.key", key_file(FOREIGN_KEY_32))
        os.chmod(path, 0o600)
        out = self.path("ours.key")
        self.assert_run(self.rekey("key", "user.key", "--from", self.old, "-o", out), 0, "", "")
        self.assertEqual(mode(out), 0o600)
        self.assertEqual(self.read("user.key"), key_file(FOREIGN_KEY_32))
        self.assert_run(run("key", "check", "--show", out), 0, f"{out}: sound, a key of 21 characters in the 32-byte "
                        "form\nA0123456789ABCDEFGHIJ\n")
        self.assert_refused("key", "user.key", f"{out}: File exists", "--from", self.old, "-o", out)

    def test_the_owner_stays(self):
        owner = (1234, 4321) if os.geteuid() == 0 else (os.geteuid(), os.getegid())
        path = self.write("user.key", key_file(FOREIGN_KEY_16))
        os.chown(path, *owner)
        self.assert_run(self.rekey("key", "user.key", "--from", self.old), 0, "", "")
        self.assertEqual((os.stat(path).st_uid, os.stat(path).st_gid), owner)

    def test_what_is_refused(self):
        data = key_file(FOREIGN_KEY_16)
        path = self.write("user.key", data)
        ours, old, new = map(fingerprint, (OURS, OLD, NEW))
        wrong = "encrypted under another SEED key, or damaged; it is not under SEED key {}: try another --from"
        copy = "; copy it again, or make one: callorv key make"
        for file, options, text in (
                (data, ("--to", self.new), wrong.format(ours)), (data, ("--from", self.new), wrong.format(new)),
                (data, ("--from", self.new, "--to", self.old), f"encrypted under SEED key {old} already"),
                (data[:-1], ("--from", self.old), "4143 bytes instead of 4144: no key file, or cut off" + copy),
                (data[:99] + b"!" + data[100:], ("--from", self.old),
                 "no key file, or changed after it was made" + copy),
                (key_file(openssl(b"", OLD)), ("--from", self.old),
                 "the key in it is empty; make it again: callorv key make"),
                (b"", ("--from", self.old), "0 bytes instead of 4144: no key file, or cut off" + copy)):
            with self.subTest(text=text):
                self.write("user.key", file)
                self.assert_refused("key", "user.key", f"{path}: {text}", *options)
        os.mkfifo(self.path("folder"))
        self.assert_refused("key", "folder", f"{self.path('folder')}: a pipe or device, not a file", "--from", self.old)
        self.assert_usage("key rekey", run("key", "rekey", path), "--from or --to is needed: which other SEED key is "
                          "there?")


if __name__ == "__main__":
    unittest.main()
