"""What is in a package, and what the program in it says about itself."""

import hashlib
import subprocess
import zlib

import package
import yaml  # type: ignore[import]
from machine import UNINSTALL_KEY


def run(*command):
    return subprocess.run(command, capture_output=True, text=True, check=True).stdout


def listing(program, option):
    return run("x86_64-w64-mingw32-objdump", option, program)


def test_a_package_is_three_files_and_their_sums(made, version):
    names = [f"morva-chrome-host-{version}{end}"
             for end in ("-setup.exe", "-windows-x64.zip", ".debug")]
    assert sorted(each.name for each in made.iterdir()) == ["SHA256SUMS", *names, "winget"]
    lines = (made / "SHA256SUMS").read_text().splitlines()
    assert dict(line.split("  ")[::-1] for line in lines) == {
        name: hashlib.sha256((made / name).read_bytes()).hexdigest() for name in names}


def test_winget_finds_the_installer_by_its_sum_and_runs_it_silently(made, version):
    """The members that aka.ms/winget-manifest.installer.1.4.0.schema.json and its like require, and
    what the installer is like."""
    parts = {}
    for file in (made / "winget").iterdir():
        part = yaml.safe_load(file.read_text())
        assert (part["PackageVersion"], part["ManifestVersion"]) == (version, "1.4.0")
        name = {"version": "", "installer": ".installer", "defaultLocale": ".locale.en-US"}
        assert file.name == f"{part['PackageIdentifier']}{name[part['ManifestType']]}.yaml"
        parts[part["ManifestType"]] = part
    assert parts["version"]["DefaultLocale"] == parts["defaultLocale"]["PackageLocale"]
    assert {"Publisher", "PackageName", "License", "ShortDescription"} <= set(
        parts["defaultLocale"])
    wanted = parts["installer"]
    assert (wanted["InstallerType"], wanted["Scope"], wanted["InstallerSwitches"]["Silent"]) == (
        "nullsoft", "user", "/S")
    assert wanted["ProductCode"] == UNINSTALL_KEY.rsplit("\\", 1)[1]
    (installer,) = wanted["Installers"]
    setup = made / f"morva-chrome-host-{version}-setup.exe"
    assert installer["InstallerUrl"].endswith("/" + setup.name)
    sums = (made / "SHA256SUMS").read_text()
    assert f"{installer['InstallerSha256'].lower()}  {setup.name}\n" in sums


def test_the_archive_has_the_program_and_what_to_read(unpacked):
    assert sorted(each.name for each in unpacked.iterdir()) == [
        "CHANGELOG.md", "README.txt", "morva-chrome-host.exe"]
    readme = (unpacked / "README.txt").read_bytes()
    assert readme.count(b"\n") == readme.count(b"\r\n") > 5


def test_the_symbols_are_apart_and_found(made, unpacked, program, version):
    stripped = unpacked / "morva-chrome-host.exe"
    assert ".debug_info" in listing(program, "-h")
    assert ".debug_" not in listing(stripped, "-h").replace(".gnu_debuglink", "")
    assert "no symbols" in listing(stripped, "-t")

    symbols = made / f"morva-chrome-host-{version}.debug"
    assert ".debug_info" in listing(symbols, "-h")
    link = symbols.name.encode() + b"\0"
    link += bytes(-len(link) % 4) + zlib.crc32(symbols.read_bytes()).to_bytes(4, "little")
    assert link in stripped.read_bytes()


def test_the_program_can_be_placed_anywhere_and_has_no_executable_data(unpacked):
    header = listing(unpacked / "morva-chrome-host.exe", "-p")
    for flag in ("HIGH_ENTROPY_VA", "DYNAMIC_BASE", "NX_COMPAT"):
        assert flag in header
    assert ".reloc" in listing(unpacked / "morva-chrome-host.exe", "-h")


def test_the_program_names_its_version_and_what_it_expects_of_the_system(unpacked, version):
    # The resources as a resource script.
    script = run("x86_64-w64-mingw32-windres", "-J", "coff", "-O", "rc",
                 unpacked / "morva-chrome-host.exe")
    assert script.count("/* RT_MANIFEST */") == 1
    for part in (f"FILEVERSION {version.replace('.', ', ')}, 0",
                 f'VALUE "FileVersion", "{version}"', f'VALUE "ProductVersion", "{version}"',
                 'VALUE "OriginalFilename", "morva-chrome-host.exe"',
                 f'version=""{version}.0""', 'level=""asInvoker""', ">UTF-8</activeCodePage>",
                 ">true</longPathAware>", "{8e0f7a12-bfb3-4fe8-b9a5-48fd50a15a9a}"):
        assert part in script, part


def test_a_package_is_the_same_at_another_hour(made, program, version, tmp_path):
    package.make_package(program, version, tmp_path / "again")
    assert (tmp_path / "again" / "SHA256SUMS").read_text() == (made / "SHA256SUMS").read_text()
