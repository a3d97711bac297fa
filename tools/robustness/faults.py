"""A broker, links, and a unit that are killed, paused, cut and restarted."""

import contextlib
import os
import re
import signal
import socket
import subprocess
import threading
import time

from links import Listening
from processes import BIN, DEMO_UNIT, Broker, assert_no_sanitizer_report, end, environment, scaled

ABOUT_THE_CONNECTION = re.compile("connect|broker|no reply|Cannot (request|serve|subscribe|publish)", re.I)


class Link(Listening):
    """A link to a port that many connections pass, and that is cut or stalled at any moment."""

    def __init__(self, target):
        self.target, self.passing = target, threading.Event()
        self.passing.set()
        super().__init__()

    def serve(self, near):
        far = None
        with contextlib.suppress(OSError):
            far = socket.create_connection(("127.0.0.1", self.target))
            self.links.append(far)
            back = threading.Thread(target=self.pump, args=(far, near), daemon=True)
            back.start()
            self.pump(near, far)
            back.join()
        for ended in filter(None, (near, far)):
            ended.close()
            self.links.remove(ended)

    def pump(self, source, sink):
        with contextlib.suppress(OSError):
            while data := source.recv(65536):
                self.passing.wait()
                sink.sendall(data)
        for side in source, sink:
            with contextlib.suppress(OSError):
                side.shutdown(socket.SHUT_RDWR)

    def cut(self):
        for side in list(self.links):
            with contextlib.suppress(OSError):
                side.shutdown(socket.SHUT_RDWR)

    @contextlib.contextmanager
    def stalled(self):
        self.passing.clear()
        try:
            yield
        finally:
            self.passing.set()


class SoakUnit:
    """A korvid-unit that is started until it serves: a start fails while its broker is away."""

    def __init__(self, directory, port, complain):
        self.store, self.log, self.port, self.complain = directory / "unit.db", directory / "unit.log", port, complain
        self.process = None

    def launch(self, *args):
        with self.log.open("ab") as log:
            self.process = subprocess.Popen(
                [BIN / "korvid-unit", "-p", str(self.port), "-d", self.store, *args], stdin=subprocess.DEVNULL,
                stdout=subprocess.PIPE, stderr=log, env=environment(connect_timeout_ms=1500))

    def first_start_killed(self, *moments):
        """With a store of its own, and no broker: the store comes first."""
        for moment in moments:
            store = self.store.with_name(f"first-{time.monotonic_ns()}.db")
            command = [BIN / "korvid-unit", "-p", "1", "-d", store]
            first = subprocess.Popen([*command, "-i", DEMO_UNIT], stderr=subprocess.DEVNULL, env=environment())
            time.sleep(moment * 0.03)
            first.kill()
            first.wait()
            second = subprocess.run(command, stderr=subprocess.PIPE, env=environment(), timeout=scaled(20))
            if not ABOUT_THE_CONNECTION.search(second.stderr.decode()):
                self.complain("wrong", f"behind a first start that was killed: {second.stderr[-300:]!r}")

    def start(self, *args, patience=40):
        """False when it did not serve in time; a complaint has been made then."""
        deadline = time.monotonic() + scaled(patience)
        while time.monotonic() < deadline:
            said_before = self.log.stat().st_size if self.log.exists() else 0
            self.launch(*args)
            watchdog = threading.Timer(scaled(patience), self.process.kill)
            watchdog.start()
            line = self.process.stdout.readline()
            watchdog.cancel()
            if line == b"ready\n":
                return True
            status, said = self.process.wait(), self.log.read_bytes()[said_before:].decode(errors="replace")
            if status != 1 or not ABOUT_THE_CONNECTION.search(said):
                self.complain("wrong", f"the unit's start ended with {status}: {said[-500:]}")
            time.sleep(0.1)
        self.complain("hung", f"the unit did not serve within {patience} s")
        return False

    def kill(self):
        self.process.kill()
        self.process.wait()

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


class Site:
    """All of it, and the faults that may befall it; each heals before it returns."""

    def __init__(self, directory, complain):
        self.broker = Broker(directory)
        self.clients_link, self.unit_link = Link(self.broker.port), Link(self.broker.port)
        self.unit = SoakUnit(directory, self.unit_link.port, complain)
        self.lanes = {
            "unit": [self.unit_killed, self.unit_killed, self.unit_killed_asleep, self.unit_killed_at_its_start,
                     self.unit_ended, self.unit_asleep, self.unit_asleep],
            "broker": [self.broker_killed, self.broker_ended, self.broker_asleep],
            "unit's link": [lambda *_: self.unit_link.cut(), self.unit_link_stalled, self.unit_link_stalled_and_cut],
            "first start": [self.unit.first_start_killed],
            "clients' link": [lambda *_: self.clients_link.cut(), self.clients_link_stalled,
                              self.clients_link_stalled_and_cut],
        }

    def draw_round(self, rng):
        """For each lane what happens when: [(lane, [(pause before, fault, two numbers of 0 to 1)])]."""
        return [(lane, [(rng.uniform(0.05, 2), rng.choice(faults), rng.random(), rng.random())
                        for _ in range(rng.randint(0, 3 if lane == "unit" else 1))])
                for lane, faults in self.lanes.items()]

    def unit_killed(self, long, _):
        self.unit.kill()
        time.sleep(long * 0.5)
        self.unit.start()

    def unit_killed_asleep(self, long, _):
        self.unit.process.send_signal(signal.SIGSTOP)
        time.sleep(long * 3)
        self.unit_killed(0, 0)

    def unit_killed_at_its_start(self, early, again):
        for moment in early, again:
            self.unit.kill()
            self.unit.launch()
            time.sleep(moment * 0.06)
        self.unit_killed(0, 0)

    def unit_ended(self, long, _):
        self.unit.terminate()
        time.sleep(long * 0.5)
        self.unit.start()

    def unit_asleep(self, long, _):
        with asleep(self.unit.process):
            time.sleep(long ** 2 * 6)

    def broker_killed(self, long, _):
        self.broker.process.kill()
        self.broker.process.wait()
        time.sleep(long * 1.5)
        self.broker.start()

    def broker_ended(self, long, _):
        self.broker.stop()
        time.sleep(long * 1.5)
        self.broker.start()

    def broker_asleep(self, long, _):
        with asleep(self.broker.process):
            time.sleep(long ** 2 * 4)

    def unit_link_stalled(self, long, _):
        with self.unit_link.stalled():
            time.sleep(long ** 2 * 4)

    def unit_link_stalled_and_cut(self, long, _):
        with self.unit_link.stalled():
            time.sleep(long * 2)
            self.unit_link.cut()

    def clients_link_stalled(self, long, _):
        with self.clients_link.stalled():
            time.sleep(long ** 2 * 4)

    def clients_link_stalled_and_cut(self, long, _):
        with self.clients_link.stalled():
            time.sleep(long * 2)
            self.clients_link.cut()

    def close(self):
        try:
            self.unit.close()
        finally:
            for link in self.clients_link, self.unit_link:
                link.close()
            self.broker.stop()
