"""What a person may ask of the program, and that a browser's start is never taken for that."""

import os

import pytest

from support import builds
from support.user_commands import Program


@pytest.fixture(scope="module")
def program(user_folders):
    return Program(builds.PROGRAM, {} if builds.IS_WINDOWS else user_folders)


def project_version():
    text = (builds.ROOT / "CMakeLists.txt").read_text()
    return text.split("project(morva VERSION ", 1)[1].split(" ", 1)[0]


def test_version_help_and_a_wrong_option(program):
    outcome = program.run("--version")
    assert (outcome.code, outcome.out, outcome.err) == (
        0, f"morva-chrome-host {project_version()}\n", "")
    outcome = program.run("--help")
    assert outcome.code == 0 and outcome.err == ""
    assert "Chrome starts this program by itself" in outcome.out
    outcome = program.run("--doctor", "--foo")
    assert (outcome.code, outcome.out, outcome.err) == (
        2, "", 'morva-chrome-host: unknown option "--foo"\ntry: morva-chrome-host --help\n')


def test_options_behind_the_origin_are_the_browsers(start_panel):
    panel = start_panel(args=[builds.EXTENSION, "--doctor", "--version", "--parent-window=7"])
    assert panel.ask("getStatus")["ok"] is True
    panel.end()


@pytest.mark.posix_only  # Wine gives a program no console for a terminal of this kind
@pytest.mark.parametrize("arguments, code", [([], 0), (["doctor"], 2)])
def test_on_a_console_the_program_explains_itself(program, arguments, code):
    ours, theirs = os.openpty()
    try:
        outcome = program.run(*arguments, stdin=theirs)
    finally:
        os.close(ours)
        os.close(theirs)
    assert outcome.code == code
    assert ("Chrome starts this program by itself" in outcome.out) == (code == 0)


def test_without_a_console_and_arguments_it_is_the_host(program):
    done = program.run()
    assert (done.code, done.out) == (0, "")
