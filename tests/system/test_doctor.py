"""The doctor: what it sees with everything there and with each thing missing, and that it changes
nothing and tells no secret. How it judges what it sees is tested in tests/unit/doctor."""

import contextlib
import json
import os
import socket

import jsonschema
import pytest

from support import builds
from support.desktop_app import TOKEN, DesktopApp, announce
from support.scripted_agent import READY, ScriptedAgent, answers
from support.user_commands import VENDOR_KEYS, Program, UserRegistry, host_key
from support.waiting import until

from devkit.panel import wine

CLIENTS = r"Software\Clients\StartMenuInternet"
POLICIES = r"Software\Policies\Google\Chrome"
SCHEMA = builds.ROOT / "docs" / "schema" / "doctor.schema.json"
WHOLE = jsonschema.Draft202012Validator(json.loads(SCHEMA.read_text()))


@pytest.fixture
def program(tmp_path, user_folders, roaming):
    path = tmp_path / builds.PROGRAM.name
    path.symlink_to(builds.PROGRAM)
    return Program(path, {} if builds.IS_WINDOWS else user_folders)


@pytest.fixture(autouse=True)
def quiet_ports():
    """A host or agent of a test before may still be closing its ports."""
    def is_free(port):
        with contextlib.suppress(OSError):
            socket.create_server(("127.0.0.1", port)).close()
            return True

    for port in [*range(8090, 8095), *range(39270, 39280)]:
        until(lambda: is_free(port), f"port {port} is not free", 30)


@pytest.fixture
def examine(program):
    """Runs the doctor, holds its JSON to the schema, and gives the findings by id."""

    def run(environment=None):
        whole, findings, outcome = program.doctor(environment)
        assert [error.message for error in WHOLE.iter_errors(whole)] == []
        problems = [each["id"] for each in findings.values() if each["verdict"] == "problem"]
        assert whole["ok"] == (not problems)
        assert outcome.code == (1 if problems else 0), outcome
        assert outcome.err == ""
        return findings

    return run


@pytest.fixture
def registry(tmp_path):
    found = UserRegistry(tmp_path)
    yield found
    found.delete(*VENDOR_KEYS.values(), POLICIES, CLIENTS)


@pytest.fixture
def machine(tmp_path):
    found = UserRegistry(tmp_path, "HKEY_LOCAL_MACHINE")
    yield found
    found.delete(*VENDOR_KEYS.values(), *map(in_32_bits, VENDOR_KEYS.values()))


def in_32_bits(key):
    return key.replace("Software\\", "Software\\WOW6432Node\\")


def verdicts(findings, *ids):
    return [findings[each]["verdict"] for each in ids]


# --- Everywhere ---

def test_a_bare_machine(program, examine, roaming):
    findings = examine()
    assert verdicts(findings, "browsers", "agent", "application") == ["problem", "problem", "note"]
    assert verdicts(findings, "toolServer", "folder", "drops") == ["ok"] * 3
    assert findings["toolServer"]["facts"]["freePort"] == 39270
    assert not (roaming / "Quenlark").exists()  # it has only looked
    table = program.run("--doctor")
    assert (table.code, table.out.splitlines()[-1]) == (1, "2 problems")


def test_everything_that_is_there_is_seen(program, examine, roaming, cli):
    drops = roaming / "Quenlark" / "morva-viewer" / "chrome-extension" / "chat-paste"
    drops.mkdir(parents=True)
    for number in range(200):
        (drops / f"{number}-x").touch()
    (drops / "old").touch()
    os.utime(drops / "old", (1, 1))
    with (ScriptedAgent(8091), ScriptedAgent(8092, ready=answers({"ready": False})),
          ScriptedAgent(8093, ready=answers({}, status="404 Not Found")), DesktopApp() as app,
          socket.create_server(("127.0.0.1", 39270)), socket.create_server(("127.0.0.1", 39271))):
        announce(roaming, app.port)
        findings = examine(cli.env())
        table = program.run("--doctor", environment=cli.env())
    found = [findings[f"agent.port.{number}"]["facts"]["answer"] for number in range(8090, 8095)]
    assert found == ["none", "ready", "notReady", "foreign", "none"]
    assert verdicts(findings, "agent", "toolServer", "application", "drops") == [
        "ok", "ok", "ok", "problem"]
    assert findings["agent"]["facts"] == {"ready": True, "startable": True}
    assert findings["cli.searchPath"]["facts"]["used"] is True and cli.starts() == []
    assert findings["toolServer"]["facts"] == {"freePort": 39272, "taken": 2}
    assert findings["application"]["facts"] == {"running": True, "port": app.port, "answers": True}
    assert app.requests == []
    assert findings["drops"]["facts"]["files"] == 201 == len(list(drops.iterdir()))
    assert findings["drops"]["facts"]["recent"] == 200
    assert TOKEN.lower() not in (table.out + table.err + json.dumps(findings)).lower()


@pytest.mark.long
def test_a_port_that_never_answers_does_not_hold_the_doctor_up(examine):
    with ScriptedAgent(8090) as agent:
        agent.on[READY] = lambda exchange: exchange.hold()
        findings = examine()
    facts = findings["agent.port.8090"]["facts"]
    assert facts["answer"] == "none" and 4000 <= facts["ms"] <= 30000


def test_a_running_host_is_no_problem(examine, own_server):
    findings = examine()
    assert findings["toolServer"]["facts"]["taken"] == 1
    assert verdicts(findings, "toolServer", "pipe") == ["ok", "ok"]
    assert findings["pipe"]["facts"]["answers"] is True
    own_server.is_well()


