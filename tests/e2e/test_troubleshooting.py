"""docs/troubleshooting.md quotes what the programs print, and what it advises works."""

import functools
import pathlib
import re
import signal
import sqlite3

import pytest

from harness import HI
from processes import DEMO_UNIT, Running, await_that, free_port, scaled
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
    get, run_unit = (functools.partial(run, "get", connect_timeout_ms=int(scaled(900))),
                     functools.partial(run, "-d", tmp_path / "spare.db", program="korvid-unit"))
    pem = {name: certificates / f"{name}.pem" for name in ("ca", "here", "elsewhere", "foreign")}
    ca, key = pem["ca"], {name: path.with_suffix(".key") for name, path in pem.items()}
    here, elsewhere = (f"certfile {pem[n]}\nkeyfile {key[n]}" for n in ("here", "elsewhere"))
    gone, tls, set_ = scripted(), free_port(), ("set", "288", "str", "x")
    # Behind a proxy no reset overtakes the broker's alert.
    mutual = proxy(new_broker(here, f"cafile {ca}\nrequire_certificate true").port).port
    there = new_broker(f"listener {tls} 127.0.0.1\nallow_anonymous true", here).port
    alone = new_broker("max_packet_size 2000").port
    shy = new_broker(f"acl_file {file('acl', 'topic read #')}").port
    unit = new_unit(there, "-l", "DEBUG", "-i", DEMO_UNIT, "-r", "288")
    big, tls_conf = file("big", "x" * 100_000), file("tls.conf", f"# TLS\nca_file={ca}")
    bad_conf = file("bad.conf", '# bench\nprot = 1883\nhost = "127.0.0.1"\nport = 1\nport = 2\n')
    dump = file("dump", "SysParam (1):\n  OTAID: 2 - 0x001\n")
    debug = run("-l", "DEBUG", "get", "288", port=tls, config=tls_conf).result().err
    unit.process.send_signal(signal.SIGSTOP)
    get(port=there, request_timeout_ms=300).result()
    unit.process.send_signal(signal.SIGCONT)
    await_that(lambda: "WARNING" in unit.log.read_text(), "the request was dropped")
    log = re.findall(".*request on.*\n", unit.log.read_text(), re.I)[1:]  # the first is its own
    gone.close()
    sqlite3.connect(tmp_path / "other.db").execute("CREATE TABLE other (a)")

    def read_only(service, request):
        if request.topic == READ_TOPIC:
            service.reply(request, read_reply(HI))

    def on_fire(service, request):
        service.reply(request, UserProperty=("error", "100 % of the store is on fire: \u00fc"))

    def malformed(service, request):
        service.reply(request, b"?")
    return {
        "What korvid does": debug, "What a unit does": "".join(log[:3]), "Too late": log[4],
        "Connection refused": get(port=gone.port), "Unknown host": run("-H", "no..host", "get"),
        "No answer": get(port=scripted({1: b""}).port), "TLS expected": get(port=tls),
        "Not authorized": get(port=new_broker(anonymous=False).port),
        "Client certificate refused": get(port=mutual, ca_file=ca, cert_file=pem["foreign"],
                                          key_file=key["foreign"]),
        "Unusable key or certificate": get(port=tls, ca_file=key["here"]),
        "Unknown authority": get(port=tls, ca_file=pem["foreign"]),
        "Wrong host name": get(port=new_broker(elsewhere).port, ca_file=ca),
        "Faulty option": run("-p", "x", "get"), "Faulty file": get(config=bad_conf),
        "Unknown log level": run("-l", "debug", "get", "288", port=there),
        "Exposed secret": get("288", port=there, username="bench", password_file=file("word", "x")),
        "QoS 0 only": get(port=new_broker("max_qos 0").port),
        "TLS not spoken": get(port=alone, ca_file=ca),
        "Lost on the way": get(port=scripted({3: b"\xe0\x01\x8b"}).port),
        "No unit": get(port=alone),
        "One unit of several": get(port=there, topic_prefix="units/4/"),
        "No reply": get(port=served()), "No reply to a write": run(*set_, port=served(read_only)),
        "No right to send requests": get(port=shy), "Malformed reply": get(port=served(malformed)),
        "Error text of the unit": get(port=served(on_fire)),
        "No such parameter": get("4711", port=there), "Refused write": run(*set_, port=there),
        "No blob": run("getsec", port=there),
        "No blob comes": run("-l", "NOTICE", "getsec", port=alone),
        "No unit to store it": run("setsec", ca, port=alone),
        "Announcements refused": run("setsec", ca, port=shy),
        "Unreadable file": run("setsec", "/nowhere", port=alone),
        "Too large": run("setsec", big, port=alone),
        "Stalled": run("setsec", big, port=proxy(there, stall_at=20_000).port),
        "Faulty dump": run_unit("-i", dump, port=alone), "Another unit": run_unit(port=there),
        "Not a store": run_unit("-d", tmp_path / "other.db", port=alone),
        "Port taken": run_unit("-b", port=alone),
    }


def test_each_quoted_message_is_what_is_printed(runs):
    printed = {title: run if isinstance(run, str) else run.result().err
               for title, run in runs.items()}
    quoted = dict(QUOTED.findall(DOCUMENT))
    assert quoted.keys() == printed.keys()
    for title, text in printed.items():
        pattern = VALUE.sub(r"\\S+", re.escape(quoted[title]))
        assert re.fullmatch(pattern, text), (quoted[title], text)
