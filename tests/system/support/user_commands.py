"""The program as a person starts it: options, exit code, what it prints."""

import json
import os
import re
import subprocess
from dataclasses import dataclass
from pathlib import Path

from support import builds
from support.sanitizer_reports import sanitizer_environment

from devkit.panel import wine

HOST_NAME = "com.quenlark.morva.chrome"
MANIFEST_NAME = HOST_NAME + ".json"
VENDOR_KEYS = {  # in which each browser is registered
    "chrome": r"Software\Google\Chrome",
    "edge": r"Software\Microsoft\Edge",
    "brave": r"Software\Google\Chrome",
    "vivaldi": r"Software\Google\Chrome",
    "chromium": r"Software\Chromium",
}
TIMEOUT_S = 90


def host_key(browser):
    return f"{VENDOR_KEYS[browser]}\\NativeMessagingHosts\\{HOST_NAME}"


@dataclass
class Outcome:
    code: int
    out: str
    err: str

    def line(self, start):
        """The one line of the output that begins with this word."""
        (found,) = [line for line in self.out.splitlines() if line.split(" ")[0] == start]
        return found


class Program:
    """One copy of the program; `environment` is added to that of the tests."""

    def __init__(self, path, environment):
        self.path = Path(path)
        self._environment = {**os.environ, **environment, **sanitizer_environment()}
        if builds.IS_WINDOWS:
            self._environment |= wine.environment(builds.wine_prefix())

    @property
    def manifest(self):
        return self.path.parent / MANIFEST_NAME

    def run(self, *arguments, stdin=subprocess.DEVNULL, environment=None):
        options = {"stdin": stdin, "stdout": subprocess.PIPE, "stderr": subprocess.PIPE,
                   "timeout": TIMEOUT_S, "env": self._environment | (environment or {}),
                   "check": False}
        command = [self.path, *arguments]
        if builds.IS_WINDOWS:
            done = wine.run(builds.wine_prefix(), *command, may_be_silent=False, **options)
        else:
            done = subprocess.run(command, **options)
        return Outcome(done.returncode, done.stdout.decode(), done.stderr.decode())

    def doctor(self, environment=None):
        """The whole diagnosis, its findings by id, and the exit code."""
        outcome = self.run("--doctor", "--json", environment=environment)
        whole = json.loads(outcome.out)
        return whole, {each["id"]: each for each in whole["findings"]}, outcome


class UserRegistry:
    """Keys of the prefix's user, or of its machine, written and read as files that `reg` takes and
    gives."""

    def __init__(self, folder, root="HKEY_CURRENT_USER"):
        self._file = folder / "keys.reg"
        self._root = root

    def add(self, key, name, value, kind=1):
        """A number is a REG_DWORD; bytes are stored as they are, as a value of this kind."""
        if isinstance(value, int):
            data = f"dword:{value:08x}"
        elif isinstance(value, bytes):
            data = f"hex({kind}):" + ",".join(f"{byte:02x}" for byte in value)
        else:
            data = '"' + value.replace("\\", "\\\\").replace('"', '\\"') + '"'
        self._import(f"[{self._full(key)}]\n" + (f'"{name}"' if name else "@") + f"={data}\n")

    def delete(self, *keys):
        self._import("".join(f"[-{self._full(key)}]\n" for key in keys))

    def below(self, key):
        """Every key from this one down with its texts by name; empty when there is none."""
        self._file.unlink(missing_ok=True)
        self._reg("export", self._full(key), wine.windows_path(self._file), "/y")
        found, values = {}, {}
        text = self._file.read_text("utf-16") if self._file.exists() else ""
        for line in text.splitlines():
            if line.startswith("["):
                values = found.setdefault(line[1:-1].split("\\", 1)[1], {})
            elif match := re.fullmatch(r'(?:@|"(.*?)")="(.*)"', line):
                values[match[1] or ""] = match[2].replace('\\"', '"').replace("\\\\", "\\")
        return found

    def _import(self, text):
        self._file.write_text(f"Windows Registry Editor Version 5.00\n\n{text}",
                              encoding="utf-16", newline="\r\n")
        assert self._reg("import", wine.windows_path(self._file)) == 0, text

    def _reg(self, *arguments):
        return wine.run(builds.wine_prefix(), "reg", *arguments, check=False).returncode

    def _full(self, key):
        return f"{self._root}\\{key}"
