"""The desktop application: the file that announces it, and its end of the command channel."""

import contextlib
import hashlib
import json
import os
import struct

from support.builds import IS_WINDOWS
from support.listener import Listener, receive_exactly, reset
from support.protocol import APPLICATION, HOST, findings

from devkit.protocol_check.http_messages import body_value

TOKEN = "00ff10A0" * 8
NONCE = "0123456789abcdef" * 4
LARGEST = 16 * 1024 * 1024

# Windows numbers its processes in steps of four, and those of Wine's own services are always there.
_LIVE = range(4, 600, 4) if IS_WINDOWS else (os.getpid(),)
DEAD = 0x7FFFFFFC if IS_WINDOWS else 4_190_000


def frame(value):
    """As the channel has it; bytes go as they are."""
    body = value if isinstance(value, bytes) else json.dumps(value).encode()
    return struct.pack("<I", len(body)) + body


def proof(nonce=NONCE, token=TOKEN):
    return hashlib.sha256(bytes.fromhex(nonce) + bytes.fromhex(token)).hexdigest()


class Instances:
    """The folder in which instances announce themselves."""

    def __init__(self, appdata, application="morva-viewer"):
        self.folder = appdata / "Quenlark" / application / "instances" / "run-ipc"
        self.folder.mkdir(parents=True, exist_ok=True)

    def announce(self, name, port, alive=True, **members):
        """Writes an instance; under Wine it is as many files as it takes to name a live process."""
        for pid in _LIVE if alive else (DEAD,):
            instance = {"kind": "ui", "transport": "tcp", "pid": pid, "endpoint": str(port),
                        "token": TOKEN, "startedUnixMs": 1000, **members}
            findings.message(APPLICATION, "application", "instanceFile", instance)
            self.write(f"{name}-{pid}.json", json.dumps(instance).encode())

    def write(self, name, data):
        """A file of any bytes, which nobody holds against the protocol."""
        (self.folder / name).write_bytes(data)

    def clear(self):
        for path in self.folder.iterdir():
            path.unlink()


class Connection:
    """One connection of the host; `requests` collects the frames that it sent."""

    def __init__(self, app, connection):
        self._app = app
        self.connection = connection

    def send(self, data):
        """Bytes as they are."""
        self.connection.sendall(data)

    def challenge(self, nonce=NONCE):
        challenge = {"nonce": nonce, "version": 1}
        findings.message(APPLICATION, "application", "challenge", challenge)
        self.send(frame(challenge))

    def reply(self, value):
        findings.reply(APPLICATION, "application", "request", value)
        self.send(frame(value))

    def receive(self):
        """The next frame's bytes; None when the host has hung up."""
        header = receive_exactly(self.connection, 4)
        body = header and receive_exactly(self.connection, struct.unpack("<I", header)[0])
        if body is not None:
            findings.message(HOST, "application", "request", body_value(body))
            self._app.requests.append(body)
        return body

    def wait_for_host(self):
        """Until the host hangs up; what it sent meanwhile."""
        data = b""
        with contextlib.suppress(OSError):
            while piece := self.connection.recv(4096):
                data += piece
        return data

    def reset(self):
        reset(self.connection)


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
