"""Reading parameters: the printed text, the import that takes it back, and many readers at once."""

import pytest

from harness import HI_BLOCK
from processes import DEMO_UNIT, Running, run_korvid
from protocol import block

DEMO = DEMO_UNIT.read_bytes()


@pytest.mark.parametrize("dump", [DEMO, block(0, 0, 0, b"\0" * 70000)], ids=["demo", "large"])
def test_a_dump_is_imported_and_printed_again_byte_for_byte(broker, new_unit, tmp_path, dump):
    (tmp_path / "unit.txt").write_bytes(dump)
    with (tmp_path / "unit.txt").open() as text:
        new_unit(broker.port, "-i", "-", stdin=text)
    for command in ["get"], []:
        got = run_korvid(*command, port=broker.port)
        assert (got.status, got.out, got.err) == (0, dump, "")


def ignored(*words):
    return b"".join(b"OTAID has to be a number, ignore '%s'\n" % word.encode() for word in words)


@pytest.mark.parametrize("arguments, status, out, err", [
    (["288", "0x120", "0x0120zz", " 288"], 0, HI_BLOCK * 4, ""),
    (["abc", "288"], 1, ignored("abc") + HI_BLOCK, ""),
    (["", "0xffffffff", "4294967295", "0x", "--", "-1"], 1,
     ignored("", "0xffffffff", "4294967295") + block(2**32 - 1, 0, 2**32 - 1, b"last"),
     "Unable to find param with key: 0\n"),
    (["0X120", "0x121", "288", "--", "-5"], 1, HI_BLOCK,
     "".join(f"Unable to find param with key: {key}\n" for key in (0, 289, -5))),
])
def test_lookups_print_in_the_order_asked_and_report_what_is_missing(broker, unit, arguments, status, out, err):
    got = run_korvid("get", *arguments, port=broker.port)
    assert (got.status, got.out, got.err) == (status, out, err)


def test_a_block_comes_before_the_error_behind_it(broker, unit):
    as_one = ["bash", "-c", 'exec "$@" 2>&1', "-"]
    got = Running("get", "288", "289", port=broker.port, prefix=as_one).result()
    assert got.out == HI_BLOCK + b"Unable to find param with key: 289\n"


def test_an_empty_unit_prints_nothing_and_fails(broker, new_unit):
    new_unit(broker.port)
    got = run_korvid("-l", "INFO", "get", port=broker.port)
    assert (got.status, got.out, got.err) == (1, b"", "INFO: Read all System Parameters!\n")


@pytest.mark.parametrize("redirection", [">&- <&-", ">/dev/full", "> >(exec <&-)"])
def test_a_standard_output_that_takes_nothing_goes_unnoticed(broker, new_unit, tmp_path, redirection):
    (tmp_path / "unit.txt").write_bytes(block(1, 1, 1, b"x" * 200000))
    new_unit(broker.port, "-i", tmp_path / "unit.txt")
    for arguments, status in (["get"], 0), (["get", "1", "abc"], 1):
        got = Running(*arguments, port=broker.port,
                      prefix=["bash", "-c", f'exec "$@" {redirection}', "-"]).result()
        assert got.status == status and got.out == b"", got
