"""Thrift's three encodings, written from doc/wire.md alone: neither a Thrift library nor this one's
code was used. What the page does not say, this file does not know.

A record is a list of fields, each a tuple (id, type, value). A type is its name in JSON. Strings are
bytes. The value of a list or set is (type, elements), that of a map (key type, value type, pairs).
"""

import json
import math
import struct

BINARY = {"tf": 2, "i8": 3, "dbl": 4, "i16": 6, "i32": 8, "i64": 10, "str": 11, "rec": 12, "map": 13,
          "set": 14, "lst": 15}
COMPACT = {"tf": 1, "i8": 3, "dbl": 7, "i16": 4, "i32": 5, "i64": 6, "str": 8, "rec": 12, "map": 11,
           "set": 10, "lst": 9}
OF_BINARY = {number: name for name, number in BINARY.items()}
OF_COMPACT = {**{number: name for name, number in COMPACT.items()}, 2: "tf"}
SIZES = {"i8": "b", "i16": "h", "i32": "i", "i64": "q"}


class WrongBytes(Exception):
    pass


class Binary:
    """Writes and reads big-endian numbers of fixed size."""

    def write_message(self, name, kind, seqid, record):
        return (b"\x80\x01\x00" + struct.pack(">B", kind) + self.text(name) +
                struct.pack(">i", seqid) + self.record(record))

    def text(self, value):
        return struct.pack(">i", len(value)) + value

    def record(self, fields):
        return b"".join(struct.pack(">Bh", BINARY[kind], number) + self.value(kind, value)
                        for number, kind, value in fields) + b"\0"

    def value(self, kind, value):
        if kind == "tf":
            return b"\1" if value else b"\0"
        if kind in SIZES:
            return struct.pack(">" + SIZES[kind], value)
        if kind == "dbl":
            return struct.pack(">d", value)
        if kind == "str":
            return self.text(value)
        if kind == "rec":
            return self.record(value)
        if kind == "map":
            keys, values, pairs = value
            return struct.pack(">BBi", BINARY[keys], BINARY[values], len(pairs)) + b"".join(
                self.value(keys, k) + self.value(values, v) for k, v in pairs)
        of, elements = value
        return struct.pack(">Bi", BINARY[of], len(elements)) + b"".join(
            self.value(of, each) for each in elements)

    def read_message(self, take):
        if take(3) != b"\x80\x01\x00":
            raise WrongBytes("not a binary message")
        kind = take(1)[0]
        name = self.read("str", take)
        return name, kind, self.read("i32", take), self.read("rec", take)

    def read(self, kind, take):
        if kind == "tf":
            return take(1) != b"\0"
        if kind in SIZES:
            form = ">" + SIZES[kind]
            return struct.unpack(form, take(struct.calcsize(form)))[0]
        if kind == "dbl":
            return struct.unpack(">d", take(8))[0]
        if kind == "str":
            return take(self.read("i32", take))
        if kind == "rec":
            fields = []
            while (number := take(1)[0]) != 0:
                field, of = self.read("i16", take), OF_BINARY[number]
                fields.append((field, of, self.read(of, take)))
            return fields
        if kind == "map":
            keys, values = OF_BINARY[take(1)[0]], OF_BINARY[take(1)[0]]
            return keys, values, [(self.read(keys, take), self.read(values, take))
                                  for _ in range(self.read("i32", take))]
        of = OF_BINARY[take(1)[0]]
        return of, [self.read(of, take) for _ in range(self.read("i32", take))]


def varint(value):
    written = bytearray()
    while value > 0x7f:
        written.append(value & 0x7f | 0x80)
        value >>= 7
    return bytes(written) + bytes([value])


def read_varint(take):
    value = shift = 0
    while True:
        byte = take(1)[0]
        value |= (byte & 0x7f) << shift
        shift += 7
        if byte < 0x80:
            return value


def zigzag(value):
    return varint(value * 2 if value >= 0 else -value * 2 - 1)


def read_zigzag(take):
    value = read_varint(take)
    return value // 2 if value % 2 == 0 else -(value + 1) // 2


