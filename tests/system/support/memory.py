"""What a host uses: memory, threads, files."""

import os
import re
from pathlib import Path

from support.builds import IS_WINDOWS
from support.waiting import until


def counted_mib(pid, kind):
    """What the system counts for a process, in MiB; `kind` as in /proc/PID/status."""
    status = Path(f"/proc/{pid}/status").read_text()
    return int(re.search(rf"{kind}:\s+(\d+) kB", status)[1]) / 1024


def peak_mib(panel):
    """The most memory that the host's process ever had in use, in MiB."""
    return counted_mib(panel.pid, "VmHWM")


def limit_memory(panel, mib):
    """All memory that the host may have from now on. Wine reserves addresses by the gigabyte, so
    there it is what the host may write to."""
    import resource  # which Windows has not

    kind = resource.RLIMIT_DATA if IS_WINDOWS else resource.RLIMIT_AS
    resource.prlimit(panel.pid, kind, (mib << 20, mib << 20))


def held(pid):
    """[threads, open files] of a process."""
    return [len(os.listdir(f"/proc/{pid}/{each}")) for each in ("task", "fd")]


def expect_no_growth(panel, before):
    """Threads that are done end soon, not at once; what has been left behind stays."""
    until(lambda: held(panel.pid)[0] <= before[0] + 4 and held(panel.pid)[1] <= before[1] + 5,
          f"{before} has become {held(panel.pid)}, not less", timeout=20)
