"""The programs over a platform library that tells its calls."""

import pathlib

from harness import assert_transcript


def test_calls(tmp_path):
    assert_transcript(pathlib.Path(__file__).with_name("swap.txt"), tmp_path)
