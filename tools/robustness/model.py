"""What was written, what of it must be stored, and what was printed, held against it.

A slot is a parameter or the blob. Every write to it carries a value of its own. What counts for
the order of two writes is when the broker took them: it hands them to the unit in that order, so a
stall between broker and unit changes nothing.
"""

import bisect
import math
import threading
import time

ACKNOWLEDGED = "acknowledged"  # stored when the client ended
TAKEN = "taken"                # by the broker, before the client ended; the unit may have missed it
UNKNOWN = "unknown"            # may be stored, or may be on its way for a while
FAILED = "failed"              # never to be stored

# How long after a client's end something of it may still lie in a link or in front of a broker:
# longer than all pauses that a round puts on both together.
ON_ITS_WAY_S = 12


class Write:
    def __init__(self, began):
        self.began, self.ended, self.outcome = began, math.inf, None
        self.seen_at = math.inf  # stored by then at the latest

    def taken_by(self):
        """When the broker took it at the latest, if it did."""
        late = ON_ITS_WAY_S if self.outcome == UNKNOWN else 0
        return min(self.ended + late, self.seen_at)


class Slot:
    def __init__(self, name, initial):
        first = Write(-math.inf)
        first.ended, first.outcome = -math.inf, ACKNOWLEDGED
        self.name, self.writes = name, {initial: first}
        # By the one a write of the other was stored.
        self.known_at, self.known_since = [-math.inf], [-math.inf]

    def is_stored(self, write, now):
        if now < write.seen_at:
            write.seen_at = now
            self.known_at.append(now)
            self.known_since.append(max(self.known_since[-1], write.began))

    def known_before(self, moment):
        """The begin of the youngest write that was surely stored before a moment."""
        return self.known_since[bisect.bisect_left(self.known_at, moment) - 1]


class Model:
    """Thread-safe. `complain(kind, text)` is called for what must not be: `lost` or `wrong`."""

    def __init__(self, complain):
        self.lock, self.slots, self.counts, self.complain = threading.Lock(), {}, {}, complain

    def add(self, name, initial):
        self.slots[name] = Slot(name, initial)

    def begin(self, name, value):
        with self.lock:
            assert value not in self.slots[name].writes, "every value is written once"
            self.slots[name].writes[value] = Write(time.monotonic())

    def end(self, name, value, outcome):
        with self.lock:
            slot, now = self.slots[name], time.monotonic()
            write = slot.writes[value]
            write.ended, write.outcome = now, outcome
            self.counts[outcome] = self.counts.get(outcome, 0) + 1
            if outcome == ACKNOWLEDGED:
                slot.is_stored(write, now)
            elif outcome == FAILED and write.seen_at < math.inf:
                self.complain("wrong", f"{name}: {shown(value)} was read, {outcome}")

    def read(self, name, value, since):
        """A value that a command printed which began at `since` and has just ended."""
        with self.lock:
            slot, now = self.slots.get(name), time.monotonic()
            write = slot.writes.get(value) if slot else None
            if write is None:
                return self.complain("wrong", f"{name}: {shown(value)} was read, but never written")
            was_read = f"{name}: {shown(value)} was read, {write.outcome}"
            if write.outcome == FAILED:
                return self.complain("wrong", was_read)
            newer_by = slot.known_before(since) - write.taken_by()
            if newer_by > 0:
                return self.complain("lost", f"{was_read}, but a write that began {newer_by:.3f} s "
                                             "after it was stored before the read began "
                                             f"({now - since:.3f} s ago)")
            slot.is_stored(write, now)
            return None


def shown(value):
    return f"{value[:40]!r}... ({len(value)} bytes)" if len(value) > 40 else repr(value)
