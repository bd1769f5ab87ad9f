"""How long a tool call waits for the extension, and what becomes of answers that come too late."""

import time

import pytest

from support.extension_side import NO_ANSWER, Extension, ToolCall, failure
from support.tool_server_client import ToolServer

WAIT_S = 25


@pytest.mark.long
@pytest.mark.off_protocol("extension")
def test_calls_wait_for_25_seconds_and_late_answers_reach_nobody(own_server):
    panel = own_server.panel
    extension = Extension(panel)
    started = time.monotonic()
    running = [ToolCall(own_server, "browser_read", {"n": n}) for n in range(4)]
    unanswered = [extension.take() for _ in running]
    # Meanwhile everything else goes on: other calls, and answers to others that wake the waiters.
    while time.monotonic() - started < WAIT_S - 3:
        quick = ToolCall(own_server, "browser_find")
        extension.reply(extension.take(), ok=True, data={"quick": True})
        assert quick.result(15) == {"quick": True}
        panel.prove_alive()
        time.sleep(0.2)
    for each in running:
        assert each.result(15) == failure("browser_read", NO_ANSWER)
    waited = time.monotonic() - started
    assert WAIT_S - 0.02 <= waited <= WAIT_S * 1.2

    for command in unanswered:
        extension.reply(command, ok=True, data={"late": True})
    last = ToolCall(own_server, "browser_read")
    command = extension.take()
    assert command["requestId"] not in [each["requestId"] for each in unanswered]
    panel.prove_alive()
    assert last.is_alive()
    extension.reply(command, ok=True, data={"in time": True})
    assert last.result() == {"in time": True}


def test_a_call_ends_with_the_host(start_panel):
    panel = start_panel()
    server = ToolServer(panel)
    extension = Extension(panel)
    ToolCall(server, "browser_read")
    extension.take()
    panel.end(limit=5)
