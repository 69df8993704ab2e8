"""callorv call --data: requests in JSON, and what was received sent again."""
import json
import os
import unittest

from support import CallTest, Reply, message, packet, run

QUOTE = {"code": "Z\u00fcrich", "price": 0.1, "open": True, "rows": [{"price": 1.5}, {}, {"text": "b"}],
         "day": "20260131", "count": -7, "list": [1, 2], "head": {"text": "h"}, "names": ["a", "b"]}
QUOTE_TAGS = ("<t1><![CDATA[Z\u00fcrich]]></t1><t2>1.000000000000000e-01</t2><t3>true</t3>"
              "<t4><t2>1.500000000000000e+00</t2></t4><t4></t4><t4><t3><![CDATA[b]]></t3></t4><t5>20260131</t5>"
              "<t6>-7</t6><t7>1</t7><t7>2</t7><t8><t3><![CDATA[h]]></t3></t8><t9><![CDATA[a]]></t9>"
              "<t9><![CDATA[b]]></t9>")


class DataTest(CallTest):
    def sent(self, *args, stdin=b"", answer=message(3, ""), err=""):
        """The body of the request that these arguments make."""
        port, seen = self.peer(packet(answer))
        self.assert_run(self.call(port, 1201, *args, stdin=stdin), 0, err=err)
        return Reply(seen[0]).body

    def body(self, tags, number=3, version=""):
        return message(number, tags).decode().replace('ver=""', f'ver="{version}"').encode("latin-1")

    def refused(self, args, text, stdin=b""):
        self.assert_run(self.call(1, 1201, *args, stdin=stdin), 1, "", f"callorv: {text}\n")

    def test_a_request(self):
        text = json.dumps(QUOTE)
        path = self.write("quote.json", "\ufeff" + text + "\n")
        expected = self.body(QUOTE_TAGS)
        self.assertEqual(self.sent("Quote", "--data", text), expected)
        self.assertEqual(self.sent("3", "--data", "@" + path), expected)
        self.assertEqual(self.sent("--data", "-", "Quote", stdin=text.encode()), expected)
        self.assertEqual(self.sent("Quote", "--data", "@-", stdin=text.encode()), expected)
        self.assertEqual(self.sent("Quote", "code=x", "--data", text, "list=3", "rows[2].price=2"), self.body(
            QUOTE_TAGS.replace("Z\u00fcrich", "x").replace("<t7>2</t7>", "<t7>2</t7><t7>3</t7>").replace(
                "<t4><t3>", "<t4><t2>2.000000000000000e+00</t2><t3>")))

    def test_values(self):
        for text, tags in (
                ('{}', ""), (' {"code" : null , "rows":null}\r\n\t', ""), ('{"rows":[],"list":[]}', ""),
                ('{"code":""}', ""),
                ('{"day":""}', ""), ('{"1":"a","6":1}', "<t1><![CDATA[a]]></t1><t6>1</t6>"),
                ('{"head":{}}', "<t8></t8>"), ('{"8":{"3":"x"}}', "<t8><t3><![CDATA[x]]></t3></t8>"),
                (r'{"\u0063ode":"\u00fc\n\t\"\/\\&<"}', '<t1><![CDATA[\u00fc\n\t"/\\&<]]></t1>'),
                ('{"count":2147483647}', "<t6>2147483647</t6>"), ('{"count":-2147483648}', "<t6>-2147483648</t6>"),
                ('{"list":[7.0,70e-1,7E0,0.7e+1,-0,0e9,0.0,2.147483647e9]}',
                 "<t7>7</t7>" * 4 + "<t7>0</t7>" * 3 + "<t7>2147483647</t7>"),
                ('{"price":7}', "<t2>7.000000000000000e+00</t2>"), ('{"price":-0}', "<t2>-0.000000000000000e+00</t2>"),
                ('{"price":9007199254740992}', "<t2>9.007199254740992e+15</t2>"),
                ('{"price":1e22}', "<t2>1.000000000000000e+22</t2>"),
                ('{"price":100000000000000000000}', "<t2>1.000000000000000e+20</t2>"),
                ('{"price":5e-324}', "<t2>4.940656458412465e-324</t2>"),
                ('{"open":false,"day":"2026-1 1"}', "<t3>false</t3><t5>2026-1 1</t5>")):
            with self.subTest(text=text):
                self.assertEqual(self.sent("Quote", "--data", text), self.body(tags))
        self.assertEqual(self.sent("4", "--data", '{"text":"x"}'), self.body("<t3><![CDATA[x]]></t3>", 4))

    def test_digits_that_the_wire_does_not_have_are_warned_of(self):
        self.assertEqual(
            self.sent("Quote", "--data", '{"rows":[{"price":0.30000000000000004}]}',
                      err="callorv: warning: --data: /rows/0/price: 0.30000000000000004 has more than the 16 digits "
                          "that go over the wire\n"), self.body("<t4><t2>3.000000000000000e-01</t2></t4>"))

    def test_what_was_received_is_sent_again(self):
        """To the byte: from a server's reply by way of --json to the request."""
        texts = ("<t1><![CDATA[ \u00e9\t<&\n'\"\\/x]]></t1><t9><![CDATA[{n}}]]></t9>",
                 "".join(f"<t4><t2>{value:.15e}</t2></t4>" for value in (
                     0.1, -0.0, 1 / 3, 2 / 3, 1e-5, 9007199254740993, 8.5e22, 1.7976931348623e308, 5e-324,
                     2.2250738585072014e-308,
                     123456.789, 0.57, 0.95, 99999999999999.98)),
                 QUOTE_TAGS, "", "<t4></t4>" * 3, "<t8></t8>", "<t3>false</t3><t6>-2147483648</t6><t7>0</t7>")
        for tags in texts:
            for version in ("", "1.0", "0123456789abcdef"):
                received = self.body(tags.replace(" \u00e9", "\u00e9"), version=version)
                port, _ = self.peer(packet(received))
                result = self.call(port, 1, "Quote", "--json")
                self.assert_run(result, 0, err="")
                warning = ("callorv: warning: {{n}} is sent as it stands: it is replaced with --repeat, --duration and "
                           "--stream\n") if "{{n}}" in tags else ""
                with self.subTest(tags=tags, version=version):
                    self.assertEqual(self.sent("--data", "-", stdin=result.stdout, err=warning), received)
                    self.assertEqual(self.sent("Quote", "--data", result.stdout.decode(), err=warning), received)

    def test_what_was_received_of_odd_names_is_sent_again(self):
        self.dictionary = self.write("odd.xml", """<msg_dictionary><msg no='3'>
            <tag no='1' name='same' type='integer'/><tag no='2' name='same' type='integer'/><tag no='3' type='integer'/>
            <tag no='4' name='5' type='integer'/><tag no='5' name='a/b~c' type='integer'/>
            <tag no='6' name='message' type='integer'/><tag no='7' name='values' type='m3'/></msg></msg_dictionary>""")
        for tags, values in (("<t2>2</t2><t3>3</t3><t4>4</t4><t5>5</t5>", {"2": 2, "3": 3, "4": 4, "a/b~c": 5}),
                             ("<t1>1</t1><t2>2</t2>", {"same": 1, "2": 2}),
                             ("<t6>6</t6><t7><t6>7</t6></t7>", {"message": 6, "values": {"message": 7}})):
            port, _ = self.peer(packet(self.body(tags)))
            result = self.call(port, 1, 3, "--json")
            self.assertEqual(json.loads(result.stdout), {"message": 3, "name": "", "version": "", "values": values})
            self.assertEqual(self.sent("--data", "-", stdin=result.stdout), self.body(tags))

    def test_a_whole_message(self):
        for text, args in (('{"message":3,"values":{"code":"a"}}', ()),
                           ('{"message":"Quote","values":{"code":"a"}}', ()),
                           ('{"values":{"code":"a"},"version":null,"name":"Quote","message":3.0}', ("3",)),
                           ('{"message":3,"name":null,"values":null}', ("code=a",))):
            with self.subTest(text=text):
                self.assertEqual(self.sent(*args, "--data", text), self.body("<t1><![CDATA[a]]></t1>"))
        self.assertEqual(self.sent("--data", '{"message":4,"values":{},"version":"\u00fc"}', "text=x"),
                         self.body("<t3><![CDATA[x]]></t3>", 4, "\u00fc"))

    def test_what_a_message_cannot_take(self):
        digits = "1" * 70
        for text, why in (
                ('{"cod":1}', "/cod: message 3 has no tag 'cod'; did you mean 'code'?"),
                ('{"99":1}', "/99: message 3 has no tag '99'"),
                ('{"\ud55c":1}', "/\ud55c: '\ud55c' has a character that ISO-8859-1 cannot write"),
                ('{"rows":[{"price":1},{"prise":2}]}',
                 "/rows/1/prise: message 4 has no tag 'prise'; did you mean 'price'?"),
                ('{"a/b~":1}', "/a~1b~0: message 3 has no tag 'a/b~'"),
                ('{"code":5}', "/code: 5 stands where a text belongs"),
                ('{"code":["a"]}', "/code: an array stands where a text belongs"),
                ('{"count":"5"}', "/count: '5' stands where an integer of 32 bits belongs"),
                ('{"count":1.5}', "/count: 1.5 stands where an integer of 32 bits belongs"),
                ('{"count":2147483648}', "/count: 2147483648 stands where an integer of 32 bits belongs"),
                ('{"count":-2147483649}', "/count: -2147483649 stands where an integer of 32 bits belongs"),
                ('{"count":1.00000000000000000001}',
                 "/count: 1.00000000000000000001 stands where an integer of 32 bits belongs"),
                ('{"count":1e99}', "/count: 1e99 stands where an integer of 32 bits belongs"),
                ('{"count":99999999999999999999}',
                 "/count: 99999999999999999999 stands where an integer of 32 bits belongs"),
                ('{"count":%s}' % digits, f"/count: {digits[:60]}... stands where an integer of 32 bits belongs"),
                ('{"list":[1,true]}', "/list/1: true stands where an integer of 32 bits belongs"),
                ('{"price":"1.5"}', "/price: '1.5' stands where a number belongs"),
                ('{"price":9007199254740993}', "/price: 9007199254740993 does not fit into a double to its last digit"),
                ('{"price":0.300000000000000041}',
                 "/price: 0.300000000000000041 does not fit into a double to its last digit"),
                ('{"price":3e-324}', "/price: 3e-324 does not fit into a double to its last digit"),
                ('{"price":1e-999}', "/price: 1e-999 does not fit into a double to its last digit"),
                ('{"price":1e999}', "/price: number overflow parsing '1e999'"),
                ('{"open":1}', "/open: 1 stands where true or false belongs"),
                ('{"open":"true"}', "/open: 'true' stands where true or false belongs"),
                ('{"day":20260131}', "/day: 20260131 stands where a text with a date (YYYYMMDD) belongs"),
                ('{"day":"today"}', "/day: 'today' stands where a text with a date (YYYYMMDD) belongs"),
                ('{"day":"202601311"}', "/day: '202601311' stands where a text with a date (YYYYMMDD) belongs"),
                ('{"rows":{"price":1}}', "/rows: an object stands where an array belongs"),
                ('{"rows":[1]}', "/rows/0: 1 stands where an object with the values of a sub-message belongs"),
                ('{"head":[{}]}', "/head: an array stands where an object with the values of a sub-message belongs"),
                ('{"list":1}', "/list: 1 stands where an array belongs"),
                ('{"list":[1,null,2]}', "/list/1: an array has no place for null: leave it out"),
                ('{"names":["a",""]}',
                 "/names/1: an empty text is not sent, and an array has no place without a value: leave it out"),
                ('{"code":"\ud55c"}', "/code: '\ud55c' has a character that ISO-8859-1 cannot write"),
                (r'{"code":"\u0000"}', "/code: a text cannot hold control characters"),
                (r'{"code":"a\rb"}', "/code: a text cannot hold a carriage return, which arrives as a line feed"),
                ('{"code":"a]]>b"}', "/code: a text cannot hold ]]>"),
                ('{"code":"a","1":"b"}', "/1: tag 1 stands here by its name and by its number"),
                ('{"1":null,"code":null}', "/code: tag 1 stands here by its name and by its number"),
                ('{"code":"a","code":"a"}', "/code: the name comes twice"),
                (r'{"head":{"text":"a","price":1,"te\u0078t":null}}', "/head/text: the name comes twice"),
                ('[]', "an array stands where an object with values belongs"),
                ('null', "null stands where an object with values belongs"),
                ('"' + "\u00fc" * 40 + '"', "'" + "\u00fc" * 30 + "...' stands where an object with values belongs"),
                ('{"message":4,"values":{}}', "/message: message 4 contradicts MESSAGE, which is 3"),
                ('{"message":"QuoteRow","values":{}}', "/message: message 4 contradicts MESSAGE, which is 3"),
                ('{"message":"Qoute","values":{}}',
                 "/message: no message 'Qoute' in the dictionary; did you mean 'Quote'?"),
                ('{"message":99,"values":{}}', "/message: no message '99' in the dictionary"),
                ('{"message":null,"values":{}}', "/message: null stands where a message's number or name belongs"),
                ('{"message":3,"name":"QuoteRow","values":{}}',
                 "/name: message 3 is 'Quote' in this dictionary, not 'QuoteRow'"),
                ('{"message":3,"name":3,"values":{}}', "/name: 3 stands where a message's name belongs"),
                ('{"message":3,"vers":"","values":{}}',
                 "/vers: beside message and values there may be name and version, nothing else; "
                 "did you mean 'version'?"),
                ('{"message":3,"version":1,"values":{}}', "/version: 1 stands where a text belongs"),
                ('{"message":3,"version":"01234567890123456","values":{}}',
                 "/version: '01234567890123456' has more than 16 characters"),
                ('{"message":3,"version":"<","values":{}}', "/version: '<' has a character that a version cannot have"),
                ('{"message":3,"values":[]}', "/values: an array stands where an object with values belongs"),
                ('{"message":3,"values":{"cod":1}}', "/values/cod: message 3 has no tag 'cod'; did you mean 'code'?"),
                ('{"error":{}}', "/error: message 3 has no tag 'error'")):
            with self.subTest(text=text):
                self.refused(("Quote", "--data", text), "--data: " + why)

    def test_what_is_no_json(self):
        for text, why in (
                (b"", "line 1, column 1: unexpected end of input; expected '[', '{', or a literal"),
                (b"{'code':1}", "line 1, column 2: invalid literal; expected string literal"),
                (b'{"code":"a"} x', "line 1, column 14: invalid literal; expected end of input"),
                (b'{"code":"a"}{}', "line 1, column 13: unexpected '{'; expected end of input"),
                (b'{"rows":[{"price":}]}',
                 "/rows/0/price: line 1, column 19: unexpected '}'; expected '[', '{', or a literal"),
                (b'{"list":[1 2]}', "/list/1: line 1, column 12: unexpected number literal; expected ']'"),
                (b'{"list":[1,]}', "/list/1: line 1, column 12: unexpected ']'; expected '[', '{', or a literal"),
                (b'{"code":"abc', "/code: line 1, column 13: invalid string: missing closing quote"),
                (b'{"count":01}', "line 1, column 11: unexpected number literal; expected '}'"),
                (b'{"price":NaN}', "/price: line 1, column 10: invalid literal"),
                (b'{"code":"\xff"}', "/code: line 1, column 10: invalid string: ill-formed UTF-8 byte"),
                (b'{"code":"\xed\xa0\x80"}', "/code: line 1, column 11: invalid string: ill-formed UTF-8 byte"),
                (br'{"code":"\ud800"}', "/code: line 1, column 16: invalid string: surrogate U+D800..U+DBFF must be "
                 "followed by U+DC00..U+DFFF"),
                (b'{"head":' * 5000, "/head" * 4096 + ": more than 4096 levels")):
            with self.subTest(text=text[:60]):
                result = self.call(1, 1201, "Quote", "--data", "-", stdin=text)
                self.assertEqual(result.returncode, 1)
                said = "callorv: standard input: " + why.split(";")[0]
                self.assertTrue(result.stderr.decode().startswith(said), result)

    def test_quotes_that_the_shell_took_are_told_of(self):
        for text in ("{code:ABC}", "{'code':'ABC'}"):
            self.refused(("Quote", "--data", text), "--data: line 1, column 2: invalid literal; expected string literal; names "
                         "and texts stand in double quotes, which the shell takes away unless single ones stand around all")

    def test_nesting(self):
        self.dictionary = self.write("deep.xml", "<msg_dictionary><msg no='3'>"
                                                 "<tag no='1' name='in' type='m3' array='Y'/>"
                                                 "<tag no='2' name='x' type='integer'/></msg></msg_dictionary>")
        text = '{"in":[' * 1022 + '{"x":1}' + "]}" * 1022
        self.assertEqual(self.sent("3", "--data", text), self.body("<t1>" * 1022 + "<t2>1</t2>" + "</t1>" * 1022))
        self.refused(("3", "--data", '{"in":[%s]}' % text), "--data: " + "/in/0" * 1023 +
                     ": more than 1023 messages, one in the other")

    def test_files(self):
        missing = self.path("missing.json")
        path = self.write("bad.json", '{\n"cod": 1}')
        empty = self.write("empty.json", "")
        self.refused(("Quote", "--data", "@" + missing), f"{missing}: No such file or directory")
        self.refused(("Quote", "--data", "@" + self.dir), f"{self.dir}: a folder, not a file")
        self.refused(("Quote", "--data", "@" + path), f"{path}: /cod: message 3 has no tag 'cod'; did you mean 'code'?")
        result = self.call(1, 1201, "Quote", "--data", "@" + empty)
        self.assertRegex(result.stderr.decode(), rf"\Acallorv: {empty}: line 1, column 1: .*unexpected end of input")
        result = self.call(1, 1201, "Quote", "--data", path)
        self.assertRegex(result.stderr.decode(), rf"; for what stands in the file write --data @{path}\n\Z")

    def test_failures_are_objects_with_json(self):
        result = self.call(1, 1201, "Quote", "--data", '{"count":true}', "--json")
        text = "--data: /count: true stands where an integer of 32 bits belongs"
        self.assert_run(result, 1, err=f"callorv: {text}\n")
        self.assertEqual(json.loads(result.stdout), {"error": {
            "code": 0, "text": text, "service": 1201, "rejected": False, "stage": "request", "address": None,
            "errno": None}})

    def test_repeat(self):
        with self.echo() as server:
            result = self.call(server, 1201, "Quote", "--data", '{"code":"a"}', "--repeat", 3, "--in-flight", 2,
                               "--json")
        self.assertEqual((json.loads(result.stdout)["calls"], json.loads(result.stdout)["failed"]), (3, 0))

    def test_usage(self):
        needed = "MESSAGE, --xml FILE or --data JSON is needed"
        for args, text in (
                ((), needed),
                (("--data", "{}"),
                 "MESSAGE is needed, as --data brings values alone, not an object with message and values"),
                (("--data", '{"message":3}', "code=a"),
                 "MESSAGE is needed, as --data brings values alone, not an object with message and values"),
                (("Quote", "--data", ""), "--data: JSON or @FILE is needed"),
                (("Quote", "--data"), "--data needs JSON behind it"),
                (("Quote", "--data", "{}", "code"), "'code' is not TAG=VALUE (as in code=ABC or rows[0].price=1.5)"),
                (("--data", "{}", "--xml", os.devnull), "--xml excludes --data"),
                (("Quote", "--data", "{}", "--as-library"), "--as-library requires --xml")):
            with self.subTest(args=args):
                self.assert_usage("call", self.call(1, 1201, *args), text)


if __name__ == "__main__":
    unittest.main()
