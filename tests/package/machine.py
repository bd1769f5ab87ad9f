"""A user's machine, which is a Wine prefix: installing, running, and looking what is there."""

import json
import re
import shutil
import subprocess
from pathlib import Path, PureWindowsPath

from support.user_commands import UserRegistry, host_key
from support.waiting import until

from devkit.panel import wine
from devkit.panel.host_process import HostProcess

HOST_KEY = host_key("chrome")
VENDOR_KEY = r"Software\Google"
PROGRAM_LIST_KEY = r"Software\Microsoft\Windows\CurrentVersion\Uninstall"
UNINSTALL_KEY = PROGRAM_LIST_KEY + r"\morva-chrome-host"
WINES_OWN = "software\\wine"  # the key in which Wine itself keeps what it met
WAIT_S = 100


class Machine:
    def __init__(self, prefix):
        self.prefix = prefix
        users = prefix / "drive_c" / "users"
        self.profile = next(each for each in users.iterdir() if each.name != "Public")
        self.root = self.profile / "AppData" / "Local" / "Programs" / "morva-chrome-host"
        self.uninstaller = self.root / "uninstall.exe"
        self._hosts = []
        self.registry = UserRegistry(prefix)
        self.run("reg", "add", "HKCU\\" + PROGRAM_LIST_KEY, "/f")  # which every Windows has
        self.registry.add(WINES_OWN, "Version", "win10")  # and not Windows 7, as Wine would be

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
        assert self.quiet_uninstall() == 0
        until(lambda: not self.root.exists(), f"{self.root} is not gone", WAIT_S)
        until(lambda: not self.text_value(UNINSTALL_KEY, "UninstallString"),
              "the program is still listed", WAIT_S, 0.05)

    def quiet_uninstall(self):
        """What a caller of the entry in the list of programs gets, once the copy has ended, too."""
        command = self.text_value(UNINSTALL_KEY, "QuietUninstallString")
        program, arguments = re.fullmatch(r'"([^"]+)" (.+)', command).groups()
        code = self.run(program, *arguments.split())[0]
        until(lambda: not any(wine.running(self.prefix, "/~nsu")),
              "the uninstaller's copy does not end", WAIT_S)
        return code

    def uninstall_in_place(self):
        """The exit code of an uninstaller that makes no copy, and so cannot remove itself."""
        return self.run(self.uninstaller, "/S", f"_?={self.windows_path(self.root)}")[0]

    def start_host(self, program):
        """Greeted: a frame went in, and the answer came out."""
        self._hosts.append(HostProcess(wineprefix=self.prefix, program=program))
        return self._hosts[-1].start()

    def end_hosts(self):
        for host in self._hosts:
            host.kill()
        self._hosts.clear()

    def clean(self):
        shutil.rmtree(self.root.parent, ignore_errors=True)
        self.registry.delete(VENDOR_KEY, UNINSTALL_KEY)

    # --- Looking ---

    def program(self, version):
        return self.root / version / "morva-chrome-host.exe"

    def installed_versions(self):
        return sorted(each.name for each in self.root.iterdir() if each.is_dir())

    def windows_path(self, path):
        return "C:\\" + str(PureWindowsPath(path.relative_to(self.prefix / "drive_c")))

    def keys(self, key):
        """The key and all below it, in small letters, with their texts by name."""
        return {name.lower(): values for name, values in self.registry.below(key).items()}

    def text_value(self, key, name=""):
        """The text of a registry value, None when there is none. The default value has no name."""
        return self.keys(key).get(key.lower(), {}).get(name)

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
        keys = {name: values for name, values in self.keys("Software").items()
                if not f"{name}\\".startswith(f"{WINES_OWN}\\")}
        assert keys
        return files, keys
