"""The messages that people write for callorv call --xml and serve --replies: read whole, or refused with a line."""
import os
import re
import unittest

from support import CallTest, Reply, Server, message, packet, run


def quote(tags, head=""):
    return f"{head}<msg no='3' type='name'>{tags}</msg>"


class MessageTest(CallTest):
    def sent(self, text, *args):
        """The body of the request that a file makes."""
        path = self.write("request.xml", text)
        port, seen = self.peer(packet(message(3, "")))
        result = self.call(port, 1201, "--xml", path, *args)
        self.assertEqual((result.returncode, result.stderr), (0, b""))
        return Reply(seen[0]).body.decode("latin-1")

    def serve(self, *args):
        return Server("--dictionary", self.dictionary, "--replies", self.path("replies"), *args)

    def answered(self, text, *args, request=message(3, "")):
        """The body of the reply that a file makes."""
        self.write("replies/1201.xml", text)
        with self.serve(*args) as server:
            return server.ask(packet(request)).body.decode("latin-1")

    def assert_both(self, text, tags):
        with self.subTest(text=text):
            expected = message(3, tags).decode()
            self.assertEqual(self.sent(text), expected)
            self.assertEqual(self.answered(text), expected)

    def assert_refused(self, text, line, why):
        """Nothing is sent: nobody listens at port 1. The server does not start."""
        with self.subTest(text=text):
            path = self.write("request.xml", text)
            self.assert_run(self.call(1, 1201, "--xml", path), 1, "", f"callorv: {path}:{line}: {why}\n")
            path = self.write("replies/1201.xml", text)
            result = run("serve", "--dictionary", self.dictionary, "--replies", self.path("replies"))
            self.assert_run(result, 1, "", f"callorv: {path}:{line}: {why}\n")


class WholeTest(MessageTest):
    def test_a_text_is_whole_whatever_it_is_made_of(self):
        for text, value in (("Smith &amp; Sons", "Smith & Sons"),
                            ("&lt;a&gt; &quot;b&quot; &apos;c&apos;", "<a> \"b\" 'c'"),
                            ("a&#38;b&#x26;c&#xFC;", "a&b&c\u00fc"),
                            ("a<![CDATA[<b>&amp;]]>c", "a<b>&amp;c"),
                            ("<![CDATA[a]]><![CDATA[b]]>", "ab"),
                            ("a<!-- not this -->b<?nor this?>c", "abc"),
                            ("a <!-- x --> b", "a  b"),
                            ("  a\t&#32;", "  a\t "),
                            ("a\r\nb\n", "a\nb\n"),
                            ("x" * 3000000 + "&amp;", "x" * 3000000 + "&")):
            tags = f"<t1><![CDATA[{value}]]></t1>"
            if len(text) > 1000:
                self.assertEqual(len(self.sent(quote(f"<code>{text}</code>"))), len(message(3, tags)))
            else:
                self.assert_both(quote(f"<code>{text}</code>"), tags)
                self.assert_both(f"<msg no='3'><t1>{text}</t1></msg>", tags)

    def test_every_type(self):
        self.assert_both(quote("<code>A</code><price>-2e-3</price><open>true</open><day>20260131</day>"
                               "<count>&#45;7</count><list>1</list><list>2</list><names>a</names><names>b</names>"
                               "<head><text>h</text></head><rows><price>1</price></rows><rows><text>r</text></rows>"),
                         "<t1><![CDATA[A]]></t1><t2>-2.000000000000000e-03</t2><t3>true</t3>"
                         "<t4><t2>1.000000000000000e+00</t2></t4><t4><t3><![CDATA[r]]></t3></t4><t5>20260131</t5>"
                         "<t6>-7</t6><t7>1</t7><t7>2</t7><t8><t3><![CDATA[h]]></t3></t8><t9><![CDATA[a]]></t9>"
                         "<t9><![CDATA[b]]></t9>")

    def test_an_empty_element_is_no_value(self):
        self.assert_both(quote("<code/><count></count><open><!-- none --></open><day/><price/><list/><list>5</list>"),
                         "<t7>5</t7>")

    def test_numbers_of_tags_behind_either_letter(self):
        self.assert_both("<msg no='3' type='index'><t6>1</t6><a7>2</a7></msg>", "<t6>1</t6><t7>2</t7>")

    def test_encodings(self):
        text = quote("<code>Z\u00fcrich \u00df</code>")
        declared = "<?xml version='1.0' encoding='%s'?>\n"
        for data in (text.encode(), b"\xef\xbb\xbf" + text.encode(), (declared % "UTF-8" + text).encode(),
                     (declared % "iso-8859-1" + text).encode("latin-1"),
                     (declared % "windows-1252" + text).encode("cp1252"),
                     (declared % "UTF-16" + text).encode("utf-16"), text.encode("utf-16-le"), text.encode("utf-16-be"),
                     text.encode("utf-32"), text.encode("utf-32-le"), text.encode("utf-32-be"),
                     b"\xfe\xff" + text.encode("utf-16-be"), b"\0\0\xfe\xff" + text.encode("utf-32-be")):
            self.assert_both(data, "<t1><![CDATA[Z\u00fcrich \u00df]]></t1>")

    def test_the_version(self):
        text = "<msg no='3' ver='1.0 &#xFC; 0123456789'/>"
        self.assertIn('<msg no="3" ver="1.0 \u00fc 0123456789">', self.sent(text))
        self.assertIn('<msg no="3" ver="1.0 \u00fc 0123456789">', self.answered(text))


