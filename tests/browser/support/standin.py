"""The stand-in agent on port 8090, and what tests ask it."""

from devkit.panel.standin_process import StandInProcess


class StandIn(StandInProcess):
    """Started when it is made."""

    def __init__(self):
        super().__init__(["--port", "8090"])
        self.__enter__()

    def set(self, **settings):
        """Changes "scenario", "tokens_per_second", "faults"."""
        return self.ask("/test/settings", settings)

    def reset(self):
        self.set(scenario="hello", tokens_per_second=0, faults=[])

    @property
    def last_turn(self):
        return self.ask("/test/turns")[-1]

    @property
    def running_turns(self):
        return self.ask("/test/running")["turns"]

    @property
    def provider(self):
        """The browser tools that were registered last: their address and token."""
        return [each for each in self.ask("/test/providers") if each["id"] == "chrome"][-1]
