"""Scenarios in which something starts: an agent, or a process that is tortured from its start."""

from __future__ import annotations

import contextlib
import json
import shutil
import subprocess
import time

import psutil

from devkit.panel.host_process import HostError, HostProcess, HostTimeout
from devkit.panel.mcp_client import McpClient

from host_world import PROGRAM, Disorder, World, environment_of
from scenarios import OnHost, expect
from support import builds
from support.cli_program import CliProgram
from support.sanitizer_reports import take_reports
from support.user_commands import MANIFEST_NAME, host_key

LIMIT_S = 40.0


class AgentStart(OnHost):
    """A turn for which the host starts its agent."""

    # A run takes half a second.
    allocations_per_stack = 1
    always_again = False

    def __init__(self, plan):
        self.world = World(plan)
        self.world.more = CliProgram(self.world.scratch).env()
        self.mark = 0

    def act(self):
        return self.turn()

    def clean(self):
        """The agent ends, so that the next run starts another; there is one at most."""
        agents = self.agents()
        for each in agents:
            each.kill()
        self.world.until(lambda: not self.agents(), "an agent stays", timeout=5)
        expect(len(agents) <= 1, f"{len(agents)} agents")

    def agents(self):
        """Those that run; the host buries the others when it looks for one."""
        return [each for each in psutil.Process(self.world.panel.pid).children()
                if each.status() != psutil.STATUS_ZOMBIE]

    def close(self):
        self.world.close()


class OnProcess:
    """A scenario whose process is started anew for each run."""

    allocations_per_stack = 1  # a run takes a tenth of a second
    always_again = True

    def __init__(self, plan):
        self.plan = plan
        self.world = World(plan, is_tortured=False)
        self.environment = environment_of(plan, self.world.folders)

    def begin(self):
        expect(self.run(), "it does not go well though nothing fails")

    def end(self):
        pass

    def check(self):
        reports = take_reports()
        expect(not reports, reports[:6000])

    def clean(self):
        self.plan.clear()  # the next run is another process

    def close(self):
        self.world.close()

    def run(self) -> bool:
        raise NotImplementedError

    def judge(self, code, said):
        """Of a process that has not done what it was for."""
        expect(code != 0, f"exit code 0 without having done it; it said: {said[-500:]}")
        expect(code > 0, f"signal {-code}: {said[-6000:]}")
        expect(said.strip(), f"exit code {code} without a word")
        return False


class Registration(OnProcess):
    """--register, of a copy of the program, with a registry of its own."""

    def __init__(self, plan):
        super().__init__(plan)
        folder = self.world.scratch / "program"
        folder.mkdir()
        self.program = shutil.copy(PROGRAM, folder)
        self.manifest = folder / MANIFEST_NAME
        self.registry = self.world.scratch / "registry"
        self.environment["MORVA_REGISTRY"] = str(self.registry)

    def run(self):
        shutil.rmtree(self.registry, ignore_errors=True)
        self.manifest.unlink(missing_ok=True)
        done = subprocess.run([self.program, "--register", "--browser", "chrome"],
                              env=self.environment, stdin=subprocess.DEVNULL, capture_output=True,
                              timeout=LIMIT_S, check=False)
        key = self.registry / "user" / host_key("chrome").replace("\\", "/") / "="
        named = key.read_bytes()[1:].decode("utf-16-le").rstrip("\0") if key.exists() else ""
        whole = self.manifest.exists() and json.loads(self.manifest.read_text())
        left = sorted(each.name for each in self.manifest.parent.iterdir())
        expect(set(left) <= {PROGRAM.name, MANIFEST_NAME}, f"left over: {left}")
        if key.exists() and named:
            expect(named == str(self.manifest) and whole, "a key names what is not there")
        if done.returncode == 0 and named and whole:
            return True
        return self.judge(done.returncode, (done.stdout + done.stderr).decode())


class Start(OnProcess):
    """A host from its start to its end."""

    always_again = False

    def run(self):
        host = HostProcess(builds.BUILD, None, self.environment, None, PROGRAM, greet=False)
        try:
            return self.greet(host.start())
        finally:
            host.kill()

    def greet(self, host):
        replied = True
        try:
            host.send({"source": "morva-chat", "kind": "getStatus", "chromeRequestId": 1})
            self.wait_for_reply(host)
        except (HostError, OSError):
            replied = False
        with contextlib.suppress(OSError):
            host.close_stdin()
        try:
            code = host.wait(10)
        except HostError as error:
            raise Disorder(str(error)) from None
        expect(not host.stream_fault, host.stream_fault)
        if replied:
            expect(code == 0, f"exit code {code}: {host.stderr[-6000:]}")
            return True
        if code == 0 and self.is_severed():
            return False
        return self.judge(code, host.stderr)

    def is_severed(self):
        """Its input or its output is of no use any more."""
        failure = self.plan.failure
        return bool(failure and failure.name in ("read", "write"))

    def wait_for_reply(self, host):
        deadline = time.monotonic() + LIMIT_S
        while True:
            try:
                return host.wait_for(lambda frame: frame.get("chromeRequestId") == 1, 0.5)
            except HostTimeout:
                if self.is_severed() or time.monotonic() > deadline:
                    raise


class McpCall(OnProcess):
    """A client's session and call, through the pipe of a host that is not tortured."""

    def begin(self):
        self.world.ensure()
        super().begin()

    def end(self):
        self.world.end()

    def run(self):
        client = McpClient(builds.BUILD, program=PROGRAM, env=self.environment)
        with client:
            went_well = all([self.ask(client, *request) for request in self.requests()])
            code, said = self.ended(client)
        expect(code >= 0, f"signal {-code}: {said[-6000:]}")
        counts = [len(client.replies(number)) for number in (1, 2, 3)]
        expect(max(counts) <= 1, f"{counts} replies")
        if code != 0:
            return self.judge(code, said)
        return went_well

    def requests(self):
        yield ("initialize", {"protocolVersion": "2025-11-25", "capabilities": {},
                              "clientInfo": {"name": "torture", "version": "1"}})
        yield "tools/list", {}
        yield "tools/call", {"name": "browser_read", "arguments": {}}

    def ask(self, client, method, params):
        """One reply with the request's id; none only when the process has ended."""
        try:
            number = client.begin(method, **params)
        except OSError:
            return False
        deadline = time.monotonic() + LIMIT_S
        while not client.replies(number):
            if client._process.poll() is not None and not client._reader.is_alive():
                return False
            failure = self.plan.failure
            if failure and failure.name == "write":
                return False  # its output is of no use any more
            expect(time.monotonic() < deadline, f"no reply to {method}: {client.messages[-2:]}")
            time.sleep(0.001)
        (reply,) = client.replies(number)
        return "result" in reply and not reply["result"].get("isError")

    def ended(self, client):
        with contextlib.suppress(OSError):
            client.close_stdin()
        try:
            code = client._process.wait(10)
        except subprocess.TimeoutExpired:
            raise Disorder("it does not end") from None
        return code, client._process.stderr.read().decode()


STARTS = {"agent": AgentStart, "start": Start, "register": Registration, "mcp": McpCall}
