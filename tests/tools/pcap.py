"""Capture files of every form, out of the frames that tests/wireshark/capture.py makes."""
import os
import pathlib
import struct
import sys
import tempfile

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "wireshark"))
from capture import ACK, FIN, PSH, RST, SYN, Capture    # noqa: F401

RAW, ETHERNET, NULL, LOOP, SLL, SLL2, IPV4, IPV6 = 101, 1, 0, 108, 113, 276, 228, 229


def frames(fill):
    """The frames that fill(capture) makes: a list of (nanoseconds since 1970, IP packet)."""
    with tempfile.TemporaryDirectory() as folder:
        path = os.path.join(folder, "raw.pcap")
        with Capture(path) as capture:
            fill(capture)
        with open(path, "rb") as file:
            data = file.read()
    found, at = [], 24
    while at < len(data):
        seconds, micro, size, _ = struct.unpack("<IIII", data[at:at + 16])
        found.append(((seconds * 10**6 + micro) * 1000, data[at + 16:at + 16 + size]))
        at += 16 + size
    return found


def to_ipv6(packet, extensions=()):
    """The same segment over IPv6, between ::1 and ::2 as its ports go up or down, behind these extension headers."""
    tcp = packet[20:]
    down = struct.unpack("!HH", tcp[:4])[0] > struct.unpack("!HH", tcp[:4])[1]
    source, target = bytes(15) + b"\1", bytes(15) + b"\2"
    ends = source + target if down else target + source
    kinds = [kind for kind, _ in extensions] + [6]
    body = b"".join(bytes([following]) + rest for following, (_, rest) in zip(kinds[1:], extensions)) + tcp
    return struct.pack("!IHBB", 6 << 28, len(body), kinds[0], 64) + ends + body


def with_options(packet, options=b"\1\1\1\0"):
    """An IPv4 packet with options."""
    size = 5 + len(options) // 4
    total = struct.unpack("!H", packet[2:4])[0] + len(options)
    return bytes([0x40 | size]) + packet[1:2] + struct.pack("!H", total) + packet[4:20] + options + packet[20:]


def wrapped(link, packet, tags=()):
    """An IP packet as an interface of this kind has it."""
    kind = 0x0800 if packet[0] >> 4 == 4 else 0x86DD
    behind = b"".join(struct.pack("!HH", *pair) for pair in zip(range(1, 9), [*[t for t in tags[1:]], kind]))
    first = tags[0] if tags else kind
    if not tags:
        behind = b""
    if link == ETHERNET:
        return bytes(12) + struct.pack("!H", first) + behind + packet + bytes(max(0, 46 - len(packet)))    # padded
    if link == SLL:
        return bytes(14) + struct.pack("!H", first) + behind + packet
    if link == SLL2:
        return struct.pack("!H", first) + bytes(18) + behind + packet
    if link == NULL:
        return struct.pack("<I", 2 if kind == 0x0800 else 24) + packet
    if link == LOOP:
        return struct.pack("!I", 2 if kind == 0x0800 else 24) + packet
    return packet


def pcap(found, link=RAW, order="<", nano=False, snap=262144):
    """A pcap file."""
    out = [struct.pack(order + "IHHiIII", 0xA1B23C4D if nano else 0xA1B2C3D4, 2, 4, 0, 0, snap, link)]
    for time, data in found:
        part = time % 10**9 // (1 if nano else 1000)
        out.append(struct.pack(order + "IIII", time // 10**9, part, len(data[:snap]), len(data)) + data[:snap])
    return b"".join(out)


def block(order, kind, body):
    size = 12 + (len(body) + 3) // 4 * 4
    return struct.pack(order + "II", kind, size) + body.ljust(size - 12, b"\0") + struct.pack(order + "I", size)


def section(order="<", length=-1):
    return block(order, 0x0A0D0D0A, struct.pack(order + "IHHq", 0x1A2B3C4D, 1, 0, length))


def interface(order, link, resolution=None, offset=None, snap=0):
    options = b""
    if resolution is not None:
        options += struct.pack(order + "HHB3x", 9, 1, resolution)
    if offset is not None:
        options += struct.pack(order + "HHq", 14, 8, offset)
    return block(order, 1, struct.pack(order + "HHI", link, 0, snap) + options + (bytes(4) if options else b""))


def enhanced(order, number, ticks, data, kept=None):
    kept = data if kept is None else data[:kept]
    return block(order, 6, struct.pack(order + "IIIII", number, ticks >> 32, ticks & 0xFFFFFFFF, len(kept), len(data)) +
                 kept)


def simple(order, data):
    return block(order, 3, struct.pack(order + "I", len(data)) + data)


def obsolete(order, number, ticks, data):
    return block(order, 2, struct.pack(order + "HHIIII", number, 0, ticks >> 32, ticks & 0xFFFFFFFF, len(data),
                                       len(data)) + data)


def pcapng(found, link=RAW, order="<"):
    """A pcapng file with one interface, whose times are in microseconds."""
    return section(order) + interface(order, link) + b"".join(enhanced(order, 0, time // 1000, data)
                                                              for time, data in found)
