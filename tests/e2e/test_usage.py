"""The real binary's options, usage and version."""

import pathlib
import re

import pytest

from harness import HI_BLOCK
from processes import run_korvid

USAGE = pathlib.Path(__file__).with_name("usage.expected").read_text()
VERSION = re.compile(r"korvid: \S.* - \d+\.\d+\.\d+ - [0-9a-f]{7} - "
                     r"\d{4}-\d\d-\d\d \d\d:\d\d:\d\d [+-]\d{4} - [A-Z]+\n")


def assert_usage(text, level="WARNING"):
    version = VERSION.match(text)
    assert version and text[version.end():] == USAGE.replace("Default: WARNING", f"Default: {level}")


@pytest.mark.parametrize("arguments, complaint, level", [
    ("-h", "", "WARNING"), ("get --hel", "", "WARNING"), ("-l DEBUG -h", "", "DEBUG"), ("-h -l DEBUG", "", "WARNING"),
    ("-x -v", "invalid option -- 'x'", "WARNING"), ("-p", "requires an argument -- 'p'", "WARNING"),
    ("--h", "option '--h' is ambiguous", "WARNING"),
])
def test_options_that_end_in_the_usage(arguments, complaint, level):
    got = run_korvid(*arguments.split())
    head, usage = got.err.split("\n", 1) if complaint else ("", got.err)
    assert (got.status, got.out) == (1, b"") and complaint in head, got
    assert_usage(usage, level)


@pytest.mark.parametrize("arguments", ["-v", "--ver", "-v -x", "get -p 1 -v"])
def test_version_ends_the_run_before_anything_else(arguments):
    got = run_korvid(*arguments.split(), config="/no/such/file")
    assert (got.status, got.out) == (0, b"") and VERSION.fullmatch(got.err), got


@pytest.mark.parametrize("word", ["GET", "gets", ""])
def test_an_unknown_word_is_a_syntax_error_with_or_without_a_broker(broker, word):
    for port in broker.port, 1:
        got = run_korvid(word, "1", port=port)
        head, _, usage = got.err.partition("korvid syntax error!\n\n")
        assert (got.status, got.out) == (1, b"") and got.seconds >= 0.1, got
        assert head.count("\n") == (1 if port == 1 else 0), got
        assert_usage(usage)


def test_options_stand_anywhere_and_the_last_one_wins(broker, unit):
    for arguments in ("get -p {} 288", "--po {} get 288", "-p 1 -p{} -- get 288", "-PQTS --port={} get 288",
                      "-H no..host --host 127.0.0.1 get 288 -p {}"):
        got = run_korvid(*arguments.format(broker.port).split())
        assert (got.status, got.out, got.err) == (0, HI_BLOCK, "")


def test_empty_overrides_keep_the_configuration_and_an_unknown_level_keeps_warning(broker, unit, tmp_path):
    config = tmp_path / "lapi.conf"
    config.write_text(f"# the bench\n\n host = 127.0.0.1\nport={broker.port}  \n")
    got = run_korvid("-p", "", "-H", "", "-l", "LOUD", "get", "288", config=config)
    assert (got.status, got.out) == (0, HI_BLOCK), got
    assert got.err.count("\n") == 1 and re.match("WARNING: .*LOUD.* EMERG, .*, DEBUG$", got.err), got


@pytest.mark.parametrize("program", ["korvid-monitor", "korvid-restore", "korvid-unit"])
def test_the_other_programs_show_help_on_standard_output_and_refuse_an_empty_host(program):
    got = run_korvid("-h", program=program)
    version, text = got.out.decode().split("\n", 1)
    assert (got.status, got.err) == (0, "") and text.startswith(f"\nUSAGE: {program} [OPTIONS]"), got
    assert re.search(r"\nOPTIONS:\n.*\n  -H, --host HOST +\S.*\n +\(default: WARNING\)\n", text, re.S), got
    got = run_korvid("-v", program=program, config="/no/such/file")
    assert (got.status, got.out.decode(), got.err) == (0, version + "\n", "") and version.startswith(program + ": ")
    for option, name in ("-H", "host"), ("-p", "port"):
        got = run_korvid(option, "", "word", program=program)
        assert (got.status, got.out, got.err) == (1, b"", f"{program}: option --{name} needs a value; try -h\n")
