"""The examples in the documents and on the manual pages do what is shown, as a reader sees them."""

import os
import re
import shutil
import signal
import subprocess

import pytest

from harness import assert_prints, examples, needs_root
from processes import BIN, DEMO_UNIT, await_that, end, environment, free_port, run_korvid, scaled

PROJECT = DEMO_UNIT.parents[1]
DOCUMENTS = PROJECT / "docs"
PROGRAMS = [program.name for program in sorted(BIN.glob("korvid*"))]
PAGES = [*(DOCUMENTS / f"man/{program}.1.scd" for program in PROGRAMS),
         DOCUMENTS / "man/lapi.conf.5.scd"]
SERVES = {"korvid-unit": b"ready\n", "korvid-monitor": b"secstore"}  # until it is interrupted


def console(text):
    return "".join(re.findall(r"^```console\n(.*?)^```$", text, re.M | re.S))


def test_what_is_installed_points_to_what_is_installed():
    rules = (PROJECT / "cmake/Install.cmake").read_text()
    installed = set(re.findall(r"docs/([\w.]+\.\w+)", rules))
    texts = [*(DOCUMENTS / name for name in installed), *PAGES, *PROJECT.glob("share/**/*.*")]
    for text in texts:
        links = r"(?:\]\(|\bdocs/|/doc/korvid/)([\w.]+\.\w+)"
        assert {*re.findall(links, text.read_text(errors="replace"))} <= installed, text


@pytest.mark.parametrize("document", ["README.md", "docs/pipelines.md"])
def test_examples_print_what_is_shown(broker, unit, tmp_path, document):
    assert_prints(console((PROJECT / document).read_text()), tmp_path, port=broker.port)


MACHINE = """
cp -a /etc etc && mount --bind etc /etc && mkdir -p /etc/ecu
echo 127.0.0.1 broker.example >> /etc/hosts
echo korvid-unit:x:990:990:::/bin/false >> /etc/passwd && echo korvid-unit:x:990: >> /etc/group
systemctl() {
    if [ "$*" = "restart mosquitto" ]; then
        mosquitto -d -c /etc/mosquitto/conf.d/korvid.conf 2> broker.log
        until (: < /dev/tcp/127.0.0.1/PORT) 2> /dev/null; do sleep 0.05; done
    elif [ "$*" = "enable --now korvid-unit" ]; then
        setpriv --reuid=990 --regid=990 --clear-groups cat /etc/ecu/unit/* > /dev/null || return
        (export $(sed -n 's/^Environment=//p' /etc/systemd/system/korvid-unit.service.d/*)
        exec korvid-unit --db ~/unit.db > ~/ready 2>&1) &
        until [ -s ~/ready ]; do sleep 0.05; done
    fi
}
"""


@needs_root
def test_security_is_set_up_as_shown(tmp_path):
    """On a machine of its own, with its /etc, but for the service manager."""
    port = str(free_port())
    shutil.copytree(DEMO_UNIT.parent, tmp_path / "examples")
    sample = tmp_path / "examples/broker/mosquitto.conf"
    sample.write_text(sample.read_text().replace("8883", port))
    shown = console((DOCUMENTS / "security.md").read_text()).replace("8883", port)
    shown = shown.replace("/usr/share/doc/korvid/examples", str(sample.parents[1]))
    assert_prints(shown, tmp_path, MACHINE.replace("PORT", port),
                  ["unshare", "--mount", "--pid", "--kill-child"])


def rendered(page, directory):
    """A page's text as `man` shows it."""
    with page.open() as source, (directory / page.stem).open("w") as made:
        subprocess.run("scdoc", stdin=source, stdout=made, check=True)
    return subprocess.run(["man", "-l", made.name], check=True, text=True, stdout=subprocess.PIPE,
                          env={**os.environ, "LC_ALL": "C.UTF-8", "MANWIDTH": "500"}).stdout


@pytest.mark.parametrize("page", PAGES, ids=lambda page: page.stem)
def test_the_examples_of_the_manual(ending, broker, unit, tmp_path, page):
    text, exports, said = rendered(page, tmp_path), "", (tmp_path / "out").read_bytes
    assert "__" not in text
    shown = re.search(r"\nEXAMPLES\n(.*)\nSEE ALSO\n", text, re.S)[1]
    for theirs, ours in (("192.0.2.7", "127.0.0.1"),
                         ("/usr/share/doc/korvid-unit/examples", str(DEMO_UNIT.parent))):
        shown = shown.replace(theirs, ours)
    indent = re.search(r"^ +(?=\$ )", shown, re.M)[0]  # groff's, by its version
    for _, command, output in examples("".join(re.findall(f"^{indent}(.*\n)", shown, re.M))):
        exports += command if command.startswith("export ") else ""
        sign = SERVES.get(command.split()[0])
        env = environment(port=free_port() if " -b " in command else broker.port)
        with (tmp_path / "out").open("wb") as out:
            script = exports + ("exec " if sign else "") + command
            running = subprocess.Popen(["bash", "-ec", script], cwd=tmp_path, env=env, stdout=out)
        ending.callback(running.kill)
        if sign:  # and something to be seen
            await_that(lambda: run_korvid("setsec", DEMO_UNIT, port=broker.port) and
                       (sign in said() or running.poll() is not None), f"'{command}' prints", 20)
        status = end(running, signal.SIGINT) if sign else running.wait(scaled(30))
        printed = re.sub(" +$", "", said().decode(), flags=re.M)  # as `man` shows it
        assert status == 0 and (not output or printed == output), (command, said())


def test_lenient_notations_store_what_the_manual_shows(broker, unit, tmp_path):
    page = rendered(DOCUMENTS / "man/korvid.1.scd", tmp_path)
    rows = re.findall(r"^ +(set .+?) {2,}([0-9a-f ]+?) {2,}(?:set (\S+)|.*)\n", page, re.M)
    assert len(rows) == 10
    for command, stored, otaid in rows:
        assert run_korvid(*command.split(), port=broker.port).status == 0
        got = run_korvid("get", otaid or "1", port=broker.port)
        shown = re.sub(r"(\w\w)", r"0x\1", stored)
        assert got.out.endswith(f"]: {shown} \n".encode()), (command, got)
