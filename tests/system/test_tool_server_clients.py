"""Programs that people use as clients: curl, Python's http.client, fetch of Node."""

import http.client
import json
import os
import shutil
import subprocess
from urllib.parse import quote

import pytest

from support.tool_server_client import DOWNLOAD, EXTENSION_ORIGIN, UPLOAD

BODY = bytes(range(256)) * 1000


def run(command, **options):
    return subprocess.run(command, stdout=subprocess.PIPE, check=True, timeout=60, **options).stdout


class Curl:
    def __init__(self, server):
        assert shutil.which("curl"), "curl is not installed: ./dev setup"
        self.base = f"http://127.0.0.1:{server.port}"
        self.headers = ["-H", f"X-Morva-Session: {server.token}", "-H",
                        f"Origin: {EXTENSION_ORIGIN}"]

    def __call__(self, method, target, body=None):
        command = ["curl", "-sS", "--noproxy", "*", "-w", "%{stderr}%{http_code}", "-X", method,
                   *self.headers, self.base + target]
        command += ["--data-binary", "@-"] if body is not None else []
        done = subprocess.run(command, input=body, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                              check=True, timeout=60)
        return int(done.stderr), done.stdout


class HttpClient:
    def __init__(self, server):
        self.server = server

    def __call__(self, method, target, body=None):
        connection = http.client.HTTPConnection("127.0.0.1", self.server.port, timeout=30)
        try:
            connection.request(method, target, body, {
                "X-Morva-Session": self.server.token, "Origin": EXTENSION_ORIGIN})
            answer = connection.getresponse()
            return answer.status, answer.read()
        finally:
            connection.close()


class NodeFetch:
    """The request comes as one line of JSON, the body behind it; the status goes out first."""

    SCRIPT = """
      const input = require('fs').readFileSync(0);
      const end = input.indexOf(10);
      const {url, method, headers, body} = JSON.parse(input.subarray(0, end));
      const options = {method, headers};
      if (body) options.body = input.subarray(end + 1);
      fetch(url, options).then(async (answer) => {
        const bytes = Buffer.from(await answer.arrayBuffer());
        process.stdout.write(answer.status + '\\n');
        process.stdout.write(bytes);
      });
    """

    def __init__(self, server):
        node = shutil.which("node")
        assert node and b"function" in run([node, "-p", "typeof fetch"]), (
            "no Node.js with fetch: ./dev setup")
        self.node, self.server = node, server

    def __call__(self, method, target, body=None):
        order = {"url": f"http://localhost:{self.server.port}{target}", "method": method,
                 "body": body is not None,
                 "headers": {"X-Morva-Session": self.server.token, "Origin": EXTENSION_ORIGIN}}
        output = run([self.node, "--dns-result-order=ipv4first", "-e", self.SCRIPT],
                     input=json.dumps(order).encode() + b"\n" + (body or b""))
        status, _, data = output.partition(b"\n")
        return int(status), data


CLIENTS = {"curl": Curl, "http.client": HttpClient, "Node's fetch": NodeFetch}


@pytest.fixture(params=CLIENTS)
def client(request, server):
    return CLIENTS[request.param](server)


def test_a_file_goes_up_and_comes_down(client, work):
    status, answer = client("POST", f"{UPLOAD}?name=pic%20ture.png", BODY)
    assert status == 200
    path = json.loads(answer)["path"]
    assert work.to_local(path).read_bytes() == BODY
    assert client("GET", f"{DOWNLOAD}?path={quote(path, safe='')}") == (200, BODY)


def test_the_largest_upload(client, work):
    # curl waits a second for a "100 Continue" that does not come.
    body = os.urandom(33554432)
    status, answer = client("POST", f"{UPLOAD}?name=large", body)
    assert status == 200
    assert work.to_local(json.loads(answer)["path"]).read_bytes() == body


def test_refusals(client):
    assert client("GET", "/api/nothing") == (404, b'{"ok":false}')
    assert client("GET", f"{DOWNLOAD}?path=x") == (
        404, b'{"error":"file is not available","ok":false}')
    assert client("POST", UPLOAD, b"") == (200, b'{"error":"empty file","ok":false}')
    assert client("PUT", UPLOAD, b"x") == (400, b'{"ok":false}')
    assert client("OPTIONS", UPLOAD) == (204, b"")
