"""Another broker, as one node and as two: the client on the first node, the unit on the last."""

import os
import re
import signal
import time

import pytest

from ejabberd import Cluster
from harness import Peer, new_client
from processes import DEMO_UNIT, Running, Unit, await_that, scaled
from protocol import BLOB_GET, PRESENCE, block

NEW = block(288, 255, 10, b"new")


@pytest.fixture(scope="module", params=[1, 2], ids=["one node", "two nodes"])
def cluster(request, tmp_path_factory):
    made = Cluster(tmp_path_factory.mktemp("cluster"), request.param)
    yield made
    made.stop()
    await_that(lambda: not made.processes(), "all has ended")


@pytest.fixture(scope="module")
def unit(cluster, tmp_path_factory):
    made = Unit(tmp_path_factory.mktemp("unit"), cluster.nodes[-1].port, "-i", DEMO_UNIT,
                **cluster.settings("4711"))
    yield made
    made.process.send_signal(signal.SIGCONT)
    made.stop()


@pytest.fixture
def korvid(cluster, unit):
    settings = {"port": cluster.nodes[0].port, **cluster.settings("engineer")}
    return lambda *words, **more: Running(*words, **settings, **more)


def test_every_command_works(korvid, tmp_path):
    (tmp_path / "blob").write_bytes(blob := os.urandom(20_000_000))
    for words, out in ((["get"], DEMO_UNIT.read_bytes()), (["set", "288", "str", "new"], b""),
                       (["get", "288"], NEW), (["setsec", tmp_path / "blob"], b"")):
        got = korvid(*words).result()
        assert (got.status, got.out, got.err) == (0, out, ""), words
    printed = b"SecStore blob size: 20000000\n%s\n" % blob
    await_that(lambda: korvid("getsec").result().out == printed, "the blob", 30)


def test_two_hundred_at_once_lose_nothing(korvid):
    patient = {"request_timeout_ms": 20_000, "connect_timeout_ms": 20_000}
    running = [korvid("get", "288", **patient) for _ in range(200)]
    assert not [got for got in [one.result(90) for one in running] if got.out != NEW or got.err]


def test_units_stand_side_by_side_and_rights_may_end_at_one(cluster, unit, request, tmp_path):
    """Each unit is asked through a node that it is not on."""
    def ask(name, *words, account="engineer", **more):
        port = cluster.nodes[0 if name == "4711" else -1].port
        return Running(*words, port=port, **cluster.settings(account, name), **more).result()

    other = Unit(tmp_path, cluster.nodes[0].port, "-i", DEMO_UNIT,
                 **cluster.settings("4712", "4712"))
    request.addfinalizer(other.kill)
    watch = Peer(cluster.nodes[-1].port, *map("units/+/".__add__, (BLOB_GET, PRESENCE)),
                 client=new_client("engineer@localhost", cluster.password.read_text()))
    request.addfinalizer(watch.close)
    before = ask("4711", "get").out
    (tmp_path / "blob").write_bytes(b"of 4712")
    for words in ("set", "288", "str", "other"), ("setsec", tmp_path / "blob"):
        assert ask("4712", *words).status == 0, words
    assert ask("4712", "get", "288").out == block(288, 255, 10, b"other")
    await_that(lambda: b"of 4712" in ask("4712", "getsec").out, "the blob")
    assert b"288 - 0x120" in ask("4712", DEMO_UNIT, program="korvid-restore").out
    assert (ask("4712", "get").out, ask("4711", "get").out) == (DEMO_UNIT.read_bytes(), before)
    topics = {m.topic for m in watch.messages if m.payload == b"of 4712"}
    assert topics == {f"units/4712/{BLOB_GET}"}
    assert ask("4711", "get", account="lefty").out == before
    for account, name in ("lefty", "4712"), ("4711", "4712"), ("4712", "4711"):
        got = ask(name, "get", account=account)
        assert got.status == 1 and "forbidden" in got.err, (account, name, got)
    other.kill()
    await_that(lambda: {m.topic: m.payload for m in watch.messages if PRESENCE in m.topic} == {
        f"units/4711/{PRESENCE}": b"online",
        f"units/4712/{PRESENCE}": b"offline"}, "who is there is told")


def test_every_command_ends_and_says_so_when_the_units_node_is_killed(cluster, unit, korvid):
    commands = ["get"], ["set", "288", "str", "x"]
    unit.process.send_signal(signal.SIGSTOP)
    # One thread may run on until another stops all.
    os.waitid(os.P_PID, unit.process.pid, os.WSTOPPED | os.WNOWAIT)
    running = [korvid(*words) for words in (*commands, ["getsec"])]
    time.sleep(scaled(1))
    assert cluster.processes(), "a check that finds something"
    cluster.nodes[-1].process.kill()
    for got in [*(korvid(*words).result() for words in commands),
                *(one.result() for one in running)]:
        words = "no reply|lost|closed|refused|no parameter service"
        assert re.search("No data could" if got.seconds > 10 else words, got.err), got
        assert got.status == 1 and not got.out and got.seconds < scaled(14), got
