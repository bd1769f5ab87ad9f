"""Which files the tool server serves, and under how many names it refuses the others."""

import os
import threading
import time

import pytest

from support.builds import IS_SANITIZED, IS_WINDOWS, SLOWER
from support.tool_server_client import NO_FILE, file_answer, json_answer

LARGEST = 16777216


@pytest.mark.parametrize("name, content_type", [
    ("a.png", "image/png"), ("A.PNG", "image/png"), ("a.jpg", "image/jpeg"),
    ("photo.JPEG", "image/jpeg"), ("a.webp", "image/webp"), ("a.gif", "image/gif"),
    ("a.bmp", "image/bmp"), ("notes.txt", "application/octet-stream"),
    ("none", "application/octet-stream"), (".png", "image/png"),
    ("a.png.txt", "application/octet-stream"), ("a.svg", "application/octet-stream"),
    ("folder.png/a", "application/octet-stream"), ("a.tar.gif", "image/gif"),
    ("\u3042.png", "image/png"), ("a b+c%.png", "image/png")])
def test_a_file_is_served_byte_for_byte(server, work, name, content_type):
    path = work.put(name, b"\0\r\n\xff bytes")
    assert server.download(path).data == file_answer(content_type, b"\0\r\n\xff bytes")


def test_a_page_element_gets_it_without_cors_lines(server, work):
    path = work.put("a.png", b"x")
    answer = server.download(path, origin="", more=["Sec-Fetch-Dest: image"])
    assert answer.data == file_answer("image/png", b"x", cors=False)
    answer = server.download(work.name_of("b.png"), origin="", more=["Sec-Fetch-Dest: media"])
    assert answer.data == json_answer(
        "404 Not Found", '{"error":"file is not available","ok":false}', cors=False)


@pytest.mark.parametrize("size, served", [
    (0, False), (1, True), (LARGEST - 1, True), (LARGEST, True), (LARGEST + 1, False)])
