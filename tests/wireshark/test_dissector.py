"""The dissector in tshark: captures made of packets by hand, sound and broken. What is expected is computed here."""
import pathlib
import random
import re
import struct
import sys
import unittest
import zlib

from capture import ACK, FIN, PSH, RST, Capture, Shark

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "tools"))
from support import DICTIONARY, XML_HEAD, ToolTest, message, packet, run

BODY = message(3, "<t1><![CDATA[ABC]]></t1><t4><t2>1.5</t2></t4><t7>1</t7><t7>2</t7>")
HEADER = ("Begin string: QMX-SSP-V1.0", "Packet length: {length}", "Service: 1201", "Message: 3", "Extra: 0",
          "Time stamp: 20260131-235959", "User key: US******", "Aux13: ", "Compressed: {flag}", "Body length: {plain}",
          "Aux8: ", "Aux21: ")
TAGS = ("    t1: ABC", "    t4", "        t2: 1.5", "    t7: 1", "    t7: 2")
NAMED_TAGS = ("    code (1): ABC", "    rows (4): QuoteRow", "        price (2): 1.5", "    list (7): 1",
              "    list (7): 2")


def checksum(data):
    return sum(data[:-3]) % 256


def listing(kind, data, tags=TAGS, more=(), message=3):
    """How a sound packet with BODY is shown, its lines without those that begin a tree."""
    body, plain = f"Body: {len(data) - 131} bytes", len(data) - 131
    if data[88:89] == b"Y":
        plain = len(zlib.decompress(data[128:-3]))
        body += f", decompressed to {plain}"
    lines = [line.format(length=len(data) - 3, flag=data[88:89].decode(), plain=plain) for line in HEADER]
    return [f"CallOrv, {kind}: service 1201, message {message}"] + ["    " + line for line in [
        *lines, body, *tags, f"Checksum: {checksum(data)} [correct]", *more]]


class DissectorTest(ToolTest):
    def capture(self, **more):
        return Capture(self.path("test.pcap"), **more)

    def shark(self, *options):
        return Shark(self.path("test.pcap"), *options)

    def with_dictionary(self, path=None):
        return self.shark("-o", f"callorv.dict:{path or self.dictionary}")

    def shown(self, *answers, shark=None):
        """What is shown of these answers, each on a connection of its own behind a sound request: a list for each."""
        ends = []
        with self.capture() as capture:
            for answer in answers:
                connection = capture.connect()
                asked = connection.ask(packet(BODY))
                ends.append((asked, connection.answer(answer, mss=65000)))
        frames = (shark or self.shark()).frames()
        return [[lines for number in range(asked + 1, end + 1) for lines in frames.get(number, [])]
                for asked, end in ends]

    def wrong(self, *cases, shark=None):
        """Compares what is said to be wrong with answers, each [answer, texts ...]."""
        for lines, (answer, *texts) in zip(self.shown(*(case[0] for case in cases), shark=shark), cases, strict=True):
            said = [line.split(": ", 1)[1][:-1] for line in sum(lines, [])
                    if line.lstrip().startswith("[Expert Info (")]
            with self.subTest(answer=answer[:300]):
                self.assertEqual(said, texts)


