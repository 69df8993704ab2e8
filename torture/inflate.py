"""Inflates a zlib stream (RFC 1950, RFC 1951) step by step, so that it is known how far the output came.

Takes and refuses exactly what zlib does.
"""

ORDER = (16, 17, 18, 0, 8, 7, 9, 6, 10, 5, 11, 4, 12, 3, 13, 2, 14, 1, 15)    # of the lengths of the length codes


class Damaged(Exception):
    """No such stream."""


class CutShort(Exception):
    """The input ends before the stream does."""


class NoRoom(Exception):
    """The output needs more room."""


def bases(first, extra_bits):
    """(base, number of extra bits) of each symbol."""
    found = []
    for extra in extra_bits:
        found.append((first, extra))
        first += 1 << extra
    return found


LENGTHS = bases(3, [0] * 8 + [bits for bits in range(1, 6) for _ in range(4)])[:28] + [(258, 0)]
DISTANCES = bases(1, [0, 0] + [bits for bits in range(14) for _ in range(2)])[:30]


class Code:
    """A Huffman code, from the length of each symbol's code; 0: it has none."""

    def __init__(self, lengths, may_be_single):
        used = [length for length in lengths if length]
        left = 1 << 15
        for length in used:
            left -= 1 << 15 - length
        # Every code must be used; only one that has no symbol or one of a single bit may leave some out.
        if left < 0 or left > 0 and not (may_be_single and max(used, default=1) == 1 and len(used) < 2):
            raise Damaged
        self.symbols = {}
        code = 0
        for length in range(1, 16):
            for symbol, symbol_length in enumerate(lengths):
                if symbol_length == length:
                    self.symbols[length, code] = symbol
                    code += 1
            code <<= 1
        self.longest = max(used, default=1)


FIXED = (Code([8] * 144 + [9] * 112 + [7] * 24 + [8] * 8, False), Code([5] * 32, False))


def adler32(data):
    size = len(data)
    low = 1 + sum(data)
    high = size + sum((size - place) * byte for place, byte in enumerate(data))
    return high % 65521 << 16 | low % 65521


class Inflate:
    """One stream; out holds what came out, even after an exception."""

    def __init__(self, data, room):
        self.value, self.left = int.from_bytes(data, "little"), 8 * len(data)
        self.room = room
        self.out = bytearray()

    def bits(self, count):
        if count > self.left:
            raise CutShort
        value = self.value & (1 << count) - 1
        self.value >>= count
        self.left -= count
        return value

    def symbol(self, code):
        read = 0
        for length in range(1, code.longest + 1):
            read = read << 1 | self.bits(1)
            if (length, read) in code.symbols:
                return code.symbols[length, read]
        raise Damaged

    def put(self, byte):
        if len(self.out) == self.room:
            raise NoRoom
        self.out.append(byte)

    def run(self):
        header = self.bits(16)
        method, flags = header & 0xFF, header >> 8
        if (method * 256 + flags) % 31 or method & 15 != 8 or method >> 4 > 7 or flags & 32:
            raise Damaged
        last = False
        while not last:
            last = self.bits(1)
            kind = self.bits(2)
            if kind == 0:
                self.stored()
            elif kind == 3:
                raise Damaged
            else:
                self.block(*(FIXED if kind == 1 else self.codes()))
        self.bits(self.left % 8)
        if self.bits(32).to_bytes(4, "little") != adler32(self.out).to_bytes(4, "big"):
            raise Damaged

    def stored(self):
        self.bits(self.left % 8)
        both = self.bits(32)
        length = both & 0xFFFF
        if length ^ both >> 16 != 0xFFFF:
            raise Damaged
        for _ in range(length):
            if len(self.out) == self.room:
                raise NoRoom
            self.put(self.bits(8))

    def codes(self):
        literals, distances, lengths = self.bits(5) + 257, self.bits(5) + 1, self.bits(4) + 4
        if literals > 286 or distances > 30:
            raise Damaged
        order = [0] * 19
        for place in ORDER[:lengths]:
            order[place] = self.bits(3)
        code = Code(order, False)
        found = []
        while len(found) < literals + distances:
            symbol = self.symbol(code)
            if symbol < 16:
                found.append(symbol)
                continue
            if symbol == 16 and not found:
                raise Damaged
            value = found[-1] if symbol == 16 else 0
            found += [value] * (self.bits(2) + 3 if symbol == 16 else self.bits(3) + 3 if symbol == 17 else
                                self.bits(7) + 11)
            if len(found) > literals + distances:
                raise Damaged
        if not found[256]:
            raise Damaged    # such a block could not end
        return Code(found[:literals], True), Code(found[literals:], True)

    def block(self, literals, distances):
        while (symbol := self.symbol(literals)) != 256:
            if symbol < 256:
                self.put(symbol)
                continue
            if symbol - 257 >= len(LENGTHS):
                raise Damaged
            base, extra = LENGTHS[symbol - 257]
            length = base + self.bits(extra)
            symbol = self.symbol(distances)
            if symbol >= len(DISTANCES):
                raise Damaged
            base, extra = DISTANCES[symbol]
            distance = base + self.bits(extra)
            if distance > len(self.out):
                raise Damaged
            for _ in range(length):
                self.put(self.out[-distance])
