"""callorv key: make and check."""
import hashlib
import json
import os
import stat
import unittest

from support import FOREIGN_KEY_16, FOREIGN_KEY_32, FOREIGN_KEY_TEXT, ToolTest, key_file, run

SIZE, DIGEST, TABLE = 4144, 16, 4096


def parts(data):
    """Digest, table and index bytes of a key file."""
    return data[:DIGEST], data[DIGEST:DIGEST + TABLE], data[DIGEST + TABLE:SIZE]


def joined(table, index):
    return hashlib.md5(table + index).digest() + table + index


def mode(path):
    return stat.S_IMODE(os.stat(path).st_mode)


class MakeTest(ToolTest):
    def make(self, key, name="user.key", *options, stdin=b""):
        return run("key", "make", "--user-key", key, "-o", self.path(name), *options, stdin=stdin)

    def assert_key(self, name, key):
        result = run("key", "check", self.path(name), "--show", "--json")
        self.assert_run(result, 0, err="")
        self.assertEqual(json.loads(result.stdout)["key"], key)

    def test_every_length_has_its_form(self):
        for length in range(1, 32):
            key = "ABCDEFGHIJKLMNOPQRSTUVWXYZ01234"[:length]
            with self.subTest(length=length):
                warning = "" if length <= 20 else \
                    f"callorv: warning: the key has {length} characters, of which a packet carries 20\n"
                self.assert_run(self.make(key, f"{length}.key"), 0, "", warning)
                data = self.read(f"{length}.key")
                digest, table, index = parts(data)
                self.assertEqual(len(data), SIZE)
                self.assertEqual(digest, hashlib.md5(table + index).digest())
                used = 16 if length <= 15 else 32
                self.assertEqual(index[16] != 0, used == 32)
                self.assertEqual(len(set(index[:used]) - {0}), used)
                self.assert_key(f"{length}.key", key)

    def test_only_the_listed_bytes_of_the_table_matter(self):
        self.make("BRANCH-0042")
        _, table, index = parts(self.read("user.key"))
        moved = bytearray(255 - b for b in table)
        places = list(range(40, 56))
        for place, old in zip(places, index):
            moved[place] = table[old]
        self.write("moved.key", joined(bytes(moved), bytes(places) + b"\0" + b"\xff" * 15))
        self.assert_key("moved.key", "BRANCH-0042")

    def test_two_files_of_one_key_are_random(self):
        self.make("SAME", "a.key")
        self.make("SAME", "b.key")
        _, table_a, index_a = parts(self.read("a.key"))
        _, table_b, index_b = parts(self.read("b.key"))
        self.assertNotEqual(index_a[:16], index_b[:16])
        equal = sum(a == b for a, b in zip(table_a, table_b))
        self.assertLess(equal, 100)              # 16 of 4096 are expected by chance
        self.assertEqual(len(set(table_a)), 256)

    def test_the_file_is_for_its_owner_whatever_the_umask(self):
        for mask in (0o000, 0o022, 0o077):
            with self.subTest(mask=mask):
                old = os.umask(mask)
                try:
                    self.make("SECRET", f"{mask}.key")
                finally:
                    os.umask(old)
                self.assertEqual(mode(self.path(f"{mask}.key")), 0o600)

    def test_a_file_that_is_there_stays(self):
        self.write("user.key", "old")
        self.assert_run(self.make("NEW"), 1, "", f"callorv: {self.path('user.key')}: File exists\n")
        self.assertEqual(self.read("user.key"), b"old")
        os.chmod(self.path("user.key"), 0o644)
        self.assert_run(self.make("NEW", "user.key", "--force"), 0, "", "")
        self.assert_key("user.key", "NEW")
        self.assertEqual(mode(self.path("user.key")), 0o600)

    def test_a_failure_leaves_nothing_behind(self):
        self.assert_run(self.make("KEY", "no/such.key"), 1, "",
                        f"callorv: {self.path('no/such.key')}: No such file or directory\n")
        os.mkdir(self.path("folder"))
        self.assert_run(self.make("KEY", "folder", "--force"), 1, "",
                        f"callorv: {self.path('folder')}: a folder, not a file\n")
        self.assertEqual(sorted(os.listdir(self.dir)), ["dictionary.xml", "folder"])

    def test_the_key_comes_from_standard_input(self):
        self.assert_run(self.make("-", stdin=b"FROM STDIN\nmore\n"), 0, "", "")
        self.assert_key("user.key", "FROM STDIN")
        self.assert_run(self.make("-", "none.key"), 1, "", "callorv: no key on standard input\n")

    def test_letters_of_latin_1_are_one_byte(self):
        self.assert_run(self.make("é" * 15), 0, "", "")
        self.assertEqual(parts(self.read("user.key"))[2][16], 0)
        self.assert_key("user.key", "é" * 15)
        self.assert_run(self.make("€", "euro.key"), 1, "",
                        "callorv: '€' has a character that ISO-8859-1 cannot write\n")

    def test_wrong_usage(self):
        self.assert_usage("key make", self.make(""), "--user-key: the key is empty")
        self.assert_usage("key make", self.make("K" * 32), "--user-key: the key has 32 characters, more than 31")
        self.assert_usage("key make", self.make("A\tB"), "--user-key: the key has control characters")
        self.assert_usage("key make", self.make("-", stdin=b"A\0B\n"), "--user-key: the key has control characters")
        self.assert_usage("key make", run("key", "make", "--user-key", "K"), "--output is required")
        self.assert_usage("key make", run("key", "make", "-o", self.path("k")), "--user-key is required")
        self.assert_usage("key make", self.make("K", "k", "more"), "unexpected argument 'more'")
        self.assert_usage("key", run("key"), "a command is needed: make, check, rekey")
        self.assertEqual(os.listdir(self.dir), ["dictionary.xml"])


