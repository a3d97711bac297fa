"""Spoils a broker's packets: each mutation turns one packet into what is sent in its place.

What is sent is a list of bytes, and of functions of the connection for all that is not bytes.
"""

import dataclasses
import random
import struct

from protocol import varint
from packets import (AUTH, BYTE, CONNACK, CONNECT, DISCONNECT, FOUR, PAIR, PINGRESP, PROPERTY_KINDS,
                     PUBACK, PUBCOMP, PUBREC, PUBREL, REASON_STRING, SUBACK, SUBSCRIBE, TWO,
                     UNSUBACK, USER_PROPERTY, VARIABLE, Packet, counted, publish, text_property)

HUGE = b"\xff\xff\xff\x7f"  # the largest remaining length
TOPICS = (b"", b"+", b"#", b"a/\0/b", b"clients/korvid-0000000000000000/reply",
          b"system/vard/secstore/get", b"system/vard/sysparam/read", b"\xff\xfe", b"x" * 65535)
STRINGS = (b"", b"\0", b"\xed\xa0\x80", b"\xff", b"clients/#", b"\x1b[2J\xe2\x80\xae",
           b"s" * 65535, b"plain")
ERROR_TEXT = text_property(USER_PROPERTY, b"error") + counted(b"the store is \xe2\x80\xaeon fire")


def told(reason):
    """A reason string as a hostile broker writes it: it reorders the terminal's text."""
    return text_property(REASON_STRING, b"it says \xe2\x80\xae" + reason)


def odd_property(rng):
    """A property that MQTT knows, where it may not belong, with an odd value."""
    number = rng.choice(list(PROPERTY_KINDS))
    kind = PROPERTY_KINDS[number]
    sized = {BYTE: 1, TWO: 2, FOUR: 4}
    if kind in sized:
        value = rng.choice((0, 1, 2, 255, (1 << 8 * sized[kind]) - 1))
        return bytes([number]) + value.to_bytes(4, "big")[-sized[kind]:]
    if kind == VARIABLE:
        return bytes([number]) + rng.choice((b"\0", b"\1", HUGE, b"\x80\x80\x80\x80\x01"))
    texts = (rng.choice(STRINGS) for _ in range(2 if kind == PAIR else 1))
    return bytes([number]) + b"".join(map(counted, texts))


def flipped(rng, data, most=8):
    data = bytearray(data)
    for _ in range(rng.randint(1, most) if data else 0):
        data[rng.randrange(len(data))] ^= 1 << rng.randrange(8)
    return bytes(data)


def unasked(rng):
    """A packet that nothing called for."""
    packet_id = struct.pack(">H", rng.choice((0, 1, 2, 3, 65535)))
    reason = bytes([rng.randrange(256)])
    return rng.choice((
        Packet(CONNACK, 0, b"\0" + reason, [told(b"again")]),
        Packet(CONNECT, 0, b"\0\4MQTT\5\2\0\0\0\0\0"),
        Packet(PUBACK, 0, packet_id + reason, [told(b"why not")]), Packet(PUBREC, 0, packet_id),
        Packet(PUBCOMP, 0, packet_id), Packet(PUBREL, 2, packet_id),
        Packet(SUBACK, 0, packet_id, [], reason * 3), Packet(UNSUBACK, 0, packet_id, [], b""),
        Packet(PINGRESP), Packet(AUTH, 0, reason, [odd_property(rng)]),
        Packet(DISCONNECT, 0, reason, [told(b"leave"), b"\x1c" + counted(b"elsewhere:1\x1b")]),
        Packet(0), Packet(SUBSCRIBE, 2),
        publish(rng.choice(TOPICS), rng.randbytes(rng.choice((0, 20))),
                *[odd_property(rng) for _ in range(3)], qos=rng.randrange(4),
                packet_id=rng.choice((0, 1, 65535)), flags=rng.choice((0, 1, 8, 9)))))


def changed(packet, **parts):
    return [dataclasses.replace(packet, **parts).encoded()]


