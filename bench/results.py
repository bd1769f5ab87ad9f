"""Rows of results: kept as they come, judged against their targets, shown, stored, drawn."""

from __future__ import annotations

import json
import os
import platform
import statistics
import sys
import time
from collections.abc import Sequence
from dataclasses import dataclass
from pathlib import Path

from programs import HOST, LEAST
from targets import KINDS, README, Kind

GREEN, RED, PLAIN = "\033[32m", "\033[31m", "\033[0m"
HEADS = ["side", "what", "", "host", "least", "ratio", "best peer", "ratio", "missed"]


@dataclass
class Judged:
    """One figure, and the bound that it must keep if there is one."""

    value: float
    bound: float | None
    at_least: bool = False

    @property
    def used(self) -> float:
        """How much of what the bound allows: 1 is just met, whichever way it is meant."""
        if self.bound is None:
            return 0
        return self.bound / self.value if self.at_least else self.value / self.bound

    def __str__(self) -> str:
        bound = f" ({'>=' if self.at_least else '<='} {self.bound:g})" if self.bound else ""
        return number(self.value) + bound


def number(value: float) -> str:
    if value >= 100_000:
        return f"{value / 1000:,.0f}k"
    return f"{value:,.0f}" if value >= 100 else f"{value:.3g}"


class Row:
    """One figure of the host on one side, and of those that it is compared with."""

    def __init__(self, side: str, key: str, figures: dict[str, float]) -> None:
        self.side, self.key, self.figures = side, key, figures
        kind = self.kind
        peers = [who for who in figures if who not in (HOST, LEAST)]
        self.peer = (max if kind.rate else min)(peers, key=lambda who: figures[who], default="")
        host = figures[HOST]
        self.judged = {HOST: Judged(host, kind.at_most)}
        if LEAST in figures:
            self.judged[LEAST] = Judged(host / figures[LEAST], kind.of_least, kind.rate)
        if self.peer:
            self.judged["peer"] = Judged(host / figures[self.peer], kind.of_peer, kind.rate)
        self.missed = [who for who, each in self.judged.items() if each.used > 1]

    @property
    def kind(self) -> Kind:
        return KINDS[self.key]

    def cells(self, missed: str = "{}") -> list[str]:
        """The host's figure, then figure and ratio of the two others; a missed target so."""
        ratio = {who: (missed if who in self.missed else "{}").format(each)
                 for who, each in self.judged.items()}
        least = number(self.figures[LEAST]) if LEAST in self.figures else ""
        peer = f"{number(self.figures[self.peer])} {self.peer}" if self.peer else ""
        return [ratio[HOST], least, ratio.get(LEAST, ""), peer, ratio.get("peer", "")]

    def line(self) -> list[str]:
        return [self.side, self.kind.name, self.kind.unit, *self.cells(), " ".join(self.missed)]


def machine() -> dict[str, object]:
    model = [line.split(":", 1)[1].strip() for line in Path("/proc/cpuinfo").read_text().split("\n")
             if line.startswith("model name")]
    return {
        "date": time.strftime("%Y-%m-%d %H:%M"),
        "cpu": model[0] if model else platform.machine(),
        "cores": os.cpu_count(),
        "kernel": platform.release(),
        "load_at_start": round(os.getloadavg()[0], 2),
    }


