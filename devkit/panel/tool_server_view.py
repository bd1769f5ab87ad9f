"""The tool server of a running host, shown as commands to paste."""

from __future__ import annotations

import json
import shlex
import subprocess
import time
from dataclasses import dataclass

from rich.console import Console

from .host_process import HostError
from .panel_session import PanelSession

_ORIGIN = "chrome-extension://kdhmgaeofpbjilnckdhmgaeofpbjilnc"
_READY_TIMEOUT_S = 10.0
_EXAMPLE = "Hello from the demo"


@dataclass(frozen=True)
class Command:
    title: str
    text: str  # a shell command


def ask_import_url(session: PanelSession) -> tuple[str, str]:
    """Where files go, and the token. Raises HostError when the server does not come."""
    deadline = time.monotonic() + _READY_TIMEOUT_S
    while time.monotonic() < deadline:
        wanted = session.post("contextImportUrl")
        reply = session.receive(_READY_TIMEOUT_S)
        while reply is not None and reply.get("chromeRequestId") != wanted:
            reply = session.receive(_READY_TIMEOUT_S)
        if reply and reply.get("ok"):
            return reply["url"], reply["token"]
        time.sleep(0.1)
    raise HostError("the tool server did not start: are the ports 39270 to 39279 taken?")


def _curl(token: str, *arguments: str, origin: bool = False) -> str:
    words = ["curl", "-sS", "--noproxy", "*", "-H", f"X-Morva-Session: {token}"]
    words += ["-H", f"Origin: {_ORIGIN}"] if origin else []
    return shlex.join([*words, *arguments])


def upload_command(upload_url: str, token: str) -> Command:
    text = _curl(token, "--data-binary", _EXAMPLE, f"{upload_url}?name=hello.txt", origin=True)
    return Command("an upload, as the extension does it", text)


def download_command(upload_url: str, token: str, path: str) -> Command:
    url = upload_url.replace("context-file", "local-file")
    text = _curl(token, "-G", "--data-urlencode", f"path={path}", url, origin=True)
    return Command("a download of that file", text)


def agent_commands(upload_url: str, token: str) -> list[Command]:
    url = upload_url.replace("context-file", "agent-tools")
    return [
        Command("the catalogue of tools, as the agent asks for it", _curl(token, url)),
        Command("the note about the browser", _curl(token, f"{url}/context")),
    ]


def _answer(command: Command) -> str:
    done = subprocess.run(
        ["sh", "-c", command.text], stdin=subprocess.DEVNULL, capture_output=True, text=True,
        timeout=30, check=False,
    )
    if done.returncode != 0:
        raise HostError(f"{command.title}: curl ended with {done.returncode}: {done.stderr}")
    return done.stdout


def _uploaded_path(upload_url: str, token: str) -> str:
    """Uploads the example once, so that the download command has a file to name."""
    result = json.loads(_answer(upload_command(upload_url, token)))
    if not result.get("ok"):
        raise HostError(f"the upload was refused: {result.get('error')}")
    return str(result["path"])


def show_tool_server(session: PanelSession, console: Console, wait: bool) -> bool:
    """Prints the commands. With `wait` they can be pasted until Enter or Ctrl-C; else each is run
    once and its answer shown. False when the download did not bring back what was uploaded."""
    upload_url, token = ask_import_url(session)
    path = _uploaded_path(upload_url, token)
    download = download_command(upload_url, token, path)
    commands = [*agent_commands(upload_url, token), upload_command(upload_url, token), download]
    address = upload_url.removesuffix("/api/context-file")
    console.print(f"tool server: {address}", markup=False, highlight=False)
    for command in commands:
        console.print(f"\n# {command.title}", style="dim", markup=False, highlight=False)
        # Not wrapped: what is pasted must be one line.
        console.print(command.text, soft_wrap=True, markup=False, highlight=False)
        if not wait:
            console.print(_answer(command), soft_wrap=True, markup=False, highlight=False)
    if wait:
        console.print("\nEnter or Ctrl-C ends the host.", style="dim")
        try:
            input()
        except (KeyboardInterrupt, EOFError):
            pass
    return _answer(download) == _EXAMPLE
