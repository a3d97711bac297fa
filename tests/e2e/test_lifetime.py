"""How units start, serve and end, and monitors end."""

import functools
import os
import re
import signal
import subprocess
import time

import pytest

from harness import HI_BLOCK, gets_signals_at_once
from packets import CONNECT, SUBSCRIBE
from processes import DEMO_UNIT, Running, await_that, end, run_korvid, scaled
from protocol import PRESENCE, READ_TOPIC, block, field

run_unit, run_monitor = (functools.partial(Running, program=f"korvid-{name}")
                         for name in ("unit", "monitor"))


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


def test_a_second_unit_does_not_start(broker, unit, peer, tmp_path):
    watching = peer(broker.port, PRESENCE, READ_TOPIC)
    unit.process.send_signal(signal.SIGSTOP)
    killed = run_unit("-d", tmp_path / "2.db", port=broker.port)
    await_that(lambda: len(watching.messages) == 2, "the second unit asks")
    killed.process.kill()
    unit.process.send_signal(signal.SIGCONT)
    assert run_unit("-d", tmp_path / "2.db", port=broker.port).result().status == 1
    assert [m.payload for m in watching.messages if m.topic == PRESENCE] == [b"online"]


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

    def await_shown(presence, what):
        await_that(lambda: watching.messages[-1].payload == presence, what)
    link = proxy(broker.port, latency=0.1)
    unit = new_unit(link.port, "-l", "DEBUG", "-i", DEMO_UNIT)
    for n in range(60):
        asking.publish(READ_TOPIC, field(1, 288), wait=False, ResponseTopic="clients/test/reply",
                       CorrelationData=b"%d" % n)
    await_that(lambda: unit.log.read_text().count("Answered") == 60, "60 answers", 20)
    unit.stop()
    await_shown(b"offline", "the unit has ended")
    await_that(lambda: len(asking.messages) == 60, "all replies")
    unit.start()
    await_shown(b"online", "the unit is back")
    link.close()
    await_shown(b"offline", "the link is lost")
    again = proxy(broker.port, latency=0.3, port=link.port)
    await_that(lambda: again.upstream, "the unit connects again", 20)
    unit.stop()
    time.sleep(1)
    assert watching.messages[-1].payload == b"offline"


@gets_signals_at_once
def test_a_signal_ends_a_monitor_that_connects_or_whose_reader_has_stopped_reading(
        broker, scripted, peer):
    connecting = run_monitor("a", port=scripted({CONNECT: b""}).port, connect_timeout_ms=20000)
    unread, publisher = run_monitor("-PQTS", "a", port=broker.port), peer(broker.port)
    time.sleep(scaled(0.4))
    for _ in range(2000):  # more blocks than a pipe holds
        publisher.publish("a", wait=False)
    time.sleep(scaled(0.4))
    for monitor, number, seconds in (connecting, signal.SIGINT, 1), (unread, signal.SIGTERM, 3):
        began = time.monotonic()
        assert end(monitor.process, number) == 0 and time.monotonic() - began < scaled(seconds)
        assert monitor.process.stderr.read() == b""
