"""callorv dict show, diff and schema."""
import json
import pathlib
import shlex
import unittest

import jsonschema

from support import CallTest, DICTIONARY, Server, ToolTest, run

ODD = pathlib.Path(__file__).resolve().parent / "generated" / "dictionary.xml"


def dictionary(*messages):
    return "<msg_dictionary>" + "".join(messages) + "</msg_dictionary>"


def message(number, name, *tags, more=""):
    """A message with tags given as (number, name, type[, more attributes])."""
    return f"<msg no='{number}' name='{name}' {more}>" + "".join(
        f"<tag no='{tag[0]}' name='{tag[1]}' type='{tag[2]}' {' '.join(tag[3:])}/>" for tag in tags) + "</msg>"


class ShowTest(CallTest):
    def test_the_list(self):
        self.assert_run(run("dict", "show", self.dictionary), 0, "3   Quote     1.0  9 tags\n"
                        "4   QuoteRow       3 tags\n10  REJECT         3 tags\n", "")
        result = run("dict", "show", "--json", "-", stdin=DICTIONARY.encode())
        self.assert_run(result, 0, err="")
        self.assertEqual(json.loads(result.stdout)["messages"][1],
                         {"number": 4, "name": "QuoteRow", "version": "", "tags": 3})
        self.assert_run(run("dict", "show", self.write("none.xml", dictionary())), 0, "", "")

    def test_a_message(self):
        secret = self.path("d.exml")
        run("dict", "encrypt", self.dictionary, secret)
        expected = """message 3 Quote, version 1.0, 9 tags

  1  code   string
  2  price  double
  3  open   bool
  4  rows   m4 QuoteRow, array
      1  time   date
      2  price  double
      3  text   string
  5  day    date
  6  count  integer
  7  list   integer, array
  8  head   m4 QuoteRow (shown already)
  9  names  string, array

As JSON, for callorv call --data:

{
  "code": "ABC",
  "price": 1.5,
  "open": true,
  "rows": [
    {
      "time": "20260131",
      "price": 1.5,
      "text": "ABC"
    }
  ],
  "day": "20260131",
  "count": 7,
  "list": [
    7,
    8
  ],
  "head": {
    "time": "20260131",
    "price": 1.5,
    "text": "ABC"
  },
  "names": [
    "ABC",
    "DEF"
  ]
}

"""
        line = ("Quote code=ABC price=1.5 open=true 'rows[0].time=20260131' 'rows[0].price=1.5' 'rows[0].text=ABC' "
                "day=20260131 count=7 list=7 list=8 head.time=20260131 head.price=1.5 head.text=ABC names=ABC "
                "names=DEF\n")
        self.assert_run(run("dict", "show", secret, "Quote"), 0, expected + "A call, with the number of your service for "
                        "SERVICE:\n\ncallorv call --config client.cfg SERVICE " + line, "")
        self.assert_run(run("dict", "show", "--config", "my client.cfg", "--service", "0", "-", "3",
                            stdin=DICTIONARY.encode()), 0,
                        expected + "A call:\n\ncallorv call --config 'my client.cfg' 0 " + line, "")

    def test_what_a_tree_cannot_show(self):
        path = self.write("d.xml", dictionary(
            message(1, "", (1, "self", "m1"), (2, "", "m1", "array='Y'"), (3, "lost", "m9", "array='Y'"), (1, "x", "bool")),
            message(2, "A&#9;", (1, "b&#133;", "m3"), (2, "b", "m3")), message(3, "B", (1, "a", "m2"), (2, "x", "bool"))))
        self.assert_run(run("dict", "show", path, "1"), 0, "message 1 \"\", 3 tags\n\n"
                        "  1  self  m1 \"\" (recursive, shown above)\n"
                        "  2  \"\"    m1 \"\", array (recursive, shown above)\n"
                        "  3  lost  m9, array, which the dictionary lacks\n\n"
                        "As JSON, for callorv call --data:\n\n{}\n\n"
                        "A call, with the number of your service for SERVICE:\n\n"
                        "callorv call --config client.cfg SERVICE 1\n", "")
        self.assert_run(run("dict", "show", path, "2"), 0, "message 2 A\ufffd, 2 tags\n\n"
                        "  1  b\ufffd  m3 B\n"
                        "      1  a  m2 A\ufffd (recursive, shown above)\n"
                        "      2  x  bool\n"
                        "  2  b   m3 B (shown already)\n\n"
                        "As JSON, for callorv call --data:\n\n"
                        '{\n  "b\\u0085": {\n    "x": true\n  },\n  "b": {\n    "x": true\n  }\n}\n\n'
                        "A call, with the number of your service for SERVICE:\n\n"
                        "callorv call --config client.cfg SERVICE 2 1.x=true b.x=true\n", "")

    def test_what_nobody_would_read_is_left_out(self):
        chain = [message(i, f"M{i}", (1, "a", f"m{i + 1}"), (2, "b", f"m{i + 1}")) for i in range(1, 40)]
        wide = message(100, "W", *((i, f"t{i}", "bool") for i in range(1, 1002)))
        path = self.write("d.xml", dictionary(*chain, message(40, "M40", (1, "x", "bool")), wide))
        shown = {name: json.loads(run("dict", "show", "--json", path, name).stdout) for name in ("M1", "M30", "W")}
        self.assertEqual([(len(shown[name]["submessages"]), shown[name]["whole"]) for name in shown],
                         [(39, False), (10, False), (0, False)])
        self.assertEqual(shown["M1"]["data"], {})
        self.assertEqual([len(shown[name]["call"].split()) - 6 for name in ("M30", "W")], [1000, 1000])
        out = run("dict", "show", path, "M1").stdout.decode()
        self.assertIn("m18 M18 (deeper ones are left out)\n", out)
        self.assertIn("\n(a part of it: there is more than anybody would read)\n", out)

    def test_messages_that_multiply(self):
        wide = [message(i, f"M{i}", *((j, f"t{j}", f"m{i + 1}") for j in range(1, 30))) for i in range(1, 16)]
        path = self.write("d.xml", dictionary(*wide, message(16, "M16")))
        shown = json.loads(run("dict", "show", "--json", path, "M1").stdout)
        self.assertEqual((shown["data"], shown["whole"], len(shown["submessages"])), ({}, False, 15))

    def test_json_of_a_message(self):
        shown = json.loads(run("dict", "show", "--json", self.dictionary, "Quote").stdout)
        dumped = json.loads(run("dict", "dump", "--json", self.dictionary).stdout)["messages"]
        self.assertEqual((shown["message"], shown["submessages"], shown["whole"]), (dumped[0], [dumped[1]], True))

    def test_what_is_shown_can_be_sent(self):
        """The line and the JSON make the same request, which comes back as it was shown."""
        self.dictionary = ODD
        with self.echo() as server:
            config = self.config(server.port)
            numbers = [found["number"] for found in json.loads(run("dict", "show", "--json", ODD).stdout)["messages"]]
            numbers.remove(10)    # a reply that rejects
            for number in numbers:
                shown = json.loads(run("dict", "show", "--json", ODD, number, "--config", config, "--service", "1201").stdout)
                words = shlex.split(shown["call"])
                self.assertEqual(words[:5], ["callorv", "call", "--config", config, "1201"])
                by_line = run(*words[1:], "--json")
                by_data = run("call", "--config", config, "--json", "1201", number, "--data", json.dumps(shown["data"]))
                with self.subTest(shown["message"]["name"]):
                    self.assert_run(by_line, 0, err="")
                    self.assertEqual((by_data.returncode, by_data.stdout), (0, by_line.stdout), by_data.stderr)
                    self.assertEqual(json.loads(by_line.stdout)["values"], shown["data"])
                    if number == 4:    # every type
                        self.assertEqual(len(shown["data"]), 12)

    def test_wrong_usage_and_names(self):
        text = f"callorv: {self.dictionary}: no message '%s' in the dictionary%s\n"
        for name, near in (("Qoute", "; did you mean 'Quote'?"), ("quoterow", "; did you mean 'QuoteRow'?"),
                           ("rej", "; did you mean 'REJECT'?"), ("5", ""),
                           ("x", ""), ("10000", "")):
            self.assert_run(run("dict", "show", self.dictionary, name), 1, "", text % (name, near))
        result = run("dict", "show", "--json", self.dictionary, "Qoute")
        self.assertEqual(json.loads(result.stdout),
                         {"error": {"text": text[9:-1] % ("Qoute", "; did you mean 'Quote'?")}})
        self.assert_usage("dict show", run("dict", "show"), "FILE is required")
        self.assert_usage("dict show", run("dict", "show", "a", "b", "c"), "unexpected argument 'c'")
        for number in ("10000", "-1", "x"):
            self.assert_usage("dict show", run("dict", "show", "a", "--service=" + number),
                              f"--service: Value {number} not in range 0 to 9999")
        self.assert_usage("dict show", run("dict", "show", "a", "--config"), "--config needs FILE behind it")


