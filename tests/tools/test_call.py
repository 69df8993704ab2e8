"""callorv call: real calls of a real server, from the shell."""
import errno
import json
import os
import pty
import re
import select
import socket
import subprocess
import threading
import unittest

from support import COMMAND, CallTest, Reply, Server, message, packet, run

DUMP_LINE = "=" * 38
DUMP_END = "=" * 47 + "\n"


def dump(number, lines, version=""):
    return f"Msg Dump {DUMP_LINE}\n  MsgNum : {number}\n    Type : index\n     Ver : {version}\n{lines}{DUMP_END}"


class RequestTest(CallTest):
    def sent(self, *args, stdin=b""):
        """The body of the request that these arguments make."""
        port, seen = self.peer(packet(message(3, "")))
        self.assert_run(self.call(port, 1201, *args, stdin=stdin), 0, dump(3, ""), "")
        return Reply(seen[0]).body

    def test_the_packet(self):
        port, seen = self.peer(packet(message(3, "")))
        self.assert_run(self.call(port, 77, 3, "code=ABC"), 0, err="")
        request = Reply(seen[0])
        self.assertEqual((request.service, request.message, request.extra), (77, 3, 0))
        self.assertEqual(request.key, b"USERKEY1".ljust(20))
        self.assertEqual(request.body, message(3, "<t1><![CDATA[ABC]]></t1>"))

    def test_the_message_by_number_and_by_name(self):
        self.assertEqual(self.sent("4"), message(4, ""))
        self.assertEqual(self.sent("QuoteRow"), message(4, ""))

    def test_values(self):
        for args, tags in (
                (["code=ABC"], "<t1><![CDATA[ABC]]></t1>"),
                (["1=ABC"], "<t1><![CDATA[ABC]]></t1>"),
                (["code=a=b"], "<t1><![CDATA[a=b]]></t1>"),
                (["code= <x>&\t"], "<t1><![CDATA[ <x>&\t]]></t1>"),
                (["code="], ""),
                (["code=a", "code=b"], "<t1><![CDATA[b]]></t1>"),
                (["price=1.5"], "<t2>1.500000000000000e+00</t2>"),
                (["price=-2e-3"], "<t2>-2.000000000000000e-03</t2>"),
                (["price=7"], "<t2>7.000000000000000e+00</t2>"),
                (["open=true"], "<t3>true</t3>"),
                (["open=false"], "<t3>false</t3>"),
                (["day=20260131"], "<t5>20260131</t5>"),
                (["count=-2147483648"], "<t6>-2147483648</t6>"),
                (["count=2147483647"], "<t6>2147483647</t6>"),
                (["list=1", "list=2", "7=3"], "<t7>1</t7><t7>2</t7><t7>3</t7>"),
                (["list[0]=1", "list[1]=2"], "<t7>1</t7><t7>2</t7>"),
                (["names=a", "names=b"], "<t9><![CDATA[a]]></t9><t9><![CDATA[b]]></t9>"),
                (["head.text=x", "head.price=1"], "<t8><t2>1.000000000000000e+00</t2><t3><![CDATA[x]]></t3></t8>"),
                (["8.3=x"], "<t8><t3><![CDATA[x]]></t3></t8>"),
                (["rows[0].price=1", "rows[1].text=b", "rows[0].text=a"],
                 "<t4><t2>1.000000000000000e+00</t2><t3><![CDATA[a]]></t3></t4><t4><t3><![CDATA[b]]></t3></t4>"),
                (["4[0].3=a"], "<t4><t3><![CDATA[a]]></t3></t4>")):
            with self.subTest(args=args):
                self.assertEqual(self.sent("Quote", *args).decode(), message(3, tags).decode())

    def test_letters_beyond_ascii_become_one_byte_each(self):
        self.assertEqual(self.sent("Quote", "code=Z\u00fcrich"),
                         message(3, "").replace(b"></msg>", b"><t1><![CDATA[Z\xfcrich]]></t1></msg>"))
        self.assertEqual(self.sent("Quote", b"code=Z\xfcrich".decode("utf-8", "surrogateescape")),
                         message(3, "").replace(b"></msg>", b"><t1><![CDATA[Z\xfcrich]]></t1></msg>"))

    def test_a_long_request_is_compressed(self):
        port, seen = self.peer(packet(message(3, "")))
        self.assert_run(self.call(port, 1201, "Quote", "code=" + "x" * 1000), 0)
        self.assertTrue(Reply(seen[0]).compressed)

    def test_a_whole_message_from_xml(self):
        text = "<msg no='3' type='name' ver='1.0'>\n<code>ABC</code><rows><price>2</price></rows></msg>"
        expected = message(3, "<t1><![CDATA[ABC]]></t1><t4><t2>2.000000000000000e+00</t2></t4>").replace(
            b'ver=""', b'ver="1.0"')
        path = self.write("request.xml", text)
        self.assertEqual(self.sent("--xml", path), expected)
        self.assertEqual(self.sent("--xml", "-", stdin=text.encode()), expected)
        self.assertEqual(self.sent("--xml", path, "rows[1].text=b", "count=5"), expected.replace(
            b"</msg>", b"<t4><t3><![CDATA[b]]></t3></t4><t6>5</t6></msg>"))
        self.assertEqual(self.sent("count=5", "--xml", path), expected.replace(b"</msg>", b"<t6>5</t6></msg>"))

    def test_what_the_message_cannot_take(self):
        for args, text in (
                (["nosuch"], "no message 'nosuch' in the dictionary"),
                (["code=1"], "no message 'code=1' in the dictionary: MESSAGE stands before TAG=VALUE"),
                (["99"], "no message '99' in the dictionary"),
                (["10000"], "no message '10000' in the dictionary"),
                (["99999999999"], "no message '99999999999' in the dictionary"),
                (["Quote", "nosuch=1"], "message 3 has no tag 'nosuch'"),
                (["Quote", "99=1"], "message 3 has no tag '99'"),
                (["Quote", "99999999999=1"], "message 3 has no tag '99999999999'"),
                (["Quote", "head.code=1"], "message 4 has no tag 'code'"),
                (["Quote", "count=1.5"], "count: '1.5' is no integer of 32 bits"),
                (["Quote", "count=2147483648"], "count: '2147483648' is no integer of 32 bits"),
                (["Quote", "count="], "count: '' is no integer of 32 bits"),
                (["Quote", "count= 1"], "count: ' 1' is no integer of 32 bits"),
                (["Quote", "price=1,5"], "price: '1,5' is no number"),
                (["Quote", "price=nan"], "price: 'nan' is no number"),
                (["Quote", "price=inf"], "price: 'inf' is no number"),
                (["Quote", "price=1e999"], "price: '1e999' is no number"),
                (["Quote", "price="], "price: '' is no number"),
                (["Quote", "open=yes"], "open: 'yes' is no bool (true or false)"),
                (["Quote", "day=202601311"], "day: '202601311' is no date (YYYYMMDD)"),
                (["Quote", "day=today"], "day: 'today' is no date (YYYYMMDD)"),
                (["Quote", "code=a]]>b"], "code: a text cannot hold ]]>"),
                (["Quote", "code=\x01"], "code: a text cannot hold control characters"),
                (["Quote", "code=\ud55c"], "'\ud55c' has a character that ISO-8859-1 cannot write"),
                (["Quote", "rows=1"], "rows is a sub-message: write rows[0].TAG=VALUE"),
                (["Quote", "rows[0]=1"], "rows[0] is a sub-message: write rows[0].TAG=VALUE"),
                (["Quote", "head=1"], "head is a sub-message: write head.TAG=VALUE"),
                (["Quote", "rows.price=1"], "tag 'rows' has rows: write rows[0]"),
                (["Quote", "rows[1].price=1"], "rows[1]: the next element is rows[0]"),
                (["Quote", "list[1]=1"], "list[1]: the next element is list[0]"),
                (["Quote", "list=1", "list[0]=2"], "list[0] has a value already"),
                (["Quote", "code[0]=1"], "tag 'code' is no array"),
                (["Quote", "code.x=1"], "tag 'code' is no sub-message"),
                (["Quote", "head[0].text=1"], "tag 'head' is no array")):
            with self.subTest(args=args):
                self.assert_run(self.call(1, 1201, *args), 1, "", f"callorv: {text}\n")

    def test_xml_that_cannot_be_read(self):
        missing = self.path("missing.xml")
        self.assert_run(self.call(1, 1201, "--xml", missing), 1, "", f"callorv: {missing}: No such file or directory\n")
        self.assert_run(self.call(1, 1201, "--xml", "-"), 1, "", "callorv: standard input:1: no XML: no root element\n")


