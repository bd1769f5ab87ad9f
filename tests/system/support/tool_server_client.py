"""The tool server of a running host as its clients see it: bytes out, bytes back."""

import contextlib
import json
import socket
from urllib.parse import quote

from support.builds import IS_WINDOWS
from support.protocol import CLIENT, HOST, findings
from support.waiting import until

from devkit.protocol_check.http_messages import answer_value, message_name, request_value

EXTENSION_ORIGIN = "chrome-extension://kdhmgaeofpbjilnckdhmgaeofpbjilnc"
PORTS = range(39270, 39280)
UPLOAD = "/api/context-file"
DOWNLOAD = "/api/local-file"

CORS = (
    f"Access-Control-Allow-Origin: {EXTENSION_ORIGIN}\r\n"
    "Vary: Origin\r\n"
    "Access-Control-Allow-Methods: GET, POST, OPTIONS\r\n"
    "Access-Control-Allow-Headers: Content-Type, X-Morva-Session\r\n")


def json_answer(status, body, cors):
    """A whole answer with a JSON body, byte for byte as it must be."""
    return (f"HTTP/1.1 {status}\r\nContent-Type: application/json\r\n{CORS if cors else ''}"
            f"Content-Length: {len(body.encode())}\r\nConnection: close\r\n\r\n{body}").encode()


def file_answer(content_type, body, cors=True):
    return (f"HTTP/1.1 200 OK\r\nContent-Type: {content_type}\r\n{CORS if cors else ''}"
            f"Cache-Control: no-store\r\nContent-Length: {len(body)}\r\n"
            f"Connection: close\r\n\r\n").encode() + body


FAILURE = '{"ok":false}'
BAD_REQUEST = json_answer("400 Bad Request", FAILURE, cors=False)
UNAUTHORIZED_CORS = json_answer("401 Unauthorized", FAILURE, cors=True)
FORBIDDEN = json_answer("403 Forbidden", FAILURE, cors=False)
NO_ROUTE = json_answer("404 Not Found", FAILURE, cors=False)
NO_ROUTE_CORS = json_answer("404 Not Found", FAILURE, cors=True)
PREFLIGHT = json_answer("204 No Content", "", cors=True)
NO_FILE = json_answer("404 Not Found", '{"error":"file is not available","ok":false}', cors=True)


class Answer:
    """What came back on one connection."""

    def __init__(self, data):
        self.data = data
        self.head, _, self.body = data.partition(b"\r\n\r\n")

    @property
    def status(self):
        return int(self.head.split(b" ", 2)[1]) if self.head else None

    def json(self):
        return json.loads(self.body)


def receive_all(connection):
    """Everything until the end; a reset is an end too."""
    pieces = []
    with contextlib.suppress(ConnectionResetError):
        while piece := connection.recv(1 << 20):
            pieces.append(piece)
    return b"".join(pieces)


def check_request(head, body):
    """Holds a request against the protocol."""
    first, *lines = head.decode("latin-1").rstrip("\r\n").split("\r\n")
    method, target, _ = first.split(" ")
    headers = [(name, value) for name, _, value in (line.partition(": ") for line in lines)]
    findings.message(CLIENT, "toolServer", message_name(method, target),
                     request_value(method, target, headers, body))


def check_answer(request, answer):
    """Holds whatever the server answered against the protocol; it may have hung up instead."""
    if not answer:
        return
    words = request[:65536].split(b"\r\n", 1)[0].decode("latin-1").split(" ")
    method, target = words[:2] if len(words) > 1 else ("", "")
    findings.reply(HOST, "toolServer", message_name(method, target), answer_value(answer))


class ToolServer:
    def __init__(self, panel):
        self.panel = panel
        # The panel may ask before the port is bound.
        asked = until(lambda: (reply := panel.ask("contextImportUrl"))["ok"] and reply,
                      "the tool server does not listen", 10)
        self.upload_url, self.token = asked["url"], asked["token"]
        self.port = int(self.upload_url.split(":")[2].split("/")[0])

    def connect(self, timeout=30):
        return socket.create_connection(("127.0.0.1", self.port), timeout)

    def fill(self, text):
        """The bytes of a request in which HOST, TOKEN and ORIGIN stand for the right values."""
        filled = text.replace("%HOST%", f"127.0.0.1:{self.port}").replace("%TOKEN%", self.token)
        return filled.replace("%ORIGIN%", EXTENSION_ORIGIN).encode("latin-1")

    def exchange(self, data, timeout=30):
        """Sends bytes, whatever they are, and takes whatever comes until the server closes."""
        with self.connect(timeout) as connection:
            with contextlib.suppress(ConnectionError):  # it may answer and close before the end
                connection.sendall(data)
            answer = Answer(receive_all(connection))
        check_answer(data, answer.data)
        return answer

    def head(self, method, target, length=None, origin=EXTENSION_ORIGIN, token=None, more=()):
        lines = [f"{method} {target} HTTP/1.1", f"Host: 127.0.0.1:{self.port}"]
        token = self.token if token is None else token
        lines += [f"X-Morva-Session: {token}"] if token else []
        lines += [f"Origin: {origin}"] if origin else []
        lines += [f"Content-Length: {length}"] if length is not None else []
        return ("\r\n".join([*lines, *more]) + "\r\n\r\n").encode("latin-1")

    def request(self, method, target, body=b"", **options):
        """A request as the protocol has it."""
        length = len(body) if body or method == "POST" else None
        head = self.head(method, target, length, **options)
        check_request(head, body)
        return self.exchange(head + body)

    def upload(self, name, body):
        """The JSON result; `name` is text, or bytes that may be no text at all."""
        answer = self.request("POST", f"{UPLOAD}?name={quote(name, safe='')}", body)
        assert answer.data.startswith(b"HTTP/1.1 200 OK\r\n"), answer.data[:300]
        return answer.json()

    def download(self, path, **options):
        return self.request("GET", f"{DOWNLOAD}?path={quote(path, safe='')}", **options)

    def is_well(self):
        """It still serves: no connection, no thread and no slot is stuck."""
        answer = self.request("GET", "/api/nothing")
        assert answer.data == NO_ROUTE_CORS, answer.data


class WorkFolder:
    """The host's data folder: `local` for the test, the host's own spelling by `name_of`."""

    def __init__(self, base, host_base):
        inside = ("Quenlark", "morva-viewer", "chrome-extension")
        self.local = base.joinpath(*inside)
        self._host = (host_base + "\\" + "\\".join(inside)) if IS_WINDOWS else str(self.local)
        self._separator = "\\" if IS_WINDOWS else "/"

    @property
    def drops(self):
        return self.local / "chat-paste"

    def name_of(self, *parts):
        return self._separator.join([self._host, *parts])

    def put(self, name, body):
        """A file inside; gives its name as the host knows it."""
        path = self.local / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(body)
        return self.name_of(*name.split("/"))

    def to_local(self, host_path):
        """The file behind a path that the host gave."""
        assert host_path.startswith(self._host + self._separator), host_path
        return self.local.joinpath(*host_path[len(self._host) + 1:].split(self._separator))
