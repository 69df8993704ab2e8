"""callorv decode: captured packets, as bytes and as hexadecimal digits."""
import json
import os
import re
import subprocess
import unittest
import zlib

from support import XML_HEAD, ToolTest, packet, run

BODY = f'{XML_HEAD}<msg no="3" ver=""><t1><![CDATA[ABC]]></t1></msg>'.encode()

LISTING = f"""packet 1: bytes 0 to 223
       0    12  begin string      'QMX-SSP-V1.0'
      12    10  packet length     '0000000221'
      22     4  service           '1201'
      26     4  message           '0003'
      30    10  extra             '0000000000'
      40    15  time stamp        '20260131-235959'
      55    20  user key          'US******            '
      75    13  aux13             '             '
      88     1  compressed        'N'
      89    10  body length       '0000000093'
      99     8  aux8              '        '
     107    21  aux21             '                     '
     221     3  checksum          '%03d'
  body: {BODY.decode()}
"""


def listing(data):
    return LISTING % (sum(data[:-3]) % 256)


def listed(offset, data, text):
    """A line of bytes that belong to no packet."""
    return f"{offset:8}  {data.hex(' '):47}  {text}\n"


class DecodeTest(ToolTest):
    def decode(self, data, *args):
        return run("decode", *args, stdin=data)


class ListingTest(DecodeTest):
    def test_prints_every_field(self):
        data = packet(BODY)
        self.assert_run(self.decode(data), 0, listing(data), "")

    def test_reads_a_file_or_standard_input(self):
        data = packet(BODY)
        path = self.write("one.packet", data)
        self.assert_run(run("decode", path), 0, listing(data), "")
        self.assert_run(run("decode", "-", stdin=data), 0, listing(data), "")

    def test_shows_the_user_key_when_asked(self):
        shown = self.decode(packet(BODY), "--show-key").stdout.decode()
        self.assertIn("user key          'USERKEY1            '\n", shown)
        self.assertNotIn("USERKEY1", self.decode(packet(BODY)).stdout.decode())

    def test_shows_a_compressed_body_as_it_was(self):
        data = packet(BODY, compress=True)
        out = self.decode(data).stdout.decode()
        self.assertIn("compressed        'Y'\n", out)
        self.assertIn(f"\n  body: {BODY.decode()}\n", out)

    def test_several_packets_in_a_row(self):
        data = packet(BODY) + packet(BODY, service=7, compress=True) + packet(b"")
        result = self.decode(data)
        self.assert_run(result, 0, err="")
        out = result.stdout.decode()
        self.assertIn("packet 1: bytes 0 to 223\n", out)
        second = 224 + len(packet(BODY, compress=True))
        self.assertIn(f"\npacket 2: bytes 224 to {second - 1}\n", out)
        self.assertIn(f"\npacket 3: bytes {second} to {second + 130}\n", out)
        self.assertEqual(out.count("  body: "), 2)    # the third has none

    def test_what_came_over_the_wire_cannot_steer_the_terminal(self):
        out = self.decode(packet(b"\x1b[2J\x9bH\r\n\tok", aux8=b"\x00\x07\x1b[31m ")).stdout.decode()
        self.assertIn("body: \ufffd[2J\ufffdH\ufffd\n\tok\n", out)
        self.assertIn("aux8              '\ufffd\ufffd\ufffd[31m '\n", out)

    def test_latin_letters_come_out_as_utf_8(self):
        self.assertIn("body: Z\u00fcrich\n", self.decode(packet("Z\u00fcrich".encode("latin-1"))).stdout.decode())

    def test_bodies_alone(self):
        result = self.decode(packet(BODY) + packet("\u00e9".encode("latin-1"), compress=True), "--xml")
        self.assertEqual((result.returncode, result.stdout), (0, BODY + b"\n\xe9\n"))


