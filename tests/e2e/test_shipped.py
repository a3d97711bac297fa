"""What ships beside the programs: the sample configuration, the completion."""

import os
import pty
import re
import select
import signal
import time

import pytest

from harness import HI_BLOCK
from processes import BIN, DEMO_UNIT, environment, run_korvid, scaled

PROJECT = DEMO_UNIT.parents[1]
SHELL = {"PATH": f"{BIN}:{os.environ['PATH']}", "PS1": "%", "TERM": "dumb", "COLUMNS": "400"}


def test_the_sample_configuration_as_it_is_and_with_its_settings(broker, unit, tmp_path):
    sample, config = (PROJECT / "share/lapi.conf").read_text(), tmp_path / "lapi.conf"
    settings = re.sub(r"^#(?=\w+ = )", "", sample, flags=re.M).replace("/etc/ecu", str(tmp_path))
    plain = re.sub(r"^(port|ca_file|cert_file|key_file|topic_prefix) = .*", "", settings, flags=re.M)
    for name in "password", "ca.pem", "client.pem", "client.key":
        (tmp_path / name).write_text("secret\n")
        (tmp_path / name).chmod(0o600)
    for text in sample, plain:
        config.write_text(text)
        got = run_korvid("get", "288", port=broker.port, config=config)
        assert (got.status, got.out, got.err) == (0, HI_BLOCK, ""), text
    keys = [set(re.findall(pattern, (PROJECT / file).read_text(), re.M)) - {"client_name"}
            for file, pattern in (("src/lapi_mqtt/config/settings.cpp", r'^    \{"(\w+)", '),
                                  ("share/lapi.conf", r"^#(\w+) = "),
                                  ("docs/man/lapi.conf.5.scd", r"\*([a-z_]+)\*(?=,|$)"))]
    assert keys[0] == keys[1] == keys[2] and keys[0]
    config.write_text(settings)
    got = run_korvid("get", "288", config=config)
    assert got.status == 1 and "ca.pem" in got.err and "lapi.conf" not in got.err, got  # no fault but the certificate


@pytest.fixture
def completed(ending, tmp_path):
    """What an interactive bash makes of a line and a tab (the line or what it offers), and in which time."""
    def complete(line, **settings):
        process, terminal = pty.fork()
        if process == 0:
            os.chdir(tmp_path)
            os.execvpe("bash", ["bash", "--norc", "--noprofile", "-i"], {**environment(**settings), **SHELL})
        for clean_up in (os.waitpid, process, 0), (os.kill, process, signal.SIGKILL), (os.close, terminal):
            ending.callback(*clean_up)

        def said(text, until, seen=b""):
            os.write(terminal, text.encode())
            while not seen.endswith(until):
                assert select.select([terminal], [], [], scaled(10))[0], seen
                seen += os.read(terminal, 4096)
            return seen.decode().replace("\a", "")

        said("".join(f"bind 'set {setting}'\n" for setting in (
            "completion-display-width 0", "show-all-if-ambiguous on", "enable-bracketed-paste off")) +
             f". {PROJECT}/share/completions/korvid; printf 'o%s\n' k\n", b"ok\r\n%")
        began = time.monotonic()
        typed, *offers = said(line + "\t#", b"#")[:-1].split("\r\n")
        return " ".join(offers[:-1]) or typed, time.monotonic() - began
    (tmp_path / "a file").touch()
    return complete


@pytest.mark.parametrize("line, made", [
    ("korvid ", "get getsec set setsec"), ("korvid --lo", "korvid --loglevel "), ("korvid -l N", "korvid -l NOTICE "),
    ("korvid get 28", "28 288"), ("korvid set 0x12", "0x120 0x12345"), ("korvid get 1 0x21", "0x210 0x211 0x212 0x213"),
    ("korvid set 1 ", "bytes dec hex str"), ("korvid set 1 h", "korvid set 1 hex "), ("korvid -- --", "korvid -- --"),
    ("korvid setsec a", "korvid setsec a\\ file "), ("korvid --loglevel=DE", "korvid --loglevel=DEBUG "),
    ("korvid -p 1 get 28", "korvid -p 1 get 28"), ("korvid -p1 get 28", "korvid -p1 get 28"),
    ("korvid-unit --re", "--read-only --replace"), ("korvid-unit -d a", "korvid-unit -d a\\ file "),
    ("korvid-monitor --pay", "--payload --payload-size"), ("korvid-restore a", "korvid-restore a\\ file "),
])
def test_completion(completed, broker, unit, line, made):
    assert completed(line, port=broker.port)[0] == made


def test_completion_gives_up_on_a_silent_broker(completed, scripted):
    got, seconds = completed("korvid get 28", port=scripted({1: b""}).port)
    assert got == "korvid get 28" and 0.4 < seconds < scaled(1)
