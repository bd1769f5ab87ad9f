"""Memory, threads and handles of a host at rest."""

from __future__ import annotations

import os
import subprocess
import time
from pathlib import Path

from support import builds
from support.memory import counted_mib, held

from devkit.panel import wine

SETTLE_S = 15.0
POOL_S = 6.0  # Wine's thread pool, which WinHTTP uses, keeps a thread for 5 s behind its last work


class Gauges:
    """Looks at host processes of one build, which get `environment`. Under Wine a program of ours
    counts the handles; if patient, once the threads have gone that only the thread pool has kept.
    Under a sanitizer a library of ours tells what of the memory is the program's."""

    def __init__(self, prefix, folder, patient):
        self.patience = POOL_S if prefix and patient else 0.0  # seconds that a look takes
        self.environment = {}
        self._counter = None
        self._in_use = folder / "in_use"
        if prefix:
            program = folder / "process_gauges.exe"
            subprocess.run(["x86_64-w64-mingw32-g++-posix", "-O1", "-municode", "-static", "-o",
                            program, Path(__file__).with_name("process_gauges.cpp"), "-lntdll"],
                           check=True)
            self._counter = subprocess.Popen(
                [wine.loader(), program, "morva-chrome-host.exe"], stdin=subprocess.PIPE,
                stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True, bufsize=1,
                env=os.environ | wine.environment(prefix))

        if builds.IS_SANITIZED:
            library = folder / "memory_in_use.so"
            subprocess.run(["clang++", "-std=c++20", "-O1", "-shared", "-fPIC", "-o", library,
                            Path(__file__).with_name("memory_in_use.cpp")], check=True)
            self.environment = {"LD_PRELOAD": str(library), "MORVA_IN_USE": str(self._in_use)}

    def look(self, pid):
        """What there is once the threads that only end have ended: twice the same, or the last."""
        time.sleep(self.patience)
        deadline = time.monotonic() + SETTLE_S
        before = None
        while (now := self._held(pid)) != before:
            before = now
            if time.monotonic() > deadline:
                break
            time.sleep(0.4)
        return {"MiB": self._mib(pid), "threads": now[0], "handles": now[1]}

    def close(self):
        if self._counter:
            self._counter.stdin.close()
            self._counter.wait(30)

    def _mib(self, pid):
        if self.environment:
            return int(Path(f"{self._in_use}.{pid}").read_text()) / (1 << 20)
        return counted_mib(pid, "RssAnon")

    def _held(self, pid):
        threads, handles = held(pid)
        if self._counter:
            self._counter.stdin.write("\n")
            handles = int(self._counter.stdout.readline())
        return threads, handles
