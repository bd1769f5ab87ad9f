"""Memory, threads and handles of a host at rest."""

from __future__ import annotations

import os
import re
import subprocess
import time
from pathlib import Path

from devkit.panel import wine

SETTLE_S = 15.0
POOL_S = 6.0  # Wine's thread pool, which WinHTTP uses, keeps each thread for 5 s behind its last work


class Gauges:
    """Looks at host processes of one build. Under Wine a program of ours counts the handles; if
    patient, once the threads have gone that only the thread pool has kept."""

    def __init__(self, prefix, folder, patient):
        self.patience = POOL_S if prefix and patient else 0.0  # seconds that a look takes
        self._counter = None
        if prefix:
            program = folder / "process_gauges.exe"
            subprocess.run(["x86_64-w64-mingw32-g++-posix", "-O1", "-municode", "-static", "-o",
                            program, Path(__file__).with_name("process_gauges.cpp"), "-lntdll"],
                           check=True)
            self._counter = subprocess.Popen(
                [wine.loader(), program, "morva-chrome-host.exe"], stdin=subprocess.PIPE,
                stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True, bufsize=1,
                env=os.environ | wine.environment(prefix))

    def look(self, pid):
        """What there is once the threads that only end have ended: twice the same, or the last."""
        time.sleep(self.patience)
        deadline = time.monotonic() + SETTLE_S
        before = None
        while (now := (len(os.listdir(f"/proc/{pid}/task")), self._handles(pid))) != before:
            before = now
            if time.monotonic() > deadline:
                break
            time.sleep(0.4)
        status = Path(f"/proc/{pid}/status").read_text()
        memory = int(re.search(r"RssAnon:\s+(\d+) kB", status)[1]) / 1024
        return {"MiB": memory, "threads": now[0], "handles": now[1]}

    def close(self):
        if self._counter:
            self._counter.stdin.close()
            self._counter.wait(30)

    def _handles(self, pid):
        if not self._counter:
            return len(os.listdir(f"/proc/{pid}/fd"))
        self._counter.stdin.write("\n")
        return int(self._counter.stdout.readline())
