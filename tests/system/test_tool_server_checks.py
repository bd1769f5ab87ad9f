"""Who may ask the tool server for what: host, preflight, token, origin, in this order."""

import re

import pytest

from support.tool_server_client import (
    BAD_REQUEST, EXTENSION_ORIGIN, FORBIDDEN, NO_FILE, NO_ROUTE, NO_ROUTE_CORS, PREFLIGHT,
    UNAUTHORIZED, UNAUTHORIZED_CORS, ToolServer, json_answer)

OTHER = "chrome-extension://aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa"
NO_FILE_PLAIN = json_answer(
    "404 Not Found", '{"error":"file is not available","ok":false}', cors=False)


def request_text(method="GET", path="/api/nothing", host="%HOST%", token="%TOKEN%",
                 origin="%ORIGIN%", more=""):
    lines = [f"{method} {path} HTTP/1.1"]
    lines += [f"Host: {host}"] if host is not None else []
    lines += [f"X-Morva-Session: {token}"] if token is not None else []
    lines += [f"Origin: {origin}"] if origin is not None else []
    return "\r\n".join(lines) + "\r\n" + more + "\r\n"


def cases(server):
    """What each request gets, in the order of the checks."""
    port, token = server.port, server.token
    changed = ("0" if token[0] != "0" else "1") + token[1:]
    last = token[:-1] + ("0" if token[-1] != "0" else "1")
    hosts = {
        f"127.0.0.1:{port}": NO_ROUTE_CORS, f"localhost:{port}": NO_ROUTE_CORS,
        f"LOCALHOST:{port}": NO_ROUTE_CORS, f"LocalHost:{port}": NO_ROUTE_CORS,
        "127.0.0.1": BAD_REQUEST, "localhost": BAD_REQUEST, "": BAD_REQUEST,
        f"127.0.0.1:{port}.": BAD_REQUEST, f"localhost.:{port}": BAD_REQUEST,
        f"127.0.0.1:0{port}": BAD_REQUEST, f"127.0.0.1:{port + 1}": BAD_REQUEST,
        f"[::1]:{port}": BAD_REQUEST, f"127.1:{port}": BAD_REQUEST, f"0.0.0.0:{port}": BAD_REQUEST,
        f"evil.example:{port}": BAD_REQUEST, f"127.0.0.1:{port} ": BAD_REQUEST,
        f"user@127.0.0.1:{port}": BAD_REQUEST, f"127.0.0.1:{port}, evil": BAD_REQUEST,
        f"\u017focalhost:{port}".encode().decode("latin-1"): BAD_REQUEST,
    }
    for host, wanted in hosts.items():
        yield f"host {host!r}", request_text(host=host), wanted
    yield "no host", request_text(host=None), BAD_REQUEST
    # A preflight asks for no token and for no path.
    for path in ("/api/context-file", "/nothing", "/"):
        yield "preflight", request_text("OPTIONS", path, token=None), PREFLIGHT
    yield "preflight, wrong token", request_text("OPTIONS", token="x"), PREFLIGHT
    yield "preflight, wrong host", request_text("OPTIONS", host="evil"), BAD_REQUEST
    yield "preflight with a body", (
        request_text("OPTIONS", more="Content-Length: 2\r\n") + "{}"), PREFLIGHT
    for origin in (OTHER, EXTENSION_ORIGIN + "x", EXTENSION_ORIGIN[:-1], EXTENSION_ORIGIN + "/",
                   "null", "", "https://evil.example"):
        yield f"preflight from {origin!r}", request_text("OPTIONS", origin=origin), FORBIDDEN
    yield "preflight without an origin", request_text("OPTIONS", origin=None), FORBIDDEN
    # The token comes before the origin.
    for name, value in {"none": None, "empty": "", "63": token[:-1], "65": token + "0",
                        "first changed": changed, "last changed": last, "all other": "z" * 64,
                        "upper case": token.upper() if token.upper() != token else "Z" * 64,
                        "blank behind": token + " ", "bytes above 127": "\xff" * 64}.items():
        yield f"token {name}", request_text(token=value), UNAUTHORIZED_CORS
        yield f"token {name}, other origin", request_text(token=value, origin=OTHER), UNAUTHORIZED
        yield f"token {name}, no origin", request_text(token=value, origin=None), UNAUTHORIZED
    # The origin.
    for origin in (OTHER, "null", "https://evil.example", EXTENSION_ORIGIN + " ",
                   EXTENSION_ORIGIN.replace("chrome", "Chrome")):
        for path in ("/api/nothing", "/api/agent-toolsX", "/api/local-file", "/api/context-file"):
            yield f"{path} from {origin!r}", request_text(path=path, origin=origin), FORBIDDEN
    # Without one: the agent's paths, and images and media of the extension's pages.
    yield "agent's path", request_text(path="/api/agent-toolsX", origin=None), NO_ROUTE
    yield "agent's path, wrong method", request_text("POST", "/api/agent-toolsX", origin=None), \
        NO_ROUTE
    yield "agent's path, empty origin", request_text(path="/api/agent-toolsX", origin=""), NO_ROUTE
    yield "agent's path, extension", request_text(path="/api/agent-toolsX"), NO_ROUTE_CORS
    yield "almost the agent's path", request_text(path="/api/agent-tool", origin=None), FORBIDDEN
    yield "the agent's path in capitals", request_text(path="/API/agent-tools", origin=None), \
        FORBIDDEN
    yield "upload without an origin", request_text("POST", "/api/context-file", origin=None), \
        FORBIDDEN
    for dest, wanted in {"image": NO_FILE_PLAIN, "media": NO_FILE_PLAIN, "Image": NO_FILE_PLAIN,
                         "MEDIA": NO_FILE_PLAIN, "document": FORBIDDEN, "": FORBIDDEN,
                         "empty": FORBIDDEN, "image ": FORBIDDEN, "images": FORBIDDEN,
                         "script": FORBIDDEN, "video": FORBIDDEN}.items():
        more = f"Sec-Fetch-Dest: {dest}\r\n"
        yield f"download as {dest!r}", request_text(
            path="/api/local-file", origin=None, more=more), wanted
        yield f"POST as {dest!r}", request_text(
            "POST", "/api/local-file", origin=None, more=more), FORBIDDEN
        yield f"upload as {dest!r}", request_text(
            "POST", "/api/context-file", origin=None, more=more), FORBIDDEN
    yield "download without a destination", request_text(path="/api/local-file", origin=None), \
        FORBIDDEN
    yield "download as an image from elsewhere", request_text(
        path="/api/local-file", origin=OTHER, more="Sec-Fetch-Dest: image\r\n"), FORBIDDEN
    yield "download from the extension", request_text(path="/api/local-file"), NO_FILE


