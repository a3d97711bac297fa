"""Real binaries, real brokers, bad links and scripted peers for the end-to-end tests."""

import contextlib
import os
import pathlib
import re
import signal
import socket
import subprocess
import threading
import time

import paho.mqtt.client as mqtt
import pytest
from paho.mqtt.packettypes import PacketTypes
from paho.mqtt.properties import Properties

BIN = pathlib.Path(os.environ["KORVID_BIN"])
DEMO_UNIT = pathlib.Path(__file__).resolve().parents[2] / "share/demo-unit.txt"
TIME_FACTOR = float(os.environ.get("KORVID_TIME_FACTOR", "1"))  # sanitizers slow everything down
READ_TOPIC, WRITE_TOPIC = "system/vard/sysparam/read", "system/vard/sysparam/write"
BLOB_GET, BLOB_SET = "system/vard/secstore/get", "system/vard/secstore/set"
ANNOUNCEMENT, NO_SERVICE = "subscription/announcement", "no parameter service is listening"
needs_root = pytest.mark.skipif(os.geteuid() != 0, reason="only root can mount and end another user's process")


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
    """The environment without any settings of this machine's own unit."""
    env = {k: v for k, v in os.environ.items() if not k.startswith("ECU_LAPI_") and k != "LOG_LEVEL"}
    settings = {"config": os.devnull, **settings}
    return {**env, "LC_ALL": "C", **{f"ECU_LAPI_{k.upper()}": str(v) for k, v in settings.items()}}


def assert_no_sanitizer_report(text):
    assert not re.search(rb"Sanitizer|runtime error:", text), text.decode(errors="replace")


class Running:
    """One of our programs on its way; keywords that are not its own are settings of the library."""

    def __init__(self, *args, program="korvid", port=None, stdin=subprocess.DEVNULL, prefix=(), **settings):
        command = [*prefix, BIN / program, *(["-p", str(port)] if port else []), *map(str, args)]
        self.began = time.monotonic()
        self.process = subprocess.Popen(command, stdin=stdin, stdout=subprocess.PIPE,
                                        stderr=subprocess.PIPE, env=environment(**settings))

    def result(self, timeout=40):
        try:
            self.out, err = self.process.communicate(timeout=scaled(timeout))
        finally:
            self.process.kill()
        self.seconds, self.status, self.err = time.monotonic() - self.began, self.process.returncode, err.decode()
        assert_no_sanitizer_report(err)
        assert self.status >= 0, f"ended by a signal: {self}"
        return self

    def __repr__(self):
        return f"status {self.status} in {self.seconds:.2f} s\nout: {self.out[:2000]}\nerr: {self.err}"


def run_korvid(*args, **options):
    return Running(*args, **options).result()


def assert_fails(result, words, seconds, connecting=False):
    """Status 1, nothing printed, the complaint's words, and in time."""
    assert result.status == 1 and result.out == b"", result
    assert re.search("^korvid: ", result.err, re.M) and re.search(words, result.err, re.S | re.I), result
    assert len(re.findall("^ERROR: ", result.err, re.M)) == (1 if connecting else 0), result
    assert result.seconds < scaled(seconds), result


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
        self.command = [*prefix, BIN / "korvid-unit", "-p", str(port), "-d", directory / "unit.db", *map(str, args)]
        self.start(stdin)

    def start(self, stdin=None):
        with self.log.open("ab") as log:
            self.process = subprocess.Popen(self.command, stdin=stdin or subprocess.DEVNULL,
                                            stdout=subprocess.PIPE, stderr=log, env=self.env)
        line = self.process.stdout.readline()
        assert line == b"ready\n", (line, self.log.read_text(errors="replace"))

    def kill(self):
        end(self.process, signal.SIGKILL)

    def stop(self, number=signal.SIGTERM):
        status = end(self.process, number) if self.process.poll() is None else self.process.returncode
        assert_no_sanitizer_report(self.log.read_bytes())
        assert status == 0, (status, self.log.read_text(errors="replace"))