class ReplyTest(CallTest):
    VALUES = ["code=Z\u00fcrich", "price=0.1", "open=true", "day=20260131", "count=-7", "list=1", "list=2",
              "rows[0].price=1.5", "rows[1].text=b", "head.text=h"]

    def test_as_a_listing(self):
        with self.echo() as server:
            result = self.call(server, 1201, "Quote", *self.VALUES)
        self.assert_run(result, 0, dump(3, """    [1](code) Z\u00fcrich
    [2](price) 1.000000000000000e-01
    [3](open) true
    [4](rows) SUBMSG(4) row 0
      [2](price) 1.500000000000000e+00
    [4](rows) SUBMSG(4) row 1
      [3](text) b
    [5](day) 20260131
    [6](count) -7
    [7](list) 1 2
    [8](head) SUBMSG(4)
      [3](text) h
"""), "")

    def test_as_xml_that_can_be_sent_again(self):
        with self.echo() as server:
            result = self.call(server, 1201, "Quote", *self.VALUES, "--format", "xml")
            self.assertEqual(result.returncode, 0)
            self.assertEqual(result.stdout.decode("latin-1"), """<?xml version='1.0' encoding='ISO-8859-1' ?>
<msg no='3' type='name' ver=''>
  <code><![CDATA[Z\u00fcrich]]></code>
  <price>1.000000000000000e-01</price>
  <open>true</open>
  <rows>
    <price>1.500000000000000e+00</price>
  </rows>
  <rows>
    <text><![CDATA[b]]></text>
  </rows>
  <day>20260131</day>
  <count>-7</count>
  <list>1</list>
  <list>2</list>
  <head>
    <text><![CDATA[h]]></text>
  </head>
</msg>
""")
            again = self.call(server, 1201, "--xml", "-", "--format=xml", stdin=result.stdout)
        self.assertEqual(again.stdout, result.stdout)

    def test_as_json(self):
        expected = {"message": 3, "name": "Quote", "version": "",
                    "values": {"code": "Z\u00fcrich", "price": 0.1, "open": True,
                               "rows": [{"price": 1.5}, {"text": "b"}], "day": "20260131", "count": -7, "list": [1, 2],
                               "head": {"text": "h"}}}
        with self.echo() as server:
            for option in (["--json"], ["--format", "json"]):
                result = self.call(server, 1201, "Quote", *self.VALUES, *option)
                self.assert_run(result, 0, err="")
                self.assertEqual(json.loads(result.stdout), expected)
                self.assertEqual(list(json.loads(result.stdout)["values"]), list(expected["values"]))

    def test_an_array_of_one_stays_an_array_in_json(self):
        with self.echo() as server:
            result = self.call(server, 1201, "Quote", "list=5", "names=a", "--json")
        self.assertEqual(json.loads(result.stdout)["values"], {"list": [5], "names": ["a"]})

    def test_tags_that_share_a_name_or_have_none_stand_under_their_number_in_json(self):
        self.dictionary = self.write("odd.xml", """<msg_dictionary><msg no='3' name='Odd'>
            <tag no='1' name='same' type='integer'/><tag no='2' name='same' type='integer'/><tag no='3' type='integer'/>
            </msg></msg_dictionary>""")
        with self.echo() as server:
            result = self.call(server, 1201, "Odd", "1=1", "2=2", "3=3", "--json")
        self.assertEqual(json.loads(result.stdout)["values"], {"same": 1, "2": 2, "3": 3})

    def test_what_the_server_says_cannot_steer_the_terminal(self):
        port, _ = self.peer(packet(b"<?xml version='1.0' encoding='ISO-8859-1'?><msg no='3'><t1>a\x9b2Jb</t1></msg>"))
        self.assert_run(self.call(port, 1201, "Quote"), 0, dump(3, "    [1](code) a\ufffd2Jb\n"), "")


