"""The pure parts, measured by the Google Benchmark programs next to this file; native only."""

from __future__ import annotations

import json
import subprocess
import tempfile
from pathlib import Path

from driven_program import Side
from results import Results, Row

MOST_GROWTH = 12  # ten times the events may cost this many times the time


def run(program: Path, quick: bool) -> dict[str, float]:
    """Microseconds of processor time by name of the benchmark, medians."""
    with tempfile.NamedTemporaryFile(suffix=".json") as report:
        done = subprocess.run(
            [str(program), f"--benchmark_out={report.name}", "--benchmark_out_format=json",
             f"--benchmark_min_time={0.05 if quick else 0.3}",
             f"--benchmark_repetitions={3 if quick else 5}"],
            check=False, capture_output=True, text=True,
        )
        if done.returncode != 0:
            raise SystemExit(f"{program} failed:\n{done.stdout}{done.stderr}")
        runs = json.load(report)["benchmarks"]
    to_us = {"ns": 1e-3, "us": 1.0, "ms": 1e3}
    return {each["run_name"]: each["cpu_time"] * to_us[each["time_unit"]]
            for each in runs if each.get("aggregate_name") == "median"}


def words(name: str) -> str:
    return name.replace("/", ": ").replace("_", " ")


def add_growth(results: Results, side: Side, times: dict[str, float]) -> None:
    for name, few in times.items():
        if not name.endswith("/10000"):
            continue
        what = name.removesuffix("/10000")
        many = times[f"{what}/100000"]
        figures = f"10,000: {few / 1e3:.2f} ms, 100,000: {many / 1e3:.2f} ms"
        # The splitter alone is a copy and a search: its growth shows the processor's caches, which
        # hold the short stream and not the long one. The target is for a turn.
        bound = MOST_GROWTH if what.startswith("translateStream") else None
        results.add(Row(side.name, words(what), figures, many / few, bound))


def add_parsing(results: Results, side: Side, times: dict[str, float]) -> None:
    for name, ours in times.items():
        if not name.startswith("parseChecked/"):
            continue
        what = name.partition("/")[2]
        plain = times[f"parsePlainly/{what}"]
        figures = f"with depth check {ours:.1f} us, without {plain:.1f} us"
        results.add(Row(side.name, f"parsing: {words(what)}", figures, ours / plain))


def measure_pure_parts(results: Results, side: Side, quick: bool) -> None:
    folder = side.program("x").parent
    for name in ("event_splitter_bench", "turn_stream_bench"):
        add_growth(results, side, run(folder / name, quick))
    add_parsing(results, side, run(folder / "json_parse_bench", quick))
    for what, time_us in run(folder / "utf8_bench", quick).items():
        results.add(Row(side.name, words(what), f"{time_us:.1f} us for 1 MiB: "
                        f"{1024 * 1024 / time_us / 1e3:.2f} GB/s"))
