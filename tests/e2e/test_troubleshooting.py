"""docs/troubleshooting.md quotes what the programs print, and what it advises works."""

import functools
import os
import pathlib
import re
import signal
import sqlite3
import subprocess

import pytest

from harness import HI
from processes import BIN, DEMO_UNIT, Running, await_that, environment, free_port
from protocol import READ_TOPIC, WRITE_TOPIC, read_reply

DOCUMENT = (pathlib.Path(__file__).resolve().parents[2] / "docs/troubleshooting.md").read_text()
QUOTED = re.compile(r"^### ([^\n]+)\n(?:(?!###).)*?```text\n(.*?)```", re.M | re.S)
VALUE = re.compile(r"\b(HOST|PORT|ADDRESS|FILE|ID|MS|SIZE|SUBJECT|CIPHER|N)\b")
run = functools.partial(Running, request_timeout_ms=900, connect_timeout_ms=900)


@pytest.fixture
def runs(new_broker, new_unit, scripted, peer, proxy, certificates, tmp_path):
    """Runs that meet each fault, by the title of its section; all of them at once."""
    def file(name, text):
        (tmp_path / name).write_text(text)
        return tmp_path / name

    def served(answer=None):
        port = new_broker().port
        peer(port, READ_TOPIC, WRITE_TOPIC, on_message=answer)
        return port
    run_unit = functools.partial(run, "-d", tmp_path / "spare.db", program="korvid-unit")
    ca, gone, tls, set_ = certificates / "ca.pem", scripted(), free_port(), ("set", "288", "str", "x")
    here, elsewhere = (f"certfile {certificates / n}.pem\nkeyfile {certificates / n}.key" for n in ("here", "elsewhere"))
    # Behind a proxy no reset overtakes the broker's alert.
    mutual = proxy(new_broker(here, f"cafile {ca}\nrequire_certificate true").port).port
    there = new_broker(f"listener {tls} 127.0.0.1\nallow_anonymous true", here).port
    alone, shy = new_broker("max_packet_size 2000").port, new_broker(f"acl_file {file('acl', 'topic read #')}").port
    unit, big = new_unit(there, "-l", "DEBUG", "-i", DEMO_UNIT, "-r", "288"), file("big", "x" * 100_000)
    debug = run("-l", "DEBUG", "get", "288", port=tls, config=file("tls.conf", f"# TLS\nca_file={ca}")).result().err
    unit.process.send_signal(signal.SIGSTOP)
    run("get", port=there, request_timeout_ms=300).result()
    unit.process.send_signal(signal.SIGCONT)
    await_that(lambda: "WARNING" in unit.log.read_text(), "the request was dropped")
    log = re.findall(".*request on.*\n", unit.log.read_text(), re.I)[1:]  # behind the unit's own one
    gone.close()
    sqlite3.connect(tmp_path / "other.db").execute("CREATE TABLE other (a)")
    return {
        "What korvid does": debug, "What a unit does": "".join(log[:3]), "Too late": log[4],
        "Connection refused": run("get", port=gone.port), "Unknown host": run("-H", "no..host", "get"),
        "No answer": run("get", port=scripted({1: b""}).port), "TLS expected": run("get", port=tls),
        "Not authorized": run("get", port=new_broker(anonymous=False).port), "No blob": run("getsec", port=there),
        "Client certificate refused": run(
            "get", port=mutual, ca_file=ca, cert_file=certificates / "foreign.pem", key_file=certificates / "foreign.key"),
        "Unusable key or certificate": run("get", port=tls, ca_file=certificates / "here.key"),
        "Unknown authority": run("get", port=tls, ca_file=certificates / "foreign.pem"),
        "Wrong host name": run("get", port=new_broker(elsewhere).port, ca_file=ca), "Faulty option": run("-p", "x", "get"),
        "Faulty file": run("get", config=file(
            "bad.conf", "# bench\nprot = 1883\nhost = \"127.0.0.1\"\nport = 1\nport = 2\n")), "May not ask": run("get", port=shy),
        "Unknown log level": run("-l", "debug", "get", "288", port=there),
        "Exposed secret": run("get", "288", port=there, username="bench", password_file=file("word", "x")),
        "QoS 0 only": run("get", port=new_broker("max_qos 0").port), "TLS not spoken": run("get", port=alone, ca_file=ca),
        "Lost on the way": run("get", port=scripted({3: b"\xe0\x01\x8b"}).port), "No unit": run("get", port=alone),
        "One unit of several": run("get", port=there, topic_prefix="units/4/"), "No reply": run("get", port=served()),
        "No reply to a write": run(*set_, port=served(lambda s, m: m.topic == READ_TOPIC and s.reply(m, read_reply(HI)))),
        "The unit's own words": run("get", port=served(
            lambda s, m: s.reply(m, UserProperty=("error", "100 % of the store is on fire: \u00fc")))),
        "Malformed reply": run("get", port=served(lambda s, m: s.reply(m, b"?"))), "Another unit": run_unit(port=there),
        "No such parameter": run("get", "4711", port=there), "Refused write": run(*set_, port=there),
        "Nobody sends it": run("-l", "NOTICE", "getsec", port=alone), "Nobody gets it": run("setsec", ca, port=alone),
        "Announcements refused": run("setsec", ca, port=shy), "Unreadable file": run("setsec", "/nowhere", port=alone),
        "Too large": run("setsec", big, port=alone), "Stalled": run("setsec", big, port=proxy(there, stall_at=20_000).port),
        "Faulty dump": run_unit("-i", file("dump", "SysParam (1):\n  OTAID: 2 - 0x001\n"), port=alone),
        "Not a store": run_unit("-d", tmp_path / "other.db", port=alone), "Port taken": run_unit("-b", port=alone),
    }


def test_each_quoted_message_is_what_is_printed(runs):
    printed = {title: run if isinstance(run, str) else run.result().err for title, run in runs.items()}
    quoted = dict(QUOTED.findall(DOCUMENT))
    assert quoted.keys() == printed.keys()
    for title, text in printed.items():
        assert re.fullmatch(VALUE.sub(r"\\S+", re.escape(quoted[title])), text), (quoted[title], text)


def test_a_blob_that_the_brokers_rights_keep_back_is_found_by_reading_it_back(new_broker, new_unit, tmp_path):
    advice = re.search("^korvid setsec .*", DOCUMENT, re.M)[0]
    for rights in "", "topic deny system/vard/secstore/set\n":
        (tmp_path / "acl").write_text(rights + "topic readwrite #\n")
        (tmp_path / "secfile").write_text(f"\0\n{rights}\n")
        port = new_broker(f"acl_file {tmp_path / 'acl'}").port
        unit = new_unit(port)
        env = {**environment(port=port), "PATH": f"{BIN}:{os.environ['PATH']}"}
        got = subprocess.run(advice, shell=True, cwd=tmp_path, env=env, capture_output=True, check=False)
        unit.stop()
        assert (got.stdout == b"the unit has it\n") == (rights == "") and got.stderr == b"", got
