"""callorv serve: a real server, asked over real sockets."""
import contextlib
import os
import pty
import re
import resource
import select
import signal
import socket
import stat
import struct
import subprocess
import threading
import time
import unittest
import zlib

from support import (COMMAND, DICTIONARY, XML_HEAD, Reply, Server, ToolTest, header, message, packet, read_all,
                     read_packet, run)


REQUEST = message(3, "<t1><![CDATA[ABC]]></t1>")


def rejection(code, text, service=1201):
    return message(10, f"<t6>{code}</t6><t7><![CDATA[{text}]]></t7><t8>{service}</t8>")


def unread(sock):
    """How many bytes that a socket on this machine has sent its peer has not read yet."""
    ends = f":{sock.getpeername()[1]:04X}", f":{sock.getsockname()[1]:04X}"
    with open("/proc/net/tcp", encoding="ascii") as table:
        for row in (line.split() for line in table):
            if row[1].endswith(ends[0]) and row[2].endswith(ends[1]):
                return int(row[4].split(":")[1], 16)
    return 0


class ServeTest(ToolTest):
    def serve(self, *args, **named):
        """A server with the dictionary and an empty folder of replies."""
        os.makedirs(self.path("replies"), exist_ok=True)
        return Server("--dictionary", self.dictionary, "--replies", self.path("replies"), *args, **named)

    def echo(self, *args, **named):
        return Server("--dictionary", self.dictionary, "--echo", *args, **named)

    def reply_file(self, text, service=1201):
        self.write(f"replies/{service}.xml", text)

    def assert_log(self, server, pattern):
        """One line of the log, after its time and peer."""
        lines = server.log.splitlines()
        whole = r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3} 127\.0\.0\.1:\d+ " + pattern
        self.assertTrue(any(re.fullmatch(whole, line) for line in lines), (pattern, lines))


class LifeTest(ServeTest):
    def test_prints_where_it_listens_and_stops_on_a_signal_with_a_summary(self):
        for number in (signal.SIGTERM, signal.SIGINT):
            with self.subTest(signal=number), self.echo(stop=number) as server:
                server.ask(packet(REQUEST))
            self.assertEqual(server.status, 0)
            self.assertEqual(server.rest, "")
            self.assertRegex(server.log, r"\nserved 1 calls, 0 errors, 1 connections in \d+\.\d s\n\Z")

    def test_a_call_that_is_being_answered_when_the_signal_comes_gets_its_answer(self):
        with self.begun(300) as (server, sock):
            server.send_signal(signal.SIGTERM)
            self.assertEqual(Reply(read_packet(sock)).body, REQUEST)
        self.assertEqual(server.status, 0)
        self.assertIn("served 3 calls, 0 errors", server.log)

    @contextlib.contextmanager
    def begun(self, delay):
        """A server that is at work on the answer to a connection's second request, and the connection."""
        with self.echo("--threads", 1, "--fault", f"delay:{delay}@50") as server, server.connect() as sock:
            sock.sendall(packet(REQUEST))
            read_packet(sock)
            sock.sendall(packet(REQUEST))
            server.ask(packet(REQUEST))    # what came later has been answered
            yield server, sock

    def test_a_second_signal_does_not_wait(self):
        with self.begun(60000) as (server, _):
            started = time.monotonic()
            server.send_signal(signal.SIGTERM)
            server.send_signal(signal.SIGINT)
            server.process.wait(30)
            self.assertLess(time.monotonic() - started, 1.5)
        self.assertEqual(server.status, 0)

    def test_one_that_takes_too_long_does_not_hold_up_the_end(self):
        with self.begun(60000) as (server, sock):
            server.send_signal(signal.SIGTERM)
            server.process.wait(30)
            self.assertEqual(sock.recv(1), b"")
        self.assertEqual(server.status, 0)

    def test_idle_and_stalled_connections_do_not_hold_up_the_end(self):
        with self.echo("--fault", "stall") as server, server.connect() as idle, server.connect() as stalled:
            stalled.sendall(packet(REQUEST))
            self.assertEqual(len(stalled.recv(4096)), 128)
            started = time.monotonic()
            server.send_signal(signal.SIGTERM)
            server.process.wait(30)
            self.assertLess(time.monotonic() - started, 1.5)
            self.assertIsNotNone(idle)
        self.assertEqual(server.status, 0)

    def test_a_given_port_is_taken_and_a_taken_one_refused(self):
        with self.echo() as first:
            port = first.port
            result = run("serve", "--dictionary", self.dictionary, "--echo", "--port", port)
            self.assert_run(result, 1, "", f"callorv: listen on 127.0.0.1 {port}: Address already in use\n")
        with self.echo("--port", port) as second:
            self.assertEqual(second.port, port)

    def test_quiet_leaves_the_calls_out(self):
        with self.echo("--quiet") as server:
            server.ask(packet(REQUEST))
            server.ask_raw(packet(REQUEST, checksum=b"000"))
        self.assertRegex(server.log, r"\Aserved 1 calls, 1 errors, 2 connections in \d+\.\d s\n\Z")

    def test_shows_a_status_line_on_a_terminal(self):
        master, slave = pty.openpty()
        with subprocess.Popen([COMMAND, "serve", "--dictionary", self.dictionary, "--echo"], stdout=subprocess.PIPE,
                              stderr=slave) as process:
            os.close(slave)
            port = int(process.stdout.readline().split()[-1])
            with socket.create_connection(("127.0.0.1", port)) as sock:
                sock.sendall(packet(REQUEST))
                read_packet(sock)
                seen = b""
                while not re.search(rb"\r\x1b\[K1 calls  [\d.]+/s  0 errors  1 connections", seen):
                    self.assertTrue(select.select([master], [], [], 30)[0], seen)
                    seen += os.read(master, 4096)
            self.assertRegex(seen, rb"\r\x1b\[K\d{4}-.* result=ok\r\n0 calls")    # a call's line goes above the status
            process.send_signal(signal.SIGTERM)
            self.assertEqual(process.wait(30), 0)
        os.close(master)

    def test_ends_when_it_cannot_say_where_it_listens(self):
        reader, writer = os.pipe()
        os.close(reader)
        with open("/dev/full", "wb") as full, os.fdopen(writer, "wb") as unread:
            for out in (full, unread):
                result = subprocess.run([COMMAND, "serve", "--dictionary", self.dictionary, "--echo"], stdout=out,
                                        stderr=subprocess.PIPE, timeout=60, check=False)
                self.assertEqual((result.returncode, result.stderr),
                                 (1, b"callorv: standard output cannot be written\n"))

    def test_goes_on_when_nobody_reads_its_log(self):
        with subprocess.Popen([COMMAND, "serve", "--dictionary", self.dictionary, "--echo"], stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE) as process:
            port = int(process.stdout.readline().split()[-1])
            process.stderr.close()
            for _ in range(2):
                with socket.create_connection(("127.0.0.1", port)) as sock:
                    sock.sendall(packet(REQUEST))
                    self.assertEqual(Reply(read_packet(sock)).body, REQUEST)
            process.send_signal(signal.SIGTERM)
            self.assertEqual(process.wait(30), 0)


