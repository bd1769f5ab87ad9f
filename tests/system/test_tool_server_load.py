"""Sixteen clients that do everything at once."""

import random
from concurrent.futures import ThreadPoolExecutor

from support.tool_server_client import (
    BAD_REQUEST, NO_FILE, NO_ROUTE_CORS, PREFLIGHT, UNAUTHORIZED_CORS, file_answer,
    receive_all)

CLIENTS = 16
ROUNDS = 6  # of each thing, for each client
BODY = bytes(range(256)) * 400
# The drops folder takes 200 files.
FULL = {"error": "drops folder is full", "ok": False}


def uploads(server, path):
    result = server.upload("a b.png", b"x" * 3000)
    return result["ok"] is True or result == FULL


def downloads(server, path):
    return server.download(path).data == file_answer("image/png", BODY)


def misses_a_file(server, path):
    return server.download(path + "x").data == NO_FILE


def misses_a_route(server, path):
    return server.request("GET", "/api/nothing").data == NO_ROUTE_CORS


def has_no_token(server, path):
    answer = server.request("POST", "/api/context-file", b"x" * 9000, token="0" * 64)
    return answer.data == UNAUTHORIZED_CORS


def asks_before(server, path):
    return server.request("OPTIONS", "/api/context-file").data == PREFLIGHT


def is_malformed(server, path):
    return server.exchange(b"GET / HTTP/1.0\r\n\r\n").data == BAD_REQUEST


def hangs_up(server, path):
    with server.connect() as connection:
        connection.sendall(b"POST /api/con")
        connection.shutdown(1)
        return receive_all(connection) == BAD_REQUEST


ACTIONS = (uploads, downloads, misses_a_file, misses_a_route, has_no_token, asks_before,
           is_malformed, hangs_up)


def test_sixteen_clients_mix_what_they_ask_for(own_server, work):
    path = work.put("a.png", BODY)

    def client(number):
        actions = list(ACTIONS) * ROUNDS
        random.Random(number).shuffle(actions)
        return [action.__name__ for action in actions if not action(own_server, path)]

    with ThreadPoolExecutor(CLIENTS) as threads:
        running = [threads.submit(client, number) for number in range(CLIENTS)]
        for _ in range(50):
            own_server.panel.prove_alive()
            assert own_server.panel.ask("contextImportUrl")["token"] == own_server.token
        assert [each.result() for each in running] == [[]] * CLIENTS
    own_server.is_well()
    own_server.panel.end()
