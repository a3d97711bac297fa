"""A hundred sessions behind a link that spoils what a broker says; tools/hostile runs thousands."""

import hostile


def test_no_spoilt_session_crashes_hangs_or_bloats_a_program():
    assert hostile.run(sessions=100, seed=5) == 0
