"""What the tool server takes for a request, and what it refuses, byte for byte."""

import time

import pytest

from support.builds import SLOWER
from support.tool_server_client import (
    BAD_REQUEST, EXTENSION_ORIGIN, NO_FILE, NO_ROUTE, NO_ROUTE_CORS, UNAUTHORIZED,
    UNAUTHORIZED_CORS, Answer, receive_all)

AUTH = "Host: %HOST%\r\nX-Morva-Session: %TOKEN%\r\nOrigin: %ORIGIN%\r\n"
GET = "GET /api/nothing HTTP/1.1\r\n" + AUTH
POST = "POST /api/nothing HTTP/1.1\r\n" + AUTH
END = "\r\n"


def line(request_line):
    """A request that is good but for its first line."""
    return request_line + "\r\n" + AUTH + END


# Each row: what is sent, and the whole answer. A request that passes gets the answer for a path
# that does not exist.
REQUESTS = {
    # The request line
    "a good GET": (GET + END, NO_ROUTE_CORS),
    "a good POST": (POST + "Content-Length: 2\r\n\r\n{}", NO_ROUTE_CORS),
    "HTTP/1.0": (line("GET /api/agent-tools HTTP/1.0"), BAD_REQUEST),
    "HTTP/1.2": (line("GET /api/nothing HTTP/1.2"), BAD_REQUEST),
    "HTTP/2": (line("GET /api/nothing HTTP/2"), BAD_REQUEST),
    "http/1.1 in lower case": (line("GET /api/nothing http/1.1"), BAD_REQUEST),
    "no version": (line("GET /api/nothing"), BAD_REQUEST),
    "an empty version": (line("GET /api/nothing "), BAD_REQUEST),
    "a blank after the version": (line("GET /api/nothing HTTP/1.1 "), BAD_REQUEST),
    "two blanks before the version": (line("GET /api/nothing  HTTP/1.1"), BAD_REQUEST),
    "two blanks after the method": (line("GET  /api/nothing HTTP/1.1"), BAD_REQUEST),
    "a blank before the method": (line(" GET /api/nothing HTTP/1.1"), BAD_REQUEST),
    "an empty line before the request": ("\r\n" + GET + END, BAD_REQUEST),
    "a tab for a blank": (line("GET\t/api/nothing\tHTTP/1.1"), BAD_REQUEST),
    "a blank inside the target": (line("GET /api/not hing HTTP/1.1"), BAD_REQUEST),
    "only a method": (line("GET"), BAD_REQUEST),
    "an empty request line": (line(""), BAD_REQUEST),
    "no method": (line(" /api/nothing HTTP/1.1"), BAD_REQUEST),
    "method in lower case": (line("get /api/nothing HTTP/1.1"), BAD_REQUEST),
    "method in mixed case": (line("Post /api/nothing HTTP/1.1"), BAD_REQUEST),
    "HEAD": (line("HEAD /api/nothing HTTP/1.1"), BAD_REQUEST),
    "PUT": (line("PUT /api/nothing HTTP/1.1"), BAD_REQUEST),
    "DELETE": (line("DELETE /api/nothing HTTP/1.1"), BAD_REQUEST),
    "PATCH": (line("PATCH /api/nothing HTTP/1.1"), BAD_REQUEST),
    "CONNECT": (line("CONNECT 127.0.0.1:443 HTTP/1.1"), BAD_REQUEST),
    "TRACE": (line("TRACE /api/nothing HTTP/1.1"), BAD_REQUEST),
    "a method with more behind it": (line("GETX /api/nothing HTTP/1.1"), BAD_REQUEST),
    "the preface of HTTP/2": ("PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n", BAD_REQUEST),
    "the beginning of TLS": ("\x16\x03\x01\x02\x00\x01\x00\x01\xfc\x03\x03\r\n\r\n", BAD_REQUEST),
    "only ends of lines": ("\r\n\r\n", BAD_REQUEST),
    "bytes without meaning": ("\xff\xfe\x80\x81\r\n\r\n", BAD_REQUEST),
    # The target
    "a target with an authority": (line("GET http://127.0.0.1/api/nothing HTTP/1.1"), BAD_REQUEST),
    "a target of two slashes": (line("GET //evil HTTP/1.1"), BAD_REQUEST),
    "a URL in the query": (line("GET /x?u=http://y HTTP/1.1"), BAD_REQUEST),
    "a URL in the path": (line("GET /x://y HTTP/1.1"), BAD_REQUEST),
    "an escaped URL in the query": (line("GET /x?u=http%3A%2F%2Fy HTTP/1.1"), NO_ROUTE_CORS),
    "the target *": (line("GET * HTTP/1.1"), BAD_REQUEST),
    "a target without a slash": (line("GET api/nothing HTTP/1.1"), BAD_REQUEST),
    "only a query": (line("GET ?x=1 HTTP/1.1"), BAD_REQUEST),
    "only a slash": (line("GET / HTTP/1.1"), NO_ROUTE_CORS),
    "a slash and a query": (line("GET /?a=b HTTP/1.1"), NO_ROUTE_CORS),
    "two slashes later on": (line("GET /api//nothing HTTP/1.1"), NO_ROUTE_CORS),
    "a fragment": (line("GET /api/nothing#part HTTP/1.1"), NO_ROUTE_CORS),
    "dots": (line("GET /api/../api/nothing HTTP/1.1"), NO_ROUTE_CORS),
    "bytes above 127 in the target": (line("GET /api/\xe4\xff HTTP/1.1"), NO_ROUTE_CORS),
    "a bare CR in the target": (line("GET /api/\rnothing HTTP/1.1"), NO_ROUTE_CORS),
    "a bare LF in the target": (line("GET /api/\nnothing HTTP/1.1"), NO_ROUTE_CORS),
    "a route in upper case": (line("GET /API/LOCAL-FILE HTTP/1.1"), NO_ROUTE_CORS),
    "a route and a slash": (line("GET /api/local-file/ HTTP/1.1"), NO_ROUTE_CORS),
    "an escaped route": (line("GET /api/local%2Dfile HTTP/1.1"), NO_ROUTE_CORS),
    "the upload's route with GET": (line("GET /api/context-file HTTP/1.1"), NO_ROUTE_CORS),
    "the download's route with POST": (line("POST /api/local-file HTTP/1.1"), NO_ROUTE_CORS),
    "the download's route": (line("GET /api/local-file HTTP/1.1"), NO_FILE),
    # NUL
    "NUL in the request line": (line("GET /api/\0 HTTP/1.1"), BAD_REQUEST),
    "NUL in a header's name": (GET + "X\0: y\r\n\r\n", BAD_REQUEST),
    "NUL in a header's value": (GET + "X: a\0b\r\n\r\n", BAD_REQUEST),
    "NUL in the body": (POST + "Content-Length: 3\r\n\r\na\0b", NO_ROUTE_CORS),
    # Lengths
    "no length": (POST + END, NO_ROUTE_CORS),
    "the length 0": (POST + "Content-Length: 0\r\n\r\n", NO_ROUTE_CORS),
    "two equal lengths": (
        POST + "Content-Length: 5\r\nContent-Length: 5\r\n\r\nhello", BAD_REQUEST),
    "two different lengths": (
        POST + "Content-Length: 5\r\nContent-Length: 6\r\n\r\nhello!", BAD_REQUEST),
    "two lengths in one line": (POST + "Content-Length: 5, 5\r\n\r\nhello", BAD_REQUEST),
    "a plus": (POST + "Content-Length: +5\r\n\r\nhello", BAD_REQUEST),
    "a minus": (POST + "Content-Length: -5\r\n\r\nhello", BAD_REQUEST),
    "minus zero": (POST + "Content-Length: -0\r\n\r\n", BAD_REQUEST),
    "a blank after the length": (POST + "Content-Length: 5 \r\n\r\nhello", BAD_REQUEST),
    "a tab after the length": (POST + "Content-Length: 5\t\r\n\r\nhello", BAD_REQUEST),
    "an empty length": (POST + "Content-Length:\r\n\r\n", BAD_REQUEST),
    "a length of blanks": (POST + "Content-Length:  \t \r\n\r\n", BAD_REQUEST),
    "blanks before the length": (POST + "Content-Length: \t 5\r\n\r\nhello", NO_ROUTE_CORS),
    "no blank before the length": (POST + "Content-Length:5\r\n\r\nhello", NO_ROUTE_CORS),
    "zeros before the length": (POST + "Content-Length: 0005\r\n\r\nhello", NO_ROUTE_CORS),
    "letters": (POST + "Content-Length: five\r\n\r\nhello", BAD_REQUEST),
    "hexadecimal": (POST + "Content-Length: 0x5\r\n\r\nhello", BAD_REQUEST),
    "a fraction": (POST + "Content-Length: 5.0\r\n\r\nhello", BAD_REQUEST),
    "an exponent": (POST + "Content-Length: 5e0\r\n\r\nhello", BAD_REQUEST),
    "digits of another script": (POST + "Content-Length: \xd9\xa5\r\n\r\nhello", BAD_REQUEST),
    "a bare CR in the length": (POST + "Content-Length: 5\r5\r\n\r\nhello", BAD_REQUEST),
    "2147483647": (POST + "Content-Length: 2147483647\r\n\r\n", BAD_REQUEST),
    "2147483648": (POST + "Content-Length: 2147483648\r\n\r\n", BAD_REQUEST),
    "4294967301": (POST + "Content-Length: 4294967301\r\n\r\nhello", BAD_REQUEST),
    "thirty digits": (POST + "Content-Length: " + "9" * 30 + "\r\n\r\n", BAD_REQUEST),
    "a blank before the colon": (POST + "Content-Length : 5\r\n\r\nhello", NO_ROUTE_CORS),
    "the name in upper case": (POST + "CONTENT-LENGTH: x\r\n\r\n", BAD_REQUEST),
    "one byte over the limit": (POST + "Content-Length: 1048577\r\n\r\n", BAD_REQUEST),
    "one byte over the limit, tool call": (
        "POST /api/agent-tools/call HTTP/1.1\r\n" + AUTH + "Content-Length: 1048577\r\n\r\n",
        BAD_REQUEST),
    "one byte over the upload's limit": (
        "POST /api/context-file HTTP/1.1\r\n" + AUTH + "Content-Length: 33554433\r\n\r\n",
        BAD_REQUEST),
    "the upload's limit on a longer path": (
        "POST /api/context-file/ HTTP/1.1\r\n" + AUTH + "Content-Length: 1048577\r\n\r\n",
        BAD_REQUEST),
    "GET with a body": (GET + "Content-Length: 5\r\n\r\nhello", NO_ROUTE_CORS),
    "bytes behind the body": (POST + "Content-Length: 5\r\n\r\nhelloGET / HTTP/1.1\r\n\r\n",
                              NO_ROUTE_CORS),
    "a second request behind": ((GET + END) * 2, NO_ROUTE_CORS),
    # Transfer codings and folded lines
    "chunked": (POST + "Transfer-Encoding: chunked\r\n\r\n0\r\n\r\n", BAD_REQUEST),
    "chunked, on the upload": (
        "POST /api/context-file HTTP/1.1\r\n" + AUTH
        + "Transfer-Encoding: chunked\r\n\r\n0\r\n\r\n", BAD_REQUEST),
    "identity": (POST + "Transfer-Encoding: identity\r\n\r\n", BAD_REQUEST),
    "an empty coding": (GET + "Transfer-Encoding:\r\n\r\n", BAD_REQUEST),
    "a coding and a length": (
        POST + "Content-Length: 5\r\nTransfer-Encoding: chunked\r\n\r\nhello", BAD_REQUEST),
    "a coding in upper case": (POST + "TRANSFER-ENCODING: CHUNKED\r\n\r\n", BAD_REQUEST),
    "a blank before the coding's colon": (POST + "Transfer-Encoding : chunked\r\n\r\n",
                                          NO_ROUTE_CORS),
    "a line folded with a blank": (GET + "X: a\r\n b\r\n\r\n", BAD_REQUEST),
    "a line folded with a tab": (GET + "X: a\r\n\tb\r\n\r\n", BAD_REQUEST),
    "a folded first header": ("GET /api/nothing HTTP/1.1\r\n X: a\r\n" + AUTH + END, BAD_REQUEST),
    # Other headers
    "a line without a colon": (GET + "nothing here\r\n\r\n", NO_ROUTE_CORS),
    "a line that begins with a colon": (GET + ": x\r\n\r\n", NO_ROUTE_CORS),
    "a header in bytes above 127": (GET + "\xc4: \xff\xfe\r\n\r\n", NO_ROUTE_CORS),
    "bare CR and LF in a value": (GET + "X: a\rb\nc\r\n\r\n", NO_ROUTE_CORS),
    "Expect: 100-continue": (POST + "Expect: 100-continue\r\nContent-Length: 2\r\n\r\n{}",
                             NO_ROUTE_CORS),
    "Connection: keep-alive": (GET + "Connection: keep-alive\r\n\r\n", NO_ROUTE_CORS),
    "Upgrade": (GET + "Connection: Upgrade\r\nUpgrade: websocket\r\n\r\n", NO_ROUTE_CORS),
    "a name in odd letters": (
        "GET /api/nothing HTTP/1.1\r\nhOsT:%HOST%\r\nx-MORVA-session:\t%TOKEN%\r\n"
        "ORIGIN: %ORIGIN%\r\n\r\n", NO_ROUTE_CORS),
    # The first of several headers counts
    "the right host first": (GET + "Host: evil\r\n\r\n", NO_ROUTE_CORS),
    "the wrong host first": (
        "GET /api/nothing HTTP/1.1\r\nHost: evil\r\n" + AUTH + END, BAD_REQUEST),
    "the right token first": (GET + "X-Morva-Session: x\r\n\r\n", NO_ROUTE_CORS),
    "the wrong token first": (
        "GET /api/nothing HTTP/1.1\r\nX-Morva-Session: x\r\n" + AUTH + END, UNAUTHORIZED_CORS),
    "a blank before the token's colon": (
        "GET /api/nothing HTTP/1.1\r\nHost: %HOST%\r\nX-Morva-Session : %TOKEN%\r\n\r\n",
        UNAUTHORIZED),
    "a blank before the host's colon": (
        "GET /api/nothing HTTP/1.1\r\nHost : %HOST%\r\nX-Morva-Session: %TOKEN%\r\n\r\n",
        BAD_REQUEST),
    "no origin": (
        "GET /api/agent-toolsX HTTP/1.1\r\nHost: %HOST%\r\nX-Morva-Session: %TOKEN%\r\n\r\n",
        NO_ROUTE),
}


