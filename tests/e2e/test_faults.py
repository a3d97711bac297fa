"""What every broken broker, link and service looks like to the user."""

import contextlib
import re
import socket
import subprocess
import threading
import time

import pytest

from harness import (HI, HI_BLOCK, READ_TOPIC, WRITE_TOPIC, Running, field, puback, read_reply, record,
                     run_korvid, scaled)


def assert_fails(result, words, seconds, connecting=False):
    """Status 1, nothing printed, the complaint's words, and in time."""
    assert result.status == 1 and result.out == b"", result
    assert re.search(words, result.err, re.S | re.I), result
    errors = [line for line in result.err.splitlines() if line.startswith("ERROR: ")]
    assert len(errors) == (1 if connecting else 0), result
    assert re.search("^korvid: ", result.err, re.M), result
    assert result.seconds < scaled(seconds), result


@contextlib.contextmanager
def swallowing_port():
    """A listener with a full backlog: SYNs to it get no answer."""
    with socket.create_server(("127.0.0.1", 0), backlog=0) as listener:
        fillers = [socket.socket() for _ in range(3)]
        for filler in fillers:
            filler.setblocking(False)
            filler.connect_ex(listener.getsockname())
        yield listener.getsockname()[1]
        for filler in fillers:
            filler.close()


def test_no_listener_and_an_unknown_host_are_told_at_once(scripted):
    gone = scripted()
    gone.close()
    for command in ["get"], ["set", "1", "str", "x"], ["getsec"], ["setsec", __file__]:
        assert_fails(run_korvid(*command, port=gone.port),
                     f"127.0.0.1:{gone.port}.*refused", 1, connecting=True)
    # A name with an empty label is refused by the resolver without asking anybody.
    assert_fails(run_korvid("-H", "no..host", "get", port=gone.port), f"no..host:{gone.port}", 1,
                 connecting=True)


@pytest.mark.parametrize("peer_kind", ["swallows packets", "says nothing", "accepts without end"])
def test_a_broker_that_never_accepts_costs_the_connect_timeout(scripted, peer_kind):
    with contextlib.ExitStack() as stack:
        if peer_kind == "swallows packets":
            port = stack.enter_context(swallowing_port())
        else:
            script = {1: b"" if peer_kind == "says nothing" else b"\x20\xff\xff\x7f"}
            port = scripted(script).port
        for timeout in 400, 1200:
            got = run_korvid("get", port=port, connect_timeout_ms=timeout)
            assert_fails(got, f"127.0.0.1:{port}", timeout / 1000 + 0.7, connecting=True)
            assert got.seconds >= timeout / 1000, got


@pytest.mark.parametrize("greeting, answer, words", [
    (b"HTTP/1.1 400 Bad Request\r\n\r\n", b"", ""),
    (b"SSH-2.0-peer\r\n", b"", ""),
    (b"", b"\x20\x03\x00\x87\x00", "not authori[sz]ed"),
    (b"", b"\x20\x03\x00\x97\x00", "quota"),
    (b"", b"\x20\x02\x00\x05", ""),
    (b"", b"\x90\x03\x00\x01\x00", ""),
    (b"\0" * 65536, b"", ""),
], ids=["HTTP", "SSH", "not authorised", "quota", "MQTT 3 refusal", "SUBACK", "zeros"])
def test_a_peer_that_is_no_broker_or_refuses_is_told_at_once(scripted, greeting, answer, words):
    port = scripted({1: answer}, greeting).port
    assert_fails(run_korvid("get", port=port), f"127.0.0.1:{port}.*{words}", 3.5, connecting=True)


