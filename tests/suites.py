"""Turns each suite of a GoogleTest program into one CTest test, and runs it.

  suites.py list FILE PREFIX PROGRAM...   writes CTest's commands to a file
  suites.py run SUITE PROGRAM...          runs a suite in each program; all have the same tests

Starting a process for each test would take longer than the tests themselves. A failure that the
programs share, for example with the shared and the static library, is printed once.
"""

import os
import re
import signal
import subprocess
import sys
from pathlib import Path
from typing import NamedTuple

ROOT = Path(__file__).resolve().parents[1]
SECONDS = 600
SUITE = re.compile(r"^([A-Za-z_][\w/]*)\.", re.MULTILINE)
BEGIN = re.compile(r"^\[ RUN      \] (\S+)$")
# The output of a test may end without a newline before this.
END = re.compile(r"^(.*)\[ +(OK|FAILED|SKIPPED) +\] (\S+?)(?:, where .*)? \(\d+ ms\)$")
# What GoogleTest prints around the tests.
FRAME = re.compile(
    r"^\[(=+|-+|  PASSED  |  FAILED  |  SKIPPED )\]|^Note: |^Running main|^ *$|^ *\d+ F"
)


class Outcome(NamedTuple):
    """How a program ended, and the output of each test that failed or was skipped."""

    program: Path
    status: int
    failed: dict[str, str]
    skipped: dict[str, str]


def list_suites(program: str) -> list[str]:
    """The names of a program's suites."""
    listed = subprocess.run(
        [program, "--gtest_list_tests"], capture_output=True, check=True, text=True
    )
    suites = SUITE.findall(listed.stdout)
    if not suites:
        sys.exit(f"suites.py: {program} has no tests")
    return suites


def ctest_commands(prefix: str, programs: list[str]) -> str:
    """The text of a CTest file with a test for each suite of the first program."""
    lines = []
    for suite in list_suites(programs[0]):
        words = [sys.executable, "-BIS", os.path.abspath(__file__), "run", suite, *programs]
        quoted = " ".join(f"[[{word}]]" for word in words)
        lines.append(f"add_test([[{prefix}{suite}]] {quoted})\n")
        lines.append(
            f"set_tests_properties([[{prefix}{suite}]] PROPERTIES TIMEOUT {SECONDS} LABELS quick)\n"
        )
    return "".join(lines)


def outcome(program: Path, status: int, output: str) -> Outcome:
    """Parses the output of GoogleTest."""
    failed: dict[str, str] = {}
    skipped: dict[str, str] = {}
    test, printed = "", ""
    for line in output.splitlines():
        if begin := BEGIN.match(line):
            test, printed = begin[1], ""
        elif end := END.match(line):
            if end[2] != "OK":
                (failed if end[2] == "FAILED" else skipped)[end[3]] = printed + end[1]
            test = ""
        elif test:
            printed += line + "\n"
        elif not FRAME.match(line):
            failed.setdefault("outside any test", "")
            failed["outside any test"] += line + "\n"
    if test:
        how = f"ended with status {status}"
        if status < 0:
            how = f"was killed by {signal.Signals(-status).name}"
        failed[test] = f"{printed}The program {how} in this test.\n"
    elif status == 0:
        # GoogleTest passes when its filter matches nothing, and other programs print no such line.
        failed = {}
        if " 0 tests from" in output or not re.search(r"^\[=+\] \d+ tests? from", output, re.M):
            failed["every test"] = "No test was run.\n"
    elif not failed:
        failed["outside any test"] = f"The program ended with status {status}.\n"
    return Outcome(program, status, failed, skipped)


def run(suite: str, program: str) -> Outcome:
    """Runs a suite in a program."""
    done = subprocess.run(
        [program, f"--gtest_filter={suite}.*", "--gtest_color=no"],
        stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT,
        check=False,
        text=True,
        errors="backslashreplace",
    )
    return outcome(Path(program), done.returncode, done.stdout)


def without_numbers(text: str) -> str:
    """The text to compare, since addresses and process ids differ from run to run."""
    return re.sub(r"\b(0x[0-9a-f]+|\d{3,})\b", "N", text)


def report(outcomes: list[Outcome]) -> str:
    """Lists each failure once, with the command to run it again, then the skipped tests."""
    told: dict[str, tuple[str, str]] = {}
    lines = []
    for one in outcomes:
        name = one.program.name
        for test, printed in one.failed.items():
            if test not in told:
                told[test] = (name, without_numbers(printed))
                lines.append(f"{test} fails in {name}:\n{printed}\n")
            elif told[test][1] == without_numbers(printed):
                lines.append(f"{test} also fails in {name}.\n")
            else:
                lines.append(f"{test} fails in {name} with another message:\n{printed}\n")
    for one in outcomes:
        tests = ":".join(t for t in one.failed if "." in t and told[t][0] == one.program.name)
        if tests:
            lines.append(
                f"Run again: {os.path.relpath(one.program, ROOT)} --gtest_filter={tests}\n"
            )
    for one in outcomes:
        lines += [f"{test} in {one.program.name}:\n{why}" for test, why in one.skipped.items()]
    return "".join(lines)


def main() -> int:
    """Returns the exit status."""
    command, name, *rest = sys.argv[1:]
    if command == "list":
        Path(name).write_text(ctest_commands(rest[0], rest[1:]), encoding="utf-8")
        return 0
    outcomes = [run(name, program) for program in rest]
    print(report(outcomes), end="")
    return 1 if any(one.failed or one.status for one in outcomes) else 0


if __name__ == "__main__":
    sys.exit(main())
