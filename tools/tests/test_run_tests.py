"""What is said about failed tests."""

import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent.parent))
import run_tests  # noqa: E402

JUNIT = """<testsuites><testsuite tests="4">
<testcase classname="a" name="passes"/>
<testcase classname="a" name="fails"><failure message="m"/><system-out>one &lt; two</system-out>
</testcase>
<testcase classname="b" name="breaks"><error message="m">raised</error></testcase>
<testcase classname="b" name="waits"><skipped/></testcase>
</testsuite></testsuites>"""


def finished(tmp_path, monkeypatch, xml, log):
    monkeypatch.setattr(run_tests, "ROOT", tmp_path)
    monkeypatch.setattr(run_tests, "RESULTS", tmp_path)
    suite = run_tests.Suite("unit x", [])
    suite.log.write_text(log)
    if xml:
        suite.xml.write_text(xml)
    return suite


def test_each_failed_test_is_shown_with_what_it_said(tmp_path, monkeypatch, capsys):
    run_tests.print_failures(finished(tmp_path, monkeypatch, JUNIT, "whole log"))
    shown = capsys.readouterr().out
    assert "-- a fails:\n" in shown and "   | one < two\n" in shown
    assert "-- b breaks:\n   | raised\n" in shown
    for other in ("passes", "waits", "whole log"):
        assert other not in shown


def test_without_results_the_end_of_the_log_is_shown(tmp_path, monkeypatch, capsys):
    log = "".join(f"line {number}\n" for number in range(100))
    run_tests.print_failures(finished(tmp_path, monkeypatch, None, log))
    shown = capsys.readouterr().out
    assert shown.startswith("-- unit-x.log:\n   | line 40\n")
    assert shown.endswith("   | line 99\n")
