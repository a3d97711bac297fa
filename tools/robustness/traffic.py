"""Clients that write and read without end, are killed and paused now and then, and are checked."""

import hashlib
import random
import re
import signal
import subprocess
import threading
import time

from processes import Running, assert_no_sanitizer_report, scaled
from protocol import block
from model import ACKNOWLEDGED, FAILED, TAKEN, UNKNOWN

OTAIDS, DID, XCPID = range(4000, 4010), 0xf190, 7
CONSTANTS = {otaid: b"constant %d" % otaid for otaid in range(5000, 5030)}
BLOB = "blob"
MARGIN_S = 3       # start, the fixed pause, DISCONNECT, and a busy machine
GRACE_S = 15       # behind its bound a command is given so long to end after all, then it is killed
BLOCK = re.compile(rb"SysParam \((\d+)\):\n.*?\n"
                   rb"  data\(hex\) \[[0-9a-f]+\]: ((?:0x[0-9a-f]{2} )*)\n", re.S)
ABOVE_WARNING = re.compile(rb"^(?!WARNING: |NOTICE: ).", re.M)
CONNECT_S = 2
DOUBT, NOT_CONNECTED = b"may or may not", b"Cannot connect to the broker"


def printed(blob):
    return b"SecStore blob size: %d\n%s\n" % (len(blob), blob)


def parameters(out):
    """OTAID -> data, or None when it is anything else than whole blocks."""
    found, at = {}, 0
    for match in BLOCK.finditer(out):
        otaid, data = int(match[1]), bytes.fromhex(match[2].decode().replace("0x", ""))
        if match.start() != at or match[0] != block(otaid, DID, XCPID, data) or otaid in found:
            return None
        found[otaid], at = data, match.end()
    return found if at == len(out) else None


