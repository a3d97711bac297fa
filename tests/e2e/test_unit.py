"""The unit's side of the broker protocol, spoken by hand, and its ends."""

import itertools
import signal
import time

import pytest

from harness import (BLOB_SET, HI, HI_BLOCK, READ_TOPIC, WRITE_TOPIC, Running, Unit, await_that, block, field,
                     free_port, read_reply, record, run_korvid, scaled)


def test_requests_are_answered_with_the_bytes_of_another_encoder(unit, broker, peer):
    asking, last = peer(broker.port, "clients/#"), record(2**32 - 1, 0, 2**32 - 1, b"last")
    packed = field(1, b"\xff\xff\xff\xff\x0f" + b"\xa0\x02" + b"\x07")
    for request in packed, field(1, 7) + field(1, 288) + field(1, 2**32 - 1):
        reply = asking.request(READ_TOPIC, request)
        assert reply.payload == read_reply(HI, last) and not reply.retain and reply.qos == 1
        assert reply.properties.CorrelationData == b"0123456789abcdef"
        assert reply.properties.ContentType == "application/x-protobuf"
    everything = asking.request(READ_TOPIC, b"").payload
    assert field(1, HI) in everything and everything.endswith(field(1, last) + field(2, 41))
    write = field(1, record(288, None, None, b"\0new")) + field(1, record(77, 5, None, b"made"))
    assert asking.request(WRITE_TOPIC, write).payload == field(2, 2)
    got = run_korvid("get", "288", "77", port=broker.port)
    assert got.out == block(288, 255, 10, b"\0new") + block(77, 5, 0, b"made"), got


def test_bad_requests_are_answered_with_an_error_or_dropped_and_harm_nothing(unit, broker, peer):
    asking = peer(broker.port, "clients/#", "elsewhere/#")
    bad = [*itertools.product([READ_TOPIC, WRITE_TOPIC], [b"\xff" * 9, b"\x0a\x7f", b"\x00"]),
           (WRITE_TOPIC, field(1, record(None, 1, 1, b"nameless")))]
    for topic, payload in bad:
        reply = asking.request(topic, payload)
        assert reply.payload == b"" and dict(reply.properties.UserProperty)["error"], (topic, payload)
    write, answered = field(1, record(288, None, None, b"unasked")), len(asking.messages)
    for where in {"ResponseTopic": "elsewhere/reply"}, {"ResponseTopic": BLOB_SET}, {}:
        asking.publish(WRITE_TOPIC, write, CorrelationData=b"x" * 16, **where)
    assert asking.request(READ_TOPIC, field(1, 288)).payload == read_reply(HI)
    assert len(asking.messages) == answered + 1
    assert run_korvid("getsec", port=broker.port).status == 1


def test_a_unit_that_always_has_more_to_read_takes_no_request_for_a_late_one(broker, new_unit, peer, tmp_path):
    (tmp_path / "many.txt").write_bytes(b"".join(block(n, 1, 1, b"value-%08d" % n) for n in range(3000)))
    new_unit(broker.port, "-i", tmp_path / "many.txt")
    expiry, ends = int(scaled(1)), time.monotonic() + scaled(2.5)

    def ask(client, _reply=None):
        if time.monotonic() < ends:
            client.publish(READ_TOPIC, wait=False, ResponseTopic=client.topic, CorrelationData=b"x",
                           MessageExpiryInterval=expiry)
    asking = [peer(broker.port, f"clients/{n}/reply", on_message=ask) for n in range(2)]
    for n, client in enumerate(asking):
        client.topic = f"clients/{n}/reply"
        for _ in range(8):
            ask(client)
    await_that(lambda: time.monotonic() > ends + 0.5, "the end of the load")
    for client in asking:
        late = [m for m in client.messages if hasattr(m.properties, "UserProperty")]
        assert client.messages and not late, (len(client.messages), len(late), late[0].properties)


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT])
def test_the_unit_ends_its_own_broker_with_it(tmp_path, number):
    port = free_port()
    unit = Unit(tmp_path, port, "-b")
    assert run_korvid("get", port=port).err == ""  # an empty unit
    unit.stop(number)
    assert "refused" in run_korvid("get", port=port).err


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
