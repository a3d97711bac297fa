"""Fixtures: what they start is ended on every path, and a unit's end is part of the test."""

import contextlib
import subprocess

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


CA_CONFIGURATION = """[ca]\ndefault_ca=d\n[d]\ndatabase=index\nnew_certs_dir=.\nrand_serial=yes\ndefault_md=sha256
policy=p\ncopy_extensions=copy\ndefault_days=2\n[p]\ncommonName=supplied\n"""
HERE, NUL_NAME = "DNS:localhost,IP:127.0.0.1", b"localhost\0.elsewhere.test"
NUL = "DER:30:%02x:82:%02x:%s" % (len(NUL_NAME) + 2, len(NUL_NAME), NUL_NAME.hex(":"))


@pytest.fixture(scope="session")
def certificates(tmp_path_factory):
    """NAME.pem and NAME.key: two authorities, and certificates of the first unless the name says otherwise."""
    place = tmp_path_factory.mktemp("certificates")

    def openssl(*args):
        subprocess.run(["openssl", *args], check=True, capture_output=True, cwd=place)

    def new(name, *options):
        openssl("req", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-subj", f"/CN={name}",
                "-keyout", f"{name}.key", "-out", f"{name}.pem", *options)

    (place / "ca.cnf").write_text(CA_CONFIGURATION)
    (place / "index").touch()
    for name in "ca", "foreign_ca":
        new(name, "-nodes", "-x509")
    new("self_signed", "-nodes", "-x509", "-addext", f"subjectAltName={HERE}")
    for name, names in (("here", HERE), ("expired", HERE), ("foreign", HERE), ("elsewhere", "DNS:elsewhere.test"),
                        ("nul", NUL), ("encrypted", HERE)):
        new(name, "-addext", f"subjectAltName={names}", *(["-passout", "pass:open"] if name == "encrypted" else ["-nodes"]))
        ca = "foreign_ca" if name == "foreign" else "ca"
        dates = ["-startdate", "20200101000000Z", "-enddate", "20200102000000Z"] if name == "expired" else []
        openssl("ca", "-batch", "-notext", "-config", "ca.cnf", "-cert", f"{ca}.pem", "-keyfile", f"{ca}.key",
                "-in", f"{name}.pem", "-out", f"{name}.pem", *dates)
    return place
