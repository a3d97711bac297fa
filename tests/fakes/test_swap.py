"""The programs over a platform library that tells its calls."""

import pathlib

from harness import assert_prints
from processes import DEMO_UNIT


def test_calls(tmp_path):
    (tmp_path / "demo-unit.txt").symlink_to(DEMO_UNIT)
    assert_prints(pathlib.Path(__file__).with_name("swap.txt").read_text(), tmp_path, apart=True)
