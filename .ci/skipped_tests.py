#!/usr/bin/env python3
"""Refuses skipped tests: where everything is installed, a test that skips itself tests nothing.

usage: skipped_tests.py RESULTS [ALLOWED]

Reads the results of a CTest run (JUnit XML, build/PRESET/tests.xml): the tests that were skipped or not run, and
the single cases that Qt Test and unittest skip inside a test that passes. Each has a name: "unit.X",
"unit.X::function(row)", "system.x::Class.test". ALLOWED (allowed-skips beside this script) excuses some, one per
line: a name with the wildcards * and ?, a colon, a blank, the reason. Prints the others, and ends with 1 if there
are any.
"""

import fnmatch
import re
import sys
import xml.etree.ElementTree as ElementTree
from pathlib import Path

QT_CASE = re.compile(r"^SKIP\s*: \w+::(.*?\)) ?(.*)$")
# With verbosity 2: "test_x (module.Class.test_x) ... skipped 'why'"; older releases leave the last ".test_x"
# out, and a test with a docstring has that and the verdict on a line of their own.
PYTHON_CASE = re.compile(r"^(\w+) \(([\w.]+)\)")
PYTHON_VERDICT = re.compile(r"\.\.\. skipped (['\"])(.*)\1$")
PYTHON_COUNT = re.compile(r"^(?:OK|FAILED) \(.*?skipped=(\d+)")


def skipped_cases(output):
    """(name, reason) of each case that the output of one test says was skipped."""
    python_case, python_cases = "", 0
    for line in output.splitlines():
        if match := QT_CASE.match(line):
            yield match[1], match[2]
        if match := PYTHON_CASE.match(line):
            owner = match[2].split(".")
            if owner[-1] == match[1]:
                owner.pop()
            python_case = f"{owner[-1]}.{match[1]}"
        if match := PYTHON_VERDICT.search(line):
            python_cases += 1
            yield python_case, match[2]
        if match := PYTHON_COUNT.match(line):
            unnamed = int(match[1]) - python_cases
            if unnamed > 0:
                yield "unnamed", f"{unnamed} cases, which unittest names with verbosity 2"


def skipped(results):
    """(name, reason) of each test and each case that was skipped, of the results' root element."""
    for test in results.iter("testcase"):
        name, output = test.get("name"), test.findtext("system-out") or ""
        if test.get("status") in ("run", "fail"):
            yield from ((f"{name}::{case}", reason) for case, reason in skipped_cases(output))
        else:
            yield name, output.strip() or "it says no reason"


def allowed(text):
    for line in text.splitlines():
        if not line.strip() or line.startswith("#"):
            continue
        name, _, reason = line.partition(": ")
        if not reason.strip():
            sys.exit(f"skipped_tests.py: an excuse without a reason: {line}")
        yield name


def main():
    excuses = Path(sys.argv[2]) if len(sys.argv) > 2 else Path(__file__).with_name("allowed-skips")
    patterns = list(allowed(excuses.read_text(encoding="utf-8")))
    try:
        results = ElementTree.parse(sys.argv[1]).getroot()
    except (OSError, ElementTree.ParseError) as error:
        sys.exit(f"skipped_tests.py: no results of a test run: {error}")
    refused = [
        (name, reason)
        for name, reason in skipped(results)
        if not any(fnmatch.fnmatchcase(name, pattern) for pattern in patterns)
    ]
    for name, reason in refused:
        print(f"skipped: {name}: {reason}")
    sys.exit(1 if refused else 0)


if __name__ == "__main__":
    main()
