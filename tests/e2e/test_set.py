"""Writing parameters: every interpretation, and units that are paused or full."""

import os
import re
import signal

import pytest

from harness import HI_BLOCK, needs_root
from processes import DEMO_UNIT, run_korvid, scaled
from protocol import READ_TOPIC, WRITE_TOPIC, block, field, record

DEMO = DEMO_UNIT.read_bytes()
EXAMPLES = """bytes 1b 2c 4c > 1b2c4c | dec 4223 > 7f10 | hex ab18 > 18ab | str Hello World > 48656c6c6f |
    hex abc > bc0a | hex 0xab18 > 18ab00 | hex ab18zz > 18ab00 | hex 0123456789abcdef > efcdab8967452301 |
    hex zz > 00 | hex -1 > ff | dec 0 > 00 | dec 255 > ff | dec 256 > 0001 | dec 65536 > 000001 |
    dec 18446744073709551615 > ffffffffffffffff | dec 18446744073709551616 > ffffffffffffffff |
    dec -1 > ffffffffffffffff | dec abc > 00 | dec 12abc > 0c | bytes 1ff zz 0x1b > ff001b |
    bytes 100000000 -100000000 > ffff | b -1 +7f 0X0a fffffffe -fffffffe > ff7f0afe02 | h -0x2 > feff |
    d -2 > feffffffffffffff | d 0x10 > 00 | s 0x10 > 30783130 | d +9 > 09 | hex f ff > 0f | hex 00000 > 000000 |
    bytes ffffffffffffffff12 -ffffffffffffffff12 -ffffffffffffffff -ffffffff00000012 -ffffffff > ffffffff01 |
    bytes 1b2c ffffffff -1 +3 > 2cffff03"""
VALUES = [("0x120", *words.split(), bytes.fromhex(stored))
          for words, stored in (example.split(" > ") for example in EXAMPLES.split("|"))] + [
    *(("0x120", "str", text, text.encode()) for text in ("Hello World", "", "'\n\r\u00fc\\n", "x" * 100000)),
    ("0x120", "bytes", " 7", "\t-2", "- 2", "", b"\x07\xfe\0\0"), ("0x120", "dec", " 7", "8", b"\x07"),
    ("0x120", "bytes", "", b"\0"), ("0x120", "hex", "", b""), ("0x120", "dec", "", b"\0"),
    ("0x120", "dec", " \t12", b"\x0c"), ("4096", "dec", "1", b"\1"), ("-1", "dec", "1", b"\1"),
    ("0X120", "hex", "ab18", b"\x18\xab")]


def test_a_value_is_read_as_its_word_says_and_stored_and_nothing_else_changes(broker, unit):
    blocks = {}
    for otaid, *arguments, stored in VALUES:
        got = run_korvid("set", "--", otaid, *arguments, port=broker.port)
        assert (got.status, got.out, got.err) == (0, b"", ""), (arguments, got)
        number, did, xcpid = {"0x120": (288, 255, 10), "-1": (2**32 - 1, 0, 2**32 - 1), "4096": (4096, 0, 0),
                              "0X120": (0, 0, 0)}[otaid]
        blocks[otaid] = block(number, did, xcpid, stored)
        assert run_korvid("get", "--", otaid, port=broker.port).out == blocks[otaid], arguments
    everything = run_korvid("get", port=broker.port).out
    for stored in blocks.values():
        assert everything.count(stored) == 1
        everything = everything.replace(stored, b"")
    last = block(2**32 - 1, 0, 2**32 - 1, b"last")
    assert everything == DEMO.replace(HI_BLOCK, b"").replace(last, b"")


NO_FORMAT = "Set command requires a format how the data should be written!\n\n  set <OTAID> <AS> value\n"