class EchoTest(ServeTest):
    def test_answers_with_the_request(self):
        with self.echo() as server:
            for compress in (False, True):
                reply = server.ask(packet(REQUEST, service=7, extra=b"0000000042", compress=compress))
                self.assertEqual((reply.service, reply.message, reply.extra), (7, 3, 42))
                self.assertEqual(reply.body, REQUEST)
                self.assertEqual(reply.key, b" " * 20)

    def test_compresses_replies_over_the_limit(self):
        def sized(size):
            return message(3, "<t1><![CDATA[%s]]></t1>" % ("x" * (size - len(message(3, "<t1><![CDATA[]]></t1>")))))

        for limit in (1024, 0, 5000):
            with self.echo("--compress-over", limit) as server:
                for size in (200, 1024, 1025, 5000, 5001):
                    reply = server.ask(packet(sized(size)))
                    self.assertEqual(len(reply.body), size)
                    self.assertEqual(reply.compressed, size > limit)

    def test_answers_many_requests_on_one_connection_in_their_order(self):
        with self.echo() as server, server.connect() as sock:
            sock.sendall(b"".join(packet(message(3, f"<t6>{i}</t6>")) for i in range(50)))
            for i in range(50):
                self.assertEqual(Reply(read_packet(sock)).body, message(3, f"<t6>{i}</t6>"))
            sock.shutdown(socket.SHUT_WR)
            self.assertEqual(sock.recv(1), b"")

    def test_a_request_may_come_byte_by_byte(self):
        with self.echo() as server, server.connect() as sock:
            sock.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
            for byte in packet(REQUEST):
                sock.sendall(bytes([byte]))
            self.assertEqual(Reply(read_packet(sock)).body, REQUEST)

    def test_a_megabyte(self):
        body = message(3, "<t1><![CDATA[%s]]></t1>" % ("0123456789abcdef" * 65536))
        with self.echo() as server:
            for compress in (False, True):
                self.assertEqual(server.ask(packet(body, compress=compress)).body, body)

    def test_answers_many_at_once(self):
        with self.echo("--delay", 200) as server:
            socks = [server.connect() for _ in range(100)]
            started = time.monotonic()
            for i, sock in enumerate(socks):
                sock.sendall(packet(message(3, f"<t6>{i}</t6>")))
            for i, sock in enumerate(socks):
                self.assertEqual(Reply(read_packet(sock)).body, message(3, f"<t6>{i}</t6>"))
                sock.close()
            self.assertLess(time.monotonic() - started, 10)    # one after the other it would be 20 s
        self.assertIn("served 100 calls, 0 errors, 100 connections", server.log)

    def test_ten_thousand_waiting_connections_do_not_disturb_it(self):
        count = 10000
        soft, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
        self.assertTrue(hard == resource.RLIM_INFINITY or hard > count + 100, "the descriptor limit is too low")
        resource.setrlimit(resource.RLIMIT_NOFILE, (hard, hard))
        self.addCleanup(resource.setrlimit, resource.RLIMIT_NOFILE, (soft, hard))

        def soft_limit():    # the server has to raise its own
            resource.setrlimit(resource.RLIMIT_NOFILE, (1024, hard))

        command = [COMMAND, "serve", "--dictionary", self.dictionary, "--echo", "--quiet", "--timeout", "600"]
        with subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                              preexec_fn=soft_limit) as process:
            port = int(process.stdout.readline().split()[-1])
            socks = [socket.create_connection(("127.0.0.1", port)) for _ in range(count)]
            for sock in socks[::2]:
                sock.sendall(packet(REQUEST)[:100])    # half of them in the middle of a header
            started = time.monotonic()
            for _ in range(100):
                with socket.create_connection(("127.0.0.1", port)) as sock:
                    sock.sendall(packet(REQUEST))
                    self.assertEqual(Reply(read_packet(sock)).body, REQUEST)
            self.assertLess(time.monotonic() - started, 10)
            for sock in socks[::2]:
                sock.sendall(packet(REQUEST)[100:])    # and those that waited are answered
            for sock in socks[::2]:
                self.assertEqual(Reply(read_packet(sock)).body, REQUEST)
            for sock in socks:
                sock.close()
            process.send_signal(signal.SIGTERM)
            _, log = process.communicate(timeout=60)
        self.assertEqual(process.returncode, 0)
        self.assertIn(b"served 5100 calls, 0 errors, 10100 connections", log)


