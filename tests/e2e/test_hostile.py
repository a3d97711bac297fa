"""A hundred sessions with a peer that spoils what a broker would say; tools/hostile runs thousands."""

import pathlib
import sys

sys.path.append(str(pathlib.Path(__file__).parents[2] / "tools/robustness"))
import hostile  # noqa: E402


def test_no_spoilt_session_crashes_hangs_or_bloats_a_program():
    assert hostile.run(sessions=100, seed=5) == 0