@pytest.mark.parametrize("arguments, out, err", [
    ([], b"", "Nothing to set..., you are doing it wrong!\nCheck the help using -h\n"),
    (["0xffffffff", "str", "x"], b"OTAID has to be a number, ignore '0xffffffff'\n", ""),
    *((["0x120", *word], b"", "No value provided for param: '0x120', ignore!\n") for word in ([], ["xyz"])),
    *((["0x120", word, "12"], b"", NO_FORMAT) for word in ("HEX", "he", "string", "")),
    (["0x120", "hex", "0123456789abcdef0"], b"", None),
])
def test_what_cannot_be_set_is_told_and_nothing_is_written(broker, unit, peer, arguments, out, err):
    requests = peer(broker.port, READ_TOPIC, WRITE_TOPIC)
    got = run_korvid("set", *arguments, port=broker.port)
    assert got.status == 1 and got.out == out, got
    if err is None:
        assert re.fullmatch(".*0123456789abcdef0.*16.*\n|.*16.*0123456789abcdef0.*\n", got.err), got
    elif err == NO_FORMAT:
        assert got.err.startswith(err) and got.err.endswith('          korvdi set 0x120 str "Hello World"\n\n')
        assert "korvid" not in got.err
    else:
        assert got.err == err
    assert [m.topic for m in requests.messages] == [READ_TOPIC]


@pytest.mark.parametrize("seen, doubt", [(READ_TOPIC, ""), ("clients/+/reply", "may or may not have been written")])
def test_a_request_that_timed_out_at_a_paused_unit_is_never_executed(broker, unit, peer, proxy, seen, doubt):
    """The unit pauses at the read, or behind it, before the write has passed the slow link."""
    asked = peer(broker.port, seen, on_message=lambda *_: os.kill(unit.process.pid, signal.SIGSTOP))
    slow = proxy(broker.port, latency=0.1)
    got = run_korvid("set", "288", "str", "late", port=slow.port, request_timeout_ms=500)
    assert got.status == 1 and "no reply within 500 ms" in got.err and doubt in got.err, got
    assert got.seconds < scaled(2.5), got
    asked.on_message = None
    os.kill(unit.process.pid, signal.SIGCONT)
    assert run_korvid("get", "288", port=broker.port).out == HI_BLOCK


@needs_root
def test_a_full_disk_is_told_in_the_stores_words_and_survived(broker, tmp_path, new_unit):
    disk = tmp_path / "disk"
    disk.mkdir()
    small = ["unshare", "-m", "sh", "-ec", 'mount -t tmpfs -o size=1m none "$0"; exec "$@"', disk]
    new_unit(broker.port, "-d", disk / "unit.db", "-i", DEMO_UNIT, prefix=small)
    acknowledged = []
    for otaid in range(9000, 9040):
        got = run_korvid("set", otaid, "str", "z" * 60000, port=broker.port)
        if got.status:
            break
        acknowledged.append(otaid)
    assert acknowledged and got.status == 1 and "full" in got.err, (acknowledged, got)
    stored = run_korvid("get", port=broker.port).out
    assert all(block(otaid, 0, 0, b"z" * 60000) in stored for otaid in acknowledged)
    assert run_korvid("set", "0x120", "str", "y" * 60000, port=broker.port).status == 1
    assert run_korvid("get", port=broker.port).out == stored


def test_a_damaged_store_is_told_in_its_words_and_survived(broker, tmp_path, new_unit, peer):
    new_unit(broker.port, "-i", DEMO_UNIT).stop()
    store = tmp_path / "unit.db"
    sound = store.read_bytes()
    store.write_bytes(sound[:4096] + b"\xa5" * (len(sound) - 4096))
    new_unit(broker.port)
    for command in ["get"], ["get", "288"], ["set", "288", "str", "x"]:
        got = run_korvid(*command, port=broker.port)
        assert got.status == 1 and got.out == b"" and "malformed" in got.err, got
    reply = peer(broker.port, "clients/#").request(WRITE_TOPIC, field(1, record(288, None, None, b"x")))
    assert "malformed" in dict(reply.properties.UserProperty)["error"] and reply.payload == b""
