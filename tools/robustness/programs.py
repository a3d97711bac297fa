"""Which binaries are tried: those in KORVID_BIN, else the ones of a preset, built here."""

import os
import pathlib
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]


def prepare(preset):
    """Must come before `harness` is imported."""
    if "KORVID_BIN" not in os.environ:
        subprocess.run([ROOT / "tools/install-packages", "build", "run", "test"], check=True)
        for step in (["--preset", preset], ["--build", "--preset", preset]):
            subprocess.run(["cmake", *step], cwd=ROOT, check=True, stdout=subprocess.DEVNULL)
        os.environ["KORVID_BIN"] = str(ROOT / "build" / preset / "bin")
    sys.path.append(str(ROOT / "tests/e2e"))