class FailureTest(CallTest):
    def test_a_rejection_says_what_the_server_said(self):
        self.write("replies/1201.xml", "<msg no='10'><t6>17</t6><t7>not today, \u00fcser</t7><t8>1201</t8></msg>")
        with Server("--dictionary", self.dictionary, "--replies", self.path("replies")) as server:
            self.assert_run(self.call(server, 1201, "Quote"), 1, "",
                            "callorv: rejected by the server: Code=17, Text=not today, \u00fcser, RefSvcNum=1201\n")
            result = self.call(server, 1201, "Quote", "--json")
            self.assertEqual(result.returncode, 1)
            self.assert_object(result, code=17, text="not today, \u00fcser", rejected=True, stage="reply",
                               address=f"127.0.0.1:{server.port}")

    def assert_object(self, result, **expected):
        """The one object on standard output."""
        values = {"code": 0, "text": "", "service": 1201, "rejected": False, "stage": "", "address": None,
                  "errno": None, **expected}
        self.assertEqual(json.loads(result.stdout), {"error": values})
        self.assertEqual(list(json.loads(result.stdout)["error"]), list(values))

    def assert_fails(self, args, text, **expected):
        """Both forms of an error, with the same text, which is a pattern."""
        args = ("call", *args, 1201, "Quote", "code=ABC")
        result = run(*args)
        self.assert_run(result, 1, "")
        self.assertRegex(result.stderr.decode(), rf"\Acallorv: {text}\n\Z")
        result = run(*args, "--json")
        self.assertEqual(result.returncode, 1)
        said = result.stderr.decode()
        self.assertRegex(said, rf"\Acallorv: {text}\n\Z")
        self.assert_object(result, text=said[len("callorv: "):-1], **expected)

    def direct(self, server, *args):
        return ("--dictionary", self.dictionary, "--key-file", self.key, "--server", server, *args)

    def deaf(self):
        """A port at which nobody listens."""
        sock = socket.socket()
        self.addCleanup(sock.close)
        sock.bind(("127.0.0.1", 0))
        return sock.getsockname()[1]

    def test_a_server_that_is_not_there(self):
        port = self.deaf()
        refused = re.escape("Connection refused; nobody listens there "
                            "(the library says: Failed in connect()(-5)((connect)))")
        self.assert_fails(("--config", self.config(port)), f"127.0.0.1:{port}: {refused}", code=-3, stage="connect",
                          address=f"127.0.0.1:{port}", errno=errno.ECONNREFUSED)
        self.assert_fails(self.direct(f"localhost:{port}"), rf"localhost:{port} \(127\.0\.0\.1\): {refused}", code=-3,
                          stage="connect", address=f"127.0.0.1:{port}", errno=errno.ECONNREFUSED)
        self.assert_fails(self.direct("224.0.0.1:7"), re.escape(    # many hosts, which no connection reaches
            "224.0.0.1:7: Network is unreachable (the library says: Failed in connect()(-5)((connect)))"),
                          code=-3, stage="connect", address="224.0.0.1:7", errno=errno.ENETUNREACH)

    def test_a_host_that_has_no_address(self):
        for host, why in (("no.such.host.invalid",
                           r"(no such host|Host not found \(non-authoritative\), try again later)"),
                          ("::1", r"only an IPv6 address \(::1\), and calls go over IPv4 only")):
            text = re.escape(f"(the library says: Failed in gethostbyname()(-4)((hostname={host})))")
            self.assert_fails(self.direct(f"{host}:1"), rf"{host}:1: {why} {text}", code=-3, stage="connect",
                              address=f"{host}:1")

    def test_a_reply_that_breaks_off(self):
        closed = "the connection was closed before the reply was complete (the library says: Socket closed(-9)(OK))"
        for fault, text, number in (
                ("close", re.escape(closed), None), ("truncate:10", re.escape(closed), None),
                ("truncate:200", re.escape(closed), None),
                ("reset", re.escape("Connection reset by peer (the library says: Socket closed(-9)((Connection reset "
                                    "by peer)))"), errno.ECONNRESET),
                ("checksum", r"the reply is damaged \(the library says: Checksum is incorrect\(-13\)"
                             r"\(\(M:\d+,C:\d+\)\)\)", None),
                ("zlib", re.escape("the reply is damaged (the library says: Compression failed(-16)(ReceiveFrom(-3)"
                                   "(0)))"), None)):
            with self.subTest(fault=fault), self.echo("--fault", fault) as server:
                self.assert_fails(("--config", self.config(server.port)), rf"127\.0\.0\.1:{server.port}: {text}",
                                  code=-5, stage="receive", address=f"127.0.0.1:{server.port}", errno=number)

    def test_a_server_of_something_else(self):
        port, _ = self.peer(b"HTTP/1.1 400 Bad Request\r\n" + b"x" * 128)
        self.assert_run(self.call(port, 1201, "Quote"), 1, "",
                        f"callorv: 127.0.0.1:{port}: what answers does not speak the protocol (the library says: "
                        "Header format is incorrect(-15)(Unknown BeginString[HTTP/1.1 400]))\n")

    def test_a_reply_that_does_not_come_in_time(self):
        for fault, text in (("stall:0", "no reply within 3 s (the library says: Socket timeout(-8)((recv to=0)))"),
                            ("stall", "the reply stopped in the middle for 3 s (the library says: Packet is "
                                      "corrupted(-17)(uncompleted packet timeout(body)))")):
            with self.echo("--fault", fault) as server:
                where = f"127.0.0.1:{server.port}"
                self.assert_fails(self.direct(where, "--timeout", 3), re.escape(f"{where}: {text}"), code=-5,
                                  stage="receive", address=where)

    def test_a_reply_that_cannot_be_read(self):
        port, _ = self.peer(packet(b"<msg no='99'/>"))
        result = self.call(port, 1201, "Quote", "--json")
        text = (f"127.0.0.1:{port}: the reply is no message of this dictionary (the library says: -21, XML parsing "
                "failed(Handler error : Unknown msgno(99)))")
        self.assertEqual((result.returncode, result.stderr.decode()), (1, f"callorv: {text}\n"))
        self.assert_object(result, code=-7, text=text, stage="reply", address=f"127.0.0.1:{port}")

    def test_what_fails_before_anything_is_sent_is_an_object_too(self):
        missing = self.path("missing")
        good = ("--config", self.config(1))
        for args, stage, text in (
                (("--config", missing, 1201, "Quote"), "config", f"{missing}: No such file or directory (the library "
                 f"says: File open failed [{missing}](2,No such file or directory))"),
                (self.direct("x:1")[:3] + (missing,) + self.direct("x:1")[4:] + (1201, "Quote"), "key",
                 f"{missing}: No such file or directory (the library says: File not found({missing}))"),
                (("--dictionary", self.write("d.xml", "<x/>"), *self.direct("x:1")[2:], 1201, "Quote"), "dictionary",
                 f"{self.path('d.xml')}: the library says: InitDictionary(Handler error : Unknown root element - x); "
                 "callorv dict check says everything"),
                ((*good, 1201, "nosuch"), "request", "no message 'nosuch' in the dictionary"),
                ((*good, 1201, "Quote", "code=\ud55c\x1b"), "request",
                 "'\ud55c\ufffd' has a character that ISO-8859-1 cannot write"),
                ((*good, 1201, "Quote", "count=x", "--repeat", 3), "request", "count: 'x' is no integer of 32 bits"),
                ((*good, 1201, "--xml", missing), "request", f"{missing}: No such file or directory"),
                ((*good, 1201, "--xml", self.write("r.xml", "<msg no='3'>\n<t3>Y</t3></msg>")), "request",
                 f"{self.path('r.xml')}:2: t3: 'Y' is no bool (true or false)"),
                ((*good, 1201, "--xml", "-", "--as-library"), "request", "standard input: Handler error : [F]MemData "
                 "(L:1, C:1) invalid document structure")):
            for form in (("--json",), ("--format", "json")):
                with self.subTest(args=args):
                    result = run("call", *args, *form)
                    self.assertEqual((result.returncode, result.stderr.decode()), (1, f"callorv: {text}\n"))
                    self.assert_object(result, text=text, stage=stage)

    def test_wrong_usage_is_no_object(self):
        for args in ((), ("--config", self.config(1), 1201, "Quote", "code"),
                     (*self.direct("127.0.0.1:70000"), 1201, "Quote")):
            result = run("call", *args, "--json")
            self.assertEqual((result.returncode, result.stdout), (2, b""))

    def test_calls_that_fail_are_one_object(self):
        result = self.call(self.deaf(), 1201, "Quote", "--repeat", 3, "--json")
        self.assertEqual((result.returncode, result.stderr), (1, b"callorv: 3 of 3 calls failed\n"))
        self.assertEqual(json.loads(result.stdout)["failed"], 3)

    def test_a_configuration_that_cannot_be_used(self):
        missing, config = self.path("missing"), self.path("bad.cfg")
        gone = f"{missing}: No such file or directory (the library says: "
        self.assert_run(run("call", "--config", missing, 1, 3), 1, "",
                        f"callorv: {gone}File open failed [{missing}](2,No such file or directory))\n")
        for text, why in (("", f"{config}: the library says: cannot found 'msg_dic' key in config file"),
                          (f"msg_dic={self.dictionary}",
                           f"{config}: the library says: cannot found 'key_file' key in config file"),
                          (f"msg_dic={self.dictionary}\nkey_file={missing}\nserver=x 1",
                           f"{gone}File not found({missing}))"),
                          (f"msg_dic={self.dictionary}\nkey_file={self.dictionary}\nserver=x 1",
                           f"{self.dictionary}: {len(self.read('dictionary.xml'))} bytes instead of 4144: no key file, "
                           "or cut off; copy it again, or make one: callorv key make (the library says: Corrupted "
                           "UserKey data)"),
                          (f"msg_dic={self.dictionary}\nkey_file={self.key}\nserver=x",
                           f"{config}: 'server' is no host, blank and port, as in server = 192.0.2.10 7000")):
            with self.subTest(text=text):
                self.write("bad.cfg", text)
                self.assert_run(run("call", "--config", config, 1, 3), 1, "", f"callorv: {why}\n")

    def test_a_port_that_is_none(self):
        config = self.path("bad.cfg")
        for port in ("abc", "70000", "0", "-1", "7000x", "99999999999", "7000,"):
            with self.subTest(port=port):
                self.write("bad.cfg", f"msg_dic={self.dictionary}\nkey_file={self.key}\nserver=127.0.0.1 {port}\n")
                self.assert_fails(("--config", config), re.escape(
                    f"{config}: 'server' has '{port}' where a port from 1 to 65535 belongs"), stage="config")

    def test_a_tab_between_host_and_port(self):
        config = self.path("bad.cfg")
        for server in ("127.0.0.1\t1", "127.0.0.1\t1 1"):
            self.write("bad.cfg", f"msg_dic={self.dictionary}\nkey_file={self.key}\nserver={server}\n")
            self.assert_fails(("--config", config), re.escape(
                f"{config}: 'server' has a tab behind the host, where the library wants a blank"), stage="config")
        self.write("bad.cfg", f"msg_dic={self.dictionary}\nkey_file={self.key}\nserver=\t127.0.0.1 \t1\t\n")
        self.assertIn(b"127.0.0.1:1: Connection refused", run("call", "--config", config, 1, 3).stderr)

    def test_a_byte_order_mark(self):
        config = self.path("bad.cfg")
        lines = f"msg_dic={self.dictionary}\nkey_file={self.key}\nserver=127.0.0.1 1\n"
        for text in (lines, "timeout=120\n" + lines):
            self.write("bad.cfg", "\ufeff" + text)
            self.assert_fails(("--config", config), re.escape(
                f"{config}:1: a byte order mark stands before the first key, which the library takes for a part of it: "
                "save the file without one"), stage="config")
        for text in ("\ufeff# first a comment\n", "\ufeff \t\r\n"):    # which takes nothing with it
            self.write("bad.cfg", text + lines)
            self.assertIn(b"127.0.0.1:1: Connection refused", run("call", "--config", config, 1, 3).stderr)

    def test_a_configuration_from_a_pipe(self):
        os.mkfifo(self.path("pipe"))
        with self.echo() as server, open(self.config(server.port), "rb") as file:
            text = file.read()
            writer = threading.Thread(target=lambda: self.write("pipe", text))
            writer.start()
            self.assert_run(run("call", "--config", self.path("pipe"), 1201, "Quote"), 0, err="")
            writer.join()


