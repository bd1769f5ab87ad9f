#!/usr/bin/env python3
"""Lets everything happen at once, at random, for a while: ./dev soak --minutes N [--seed S]

Turns, stops, tool calls, uploads, events and small messages come from many threads; the agent
crashes and comes back; the host's input is closed in the midst of it, and a new host takes over, as
when the extension is loaded anew. Every reply must come once, every event once, every turn end
once, every host end in order; and at rest a host must have the memory, threads and handles that it
had before.

Results go to build/soak: BUILD.png, BUILD.json. The seed chooses what is done and when; what the
threads then make of it differs from run to run.
"""

from __future__ import annotations

import argparse
import os
import random
import shutil
import sys
import tempfile
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
RESULTS = ROOT / "build" / "soak"
BUILDS = ("windows", "asan", "tsan", "native")


def arguments():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--minutes", type=float, default=2)
    parser.add_argument("--seed", type=int, default=random.SystemRandom().randrange(1 << 32))
    parser.add_argument("--build", choices=BUILDS, default="windows")
    parser.add_argument("--junit", type=Path)
    return parser.parse_args()


options = arguments()
os.environ["MORVA_HOST_BUILD"] = options.build  # read when the modules below are loaded
sys.path[:0] = [str(ROOT), str(ROOT / "tests" / "system"), str(ROOT / "tools")]

import junit  # noqa: E402
import report  # noqa: E402
from actions import ACTIONS  # noqa: E402
from agent_process import AgentProcess  # noqa: E402
from gauges import ALLOWED, Gauges, growths  # noqa: E402
from ledger import Ledger  # noqa: E402
from life import Life  # noqa: E402
from support import builds  # noqa: E402
from support.sanitizer_reports import sanitizer_environment, take_reports  # noqa: E402
from support.tool_server_client import WorkFolder  # noqa: E402
from support.tool_server_fixtures import empty, roaming_folder  # noqa: E402

from devkit.panel.host_process import HostError, HostProcess  # noqa: E402

LONGEST_LIFE_S = 600.0
SHORT_LIFE_S = (1.0, 5.0)
FEWEST_LIVES = 3
FEWEST_SAMPLES = 5
LONGEST_EXTRA_S = 240.0  # for a machine that is too slow to show everything in time
BUSY_S = (1.5, 3.5)  # between two rests
AGENT_AWAY_S = (0.0, 1.5)
STOP_REACHES_S = 1.0  # so long after a "stop" the agent may still cancel what runs


