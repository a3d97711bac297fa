"""The access control that is shipped: what each role may do, and what nobody else can."""

import pathlib

import pytest
from paho.mqtt import reasoncodes
from paho.mqtt.packettypes import PacketTypes

from harness import FileBroker, Peer, assert_transcript, new_client
from processes import await_that, free_port
from protocol import ANNOUNCEMENT, BLOB_GET, BLOB_SET, PRESENCE, READ_TOPIC, WRITE_TOPIC

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


def test_every_role_does_its_work_and_no_more(shipped, tmp_path):
    assert_transcript(pathlib.Path(__file__).with_name("access.txt"), tmp_path,
                      port=shipped.port, ca_file=shipped.ca)


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
