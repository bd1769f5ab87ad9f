"""What holds messages against the schemas must be able to fail, and must not cry wolf."""

import json
import os
import struct
import subprocess
import sys

import pytest
from conftest import ROOT
from protocol_check.findings import Findings
from protocol_check.host_traffic import HostTraffic

ASK = {"source": "morva-chat", "kind": "getStatus", "chromeRequestId": 1}
ACK = {"source": "morva-chat", "kind": "ack", "ok": True, "chromeRequestId": 1}
COMMAND = {"command": "browserUse", "protocolVersion": 1, "requestId": "cht-5",
           "payload": {"name": "browser_read", "arguments": {}}}
RESULT = {"requestId": "cht-5", "ok": True, "data": {"tool": "browser_read", "data": {}}}
BUSY = {"method": "setBusy", "args": [True]}


def frame(value):
    body = value if isinstance(value, bytes) else json.dumps(value).encode()
    return struct.pack("<I", len(body)) + body


def batch(*events):
    return {"source": "morva-chat", "kind": "hostChatEvents", "events": list(events)}


def sides(sent, received, published=()):
    """Who is found at fault when these frames go to the host and those come from it."""
    findings = Findings()
    traffic = HostTraffic(findings)
    for event in published:
        findings.published(event)
    for each in sent:
        for byte in frame(each):  # however the bytes arrive
            traffic.sent(bytes([byte]))
    traffic.check(received)
    return [finding.side for finding in findings.take()]


GOOD = {
    "a message and its reply": ([ASK], [ACK]),
    "two messages with one token": ([ASK, ASK], [ACK, ACK]),
    "a reply without a token": ([{"source": "morva-chat", "kind": "ready"}],
                                [{"source": "morva-chat", "kind": "ack", "ok": True}]),
    "half a surrogate pair in the token": ([ASK | {"chromeRequestId": "a\ud83d"}],
                                           [ACK | {"chromeRequestId": "a\ufffd"}]),
    "a command and its answer": ([RESULT], [COMMAND]),
    "a request of a pipe client and its answer": (
        [{"ok": True, "requestId": "r"}], [{"requestId": "r", "command": "tabs"}]),
    "events": ([], [batch(BUSY, {"method": "ttsDone", "args": []})]),
    "an event of the agent's own": (
        [], [batch({"method": "sessionRenamed", "args": [1], "id": 4})]),
}


@pytest.mark.parametrize("sent, received", GOOD.values(), ids=GOOD.keys())
def test_what_is_right_is_not_found_at_fault(sent, received):
    assert sides(sent, received) == []


BAD = {
    "a reply that nobody asked for": ([], [ACK], ["host"]),
    "a second reply": ([ASK], [ACK, ACK], ["host"]),
    "a reply of the wrong kind": ([ASK], [ACK | {"kind": "chatSender"}], ["host"]),
    "a reply with another member": ([ASK], [ACK | {"error": ""}], ["host"]),
    "a token of another type": ([ASK], [ACK | {"chromeRequestId": "1"}], ["host"]),
    "an event without arguments": ([], [batch({"method": "setBusy"})], ["host", "host"]),
    "a known event with wrong arguments": ([], [batch({"method": "setBusy", "args": [0]})],
                                           ["host"]),
    "an empty batch": ([], [batch()], ["host"]),
    "a frame that is no object": ([], [[1]], ["pipe client"]),
    "an unknown command with an id of ours": (
        [], [COMMAND | {"command": "shellUse"}], ["pipe client"]),
    "a command with an unknown tool": (
        [], [COMMAND | {"payload": {"name": "shell", "arguments": {}}}], ["host"]),
    "a misspelt member": ([ASK | {"kind": "send", "prompt": "x", "presets": ""}], [], ["panel"]),
    "a frame that is no JSON": ([b"{"], [], ["panel"]),
    "a frame of nobody": ([{"kind": "send"}], [], ["panel"]),
    "an answer without data": ([{"requestId": "cht-5", "ok": True}], [COMMAND], ["extension"]),
}


@pytest.mark.parametrize("sent, received, wanted", BAD.values(), ids=BAD.keys())
def test_what_is_wrong_is_found_and_whose_it_is(sent, received, wanted):
    assert sides(sent, received) == wanted


def test_an_event_that_the_agent_published_is_the_agents_fault():
    event = {"method": "agentDone", "args": ["mine"]}
    assert sides([], [batch(event)], published=[event]) == ["agent"]
    assert sides([], [batch(event)]) == ["host"]


HOST_THAT_ERRS = f"""
import os, sys
while data := os.read(0, 65536):
    os.write(1, {frame(ACK)!r} + {frame(ACK | {"kind": "akc"})!r})
"""


def test_the_tap_passes_everything_through_and_reports(tmp_path):
    report = tmp_path / "report"
    done = subprocess.run(
        [sys.executable, "-m", "protocol_check.tap", str(report), sys.executable, "-c",
         HOST_THAT_ERRS],
        cwd=ROOT / "devkit", input=frame(ASK), stdout=subprocess.PIPE, timeout=60, check=True,
        env={**os.environ, "PYTHONDONTWRITEBYTECODE": "1"})
    assert done.stdout == frame(ACK) + frame(ACK | {"kind": "akc"})
    assert report.read_text().startswith("host: a reply that nobody asked for, or a second one")