class Run:
    def __init__(self):
        self.random = random.Random(options.seed)
        self.prefix = builds.wine_prefix() if builds.IS_WINDOWS else None
        self.scratch = Path(tempfile.mkdtemp(prefix="morva-soak-"))
        self.folders = {}
        for name in () if self.prefix else ("APPDATA", "LOCALAPPDATA"):
            (self.scratch / name).mkdir()
            self.folders[name] = str(self.scratch / name)
        self.work = WorkFolder(*roaming_folder(self.folders))
        empty(self.work.local)
        self.ledger = Ledger()
        self.gauges = Gauges(self.prefix, self.scratch)
        self.agent = AgentProcess()
        self.lives = self.turns = self.stops = 0
        self.samples, self.marks = [], []
        self.deadline = time.monotonic() + options.minutes * 60

    def close(self):
        self.agent.end()
        self.gauges.close()
        shutil.rmtree(self.scratch, ignore_errors=True)

    def left(self):
        return self.deadline - time.monotonic()

    # --- Lives ---

    def all_lives(self):
        """The first is long, so that there is something to watch; then they come as they come. On a
        slow machine the first lasts until there is, and others follow all the same."""
        self.live(min(LONGEST_LIFE_S, self.left() * 0.55), rests=True)
        while (self.left() > 0 or self.lives < FEWEST_LIVES) and not self.ledger.faults:
            if self.left() < 30 or self.random.random() < 0.75:
                self.live(self.random.uniform(*SHORT_LIFE_S), rests=False)
            else:
                longest = min(LONGEST_LIFE_S, max(5.0, self.left()))
                self.live(self.random.uniform(5.0, longest), rests=True)

    def live(self, seconds, rests):
        self.lives += 1
        self.marks.append((self.gauges.elapsed(), "host"))
        # What has been freed is kept for a while, otherwise up to 256 MiB, which would look like a
        # leak.
        environment = {**self.folders, **sanitizer_environment()}
        environment["ASAN_OPTIONS"] += ":quarantine_size_mb=16"
        host = HostProcess(builds.BUILD, None, environment, self.prefix, builds.PROGRAM).start()
        life = Life(self.lives, options.seed, host, self.agent, self.work, self.ledger)
        life.begin()
        until = time.monotonic() + seconds
        try:
            while not self.ledger.faults and (time.monotonic() < until or self.wants_more()):
                self.be_busy(life, until)
                if rests:
                    life.rest(lambda: self.samples.append(self.gauges.look(host.pid, life.number)))
        except Exception as failure:  # the run ends with what is known so far
            self.ledger.fault(f"host {life.number}: {type(failure).__name__} {failure}")
        self.end_life(life, host)

    def wants_more(self):
        """The first host has not shown enough yet, and there is still patience."""
        return self.lives == 1 and self.left() > -LONGEST_EXTRA_S and (
            len(self.ledger.latencies) < len(ACTIONS) or len(self.samples) < FEWEST_SAMPLES
            or not self.agent.crashes)

    def be_busy(self, life, until):
        """Some seconds of everything, with a crash or a stop in most of them."""
        seconds = self.random.uniform(*BUSY_S)
        if (left := until - time.monotonic()) > 0:
            seconds = min(seconds, left)
        before = seconds * self.random.random()
        time.sleep(before)
        troubles = [self.crash_agent, self.crash_agent, self.stop_turns, lambda _: None]
        self.random.choice(troubles)(life)
        time.sleep(seconds - before)

    def crash_agent(self, _):
        self.marks.append((self.gauges.elapsed(), "crash"))
        self.ledger.disturbances.begin()
        self.agent.crash()
        time.sleep(self.random.uniform(*AGENT_AWAY_S))
        self.agent.start()
        self.ledger.disturbances.end()

    def stop_turns(self, life):
        self.stops += 1
        self.ledger.disturbances.begin()
        life.panel.ask("stop")
        time.sleep(STOP_REACHES_S)
        self.ledger.disturbances.end()

    def end_life(self, life, host):
        wrong = []
        try:
            code = life.end()
            if code < 0 and self.prefix:
                # A fault of a Windows program becomes its exit code; of a signal only Wine itself
                # dies, about once in some thousand ends of a process.
                print(f"   Wine died of signal {-code} while host {life.number} ended", flush=True)
            elif code != 0:
                wrong.append(f"ended with {code}: {host.stderr[-2000:]}")
        except HostError as error:
            wrong.append(str(error))
            host.kill()
        for text in filter(None, [*wrong, host.stream_fault, take_reports()[:20_000]]):
            self.ledger.fault(f"host {life.number}: {text}")
        self.turns += self.ledger.audit_turns()
        self.ledger.forget()

    def outcome(self):
        return report.Outcome(
            options.build, options.seed, self.gauges.elapsed(), self.lives, self.agent.crashes,
            self.stops, self.turns, self.ledger, self.samples,
            growths(self.samples, ALLOWED[options.build]), self.marks)


def main():
    print(f"soak of {options.build}, {options.minutes:g} minutes, seed {options.seed}", flush=True)
    run = Run()
    try:
        run.all_lives()
    finally:
        run.close()
    outcome = run.outcome()
    RESULTS.mkdir(parents=True, exist_ok=True)
    report.print_tables(outcome)
    report.write_json(outcome, RESULTS / f"{options.build}.json")
    report.draw(outcome, RESULTS / f"{options.build}.png")
    print(f"plot: {(RESULTS / options.build).relative_to(ROOT)}.png")
    report.print_verdicts(outcome)
    verdicts = outcome.verdicts()
    if options.junit:
        junit.write(options.junit, "soak", verdicts)
    return 1 if any(verdicts.values()) else 0


if __name__ == "__main__":
    sys.exit(main())
