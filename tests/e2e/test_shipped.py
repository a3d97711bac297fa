"""What ships beside the programs: the sample configuration, the completion."""

import os
import pty
import re
import select
import signal
import subprocess
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


@pytest.fixture(scope="session")
def installed(tmp_path_factory):
    prefix = tmp_path_factory.mktemp("installed")
    subprocess.run(["cmake", "--install", BIN.parent, "--prefix", prefix], check=True, stdout=subprocess.DEVNULL)
    return prefix


PROGRAMS = sorted(path.name for path in BIN.iterdir())


@pytest.mark.parametrize("program", PROGRAMS)
def test_page_and_completion_of_every_program_know_its_options_and_commands(installed, program):
    usage, page = run_korvid("-h", program=program), (PROJECT / f"docs/man/{program}.1.scd").read_text()
    usage = usage.err + usage.out.decode()
    words = re.findall(r"^ +(?:-\w, |)(--[\w-]+)", usage, re.M) + re.findall(r"^  ([a-z]+) *(?:[\[<A-Z].*)?$", usage, re.M)
    complete = [installed / f"share/{program}/complete", BIN / program]
    offered = [subprocess.run([*complete, typed], check=True, stdout=subprocess.PIPE).stdout.decode()
               for typed in ("", "--")]
    assert "--help" in words and ("set" in words) == (program == "korvid")
    for word in words:
        entry = rf"^\*(?:-.*\*)?{word}\*"
        assert re.search(entry, page, re.M), f"{word} is not on the manual page"
        assert re.search(rf"^{word}\t", "".join(offered), re.M), f"{word} is not completed"


PROMPT = "[%"
SHELLS = {
    "bash": (["bash", "--norc", "--noprofile", "-i"], "PS1='[''%'; for setting in 'completion-display-width 0' 'show-all-if-ambiguous on' "
             "'enable-bracketed-paste off'; do bind \"set $setting\"; done; "
             "for file in INSTALLED/share/bash-completion/completions/*; do . $file; done"),
    "zsh": (["zsh", "-f", "-i"], "PS1='[''%%'; unset zle_bracketed_paste; fpath=(INSTALLED/share/zsh/vendor-completions $fpath); "
            "autoload -U compinit; compinit -D -u; LISTMAX=0"),
}


@pytest.fixture
def completed(ending, tmp_path, installed):
    """What an interactive shell makes of a line and a tab (the line or what it offers), and in which time."""
    def complete(line, shell="bash", **settings):
        command, prepare = SHELLS[shell]
        process, terminal = pty.fork()
        if process == 0:
            os.chdir(tmp_path)
            os.execvpe(shell, command, {**environment(**settings), **SHELL, "HOME": str(tmp_path)})
        for clean_up in (os.waitpid, process, 0), (os.kill, process, signal.SIGKILL), (os.close, terminal):
            ending.callback(*clean_up)

        def said(text, until, seen=b""):
            os.write(terminal, text.encode())
            while not seen.endswith(until):
                assert select.select([terminal], [], [], scaled(10))[0], seen
                seen += os.read(terminal, 4096)
            return seen.decode().replace("\a", "")

        said(prepare.replace("INSTALLED", str(installed)) + "\n", PROMPT.encode())
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
    ("korvid --po=1 get 28", "korvid --po=1 get 28"), ("korvid-unit -bd a", "korvid-unit -bd a\\ file "),
    ("korvid-unit --re", "--read-only --replace"), ("korvid-monitor --pay", "--payload --payload-size"),
    ("korvid-restore a", "korvid-restore a\\ file "),
])
def test_completion(completed, broker, unit, line, made):
    assert completed(line, port=broker.port)[0] == made


@pytest.mark.parametrize("line, made", [
    ("korvid --lo", "--loglevel"), ("korvid gets", "getsec"), ("korvid set 0x1234", "0x12345"), ("korvid setsec a", "a file"),
    ("korvid-unit --loglevel=DE", "--loglevel=DEBUG"), ("korvid-restore -l N", "NOTICE")])
def test_completion_in_other_shells(completed, installed, broker, unit, tmp_path, line, made):
    assert made not in line and made in re.sub(r"[\b\\]", "", completed(line, "zsh", port=broker.port)[0])
    env = {**environment(port=broker.port), **SHELL, "HOME": str(tmp_path), "XDG_DATA_DIRS": f"{installed}/share"}
    got = subprocess.run(["fish", "-c", f"complete -C {line!r}"], env=env, cwd=tmp_path, check=True,
                         stdout=subprocess.PIPE, text=True)
    assert got.stdout.split("\t")[0].strip() == made


def test_completion_gives_up_on_a_silent_broker(completed, scripted):
    got, seconds = completed("korvid get 28", port=scripted({1: b""}).port)
    assert got == "korvid get 28" and 0.4 < seconds < scaled(1)
