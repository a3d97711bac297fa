"""What users type and the programs print; a transcript is the story of one subject."""

import pathlib

import pytest

from harness import assert_transcript, needs_root

TRANSCRIPTS = [pytest.param(path, id=path.name, marks=needs_root if path.stem == "store" else ())
               for path in sorted(pathlib.Path(__file__).parent.glob("transcripts/*.txt"))]


@pytest.mark.parametrize("transcript", TRANSCRIPTS)
def test_transcript(broker, unit, tmp_path, transcript):
    assert_transcript(transcript, tmp_path, port=broker.port)