class DirectTest(CallTest):
    def test_without_a_configuration_file(self):
        with self.echo() as server:
            result = run("call", "--dictionary", self.dictionary, "--key-file", self.key, "--server",
                         f"127.0.0.1:{server.port}", 1201, "Quote", "code=ABC")
        self.assert_run(result, 0, dump(3, "    [1](code) ABC\n"), "")
        self.assertIn("user=US******", server.log)


class TraceTest(CallTest):
    def test_prints_both_packets_on_standard_error(self):
        port, seen = self.peer(packet(message(3, "<t6>5</t6>"), compress=True))
        result = self.call(port, 1201, "Quote", "code=ABC", "--trace")
        self.assert_run(result, 0, dump(3, "    [6](count) 5\n"))
        request = Reply(seen[0])
        reply = packet(message(3, "<t6>5</t6>"), compress=True)
        self.assertEqual(result.stderr.decode(), f"""request
       0    12  begin string      'QMX-SSP-V1.0'
      12    10  packet length     '{request.data[12:22].decode()}'
      22     4  service           '1201'
      26     4  message           '0003'
      30    10  extra             '0000000000'
      40    15  time stamp        '{request.data[40:55].decode()}'
      55    20  user key          'US******            '
      75    13  aux13             '             '
      88     1  compressed        'N'
      89    10  body length       '0000000093'
      99     8  aux8              '        '
     107    21  aux21             '                     '
     221     3  checksum          '{request.data[-3:].decode()}'
  body: {request.body.decode()}
reply
       0    12  begin string      'QMX-SSP-V1.0'
      12    10  packet length     '{reply[12:22].decode()}'
      22     4  service           '1201'
      26     4  message           '0003'
      30    10  extra             '0000000000'
      40    15  time stamp        '20260131-235959'
      55    20  user key          'US******            '
      75    13  aux13             '             '
      88     1  compressed        'Y'
      89    10  body length       '{len(message(3, "<t6>5</t6>")):010d}'
      99     8  aux8              '        '
     107    21  aux21             '                     '
  body: {message(3, "<t6>5</t6>").decode()}
""")

    def test_shows_the_user_key_when_asked(self):
        with self.echo() as server:
            shown = self.call(server, 1201, "Quote", "--trace", "--show-key").stderr.decode()
        self.assertIn("user key          'USERKEY1            '\n", shown)

    def test_of_a_call_that_fails_prints_what_there_was(self):
        with self.echo("--fault", "close") as server:
            result = self.call(server, 1201, "Quote", "--trace")
        self.assertEqual(result.returncode, 1)
        self.assertRegex(result.stderr.decode(),
                         r"(?s)\Arequest\n.*\n  body: <\?xml.*</msg>\ncallorv: [^\n]* \(the library says: "
                         r"Socket closed\(-9\)\(OK\)\)\n\Z")


