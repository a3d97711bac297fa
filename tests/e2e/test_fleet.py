"""Units behind one central broker, each with a broker of its own that is bridged to it."""

import re

import pytest

from harness import FileBroker, Peer, assert_prints, examples, new_client
from links import Proxy
from processes import DEMO_UNIT, await_that, free_port, run_korvid
from protocol import BLOB_GET, PRESENCE, block
from test_documents import DOCUMENTS, console

SHARE = DEMO_UNIT.parent / "fleet"
ACCOUNTS = "left", "right", "direct", "fleet", "lefty"


class Fleet:
    """A central broker; for each unit a broker of its own, a link from that to it, and the unit."""

    def __init__(self, directory, ending, new_unit):
        (directory / "central.acl").write_text((SHARE / "central.acl").read_text())
        self.directory, self.links, self.units = directory, {}, {}
        self.central = FileBroker(directory, SHARE / "central.conf", free_port(), ACCOUNTS,
                                  **{"/etc/mosquitto": directory})
        ending.callback(self.central.stop)
        for name in "left", "right":
            link = self.links[name] = Proxy(self.central.port)
            own = FileBroker(directory, SHARE / "unit-bridge.conf", free_port(), UNIT=name,
                             PASSWORD=f"word-of-{name}", CENTRAL=f"127.0.0.1:{link.port}")
            for close in link.close, own.stop:
                ending.callback(close)
            self.units[name] = new_unit(own.port, "-i", DEMO_UNIT, "-d", directory / f"{name}.db")
        topics = [f"units/+/{topic}" for topic in (BLOB_GET, PRESENCE, "bridge")]
        self.watch = Peer(self.central.port, *topics, client=new_client("fleet", "word-of-fleet"))
        ending.callback(self.watch.close)

    def account(self, name, unit):
        secret = self.directory / f"secret-of-{name}"
        secret.write_text(f"word-of-{name}")
        secret.chmod(0o600)
        return {"username": name, "password_file": secret, "topic_prefix": f"units/{unit}/"}

    def run(self, account, unit, *command, program="korvid", **settings):
        settings |= self.account(account, unit)
        return run_korvid(*command, program=program, port=self.central.port, **settings)

    def presence(self):
        return {m.topic[6:]: m.payload for m in self.watch.messages
                if m.topic.endswith((PRESENCE, "/bridge"))}

    def is_up(self, name):
        return self.run("fleet", name, "get", "288", request_timeout_ms=500).status == 0


@pytest.fixture
def fleet(tmp_path, ending, new_unit):
    made = Fleet(tmp_path, ending, new_unit)
    await_that(lambda: made.is_up("left") and made.is_up("right"), "the bridges stand", 20)
    return made


def test_one_client_reaches_each_unit_and_no_other(fleet, new_unit, tmp_path):
    direct = new_unit(fleet.central.port, "-i", DEMO_UNIT, "-d", tmp_path / "direct.db",
                      **fleet.account("direct", "direct"))
    second = fleet.run("direct", "direct", "-d", tmp_path / "second.db", program="korvid-unit")
    assert second.status == 1 and "another unit already serves" in second.err, second
    for name in "left", "right", "direct":
        (tmp_path / name).write_text(f"blob of {name}")
        assert fleet.run("fleet", name, "set", "288", "str", name).status == 0
        got = fleet.run("fleet", name, "setsec", tmp_path / name)
        assert (got.status, got.err.replace(f"WARNING: {tmp_path}", "")) == (0, got.err), got
    for name in "left", "right", "direct":
        assert fleet.run("fleet", name, "get", "288").out == block(288, 255, 10, name.encode())
        blob = f"blob of {name}".encode()
        await_that(lambda: blob in fleet.run("fleet", name, "getsec").out, "the blob")
        assert {m.topic for m in fleet.watch.messages
                if m.payload == blob} == {f"units/{name}/{BLOB_GET}"}
    assert "WARNING" not in direct.log.read_text(), direct.log.read_text()  # no right is missing


def test_rights_for_one_unit_of_the_fleet_end_there(fleet):
    assert fleet.run("lefty", "left", "get", "288").out == block(288, 255, 10, b"Hi")
    for account, unit in ("lefty", "right"), ("right", "left"), ("left", "left"):
        got = fleet.run(account, unit, "set", "288", "str", "x")
        assert got.status == 1 and "Not authorized" in got.err, got
    assert fleet.run("fleet", "right", "get", "288").out == block(288, 255, 10, b"Hi")


def test_the_document_shows_who_is_there(fleet, tmp_path):
    (tmp_path / "password").write_text("word-of-fleet")
    (tmp_path / "password").chmod(0o600)
    text = (DOCUMENTS / "fleet.md").read_text().replace("central.example", "127.0.0.1")
    shown = {title: console(section)
             for title, section in re.findall(r"^#+ ([^\n]*)\n(.*?)(?=^#|\Z)", text, re.M | re.S)}
    setup = shown["A fleet of units"] + shown["Who is there"]
    there = fleet.presence()
    assert sorted(there.values()) == [b"1", b"1", b"online", b"online"]

    def assert_shown(title, **changes):
        await_that(lambda: fleet.presence() == {**there, **changes}, title)
        before = "".join(command for _, command, _ in examples(setup))
        assert_prints(shown[title], tmp_path, f"{{ {before}}} &> /dev/null\n",
                      port=fleet.central.port, request_timeout_ms=900)

    assert_prints(setup, tmp_path, port=fleet.central.port)
    for leave in fleet.units["left"].stop, fleet.units["left"].kill:
        leave()
        assert_shown("A unit behind a bridge has ended or died", **{f"left/{PRESENCE}": b"offline"})
        fleet.units["left"].start()
        await_that(lambda: fleet.presence() == there, "it is there again")
    link = fleet.links["left"]
    link.close()
    assert_shown("A bridge is cut", **{"left/bridge": b"0"})
    assert fleet.is_up("right")
    link.__init__(fleet.central.port, port=link.port)
    await_that(lambda: fleet.presence() == there and fleet.is_up("left"), "the bridge is back", 20)
