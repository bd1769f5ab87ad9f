"""A screen of its own for tests whose programs show windows, and somebody who uses them."""

import os
import subprocess
import time

from support.waiting import until


class VirtualDisplay:
    """An X server without hardware, while it is entered."""

    def __enter__(self):
        reading, writing = os.pipe()
        self._server = subprocess.Popen(
            ["Xvfb", "-displayfd", str(writing), "-screen", "0", "1024x768x24",
             "-nolisten", "tcp"],
            pass_fds=[writing], stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
            stderr=subprocess.DEVNULL)
        os.close(writing)
        with os.fdopen(reading) as numbers:
            self.name = ":" + numbers.readline().strip()
        assert self.name != ":", "no virtual display"
        return self

    def __exit__(self, *_):
        self._server.terminate()
        self._server.wait(20)

    def window(self, title, timeout=60):
        """The number of the visible window with this title, once it is there."""
        return until(lambda: self._windows(title), f"no window {title!r}", timeout, 0.1)[0]

    def is_open(self, title):
        return bool(self._windows(title))

    def press(self, title, *keys):
        self._focus(title)
        self._do("key", *keys)

    def enter(self, title, text):
        """Types a text in place of what stands in the window's first field, and confirms it."""
        self._focus(title)
        self._do("key", "ctrl+a")
        self._do("type", "--delay", "2", text)
        self._do("key", "Return")

    def _windows(self, title):
        return self._do("search", "--onlyvisible", "--name", f"^{title}$").split()

    def _focus(self, title):
        self._do("windowfocus", "--sync", self.window(title))

    def _do(self, *arguments):
        return subprocess.run(
            ["xdotool", *arguments], env={**os.environ, "DISPLAY": self.name}, timeout=60,
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
            text=True, check=False).stdout


def act_until(done, act, timeout=90):
    """Acts until it had its effect: a window that is just being opened may miss a key."""
    def effect():
        act()
        for _ in range(40):
            if done():
                return True
            time.sleep(0.1)
        return False

    until(effect, "nothing came of it", timeout)
