"""The secure store's blob, there and back, over links that are slow, cut or stalled."""

import random
import re

import pytest

from processes import Running, await_that, run_korvid, scaled
from protocol import ANNOUNCEMENT, BLOB_SET

TIMEOUT = "WARNING: Timeout waiting for data from SecStore data\n"
NO_DATA = "ERROR: No data could be received from SecStore!\n"
NO_FILE = "ERROR: A file need to be provided!\n"


def printed(blob):
    return b"SecStore blob size: %d\n%s\n" % (len(blob), blob)


def stored(broker):
    return run_korvid("getsec", port=broker.port).out


@pytest.fixture
def set_blob(tmp_path, broker):
    """Sets a blob on the broker, or through a link to it, and returns the result of setsec."""
    def setting(blob, link=broker):
        path = tmp_path / "blob"
        path.write_bytes(blob)
        return run_korvid("setsec", path, port=link.port)
    return setting


@pytest.mark.parametrize("blob", [b"a\0b", bytes(range(256)) * 9, b"\r\n \n", b"\0",
                                  random.Random(3).randbytes(3_000_000)], ids=len)
def test_a_blob_comes_back_byte_for_byte_also_after_the_unit_was_killed(
        broker, unit, set_blob, blob):
    for turn in b"an older and longer one" * 100, blob:
        got = set_blob(turn)
        assert (got.status, got.out, got.err) == (0, b"", "")
    await_that(lambda: stored(broker) == printed(blob), "the blob is stored")
    unit.kill()
    unit.start()
    got = run_korvid("getsec", "and", "further", "words", port=broker.port)
    assert (got.status, got.out, got.err) == (0, printed(blob), "")


def test_files_that_give_nothing_publish_nothing(broker, peer, tmp_path):
    published = peer(broker.port, "#")
    unreadable = "ERROR: Unable to read in file: "
    for arguments, err in (([], NO_FILE), (["one", "two"], NO_FILE),
                           ([tmp_path], f"{unreadable}{tmp_path}\n"),
                           (["/no/such file"], "INFO: The file /no/such file could not be open!\n"
                                               f"{unreadable}/no/such file\n"),
                           (["/dev/null"], "INFO: Read 0 bytes from file: /dev/null\n"
                                           f"{unreadable}/dev/null\n")):
        got = run_korvid("-l", "INFO", "setsec", *arguments, port=broker.port)
        assert got.status == 1 and got.out == b"" and got.err.endswith(err), got
        assert not published.messages, got


def test_a_pipe_is_read_to_its_end_and_published_once_and_not_retained(broker, peer):
    listening = peer(broker.port, "#", qos=2)
    feed = ["bash", "-c", "printf '%065536d' 1 | \"$@\"", "-"]
    got = Running("-l", "DEBUG", "setsec", "/dev/stdin", port=broker.port, prefix=feed).result()
    assert got.status == 0 and re.search(
        "DEBUG: Tellg size for provided file: -1\nINFO: Read 65536 bytes from file: /dev/stdin\n"
        "(DEBUG: The broker has acknowledged .*\n)?"  # by the link's thread
        r"NOTICE: Blob\(65536\) has been published!\n", got.err), got
    await_that(lambda: len(listening.messages) == 2, "the blob and its announcement arrive")
    assert [(m.topic, m.payload, m.qos, m.retain) for m in listening.messages] == [
        (BLOB_SET, b"0" * 65535 + b"1", 0, False), (ANNOUNCEMENT, BLOB_SET.encode(), 1, False)]


def test_a_cut_link_is_an_error_and_leaves_the_old_blob(broker, unit, proxy, set_blob):
    old, new = b"the old blob" * 1000, b"<" + random.Random(6).randbytes(600_000) + b">"
    whole = proxy(broker.port)
    assert set_blob(new, whole).status == 0 and set_blob(old).status == 0
    begin = whole.upstream.index(new)
    end = begin + len(new)
    for cut_at in 1, begin - 30, begin, begin + 1, begin + 300_000, end - 1:
        got = set_blob(new, proxy(broker.port, cut_at=cut_at))
        assert got.status == 1 and "\nkorvid: " in "\n" + got.err, (cut_at, got)
        assert got.seconds < scaled(6), (cut_at, got)
        assert stored(broker) == printed(old), cut_at


def test_a_stalled_link_is_an_error_in_bounded_time(broker, unit, proxy, set_blob):
    got = set_blob(b"n" * 20_000_000, proxy(broker.port, stall_at=300_000))
    assert got.status == 1 and "korvid: " in got.err and got.seconds < scaled(28), got
    assert run_korvid("getsec", port=broker.port).err == NO_DATA


def test_getsec_gives_up_after_ten_seconds_and_at_once_for_an_empty_blob(broker, new_unit):
    running = [Running("-l", level, "getsec", port=broker.port)
               for level in ("WARNING", "ERROR", "NOTICE")]
    nobody = f"NOTICE: No unit listens on the broker at 127.0.0.1:{broker.port}\n"
    for korvid, err in zip(running, (TIMEOUT + NO_DATA, NO_DATA, nobody + TIMEOUT + NO_DATA)):
        got = korvid.result()
        assert (got.status, got.out, got.err) == (1, b"", err)
        assert 10 <= got.seconds < 10.6 + scaled(0.4) - 0.4, got
    new_unit(broker.port)
    got = run_korvid("getsec", port=broker.port)
    assert (got.status, got.out, got.err) == (1, b"", NO_DATA) and got.seconds < scaled(1), got
