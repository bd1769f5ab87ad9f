"""What the tool server answers to whom, byte for byte: one row for each way a request can end.

Which requests are malformed, and who may ask for what, is tested in tests/unit/toolserver.
"""

import pytest

from support.tool_server_client import (
    BAD_REQUEST, CORS, FORBIDDEN, NO_FILE, NO_ROUTE, PREFLIGHT, UNAUTHORIZED_CORS)

AUTH = "Host: %HOST%\r\nX-Morva-Session: %TOKEN%\r\n"
OWN = AUTH + "Origin: %ORIGIN%\r\n"
WRONG_TOKEN = f"Host: %HOST%\r\nX-Morva-Session: {'z' * 64}\r\n"
NO_FILE_PLAIN = NO_FILE.replace(CORS.encode(), b"")

# What is sent, but for the end of the header block, and the whole answer.
REQUESTS = {
    "no request": ("\r\n", BAD_REQUEST),
    "a preflight": ("OPTIONS /any HTTP/1.1\r\nHost: %HOST%\r\nOrigin: %ORIGIN%\r\n", PREFLIGHT),
    "a wrong token": ("GET /api/nothing HTTP/1.1\r\nOrigin: %ORIGIN%\r\n" + WRONG_TOKEN,
                      UNAUTHORIZED_CORS),
    "another origin": ("GET /api/nothing HTTP/1.1\r\nOrigin: null\r\n" + AUTH, FORBIDDEN),
    "the agent": ("GET /api/agent-toolsX HTTP/1.1\r\n" + AUTH, NO_ROUTE),
    "a page's image": ("GET /api/local-file HTTP/1.1\r\nSec-Fetch-Dest: Image\r\n" + AUTH,
                       NO_FILE_PLAIN),
    "the panel's file": ("GET /api/local-file HTTP/1.1\r\n" + OWN.replace("127.0.0.1", "LocalHost"),
                         NO_FILE),
}


@pytest.mark.parametrize("name", REQUESTS)
def test_a_request_gets_its_verdict(server, work, name):
    text, wanted = REQUESTS[name]
    assert server.exchange(server.fill(text) + b"\r\n").data == wanted


@pytest.mark.parametrize("head", [{"token": "x" * 64}, {"origin": "null"}])
def test_a_refused_body_is_read_to_its_end(server, head):
    body = b"x" * 300_000
    with server.connect() as connection:
        connection.sendall(server.head("POST", "/api/nothing", len(body), **head) + body)
        data = b""
        while piece := connection.recv(4096):  # an end, not a reset: nothing was left unread
            data += piece
        assert data == (UNAUTHORIZED_CORS if "token" in head else FORBIDDEN)


@pytest.mark.off_protocol("client")
def test_the_token_is_in_no_log_line(own_server, work):
    own_server.upload("a.png", b"bytes")
    own_server.request("GET", "/api/nothing", token="x" * 64)
    own_server.request("GET", f"/api/{own_server.token}")
    own_server.exchange(b"\0" * 100 + b"\r\n\r\n")
    panel = own_server.panel
    panel.ask("hostLog")
    replies = [frame for frame in panel.frames_since(0) if own_server.token in str(frame)]
    assert len(replies) == 1 and replies[0]["url"] == own_server.upload_url
    assert own_server.token not in panel.host.stderr
