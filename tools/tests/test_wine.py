"""How the ends of Windows programs are told from those of Wine."""

import subprocess
import sys

import pytest
from panel import wine

# As Wine leaves a program: the main thread has ended, and another waits for ever.
STUCK = """import ctypes, threading, time
threading.Thread(target=time.sleep, args=(60,)).start()
ctypes.CDLL(None).pthread_exit(None)"""


def end_of(script, timeout=30.0):
    with subprocess.Popen([sys.executable, "-c", script]) as process:
        try:
            return wine.wait(process, timeout)
        finally:
            process.kill()


@pytest.mark.parametrize("script", [STUCK, "import os; os.kill(os.getpid(), 9)"])
def test_a_death_of_wine_is_no_fault_of_the_program(script):
    with pytest.warns(UserWarning, match="Wine died of signal 9"):
        assert end_of(script) == 0


def test_a_program_that_ends_or_lives_is_taken_at_its_word():
    assert end_of("raise SystemExit(3)") == 3
    with pytest.raises(subprocess.TimeoutExpired):
        end_of("import time; time.sleep(60)", 2.0)
