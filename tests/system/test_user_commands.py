"""What a person may ask of the program, and that a browser's start is never taken for that."""

import contextlib
import os
import pty
import shutil

import pytest

from support import builds
from support.user_commands import Program


@pytest.fixture(scope="module")
def program(user_folders):
    return Program(builds.PROGRAM, {} if builds.IS_WINDOWS else user_folders)


def project_version():
    text = (builds.ROOT / "CMakeLists.txt").read_text()
    return text.split("project(morva VERSION ", 1)[1].split(" ", 1)[0]


def test_the_version_is_the_projects(program):
    outcome = program.run("--version")
    assert (outcome.code, outcome.out, outcome.err) == (
        0, f"morva-chrome-host {project_version()}\n", "")


@pytest.mark.parametrize("option", ["--help", "-h"])
def test_help_says_who_starts_the_program(program, option):
    outcome = program.run(option)
    assert outcome.code == 0 and outcome.err == ""
    assert "Chrome starts this program by itself" in outcome.out
    for word in ("--register", "--unregister", "--doctor", "--version", "--dry-run", "--json"):
        assert word in outcome.out


@pytest.mark.parametrize("arguments", [
    ["--foo"], ["--doctor", "--foo"], ["--register", "--browser", "firefox"], ["--json"],
    ["--version", "--doctor"], ["--register", "--extension-id", "x"]])
def test_a_wrong_command_line_is_refused(program, arguments):
    outcome = program.run(*arguments)
    assert outcome.code == 2 and outcome.out == ""
    complaint, hint = outcome.err.splitlines()
    assert complaint.startswith("morva-chrome-host: ")
    assert hint == "try: morva-chrome-host --help"


def test_options_behind_the_origin_are_the_browsers(start_panel):
    panel = start_panel(args=[builds.EXTENSION, "--doctor", "--version", "--parent-window=7"])
    assert panel.ask("getStatus")["ok"] is True
    panel.end()


@pytest.mark.posix_only  # Wine gives a program no console for a terminal of this kind
@pytest.mark.parametrize("arguments, code", [([], 0), (["doctor"], 2)])
def test_on_a_console_the_program_explains_itself(program, arguments, code):
    ours, theirs = pty.openpty()
    try:
        outcome = program.run(*arguments, stdin=theirs)
    finally:
        os.close(ours)
        os.close(theirs)
    assert outcome.code == code
    assert ("Chrome starts this program by itself" in outcome.out) == (code == 0)


def test_without_a_console_and_arguments_it_is_the_host(program):
    with contextlib.closing(os.fdopen(os.open(os.devnull, os.O_RDONLY))) as nothing:
        done = program.run(stdin=nothing.fileno())
    assert (done.code, done.out) == (0, "")


@pytest.mark.posix_only
def test_where_there_is_no_registry_registering_fails_and_leaves_nothing(tmp_path):
    program = Program(shutil.copy(builds.PROGRAM, tmp_path), {})
    outcome = program.run("--register", "--browser", "edge")
    assert outcome.code == 1
    assert outcome.line("edge").split(None, 1)[1].startswith("FAILED: could not write HKCU\\")
    assert program.run("--unregister").code == 0
    assert list(tmp_path.iterdir()) == [program.path]
