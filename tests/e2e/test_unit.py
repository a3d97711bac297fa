"""The unit's side of the broker protocol, spoken by hand, and its ends."""

import functools
import itertools
import os
import pathlib
import re
import shutil
import signal
import subprocess
import time

import pytest

from harness import HI, HI_BLOCK, gets_signals_at_once, needs_root
from packets import CONNECT, SUBSCRIBE
from processes import DEMO_UNIT, Running, Unit, await_that, end, free_port, run_korvid, scaled
from protocol import BLOB_SET, PRESENCE, READ_TOPIC, WRITE_TOPIC, block, field, read_reply, record

run_unit = functools.partial(Running, program="korvid-unit")


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
    writes = [record(288, None, None, b"\0new"), record(77, None, None, b"made")]
    writes += [record(77, n) for n in range(40)]  # the last one counts
    write = b"".join(field(1, written) for written in writes)
    assert asking.request(WRITE_TOPIC, write).payload == field(2, 42)
    assert run_korvid("get", "288", port=broker.port).out == block(288, 255, 10, b"\0new")
    made = record(77, 39, None, b"made")
    assert asking.request(READ_TOPIC, field(1, 77)).payload == read_reply(made)


def test_bad_requests_are_answered_with_an_error_or_dropped_and_harm_nothing(unit, broker, peer):
    asking = peer(broker.port, "clients/#", "elsewhere/#")
    bad = [*itertools.product([READ_TOPIC, WRITE_TOPIC], [b"\xff" * 9, b"\x0a\x7f", b"\x00"]),
           (WRITE_TOPIC, field(1, record(None, 1, 1, b"nameless")))]
    for topic, payload in bad:
        reply = asking.request(topic, payload)
        assert reply.payload == b"", (topic, payload)
        assert dict(reply.properties.UserProperty)["error"], (topic, payload)
    write, answered = field(1, record(288, None, None, b"unasked")), len(asking.messages)
    for where in "elsewhere/reply", BLOB_SET, "clients/test/reply":
        retain = where == "clients/test/reply"
        asking.publish(WRITE_TOPIC, write, retain=retain, ResponseTopic=where,
                       CorrelationData=b"x" * 16)
    asking.publish(WRITE_TOPIC, write, CorrelationData=b"x" * 16)
    asking.publish(BLOB_SET, b"an older blob", retain=True)
    assert asking.request(READ_TOPIC, field(1, 288)).payload == read_reply(HI)
    assert len(asking.messages) == answered + 1
    assert run_korvid("getsec", port=broker.port).status == 1


def test_a_unit_that_always_has_more_to_read_takes_no_request_for_a_late_one(
        broker, new_unit, peer, tmp_path):
    blocks = [block(n, 1, 1, b"value-%08d" % n) for n in range(3000)]
    (tmp_path / "many.txt").write_bytes(b"".join(blocks))
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


def own_broker(unit):
    number = unit.process.pid
    return int(pathlib.Path(f"/proc/{number}/task/{number}/children").read_text())


@needs_root
def test_the_units_own_broker_is_nobodys_else_and_ends_with_it(tmp_path, broker):
    port = free_port()
    unit = Unit(tmp_path, port, "-b", host="elsewhere.invalid", ca_file="/no/such", username="me")
    for number in signal.SIGTERM, signal.SIGINT, signal.SIGKILL:
        assert run_korvid("get", port=port).err == ""  # an empty unit
        assert os.stat(f"/proc/{own_broker(unit)}").st_uid != 0
        if number == signal.SIGKILL:
            unit.kill()
        else:
            unit.stop(number)
            assert "refused" in run_korvid("get", port=port).err
        unit.start()
    os.kill(own_broker(unit), signal.SIGKILL)
    assert unit.process.wait(scaled(5)) == 1 and "the broker ended" in unit.log.read_text()
    second = run_unit("-b", "-d", tmp_path / "x.db", port=broker.port).result()
    assert second.status == 1, second
    assert f"127.0.0.1:{broker.port}: Address already in use" in second.err, second


