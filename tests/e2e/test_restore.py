"""korvid-restore against a model, against other clients, and on a terminal."""

import contextlib
import json
import os
import pty
import random
import re
import signal
import subprocess
import unicodedata

import pytest

from processes import BIN, environment, run_korvid, scaled
from protocol import WRITE_TOPIC, block, field, record


@pytest.fixture
def restore(broker, tmp_path):
    def run(dump, *options, port=broker.port, **settings):
        (tmp_path / "dump").write_bytes(dump)
        return run_korvid(*options, tmp_path / "dump", program="korvid-restore", port=port,
                          **settings)
    return run


def fields(did, xcpid, data):
    """What JSON shows of a parameter's fields; a missing one counts as zero or empty."""
    data = data or b""
    shown = {"did": did or 0, "xcpid": xcpid or 0, "data": data.hex()}
    with contextlib.suppress(UnicodeDecodeError):
        text = data.decode()
        if not any(unicodedata.category(c) == "Cc" and c not in "\t\n" for c in text):
            shown["text"] = text
    return shown


def random_fields(rng):
    text = "".join(rng.choices("ab'\"\\{}\n\t\r\x00\x7f\x85\u00e4\u2028\U0001f600",
                               k=rng.randrange(9)))
    data = rng.choice([text.encode(), rng.randbytes(rng.randrange(300))])
    values = rng.randrange(2**32), rng.randrange(3), data
    return [value if rng.random() < 0.7 else None for value in values]


def random_object(rng, otaid, named):
    """The fields that are not None, each in any of its notations."""
    made = {"otaid": rng.choice([otaid, str(otaid), hex(otaid)])}
    made.update((key, value) for key, value in zip(("did", "xcpid"), named) if value is not None)
    if named[2] is not None:
        shown, notation = fields(*named), rng.randrange(3)
        if notation != 0 or "text" not in shown:
            made["data"] = rng.choice((str.upper, str.lower))(shown["data"])
        if notation != 1 and "text" in shown:
            made["text"] = shown["text"]
    return json.dumps(dict(rng.sample(list(made.items()), len(made))),
                      ensure_ascii=rng.random() < 0.5)


def objects(result):
    return [json.loads(line) for line in result.out.splitlines()]


@pytest.mark.parametrize("seed", range(3))
def test_a_random_unit_comes_through_dump_and_json_and_is_changed_field_by_field(
        broker, new_unit, restore, tmp_path, seed):
    rng = random.Random(seed)
    model = {otaid: random_fields(rng) for otaid in [0, 2**32 - 1, *rng.sample(range(2**32), 60)]}
    lines = [random_object(rng, otaid, named) for otaid, named in model.items()]
    (tmp_path / "lines").write_text("\n\n".join(lines))
    new_unit(broker.port, "-i", tmp_path / "lines", "-r", "0")

    def dump():
        return b"".join(block(otaid, did or 0, xcpid or 0, data or b"")
                        for otaid, (did, xcpid, data) in sorted(model.items()))
    assert run_korvid(port=broker.port).out == dump()
    (tmp_path / "dump of all").write_bytes(dump())
    made = run_korvid(tmp_path / "dump of all", program="korvid-json")
    assert objects(made) == [{"otaid": otaid, **fields(*named)}
                             for otaid, named in sorted(model.items())]
    compare = "-n", "--exit-code"
    for file, status, words in ((made.out, 0, b""),
                                (made.out[:made.out.rindex(b"\n", 0, -1) + 1], 3,
                                 b"4294967295 - 0xffffffff: not in the file, DID ")):
        got = restore(file, *compare)
        assert (got.status, got.err) == (status, "") and got.out.startswith(words), got
        assert got.out.count(b"\n") == bool(status), got

    before, expected, lines = dump(), [], []
    for otaid in 0, *rng.sample(sorted(model)[1:], 30), *rng.sample(range(2**32), 5):
        named, old = random_fields(rng), model.get(otaid)
        if otaid == 0:
            named[1] = 7  # it is read-only
        new = [new if new is not None else old for new, old in zip(named, old or [None] * 3)]
        lines.append(random_object(rng, otaid, named))
        was, now = old and fields(*old), fields(*new)
        if was != now:
            expected.append({"otaid": otaid, "was": was, "is": now})
        if otaid:
            model[otaid] = new
    expected.sort(key=lambda change: change["otaid"])
    refused = [{**change, **({} if change["otaid"] else {"refused": True})} for change in expected]
    got = restore("\n".join(lines).encode(), "--json")
    assert (got.status, objects(got)) == (1, refused) and "OTAID: 0\n" in got.err, got
    assert run_korvid(port=broker.port).out == dump()

    differ = restore(before, *compare, "--json")
    turned = [{**change, "was": change["is"], "is": change["was"]}
              for change in expected if change["otaid"]]
    assert (differ.status, differ.err) == (3, ""), differ
    assert sorted(objects(differ), key=lambda change: change["otaid"]) == turned


@pytest.mark.parametrize("pauses", [False, True])
def test_what_happens_between_read_and_write(broker, unit, restore, peer, proxy, pauses):
    """Another client changes a field that the dump does not, or the unit pauses."""
    def between(peer, _):
        peer.on_message = None
        if pauses:
            os.kill(unit.process.pid, signal.SIGSTOP)
        else:
            peer.publish(WRITE_TOPIC, field(1, record(288, 77, None, None)), wait=False,
                         ResponseTopic="clients/test/reply", CorrelationData=b"0123456789abcdef")
    peer(broker.port, "clients/+/reply", on_message=between)
    got = restore(block(288, 255, 9, b"Ho"), port=proxy(broker.port, latency=0.1).port,
                  request_timeout_ms=500)
    os.kill(unit.process.pid, signal.SIGCONT)
    changed = b'288 - 0x120: XCPID a -> 9, data "Hi" -> "Ho"\n'
    status, out, stored = ((1, b"", block(288, 255, 10, b"Hi")) if pauses else
                           (0, changed, block(288, 77, 9, b"Ho")))
    assert (got.status, got.out, "may or may not" in got.err) == (status, out, pauses), got
    assert run_korvid("get", 288, port=broker.port).out == stored


ERASE = r"\r\x1b\[K"


@pytest.mark.skipif(BIN.name == "emulated", reason="QEMU hands over no TCP_INFO: no byte counts")
@pytest.mark.parametrize("level, shown", [
    ("WARNING", rf"({ERASE}korvid-restore: receiving 0\.\d MB\r)+"
                rf"{ERASE}korvid-restore: differ: 0, .*\r\n"),
    ("ERROR", "")])
def test_a_long_transfer_shows_on_a_terminal_how_far_it_is(
        broker, new_unit, proxy, tmp_path, level, shown):
    (tmp_path / "large").write_bytes(block(1, 1, 1, b"x" * 600_000))
    new_unit(broker.port, "-i", tmp_path / "large")
    ours, theirs = pty.openpty()
    process = subprocess.Popen(["korvid-restore", "-n", "-l", level, tmp_path / "large"],
                               stdout=subprocess.DEVNULL, stderr=theirs,
                               env=environment(port=proxy(broker.port, bandwidth=3e5).port))
    os.close(theirs)
    text = b""
    with contextlib.suppress(OSError):  # the terminal's end
        while data := os.read(ours, 4096):
            text += data
    os.close(ours)
    assert process.wait(scaled(10)) == 0 and re.fullmatch(shown, text.decode()), text