class MeasureTest(CallTest):
    def test_prints_rate_and_latency(self):
        with self.echo("--quiet") as server:
            result = self.call(server, 1201, "Quote", "code=ABC", "--repeat", 200, "--threads", 4)
        self.assert_run(result, 0, err="")
        self.assertRegex(result.stdout.decode(),
                         r"\A200 calls from 4 threads in \d+\.\d{3} s: \d+ calls/s\n"
                         r"latency  50 % \d+\.\d{3} ms  90 % \d+\.\d{3} ms  99 % \d+\.\d{3} ms  max \d+\.\d{3} ms\n"
                         r"         99.9 % \d+\.\d{3} ms  99.99 % \d+\.\d{3} ms  min \d+\.\d{3} ms  mean \d+\.\d{3} ms\n"
                         r"( +\d+\.\d{3} to +\d+\.\d{3} ms +\d+(  #{1,50})?\n){1,20}\Z")
        self.assertIn("served 200 calls, 0 errors", server.log)

    def test_calls_in_flight(self):
        with self.echo("--quiet", "--delay", 300) as server:
            result = self.call(server, 1201, "Quote", "code=ABC", "--repeat", 120, "--threads", 2, "--in-flight", 30)
            self.assert_run(result, 0, err="")
            self.assertRegex(result.stdout.decode(),
                             r"\A120 calls from 2 threads, 30 in flight each, in \d+\.\d{3} s: \d+ calls/s\n"
                             r"latency  50 % \d+\.\d{3} ms  ")
            seen = json.loads(self.call(server, 1201, "Quote", "--repeat", 50, "--in-flight", 100, "--json").stdout)
        self.assertEqual((seen["calls"], seen["threads"], seen["in_flight"], seen["failed"]), (50, 1, 100, 0))
        self.assertLess(seen["seconds"], 7.5)    # half of one after the other
        self.assertGreaterEqual(seen["latency_us"]["p50"], 300000)
        self.assertIn("served 170 calls, 0 errors", server.log)

    def test_calls_in_flight_count_failures_by_code(self):
        with self.echo("--quiet", "--fault", "reject:17@25", "--fault", "close@50") as server:
            result = self.call(server, 1201, "Quote", "--repeat", 16, "--in-flight", 4)
            self.assertEqual(result.stderr.decode(), "callorv: 10 of 16 calls failed\n")
            self.assertEqual(result.stdout.decode().splitlines()[-2:],
                             [f"6 x -5  127.0.0.1:{server.port}: the connection was closed before the reply was complete "
                              "(the library says: Socket closed(-9)(OK))", "4 x 17  rejected on request of --fault"])
        result = self.call(1, 1201, "Quote", "--repeat", 7, "--in-flight", 4)
        self.assertRegex(result.stdout.decode().splitlines()[-1],
                         r"\A7 x -3  127.0.0.1:1: .*Failed in connect\(\)\(-5\)\(\(connect\)\)")

    def test_a_deadline_bounds_each_call(self):
        with self.echo("--quiet", "--fault", "stall:128") as server:
            text = (f"127.0.0.1:{server.port}: the 400 ms were over while reading the reply "
                    "(the library says: Socket timeout(-8)((body, 400 ms)))")
            self.assert_run(self.call(server, 1201, "Quote", "--deadline", 400), 1, "", f"callorv: {text}\n")
            for more in (), ("--in-flight", 2):
                result = self.call(server, 1201, "Quote", "--deadline", 400, "--repeat", 2, *more)
                self.assertEqual(result.stdout.decode().splitlines()[-1:], [f"2 x -5  {text}"])
        with self.echo("--quiet") as server:
            self.assert_run(self.call(server, 1201, "Quote", "--deadline", 20000, "--repeat", 3), 0, err="")
            self.assertIn(b"MsgNum : 3", self.call(server, 1201, "Quote", "--deadline", 20000).stdout)

    def test_as_json(self):
        with self.echo("--quiet", "--delay", 20) as server:
            result = self.call(server, 1201, "Quote", "--repeat", 10, "--json")
        self.assert_run(result, 0, err="")
        seen = json.loads(result.stdout)
        self.assertEqual(list(seen), ["calls", "threads", "seconds", "calls_per_second", "latency_us", "failed",
                                      "errors", "begun", "rate", "duration", "warm_up", "not_begun", "interrupted",
                                      "histogram", "over_time"])
        self.assertEqual((seen["calls"], seen["threads"], seen["failed"], seen["errors"]), (10, 1, 0, []))
        latency = seen["latency_us"]
        self.assertEqual(list(latency), ["p50", "p90", "p99", "p99_9", "p99_99", "max", "min", "mean"])
        self.assertGreaterEqual(latency["min"], 20000)
        self.assertLessEqual(latency["min"], latency["p50"])
        self.assertLessEqual(latency["p50"], latency["p90"])
        self.assertLessEqual(latency["p90"], latency["p99"])
        self.assertLessEqual(latency["p99"], latency["max"])
        self.assertGreaterEqual(seen["seconds"], 0.2)
        self.assertAlmostEqual(seen["calls_per_second"], 10 / seen["seconds"], delta=0.1)

    def test_counts_failures_by_code(self):
        with self.echo("--quiet", "--fault", "reject:17@25", "--fault", "close@50") as server:
            closed = (f"127.0.0.1:{server.port}: the connection was closed before the reply was complete (the library "
                      "says: Socket closed(-9)(OK))")
            result = self.call(server, 1201, "Quote", "--repeat", 16)
            self.assertEqual(result.returncode, 1)
            self.assertEqual(result.stderr.decode(), "callorv: 10 of 16 calls failed\n")
            self.assertEqual(result.stdout.decode().splitlines()[-2:],
                             [f"6 x -5  {closed}", "4 x 17  rejected on request of --fault"])
            seen = json.loads(self.call(server, 1201, "Quote", "--repeat", 16, "--json").stdout)
            self.assertEqual(seen["failed"], 10)
            self.assertEqual(seen["errors"], [{"code": -5, "text": closed, "count": 6},
                                              {"code": 17, "text": "rejected on request of --fault", "count": 4}])

    def test_a_wrong_request_is_said_once(self):
        result = self.call(1, 1201, "Quote", "count=x", "--repeat", 100, "--threads", 8)
        self.assert_run(result, 1, "", "callorv: count: 'x' is no integer of 32 bits\n")

    def test_a_request_from_standard_input_is_read_once(self):
        with self.echo("--quiet") as server:
            result = self.call(server, 1201, "--xml", "-", "--repeat", 20, "--threads", 3,
                               stdin=b"<msg no='3'><t6>5</t6></msg>")
        self.assert_run(result, 0, err="")

    def test_more_threads_than_calls(self):
        with self.echo("--quiet") as server:
            self.assert_run(self.call(server, 1201, "Quote", "--repeat", 2, "--threads", 10), 0, err="")
        self.assertIn("served 2 calls", server.log)

    def test_a_progress_bar_on_a_terminal(self):
        master, slave = pty.openpty()
        with self.echo("--quiet", "--delay", 5) as server:
            command = [COMMAND, "call", "--config", self.config(server.port), "1201", "Quote", "--repeat", "200"]
            with subprocess.Popen(command, stdout=subprocess.PIPE, stderr=slave) as process:
                os.close(slave)
                seen = b""
                while process.poll() is None or select.select([master], [], [], 0)[0]:
                    if select.select([master], [], [], 1)[0]:
                        try:
                            seen += os.read(master, 4096)
                        except OSError:    # the terminal's other end is closed
                            break
                self.assertEqual(process.wait(30), 0)
                self.assertIn(b"200 calls from 1 thread in ", process.stdout.read())
        os.close(master)
        self.assertRegex(seen, rb"\A(\r\x1b\[K\[#*\.*\] +\d+ %  \d+/200  \d+/s  0 failed)+\r\x1b\[K\Z")


