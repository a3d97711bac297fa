"""Another broker, as one node and as a cluster of two: the client on the first node, the unit on the last."""

import os
import re
import signal
import time

import pytest

from ejabberd import Cluster
from harness import DEMO_UNIT, Running, Unit, await_that, block, scaled

NEW = block(288, 255, 10, b"new")


@pytest.fixture(scope="module", params=[1, 2], ids=["one node", "two nodes"])
def cluster(request, tmp_path_factory):
    made = Cluster(tmp_path_factory.mktemp("cluster"), request.param)
    yield made
    made.stop()
    await_that(lambda: not made.processes(), "all has ended")


@pytest.fixture(scope="module")
def unit(cluster, tmp_path_factory):
    made = Unit(tmp_path_factory.mktemp("unit"), cluster.nodes[-1].port, "-i", DEMO_UNIT, **cluster.settings)
    yield made
    made.process.send_signal(signal.SIGCONT)
    made.stop()


@pytest.fixture
def korvid(cluster, unit):
    return lambda *words, **more: Running(*words, port=cluster.nodes[0].port, **cluster.settings, **more)


def test_every_command_works(korvid, tmp_path):
    (tmp_path / "blob").write_bytes(blob := os.urandom(20_000_000))
    for words, out in ((["get"], DEMO_UNIT.read_bytes()), (["set", "288", "str", "new"], b""), (["get", "288"], NEW),
                       (["setsec", tmp_path / "blob"], b"")):
        got = korvid(*words).result()
        assert (got.status, got.out, got.err) == (0, out, ""), words
    await_that(lambda: korvid("getsec").result().out == b"SecStore blob size: 20000000\n%s\n" % blob, "the blob", 30)


def test_two_hundred_at_once_lose_nothing(korvid):
    running = [korvid("get", "288", request_timeout_ms=20_000, connect_timeout_ms=20_000) for _ in range(200)]
    assert not [got for got in [one.result(90) for one in running] if got.out != NEW or got.err]


def test_every_command_ends_and_says_so_when_the_units_node_is_killed(cluster, unit, korvid):
    commands = ["get"], ["set", "288", "str", "x"]
    unit.process.send_signal(signal.SIGSTOP)
    os.waitid(os.P_PID, unit.process.pid, os.WSTOPPED | os.WNOWAIT)  # one thread may run on until another stops all
    running = [korvid(*words) for words in (*commands, ["getsec"])]
    time.sleep(scaled(1))
    assert cluster.processes(), "a check that finds something"
    cluster.nodes[-1].process.kill()
    for got in [*(korvid(*words).result() for words in commands), *(one.result() for one in running)]:
        words = "No data could" if got.seconds > 10 else "no reply|lost|closed|refused|no parameter service"
        assert got.status == 1 and not got.out and re.search(words, got.err) and got.seconds < scaled(14), got
