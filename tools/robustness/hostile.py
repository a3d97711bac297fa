"""Sessions of the programs behind a link that spoils what a broker says."""

import collections
import concurrent.futures
import contextlib
import os
import pathlib
import random
import re
import signal
import socket
import struct
import subprocess
import tempfile
import threading
import time

from links import Proxy
from mutation import ERROR_TEXT, Mutator
from packets import (CONTENT_TYPE, CORRELATION_DATA, PUBLISH, RESPONSE_TOPIC, SUBACK, parsed,
                     publish, read_packet, text_property)
from processes import BIN, DEMO_UNIT, TIME_FACTOR, Broker, Unit, environment, scaled
from protocol import ANNOUNCEMENT, BLOB_GET, BLOB_SET, READ_TOPIC, WRITE_TOPIC, field, record

CONNECT_S = REQUEST_S = 0.4
POURED_S = 30        # how long a peer keeps a program busy that waits
STRETCH_S = 10       # by so much, at the most, may what comes in meanwhile stretch a wait
MARGIN_S = 6         # a sanitizer's start and end on a busy machine
PEAK_MB = 150 * TIME_FACTOR  # the programs take 10, with AddressSanitizer 25, with others more

# libmosquitto 2.0 ends the process where a broker sends a property that MQTT does not know: its
# parser wants to log that, without a client to log for.
KNOWN_ABORT = re.compile(rb"logging_mosq\.c:\d+: log__printf: Assertion `mosq' failed\.")
# It also forgets the properties of an acknowledgement that nothing asked for.
KNOWN_LEAK = re.compile(rb"#0 .*\n +#1 [^\n]*libmosquitto\.so(?s:.)* in mosquitto_loop ")
LEAK = re.compile(rb"(?:Direct|Indirect) leak of (?s:.)*?\n\n")
SANITIZER = re.compile(rb"Sanitizer|runtime error:")
SUMMARY = re.compile(rb"==\d+==ERROR: LeakSanitizer: detected memory leaks|"
                     rb"SUMMARY: AddressSanitizer: .* leaked")
# What moves, colours or reorders a terminal's text.
RAW = re.compile(rb"[\0-\x08\x0b-\x1f\x7f]|\xe2\x80\xae")


def messages(rng, program, prefix):
    """What others send to a program that has just subscribed."""
    request = [text_property(RESPONSE_TOPIC, b"clients/hostile/reply"),
               text_property(CORRELATION_DATA, rng.randbytes(16)), b"\x02" + struct.pack(">I", 5)]
    text = text_property(CONTENT_TYPE, b"text")
    sent = {
        "unit": [(READ_TOPIC, b"", request), (READ_TOPIC, field(1, b"\xa0\x02\x07"), request),
                 (WRITE_TOPIC, field(1, record(288, 1, 1, b"x")), request),
                 (WRITE_TOPIC, b"", request),
                 (BLOB_SET, rng.randbytes(rng.choice((1, 500, 100_000))), []),
                 *((ANNOUNCEMENT, topic.encode(), []) for topic in (BLOB_GET, ANNOUNCEMENT))],
        "monitor": [("a/x", rng.randbytes(n), [text] * (n % 2)) for n in (0, 9, 5000)],
    }.get(program, [])
    return [publish((prefix + topic).encode(), payload, *properties, qos=rng.choice((0, 1, 1, 2)),
                    packet_id=1000 + n) for n, (topic, payload, properties) in enumerate(sent)]


class HostilePeer(Proxy):
    """Every connection has its own, repeatable, choice of mutations of what the broker says."""

    def __init__(self, target, session):
        self.session, self.connections = session, []
        super().__init__(target)

    def serve(self, link):
        rng = random.Random(f"{self.session.name} {len(self.connections)}")
        connection = HostileConnection(link, rng, self.passing)
        self.connections.append(connection)
        session, address = self.session, ("127.0.0.1", self.target)
        with contextlib.suppress(OSError), socket.create_connection(address) as broker:
            self.links.append(broker)
            threading.Thread(target=self.pump, args=(link, broker, bytearray()),
                             daemon=True).start()
            connection.serve(broker, lambda: messages(rng, session.program, session.prefix))
        self.cut(link)

    def close(self):
        self.passing.set()
        super().close()

    def story(self):
        mutators = [connection.mutator for connection in self.connections[:3]]
        return "; ".join(f"packet {m.at} at rate {m.rate}: {', '.join(m.done)}" for m in mutators)


