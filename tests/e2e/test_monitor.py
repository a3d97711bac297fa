"""korvid-monitor: its blocks, its filters, and its ends."""

import json
import os
import re
import signal
import threading
import time

import pytest

from packets import CONNECT
from processes import Running, assert_no_sanitizer_report, await_that, end, scaled
from protocol import ANNOUNCEMENT

AHEAD = float(os.environ.get("KORVID_SECONDS_AHEAD", "0"))  # of the programs' clock
SECONDS = int(scaled(2))


class Monitor(Running):
    def __init__(self, *args, **options):
        super().__init__(*args, program="korvid-monitor", **options)
        self.text = b""
        threading.Thread(target=self.read, daemon=True).start()

    def read(self):
        while data := self.process.stdout.read1():
            self.text += data

    def blocks(self):
        """Blocks without the elapsed seconds, which have three digits after the point."""
        return re.split(r"^\[\d{3,}\.\d{3}\] ", self.text.decode(), flags=re.M)[1:]

    def end(self, number=signal.SIGTERM):
        status, err = end(self.process, number), self.process.stderr.read()
        assert_no_sanitizer_report(err)
        return status, err.decode()


@pytest.fixture
def monitor(ending, broker, peer):
    """A monitor that has subscribed all of its topics."""
    def make(*args):
        heard = peer(broker.port, ANNOUNCEMENT)
        peer(broker.port).client.publish("subscribed", b"", qos=1, retain=True).wait_for_publish()
        heard.client.publish("subscribed", b"1", qos=1, retain=True).wait_for_publish()
        made = Monitor(*args, "subscribed", port=broker.port)
        ending.callback(made.process.kill)
        own_block = re.compile(rb"^\[[^]]*\] subscribed\n( .*\n)*\Z", re.M)
        await_that(lambda: own_block.search(made.text), "the topics are subscribed")
        made.text = own_block.sub(b"", made.text)
        assert heard.messages == []  # it only watches
        return made
    return make


@pytest.mark.parametrize("flags, qos, lines, number", [
    ([], 0, [], signal.SIGINT), (["-S"], 0, ["size: 5"], signal.SIGTERM), (["-Q"], 1, ["QoS: 1"], signal.SIGINT),
    (["-P"], 0, ["Data: THE DATA HERE"], signal.SIGTERM),
    (["-P", "-Q", "-T", "-S"], 2, ["size: 5", "timestamp: NOW", "QoS: 2", "Data: THE DATA HERE"], signal.SIGINT),
])
def test_the_flags_choose_the_lines_of_a_block(monitor, peer, broker, flags, qos, lines, number):
    watching, before = monitor(*flags, "car/door"), time.time()
    peer(broker.port).publish("car/door", b"o\0pen", qos=qos)
    block = "\n           ".join(["car/door", *lines]) + "\n"
    await_that(lambda: watching.text.endswith(block.encode()[-10:]), "a block")
    for stamp in re.findall(r"timestamp: (\d+)", watching.text.decode()):
        assert before - 0.001 <= int(stamp) / 1000 - AHEAD <= time.time()
        block = block.replace("NOW", stamp)
    assert watching.end(number) == (0, "") and watching.blocks() == [block]


def test_a_signal_ends_a_monitor_that_connects_or_whose_reader_has_stopped_reading(broker, scripted, peer):
    connecting = Running("a", program="korvid-monitor", port=scripted({CONNECT: b""}).port, connect_timeout_ms=20000)
    unread, publisher = Running("-PQTS", "a", program="korvid-monitor", port=broker.port), peer(broker.port)
    time.sleep(scaled(0.4))
    for _ in range(2000):  # more blocks than a pipe holds
        publisher.publish("a", wait=False)
    time.sleep(scaled(0.4))
    for monitor, seconds in (connecting, 1), (unread, 3):
        began = time.monotonic()
        assert end(monitor.process) == 0 and time.monotonic() - began < scaled(seconds)


def test_filters_match_as_the_broker_matches_them(monitor, peer, broker):
    publisher = peer(broker.port)
    publisher.client.publish("kept/x", b"1", qos=1, retain=True).wait_for_publish()
    watching = monitor("a/+/c", "b/#", "a/+/c/d", "+/x")
    blocks = [t + "\n" for t in ("a//c", "a/b/c", "a/b/c/d", "b", "b/1/2", "kept/x", "q/x")]
    for topic in "a/b/c", "a/b/d", "b", "b/1/2", "a/b/c/d", "q/x", "$own/x", "bb", "a//c":
        publisher.publish(topic, b"1")
    await_that(lambda: len(watching.blocks()) >= len(blocks), "a block for each message")
    publisher.publish("end/x", b"1")
    await_that(lambda: "end/x\n" in watching.blocks(), "the last block")
    assert watching.end() == (0, "")
    assert sorted(watching.blocks()) == sorted([*blocks, "end/x\n"])


@pytest.mark.parametrize("options, status, count, words", [
    ("-C 3", 0, 3, ""), (f"-W {SECONDS}", 0, 4, ""), ("-C 4 -W 99", 0, 4, ""),
    (f"-C 9 -W {SECONDS}", 1, 4, f"korvid-monitor: 4 of 9 messages came within {SECONDS} s\n"),
])
def test_a_monitor_ends_after_so_many_messages_or_seconds(broker, peer, options, status, count, words):
    publisher, before = peer(broker.port), time.time()
    publisher.client.publish("a/0", b"\0\xff", qos=2, retain=True).wait_for_publish()
    watching = Monitor("--json", *options.split(), "a/#", port=broker.port)
    await_that(lambda: watching.text, "the retained message")
    publisher.publish("a/1", "t\u00fcr\t\n".encode(), qos=0)
    for number in range(2, 4):
        publisher.publish(f"a/{number}", b"\r")
    assert watching.process.wait(scaled(10)) == status and watching.process.stderr.read().decode() == words
    await_that(lambda: watching.text.count(b"\n") >= count, "all is read")
    got = [json.loads(line) for line in watching.text.splitlines()]
    assert all(before - 0.001 <= message.pop("timestamp") / 1000 - AHEAD <= time.time() for message in got)
    expected = [{"topic": "a/0", "qos": 2, "retain": True, "size": 2, "data": "00ff"},
                {"topic": "a/1", "qos": 0, "retain": False, "size": 6, "data": "74c3bc72090a", "text": "t\u00fcr\t\n"},
                *({"topic": f"a/{n}", "qos": 1, "retain": False, "size": 1, "data": "0d"} for n in range(2, 4))]
    assert got == expected[:count], got


@pytest.mark.parametrize("arguments, words", [
    ([], "a TOPIC is missing; try -h\n$"), (["a/#/b"], "a/#/b"), (["-p", "1", "a"], "127.0.0.1:1.*refused"),
    *((["a", *option.split()], f"{option[:2]} needs a positive whole number; try -h\n$")
      for option in ("-C 0", "-C -1", "-C 1x", "-C 4294967296", "-W 0", "-W 0.5")),
])
def test_what_cannot_be_watched(broker, arguments, words):
    got = Running(*arguments, program="korvid-monitor", port=broker.port).result()
    assert got.status == 1 and got.out == b"" and re.search("korvid-monitor: .*" + words, got.err), got
    assert got.seconds < scaled(1), got
