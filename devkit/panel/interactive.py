"""The small chat on a terminal."""

from __future__ import annotations

import signal
from types import FrameType

from prompt_toolkit import PromptSession
from rich.console import Console

from .panel_commands import HELP, PanelCommands
from .panel_session import PanelEvent, PanelSession
from .panel_turn import PanelTurn
from .turn_view import TurnView, printable

_HELP = f"""\
Type a prompt and press Enter.
  Ctrl-C                stops the running turn
  /scenario NAME TEXT   one turn with another scenario of the stand-in agent
  /log                  shows the host's debug log
  /help                 shows this
  /quit                 leaves (so does Ctrl-D)
{HELP}"""


class Interrupts:
    """While it is entered, Ctrl-C is a wish to stop instead of an exception; twice is one again."""

    def __init__(self) -> None:
        self.wanted = False

    def __enter__(self) -> Interrupts:
        self._before = signal.signal(signal.SIGINT, self._note)
        return self

    def __exit__(self, *_: object) -> None:
        signal.signal(signal.SIGINT, self._before)

    def _note(self, _number: int, _frame: FrameType | None) -> None:
        if self.wanted:
            raise KeyboardInterrupt
        self.wanted = True


class Chat:
    def __init__(self, session: PanelSession, console: Console) -> None:
        self._session = session
        self._console = console
        self._input: PromptSession[str] = PromptSession()
        self._interrupts = Interrupts()
        self._commands = PanelCommands(session, TurnView(console), lambda: self._interrupts.wanted)

    def run(self) -> None:
        """Until the user leaves. Raises HostError or BrokenPipeError when the host goes first."""
        self._console.print(_HELP, style="dim", highlight=False)
        while (text := self._ask("> ")) not in (None, "/quit"):
            assert text is not None
            if text == "/help":
                self._console.print(_HELP, highlight=False)
            elif text == "/log":
                self._show_log()
            elif self._commands.knows(text):
                with Interrupts() as self._interrupts:
                    self._commands.run(text)
            elif text:
                self._turn(text)

    def _ask(self, prompt: str) -> str | None:
        """None when the user leaves; an empty line for a Ctrl-C at the prompt."""
        try:
            return self._input.prompt(prompt).strip()
        except KeyboardInterrupt:
            return ""
        except EOFError:
            return None

    def _turn(self, prompt: str) -> None:
        with Interrupts() as interrupts:
            turn = PanelTurn(
                self._session,
                TurnView(self._console),
                self._ask_consent,
                lambda: interrupts.wanted,
            )
            turn.run(prompt)

    def _ask_consent(self, _: PanelEvent) -> bool:
        return (self._ask("allow? [y/n] ") or "").lower() in ("y", "yes")

    def _show_log(self) -> None:
        while self._session.receive(0) is not None:
            pass  # what has come since the last turn
        for line in self._session.log:
            self._console.print(printable(line), style="dim", markup=False, highlight=False)
