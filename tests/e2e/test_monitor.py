"""korvid-monitor: its blocks, its filters, and its ends."""

import functools
import json
import os
import re
import signal
import time

import pytest

from harness import gets_signals_at_once
from packets import CONNECT
from processes import Running, end, scaled
from protocol import ANNOUNCEMENT

AHEAD = float(os.environ.get("KORVID_SECONDS_AHEAD", "0"))  # of the programs' clock
SECONDS = int(scaled(2))


run_monitor = functools.partial(Running, program="korvid-monitor")


def blocks(text):
    """Blocks without the elapsed seconds, which have three digits after the point."""
    return re.split(r"^\[\d{3,}\.\d{3}\] ", text.decode(), flags=re.M)[1:]


@pytest.mark.parametrize("flags, qos, lines", [
    ("", 0, []), ("-S", 0, ["size: 5"]), ("-Q", 1, ["QoS: 1"]), ("-P", 0, ["Data: THE DATA HERE"]),
    ("-P -Q -T -S", 2, ["size: 5", "timestamp: NOW", "QoS: 2", "Data: THE DATA HERE"]),
])
def test_the_flags_choose_the_lines_of_a_block(peer, broker, flags, qos, lines):
    before = time.time()
    peer(broker.port).publish("car/door", b"o\0pen", qos=qos, retain=True)
    got = run_monitor(*flags.split(), "-C", "1", "car/door", port=broker.port).result()
    block = "\n           ".join(["car/door", *lines]) + "\n"
    for stamp in re.findall(rb"timestamp: (\d+)", got.out):
        assert before - 0.001 <= int(stamp) / 1000 - AHEAD <= time.time()
        block = block.replace("NOW", stamp.decode())
    assert (got.status, got.err, blocks(got.out)) == (0, "", [block])


@gets_signals_at_once
def test_a_signal_ends_a_monitor_that_connects_or_whose_reader_has_stopped_reading(broker, scripted, peer):
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


def test_filters_match_as_the_broker_matches_them_and_a_monitor_only_watches(peer, broker):
    publisher, heard = peer(broker.port), peer(broker.port, ANNOUNCEMENT)
    publisher.publish("kept/x", b"1", retain=True)
    topics = ["a//c", "a/b/c", "a/b/c/d", "b", "b/1/2", "kept/x", "q/x", "end/x"]
    watching = run_monitor("-C", len(topics), "a/+/c", "b/#", "a/+/c/d", "+/x", port=broker.port)
    first = watching.process.stdout.readline()
    for topic in "a/b/c", "a/b/d", "b", "b/1/2", "a/b/c/d", "q/x", "$own/x", "bb", "a//c", "end/x":
        publisher.publish(topic, b"1")
    got = watching.result()
    assert (got.status, got.err, heard.messages) == (0, "", [])
    assert sorted(blocks(first + got.out)) == sorted(topic + "\n" for topic in topics)


@pytest.mark.parametrize("options, status, count, words", [
    ("-C 3", 0, 3, ""), (f"-W {SECONDS}", 0, 4, ""), ("-C 4 -W 99", 0, 4, ""),
    (f"-C 9 -W {SECONDS}", 1, 4, f"korvid-monitor: 4 of 9 messages came within {SECONDS} s\n"),
])
def test_a_monitor_ends_after_so_many_messages_or_seconds(broker, peer, options, status, count, words):
    publisher, before = peer(broker.port), time.time()
    publisher.publish("a/0", b"\0\xff", qos=2, retain=True)
    watching = run_monitor("--json", *options.split(), "a/#", port=broker.port)
    first = watching.process.stdout.readline()
    publisher.publish("a/1", "t\u00fcr\t\n".encode(), qos=0)
    for number in range(2, 4):
        publisher.publish(f"a/{number}", b"\r")
    ended = watching.result()
    assert (ended.status, ended.err) == (status, words)
    got = [json.loads(line) for line in (first + ended.out).splitlines()]
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
    got = run_monitor(*arguments, port=broker.port).result()
    assert got.status == 1 and got.out == b"" and re.search("korvid-monitor: .*" + words, got.err), got
    assert got.seconds < scaled(1), got
