#!/usr/bin/env python3
"""Runs one libFuzzer target for a while, from its committed seeds, and writes one JUnit result.

The seeds lie in tests/fuzz/corpus/NAME, for target NAME_fuzz; a dictionary may lie in
tests/fuzz/NAME.dict. New inputs go to the folder --found, inputs that fail to build/test.
"""

import argparse
import re
import subprocess
import sys
from pathlib import Path
from xml.sax.saxutils import escape, quoteattr

ROOT = Path(__file__).resolve().parent.parent


def seeds_of(target):
    corpus = ROOT / "tests" / "fuzz" / "corpus"
    for folder in (corpus / target.name.removesuffix("_fuzz"), corpus / target.name):
        if folder.is_dir() and any(folder.iterdir()):
            return folder
    return None


def run(target, seconds, found, results):
    """An error text, empty when the target held for the whole time."""
    seeds = seeds_of(target)
    if seeds is None:
        return "no seed corpus"
    command = [str(target), f"-max_total_time={seconds}", "-timeout=10", "-rss_limit_mb=2048",
               "-print_final_stats=1", f"-artifact_prefix={results}/{target.name}-"]
    dictionary = ROOT / "tests" / "fuzz" / (target.name.removesuffix("_fuzz") + ".dict")
    if dictionary.exists():
        command.append(f"-dict={dictionary}")
    done = subprocess.run([*command, str(found), str(seeds)], stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, text=True, errors="replace")
    print(done.stdout, flush=True)
    if done.returncode != 0:
        return f"exit code {done.returncode}\n" + "\n".join(done.stdout.splitlines()[-40:])
    units = re.search(r"stat::number_of_executed_units:\s*(\d+)", done.stdout)
    return "" if units and int(units[1]) > 0 else "executed no input"


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("target", type=Path)
    parser.add_argument("--seconds", type=int, default=20)
    parser.add_argument("--found", type=Path, required=True)
    parser.add_argument("--junit", type=Path, required=True)
    arguments = parser.parse_args()
    error = run(arguments.target, arguments.seconds, arguments.found, arguments.junit.parent)
    error = re.sub(r"[^\t\n\x20-\ufffd]", "?", error)  # what XML cannot hold
    failure = f"<failure>{escape(error)}</failure>" if error else ""
    arguments.junit.write_text(
        f'<testsuite name="fuzz" tests="1" failures="{1 if error else 0}" errors="0" skipped="0">'
        f"<testcase name={quoteattr(arguments.target.name)}>{failure}</testcase></testsuite>\n")
    if error:
        print(error, file=sys.stderr)
    return 1 if error else 0


if __name__ == "__main__":
    sys.exit(main())
