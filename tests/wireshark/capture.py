"""Captures of TCP conversations, written from their bytes, and what Wireshark's command says of them."""
import os
import pathlib
import re
import struct
import subprocess

DISSECTOR = pathlib.Path(__file__).resolve().parent.parent.parent / "wireshark" / "callorv.lua"
FIN, SYN, RST, PSH, ACK = 1, 2, 4, 8, 16
LOOPBACK = bytes([127, 0, 0, 1])
PORT = 7000


def internet_sum(data):
    data += b"\0" * (len(data) % 2)
    total = sum(struct.unpack(f"!{len(data) // 2}H", data))
    while total >> 16:
        total = (total & 0xFFFF) + (total >> 16)
    return ~total & 0xFFFF


class Capture:
    """A pcap file of raw IP packets, a tenth of a millisecond apart unless told otherwise."""

    def __init__(self, path, snap=65535):
        self.path, self.snap, self.frames = str(path), snap, 0
        self.time = 1_700_000_000_000_000
        self.next_port, self.connections = 40000, 0
        self.file = open(path, "wb")    # closed by the end of `with`
        self.file.write(struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, snap, 101))

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.file.close()

    def frame(self, source, target, seq, ack, flags, data, after=100):
        tcp = struct.pack("!HHIIBBHHH", source, target, seq % 2**32, ack % 2**32, 5 << 4, flags, 65535, 0, 0)
        pseudo = LOOPBACK * 2 + struct.pack("!BBH", 0, 6, len(tcp) + len(data))
        tcp = tcp[:16] + struct.pack("!H", internet_sum(pseudo + tcp + data)) + tcp[18:]
        ip = struct.pack("!BBHHHBBH4s4s", 0x45, 0, 20 + len(tcp) + len(data), 0, 0x4000, 64, 6, 0, LOOPBACK, LOOPBACK)
        packet = ip[:10] + struct.pack("!H", internet_sum(ip)) + ip[12:] + tcp + data
        self.time += after
        kept = packet[:self.snap]
        self.file.write(struct.pack("<IIII", self.time // 10**6, self.time % 10**6, len(kept), len(packet)) + kept)
        self.frames += 1
        return self.frames

    def connect(self, greet=True):
        return Connection(self, greet)


class Connection:
    """One connection of a capture. What is sent returns the number of its last frame."""

    def __init__(self, capture, greet):
        self.capture = capture
        self.ports = {True: capture.next_port, False: PORT}
        capture.next_port = 40000 + (capture.next_port - 39999) % 20000
        self.seq = {True: 2**32 - 100 + 10**6 * capture.connections, False: 9000}    # the first client's go round
        capture.connections += 1
        if greet:
            self.send(True, b"", SYN)
            self.send(False, b"", SYN | ACK)
            self.send(True, b"", ACK)

    def send(self, client, data, flags=PSH | ACK, mss=1460, after=100):
        for at in range(0, max(len(data), 1), mss):
            piece = data[at:at + mss]
            frame = self.capture.frame(self.ports[client], self.ports[not client], self.seq[client],
                                       self.seq[not client], flags, piece, after)
            self.seq[client] += len(piece) + (flags & (SYN | FIN) != 0)
        return frame

    def ask(self, data, **more):
        return self.send(True, data, **more)

    def answer(self, data, **more):
        return self.send(False, data, **more)

    def close(self):
        self.send(True, b"", FIN | ACK)
        return self.send(False, b"", FIN | ACK)


class Shark:
    """What tshark says of a capture; whatever it has to complain of is an error."""

    def __init__(self, path, *options, port=PORT):
        self.line = ["tshark", "-r", str(path), "-X", f"lua_script:{DISSECTOR}", "-d", f"tcp.port=={port},callorv",
                     *options]

    def run(self, *args):
        result = subprocess.run([*self.line, *args], capture_output=True, timeout=300, check=False,
                                env={**os.environ, "LC_ALL": "C.UTF-8", "TZ": "UTC"})
        said = [line for line in result.stderr.decode().splitlines() if not line.startswith("Running as user")]
        assert result.returncode == 0 and not said, (result.returncode, said)
        out = result.stdout.decode()
        assert "Lua Error" not in out, out
        return out

    def fields(self, *names, only="callorv"):
        """A row of texts for each frame that the filter takes; several values of a field stand with | between."""
        args = [part for name in names for part in ("-e", name)]
        out = self.run("-Y", only, "-T", "fields", "-E", "occurrence=a", "-E", "aggregator=|", *args)
        return [line.split("\t") for line in out.splitlines()]

    def frames(self):
        """For each frame that has any the lines of each of our packets, indented as they are, without those of other
        protocols."""
        found, inside = {}, False
        for line in self.run("-V").splitlines():
            if line and not line.startswith(" "):
                inside = line.startswith("CallOrv")
                if match := re.match(r"Frame (\d+):", line):
                    number = int(match[1])
                if inside:
                    found.setdefault(number, []).append([])
            if inside and line:
                found[number][-1].append(line)
        return found

    def packets(self):
        """The same without the frames."""
        return [lines for packets in self.frames().values() for lines in packets]

    def said(self):
        """For each frame that has any the texts of our expert infos."""
        found = {frame: [line.split(": ", 1)[1][:-1] for lines in packets for line in lines
                         if line.lstrip().startswith("[Expert Info (")] for frame, packets in self.frames().items()}
        return {frame: texts for frame, texts in found.items() if texts}
