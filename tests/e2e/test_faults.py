"""What every broken broker, link and service looks like to the user."""

import os
import random
import re
import signal
import socket
import threading
import time

import pytest

from harness import HI, HI_BLOCK, NO_SERVICE, assert_fails, needs_root, puback
from packets import counted
from processes import DEMO_UNIT, Running, free_port, run_korvid, scaled
from protocol import READ_TOPIC, WRITE_TOPIC, read_reply

DOUBT = "may or may not have been written.*get"
SET = ["set", "288", "str", "x"]


@pytest.fixture
def swallowing(ending):
    """The port of a listener with a full backlog: SYNs to it get no answer."""
    listener = ending.enter_context(socket.create_server(("127.0.0.1", 0), backlog=0))
    for _ in range(3):
        filler = ending.enter_context(socket.socket())
        filler.setblocking(False)
        filler.connect_ex(listener.getsockname())
    return listener.getsockname()[1]


def test_a_broker_that_never_accepts_costs_the_connect_timeout(scripted, swallowing):
    mute, endless = scripted({1: b""}), scripted({1: b"\x20\xff\xff\x7f"})
    for port in swallowing, mute.port, endless.port:
        for seconds in 0.4, 1.2:
            got = run_korvid("get", port=port, connect_timeout_ms=int(seconds * 1000))
            assert_fails(got, f"127.0.0.1:{port}", seconds + 0.7, connecting=True)
            assert got.seconds >= seconds, got


@pytest.mark.parametrize("greeting, answer, words", [
    (b"HTTP/1.1 400 Bad Request\r\n\r\n", b"", ""), (b"SSH-2.0-peer\r\n", b"", ""),
    (b"\0" * 65536, b"", "broker"), (b"", b"\x20\x03\x00\x97\x00", "quota"),
    (b"", b"\x20\x02\x00\x05", "broker"), (b"", b"\x90\x03\x00\x01\x00", "broker"),
], ids=["HTTP", "SSH", "zeros", "quota", "MQTT 3 refusal", "SUBACK"])
def test_a_peer_that_is_no_broker_or_refuses_is_told(scripted, greeting, answer, words):
    port = scripted({1: answer}, greeting).port
    got = run_korvid("get", port=port, connect_timeout_ms=1000)
    assert_fails(got, f"127.0.0.1:{port}: .*{words}", 1 if words else 1.5, connecting=True)


def test_the_brokers_own_words_are_told(scripted):
    moved = b"\x20\x1f\x00\x9d\x1c\x1c\x00\x06b.test\x1f\x00\x10gone\xe2\x80\xae for good"
    got = run_korvid("get", port=scripted({1: moved}).port)
    assert_fails(got, r"moved.*gone.u202e for good.*b.test", 1.5, connecting=True)
    assert "\u202e" not in got.err


def test_a_cut_inside_a_packet_is_told(scripted):
    peer = scripted({3: b"\x30\x7f\x00\x05clie"})
    running = Running("get", port=peer.port)
    time.sleep(0.3)
    peer.close()
    assert_fails(running.result(), "connection was closed", 1.5)
    assert "Success" not in running.err


@needs_root
def test_every_address_of_a_name_is_tried(new_broker, new_unit, scripted, named):
    own, port = named("::1 several", "127.0.0.1 several", "127.0.0.9 several"), free_port()
    new_unit(new_broker(f"listener {port} 127.0.0.9", "allow_anonymous true").port, "-i", DEMO_UNIT)
    for connack in None, b"\x20\x03\x00\x88\x00":  # the address before it closes, refuses
        first = scripted({1: connack}, port=port)
        got = Running("-H", "several", "get", "288", port=port, prefix=own).result()
        first.close()
        assert (got.status, got.out, got.err) == (0, HI_BLOCK, "") and got.seconds < scaled(1), got
    got = Running("-H", "several", "get", port=1, prefix=own).result()
    causes = "::1: .*; 127.0.0.1: Connection refused; 127.0.0.9: Connection refused$"
    assert_fails(got, f"several:1: {causes}", 1, connecting=True)


def test_a_unit_and_a_client_differ_in_connect(scripted, new_unit):
    """Keep-alive and Receive Maximum, by the flag of a will."""
    connects = set()

    def connack(body):
        receive_maximum = body[10:].split(b"\x21")[1][:2]
        connects.add((bool(body[7] & 4), int.from_bytes(body[8:10], "big"), receive_maximum.hex()))
        return b"\x20\x03\0\0\0"
    port = scripted({1: connack, 3: puback(0x10)}).port
    assert_fails(run_korvid("get", port=port), NO_SERVICE, 1)
    new_unit(port)
    assert connects == {(True, 300, "0014"), (False, 7200, "ffff")}