class Broker:
    """A mosquitto on a free loopback port, with an explicit listener."""

    def __init__(self, directory, *lines, anonymous=True):
        self.port = free_port()
        self.config = directory / f"broker-{self.port}.conf"
        self.config.write_text("\n".join(["user root", f"listener {self.port} 127.0.0.1",
                                          f"allow_anonymous {str(anonymous).lower()}", *lines, ""]))
        self.start()

    def start(self):
        self.process = subprocess.Popen(["/usr/sbin/mosquitto", "-c", self.config],
                                        stdin=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        await_that(lambda: self.process.poll() is not None or self.accepts(), "the broker listens")
        assert self.process.poll() is None, "the broker ended"

    def accepts(self):
        with contextlib.suppress(OSError), socket.create_connection(("127.0.0.1", self.port)):
            return True

    def stop(self):
        if self.process.poll() is None:
            end(self.process)


class FileBroker(Broker):
    """A mosquitto with a shipped file, in which words are replaced, and an account for each name."""

    def __init__(self, directory, shipped, port, accounts=(), **words):
        self.port, self.config = port, directory / f"{port}.conf"
        if accounts:
            (directory / "passwords").write_text("".join(f"{name}:word-of-{name}\n" for name in accounts))
            subprocess.run(["mosquitto_passwd", "-U", directory / "passwords"], check=True)
        text = re.sub("^listener [18]883.*", f"listener {port} 127.0.0.1", shipped.read_text(), flags=re.M)
        for word, value in words.items():
            text = text.replace(word, str(value))
        self.config.write_text("user root\n" + text)
        self.start()


class Peer:
    """A client of the test's own: a service, a requester or a listener."""

    def __init__(self, port, *topics, on_message=None, qos=1, client=None):
        self.messages, self.on_message, granted = [], on_message, threading.Event()
        self.client = client or mqtt.Client(protocol=mqtt.MQTTv5)
        self.client.on_subscribe = lambda *_: granted.set()
        self.client.on_message = self.receive
        self.client.connect("127.0.0.1", port)
        self.client.loop_start()
        if topics:
            self.client.subscribe([(t, mqtt.SubscribeOptions(qos=qos)) for t in topics])
        assert not topics or granted.wait(scaled(10)), "no SUBACK"

    def receive(self, _client, _userdata, message):
        self.messages.append(message)
        if self.on_message:
            self.on_message(self, message)

    def publish(self, topic, payload=b"", qos=1, wait=True, **fields):
        properties = Properties(PacketTypes.PUBLISH)
        for name, value in fields.items():
            setattr(properties, name, value)
        sent = self.client.publish(topic, payload, qos=qos, properties=properties)
        if wait:  # not on the delivery thread
            sent.wait_for_publish(scaled(10))

    def reply(self, request, payload=b"", correlation=None, **fields):
        self.publish(request.properties.ResponseTopic, payload, wait=False,
                     CorrelationData=correlation or request.properties.CorrelationData, **fields)

    def request(self, topic, payload, response="clients/test/reply"):
        """The next message after a request of the test's own."""
        known = len(self.messages)
        self.publish(topic, payload, ResponseTopic=response, CorrelationData=b"0123456789abcdef")
        await_that(lambda: len(self.messages) > known, f"a reply on {response}")
        return self.messages[known]

    def close(self):
        self.client.disconnect()
        self.client.loop_stop()


class Listening:
    """Accepts connections on a free loopback port; each is a thread in `serve`."""

    def __init__(self, port=0):
        self.listener = socket.create_server(("127.0.0.1", port))
        self.port, self.links = self.listener.getsockname()[1], []
        threading.Thread(target=self.accept, daemon=True).start()

    def accept(self):
        with contextlib.suppress(OSError):
            while True:
                link = self.listener.accept()[0]
                self.links.append(link)
                threading.Thread(target=self.serve, args=(link,), daemon=True).start()

    def close(self):
        for link in [self.listener, *self.links]:
            with contextlib.suppress(OSError):
                link.shutdown(socket.SHUT_RDWR)
            link.close()


class ScriptedBroker(Listening):
    """`script` answers packets by their type: bytes, pieces, or a function of the packet's body."""

    CONNECT, PUBLISH, SUBSCRIBE, UNSUBSCRIBE = 1, 3, 8, 10

    def __init__(self, script=None, greeting=b""):
        self.script = {self.CONNECT: bytes.fromhex("2003000000"),
                       self.SUBSCRIBE: lambda body: b"\x90\x04" + body[:2] + b"\x00\x01",
                       self.UNSUBSCRIBE: lambda body: b"\xb0\x04" + body[:2] + b"\x00\x00", **(script or {})}
        self.greeting = greeting
        super().__init__()

    def serve(self, link):
        with contextlib.suppress(OSError), link.makefile("rb") as stream:
            link.sendall(self.greeting)
            while head := stream.read(1):
                length = shift = 0
                while (byte := stream.read(1)[0]) > 127:
                    length, shift = length | (byte & 127) << shift, shift + 7
                body = stream.read(length | byte << shift)
                answer = self.script.get(head[0] >> 4, b"")
                answer = answer(body) if callable(answer) else answer
                for part in [answer] if isinstance(answer, bytes) else answer:
                    link.sendall(part)
                    time.sleep(0.2 if part is not answer else 0)


def puback(reason=0):
    """Takes a publication at QoS 1 with a reason."""
    def answer(body):
        packet_id_at = 2 + int.from_bytes(body[:2], "big")
        return b"\x40\x04" + body[packet_id_at:packet_id_at + 2] + bytes([reason, 0])
    return answer


class Proxy(Listening):
    """A link to a port: slow, or cut or stalled after so many bytes from the client."""

    def __init__(self, target, latency=0.0, bandwidth=1e9, cut_at=None, stall_at=None, port=0):
        self.target, self.latency, self.bandwidth = target, latency, bandwidth
        self.cut_at, self.stall_at, self.upstream = cut_at, stall_at, bytearray()
        super().__init__(port)

    def serve(self, link):
        broker = socket.create_connection(("127.0.0.1", self.target))
        self.links.append(broker)
        threading.Thread(target=self.pump, args=(broker, link, bytearray(), None, None), daemon=True).start()
        self.pump(link, broker, self.upstream, self.cut_at, self.stall_at)

    def pump(self, source, sink, passed, cut_at, stall_at):
        """Up to a limit to the byte; behind a stall nothing is read any more."""
        with contextlib.suppress(OSError):
            limit = min(x for x in (cut_at, stall_at, 1 << 62) if x is not None)
            while len(passed) < limit and (data := source.recv(min(16384, limit - len(passed)))):
                time.sleep(self.latency + len(data) / self.bandwidth)
                sink.sendall(data)
                passed += data
            if stall_at is None or len(passed) < stall_at:
                for link in source, sink:
                    link.shutdown(socket.SHUT_RDWR)


# Parameters, encoded and printed by nothing of ours.
def varint(number):
    return bytes([number]) if number < 128 else bytes([number & 127 | 128]) + varint(number >> 7)


def field(number, value):
    if isinstance(value, int):
        return varint(number << 3) + varint(value)
    return varint(number << 3 | 2) + varint(len(value)) + value


def record(*values):
    """A SystemParameterEntry of otaid, did, xcpid and data; None leaves a field out."""
    return b"".join(field(n, v) for n, v in enumerate(values, 1) if v is not None)


def read_reply(*records, count=None):
    return b"".join(field(1, r) for r in records) + field(2, len(records) if count is None else count)


def block(otaid, did, xcpid, data):
    """What `korvid get` prints of a parameter."""
    return (f"SysParam ({otaid}):\n  OTAID: {otaid} - 0x{otaid:03x}\n  DID: {did:x}\n  XCPID: {xcpid:x}\n"
            f"  data(char) [{len(data):x}]: '").encode() + data + (
            f"'\n  data(hex) [{len(data):x}]: " + "".join(f"0x{b:02x} " for b in data) + "\n").encode()


HI, HI_BLOCK = record(288, 255, 10, b"Hi"), block(288, 255, 10, b"Hi")  # one of the demo unit's
