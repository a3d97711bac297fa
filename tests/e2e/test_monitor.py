"""korvid-monitor's clock, and a signal where it does not wait for one."""

import functools
import os
import re
import signal
import time

import pytest

from harness import gets_signals_at_once
from packets import CONNECT
from processes import Running, end, scaled

AHEAD = float(os.environ.get("KORVID_SECONDS_AHEAD", "0"))  # of the programs' clock
run_monitor = functools.partial(Running, program="korvid-monitor")


@pytest.mark.parametrize("option", ["-T", "--json"])
def test_a_message_bears_the_time_at_which_it_came(peer, broker, option):
    peer(broker.port).publish("car/door", b"x", retain=True)
    before = time.time()
    got = run_monitor(option, "-C", "1", "car/door", port=broker.port).result()
    stamp = re.search(rb'timestamp"?: ?(\d+)', got.out)[1]
    assert before - 0.001 <= int(stamp) / 1000 - AHEAD <= time.time(), got


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
