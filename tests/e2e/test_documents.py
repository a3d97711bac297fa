"""The examples in the documents print what the documents show."""

import os
import pathlib
import re
import subprocess

from processes import BIN, environment, scaled

DOCUMENTS = pathlib.Path(__file__).resolve().parents[2] / "docs"


def test_pipelines_print_what_is_shown(broker, unit, tmp_path):
    text = (DOCUMENTS / "pipelines.md").read_text()
    shown = "".join(re.findall(r"^```console\n(.*?)^```$", text, re.M | re.S))
    examples = re.findall(r"^\$ (.*\n(?:> .*\n)*)((?:(?!\$ ).*\n)*)", shown, re.M)
    assert len(examples) == shown.count("\n$ ") + 1 > 20
    script = "".join(command.replace("\n> ", "\n") + "printf '\\0'\n" for command, _ in examples)
    env = {**environment(port=broker.port), "PATH": f"{BIN}:{os.environ['PATH']}"}
    got = subprocess.run(["bash", "-c", script], cwd=tmp_path, env=env, timeout=scaled(40), text=True,
                         stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    for (command, output), printed in zip(examples, got.stdout.split("\0"), strict=False):
        assert printed == output, command
    assert got.stdout.count("\0") == len(examples)
