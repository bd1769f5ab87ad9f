"""A host that lives while one call after another fails in it, and the sides that it talks to."""

from __future__ import annotations

import contextlib
import json
import os
import shutil
import tempfile
import threading
import time
from pathlib import Path

from devkit.panel.host_process import HostError, HostProcess, HostTimeout
from devkit.panel.standin_browser import StandInBrowser

from plan import Plan
from support import builds, protocol
from support.memory import held
from support.panel_side import Panel
from support.sanitizer_reports import sanitizer_environment, take_reports
from support.tool_server_client import ToolServer, WorkFolder
from support.tool_server_fixtures import roaming_folder

PROGRAM = builds.BUILD_DIR / "torture" / "morva-chrome-host"
PATIENCE_S = 40.0  # for anything that is to come, a tool call that times out included
SETTLE_S = 10.0
SLICE_S = 0.1
CONNECTION_THREADS = 16


class Disorder(Exception):
    """Something is not in order; the text says what."""


def environment_of(plan: Plan | None, folders):
    """With a plan, for a process that is tortured: lost memory is looked for when it ends."""
    environment = {**folders, **sanitizer_environment()}
    if plan is None:
        return environment
    environment["MORVA_TORTURE"] = str(plan.path)
    environment["ASAN_OPTIONS"] = environment["ASAN_OPTIONS"].replace(
        "detect_leaks=0", "detect_leaks=1:leak_check_at_exit=0:quarantine_size_mb=16")
    suppressions = Path(__file__).with_name("leaks.supp")
    environment["LSAN_OPTIONS"] = f"suppressions={suppressions}:print_suppressions=0"
    return environment