class Results:
    def __init__(self) -> None:
        self.machine = machine()
        self.rows: list[Row] = []
        self.samples: dict[str, dict[str, list[float]]] = {}

    def add(self, side: str, key: str, seen: dict[str, list[float]]) -> None:
        """A row of the medians of what was seen of each program, in seconds for a time."""
        self.samples[f"{side}: {key}"] = seen
        row = Row(side, key, {who: statistics.median(values) * KINDS[key].scale
                              for who, values in seen.items()})
        self.rows.append(row)
        self.rows.sort(key=lambda each: (list(KINDS).index(each.key), each.side))
        print("  " + "  ".join(filter(None, row.line())), file=sys.stderr, flush=True)

    def table(self, colour: bool) -> str:
        lines = [HEADS, *[row.line() for row in self.rows]]
        widths = [max(map(len, column)) for column in zip(*lines)]
        shown = ["  ".join(cell.ljust(width) for cell, width in zip(line, widths)).rstrip()
                 for line in lines]
        if colour:
            shown[1:] = [(RED if row.missed else GREEN) + text + PLAIN
                         for row, text in zip(self.rows, shown[1:])]
        return "\n".join(shown)

    def markdown(self, side: str, joined: dict[str, list[str]]) -> str:
        """A table of one side, each line of the rows with these keys; what misses is bold."""
        rows = {row.key: row for row in self.rows if row.side == side}
        lines = ["| | host | least program | ratio | best peer | ratio |", "|---" * 6 + "|"]
        for name, keys in joined.items():
            of_line = [rows[key] for key in keys if key in rows]
            units = " / ".join(dict.fromkeys(row.kind.unit for row in of_line))
            columns = zip(*[row.cells(missed="**{}**") for row in of_line])
            cells = [" / ".join(filter(None, column)) for column in columns]
            if cells:
                lines.append(f"| {name}, {units}".removesuffix(", ") + f" | {' | '.join(cells)} |")
        return "\n".join(lines)

    def losses(self, side: str) -> str:
        """The sentence about the rows in which the best peer is ahead."""
        lost = [row.kind.name for row in self.rows if row.side == side and row.peer
                and Judged(row.judged["peer"].value, 1, row.kind.rate).used > 1]
        return f"The best peer is ahead in: {', '.join(lost)}." if lost else "No peer is ahead."

    def for_documents(self) -> str:
        """The README's table and sentence, and the tables with all rows."""
        each = {kind.name: [key] for key, kind in KINDS.items()}
        sides = dict.fromkeys(row.side for row in self.rows)
        texts = ["README, windows:", self.markdown("windows", README), self.losses("windows")]
        for side in sides:
            texts += [f"{side}:", self.markdown(side, each), self.losses(side)]
        return "\n\n".join(texts)

    def summary(self) -> str:
        judged = [each for row in self.rows for each in row.judged.values() if each.bound]
        return f"{sum(each.used <= 1 for each in judged)} of {len(judged)} targets met"

    def store(self, path: Path) -> None:
        rows = [{"side": row.side, "key": row.key, "name": row.kind.name, "unit": row.kind.unit,
                 "figures": row.figures, "missed": row.missed,
                 "used": {who: each.used for who, each in row.judged.items() if each.bound}}
                for row in self.rows]
        path.write_text(json.dumps({"machine": self.machine, "rows": rows}, indent=1) + "\n")

    def draw(self, path: Path) -> bool:
        """How much of each target is used up; False without the drawing library."""
        judged = [(f"{row.kind.name}, {who} ({row.side})", each) for row in self.rows[::-1]
                  for who, each in row.judged.items() if each.bound]
        try:
            import matplotlib
        except ImportError:
            return False
        matplotlib.use("Agg")
        from matplotlib import pyplot

        figure, axes = pyplot.subplots(figsize=(11, 1.5 + 0.2 * len(judged)))
        bars = axes.barh([name for name, _ in judged], [each.used for _, each in judged],
                         color=["tab:green" if each.used <= 1 else "tab:red" for _, each in judged])
        axes.bar_label(bars, [f" {each}" for _, each in judged], fontsize=7)
        axes.axvline(1, color="black", linewidth=1)
        axes.set_xlabel("part of what the target allows (1 = just met)")
        axes.set_title(f"{self.machine['date']}, {self.machine['cpu']}", fontsize=9)
        axes.tick_params(labelsize=7)
        axes.margins(x=0.2, y=0.01)
        figure.tight_layout()
        figure.savefig(path, dpi=110)
        return True


def growth(few: Sequence[float], many: Sequence[float], times: int) -> list[float]:
    """What a part costs among so many times as many, next to what it cost among few."""
    return [statistics.median(many) / statistics.median(few) / times]