class RefusedTest(MessageTest):
    def test_values_are_checked_as_arguments_are(self):
        for tag, value, why in (("open", "Y", "'Y' is no bool (true or false)"),
                                ("open", "TRUE", "'TRUE' is no bool (true or false)"),
                                ("count", "abc", "'abc' is no integer of 32 bits"),
                                ("count", "99999999999", "'99999999999' is no integer of 32 bits"),
                                ("count", "12x", "'12x' is no integer of 32 bits"),
                                ("count", " 5", "' 5' is no integer of 32 bits"),
                                ("count", "&#xD55C;", "'\ud55c' is no integer of 32 bits"),
                                ("list", "2147483648", "'2147483648' is no integer of 32 bits"),
                                ("price", "1,5", "'1,5' is no number"),
                                ("price", "nan", "'nan' is no number"),
                                ("price", "1e999", "'1e999' is no number"),
                                ("day", "2026-01-31", "'2026-01-31' is no date (YYYYMMDD)"),
                                ("code", "a]]&gt;b", "a text cannot hold ]]>"),
                                ("code", "a&#13;b",
                                 "a text cannot hold a carriage return, which arrives as a line feed")):
            self.assert_refused(quote(f"\n<names>x</names>\n<{tag}>{value}</{tag}>\n"), 3, f"{tag}: {why}")
        self.assert_refused(quote("<rows>\n<price>x</price></rows>"), 2, "price: 'x' is no number")
        self.assert_refused("<msg no='3'>\n\n<t6>x</t6></msg>", 3, "t6: 'x' is no integer of 32 bits")
        self.assert_run(self.call(1, 1201, "Quote", "code=a\rb"), 1, "",
                        "callorv: code: a text cannot hold a carriage return, which arrives as a line feed\n")

    def test_what_iso_8859_1_cannot_write(self):
        for value in ("\ud55c\uad6d\uc5b4", "\u20ac", "\U0001f600"):
            why = f"'{value}' has a character that ISO-8859-1 cannot write"
            self.assert_refused(quote(f"\n<code>{value}</code>"), 2, why)
            self.assert_refused(f"<msg no='3' ver='{value}'/>", 1, why)
        korean = "<?xml version='1.0' encoding='EUC-KR'?>" + quote("\n<code>\ud55c</code>")
        self.assert_refused(korean.encode("euc-kr"), 2,
                            "'\ud55c' has a character that ISO-8859-1 cannot write")

    def test_a_second_value_of_what_is_no_array(self):
        for first, second in (("<code>a</code>", "<code>b</code>"), ("<count>1</count>", "<count>1</count>"),
                              ("<head><text>a</text></head>", "<head><price>1</price></head>"),
                              ("<code/>", "<code>b</code>")):
            name = re.match(r"<(\w+)", second)[1]
            self.assert_refused(quote(f"{first}\n{second}"), 2, f"{name}: a second value, and the tag is no array")
        self.assert_refused(quote("<rows><price>1</price></rows><rows><price>1</price>\n<price>1</price></rows>"), 2,
                            "price: a second value, and the tag is no array")
        self.assert_refused("<msg no='3'><t1>{{tag:1}}</t1>\n<a1>x</a1></msg>", 2,
                            "a1: a second value, and the tag is no array")

    def test_unknown_elements_and_attributes(self):
        hint = "; without type='name' tags are t1, t2 and so on"
        for text, line, why in (
                ("<message no='3'/>", 1, "the root element is 'message', not 'msg'"),
                ("<x:msg xmlns:x='y' no='3'/>", 1, "the root element is 'x:msg', not 'msg'"),
                ("<!-- a\n b -->\n<msg/>", 3, "attribute 'no', the message's number, is missing"),
                ("<msg no=''/>", 1, "no: '' is no message number"),
                ("<msg no='3x'/>", 1, "no: '3x' is no message number"),
                ("<msg no='0'/>", 1, "no: '0' is no message number"),
                ("<msg no='99'/>", 1, "no message '99' in the dictionary"),
                ("<msg no='10000'/>", 1, "no message '10000' in the dictionary"),
                ("<msg no='3' no='4'/>", 1, "attribute 'no' comes twice"),
                ("<msg no='3' type='names'/>", 1, "type: 'names' is no name or index"),
                ("<msg no='3' version='1'/>", 1, "attribute 'version' is none of no, type and ver"),
                ("<msg no='3' ver='01234567890123456'/>", 1, "ver: '01234567890123456' has more than 16 characters"),
                ("<msg no='3' ver='a&quot;b'/>", 1, "ver: 'a\"b' has a character that a version cannot have"),
                ("<msg no='3'>\n<code>x</code></msg>", 2, "message 3 has no tag 'code'" + hint),
                ("<msg no='3'>\n<t99>x</t99></msg>", 2, "message 3 has no tag 't99'" + hint),
                ("<msg no='3'>\n<t1x>x</t1x></msg>", 2, "message 3 has no tag 't1x'" + hint),
                ("<msg no='3'>\n<t>x</t></msg>", 2, "message 3 has no tag 't'" + hint),
                ("<msg no='3'>\n<t-1>x</t-1></msg>", 2, "message 3 has no tag 't-1'" + hint),
                (quote("\n<t1>x</t1>"), 2, "message 3 has no tag 't1'"),
                (quote("\n<\ud55c>x</\ud55c>"), 2, "message 3 has no tag '\ud55c'"),
                (quote("<head>\n<code>x</code></head>"), 2, "message 4 has no tag 'code'"),
                (quote("\n<code lang='en'>x</code>"), 2, "code: attribute 'lang' is unknown"),
                (quote("\n<rows n='1'/>"), 2, "rows: attribute 'n' is unknown"),
                (quote("<code>a\n<b>c</b></code>"), 2, "'b' in 'code', which has a value")):
            self.assert_refused(text, line, why)

    def test_text_between_tags(self):
        self.assert_refused(quote("<code>a</code>b"), 1, "text in 'msg', which has tags")
        self.assert_refused(quote("\n<head><![CDATA[x]]></head>"), 2, "text in 'head', which has tags")

    def test_what_is_no_xml(self):
        for text, line, why in (
                ("", 1, "no XML: no root element"),
                ("hello", 1, "no XML: text outside the root element"),
                ("<msg no='3'>\n<t1>", 2, "no XML: Start-end tags mismatch"),
                ("<msg no='3'>\n<t1>x</t2></msg>", 2, "no XML: Start-end tags mismatch"),
                ("<msg no=3/>", 1, "no XML: Error parsing element attribute"),
                ("<msg no='3'/>\n<msg no='4'/>", 2, "no XML: a second root element"),
                ("<msg no='3'/>\nx", 1, "no XML: text outside the root element"),
                ("<!DOCTYPE msg [<!ENTITY a 'b'>]>\n<msg no='3'/>", 1, "DOCTYPE is not allowed"),
                ("<msg no='3'>\n<t1>a\nb & c</t1></msg>", 3,
                 "'&' is no reference that is known here: write &amp; for &"),
                ("<msg no='3'><t1>&auml;</t1></msg>", 1,
                 "'&auml' is no reference that is known here: write &amp; for &"),
                ("<msg no='3'><t1>a&#0;b</t1></msg>", 1,
                 "'&#0' is no reference that is known here: write &amp; for &"),
                ("<msg no='3'><t1>&#x110000;</t1></msg>", 1,
                 "'&#x110000' is no reference that is known here: write &amp; for &"),
                ("<msg no='3'><t1>&#xD800;</t1></msg>", 1,
                 "'&#xD800' is no reference that is known here: write &amp; for &"),
                ("<msg no='3'><t1>a&</t1></msg>", 1, "'&' is no reference that is known here: write &amp; for &"),
                ("<msg no='3' ver='a&b'/>", 1, "'&b' is no reference that is known here: write &amp; for &"),
                ("<msg no='3'>\n<t1>a\0b</t1></msg>", 2, "here is a NUL character"),
                ("<?xml version='1.0' encoding='nosuch'?><msg no='3'/>", 1,
                 "the encoding 'nosuch' is unknown here: save the file as UTF-8"),
                ("<?xml version='1.0' encoding='UTF-8//IGNORE'?><msg no='3'/>", 1,
                 "the encoding 'UTF-8//IGNORE' is unknown here: save the file as UTF-8"),
                (b"<msg no='3'>\n<t1>Z\xfcrich</t1></msg>", 2, "here are bytes that are no UTF-8"),
                (b"<msg no='3'><t1>a\xc3", 1, "here are bytes that are no UTF-8"),
                (b"<?xml version='1.0' encoding='US-ASCII'?>\n<msg no='3'><t1>\xfc</t1></msg>", 2,
                 "here are bytes that are no US-ASCII"),
                (b"\xff\xfe<\0m\0\0\xd8", 1, "here are bytes that are no UTF-16LE")):
            self.assert_refused(text, line, why)

    def test_too_deep(self):
        self.write("dictionary.xml", "<msg_dictionary><msg no='5' name='Deep'><tag no='1' name='in' type='m5'/></msg>"
                                     "</msg_dictionary>")
        self.assert_refused("<msg no='5'>" + "<t1>" * 200000 + "</t1>" * 200000 + "</msg>", 1,
                            "More than 1024 open elements")

    def test_every_file_of_the_folder_is_checked_before_the_server_starts(self):
        self.write("replies/1201.xml", quote("<code>{{tag:1}}</code>"))
        self.write("replies/7.xml", quote("<open>Y</open>"))
        self.write("replies/1202.xml", quote("\n<count>{{tag:1}}</count>\n<price>x</price>"))
        self.write("replies/-5.xml", "<msg no='99'/>")
        self.write("replies/notes.xml", "hello")    # of no service
        self.write("replies/0007.xml", "hello")
        os.mkdir(self.path("replies/8.xml"))
        result = run("serve", "--dictionary", self.dictionary, "--replies", self.path("replies"))
        self.assert_run(result, 1, "", f"""callorv: {self.path("replies/-5.xml")}:1: no message '99' in the dictionary
{self.path("replies/7.xml")}:1: open: 'Y' is no bool (true or false)
{self.path("replies/8.xml")}: a folder, not a file
{self.path("replies/1202.xml")}:3: price: 'x' is no number
""")

    def test_a_placeholder_that_is_none_is_refused_at_the_start(self):
        for text, why in (("{{tag:}}", "'' is no tag"), ("{{tag:a[}}", "'a[' is no tag"),
                          ("{{tag:1", "{{tag: without }}")):
            path = self.write("replies/1201.xml", quote(f"\n<code>{text}</code>"))
            result = run("serve", "--dictionary", self.dictionary, "--replies", self.path("replies"))
            self.assert_run(result, 1, "", f"callorv: {path}:2: {why}\n")


