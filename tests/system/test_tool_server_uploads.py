"""Pasted and dropped files: their names, the folder that keeps itself small, what it refuses."""

import os
import re
import subprocess
import threading
import time
from urllib.parse import quote

import pytest

from support.builds import IS_SANITIZED, IS_WINDOWS
from support.tool_server_client import UPLOAD, ToolServer, json_answer

DAY = 24 * 60 * 60
NO_FOLDER = {"error": "could not create the drops folder", "ok": False}
FULL = {"error": "drops folder is full", "ok": False}


def saved(server, work, name, body=b"bytes"):
    """Uploads and gives the name of the new file, after a look at it."""
    result = server.upload(name, body)
    assert result["ok"] is True and set(result) == {"ok", "path"}, result
    file = work.to_local(result["path"])
    assert file.parent == work.drops
    assert file.read_bytes() == body
    return file.name


def fill(folder, count, age=0):
    folder.mkdir(parents=True, exist_ok=True)
    written = time.time() - age
    for number in range(count):
        file = folder / f"100-{number}-old"
        file.write_bytes(b"x")
        os.utime(file, (written, written))


# Hint (text, or bytes that are escaped one by one), and what is kept of it.
HINTS = {
    "plain": ("shot.png", "shot.png"),
    "up and out": ("../../evil.exe", "evil.exe"),
    "up and out, backslashes": ("..\\..\\evil.exe", "evil.exe"),
    "a drive": ("C:\\Windows\\x.txt", "x.txt"),
    "a drive without a folder": ("C:x.txt", "Cx.txt"),
    "both kinds of slash": ("a/b\\c/d.txt", "d.txt"),
    "forbidden characters": ("a<b>.txt", "ab.txt"),
    "all forbidden characters": ('a"*:<>?|b', "ab"),
    "only forbidden characters": ('"*:<>?|', "file"),
    "control characters": ("a\x01\x1f\n\tb\x00c", "abc"),
    "DEL is none": ("a\x7fb", "a\x7fb"),
    "dots and blanks at the end": ("report. . .", "report"),
    "dots and blanks before forbidden ones": ("a. ?", "a"),
    "blanks in front stay": ("  a", "  a"),
    "dots in front stay": ("..a", "..a"),
    "empty": ("", "file"),
    "one dot": (".", "file"),
    "two dots": ("..", "file"),
    "only blanks": ("   ", "file"),
    "a slash at the end": ("folder/", "file"),
    "a stream": ("a.txt:secret", "a.txtsecret"),
    "CON": ("CON", "CON"),
    "NUL": ("NUL", "NUL"),
    "nul.txt": ("nul.txt", "nul.txt"),
    "COM1": ("COM1", "COM1"),
    "LPT9.log": ("LPT9.log", "LPT9.log"),
    "AUX.": ("AUX.", "AUX"),
    "CONIN$": ("CONIN$", "CONIN$"),
    "120 bytes": ("a" * 120, "a" * 120),
    "121 bytes": ("a" * 121, "a" * 120),
    "a long extension": ("a" * 118 + ".png", "a" * 118 + ".p"),
    "a dot at the cut": ("a" * 119 + ".png", "a" * 119),
    "a blank at the cut": ("a" * 119 + " b", "a" * 119),
    "40 characters of 3 bytes": ("\u3042" * 40, "\u3042" * 40),
    "one letter and 40 of 3 bytes": ("a" + "\u3042" * 40, "a" + "\u3042" * 39),
    "119 letters and one of 2 bytes": ("a" * 119 + "\u00e9", "a" * 119),
    "118 letters and one of 2 bytes": ("a" * 118 + "\u00e9", "a" * 118 + "\u00e9"),
    "30 characters of 4 bytes": ("\U0001f600" * 30, "\U0001f600" * 30),
    "31 characters of 4 bytes": ("\U0001f600" * 31, "\U0001f600" * 30),
    "two letters and 30 of 4 bytes": ("ab" + "\U0001f600" * 30, "ab" + "\U0001f600" * 29),
}