class LogTest(ServeTest):
    def test_one_line_a_call(self):
        with self.echo() as server:
            data = packet(REQUEST, key=b"SECRETKEY".ljust(20))
            server.ask(data)
        size = len(data)
        self.assert_log(server, rf"service=1201 message=3 user=SE\*{{7}} in={size} out={size} us=\d+ result=ok")
        self.assertNotIn("SECRETKEY", server.log)

    def test_a_short_key_is_masked_whole_and_a_hostile_one_cannot_steer_the_terminal(self):
        with self.echo() as server:
            server.ask(packet(REQUEST, key=b"ABCD".ljust(20)))
            server.ask(packet(REQUEST, key=b"\x1b[2Jboom".ljust(20)))
        self.assert_log(server, r"service=1201 message=3 user=\*{4} in=.*")
        self.assert_log(server, "service=1201 message=3 user=\ufffd\\[\\*{6} in=.*")


class StrictTest(ServeTest):
    def refused(self, data, pattern):
        with self.echo() as server:
            self.assertEqual(server.ask_raw(data), b"")
            self.assertEqual(server.ask(packet(REQUEST)).body, REQUEST)    # and the next is served
        self.assert_log(server, "refused: " + pattern)
        self.assertIn("served 1 calls, 1 errors, 2 connections", server.log)

    def test_headers(self):
        for fields, pattern in (
                ({"begin": b"XYZ-SSP-V1.0"}, "begin string 'XYZ-SSP-V1.0' is not QMX-SSP-V1.0"),
                ({"length": b"0000000x10"}, "packet length '0000000x10' is no number of 32 bits in digits"),
                ({"length": b"9999999999"}, "packet length '9999999999' is no number of 32 bits in digits"),
                ({"length": b"-000000001"}, "packet length '-000000001' is no number of 32 bits in digits"),
                ({"length": b"       224"}, "packet length '       224' is no number of 32 bits in digits"),
                ({"length": b"0000000127"}, "packet length 127 is less than the header's 128 bytes"),
                ({"length": b"2147483647", "plain": b"2147483519"}, "2147483650 bytes are too many"),
                ({"compressed": b"Y", "plain": b"0067108865"}, "67108865 bytes are too many"),
                ({"service_field": b"12 1"}, "service '12 1' is no number of 32 bits in digits"),
                ({"message_field": b"00-3"}, "message '00-3' is no number of 32 bits in digits"),
                ({"extra": b"4294967296"}, "extra '4294967296' is no number of 32 bits in digits"),
                ({"time": b"2026013-1235959"}, "time stamp '2026013-1235959' is not YYYYMMDD-HHMMSS"),
                ({"compressed": b"y"}, "compressed 'y' is neither Y nor N"),
                ({"compressed": b"\x1b"}, "compressed '\ufffd' is neither Y nor N"),
                ({"plain": b"0000000001"}, rf"body length 1 is not the packet's {len(REQUEST)} bytes"),
                ({"plain": b"000000000 "}, "body length '000000000 ' is no number of 32 bits in digits")):
            with self.subTest(pattern=pattern):
                self.refused(packet(REQUEST, **fields), pattern)

    def test_negative_numbers_of_the_format_pass(self):
        with self.echo() as server:
            reply = server.ask(packet(REQUEST, service_field=b"-007", extra=b"-000000042"))
        self.assertEqual((reply.service, reply.extra, reply.body), (-7, -42, REQUEST))

    def test_checksum(self):
        right = int(packet(REQUEST)[-3:])
        wrong = (right + 1) % 256
        self.refused(packet(REQUEST, checksum=b"%03d" % wrong),
                     rf"Checksum is incorrect\(-13\)\(\(M:{right},C:{wrong}\)\)")
        self.refused(packet(REQUEST, checksum=b" %02d" % (right % 100)), r"checksum ' \d\d' is not 3 digits.*")

    def test_compression(self):
        sent = zlib.compress(REQUEST)
        plain = b"%010d" % len(REQUEST)
        self.refused(packet(REQUEST, compressed=b"Y"), r"Compression failed\(-16\)\(ReceiveFrom\(-3\)\(0\)\)")
        self.refused(packet(sent[:-8], compressed=b"Y", plain=plain),
                     r"Compression failed\(-16\)\(ReceiveFrom\(-[35]\).*")
        self.refused(packet(sent, compressed=b"Y", plain=b"%010d" % (len(REQUEST) + 1)),
                     rf"body length {len(REQUEST) + 1} is not the {len(REQUEST)} bytes that the body decompresses to")
        self.refused(packet(sent, compressed=b"Y", plain=b"0000000010"),
                     r"Compression failed\(-16\)\(ReceiveFrom\(-5\)\(10\)\)")
        # a bomb is held to what it announces
        self.refused(packet(zlib.compress(b" " * 50000000, 9), compressed=b"Y", plain=plain),
                     r"Compression failed\(-16\)\(ReceiveFrom\(-5\).*")

    def test_another_protocol(self):
        self.refused(b"GET / HTTP/1.1\r\n" + b"x" * 200, r"begin string 'GET / HTTP/1' is not QMX-SSP-V1\.0")

    def test_a_request_that_ends_at_any_byte(self):
        data = packet(REQUEST)
        with self.echo() as server:
            for size in range(len(data)):
                with server.connect() as sock:
                    sock.sendall(data[:size])
                    sock.shutdown(socket.SHUT_WR)
                    self.assertEqual(read_all(sock), b"")
        for size in (1, 127):
            self.assert_log(server, f"refused: {size} bytes of a header, then the connection was closed")
        for size in (128, len(data) - 1):
            self.assert_log(server, f"refused: {size} of {len(data)} bytes, then the connection was closed")
        # nothing at all is a client that thought better of it
        self.assertIn(f"served 0 calls, {len(data) - 1} errors, {len(data)} connections", server.log)

    def test_a_client_that_stalls_is_cut_off_in_time(self):
        data = packet(REQUEST)
        with self.echo("--timeout", 3) as server:
            socks = []
            for size in (0, 100, 200):
                socks.append(server.connect())
                socks[-1].sendall(data[:size])
            for sock in socks:
                self.assertEqual(sock.recv(1), b"")
                sock.close()
        self.assert_log(server, "refused: 100 bytes of a header, then nothing more within 3 s")
        self.assert_log(server, rf"refused: 200 of {len(data)} bytes, then nothing more within 3 s")
        self.assertIn("served 0 calls, 2 errors, 3 connections", server.log)

    def test_a_reset_in_the_middle(self):
        with self.echo() as server:
            with server.connect() as sock:
                sock.sendall(packet(REQUEST)[:150])
                while unread(sock):    # a reset takes what was not read yet with it
                    pass
                sock.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
            self.assertEqual(server.ask(packet(REQUEST)).body, REQUEST)
        self.assertIn("1 errors", server.log)


