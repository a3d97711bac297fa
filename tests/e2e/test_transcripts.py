"""What users type and the programs print; a transcript is the story of one subject."""

import pathlib

import pytest

from harness import assert_prints, needs_root
from processes import DEMO_UNIT

TRANSCRIPTS = [pytest.param(path, id=path.name, marks=needs_root if path.stem == "store" else ())
               for path in sorted(pathlib.Path(__file__).parent.glob("transcripts/*.txt"))]


@pytest.mark.parametrize("transcript", TRANSCRIPTS)
def test_transcript(broker, unit, tmp_path, transcript):
    (tmp_path / "demo-unit.txt").symlink_to(DEMO_UNIT)
    assert_prints(transcript.read_text(), tmp_path, apart=True, port=broker.port)
