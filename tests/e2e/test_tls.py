"""TLS between a client and a broker: what is accepted, and what each refusal looks like to the user."""

import contextlib
import os
import re
import select
import ssl

import pytest

from harness import NO_SERVICE, Listening, Running, assert_fails, free_port, run_korvid


def settings(certificates, client=None, ca="ca"):
    pair = {"cert_file": certificates / f"{client}.pem", "key_file": certificates / f"{client}.key"} if client else {}
    return {"ca_file": certificates / f"{ca}.pem", **pair}


def listener(certificates, name, *lines):
    return [f"certfile {certificates / name}.pem", f"keyfile {certificates / name}.key", *lines]


@pytest.mark.parametrize("server, words", [
    ("here", None), ("expired", "expired"), ("elsewhere", "host ?name|address"), ("nul", "host ?name"),
    ("foreign", "certificate"), ("self_signed", "certificate")])
def test_only_a_server_with_the_right_certificate_is_talked_to(new_broker, certificates, server, words):
    port = new_broker(*listener(certificates, server)).port
    for host in ["127.0.0.1", "localhost"] if server != "nul" else ["localhost"]:
        got = run_korvid("-H", host, "get", port=port, **settings(certificates))
        assert_fails(got, f"{host}:{port}.*TLS.*({words})" if words else NO_SERVICE, 1.5, connecting=bool(words))


@pytest.mark.parametrize("client, words", [
    ("here", None), (None, "certificate"), ("foreign", "certificate|unknown ca"), ("expired", "expired")])
def test_a_broker_takes_only_clients_with_the_right_certificate(new_broker, certificates, client, words):
    port = new_broker(*listener(certificates, "here", f"cafile {certificates}/ca.pem", "require_certificate true")).port
    got = run_korvid("get", port=port, **settings(certificates, client))
    assert_fails(got, f"127.0.0.1:{port}.*TLS.*({words})" if words else NO_SERVICE, 1.5, connecting=bool(words))


class OldServer(Listening):
    """Speaks TLS 1.1 and nothing later."""

    def __init__(self, certificates):
        self.context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        self.context.load_cert_chain(certificates / "here.pem", certificates / "here.key")
        self.context.set_ciphers("ALL:@SECLEVEL=0")
        self.context.minimum_version = self.context.maximum_version = ssl.TLSVersion.TLSv1_1
        super().__init__()

    def serve(self, link):
        with contextlib.suppress(OSError), self.context.wrap_socket(link, server_side=True) as secured:
            secured.recv(1)


def test_old_tls_is_refused(ending, certificates):
    server = OldServer(certificates)
    ending.callback(server.close)
    got = run_korvid("get", port=server.port, **settings(certificates))
    assert_fails(got, f"127.0.0.1:{server.port}.*TLS.*(version|protocol)", 1.5, connecting=True)


def test_tls_on_one_side_only_is_told(broker, new_broker, certificates):
    for port, own in (broker.port, settings(certificates)), (new_broker(*listener(certificates, "here")).port, {}):
        assert_fails(run_korvid("get", port=port, **own), f"127.0.0.1:{port}.*TLS", 1.5, connecting=True)


@pytest.mark.parametrize("on_terminal", [True, False])
def test_an_encrypted_key_is_an_error_and_no_question(ending, new_broker, certificates, on_terminal):
    port = new_broker(*listener(certificates, "here")).port
    ours, theirs = os.openpty() if on_terminal else os.pipe()[::-1]
    for end in ours, theirs:
        ending.callback(os.close, end)
    if not on_terminal:
        os.write(ours, b"open\n")
    got = Running("get", port=port, stdin=theirs, prefix=["setsid", *(["-c"] if on_terminal else [])],
                  **settings(certificates, "encrypted")).result(5)
    assert got.status == 1 and re.search("pass ?phrase|encrypted", got.err, re.I) and got.seconds < 1.5, got
    unread, _, _ = select.select([ours if on_terminal else theirs], [], [], 0)
    assert bool(unread) != on_terminal, "asked on the terminal, or read from standard input"


@pytest.mark.parametrize("mode, host, secured, warned", [
    (0o600, "127.0.0.1", False, []), (0o600, "::1", False, []), (0o600, "LOCALHOST", False, []),
    (0o600, "no..host", False, ["no..host"]), (0o600, "no..host", True, []),
    (0o640, "127.0.0.1", False, ["word"]), (0o604, "no..host", True, ["word", "here.key"])])
def test_an_exposed_secret_is_told_once(tmp_path, certificates, mode, host, secured, warned):
    word = tmp_path / "word"
    word.write_text("secret")
    for file in word, certificates / "here.key":
        file.chmod(mode)
    got = run_korvid("-H", host, "get", port=free_port(), username="bench", password_file=word,
                     **(settings(certificates, "here") if secured else {}))
    warnings = re.findall("^WARNING: .*", got.err, re.M)
    assert len(warnings) == len(warned) and all(name in text for name, text in zip(warned, warnings)), got
