"""What a host uses: memory, threads, files."""

import os
import re
from pathlib import Path

from support.builds import IS_WINDOWS
from support.waiting import until


def peak_mib(panel):
    """The most memory that the host's process ever had in use, in MiB."""
    status = Path(f"/proc/{panel.pid}/status").read_text()
    return int(re.search(r"VmHWM:\s+(\d+) kB", status).group(1)) / 1024


def limit_memory(panel, mib):
    """All memory that the host may have from now on. Wine reserves addresses by the gigabyte, so
    there it is what the host may write to."""
    import resource  # which Windows has not

    kind = resource.RLIMIT_DATA if IS_WINDOWS else resource.RLIMIT_AS
    resource.prlimit(panel.pid, kind, (mib << 20, mib << 20))


def held(panel):
    """(threads, open files) of the host's process."""
    return [len(os.listdir(f"/proc/{panel.pid}/{each}")) for each in ("task", "fd")]


def expect_no_growth(panel, before):
    """Threads that are done end soon, not at once; what has been left behind stays."""
    until(lambda: held(panel)[0] <= before[0] + 4 and held(panel)[1] <= before[1] + 5,
          f"{before} has become {held(panel)}, not less", timeout=20)
