"""Fixtures: what they start is ended on every path, and a unit's end is part of the test."""

import contextlib

import pytest

from harness import DEMO_UNIT, Broker, Peer, Proxy, ScriptedBroker, Unit


@pytest.fixture
def ending():
    with contextlib.ExitStack() as stack:
        yield stack


def maker(kind, ended_by, in_directory=False):
    """A fixture that makes things of a kind and ends each behind the test."""
    @pytest.fixture
    def fixture(ending, tmp_path):
        def make(*args, **options):
            made = kind(*((tmp_path,) if in_directory else ()), *args, **options)
            ending.callback(getattr(made, ended_by))
            return made
        return make
    return fixture


new_broker, new_unit = maker(Broker, "stop", True), maker(Unit, "stop", True)
peer, proxy, scripted = (maker(kind, "close") for kind in (Peer, Proxy, ScriptedBroker))


@pytest.fixture
def broker(new_broker):
    return new_broker()


@pytest.fixture
def unit(new_unit, broker):
    """A unit that holds the demo's parameters."""
    return new_unit(broker.port, "-i", DEMO_UNIT)
