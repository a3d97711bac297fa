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
        (tmp_path / "hosts").write_text("\n".join([*lines, ""]))
        return ["unshare", "-m", "sh", "-ec", 'mount --bind "$0" /etc/hosts; exec "$@"', tmp_path / "hosts"]
    return make


HERE, NUL = "DNS:localhost,IP:127.0.0.1", b"localhost\0.elsewhere.test"
BY_CA = ["-CA", "ca.pem", "-CAkey", "ca.key", "-nodes"]
CERTIFICATES = {  # names, options
    "ca": (HERE, "-x509", "-nodes"), "foreign": (HERE, "-x509", "-nodes"), "here": (HERE, *BY_CA),
    "elsewhere": ("DNS:elsewhere.test", *BY_CA), "wildcard": ("DNS:*.korvid.test", *BY_CA),
    "partial": ("DNS:un*.korvid.test", *BY_CA), "encrypted": (HERE, *BY_CA[:-1], "-passout", "pass:open"),
    "nul": ("DER:30:%02x:82:%02x:%s" % (len(NUL) + 2, len(NUL), NUL.hex(":")), *BY_CA), "expired": (HERE, "-nodes")}
LONG_AGO = """[ca]\ndefault_ca=d\n[d]\ndatabase=index\nnew_certs_dir=.\nrand_serial=yes\ndefault_md=sha256\npolicy=p
copy_extensions=copy\ndefault_startdate=20200101000000Z\ndefault_enddate=20200102000000Z\n[p]\ncommonName=supplied\n"""


@pytest.fixture(scope="session")
def certificates(tmp_path_factory):
    """NAME.pem and NAME.key: signed by themselves (ca, foreign) or by ca."""
    place = tmp_path_factory.mktemp("certificates")
    (place / "long_ago").write_text(LONG_AGO)
    (place / "index").touch()
    commands = [["req", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-subj", f"/CN={name}", "-addext",
                 f"subjectAltName={names}", "-days", "9999", "-keyout", f"{name}.key", "-out", f"{name}.pem", *options]
                for name, (names, *options) in CERTIFICATES.items()]
    commands.append(["ca", "-batch", "-notext", "-config", "long_ago", "-cert", "ca.pem", "-keyfile", "ca.key",
                     "-in", "expired.pem", "-out", "expired.pem"])
    for command in commands:
        subprocess.run(["openssl", *command], check=True, capture_output=True, cwd=place)
    return place