@pytest.mark.parametrize("name", HINTS)
def test_what_is_kept_of_a_name(server, work, name):
    hint, kept = HINTS[name]
    stored = saved(server, work, hint)
    assert re.fullmatch(r"\d+-\d+-" + re.escape(kept), stored), stored


@pytest.mark.parametrize("hint", [b"\xff", b"a\xc3", b"\xed\xa0\x80", b"\xc0\xaf", b"a\xf5b",
                                  b"\xff" * 200, b"a" * 119 + b"\xff"])
def test_a_name_that_is_no_utf8_is_refused(server, work, hint):
    assert server.upload(hint, b"x") == {"error": "could not name the file", "ok": False}
    assert not list(work.drops.iterdir())


@pytest.mark.off_protocol("client")
def test_the_first_name_in_the_query_counts_and_is_decoded(server, work):
    for query, kept in {"?name=a+b%2bc": "a b+c", "?x=1&name=a&name=b": "a", "?Name=a": "file",
                        "?name": "file", "": "file", "?xname=a": "file", "?name=%": "%",
                        "?name=a%4": "a%4", "?name=%zz": "%zz", "?&&name=a=b&": "a=b",
                        "?name=%252e": "%2e", "?name=a?b": "ab"}.items():
        answer = server.request("POST", UPLOAD + query, b"x").json()
        assert answer["path"].endswith(f"-{kept}"), (query, answer)


def test_names_count_up_and_begin_with_the_time(server, work):
    stored = [saved(server, work, "a") for _ in range(3)]
    ticks, numbers = zip(*((int(part) for part in name.split("-")[:2]) for name in stored))
    assert list(numbers) == list(range(numbers[0], numbers[0] + 3))
    assert list(ticks) == sorted(ticks)


def test_the_answer_byte_for_byte(own_server, work):
    answer = own_server.request("POST", f"{UPLOAD}?name=shot.png", b"x")
    (file,) = work.drops.iterdir()
    assert re.fullmatch(r"\d+-0-shot\.png", file.name)
    path = work.name_of("chat-paste", file.name).replace("\\", "\\\\")
    assert answer.data == json_answer("200 OK", f'{{"ok":true,"path":"{path}"}}', cors=True)


def test_an_empty_file_is_refused(server, work):
    wanted = json_answer("200 OK", '{"error":"empty file","ok":false}', cors=True)
    assert server.request("POST", f"{UPLOAD}?name=a", b"").data == wanted
    assert server.request("POST", f"{UPLOAD}?name=a", b"", more=["X: y"]).data == wanted
    assert not work.drops.exists()


@pytest.mark.parametrize("size", [1, 4095, 4096, 1048577, 33554431, 33554432])
def test_bodies_of_every_size_arrive_whole(server, work, size):
    saved(server, work, "a", os.urandom(size))


@pytest.mark.parametrize("body", [b"3", b'{"ok":false}', b"null"])
def test_json_is_a_file_like_any_other(server, work, body):
    saved(server, work, "a.json", body)


def test_any_bytes_arrive(server, work):
    saved(server, work, "a", bytes(range(256)) * 3)
    saved(server, work, "a", b"\r\n\r\n\0\r\n")


def test_what_comes_behind_the_body_is_dropped(server, work):
    head = server.head("POST", f"{UPLOAD}?name=a", 5)
    answer = server.exchange(head + b"hello and more\r\n\r\n")
    assert work.to_local(answer.json()["path"]).read_bytes() == b"hello"


# --- A folder that keeps itself small ---

def test_199_recent_files_leave_room_for_one(server, work):
    fill(work.drops, 199)
    saved(server, work, "a")
    assert server.upload("b", b"x") == FULL
    assert len(list(work.drops.iterdir())) == 200


def test_200_recent_files_are_too_many(server, work):
    fill(work.drops, 200, age=60 * 60)
    assert server.upload("a", b"x") == FULL
    assert len(list(work.drops.iterdir())) == 200