def test_a_second_unit_says_so_and_a_listener_that_does_not_answer_is_none(
        broker, unit, peer, tmp_path, new_broker):
    watching = peer(broker.port, PRESENCE, READ_TOPIC)
    unit.process.send_signal(signal.SIGSTOP)
    killed = run_unit("-d", tmp_path / "2.db", port=broker.port)
    await_that(lambda: len(watching.messages) == 2, "the second unit asks")
    killed.process.kill()
    unit.process.send_signal(signal.SIGCONT)
    second = run_unit("-d", tmp_path / "2.db", port=broker.port).result()
    assert [m.payload for m in watching.messages if m.topic == PRESENCE] == [b"online"]
    assert second.status == 1 and second.out == b"", second
    serves = "another unit already serves parameters on the broker at"
    assert f"{serves} 127.0.0.1:{broker.port}\n" in second.err
    (tmp_path / "acl").write_text("topic read #\n")
    for lines, warning in (
            ((), "Somebody listens .* no reply within 300 ms"),
            ((f"acl_file {tmp_path / 'acl'}",), "Not authorized.* Without the right to publish")):
        elsewhere = new_broker(*lines)
        peer(elsewhere.port, "#")
        (tmp_path / "else").mkdir(exist_ok=True)
        listened_to = Unit(tmp_path / "else", elsewhere.port, request_timeout_ms=300)
        listened_to.stop()
        log = listened_to.log.read_text()
        assert re.search(f"^WARNING: .*{warning}", log, re.M), log


@gets_signals_at_once
@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT])
def test_a_signal_ends_the_start_at_any_moment(broker, scripted, peer, tmp_path, number):
    """While it reads an import, connects, waits for a grant, or for a reply of another unit."""
    os.mkfifo(tmp_path / "fifo")
    peer(broker.port, "#")
    cases = ((broker.port, "-i", tmp_path / "fifo"), (broker.port, "-i", "-"), (broker.port,),
             (scripted({CONNECT: b""}).port,), (scripted({SUBSCRIBE: b""}).port,))
    starts = [run_unit("-d", tmp_path / f"{n}.db", *more, port=port, stdin=subprocess.PIPE,
                       connect_timeout_ms=20000, request_timeout_ms=20000)
              for n, (port, *more) in enumerate(cases)]
    with open(tmp_path / "fifo", "wb") as feed:
        feed.write(HI_BLOCK)
        feed.flush()
        time.sleep(scaled(0.4))
        for start in starts:
            assert start.process.poll() is None, start.result()
            began = time.monotonic()
            assert end(start.process, number) == 0 and time.monotonic() - began < scaled(1)
    assert not (tmp_path / "0.db").exists() and not (tmp_path / "1.db").exists()


def test_an_import_tells_what_it_did_and_can_replace_the_store(broker, tmp_path):
    dump = tmp_path / "dump"
    for blocks, option, words in (
            ([HI_BLOCK, block(7, 0, 0, b"")], "-b",
             "2 added, 0 changed, 0 unchanged; the store holds 0"),
            ([HI_BLOCK, block(9, 0, 0, b"")], "-b",
             "1 added, 0 changed, 1 unchanged; the store holds 1"),
            ([b'{"otaid": "0x120", "text": "Ho"}\n'], "--replace",
             "0 added, 1 changed, 0 unchanged; removed 2")):
        dump.write_bytes(b"".join(blocks))
        unit = Unit(tmp_path, broker.port if option != "-b" else free_port(), "-i", dump, option)
        got = run_korvid("get", port=unit.command[2])
        unit.stop()
        printed = f"korvid-unit: imported {len(blocks)} parameters from {dump}: {words} others\n"
        assert unit.log.read_text().endswith(printed), unit.log.read_text()
    assert got.out == block(288, 255, 10, b"Ho")


@needs_root
def test_a_store_that_cannot_be_written_is_read_unless_a_log_stands_beside_it(
        broker, unit, new_unit, tmp_path):
    shielded = ["unshare", "-m", "sh", "-c", f'mount --bind {tmp_path} {tmp_path}; '
                f'mount -o remount,ro,bind {tmp_path}; exec "$@"', "-"]
    assert run_korvid("set", "288", "str", "logged", port=broker.port).status == 0
    unit.kill()
    refused = run_unit("-d", tmp_path / "unit.db", port=broker.port, prefix=shielded).result()
    assert refused.status == 1 and str(tmp_path / "unit.db") in refused.err, refused
    unit.start()
    unit.stop()
    new_unit(broker.port, prefix=shielded)
    assert run_korvid("get", "288", port=broker.port).out == HI_BLOCK
    assert "readonly" in run_korvid("set", "288", "str", "x", port=broker.port).err


