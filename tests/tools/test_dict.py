"""callorv dict: check, dump, encrypt, decrypt and html."""
import json
import os
import re
import stat
import unittest

from support import DICTIONARY, FOREIGN_DICTIONARY, ToolTest, run

REJECT = ("<msg no='10' name='REJECT'><tag no='6' name='SysCode' type='integer'/>"
          "<tag no='7' name='SysReasonText' type='string'/><tag no='8' name='RefSvcNum' type='integer'/></msg>")


def dictionary(*lines):
    """A dictionary whose messages begin in line 3; message 10 is in line 2."""
    return "<msg_dictionary>\n" + REJECT + "\n" + "".join(line + "\n" for line in lines) + "</msg_dictionary>\n"


def message(number, *tags, more="", name=None):
    """One line: a message with tags given as (number, name, type[, more attributes])."""
    text = f"<msg no='{number}' name='{name or 'M' + str(number)}' {more}>"
    for tag in tags:
        text += f"<tag no='{tag[0]}' name='{tag[1]}' type='{tag[2]}' {' '.join(tag[3:])}/>"
    return text + "</msg>"


class CheckTest(ToolTest):
    def check(self, text, *options, name="d.xml"):
        return run("dict", "check", self.write(name, text), *options)

    def findings(self, text):
        """[(line, severity, text)] and what the library says."""
        result = self.check(text, "--json")
        report = json.loads(result.stdout)
        self.assertEqual(result.returncode, 1 if "library" in report else 0)
        self.assertEqual(result.stderr, b"")
        found = [(f["line"], f["severity"], f["text"]) for f in report["findings"]]
        self.assertEqual(report["errors"], sum(f[1] == "error" for f in found))
        self.assertEqual(report["warnings"], sum(f[1] == "warning" for f in found))
        self.assertEqual("library" in report, report["errors"] > 0)    # both judge alike
        return found, report.get("library")

    def assert_found(self, text, *expected, library=None):
        self.assertEqual(self.findings(text), (list(expected), library))

    def test_nothing_is_wrong(self):
        path = self.dictionary
        self.assert_run(run("dict", "check", path), 0, f"{path}: 3 messages, 15 tags, 0 errors, 0 warnings\n", "")
        self.assert_run(run("dict", "check", "--strict", path), 0, err="")
        self.assert_found(dictionary())
        self.assert_found(dictionary("<msg no='1' name='A' ver='' hash=''><constraint x='1'><tag no='z'/></constraint>"
                                     "<tag no='2147483647' name='_a-b.9' type='date' array='N'><what/></tag></msg>"))

    def test_everything_is_said_with_its_line(self):
        path = self.path("d.xml")
        result = self.check(dictionary(
            message(3, (1, "a", "strin"), (-2, "b", "m0")),
            message(3),
            "<message/>",
            "<msg no='0' name='Z'><tog/><tag no='1' name='c' type='M4'/></msg>"))
        self.assert_run(result, 1,
                        f"{path}:3: error: message 3, tag 1: type 'strin' is none of string, integer, double, bool, "
                        "date, and m with a number; did you mean 'string'?\n"
                        f"{path}:3: error: message 3, tag -2: the number is negative\n"
                        f"{path}:3: error: message 3, tag -2: type 'm0' names a message outside 1 to 9999\n"
                        f"{path}:4: error: message 3 is defined again; first in line 3\n"
                        f"{path}:5: error: element 'message' stands where only 'msg' may\n"
                        f"{path}:6: error: message 0: the number is outside 1 to 9999\n"
                        f"{path}:6: error: element 'tog' stands where only 'tag' and 'constraint' may; did you "
                        "mean 'tag'?\n"
                        f"{path}:6: error: message 0, tag 1: type 'M4' is none of string, integer, double, bool, "
                        "date, and m with a number; did you mean 'm4'?\n"
                        f"{path}: 4 messages, 6 tags, 8 errors, 0 warnings\n",
                        f"callorv: {path}: the library says: InitDictionary(Handler error : tagtype=strin)\n")

    def test_each_error_is_what_the_library_refuses(self):
        rows = [
            ("<dictionary/>", 1, "the root element is 'dictionary', not 'msg_dictionary'",
             "InitDictionary(Handler error : Unknown root element - dictionary)"),
            ("<msg_dictionary>\n<tag/>\n</msg_dictionary>", 2, "element 'tag' stands where only 'msg' may",
             "InitDictionary(Handler error : Unknown element - tag)"),
            (dictionary("<msg name='X'/>"), 3, "the message has no number", "InitDictionary(Handler error : msgnum=0)"),
            (dictionary(message(10000)), 3, "message 10000: the number is outside 1 to 9999",
             "InitDictionary(Handler error : msgnum=10000)"),
            (dictionary(message(7, name="Order"), message(7, name="Order")), 4,
             "message 7 is defined again; first in line 3", "InitDictionary(Handler error : msgnum=7,msgname=Order)"),
            (dictionary(message(7, (-1, "a", "string"))), 3, "message 7, tag -1: the number is negative",
             "InitDictionary(Handler error : msgnum=7,tagnum=-1)"),
            (dictionary(message(7, (1, "a", "m10000"))), 3,
             "message 7, tag 1: type 'm10000' names a message outside 1 to 9999",
             "InitDictionary(Handler error : submsg=m10000)"),
            (dictionary(message(7, (1, "a", "submsg"))), 3,
             "message 7, tag 1: type 'submsg' is none of string, integer, double, bool, date, and m with a number",
             "InitDictionary(Handler error : tagtype=submsg)"),
            (dictionary("<msg no='7' name='A'><tag no='1' name='a'/></msg>"), 3,
             "message 7, tag 1: type '' is none of string, integer, double, bool, date, and m with a number",
             "InitDictionary(Handler error : tagtype=)"),
            (dictionary(message(7, (1, "a", "m"))), 3, "message 7, tag 1: type 'm' names a message outside 1 to 9999",
             "InitDictionary(Handler error : submsg=m)"),
        ]
        for text, line, finding, library in rows:
            with self.subTest(finding):
                found, said = self.findings(text)
                self.assertIn((line, "error", finding), found)
                self.assertEqual(said, library)

    def test_malformed_xml_ends_the_list(self):
        path = self.path("d.xml")
        text = "<msg_dictionary>\n<msg no='1' name='A' typo='1'>\n<tag no='1' name='a' type='m9'/>\n</mgs>\n"
        result = self.check(text)
        fatal = f"Handler error : [F]{path} (L:4, C:3) : expected end of tag 'msg'"
        self.assert_run(result, 1,
                        f"{path}:2: warning: message 1: attribute 'typo' is not known and is ignored\n"
                        f"{path}:4: error: {fatal}\n"
                        f"{path}: 1 message, 1 tag, 1 error, 1 warning\n",
                        f"callorv: {path}: the library says: InitDictionary({fatal})\n")

    def test_suspicious_things(self):
        rows = [
            (message(7, (1, "a", "m99")), ["message 7, tag 1: message 99 is not defined"]),
            (message(7, (1, "a", "string"), (1, "b", "string")),
             ["message 7, tag 1 is defined again; the definition in line 3 counts"]),
            (message(7, (1, "a", "string"), (2, "a", "string")),
             ["message 7, tag 2: the name 'a' is taken by tag 1 in line 3"]),
            (message(7, (1, "a b", "string")),
             ["message 7, tag 1: 'a b' is no name for an XML element, as messages written by name need"]),
            (message(7, (1, "1a", "string")),
             ["message 7, tag 1: '1a' is no name for an XML element, as messages written by name need"]),
            (message(7, (1, "", "string")), ["message 7, tag 1 has no name"]),
            (message(7, (1, "a", "string", "array='y'")),
             ["message 7, tag 1: array 'y' is neither 'Y' nor 'N' and counts as 'N'"]),
            (message(7, (1, "a", "string", "multi='Y'")),
             ["message 7, tag 1: attribute 'multi' is not known and is ignored"]),
            (message(7, more="version='1'"),
             ["message 7: attribute 'version' is not known and is ignored; did you mean 'ver'?"]),
            (message("7x"), ["message number '7x' is read as 7"]),
            (message(7, ("1x", "a", "string")), ["message 7, tag 'a': number '1x' is read as 1"]),
            (message(7, (1, "a", "m7x")), ["message 7, tag 1: type 'm7x' is read as m7",
                                           "message 7, tag 1: message 7 holds itself (7 > 7)"]),
            ("<msg no='7' name='A'><tag name='a' type='string'/></msg>",
             ["message 7, tag 'a' has no number, which counts as 0"]),
            ("<msg no='7'/>", ["message 7 has no name"]),
            (message(7, name="REJECT"), ["message 7: the name 'REJECT' is taken by message 10 in line 2"]),
            (message(7, (1, "a&#256;", "string")),
             ["message 7, tag 1: attribute 'name' has characters beyond ISO-8859-1, of which only the low byte is "
              "kept"]),
            (message(7, (1, "\u00e9t\u00e9", "string")), []),
        ]
        for line, expected in rows:
            with self.subTest(line):
                self.assert_found(dictionary(line), *[(3, "warning", text) for text in expected])

    def test_hash(self):
        close = [(i, f"t{i}", "string") for i in range(1, 6)]
        far = [(i * 64, f"t{i}", "string") for i in range(1, 11)]
        rows = [
            (message(7, *close, more="hash='0'"),
             "message 7: hash 0 is outside 1 to 128 and counts as 128; 5 would do"),
            (message(7, *close, more="hash='129'"),
             "message 7: hash 129 is outside 1 to 128 and counts as 128; 5 would do"),
            (message(7, *far, more="hash='-3'"),
             "message 7: hash -3 is outside 1 to 128 and counts as 128; 11 would do"),
            (message(7, *far, more="hash='128'"), None),       # two in each place are few
            (message(7, *far, more="hash='64'"),
             "message 7: hash 64 puts 10 tags in one place; with 11 it would be at most 1"),
            (message(7, *close, more="hash='1'"), None),
        ]
        for line, text in rows:
            with self.subTest(line):
                self.assert_found(dictionary(line), *([(3, "warning", text)] if text else []))
        self.assert_found(dictionary(message(7, *close, more="hash='5x'")),
                          (3, "warning", "message 7: hash '5x' is read as 5"))

    def test_recursion(self):
        self.assert_found(dictionary(message(1, (1, "self", "m1", "array='Y'"))),
                          (3, "warning", "message 1, tag 1: message 1 holds itself (1 > 1)"))
        self.assert_found(dictionary(message(1, (1, "a", "m2"), (2, "b", "m3")), message(2, (1, "a", "m3")),
                                     message(3, (1, "x", "string"), (2, "a", "m1"), (3, "b", "m2"))),
                          (5, "warning", "message 3, tag 2: message 1 holds itself (1 > 2 > 3 > 1)"),
                          (5, "warning", "message 3, tag 3: message 2 holds itself (2 > 3 > 2)"))
        # a message that is reached twice is no circle
        self.assert_found(dictionary(message(1, (1, "a", "m2"), (2, "b", "m3")), message(2, (1, "a", "m3")),
                                     message(3)))

    def test_a_long_chain_of_messages(self):
        lines = [message(i, (1, "a", f"m{i + 1}")) for i in range(11, 9999)] + [message(9999, (1, "a", "m11"))]
        found, _ = self.findings(dictionary(*lines))
        self.assertEqual(found, [(9999 - 11 + 3, "warning", "message 9999, tag 1: message 11 holds itself "
                                  "(11 > 12 > 13 > 14 > ... > 9998 > 9999 > 11)")])

    def test_the_rejection_message(self):
        none = "message 10 (REJECT), by which a server rejects a call, is not defined"
        self.assert_found("<msg_dictionary/>", (1, "warning", none))
        self.assert_found(
            "<msg_dictionary>\n<msg no='10' name='R'><tag no='6' name='SysCode' type='string'/>"
            "<tag no='7' name='SysReasonText' type='string'/></msg></msg_dictionary>",
            (2, "warning", "message 10 has no tag 6 (SysCode) of type integer, which a rejection needs"),
            (2, "warning", "message 10 has no tag 8 (RefSvcNum) of type integer, which a rejection needs"))

    def test_strict_fails_for_warnings(self):
        text = "<msg_dictionary/>"
        self.assert_run(self.check(text), 0, err="")
        self.assert_run(self.check(text, "--strict"), 1, err="")

    def test_an_encrypted_dictionary(self):
        path = self.path("d.exml")
        self.assert_run(run("dict", "encrypt", self.dictionary, path), 0, "", "")
        self.assert_run(run("dict", "check", path), 0, f"{path}: 3 messages, 15 tags, 0 errors, 0 warnings\n", "")

    def test_what_the_library_quotes_is_shown_in_utf_8(self):
        path = self.write("\u00fc.xml", b"<?xml version='1.0' encoding='ISO-8859-1' ?><W\xf6rter/>")
        result = run("dict", "check", path)
        self.assert_run(result, 1, err=f"callorv: {path}: the library says: "
                                       "InitDictionary(Handler error : Unknown root element - W\u00f6rter)\n")
        self.assertIn(f"{path}:1: error: the root element is 'W\u00f6rter', not 'msg_dictionary'\n",
                      result.stdout.decode())

    def test_files_that_cannot_be_read(self):
        path = self.path("none.xml")
        self.assert_run(run("dict", "check", path), 1, "",
                        f"callorv: {path}: No such file or directory (the library says: Handler error : [F] (L:0, C:0) "
                        f": unable to open primary document entity '{path}')\n")
        path = self.path("none.exml")
        self.assert_run(run("dict", "check", path), 1, "", f"callorv: {path}: No such file or directory (the library "
                        f"says: Handler error : File not found({path}))\n")
        path = self.write("odd.exml", "odd")
        self.assert_run(run("dict", "check", path), 1, "",
                        f"callorv: {path}: 3 bytes, which is no multiple of 16; not encrypted, or cut off: copy it "
                        "again (the library says: Handler error : File may be corrupted)\n")

    def test_standard_input(self):
        data = dictionary(message(3, (1, "a", "strin"))).encode()
        run("dict", "encrypt", self.write("d.xml", data), self.path("d.exml"))
        for stdin in (data, self.read("d.exml")):
            self.assert_run(run("dict", "check", "-", stdin=stdin), 1,
                            "standard input:3: error: message 3, tag 1: type 'strin' is none of string, integer, "
                            "double, bool, date, and m with a number; did you mean 'string'?\n"
                            "standard input: 2 messages, 4 tags, 1 error, 0 warnings\n",
                            "callorv: standard input: the library says: InitDictionary(Handler error : "
                            "tagtype=strin)\n")
        self.assertEqual(json.loads(run("dict", "check", "-", "--json", stdin=data).stdout)["file"], "standard input")
        result = run("dict", "check", "-", stdin=b"<msg_dictionary>\n<")
        self.assert_run(result, 1, err="callorv: standard input: the library says: InitDictionary(Handler error : "
                                       "[F]standard input (L:2, C:2) : element name expected)\n")
        self.assertIn("standard input:2: error: Handler error : [F]standard input (L:2, C:2)", result.stdout.decode())
        self.assert_run(run("dict", "check", "-", stdin=b"hello"), 1, "",
                        "callorv: standard input: no XML; if it is encrypted, its name must end in .exml (the library "
                        "says: InitDictionary(Handler error : [F]standard input (L:1, C:1) : invalid document "
                        "structure))\n")
        for command, *more in (("dump",), ("html", "-o", "-")):
            for stdin in (DICTIONARY.encode(), self.read("d.exml")):
                piped = run("dict", command, "-", *more, stdin=stdin)
                named = run("dict", command, self.dictionary, *more)
                self.assertEqual((piped.returncode, piped.stdout.replace(b"standard input", b"dictionary.xml")),
                                 (0, named.stdout) if stdin == DICTIONARY.encode() else (1, b""))

    def test_several_files(self):
        good, bad, odd = self.dictionary, self.write("bad.xml", dictionary(message(3, (1, "a", "strin")))), self.path("no.xml")
        warned = self.write("warned.xml", "<msg_dictionary/>")
        lines = {name: run("dict", "check", name).stdout.decode() for name in (good, bad, warned)}
        refused = f"callorv: {bad}: the library says: InitDictionary(Handler error : tagtype=strin)\n"
        missing = (f"callorv: {odd}: No such file or directory (the library says: Handler error : [F] (L:0, C:0) : unable "
                   f"to open primary document entity '{odd}')\n")
        self.assert_run(run("dict", "check", bad, good, odd, warned), 1, lines[bad] + lines[good] + lines[warned],
                        refused + missing)
        self.assert_run(run("dict", "check", warned, good), 0, lines[warned] + lines[good], "")
        self.assert_run(run("dict", "check", "--strict", warned, good), 1, lines[warned] + lines[good], "")
        self.assert_run(run("dict", "check", good, "-", stdin=DICTIONARY.encode()), 0,
                        lines[good] + lines[good].replace(good, "standard input"), "")
        result = run("dict", "check", "--json", bad, odd, good)
        self.assert_run(result, 1, err=missing)
        one = [json.loads(run("dict", "check", "--json", name).stdout) for name in (bad, odd, good)]
        self.assertEqual(json.loads(result.stdout), {"files": one})
        self.assertEqual([sorted(file) for file in one[1:]], [["error", "file"], ["errors", "file", "findings", "messages",
                                                                                  "tags", "warnings"]])
        self.assert_usage("dict check", run("dict", "check", "-", good, "-"),
                          "FILE - is standard input, which is there once")

    def test_near_names(self):
        known = "is none of string, integer, double, bool, date, and m with a number"
        for kind, meant in (("Double", "double"), ("STRING", "string"), ("strnig", "string"), ("int", "integer"),
                            ("boolean", "bool"), ("M4", "m4"), ("datetime", "date"), ("char", None), ("x", None)):
            text = f"message 7, tag 1: type '{kind}' {known}" + (f"; did you mean '{meant}'?" if meant else "")
            self.assertIn((3, "error", text), self.findings(dictionary(message(7, (1, "a", kind))))[0])
        for line, text in (
                ("<msg no='7' nmae='A' name='A'/>",
                 "message 7: attribute 'nmae' is not known and is ignored; did you mean 'name'?"),
                ("<msg no='7' Hash='9' name='A'/>",
                 "message 7: attribute 'Hash' is not known and is ignored; did you mean 'hash'?"),
                ("<msg no='7' name='A'><tag no='1' name='a' type='bool' arry='Y'/></msg>",
                 "message 7, tag 1: attribute 'arry' is not known and is ignored; did you mean 'array'?"),
                ("<mgs no='7' name='A'/>", "element 'mgs' stands where only 'msg' may; did you mean 'msg'?"),
                ("<msg no='7' name='A'><Tag/></msg>",
                 "element 'Tag' stands where only 'tag' and 'constraint' may; did you mean 'tag'?"),
                ("<msg no='7' name='A'><constrain/></msg>",
                 "element 'constrain' stands where only 'tag' and 'constraint' may; did you mean 'constraint'?"),
                ("<msg no='7' name='A'><price/></msg>",
                 "element 'price' stands where only 'tag' and 'constraint' may")):
            self.assertIn(text, [found[2] for found in self.findings(dictionary(line))[0]])

    def test_wrong_usage(self):
        self.assert_usage("dict check", run("dict", "check"), "FILE is required")
        self.assert_usage("dict", run("dict"), "a command is needed: check, show, diff, schema, dump, encrypt, decrypt, rekey, html")


