"""From the installer to the last trace: on a machine without the program, and back to one."""

import json
import shutil
import subprocess

import pytest
from conftest import OLDER
from machine import HOST_KEY, UNINSTALL_KEY, VENDOR_KEY


def ping(host):
    """Another question than the greeting, answered."""
    host.send({"source": "morva-chat", "kind": "getStatus", "chromeRequestId": "ping"})
    return host.wait_for(lambda frame: frame.get("chromeRequestId") == "ping", 60)


def test_install_run_uninstall(machine, setup, version):
    machine.registry.add(HOST_KEY, "cli", r"C:\cli.exe")
    assert machine.install(setup) == 0

    program = machine.windows_path(machine.program(version))
    assert machine.installed_versions() == [version]
    assert machine.registered_program() == program
    assert machine.text_value(UNINSTALL_KEY, "DisplayVersion") == version
    assert machine.text_value(UNINSTALL_KEY, "DisplayIcon") == machine.windows_path(
        machine.uninstaller)
    assert ping(machine.start_host(machine.program(version)))["ok"] is True
    machine.end_hosts()

    _, report = machine.run(machine.program(version), "--doctor", "--json")
    diagnosis = json.loads(report)
    findings = {finding["id"]: finding for finding in diagnosis["findings"]}
    assert (diagnosis["version"], diagnosis["program"]) == (version, program)
    assert findings["browser.chrome.registration"]["verdict"] == "ok"
    assert findings["browser.chrome.manifest"]["facts"] == {
        "program": program, "thisProgram": True}

    machine.uninstall()
    assert machine.registered_program() is None
    assert machine.text_value(HOST_KEY, "cli") == r"C:\cli.exe"  # what was there before
    machine.registry.delete(VENDOR_KEY)


def test_installing_again_repairs(machine, setup, version):
    assert machine.install(setup) == 0
    program = machine.program(version)
    whole = program.read_bytes()
    program.write_bytes(b"MZ")
    (program.parent / "com.quenlark.morva.chrome.json").unlink()
    machine.registry.add(HOST_KEY, "", r"C:\nowhere.json")
    assert machine.install(setup) == 0
    assert program.read_bytes() == whole
    assert machine.registered_program() == machine.windows_path(program)
    machine.uninstall()


def test_a_system_before_windows_10_is_refused(machine, setup):
    versions = r"Software\Wine\AppDefaults\\" + setup.name
    machine.registry.add(versions, "Version", "win81")
    assert machine.install(setup) == 2
    assert not machine.root.exists()
    machine.registry.delete(versions)


def test_an_administrator_registers_the_unpacked_archive_for_all_users(machine, unpacked):
    folder = machine.prefix / "drive_c" / "Program Files" / "morva"
    shutil.copytree(unpacked, folder)
    program = folder / "morva-chrome-host.exe"
    assert machine.run(program, "--register", "--all-users")[0] == 0
    assert machine.registered_program() is None, "the user has no key"
    _, report = machine.run(program, "--doctor", "--json")
    (seen,) = [each["facts"] for each in json.loads(report)["findings"]
               if each["id"] == "browser.chrome.registration"]
    assert seen["forAllUsers"] is True and seen["key"] == "HKLM\\" + HOST_KEY
    assert ping(machine.start_host(program))["ok"] is True
    machine.end_hosts()
    assert machine.run(program, "--unregister", "--all-users")[0] == 0
    assert not (folder / "com.quenlark.morva.chrome.json").exists()
    shutil.rmtree(folder)


def test_an_update_installs_beside_a_running_host(machine, older_setup, setup, version):
    assert machine.install(older_setup) == 0
    running = machine.start_host(machine.program(OLDER))

    assert machine.install(setup) == 0
    assert machine.registered_program() == machine.windows_path(machine.program(version))
    assert machine.text_value(UNINSTALL_KEY, "DisplayVersion") == version
    assert ping(running)["ok"] is True
    assert machine.program(OLDER).exists(), "the file of a running program is locked"

    running.close_stdin()
    assert running.wait(60) == 0
    assert ping(machine.start_host(machine.program(version)))["ok"] is True
    machine.end_hosts()
    machine.uninstall()


def test_while_it_runs_it_is_neither_replaced_nor_removed(machine, setup, version):
    assert machine.install(setup) == 0
    running = machine.start_host(machine.program(version))

    assert machine.install(setup) == 2, "the same version, whose file is in use"
    assert machine.registered_program() == machine.windows_path(machine.program(version))

    assert machine.quiet_uninstall() == 0, "the copy that goes on returns to nobody"
    assert machine.uninstall_in_place() == 2
    assert machine.text_value(HOST_KEY) is None, "no browser starts it again"
    assert machine.text_value(UNINSTALL_KEY, "UninstallString"), "the user can come back"
    assert ping(running)["ok"] is True

    running.close_stdin()
    assert running.wait(60) == 0
    machine.end_hosts()
    machine.uninstall()


def test_the_archive_works_in_a_long_folder_in_any_script(machine, unpacked):
    folder = machine.profile / "Zoë und 日本語 😀" / ("langer Name " * 8).strip() / ("x" * 120)
    shutil.copytree(unpacked, folder)
    program = folder / "morva-chrome-host.exe"
    assert len(machine.windows_path(program)) > 260
    assert machine.run(program, "--register")[0] == 0
    assert machine.registered_program() == machine.windows_path(program)
    assert ping(machine.start_host(program))["ok"] is True
    machine.end_hosts()
    assert machine.run(program, "--unregister")[0] == 0
    shutil.rmtree(folder.parent.parent)


@pytest.fixture(scope="session")
def failing_setup(make_setup, tmp_path_factory):
    """An installer whose program cannot register itself."""
    folder = tmp_path_factory.mktemp("failing")
    (folder / "fails.c").write_text("int main(void) { return 3; }\n")
    subprocess.run(["x86_64-w64-mingw32-gcc-posix", "-o", folder / "fails.exe", folder / "fails.c"],
                   check=True)
    return make_setup("9.9.9", folder / "fails.exe")


def test_a_failed_registration_leaves_nothing(machine, failing_setup):
    assert machine.install(failing_setup) == 2
    assert not machine.root.exists()


def test_an_update_that_fails_changes_nothing_and_one_that_does_not_replaces(
        machine, older_setup, setup, failing_setup, version):
    assert machine.install(older_setup) == 0
    assert machine.install(failing_setup) == 2
    assert machine.installed_versions() == [OLDER]
    assert machine.registered_program() == machine.windows_path(machine.program(OLDER))
    assert machine.text_value(UNINSTALL_KEY, "DisplayVersion") == OLDER

    assert machine.install(setup) == 0
    assert machine.installed_versions() == [version]
    machine.uninstall()