class Clients:
    """What the commands have in common: how they are run, bounded and judged."""

    def __init__(self, model, complain, directory, direct_port, link_port):
        self.model, self.complain, self.directory = model, complain, directory
        self.ports, self.commands, self.slowest = (direct_port, link_port), 0, (0, "")
        self.lock, self.serial = threading.Lock(), 0

    def run(self, words, bound, rng=None, request_timeout=5.0):
        """(status, output, complaints); no status when the client was killed on purpose."""
        port, fate, moment, long = self.ports[0], 1.0, 0.0, 0.0
        if rng:
            port, fate = rng.choice(self.ports), rng.random()
            moment, long = rng.random() ** 2, rng.random()
        bound, paused, killed = scaled(bound + CONNECT_S + MARGIN_S), 0.0, False
        running = Running(*words, port=port, connect_timeout_ms=CONNECT_S * 1000,
                          request_timeout_ms=int(request_timeout * 1000))
        client, began = running.process, running.began
        if fate < 0.08:
            try:
                client.communicate(timeout=moment * 0.4)
            except subprocess.TimeoutExpired:
                killed = fate < 0.04
                client.send_signal(signal.SIGKILL if killed else signal.SIGSTOP)
                if not killed:
                    time.sleep(long * 3)
                    client.send_signal(signal.SIGCONT)
                    paused = long * 3
        try:
            out, err = client.communicate(timeout=bound + GRACE_S)
            seconds = time.monotonic() - began - paused
        except subprocess.TimeoutExpired:
            client.kill()
            (out, err), seconds = client.communicate(), bound + GRACE_S
        return self.judged(words, client.returncode, out, err, seconds, bound, killed)

    def judged(self, words, status, out, err, seconds, bound, killed):
        command = f"{' '.join(map(str, words))[:60]}: status {status} after {seconds:.2f} s"
        with self.lock:
            self.commands += 1
            self.slowest = max(self.slowest, (seconds / bound,
                                              f"{seconds:.2f} s of {bound:.1f} s ({words[0]})"))
        if seconds > bound:
            self.complain("hung", f"{command}, more than {bound:.1f} s: {err[-300:]!r}")
        if killed:
            return None, out, err
        assert_no_sanitizer_report(err)
        as_it_should_be = {0: not ABOVE_WARNING.search(err), 1: bool(err)}
        if not as_it_should_be.get(status):
            self.complain("wrong", f"{command}: {out[:80]!r} {err[-300:]!r}")
        return status, out, err

    def set(self, rng=None):
        source, timeout = rng or random.Random(), 5.0 if not rng else rng.choice((1.0, 2.0, 5.0))
        otaid = source.choice(OTAIDS)
        size = source.choice((4, 30, 30, 5000))
        value = b"%d-%s" % (self.next(), source.randbytes(size).hex().encode())
        self.model.begin(otaid, value)
        words = "set", otaid, "str", value.decode()
        status, out, err = self.run(words, 2 * timeout, rng, timeout)
        outcome = ACKNOWLEDGED if status == 0 else FAILED
        if status is None or DOUBT in err:
            outcome = UNKNOWN
        self.model.end(otaid, value, outcome)
        if out:
            self.complain("wrong", f"set printed {out[:80]!r}")
        return status

    def get(self, rng=None):
        words, timeout = ("get",), 5.0 if not rng else rng.choice((1.0, 2.0, 5.0))
        if rng and rng.random() < 0.5:
            words = ("get", rng.choice(OTAIDS))
        since = time.monotonic()
        status, out, _ = self.run(words, timeout, rng, timeout)
        if status is None:
            return None
        found = parameters(out)
        expected = {*words[1:]} if len(words) > 1 else {*OTAIDS, *CONSTANTS}
        if found is None or (expected != found.keys() if status == 0 else found):
            self.complain("wrong", f"{words} with status {status} printed {sorted(found or ())} "
                                   f"{out[-80:]!r}")
        for otaid, data in (found or {}).items():
            self.model.read(otaid, data, since)
        return status

    def setsec(self, rng=None):
        source = rng or random.Random()
        size = source.choice((10, 3000, 3000, 90_000) * 4 + (3_000_000,))
        blob = b"blob %d " % self.next() + source.randbytes(size)
        path, value = self.directory / f"blob-{self.next()}", hashlib.sha256(blob).digest()
        path.write_bytes(blob)
        self.model.begin(BLOB, value)
        status, out, err = self.run(("setsec", path), 25, rng)
        path.unlink()
        if out:
            self.complain("wrong", f"setsec printed {out[:80]!r}")
        outcome = TAKEN if status == 0 else FAILED if NOT_CONNECTED in err else UNKNOWN
        self.model.end(BLOB, value, outcome)
        return value if status == 0 else None

    def getsec(self, rng=None):
        """The digest of what was printed, or None."""
        since = time.monotonic()
        status, out, _ = self.run(("getsec",), 13, rng)
        if status is None:
            return None
        blob = out[out.index(b"\n") + 1:-1] if b"\n" in out else b""
        if out != (printed(blob) if status == 0 else b""):
            self.complain("wrong", f"getsec with status {status} printed {out[:80]!r}")
        if status != 0:
            return None
        value = hashlib.sha256(blob).digest()
        self.model.read(BLOB, value, since)
        return value

    def next(self):
        with self.lock:
            self.serial += 1
            return self.serial


def start(clients, ended, seed):
    """The threads of all writers and readers; they end when `ended` is set."""
    def work(command, rng):
        while not ended.wait(rng.random() * 0.1):
            try:
                command(rng)
            except Exception as error:  # this thread's traffic must not end unnoticed
                clients.complain("wrong", f"{command.__name__}: {error!r}")
    kinds = [clients.set] * 5 + [clients.get] * 2 + [clients.setsec] * 2 + [clients.getsec] * 2
    threads = [threading.Thread(target=work, args=(kind, random.Random(f"{seed} {n}")))
               for n, kind in enumerate(kinds)]
    for thread in threads:
        thread.start()
    return threads
