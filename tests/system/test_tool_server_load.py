"""Sixteen clients that do everything at once, for a while."""

import random
import threading
import time

import pytest

from support.builds import BUILD
from support.tool_server_client import (
    BAD_REQUEST, NO_FILE, NO_ROUTE_CORS, PREFLIGHT, UNAUTHORIZED_CORS, file_answer,
    receive_all)

CLIENTS = 16
SECONDS = 30 if BUILD == "tsan" else 8
# The drops folder takes 200 files: uploads are told so from then on.
UPLOAD_RESULTS = ({"error": "drops folder is full", "ok": False},)


class Client(threading.Thread):
    def __init__(self, number, server, path, body, until):
        super().__init__()
        self.random = random.Random(number)
        self.server, self.path, self.body, self.until = server, path, body, until
        self.done, self.wrong = {}, []

    def upload(self):
        result = self.server.upload("a b.png", self.random.randbytes(3000))
        return result["ok"] is True or result in UPLOAD_RESULTS

    def download(self):
        return self.server.download(self.path).data == file_answer("image/png", self.body)

    def missing_file(self):
        return self.server.download(self.path + "x").data == NO_FILE

    def no_route(self):
        return self.server.request("GET", "/api/nothing").data == NO_ROUTE_CORS

    def wrong_token(self):
        answer = self.server.request("POST", "/api/context-file", b"x" * 9000, token="0" * 64)
        return answer.data == UNAUTHORIZED_CORS

    def preflight(self):
        return self.server.request("OPTIONS", "/api/context-file").data == PREFLIGHT

    def malformed(self):
        return self.server.exchange(b"GET / HTTP/1.0\r\n\r\n").data == BAD_REQUEST

    def hang_up(self):
        with self.server.connect() as connection:
            connection.sendall(b"POST /api/con")
            connection.shutdown(1)
            return receive_all(connection) == BAD_REQUEST

    def run(self):
        actions = [self.upload, self.download, self.missing_file, self.no_route, self.wrong_token,
                   self.preflight, self.malformed, self.hang_up]
        while time.monotonic() < self.until and not self.wrong:
            action = self.random.choice(actions)
            try:
                if not action():
                    self.wrong.append(action.__name__)
            except Exception as error:
                self.wrong.append(f"{action.__name__}: {error!r}")
            self.done[action.__name__] = self.done.get(action.__name__, 0) + 1


@pytest.mark.timeout(180)
def test_sixteen_clients_mix_what_they_ask_for(own_server, work):
    body = bytes(range(256)) * 400
    path = work.put("a.png", body)
    until = time.monotonic() + SECONDS
    clients = [Client(number, own_server, path, body, until) for number in range(CLIENTS)]
    for client in clients:
        client.start()
    panel_asked = 0
    while time.monotonic() < until:
        own_server.panel.prove_alive()
        assert own_server.panel.ask("contextImportUrl")["token"] == own_server.token
        panel_asked += 1
        time.sleep(0.05)
    for client in clients:
        client.join()
    assert [client.wrong for client in clients if client.wrong] == []
    assert panel_asked > 10 and all(len(client.done) == 8 for client in clients)
    own_server.is_well()
    own_server.panel.end()
