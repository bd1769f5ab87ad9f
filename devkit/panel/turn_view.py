"""Shows the events of a turn in the terminal as they come."""

from __future__ import annotations

import re
from collections.abc import Callable

from rich.console import Console
from rich.text import Text

from .panel_session import PanelEvent

# What could steer the terminal, and halves of characters, which cannot be written.
_UNPRINTABLE = re.compile("[\x00-\x08\x0b-\x1f\x7f-\x9f\ud800-\udfff]")


def printable(text: str) -> str:
    return _UNPRINTABLE.sub("\ufffd", text.replace("\r\n", "\n"))


class TurnView:
    def __init__(self, console: Console) -> None:
        self._console = console
        self._flowing = ""  # the kind of text whose line is still open
        self._answered = False
        self._show: dict[str, Callable[[PanelEvent], None]] = {
            "appendAssistantDelta": self._delta,
            "appendThinking": self._thinking,
            "completeAssistantText": self._complete,
            "appendText": self._text,
            "startRun": self._start_run,
            "appendRunChunk": self._run_chunk,
            "finishRun": self._finish_run,
            "consentRequest": self._consent,
            "agentDone": self._done,
            "realtimeState": lambda event: self.line(f"[voice] {event.first.get('state')}", "dim"),
            "realtimeDelta": self._voice_delta,
            "realtimeTranscript": self._transcript,
            "realtimeError": lambda event: self.error(f"voice: {event.args[0]}"),
            "realtimeDone": lambda _: self.line("[voice] over", "dim"),
            "ttsStarted": lambda _: self.line("[speaking]", "dim"),
            "ttsPaused": lambda _: self.line("[paused]", "dim"),
            "ttsResumed": lambda _: self.line("[speaking again]", "dim"),
            "ttsDone": lambda _: self.line("[silent]", "dim"),
        }

    def show(self, event: PanelEvent) -> None:
        if show := self._show.get(event.method):
            show(event)

    def line(self, text: str, style: str = "") -> None:
        self._end_flow()
        self._print(printable(text), style, end="\n")

    def error(self, text: str) -> None:
        self.line(text, "bold red")

    def _print(self, text: str, style: str, end: str) -> None:
        if style:
            self._console.print(Text(text, style), end=end, soft_wrap=True)
        else:  # past rich, which takes longer for a word than the host
            self._console.file.write(text + end)
            self._console.file.flush()

    def _flow(self, kind: str, text: str, style: str) -> None:
        """Text that comes in pieces: it goes on where the last piece of its kind stopped."""
        if self._flowing != kind:
            self._end_flow()
        self._flowing = kind
        self._print(printable(text), style, end="")

    def _end_flow(self) -> None:
        if self._flowing:
            self._console.print()
        self._flowing = ""

    def _delta(self, event: PanelEvent) -> None:
        self._answered = True
        self._flow("answer", event.first.get("delta", ""), "")

    def _thinking(self, event: PanelEvent) -> None:
        self._flow("thinking", event.first.get("text", ""), "dim italic")

    def _complete(self, event: PanelEvent) -> None:
        if not self._answered:
            self._flow("answer", event.first.get("text", ""), "")
        self._end_flow()

    def _voice_delta(self, event: PanelEvent) -> None:
        self._flow("voice", event.first.get("text", ""), "")

    def _transcript(self, event: PanelEvent) -> None:
        if event.first.get("role") == "user":
            self.line(f"you: {event.first.get('text', '')}", "bold")
        self._end_flow()

    def _text(self, event: PanelEvent) -> None:
        item = event.first
        role, text = item.get("role", ""), item.get("text", "")
        if role == "error":
            self.error(text)
        elif role == "tool":
            duration = f" ({item['durationMs']} ms)" if "durationMs" in item else ""
            self.line(f"[tool] {text}{' ...' if item.get('toolRunning') else duration}", "cyan")
        else:
            self.line(f"[{role}] {text}", "magenta")

    def _start_run(self, event: PanelEvent) -> None:
        _, command = event.args
        self.line(f"$ {command}", "bold")

    def _run_chunk(self, event: PanelEvent) -> None:
        _, chunk, stream = event.args
        complete = chunk.endswith("\n")
        self._flow(f"run {stream}", chunk.removesuffix("\n"), "yellow" if stream == "stderr" else
                   "dim")
        if complete:
            self._end_flow()

    def _finish_run(self, event: PanelEvent) -> None:
        _, code, duration = event.args
        self.line(f"exit code {code} ({duration} ms)", "green" if code == 0 else "red")

    def _consent(self, event: PanelEvent) -> None:
        self.line(f"[consent] {event.first.get('title', 'The agent asks for consent.')}", "bold")
        if detail := event.first.get("detail"):
            self.line(f"  {detail}")

    def _done(self, event: PanelEvent) -> None:
        self._end_flow()
        _, ok, error = event.args
        if not ok:
            self.error(f"the turn failed: {error}")
