"""A broker, links, and a unit that are killed, paused, cut and restarted."""

import contextlib
import os
import re
import signal
import subprocess
import threading
import time

from links import Proxy
from processes import Broker, Unit, assert_no_sanitizer_report, end, scaled

ABOUT_THE_CONNECTION = re.compile("connect|broker|no reply|"
                                  "Cannot (request|serve|subscribe|publish)", re.I)


class SoakUnit(Unit):
    """A korvid-unit that is started until it serves: a start fails while its broker is away."""

    def __init__(self, directory, port, dump, complain):
        self.complain = complain
        super().__init__(directory, port, "-i", dump, connect_timeout_ms=1500)
        del self.command[-2:]  # it is imported once

    def start(self, _stdin=None, timeout=40):
        deadline = time.monotonic() + scaled(timeout)
        while time.monotonic() < deadline:
            said_before = self.log.stat().st_size if self.log.exists() else 0
            self.launch()
            watchdog = threading.Timer(scaled(timeout), self.process.kill)
            watchdog.start()
            line = self.process.stdout.readline()
            watchdog.cancel()
            if line == b"ready\n":
                return
            status = self.process.wait()
            said = self.log.read_bytes()[said_before:].decode(errors="replace")
            if status != 1 or not ABOUT_THE_CONNECTION.search(said):
                self.complain("wrong", f"the unit's start ended with {status}: {said[-500:]}")
            time.sleep(0.1)
        self.complain("hung", f"the unit did not serve within {timeout} s")

    def terminate(self):
        try:
            status = end(self.process)
        except subprocess.TimeoutExpired:
            return self.complain("hung", "the unit did not end on SIGTERM")
        if status != 0:
            self.complain("wrong", f"the unit ended with {status}: {self.said()}")
        return None

    def said(self):
        return self.log.read_bytes()[-500:].decode(errors="replace")

    def close(self):
        self.terminate()
        assert_no_sanitizer_report(self.log.read_bytes())


@contextlib.contextmanager
def asleep(process):
    process.send_signal(signal.SIGSTOP)
    # On a busy machine one of its threads runs on until another one has taken the signal.
    os.waitid(os.P_PID, process.pid, os.WSTOPPED | os.WEXITED | os.WNOWAIT)
    try:
        yield
    finally:
        process.send_signal(signal.SIGCONT)


def sleeps(server, seconds):
    def fault(long, _):
        with asleep(server.process):
            time.sleep(long ** 2 * seconds)
    return fault


def restarts(server, end, seconds):
    def fault(long, _):
        end()
        time.sleep(long * seconds)
        server.start()
    return fault


def link_faults(link):
    def stalled(long, _):
        with link.stalled():
            time.sleep(long ** 2 * 4)

    def stalled_and_cut(long, _):
        with link.stalled():
            time.sleep(long * 2)
            link.cut()
    return [lambda *_: link.cut(), stalled, stalled_and_cut]


class Site:
    """All of it, and the faults that may befall it; each heals before it returns."""

    def __init__(self, directory, dump, complain):
        self.broker = Broker(directory)
        self.clients_link, self.unit_link = Proxy(self.broker.port), Proxy(self.broker.port)
        self.unit = SoakUnit(directory, self.unit_link.port, dump, complain)
        unit_killed = restarts(self.unit, self.unit.kill, 0.5)
        self.lanes = [
            [unit_killed, unit_killed, self.unit_killed_asleep, self.unit_killed_at_its_start,
             restarts(self.unit, self.unit.terminate, 0.5), *[sleeps(self.unit, 6)] * 2],
            [restarts(self.broker, self.broker.kill, 1.5),
             restarts(self.broker, self.broker.stop, 1.5), sleeps(self.broker, 4)],
            link_faults(self.unit_link),
            link_faults(self.clients_link),
        ]

    def draw_round(self, rng):
        """For each lane what happens when: [(pause before, fault, two numbers of 0 to 1)]."""
        return [[(rng.uniform(0.05, 2), rng.choice(faults), rng.random(), rng.random())
                 for _ in range(rng.randint(0, 1 if n else 3))]
                for n, faults in enumerate(self.lanes)]

    def unit_killed_asleep(self, long, _):
        self.unit.process.send_signal(signal.SIGSTOP)
        time.sleep(long * 3)
        self.unit.kill()
        self.unit.start()

    def unit_killed_at_its_start(self, early, again):
        for moment in early, again:
            self.unit.kill()
            self.unit.launch()
            time.sleep(moment * 0.06)
        self.unit.kill()
        self.unit.start()

    def close(self):
        try:
            self.unit.close()
        finally:
            for link in self.clients_link, self.unit_link:
                link.close()
            self.broker.stop()
