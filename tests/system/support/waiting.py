"""Waiting for what no message tells of."""

import time


def until(test, what, timeout=15, pause=0.01):
    """What the test gives, as soon as that is something; `what` is the complaint otherwise."""
    deadline = time.monotonic() + timeout
    while not (found := test()):
        assert time.monotonic() < deadline, f"{what} within {timeout} s"
        time.sleep(pause)
    return found