@pytest.mark.windows_only
def test_a_host_that_crashes_leaves_a_small_file_that_the_doctor_names(
        examine, roaming, start_panel):
    folder = roaming / "Quenlark" / "morva-viewer" / "chrome-extension" / "crashes"
    folder.mkdir(parents=True)
    for day in (1, 2, 3):
        (folder / f"crash-0.0.1-2020010{day}T000000Z-1.dmp").touch()
    panel = start_panel()
    panel.ask("getStatus")
    wine.run(builds.wine_prefix(), builds.BUILD_DIR / "unit_tests.exe", "--child-probe", "strike")
    assert panel.host.wait(60) != 0
    (new,) = [each for each in folder.iterdir() if "crash-0.0.1" not in each.name]
    assert new.read_bytes()[:4] == b"MDMP" and new.stat().st_size > 1000
    assert sorted(each.name[12:20] for each in folder.iterdir())[:2] == ["20200102", "20200103"]
    finding = examine()["crashes"]
    assert finding["verdict"] == "note" and finding["text"].endswith(new.name)
    assert (finding["facts"]["count"], finding["facts"]["last"]) == (3, new.name)


# --- Browsers, which only Windows has here ---

@pytest.fixture
def registered(program, registry):
    assert program.run("--register", "--browser", "chrome").code == 0
    return registry


@pytest.mark.windows_only
def test_all_is_well_after_registering(program, examine, registered, cli):
    registered.add(CLIENTS + r"\Google Chrome", "", "Chrome")
    registered.add(VENDOR_KEYS["chrome"] + r"\BLBeacon", "version", "126.0.1.2")
    registered.add(CLIENTS + r"\Brave", "", "Brave")  # which reads the same key
    registered.add(CLIENTS + r"\Chromium.X", "", "Chromium")  # which falls back to it
    findings = examine(cli.env())
    ids = ["browser.chrome." + each for each in ("registration", "manifest", "policy")]
    others = [f"browser.{each}.registration" for each in ("brave", "chromium", "vivaldi")]
    assert verdicts(findings, *ids, *others) == ["ok"] * 5 + ["note"]
    assert findings[ids[0]]["facts"] == {
        "installed": True, "version": "126.0.1.2", "forAllUsers": False,
        "key": "HKCU\\" + host_key("chrome"),
        "manifest": wine.windows_path(program.path.parent) + "\\com.quenlark.morva.chrome.json"}
    assert findings[ids[1]]["facts"]["thisProgram"] is True
    assert program.run("--doctor", environment=cli.env()).out.endswith("\nall is well\n")


@pytest.mark.windows_only
def test_a_manifest_that_does_not_work_is_told(program, examine, registered):
    manifest = json.loads(program.manifest.read_bytes())
    for path, text in (("gone.exe", "a program that is not there"),
                       ("C:\\windows\\explorer.exe", "another program"),
                       (builds.PROGRAM.name, ""), (None, "it cannot be read")):
        program.manifest.write_text(json.dumps({**manifest, "path": path}))
        if path is None:
            program.manifest.unlink()
        found = examine()["browser.chrome.manifest"]
        assert found["verdict"] == ("problem" if text else "ok") and text in found["text"], path


@pytest.mark.windows_only
def test_the_doctor_goes_by_what_the_browser_reads_first(examine, registered, machine):
    """Each key and policy beside those before it; the manifest that all of them name does not lie
    there, so only the doctor's choice differs."""
    ours, theirs = VENDOR_KEYS["chromium"], VENDOR_KEYS["chrome"]
    for add, seen in (
            (lambda: machine.add(host_key("chrome"), "", "C:\\64.json"), "HKCU\\" + theirs),
            (lambda: registered.add(host_key("chromium"), "", "C:\\own.json"), "HKCU\\" + ours),
            (lambda: registered.add(r"Software\Policies\Chromium", "NativeMessagingUserLevelHosts",
                                    0), "HKLM\\" + theirs),
            (lambda: machine.add(in_32_bits(host_key("chrome")), "", "C:\\32.json"),
             "HKLM\\" + in_32_bits(theirs)),
            (lambda: machine.add(in_32_bits(host_key("chromium")), "", "own.json"),
             "HKLM\\" + in_32_bits(ours))):
        add()
        findings = examine()
        assert findings["browser.chromium.registration"]["facts"]["key"].startswith(seen + "\\Nat")
    assert findings["browser.chromium.manifest"]["text"].endswith("not named by its full path")
    registered.delete(r"Software\Policies\Chromium", VENDOR_KEYS["chromium"])


@pytest.mark.windows_only
def test_policies_and_the_registrys_program_are_seen(examine, registered, cli):
    """Each key beside those before it."""
    block, allow = (f"{POLICIES}\\NativeMessaging{each}list" for each in ("Block", "Allow"))
    nowhere, explorer = "C:\\nowhere\\x.exe", "C:\\windows\\explorer.exe"
    for key, name, value, seen, wanted in (
            (block, "1", "*", "browser.chrome.policy", "NativeMessagingBlocklist"),
            (allow, "1", "com.quenlark.morva.chrome", "browser.chrome.policy", "'ok'"),
            (POLICIES, "NativeMessagingUserLevelHosts", 0, "browser.chrome.policy",
             "NativeMessagingUserLevelHosts"),
            (host_key("chrome"), "cli", nowhere, "cli.registry", f"no such file: {nowhere}"),
            (host_key("chrome"), "cli", explorer, "cli.registry", "'used': True")):
        registered.add(key, name, value)
        findings = examine(cli.env())
        assert wanted in str(findings[seen]).replace("\\\\", "\\"), value
    assert findings["cli.searchPath"]["facts"]["used"] is False
