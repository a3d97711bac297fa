"""korvid-restore: a dump and a unit are brought together, and long work shows that it moves."""

import contextlib
import os
import pty
import re
import signal
import subprocess
import threading
import time

import pytest

from processes import BIN, DEMO_UNIT, Running, environment, run_korvid, scaled
from protocol import WRITE_TOPIC, block, field, record

DEMO = DEMO_UNIT.read_bytes()
MANY = b"".join(block(n, 1, n % 3, b"%d\n" % n) for n in range(5000, 6200))
CHANGED = DEMO.replace(block(288, 255, 10, b"Hi"), block(288, 254, 0, b"Ho"))
CHANGE = b'288 - 0x120: DID ff -> fe, XCPID a -> 0, data "Hi" -> "Ho"\n'


@pytest.fixture
def restore(broker, tmp_path):
    def run(dump, *options, port=broker.port, name="-", **settings):
        (tmp_path / "dump").write_bytes(dump)
        with (tmp_path / "dump").open() as stdin:
            return Running(*options, name, program="korvid-restore", port=port, stdin=stdin, **settings).result()
    return run


def test_a_unit_comes_back_and_what_the_dump_does_not_name_stays(broker, unit, restore, tmp_path):
    got = restore(CHANGED + MANY, "-n")
    lines = got.out.splitlines(keepends=True)
    assert got.status == 0 and len(lines) == 1201 and lines[0] == CHANGE, got
    assert lines[-1] == b'6199 - 0x1837: new, DID 1, XCPID 1, data "6199\\n"\n', got
    assert got.err == "korvid-restore: differ: 1201, same: 40, not in the dump: 0\n"
    assert run_korvid(port=broker.port).out == DEMO
    os.mkfifo(tmp_path / "fifo")
    threading.Thread(target=(tmp_path / "fifo").write_bytes, args=[CHANGED + MANY], daemon=True).start()
    assert restore(b"", name=tmp_path / "fifo").out == got.out
    assert run_korvid("get", *range(5000, 6200), port=broker.port).out == MANY
    again = restore(CHANGED + MANY)
    assert (again.out, again.err) == (b"", "korvid-restore: written: 0, refused: 0, same: 1241, not in the dump: 0\n")
    back = restore(DEMO, prefix=["bash", "-c", 'exec "$@" > >(exec <&-)', "-"])  # nobody reads the changes
    assert (back.status, back.err) == (0, "korvid-restore: written: 1, refused: 0, same: 40, not in the dump: 1200\n")
    assert run_korvid(port=broker.port).out.replace(MANY, b"") == DEMO


def test_refused_parameters_are_named_and_only_the_others_told_as_written(broker, new_unit, restore):
    new_unit(broker.port, "-i", DEMO_UNIT, "-r", "288", "-r", "6000")
    got = restore(CHANGED + MANY)
    assert got.status == 1 and got.out.count(b"\n") == 1199 and not re.search(b"^(288|6000) ", got.out, re.M), got
    assert got.err == ("Failed to write system parameters with OTAID: 288 6000\n"
                       "korvid-restore: written: 1199, refused: 2, same: 40, not in the dump: 0\n")
    assert restore(CHANGED, "-l", "ERROR").err == "Failed to write system parameters with OTAID: 288\n"


@pytest.mark.parametrize("dump, words, options", [
    (DEMO + MANY[:-1], "standard input:%d: expected the end" % (DEMO + MANY).count(b"\n"), {"port": 1}),
    (MANY.replace(b"\n", b"\r\n"), "standard input:1: expected the end", {}), (b"", "holds no parameter", {}),
    (DEMO, r"cannot read /no/such: No such file", {"name": "/no/such"}), (DEMO, "cannot read /: ", {"name": "/"}),
    (DEMO, "127.0.0.1:1.*refused", {"port": 1}), (DEMO, "^korvid-restore: unknown .* '-x'; try -h\n$", {"name": "-x"}),
], ids="cut crlf empty missing folder refused option".split())
def test_what_cannot_be_restored_is_told_and_nothing_is_written(broker, unit, restore, dump, words, options):
    got = restore(dump, **options)
    assert got.status == 1 and got.out == b"" and re.search(words, got.err), got
    assert run_korvid(port=broker.port).out == DEMO


def test_more_than_a_packet_holds_is_told_before_anything_is_written(new_broker, new_unit, restore):
    port = new_broker("max_packet_size 9000").port
    new_unit(port, "-i", DEMO_UNIT)
    got = restore(MANY, port=port)
    assert got.status == 1 and got.out == b"" and "more than this broker takes in one packet" in got.err, got
    assert run_korvid(port=port).out == DEMO


@pytest.mark.parametrize("ends", [False, True])
def test_what_happens_between_read_and_write(broker, unit, restore, peer, proxy, ends):
    """Another client changes a field that the dump does not, or the unit pauses."""
    def between(peer, _):
        peer.on_message = None
        if ends:
            os.kill(unit.process.pid, signal.SIGSTOP)
        else:
            peer.publish(WRITE_TOPIC, field(1, record(288, 77, None, None)), wait=False,
                         ResponseTopic="clients/test/reply", CorrelationData=b"0123456789abcdef")
    peer(broker.port, "clients/+/reply", on_message=between)
    got = restore(block(288, 255, 9, b"Ho"), port=proxy(broker.port, latency=0.1).port, request_timeout_ms=500)
    os.kill(unit.process.pid, signal.SIGCONT)
    expected = (1, b"", block(288, 255, 10, b"Hi")) if ends else (0, CHANGE, block(288, 77, 9, b"Ho"))
    assert (got.status, "may or may not" in got.err) == (expected[0], ends), got
    assert got.out == expected[1].replace(b"DID ff -> fe, XCPID a -> 0", b"XCPID a -> 9"), got
    assert run_korvid("get", 288, port=broker.port).out == expected[2]


ERASE = r"\r\x1b\[K"
LINE = ERASE + r"korvid-restore: reading the unit (\.\.\.|[\d.]+ MB)\r"


@pytest.mark.parametrize("level, shown", [
    ("WARNING", f"({LINE})+{ERASE}korvid-restore: differ: 1, .*\r\n"), ("ERROR", "")])
def test_long_work_shows_on_a_terminal_that_it_moves(broker, unit, tmp_path, level, shown):
    (tmp_path / "dump").write_bytes(CHANGED)
    ours, theirs = pty.openpty()
    unit.process.send_signal(signal.SIGSTOP)
    command = [BIN / "korvid-restore", "-n", "-p", str(broker.port), "-l", level, tmp_path / "dump"]
    process = subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=theirs,
                               env=environment(request_timeout_ms=int(scaled(5) * 1000)))
    os.close(theirs)
    time.sleep(1.5 * scaled(1))
    unit.process.send_signal(signal.SIGCONT)
    text = b""
    with contextlib.suppress(OSError):  # the terminal's end
        while data := os.read(ours, 4096):
            text += data
    os.close(ours)
    assert process.wait(scaled(10)) == 0 and re.fullmatch(shown, text.decode()), text
