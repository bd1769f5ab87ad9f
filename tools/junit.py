"""JUnit XML for what is no runner of tests itself."""

import re
from xml.sax.saxutils import escape, quoteattr


def write(path, suite, found_by_case):
    """`found_by_case`: what is wrong with each case, a list of texts; an empty one is good."""
    cases = ""
    for name, found in found_by_case.items():
        text = escape(re.sub(r"[^\t\n\x20-\ufffd]", "?", "\n".join(found)))  # what XML cannot hold
        failure = f"<failure>{text}</failure>" if found else ""
        cases += f'<testcase name={quoteattr(name)} classname="{suite}">{failure}</testcase>\n'
    path.write_text(f'<testsuite name="{suite}">\n{cases}</testsuite>\n')