class DiffTest(ToolTest):
    def diff(self, old, new, *options):
        return run("dict", "diff", *options, self.write("old.xml", dictionary(*old)), self.write("new.xml", dictionary(*new)))

    def assert_changes(self, old, new, *expected):
        """Each (what changed, message, tag or None, old, new, which programs break), whichever way round that is."""
        result = self.diff(old, new, "--json")
        report = json.loads(result.stdout)
        found = [(c["change"], c["message"], c.get("tag"), c.get("old"), c.get("new"), c["breaks"])
                 for c in report["changes"]]
        self.assertEqual(found, list(expected))
        breaks = any(change[5] for change in expected)
        self.assert_run(result, int(breaks), err="")
        self.assertEqual(report["compatible"], not breaks)
        for change in report["changes"]:
            self.assertEqual(change["compatible"], not change["breaks"])
            self.assertTrue(change["why"])

    def test_changes_of_messages(self):
        both = ["number", "name"]
        a, b = message(1, "A", (1, "x", "bool")), message(2, "B")
        self.assert_changes([a, b], [a, b])
        self.assert_changes([a], [a, b], ("message added", 2, None, None, None, []))
        self.assert_changes([a, b], [a], ("message removed", 2, None, None, None, both))
        self.assert_changes([a], [message(1, "C", (1, "x", "bool"))], ("message renamed", 1, None, "A", "C", ["name"]))
        self.assert_changes([a], [message(3, "A", (1, "x", "bool"))],
                            ("message renumbered", 1, None, "1", "3", ["number"]))
        self.assert_changes([message(1, "A"), b], [message(2, "A"), message(1, "B")],
                            ("message renumbered", 1, None, "1", "2", ["number"]),
                            ("message renumbered", 2, None, "2", "1", ["number"]))
        self.assert_changes([message(1, "A", more="ver='1' hash='8'")], [message(1, "A", more="ver='2' hash='9'")],
                            ("version", 1, None, "1", "2", []), ("hash", 1, None, "8", "9", []))
        # a name that another message takes away
        self.assert_changes([b], [message(1, "B", (1, "x", "bool")), b],
                            ("message added", 1, None, None, None, []), ("message name", 2, None, "2", "1", ["name"]))
        # a name by which nothing was found
        self.assert_changes([message(1, "B"), b], [message(1, "B"), message(2, "C")],
                            ("message renamed", 2, None, "B", "C", []))
        self.assert_changes([message(1, "")], [message(1, "A")], ("message renamed", 1, None, "", "A", []))

    def assert_tags(self, old, new, *expected):
        self.assert_changes([message(7, "A", *old), message(8, "B"), message(9, "C")],
                            [message(7, "A", *new), message(8, "B"), message(9, "C")],
                            *[(what, 7, *rest) for what, *rest in expected])

    def test_changes_of_tags(self):
        both = ["number", "name"]
        x, y = (1, "x", "string"), (2, "y", "string")
        self.assert_tags([x, y], [x, y])
        self.assert_tags([x], [x, (2, "y", "m8", "array='Y'")], ("tag added", 2, "", "m8 array", []))
        self.assert_tags([x, y], [x], ("tag removed", 2, "string", "", both))
        self.assert_tags([x], [(1, "z", "string")], ("tag renamed", 1, "x", "z", ["name"]))
        self.assert_tags([x], [(0, "x", "string")], ("tag renumbered", 1, "1", "0", ["number"]))
        self.assert_tags([x, y], [(2, "x", "string")], ("tag renumbered", 1, "1", "2", ["number"]),
                         ("tag removed", 2, "string", "", both))
        self.assert_tags([x, y], [(2, "x", "string"), (1, "y", "string")], ("tag renumbered", 1, "1", "2", ["number"]),
                         ("tag renumbered", 2, "2", "1", ["number"]))
        self.assert_tags([x], [(1, "x", "integer")], ("type", 1, "string", "integer", both))
        self.assert_tags([(1, "x", "m8")], [(1, "x", "m9")], ("type", 1, "m8", "m9", both))
        self.assert_tags([(1, "x", "m8")], [(1, "x", "m0008")])
        self.assert_tags([x], [(1, "x", "string", "array='Y'")], ("array", 1, "N", "Y", both))
        self.assert_tags([(1, "x", "string", "array='Y'")], [x], ("array", 1, "Y", "N", both))
        self.assert_tags([x, y], [y, x], ("order", None, None, None, []))
        self.assert_tags([x], [(1, "z", "bool", "array='Y'")], ("tag renamed", 1, "x", "z", ["name"]),
                         ("type", 1, "string", "bool", both), ("array", 1, "N", "Y", both))
        # what is defined twice is written twice
        self.assert_tags([x], [x, x], ("times", 1, "1", "2", []))
        rows = (1, "x", "string", "array='Y'")
        self.assert_tags([rows, rows], [rows], ("times", 1, "2", "1", both))
        # a number that is another's now
        changes = json.loads(self.diff([message(7, "A", x, y)], [message(7, "A", (2, "x", "string"))], "--json").stdout)
        self.assertEqual([change["why"] for change in changes["changes"]],
                         ["its number is unknown (-18; in a message that is read -21)", "its number is tag 'x' now"])
        # a name that another tag takes away, or by which nothing was found
        self.assert_tags([y], [(1, "y", "string"), y], ("tag name", 2, "2", "1", ["name"]), ("tag added", 1, "", "string", []))
        self.assert_tags([(1, "y", "string"), y], [(1, "y", "string"), (2, "z", "string")],
                         ("tag renamed", 2, "y", "z", []))

    def test_a_sub_message_under_another_number(self):
        old, new = message(1, "A", (1, "x", "m2")), message(1, "A", (1, "x", "m3"))
        self.assert_changes([old, message(2, "B")], [new, message(3, "B")], ("type", 1, 1, "m2", "m3", ["number"]),
                            ("message renumbered", 2, None, "2", "3", ["number"]))

    def test_text(self):
        old = [message(3, "Quote", (1, "code", "string"), (2, "price", "double"), (3, "\u00e9t\u00e9", "date"),
                       (5, "rows", "m4", "array='Y'"), (6, "one", "bool"), more="ver='1'"), message(4, "Row")]
        new = [message(3, "Quote", (2, "cost", "double"), (1, "code", "integer"), (4, "\u00e9t\u00e9", "date"),
                       (5, "rows", "m4"), (6, "one", "bool", "array='Y'"), (7, "more", "string"), more="ver='2'"),
               message(5, "Row"), message(6, "Row")]
        result = self.diff(old, new)
        self.assert_run(result, 1, f"""\
message 3 'Quote': version from '1' to '2': compatible: the library keeps it and compares it with nothing
message 3 'Quote', tag 1 'code': type from 'string' to 'integer': BREAKS access by number and by name: what sets and gets the old type \
fails (-17)
message 3 'Quote', tag 2 'price': renamed from 'price' to 'cost': BREAKS access by name: its old name is unknown, or \
another's; by number it is what it was
message 3 'Quote', tag 3 '\u00e9t\u00e9': renumbered from '3' to '4': BREAKS access by number: its number is unknown \
(-18; in a message that is read -21)
message 3 'Quote', tag 5 'rows': array from 'Y' to 'N': BREAKS access by number and by name: of several values the last is sent, and asking \
for one after the other never ends; by name it is a value, where it was a list
message 3 'Quote', tag 6 'one': array from 'N' to 'Y': BREAKS access by number and by name: a value that is set again is appended, where it \
was replaced; by name it is a list, where it was a value
message 3 'Quote', tag 7 'more': added, string: compatible: it is passed over where the new dictionary is loaded; where \
the old one still is, a message that has it is refused (-21)
message 3 'Quote': the order of its tags changed: compatible: tags are written in another order; who reads them goes by \
number or name
message 4 'Row': renumbered from '4' to '5': BREAKS access by number: its number is unknown (-19; in a reply -21)
message 6 'Row': added: compatible: no program that was built for the old dictionary asks for it
10 changes from {self.path('old.xml')} to {self.path('new.xml')}; not all programs that were built for \
{self.path('old.xml')} go on working
""", "")
        secret = self.path("new.exml")
        run("dict", "encrypt", self.path("new.xml"), secret)
        self.assert_run(run("dict", "diff", "-", secret, stdin=self.read("new.xml")), 0,
                        f"0 changes from standard input to {secret}; all programs that were built for standard input go on "
                        "working\n", "")

    def test_a_file_that_cannot_be_read_is_another_status(self):
        bad, missing = self.write("bad.xml", "<x/>"), self.path("missing.xml")
        said = f"{bad}: the library says: InitDictionary(Handler error : Unknown root element - x); callorv dict check " \
               "says everything"
        self.assert_run(run("dict", "diff", self.dictionary, bad), 2, "", f"callorv: {said}\n")
        result = run("dict", "diff", "--json", bad, self.dictionary)
        self.assert_run(result, 2, err=f"callorv: {said}\n")
        self.assertEqual(json.loads(result.stdout), {"old": bad, "new": self.dictionary, "error": {"text": said}})
        self.assert_run(run("dict", "diff", missing, self.dictionary), 2, "")
        self.assert_usage("dict diff", run("dict", "diff", self.dictionary), "NEW is required")
        self.assert_usage("dict diff", run("dict", "diff"), "OLD is required")
        self.assert_usage("dict diff", run("dict", "diff", "a", "b", "c"), "unexpected argument 'c'")
        self.assert_usage("dict diff", run("dict", "diff", "-", "-"),
                          "OLD and NEW are both standard input, which is there once")