def test_sizes(server, work, size, served):
    body = os.urandom(1024) * (size // 1024) + b"x" * (size % 1024)
    answer = server.download(work.put("a.gif", body))
    assert answer.data == (file_answer("image/gif", body) if served else NO_FILE)


# --- Refused, all with the same words ---

def refused(server, path, limit=2.0):
    started = time.monotonic()
    answer = server.download(path).data
    assert time.monotonic() - started < limit * SLOWER, path
    return answer == NO_FILE


@pytest.mark.off_protocol("client")
def test_paths_that_name_no_file_inside(server, work, tmp_path):
    inside = work.put("a.png", b"inside")
    outside = tmp_path / "outside.png"
    outside.write_bytes(b"outside")
    (work.local.parent / "chrome-extension-2").mkdir(exist_ok=True)
    neighbour = work.local.parent / "chrome-extension-2" / "a.png"
    neighbour.write_bytes(b"neighbour")
    up = "..\\" if IS_WINDOWS else "../"
    for path in (
            "", "a.png", ".", "..", "/", "\\", work.name_of(), work.name_of(""),
            work.name_of("missing.png"), str(outside), work.name_of(up + "secret.png"),
            work.name_of(up + "chrome-extension-2", "a.png"), inside + "\0", "\0", "a\0b",
            inside + "/", inside + "\\x", "file://" + inside, b"\xff\xfe", b"\xed\xa0\x80.png",
            "C:", "C:\\", "1:\\a.png", "a" * 40000, inside + "x" * 300, "%" * 100):
        assert refused(server, path), path
    neighbour.unlink()
    neighbour.parent.rmdir()


# Network, device and stream forms; {0} is the file's own name, {1} the same without its drive.
ODD_FORMS = [
    "\\\\server\\share\\a.png", "//server/share/a.png", "/\\server\\share\\a.png",
    "\\/server/share/a.png", "//127.0.0.1/c$/a.png", "\\\\localhost\\C$\\a.png",
    "//./pipe/x", "\\\\.\\pipe\\x", "\\\\.\\C:\\a.png", "//./C:/a.png", "\\\\?\\C:\\a.png",
    "\\\\?\\UNC\\server\\share\\a.png", "//?/C:/a.png", "\\\\?\\{0}", "\\\\.\\{0}", "//?/{0}",
    "\\??\\{0}", "\\\\.\\CON", "\\\\.\\PhysicalDrive0", "\\\\?\\GLOBALROOT\\Device\\Null",
    "{0}:secret", "{0}::$DATA", "{0}:secret:$DATA", "{1}:secret", "{1}::$DATA", "a.png:secret",
    "a.png::$DATA", "C:a.png:secret", "CON", "NUL", "COM1", "LPT1", "AUX", "PRN", "CONIN$",
    "C:\\CON", "C:\\x\\NUL", "C:\\x\\CON.png", "CON.png", "NUL:", "COM1:", "\\Device\\Null",
    "/dev/null", "/dev/zero", "/dev/tty", "/proc/self/mem", "/proc/self/environ", "/proc/self/exe",
    "Z:\\etc\\passwd", "/etc/passwd", "\\etc\\passwd", "~/a.png", "%APPDATA%\\a.png",
]


@pytest.mark.parametrize("form", ODD_FORMS)
def test_network_device_and_stream_names_are_refused_at_once(server, work, form):
    path = work.put("a.png", b"inside")
    assert refused(server, form.format(path, path[2:] if IS_WINDOWS else path))


@pytest.mark.parametrize("device", ["CON", "NUL", "COM1", "LPT1", "AUX", "PRN", "NUL.png"])
def test_devices_in_the_folder_are_refused(server, work, device):
    assert refused(server, work.name_of(device))


def test_spellings_of_one_file_never_lead_elsewhere(server, work):
    path = work.put("sub/Picture.png", b"inside")
    separator = "\\" if IS_WINDOWS else "/"
    same = [work.name_of("sub", ".", "Picture.png"), work.name_of("x", "..", "sub", "Picture.png"),
            work.name_of("sub", "", "Picture.png")]
    if IS_WINDOWS:
        same += [path.lower(), path.upper(), path.replace("\\", "/"), path[0].lower() + path[1:],
                 path + ".", path + " ", path + "..."]
    for spelling in same:
        answer = server.download(spelling)
        assert answer.data == file_answer("image/png", b"inside"), spelling
    odd = [path + separator + "..", work.name_of("SUB~1", "PICTUR~1.PNG"),
           path + separator]
    # Without its drive, a path is on that of the host's working folder.
    odd += [path + "\\.", path[2:], path[2:].replace("\\", "/")] if IS_WINDOWS else []
    for spelling in odd:
        answer = server.download(spelling)
        assert answer.data in (NO_FILE, file_answer("image/png", b"inside")), spelling


@pytest.mark.windows_only
def test_letter_case_beyond_ascii(server, work):
    path = work.put("\u00c4/\u00d6.png", b"x")
    assert server.download(path.replace("\u00c4", "\u00e4")).body == b"x"
    assert server.download(path.replace("\u00d6", "\u00f6")).body == b"x"


@pytest.mark.posix_only
def test_letter_case_counts_where_the_file_system_says_so(server, work):
    path = work.put("a.png", b"x")
    assert refused(server, path.upper()) and refused(server, path.replace("a.png", "A.png"))


# --- Links ---

def test_a_link_to_a_file_is_refused_wherever_it_points(server, work, tmp_path):
    work.put("a.png", b"inside")
    outside = tmp_path / "outside.png"
    outside.write_bytes(b"outside")
    (work.local / "in.png").symlink_to(work.local / "a.png")
    (work.local / "relative.png").symlink_to("a.png")
    (work.local / "out.png").symlink_to(outside)
    (work.local / "nowhere.png").symlink_to(tmp_path / "missing")
    (work.local / "round.png").symlink_to(work.local / "round.png")
    wrong = [name for name in ("out.png", "nowhere.png", "round.png", "in.png", "relative.png")
             if not refused(server, work.name_of(name))]
    if IS_WINDOWS:
        # Wine follows a link of the system below before a program can ask about it: there only
        # the place that it leads to can be judged.
        wrong = [name for name in wrong if name not in ("in.png", "relative.png")]
    assert not wrong


def test_a_folder_that_leads_outside_is_refused(server, work, tmp_path):
    (tmp_path / "elsewhere").mkdir()
    (tmp_path / "elsewhere" / "a.png").write_bytes(b"outside")
    (work.local / "out").symlink_to(tmp_path / "elsewhere", target_is_directory=True)
    assert refused(server, work.name_of("out", "a.png"))
    assert refused(server, work.name_of("out"))


@pytest.mark.posix_only
def test_pipes_and_sockets_are_refused_at_once(server, work):
    import socket

    os.mkfifo(work.local / "pipe.png")
    assert refused(server, work.name_of("pipe.png"))
    with socket.socket(socket.AF_UNIX) as listener:
        listener.bind(str(work.local / "s.png"))
        assert refused(server, work.name_of("s.png"))


@pytest.mark.posix_only
def test_a_file_that_may_not_be_read_looks_like_none(server, work):
    path = work.put("a.png", b"x")
    (work.local / "a.png").chmod(0)
    if os.geteuid() == 0:
        pytest.skip("nothing is forbidden to this user")
    assert refused(server, path)


@pytest.mark.posix_only  # Wine asks for the final path by name, after it has opened the file
def test_a_folder_exchanged_while_it_is_asked_for_never_shows_the_outside(server, work, tmp_path):
    """Both names exist all the time and are swapped for one another, so that at every moment the
    path leads to the file inside or to the one outside."""
    work.put("real/a.png", b"inside")
    (tmp_path / "elsewhere").mkdir()
    (tmp_path / "elsewhere" / "a.png").write_bytes(b"outside")
    door, link, real = (work.local / each for each in ("door", "link", "real"))
    link.symlink_to(tmp_path / "elsewhere", target_is_directory=True)
    stop = threading.Event()

    def swap():
        while not stop.is_set():
            os.rename(real, door)
            os.rename(door, real)
            os.rename(link, door)
            os.rename(door, link)

    swapper = threading.Thread(target=swap)
    swapper.start()
    served = 0
    try:
        path = work.name_of("door", "a.png")
        for _ in range(2_000 if IS_SANITIZED else 10_000):
            answer = server.download(path)
            assert b"outside" not in answer.data
            served += answer.body == b"inside"
            assert answer.body == b"inside" or answer.data == NO_FILE
    finally:
        stop.set()
        swapper.join()
    assert served > 0


def test_a_file_replaced_while_it_is_read_is_one_of_the_two(server, work):
    """The size that was asked for and the bytes come from one and the same file."""
    path = work.put("a.png", b"a" * 300_000)
    stop = threading.Event()

    def replace():
        number = 0
        while not stop.is_set():
            number += 1
            letter, size = ((b"a", 300_000), (b"b", 100_000))[number % 2]
            other = work.local / "other"
            other.write_bytes(letter * size)
            try:
                os.replace(other, work.local / "a.png")
            except OSError:
                pass

    replacer = threading.Thread(target=replace)
    replacer.start()
    try:
        whole = {b"a" * 300_000, b"b" * 100_000}
        for _ in range(150 if IS_SANITIZED else 500):
            answer = server.download(path)
            assert answer.data == NO_FILE or answer.body in whole
    finally:
        stop.set()
        replacer.join()
