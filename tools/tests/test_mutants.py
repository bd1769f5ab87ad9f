"""Which changes ./dev mutants makes, where it finds them again, and which tests it asks."""

import mutants
import mutations
import pytest
from conftest import ROOT
from mutations import Mutation, find, mutated, mutations_of, shuffled
from reach import Reach


def changed_lines(text):
    return [mutation.changed_line for mutation in mutations_of("src/a.cpp", text)]


@pytest.mark.parametrize("line, wanted", [
    ("return a < b;", ["return a <= b;"]),
    ("x = a && !b;", ["x = a || !b;", "x = a && b;", ";"]),
    ("const auto size = 2 * limit;", [
        "const auto size = 2 / limit;", "const auto size = 3 * limit;"]),
    ("if (a) return true;", ["if (a) return false;", "if (!(a)) return true;"]),
    ("if (f(a); b) {", ["if (f(a); !(b)) {"]),
    ('error = "no < file";  // not < b', [";  // not < b", 'error = "no < file~";  // not < b']),
    ("done->reset();", [";"]),
    ("--count;", ["++count;", ";"]),
    ("constexpr std::uint32_t graceMs = 2000;", []),
    ("std::vector<int>& take(char* p, T&& t);", []),
    ("Owner own(handle);", []),
    ("static_assert(maxSize == 4);", []),
    ("text.reserve(size + 1);", []),
    ('appendDebugLog("it is " + name, a ? "warn" : "");', []),
    ("const std::lock_guard lock(state.mutex);", []),
    ('#include "a/b.h"', []),
    ('constexpr auto usage = R"(--a == b', []),
])
def test_a_line_has_the_changes_that_matter(line, wanted):
    assert changed_lines(line) == wanted


def test_the_lines_of_a_log_call_and_of_a_raw_text_are_left_alone():
    assert changed_lines('appendDebugLog("a" +\n"b", true);') == []
    assert changed_lines('x = R"(\na == b\n)";\nreturn 1;') == ["return 2;"]


def test_the_sample_is_decided_by_the_seed_and_takes_every_kind():
    text = "\n".join(f'if (a{n} == {n}) f("{n}", x + y);\ng({n});' for n in range(40))
    samples = [list(shuffled({"src/a.cpp": text}, seed)) for seed in (1, 1, 2)]
    assert samples[0] == samples[1] != samples[2]
    assert len({mutation.kind for mutation in samples[0][:60]}) == 6
    assert len(set(samples[0])) == len(samples[0])


def test_the_platform_can_be_left_out():
    texts = {"src/platform/a.cpp": "x = 1;", "src/platforms.cpp": "x = 1;"}
    left = mutations.outside_platform(shuffled(texts, 1))
    assert {mutation.path for mutation in left} == {"src/platforms.cpp"}


@pytest.mark.parametrize("texts, wanted", [
    ({"src/a.cpp": "  x = 1;\nx = 1;"}, ("src/a.cpp", 1)),
    ({"src/a.cpp": "y;\n  x = 1;"}, ("src/a.cpp", 1)),
    ({"src/b.cpp": "x = 1;", "src/to/a.cpp": "x = 1;"}, ("src/to/a.cpp", 0)),
    ({"src/b.cpp": "x = 1;"}, ("src/b.cpp", 0)),
    ({"src/a.cpp": "x = 12;"}, None),
])
def test_a_line_is_found_again_where_it_went(texts, wanted):
    assert find(Mutation("src/a.cpp", "x = 1;", 1, 4, "1", "2", "constant"), texts) == wanted


def test_only_the_line_changes():
    mutation = Mutation("src/a.cpp", "x = 1;", 0, 4, "1", "2", "constant")
    assert mutated("a\n\tx = 1;\nb\n", 1, mutation) == "a\n\tx = 2;\nb\n"


SOURCE = """\
constexpr int most = 3;
const Row table[] = {
    {1, f},
};
int first() {
  if (most > 2) return 1;
  return 2;
}
int second() {
  return 3;
}
"""


@pytest.mark.parametrize("line, wanted", [
    (6, ["whole", "wide"]),  # the one that is about it comes first
    (7, ["wide", "whole"]),  # only "wide" gets there
    (10, ["wide", "other"]),
    (1, ["whole", "wide"]),  # the constant is used in the first function only
    (3, ["other", "whole", "wide"]),  # a table: whatever is in the file
])
def test_tests_are_asked_that_reach_the_place(line, wanted):
    points = {"p": [None, *(("src/a.cpp", line, start) for line, start in (
        (5, 5), (6, 5), (7, 5), (9, 9), (10, 9)))]}
    reached = {"whole": [1, 2], "wide": [1, 2, 3, 4, 5], "other": [4], "broken": [1, 2, 3, 4, 5]}
    tests = [{"test": name, "level": "unit", "seconds": 1, "passed": name != "broken",
              "reached": {"p": numbers}} for name, numbers in reached.items()]
    assert Reach(points, tests, {"src/a.cpp": SOURCE}).tests_for("src/a.cpp", line) == wanted


def test_the_sources_have_thousands_of_changes_and_none_of_them_is_in_the_windows_side():
    texts = mutations.sources(ROOT)
    assert not [path for path in texts if "/win/" in path]
    assert sum(1 for path, text in texts.items() for _ in mutations_of(path, text)) > 3000


def test_what_lives_now_and_was_killed_before_is_named(tmp_path, capsys):
    first, second, third = mutations_of("src/a.cpp", "return 1 + 2;")
    before = tmp_path / "before.json"
    lived = {"verdict": "lived", "seconds": 1.0}
    killed = {"verdict": "killed", "seconds": 1.0, "by": "A.B", "how": "fails"}
    before.write_text(mutants.as_json([(first, killed), (second, lived), (third, killed)], 1))
    mutants.print_escaped([(first, lived), (second, lived), (third, killed)], before)
    shown = capsys.readouterr().out.splitlines()
    assert len(shown) == 1 and shown[0].startswith("noticed before by A.B: lived")
