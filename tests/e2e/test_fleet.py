"""Units behind one central broker, each with a broker of its own that is bridged to it."""

import pathlib
import re

import pytest

from harness import FileBroker, Peer, assert_prints, assert_transcript, examples, new_client
from links import Proxy
from processes import DEMO_UNIT, await_that, free_port, run_korvid
from protocol import PRESENCE
from test_documents import DOCUMENTS, console

SHARE = DEMO_UNIT.parent / "fleet"
ACCOUNTS = "left", "right", "direct", "fleet", "lefty"


class Fleet:
    """A central broker; for each unit a broker of its own, a link from that to it, and the unit."""

    def __init__(self, directory, ending, new_unit):
        (directory / "central.acl").write_text((SHARE / "central.acl").read_text())
        self.password, self.links, self.units = directory / "password", {}, {}
        self.password.touch(0o600)
        self.password.write_text("word-of-fleet")
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
        self.watch = Peer(self.central.port, f"units/+/{PRESENCE}", "units/+/bridge",
                          client=new_client("fleet", "word-of-fleet"))
        ending.callback(self.watch.close)

    def presence(self):
        return {m.topic[6:]: m.payload for m in self.watch.messages}

    def is_up(self, name):
        got = run_korvid("get", "288", port=self.central.port, username="fleet",
                         password_file=self.password, topic_prefix=f"units/{name}/",
                         request_timeout_ms=500)
        return got.status == 0


@pytest.fixture
def fleet(tmp_path, ending, new_unit):
    made = Fleet(tmp_path, ending, new_unit)
    await_that(lambda: made.is_up("left") and made.is_up("right"), "the bridges stand", 20)
    return made


def test_one_client_reaches_each_unit_and_rights_for_one_end_there(fleet, tmp_path):
    assert_transcript(pathlib.Path(__file__).with_name("fleet.txt"), tmp_path,
                      port=fleet.central.port)


def test_the_document_shows_who_is_there(fleet, tmp_path):
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