class DumpTest(ToolTest):
    def test_text(self):
        path = self.write("d.xml", "<msg_dictionary><msg no='3' name='Quote' hash='16'><tag no='1' name='code' "
                          "type='string'/><tag no='2' name='\u00e9t&#9;' type='m4' array='Y'/></msg></msg_dictionary>")
        self.assert_run(run("dict", "dump", path), 0,
                        "<msg no='3' name='Quote' hash='16'>\n"
                        "\t<tag no='1' name='code' type='string' array='N' />\n"
                        "\t<tag no='2' name='\u00e9t\t' type='m0004' array='Y' />\n"
                        "</msg>\n\n", "")

    def test_json(self):
        result = run("dict", "dump", "--json", self.dictionary)
        self.assert_run(result, 0, err="")
        messages = json.loads(result.stdout)["messages"]
        self.assertEqual([m["number"] for m in messages], [3, 4, 10])
        self.assertEqual(messages[1], {
            "number": 4, "name": "QuoteRow", "version": "", "hash": 128, "tags": [
                {"number": 1, "name": "time", "type": "date", "array": False},
                {"number": 2, "name": "price", "type": "double", "array": False},
                {"number": 3, "name": "text", "type": "string", "array": False}]})
        self.assertEqual(messages[0]["version"], "1.0")
        self.assertEqual(messages[0]["tags"][3],
                         {"number": 4, "name": "rows", "type": "submsg", "submessage": 4, "array": True})

    def test_failures(self):
        path = self.write("d.xml", dictionary(message(10)))
        self.assert_run(run("dict", "dump", path), 1, "",
                        f"callorv: {path}: the library says: InitDictionary(Handler error : msgnum=10,msgname=M10); "
                        "callorv dict check says everything\n")
        self.assert_usage("dict dump", run("dict", "dump"), "FILE is required")


