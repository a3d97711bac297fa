"""Which binaries are used: those in KORVID_BIN, else the ones of a preset, built here."""

import os
import pathlib
import subprocess

ROOT = pathlib.Path(__file__).resolve().parents[2]


def prepare(preset, *needs):
    """Installs what they need and the sections `needs`. Comes before `processes` is imported."""
    subprocess.run([ROOT / "tools/install-packages", "run", *needs], check=True)
    if "KORVID_BIN" not in os.environ:
        subprocess.run([ROOT / "tools/install-packages", "build"], check=True)
        for step in (["--preset", preset, "-DKORVID_TESTS=OFF"], ["--build", "--preset", preset]):
            subprocess.run(["cmake", *step], cwd=ROOT, check=True, stdout=subprocess.DEVNULL)
        os.environ["KORVID_BIN"] = str(ROOT / "build" / preset / "bin")