@pytest.mark.parametrize("name", REQUESTS)
def test_a_request_gets_its_verdict(server, name):
    text, wanted = REQUESTS[name]
    assert server.exchange(server.fill(text)).data == wanted


def test_the_table_is_long_enough():
    assert sum(wanted == BAD_REQUEST for _, wanted in REQUESTS.values()) >= 60


@pytest.mark.parametrize("name", ["a good POST", "two equal lengths", "bytes behind the body"])
def test_the_verdict_does_not_depend_on_how_the_bytes_come(server, name):
    text, wanted = REQUESTS[name]
    data = server.fill(text)
    for cut in range(1, len(data), 7):
        with server.connect() as connection:
            connection.sendall(data[:cut])
            time.sleep(0.001)
            connection.sendall(data[cut:])
            assert receive_all(connection) == wanted, cut


# --- The size of the header block ---

def padded_head(server, size):
    """A good request whose head, with its end, has `size` bytes."""
    start = server.fill(GET) + b"X: "
    return start + b"x" * (size - len(start) - 4) + b"\r\n\r\n"


@pytest.mark.parametrize("size, wanted", [
    (4095, NO_ROUTE_CORS), (4096, NO_ROUTE_CORS), (4097, NO_ROUTE_CORS),
    (65535, NO_ROUTE_CORS), (65536, NO_ROUTE_CORS), (65537, BAD_REQUEST), (70000, BAD_REQUEST)])