class EncryptTest(ToolTest):
    def encrypt(self, data):
        """What is encrypted need not be a dictionary, though it is said when it is none."""
        self.write("plain", data)
        self.assert_run(run("dict", "encrypt", self.path("plain"), self.path("secret.exml")), 0, "")
        return self.read("secret.exml")

    def test_decrypt_gives_back_what_was_encrypted(self):
        content = bytes((i * 7 + i // 251) % 256 for i in range(5000))
        for length in (*range(0, 34), 47, 48, 49, *range(50, 4097, 499), 4095, 4096):
            with self.subTest(length=length):
                secret = self.encrypt(content[:length])
                self.assertEqual(len(secret), length // 16 * 16 + 16)
                self.assertNotEqual(secret[:min(length, 16)], content[:min(length, 16)] or None)
                result = run("dict", "decrypt", self.path("secret.exml"))
                self.assertEqual((result.returncode, result.stdout, result.stderr), (0, content[:length], b""))

    def test_files_and_streams(self):
        secret = self.encrypt(DICTIONARY)
        self.assert_run(run("dict", "encrypt", "-", self.path("other.exml"), stdin=DICTIONARY.encode()), 0, "", "")
        self.assertEqual(self.read("other.exml"), secret)
        self.assert_run(run("dict", "decrypt", self.path("other.exml"), self.path("out.xml")), 0, "", "")
        self.assertEqual(self.read("out.xml"), DICTIONARY.encode())
        self.assert_run(run("dict", "decrypt", self.path("other.exml"), "-"), 0, DICTIONARY, "")
        self.assertEqual(run("dict", "dump", self.path("other.exml")).stdout,
                         run("dict", "dump", self.dictionary).stdout)

    def test_a_file_is_replaced_whole(self):
        out = self.write("out.xml", "x" * 10000)
        os.symlink(out, self.path("link.xml"))
        self.encrypt("short")
        self.assert_run(run("dict", "decrypt", self.path("secret.exml"), self.path("link.xml")), 0, "", "")
        self.assertEqual(self.read("out.xml"), b"short")
        self.assertTrue(os.path.islink(self.path("link.xml")))
        self.assert_run(run("dict", "encrypt", self.path("secret.exml"), self.path("secret.exml")), 0, "")
        self.assertEqual(sorted(os.listdir(self.dir)),
                         ["dictionary.xml", "link.xml", "out.xml", "plain", "secret.exml"])

    def test_ordinary_files_have_the_ordinary_mode(self):
        old = os.umask(0o027)
        try:
            self.encrypt("text")
        finally:
            os.umask(old)
        self.assertEqual(stat.S_IMODE(os.stat(self.path("secret.exml")).st_mode), 0o640)

    def test_what_is_no_dictionary_is_told(self):
        secret = self.encrypt(DICTIONARY)
        plain = self.path("plain")
        for data, text in (
                (DICTIONARY, None),
                (secret, f"{plain}: encrypted already; now it is so twice, and no library reads it"),
                (FOREIGN_DICTIONARY, f"{plain}: no dictionary; encrypted already, under another SEED key?"),
                ("price=1", f"{plain}: no dictionary; it is encrypted all the same"),
                ("", f"{plain}: no dictionary; it is encrypted all the same"),
                ("<msg_dictionary><x/></msg_dictionary>", f"{plain}: the library says: InitDictionary(Handler error : "
                 "Unknown element - x); callorv dict check says everything"),
                ("<msg_dictionary>\n<", f"{plain}: the library says: InitDictionary(Handler error : [F]{plain} "
                 "(L:2, C:2) : element name expected); callorv dict check says everything")):
            with self.subTest(data=data):
                self.write("plain", data)
                err = f"callorv: warning: {text}\n" if text else ""
                self.assert_run(run("dict", "encrypt", plain, self.path("s.exml")), 0, "", err)
                err = err.replace(plain, "standard input")
                stdin = data if isinstance(data, bytes) else data.encode()
                self.assert_run(run("dict", "encrypt", "-", self.path("s.exml"), stdin=stdin), 0, "", err)

    def test_a_device_is_written_as_it_is(self):
        self.encrypt("text")
        self.assert_run(run("dict", "decrypt", self.path("secret.exml"), "/dev/null"), 0, "", "")
        self.assertTrue(stat.S_ISCHR(os.stat("/dev/null").st_mode))
        self.assert_run(run("dict", "decrypt", self.path("secret.exml"), "/dev/full"), 1, "",
                        "callorv: /dev/full: No space left on device\n")

    def test_failures(self):
        self.assert_run(run("dict", "decrypt", self.path("none.exml")), 1, "",
                        f"callorv: {self.path('none.exml')}: No such file or directory (the library says: File not "
                        f"found({self.path('none.exml')}))\n")
        odd = self.write("odd", "x" * 15)
        self.assert_run(run("dict", "decrypt", odd), 1, "",
                        f"callorv: {odd}: 15 bytes, which is no multiple of 16; not encrypted, or cut off: copy it "
                        "again (the library says: File may be corrupted)\n")
        self.assert_run(run("dict", "encrypt", self.path("none"), self.path("out.exml")), 1, "",
                        f"callorv: {self.path('none')}: No such file or directory\n")
        self.assert_run(run("dict", "encrypt", self.dictionary, self.path("no/out.exml")), 1, "",
                        f"callorv: {self.path('no/out.exml')}: No such file or directory\n")
        self.assertEqual(sorted(os.listdir(self.dir)), ["dictionary.xml", "odd"])

    def test_wrong_usage(self):
        for name in ("out.xml", "out.EXML", "exml", "-"):
            self.assert_usage("dict encrypt", run("dict", "encrypt", self.dictionary, name),
                              f"{name}: the name must end in .exml, or the library takes the file for plain XML")
        self.assert_usage("dict encrypt", run("dict", "encrypt", self.dictionary), "OUT is required")
        self.assert_usage("dict decrypt", run("dict", "decrypt"), "IN is required")


class HtmlTest(ToolTest):
    """The page as a file; scripts/test-html opens it in a browser."""

    def page(self, text, *options):
        path = self.write("d <&>.xml", text)
        self.assert_run(run("dict", "html", path, "-o", self.path("d.html"), *options), 0, "", "")
        return self.read("d.html").decode()

    def data(self, page):
        return json.loads(re.search(r'<script type="application/json" id="dictionary">(.*?)</script>', page, re.S)[1])

    def test_it_holds_the_dictionary(self):
        self.assertEqual(self.data(self.page(DICTIONARY))[1:], [
            [4, "QuoteRow", "", 128, [[1, "time", "date", 0], [2, "price", "double", 0], [3, "text", "string", 0]]],
            [10, "REJECT", "", 128, [[6, "SysCode", "integer", 0], [7, "SysReasonText", "string", 0],
                                     [8, "RefSvcNum", "integer", 0]]]])
        self.assertEqual(self.data(self.page(DICTIONARY))[0][4][3], [4, "rows", 4, 1])

    def test_names_cannot_end_the_script(self):
        page = self.page(dictionary(message(1, (1, "&lt;/script&gt;&lt;!--&amp;\u00e9", "string"))))
        self.assertEqual(self.data(page)[0][4], [[1, "</script><!--&\u00e9", "string", 0]])

    def test_title(self):
        self.assertIn("<title>d &lt;&amp;>.xml</title>", self.page(DICTIONARY))
        self.assertIn("<h1>Shop {{DICTIONARY}}</h1>", self.page(DICTIONARY, "--title", "Shop {{DICTIONARY}}"))

    def test_it_needs_nothing_else(self):
        page = self.page(DICTIONARY)
        self.assertNotRegex(page, r"(?i)(src|href)\s*=\s*[\"'](?!#)|@import|url\(|https?:")
        self.assertNotRegex(page, r"\{\{[A-Z]")

    def test_standard_output(self):
        result = run("dict", "html", self.dictionary, "-o", "-")
        self.assert_run(result, 0, err="")
        self.assertTrue(result.stdout.startswith(b"<!DOCTYPE html>"))

    def test_failures(self):
        self.assert_usage("dict html", run("dict", "html", self.dictionary), "--output is required")
        path = self.write("d.xml", "<x/>")
        self.assert_run(run("dict", "html", path, "-o", self.path("o.html")), 1, "",
                        f"callorv: {path}: the library says: InitDictionary(Handler error : Unknown root element - x); "
                        "callorv dict check says everything\n")
        self.assertFalse(os.path.exists(self.path("o.html")))


class HelpTest(ToolTest):
    def test_help_teaches_by_example(self):
        for command in ("check", "dump", "encrypt", "decrypt", "html"):
            result = run("dict", command, "--help")
            self.assert_run(result, 0, err="")
            self.assertRegex(result.stdout.decode(), rf"Examples?:\n  callorv dict {command} ")


if __name__ == "__main__":
    unittest.main()
