"""TLS: which brokers and clients are accepted, and what each refusal looks like to the user."""

import os
import re
import select
import socket
import subprocess
import time

import pytest

from harness import NO_SERVICE, assert_fails, needs_root
from processes import Running, await_that, free_port, run_korvid, scaled


def settings(place, client=None, ca="ca"):
    files = {"ca_file": f"{ca}.pem"} if ca else {}
    if client:
        files |= {"cert_file": f"{client}.pem", "key_file": f"{client}.key"}
    return {key: place / name for key, name in files.items()}


def identity(place, server):
    """A listener's lines; without a server's name it is a plain one."""
    return [f"certfile {place / server}.pem", f"keyfile {place / server}.key"] if server else []


@pytest.mark.parametrize("server, trusted, client, words", [
    ("here", "ca", None, None), ("expired", "ca", None, "expired"),
    ("elsewhere", "ca", None, "host ?name|address"), ("nul", "ca", None, "host ?name"),
    ("foreign", "ca", None, "certificate"), ("here", "foreign", None, "certificate"),
    ("here", "ca", "here", None), ("here", "ca", "", "no cert_file is set.: certificate required"),
    ("here", "ca", "expired", "the certificate '.*expired.pem': certificate expired"),
    ("here", "ca", "foreign", "the certificate '.*foreign.pem': unknown CA"),
    ("here", None, None, "no ca_file is set"), (None, "ca", None, "speak TLS")])
def test_who_is_talked_to_over_tls(new_broker, certificates, server, trusted, client, words):
    """The broker asks for a client's certificate unless that is None."""
    mutual = [f"cafile {certificates}/ca.pem", "require_certificate true"]
    port = new_broker(*identity(certificates, server), *mutual * (client is not None)).port
    for host in ["127.0.0.1", "localhost"][server == "nul":]:
        got = run_korvid("-H", host, "get", port=port, **settings(certificates, client, trusted))
        assert_fails(got, f"{host}:{port}.*TLS.*({words})" if words else NO_SERVICE, 1.5,
                     connecting=bool(words))


@needs_root
@pytest.mark.parametrize("server, words", [("wildcard", None), ("partial", "host ?name")])
def test_a_wildcard_stands_for_a_whole_label(new_broker, certificates, named, server, words):
    got = run_korvid("-H", "unit.korvid.test", "get", **settings(certificates),
                     port=new_broker(*identity(certificates, server)).port,
                     prefix=named("127.0.0.1 unit.korvid.test"))
    assert_fails(got, words or NO_SERVICE, 1.5, connecting=bool(words))


@needs_root
def test_what_one_address_did_is_not_told_of_another(ending, new_broker, certificates, named):
    port, listeners = free_port(), []
    for address, server in ("127.0.0.1", "expired"), ("127.0.0.9", "wildcard"):
        listeners += [f"listener {port} {address}", "allow_anonymous true",
                      *identity(certificates, server)]
    broker = new_broker(*listeners)
    running = Running("-H", "unit.korvid.test", "-l", "NOTICE", "getsec", port=port,
                      **settings(certificates),
                      prefix=named("127.0.0.1 unit.korvid.test", "127.0.0.9 unit.korvid.test"))
    ending.callback(running.process.kill)
    assert b"No unit listens" in running.process.stderr.readline()
    broker.process.kill()
    lost = running.process.stderr.readline()
    assert b"the connection was lost: the connection was closed\n" in lost, lost


def test_a_connection_that_is_reset_in_the_handshake_is_told(ending, certificates):
    listener = ending.enter_context(socket.create_server(("127.0.0.1", 0)))
    running = Running("-H", "localhost", "get", port=listener.getsockname()[1],
                      **settings(certificates))
    link = listener.accept()[0]
    assert b"localhost" in link.recv(4096, socket.MSG_PEEK)
    time.sleep(scaled(0.3))  # it waits for an answer
    link.close()  # with its words unread
    assert_fails(running.result(), "TLS: the connection was closed before it was accepted", 1.5,
                 connecting=True)


def test_tls_below_1_2_is_refused(ending, certificates):
    port = free_port()
    command = ("openssl s_server -tls1_1 -cipher ALL:@SECLEVEL=0 -cert here.pem -key here.key "
               f"-accept 127.0.0.1:{port}")
    server = ending.enter_context(subprocess.Popen(
        command.split(), cwd=certificates, bufsize=0,
        stdin=subprocess.PIPE, stdout=subprocess.PIPE))
    ending.callback(server.kill)
    await_that(lambda: server.stdout.readline() == b"ACCEPT\n", "the server listens")
    got = run_korvid("get", port=port, **settings(certificates))
    assert_fails(got, f"127.0.0.1:{port}.*TLS.*(version|protocol)", 1.5, connecting=True)


@pytest.mark.parametrize("terminal", [True, False])
def test_an_encrypted_key_is_an_error_and_no_question(ending, new_broker, certificates, terminal):
    ours, theirs = os.openpty() if terminal else os.pipe()[::-1]
    for end in ours, theirs:
        ending.callback(os.close, end)
    os.write(ours, b"" if terminal else b"open\n")
    got = Running("get", port=new_broker(*identity(certificates, "here")).port, stdin=theirs,
                  prefix=["setsid", *["-c"] * terminal],
                  **settings(certificates, "encrypted")).result(5)
    assert got.status == 1 and re.search("pass ?phrase|encrypted", got.err, re.I), got
    unread = select.select([ours if terminal else theirs], [], [], 0)[0]
    assert bool(unread) != terminal, "asked on the terminal, or read standard input"