def test_a_unit_comes_back_after_its_broker_and_says_once_why_it_cannot(unit, broker):
    open_to_all = broker.config.read_text()
    broker.stop()
    broker.config.write_text(open_to_all.replace("allow_anonymous true", "allow_anonymous false"))
    broker.start()
    await_that(lambda: "Not authorized" in unit.log.read_text(), "a word of the refusal", 20)
    time.sleep(1)
    assert len(re.findall("^WARNING: .*Not authorized", unit.log.read_text(), re.M)) == 1
    broker.stop()
    broker.config.write_text(open_to_all)
    broker.start()
    await_that(lambda: run_korvid("get", "288", port=broker.port).out == HI_BLOCK, "it is back", 40)


def test_presence_is_true_and_replies_arrive_however_a_unit_ends(broker, new_unit, peer, proxy):
    watching, asking = peer(broker.port, PRESENCE), peer(broker.port, "clients/test/reply")

    def shown():
        return watching.messages[-1].payload

    link = proxy(broker.port, latency=0.1)
    unit = new_unit(link.port, "-l", "DEBUG", "-i", DEMO_UNIT)
    for n in range(60):
        asking.publish(READ_TOPIC, field(1, 288), wait=False, ResponseTopic="clients/test/reply",
                       CorrelationData=b"%d" % n)
    await_that(lambda: unit.log.read_text().count("Answered") == 60, "60 answers", 20)
    unit.stop()
    await_that(lambda: shown() == b"offline" and len(asking.messages) == 60, "all replies")

    unit.start()
    await_that(lambda: shown() == b"online", "the unit is back")
    link.close()
    await_that(lambda: shown() == b"offline", "the link is lost")
    again = proxy(broker.port, latency=0.3, port=link.port)
    await_that(lambda: again.upstream, "the unit connects again", 20)
    unit.stop()
    time.sleep(1)
    assert shown() == b"offline"


@pytest.mark.parametrize("arguments, words", [
    (["-x"], "x"), (["-i"], "i"), (["-i", "/no/file"], "/no/file"), (["-r", "abc"], "abc"),
    (["-d", "/no/dir/unit.db"], "/no/dir/unit.db"), (["stray"], "stray"), (["-p", "1"], "refused"),
    (["-b", "-H", "elsewhere"], "elsewhere"), (["--replace"], "--import"),
    (["-i", "/dev/null", "--replace"], "/dev/null"), (["-i", "cut"], "cut:12: expected"),
    (["-d", ""], "--db needs a value; try -h"), (["-d", ":memory:"], ":memory:"),
    (["-b", "-p", "x"], "port"),
])
def test_a_unit_that_cannot_start_says_why(broker, tmp_path, arguments, words):
    (tmp_path / "cut").write_bytes((HI_BLOCK + HI_BLOCK)[:-10])
    refused = run_unit("-d", tmp_path / "unit.db", *arguments, port=broker.port,
                       prefix=["env", "-C", tmp_path]).result()
    assert refused.status == 1 and refused.out == b"" and words in refused.err, refused
    assert refused.err.count("Cannot connect") <= 1, refused
    assert "cut" not in arguments or not (tmp_path / "unit.db").exists()


DATA = sorted(pathlib.Path(__file__).parents[1].glob("data/*"))


@pytest.mark.parametrize("data", DATA, ids=lambda path: path.name)
def test_what_an_earlier_version_has_stored_or_printed_is_read(broker, new_unit, tmp_path, data):
    shutil.copy(data / "unit.db", tmp_path)
    unit = new_unit(broker.port)
    dump, blob = (data / "dump").read_bytes(), (data / "blob").read_bytes()
    assert run_korvid("get", port=broker.port).out == dump
    shown = b"SecStore blob size: %d\n%s\n" % (len(blob), blob)
    assert run_korvid("getsec", port=broker.port).out == shown
    unit.stop()
    new_unit(broker.port, "--replace", "-i", data / "dump")
    assert run_korvid("get", port=broker.port).out == dump
