"""What every subcommand says of a file that it cannot use."""
import os
import unittest

from support import (FOREIGN_DICTIONARY, FOREIGN_DICTIONARY_TEXT, FOREIGN_KEY_16, FOREIGN_KEY_32, FOREIGN_KEY_TEXT,
                     ToolTest, key_file, run, run_unprivileged)

# Commands that read a dictionary, a key file, or any file; FILE stands for its name, DIR for the test's folder.
DICTIONARY_READERS = ["dict check FILE", "dict dump FILE", "dict show FILE", "dict schema FILE",
                      "dict html FILE -o DIR/o.html", "generate FILE -o DIR/out",
                      "serve --dictionary FILE --echo",
                      "call --dictionary FILE --key-file DIR/user.key --server 127.0.0.1:1 1 Quote"]
KEY_READERS = ["key check FILE", "call --dictionary DIR/dictionary.xml --key-file FILE --server 127.0.0.1:1 1 Quote"]
OTHER_READERS = ["decode FILE", "dict encrypt FILE DIR/out.exml", "dict decrypt FILE DIR/out.xml",
                 "call --config FILE 1 Quote"]


class FileTest(ToolTest):
    def setUp(self):
        super().setUp()
        self.assert_run(run("key", "make", "--user-key", "USERKEY1", "-o", self.path("user.key")), 0)
        self.before = sorted(os.listdir(self.dir))

    def said(self, command, path, runner=run):
        """What a command that fails says of a file, without the file's name; nothing is left behind."""
        result = runner(*[w.replace("FILE", path).replace("DIR", self.dir) for w in command.split()])
        self.assert_run(result, 1, "")
        text = result.stderr.decode()
        self.assertTrue(text.startswith(f"callorv: {path}: "), text)
        self.assertTrue(text.endswith("\n"))
        return text[len(f"callorv: {path}: "):-1]

    def assert_said(self, commands, path, reason, runner=run):
        """Each names the file and the reason; behind that are the library's words if the library has had the file."""
        there = sorted(os.listdir(self.dir))
        for command in commands:
            with self.subTest(command=command, path=os.path.basename(path)):
                said = self.said(command, path, runner)
                head, _, words = said.partition(" (the library says: ")
                self.assertEqual(head, reason)
                if words:
                    self.assertEqual(words[-1], ")")
                self.assertEqual(sorted(os.listdir(self.dir)), there)

    def test_a_missing_file(self):
        everything = DICTIONARY_READERS + KEY_READERS + OTHER_READERS
        self.assert_said(everything, self.path("missing"), "No such file or directory")
        self.assert_said(everything, self.path("missing.exml"), "No such file or directory")
        self.assert_said(everything, self.path("dictionary.xml/x"), "Not a directory")

    def test_a_folder_is_called_one(self):
        os.mkdir(self.path("folder"))
        os.mkdir(self.path("folder.exml"))
        for name in ("folder", "folder.exml"):
            self.assert_said(DICTIONARY_READERS + KEY_READERS + OTHER_READERS, self.path(name), "a folder, not a file")
        for command in ("dict html DIR/dictionary.xml -o FILE", "key make --user-key K --force -o FILE",
                        "dict encrypt DIR/dictionary.xml FILE"):
            self.assert_said([command], self.path("folder.exml"), "a folder, not a file")

    def test_a_file_that_may_not_be_read(self):
        for name in ("d.xml", "d.exml"):
            os.chmod(self.write(name, "text"), 0)
            self.assert_said(DICTIONARY_READERS + KEY_READERS + OTHER_READERS, self.path(name), "Permission denied",
                             runner=run_unprivileged)
        os.mkdir(self.path("closed"))
        path = self.write("closed/d.xml", "text")
        os.chmod(self.path("closed"), 0)
        self.assert_said(DICTIONARY_READERS + KEY_READERS + OTHER_READERS, path, "Permission denied",
                         runner=run_unprivileged)
        self.assert_said(["dict html DIR/dictionary.xml -o FILE", "key make --user-key K -o FILE"], path,
                         "Permission denied", runner=run_unprivileged)

    def test_a_dictionary_under_another_seed_key(self):
        path = self.write("d.exml", FOREIGN_DICTIONARY)
        self.assertIn(" (the library says: InitDictionary(Handler error : [F]MsgDic.xml (L:1, ",
                      self.said("dict dump FILE", path))
        self.assert_said(DICTIONARY_READERS + ["dict decrypt FILE DIR/out.xml"], path, FOREIGN_DICTIONARY_TEXT)
        run("dict", "encrypt", self.dictionary, self.path("own.exml"))
        damaged = bytearray(self.read("own.exml"))
        damaged[64] ^= 1
        path = self.write("damaged.exml", bytes(damaged))
        self.assert_said(DICTIONARY_READERS, path, FOREIGN_DICTIONARY_TEXT)
        # what can be saved of it is saved
        self.assert_run(run("dict", "decrypt", path, self.path("saved.xml")), 0, "",
                        f"callorv: warning: {path}: {FOREIGN_DICTIONARY_TEXT}\n")
        self.assertEqual((self.read("saved.xml")[:64], self.read("saved.xml")[80:]),
                         (self.read("dictionary.xml")[:64], self.read("dictionary.xml")[80:]))

    def test_a_dictionary_that_is_or_is_not_encrypted(self):
        own = self.path("own.exml")
        run("dict", "encrypt", self.dictionary, own)
        secret = self.read("own.exml")
        rows = [
            (self.dictionary, "plain.exml", None, "plain XML, not encrypted; encrypt it: callorv dict encrypt"),
            (own, "secret.xml", None, "encrypted, but its name does not end in .exml; rename it"),
            (None, "cut.exml", secret[:33],
             "33 bytes, which is no multiple of 16; not encrypted, or cut off: copy it again"),
            (None, "one.exml", b"?", "1 byte, which is no multiple of 16; not encrypted, or cut off: copy it again"),
            (None, "empty.exml", b"", "an empty file"), (None, "empty.xml", b"", "an empty file")]
        for source, name, data, reason in rows:
            if source:
                with open(source, "rb") as file:
                    data = file.read()
            self.assert_said(DICTIONARY_READERS, self.write(name, data), reason)
        run("dict", "encrypt", own, self.path("twice.exml"))
        self.assert_said(DICTIONARY_READERS, self.path("twice.exml"),
                         "encrypted twice; decrypt it once: callorv dict decrypt")
        run("dict", "encrypt", self.write("list", "no dictionary at all"), self.path("list.exml"))
        self.assert_said(DICTIONARY_READERS, self.path("list.exml"), "encrypted, but what was encrypted is no XML")
        os.mkfifo(self.path("pipe.exml"))
        self.assert_said(DICTIONARY_READERS + KEY_READERS, self.path("pipe.exml"),
                         "a pipe or device, of which the library reads nothing; make it a file")

    def test_a_dictionary_that_the_library_refuses(self):
        path = self.write("d.xml", "<x/>")
        for command in DICTIONARY_READERS[1:]:
            self.assertEqual(self.said(command, path), "the library says: InitDictionary(Handler error : Unknown root "
                             "element - x); callorv dict check says everything")

    def test_a_key_under_another_seed_key(self):
        for secret in (FOREIGN_KEY_16, FOREIGN_KEY_32):
            self.assert_said(KEY_READERS, self.write("foreign.key", key_file(secret)), FOREIGN_KEY_TEXT)

    def test_a_file_that_is_no_key_file(self):
        data = self.read("user.key")
        again = "copy it again, or make one: callorv key make"
        for content, reason, library in (
                (data[:-1], "4143 bytes instead of 4144: no key file, or cut off; " + again, "Corrupted UserKey data"),
                (b"K", "1 byte instead of 4144: no key file, or cut off; " + again, "Corrupted UserKey data"),
                (data[:-1] + b"?", "no key file, or changed after it was made; " + again,
                 "Corrupted UserKey data(checksum)"),
                (key_file(b"ABC"), "made wrongly: its list of places ends before the key does; make it again: "
                 "callorv key make", "Corrupted UserKey data")):
            for command in KEY_READERS:
                self.assertEqual(self.said(command, self.write("k.key", content)),
                                 f"{reason} (the library says: {library})")

    def test_the_files_that_a_configuration_names(self):
        foreign = self.write("foreign.exml", FOREIGN_DICTIONARY)
        key = self.write("foreign.key", key_file(FOREIGN_KEY_16))
        missing = self.path("missing")
        good = (self.dictionary, self.path("user.key"), "127.0.0.1 1")
        config = self.path("client.cfg")
        for dictionary, key_path, server, blamed, text in (
                (foreign, good[1], good[2], foreign, FOREIGN_DICTIONARY_TEXT),
                (good[0], key, good[2], key, FOREIGN_KEY_TEXT),
                (missing, good[1], good[2], missing, "No such file or directory"),
                (good[0], missing, good[2], missing, "No such file or directory"),
                (good[0], good[1], "127.0.0.1", config, "'server' is no host, blank and port, as in server = "
                 "192.0.2.10 7000")):
            self.write("client.cfg", f"msg_dic={dictionary}\nkey_file={key_path}\nserver={server}\n")
            result = run("call", "--config", config, 1, "Quote")
            self.assert_run(result, 1, "")
            self.assertTrue(result.stderr.decode().startswith(f"callorv: {blamed}: {text}"), result.stderr)
        self.write("client.cfg", "key_file=x\n")
        self.assert_run(run("call", "--config", config, 1, "Quote"), 1, "",
                        f"callorv: {config}: the library says: cannot found 'msg_dic' key in config file\n")


if __name__ == "__main__":
    unittest.main()