class RepliesTest(ServeTest):
    def test_a_file_of_any_form_becomes_the_wire_form(self):
        self.reply_file("<msg no='3' type='name' ver='2.1'>\n  <code>XYZ</code>\n  <rows>\n    <price>1.5</price>\n"
                        "  </rows>\n  <rows><text><![CDATA[ a<b&c ]]></text></rows>\n</msg>\n")
        with self.serve() as server:
            reply = server.ask(packet(REQUEST))
        self.assertEqual((reply.service, reply.message), (1201, 3))
        self.assertEqual(reply.body.decode(),
                         XML_HEAD + '<msg no="3" ver="2.1"><t1><![CDATA[XYZ]]></t1>'
                         "<t4><t2>1.500000000000000e+00</t2></t4><t4><t3><![CDATA[ a<b&c ]]></t3></t4></msg>")
        self.assert_log(server, r"service=1201 message=3 .* result=ok")

    def test_a_changed_file_counts_at_once(self):
        with self.serve() as server:
            for text in ("one", "two", "tri"):    # of one length, within one tick of the file system's clock
                self.reply_file(f"<msg no='3'><t1>{text}</t1></msg>")
                self.assertIn(f"<t1><![CDATA[{text}]]></t1>".encode(), server.ask(packet(REQUEST)).body)
            os.remove(self.path("replies/1201.xml"))
            self.assertEqual(server.ask(packet(REQUEST)).message, 10)

    def test_a_service_without_a_file_is_rejected(self):
        with self.serve() as server:
            reply = server.ask(packet(REQUEST, service=77))
        self.assertEqual((reply.service, reply.message), (77, 10))
        self.assertEqual(reply.body, rejection(404, "no reply file 77.xml", 77))
        self.assert_log(server, r"service=77 message=3 .* result=rejected 404 no reply file 77\.xml")

    def test_a_file_that_rejects(self):
        self.reply_file("<msg no='10'><t6>17</t6><t7>closed today</t7><t8>1201</t8></msg>")
        with self.serve() as server:
            reply = server.ask(packet(REQUEST))
        self.assertEqual(reply.body, rejection(17, "closed today"))
        self.assert_log(server, r".* result=rejected by its reply file")

    def test_a_file_that_cannot_be_used(self):
        for text, why in (
                ("<msg no='3'><t1>{{tag:nosuch}}</t1></msg>", "message 3 has no tag 'nosuch'"),
                ("<msg no='3'>\n<t1>{{tag:rows}}</t1></msg>", "tag 'rows' is a sub-message"),
                ("<msg no='3'><t1>{{tag:code.x}}</t1></msg>", "tag 'code' is no sub-message"),
                ("<msg no='3'>\n<t6>{{tag:code}}</t6></msg>", "t6: 'ABC' is no integer of 32 bits")):
            with self.subTest(text=text):
                self.reply_file(text)
                line = 1 + text.count("\n")
                with self.serve() as server:
                    self.assertEqual(server.ask(packet(REQUEST)).body, rejection(500, f"1201.xml:{line}: {why}"))
                self.assert_log(server, rf".* result=rejected 500 1201\.xml:{line}: {re.escape(why)}")

    def test_a_file_that_has_become_wrong_rejects_and_a_mended_one_answers(self):
        good = "<msg no='3'><t1>{{tag:1}}</t1></msg>"
        self.reply_file(good)
        with self.serve() as server:
            for text, why in (("<msg no='3'>\n<t3>Y</t3></msg>", "2: t3: 'Y' is no bool (true or false)"),
                              ("<msg no='3'><t1>", "1: no XML: Start-end tags mismatch"),
                              ("<msg no='3'><t1>{{tag:1</t1></msg>", "1: {{tag: without }}")):
                self.reply_file(text)
                self.assertEqual(server.ask(packet(REQUEST)).body, rejection(500, f"1201.xml:{why}"))
            self.reply_file(good)
            self.assertEqual(server.ask(packet(REQUEST)).body, REQUEST)

    def test_what_a_rejection_quotes_does_not_break_it(self):
        with self.serve() as server:
            self.reply_file("<msg no='3'><t6>\u00fc]]&gt;\ud55c&#13;</t6></msg>")
            self.assertEqual(server.ask(packet(REQUEST)).body.decode("latin-1"), rejection(
                500, "1201.xml:1: t6: '\u00fc]]???' is no integer of 32 bits").decode())
        self.assert_log(server, r".* result=rejected 500 1201\.xml:1: t6: '\u00fc\]\]\?\?\?' is no integer of 32 bits")

    def test_values_of_the_request(self):
        request = message(3, "<t1><![CDATA[ABC]]></t1><t2>2.5</t2><t3>true</t3>"
                             "<t4><t2>1</t2></t4><t4><t2>-7.25</t2></t4><t5>20260131</t5><t6>-42</t6>"
                             "<t7>10</t7><t7>20</t7><t8><t3><![CDATA[sub]]></t3></t8>")
        for path, value in (("1", "ABC"), ("code", "ABC"), ("price", "2.5"), ("open", "true"), ("day", "20260131"),
                            ("6", "-42"), ("list", "10"), ("list[1]", "20"), ("7[0]", "10"), ("rows[1].price", "-7.25"),
                            ("4[0].2", "1"), ("head.text", "sub"), ("list[2]", ""), ("rows[2].price", ""),
                            ("rows[0].text", ""), ("names", "")):
            with self.subTest(path=path):
                self.reply_file(f"<msg no='3'><t1>[{{{{tag:{path}}}}}]</t1></msg>")
                with self.serve() as server:
                    reply = server.ask(packet(request))
                self.assertEqual(reply.body, message(3, f"<t1><![CDATA[[{value}]]]></t1>"))

    def test_a_missing_value_leaves_its_tag_out_and_a_number_stays_one(self):
        self.reply_file("<msg no='3'><t1>{{tag:9}}</t1><t6>{{tag:6}}</t6><t7>{{tag:6}}</t7><t7>5</t7></msg>")
        with self.serve() as server:
            reply = server.ask(packet(message(3, "<t6>12</t6>")))
        self.assertEqual(reply.body, message(3, "<t6>12</t6><t7>12</t7><t7>5</t7>"))

    def test_markup_in_a_value_stays_text(self):
        request = message(3, "<t1><![CDATA[<a> & \"b\"]]></t1>")
        for text in ("<t1>{{tag:1}}</t1>", "<t1><![CDATA[{{tag:1}}]]></t1>"):
            self.reply_file(f"<msg no='3'>{text}</msg>")
            with self.serve() as server:
                self.assertEqual(server.ask(packet(request)).body, message(3, '<t1><![CDATA[<a> & "b"]]></t1>'))

    def test_letters_beyond_ascii_in_either_encoding(self):
        request = message(3, "<t1><![CDATA[Z\u00fcrich]]></t1>").decode().encode("latin-1")
        for head, encoding in (("", "utf-8"), ("<?xml version='1.0' encoding='UTF-8'?>", "utf-8"),
                               ("<?xml version='1.0' encoding='iso-8859-1'?>", "latin-1")):
            with self.subTest(head=head):
                text = head + "<msg no='3'><t1>\u00e9 {{tag:1}}</t1></msg>"
                self.write("replies/1201.xml", text.encode(encoding))
                with self.serve() as server:
                    reply = server.ask(packet(request))
                self.assertIn("<t1><![CDATA[\u00e9 Z\u00fcrich]]></t1>".encode("latin-1"), reply.body)

    def test_requests_that_make_no_sense_are_rejected(self):
        self.reply_file("<msg no='3'/>")
        with self.serve() as server:
            for body, number, pattern in (
                    (b"", 3, r"Handler error : \[F\]MemData \(L:1, C:1\) invalid document structure"),
                    (b"hello", 3, r"Handler error : \[F\]MemData \(L:1, C:1\) invalid document structure"),
                    (message(4, ""), 3, "message 3 in the header, 4 in the body"),
                    (message(99, ""), 99, r"Handler error : Unknown msgno\(99\)"),
                    (b"<!DOCTYPE msg [<!ENTITY a 'b'>]><msg no='3'/>", 3, "Handler error : DOCTYPE is not allowed")):
                with self.subTest(body=body):
                    reply = server.ask(packet(body, message=number))
                    self.assertRegex(reply.body.decode(),
                                     rf"<t6>400</t6><t7><!\[CDATA\[{pattern}\]\]></t7><t8>1201</t8>")

    def test_without_message_10_there_is_no_rejection(self):
        for dictionary in (DICTIONARY.replace("no='10' name='REJECT'", "no='11' name='REJECT'"),
                           DICTIONARY.replace("name='SysCode' type='integer'", "name='SysCode' type='string'"),
                           DICTIONARY.replace("<tag no='8' name='RefSvcNum' type='integer' />", "")):
            self.dictionary = self.write("other.xml", dictionary)
            with self.serve() as server:
                self.assertEqual(server.ask_raw(packet(REQUEST)), b"")
            self.assert_log(server, r".* result=rejected 404 no reply file 1201\.xml "
                                    r"\(not sent: message 10 of the dictionary cannot carry it\)")


