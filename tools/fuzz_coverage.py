#!/usr/bin/env python3
"""Reports how much of its subject each target reaches from its seeds alone: ./dev fuzz coverage

The seeds are those of tests/fuzz/corpus and the protocol's examples. Fails below 90 % of the lines.
"""

import os
import sys
import tempfile
from pathlib import Path

import fuzz_seeds
from llvm_coverage import added, run, summaries

ROOT = Path(__file__).resolve().parent.parent
PROGRAMS = ROOT / "build" / "fuzz-coverage" / "fuzz"
LEAST_PERCENT = 90.0
SUBJECTS = {
    "cmd_ipc": ["app_ipc/cmd_ipc"],
    "event_splitter": ["agent/event_splitter", "agent/event_feed"],
    "frames": ["channel/framing"],
    "http_request": ["toolserver/http_request"],
    "injection_text": ["screening/injection_text", "screening/phrase_matcher"],
    "instance_file": ["app_ipc/instance_discovery"],
    "json_parse": ["text/json_parse", "text/lone_surrogates", "text/json_limits"],
    "json_view": ["text/json_view"],
    "mcp_session": ["mcp/session", "mcp/json_rpc", "mcp/line_reader"],
    "page_result": ["screening/page_result", "screening/page_judgement"],
    "step_checks": ["browser_tools/step_checks"],
    "turn_stream": ["chat/turn_stream", "chat/agent_event", "chat/text_events"],
    "url_query": ["toolserver/url_query"],
    "utf8": ["text/utf8", "text/wide"],
}


def reached(name, folder):
    """Lines and branches of the target's subject: how many there are, and how many are reached."""
    program, raw = PROGRAMS / f"{name}_fuzz", folder / "raw"
    fuzz_seeds.write(name, folder / "examples")
    seeds = [ROOT / "tests" / "fuzz" / "corpus" / program.name, folder / "examples"]
    run(program, "-runs=0", f"-artifact_prefix={folder}/", *seeds,
        env=os.environ | {"LLVM_PROFILE_FILE": str(raw)})
    files = summaries([program], [raw], folder / "profile")
    wanted = [summary for path, summary in files.items()
              if path.endswith(tuple(f"src/{each}.cpp" for each in SUBJECTS[name]))]
    assert len(wanted) == len(SUBJECTS[name])
    return {what: added(wanted, what) for what in ("lines", "branches")}


def main():
    targets = {each.stem.removesuffix("_fuzz") for each in ROOT.glob("tests/fuzz/*_fuzz.cpp")}
    assert targets == set(SUBJECTS), targets ^ set(SUBJECTS)
    failed = False
    print("target           lines reached   branches reached")
    for name in sorted(targets):
        with tempfile.TemporaryDirectory() as folder:
            counts = reached(name, Path(folder))
        lines, branches = (100 * covered / count for count, covered in counts.values())
        failed |= lines < LEAST_PERCENT
        print(f"{name:<16}{counts['lines'][0]:>6}{lines:>7.0f} %{branches:>17.0f} %", flush=True)
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