def lengthened(packet, length):
    return [packet.encoded()[:1] + length + packet.body()]


def truncated(rng, packet):
    return packet.encoded()[:rng.randrange(len(packet.encoded()))]


def with_odd_properties(rng, packet):
    added = [odd_property(rng) for _ in range(rng.choice((1, 1, 2, 5)))]
    properties = (packet.properties or []) + added * rng.choice((1, 1, 2, 200))
    return changed(packet, properties=properties)


def with_a_wrong_length_inside(rng, packet):
    body = bytearray(packet.body() + b"\0\0")
    at = rng.randrange(min(len(body) - 1, 40))
    body[at:at + 2] = rng.choice((b"\0\0", b"\xff\xff", b"\x00\xff", rng.randbytes(2)))
    head = packet.encoded()[:-len(packet.body()) or None]
    return [head + bytes(body[:-2])]


def flood(rng, packet):
    sent = publish(rng.choice(TOPICS[4:7]), rng.randbytes(rng.choice((0, 100, 2000)))).encoded()
    return [sent * 50] * rng.randint(1, 20) + [packet.encoded()]


MUTATIONS = {
    "flipped bits": lambda rng, p: [flipped(rng, p.encoded())],
    "flipped payload": lambda rng, p: changed(p, tail=flipped(rng, p.tail)),
    "random payload": lambda rng, p: changed(p, tail=rng.randbytes(rng.randrange(300))),
    "odd head": lambda rng, p: changed(p, head=flipped(rng, p.head, 2)),
    "truncated": lambda rng, p: [truncated(rng, p)],
    "truncated and closed": lambda rng, p: [truncated(rng, p), lambda c: c.close_link()],
    "longer than it is": lambda rng, p: lengthened(
        p, varint(len(p.body()) + rng.choice((1, 2, 300)))),
    "shorter than it is": lambda rng, p: lengthened(p, varint(rng.randint(0, len(p.body())))),
    "huge length": lambda rng, p: lengthened(
        p, rng.choice((HUGE, b"\xff\xff\xff\xff\x7f", b"\x80\x80\x80\x80"))),
    "wrong length inside": with_a_wrong_length_inside,
    "odd properties": with_odd_properties,
    "no properties": lambda rng, p: changed(p, properties=None),
    "other kind": lambda rng, p: changed(p, kind=rng.randrange(16)),
    "other flags": lambda rng, p: changed(p, flags=rng.randrange(16)),
    "repeated": lambda rng, p: [p.encoded()] * rng.choice((2, 2, 50)),
    "left out": lambda rng, p: [],
    "held back": lambda rng, p: [lambda c: c.hold_back(p.encoded())],
    "unasked before": lambda rng, p: [unasked(rng).encoded(), p.encoded()],
    "unasked behind": lambda rng, p: [p.encoded(), unasked(rng).encoded()],
    "garbage": lambda rng, p: [rng.randbytes(rng.randint(1, 300))],
    "flood": flood,
    "pour": lambda rng, p: [p.encoded(), lambda c: c.pour(flood(rng, p)[0])],
    "bytes one by one": lambda rng, p: [bytes([byte]) for byte in p.encoded()[:300]],
    "closed": lambda rng, p: [lambda c: c.close_link()],
    "reset": lambda rng, p: [lambda c: c.reset_link()],
    "stalled": lambda rng, p: [lambda c: c.stall()],
    "deaf": lambda rng, p: [lambda c: c.stall(deaf=True)],
}


class Mutator:
    """For one connection: which packets are spoilt, and how."""

    def __init__(self, rng: random.Random):
        self.rng = rng
        self.at, self.rate = rng.choice((rng.randrange(12), 0)), rng.choice((0, 0, 0.1, 0.4))
        self.count, self.done = -1, []

    def sent(self, packet):
        self.count += 1
        if self.count != self.at and self.rng.random() >= self.rate:
            return [packet.encoded()]
        name = self.rng.choice(list(MUTATIONS))
        self.done.append(name)
        return MUTATIONS[name](self.rng, packet)