class PlaceholderTest(MessageTest):
    def test_stands_for_any_text_of_the_request(self):
        for value in ("Smith & Sons", "a<b", "]]", "\u00fc &amp; {{tag:2}}"):
            request = message(3, f"<t1><![CDATA[{value}]]></t1>").decode().encode("latin-1")
            expected = message(3, f"<t1><![CDATA[{value} / hello]]></t1>").decode()
            for text in ("{{tag:code}} / hello", "<![CDATA[{{tag:code}}]]> / hello", "{{tag:<!-- -->1}}&#32;/ hello"):
                self.assertEqual(self.answered(quote(f"<code>{text}</code>"), request=request), expected)

    def test_in_a_version(self):
        text = "<msg no='3' ver='v{{tag:6}}'/>"
        self.assertIn('ver="v12"', self.answered(text, request=message(3, "<t6>12</t6>")))
        self.assertIn("more than 16 characters", self.answered("<msg no='3' ver='{{tag:1}}'/>", request=message(
            3, "<t1><![CDATA[12345678901234567]]></t1>")))

    def test_is_a_text_like_any_other_in_a_request(self):
        self.assertEqual(self.sent(quote("<code>{{tag:1}}</code>")),
                         message(3, "<t1><![CDATA[{{tag:1}}]]></t1>").decode())


