"""What ships beside the programs: what is documented of them, and the completion."""

import os
import pty
import re
import select
import signal
import subprocess
import time

import pytest

from processes import BIN, DEMO_UNIT, environment, run_korvid, scaled

PROJECT = DEMO_UNIT.parents[1]
TERMINAL = {"PS1": "%", "TERM": "dumb", "COLUMNS": "400"}


def found(file, pattern):
    return set(re.findall(pattern, (PROJECT / file).read_text(), re.M)) - {"client_name"}


def test_each_setting_and_word_of_the_protocol_is_documented():
    keys = found("src/lapi_mqtt/config/settings.cpp", r'^    \{"(\w+)", ')
    assert keys == found("share/lapi.conf", r"^#(\w+) = ")
    assert keys == found("docs/man/lapi.conf.5.scd", r"\*([a-z_]+)\*(?=,|$)")
    words = found("src/protocol/topics.h", '"(.+)"') | found("src/protocol/request.h", '"(.+)"')
    assert "timeout-ms" in words
    for word in words:
        assert found("docs/protocol.md", f"`[^`\n]*{word}[^`\n]*`"), f"{word} is not in protocol.md"


@pytest.fixture(scope="session")
def installed(tmp_path_factory):
    prefix = tmp_path_factory.mktemp("installed")
    subprocess.run(["cmake", "--install", BIN.parent, "--prefix", prefix], check=True,
                   stdout=subprocess.DEVNULL)
    return prefix


@pytest.mark.parametrize("program", sorted(path.name for path in BIN.iterdir()))
def test_page_and_completion_of_every_program_know_its_options_and_commands(installed, program):
    shown = run_korvid("-h", program=program)
    usage = shown.err + shown.out.decode()
    options = re.findall(r"^ +(?:-\w, |)(--[\w-]+)(?: ([A-Z]+))?", usage, re.M)
    commands = re.findall(r"^  ([a-z]+)() *(?:[\[<A-Z].*)?$", usage, re.M)
    complete = [installed / f"share/{program}/complete", BIN / program]
    offered = "".join(subprocess.check_output([*complete, typed], text=True)
                      for typed in ("", "--"))
    assert ("--help", "") in options and (("set", "") in commands) == (program == "korvid")
    for word, value in options + commands:
        entry = rf"^\*(?:-.*\*)?{word}\*" + (f" _{value}_$" if value else "")
        assert found(f"docs/man/{program}.1.scd", entry), f"{word} {value}: not on the manual page"
        assert re.search(rf"^{word}\t", offered, re.M), f"{word} is not completed"


PROMPT = "[%"
SHELLS = {
    "bash": (["bash", "--norc", "--noprofile", "-i"],
             "PS1='[''%'; for setting in 'completion-display-width 0' 'show-all-if-ambiguous on' "
             "'enable-bracketed-paste off'; do bind \"set $setting\"; done; "
             "for file in INSTALLED/share/bash-completion/completions/*; do . $file; done"),
    "zsh": (["zsh", "-f", "-i"],
            "PS1='[''%%'; unset zle_bracketed_paste; "
            "fpath=(INSTALLED/share/zsh/vendor-completions $fpath); "
            "autoload -U compinit; compinit -D -u; LISTMAX=0"),
}


@pytest.fixture
def completed(ending, tmp_path, installed):
    """What an interactive shell makes of a line and a tab, or offers then, and in which time."""
    def complete(line, shell="bash", **settings):
        command, prepare = SHELLS[shell]
        process, terminal = pty.fork()
        if process == 0:
            os.chdir(tmp_path)
            env = {**environment(**settings), **TERMINAL, "HOME": str(tmp_path)}
            os.execvpe(shell, command, env)
        for clean_up in ((os.waitpid, process, 0), (os.kill, process, signal.SIGKILL),
                         (os.close, terminal)):
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
    ("korvid ", "get getsec set setsec"), ("korvid --lo", "korvid --loglevel "),
    ("korvid -l N", "korvid -l NOTICE "), ("korvid --loglevel=DE", "korvid --loglevel=DEBUG "),
    ("korvid get 28", "28 288"), ("korvid get 1 0x21", "0x210 0x211 0x212 0x213"),
    ("korvid set 0x12", "0x120 0x12345"), ("korvid set 1 ", "bytes dec hex str"),
    ("korvid set 1 h", "korvid set 1 hex "), ("korvid setsec a", "korvid setsec a\\ file "),
    ("korvid -p 1 get 28",) * 2, ("korvid -p1 get 28",) * 2, ("korvid --po=1 get 28",) * 2,
    ("korvid -- --",) * 2, ("korvid-unit -bd a", "korvid-unit -bd a\\ file "),
    ("korvid-unit --re", "--read-only --replace"),
    ("korvid-monitor --pay", "--payload --payload-size"),
    ("korvid-restore a", "korvid-restore a\\ file ")])
def test_completion(completed, broker, unit, line, made):
    assert completed(line, port=broker.port)[0] == made


@pytest.mark.parametrize("line, made", [
    ("korvid --lo", "--loglevel"), ("korvid gets", "getsec"), ("korvid set 0x1234", "0x12345"),
    ("korvid setsec a", "a file"), ("korvid-unit --loglevel=DE", "--loglevel=DEBUG"),
    ("korvid-restore -l N", "NOTICE")])
def test_completion_in_other_shells(completed, installed, broker, unit, tmp_path, line, made):
    assert made not in line
    assert made in re.sub(r"[\b\\]", "", completed(line, "zsh", port=broker.port)[0])
    env = {**environment(port=broker.port), **TERMINAL, "HOME": str(tmp_path),
           "XDG_DATA_DIRS": f"{installed}/share"}
    got = subprocess.check_output(["fish", "-c", f"complete -C {line!r}"], env=env, cwd=tmp_path,
                                  text=True)
    assert got.split("\t")[0].strip() == made


def test_completion_gives_up_on_a_silent_broker(completed, scripted):
    got, seconds = completed("korvid get 28", port=scripted({1: b""}).port)
    assert got == "korvid get 28" and 0.4 < seconds < scaled(1)