class FaultTest(ServeTest):
    def test_delay(self):
        with self.echo("--fault", "delay:300", "--delay", 200) as server:
            started = time.monotonic()
            self.assertEqual(server.ask(packet(REQUEST)).body, REQUEST)
            self.assertGreaterEqual(time.monotonic() - started, 0.5)

    def test_stall_after_the_header_or_any_byte(self):
        for fault, size in (("stall", 128), ("stall:0", 0), ("stall:10", 10), ("stall:140", 140)):
            with self.subTest(fault=fault), self.echo("--fault", fault) as server, server.connect() as sock:
                sock.sendall(packet(REQUEST))
                seen = b""
                while len(seen) < size:
                    seen += sock.recv(4096)
                self.assertEqual(len(seen), size)
                sock.settimeout(0.3)
                self.assertRaises(socket.timeout, sock.recv, 1)
            self.assert_log(server, rf"service=1201 .* out={size} us=\d+ result=fault stall")

    def test_truncate_at_any_byte(self):
        with self.echo() as server:
            whole = server.ask(packet(REQUEST)).data
        for size in (0, 1, 64, 127, 128, 129, len(whole) - 3, len(whole) - 1):
            with self.subTest(size=size), self.echo("--fault", f"truncate:{size}") as server:
                seen = server.ask_raw(packet(REQUEST))
                self.assertEqual(len(seen), size)
                self.assertEqual(seen[:40], whole[:40][:size])
            self.assert_log(server, rf"service=1201 .* out={size} us=\d+ result=fault truncate")

    def test_checksum(self):
        with self.echo("--fault", "checksum") as server, server.connect() as sock:
            sock.sendall(packet(REQUEST))
            data = read_packet(sock)
        self.assertEqual(int(data[-3:]), (sum(data[:-3]) + 1) % 256)

    def test_zlib(self):
        with self.echo("--fault", "zlib") as server, server.connect() as sock:
            sock.sendall(packet(REQUEST))
            data = read_packet(sock)
        self.assertEqual(data[88:89], b"Y")
        self.assertEqual(int(data[-3:]), sum(data[:-3]) % 256)
        self.assertRaises(zlib.error, zlib.decompress, data[128:-3])

    def test_reset_and_close(self):
        with self.echo("--fault", "reset") as server:
            self.assertRaises(ConnectionResetError, server.ask_raw, packet(REQUEST))
        self.assert_log(server, r"service=1201 .* out=0 us=\d+ result=fault reset")
        with self.echo("--fault", "close") as server:
            self.assertEqual(server.ask_raw(packet(REQUEST)), b"")
        self.assert_log(server, r"service=1201 .* out=0 us=\d+ result=fault close")

    def test_reject(self):
        for fault, code in (("reject", 503), ("reject:17", 17), ("reject:-5", -5)):
            with self.subTest(fault=fault), self.echo("--fault", fault) as server:
                self.assertEqual(server.ask(packet(REQUEST)).body, rejection(code, "rejected on request of --fault"))
            self.assert_log(server, rf"service=1201 .* result=rejected {code} rejected on request of --fault")

    def test_a_percentage_is_spread_evenly(self):
        def played(*faults):
            with self.echo(*(word for fault in faults for word in ("--fault", fault))) as server:
                seen = ""
                for _ in range(12):
                    seen += "R" if server.ask(packet(REQUEST)).message == 10 else "o"
                return seen

        self.assertEqual(played("reject@25"), "oooRoooRoooR")
        self.assertEqual(played("reject:9@50"), "oRoRoRoRoRoR")
        self.assertEqual(played("reject@1"), "oooooooooooo")
        self.assertEqual(played("reject@100"), "RRRRRRRRRRRR")
        self.assertEqual(played("delay:1@50", "reject@50"), "oRoRoRoRoRoR")    # a delay goes with another fault

    def test_the_first_fault_that_applies_is_played(self):
        with self.echo("--fault", "close@50", "--fault", "reject@50") as server:
            seen = []
            for _ in range(8):
                with server.connect() as sock:
                    sock.sendall(packet(REQUEST))
                    sock.shutdown(socket.SHUT_WR)
                    data = read_all(sock)
                seen.append(int(data[26:30]) if data else "closed")
        self.assertEqual(seen, [3, "closed", 10, "closed", 3, "closed", 10, "closed"])