class HexTest(DecodeTest):
    def test_every_usual_form(self):
        data = packet(BODY + b" ab cd")    # characters that look like digits in the right column
        def tool(*command):
            return subprocess.run(command, input=data, stdout=subprocess.PIPE, check=True).stdout

        plain = data.hex()
        forms = {
            "one line": plain.encode(),
            "upper case": plain.upper().encode(),
            "with a line break": plain.encode() + b"\r\n",
            "in lines": "\n".join(plain[i:i + 60] for i in range(0, len(plain), 60)).encode(),
            "with blanks": data.hex(" ").encode(),
            "with colons": data.hex(":").encode(),
            "in words": data.hex(" ", 4).encode(),
            "like xxd": self.dump(data, "{:08x}: {}  {}", lambda b: b.hex(" ", -2)),
            "like hexdump -C": self.dump(data, "{:08x}  {}  |{}|", lambda b: b[:8].hex(" ") + "  " + b[8:].hex(" "))
                               + b"%08x\n" % len(data),
            "like od": self.dump(data, "{:06x} {}  >{}<", lambda b: b.hex(" ")) + b"%06x\n" % len(data),
        }
        for name, text in forms.items():
            for args in ((), ("--hex",)):
                with self.subTest(form=name, args=args):
                    result = self.decode(text, *args)
                    self.assert_run(result, 0, err="")
                    self.assertIn("body: " + BODY.decode() + " ab cd\n", result.stdout.decode())

    @staticmethod
    def dump(data, form, digits):
        lines = []
        for i in range(0, len(data), 16):
            piece = data[i:i + 16]
            text = "".join(chr(c) if 32 <= c < 127 else "." for c in piece)
            lines.append(form.format(i, digits(piece), text))
        return ("\n".join(lines) + "\n").encode()

    def test_what_is_no_digits(self):
        other = "line 1 has something else than hexadecimal digits"
        for text, why in ((b"4", "half a byte at its end: is it cut off?"), (b"zz", other), (b"51,4d", other),
                          (b"51 4d 5", "half a byte at its end: is it cut off?"),
                          (b"  ", "no hexadecimal digits in it"),
                          (b"51\n4d\n  %\n", "line 3 has something else than hexadecimal digits")):
            self.assert_run(self.decode(text, "--hex"), 1, "", f"callorv: standard input: {why}\n")

    def test_digits_of_a_packet_with_something_between(self):
        path = self.write("dump", packet(BODY).hex(" ", 16).replace(" ", "\n") + "\n# end\n")
        self.assert_run(run("decode", path), 1, "", f"callorv: {path}: line 15 has something else than hexadecimal "
                        "digits; --binary takes all as it is\n")
        # a packet may well have such digits in its body
        self.assert_run(self.decode(packet(packet(BODY).hex().encode())), 0, err="")

    def test_bytes_that_happen_to_be_digits_can_be_forced(self):
        self.assert_run(self.decode(b"3132", "--binary"), 1,
                        "not a packet: bytes 0 to 3\n" + listed(0, b"3132", "3132") +
                        "  WRONG: these bytes do not begin a packet\n",
                        "callorv: standard input: no packet in it\n")
        self.assert_run(self.decode(b"3132"), 1,
                        "not a packet: bytes 0 to 1\n" + listed(0, b"12", "12") +
                        "  WRONG: these bytes do not begin a packet\n",
                        "callorv: standard input: no packet in it\n")


