"""The compiler must refuse code that breaks the rules of a lock."""

import re
import subprocess
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
FLAGS = re.findall(r"-Wthread-safety[\w-]*", (ROOT / "cmake/compiler.cmake").read_text())

GUARDED = """
#include "platform/locks.h"
using namespace media::win::chrome_inspect;
struct State {
  Mutex first MORVA_ACQUIRED_BEFORE(second);
  Mutex second;
  Condition changed;
  int number MORVA_GUARDED_BY(second) = 0;
};
void add(State& state) MORVA_REQUIRES(state.second) { ++state.number; }
void pause(State& state) MORVA_REQUIRES(state.second) { const Unlocked unlocked(state.second); }
"""


def complaints(function):
    command = ["clang++", "-std=c++20", "-fsyntax-only", "-Werror", *FLAGS, "-I", ROOT / "src",
               "-x", "c++", "-"]
    return subprocess.run(command, input=GUARDED + function, capture_output=True, text=True,
                          check=False).stderr


def test_code_that_keeps_the_rules_compiles():
    assert complaints("""
        void wait(State& state) {
          const Lock outer(state.first);
          const Lock lock(state.second);
          while (state.number == 0) state.changed.wait(state.second);
          pause(state);
          add(state);
        }""") == ""


@pytest.mark.parametrize("function, wanted", [
    ("int get(State& state) { return state.number; }", "reading variable 'number' requires"),
    ("void call(State& state) { add(state); }", "calling function 'add' requires"),
    ("void wait(State& state) { state.changed.wait(state.second); }", "function 'wait' requires"),
    ("void twice(State& state) { const Lock lock(state.second); const Lock again(state.second); }",
     "already held"),
    ("void turned(State& state) { const Lock lock(state.second); const Lock other(state.first); }",
     "must be acquired before"),
    ("void early(State& state) MORVA_REQUIRES(state.second) {"
     " const Unlocked unlocked(state.second); add(state); }", "calling function 'add' requires"),
])
def test_code_that_breaks_one_does_not(function, wanted):
    assert wanted in complaints(function)
