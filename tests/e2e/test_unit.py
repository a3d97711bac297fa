"""The unit's side of the broker protocol, spoken by hand."""

import itertools
import signal

import pytest

from harness import (BLOB_GET, BLOB_SET, HI, HI_BLOCK, READ_TOPIC, WRITE_TOPIC, Running, Unit, await_that,
                     block, field, free_port, read_reply, record, run_korvid)


@pytest.fixture
def asking(peer, unit, broker):
    return peer(broker.port, "clients/#")


def error_of(reply):
    assert reply.payload == b"", reply
    return dict(reply.properties.UserProperty)["error"]


def test_reads_are_answered_with_the_bytes_of_another_encoder(asking):
    packed = field(1, b"\xff\xff\xff\xff\x0f" + b"\xa0\x02" + b"\x07")
    unpacked = field(1, 7) + field(1, 288) + field(1, 2**32 - 1)
    for request in packed, unpacked:
        reply = asking.request(READ_TOPIC, request)
        assert reply.payload == read_reply(HI, record(2**32 - 1, 0, 2**32 - 1, b"last"))
        assert reply.properties.CorrelationData == b"0123456789abcdef"
        assert reply.properties.ContentType == "application/x-protobuf"
        assert not reply.retain and reply.qos == 1
    everything = asking.request(READ_TOPIC, b"").payload
    assert field(1, HI) in everything and everything.endswith(field(2, 41))


def test_writes_keep_absent_fields_and_create_what_is_new(asking, broker):
    request = field(1, record(288, None, None, b"\0new")) + field(1, record(77, 5, None, b"made"))
    assert asking.request(WRITE_TOPIC, request).payload == field(2, 2)
    got = run_korvid("get", "288", "77", port=broker.port)
    assert got.out == block(288, 255, 10, b"\0new") + block(77, 5, 0, b"made"), got


def test_a_bad_request_is_answered_with_an_error_and_harms_nothing(asking, broker):
    for topic, payload in itertools.product([READ_TOPIC, WRITE_TOPIC], [b"\xff" * 9, b"\x0a\x7f", b"\x00"]):
        assert error_of(asking.request(topic, payload)), (topic, payload)
    assert error_of(asking.request(WRITE_TOPIC, field(1, record(None, 1, 1, b"nameless"))))
    assert run_korvid("get", "288", port=broker.port).out == HI_BLOCK


@pytest.mark.parametrize("response", ["elsewhere/reply", BLOB_SET, None])
def test_replies_go_nowhere_but_to_a_clients_own_topic(unit, broker, peer, response):
    listening = peer(broker.port, "#")
    fields = {"ResponseTopic": response} if response else {}
    for topic in READ_TOPIC, WRITE_TOPIC:
        listening.publish(topic, field(1, HI.replace(b"Hi", b"No")), CorrelationData=b"x" * 16, **fields)
    assert listening.request(READ_TOPIC, field(1, 288)).topic == READ_TOPIC
    await_that(lambda: listening.messages[-1].topic == "clients/test/reply", "the reply to a good request")
    assert {m.topic for m in listening.messages} <= {READ_TOPIC, WRITE_TOPIC, BLOB_GET, "clients/test/reply"}
    written = block(288, 255, 10, b"No")
    assert run_korvid("get", "288", port=broker.port).out in (HI_BLOCK, written)


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT])
def test_the_unit_ends_its_own_broker_with_it(tmp_path, number):
    port = free_port()
    unit = Unit(tmp_path, port, "-b")
    assert run_korvid("get", port=port).err == ""  # an empty unit
    unit.stop(number)
    refused = run_korvid("get", port=port)
    assert "refused" in refused.err and refused.status == 1, refused


def test_a_unit_comes_back_after_its_broker(unit, broker):
    broker.stop()
    broker.start()
    await_that(lambda: run_korvid("get", "288", port=broker.port).out == HI_BLOCK, "the unit is back", 20)


@pytest.mark.parametrize("arguments, words", [
    (["-x"], "x"), (["-i"], "i"), (["-i", "/no/such/file"], "/no/such/file"), (["-r", "abc"], "abc"),
    (["-d", "/no/such/dir/unit.db"], "/no/such/dir/unit.db"), (["stray"], "stray"), (["-p", "1"], "refused"),
])
def test_a_unit_that_cannot_start_says_why(broker, tmp_path, arguments, words):
    refused = Running("-d", tmp_path / "unit.db", *arguments, program="korvid-unit", port=broker.port).result()
    assert refused.status == 1 and refused.out == b"" and words in refused.err, refused
