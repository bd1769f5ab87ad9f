"""Which files the tool server serves; every other name is refused with the same words.

The table of names that are refused is in tests/unit/toolserver.
"""

import os
import socket
import threading

import pytest

from support.builds import IS_WINDOWS
from support.cli_program import seen_by_host
from support.tool_server_client import NO_FILE, file_answer

LARGEST = 16777216


def refused(server, path):
    return server.download(path).data == NO_FILE


@pytest.mark.parametrize("name, content_type", [
    ("a b+c%\u3042.PNG", "image/png"), ("folder.png/a", "application/octet-stream")])
def test_a_file_is_served_byte_for_byte(server, work, name, content_type):
    path = work.put(name, b"\0\r\n\xff bytes")
    assert server.download(path).data == file_answer(content_type, b"\0\r\n\xff bytes")


def test_the_largest_file(server, work):
    body = os.urandom(1024) * (LARGEST // 1024)
    assert server.download(work.put("a.gif", body)).data == file_answer("image/gif", body)
    assert refused(server, work.put("a.gif", body + b"x"))


def test_a_file_outside_is_refused(server, work, tmp_path):
    (tmp_path / "a.png").write_bytes(b"outside")
    assert refused(server, seen_by_host(tmp_path / "a.png"))
    neighbour = work.local.parent / "a.png"
    neighbour.write_bytes(b"outside")
    assert refused(server, work.name_of("..", "a.png")) and refused(server, b"\xff\xfe")
    neighbour.unlink()


# --- Links ---

def test_a_link_to_a_file_is_refused_wherever_it_points(server, work, tmp_path):
    work.put("a.png", b"inside")
    (tmp_path / "outside.png").write_bytes(b"outside")
    targets = {"in.png": work.local / "a.png", "relative.png": "a.png",
               "out.png": tmp_path / "outside.png", "nowhere.png": tmp_path / "missing",
               "round.png": work.local / "round.png"}
    for name, target in targets.items():
        (work.local / name).symlink_to(target)
    wrong = {name for name in targets if not refused(server, work.name_of(name))}
    # Wine follows a link of the system below before a program can ask about it: there only the
    # place that it leads to can be judged.
    assert wrong <= ({"in.png", "relative.png"} if IS_WINDOWS else set())


def test_a_folder_that_leads_outside_is_refused(server, work, tmp_path):
    (tmp_path / "a.png").write_bytes(b"outside")
    (work.local / "out").symlink_to(tmp_path, target_is_directory=True)
    assert refused(server, work.name_of("out", "a.png"))
    assert refused(server, work.name_of("out"))


@pytest.mark.posix_only
def test_pipes_and_sockets_are_refused(server, work):
    os.mkfifo(work.local / "pipe.png")
    assert refused(server, work.name_of("pipe.png"))
    with socket.socket(socket.AF_UNIX) as listener:
        listener.bind(str(work.local / "s.png"))
        assert refused(server, work.name_of("s.png"))


# --- What changes meanwhile ---

class Changing:
    """Runs a step over and over beside the test."""

    def __init__(self, step):
        self._step = step
        self._stop = threading.Event()
        self._thread = threading.Thread(target=self._run)

    def __enter__(self):
        self._thread.start()

    def __exit__(self, *_):
        self._stop.set()
        self._thread.join()

    def _run(self):
        while not self._stop.is_set():
            self._step()


@pytest.mark.posix_only  # Wine asks for the final path by name, after it has opened the file
def test_a_folder_exchanged_while_it_is_asked_for_never_shows_the_outside(server, work, tmp_path):
    """Both names exist all the time and are swapped for one another, so that at every moment the
    path leads to the file inside or to the one outside."""
    work.put("real/a.png", b"inside")
    (tmp_path / "a.png").write_bytes(b"outside")
    door, link, real = (work.local / each for each in ("door", "link", "real"))
    link.symlink_to(tmp_path, target_is_directory=True)

    def swap():
        for way_in in (real, link):
            os.rename(way_in, door)
            os.rename(door, way_in)

    with Changing(swap):
        bodies = [server.download(work.name_of("door", "a.png")).body for _ in range(400)]
    assert set(bodies) == {b"inside", NO_FILE.partition(b"\r\n\r\n")[2]}


def test_a_file_replaced_while_it_is_read_is_one_of_the_two(server, work):
    """The size that was asked for and the bytes come from one and the same file."""
    whole = [b"a" * 300_000, b"b" * 100_000]
    path = work.put("a.png", whole[0])

    def replace():
        for body in whole:
            (work.local / "other").write_bytes(body)
            os.replace(work.local / "other", work.local / "a.png")

    with Changing(replace):
        answers = [server.download(path) for _ in range(150)]
    assert all(each.data == NO_FILE or each.body in whole for each in answers)
    assert any(each.body in whole for each in answers)
