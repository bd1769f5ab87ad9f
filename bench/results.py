"""Rows of results: kept as they come, judged against their targets, shown, stored, drawn."""

from __future__ import annotations

import json
import os
import platform
import statistics
import time
from collections.abc import Sequence
from dataclasses import asdict, dataclass
from pathlib import Path

GREEN, RED, PLAIN = "\033[32m", "\033[31m", "\033[0m"


@dataclass
class Row:
    """One figure. `bound` and `value` are compared where there is a target."""

    side: str
    name: str
    figures: str
    value: float | None = None  # what the target is about, most often a ratio
    bound: float | None = None
    at_least: bool = False  # else the value must be at most the bound
    unit: str = "x"

    @property
    def target(self) -> str:
        if self.bound is None:
            return ""
        return f"{'>=' if self.at_least else '<='} {self.bound:g}"

    @property
    def met(self) -> bool | None:
        if self.bound is None or self.value is None:
            return None
        return self.value >= self.bound if self.at_least else self.value <= self.bound

    @property
    def verdict(self) -> str:
        return {None: "", True: "met", False: "MISSED"}[self.met]

    def cells(self) -> list[str]:
        value = "" if self.value is None else f"{self.value:.3g} {self.unit}"
        return [self.side, self.name, self.figures, value, self.target, self.verdict]


def percentile(values: Sequence[float], part: float) -> float:
    ordered = sorted(values)
    return ordered[min(int(len(ordered) * part), len(ordered) - 1)]


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
        self.samples: dict[str, list[float]] = {}

    def add(self, row: Row) -> None:
        self.rows.append(row)
        print(f"  {row.side:8} {row.name}: {row.figures}"
              + (f"  [{row.cells()[3]}, target {row.target}: {row.verdict}]" if row.bound else ""),
              flush=True)

    def compare(self, side: str, name: str, host: Sequence[float], baseline: Sequence[float],
                bound: float | None, unit: str = "us", scale: float = 1e6) -> None:
        """A row for times of the host and of the baseline, by their medians."""
        figures = []
        for who, values in (("host", host), ("baseline", baseline)):
            self.samples[f"{side}: {name}: {who}"] = list(values)
            figures.append(f"{who} {statistics.median(values) * scale:.1f} {unit} "
                           f"(p90 {percentile(values, .9) * scale:.1f})")
        ratio = statistics.median(host) / statistics.median(baseline)
        self.add(Row(side, name, ", ".join(figures), ratio, bound))

    def table(self, colour: bool) -> str:
        heads = ["side", "what", "figures", "value", "target", ""]
        lines = [heads, *[row.cells() for row in self.rows]]
        widths = [max(len(line[column]) for line in lines) for column in range(len(heads))]
        shown = []
        for line in lines:
            text = "  ".join(cell.ljust(width) for cell, width in zip(line, widths)).rstrip()
            if colour and line[-1]:
                text = (GREEN if line[-1] == "met" else RED) + text + PLAIN
            shown.append(text)
        shown.insert(1, "-" * (sum(widths) + 2 * len(widths) - 2))
        return "\n".join(shown)

    def summary(self) -> str:
        judged = [row for row in self.rows if row.met is not None]
        return f"{sum(row.met for row in judged)} of {len(judged)} targets met"

    def store(self, path: Path) -> None:
        rows = [asdict(row) | {"target": row.target, "met": row.met} for row in self.rows]
        path.write_text(json.dumps({"machine": self.machine, "rows": rows}, indent=1) + "\n")

    def draw(self, path: Path) -> bool:
        """How far each judged row is from its target; False without the drawing library."""
        try:
            import matplotlib
        except ImportError:
            return False
        matplotlib.use("Agg")
        from matplotlib import pyplot

        judged = [row for row in self.rows if row.met is not None][::-1]
        if not judged:
            return False
        # Used up part of what the target allows: 1 is just met, whichever way it is meant.
        used = [row.bound / row.value if row.at_least else row.value / row.bound for row in judged]
        figure, axes = pyplot.subplots(figsize=(11, 1.2 + 0.34 * len(judged)))
        axes.barh([f"{row.name} ({row.side})" for row in judged], used,
                  color=["tab:green" if row.met else "tab:red" for row in judged])
        for at, row in enumerate(judged):
            axes.text(used[at], at, f" {row.cells()[3]} ({row.target})", va="center", fontsize=8)
        axes.axvline(1, color="black", linewidth=1)
        axes.set_xlabel("part of what the target allows (1 = just met)")
        axes.set_title(f"{self.machine['date']}, {self.machine['cpu']}", fontsize=9)
        axes.margins(x=0.2)
        figure.tight_layout()
        figure.savefig(path, dpi=110)
        return True