class World:
    """One host at a time, started again when it is needed. `more` is added to its environment; one
    that is not tortured serves a process that is."""

    def __init__(self, plan: Plan, is_tortured=True):
        self.plan, self._is_tortured = plan, is_tortured
        self.scratch = Path(tempfile.mkdtemp(prefix="morva-torture-"))
        self.folders = {}
        for name in ("APPDATA", "LOCALAPPDATA"):
            (self.scratch / name).mkdir()
            self.folders[name] = str(self.scratch / name)
        self.work = WorkFolder(*roaming_folder(self.folders))
        self.more: dict[str, str] = {}
        self.panel: Panel | None = None
        self.own_ends: set[int] = set()

    def close(self):
        if self.panel:
            self.panel.host.kill()
        shutil.rmtree(self.scratch, ignore_errors=True)

    # --- Lives ---

    def ensure(self):
        """A host that runs."""
        if self.panel and self.panel.host.running:
            return
        plan = self.plan if self._is_tortured else None
        environment = {**environment_of(plan, self.folders), **self.more}
        host = HostProcess(builds.BUILD, None, environment, None, PROGRAM)
        protocol.watch(host)
        self.panel = Panel(host.start())
        self.own_ends = self._own_ends()
        self._tools = None
        threading.Thread(target=self._be_extension, args=(host,), daemon=True).start()
        self._have_all_threads()

    def end(self):
        """The host ends in order; what it lost, and other reports, are a disorder."""
        panel, self.panel = self.panel, None
        if panel is None:
            return
        panel.host.close_stdin()
        try:
            code = panel.host.wait(15)
        except HostError as error:
            panel.host.kill()
            raise Disorder(f"it does not end: {error}") from None
        reports = take_reports()
        if code != 0 or reports:
            raise Disorder(f"exit code {code}: {(panel.host.stderr + reports)[:6000]}")

    def drop(self):
        """The host is not to be used any more; what it said last."""
        if self.panel is None:
            return ""
        self.panel.host.kill()
        said = self.panel.host.stderr[-4000:] + take_reports()[:6000]
        self.panel = None
        return said

    @property
    def tools(self):
        if self._tools is None:
            self._tools = ToolServer(self.panel)
        return self._tools

    def settle(self, baseline):
        """Threads and descriptors become those of the baseline, or fewer."""
        deadline = time.monotonic() + SETTLE_S
        while True:
            now = held(self.panel.pid)
            if now[0] <= baseline[0] and now[1] <= baseline[1]:
                return
            if time.monotonic() > deadline:
                raise Disorder(f"{baseline} threads and descriptors have become {now}")
            time.sleep(0.005)

    # --- Waiting ---

    def until(self, test, what, timeout=PATIENCE_S, pause=0.002):
        """What the test returns, as soon as that is something."""
        deadline = time.monotonic() + timeout
        while not (found := test()):
            self._check(deadline, what)
            time.sleep(pause)
        return found

    def frame(self, predicate, since, what):
        deadline = time.monotonic() + PATIENCE_S
        while True:
            try:
                return self.panel.host.wait_for(predicate, SLICE_S, since)
            except HostTimeout:
                self._check(deadline, what)
            except HostError as error:
                raise Disorder(f"{what}: {error}") from None

    def reply(self, token, since):
        return self.frame(lambda f: isinstance(f, dict) and f.get("chromeRequestId") == token,
                          since, "no reply")

    def ask(self, kind, **members):
        mark = self.panel.mark()
        return self.reply(self.send(kind, **members), mark)

    def send(self, kind, **members):
        try:
            return self.panel.send(kind, **members)
        except OSError as error:
            raise Disorder(f"the host takes no message: {error}") from None

    def is_severed(self):
        """What failed was the host's own input or output: nothing can be asked of it but to end."""
        failure = self.plan.failure
        return bool(failure and failure.name in ("read", "write")
                    and failure.detail in self.own_ends)

    def _check(self, deadline, what):
        if self.is_severed():
            raise Disorder("severed")
        if not self.panel.host.running:
            raise Disorder(f"{what}: the host has ended")
        if self.panel.host.stream_fault:
            raise Disorder(self.panel.host.stream_fault)
        if time.monotonic() > deadline:
            raise Disorder(what)

    # --- How it is done ---

    def _own_ends(self):
        """The host's descriptors of the two pipes between us."""
        process = self.panel.host._process
        ours = {os.fstat(each.fileno()).st_ino for each in (process.stdin, process.stdout)}
        found = set()
        for number in os.listdir(f"/proc/{self.panel.pid}/fd"):
            with contextlib.suppress(OSError):
                if os.stat(f"/proc/{self.panel.pid}/fd/{number}").st_ino in ours:
                    found.add(int(number))
        return found

    def _have_all_threads(self):
        """Those that stay: then their number does not depend on what happens to overlap, or to be
        logged."""
        def threads():
            return held(self.panel.pid)[0]

        before = threads()
        nested = b"[" * 1001 + b"]" * 1001
        self.panel.send_raw(len(nested).to_bytes(4, "little") + nested)
        self.until(lambda: threads() > before, "no thread that sends the log")
        connections = [self.tools.connect() for _ in range(CONNECTION_THREADS)]
        self.until(lambda: threads() > before + CONNECTION_THREADS, "too few threads")
        request = self.tools.head("GET", "/api/nothing")
        for each in connections:
            each.sendall(request)
        for each in connections:
            with each:
                while each.recv(65536):
                    pass
        protocol.faults_of_test([])

    def _be_extension(self, host):
        """Answers tool calls, and what local programs ask."""
        browser, seen = StandInBrowser(), 0
        with contextlib.suppress(HostError, OSError, ValueError):
            while True:
                try:
                    frame = host.wait_for(lambda f: isinstance(f, dict) and "command" in f, 1.0,
                                          since=seen)
                except HostTimeout:
                    continue
                seen = host.frames.index(frame, seen) + 1
                if browser.is_command(frame):
                    host.send(browser.answer(frame))
                else:
                    host.send({"ok": True, "requestId": frame["requestId"], "echo": frame})


def body_of(value):
    return json.dumps(value).encode()


__all__ = ["Disorder", "World", "body_of", "environment_of"]
