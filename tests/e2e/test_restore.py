"""korvid-restore and korvid-json: a dump or JSON Lines are written back, and a long transfer shows how far it is."""

import contextlib
import json
import os
import pty
import random
import re
import select
import signal
import subprocess
import unicodedata

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


def test_a_unit_comes_back_and_what_the_dump_does_not_name_stays(broker, unit, restore):
    got = restore(CHANGED + MANY, "-n")
    lines = got.out.splitlines(keepends=True)
    assert got.status == 0 and len(lines) == 1201 and lines[0] == CHANGE, got
    assert lines[-1] == b'6199 - 0x1837: new, DID 1, XCPID 1, data "6199\\n"\n', got
    assert got.err == "korvid-restore: differ: 1201, same: 40, not in the dump: 0\n"
    assert run_korvid(port=broker.port).out == DEMO
    assert restore(CHANGED + MANY).out == got.out
    assert run_korvid("get", *range(5000, 6200), port=broker.port).out == MANY
    again = restore(CHANGED + MANY)
    assert (again.out, again.err) == (b"", "korvid-restore: written: 0, refused: 0, same: 1241, not in the dump: 0\n")
    for dump, output, cause in (CHANGED, "/dev/full", "No space"), (DEMO, ">(exec <&-)", "Broken pipe"):
        if dump is CHANGED:
            assert restore(DEMO).status == 0
        lost = restore(dump, prefix=["bash", "-c", f'exec "$@" > {output}', "-"])
        assert lost.status == 1 and re.fullmatch("korvid-restore: written: 1, refused: 0, same: 40, not in the dump: 1200\n"
                                                 f"korvid-restore: cannot write .*{cause}.*\n", lost.err), lost
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
    (b'\n{"otaid":288,"did":1}\n{"otaid":"0x120","did":2}', "standard input:3: a second object of OTAID 288", {}),
    (DEMO, "--exit-code needs -n; try -h", {"name": "--exit-code"}),
    (DEMO, r"cannot read /no/such: No such file", {"name": "/no/such"}), (DEMO, "cannot read /: ", {"name": "/"}),
    (DEMO, "127.0.0.1:1.*refused", {"port": 1}), (DEMO, "^korvid-restore: unknown .* '-x'; try -h\n$", {"name": "-x"}),
], ids="cut crlf empty json mode missing folder refused option".split())
def test_what_cannot_be_restored_is_told_and_nothing_is_written(broker, unit, restore, dump, words, options):
    got = restore(dump, **options)
    assert got.status == 1 and got.out == b"" and re.search(words, got.err), got
    assert run_korvid(port=broker.port).out == DEMO


def fields(did, xcpid, data):
    """What JSON shows of a parameter's fields; a missing one counts as zero or empty."""
    data = data or b""
    shown = {"did": did or 0, "xcpid": xcpid or 0, "data": data.hex()}
    with contextlib.suppress(UnicodeDecodeError):
        text = data.decode()
        if not any(unicodedata.category(c) == "Cc" and c not in "\t\n" for c in text):
            shown["text"] = text
    return shown


IMITATIONS = [b"'\n", b"\r\n", b"  data(hex) [1]: 0x00 \n", b"  data(char) [3]: 'abc'\n", b"0x41 ", block(7, 0, 0, b"x")]


def random_fields(rng):
    text = "".join(rng.choices("ab'\"\\{}\n\t\r\x00\x7f\x85\u00e4\u2028\U0001f600", k=rng.randrange(9)))
    data = [text.encode(), rng.randbytes(rng.randrange(300)), b"".join(rng.choices(IMITATIONS, k=4)), b"1"]
    values = rng.randrange(2**32), rng.randrange(3), rng.choice(data)
    return [value if rng.random() < 0.7 else None for value in values]


def random_object(rng, otaid, named):
    """The fields that are not None, each in any of its notations."""
    made = {"otaid": rng.choice([otaid, str(otaid), hex(otaid)])}
    made.update((key, value) for key, value in zip(("did", "xcpid"), named) if value is not None)
    if named[2] is not None:
        shown, notation = fields(*named), rng.randrange(3)
        if notation != 0 or "text" not in shown:
            made["data"] = shown["data"].upper() if rng.random() < 0.5 else shown["data"]
        if notation != 1 and "text" in shown:
            made["text"] = shown["text"]
    return json.dumps(dict(rng.sample(list(made.items()), len(made))), ensure_ascii=rng.random() < 0.5) + "\n"


