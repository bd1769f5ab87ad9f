"""What LLVM's source coverage counts: lines, and both ways of every condition in the sources."""

import json
import subprocess


def run(*command, **options):
    done = subprocess.run(list(map(str, command)), check=True, capture_output=True, **options)
    return done.stdout


def summaries(programs, raw_profiles, profile):
    """{path of a source: its summary}, of what the programs are made of; `profile` is where the raw
    profiles are put together."""
    run("llvm-profdata", "merge", *raw_profiles, "-o", profile)
    exported = run("llvm-cov", "export", "-summary-only", "-instr-profile", profile,
                   *objects(programs))
    return {each["filename"]: each["summary"] for each in json.loads(exported)["data"][0]["files"]}


def objects(programs):
    """How llvm-cov wants several programs to be named."""
    return [programs[0], *(option for program in programs[1:] for option in ("-object", program))]


def added(wanted, what):
    """(count, covered) of the lines or the branches of some summaries."""
    return tuple(sum(each[what][kind] for each in wanted) for kind in ("count", "covered"))