class PacketTest(DissectorTest):
    def test_every_field_of_a_request_and_its_reply(self):
        request, reply = packet(BODY), packet(BODY, compress=True)
        with self.capture() as capture:
            connection = capture.connect()
            asked = connection.ask(request)
            answered = connection.answer(reply, after=123456)
            connection.close()
        time = "    [Time from request to reply: 0.123456000 seconds]"
        found = self.shark().packets()
        self.assertEqual(found, [listing("Request", request),
                                 listing("Reply", reply) + [f"    [Request in: {asked}]", time]])
        found = self.shark("-2").packets()
        self.assertEqual(found, [listing("Request", request) + [f"    [Reply in: {answered}]", time],
                                 listing("Reply", reply) + [f"    [Request in: {asked}]", time]])

    def test_fields_can_be_filtered_and_printed(self):
        data = packet(BODY, service=77, message=4, extra=b"-000000012", aux13=b"thirteen     ", aux8=b" eight  ",
                      aux21=b"caf\xe9 \x1b[31m".ljust(21), key=b"ABCDE".ljust(20))
        with self.capture() as capture:
            connection = capture.connect()
            connection.ask(data)
            connection.answer(packet(BODY))
        names = ("begin_string", "packet_length", "service", "message", "extra", "time_stamp", "user_key", "aux13",
                 "compressed", "body_length", "aux8", "aux21", "checksum", "tag")
        rows = self.shark().fields(*("callorv." + name for name in names), only="callorv.service == 77")
        self.assertEqual(rows, [["QMX-SSP-V1.0", str(len(data) - 3), "77", "4", "-12", "20260131-235959", "AB***",
                                 "thirteen", "N", str(len(BODY)), " eight", "caf\u00e9 \ufffd[31m", str(checksum(data)),
                                 "t1: ABC|t4|t2: 1.5|t7: 1|t7: 2"]])

    def test_the_columns(self):
        with self.capture() as capture:
            connection = capture.connect()
            connection.ask(packet(BODY) * 2)
            connection.answer(packet(BODY, message=4))
        rows = self.shark("-o", f"callorv.dict:{self.dictionary}").fields("_ws.col.Protocol", "_ws.col.Info")
        self.assertEqual(rows, [["CALLORV", "; ".join(["Request: service 1201, message 3 (Quote)"] * 2)],
                                ["CALLORV", "Reply: service 1201, message 4 (QuoteRow)"]])

    def test_the_body_is_shown_as_xml(self):
        with self.capture() as capture:
            connection = capture.connect()
            connection.ask(packet(BODY))
            connection.answer(packet(BODY, compress=True))
        lines = ["<?xml", '    version="1.0"', '    encoding="ISO-8859-1"', "    ?>", "<msg", '    no="3"',
                 '    ver="">', "    <t1>", "        <![CDATA[ABC]]>", "        </t1>"]
        text = "eXtensible Markup Language\n" + "".join(f"    {line}\n" for line in lines)
        self.assertEqual(self.shark().run("-V").count(text), 2)

    def test_a_user_key_is_masked_unless_asked_for(self):
        keys = {b"USERKEY1": "US******", b"ABCDE": "AB***", b"ABCD": "****", b"": ""}
        found = self.shown(*(packet(BODY, key=key.ljust(20)) for key in keys))
        for (lines,), masked in zip(found, keys.values(), strict=True):
            self.assertIn(f"    User key: {masked}", lines)
        ((lines,),) = self.shown(packet(BODY), shark=self.shark("-o", "callorv.show_key:TRUE"))
        self.assertIn("    User key: USERKEY1", lines)

    def test_a_port_of_the_preferences(self):
        with self.capture() as capture:
            capture.connect().ask(packet(BODY))
        shark = Shark(self.path("test.pcap"), "-o", "callorv.ports:6999-7001", port=1)
        self.assertEqual([lines[0] for lines in shark.packets()], ["CallOrv, Request: service 1201, message 3"])

    def test_an_empty_body(self):
        data = packet(b"")
        with self.capture() as capture:
            capture.connect().ask(data)
        self.assertEqual(self.shark().packets(), [[line for line in listing("Request", data, ())
                                                   if not line.startswith("    Body: ")]])


