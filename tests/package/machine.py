"""A user's machine, which is a Wine prefix: installing, running, and looking what is there."""

import json
import re
import shutil
import subprocess
import time
from pathlib import Path, PureWindowsPath

from devkit.panel import wine
from devkit.panel.host_process import HostProcess

HOST_KEY = r"HKCU\Software\Google\Chrome\NativeMessagingHosts\com.quenlark.morva.chrome"
PROGRAM_LIST_KEY = r"HKCU\Software\Microsoft\Windows\CurrentVersion\Uninstall"
UNINSTALL_KEY = PROGRAM_LIST_KEY + r"\morva-chrome-host"
# Sections of the registry in which Wine itself keeps what it met: no program wrote these.
WINES_OWN = re.compile(r"\[HKEY_CURRENT_USER\\Software\\Wine(\\|\])", re.IGNORECASE)
WAIT_S = 100


def wait_until(condition, what):
    """For what ends in another process: there is nothing to wait on but the result."""
    deadline = time.monotonic() + WAIT_S
    while not condition():
        assert time.monotonic() < deadline, f"still not so after {WAIT_S} s: {what}"
        time.sleep(0.05)


class Machine:
    def __init__(self, prefix):
        self.prefix = prefix
        users = prefix / "drive_c" / "users"
        self.profile = next(each for each in users.iterdir() if each.name != "Public")
        self.root = self.profile / "AppData" / "Local" / "Programs" / "morva-chrome-host"
        self.uninstaller = self.root / "uninstall.exe"
        self._hosts = []
        self.run("reg", "add", PROGRAM_LIST_KEY, "/f")  # which every Windows has

    # --- Doing ---

    def run(self, program, *arguments):
        """Exit code and output of a program that ends by itself."""
        done = wine.run(self.prefix, program, *arguments, check=False, stdout=subprocess.PIPE,
                        stderr=subprocess.STDOUT, timeout=WAIT_S)
        return done.returncode, done.stdout.decode("utf-8", "replace")

    def install(self, setup):
        return self.run(setup, "/S")[0]

    def uninstall(self):
        """As the list of programs does it: the uninstaller goes on in a copy of itself."""
        assert self.run(self.uninstaller, "/S")[0] == 0
        wait_until(lambda: not self.root.exists(), f"{self.root} is gone")
        wait_until(lambda: not self.text_value(UNINSTALL_KEY, "UninstallString"),
                   "the program is no longer listed")

    def uninstall_in_place(self):
        """The exit code of an uninstaller that makes no copy, and so cannot remove itself."""
        return self.run(self.uninstaller, "/S", f"_?={self.windows_path(self.root)}")[0]

    def start_host(self, version):
        """The installed program, greeted: a frame went in, and the answer came out."""
        return self.start_program(self.program(version))

    def start_program(self, program):
        self._hosts.append(HostProcess(wineprefix=self.prefix, program=program))
        return self._hosts[-1].start()

    def end_hosts(self):
        for host in self._hosts:
            host.kill()
        self._hosts.clear()

    def clean(self):
        shutil.rmtree(self.root.parent, ignore_errors=True)
        for key in (r"HKCU\Software\Google", UNINSTALL_KEY):
            self.run("reg", "delete", key, "/f")

    # --- Looking ---

    def program(self, version):
        return self.root / version / "morva-chrome-host.exe"

    def installed_versions(self):
        return sorted(each.name for each in self.root.iterdir() if each.is_dir())

    def windows_path(self, path):
        return "C:\\" + str(PureWindowsPath(path.relative_to(self.prefix / "drive_c")))

    def text_value(self, key, name=""):
        """The text of a registry value, None when there is none. The default value has no name."""
        sections = self._exported(key)
        own = key.replace("HKCU", "HKEY_CURRENT_USER").lower()
        lines = next((each for each in sections if each[0].lower() == f"[{own}]"), [])
        quoted = json.dumps(name) if name else "@"
        found = [line for line in lines if line.startswith(f'{quoted}="')]
        return json.loads(found[0][len(quoted) + 1:]) if found else None

    def _exported(self, key):
        """The sections of a key, each as its lines. In UTF-16: what `reg query` prints has lost
        every character that the console does not know."""
        file = self.prefix / "drive_c" / "export.reg"
        code, _ = self.run("reg", "export", key, r"C:\export.reg", "/y")
        if code != 0:
            return []
        text = file.read_text("utf-16").replace("\r", "")
        file.unlink()
        return [section.split("\n") for section in text.split("\n\n") if section.startswith("[")]

    def registered_program(self):
        """What Chrome would start: the registry names a manifest, and the manifest a program."""
        manifest = self.text_value(HOST_KEY)
        if manifest is None:
            return None
        assert manifest.startswith("C:\\")
        path = self.prefix / "drive_c" / Path(*PureWindowsPath(manifest).parts[1:])
        return json.loads(path.read_text())["path"]

    def contents(self):
        """All files of the user and all keys of the user's software. Temporary files are left out:
        what an uninstaller cannot remove while it runs goes with the next start of Windows."""
        files = {str(path.relative_to(self.profile)) for path in self.profile.rglob("*")
                 if "Temp" not in path.relative_to(self.profile).parts}
        keys = {"\n".join(lines) for lines in self._exported(r"HKCU\Software")}
        assert keys
        return files, {section for section in keys if not WINES_OWN.match(section)}
