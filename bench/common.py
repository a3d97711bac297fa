"""What the measurements share: the release preset's programs and what they are asked to carry."""

import os
import sys

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
sys.path.append(os.path.join(ROOT, "tools", "loopback"))
import programs  # noqa: E402

programs.prepare("release", "bench")
from protocol import block  # noqa: E402

PAUSE_S = 0.1
NODELAY = "set_tcp_nodelay true"


def dump(count, name=b"value"):
    """`count` parameters with 14 bytes of data each, as `korvid get` prints them."""
    return b"".join(block(otaid, 0xf190, 1, b"%s-%08d" % (name, otaid)) for otaid in range(count))