def test_refused_credentials_and_good_ones(new_broker, new_unit, tmp_path):
    passwords, secret = tmp_path / "passwords", tmp_path / "secret"
    subprocess.run(["mosquitto_passwd", "-b", "-c", passwords, "bench", "right"], check=True)
    port = new_broker(f"password_file {passwords}", anonymous=False).port
    for word, settings in (("wrong", {"username": "bench"}), ("right", {"username": "else"}),
                           ("right", {})):
        secret.write_text(word + "\n")
        settings = {**settings, "password_file": secret} if settings else {}
        got = run_korvid("get", port=port, **settings)
        assert_fails(got, f"127.0.0.1:{port}.*(not authori[sz]ed|user name or password)", 1,
                     connecting=True)
        assert word not in got.err
    assert_fails(run_korvid("get", port=port, username="bench", password_file=secret),
                 "no parameter service is listening", 1.2)


@pytest.fixture(scope="module")
def certificates(tmp_path_factory):
    """Two authorities, each with a certificate: ours for 127.0.0.1, and one for elsewhere."""
    place = tmp_path_factory.mktemp("tls")
    for name, host in ("good", "IP:127.0.0.1"), ("elsewhere", "DNS:elsewhere.test"):
        openssl = ["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256",
                   "-nodes", "-days", "2", "-subj", f"/CN={name}", "-addext", f"subjectAltName={host}",
                   "-keyout", place / f"{name}.key", "-out", place / f"{name}.pem"]
        subprocess.run(openssl, check=True, capture_output=True)
    return place


@pytest.mark.parametrize("server, trusted, words", [
    ("good", "good", None),
    ("good", "elsewhere", "certificate"),
    ("elsewhere", "elsewhere", "certificate|host ?name"),
    ("plain", "good", "tls"),
    ("good", None, ""),
])
def test_tls_is_checked_and_its_refusals_are_named(new_broker, new_unit, certificates, server, trusted,
                                                  words):
    tls = [] if server == "plain" else [f"certfile {certificates / server}.pem",
                                        f"keyfile {certificates / server}.key"]
    port = new_broker(*tls).port
    got = run_korvid("get", port=port, **({"ca_file": certificates / f"{trusted}.pem"} if trusted else {}))
    if words is None:
        assert_fails(got, "no parameter service is listening", 1.2)
    else:
        assert_fails(got, f"127.0.0.1:{port}.*{words}", 3.5 if trusted is None else 1, connecting=True)


def test_no_service_is_told_by_the_broker_or_by_silence(broker, scripted):
    for command in ["get"], ["get", "1"], ["set", "1", "str", "x"]:
        assert_fails(run_korvid(*command, port=broker.port), "no parameter service is listening", 1)
    hinting, mute = scripted({3: puback(0x10)}), scripted({3: puback()})
    assert_fails(run_korvid("get", port=hinting.port), "no parameter service is listening", 1)
    assert_fails(run_korvid("get", port=mute.port, request_timeout_ms=900), "no (reply|answer)", 1.6)


def test_a_broker_that_wrongly_denies_a_service_does_no_harm(scripted):
    """The reply comes although the PUBACK said that nobody is there."""
    seen = {}

    def answer(body):
        at = 2 + int.from_bytes(body[:2], "big")
        properties = body[at + 3:at + 3 + body[at + 2]]
        topic = re.search(rb"clients/korvid-[0-9a-f]{16}/reply", properties)[0]
        seen["correlation"] = correlation = properties.split(b"\x09\x00\x10")[1][:16]
        content = (len(topic).to_bytes(2, "big") + topic + b"\x13\x09\x00\x10" + correlation
                   + read_reply(HI))
        return puback(0x10)(body) + b"\x30" + bytes([len(content)]) + content
    got = run_korvid("get", port=scripted({3: answer}).port)
    assert (got.status, got.out, got.err) == (0, HI_BLOCK, "") and len(seen["correlation"]) == 16


WHOLE = read_reply(HI, record(300, 0, 0, b""))
CUT = "malformed|truncated|cut|incomplete|not understood|invalid"


@pytest.mark.parametrize("payload, words", [
    *((WHOLE[:n], CUT) for n in (1, 8, len(HI) + 2, len(WHOLE) - 1)),
    (read_reply(HI, count=2), CUT), (read_reply(HI, count=0), CUT), (b"\xff" * 20, CUT),
    (b"", CUT), (field(2, b"text"), CUT),
])
def test_a_damaged_reply_is_an_error_at_once(broker, peer, payload, words):
    peer(broker.port, READ_TOPIC, on_message=lambda service, request: service.reply(request, payload))
    for command in ["get"], ["get", "288"], ["set", "288", "str", "x"]:
        assert_fails(run_korvid(*command, port=broker.port), words, 1)


