"""The desktop application: the file that announces it, and its end of the command channel."""

import contextlib
import hashlib
import json
import os
import struct

from support.builds import IS_WINDOWS
from support.listener import Listener, receive_exactly
from support.protocol import APPLICATION, HOST, findings

from devkit.protocol_check.http_messages import body_value

TOKEN = "00ff10A0" * 8
NONCE = "0123456789abcdef" * 4
PROOF = hashlib.sha256(bytes.fromhex(NONCE + TOKEN)).hexdigest()

# Windows numbers its processes in steps of four, and those of Wine's own services are always there:
# it takes as many files to name a live one.
_LIVE = range(4, 600, 4) if IS_WINDOWS else (os.getpid(),)


def announce(appdata, port):
    """Writes the file of a running application."""
    folder = appdata / "Quenlark" / "morva-viewer" / "instances" / "run-ipc"
    folder.mkdir(parents=True, exist_ok=True)
    for pid in _LIVE:
        instance = {"kind": "ui", "transport": "tcp", "pid": pid, "endpoint": str(port),
                    "token": TOKEN, "startedUnixMs": 1000}
        findings.message(APPLICATION, "application", "instanceFile", instance)
        (folder / f"app-{pid}.json").write_text(json.dumps(instance))


class Connection:
    """One connection of the host; the application's `requests` collects the frames that it sent."""

    def __init__(self, app, connection):
        self._app = app
        self._connection = connection

    def send(self, data):
        """Bytes as they are."""
        self._connection.sendall(data)

    def send_frame(self, value):
        """Bytes go as they are, in a frame."""
        body = value if isinstance(value, bytes) else json.dumps(value).encode()
        self.send(struct.pack("<I", len(body)) + body)

    def challenge(self):
        challenge = {"nonce": NONCE, "version": 1}
        findings.message(APPLICATION, "application", "challenge", challenge)
        self.send_frame(challenge)

    def reply(self, value):
        findings.reply(APPLICATION, "application", "request", value)
        self.send_frame(value)

    def receive(self):
        """The next frame's bytes; None when the host has hung up."""
        header = receive_exactly(self._connection, 4)
        body = header and receive_exactly(self._connection, struct.unpack("<I", header)[0])
        if body is not None:
            findings.message(HOST, "application", "request", body_value(body))
            self._app.requests.append(body)
        return body

    def wait_for_host(self):
        """Until the host hangs up."""
        with contextlib.suppress(OSError):
            while self._connection.recv(4096):
                pass


def replies(value):
    """A script that plays the application in order and answers with `value`."""
    def script(connection):
        connection.challenge()
        if connection.receive() is not None:
            connection.reply(value)
    return script


class DesktopApp(Listener):
    """Listens on a free port; each connection is played by the script."""

    def __init__(self, script=replies({"ok": True})):
        self.script = script
        self.requests = []
        super().__init__()

    def serve(self, connection):
        self.script(Connection(self, connection))
