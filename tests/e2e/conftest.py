"""Fixtures: what they start is ended on every path, and a unit's end is part of the test."""

import contextlib
import subprocess

import pytest

from harness import Peer, ScriptedBroker
from links import Proxy
from processes import DEMO_UNIT, Broker, Unit


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


@pytest.fixture
def named(tmp_path):
    """What runs behind this prefix finds the given lines in /etc/hosts."""
    def make(*lines):
        hosts = tmp_path / "hosts"
        hosts.write_text("\n".join([*lines, ""]))
        return ["unshare", "-m", "sh", "-ec", 'mount --bind "$0" /etc/hosts; exec "$@"', hosts]
    return make


HERE, NUL = "DNS:localhost,IP:127.0.0.1", b"localhost\0.elsewhere.test"
OWN, BY_CA = ["-x509", "-nodes"], ["-CA", "ca.pem", "-CAkey", "ca.key"]
CERTIFICATES = {  # names, options
    "ca": (HERE, *OWN), "foreign": (HERE, *OWN), "here": (HERE, *BY_CA, "-nodes"),
    "elsewhere": ("DNS:elsewhere.test", *BY_CA, "-nodes"),
    "wildcard": ("DNS:*.korvid.test", *BY_CA, "-nodes"),
    "partial": ("DNS:un*.korvid.test", *BY_CA, "-nodes"),
    "encrypted": (HERE, *BY_CA, "-passout", "pass:open"),
    "nul": (f"DER:30:{len(NUL) + 2:02x}:82:{len(NUL):02x}:{NUL.hex(':')}", *BY_CA, "-nodes"),
    "expired": (HERE, "-nodes")}  # a request


@pytest.fixture(scope="session")
def certificates(tmp_path_factory):
    """NAME.pem and NAME.key: signed by themselves (ca, foreign) or by ca."""
    place = tmp_path_factory.mktemp("certificates")

    def openssl(*words):
        subprocess.run(["openssl", *words], check=True, capture_output=True, cwd=place)
    for name, (names, *options) in CERTIFICATES.items():
        openssl("req", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-days", "9999",
                "-subj", f"/CN={name}", "-addext", f"subjectAltName={names}", *options,
                "-keyout", f"{name}.key", "-out", f"{name}.pem")
    openssl("x509", "-req", "-in", "expired.pem", "-out", "expired.pem", "-days", "0",
            "-copy_extensions", "copy", *BY_CA)
    return place