class Compact:
    """Writes and reads numbers of varying size, and a field's id and type in one byte if it can."""

    def write_message(self, name, kind, seqid, record):
        return (bytes([0x82, kind * 32 + 1]) + varint(seqid & 0xffffffff) + self.text(name) +
                self.record(record))

    def text(self, value):
        return varint(len(value)) + value

    def record(self, fields):
        written, before = [], 0
        for number, kind, value in fields:
            code = 2 if kind == "tf" and not value else COMPACT[kind]
            step = number - before
            before = number
            written.append(bytes([step * 16 + code]) if 1 <= step <= 15
                           else bytes([code]) + zigzag(number))
            if kind != "tf":
                written.append(self.value(kind, value))
        return b"".join(written) + b"\0"

    def value(self, kind, value):
        if kind == "tf":
            return b"\1" if value else b"\2"
        if kind == "i8":
            return struct.pack("b", value)
        if kind in SIZES:
            return zigzag(value)
        if kind == "dbl":
            return struct.pack("<d", value)
        if kind == "str":
            return self.text(value)
        if kind == "rec":
            return self.record(value)
        if kind == "map":
            keys, values, pairs = value
            return varint(len(pairs)) + (bytes([COMPACT[keys] * 16 + COMPACT[values]]) if pairs
                                         else b"") + b"".join(
                self.value(keys, k) + self.value(values, v) for k, v in pairs)
        of, elements = value
        head = (bytes([len(elements) * 16 + COMPACT[of]]) if len(elements) <= 14
                else bytes([0xf0 + COMPACT[of]]) + varint(len(elements)))
        return head + b"".join(self.value(of, each) for each in elements)

    def read_message(self, take):
        first = take(2)
        if first[0] != 0x82 or first[1] % 32 != 1:
            raise WrongBytes("not a compact message")
        seqid = read_varint(take)
        if seqid >= 1 << 31:
            seqid -= 1 << 32
        return self.read("str", take), first[1] // 32, seqid, self.read("rec", take)

    def read(self, kind, take):
        if kind == "tf":
            return take(1) == b"\1"
        if kind == "i8":
            return struct.unpack("b", take(1))[0]
        if kind in SIZES:
            return read_zigzag(take)
        if kind == "dbl":
            return struct.unpack("<d", take(8))[0]
        if kind == "str":
            return take(read_varint(take))
        if kind == "rec":
            fields, before = [], 0
            while (head := take(1)[0]) != 0:
                step, code = divmod(head, 16)
                before = before + step if step else read_zigzag(take)
                of = OF_COMPACT[code]
                fields.append((before, of, code == 1 if of == "tf" else self.read(of, take)))
            return fields
        if kind == "map":
            count = read_varint(take)
            if count == 0:
                return None, None, []
            keys, values = (OF_COMPACT[code] for code in divmod(take(1)[0], 16))
            return keys, values, [(self.read(keys, take), self.read(values, take))
                                  for _ in range(count)]
        count, code = divmod(take(1)[0], 16)
        if count == 15:
            count = read_varint(take)
        return OF_COMPACT[code], [self.read(OF_COMPACT[code], take) for _ in range(count)]


class Text:
    """Writes and reads JSON."""

    def write_message(self, name, kind, seqid, record):
        return (f'[1,{self.text(name)},{kind},{seqid},{self.record(record)}]').encode()

    def text(self, value):
        # Characters beyond ASCII as they are, or as \u and digits; both are allowed.
        return json.dumps(value.decode(), ensure_ascii=len(value) % 2 == 0)

    def record(self, fields):
        return "{" + ",".join(f'"{number}":{{"{kind}":{self.value(kind, value)}}}'
                              for number, kind, value in fields) + "}"

    def value(self, kind, value):
        if kind == "tf":
            return "1" if value else "0"
        if kind in SIZES:
            return str(value)
        if kind == "dbl":
            if math.isnan(value):
                return '"NaN"'
            if math.isinf(value):
                return '"Infinity"' if value > 0 else '"-Infinity"'
            return repr(value)
        if kind == "str":
            return self.text(value)
        if kind == "rec":
            return self.record(value)
        if kind == "map":
            keys, values, pairs = value
            return f'["{keys}","{values}",{len(pairs)},{{' + ",".join(
                f'{self.key(keys, k)}:{self.value(values, v)}' for k, v in pairs) + "}]"
        of, elements = value
        return "[" + ",".join([f'"{of}"', str(len(elements)),
                               *(self.value(of, each) for each in elements)]) + "]"

    def key(self, kind, value):
        written = self.value(kind, value)
        return written if written.startswith('"') else f'"{written}"'

    def read_message(self, take):
        """Takes bytes up to the bracket that ends the message."""
        read, depth, quoted, escaped = bytearray(), 0, False, False
        while not read or depth:
            byte = take(1)
            read += byte
            if escaped:
                escaped = False
            elif quoted:
                escaped, quoted = byte == b"\\", byte != b'"'
            elif byte == b'"':
                quoted = True
            elif byte in b"[{":
                depth += 1
            elif byte in b"]}":
                depth -= 1
        version, name, kind, seqid, record = json.loads(read, object_pairs_hook=list)
        if version != 1:
            raise WrongBytes("not version 1")
        return name.encode(), kind, seqid, self.fields(record)

    def fields(self, record):
        fields = []
        for number, value in record:
            [(kind, inner)] = value
            fields.append((int(number), kind, self.fields(inner) if kind == "rec" else
                           inner.encode() if kind == "str" else
                           inner == 1 if kind == "tf" else inner))
        return fields


PROTOCOLS = {"binary": Binary(), "compact": Compact(), "json": Text()}


class Wire:
    """Messages over a connected socket."""

    def __init__(self, connection, protocol, framed):
        self.connection = connection
        self.protocol = PROTOCOLS[protocol]
        self.framed = framed
        self.received = b""
        self.at = 0

    def packed(self, message):
        written = self.protocol.write_message(*message)
        return struct.pack(">I", len(written)) + written if self.framed else written

    def send(self, message):
        self.connection.sendall(self.packed(message))

    def take(self, count):
        while len(self.received) - self.at < count:
            more = self.connection.recv(65536)
            if not more:
                raise EOFError("the connection has ended")
            self.received = self.received[self.at:] + more
            self.at = 0
        self.at += count
        return self.received[self.at - count:self.at]

    def receive(self):
        if not self.framed:
            return self.protocol.read_message(self.take)
        frame = self.take(struct.unpack(">I", self.take(4))[0])
        at = 0

        def take(count):
            nonlocal at
            if at + count > len(frame):
                raise WrongBytes("the frame is too short")
            at += count
            return frame[at - count:at]
        message = self.protocol.read_message(take)
        if at != len(frame):
            raise WrongBytes("the frame is too long")
        return message

    def ended(self):
        """Whether nothing more comes."""
        return self.at == len(self.received) and self.connection.recv(1) == b""
