"""What is wrong with a soak run, from what it saw: a sentence each."""

from __future__ import annotations

import statistics
from typing import NamedTuple

from actions import ACTIONS

MOST_UNEXPECTED = 0.02  # part of all actions that may fail without a reason of ours
FEWEST_UNEXPECTED = 3  # so many are chance, in however short a run
FEWEST_RESTS = 4  # with fewer there is no early and late

# What a host may have more, late in its life. Memory: what the allocator keeps of the largest load
# so far, which depends on chance. Sanitizers keep freed memory (asan) and a history of every thread
# and access (tsan). Threads and handles: those parked for the next connection.
ALLOWED = {
    "windows": {"MiB": 10.0, "threads": 12, "handles": 32},
    "asan": {"MiB": 48.0, "threads": 12, "handles": 16},
    "tsan": {"MiB": 32.0, "threads": 12, "handles": 16},
    "native": {"MiB": 16.0, "threads": 12, "handles": 16},
}


class Growth(NamedTuple):
    """How much more there is late in a host's life than early."""

    life: int
    what: str
    early: float
    late: float

    def __str__(self):
        return f"host {self.life}: {self.early:.1f} {self.what} at first, {self.late:.1f} at last"


def growths(samples):
    """Of each life that was looked at often enough; `samples` are (life, {gauge: value}). The first
    look comes before the host is warm and does not count; then the middle of the first third is
    held against that of the last."""
    for life in sorted({life for life, _ in samples}):
        looks = [gauges for each, gauges in samples if each == life]
        if len(looks) >= FEWEST_RESTS:
            third = max(1, (len(looks) - 1) // 3)
            for what in looks[0]:
                values = [look[what] for look in looks[1:]]
                yield Growth(life, what, statistics.median(values[:third]),
                             statistics.median(values[-third:]))


def verdicts(build, record, samples, lives, crashes):
    """Subject to what is wrong with it; an empty list is good."""
    grown = list(growths(samples))
    found = {"replies, events, turns and ends": list(record.faults)}
    for what, allowed in ALLOWED[build].items():
        found[f"flat {what}"] = [f"{each}, {allowed:g} more are allowed" for each in grown
                                 if each.what == what and each.late - each.early > allowed]
    failed = sum(record.unexpected.values())
    done = failed + sum(map(len, record.times.values()))
    too_many = failed > max(FEWEST_UNEXPECTED, MOST_UNEXPECTED * done)
    found["failures without a reason"] = [f"{failed} of {done}: {record.unexpected}"] * too_many
    happened = {**record.times, "a crash of the agent": crashes, "a second host": lives > 1,
                "a host watched for long enough": grown}
    found["everything happened"] = [
        f"did not happen: {name}" for name in [*ACTIONS, *happened] if not happened.get(name)]
    return found
