#!/usr/bin/env python3
"""Makes one call after another fail, as often as there are calls: ./dev torture [NAME...]

Each scenario is repeated with the first, second, ... allocation failing, and then with the first,
second, ... call of the system and of libcurl. Whatever fails, the host lives on, or says why not;
everything that was asked is answered once; nothing is left over, and all goes well afterwards.
"""

from __future__ import annotations

import argparse
import json
import os
import subprocess
import sys
import tempfile
import time
from concurrent.futures import ThreadPoolExecutor
from dataclasses import asdict, dataclass, field
from pathlib import Path
from typing import Any

ROOT = Path(__file__).resolve().parents[2]
os.environ["MORVA_HOST_BUILD"] = "asan"  # read when the modules below are loaded
sys.path[:0] = [str(ROOT), str(ROOT / "tests" / "system"), str(ROOT / "tools")]

import junit  # noqa: E402
from host_world import PROGRAM, Disorder  # noqa: E402
from plan import KINDS, Plan, Sample  # noqa: E402
from scenarios import ON_HOST  # noqa: E402
from start_scenarios import STARTS  # noqa: E402

sys.setrecursionlimit(20_000)  # a frame is nested 1,001 levels deep

SCENARIOS: dict[str, Any] = {**ON_HOST, **STARTS}
SLOW_S = 3.0  # a run of which something waited in vain
ALL = 1_000_000


@dataclass
class Row:
    """One scenario with one kind of failure."""

    name: str
    kind: str
    calls: int = 0  # of a run in which nothing failed
    tried: int = 0
    refused: int = 0  # runs that did not go well, in order
    severed: int = 0  # runs in which the host lost its input or output
    slow: int = 0
    longest: float = 0.0
    seconds: float = 0.0
    findings: list[str] = field(default_factory=list)


class Torture:
    def __init__(self, plan, name, kind, sample, most):
        self.plan, self.sample, self.most = plan, sample, most
        self.row = Row(name, kind)
        self.scenario = SCENARIOS[name](plan)

    def go(self):
        began = time.monotonic()
        try:
            self.begin()
            while self.row.tried < self.most and self.attempt():
                pass
            self.end()
        except Exception as disorder:  # nobody made anything fail
            self.note(disorder, None)
        finally:
            self.plan.disarm()
            self.scenario.close()
        self.row.seconds = time.monotonic() - began
        return self.row

    def attempt(self):
        """False when every place has been tried."""
        row, began = self.row, time.monotonic()
        self.plan.arm(row.kind, self.sample)
        try:
            went_well = self.scenario.run()
            failure = self.plan.disarm()
            if failure is None:
                row.calls = self.plan.calls
            self.check(went_well)
        except Exception as disorder:  # also what our own sides did not expect
            failure = self.plan.disarm()
            if self.scenario.world.is_severed():
                row.severed += 1
                self.end()
            else:
                self.note(disorder, failure)
            self.begin()
        took = time.monotonic() - began
        row.longest = max(row.longest, took)
        row.slow += took > SLOW_S
        row.tried += failure is not None
        return failure is not None

    def check(self, went_well):
        """After a run, all must go well."""
        self.row.refused += not went_well
        if self.scenario.always_again or not went_well:
            self.scenario.clean()
            if not self.scenario.run():
                raise Disorder("it does not go well afterwards")
        self.scenario.check()
        self.scenario.clean()

    def begin(self):
        self.plan.clear()
        self.scenario.begin()

    def end(self):
        try:
            self.scenario.end()
        except Disorder as disorder:
            self.note(Disorder(f"at the end of this host: {disorder}"), None)

    def note(self, disorder, failure):
        story = self.plan.story(failure) if failure else "nothing failed"
        said = self.scenario.world.drop()
        what = f"{type(disorder).__name__} {disorder}"
        self.row.findings.append(f"{what}\n{story}\n{said}")
        print(f"-- {self.row.name}, {self.row.kind}: {self.row.findings[-1]}", flush=True)


# --- One process for several, or one each ---

def torture_here(names, kinds, options):
    rows = []
    with tempfile.TemporaryDirectory(prefix="morva-plan-") as folder:
        for name in names:
            for kind in kinds:
                plan = Plan(Path(folder) / f"{name}-{kind}", PROGRAM)
                times = SCENARIOS[name].allocations_per_stack if kind == "memory" else ALL
                sample = Sample(options.every, options.phase, times)
                rows.append(Torture(plan, name, kind, sample, options.most).go())
                print_row(rows[-1])
    return rows


def torture_apart(names, kinds, options):
    """Each in a network of its own: the ports of host and agent are fixed."""
    with tempfile.TemporaryDirectory(prefix="morva-torture-") as folder, \
            ThreadPoolExecutor(options.jobs) as threads:
        def run(name, kind):
            rows = Path(folder) / f"{name}-{kind}.json"
            subprocess.run(
                [ROOT / "tools" / "in-own-network", sys.executable, __file__, name, "--here",
                 "--kind", kind, "--every", str(options.every), "--phase", str(options.phase),
                 "--most", str(options.most), "--rows", rows], check=False)
            if rows.exists():
                return Row(**json.loads(rows.read_text())[0])
            return Row(name, kind, findings=["the driver did not come to its end"])

        pairs = [(name, kind) for name in names for kind in kinds]
        return list(threads.map(lambda pair: run(*pair), pairs))


def print_row(row):
    print(f"{row.name:<10}{row.kind:<10}{row.calls:>7}{row.tried:>7}{row.refused:>9}"
          f"{row.severed:>9}{row.slow:>6}{row.longest:>9.1f}{row.seconds:>9.0f}"
          f"{len(row.findings):>10}", flush=True)


def print_rows(rows):
    print("scenario  kind        calls  tried  refused  severed  slow  longest  seconds  findings")
    for row in rows:
        print_row(row)


def arguments():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("names", nargs="*", metavar="NAME", help=" ".join(SCENARIOS))
    parser.add_argument("--kind", choices=KINDS, action="append")
    parser.add_argument("--every", type=int, default=1, help="try one of so many places")
    parser.add_argument("--phase", type=int, default=0, help="which one")
    parser.add_argument("--most", type=int, default=ALL, help="try so many of each at most")
    parser.add_argument("--jobs", type=int, default=3)
    parser.add_argument("--here", action="store_true", help="one after another, on this network")
    parser.add_argument("--rows", type=Path, help="where the figures go")
    parser.add_argument("--junit", type=Path)
    options = parser.parse_args()
    if unknown := set(options.names) - set(SCENARIOS):
        parser.error(f"no scenario {', '.join(unknown)}")
    return options


def main():
    options = arguments()
    work = torture_here if options.here else torture_apart
    rows = work(options.names or list(SCENARIOS), options.kind or list(KINDS), options)
    if options.rows:
        options.rows.write_text(json.dumps([asdict(row) for row in rows]))
    else:
        print_rows(rows)
    if options.junit:
        junit.write(options.junit, "torture",
                    {f"{row.name}, {row.kind}": row.findings for row in rows})
    return 1 if any(row.findings for row in rows) else 0


if __name__ == "__main__":
    sys.exit(main())
