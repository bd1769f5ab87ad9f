"""The desktop application: the file that announces it, and its end of the command channel."""

import contextlib
import hashlib
import json
import os
import socket
import struct
import threading

from support.builds import IS_WINDOWS
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
        header = self._exactly(4)
        body = self._exactly(struct.unpack("<I", header)[0]) if header else None
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
        self.connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
        self.connection.close()

    def _exactly(self, size):
        data = b""
        while len(data) < size:
            piece = self.connection.recv(min(size - len(data), 1 << 20))
            if not piece:
                return None
            data += piece
        return data


def replies(value):
    """A script that plays the application in order and answers with `value`."""
    def script(connection):
        connection.challenge()
        if connection.receive() is not None:
            connection.reply(value)
    return script


class DesktopApp:
    """Listens on a free port; each connection is played by the script."""

    def __init__(self, script=replies({"ok": True})):
        self.script = script
        self.requests = []
        self.connections = 0
        self.failures = []
        self._listener = socket.create_server(("127.0.0.1", 0), backlog=64)
        self.port = self._listener.getsockname()[1]
        threading.Thread(target=self._accept, daemon=True).start()

    def close(self):
        with contextlib.suppress(OSError):
            self._listener.shutdown(socket.SHUT_RDWR)
        self._listener.close()
        assert not self.failures, self.failures

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def _accept(self):
        while True:
            try:
                connection, _ = self._listener.accept()
            except OSError:
                return
            self.connections += 1
            threading.Thread(target=self._play, args=(connection,), daemon=True).start()

    def _play(self, connection):
        try:
            self.script(Connection(self, connection))
        except OSError:
            pass  # the host hung up
        except Exception as error:  # a mistake in a script must not pass unseen
            self.failures.append(repr(error))
        finally:
            connection.close()