class BrokenTest(DecodeTest):
    def wrong(self, data, *texts):
        result = self.decode(data)
        self.assertEqual(result.returncode, 1)
        said = [line[len("  WRONG: "):] for line in result.stdout.decode().splitlines() if line.startswith("  WRONG: ")]
        self.assertEqual(said, list(texts))

    def test_says_what_is_wrong(self):
        right = sum(packet(BODY)[:-3]) % 256
        self.wrong(packet(BODY, checksum=b"%03d" % ((right + 1) % 256)),
                   f"Checksum is incorrect(-13)((M:{right},C:{(right + 1) % 256}))")
        self.wrong(packet(BODY, checksum=b"abc"), "checksum 'abc' is not 3 digits",
                   f"Checksum is incorrect(-13)((M:{right},C:0))")
        self.wrong(packet(BODY, compressed=b"Y"), "Compression failed(-16)(ReceiveFrom(-3)(0))")
        self.wrong(packet(BODY, plain=b"0000000092"), "body length 92 is not the packet's 93 bytes")
        sent = zlib.compress(BODY)
        self.wrong(packet(sent, compressed=b"Y", plain=b"0000000094"),
                   "body length 94 is not the 93 bytes that the body decompresses to")
        self.wrong(packet(BODY, service_field=b"  1 ", extra=b"+000000001", time=b"2026-01-31 2359", compressed=b"?"),
                   "service '  1 ' is no number of 32 bits in digits",
                   "extra '+000000001' is no number of 32 bits in digits",
                   "time stamp '2026-01-31 2359' is not YYYYMMDD-HHMMSS", "compressed '?' is neither Y nor N")

    def test_lengths_that_cannot_be(self):
        for length, texts in (
                (b"0000000127", ["packet length 127 is less than the header's 128 bytes"]),
                (b"9999999999", ["packet length '9999999999' is no number of 32 bits in digits"]),
                (b"00000000x1", ["packet length '00000000x1' is no number of 32 bits in digits"]),
                (b"2147483647", ["body length 93 is not the packet's 2147483519 bytes",
                                 "the packet ends after 224 of 2147483650 bytes"])):
            with self.subTest(length=length):
                self.wrong(packet(BODY, length=length), *texts)

    def test_a_packet_cut_short_at_any_byte(self):
        data = packet(BODY)
        reason = ["these bytes do not begin a packet" if size < 12 else
                  f"the header ends after {size} of 128 bytes" if size < 128 else
                  f"the packet ends after {size} of 224 bytes" for size in range(224)]
        self.wrong(b"".join(data[:size] + data for size in range(1, 224)), *reason[1:])
        for size in (1, 11, 12, 127, 128, 129, 220, 221, 223):    # nothing comes behind
            with self.subTest(size=size):
                self.wrong(data[:size], reason[size])

    def test_finds_the_next_packet_behind_a_broken_one(self):
        good = packet(BODY)
        data = good[:100] + good + b"junk" + packet(BODY, length=b"0000009999") + good
        result = self.decode(data)
        self.assert_run(result, 1, err="callorv: standard input: 3 broken among 4 packets\n")
        heads = [line for line in result.stdout.decode().splitlines() if not line.startswith(" ")]
        self.assertEqual(heads, ["packet 1: bytes 0 to 99", "packet 2: bytes 100 to 323",
                                 "not a packet: bytes 324 to 327", "packet 3: bytes 328 to 551",
                                 "packet 4: bytes 552 to 775"])

    def test_of_many_bytes_between_packets_the_first_are_listed(self):
        data = b"\x1b[2J\x9b\xe9" + bytes(range(256))
        lines = [listed(0, data[:16], "\ufffd[2J\ufffd\u00e9" + "\ufffd" * 10)]
        lines += [listed(i, data[i:i + 16], "".join(c if c.isprintable() or c in "\xa0\xad" else "\ufffd"
                                                    for c in data[i:i + 16].decode("latin-1")))
                  for i in range(16, 256, 16)]
        self.assert_run(self.decode(data), 1,
                        "not a packet: bytes 0 to 261\n" + "".join(lines) + "          and 6 bytes more\n"
                        "  WRONG: these bytes do not begin a packet\n",
                        "callorv: standard input: no packet in it\n")

    def test_bodies_alone_leave_the_broken_out_and_tell(self):
        result = self.decode(packet(BODY)[:150] + packet(BODY), "--xml")
        self.assert_run(result, 1, BODY.decode() + "\n", "callorv: standard input: 1 broken among 2 packets\n")

    def test_nothing(self):
        self.assert_run(self.decode(b""), 1, "", "callorv: standard input: no bytes\n")


