"""The access control that is shipped: what each role may do, and what nobody else can."""

import pathlib

import pytest
from paho.mqtt import reasoncodes
from paho.mqtt.packettypes import PacketTypes

from harness import FileBroker, Peer, new_client
from processes import DEMO_UNIT, await_that, free_port, run_korvid
from protocol import ANNOUNCEMENT, BLOB_GET, BLOB_SET, PRESENCE, READ_TOPIC, WRITE_TOPIC, block

SHARE = pathlib.Path(__file__).resolve().parents[2] / "share/broker"
REPLY = "clients/victim/reply"
TO_UNIT, FROM_UNIT = [READ_TOPIC, WRITE_TOPIC, BLOB_SET, ANNOUNCEMENT], [BLOB_GET, PRESENCE, REPLY]
WRITABLE = {"unit": [*FROM_UNIT, ANNOUNCEMENT], "engineer": TO_UNIT,
            "reader": [READ_TOPIC, ANNOUNCEMENT], "guest": []}
READABLE = {"engineer": {BLOB_GET, PRESENCE}, "reader": {BLOB_GET, PRESENCE}, "guest": set()}
ReasonCode = getattr(reasoncodes, "ReasonCode", None) or reasoncodes.ReasonCodes  # before paho 2


class ShippedBroker(FileBroker):
    """With the shipped files; an account for each role, named like it, and one without a role."""

    def __init__(self, directory, certificates):
        self.ca = certificates / "ca.pem"
        (directory / "acl").write_text((SHARE / "acl").read_text())  # Mosquitto 2.1 takes no link
        for end in "pem", "key":
            (directory / f"server.{end}").symlink_to(certificates / f"here.{end}")
        super().__init__(directory, SHARE / "mosquitto.conf", free_port(), WRITABLE,
                         **{"/etc/mosquitto/korvid": directory})

    def account(self, name, word=None):
        secret = self.config.with_name("secret")
        secret.write_text(word or f"word-of-{name}")
        secret.chmod(0o600)
        login = {"username": name, "password_file": secret} if name else {}
        return {"port": self.port, "ca_file": self.ca, **login}

    def peer(self, name, client_id, *topics, will="nothing"):
        client = new_client(name, f"word-of-{name}", client_id)
        client.tls_set(self.ca)
        client.will_set(will, "will", qos=1)
        return Peer(self.port, *topics, client=client)


@pytest.fixture
def shipped(ending, tmp_path, certificates):
    broker = ShippedBroker(tmp_path, certificates)
    ending.callback(broker.stop)
    return broker


def test_every_role_does_its_work_and_no_more(ending, shipped, new_unit, tmp_path):
    def run(role, command, word=None):
        return run_korvid(*command.split(), **shipped.account(role, word))

    unit = shipped.account("unit")
    new_unit(unit.pop("port"), "-i", DEMO_UNIT, **unit)
    (tmp_path / "one").write_text("one")
    for command in "set 288 str x", f"setsec {tmp_path}/one":
        assert run("engineer", command).status == 0, command
    for attempt in (("reader", "set 288 str y"), ("guest", "set 288 str y"), ("guest", "get"),
                    ("unit", "set 288 str y"), ("reader", "get", "word-of-unit"), (None, "get")):
        got = run(*attempt)
        assert got.status == 1 and "Not authorized" in got.err and got.seconds < 1, got
        assert "word-of" not in got.err, got
    # Nobody is told of a refusal at QoS 0, but of that of the announcement.
    for role in "reader", "guest":
        assert ("Not authorized" in run(role, f"setsec {DEMO_UNIT}").err) == (role == "guest")
    for role in "engineer", "reader":
        assert run(role, "get 288").out == block(288, 255, 10, b"x")
        assert run(role, "getsec").out == b"SecStore blob size: 3\none\n"
    watching = shipped.peer("reader", "watching", PRESENCE)
    half_open = shipped.peer("unit", "half-open", will=PRESENCE)
    ending.callback(watching.close)
    half_open.client.disconnect(ReasonCode(PacketTypes.DISCONNECT, identifier=4))  # with its will
    await_that(lambda: [m.payload for m in watching.messages] == [b"online", b"will", b"online"],
               "it is corrected")


@pytest.mark.parametrize("role", READABLE)
@pytest.mark.parametrize("client_id", ["+", "#", "victim/reply", "spy"])
def test_an_intruder_reads_nothing_and_forges_nothing(ending, shipped, role, client_id):
    """An account of the broker that tries more than its role gives it."""
    unit = shipped.peer("unit", "the-unit", *TO_UNIT)
    victim = shipped.peer("engineer", "victim", *FROM_UNIT)
    spied = ["#", "+/+/+/+", "clients/#", "clients/+/reply", *TO_UNIT, *FROM_UNIT]
    spy = shipped.peer(role, client_id, *spied, *("$share/g/" + topic for topic in spied))
    for peer in unit, victim, spy:
        ending.callback(peer.close)
    for topic in {*TO_UNIT, *FROM_UNIT} - {*WRITABLE[role]}:
        for qos in 0, 1, 2:
            spy.publish(topic, "forged", qos)
        dying = shipped.peer(role, client_id + "-too", will=topic)
        dying.client.disconnect(ReasonCode(PacketTypes.DISCONNECT, identifier=4))  # with its will
    for sender, topics in (victim, TO_UNIT), (unit, WRITABLE["unit"]):
        for topic in topics:
            sender.publish(topic, "true")
    for receiver, topics in (unit, [*TO_UNIT, ANNOUNCEMENT]), (victim, FROM_UNIT):
        await_that(lambda: len(receiver.messages) >= len(topics), "what is allowed arrives")
        spy.publish("nothing")  # acknowledged behind all that was sent to it
        received = [(m.topic, m.payload) for m in receiver.messages]
        assert received == [(topic, b"true") for topic in topics]
    assert {m.topic for m in spy.messages} == READABLE[role]
