"""Runs one turn: sends the prompt and follows its events to the end."""

from __future__ import annotations

import time
from collections.abc import Callable

from .host_process import HostError
from .panel_session import PanelEvent, PanelSession, events_of
from .turn_figures import TurnFigures
from .turn_view import TurnView

_TAB = {"currentUrl": "https://example.org/", "currentTitle": "Example Domain"}
_CHAT_SESSION = "demo"
_LOOK_FOR_INTERRUPTS_S = 0.1
_LONGEST_SILENCE_S = 120.0  # five attempts to start an agent take up to 80

AskConsent = Callable[[PanelEvent], bool]
StopWanted = Callable[[], bool]


class PanelTurn:
    def __init__(
        self,
        session: PanelSession,
        view: TurnView,
        ask_consent: AskConsent,
        stop_wanted: StopWanted,
    ) -> None:
        self._session = session
        self._view = view
        self._ask_consent = ask_consent
        self._stop_wanted = stop_wanted
        self._figures = TurnFigures()
        self._outcome: bool | None = None
        self._stopped = False
        self._consent_ids: set[int] = set()

    def run(self, prompt: str) -> bool:
        """Whether the host said that the turn succeeded. Raises HostError when it says nothing."""
        self._send_id = self._session.post(
            "send", prompt=prompt, browser=_TAB, chat_session_id=_CHAT_SESSION
        )
        heard = time.monotonic()
        while self._outcome is None:
            if self._stop_wanted():
                self._stop()
            frame = self._session.receive(_LOOK_FOR_INTERRUPTS_S)
            if frame is not None:
                heard = time.monotonic()
                self._take_reply(frame)
                for event in events_of(frame):
                    self._take_event(event)
            elif time.monotonic() - heard > _LONGEST_SILENCE_S:
                raise HostError(f"the host has been silent for {_LONGEST_SILENCE_S:.0f} s")
        self._view.line(self._figures.summary(), "dim")
        return self._outcome

    def _stop(self) -> None:
        if not self._stopped:
            self._stopped = True
            self._session.post("stop")

    def _take_reply(self, frame: dict[str, object]) -> None:
        if frame.get("ok") is not False:
            return
        error = str(frame.get("error", "the host refused"))
        if frame.get("chromeRequestId") == self._send_id:
            self._view.error(error)
            self._outcome = False
        elif frame.get("chromeRequestId") in self._consent_ids:
            # The agent would wait for ever for an answer that does not reach it.
            self._view.error(f"the answer was not passed on ({error}); stopping the turn")
            self._stop()

    def _take_event(self, event: PanelEvent) -> None:
        self._figures.note(event, self._session.received_at)
        self._view.show(event)
        if event.method == "consentRequest":
            allow = self._ask_consent(event)
            reply = {"id": event.first.get("id"), "allow": allow}
            self._consent_ids.add(self._session.post("consentReply", **reply))
        elif event.method == "agentDone":
            self._outcome = event.args[1] is True
