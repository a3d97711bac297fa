"""MQTT 5 packets as parts, so that a single part can be spoilt."""

import dataclasses
import struct

from paho.mqtt.packettypes import PacketTypes
from paho.mqtt.properties import Properties, VariableByteIntegers

from protocol import varint

CONNECT, CONNACK, PUBLISH, PUBACK, PUBREC, PUBREL, PUBCOMP = range(1, 8)
SUBSCRIBE, SUBACK, UNSUBSCRIBE, UNSUBACK, PINGREQ, PINGRESP, DISCONNECT, AUTH = range(8, 16)

BYTE, TWO, FOUR, VARIABLE, BINARY, STRING, PAIR = range(7)  # paho's numbers
PROPERTY_KINDS = {number: kind for number, (kind, _)
                  in Properties(PacketTypes.CONNECT).properties.items()}
CONTENT_TYPE, RESPONSE_TOPIC, CORRELATION_DATA, REASON_STRING, USER_PROPERTY = 3, 8, 9, 31, 38


def counted(data):
    return struct.pack(">H", len(data)) + data


@dataclasses.dataclass
class Packet:
    """`properties` are encoded, or None in a packet that has none; `tail` is what follows them."""
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


def parsed(first, body):
    """A broker's packet."""
    kind, flags = first >> 4, first & 15
    head = {CONNACK: 2, SUBACK: 2, UNSUBACK: 2, DISCONNECT: 1}.get(kind, 3)
    if kind == PUBLISH:
        head = 2 + int.from_bytes(body[:2], "big") + (2 if flags & 6 else 0)
    if len(body) <= head:
        return Packet(kind, flags, body)
    length, size = VariableByteIntegers.decode(body[head:head + 4])
    begin, end = head + size, head + size + length
    return Packet(kind, flags, body[:head], [body[begin:end]], body[end:])
