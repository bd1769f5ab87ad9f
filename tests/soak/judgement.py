"""What is wrong with a soak run, from what it saw: a sentence each."""

from __future__ import annotations

import statistics
from typing import NamedTuple

from actions import ACTIONS

MOST_UNEXPECTED = 0.02  # part of all actions that may fail without a reason of ours
FEWEST_UNEXPECTED = 3  # so many are chance, in however short a run
FEWEST_RESTS = 4  # with fewer there is no early and late
WARM_S = 600.0  # a host that is watched for twice as long keeps what it has at that age
WINDOW_S = 300.0  # what it has is the middle of so long
KEPT = 0.05  # but for so much of its memory

# What a host may have more, late in its life. Memory: what the allocator keeps of the largest load
# so far, which depends on chance; under a sanitizer only what is used counts. Threads and handles:
# those parked for the next connection.
ALLOWED = {
    "windows": {"MiB": 10.0, "threads": 12, "handles": 32},
    "asan": {"MiB": 1.0, "threads": 12, "handles": 16},
    "tsan": {"MiB": 1.0, "threads": 12, "handles": 16},
    "native": {"MiB": 16.0, "threads": 12, "handles": 16},
}
STACK_MIB = {"windows": 1.0}  # for each thread more: Wine writes to nearly so much of a new stack


class Growth(NamedTuple):
    """How much more there is late in a host's life than early."""

    life: int
    what: str
    early: float
    late: float
    threads: float  # how many more there are
    long: bool  # the life

    def allowed(self, build):
        if self.long:
            return KEPT * self.early if self.what == "MiB" else 0
        stacks = STACK_MIB.get(build, 0) * max(0, self.threads) if self.what == "MiB" else 0
        return ALLOWED[build][self.what] + stacks

    def __str__(self):
        return f"host {self.life}: {self.early:.4g} {self.what} at first, {self.late:.4g} at last"


def growths(samples):
    """Of each life that was looked at often enough; `samples` are (life, its age in seconds,
    {gauge: value}). The first look comes before the host is warm and does not count."""
    for life in sorted({life for life, _, _ in samples}):
        looks = [(age, gauges) for each, age, gauges in samples if each == life]
        if len(looks) >= FEWEST_RESTS:
            is_long = looks[-1][0] >= 2 * WARM_S
            early, late = map(middles, (far_apart if is_long else thirds)(looks[1:]))
            for what in early:
                yield Growth(life, what, early[what], late[what],
                             late["threads"] - early["threads"], is_long)


def middles(gauges):
    return {what: statistics.median(each[what] for each in gauges) for what in gauges[0]}


def thirds(looks):
    """The first and the last."""
    third = max(1, len(looks) // 3)
    gauges = [each for _, each in looks]
    return gauges[:third], gauges[-third:]


def far_apart(looks):
    """Once the host is warm, and at last."""
    end = looks[-1][0]
    return ([each for age, each in looks if WARM_S <= age <= WARM_S + WINDOW_S],
            [each for age, each in looks if age >= end - WINDOW_S])


def verdicts(build, record, samples, lives, crashes):
    """Subject to what is wrong with it; an empty list is good."""
    grown = list(growths(samples))
    found = {"replies, events, turns and ends": list(record.faults)}
    for what in ALLOWED[build]:
        found[f"flat {what}"] = [
            f"{each}, {each.allowed(build):g} more are allowed" for each in grown
            if each.what == what and each.late - each.early > each.allowed(build)]
    failed = sum(record.unexpected.values())
    done = failed + sum(map(len, record.times.values()))
    too_many = failed > max(FEWEST_UNEXPECTED, MOST_UNEXPECTED * done)
    found["failures without a reason"] = [f"{failed} of {done}: {record.unexpected}"] * too_many
    happened = {**record.times, "a crash of the agent": crashes, "a second host": lives > 1,
                "a host watched for long enough": grown}
    found["everything happened"] = [
        f"did not happen: {name}" for name in [*ACTIONS, *happened] if not happened.get(name)]
    return found
