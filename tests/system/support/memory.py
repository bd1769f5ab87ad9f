"""How much memory the host has used."""

import re
from pathlib import Path


def peak_mib(panel):
    """The most memory that the host's process ever had in use, in MiB."""
    status = Path(f"/proc/{panel.pid}/status").read_text()
    return int(re.search(r"VmHWM:\s+(\d+) kB", status).group(1)) / 1024