@pytest.mark.parametrize("age", [DAY + 60, 400 * DAY, -DAY - 60, -400 * DAY])
def test_files_of_another_day_make_room(server, work, age):
    fill(work.drops, 205, age)
    stored = saved(server, work, "a")
    assert [file.name for file in work.drops.iterdir()] == [stored]


@pytest.mark.parametrize("age", [DAY - 60, -DAY + 60])
def test_files_of_this_day_stay(server, work, age):
    fill(work.drops, 5, age)
    saved(server, work, "a")
    assert len(list(work.drops.iterdir())) == 6


def test_folders_are_not_counted_and_not_deleted(server, work):
    for number in range(210):
        (work.drops / f"folder {number}").mkdir(parents=True)
    kept = work.drops / "folder 0" / "old"
    kept.write_bytes(b"x")
    os.utime(kept, (0, 0))
    os.utime(kept.parent, (0, 0))
    saved(server, work, "a")
    assert kept.exists() and len(list(work.drops.iterdir())) == 211


def test_links_to_files_are_not_counted_and_not_followed(server, work, tmp_path):
    target = tmp_path / "precious"
    target.write_bytes(b"precious")
    os.utime(target, (0, 0))
    work.drops.mkdir()
    for number in range(5):
        (work.drops / f"link {number}").symlink_to(target)
    saved(server, work, "a")
    assert target.read_bytes() == b"precious"


# --- A drops folder that is none ---

@pytest.mark.parametrize("inside", [False, True])
def test_a_link_for_a_drops_folder_is_refused(server, work, tmp_path, inside):
    target = (work.local / "elsewhere") if inside else (tmp_path / "Documents")
    fill(target, 3, age=400 * DAY)
    work.drops.symlink_to(target, target_is_directory=True)
    assert server.upload("a", b"x") == NO_FOLDER
    assert len(list(target.iterdir())) == 3


def test_a_file_for_a_drops_folder_is_refused(server, work):
    work.drops.write_bytes(b"a file")
    assert server.upload("a", b"x") == NO_FOLDER
    assert work.drops.read_bytes() == b"a file"


def test_a_link_to_nowhere_is_refused(server, work, tmp_path):
    work.drops.symlink_to(tmp_path / "missing", target_is_directory=True)
    assert server.upload("a", b"x") == NO_FOLDER
    assert not (tmp_path / "missing").exists()


def test_a_work_folder_that_has_gone_is_made_again(server, work):
    work.local.rmdir()
    saved(server, work, "a")


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


@pytest.mark.posix_only
def test_long_paths_are_taken(start_panel, tmp_path):
    base = tmp_path / ("p" * 100) / ("q" * 100)
    base.mkdir(parents=True)
    server = ToolServer(start_panel(env={"APPDATA": str(base)}))
    result = server.upload("a" * 120, b"x")
    assert result["ok"] and len(result["path"]) > 360
    assert server.download(result["path"]).body == b"x"


# --- Many at once ---

def test_uploads_at_the_same_time_never_overwrite_each_other(server, work):
    rounds, lanes = (15 if IS_SANITIZED else 50), 16
    wrong = []

    def upload(lane, number):
        body = f"{lane} {number} ".encode() * 100
        try:
            if saved(server, work, "same name.png", body) == "":
                wrong.append("no name")
        except Exception as error:
            wrong.append(repr(error))

    stored = 0
    for number in range(rounds):
        threads = [threading.Thread(target=upload, args=(lane, number)) for lane in range(lanes)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        files = list(work.drops.iterdir())
        bodies = {file.read_bytes() for file in files}
        assert len(files) == len(bodies) == lanes, wrong
        stored += len(files)
        for file in files:
            file.unlink()
    assert not wrong and stored == rounds * lanes


def test_an_uploaded_file_can_be_downloaded(server, work):
    body = os.urandom(100_000)
    path = server.upload("pic ture.PNG", body)["path"]
    answer = server.download(path)
    assert answer.body == body and b"Content-Type: image/png\r\n" in answer.head
    assert server.request("GET", f"/api/local-file?path={quote(path)}").body == body
    assert IS_WINDOWS == path.startswith("C:\\")
