"""Another broker, as one node and as two: the client on the first node, the unit on the last."""

import os
import pathlib
import re
import signal
import time

import pytest

from ejabberd import Cluster
from harness import assert_transcript
from processes import DEMO_UNIT, Running, Unit, await_that, scaled
from protocol import block

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


def test_units_stand_side_by_side_and_rights_may_end_at_one(cluster, unit, tmp_path):
    first, last = cluster.nodes[0].port, cluster.nodes[-1].port
    assert_transcript(pathlib.Path(__file__).with_name("units.txt"), tmp_path, f"last={last}\n",
                      port=first, password_file=cluster.password)


def test_two_hundred_at_once_lose_nothing(korvid):
    patient = {"request_timeout_ms": 20_000, "connect_timeout_ms": 20_000}
    running = [korvid("get", "288", **patient) for _ in range(200)]
    assert not [got for got in [one.result(90) for one in running] if got.out != NEW or got.err]


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
