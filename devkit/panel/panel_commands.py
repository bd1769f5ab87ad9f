"""What the panel offers besides chatting: /sessions, /run, /speak and so on."""

from __future__ import annotations

import time
from collections.abc import Callable
from typing import Any

from .host_process import HostError
from .panel_session import Json, PanelSession, events_of
from .turn_view import TurnView

_LOOK_S = 0.1
_LONGEST_WAIT_S = 120.0
_VOICE_SILENCE_S = 0.6

HELP = """\
  /sessions             lists conversations       /load ID        shows one
  /run COMMAND          runs a command            /commands       lists them
  /skills [FOLDER]      lists skills              /search TEXT    finds files by name
  /presets /credit      what there is             /speak TEXT     reads aloud (Ctrl-C stops)
  /voice                begins or ends a voice session; /ptt presses and lets go of the key"""

Run = Callable[[str], bool]


class PanelCommands:
    """Each command returns whether it succeeded. Raises HostError when the host says nothing."""

    def __init__(
        self, session: PanelSession, view: TurnView, stop_wanted: Callable[[], bool]
    ) -> None:
        self._session = session
        self._view = view
        self._stop_wanted = stop_wanted
        self._voice = False
        self._commands: dict[str, Run] = {
            "/sessions": self._sessions,
            "/load": self._load,
            "/commands": self._list_commands,
            "/run": self._run,
            "/skills": self._skills,
            "/search": self._search,
            "/presets": self._presets,
            "/credit": self._credit,
            "/speak": self._speak,
            "/voice": self._toggle_voice,
            "/ptt": self._push_to_talk,
        }

    def knows(self, text: str) -> bool:
        return text.partition(" ")[0] in self._commands

    def run(self, text: str) -> bool:
        name, _, rest = text.partition(" ")
        return self._commands[name](rest.strip())

    # --- Asking ---

    def _follow(self, over: Callable[[Json], bool], limit: float = _LONGEST_WAIT_S) -> bool:
        """Shows events until a frame is the one waited for. False when none was in time."""
        deadline = time.monotonic() + limit
        while time.monotonic() < deadline:
            frame = self._session.receive(_LOOK_S)
            if frame is None:
                continue
            for event in events_of(frame):
                self._view.show(event)
            if over(frame):
                return True
        return False

    def _reply(self, number: int) -> Json:
        reply: Json = {}

        def over(frame: Json) -> bool:
            if frame.get("chromeRequestId") == number:
                reply.update(frame)
            return bool(reply)

        if not self._follow(over):
            raise HostError(f"no reply within {_LONGEST_WAIT_S:.0f} s")
        if reply.get("ok") is not True:
            self._view.error(str(reply.get("error", "the host refused")))
        return reply

    def _tell(self, kind: str, **members: Any) -> bool:
        return self._reply(self._session.post(kind, **members)).get("ok") is True

    def _ask(self, method: str, **members: Any) -> Any:
        """The data of a successful answer, else None."""
        reply = self._reply(self._session.post("providerRpc", method=method, **members))
        return reply.get("data") if reply.get("ok") is True else None

    def _show(self, data: Any, key: str, line: Callable[[Json], str]) -> bool:
        if data is None:
            return False
        for item in data.get(key, []):
            self._view.line(line(item))
        return True

    # --- Commands ---

    def _sessions(self, _: str) -> bool:
        def line(each: Json) -> str:
            day = time.strftime("%Y-%m-%d", time.gmtime(each["updatedUnixMs"] / 1000))
            return f"{each['id']:22} {day}  {each['title']}"

        return self._show(self._ask("listChatSessions"), "sessions", line)

    def _load(self, session: str) -> bool:
        data = self._ask("loadChatSession", id=session)
        if data is not None:
            self._view.line(data["title"], "bold")
        return self._show(data, "messages", lambda each: f"{each['role']}: {each['content']}")

    def _list_commands(self, _: str) -> bool:
        return self._show(self._ask("chatCommandsList"), "commands",
                          lambda each: f"{each['id']:16} {each['title']}")

    def _run(self, command: str) -> bool:
        data = self._ask("commandRun", id=command)
        if data is not None:
            self._view.line(str(data.get("text", "done")))
        return data is not None

    def _skills(self, folder: str) -> bool:
        return self._show(self._ask("chatSkillsList", cwd=folder), "skills",
                          lambda each: f"{each['name']:16} {each['description']}")

    def _search(self, query: str) -> bool:
        data = self._ask("searchStart", query=query, headLimit=10)
        for name in (data or {}).get("names", []):
            self._view.line(name)
        return data is not None

    def _presets(self, _: str) -> bool:
        return self._show(
            self._ask("getChatPresets"), "presets",
            lambda each: f"{each['id']:16} {each['name']}{' (default)' * each['is_default']}")

    def _credit(self, _: str) -> bool:
        data = self._ask("getCreditInfo")
        if data is not None:
            self._view.line(f"{data['remaining']:.2f} of {data['granted']:.2f} {data['currency']}"
                            f" left until {data['renewsOn']} ({data['plan']})")
        return data is not None

    def _speak(self, text: str) -> bool:
        if not self._tell("speak", text=text) or not text:
            return bool(text)
        failed = stopped = ended = False

        def over(frame: Json) -> bool:
            nonlocal failed, ended
            for event in events_of(frame):
                failed = failed or event.first.get("role") == "error"
                ended = ended or event.method == "ttsDone"
            return ended

        while not self._follow(over, _LOOK_S * 2):
            if self._stop_wanted() and not stopped:
                stopped = True
                self._session.post("speakStop")
        return not failed

    def _toggle_voice(self, _: str) -> bool:
        self._voice = not self._voice
        if not self._voice:
            return self._tell("realtimeStop")
        ok = self._tell("realtimeStart", preset="standin", chat_session_id="demo")
        return ok and self._listen()

    def _push_to_talk(self, _: str) -> bool:
        ok = self._tell("realtimePushToTalk", held=True)
        ok = self._tell("realtimePushToTalk", held=False, finishInputTurn=True) and ok
        return ok and self._listen()

    def _listen(self) -> bool:
        """Shows what the session says until it is quiet. False when it ended."""
        ended = False

        def over(frame: Json) -> bool:
            nonlocal ended
            ended = ended or any(event.method == "realtimeDone" for event in events_of(frame))
            return True

        while self._follow(over, _VOICE_SILENCE_S) and not ended:
            pass
        self._voice = self._voice and not ended
        return not ended
