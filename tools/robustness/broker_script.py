"""What a broker with a unit, clients and senders behind it would say on one connection, as packets."""

import struct

from protocol import ANNOUNCEMENT, BLOB_GET, BLOB_SET, READ_TOPIC, WRITE_TOPIC, field, read_reply, record
from packets import (CONNACK, CONNECT, CONTENT_TYPE, CORRELATION_DATA, PINGREQ, PINGRESP, PUBACK, PUBCOMP, PUBLISH,
                  PUBREC, PUBREL, REASON_STRING, RESPONSE_TOPIC, SUBACK, SUBSCRIBE, UNSUBACK, UNSUBSCRIBE,
                  USER_PROPERTY, Fields, Packet, counted, publish, text_property)

RECORDS = [record(n, 0xf190, n, b"value %d" % n) for n in (1, 288, 300, 2**32 - 1)]
PROTOBUF = text_property(CONTENT_TYPE, b"application/x-protobuf")
ERROR_TEXT = bytes([USER_PROPERTY]) + counted(b"error") + counted(b"the store is \xe2\x80\xaeon fire")
REPLY_TOPIC = b"clients/hostile/reply"


def requested(correlation):
    return [text_property(RESPONSE_TOPIC, REPLY_TOPIC), text_property(CORRELATION_DATA, correlation),
            b"\x02" + struct.pack(">I", 5), PROTOBUF]


class BrokerScript:
    """Answers as a broker does, with messages of its own for whoever has subscribed."""

    def __init__(self, rng):
        self.rng, self.packet_id, self.filters, self.has_unit = rng, 0, [], True

    def next_id(self):
        self.packet_id += 1
        return self.packet_id

    def answers(self, first, body):
        """The packets that a packet of the program's calls for."""
        kind, fields = first >> 4, Fields(body)
        if kind == CONNECT:
            fields.take(10)  # name and version of the protocol, flags, keepalive
            fields.properties()
            self.has_unit = not fields.counted().startswith(b"korvid-unit")
            return [Packet(CONNACK, 0, b"\0\0", [b"\x22\0\x0a", b"\x21\0\x14"])]
        if kind == PINGREQ:
            return [Packet(PINGRESP)]
        if kind == SUBSCRIBE:
            return self.subscribed(fields)
        if kind == UNSUBSCRIBE:
            return [Packet(UNSUBACK, 0, fields.take(2), [], b"\0")]
        if kind == PUBLISH:
            return self.published(first >> 1 & 3, fields)
        if kind == PUBREC:
            return [Packet(PUBREL, 2, body[:2])]
        return [Packet(PUBCOMP, 0, body[:2])] if kind == PUBREL else []

    def subscribed(self, fields):
        packet_id, granted, messages = fields.take(2), b"", []
        fields.properties()
        while fields.at < len(fields.body):
            topic, options = fields.counted(), fields.number(1)
            granted += bytes([options & 3])
            self.filters.append(topic)
            messages += self.messages_for(topic.decode())
        return [Packet(SUBACK, 0, packet_id, [], granted), *messages]

    def messages_for(self, topic):
        """What others say on a topic that has been subscribed."""
        sent, correlation = [], self.rng.randbytes(16)
        if topic == READ_TOPIC:
            sent = [(b"", requested(correlation)), (field(1, b"\xa0\x02\x07"), requested(correlation))]
        elif topic == WRITE_TOPIC:
            sent = [(field(1, RECORDS[1]), requested(correlation)), (b"", requested(correlation))]
        elif topic == BLOB_SET:
            sent = [(self.rng.randbytes(self.rng.choice((1, 500, 100_000))), [])]
        elif topic == ANNOUNCEMENT:
            sent = [(BLOB_GET.encode(), []), (topic.encode(), []), (b"elsewhere", [])]
        elif topic not in (BLOB_GET,) and not topic.startswith("clients/"):
            topic = topic.replace("+", "x").replace("#", "x/y")
            sent = [(self.rng.randbytes(n), [text_property(CONTENT_TYPE, b"text")] * (n % 2)) for n in (0, 9, 5000)]
        return [self.message(topic.encode(), payload, properties) for payload, properties in sent]

    def message(self, topic, payload, properties):
        return publish(topic, payload, *properties, qos=self.rng.choice((0, 1, 1, 2)), packet_id=self.next_id())

    def published(self, qos, fields):
        topic, packet_id = fields.counted().decode(), fields.take(2) if qos else b""
        properties, payload = fields.properties(), fields.body[fields.at:]
        heard = 0 if self.has_unit else 0x10
        answers = [Packet(PUBACK if qos == 1 else PUBREC, 0, packet_id + bytes([heard]), [])] if qos else []
        reply_topic = properties.get(RESPONSE_TOPIC)
        if reply_topic and self.has_unit and topic in (READ_TOPIC, WRITE_TOPIC):
            reply = read_reply(*RECORDS) if topic == READ_TOPIC else field(2, 1)
            said = [text_property(CORRELATION_DATA, properties.get(CORRELATION_DATA, b"")),
                    self.rng.choice((PROTOBUF, PROTOBUF, PROTOBUF, ERROR_TEXT))]
            answers.append(self.message(reply_topic, reply, said))
        if topic == ANNOUNCEMENT and payload.decode() in map(bytes.decode, self.filters):
            blob = self.rng.randbytes(self.rng.choice((0, 10, 3000, 200_000)))
            answers.append(self.message(payload, blob, []))
        return answers


def told(reason):
    """A reason string as a hostile broker writes it: it reorders the terminal's text."""
    return text_property(REASON_STRING, b"it says \xe2\x80\xae" + reason)
