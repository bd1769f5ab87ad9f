#!/usr/bin/env python3
"""Measures speed and memory of the host next to programs that do the least possible.

Usually started by `./dev bench`, which builds what it needs and gives it a network of its own. The
targets are ratios of medians of one run, so they hold on any machine; nothing fails when one is
missed, it is only said. A program that answers wrongly fails the run.
"""

from __future__ import annotations

import argparse
import contextlib
import json
import os
import shutil
import subprocess
import sys
from collections.abc import Callable, Iterator
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
sys.path.insert(0, str(ROOT))

from devkit.panel import wine  # noqa: E402
import call_rows  # noqa: E402
import frame_rows  # noqa: E402
import mcp_rows  # noqa: E402
import stream_rows  # noqa: E402
from programs import Side  # noqa: E402
from results import Results  # noqa: E402

OUTPUT = ROOT / "build" / "bench"
PARTS: dict[str, list[Callable[[Results, Side, bool], None]]] = {
    "start": [frame_rows.measure_start],
    "memory": [frame_rows.measure_idle_memory, frame_rows.measure_frame_memory],
    "frames": [frame_rows.measure_frames],
    "calls": [call_rows.measure_calls],
    "server": [call_rows.measure_requests, call_rows.measure_files],
    "stream": [stream_rows.measure_streams],
    "latency": [stream_rows.measure_first_delta, stream_rows.measure_latency],
    "idle": [frame_rows.measure_idle],
    "mcp": [mcp_rows.measure_mcp_start, mcp_rows.measure_mcp_calls, mcp_rows.measure_mcp_idle],
    "judging": [call_rows.measure_judging],
}


def arguments() -> argparse.Namespace:
    parser = argparse.ArgumentParser(description="speed and memory of the host")
    parser.add_argument("parts", nargs="*", metavar="PART",
                        help=f"only these: {', '.join(PARTS)}; everything when not given")
    parser.add_argument("--quick", action="store_true", help="fewer repetitions, rougher figures")
    parser.add_argument("--markdown", action="store_true",
                        help="print the tables of the README and of docs/performance.md")
    parser.add_argument("--side", choices=("native", "windows"), help="only this one")
    given = parser.parse_args()
    if unknown := set(given.parts) - set(PARTS):
        parser.error(f"no such part: {', '.join(sorted(unknown))}")
    return given


def without_symbols(folder: Path) -> Path:
    """Copies as users get them. Wine reads a program's symbols at each start."""
    copies = OUTPUT / "windows"
    shutil.rmtree(copies, ignore_errors=True)
    for program in [*folder.glob("morva-chrome-host.exe"), *folder.glob("bench/*.exe")]:
        copy = copies / program.relative_to(folder)
        copy.parent.mkdir(parents=True, exist_ok=True)
        subprocess.run(["x86_64-w64-mingw32-strip", "-o", copy, program], check=True)
    return copies


@contextlib.contextmanager
def wine_side(folder: Path, tools: Path) -> Iterator[Side]:
    """A Wine prefix of our own with its server running, so that no start has to wait for it."""
    prefix = OUTPUT / "prefix"
    wine.make_prefix(prefix)
    side = Side("windows", without_symbols(folder), tools, prefix)
    try:
        subprocess.run(["wineserver" if not os.access("/usr/lib/wine/wineserver64", os.X_OK)
                        else "/usr/lib/wine/wineserver64", "-p"],
                       env=side.environment, check=True, stdin=subprocess.DEVNULL)
        subprocess.run([wine.loader(), "cmd", "/c", "exit"], env=side.environment, check=True,
                       stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                       stderr=subprocess.DEVNULL)
        yield side
    finally:
        wine.end_server(prefix)


def show(results: Results, markdown: bool) -> None:
    results.store(OUTPUT / "results.json")
    (OUTPUT / "samples.json").write_text(json.dumps(results.samples))
    about = results.machine
    print(f"\n{about['date']}, {about['cpu']}, {about['cores']} cores, Linux {about['kernel']}, "
          f"load at start {about['load_at_start']}\n")
    print(results.for_documents() if markdown else results.table(colour=sys.stdout.isatty()))
    print(f"\n{results.summary()}; results.json, samples.json and targets.png lie "
          f"in {OUTPUT.relative_to(ROOT)}/")
    if not results.draw(OUTPUT / "targets.png"):
        print("not drawn: needs python3-matplotlib")


def main() -> None:
    given = arguments()
    OUTPUT.mkdir(parents=True, exist_ok=True)
    results = Results()
    native = ROOT / "build" / "release"
    with contextlib.ExitStack() as stack:
        sides = []
        if given.side != "native":
            windows = ROOT / "build" / "windows"
            sides.append(stack.enter_context(wine_side(windows, native / "bench")))
        if given.side != "windows":
            sides.append(Side("native", native, native / "bench"))
        for part in given.parts or PARTS:
            for side in sides:
                print(f"{part}, {side.name}:", file=sys.stderr, flush=True)
                for measure in PARTS[part]:
                    measure(results, side, given.quick)
    show(results, given.markdown)


if __name__ == "__main__":
    main()