def test_a_head_may_have_64_kib(server, size, wanted):
    assert server.exchange(padded_head(server, size)).data == wanted


def test_body_bytes_read_with_the_head_count_for_its_limit(server):
    """The server reads 4096 bytes at a time and looks at the size before it looks for the end."""
    head = padded_head(server, 65530)
    for first, wanted in ((4096, NO_ROUTE_CORS), (100, BAD_REQUEST)):
        with server.connect() as connection:
            connection.sendall(head[:first])
            time.sleep(0.3)  # so that it is read alone
            connection.sendall(head[first:] + b"y" * 2000)
            assert receive_all(connection) == wanted


def test_a_head_without_an_end_is_refused(server):
    assert server.exchange(server.fill(GET) + b"X: " + b"x" * 70000).data == BAD_REQUEST


def test_a_long_head_byte_by_byte_is_linear_work(server):
    data = padded_head(server, 60000)
    started = time.monotonic()
    with server.connect() as connection:
        connection.setsockopt(6, 1, 1)  # TCP_NODELAY
        for at in range(len(data)):
            connection.send(data[at:at + 1])
        assert receive_all(connection) == NO_ROUTE_CORS
    assert time.monotonic() - started < 8 * SLOWER


# --- Bodies at their limits ---

def test_a_body_of_the_largest_size_is_taken(server):
    for size in (1048575, 1048576):
        assert server.request("POST", "/api/nothing", b"x" * size).data == NO_ROUTE_CORS