def test_a_broker_that_wrongly_denies_a_service_does_no_harm(scripted):
    def answer(body):
        if topic := re.search(rb"clients/korvid-[0-9a-f]{16}/reply", body):
            yield puback(0x10)(body)
            time.sleep(0.2)
            correlation = body.split(b"\x09\x00\x10")[1][:16]
            content = counted(topic[0]) + b"\x13\x09\x00\x10" + correlation + read_reply(HI)
            yield b"\x30%c" % len(content) + content
    got = run_korvid("get", port=scripted({3: answer}).port)
    assert (got.status, got.out, got.err) == (0, HI_BLOCK, "")


def test_foreign_and_further_replies_are_ignored(broker, peer):
    def answer(service, request):
        own = request.properties.CorrelationData
        for wrong in b"x" * 16, own[:8], own + b"y", b"z" * 200:
            service.reply(request, read_reply(), correlation=wrong)
        service.publish("clients/korvid-0/reply", read_reply(), wait=False, CorrelationData=own)
        service.publish(request.properties.ResponseTopic, read_reply(), wait=False)
        service.reply(request, read_reply(HI))
        service.reply(request, read_reply())
    peer(broker.port, READ_TOPIC, on_message=answer)
    got = run_korvid("get", port=broker.port)
    assert (got.status, got.out, got.err) == (0, HI_BLOCK, "")


@pytest.mark.parametrize("command, silent_on, words", [
    (["get"], READ_TOPIC, "no reply"), (SET, WRITE_TOPIC, DOUBT)])
def test_a_silent_service_and_a_dying_broker_are_told(broker, peer, command, silent_on, words):
    asked = threading.Event()
    peer(broker.port, READ_TOPIC, WRITE_TOPIC, on_message=lambda service, request: (
        asked.set() if request.topic == silent_on else service.reply(request, read_reply(HI))))
    got = run_korvid(*command, port=broker.port, request_timeout_ms=900)
    assert_fails(got, words, 1.8)
    assert got.seconds >= 0.9
    asked.clear()
    korvid = Running(*command, port=broker.port)
    assert asked.wait(scaled(5))
    broker.process.kill()
    killed = time.monotonic()
    assert_fails(korvid.result(), DOUBT if command == SET else "", 5)
    assert time.monotonic() - killed < scaled(1)


@pytest.mark.parametrize("seen, doubt", [(READ_TOPIC, ""), ("clients/+/reply", DOUBT)])
def test_a_request_that_timed_out_at_a_paused_unit_is_never_executed(
        broker, unit, peer, proxy, seen, doubt):
    """The unit pauses at the read, or behind it, before the write has passed the slow link."""
    asked = peer(broker.port, seen,
                 on_message=lambda *_: os.kill(unit.process.pid, signal.SIGSTOP))
    slow = proxy(broker.port, latency=0.1)
    got = run_korvid(*SET, port=slow.port, request_timeout_ms=500)
    assert_fails(got, "no reply within 500 ms.*" + doubt, 2.5)
    asked.on_message = None
    os.kill(unit.process.pid, signal.SIGCONT)
    assert run_korvid("get", "288", port=broker.port).out == HI_BLOCK


def test_a_cut_or_stalled_link_fails_setsec_and_leaves_the_old_blob(broker, unit, proxy, tmp_path):
    def set_blob(blob, port):
        (tmp_path / "blob").write_bytes(blob)
        return run_korvid("setsec", tmp_path / "blob", port=port)
    old, new = b"the old blob" * 1000, b"<" + random.Random(6).randbytes(600_000) + b">"
    whole = proxy(broker.port)
    assert set_blob(new, whole.port).status == 0
    assert set_blob(old, broker.port).status == 0
    begin = whole.upstream.index(new)
    end = begin + len(new)
    for cut_at in 1, begin - 30, begin, begin + 1, begin + 300_000, end - 1:
        assert_fails(set_blob(new, proxy(broker.port, cut_at=cut_at).port), "", 6, cut_at == 1)
    assert_fails(set_blob(b"n" * 20_000_000, proxy(broker.port, stall_at=300_000).port), "", 28)
    assert run_korvid("getsec", port=broker.port).out == b"SecStore blob size: 12000\n%s\n" % old