class ArgumentTest(CallTest):
    def test_usage(self):
        config = ("--config", self.config(1))
        direct = ("--dictionary", self.dictionary, "--key-file", self.key, "--server", "127.0.0.1:1")
        shape = " is not TAG=VALUE (as in code=ABC or rows[0].price=1.5)"
        either = "either --config FILE or --dictionary, --key-file and --server are needed"
        for args, text in (
                ((), "SERVICE is required"),
                (("1", "3"), either),
                ((*config, "10000", "3"), "SERVICE: Value 10000 not in range 0 to 9999"),
                ((*config, "-1", "3"), "SERVICE: Value -1 not in range 0 to 9999"),
                ((*config, "99999999999", "3"), "SERVICE: Value 99999999999 not in range 0 to 9999"),
                ((*config, "Quote", "--data", "{}"),
                 "SERVICE: Value Quote not in range 0 to 9999; the service's number stands before the message"),
                ((*config, "1"), "MESSAGE, --xml FILE or --data JSON is needed"),
                ((*config, "1", "Quote", "code"), "'code'" + shape),
                ((*config, "1", "Quote", "=1"), "'=1'" + shape),
                ((*config, "1", "Quote", ".code=1"), "'.code=1'" + shape),
                ((*config, "1", "Quote", "code.=1"), "'code.=1'" + shape),
                ((*config, "1", "Quote", "list[=1"), "'list[=1'" + shape),
                ((*config, "1", "Quote", "list[]=1"), "'list[]=1'" + shape),
                ((*config, "1", "Quote", "list[-1]=1"), "'list[-1]=1'" + shape),
                ((*config, "1", "Quote", "[0]=1"), "'[0]=1'" + shape),
                ((*config, "1", "Quote", "list[0]x=1"), "'list[0]x=1'" + shape),
                ((*config, "1", "3", "--format", "yaml"), "--format: yaml not in {dump,xml,json}"),
                ((*config, "1", "3", "--format", "xml", "--json"), "--format excludes --json"),
                ((*config, "1", "3", "--repeat", "0"), "--repeat: Value 0 not in range 1 to 1000000000"),
                ((*config, "1", "3", "--threads", "2"), "--threads requires --repeat or --duration"),
                ((*config, "1", "3", "--repeat", "1", "--threads", "1025"),
                 "--threads: Value 1025 not in range 1 to 1024"),
                ((*config, "1", "3", "--repeat", "1", "--trace"), "--repeat excludes --trace"),
                ((*config, "1", "3", "--in-flight", "2"), "--in-flight requires --repeat, --duration or --stream"),
                ((*config, "1", "3", "--repeat", "1", "--in-flight", "0"),
                 "--in-flight: Value 0 not in range 1 to 100000"),
                ((*config, "1", "3", "--deadline", "0"), "--deadline: Value 0 not in range 1 to 86400000"),
                ((*config, "1", "3", "--deadline", "1", "--trace"), "--deadline excludes --trace"),
                ((*config, "1", "3", "--show-key"), "--show-key requires --trace"),
                ((*config, "1", "3", "--xml", "x.xml"), "--xml brings the message: '3' must be TAG=VALUE or go"),
                ((*config, "1", "3", "--as-library"), "--as-library requires --xml"),
                ((*config, "1", "3", "--nosuch"), "unknown option --nosuch"),
                ((*config, *direct[4:6], "1", "3"), "--config excludes --server"),
                ((*config, "--timeout", "1", "1", "3"), "--config excludes --timeout"),
                ((*direct[:4], "1", "3"), "--dictionary requires --server"),
                ((*direct[2:], "1", "3"), "--key-file requires --dictionary"),
                ((*direct[:5], "127.0.0.1", "1", "3"), "--server: '127.0.0.1' is not HOST:PORT"),
                ((*direct[:5], ":7000", "1", "3"), "--server: ':7000' is not HOST:PORT"),
                ((*direct[:5], "127.0.0.1:x", "1", "3"), "--server: '127.0.0.1:x' is not HOST:PORT"),
                ((*direct[:5], "127.0.0.1:0", "1", "3"), "--server: '127.0.0.1:0' is not HOST:PORT"),
                ((*direct[:5], "127.0.0.1:65536", "1", "3"), "--server: '127.0.0.1:65536' is not HOST:PORT"),
                ((*direct, "--timeout", "0", "1", "3"), "--timeout: Value 0 not in range 1 to 86400")):
            with self.subTest(args=args):
                self.assert_usage("call", run("call", *args), text)

    def test_help_teaches_by_example(self):
        result = run("call", "--help")
        self.assert_run(result, 0, err="")
        self.assertIn("Usage: callorv call [OPTIONS] [SERVICE] [MESSAGE] [VALUES...]\n", result.stdout.decode())
        self.assertIn("\nExamples:\n  callorv call --config client.cfg 1201 Quote code=ABC", result.stdout.decode())


if __name__ == "__main__":
    unittest.main()
