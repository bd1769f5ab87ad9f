"""What is measured, in the order in which it is shown, and what it must keep."""

from __future__ import annotations

from dataclasses import dataclass


@dataclass(frozen=True)
class Kind:
    """One row. The bounds are for the host's figure: as a ratio to that of the least program and of
    the best peer, and by itself. Those of a rate are lower bounds, else they are upper ones."""

    name: str
    unit: str
    of_least: float | None = None
    of_peer: float | None = None
    at_most: float | None = None
    rate: bool = False

    @property
    def scale(self) -> float:
        return {"ms": 1e3, "us": 1e6}.get(self.unit, 1.0)


KINDS = {
    "start": Kind("start to first reply", "ms", 2.0, 0.7),
    "idle": Kind("idle memory above an empty program", "MB", None, 0.8, 6.5),
    "peak": Kind("peak memory after pages of 10 MB", "MB", 3.5, 0.8),
    "frame memory": Kind("peak memory of a frame of 16 MiB, [{},{},...", "MB", at_most=134),
    "frame": Kind("frame of 200 bytes and back", "us", 3.0, 1.0),
    "flight": Kind("frames, 64 in flight", "/s", 0.5, 1.3, rate=True),
    "text": Kind("frame with a text of 1 MB and back", "ms", 8, 0.8),
    "model 64 KB": Kind("frame with a page model of 64 KB and back", "ms", 15, 0.8),
    "model 1 MB": Kind("frame with a page model of 1 MB and back", "ms", 15, 0.8),
    "call 1 KB": Kind("tool call, page of 1 KB", "ms", 2.0, 0.9),
    "call 10 KB": Kind("tool call, page of 10 KB", "ms", 2.5, 0.9),
    "call 100 KB": Kind("tool call, page of 100 KB", "ms", 3, 0.3),
    "call 1 MB": Kind("tool call, page of 1 MB", "ms", 5, 0.3),
    "call 10 MB": Kind("tool call, page of 10 MB", "ms", 5, 0.3),
    "flagged": Kind("tool call, flagged page of 1 MB", "ms", 8, 0.5),
    "catalogue 1": Kind("catalogue over HTTP, 1 client", "/s", 0.75, 1.1, rate=True),
    "catalogue 8": Kind("catalogue over HTTP, 8 clients", "/s", 0.75, 1.1, rate=True),
    "files": Kind("files of 16 MiB over HTTP", "/s", 0.5, rate=True),
    "turn 10": Kind("turn of 10,000 events", "/s", 0.4, 1.5, rate=True),
    "turn 100": Kind("turn of 100,000 events", "/s", 0.4, 1.5, rate=True),
    "once": Kind("turn of 100,000 events in one send", "/s", 0.4, 1.5, rate=True),
    "first delta": Kind("\"send\" of a new host to its first delta", "ms", 1.6, 1.0),
    "by byte": Kind("1,000 events byte by byte", "ms", 1.2),
    "2 KB": Kind("2,000 events of 2 KB", "ms", 1.8, 0.6),
    "event 1 MB": Kind("one event of 1 MB", "ms", 2.0, 0.8),
    "event 10 MB": Kind("one event of 10 MB", "ms", 2.0, 0.8),
    "event": Kind("event to frame", "us", 1.2),
    "event growth": Kind("an event of 100,000 next to one of 10,000", "x", at_most=1.2),
    "page growth": Kind("a byte of 10 MB next to one of 1 MB", "x", at_most=1.25),
    "wake-ups": Kind("wake-ups while idle, in 15 s", "", at_most=4),
    "mcp start": Kind("start of an MCP server to \"initialize\" answered", "ms", 1.5),
    "mcp call 1 KB": Kind("call of an MCP client, page of 1 KB", "ms", at_most=1),
    "mcp call 1 MB": Kind("call of an MCP client, page of 1 MB", "ms", 5),
    "mcp wake-ups": Kind("wake-ups of an idle MCP server, in 15 s", "", at_most=0.5),
    "judging": Kind("judging a page's text, next to each phrase in turn", "MB/s", 10,
                    rate=True),
}

# The lines of the README's table, which joins some rows and leaves others out.
README = {
    "start to first reply / \"send\" to first delta / one event of 10 MB": [
        "start", "first delta", "event 10 MB"],
    "memory, idle above an empty program / most with 10 MB pages": ["idle", "peak"],
    "frame of 200 bytes, there and back / 64 in flight": ["frame", "flight"],
    "text / page model of 1 MB, there and back": ["text", "model 1 MB"],
    "tool call, page of 1 / 100 KB / 10 MB": ["call 1 KB", "call 100 KB", "call 10 MB"],
    "catalogue, 1 / 8 clients; events of a turn of 10,000 / 100,000": [
        "catalogue 1", "catalogue 8", "turn 10", "turn 100"],
}
