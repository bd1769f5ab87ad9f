"""What is in a package, and what the program in it says about itself."""

import hashlib
import json
import re
import subprocess
import zlib

import components
import package
import pytest
import yaml
from machine import UNINSTALL_KEY


def run(*command):
    return subprocess.run(command, capture_output=True, text=True, check=True).stdout


def listing(program, option):
    return run("x86_64-w64-mingw32-objdump", option, program)


def test_a_package_is_four_files_and_their_sums(made, version):
    names = [f"morva-chrome-host-{version}{end}"
             for end in ("-setup.exe", "-windows-x64.zip", ".debug", ".spdx.json")]
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
        "CHANGELOG.md", "NOTICES.txt", "README.txt", "morva-chrome-host.exe"]
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


# What each part of others says of itself in its notice.
NOTICES = {
    "nlohmann-json": "Niels Lohmann", "yyjson": "YaoYuan <ibireme@gmail.com>",
    "gcc-runtime": "GCC RUNTIME LIBRARY EXCEPTION", "winpthreads": "Lockless Inc.",
    "mingw-w64": "Files: *\nCopyright: 2009-2016 the mingw-w64 project",
}


def test_the_notices_are_those_of_all_that_is_linked(program, unpacked):
    text = (unpacked / "NOTICES.txt").read_text()
    linked = components.linked_components(program, package.ROOT)
    assert {each.name for each in linked} == set(NOTICES)
    for each in linked:
        assert f"\n{each.name} {each.version} ({each.licence})\n" in text
        assert NOTICES[each.name] in text and each.notice.read_text() in text


def test_what_is_compiled_in_from_headers_has_its_notice_too(program):
    """The linker does not see those."""
    listed = run("ninja", "-C", program.parent, "-t", "deps")
    headers = {(program.parent / name).resolve() for part in listed.split("\n\n")
               if re.match(r"CMakeFiles/(morva_core|morva-chrome-host|yyjson)\.dir/", part)
               for name in re.findall(r"^    (.+)$", part, re.MULTILINE)}
    known = components.known_components(package.ROOT, program.parent)
    others = {each for each in headers if not each.is_relative_to(package.ROOT / "src")}
    owners = {components.owner(each, known) for each in others
              if not each.is_relative_to(package.ROOT / "cmake")
              and not each.is_relative_to(program.parent)}
    assert {each and each.name for each in owners} == set(NOTICES) - {"winpthreads"}


def test_a_library_without_a_notice_is_not_packaged(tmp_path):
    program, library = tmp_path / "small.exe", tmp_path / "libforeign.a"
    for name, text in (("foreign", "int foreign(void) { return 0; }"),
                       ("main", "int foreign(void); int main(void) { return foreign(); }")):
        (tmp_path / f"{name}.c").write_text(text)
    compiler = "x86_64-w64-mingw32-gcc-posix"
    run(compiler, "-c", "-o", tmp_path / "foreign.o", tmp_path / "foreign.c")
    run("x86_64-w64-mingw32-ar", "rc", library, tmp_path / "foreign.o")
    run(compiler, "-o", program, tmp_path / "main.c", f"-Wl,-Map={program.with_suffix('.map')}",
        "-L", tmp_path, "-lforeign")
    with pytest.raises(RuntimeError, match=f"linked without a notice: .*{library}"):
        package.make_package(program, "1.0", tmp_path / "package")
    assert not (tmp_path / "package").exists()


def test_the_bill_of_materials_names_what_is_inside_and_what_is_handed_out(
        made, unpacked, program, version):
    materials = json.loads((made / f"morva-chrome-host-{version}.spdx.json").read_text())
    packages = {each["name"]: each for each in materials["packages"]}
    linked = components.linked_components(program, package.ROOT)
    assert {name: each["versionInfo"] for name, each in packages.items()} == {
        "morva-chrome-host": version, **{each.name: each.version for each in linked}}
    assert packages["nlohmann-json"]["checksums"] and packages["yyjson"]["checksums"]

    sums = {each["fileName"][2:]: sum_["checksumValue"] for each in materials["files"]
            for sum_ in each["checksums"] if sum_["algorithm"] == "SHA256"}
    handed_out = {each.name: each for each in (*made.iterdir(), *unpacked.iterdir())
                  if each.is_file() and each.suffix != ".json" and each.name != "SHA256SUMS"}
    libraries = {name: package.Path("/", name) for name in sums if name.startswith("usr/")}
    assert sums == {name: hashlib.sha256(file.read_bytes()).hexdigest()
                    for name, file in (handed_out | libraries).items()}
    assert {"libstdc++.a", "libgcc.a", "libpthread.a", "libmingwex.a"} <= {
        each.name for each in libraries.values()}

    ids = {each["SPDXID"] for each in (materials, *materials["packages"], *materials["files"])}
    assert len(ids) == 1 + len(packages) + len(sums)
    assert ids == {each[end] for each in materials["relationships"]
                   for end in ("spdxElementId", "relatedSpdxElement")}
