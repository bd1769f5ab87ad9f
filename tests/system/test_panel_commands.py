"""The terminal panel's commands, through the host, to the stand-ins and back."""

import os
import subprocess

import pytest

from support import builds
from support.sanitizer_reports import sanitizer_environment

# Each with what must be shown for it.
COMMANDS = {
    "/sessions": ["s-2041", "Bike route to Lübeck"],
    "/load s-1977 draft & notes": ["user: Make it shorter, and warmer."],
    "/commands": ["open-report"],
    "/run summarize-page": ["A page of examples"],
    "/run open-report": ["open in a window of its own"],
    "/skills": ["tidy-table"],
    "/skills C:\\Work Dir": ["release-notes"],
    "/search report": ["quarterly-report.pdf"],
    "/presets": ["standin", "(default)"],
    "/credit": ["7.42 of 10.00 EUR"],
    "/speak one two": ["[speaking]", "[silent]"],
    "/voice": ["[voice] listening"],
    "/ptt": ["you: What is on this page?", "A short text about examples"],
    "/scenario consent x": ["[consent] Delete 3 files?", "Thank you, done."],
}


def demo(*prompts):
    environment = {**os.environ, **sanitizer_environment()}
    if builds.IS_WINDOWS:
        environment["MORVA_WINEPREFIX"] = str(builds.wine_prefix())
    command = ["/usr/bin/python3", str(builds.ROOT / "devkit" / "demo.py"), "--build",
               builds.BUILD, "--tokens-per-second", "0"]
    for prompt in prompts:
        command += ["--prompt", prompt]
    return subprocess.run(command, env=environment, stdin=subprocess.DEVNULL, text=True,
                          capture_output=True, timeout=100)


@pytest.fixture(autouse=True)
def built_where_the_demo_looks():
    if builds.BUILD_DIR != builds.ROOT / "build" / builds.BUILD:
        pytest.skip("the demo runs what is in build/PRESET")


def test_every_command_is_served_by_the_stand_ins():
    ran = demo(*COMMANDS, "/voice", "/load nothing")
    shown = ran.stdout
    for command, wanted in COMMANDS.items():
        before, found, shown = shown.partition(f"> {command}\n")
        assert found, f"{command} is missing: {ran.stdout + ran.stderr}"
        answer = shown.partition("\n> ")[0]
        for text in wanted:
            assert text in answer, (command, text, answer)
    assert "[voice] over" in shown
    # The first that fails ends the demo.
    assert ran.returncode == 1 and "no such session" in shown, ran.stdout + ran.stderr


@pytest.mark.parametrize("command, error", [
    ("/run nothing", "the application has no command 'nothing'"), ("/speak", "")])
def test_a_command_that_fails_says_why_and_fails_the_demo(command, error):
    ran = demo(command)
    assert ran.returncode == 1 and error in ran.stdout, ran.stdout + ran.stderr