def test_the_first_check_that_fails_decides(server, work):
    wrong = {}
    for name, text, wanted in cases(server):
        got = server.exchange(server.fill(text)).data
        if got != wanted:
            wrong[name] = (got, wanted)
    assert not wrong


def test_a_refused_body_is_read_to_its_end_and_gets_the_same_status(server):
    body = b"x" * 300_000
    for options, wanted in (({"token": "x" * 64}, UNAUTHORIZED_CORS),
                            ({"origin": OTHER}, FORBIDDEN)):
        with server.connect() as connection:
            connection.sendall(server.head("POST", "/api/nothing", len(body), **options))
            connection.sendall(body)
            data = b""
            while piece := connection.recv(4096):  # an end, not a reset: nothing was left unread
                data += piece
            assert data == wanted
    short = server.head("POST", "/api/nothing", 10, token="x" * 64) + b"short"
    with server.connect() as connection:
        connection.sendall(short)
        connection.shutdown(1)
        assert connection.recv(4096) == BAD_REQUEST


def test_the_token_is_64_hexadecimal_digits_and_new_each_time(own_server, start_panel):
    assert re.fullmatch("[0-9a-f]{64}", own_server.token)
    assert ToolServer(start_panel()).token != own_server.token


@pytest.mark.off_protocol("client")
def test_the_token_is_in_no_log_line(own_server, work):
    mark = 0
    own_server.upload("a.png", b"bytes")
    own_server.request("GET", "/api/nothing", token="x" * 64)
    own_server.request("GET", f"/api/{own_server.token}")
    own_server.exchange(b"\0" * 100 + b"\r\n\r\n")
    panel = own_server.panel
    panel.ask("hostLog")
    replies = [frame for frame in panel.frames_since(mark) if own_server.token in str(frame)]
    assert len(replies) == 1 and replies[0]["url"] == own_server.upload_url
    assert own_server.token not in panel.host.stderr


@pytest.mark.parametrize("method", ["GET", "POST"])
def test_a_path_that_is_not_there_is_not_found(server, method):
    assert server.request(method, "/api/nothing").data == NO_ROUTE_CORS
