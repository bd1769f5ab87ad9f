"""Memory, threads and handles of a host at rest, and whether they stay what they were."""

from __future__ import annotations

import os
import re
import statistics
import subprocess
import time
from dataclasses import dataclass
from pathlib import Path

from devkit.panel import wine

FEWEST_RESTS = 4  # with fewer there is no early and late
SETTLE_S = 15.0


@dataclass(frozen=True)
class Sample:
    at: float  # seconds since the run began
    life: int
    memory_mib: float
    threads: int
    handles: int


@dataclass(frozen=True)
class Growth:
    """How much more there is late in a host's life than early, and how much is allowed."""

    life: int
    what: str
    early: float
    late: float
    allowed: float

    @property
    def is_flat(self):
        return self.late - self.early <= self.allowed


# What a host may have more, late in its life. Memory: what the allocator keeps of the largest load
# so far, which depends on chance. Sanitizers keep freed memory (asan) and a history of every thread
# and access (tsan). Threads and handles: those parked for the next connection.
ALLOWED = {
    "windows": {"memory_mib": 10.0, "threads": 12, "handles": 32},
    "asan": {"memory_mib": 48.0, "threads": 12, "handles": 16},
    "tsan": {"memory_mib": 32.0, "threads": 12, "handles": 16},
    "native": {"memory_mib": 16.0, "threads": 12, "handles": 16},
}


def growths(samples, allowed):
    """Judges each life that was looked at often enough. The first look comes before the host is
    warm and does not count; then the middle of the first third is held against that of the last.
    """
    found = []
    for life in sorted({sample.life for sample in samples}):
        looks = [sample for sample in samples if sample.life == life][1:]
        third = max(1, len(looks) // 3)
        for what, limit in allowed.items() if len(looks) + 1 >= FEWEST_RESTS else ():
            values = [getattr(sample, what) for sample in looks]
            found.append(Growth(life, what, statistics.median(values[:third]),
                                statistics.median(values[-third:]), limit))
    return found


class Gauges:
    """Looks at host processes of one build. Under Wine a program of ours counts the handles."""

    def __init__(self, prefix, folder):
        self._began = time.monotonic()
        self._counter = None
        if prefix:
            program = folder / "process_gauges.exe"
            subprocess.run(["x86_64-w64-mingw32-g++-posix", "-O1", "-municode", "-static", "-o",
                            program, Path(__file__).with_name("process_gauges.cpp")], check=True)
            self._counter = subprocess.Popen(
                [wine.loader(), program, "morva-chrome-host.exe"], stdin=subprocess.PIPE,
                stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True, bufsize=1,
                env=os.environ | wine.environment(prefix))

    def elapsed(self):
        return time.monotonic() - self._began

    def look(self, pid, life):
        """A sample once the threads that only end have ended: twice the same, or the last."""
        deadline = time.monotonic() + SETTLE_S
        before = None
        while (now := (self._count(pid, "task"), self._handles(pid))) != before:
            before = now
            if time.monotonic() > deadline:
                break
            time.sleep(0.4)
        status = Path(f"/proc/{pid}/status").read_text()
        memory = int(re.search(r"RssAnon:\s+(\d+) kB", status)[1]) / 1024
        return Sample(self.elapsed(), life, memory, *now)

    def close(self):
        if self._counter:
            self._counter.stdin.close()
            self._counter.wait(30)

    def _count(self, pid, what):
        return len(os.listdir(f"/proc/{pid}/{what}"))

    def _handles(self, pid):
        if not self._counter:
            return self._count(pid, "fd")
        self._counter.stdin.write("\n")
        return int(self._counter.stdout.readline())
