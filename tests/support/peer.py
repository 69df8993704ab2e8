#!/usr/bin/env python3
"""A server of the packet protocol, written from docs/formats/packet.md and sharing no code with the library.

Prints its port, then for every connection one line of JSON: the request's fields, or {"bad": why} when it breaks the
format, and exits after --connections of them or --seconds at the latest. Every request is answered by a packet with
the request's own numbers, texts, body and compression, unless options say otherwise; --fault then spoils it.
"""
import argparse
import datetime
import json
import re
import signal
import socket
import struct
import sys
import time
import zlib

FIELDS = (("begin", 12), ("length", 10), ("svc", 4), ("msg", 4), ("extra", 10), ("time", 15), ("key", 20),
          ("aux13", 13), ("flag", 1), ("plain_length", 10), ("aux8", 8), ("aux21", 21))
NUMBERS = ("svc", "msg", "extra")
TEXTS = ("key", "aux13", "aux8", "aux21")
FAULTS = """none           answer well
begin          another protocol's begin string
checksum       one too many in the trailer
truncate       only the first --at bytes, then an orderly close
truncate-each  the same, with 0 bytes on the first connection, 1 on the second and so on
stall          only the first --at bytes (negative: without the last ones); the connection stays open
zlib           a compressed body with its bytes inverted, under a right checksum
reset          the first --at bytes, then a reset
trickle        byte after byte, --gap seconds apart
silent         no answer, the connection stays open
close          no answer, orderly close
deaf           close at once, without reading the request"""


class Bad(Exception):
    pass


def need(ok, why):
    if not ok:
        raise Bad(why)


def checksum(data):
    return sum(data) % 256


def read_exactly(conn, count, what):
    data = b""
    while len(data) < count:
        part = conn.recv(count - len(data))
        need(part, f"{what} ends after {len(data)} of {count} bytes")
        data += part
    return data


def read_request(conn):
    """One request, checked by the letter. Returns its fields as texts and its body."""
    header = read_exactly(conn, 128, "header")
    raw, at = {}, 0
    for name, width in FIELDS:
        raw[name] = header[at:at + width].decode("latin-1")
        at += width
    need(raw["begin"] == "QMX-SSP-V1.0", f"begin {raw['begin']!r}")
    for name in ("length", "plain_length"):
        need(re.fullmatch(r"[0-9]{10}", raw[name]), f"{name} {raw[name]!r}")
    for name in NUMBERS:
        need(re.fullmatch(r"-?[0-9]+", raw[name]), f"{name} {raw[name]!r}")
    for name in TEXTS:
        need(re.fullmatch(r"[ -~]*", raw[name]), f"{name} {raw[name]!r}")
    need(raw["flag"] in "YN", f"flag {raw['flag']!r}")
    try:
        stamp = datetime.datetime.strptime(raw["time"], "%Y%m%d-%H%M%S")
    except ValueError as why:
        raise Bad(f"time {raw['time']!r}: {why}") from why
    need(abs((datetime.datetime.now() - stamp).total_seconds()) < 30, f"time {raw['time']} is not now")
    need(int(raw["length"]) >= 128, f"length {raw['length']}")

    sent = read_exactly(conn, int(raw["length"]) - 128, "body")
    trailer = read_exactly(conn, 3, "trailer")
    need(trailer == b"%03d" % checksum(header + sent), f"trailer {trailer!r}, not {checksum(header + sent)}")
    body = sent
    if raw["flag"] == "Y":
        inflate = zlib.decompressobj()
        try:
            body = inflate.decompress(sent)
        except zlib.error as why:
            raise Bad(f"body: {why}") from why
        need(inflate.eof and not inflate.unused_data, "the zlib stream does not end with the body")
        need(sent[:2] == b"\x78\x9c", f"zlib header {sent[:2].hex()} is not that of the default level")
    need(int(raw["plain_length"]) == len(body), f"plain_length {raw['plain_length']}, not {len(body)}")
    conn.setblocking(False)
    try:
        need(not conn.recv(1), "bytes behind the trailer")
    except BlockingIOError:
        pass
    conn.setblocking(True)
    return raw, body, len(sent)


def text(value, width):
    return value.encode("latin-1")[:width].ljust(width)


