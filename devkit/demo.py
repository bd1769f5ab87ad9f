#!/usr/bin/python3
"""A chat through the real host: starts it as Chrome would, with a stand-in for the agent.

On a terminal it is a small chat. With --prompt, or without a terminal, it runs one turn and exits
with 0 only if the turn succeeded and the host ended with 0.
"""

from __future__ import annotations

import argparse
import signal
import sys
import tempfile
from contextlib import ExitStack
from pathlib import Path

from rich.console import Console

from panel.host_process import HostError, HostProcess
from panel.host_setup import demo_prefix, offer_program, roaming_folder
from panel.interactive import Chat
from panel.panel_commands import PanelCommands
from panel.panel_session import PanelSession, Transcript
from panel.panel_turn import PanelTurn
from panel.standin_process import StandInProcess
from panel.tool_server_view import show_tool_server
from panel.turn_view import TurnView
from protocol_check.findings import Findings
from protocol_check.host_traffic import HostTraffic
from standin_agent.scenarios import SCENARIOS

_DEFAULT_PROMPT = "Hello, is anybody there?"
_LOG_LINES_AFTER_A_FAILURE = 20


def parse_arguments() -> argparse.Namespace:
    parser = argparse.ArgumentParser(prog="./dev demo", description=__doc__)
    parser.add_argument(
        "--prompt",
        metavar="TEXT",
        action="append",
        help="run one turn with this prompt, or one command such as /sessions; may be repeated",
    )
    parser.add_argument("--scenario", choices=SCENARIOS, default="hello")
    parser.add_argument("--tokens-per-second", default="40", metavar="N", help="0: no limit")
    parser.add_argument("--fault", action="append", default=[], metavar="NAME[=VALUE]")
    parser.add_argument(
        "--launch",
        action="store_true",
        help="let the host find and start morva-viewer-cli.exe, which only greets",
    )
    parser.add_argument(
        "--build", default="windows", metavar="PRESET", help="windows (under Wine), native, asan"
    )
    parser.add_argument(
        "--tools",
        action="store_true",
        help="show the tool server's address and commands to paste, instead of a chat",
    )
    parser.add_argument("--transcript", type=Path, metavar="FILE", help="write every frame there")
    return parser.parse_args()


def standin_arguments(options: argparse.Namespace) -> list[str]:
    arguments = ["--scenario", options.scenario, "--tokens-per-second", options.tokens_per_second]
    for fault in options.fault:
        arguments += ["--fault", fault]
    return arguments


def run_prompts(session: PanelSession, console: Console, prompts: list[str]) -> bool:
    """One after the other, up to the first that fails."""
    commands = PanelCommands(session, TurnView(console), lambda: False)
    for prompt in prompts:
        console.print(f"> {prompt}", style="bold", markup=False, highlight=False)
        if commands.knows(prompt):
            ok = commands.run(prompt)
        else:
            turn = PanelTurn(session, TurnView(console), lambda _: True, lambda: False)
            ok = turn.run(prompt)
        if not ok:
            return False
    return True


def converse(host: HostProcess, options: argparse.Namespace, console: Console) -> bool:
    """Whether what was asked for succeeded and the host ended well."""
    session = PanelSession(host, Transcript(options.transcript))
    ok = True
    try:
        terminal = console.is_terminal and sys.stdin.isatty()
        if options.tools:
            ok = show_tool_server(session, console, wait=terminal)
        elif options.prompt is None and terminal:
            Chat(session, console).run()
        else:
            ok = run_prompts(session, console, options.prompt or [_DEFAULT_PROMPT])
    except (HostError, BrokenPipeError) as error:
        TurnView(console).error(str(error))
        ok = False
    if not ok:
        for line in session.log[-_LOG_LINES_AFTER_A_FAILURE:]:
            TurnView(console).line(f"log: {line}", "dim")
    host.close_stdin()
    code = host.wait()
    console.print(f"host ended with exit code {code}", style="dim", highlight=False)
    return ok and code == 0


def run(options: argparse.Namespace, console: Console) -> bool:
    with ExitStack() as stack:
        with ExitStack() as starting:
            if console.is_terminal:
                starting.enter_context(console.status("starting ..."))
            prefix = stack.enter_context(demo_prefix(options.build))
            environment = {"MORVA_CLI_TOKENS_PER_SECOND": options.tokens_per_second}
            if options.launch:
                environment |= offer_program(options.build, prefix)
            else:
                stack.enter_context(StandInProcess(standin_arguments(options)))
            own = Path(stack.enter_context(tempfile.TemporaryDirectory(prefix="morva-demo-")))
            appdata = roaming_folder(prefix, own)
            application = ["--appdata", str(appdata), *(["--under-wine"] if prefix else [])]
            stack.enter_context(StandInProcess(application, "standin_app"))
            if prefix is None:
                environment |= {"APPDATA": str(own), "LOCALAPPDATA": str(own)}
            host = HostProcess(options.build, env=environment, wineprefix=prefix)
            findings = Findings()
            traffic = HostTraffic(findings)
            host.on_sent = traffic.sent
            stack.enter_context(host)
        ok = converse(host, options, console)
        traffic.check(host.frames)
        for finding in findings.take():
            TurnView(console).error(f"against the protocol: {finding.side}: {finding.text}")
            ok = False
        return ok


def main() -> int:
    # So that an end by signal also ends what was started.
    for ending in (signal.SIGTERM, signal.SIGHUP):
        signal.signal(ending, lambda number, _: sys.exit(128 + number))
    options = parse_arguments()
    console = Console()
    try:
        return 0 if run(options, console) else 1
    except (HostError, FileNotFoundError, RuntimeError) as error:
        console.print(f"demo: {error}", style="bold red", markup=False, highlight=False)
        return 1
    except KeyboardInterrupt:
        return 130


if __name__ == "__main__":
    sys.exit(main())