class CheckTest(ToolTest):
    def setUp(self):
        super().setUp()
        run("key", "make", "--user-key", "BRANCH-0042", "-o", self.path("user.key"))
        self.file = self.path("user.key")

    def test_a_sound_file(self):
        sound = f"{self.file}: sound, a key of 11 characters in the 16-byte form\n"
        self.assert_run(run("key", "check", self.file), 0, sound, "")
        self.assert_run(run("key", "check", self.file, "--show"), 0, sound + "BRANCH-0042\n", "")
        result = run("key", "check", self.file, "--json")
        self.assert_run(result, 0, err="")
        self.assertEqual(json.loads(result.stdout),
                         {"file": self.file, "sound": True, "form": 16, "length": 11, "warnings": []})

    def test_the_key_is_shown_on_demand_only(self):
        for options in ([], ["--json"]):
            self.assertNotIn(b"BRANCH", run("key", "check", self.file, *options).stdout)

    def assert_refused(self, data, reason, library):
        text = f"{self.file}: {reason} (the library says: {library})"
        self.write("user.key", data)
        self.assert_run(run("key", "check", self.file), 1, "", f"callorv: {text}\n")
        result = run("key", "check", self.file, "--json", "--show")
        self.assert_run(result, 1, err="")
        self.assertEqual(json.loads(result.stdout), {"file": self.file, "sound": False, "error": {"text": text}})

    def test_files_that_the_library_refuses(self):
        data = self.read("user.key")
        _, table, index = parts(data)
        copy = "; copy it again, or make one: callorv key make"
        again = "; make it again: callorv key make"
        short = " instead of 4144: no key file, or cut off" + copy
        self.assert_refused(b"", "0 bytes" + short, "Corrupted UserKey data")
        self.assert_refused(data[:-1], "4143 bytes" + short, "Corrupted UserKey data")
        for place in (0, 15, 16, 4111, 4112, 4143):
            with self.subTest(place=place):
                changed = bytearray(data)
                changed[place] ^= 1
                self.assert_refused(bytes(changed), "no key file, or changed after it was made" + copy,
                                    "Corrupted UserKey data(checksum)")
        self.assert_refused(joined(table, index[:7] + b"\0" + index[8:]),
                            "made wrongly: its list of places ends before the key does" + again,
                            "Corrupted UserKey data")
        # a block of nothing but padding, as an empty dictionary is encrypted to, holds an empty key
        run("dict", "encrypt", self.write("empty", ""), self.path("empty.exml"))
        self.assert_refused(key_file(self.read("empty.exml")), "the key in it is empty" + again, "Invalid UserKey")

    def sealed(self, plain):
        """The encrypted bytes of a plain text that brings its own padding."""
        run("dict", "encrypt", self.write("plain", plain), self.path("sealed.exml"))
        return self.read("sealed.exml")[:len(plain)]

    def test_what_is_no_key_under_this_seed_key(self):
        self.assert_refused(key_file(FOREIGN_KEY_16), FOREIGN_KEY_TEXT, "Invalid UserKey")
        self.assert_refused(key_file(self.sealed(b"K" * 15 + b"\x11")), FOREIGN_KEY_TEXT, "Invalid UserKey")
        # the library takes these as they come
        for secret in (FOREIGN_KEY_32, self.sealed(b"\x93?KEY".ljust(15, b"?") + b"\7"),
                       self.sealed(b"KEY\x93".ljust(15, b"?") + b"\5"),
                       self.sealed(b"KEY\0\x01".ljust(15, b"?") + b"\2"),
                       self.sealed(b"K\x01".ljust(15, b"K") + b"\1"), self.sealed(b"K\xe9Y" + b"?" * 12 + b"\5")):
            with self.subTest(secret=secret):
                text = f"{self.file}: {FOREIGN_KEY_TEXT}"
                self.write("user.key", key_file(secret))
                self.assert_run(run("key", "check", self.file), 1, "", f"callorv: {text}\n")
                result = run("key", "check", self.file, "--json")
                self.assert_run(result, 1, err="")
                self.assertEqual(json.loads(result.stdout),
                                 {"file": self.file, "sound": False, "error": {"text": text}})

    def test_keys_that_other_makers_padded(self):
        for plain, length in ((b"KEY".ljust(16, b"\x0d"), 3), (b"KEY".ljust(15, b"\0") + b"\x0d", 3),
                              (b"KEY" + b"?!*_-x+=%&/#" + b"\x0d", 3), (b"K\xe9Y".ljust(15, b"\0") + b"\x0d", 3),
                              (b"K\xe9YABCDEFGHIJKL\1", 15), (b"KEY".ljust(16, b"\0"), 3),
                              (b"K" * 16 + b"KEY".ljust(16, b"\x0d"), 19)):
            with self.subTest(plain=plain):
                self.write("user.key", key_file(self.sealed(plain)))
                os.chmod(self.file, 0o600)
                form = len(plain)
                self.assert_run(run("key", "check", self.file), 0, f"{self.file}: sound, a key of {length} characters "
                                f"in the {form}-byte form\n", "")

    def test_a_line_break_at_the_end_of_the_key_is_suspicious(self):
        self.write("user.key", key_file(self.sealed(b"KEY\n?????????" + b"??" + b"\x0c")))
        os.chmod(self.file, 0o600)
        self.assert_run(run("key", "check", self.file), 0,
                        f"{self.file}: sound, a key of 4 characters in the 16-byte form\n",
                        "callorv: warning: the key has control characters, which a packet carries as they are\n")

    def test_a_missing_file(self):
        path = self.path("none.key")
        self.assert_run(run("key", "check", path), 1, "",
                        f"callorv: {path}: No such file or directory (the library says: File not found({path}))\n")

    def test_what_is_suspicious(self):
        os.chmod(self.file, 0o640)
        with open(self.file, "ab") as file:
            file.write(b"?")
        warnings = ["others than the owner may access the file: chmod 600", "1 byte behind the key is ignored"]
        self.assert_run(run("key", "check", self.file), 0,
                        f"{self.file}: sound, a key of 11 characters in the 16-byte form\n",
                        "".join(f"callorv: warning: {w}\n" for w in warnings))
        result = run("key", "check", self.file, "--json")
        self.assertEqual(json.loads(result.stdout)["warnings"], warnings)

    def test_wrong_usage(self):
        self.assert_usage("key check", run("key", "check"), "FILE is required")
        self.assert_usage("key", run("key", "unmake"), "there is no command 'unmake': make, check, rekey; "
                          "did you mean 'make'?")

    def test_help_teaches_by_example(self):
        for command in (["key"], ["key", "make"], ["key", "check"]):
            result = run(*command, "--help")
            self.assert_run(result, 0, err="")
            self.assertRegex(result.stdout.decode(), r"Examples:\n  callorv key ")


if __name__ == "__main__":
    unittest.main()