class DictSchemaTest(CallTest):
    def schema(self, path, *message):
        result = run("dict", "schema", path, *message)
        self.assert_run(result, 0, err="")
        schema = json.loads(result.stdout)
        jsonschema.Draft202012Validator.check_schema(schema)
        return schema, jsonschema.Draft202012Validator(schema)

    def test_it_takes_what_is_sent_and_what_comes(self):
        every, all_of_them = self.schema(ODD)
        self.assertEqual(len(every["$defs"]), 12)
        self.dictionary = ODD
        with Server("--dictionary", ODD, "--echo") as server:
            config = self.config(server.port)
            for number in (1, 4, 5):
                data = json.loads(run("dict", "show", "--json", ODD, number).stdout)["data"]
                reply = json.loads(run("call", "--config", config, "--json", "1201", number, "--data",
                                       json.dumps(data)).stdout)
                one, of_one = self.schema(ODD, number)
                self.assertEqual((one["title"], sorted(one["$defs"])), (reply["name"], sorted({"m1", f"m{number}"})))
                for validator, value in ((all_of_them, reply), (of_one, reply), (of_one, data)):
                    validator.validate(value)
                self.assertFalse(all_of_them.is_valid({**reply, "message": 2}))
                self.assertFalse(of_one.is_valid({**reply, "message": 2}))

    def test_each_type_has_its_bounds(self):
        _, quote = self.schema(self.dictionary, "Quote")
        taken = ({}, {"code": None, "rows": None}, {"1": "a", "2": 1, "4": [{"3": "x"}]}, {"count": 2147483647},
                 {"count": -2147483648}, {"count": 7.0}, {"price": -1e300}, {"code": "\u00ff\t\n\x80 ]] >"}, {"code": ""},
                 {"day": ""}, {"day": "2026-1 1"}, {"open": False}, {"list": []}, {"head": {}}, {"rows": [{}]},
                 {"message": 3, "values": {}}, {"message": "Quote", "name": "Quote", "version": "1.0", "values": None},
                 {"message": "3", "name": None, "version": None, "values": {"6": 1}})
        refused = ({"cods": "a"}, {"10": 1}, {"code": 1}, {"count": 2147483648}, {"count": -2147483649}, {"count": 1.5},
                   {"count": "1"}, {"price": "1"}, {"open": 1}, {"open": "true"}, {"code": "\u0100"}, {"code": "a\rb"},
                   {"code": "\x1f"}, {"code": "a]]>"}, {"day": "123456789"}, {"day": "today"}, {"list": 1}, {"list": [None]},
                   {"list": ["1"]}, {"names": [""]}, {"head": []}, {"rows": {}}, {"rows": [None]}, {"rows": [{"x": 1}]},
                   {"1": 1}, {"message": 4, "values": {}}, {"message": 3, "values": {"x": 1}}, [], 3,
                   {"message": 3, "values": {}, "more": 1}, {"message": 3, "values": {}, "version": "12345678901234567"},
                   {"message": 3, "values": {}, "version": "<"}, {"message": 3, "values": {}, "name": "Row"})
        with self.echo() as server:
            for value, sound in [(value, True) for value in taken] + [(value, False) for value in refused]:
                with self.subTest(value=value):
                    self.assertEqual(quote.is_valid(value), sound)
                    # the command judges alike
                    self.assertEqual(self.call(server, 1201, "3", "--data", json.dumps(value)).returncode == 0, sound)

    def test_names_that_are_hard_to_point_at(self):
        path = self.write("d.xml", dictionary(message(1, "12", (1, "a/b~c %", "integer"), (2, "", "bool"), (3, "7", "bool"),
                                                      (4, "lost", "m9"), (5, "gone", "m9", "array='Y'"), (6, "\u00e9", "date"),
                                                      (0, "1", "string"), (6, "twice", "bool"))))
        schema, validator = self.schema(path, "1")
        self.assertEqual(sorted(schema["$defs"]["m1"]["properties"]),
                         sorted(["0", "1", "2", "3", "4", "5", "6", "a/b~c %", "lost", "gone", "\u00e9"]))
        for value, sound in (({"1": 1, "2": True, "3": True, "6": "1", "0": "x"}, True), ({"1": "x"}, False),
                             ({"a/b~c %": 1, "\u00e9": "1"}, True), ({"6": True}, False), ({"lost": None, "gone": []}, True),
                             ({"lost": {}}, False), ({"5": [{}]}, False), ({"twice": True}, False), ({"7": True}, False),
                             ({"message": 1, "values": {}}, True), ({"message": "12", "values": {}}, False)):
            with self.subTest(value=value):
                self.assertEqual(validator.is_valid(value), sound)

    def test_failures(self):
        self.assert_run(run("dict", "schema", self.dictionary, "Qoute"), 1, "", f"callorv: {self.dictionary}: no message "
                        "'Qoute' in the dictionary; did you mean 'Quote'?\n")
        self.assert_usage("dict schema", run("dict", "schema"), "FILE is required")
        self.assert_usage("dict schema", run("dict", "schema", "a", "b", "c"), "unexpected argument 'c'")
        schema, validator = self.schema(self.write("none.xml", dictionary()))
        self.assertEqual(schema["$defs"], {})
        self.assertFalse(validator.is_valid({"message": 1, "values": {}}))


if __name__ == "__main__":
    unittest.main()
