"""A text that is being read aloud, as far as one can tell from outside: it takes its time."""

from __future__ import annotations

import asyncio

_WORDS_PER_SECOND = 8.0
_LONGEST_S = 12.0  # nobody listens to a stand-in for longer
_STEP_S = 0.05


class SpokenText:
    def __init__(self, text: str) -> None:
        self._left_s = min(len(text.split()) / _WORDS_PER_SECOND, _LONGEST_S)
        self._stopped = False
        self.paused = False

    async def speak(self) -> bool:
        """True when it was read to its end."""
        while self._left_s > 0 and not self._stopped:
            await asyncio.sleep(_STEP_S)
            if not self.paused:
                self._left_s -= _STEP_S
        return not self._stopped

    def stop(self) -> None:
        self._stopped = True
