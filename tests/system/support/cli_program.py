"""The stand-in for the command-line program: where the host finds it and what became of it."""

import json
import os
import socket

import psutil

from support.builds import CLI_NAME, CLI_PROGRAM, IS_WINDOWS
from support.waiting import until

from devkit.panel import wine


def seen_by_host(path):
    """A path as the host sees it; a link keeps its own name."""
    return f"{wine.windows_path(path.parent)}\\{path.name}" if IS_WINDOWS else str(path)


class CliProgram:
    """One test's own use of the program. Its starts are told apart by the report they write."""

    def __init__(self, folder):
        self.folder = folder
        self.report = folder / "report.jsonl"
        self.path = folder / CLI_NAME

    def install(self):
        """Puts the program into the folder; returns the path that the host will name."""
        assert CLI_PROGRAM.is_file(), f"{CLI_PROGRAM} has not been built"
        self.path.symlink_to(CLI_PROGRAM)
        return seen_by_host(self.path)

    def env(self, on_path=True, **behaviour):
        """Environment for the host: the program on the search path, and how it shall behave."""
        env = {"MORVA_CLI_REPORT": seen_by_host(self.report)}
        env |= {f"MORVA_CLI_{name.upper()}": str(value) for name, value in behaviour.items()}
        if on_path:
            if not self.path.exists():
                self.install()
            folder = seen_by_host(self.folder)
            env |= {"WINEPATH": folder} if IS_WINDOWS else {
                "PATH": f"{folder}:{os.environ['PATH']}"}
        return env

    def starts(self):
        """What each start of the program reported."""
        if not self.report.exists():
            return []
        return [json.loads(line) for line in self.report.read_text().splitlines()]

    def wait_for_starts(self, count=1, timeout=20):
        until(lambda: len(self.starts()) >= count, f"no start number {count}", timeout)
        return self.starts()

    def wait_until_serving(self, port):
        """The program opens its port when all that it prints has been taken."""
        def serves():
            try:
                socket.create_connection(("127.0.0.1", port), timeout=1).close()
            except OSError:
                return False
            return True

        until(serves, f"nothing listens on port {port}", 60)

    def running(self):
        """The processes of this test's program that are still there."""
        found = []
        for process in psutil.process_iter(["cmdline"]):
            try:
                command = " ".join(process.info["cmdline"] or [])
                if CLI_NAME in command and "--serve" in command:
                    report = process.environ().get("MORVA_CLI_REPORT")
                    if report == seen_by_host(self.report):
                        found.append(process)
            except psutil.Error:
                pass  # it has just ended, or is somebody else's
        return found

    def wait_until_gone(self, timeout=5):
        until(lambda: not self.running(), "agents do not end", timeout)

    def end(self):
        """Ends what is left running, which must not disturb the next test."""
        left = self.running()
        for process in left:
            process.kill()
        psutil.wait_procs(left, timeout=5)
