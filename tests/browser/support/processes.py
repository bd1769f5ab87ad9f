"""Which programs run in a Wine prefix: found by their environment, so others' are never counted."""

import time

import psutil

HOST = "morva-chrome-host.exe"
AGENT = "morva-viewer-cli.exe"


def _is_one(process, prefix, name):
    try:
        # The window between a fork and the start of the program shows the shell's command line.
        command = process.cmdline()[:1]
        return (process.environ().get("WINEPREFIX") == str(prefix) and command
                and command[0].replace("\\", "/").endswith(f"/{name}"))
    except (psutil.NoSuchProcess, psutil.AccessDenied, psutil.ZombieProcess):
        return False


def wait_for_count(prefix, name, count, patience=40):
    """Waits until so many run, and gives them."""
    deadline = time.monotonic() + patience
    while True:
        found = [each for each in psutil.process_iter() if _is_one(each, prefix, name)]
        if len(found) == count:
            return found
        assert time.monotonic() < deadline, f"{len(found)} of {name} run, not {count}: {found}"
        time.sleep(0.1)
