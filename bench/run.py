#!/usr/bin/env python3
"""Measures speed and memory of the host next to programs that do the least possible.

Usually started by `./dev bench`, which builds what it needs and gives it a network of its own. The
targets are ratios of medians of one run, so they hold on any machine; nothing fails when one is
missed, it is only said. Results: build/bench/results.json, samples.json and targets.png.
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
from driven_program import Side  # noqa: E402
from program_rows import (  # noqa: E402
    measure_idle, measure_memory, measure_round_trip, measure_start)
from pure_rows import measure_pure_parts  # noqa: E402
from results import Results  # noqa: E402
from stream_rows import measure_latency, measure_streams  # noqa: E402
from tool_call_rows import measure_tool_calls  # noqa: E402
from tool_server_rows import measure_tool_server  # noqa: E402

OUTPUT = ROOT / "build" / "bench"
# On each side, with the rows in which it shows.
BY_SIDE: dict[str, Callable[[Results, Side, bool], None]] = {
    "trip": measure_round_trip,
    "start": measure_start,
    "stream": measure_streams,
    "latency": measure_latency,
    "memory": measure_memory,
    "calls": measure_tool_calls,
    "server": measure_tool_server,
}
PARTS = [*BY_SIDE, "idle", "pure"]


def arguments() -> argparse.Namespace:
    parser = argparse.ArgumentParser(description="speed and memory of the host")
    parser.add_argument("parts", nargs="*", metavar="PART",
                        help=f"only these: {', '.join(PARTS)}; everything when not given")
    parser.add_argument("--quick", action="store_true", help="fewer repetitions, rougher figures")
    parser.add_argument("--side", choices=("native", "windows"), help="only this one")
    parser.add_argument("--native", type=Path, default=ROOT / "build" / "release",
                        help="build folder of the native programs")
    parser.add_argument("--windows", type=Path, default=ROOT / "build" / "windows",
                        help="build folder of the Windows programs")
    given = parser.parse_args()
    if unknown := set(given.parts) - set(PARTS):
        parser.error(f"no such part: {', '.join(sorted(unknown))}")
    return given


def without_symbols(folder: Path) -> Path:
    """Copies of the Windows programs as users get them. Wine reads the symbols at each start."""
    copies = OUTPUT / "windows"
    shutil.rmtree(copies, ignore_errors=True)
    for program in [*folder.glob("morva-chrome-host.exe"), *folder.glob("bench/*.exe")]:
        copy = copies / program.relative_to(folder)
        copy.parent.mkdir(parents=True, exist_ok=True)
        subprocess.run(["x86_64-w64-mingw32-strip", "-o", copy, program], check=True)
    return copies


@contextlib.contextmanager
def wine_side(folder: Path) -> Iterator[Side]:
    """A Wine prefix of our own with its server running, so that no start has to wait for it."""
    prefix = OUTPUT / "prefix"
    wine.make_prefix(prefix)
    side = Side("windows", without_symbols(folder), prefix)
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


def warn_of_other_libraries(side: Side) -> None:
    """The comparison of starts means little when the loader has different work for the two."""
    loaded = {name: side.libraries(name) for name in ("morva-chrome-host", "baseline_echo")}
    if len({frozenset(each) for each in loaded.values()}) > 1:
        shown = "; ".join(f"{name}: {' '.join(sorted(each))}" for name, each in loaded.items())
        print(f"{side.name}: host and baseline load different system libraries: {shown}")


def measure(results: Results, sides: list[Side], parts: list[str], quick: bool) -> None:
    for part in parts:
        print(f"{part}:", flush=True)
        if part == "idle":
            measure_idle(results, sides, quick)
        elif part == "pure":
            for side in sides:
                if side.prefix is None:
                    measure_pure_parts(results, side, quick)
        else:
            for side in sides:
                BY_SIDE[part](results, side, quick)


def show(results: Results) -> None:
    results.store(OUTPUT / "results.json")
    (OUTPUT / "samples.json").write_text(json.dumps(results.samples))
    about = results.machine
    print(f"\n{about['date']}, {about['cpu']}, {about['cores']} cores, Linux {about['kernel']}, "
          f"load at start {about['load_at_start']}\n")
    print(results.table(colour=sys.stdout.isatty()))
    print(f"\n{results.summary()}; {OUTPUT.relative_to(ROOT)}/results.json")
    if results.draw(OUTPUT / "targets.png"):
        print(f"drawn in {OUTPUT.relative_to(ROOT)}/targets.png")
    else:
        print("not drawn: needs python3-matplotlib and at least one target")


def main() -> None:
    given = arguments()
    OUTPUT.mkdir(parents=True, exist_ok=True)
    results = Results()
    with contextlib.ExitStack() as stack:
        sides = []
        if given.side != "windows":
            sides.append(Side("native", given.native.resolve()))
        if given.side != "native":
            sides.append(stack.enter_context(wine_side(given.windows.resolve())))
        for side in sides:
            warn_of_other_libraries(side)
        measure(results, sides, given.parts or PARTS, given.quick)
    show(results)


if __name__ == "__main__":
    main()