class HostileConnection:
    def __init__(self, link, rng, passing):
        self.link, self.mutator, self.passing = link, Mutator(rng), passing
        self.held, self.silent = b"", False

    def serve(self, broker, messages_now):
        with broker.makefile("rb") as stream:
            while (packet := read_packet(stream)) is not None:
                answer = parsed(*packet)
                if answer.kind == PUBLISH and self.mutator.rng.random() < 0.25:
                    answer.properties.append(ERROR_TEXT)
                for sent in [answer, *(messages_now() if answer.kind == SUBACK else [])]:
                    self.say(self.mutator.sent(sent))

    def say(self, parts):
        held, self.held = self.held, b""
        for part in parts:
            if self.silent:
                return
            if callable(part):
                part(self)
            else:
                self.link.sendall(part)
        if held:
            self.link.sendall(held)

    def hold_back(self, data):
        self.held = data

    def pour(self, data):
        until = time.monotonic() + POURED_S
        while time.monotonic() < until:
            self.link.sendall(data)

    def stall(self, deaf=False):
        self.silent = True
        if deaf:
            self.passing.clear()

    def close_link(self):
        self.link.shutdown(socket.SHUT_RDWR)

    def reset_link(self):
        self.link.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
        self.link.close()


# program: (share of the sessions, words, seconds until SIGTERM or None, seconds that it may take,
# behind a connection and without the margin)
PROGRAMS = {
    "get": (5, ("korvid", "get"), None, 2 * REQUEST_S),
    "get by name": (2, ("korvid", "get", "288", "1"), None, 3 * REQUEST_S),
    "set": (5, ("korvid", "set", "288", "str", "new"), None, 4 * REQUEST_S),
    "getsec": (3, ("korvid", "-l", "DEBUG", "getsec"), None, 13),
    "setsec": (4, ("korvid", "setsec", str(DEMO_UNIT)), None, 25),
    "monitor": (6, ("korvid-monitor", "-P", "-Q", "-S", "-T", "a/+", "#"), 1.0, 5),
    "unit": (8, ("korvid-unit", "-i", str(DEMO_UNIT), "-d"), 1.2, 5),
}


def peak_mb(pid):
    """Until now: what the system tells behind a child's end begins with the peak of its parent."""
    with contextlib.suppress(OSError, TypeError), open(f"/proc/{pid}/status", "rb") as file:
        return int(re.search(rb"VmHWM:\s+(\d+) kB", file.read())[1]) / 1024
    return 0


