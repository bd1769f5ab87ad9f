"""Which programs run in a Wine prefix: found by their environment, so others' are never counted."""

import time

import psutil

HOST = "morva-chrome-host.exe"
AGENT = "morva-viewer-cli.exe"


def running(prefix, name):
    """Processes of a program that runs in the prefix."""
    found = []
    for process in psutil.process_iter():
        try:
            # The window between a fork and the start of the program shows the shell's command line.
            command = process.cmdline()[:1]
            inside = process.environ().get("WINEPREFIX") == str(prefix)
            if inside and command and command[0].replace("\\", "/").endswith(f"/{name}"):
                found.append(process)
        except (psutil.NoSuchProcess, psutil.AccessDenied, psutil.ZombieProcess):
            continue
    return found


def wait_for_count(prefix, name, count, patience=40):
    """Waits until so many run, and gives them."""
    deadline = time.monotonic() + patience
    while len(found := running(prefix, name)) != count:
        assert time.monotonic() < deadline, f"{len(found)} of {name} run, not {count}: {found}"
        time.sleep(0.1)
    return found
