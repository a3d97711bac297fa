"""The programs and their broker as processes of this machine, on free ports of the loopback."""

import contextlib
import os
import pathlib
import re
import signal
import socket
import subprocess
import time

BIN = pathlib.Path(os.environ["KORVID_BIN"])
DEMO_UNIT = pathlib.Path(__file__).resolve().parents[2] / "share/demo-unit.txt"
TIME_FACTOR = float(os.environ.get("KORVID_TIME_FACTOR", "1"))  # sanitizers slow everything down


def scaled(seconds):
    return seconds * TIME_FACTOR


def await_that(condition, what, seconds=10):
    deadline = time.monotonic() + scaled(seconds)
    while not condition():
        assert time.monotonic() < deadline, f"not in time: {what}"
        time.sleep(0.01)


def free_port():
    with socket.create_server(("127.0.0.1", 0)) as probe:
        return probe.getsockname()[1]


def environment(**settings):
    """The programs in the PATH, and no settings of this machine's own unit."""
    env = {k: v for k, v in os.environ.items() if not re.match("ECU_LAPI_|LOG_LEVEL$", k)}
    settings = {"config": os.devnull, **settings}
    return {**env, "LC_ALL": "C", "PATH": f"{BIN}:{os.environ['PATH']}",
            **{f"ECU_LAPI_{k.upper()}": str(v) for k, v in settings.items()}}


def assert_no_sanitizer_report(text):
    assert not re.search(rb"Sanitizer|runtime error:", text), text.decode(errors="replace")


class Running:
    """One of our programs on its way; keywords that are not its own are settings of the library."""

    def __init__(self, *args, program="korvid", port=None, stdin=subprocess.DEVNULL, prefix=(),
                 **settings):
        command = [*prefix, BIN / program, *(["-p", str(port)] if port else []), *map(str, args)]
        self.began = time.monotonic()
        self.process = subprocess.Popen(command, stdin=stdin, stdout=subprocess.PIPE,
                                        stderr=subprocess.PIPE, env=environment(**settings))

    def result(self, timeout=40):
        try:
            self.out, err = self.process.communicate(timeout=scaled(timeout))
        finally:
            self.process.kill()
        self.seconds = time.monotonic() - self.began
        self.status, self.err = self.process.returncode, err.decode()
        assert_no_sanitizer_report(err)
        assert self.status >= 0, f"ended by a signal: {self}"
        return self

    def __repr__(self):
        return (f"status {self.status} in {self.seconds:.2f} s\nout: {self.out[:2000]}\n"
                f"err: {self.err}")


def run_korvid(*args, **options):
    return Running(*args, **options).result()


def end(process, number=signal.SIGTERM):
    process.send_signal(number)
    try:
        return process.wait(scaled(15))
    finally:
        process.kill()


class Unit:
    """korvid-unit; ended by SIGTERM with status 0, or the test fails."""

    def __init__(self, directory, port, *args, prefix=(), stdin=None, **settings):
        self.env, self.log = environment(**settings), directory / "unit.log"
        self.command = [*prefix, BIN / "korvid-unit", "-p", str(port), "-d", directory / "unit.db",
                        *map(str, args)]
        self.start(stdin)

    def launch(self, stdin=None):
        with self.log.open("ab") as log:
            self.process = subprocess.Popen(self.command, stdin=stdin or subprocess.DEVNULL,
                                            stdout=subprocess.PIPE, stderr=log, env=self.env)

    def start(self, stdin=None):
        self.launch(stdin)
        line = self.process.stdout.readline()
        assert line == b"ready\n", (line, self.log.read_text(errors="replace"))

    def kill(self):
        end(self.process, signal.SIGKILL)

    def stop(self, number=signal.SIGTERM):
        running = self.process.poll() is None
        status = end(self.process, number) if running else self.process.returncode
        assert_no_sanitizer_report(self.log.read_bytes())
        assert status == 0, (status, self.log.read_text(errors="replace"))


class Broker:
    """A mosquitto on a free loopback port, with an explicit listener."""
    log = pathlib.Path(os.devnull)

    def __init__(self, directory, *lines, anonymous=True):
        self.port = free_port()
        self.config = directory / f"broker-{self.port}.conf"
        self.config.write_text("\n".join(["user root", f"listener {self.port} 127.0.0.1",
                                          f"allow_anonymous {str(anonymous).lower()}",
                                          "max_packet_size 268435455", *lines, ""]))
        self.start()

    def start(self):
        with self.log.open("ab") as log:
            self.process = subprocess.Popen(["/usr/sbin/mosquitto", "-c", self.config],
                                            stdin=subprocess.DEVNULL, stderr=log)
        await_that(lambda: self.process.poll() is not None or self.accepts(), "the broker listens")
        assert self.process.poll() is None, "the broker ended"

    def accepts(self):
        with contextlib.suppress(OSError), socket.create_connection(("127.0.0.1", self.port)):
            return True

    def kill(self):
        end(self.process, signal.SIGKILL)

    def stop(self):
        if self.process.poll() is None:
            end(self.process)