def test_bytes_behind_a_body_of_the_largest_size_make_it_too_large(server):
    head = server.head("POST", "/api/nothing", 1048576)
    with server.connect() as connection:
        connection.sendall(head + b"x" * (1048576 - 8192))
        time.sleep(0.3)
        connection.sendall(b"x" * (8192 - 2048))
        time.sleep(0.3)  # what follows is then one read of the server
        connection.sendall(b"x" * 2049)
        assert receive_all(connection) == BAD_REQUEST


def test_a_body_that_ends_early_is_refused(server):
    with server.connect() as connection:
        connection.sendall(server.head("POST", "/api/nothing", 10) + b"short")
        connection.shutdown(1)
        assert receive_all(connection) == BAD_REQUEST


def test_a_refused_length_is_answered_before_the_body_comes(server):
    with server.connect() as connection:
        connection.sendall(server.head("POST", "/api/nothing", 1048577))
        assert receive_all(connection) == BAD_REQUEST


def test_a_connection_without_a_request_gets_the_refusal(server):
    with server.connect() as connection:
        connection.shutdown(1)
        assert receive_all(connection) == BAD_REQUEST


def test_an_origin_is_never_copied_into_the_answer(server):
    for origin in (EXTENSION_ORIGIN + "\rX-Evil: 1", EXTENSION_ORIGIN + "\nX-Evil: 1",
                   EXTENSION_ORIGIN + " ", EXTENSION_ORIGIN + "/", EXTENSION_ORIGIN.upper()):
        answer = server.request("GET", "/api/nothing", origin=origin)
        assert b"Access-Control" not in answer.data and b"Evil" not in answer.data
        assert answer.status == 403


def test_two_hundred_refused_requests_use_up_nothing(server):
    rows = [server.fill(text) for text, wanted in REQUESTS.values() if wanted == BAD_REQUEST]
    for number in range(200):
        assert server.exchange(rows[number % len(rows)]).data == BAD_REQUEST
    assert isinstance(server.request("GET", "/api/nothing"), Answer)