class RecordTest(ServeTest):
    def test_keeps_every_packet_as_it_went_over_the_wire(self):
        with self.echo("--record", self.path("a/b")) as server:
            first = packet(REQUEST)
            reply = server.ask(first).data
            second = packet(REQUEST, service=7, compress=True)
            server.ask(second)
        self.assertEqual(sorted(os.listdir(self.path("a/b"))),
                         ["000001-1201-reply.packet", "000001-1201-request.packet", "000002-7-reply.packet",
                          "000002-7-request.packet"])
        self.assertEqual(self.read("a/b/000001-1201-request.packet"), first)
        self.assertEqual(self.read("a/b/000001-1201-reply.packet"), reply)
        self.assertEqual(self.read("a/b/000002-7-request.packet"), second)

    def test_only_the_owner_may_read_them(self):
        with self.echo("--record", self.path("kept")) as server:
            server.ask(packet(REQUEST))
        for name in os.listdir(self.path("kept")):
            self.assertEqual(stat.S_IMODE(os.stat(self.path(f"kept/{name}")).st_mode), 0o600)

    def test_goes_on_behind_what_is_there(self):
        self.write("kept/000041-9-request.packet", "old")
        with self.echo("--record", self.path("kept")) as server:
            server.ask(packet(REQUEST))
        self.assertIn("000042-1201-request.packet", os.listdir(self.path("kept")))
        self.assertEqual(self.read("kept/000041-9-request.packet"), b"old")

    def test_keeps_the_broken_and_the_unanswered(self):
        with self.echo("--record", self.path("kept"), "--fault", "truncate:20") as server:
            broken = packet(REQUEST, checksum=b"000")
            server.ask_raw(broken)
            server.ask_raw(packet(REQUEST))
        self.assertEqual(self.read("kept/000001-1201-request.packet"), broken)
        self.assertEqual(len(self.read("kept/000002-1201-reply.packet")), 20)
        self.assertEqual(len(os.listdir(self.path("kept"))), 3)

    def test_threads_do_not_share_a_number(self):
        with self.echo("--record", self.path("kept"), "--threads", 4) as server:
            def ask():
                for _ in range(25):
                    server.ask(packet(REQUEST))

            threads = [threading.Thread(target=ask) for _ in range(8)]
            for thread in threads:
                thread.start()
            for thread in threads:
                thread.join()
        self.assertEqual(len(os.listdir(self.path("kept"))), 400)

    def test_a_folder_that_cannot_be_written(self):
        self.write("file", "x")
        result = run("serve", "--dictionary", self.dictionary, "--echo", "--record", self.path("file"))
        self.assert_run(result, 1, "", f"callorv: {self.path('file')}: Not a directory\n")


