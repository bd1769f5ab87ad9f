"""The change log begins with the version that the program reports."""

import re

from conftest import ROOT


def test_the_newest_version_is_that_of_the_project():
    project = re.search(r"^project\(\w+ VERSION (\d+\.\d+\.\d+) ",
                        (ROOT / "CMakeLists.txt").read_text(encoding="utf-8"), re.MULTILINE)
    headings = re.findall(r"^## (.*)$", (ROOT / "CHANGELOG.md").read_text(encoding="utf-8"),
                          re.MULTILINE)
    assert project and headings[0] == project[1]
    assert len(set(headings)) == len(headings)
    assert all(re.fullmatch(r"\d+\.\d+\.\d+", heading) for heading in headings)
