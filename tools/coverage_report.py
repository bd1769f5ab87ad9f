#!/usr/bin/env python3
"""Reports what the tests reached on a build that counted: tools/coverage_report.py BUILD

Two builds count the sources of the twin, which is all but src/platform/win: "conditions" (LLVM)
both ways of every condition in them, "coverage" (GCC) also the way that an exception would take out
of each call, which no source shows.
"""

import re
import shutil
import sys
from pathlib import Path

from llvm_coverage import added, objects, run, summaries

ROOT = Path(__file__).resolve().parent.parent
PROGRAMS = ("unit_tests", "morva-chrome-host", "cli/morva-viewer-cli.exe")


def conditions(build):
    programs = [build / program for program in PROGRAMS]
    files = summaries(programs, (build / "profiles").glob("*.profraw"), build / "profile")
    sources = {path: summary for path, summary in files.items() if path.startswith(f"{ROOT}/src/")}
    shutil.rmtree(build / "report", ignore_errors=True)
    run("llvm-cov", "show", "-format=html", "-show-branches=count", "-instr-profile",
        build / "profile", "-output-dir", build / "report", *objects(programs), *sources)
    return {what: added(sources.values(), what) for what in ("lines", "branches")}


def gcc_branches(build):
    (build / "report").mkdir(exist_ok=True)
    # Looks in this build only: a Wine prefix beside it has a link to the whole machine.
    shown = run("gcovr", "--root", ROOT, "--filter", "src/", "--object-directory", build,
                "--exclude-unreachable-branches", "--html-details", build / "report" / "index.html",
                "--print-summary", build, cwd=ROOT, text=True)
    return {what: (int(count), int(covered)) for what, covered, count in re.findall(
        r"^(lines|branches): .*\((\d+) out of (\d+)\)", shown, re.MULTILINE)}


def main():
    name = sys.argv[1]
    build = ROOT / "build" / name
    counts = {"conditions": conditions, "coverage": gcc_branches}[name](build)
    print(f"{build.relative_to(ROOT)}/report/index.html")
    for what, (count, covered) in counts.items():
        print(f"{what}: {100 * covered / count:.1f}% ({covered} out of {count})")


if __name__ == "__main__":
    main()
