"""What comes from elsewhere is pinned, or checked by signature."""

import os
import re
import subprocess

import pytest
from conftest import ROOT


def test_the_actions_of_the_continuous_integration_are_pinned_by_commit():
    used = [use for file in (ROOT / ".github" / "workflows").iterdir()
            for use in re.findall(r"\buses: (.+)", file.read_text())]
    assert used and [each for each in used
                     if not re.fullmatch(r"[\w./-]+@[0-9a-f]{40}  # v[0-9.]+", each)] == []


@pytest.mark.parametrize("source, taken", [
    ("[trusted=yes] file:{}", True),  # there is nothing else wrong with it
    ("[signed-by=/usr/share/keyrings/debian-archive-keyring.gpg] file:{}", False)])
def test_an_index_without_a_signature_is_not_taken(tmp_path, source, taken):
    """By the options with which ./dev fetches, on a machine that would take anything."""
    script = (ROOT / "dev").read_text()
    (options,) = re.findall(r"^  local (options=\(.*?\))$", script, re.MULTILINE | re.DOTALL)
    assert "[signed-by=/usr/share/keyrings/debian-archive-keyring.gpg] $mirror" in script
    (tmp_path / "lists" / "partial").mkdir(parents=True)
    (tmp_path / "Release").write_text("Suite: trixie\n")
    (tmp_path / "Packages").touch()
    (tmp_path / "sources.list").write_text(f"deb {source.format(tmp_path)} ./\n")
    (tmp_path / "careless").write_text(
        'Acquire::AllowInsecureRepositories "true"; APT::Get::AllowUnauthenticated "true";')
    update = f'set -e; apt={tmp_path}; {options}; apt-get "${{options[@]}}" update'
    done = subprocess.run(["bash", "-c", update], capture_output=True, text=True, check=False,
                          env=os.environ | {"APT_CONFIG": str(tmp_path / "careless")})
    assert (done.returncode == 0) == taken, done.stderr
    assert taken or "is not signed" in done.stderr