class KeyTest(DecodeTest):
    """The user key of a header that is cut off, at either end, wherever it is shown."""

    KEY = b"SeCrEt-KEY+OF/A_USER"

    def outputs(self, data, digits):
        """Everything that is printed of some bytes, given as they are and perhaps as digits."""
        for args in ([], ["--json"]):
            result = self.decode(data, *args)
            yield result.stdout + b"\n" + result.stderr
        if not digits:
            return
        table = subprocess.run(["od", "-A", "x", "-t", "x1z"], input=data, stdout=subprocess.PIPE, check=True).stdout
        for form, *args in ((data, "--xml"), (data.hex().encode(), "--json"),
                            (data.hex(" ").upper().encode(), "--binary"), (table, "--hex")):
            result = self.decode(form, *args)
            yield result.stdout + b"\n" + result.stderr

    def assert_hidden(self, data, digits=False):
        for out in self.outputs(data, digits):
            seen = out.decode()
            digits = re.sub(r"(?m)^ +\d+ |[^0-9a-fA-F]", "", seen).lower()
            for i in range(len(self.KEY) - 1):
                pair = self.KEY[i:i + 2]
                self.assertNotIn(pair.decode(), seen)
                self.assertNotIn(f" {pair.hex(' ')} ", seen)
            self.assertNotIn(self.KEY[2:6].hex(), digits)

    def test_cut_at_any_byte(self):
        data, good = packet(BODY, key=self.KEY), packet(BODY, key=b" " * 20)
        self.assert_hidden(good.join(data[:size] for size in range(1, 128)) + good)
        self.assert_hidden(good.join(data[size:] for size in range(1, 128)) + good)
        for size in (*range(54, 82), 100, 127):    # nothing is before it, nothing behind
            with self.subTest(behind=size):
                self.assert_hidden(data[:size], digits=True)
        for size in (1, 40, *range(50, 78)):
            with self.subTest(before=size):
                self.assert_hidden(data[size:], digits=50 <= size <= 74)

    def test_digits_cut_at_any_character(self):
        data = packet(b"", key=self.KEY)
        for text in (data.hex(), HexTest.dump(data, "{:08x}: {}  {}", lambda b: b.hex(" ", -2)).decode()):
            for size in range(100, len(text), 29):
                for more in ("", "\n%"):
                    for args in ([], ["--json"]):
                        seen = self.decode((text[:size] + more).encode(), *args).stdout.decode()
                        self.assertNotIn("CrEt", seen)
                        self.assertNotIn(self.KEY[2:6].hex(), re.sub("[^0-9a-f]", "", seen))

    def test_how_it_looks(self):
        data = packet(BODY, key=self.KEY)
        rows = [(0, "51 4d 58 2d 53 53 50 2d 56 31 2e 30 30 30 30 30", "QMX-SSP-V1.00000"),
                (16, "30 30 30 32 32 31 31 32 30 31 30 30 30 33 30 30", "0002211201000300"),
                (32, "30 30 30 30 30 30 30 30 32 30 32 36 30 31 33 31", "0000000020260131"),
                (48, "2d 32 33 35 39 35 39 ** ** ** ** ** ** ** ** **", "-235959*********"),
                (64, "** ** ** ** ** ** ** ** ** ** ** 20 20", "***********  ")]
        self.assert_run(self.decode(data[:77]), 1, "packet 1: bytes 0 to 76\n" + "".join(
            f"{at:8}  {digits:47}  {text}\n" for at, digits, text in rows) +
            "  WRONG: the header ends after 77 of 128 bytes\n", "callorv: standard input: 1 broken among 1 packet\n")
        piece = json.loads(self.decode(data[50:], "--json").stdout)["packets"][0]
        self.assertEqual(piece["text"][:40], "35959" + "*" * 20 + " " * 13 + "N0")
        self.assertEqual(piece["wrong"], ["these bytes do not begin a packet"])
        digits = self.decode(data.hex().encode(), "--binary")
        self.assertIn(" ** ** **  ****************\n  WRONG: these bytes do not begin a packet, but have hexadecimal "
                      "digits of one\n", digits.stdout.decode().replace("          and 192 bytes more\n", ""))

    def test_it_is_shown_when_asked(self):
        data = packet(BODY, key=self.KEY)
        for piece in (data[:100], data[20:], data.hex().encode()):
            self.assertNotIn("*", self.decode(piece, "--show-key", "--binary").stdout.decode())
        shown = json.loads(self.decode(data[:100], "--show-key", "--json").stdout)["packets"][0]["text"]
        self.assertIn(self.KEY.decode(), shown)