class ArgumentTest(ServeTest):
    def test_usage(self):
        needed = ("--dictionary", self.dictionary, "--echo")
        for args, text in (
                ((), "--dictionary is required"),
                (("--dictionary", self.dictionary), "--replies DIR, --rules FILE or --echo is needed"),
                ((*needed, "--replies", self.dir), "--replies excludes --echo"),
                ((*needed, "--port", "65536"), "--port: Value 65536 not in range 0 to 65535"),
                ((*needed, "--port", "-1"), "--port: Value -1 not in range 0 to 65535"),
                ((*needed, "--port", "http"), "--port: Value http not in range 0 to 65535"),
                ((*needed, "--delay", "-1"), "--delay: Value -1 not in range 0 to 3600000"),
                ((*needed, "--compress-over", "-1"), "--compress-over: Value -1 not in range 0 to 2147483647"),
                ((*needed, "--timeout", "0"), "--timeout: Value 0 not in range 1 to 86400"),
                ((*needed, "--threads", "257"), "--threads: Value 257 not in range 0 to 256"),
                ((*needed, "--as-library"), "--as-library requires --replies"),
                ((*needed, "--nosuch"), "unknown option --nosuch"),
                ((*needed, "extra"), "unexpected argument 'extra'"),
                ((*needed, "--fault", "fire"),
                 "--fault fire: the kinds are delay, stall, truncate, checksum, zlib, reset, close, reject"),
                ((*needed, "--fault", ""),
                 "--fault : the kinds are delay, stall, truncate, checksum, zlib, reset, close, reject"),
                ((*needed, "--fault", "reset:1"), "--fault reset:1: reset takes no argument"),
                ((*needed, "--fault", "delay:x"), "--fault delay:x: the argument must be 0 to 3600000"),
                ((*needed, "--fault", "delay:"), "--fault delay:: the argument must be 0 to 3600000"),
                ((*needed, "--fault", "truncate:-1"), "--fault truncate:-1: the argument must be 0 to 2147483647"),
                ((*needed, "--fault", "reset@0"), "--fault reset@0: the percentage must be 1 to 100"),
                ((*needed, "--fault", "reset@101"), "--fault reset@101: the percentage must be 1 to 100"),
                ((*needed, "--fault", "reset@"), "--fault reset@: the percentage must be 1 to 100")):
            with self.subTest(args=args):
                self.assert_usage("serve", run("serve", *args), text)

    def test_failures(self):
        broken = self.write("broken.xml", "<dictionary/>")
        missing = self.path("missing")
        for args, text in (
                (("--dictionary", broken, "--echo"),
                 f"{broken}: the library says: InitDictionary(Handler error : Unknown root element - dictionary); "
                 "callorv dict check says everything"),
                (("--dictionary", missing, "--echo"),
                 f"{missing}: No such file or directory (the library says: InitDictionary(Handler error : [F] (L:0, "
                 f"C:0) : unable to open primary document entity '{missing}'))"),
                (("--dictionary", self.dictionary, "--replies", missing), f"{missing}: No such file or directory"),
                (("--dictionary", self.dictionary, "--replies", broken), f"{broken}: not a folder"),
                (("--dictionary", self.dictionary, "--echo", "--host", "203.0.113.1"),
                 "listen on 203.0.113.1 0: Cannot assign requested address")):
            with self.subTest(args=args):
                self.assert_run(run("serve", *args), 1, "", f"callorv: {text}\n")

    def test_a_host_that_has_no_address(self):
        result = run("serve", "--dictionary", self.dictionary, "--echo", "--host", "no such host")
        self.assert_run(result, 1, "")
        self.assertRegex(result.stderr.decode(), r"\Acallorv: listen on no such host 0: [^\n]+\n\Z")

    def test_help_teaches_by_example(self):
        for option in ("--help", "-h"):
            result = run("serve", option)
            self.assert_run(result, 0, err="")
            self.assertIn("Usage: callorv serve [OPTIONS]\n", result.stdout.decode())
            self.assertIn("\nExamples:\n  callorv serve --dictionary dictionary.xml --replies replies --port 7000\n",
                          result.stdout.decode())


if __name__ == "__main__":
    unittest.main()