@pytest.mark.parametrize("seed", range(3))
def test_a_random_unit_comes_through_dump_and_json_and_is_changed_field_by_field(
        broker, new_unit, restore, tmp_path, seed):
    rng = random.Random(seed)
    model = {otaid: random_fields(rng) for otaid in [0, 2**32 - 1, *rng.sample(range(2**32), 60)]}
    lines = [random_object(rng, otaid, named) for otaid, named in model.items()]
    (tmp_path / "lines").write_text("\n".join(lines))  # blank lines between them
    new_unit(broker.port, "-i", tmp_path / "lines", "-r", "0")

    def dump():
        return b"".join(block(otaid, did or 0, xcpid or 0, data or b"")
                        for otaid, (did, xcpid, data) in sorted(model.items()))
    assert run_korvid(port=broker.port).out == dump()
    (tmp_path / "dump of all").write_bytes(dump())
    made = Running(tmp_path / "dump of all", program="korvid-json").result()
    text, objects = made.out, [json.loads(line) for line in made.out.splitlines()]
    assert (made.status, made.err) == (0, "") and objects == [{"otaid": otaid, **fields(*named)} for otaid, named in sorted(model.items())]
    same = restore(text, "-n", "--exit-code")
    assert (same.status, same.out, same.err) == (0, b"", ""), same
    fewer = restore(text[:text.rindex(b"\n", 0, -1) + 1], "-n", "--exit-code")
    assert (fewer.status, fewer.err, fewer.out.count(b"\n")) == (3, "", 1), fewer
    assert fewer.out.startswith(b"4294967295 - 0xffffffff: not in the file, DID "), fewer

    before, expected, lines = dump(), [], []
    for otaid in [*rng.sample(sorted(model)[1:], 30), 0, *rng.sample(range(2**32), 5)]:
        named, old = random_fields(rng), model.get(otaid)
        if otaid == 0:
            named[1] = 7
        new = [new if new is not None else old for new, old in zip(named, old or [None] * 3)]
        lines.append(random_object(rng, otaid, named))
        was, now = old and fields(*old), fields(*new)
        if was != now:
            expected.append({"otaid": otaid, "was": was, "is": now, **({} if otaid else {"refused": True})})
        if otaid:
            model[otaid] = new
    got = restore("".join(lines).encode(), "--json")
    changes = sorted(expected, key=lambda change: change["otaid"])
    assert got.status == 1 and [json.loads(line) for line in got.out.splitlines()] == changes, got
    assert "OTAID: 0\n" in got.err and run_korvid(port=broker.port).out == dump()

    differ = restore(before, "-n", "--exit-code", "--json")
    found = {change["otaid"]: change for change in map(json.loads, differ.out.splitlines())}
    turned = {c["otaid"]: {"otaid": c["otaid"], "was": c["is"], "is": c["was"]} for c in expected if c["otaid"]}
    assert (differ.status, differ.err, found) == (3, "", turned), differ


def test_json_appears_while_its_dump_still_comes_and_a_fault_ends_it(tmp_path):
    good = DEMO[:DEMO.index(b"SysParam (2)")]
    running = Running(program="korvid-json", stdin=subprocess.PIPE)
    running.process.stdin.write(good + good[:-1])
    running.process.stdin.flush()
    assert select.select([running.process.stdout], [], [], scaled(10))[0], "nothing appears"
    first = os.read(running.process.stdout.fileno(), 4096)
    got = running.result()
    assert json.loads(first)["otaid"] == 1 and (got.status, got.out) == (1, b""), got
    assert got.err == f"korvid-json: standard input:{2 * good.count(b'%c' % 10)}: expected the end of the line\n"


@pytest.mark.parametrize("script, words", [
    (f"korvid-json {DEMO_UNIT} > /dev/full", "korvid-json: cannot write to standard output: No space left on device"),
    ("korvid-json < /dev/null", "korvid-json: standard input holds no parameter"),
    ("korvid-json /no/such", "korvid-json: cannot read /no/such: No such file or directory"),
    ("korvid-json a b", "korvid-json: one FILE at most can be named; try -h"),
])
def test_json_that_cannot_be_made_is_told(script, words):
    got = subprocess.run(["bash", "-c", script], env={**environment(), "PATH": f"{BIN}:{os.environ['PATH']}"},
                         capture_output=True, text=True, timeout=scaled(10))
    assert (got.returncode, got.stdout, got.stderr) == (1, "", words + "\n"), got


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


@pytest.mark.skipif(BIN.name == "emulated", reason="QEMU hands over no TCP_INFO, which counts bytes")
@pytest.mark.parametrize("level, shown", [
    ("WARNING", rf"({ERASE}korvid-restore: receiving 0\.\d MB\r)+{ERASE}korvid-restore: differ: 0, .*\r\n"),
    ("ERROR", "")])
def test_a_long_transfer_shows_on_a_terminal_how_far_it_is(broker, new_unit, proxy, tmp_path, level, shown):
    (tmp_path / "large").write_bytes(block(1, 1, 1, b"x" * 600_000))
    new_unit(broker.port, "-i", tmp_path / "large")
    ours, theirs = pty.openpty()
    command = [BIN / "korvid-restore", "-n", "-p", str(proxy(broker.port, bandwidth=3e5).port), "-l", level]
    process = subprocess.Popen([*command, tmp_path / "large"], stdout=subprocess.DEVNULL, stderr=theirs,
                               env=environment())
    os.close(theirs)
    text = b""
    with contextlib.suppress(OSError):  # the terminal's end
        while data := os.read(ours, 4096):
            text += data
    os.close(ours)
    assert process.wait(scaled(10)) == 0 and re.fullmatch(shown, text.decode()), text