class AsLibraryTest(MessageTest):
    """What the library makes of such files, which its own tests know, is sent when asked for."""

    FILE = quote("<code>Smith &amp; Sons</code><open>Y</open><count>abc</count><list>99999999999</list>"
                 "<day>2026-01-31</day><names>\ud55c</names><price>1</price><price>2</price>")
    MADE = message(3, "<t1><![CDATA[Smith]]></t1><t2>1.000000000000000e+00</t2><t3>false</t3><t5>2026-01-</t5>"
                      "<t6>0</t6><t7>2147483647</t7><t9><![CDATA[\\]]></t9>").decode()

    def test_of_a_request(self):
        self.assertEqual(self.sent(self.FILE, "--as-library"), self.MADE)
        self.assert_run(self.call(1, 1201, "--xml", "-", "--as-library", stdin=b"<msg no='99'/>"), 1, "",
                        "callorv: standard input: Handler error : Unknown msgno(99)\n")

    def test_of_a_reply(self):
        self.assertEqual(self.answered(self.FILE, "--as-library"), self.MADE)
        request = message(3, "<t1><![CDATA[Smith & Sons]]></t1>")
        for text in ("{{tag:1}}", "<![CDATA[{{tag:1}}]]>"):
            self.assertEqual(self.answered(quote(f"<code>{text}</code>"), "--as-library", request=request),
                             request.decode())
        self.assertEqual(self.answered("<msg no='99'/>", "--as-library"), message(
            10, "<t6>500</t6><t7><![CDATA[1201.xml: Handler error : Unknown msgno(99)]]></t7><t8>1201</t8>").decode())


if __name__ == "__main__":
    unittest.main()
