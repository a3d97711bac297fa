"""MQTT 5 packets as parts, so that a single part can be spoilt, and the other side's packets read."""

import dataclasses
import struct

from protocol import varint

CONNECT, CONNACK, PUBLISH, PUBACK, PUBREC, PUBREL, PUBCOMP = range(1, 8)
SUBSCRIBE, SUBACK, UNSUBSCRIBE, UNSUBACK, PINGREQ, PINGRESP, DISCONNECT, AUTH = range(8, 16)

BYTE, TWO, FOUR, VARIABLE, STRING, BINARY, PAIR = range(7)
PROPERTY_KINDS = {
    **dict.fromkeys((0x01, 0x17, 0x19, 0x24, 0x25, 0x28, 0x29, 0x2a), BYTE),
    **dict.fromkeys((0x13, 0x21, 0x22, 0x23), TWO), **dict.fromkeys((0x02, 0x11, 0x18, 0x27), FOUR),
    0x0b: VARIABLE, **dict.fromkeys((0x03, 0x08, 0x12, 0x15, 0x1a, 0x1c, 0x1f), STRING),
    **dict.fromkeys((0x09, 0x16), BINARY), 0x26: PAIR}
RESPONSE_TOPIC, CORRELATION_DATA, CONTENT_TYPE, REASON_STRING, USER_PROPERTY = 0x08, 0x09, 0x03, 0x1f, 0x26


def counted(data):
    return struct.pack(">H", len(data)) + data


@dataclasses.dataclass
class Packet:
    """`properties` are encoded ones, or None in a packet that has none; `tail` is what follows them."""
    kind: int
    flags: int = 0
    head: bytes = b""
    properties: list = None
    tail: bytes = b""

    def body(self):
        if self.properties is None:
            return self.head + self.tail
        listed = b"".join(self.properties)
        return self.head + varint(len(listed)) + listed + self.tail

    def encoded(self):
        body = self.body()
        return bytes([self.kind << 4 | self.flags]) + varint(len(body)) + body


def publish(topic, payload, *properties, qos=0, packet_id=1, flags=0):
    head = counted(topic) + (struct.pack(">H", packet_id) if qos else b"")
    return Packet(PUBLISH, qos << 1 | flags, head, list(properties), payload)


def text_property(number, data):
    return bytes([number]) + counted(data)


def read_packet(stream):
    """(first byte, body), or None at the end."""
    first = stream.read(1)
    length = shift = 0
    while first:
        byte = stream.read(1)
        if not byte:
            return None
        length, shift = length | (byte[0] & 127) << shift, shift + 7
        if byte[0] < 128:
            body = stream.read(length)
            return (first[0], body) if len(body) == length else None
    return None


class Fields:
    """Reads a packet's body from its begin."""

    def __init__(self, body):
        self.body, self.at = body, 0

    def take(self, count):
        self.at += count
        return self.body[self.at - count:self.at]

    def number(self, size):
        return int.from_bytes(self.take(size), "big")

    def variable(self):
        value = shift = 0
        while (byte := self.number(1)) > 127:
            value, shift = value | (byte & 127) << shift, shift + 7
        return value | byte << shift

    def counted(self):
        return self.take(self.number(2))

    def properties(self):
        """Number -> last value, strings and data as bytes."""
        found, end = {}, self.variable() + self.at
        read = {BYTE: lambda: self.number(1), TWO: lambda: self.number(2), FOUR: lambda: self.number(4),
                VARIABLE: self.variable, STRING: self.counted, BINARY: self.counted,
                PAIR: lambda: (self.counted(), self.counted())}
        while self.at < end:
            number = self.number(1)
            found[number] = read[PROPERTY_KINDS[number]]()
        return found
