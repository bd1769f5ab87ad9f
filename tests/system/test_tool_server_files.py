"""Files that go out and come in: served, pasted, dropped.

Which names are refused, and how a name, an age and a count are judged, is tested in
tests/unit/toolserver; here is what only a real folder with links, and others at work in it, shows.
"""

import os
import socket
import subprocess
import threading
import time
from concurrent.futures import ThreadPoolExecutor

import pytest

from support.builds import IS_WINDOWS
from support.cli_program import seen_by_host
from support.tool_server_client import NO_FILE, ToolServer, file_answer

NO_FOLDER = {"error": "could not create the drops folder", "ok": False}
BYTES = bytes(range(256)) * 3 + b"\r\n\r\n\0"


def refused(server, path):
    return server.download(path).data == NO_FILE


# --- Served ---

def test_links_are_refused_wherever_they_point(server, work, tmp_path):
    work.put("a.png", b"inside")
    (tmp_path / "outside.png").write_bytes(b"outside")
    targets = {"in.png": work.local / "a.png", "relative.png": "a.png",
               "out.png": tmp_path / "outside.png", "nowhere.png": tmp_path / "missing",
               "round.png": work.local / "round.png", "folder": tmp_path}
    for name, target in targets.items():
        (work.local / name).symlink_to(target, target_is_directory=name == "folder")
    asked = [*targets, "folder/outside.png"]
    wrong = {name for name in asked if not refused(server, work.name_of(*name.split("/")))}
    # Wine follows a link of the system below before a program can ask about it: there only the
    # place that it leads to can be judged.
    assert wrong <= ({"in.png", "relative.png"} if IS_WINDOWS else set())


def test_a_work_folder_that_is_a_link_is_the_folder_to_which_it_leads(server, work, tmp_path):
    work.local.rmdir()
    work.local.symlink_to(tmp_path, target_is_directory=True)
    try:
        path = server.upload("a.png", b"bytes")["path"]
        (file,) = (tmp_path / "chat-paste").iterdir()
        for name in (path, seen_by_host(file)):  # on another drive, under Wine
            assert server.download(name).body == b"bytes"
        (tmp_path / "out.png").symlink_to("/etc/hostname")
        assert refused(server, work.name_of("out.png"))
    finally:
        work.local.unlink()


@pytest.mark.posix_only
def test_pipes_and_sockets_are_refused(server, work):
    os.mkfifo(work.local / "pipe.png")
    with socket.socket(socket.AF_UNIX) as listener:
        listener.bind(str(work.local / "s.png"))
        assert refused(server, work.name_of("s.png")) and refused(server, work.name_of("pipe.png"))


@pytest.mark.posix_only  # Wine asks for the final path by name, after it has opened the file
def test_a_folder_exchanged_while_it_is_asked_for_never_shows_the_outside(server, work, tmp_path):
    """Both names exist all the time and are swapped for one another, so that at every moment the
    path leads to the file inside or to the one outside."""
    work.put("real/a.png", b"inside")
    (tmp_path / "a.png").write_bytes(b"outside")
    door, link, real = (work.local / each for each in ("door", "link", "real"))
    link.symlink_to(tmp_path, target_is_directory=True)
    path, bodies = work.name_of("door", "a.png"), []
    asking = threading.Thread(
        target=lambda: bodies.extend(server.download(path).body for _ in range(400)))
    asking.start()
    while asking.is_alive():
        for way_in in (real, link):
            os.rename(way_in, door)
            os.rename(door, way_in)
    asking.join()
    assert set(bodies) == {b"inside", NO_FILE.partition(b"\r\n\r\n")[2]}


# --- Taken ---

def test_names_begin_with_the_time_and_count_up(own_server, work):
    work.local.rmdir()  # is made again
    kept = {"shot.png": "shot.png", "C:\\x\\a\u3042<b>.txt. ": "a\u3042b.txt", "": "file",
            "a" + "\u3042" * 40: "a" + "\u3042" * 39}
    results = [own_server.upload(name, BYTES) for name in kept]
    assert own_server.download(results[0]["path"]).data == file_answer("image/png", BYTES)
    files = [work.to_local(result["path"]) for result in results]
    assert {(file.parent, file.read_bytes()) for file in files} == {(work.drops, BYTES)}
    ticks, numbers, names = zip(*(file.name.split("-") for file in files))
    assert list(map(int, ticks)) == sorted(map(int, ticks))
    assert (numbers, names) == (("0", "1", "2", "3"), tuple(kept.values()))


def test_uploads_at_the_same_time_never_overwrite_each_other(server, work):
    bodies = [f"{number} ".encode() * 100 for number in range(128)]
    with ThreadPoolExecutor(16) as lanes:
        results = list(lanes.map(lambda body: server.upload("same name.png", body), bodies))
    assert all(result["ok"] for result in results)
    assert sorted(file.read_bytes() for file in work.drops.iterdir()) == sorted(bodies)


def put_old(folder):
    folder.mkdir(exist_ok=True)
    (folder / "100-0-old").write_bytes(b"old")
    os.utime(folder / "100-0-old", (time.time() - 86400 - 60,) * 2)


def test_old_files_make_room_but_links_to_files_are_not_counted_and_not_followed(
        server, work, tmp_path):
    put_old(tmp_path)
    put_old(work.drops)
    for number in range(200):
        (work.drops / f"link {number}").symlink_to(tmp_path / "100-0-old")
    assert server.upload("a", b"x")["ok"] is True
    assert (tmp_path / "100-0-old").read_bytes() == b"old"
    assert not (work.drops / "100-0-old").exists()


@pytest.mark.parametrize("where", ["inside", "outside", "nowhere"])
def test_a_drops_folder_that_is_a_link_is_refused(server, work, tmp_path, where):
    target = (work.local if where == "inside" else tmp_path) / "elsewhere"
    if where != "nowhere":
        put_old(target)
    work.drops.symlink_to(target, target_is_directory=True)
    assert server.upload("a", b"x") == NO_FOLDER
    assert len(list(target.glob("*"))) == (where != "nowhere")


@pytest.mark.posix_only
def test_a_full_disk_leaves_no_half_file(start_panel, tmp_path):
    mount = ["mount", "-t", "tmpfs", "-o", "size=256k", "tmpfs", str(tmp_path)]
    if subprocess.run(mount, stderr=subprocess.DEVNULL).returncode != 0:
        pytest.skip("no file system can be mounted here")
    try:
        server = ToolServer(start_panel(env={"APPDATA": str(tmp_path)}))
        assert server.upload("a", b"x" * 1_000_000) == {
            "error": "could not write the file", "ok": False}
        assert not [each for each in tmp_path.rglob("*") if each.is_file()]
        assert server.upload("a", b"x" * 1000)["ok"] is True
    finally:
        subprocess.run(["umount", "-l", str(tmp_path)], check=True)


@pytest.mark.posix_only
def test_without_a_data_folder_there_is_nowhere_to_put_it(start_panel):
    server = ToolServer(start_panel(env={"APPDATA": ""}))
    assert server.upload("a", b"x") == {
        "error": "chrome work folder is unavailable", "ok": False}
    assert server.download("/etc/hostname").status == 404