class JsonTest(DecodeTest):
    def test_has_everything(self):
        data = packet(BODY, compress=True)
        result = self.decode(b"x" + data + packet(BODY)[:130], "--json")
        self.assertEqual(result.returncode, 1)
        report = json.loads(result.stdout)
        self.assertEqual(report["error"], {"text": "standard input: 2 broken among 2 packets"})
        self.assertEqual(report["packets"], [
            {"offset": 0, "size": 1, "packet": False, "text": "x", "wrong": ["these bytes do not begin a packet"]},
            {"offset": 1, "size": len(data), "packet": True,
             "header": {"begin_string": "QMX-SSP-V1.0", "packet_length": "%010d" % (len(data) - 3), "service": "1201",
                        "message": "0003", "extra": "0000000000", "time_stamp": "20260131-235959",
                        "user_key": "US******            ", "aux13": " " * 13, "compressed": "Y",
                        "body_length": "0000000093", "aux8": " " * 8, "aux21": " " * 21},
             "body": BODY.decode(), "checksum": data[-3:].decode(), "wrong": []},
            {"offset": 1 + len(data), "size": 130, "packet": True,
             "header": {"begin_string": "QMX-SSP-V1.0", "packet_length": "0000000221", "service": "1201",
                        "message": "0003", "extra": "0000000000", "time_stamp": "20260131-235959",
                        "user_key": "US******            ", "aux13": " " * 13, "compressed": "N",
                        "body_length": "0000000093", "aux8": " " * 8, "aux21": " " * 21},
             "wrong": ["the packet ends after 130 of 224 bytes"]}])

    def test_any_byte_gives_utf_8(self):
        body = bytes(range(256))
        result = self.decode(packet(body, key=bytes(range(236, 256))), "--json", "--show-key")
        self.assertEqual(json.loads(result.stdout)["packets"][0]["body"], body.decode("latin-1"))


class ArgumentTest(DecodeTest):
    def test_usage(self):
        for args, text in ((("--hex", "--binary"), "--hex excludes --binary"),
                           (("--json", "--xml"), "--json excludes --xml"),
                           (("a", "b"), "unexpected argument 'b'"),
                           (("--nosuch",), "unknown option --nosuch")):
            with self.subTest(args=args):
                self.assert_usage("decode", run("decode", *args), text)

    def test_files_that_cannot_be_read(self):
        missing = self.path("missing")
        self.assert_run(run("decode", missing), 1, "", f"callorv: {missing}: No such file or directory\n")
        self.assert_run(run("decode", self.dir), 1, "", f"callorv: {self.dir}: a folder, not a file\n")

    def test_an_output_that_cannot_be_written(self):
        with open("/dev/full", "wb") as full:
            result = subprocess.run([os.environ["CALLORV"], "decode"], input=packet(BODY), stdout=full,
                                    stderr=subprocess.PIPE, check=False)
        self.assertEqual((result.returncode, result.stderr), (1, b"callorv: standard output cannot be written\n"))

    def test_help_teaches_by_example(self):
        result = run("decode", "--help")
        self.assert_run(result, 0, err="")
        self.assertIn("\nExamples:\n  callorv decode packets/000001-1201-request.packet\n", result.stdout.decode())


if __name__ == "__main__":
    unittest.main()