class Session:
    """One program against one peer; `run` fills in what came of it."""

    def __init__(self, seed, number):
        self.name, self.prefix = f"{seed}/{number}", ""
        rng = random.Random(self.name)
        self.program = rng.choices(list(PROGRAMS), [share for share, *_ in PROGRAMS.values()])[0]
        _, self.words, self.end_after, allowed = PROGRAMS[self.program]
        if self.program == "unit":  # a broker serves one unit a prefix
            self.prefix = f"{number}/"
        self.bound = scaled(CONNECT_S + allowed + STRETCH_S + MARGIN_S) + (self.end_after or 0)

    def run(self, broker):
        self.peer = HostilePeer(broker.port, self)
        with tempfile.TemporaryDirectory(prefix="korvid-hostile-") as scratch, \
                tempfile.TemporaryFile() as err, contextlib.closing(self.peer):
            words = [*self.words, *([f"{scratch}/unit.db"] if self.program == "unit" else [])]
            self.began = time.monotonic()
            process = subprocess.Popen(
                [BIN / words[0], "-p", str(self.peer.port), *words[1:]], stdin=subprocess.DEVNULL,
                stdout=subprocess.DEVNULL, stderr=err, env=self.surroundings())
            self.status, self.peak_mb, self.hung = self.end_of(process)
            self.seconds = time.monotonic() - self.began
            err.seek(0)
            self.err = err.read()
        return self

    def surroundings(self):
        options = "exitcode=99:detect_leaks=1:fast_unwind_on_malloc=0:quarantine_size_mb=8:"
        return {**environment(connect_timeout_ms=int(CONNECT_S * 1000), topic_prefix=self.prefix,
                              request_timeout_ms=int(REQUEST_S * 1000)),
                "ASAN_OPTIONS": options + os.environ.get("ASAN_OPTIONS", "")}

    def end_of(self, process):
        """(status, peak in MB, whether it had to be killed)."""
        peak, end_at, hung = 0, self.began + (self.end_after or self.bound), False
        while process.poll() is None:
            peak = max(peak, peak_mb(process.pid))
            now = time.monotonic()
            if now > self.began + self.bound:
                process.kill()
                hung = True
            elif now > end_at:
                process.send_signal(signal.SIGTERM)
                end_at = self.began + self.bound
            time.sleep(0.005)
        return process.returncode, peak, hung

    def verdict(self):
        """`fine`, what is known of libmosquitto, or what must not be."""
        if self.hung:
            return "hang"
        leaks, others = LEAK.findall(self.err), SUMMARY.sub(b"", self.err)
        if leaks and all(map(KNOWN_LEAK.search, leaks)) and not SANITIZER.search(others):
            return "known leak"
        if SANITIZER.search(self.err):
            return "crash"
        if self.status == -signal.SIGABRT and KNOWN_ABORT.search(self.err):
            return "known abort"
        if self.status not in (0, 1, -signal.SIGTERM if self.end_after else 0):
            return "crash"
        if self.peak_mb > PEAK_MB:
            return "memory"
        if RAW.search(self.err) or (self.status == 1 and not self.err):
            return "bad words"
        return "fine"

    def __str__(self):
        return (f"session {self.name}, {self.program}: {self.verdict()}, status {self.status} "
                f"after {self.seconds:.1f} s, {self.peak_mb:.0f} MB\n  peer: {self.peer.story()}\n"
                f"  said: {self.err[-1500:].decode(errors='backslashreplace')}")


BAD = ("crash", "hang", "memory", "bad words")


def run(sessions, seed, lanes=12, only=None):
    """The number of bad sessions; prints each of them and what came of all."""
    numbers = [only] if only is not None else range(sessions)
    verdicts, slowest, peak, lock = collections.Counter(), (0, ""), 0, threading.Lock()

    def one(number):
        nonlocal slowest, peak
        session = Session(seed, number).run(broker)
        verdict = session.verdict()
        with lock:
            verdicts[verdict] += 1
            slowest = max(slowest, (session.seconds / session.bound,
                                    f"{session.seconds:.1f} s of {session.bound:.1f} s "
                                    f"({session.program}, session {session.name})"))
            peak = max(peak, session.peak_mb)
            if verdict in BAD or only is not None:
                print(session, flush=True)
    with contextlib.ExitStack() as stack:
        scratch = stack.enter_context(tempfile.TemporaryDirectory(prefix="korvid-hostile-"))
        broker = Broker(pathlib.Path(scratch))
        stack.callback(broker.stop)
        stack.callback(Unit(pathlib.Path(scratch), broker.port, "-i", DEMO_UNIT).stop)
        with concurrent.futures.ThreadPoolExecutor(lanes) as pool:
            list(pool.map(one, numbers))
    print(f"seed {seed}: {len(numbers)} sessions, {verdicts['fine']} fine, of libmosquitto: "
          f"{verdicts['known abort']} known aborts, {verdicts['known leak']} known leaks, "
          + ", ".join(f"{kind}: {verdicts[kind]}" for kind in BAD)
          + f"\nslowest against its bound: {slowest[1]}, peak memory: {peak:.0f} MB", flush=True)
    return sum(verdicts[kind] for kind in BAD)
