"""Which programs of ours run in a Wine prefix."""

import time

from devkit.panel import wine

HOST = "morva-chrome-host.exe"
AGENT = "morva-viewer-cli.exe"


def wait_for_count(prefix, name, count, patience=40):
    """Waits until so many run, and gives them."""
    deadline = time.monotonic() + patience
    while True:
        found = list(wine.running(prefix, f"/{name}"))
        if len(found) == count:
            return found
        assert time.monotonic() < deadline, f"{len(found)} of {name} run, not {count}: {found}"
        time.sleep(0.1)
