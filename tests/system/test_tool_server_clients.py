"""Programs that people use as clients: curl, Python's http.client, fetch of Node."""

import http.client
import json
import os
import shutil
import subprocess
from urllib.parse import quote

import pytest

from support.tool_server_client import DOWNLOAD, EXTENSION_ORIGIN, UPLOAD

# The request comes as one line of JSON, the body behind it; the status goes out first.
NODE_SCRIPT = """
  const input = require('fs').readFileSync(0);
  const end = input.indexOf(10);
  const {url, method, headers} = JSON.parse(input.subarray(0, end));
  const options = {method, headers};
  if (method != 'GET' && method != 'OPTIONS') options.body = input.subarray(end + 1);
  fetch(url, options).then(async (answer) => {
    const bytes = Buffer.from(await answer.arrayBuffer());
    process.stdout.write(answer.status + '\\n');
    process.stdout.write(bytes);
  });
"""


def run(command, body):
    program = shutil.which(command[0])
    assert program, f"{command[0]} is not installed: ./dev setup"
    return subprocess.run([program, *command[1:]], input=body, stdout=subprocess.PIPE, check=True,
                          stderr=subprocess.PIPE, timeout=60)


def ask_curl(port, method, target, headers, body):
    lines = [word for name, value in headers.items() for word in ("-H", f"{name}: {value}")]
    done = run(["curl", "-sS", "--noproxy", "*", "-w", "%{stderr}%{http_code}", "-X", method,
                *lines, *(["--data-binary", "@-"] if body else []),
                f"http://127.0.0.1:{port}{target}"], body)
    return int(done.stderr), done.stdout


def ask_http_client(port, method, target, headers, body):
    connection = http.client.HTTPConnection("127.0.0.1", port, timeout=30)
    connection.request(method, target, body, headers)
    answer = connection.getresponse()
    return answer.status, answer.read()


def ask_node(port, method, target, headers, body):
    order = {"url": f"http://localhost:{port}{target}", "method": method, "headers": headers}
    done = run(["node", "--dns-result-order=ipv4first", "-e", NODE_SCRIPT],
               json.dumps(order).encode() + b"\n" + body)
    status, _, data = done.stdout.partition(b"\n")
    return int(status), data


@pytest.mark.parametrize("client", [ask_curl, ask_http_client, ask_node])
def test_a_client_understands_every_kind_of_answer(server, work, client):
    def ask(method, target, body=b""):
        headers = {"X-Morva-Session": server.token, "Origin": EXTENSION_ORIGIN}
        return client(server.port, method, target, headers, body)

    largest = os.urandom(33554432)
    status, answer = ask("POST", f"{UPLOAD}?name=pic%20ture.png", largest)
    assert status == 200
    assert work.to_local(json.loads(answer)["path"]).read_bytes() == largest
    path = work.put("a b.png", largest[:16777216])
    assert ask("GET", f"{DOWNLOAD}?path={quote(path, safe='')}") == (200, largest[:16777216])
    assert ask("GET", "/api/nothing") == (404, b'{"ok":false}')
    assert ask("PUT", UPLOAD, b"x") == (400, b'{"ok":false}')
    assert ask("OPTIONS", UPLOAD) == (204, b"")
