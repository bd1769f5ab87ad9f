"""Reports of the address and thread sanitizers: a report of any kind fails the test it falls in."""

import atexit
import shutil
import tempfile
from pathlib import Path

# Several runs at a time must not take each other's reports.
REPORTS = Path(tempfile.mkdtemp(prefix="morva-reports-"))
atexit.register(shutil.rmtree, REPORTS, ignore_errors=True)

# Not the code of anything else that can go wrong.
REPORT_EXIT_CODE = 66


def sanitizer_environment():
    """What makes a sanitizer write its reports where take_reports looks."""
    common = f"exitcode={REPORT_EXIT_CODE}:log_path={REPORTS / 'report'}"
    return {
        "ASAN_OPTIONS": f"{common}:detect_leaks=0:detect_stack_use_after_return=1"
                        ":check_initialization_order=1:allocator_may_return_null=0",
        "UBSAN_OPTIONS": f"{common}:print_stacktrace=1",
        "TSAN_OPTIONS": f"{common}:second_deadlock_stack=1:detect_deadlocks=1"
                        ":atexit_sleep_ms=0",
    }


def take_reports():
    """The text of all reports since the last call."""
    texts = []
    for path in sorted(REPORTS.glob("report*")):
        texts.append(path.read_text(errors="replace"))
        path.unlink()
    return "\n".join(texts)
