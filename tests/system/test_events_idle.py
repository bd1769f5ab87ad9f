"""Speaking and listening are use of the agent: the host does not end one that it started."""

import os
import time

import pytest

# The agent as a program: it reads aloud for 80 s, and tells an event of a voice session every 10 s.
PROGRAM = '''#!/usr/bin/python3
import sys, time
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer

class Agent(BaseHTTPRequestHandler):
    def do_GET(self):
        self.begin()
        if self.path == "/v1/realtime/events":
            for number in range(8):
                time.sleep(10)
                self.say(b'data: {"method":"realtimeTick","args":[]}\\n\\n')
        else:
            self.say(b"{}")

    def do_POST(self):
        self.rfile.read(int(self.headers.get("Content-Length", 0)))
        self.begin()
        for _ in range(16 if self.path == "/v1/speak" else 0):
            time.sleep(5)
            self.say(b" ")
        self.say(b'{"ok":true}')

    def begin(self):
        self.send_response(200)
        self.end_headers()

    def say(self, data):
        self.wfile.write(data)
        self.wfile.flush()

    def log_message(self, *_):
        pass

port = int(sys.argv[sys.argv.index("--port") + 1])
ThreadingHTTPServer(("127.0.0.1", port), Agent).serve_forever()
'''


@pytest.fixture
def program(tmp_path):
    path = tmp_path / "morva-viewer-cli.exe"
    path.write_text(PROGRAM)
    path.chmod(0o755)
    return {"PATH": f"{tmp_path}{os.pathsep}{os.environ['PATH']}"}


def stopped(panel):
    return [line for line in panel.log_lines() if line.startswith("idle:")]


@pytest.mark.posix_only
@pytest.mark.long
def test_a_long_reading_is_not_idleness(start_panel, program):
    panel = start_panel(env=program)
    panel.send("speak", text="a long text")
    panel.wait_event("ttsDone", timeout=110)
    assert [m for m, _ in panel.events_since() if m == "appendText"] == []
    assert stopped(panel) == []
    panel.end()


@pytest.mark.posix_only
@pytest.mark.long
def test_a_voice_session_is_not_idleness(start_panel, program):
    panel = start_panel(env=program)
    began = time.monotonic()
    panel.send("realtimeStart")
    panel.wait_event("realtimeDone", timeout=110)
    assert time.monotonic() - began > 75
    ticks = [m for m, _ in panel.events_since() if m == "realtimeTick"]
    assert len(ticks) == 8 and stopped(panel) == []
    panel.end()
