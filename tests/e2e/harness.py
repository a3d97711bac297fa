"""What only tests need: clients, scripted brokers, shipped broker files, checks."""

import contextlib
import pathlib
import re
import socket
import subprocess
import threading

import paho.mqtt.client as mqtt
import pytest
from paho.mqtt.packettypes import PacketTypes
from paho.mqtt.properties import Properties

from links import Listening
from packets import CONNECT, SUBSCRIBE, UNSUBSCRIBE, read_packet
from processes import BIN, DEMO_UNIT, Broker, environment, scaled
from protocol import block, record

NO_SERVICE = "no parameter service is listening"
needs_root = pytest.mark.skipif(
    subprocess.call(["unshare", "-m", "true"], stderr=subprocess.DEVNULL) != 0,
    reason="only root can mount and end another user's process, and not in every container")
gets_signals_at_once = pytest.mark.skipif(
    b"__tsan_init" in (BIN / "korvid").read_bytes(),
    reason="ThreadSanitizer defers a signal while a call blocks")
HI, HI_BLOCK = record(288, 255, 10, b"Hi"), block(288, 255, 10, b"Hi")  # one of the demo unit's


def assert_fails(result, words, seconds, connecting=False):
    """Status 1, nothing printed, the complaint's words, and in time."""
    assert result.status == 1 and result.out == b"", result
    assert re.search("^korvid: ", result.err, re.M), result
    assert re.search(words, result.err, re.S | re.I), result
    assert len(re.findall("^ERROR: ", result.err, re.M)) == (1 if connecting else 0), result
    assert result.seconds < scaled(seconds), result


EXAMPLE = re.compile(r"^\$ (.*\n(?:> .*\n)*)((?:(?!\$ |\n?# ).*\n)*)", re.M)
TELL = """tell() {
    local status=$?
    cat ~/.out
    sed 's/^/! /' ~/.err
    [ $status = 0 ] || echo "[$status]"
}
"""


def examples(text):
    """Line, command and output of each `$ command`; a line that begins with `# ` is neither."""
    found = list(EXAMPLE.finditer(text))
    assert len(found) == len(re.findall(r"^\$ ", text, re.M)) > 0
    return [(text.count("\n", 0, one.start()) + 1, one[1].replace("\n> ", "\n"), one[2])
            for one in found]


def assert_prints(text, directory, before="", prefix=(), apart=False, **settings):
    """One shell runs all commands, and each prints what is shown, a broker's port as 1883.

    `apart`: standard error is shown behind standard output as `! LINE`, then a failure as `[N]`.
    """
    shown, script = examples(text), TELL + before
    for _, command, _ in shown:
        script += f"{{ {command}}} > ~/.out 2> ~/.err\ntell\n" if apart else command
        script += "printf '\\0'\n"
    # Outside the prefix: `timeout` may not be the first process of a namespace, nor end it by TERM.
    got = subprocess.run(["timeout", "-s", "KILL", str(scaled(60)), *prefix, "bash", "-c", script],
                         cwd=directory, check=False, text=True, errors="backslashreplace",
                         env={**environment(**settings), "HOME": str(directory)},
                         stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    printed = re.sub(rf":{settings.get('port')}\b", ":1883", got.stdout).split("\0")
    for (line, command, output), actual in zip(shown, printed):
        if actual != output:
            pytest.fail(f"line {line}: $ {command}expected:\n{output}printed:\n{actual}",
                        pytrace=False)
    assert len(printed) == len(shown) + 1, f"the shell ended, {got.returncode}: {printed[-1]}"


def assert_transcript(path, directory, before="", **settings):
    (directory / "demo-unit.txt").symlink_to(DEMO_UNIT)
    assert_prints(path.read_text(), directory, before, apart=True, **settings)


class FileBroker(Broker):
    """A mosquitto with a shipped file, in which words are replaced, and accounts."""

    def __init__(self, directory, shipped, port, accounts=(), **words):
        self.port, self.config = port, directory / f"{port}.conf"
        if accounts:
            lines = [f"{name}:word-of-{name}\n" for name in accounts]
            (directory / "passwords").write_text("".join(lines))
            subprocess.run(["mosquitto_passwd", "-U", directory / "passwords"], check=True)
        text = re.sub("^listener [18]883.*", f"listener {port} 127.0.0.1", shipped.read_text(),
                      flags=re.M)
        for word, value in words.items():
            text = text.replace(word, str(value))
        for secret in re.findall("^(?:password|acl)_file (.*)", text, re.M):
            pathlib.Path(secret).chmod(0o600)
        self.config.write_text("user root\n" + text)
        self.log = self.config.with_suffix(".log")
        self.start()

    def stop(self):
        """What is shipped gives no cause for a warning, in any version of the broker."""
        super().stop()
        said = re.findall("^.*(?:Warning|deprecated).*", self.log.read_text(), re.M)
        assert all("run as root" in line for line in said), said


def new_client(user=None, password=None, client_id=""):
    # paho 2 must be told how it calls back; what is used here is the same in both ways.
    way = getattr(mqtt, "CallbackAPIVersion", None)
    client = mqtt.Client(**({"callback_api_version": way.VERSION2} if way else {}),
                         client_id=client_id, protocol=mqtt.MQTTv5)
    client.username_pw_set(user, password)
    return client


class Peer:
    """A client of the test's own: a service, a requester or a listener."""

    def __init__(self, port, *topics, on_message=None, qos=1, client=None):
        self.messages, self.on_message, granted = [], on_message, threading.Event()
        self.client = client or new_client()
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

    def publish(self, topic, payload=b"", qos=1, wait=True, retain=False, **fields):
        properties = Properties(PacketTypes.PUBLISH)
        for name, value in fields.items():
            setattr(properties, name, value)
        sent = self.client.publish(topic, payload, qos, retain, properties)
        if wait:  # not on the delivery thread
            sent.wait_for_publish(scaled(10))

    def reply(self, request, payload=b"", correlation=None, **fields):
        self.publish(request.properties.ResponseTopic, payload, wait=False,
                     CorrelationData=correlation or request.properties.CorrelationData, **fields)

    def close(self):
        self.client.disconnect()
        self.client.loop_stop()


class ScriptedBroker(Listening):
    """`script` answers packets by their type: with bytes, or with what a function makes of a body:
    bytes, several of them, or None, which closes the link."""

    def __init__(self, script=None, greeting=b"", port=0):
        granted = {CONNECT: bytes.fromhex("2003000000"),
                   SUBSCRIBE: lambda body: b"\x90\x04" + body[:2] + b"\x00\x01",
                   UNSUBSCRIBE: lambda body: b"\xb0\x04" + body[:2] + b"\x00\x00"}
        self.script, self.greeting = {**granted, **(script or {})}, greeting
        super().__init__(port)

    def serve(self, link):
        with contextlib.suppress(OSError), link.makefile("rb") as stream:
            link.sendall(self.greeting)
            while packet := read_packet(stream):
                answer = self.script.get(packet[0] >> 4, b"")
                answer = answer(packet[1]) if callable(answer) else answer
                if answer is None:
                    return link.shutdown(socket.SHUT_RDWR)
                for part in [answer] if isinstance(answer, bytes) else answer:
                    link.sendall(part)
        link.close()  # libmosquitto 2.1 waits for it behind its DISCONNECT


def puback(reason=0):
    """Takes a publication at QoS 1 with a reason."""
    def answer(body):
        packet_id_at = 2 + int.from_bytes(body[:2], "big")
        return b"\x40\x04" + body[packet_id_at:packet_id_at + 2] + bytes([reason, 0])
    return answer
