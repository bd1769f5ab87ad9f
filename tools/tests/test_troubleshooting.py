"""Every text that docs/troubleshooting.md explains is one of the program's, and the other way."""

import re

import pytest
from conftest import ROOT

PAGE = (ROOT / "docs" / "troubleshooting.md").read_text(encoding="utf-8")

# What stands for a part that differs.
PLACEHOLDER = re.compile(
    r"\b(?:N|(?<!on )PATH|PORT|TEXT|NAME|REASON|URL|KEY)\b|morva-viewer-cli\.exe")


def literals():
    """Every text literal of the program, adjacent ones joined as the compiler does it."""
    found = []
    for path in (ROOT / "src").rglob("*.cpp"):
        text = re.sub(r"//[^\n]*", "", path.read_text(encoding="utf-8"))
        text = re.sub(r'"\s*\n\s*"', "", text)
        text = text.replace("\\xE2\\x80\\x94", "\u2014")
        found += re.findall(r'"((?:[^"\\\n]|\\.)*)"', text)
    return [literal.replace("\\\\", "\\") for literal in found]


LITERALS = literals()


def explained():
    """The texts in the first column of the page's tables, and those that stand alone in code."""
    rows = re.findall(r"^\| `([^`]+)` \|", PAGE, re.MULTILINE)
    return rows + [text for text in re.findall(r"^`([^`]+)`", PAGE, re.MULTILINE)]


def is_of_the_program(fragment):
    """It stands in one literal, or is put together of two."""
    if any(fragment in literal for literal in LITERALS):
        return True
    return any(any(literal.endswith(fragment[:at]) for literal in LITERALS) and
               any(literal.startswith(fragment[at:]) for literal in LITERALS)
               for at in range(3, len(fragment) - 2))


@pytest.mark.parametrize("text", explained())
def test_an_explained_text_is_one_of_the_programs(text):
    for fragment in PLACEHOLDER.split(text):
        assert is_of_the_program(fragment.strip(" ")), fragment


# Where in the sources a text begins its way to a person or to a peer.
TEXTS = [
    r'ackError\("([^"]+)"',
    r'failed\(request, "([^"]+)"',
    r'failureReply\(request(?:\.root\(\))?, "([^"]+)"',
    r'fail(?:ure)?\((?:error, )?"([^"]+)"\)',
    r'failureOf\("([^"]+)"\)',
    r'constexpr std::string_view \w+Text =\s*"([^"]+)"',
    r'\berror = "([^"]+)"',
    r'error = [^;]*\? "[^"]+" : "([^"]+)"',
    r'return "((?:winhttp|llm agent|invalid|that folder|folder does)[^"]*)"',
    r'constexpr const char\* \w*(?:Failed|failed)\w* = "([^"]+)"',
    r'throw \w+(?:::\w+)?\("([^"]+)"\)',
    r'TurnFailure\("([^"]+)"\)',
    r'end\.fail\("([^"]+)"\)',
    r'\bfail\("([^"]+)"\);',
    r'showError\(error, "([^"]+)"\)',
    r'\{"error", "([^"]+)"\}',
    r'"file did not open"|"settings did not open"|"preset list failed"',
    r'(?:appendDebugLog|queueDebugLog)\(\s*(?:std::string\()?"([^"]+)"[^;]*"(?:warn|error)"',
    r'work\.fail\([^,]*,\s*"([^"]+)"',
    r'kind, "[^"]*", "(page content [^"]+)"',
]


def written_texts():
    found = set()
    for path in (ROOT / "src").rglob("*.cpp"):
        if "platform" in path.parts:
            continue  # decides nothing, and has no texts
        text = re.sub(r'"\s*\n\s*"', "", path.read_text(encoding="utf-8"))
        for pattern in TEXTS:
            for match in re.finditer(pattern, text):
                text_found = match[1] if match.groups() else match[0].strip('"')
                found.add(text_found.replace("\\\\", "\\"))
    return sorted(text for text in found if " " in text or text == "cancelled")


def test_the_sources_are_searched_rightly():
    """The search must not go blind when the sources are written in another way."""
    assert {"empty prompt", "host is busy", "cmd_ipc recv failed", "agent response truncated",
            "drops folder is full", "tool is not allowed", "no chat preset is selected",
            "winhttp open failed", "speak failed", "cli SearchPath miss"} <= set(written_texts())


@pytest.mark.parametrize("text", written_texts())
def test_a_text_of_the_program_is_explained(text):
    assert text.strip() in PAGE


def test_every_entry_of_the_contents_is_a_heading():
    for document in (ROOT / "docs").glob("*.md"):
        text = document.read_text(encoding="utf-8")
        headings = {re.sub(r"[^\w\- ]", "", line.lower()).replace(" ", "-")
                    for line in re.findall(r"^#+ (.+)$", text, re.MULTILINE)}
        for target in re.findall(r"\]\(#([^)]+)\)", text):
            assert target in headings, f"{document.name}: #{target}"


def test_every_link_to_a_file_leads_to_one():
    for document in [*(ROOT / "docs").glob("*.md"), *ROOT.glob("*.md")]:
        text = document.read_text(encoding="utf-8")
        for target in re.findall(r"\]\(([^)#:]+)(?:#[^)]*)?\)", text):
            assert (document.parent / target).exists(), f"{document.name}: {target}"
