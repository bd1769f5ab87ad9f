"""What a soak run says at its end: a table, a plot, the same as JSON, and a verdict per subject."""

from __future__ import annotations

import json
from dataclasses import asdict, dataclass, field
from pathlib import Path

from actions import ACTIONS
from ledger import Ledger

MOST_UNEXPECTED = 0.02  # part of all actions that may fail without a reason of ours
FEWEST_UNEXPECTED = 3  # so many are chance, in however short a run
GAUGES = {"memory_mib": "memory, MiB", "threads": "threads", "handles": "handles"}


@dataclass
class Outcome:
    """Everything that is known when a run is over."""

    build: str
    seed: int
    seconds: float
    lives: int
    crashes: int
    stops: int
    turns: int
    ledger: Ledger
    samples: list
    growths: list
    marks: list = field(default_factory=list)  # (seconds, what happened), for the plot

    def verdicts(self):
        """Subject to what is wrong with it; an empty list is good."""
        found = {"replies, events, turns and ends": list(self.ledger.faults)}
        for what, title in GAUGES.items():
            found[f"flat {title.split(',')[0]}"] = [
                f"host {growth.life}: {growth.early:.1f} at first, {growth.late:.1f} at last, "
                f"{growth.allowed:g} more are allowed"
                for growth in self.growths if growth.what == what and not growth.is_flat]
        failed = sum(self.ledger.unexpected.values())
        done = failed + sum(map(len, self.ledger.latencies.values()))
        found["failures without a reason"] = [f"{failed} of {done}: {self.ledger.unexpected}"] * (
            failed > max(FEWEST_UNEXPECTED, MOST_UNEXPECTED * done))
        missing = [name for name in ACTIONS if not self.ledger.latencies.get(name)]
        missing += ["a crash of the agent"] * (not self.crashes)
        missing += ["a second host"] * (self.lives < 2)
        missing += ["a host watched for long enough"] * (not self.growths)
        found["everything happened"] = [f"did not happen: {', '.join(missing)}"] * bool(missing)
        return found

    def times(self):
        """(action, how often, median, 95 %, longest ms) of what was done."""
        for name in ACTIONS:
            times = sorted(self.ledger.latencies.get(name, []))
            if times:
                yield name, len(times), *(times[int((len(times) - 1) * share)]
                                          for share in (0.5, 0.95, 1))


def print_tables(outcome):
    ledger = outcome.ledger
    print(f"soak of {outcome.build}: {outcome.seconds:.0f} s, seed {outcome.seed}\n"
          f"{'action':<16}    done  median ms    95 % ms longest ms agent away     failed")
    for name, count, *times in outcome.times():
        print(f"{name:<16}{count:>8}" + "".join(f"{each:>11.0f}" for each in times) +
              f"{ledger.refused[name]:>11}{ledger.unexpected[name]:>11}")
    print(f"{outcome.lives} hosts, {outcome.crashes} crashes of the agent, {outcome.stops} stops, "
          f"{outcome.turns} turns, {ledger.replies} replies, {ledger.events} events\n"
          f"\nat rest, early and late in the life of a host, and how much more is allowed")
    for growth in outcome.growths:
        print(f"host {growth.life:<4}{GAUGES[growth.what]:<14}{growth.early:>8.1f}"
              f"{growth.late:>8.1f}{growth.allowed:>8.1f}")


def print_verdicts(outcome):
    for subject, wrong in outcome.verdicts().items():
        print("\n          ".join([f"{'FAILED' if wrong else 'ok    '}  {subject}", *wrong[:20]]))


def write_json(outcome, path):
    known = {name: value for name, value in vars(outcome).items() if name != "ledger"}
    known["samples"] = [asdict(sample) for sample in outcome.samples]
    known["growths"] = [asdict(growth) for growth in outcome.growths]
    for name in ("faults", "refused", "unexpected", "replies", "events"):
        known[name] = getattr(outcome.ledger, name)
    known["latencies"] = {name: {"count": count, "median_ms": median, "longest_ms": longest}
                          for name, count, median, _, longest in outcome.times()}
    path.write_text(json.dumps(known, indent=1) + "\n")


def draw(outcome, path: Path):
    import matplotlib

    matplotlib.use("Agg")
    from matplotlib import pyplot

    figure, axes = pyplot.subplots(len(GAUGES), sharex=True, figsize=(11, 8))
    for plot, (what, title) in zip(axes, GAUGES.items()):
        for life in sorted({sample.life for sample in outcome.samples}):
            looks = [sample for sample in outcome.samples if sample.life == life]
            plot.plot([look.at for look in looks], [getattr(look, what) for look in looks],
                      marker="o", markersize=3, linewidth=1)
        for at, event in outcome.marks:
            plot.axvline(at, color={"crash": "tab:red", "host": "tab:gray"}[event], linewidth=0.6,
                         linestyle=":" if event == "crash" else "-")
        plot.set_ylabel(title)
        plot.set_ylim(0)
    axes[0].set_title(f"host at rest ({outcome.build}, seed {outcome.seed}); gray: a new host, "
                      "red: the agent crashed", fontsize=9)
    axes[-1].set_xlabel("seconds")
    figure.tight_layout()
    figure.savefig(path, dpi=110)
    pyplot.close(figure)