class BrokenPacketTest(DissectorTest):
    def test_a_wrong_checksum(self):
        cases, lines = [], []
        for good in (packet(BODY), packet(BODY, compress=True)):
            right = checksum(good)
            for wrong in ((right + 1) % 256, (right + 200) % 256, 999):
                cases.append((good[:-3] + b"%03d" % wrong, f"checksum {wrong} is incorrect, should be {right}"))
                lines.append(f"    Checksum: {wrong} [incorrect, should be {right}]")
            cases.append((good[:-3] + b"1\x1bx", "checksum '1\ufffdx' is not 3 digits",
                          f"checksum '1\ufffdx' is incorrect, should be {right}"))
            lines.append(f"    Checksum: '1\ufffdx' [incorrect, should be {right}]")
        self.wrong(*cases)
        for (found,), line in zip(self.shown(*(case[0] for case in cases)), lines, strict=True):
            self.assertIn(line, found)

    def test_any_changed_byte_of_the_body_changes_the_checksum(self):
        good = packet(BODY)
        answers = [good[:at] + bytes([good[at] ^ 1]) + good[at + 1:] for at in range(128, len(good) - 3, 7)]
        for (lines,), answer in zip(self.shown(*answers), answers, strict=True):
            self.assertIn(f"    Checksum: {int(good[-3:])} [incorrect, should be {checksum(answer)}]", lines)

    def test_wrong_fields(self):
        self.wrong(*((packet(BODY, **fields), text) for fields, text in (
            ({"extra": b"12345     "}, "extra '12345     ' is no number of 32 bits in digits"),
            ({"extra": b"9999999999"}, "extra '9999999999' is no number of 32 bits in digits"),
            ({"service_field": b"0x10"}, "service '0x10' is no number of 32 bits in digits"),
            ({"time": b"20260131 235959"}, "time stamp '20260131 235959' is not YYYYMMDD-HHMMSS"),
            ({"compressed": b"y"}, "compressed 'y' is neither Y nor N"),
            ({"plain": b"-000000001"}, "body length '-000000001' is no number of 32 bits in digits"),
            ({"plain": b"0000000001"}, f"body length 1 is not the packet's {len(BODY)} bytes"))),
            (packet(BODY, message_field=b"  3 "), "message '  3 ' is no number of 32 bits in digits",
             "message 3 in the body, none in the header"))

    def test_a_packet_length_that_cannot_be(self):
        self.wrong(*((packet(BODY, length=length), text, "these bytes begin no packet") for length, text in (
            (b"0000000127", "packet length 127 is less than the header's 128 bytes"),
            (b"      0200", "packet length '      0200' is no number of 32 bits in digits"),
            (b"9999999999", "packet length '9999999999' is no number of 32 bits in digits"))))

    def test_another_protocol(self):
        other = packet(BODY, begin=b"XYZ-SSP-V2.0")
        cases = ((other, "begin string 'XYZ-SSP-V2.0' is not QMX-SSP-V1.0"),
                 (b"GET / HTTP/1.0\r\n\r\n", "these bytes begin no packet"), (b"x", "these bytes begin no packet"))
        self.wrong(*cases)
        for ((head, *_),), (data, _) in zip(self.shown(*(case[0] for case in cases)), cases, strict=True):
            self.assertEqual(head, f"CallOrv, not a packet: {len(data)} byte" + "s" * (len(data) > 1))

    def test_the_next_packet_behind_a_broken_one_is_found(self):
        good = packet(BODY)
        for mss in (65000, 300, 100):
            with self.capture() as capture:
                connection = capture.connect()
                broken = packet(BODY, length=b"0000000000")
                connection.ask(b"junkQMX" + good + broken + good + b"QMX-SSP" + good, mss=mss)
            heads = [lines[0] for lines in self.shark().packets()]
            request = "CallOrv, Request: service 1201, message 3"
            self.assertEqual([head for head in heads if "not a packet" not in head], [request] * 4)
            junk = sum(int(re.search(r"not a packet: (\d+) byte", head)[1]) for head in heads if "not a packet" in head)
            self.assertEqual(junk, 7 + len(good) - 128 + 7)

    def test_compressed_bodies_that_cannot_be_opened(self):
        sent = zlib.compress(BODY)
        damaged, none = "the body's zlib stream is damaged", "the body is no zlib stream"
        gzip = b"\x1f\x8b\x08\0\0\0\0\0\0\3" + sent[2:-4] + struct.pack("<II", zlib.crc32(BODY), len(BODY))
        self.wrong(*((packet(body, compressed=b"Y", plain=b"%010d" % len(BODY)), text) for body, text in (
            (b"?" + sent[1:], none), (b"", none), (b"x", none), (sent[2:-4], none), (gzip, none),
            (sent[:-4] + b"abcd", damaged), (sent[:2] + b"\xff" * 20, damaged))))

    def test_a_compressed_body_that_ends_elsewhere(self):
        """What can be had of it is shown all the same."""
        sent, ends = zlib.compress(BODY), "the body's zlib stream does not end where the body does"
        answers = [packet(body, compressed=b"Y", plain=b"%010d" % len(BODY)) for body in (
            sent[:-1], sent[:-4], sent + b"x", sent + b"xxxxxxxxxx")]
        self.wrong(*((answer, ends) for answer in answers))
        for (lines,) in self.shown(*answers):
            self.assertIn("        t1: ABC", lines)
        parts = ((sent[:size], zlib.decompressobj().decompress(sent[:size])) for size in range(20, len(sent) - 10))
        data, part = next((data, part) for data, part in parts if part.endswith(b"]]>"))
        self.wrong((packet(data, compressed=b"Y", plain=b"%010d" % len(BODY)), ends,
                    f"body length {len(BODY)} is not the {len(part)} bytes that the body decompresses to",
                    f"the body is no message: an element without an end at byte {len(part)}"))

    def test_a_body_length_that_is_not_what_the_body_opens_to(self):
        self.wrong(*((packet(BODY, compress=True, plain=b"%010d" % wrong),
                      f"body length {wrong} is not the {len(BODY)} bytes that the body decompresses to")
                     for wrong in (len(BODY) - 1, len(BODY) + 1, 0)))

    def test_bodies_that_are_no_messages(self):
        self.wrong(*((packet(body), "the body is no message: " + text) for body, text in (
            (b"hello", "text outside the root element at byte 0"), (b"<msg", "a tag without an end at byte 0"),
            (b"<msg no='3'><t1>", "an element without an end at byte 16"), (b"<a/>", "the root is not msg"),
            (b"<msg no='3'></t1>", "an end tag of no open element at byte 12"),
            (b"<?xml", "no ?> for what begins at byte 0"), (b"<!DOCTYPE msg><msg no='3'/>", "a DOCTYPE at byte 0"),
            (b"<msg no='3'/><b/>", "a second root element at byte 13"),
            (b"<msg no='3'><t1><![CDATA[x</t1></msg>", "CDATA without an end or a place at byte 16"),
            (b"\0\xff<", "text outside the root element at byte 0"), (b" ", "no element"))))
        ((lines,),) = self.shown(packet(b"caf\xe9\n" + b"x" * 500))
        self.assertIn("        Text: caf\u00e9\ufffd" + "x" * 195, lines)

    def test_a_message_of_another_number(self):
        self.wrong((packet(message(4, "")), "message 4 in the body, 3 in the header"))

    def test_deep_and_wide_messages(self):
        depths = (49, 50, 600, 1023)
        found = self.shown(*(packet(message(3, "<t8>" * depth + "</t8>" * depth)) for depth in depths))
        for (lines,), depth in zip(found, depths, strict=True):
            self.assertEqual(sum("t8" in line for line in lines), min(depth, 50))
        self.wrong((packet(message(3, "<t8>" * 1024 + "</t8>" * 1024)),
                    "the body is no message: more than 1,024 open elements at byte "
                    f"{len(message(3, '')) - 6 + 1023 * 4}"))
        ((lines,),) = self.shown(packet(message(3, "<t7>1</t7>" * 10001)))
        self.assertEqual((lines.count("        t7: 1"), lines.count("        and more tags")), (10000, 1))


