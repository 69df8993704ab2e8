"""What the receiver of a packet must make of any bytes, written from docs/formats/packet.md.

Shares no code with the library, nor with zlib.
"""
import functools

import inflate

HEADER = 128
TRAILER = 3
BEGIN = b"QMX-SSP-V1.0"
# name: offset, width
FIELDS = {"begin string": (0, 12), "packet length": (12, 10), "service": (22, 4), "message": (26, 4), "extra": (30, 10),
          "time stamp": (40, 15), "user key": (55, 20), "aux13": (75, 13), "compressed": (88, 1),
          "body length": (89, 10), "aux8": (99, 8), "aux21": (107, 21)}
TEXTS = {-8: "Socket timeout", -9: "Socket closed", -13: "Checksum is incorrect", -15: "Header format is incorrect",
         -16: "Compression failed", -17: "Packet is corrupted"}
Z_DATA_ERROR, Z_BUF_ERROR = -3, -5


class Bytes:
    """Bytes of which single ones can be changed, with sums that keep up."""

    def __init__(self, data):
        self.data = bytearray(data)
        self.known = {}

    def put(self, at, data):
        """Replaces bytes; returns those that were there."""
        old = bytes(self.data[at:at + len(data)])
        self.data[at:at + len(data)] = data
        for (first, end), sums in self.known.items():
            for i in range(max(first, at), min(end, at + len(data))):
                change = data[i - at] - old[i - at]
                sums[0] += change
                sums[1] += change * (i - first + 1)
        return old

    def sums(self, first, end):
        """The sum of these bytes, and their sum with each multiplied by its place from 1 on."""
        if (first, end) not in self.known:
            part = self.data[first:end]
            if len(self.known) > 8:
                self.known.clear()
            self.known[first, end] = [sum(part), sum(byte * place for place, byte in enumerate(part, 1))]
        return self.known[first, end]


class Outcome:
    """What a receiver returns, and what it has filled in by then."""

    def __init__(self):
        self.code = 0
        self.text = b""
        self.service = self.message = self.extra = 0
        self.time_stamp = self.user_key = self.aux13 = self.aux8 = self.aux21 = b""
        self.compressed = False
        self.body_length = self.body_sum = 0

    def fail(self, code, detail):
        self.code = code
        self.text = b"%s(%d)(%s)" % (TEXTS[code].encode(), code, detail)
        return self

    def line(self):
        """As torture/reply_driver.cpp prints it."""
        parts = [self.code, shown(self.text), self.service, self.message, self.extra, shown(self.time_stamp),
                 shown(self.user_key), shown(self.aux13), "Y" if self.compressed else "N", shown(self.aux8),
                 shown(self.aux21), self.body_length, self.body_sum % 2**64]
        return " ".join(map(str, parts))


def shown(text):
    return "".join(chr(c) if 32 < c < 126 and c != 92 else f"\\{c:02x}" for c in text) or "~"


def number(text):
    """The leading decimal number, saturated at 32 bits; 0 when there is none."""
    text = text.split(b"\0")[0].lstrip(b" \t\n\v\f\r")
    sign = -1 if text[:1] == b"-" else 1
    if text[:1] in (b"-", b"+"):
        text = text[1:]
    digits = text[:len(text) - len(text.lstrip(b"0123456789"))]
    return max(-2**31, min(2**31 - 1, sign * int(digits or b"0")))


@functools.lru_cache(maxsize=100000)
def uncompress(sent, room):
    """What zlib's uncompress() makes of these bytes: its verdict, the output's length, and the output."""
    if room < 0:
        return Z_BUF_ERROR, 0, b""
    stream = inflate.Inflate(sent, room or 1)    # with no room at all, zlib tries with one byte of its own
    try:
        stream.run()
        verdict = 0
    except inflate.Damaged:
        verdict = Z_DATA_ERROR
    except inflate.NoRoom:
        verdict = Z_BUF_ERROR
    except inflate.CutShort:
        verdict = Z_BUF_ERROR if len(stream.out) == room else Z_DATA_ERROR
    if room == 0:
        return verdict and Z_DATA_ERROR, 0, b""
    return verdict, len(stream.out), bytes(stream.out)


def receive(packet, cut, closes, deadline=None):
    """The outcome for the first cut bytes of packet (Bytes), after which the peer closes or falls silent.

    deadline: milliseconds that a call in flight has; None: a blocking one, which waits for no time.
    """
    outcome = Outcome()

    def ended(part):
        if closes:
            return outcome.fail(-9, b"OK")
        if deadline is not None:
            return outcome.fail(-8, b"(%s, %d ms)" % (part, deadline))
        return outcome.fail(-8, b"(recv to=0)") if part == b"header" else silent(part)

    def silent(part):
        return outcome.fail(-17, b"uncompleted packet timeout(%s)" % part)

    if cut < HEADER:
        return ended(b"header")
    header = bytes(packet.data[:HEADER])
    field = {name: header[at:at + width] for name, (at, width) in FIELDS.items()}
    if field["begin string"] != BEGIN:
        return outcome.fail(-15, b"Unknown BeginString[%s]" % field["begin string"].split(b"\0")[0])
    outcome.service, outcome.message, outcome.extra = (number(field[n]) for n in ("service", "message", "extra"))
    text = {name: value.split(b"\0")[0] for name, value in field.items()}
    outcome.time_stamp, outcome.aux13, outcome.aux8, outcome.aux21 = (text[n] for n in
                                                                      ("time stamp", "aux13", "aux8", "aux21"))
    outcome.user_key = text["user key"].strip(b" \t\r\n")
    outcome.compressed = field["compressed"] == b"Y"

    length = number(field["packet length"])
    if length < HEADER:
        if length - HEADER == -8:    # cannot be told from a wait that was too long
            return silent(b"body")
        outcome.code = length - HEADER
        return outcome
    if cut < length:
        return ended(b"body")
    body_sum, placed_sum = packet.sums(HEADER, length)
    if outcome.compressed:
        verdict, made, body = uncompress(bytes(packet.data[HEADER:length]), number(field["body length"]))
        if verdict != 0:
            return outcome.fail(-16, b"ReceiveFrom(%d)(%d)" % (verdict, made))
        outcome.body_length, outcome.body_sum = made, Bytes(body).sums(0, made)[1]
    else:
        outcome.body_length, outcome.body_sum = length - HEADER, placed_sum

    if cut < length + TRAILER:
        return ended(b"checksum")
    computed = (sum(header) + body_sum) % 256
    received = number(bytes(packet.data[length:length + TRAILER]))
    if computed != received:
        return outcome.fail(-13, b"(M:%d,C:%d)" % (computed, received))
    return outcome
