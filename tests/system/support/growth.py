"""What a host holds open, before and after it did something many times."""

import os
import time


def held(panel):
    """(threads, open files) of the host's process."""
    return (len(os.listdir(f"/proc/{panel.pid}/task")), len(os.listdir(f"/proc/{panel.pid}/fd")))


def expect_no_growth(panel, before, threads=4, files=8, timeout=20):
    """Threads that are done end soon, not at once; what has been left behind stays."""
    deadline = time.monotonic() + timeout
    while True:
        now = held(panel)
        if now[0] <= before[0] + threads and now[1] <= before[1] + files:
            return
        assert time.monotonic() < deadline, (before, now)
        time.sleep(0.02)