def test_a_services_error_text_reaches_the_user(broker, peer):
    text = "the store is on fire: 100 % \u00fc"
    peer(broker.port, READ_TOPIC, on_message=lambda service, request: service.reply(
        request, UserProperty=("error", text)))
    assert_fails(run_korvid("get", port=broker.port), re.escape(text), 1)


def test_foreign_replies_are_ignored(broker, peer):
    def answer(service, request):
        for wrong in b"x" * 16, request.properties.CorrelationData[:8], b"y" * 200:
            service.reply(request, read_reply(), correlation=wrong)
        service.publish("clients/korvid-0/reply", read_reply(), wait=False,
                        CorrelationData=request.properties.CorrelationData)
        service.publish(request.properties.ResponseTopic, read_reply(), wait=False)
        service.reply(request, read_reply(HI))
        service.reply(request, read_reply())
    peer(broker.port, READ_TOPIC, on_message=answer)
    got = run_korvid("get", port=broker.port)
    assert (got.status, got.out, got.err) == (0, HI_BLOCK, "")


def serve_reads(service, request):
    if request.topic == READ_TOPIC:
        service.reply(request, read_reply(HI))


DOUBT = "may or may not have been written.*get"


def test_a_silent_service_costs_the_request_timeout(broker, peer):
    silent = peer(broker.port, READ_TOPIC)
    got = run_korvid("get", port=broker.port, request_timeout_ms=900)
    assert_fails(got, "no (reply|answer)", 1.6)
    assert got.seconds >= 0.9
    silent.close()
    peer(broker.port, READ_TOPIC, WRITE_TOPIC, on_message=serve_reads)
    assert_fails(run_korvid("set", "288", "str", "x", port=broker.port, request_timeout_ms=900), DOUBT, 1.6)


@pytest.mark.parametrize("command, topic, words", [
    (["get"], READ_TOPIC, ""), (["set", "288", "str", "x"], WRITE_TOPIC, DOUBT)])
def test_a_broker_dying_under_a_request_is_told_at_once(broker, peer, command, topic, words):
    asked = threading.Event()
    service = peer(broker.port, READ_TOPIC, WRITE_TOPIC, on_message=lambda s, r: (
        asked.set() if r.topic == topic else serve_reads(s, r)))
    korvid = Running(*command, port=broker.port)
    assert asked.wait(scaled(5))
    broker.process.kill()
    killed = time.monotonic()
    got = korvid.result()
    assert_fails(got, words, 6)
    assert time.monotonic() - killed < scaled(1), got


def test_a_reply_over_a_slow_link_is_read_whole(broker, unit, proxy):
    slow = proxy(broker.port, latency=0.02, bandwidth=20000)
    whole = run_korvid("get", port=broker.port)
    assert run_korvid("get", port=slow.port).out == whole.out != b""


def test_settings_that_make_no_sense_are_refused_with_their_place(tmp_path):
    config = tmp_path / "lapi.conf"
    config.write_text("# ours\nhost = 127.0.0.1\nprot = 1883\nport = 99999\n")
    got = run_korvid("get", config=config)
    assert got.status == 1 and got.err.splitlines()[-1] == "ERROR: Configuration verification failed!"
    assert re.search(rf"ERROR: .*{config}:3.*prot", got.err), got
    assert re.search(rf"ERROR: .*{config}:4.*99999", got.err), got
    got = run_korvid("get", request_timeout_ms="soon")
    assert got.status == 1 and "ECU_LAPI_REQUEST_TIMEOUT_MS" in got.err and "soon" in got.err, got
    for port in "0", "65536", "mqtt", "18 83":
        got = run_korvid("-p", port, "get")
        assert got.status == 1 and port in got.err and "ERROR: " in got.err, got
