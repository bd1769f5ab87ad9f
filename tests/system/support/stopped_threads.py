"""Stops threads of a host that we started, as a debugger does; they stay so until it has ended."""

import ctypes
import os

from support.waiting import until

_SEIZE, _INTERRUPT, _WALL = 0x4206, 0x4207, 0x40000000
_libc = ctypes.CDLL(None, use_errno=True)


def _trace(request, thread):
    if _libc.ptrace(request, thread, None, None) != 0:
        raise OSError(ctypes.get_errno(), "ptrace")


def stop_threads(pid, but):
    """Stops all threads, in the order of their start, but the one numbered `but`."""
    threads = sorted(int(each) for each in os.listdir(f"/proc/{pid}/task"))
    del threads[but]
    for thread in threads:
        _trace(_SEIZE, thread)
        _trace(_INTERRUPT, thread)
        _, status = os.waitpid(thread, _WALL)
        assert os.WIFSTOPPED(status), "it has ended already"
    return threads


def wait_until_gone(threads, timeout):
    """Until the process of these stopped threads has ended; it can be waited for then."""
    for thread in threads[1:]:  # the first is left to who started the process
        until(lambda: os.waitpid(thread, _WALL | os.WNOHANG)[0],
              "the host is still there", timeout)
