"""What a host uses: memory, threads, files."""

import os
import re
from pathlib import Path

from support.waiting import until


def peak_mib(panel):
    """The most memory that the host's process ever had in use, in MiB."""
    status = Path(f"/proc/{panel.pid}/status").read_text()
    return int(re.search(r"VmHWM:\s+(\d+) kB", status).group(1)) / 1024


def held(panel):
    """(threads, open files) of the host's process."""
    return [len(os.listdir(f"/proc/{panel.pid}/{each}")) for each in ("task", "fd")]


def expect_no_growth(panel, before, threads=4, files=8):
    """Threads that are done end soon, not at once; what has been left behind stays."""
    until(lambda: held(panel)[0] <= before[0] + threads and held(panel)[1] <= before[1] + files,
          f"{before} has become {held(panel)}, not less", timeout=20)
