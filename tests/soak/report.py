"""What a soak run says at its end: a table, a plot, the same as JSON, and a verdict per subject."""

from __future__ import annotations

import json
from dataclasses import asdict, dataclass, field
from pathlib import Path
from xml.sax.saxutils import escape, quoteattr

from rich.console import Console
from rich.table import Table

MOST_UNEXPECTED = 0.02  # part of all actions that may fail without a reason of ours
FEWEST_UNEXPECTED = 3  # so many are chance, in however short a run
GAUGES = (("memory_mib", "memory, MiB"), ("threads", "threads"), ("handles", "handles"))


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
    replies: int
    events: int
    latencies: dict
    refused: dict
    unexpected: dict
    faults: list
    samples: list
    growths: list
    actions: list
    marks: list = field(default_factory=list)  # (seconds, what happened), for the plot

    def verdicts(self):
        """Subject to what is wrong with it; an empty list is good."""
        found = {"replies, events, turns and ends": list(self.faults)}
        for what, title in GAUGES:
            found[f"flat {title.split(',')[0]}"] = [
                f"host {growth.life}: {growth.early:.1f} at first, {growth.late:.1f} at last, "
                f"{growth.allowed:g} more are allowed"
                for growth in self.growths if growth.what == what and not growth.is_flat]
        found["failures without a reason"] = self._too_many_failures()
        found["everything happened"] = self._missing()
        return found

    def _too_many_failures(self):
        failed = sum(self.unexpected.values())
        done = failed + sum(map(len, self.latencies.values()))
        if failed <= max(FEWEST_UNEXPECTED, MOST_UNEXPECTED * done):
            return []
        return [f"{failed} of {done}: {self.unexpected}"]

    def _missing(self):
        missing = [name for name in self.actions if not self.latencies.get(name)]
        missing += ["a crash of the agent"] if not self.crashes else []
        missing += ["a second host"] if self.lives < 2 else []
        missing += ["a host watched for long enough"] if not self.growths else []
        return [f"did not happen: {', '.join(missing)}"] if missing else []


def part(ordered, share):
    return ordered[min(int(len(ordered) * share), len(ordered) - 1)]


def print_tables(outcome):
    console = Console(width=100)
    actions = Table(title=f"soak of {outcome.build}: {outcome.seconds:.0f} s, seed {outcome.seed}")
    for title in ("action", "done", "median ms", "95 % ms", "longest ms", "agent away", "failed"):
        actions.add_column(title, justify="left" if title == "action" else "right")
    for name in outcome.actions:
        times = outcome.latencies.get(name, [])
        shown = [f"{part(times, share):.0f}" for share in (0.5, 0.95, 1)] if times else ["", "", ""]
        actions.add_row(name, str(len(times)), *shown, str(outcome.refused.get(name, 0)),
                        str(outcome.unexpected.get(name, 0)))
    console.print(actions)
    console.print(f"{outcome.lives} hosts, {outcome.crashes} crashes of the agent, "
                  f"{outcome.stops} stops, {outcome.turns} turns, {outcome.replies} replies, "
                  f"{outcome.events} events")

    levels = Table(title="at rest, early and late in the life of a host")
    for title in ("host", "gauge", "early", "late", "more", "allowed"):
        levels.add_column(title, justify="left" if title == "gauge" else "right")
    for growth in outcome.growths:
        levels.add_row(str(growth.life), dict(GAUGES)[growth.what], f"{growth.early:.1f}",
                       f"{growth.late:.1f}", f"{growth.late - growth.early:+.1f}",
                       f"{growth.allowed:g}")
    console.print(levels)


def print_verdicts(outcome):
    for subject, wrong in outcome.verdicts().items():
        print(f"{'FAILED' if wrong else 'ok    '}  {subject}")
        for text in wrong[:20]:
            print(f"          {text}")


def write_json(outcome, path):
    content = asdict(outcome)
    content["latencies"] = {name: {"count": len(times), "median_ms": part(times, 0.5),
                                   "longest_ms": times[-1]}
                            for name, times in outcome.latencies.items() if times}
    path.write_text(json.dumps(content, indent=1) + "\n")


def write_junit(outcome, path):
    cases, failures = "", 0
    for subject, wrong in outcome.verdicts().items():
        failures += bool(wrong)
        text = f"<failure>{escape(chr(10).join(wrong))}</failure>" if wrong else ""
        cases += f"<testcase name={quoteattr(subject)} classname=\"soak\">{text}</testcase>\n"
    path.write_text(f'<testsuite name="soak" tests="{len(outcome.verdicts())}" '
                    f'failures="{failures}" errors="0" skipped="0">\n{cases}</testsuite>\n')


def draw(outcome, path: Path):
    import matplotlib

    matplotlib.use("Agg")
    from matplotlib import pyplot

    figure, axes = pyplot.subplots(len(GAUGES), sharex=True, figsize=(11, 8))
    for plot, (what, title) in zip(axes, GAUGES):
        for life in sorted({sample.life for sample in outcome.samples}):
            looks = [sample for sample in outcome.samples if sample.life == life]
            plot.plot([look.at for look in looks], [getattr(look, what) for look in looks],
                      marker="o", markersize=3, linewidth=1)
        for at, event in outcome.marks:
            plot.axvline(at, color={"crash": "tab:red", "host": "tab:gray"}[event], linewidth=0.6,
                         linestyle=":" if event == "crash" else "-")
        plot.set_ylabel(title)
        highest = max((getattr(sample, what) for sample in outcome.samples), default=1)
        plot.set_ylim(0, 1.2 * highest)
    axes[0].set_title(f"host at rest ({outcome.build}, seed {outcome.seed}); gray: a new host, "
                      "red: the agent crashed", fontsize=9)
    axes[-1].set_xlabel("seconds")
    figure.tight_layout()
    figure.savefig(path, dpi=110)
    pyplot.close(figure)
