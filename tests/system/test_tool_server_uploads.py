"""Pasted and dropped files: their names, the folder that keeps itself small, what it refuses.

Names, ages and counts have their tables in tests/unit/toolserver.
"""

import os
import subprocess
import time
from concurrent.futures import ThreadPoolExecutor

import pytest

from support.tool_server_client import UPLOAD, ToolServer, json_answer

NO_FOLDER = {"error": "could not create the drops folder", "ok": False}
BYTES = bytes(range(256)) * 3 + b"\r\n\r\n\0"


def saved(server, work, name, body=BYTES):
    """Uploads and gives the name of the new file, after a look at it."""
    result = server.upload(name, body)
    assert result["ok"] is True and set(result) == {"ok", "path"}, result
    file = work.to_local(result["path"])
    assert file.parent == work.drops
    assert file.read_bytes() == body
    return file.name


def test_names_begin_with_the_time_and_count_up(own_server, work):
    work.local.rmdir()  # is made again
    kept = {"shot.png": "shot.png", "C:\\x\\a\u3042<b>.txt. ": "a\u3042b.txt", "": "file",
            "a" + "\u3042" * 40: "a" + "\u3042" * 39}
    stored = [saved(own_server, work, name) for name in kept]
    ticks, numbers, names = zip(*(name.split("-") for name in stored))
    assert list(map(int, ticks)) == sorted(map(int, ticks))
    assert (numbers, names) == (("0", "1", "2", "3"), tuple(kept.values()))


def test_the_answer_byte_for_byte(server, work):
    answer = server.request("POST", f"{UPLOAD}?name=shot.png", b"x").data
    (file,) = work.drops.iterdir()
    path = work.name_of("chat-paste", file.name).replace("\\", "\\\\")
    assert answer == json_answer("200 OK", f'{{"ok":true,"path":"{path}"}}', cors=True)
    file.unlink()
    refused = json_answer("200 OK", '{"error":"empty file","ok":false}', cors=True)
    assert server.request("POST", f"{UPLOAD}?name=a", b"").data == refused
    assert not list(work.drops.iterdir())


@pytest.mark.off_protocol("client")
def test_the_first_name_in_the_query_counts_and_is_decoded(server, work):
    for query, kept in {"?x=1&name=a+b%2bc%4&name=b": "a b+c%4", "?Name=a": "file"}.items():
        answer = server.request("POST", UPLOAD + query, b"x").json()
        assert answer["path"].endswith(f"-{kept}"), (query, answer)
    assert server.upload(b"a\xed\xa0\x80", b"x") == {
        "error": "could not name the file", "ok": False}


def test_an_uploaded_file_can_be_downloaded(server, work):
    answer = server.download(server.upload("pic ture.PNG", BYTES)["path"])
    assert answer.body == BYTES and b"Content-Type: image/png\r\n" in answer.head


def test_uploads_at_the_same_time_never_overwrite_each_other(server, work):
    bodies = [f"{number} ".encode() * 100 for number in range(128)]
    with ThreadPoolExecutor(16) as lanes:
        results = list(lanes.map(lambda body: server.upload("same name.png", body), bodies))
    assert all(result["ok"] for result in results)
    assert sorted(file.read_bytes() for file in work.drops.iterdir()) == sorted(bodies)


# --- The folder ---

def fill(folder, count, age):
    folder.mkdir(parents=True, exist_ok=True)
    written = time.time() - age
    for number in range(count):
        (folder / f"100-{number}-old").write_bytes(b"x")
        os.utime(folder / f"100-{number}-old", (written, written))


def test_old_files_make_room_and_recent_ones_do_not(server, work):
    fill(work.drops, 205, age=86400 + 60)
    stored = saved(server, work, "a")
    assert [file.name for file in work.drops.iterdir()] == [stored]
    fill(work.drops, 199, age=86400 - 60)
    assert server.upload("a", b"x") == {"error": "drops folder is full", "ok": False}
    assert len(list(work.drops.iterdir())) == 200


def test_links_to_files_are_not_counted_and_not_followed(server, work, tmp_path):
    target = tmp_path / "precious"
    target.write_bytes(b"precious")
    os.utime(target, (0, 0))
    work.drops.mkdir()
    for number in range(200):
        (work.drops / f"link {number}").symlink_to(target)
    saved(server, work, "a")
    assert target.read_bytes() == b"precious"


@pytest.mark.parametrize("where", ["inside", "outside", "nowhere", "a file"])
def test_a_drops_folder_that_is_none_is_refused(server, work, tmp_path, where):
    target = (work.local if where == "inside" else tmp_path) / "elsewhere"
    if where == "a file":
        work.drops.write_bytes(b"a file")
    else:
        work.drops.symlink_to(target, target_is_directory=True)
    if where in ("inside", "outside"):
        fill(target, 3, age=400 * 86400)
    assert server.upload("a", b"x") == NO_FOLDER
    assert len(list(target.glob("*"))) == (3 if where in ("inside", "outside") else 0)


@pytest.mark.posix_only
def test_a_full_disk_leaves_no_half_file(start_panel, tmp_path):
    small = tmp_path / "small"
    small.mkdir()
    mount = ["mount", "-t", "tmpfs", "-o", "size=256k", "tmpfs", str(small)]
    if subprocess.run(mount, stderr=subprocess.DEVNULL).returncode != 0:
        pytest.skip("no file system can be mounted here")
    try:
        server = ToolServer(start_panel(env={"APPDATA": str(small)}))
        assert server.upload("a", b"x" * 1_000_000) == {
            "error": "could not write the file", "ok": False}
        assert not [each for each in small.rglob("*") if each.is_file()]
        assert server.upload("a", b"x" * 1000)["ok"] is True
    finally:
        subprocess.run(["umount", "-l", str(small)], check=True)


@pytest.mark.posix_only
def test_without_a_data_folder_there_is_nowhere_to_put_it(start_panel):
    server = ToolServer(start_panel(env={"APPDATA": ""}))
    assert server.upload("a", b"x") == {
        "error": "chrome work folder is unavailable", "ok": False}
    assert server.download("/etc/hostname").status == 404