def make_reply(raw, body, args):
    """The bytes of the answer, before --fault truncate and its like cut them."""
    compress = args.compress or raw["flag"] == "Y" and not args.plain
    sent = zlib.compress(body) if compress else body
    if args.fault == "zlib":
        sent = bytes(b ^ 0xFF for b in sent)
    values = dict(raw)
    values["begin"] = "XYZ-SSP-V2.0" if args.fault == "begin" else "QMX-SSP-V1.0"
    values["length"] = "%010d" % (128 + len(sent)) if args.length is None else args.length
    values["plain_length"] = "%010d" % len(body) if args.plain_length is None else args.plain_length
    values["flag"] = args.flag or "NY"[compress]
    for name in NUMBERS:
        if getattr(args, name) is not None:
            values[name] = "%0*d" % (dict(FIELDS)[name], getattr(args, name))
    for name in TEXTS + ("time",):
        if getattr(args, name) is not None:
            values[name] = getattr(args, name)
    header = b"".join(text(values[name], width) for name, width in FIELDS)
    total = checksum(header + sent) + (args.fault == "checksum")
    return header + sent + b"%03d" % (total % 256)


def hold(conn):
    """Keep the connection open until the client closes it."""
    while conn.recv(4096):
        pass


def answer(conn, reply, number, args):
    if args.fault == "close":
        return
    if args.fault == "silent":
        hold(conn)
    elif args.fault == "truncate":
        conn.sendall(reply[:args.at])
    elif args.fault == "truncate-each":
        conn.sendall(reply[:number])
    elif args.fault == "stall":
        conn.sendall(reply[:args.at])
        hold(conn)
    elif args.fault == "reset":
        conn.sendall(reply[:args.at])
        conn.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
    elif args.fault == "trickle":
        conn.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        for value in reply:
            conn.sendall(bytes([value]))
            time.sleep(args.gap)
    else:
        conn.sendall(reply)


def serve(conn, number, args):
    if args.fault == "deaf":
        return {"deaf": True}
    try:
        raw, body, sent_length = read_request(conn)
    except Bad as why:
        return {"bad": str(why)}
    report = {name: int(raw[name]) if name in NUMBERS else raw[name] for name in NUMBERS + TEXTS + ("flag",)}
    report["body"] = body.decode("latin-1") if len(body) <= 200 else "crc32 %08x" % zlib.crc32(body)
    report["body_length"] = len(body)
    report["sent_length"] = sent_length
    if args.body_file is not None:
        with open(args.body_file, "rb") as file:
            body = file.read()
    elif args.body is not None:
        body = args.body.encode("latin-1")
    answer(conn, make_reply(raw, body, args), number, args)
    return report


def main():
    parser = argparse.ArgumentParser(description=__doc__, epilog=FAULTS,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--connections", type=int, default=1, help="serve so many, then exit; 0: until --seconds")
    parser.add_argument("--seconds", type=int, default=60)
    parser.add_argument("--fault", default="none", choices=[line.split()[0] for line in FAULTS.splitlines()])
    parser.add_argument("--at", type=int, default=128)
    parser.add_argument("--gap", type=float, default=0.0)
    parser.add_argument("--body")
    parser.add_argument("--body-file")
    parser.add_argument("--compress", action="store_true")
    parser.add_argument("--plain", action="store_true")
    parser.add_argument("--length", help="the text of the packet length field")
    parser.add_argument("--plain-length", help="the text of the uncompressed length field")
    parser.add_argument("--flag", help="the compression flag")
    for name in NUMBERS:
        parser.add_argument("--" + name, type=int)
    for name in TEXTS + ("time",):
        parser.add_argument("--" + name)
    args = parser.parse_args()

    signal.signal(signal.SIGALRM, lambda *_: sys.exit("out of time"))
    signal.alarm(args.seconds)
    listener = socket.create_server(("127.0.0.1", 0))
    print(listener.getsockname()[1], flush=True)
    number = 0
    while args.connections == 0 or number < args.connections:
        conn, _ = listener.accept()
        with conn:
            try:
                report = serve(conn, number, args)
            except ConnectionError as why:    # the client has its reasons
                report = {"gone": type(why).__name__}
        print(json.dumps(report), flush=True)
        number += 1


main()
