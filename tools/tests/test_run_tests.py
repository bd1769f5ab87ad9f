"""How results are counted, and what is said about failed tests."""

import threading

import pytest
import run_tests

JUNIT = """<testsuites><testsuite tests="4">
<testcase classname="a" name="passes"/>
<testcase classname="a" name="fails"><failure message="m"/><system-out>one &lt; two</system-out>
</testcase>
<testcase classname="b" name="breaks"><error message="m">raised</error></testcase>
<testcase classname="b" name="waits"><skipped/></testcase>
</testsuite></testsuites>"""
GOOD = '<testsuite><testcase classname="a" name="passes"/></testsuite>'


@pytest.fixture
def finished(tmp_path, monkeypatch):
    """finished(xml, log, exit_code): a suite that ended so, judged."""
    monkeypatch.setattr(run_tests, "ROOT", tmp_path)
    monkeypatch.setattr(run_tests, "RESULTS", tmp_path)

    def finish(xml, log="", exit_code=1):
        suite = run_tests.Suite("unit x", [])
        suite.log.write_text(log)
        if xml:
            suite.xml.write_text(xml)
        run_tests.judge(suite, exit_code)
        return suite

    return finish


@pytest.mark.parametrize("xml, exit_code, wanted, problem", [
    (JUNIT, 1, "1 passed, 2 failed, 1 skipped", ""),
    (GOOD, 0, "1 passed, 0 failed", ""),
    (GOOD, 3, "1 passed, 1 failed", "exit code 3"),
    ("<testsuite/>", 0, "0 passed, 1 failed", "ran no test"),
    (GOOD[:-5], 0, "0 passed, 1 failed", "no results"),
    (None, 0, "0 passed, 1 failed", "no results"),
])
def test_a_suite_that_shows_no_success_counts_as_failed(finished, xml, exit_code, wanted, problem):
    suite = finished(xml, exit_code=exit_code)
    assert run_tests.summary(suite.counts) == wanted
    assert suite.problem.startswith(problem) and bool(suite.problem) == bool(problem)


def test_each_failed_test_is_shown_with_what_it_said(finished, capsys):
    run_tests.print_failures(finished(JUNIT, "whole log"))
    shown = capsys.readouterr().out
    assert "-- a fails:\n" in shown and "   | one < two\n" in shown
    assert "-- b breaks:\n   | raised\n" in shown
    for other in ("passes", "waits", "whole log"):
        assert other not in shown


def test_without_results_the_end_of_the_log_is_shown(finished, capsys):
    run_tests.print_failures(finished(None, "".join(f"line {n}\n" for n in range(100))))
    shown = capsys.readouterr().out
    assert shown.startswith("-- unit-x.log:\n   | line 40\n")
    assert shown.endswith("   | line 99\n")


def test_a_suite_waits_for_its_build_and_the_queue_ends_when_there_is_none():
    queue = run_tests.Queue([run_tests.Suite("unit a", [], "a"), run_tests.Suite("lint", []),
                             run_tests.Suite("unit b", [], "b")])
    assert queue.take(0).name == "lint"
    queue.add_build("b")
    assert queue.take(0).name == "unit b"
    waiting = threading.Thread(target=lambda: taken.append(queue.take(-1)))
    taken = []
    waiting.start()
    assert not taken
    queue.clear()
    waiting.join(10)
    assert taken == [None]