class LimitTest(DissectorTest):
    LIMIT = 2**20

    def setUp(self):
        super().setUp()
        self.small = self.shark("-o", "callorv.limit:1")

    def of(self, size):
        return message(3, "<t9>" + "x" * (size - len(message(3, "<t9></t9>"))) + "</t9>")

    def test_a_body_as_long_as_the_limit_is_opened(self):
        noise = random.Random(7)
        long = message(3, "".join(f"<t7>{noise.randrange(2**31)}</t7>" for _ in range(20000)))
        fixed = zlib.compressobj(9, zlib.DEFLATED, 15, 9, zlib.Z_FIXED)
        sent = [(body, zlib.compress(body)) for body in (self.of(self.LIMIT), self.of(self.LIMIT // 2))]
        sent += [(long, data) for data in (zlib.compress(long, 0), zlib.compress(long),
                                           fixed.compress(long) + fixed.flush())]
        for body, data in sent[2:]:    # stored blocks, made and fixed codes; none of them can be opened unseen
            self.assertGreater(len(data) * 1032, self.LIMIT)
        answers = (packet(data, compressed=b"Y", plain=b"%010d" % len(body)) for body, data in sent)
        for (lines,), (body, data) in zip(self.shown(*answers, shark=self.small), sent, strict=True):
            (line,) = [line for line in lines if line.startswith("    Body: ")]
            self.assertEqual(line.removesuffix(", too large to be shown as XML"),
                             f"    Body: {len(data)} bytes, decompressed to {len(body)}")

    def test_a_body_that_claims_more_is_not_opened(self):
        self.wrong(*((answer, f"body length {claimed} is more than the limit of {self.LIMIT}: not decompressed")
                     for answer, claimed in ((packet(self.of(self.LIMIT + 1), compress=True), self.LIMIT + 1),
                                             (packet(BODY, compress=True, plain=b"2147483647"), 2147483647))),
                   shark=self.small)

    def test_a_body_that_opens_to_more_is_not_opened(self):
        text = f"the body decompresses to more than {self.LIMIT} bytes, the limit: not decompressed"
        self.wrong(*((packet(data, compressed=b"Y", plain=b"%010d" % 5), text) for data in (
            zlib.compress(self.of(self.LIMIT + 1)), zlib.compress(self.of(100 * self.LIMIT)),
            zlib.compress(bytes(10**6), 0) * 2)), shark=self.small)

    def test_a_damaged_stream_that_must_be_counted_first(self):
        noise = random.Random(8)
        sent = bytearray(zlib.compress(bytes(noise.randrange(64) for _ in range(20000)), 9))
        sent[2] |= 6    # a kind of block that is none
        self.wrong((packet(bytes(sent), compressed=b"Y", plain=b"%010d" % 20000), "the body's zlib stream is damaged"),
                   shark=self.small)

    def test_a_longer_body_without_compression_is_not_read(self):
        size = self.LIMIT + 1
        self.wrong((packet(self.of(size)), f"the body has {size} bytes, more than the limit of {self.LIMIT}: not read"),
                   shark=self.small)

    def test_a_longer_packet_is_not_reassembled(self):
        shark = self.shark("-o", "callorv.packet_limit:1")
        data = packet(self.of(self.LIMIT))
        with self.capture() as capture:
            connection = capture.connect()
            connection.ask(data + packet(BODY), mss=60000)
        found = shark.packets()
        self.assertEqual([lines[0] for lines in found], ["CallOrv, Request: service 1201, message 3"] * 2)
        self.assertIn(f"    [Expert Info (Warning/Undecoded): packet length {len(data) - 3} is more than the limit of "
                      f"{self.LIMIT}: not reassembled]", found[0])
        self.assertEqual(found[1], listing("Request", packet(BODY)))
        self.wrong(*((packet(b"", length=b"%010d" % length, plain=b"%010d" % (length - 128)),
                      f"packet length {length} is more than the limit of {64 * 2**20}: not reassembled")
                     for length in (2147483647, 999999999)))


class DictionaryTest(DissectorTest):
    def test_tags_have_their_names(self):
        for data in (packet(BODY), packet(BODY, compress=True)):
            with self.capture() as capture:
                capture.connect().ask(data)
            lines = listing("Request", data, NAMED_TAGS, message="3 (Quote)")
            lines[4] += " (Quote)"
            self.assertEqual(self.with_dictionary().packets(), [lines])

    def test_a_message_by_name(self):
        values = "<code>A&amp;B</code><rows><price>1</price></rows>"
        body = f'{XML_HEAD}<msg no="3" ver="" type="name">{values}</msg>'.encode()
        ((lines,),) = self.shown(packet(body), shark=self.with_dictionary())
        at = lines.index(f"    Body: {len(body)} bytes")
        self.assertEqual(lines[at + 1:at + 4], ["        code (1): A&B", "        rows (4): QuoteRow",
                                                "            price (2): 1"])
        ((lines,),) = self.shown(packet(body))
        self.assertEqual(lines[at + 1:at + 4], ["        code: A&B", "        rows", "            price: 1"])

    def test_what_the_dictionary_does_not_have(self):
        self.wrong((packet(message(3, "<t77>1</t77>")), "t77 is no tag of Quote"),
                   (packet(message(3, "<t4><t9>1</t9></t4>")), "t9 is no tag of QuoteRow"),
                   (packet(message(5, ""), message=5), "message 5 is not in the dictionary"),
                   shark=self.with_dictionary())

    def test_a_rejection(self):
        body = message(10, "<t6>503</t6><t7><![CDATA[not now]]></t7><t8>1201</t8>")
        cases = ((packet(body, message=10), "rejected: 503 (not now)"),
                 (packet(message(10, ""), message=10), "rejected: no code (no text)"))
        self.wrong(*cases)
        self.wrong(*cases, shark=self.with_dictionary())

    def test_names_in_either_encoding(self):
        latin = DICTIONARY.replace("'code'", "'caf\u00e9'")
        for text, encoding in ((latin, "latin-1"), (latin.replace("ISO-8859-1", "utf-8"), "utf-8"),
                               ("\ufeff" + latin[latin.index("<msg_dic"):], "utf-8")):
            path = self.write("names.xml", text.encode(encoding))
            ((lines,),) = self.shown(packet(message(3, "<t1>x</t1>")), shark=self.with_dictionary(path))
            self.assertIn("        caf\u00e9 (1): x", lines)

    def test_a_dictionary_that_cannot_be_used(self):
        sealed = self.path("dictionary.exml")
        self.assert_run(run("dict", "encrypt", self.dictionary, sealed), 0)
        missing = self.path("missing.xml")
        for path, text in ((missing, f"{missing}: No such file or directory"), (self.dir, "Is a directory"),
                           (sealed, f"{sealed}: no plain XML; callorv dict decrypt makes it of an encrypted one"),
                           (self.write("x.xml", "<msg>"), f"{self.path('x.xml')}: an element without an end at byte 5"),
                           (self.write("y.xml", "<a/>"), f"{self.path('y.xml')}: the root is not msg_dictionary")):
            ((lines,),) = self.shown(packet(BODY), shark=self.with_dictionary(path))
            self.assertIn(f"    [Expert Info (Warning/Undecoded): {text}]", lines)
            self.assertIn("        t1: ABC", lines)


class ReassemblyTest(DissectorTest):
    def test_segments_of_any_length(self):
        request, reply = packet(BODY), packet(BODY, compress=True)
        for mss in (1, 50, 128, 129):
            for options in ((), ("-2",)):
                with self.subTest(mss=mss, options=options):
                    with self.capture() as capture:
                        connection = capture.connect()
                        connection.ask(request, mss=mss)
                        connection.answer(reply, mss=mss)
                        connection.close()
                    shark = self.shark(*options)
                    found = [[line for line in lines if not line.startswith("    [")] for lines in shark.packets()]
                    self.assertEqual(found, [listing("Request", request), listing("Reply", reply)])
                    self.assertEqual(shark.said(), {})

    def test_packets_across_segments(self):
        """Some of them end in the frame where a whole one of the same length begins."""
        packets = [packet(BODY, service=number, compress=number % 2) for number in range(1, 41)]
        for mss in (len(packets[0]), 150, 300, 1000):
            with self.capture() as capture:
                connection = capture.connect()
                connection.ask(b"".join(packets), mss=mss)
                for data in packets:
                    connection.answer(data)
            for options in ((), ("-2",)):
                rows = self.shark(*options).fields("callorv.service", only="callorv && tcp.dstport == 7000")
                self.assertEqual("|".join(row[0] for row in rows), "|".join(map(str, range(1, 41))))
            rows = self.shark("-2").fields("callorv.service", "callorv.request_in",
                                           only="callorv && tcp.srcport == 7000")
            self.assertEqual([row[0] for row in rows], [str(number) for number in range(1, 41)])
            asked = [3 + -(-sum(map(len, packets[:number])) // mss) for number in range(1, 41)]
            self.assertEqual([int(row[1]) for row in rows], asked)

    def test_without_reassembly_a_packet_is_said_to_be_incomplete(self):
        data = packet(BODY)
        with self.capture() as capture:
            capture.connect().ask(data, mss=150)
        shark = self.shark("-o", "tcp.desegment_tcp_streams:FALSE")
        self.assertEqual(shark.said()[4], [f"only 150 bytes of the packet's {len(data)} are here"])

    def test_a_capture_that_has_only_the_beginning_of_frames(self):
        data = packet(BODY)
        for snap in (41, 52, 167, 168, 40 + len(data) - 1):
            with self.subTest(snap=snap):
                with self.capture(snap=snap) as capture:
                    connection = capture.connect()
                    asked = connection.ask(data)
                    again = connection.ask(data)
                have = snap - 40
                text = (f"only {have} bytes of the packet's {len(data)} are here" if have >= 128 else
                        f"only {have} bytes of the header's 128 are here")
                self.assertEqual(self.shark().said(), {asked: [text], again: [text]})


class LinkTest(DissectorTest):
    def links(self, *options):
        rows = self.shark("-2", *options).fields("frame.number", "callorv.reply_in", "callorv.request_in",
                                                 "callorv.time", "callorv.closed_in")
        return [tuple(row) for row in rows]

    def test_calls_at_the_same_time(self):
        with self.capture() as capture:
            connections = [capture.connect() for _ in range(3)]
            asked = [connection.ask(packet(BODY)) for connection in connections]
            answered = [connection.answer(packet(BODY)) for connection in reversed(connections)][::-1]
        times = [f"{(b - a) * 1e-4:.9f}" for a, b in zip(asked, answered)]
        expected = [(str(a), str(b), "", time, "") for a, b, time in zip(asked, answered, times)]
        expected += [(str(b), "", str(a), time, "") for a, b, time in reversed(list(zip(asked, answered, times)))]
        self.assertEqual(self.links(), expected)

    def test_several_calls_on_a_connection(self):
        with self.capture() as capture:
            connection = capture.connect()
            frames = []
            for _ in range(3):
                frames.append((connection.ask(packet(BODY)), connection.answer(packet(BODY), mss=50)))
        links = {(row[0], row[1] or row[2]) for row in self.links()}
        self.assertEqual(links, {(str(a), str(b)) for a, b in frames} | {(str(b), str(a)) for a, b in frames})

    def test_the_time_ends_with_the_last_segment(self):
        with self.capture() as capture:
            connection = capture.connect()
            connection.ask(packet(BODY), mss=100, after=1000)
            connection.answer(packet(BODY), mss=60, after=2000)
        segments = -(-len(packet(BODY)) // 60)
        self.assertEqual({row[3] for row in self.links()}, {f"{segments * 0.002:.9f}"})

    def test_the_same_ports_again(self):
        with self.capture() as capture:
            frames = []
            for _ in range(2):
                capture.next_port = 41000
                connection = capture.connect()
                asked = connection.ask(packet(BODY))
                if frames:
                    frames.append((asked, connection.answer(packet(BODY))))
                else:
                    frames.append((asked, connection.close()))
        (lost, end), (asked, answered) = frames
        self.assertEqual([row[:3] + row[4:] for row in self.links()], [
            (str(lost), "", "", str(end)), (str(end), "", "", ""), (str(asked), str(answered), "", ""),
            (str(answered), "", str(asked), "")])

    def test_a_capture_that_begins_with_a_reply(self):
        with self.capture() as capture:
            connection = capture.connect(greet=False)
            first = connection.answer(packet(BODY))
            asked = connection.ask(packet(BODY))
            answered = connection.answer(packet(BODY))
        self.assertEqual([lines[0][:16] for lines in self.shark().packets()],
                         ["CallOrv, Reply: ", "CallOrv, Request", "CallOrv, Reply: "])
        self.assertEqual(self.shark().said(), {first: ["a reply to no request of this capture"]})
        self.assertEqual([row[:3] for row in self.links()], [(str(first), "", ""), (str(asked), str(answered), ""),
                                                             (str(answered), "", str(asked))])


class EndTest(DissectorTest):
    """Connections that end too early, by FIN and by RST."""

    def cut(self, *cases):
        """Compares what is said of the last frames of connections, each [bytes, flags, whether the client sends them,
        length of segments or None for all in the last frame, texts ...]."""
        ends = {}
        with self.capture() as capture:
            for data, flags, client, mss, *texts in cases:
                connection = capture.connect()
                if not client:
                    connection.ask(packet(BODY))
                if mss is None:
                    end = connection.send(client, data, PSH | flags)
                else:
                    connection.send(client, data, mss=mss)
                    end = connection.send(client, b"", flags)
                ends[end] = texts
        self.assertEqual(self.shark().said(), {end: texts for end, texts in ends.items() if texts})

    def test_a_packet_cut_off_at_any_byte(self):
        data = packet(BODY)
        self.cut(*((data[:size], flags | ACK, client, 1460,
                    f"{'request' if client else 'reply'} cut off by {name} after {size} of "
                    f"{128 if size < 128 else len(data)} bytes")
                   for client in (True, False) for flags, name in ((FIN, "FIN"), (RST, "RST"))
                   for size in range(1, len(data))))

    def test_the_end_in_the_frame_of_the_last_bytes(self):
        data = packet(BODY)
        self.cut((data[:150], FIN | ACK, False, None, f"reply cut off by FIN after 150 of {len(data)} bytes"),
                 (data, FIN | ACK, False, None))

    def test_a_packet_in_many_segments(self):
        data = packet(BODY)
        self.cut(*((data[:170], FIN | ACK, False, mss, f"reply cut off by FIN after 170 of {len(data)} bytes")
                   for mss in (1, 50, 127)),
                 (packet(BODY, compress=True) + data[:70], RST | ACK, False, 90,
                  "reply cut off by RST after 70 of 128 bytes"))

    def test_a_call_without_a_reply(self):
        for flags in (FIN | ACK, RST, RST | ACK):
            with self.capture() as capture:
                connection = capture.connect()
                asked = connection.ask(packet(BODY))
                end = connection.answer(b"", flags=flags)
            texts = self.shark("-2").said()[end]
            self.assertIn(f"no reply to the request in frame {asked}", texts)
            rows = self.shark("-2").fields("frame.number", "callorv.closed_in", only="callorv.service")
            self.assertEqual(rows, [[str(asked), str(end)]])

    def test_whole_packets_and_orderly_ends_are_not_reported(self):
        with self.capture() as capture:
            for half_closed in (False, True):
                connection = capture.connect()
                connection.ask(packet(BODY), mss=33)
                if half_closed:
                    connection.send(True, b"", FIN | ACK)
                connection.answer(packet(BODY, compress=True) + packet(BODY), mss=47)
                connection.send(False, b"", FIN | ACK)
        second = ["a reply to no request of this capture"]    # each connection has two for one
        self.assertEqual(list(self.shark().said().values()), [second, second])

    def test_lost_and_repeated_segments(self):
        """Of what the capture lacks nothing is said."""
        data = packet(BODY)
        with self.capture() as capture:
            for step in (50, -100):    # bytes 100 to 149 are lost, bytes 0 to 99 come again
                connection = capture.connect()
                connection.ask(data)
                connection.answer(data[:100])
                connection.seq[False] += step
                connection.answer(data[100 + step:])
                connection.close()
        self.assertEqual(self.shark().said(), {6: ["these bytes begin no packet"]})


class KeyTest(DissectorTest):
    KEY = b"SeCrEt-KEY+OF/A_USER"

    def test_it_is_nowhere_in_what_is_said_of_broken_packets(self):
        data = packet(BODY, key=self.KEY)
        with self.capture() as capture:
            for size in range(12, 128):
                connection = capture.connect()
                connection.ask(packet(BODY) + data[size:])    # the beginning is missing
                connection = capture.connect()
                connection.ask(data[:size])                   # the end
                connection.close()
                capture.connect(greet=False).ask(data[size:], mss=9)
            for fields in ({"begin": b"XYZ-SSP-V2.0"}, {"length": b"0000000001"}, {"length": b"9999999999"}):
                capture.connect().ask(packet(BODY, key=self.KEY, **fields))
        out = self.shark().run("-V")
        self.assertIn("User key: Se******************\n", out)
        for at in range(2, 18):
            self.assertNotIn(self.KEY[at:at + 3].decode(), out)


class DamageTest(DissectorTest):
    COUNT = 10000

    def damaged(self, noise, good):
        """A reply that is not what it was."""
        kind = noise.randrange(8)
        at = noise.randrange(len(good))
        if kind == 0:
            return good[:at]
        if kind == 1:
            return good[:at] + bytes([noise.randrange(256)]) + good[at + 1:]
        if kind == 2:
            return good[:at] + noise.randbytes(noise.randrange(1, 30)) + good[at:]
        if kind == 3:
            return good[:at] + good[at + noise.randrange(1, 30):]
        if kind == 4:
            return noise.randbytes(noise.randrange(1, 300))
        if kind == 5:    # a field that holds anything
            start, width = noise.choice(((12, 10), (22, 4), (26, 4), (30, 10), (40, 15), (88, 1), (89, 10)))
            value = noise.choice((noise.randbytes(width), b"9" * width, b"0" * width, b"-" + b"1" * (width - 1),
                                  b" " * width))
            return good[:start] + value[:width] + good[start + width:]
        if kind == 6:    # under a right checksum
            body = bytearray(good[128:-3])
            for _ in range(noise.randrange(1, 5)):
                body[noise.randrange(len(body))] = noise.randrange(256)
            return packet(bytes(body), compressed=good[88:89], plain=good[89:99])
        cut = noise.randrange(len(good))
        return good[cut:] + good[:cut]

    def test_ten_thousand_damaged_connections(self):
        noise = random.Random(20260131)
        bodies = [message(3, "<t1><![CDATA[%s]]></t1>" % ("x" * noise.randrange(300)) +
                          "<t4><t2>1</t2></t4>" * noise.randrange(5)) for _ in range(50)]
        goods = [packet(body, compress=compress) for body in bodies for compress in (False, True)]
        request = packet(message(3, ""))
        asked, known = [], {}
        with self.capture() as capture:
            for number in range(self.COUNT):
                connection = capture.connect()
                asked.append(connection.ask(request))
                good = noise.choice(goods)
                if number % 4 == 0:    # one whose checksum alone tells
                    at = noise.randrange(128, len(good) - 3)
                    reply = good[:at] + bytes([good[at] ^ (1 << noise.randrange(8))]) + good[at + 1:]
                else:
                    reply = self.damaged(noise, good)
                end = connection.answer(reply, mss=noise.choice((1460, 100)))
                if number % 4 == 0:
                    known[end] = f"checksum {int(good[-3:])} is incorrect, should be {checksum(reply)}"
                connection.send(noise.randrange(2), b"", noise.choice((FIN | ACK, RST | ACK)))
        for options in ((), ("-2", "-o", f"callorv.dict:{self.dictionary}")):
            rows = self.shark(*options).fields("frame.number", "_ws.lua.error", "tcp.dstport", "callorv.service",
                                               "_ws.expert.message", only="callorv || _ws.lua.error")
            self.assertEqual([row for row in rows if row[1]], [])
            self.assertEqual([int(row[0]) for row in rows if row[2:4] == ["7000", "1201"]], asked)
            said = {int(row[0]): row[4].split("|") for row in rows}
            self.assertEqual({end: text for end, text in known.items() if text not in said.get(end, [])}, {})


if __name__ == "__main__":
    unittest.main()
