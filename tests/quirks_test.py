"""Usage: quirks_test.py PAGE PROGRAM FILE-OR-FOLDER...

Checks that the quirks on the page are numbered from 1 without gaps; that each has an anchor, the
version since which scripts may rely on it, and existing tests; and that every reference in the
files is to a quirk on the page.
"""

import re
import subprocess
import sys
import unittest
from collections.abc import Iterable
from pathlib import Path

HEADING = re.compile(r"^### (\d+)\. \S", re.MULTILINE)
ANCHOR = re.compile(r'^<a id="quirk-(\d+)"></a>$', re.MULTILINE)
TEST = re.compile(r"^- `([A-Z]\w*\.[A-Z]\w*)`$", re.MULTILINE)
# "quirk 1", "quirks 1 and 2", "quirks 1, 2 and 3", also across the line breaks of a comment
GAP = r"(?:\s|//|\*)+"
REFERENCE = re.compile(rf"\bquirks?{GAP}(\d+(?:(?:,|{GAP}and){GAP}\d+)*)", re.IGNORECASE)


def references(text: str) -> list[int]:
    """The numbers of the quirks that a text refers to."""
    found = [int(n) for match in REFERENCE.finditer(text) for n in re.findall(r"\d+", match[1])]
    return found + [int(number) for number in re.findall(r"#quirk-(\d+)", text)]


def faults_of_page(page: str, tests: set[str]) -> list[str]:
    """The faults of the page, given the tests that exist."""
    numbers = [int(number) for number in HEADING.findall(page)]
    faults = []
    if not numbers:
        faults.append("the page has no quirks")
    if sorted(numbers) != list(range(1, len(numbers) + 1)):
        faults.append(f"the quirks are not numbered from 1 to {len(numbers)}: {numbers}")
    if [int(number) for number in ANCHOR.findall(page)] != numbers:
        faults.append("the anchors are not those of the headings")
    for number, body in zip(numbers, HEADING.split(page)[2::2]):
        if not re.search(r"^Since \d+\.\d+\.\d+\. Held by:$", body, re.MULTILINE):
            faults.append(f"quirk {number} does not say since when")
        named = TEST.findall(body)
        if not named:
            faults.append(f"quirk {number} names no test")
        faults += [f"quirk {number} names no existing test: {t}" for t in named if t not in tests]
    faults += faults_of_reference("the page", page, page)
    return faults


def faults_of_reference(name: str, text: str, page: str) -> list[str]:
    """The quirks that a file refers to but the page does not have."""
    known = {int(number) for number in HEADING.findall(page)}
    return [
        f"{name} refers to quirk {n}, which is not there"
        for n in references(text)
        if n not in known
    ]


def existing_tests(program: str) -> set[str]:
    """The names of the program's tests, without the type parameter after a suite's name."""
    command = [program, "--gtest_list_tests"]
    listed = subprocess.run(command, check=True, capture_output=True, text=True).stdout
    tests = set()
    suite = ""
    for line in listed.splitlines():
        name = line.split()[0]
        if line.startswith(" "):
            tests.add(suite + name)
        else:
            suite = re.sub(r"/\w*\.$", ".", name)
    return tests


def files_in(places: Iterable[str]) -> list[Path]:
    """The files that may refer to quirks."""
    found = []
    for place in map(Path, places):
        found += [place] if place.is_file() else [f for f in place.rglob("*") if f.is_file()]
    return found


class Checks(unittest.TestCase):
    """The checks find each kind of fault."""

    PAGE = (
        '<a id="quirk-1"></a>\n\n### 1. One\n\nText.\n\nSince 1.0.0. Held by:\n\n- `A.B`\n\n'
        '<a id="quirk-2"></a>\n\n### 2. Two\n\nSee [quirk 1](#quirk-1).\n\n'
        "Since 1.0.0. Held by:\n\n- `A.B`\n- `A.C`\n"
    )

    def faults(self, old: str, new: str) -> list[str]:
        """The faults of the page after a change."""
        self.assertIn(old, self.PAGE)
        return faults_of_page(self.PAGE.replace(old, new), {"A.B", "A.C"})

    def test_accepts_a_good_page(self) -> None:
        self.assertEqual([], self.faults("One", "One"))

    def test_refuses_a_page_without_quirks(self) -> None:
        self.assertEqual(["the page has no quirks"], faults_of_page("# Quirks\n", set()))

    def test_refuses_a_gap_and_a_number_used_twice(self) -> None:
        for number in "31":
            self.assertRegex(" ".join(self.faults("### 2.", f"### {number}.")), "not numbered")

    def test_refuses_a_wrong_anchor(self) -> None:
        self.assertRegex(" ".join(self.faults("quirk-2", "quirk-3")), "anchors")

    def test_refuses_a_quirk_without_a_version(self) -> None:
        self.assertRegex(" ".join(self.faults("Since 1.0.0. Held", "Held")), "since when")

    def test_refuses_a_quirk_without_an_existing_test(self) -> None:
        self.assertRegex(" ".join(self.faults("- `A.C`\n", "- `A.D`\n")), r"existing test: A\.D")
        self.assertRegex(" ".join(self.faults("- `A.B`\n- `A.C`\n", "")), "quirk 2 names no test")

    def test_refuses_a_reference_to_an_unknown_quirk(self) -> None:
        self.assertRegex(" ".join(self.faults("[quirk 1]", "[quirk 3]")), "refers to quirk 3")
        self.assertRegex(" ".join(self.faults("(#quirk-1)", "(#quirk-3)")), "refers to quirk 3")

    def test_finds_every_reference(self) -> None:
        self.assertEqual([7], references("// Kept: quirk 7."))
        self.assertEqual([7, 8], references("Quirks 7 and 8."))
        self.assertEqual([7, 8, 9], references("// Kept: quirks\n  // 7, 8\n  // and 9."))
        self.assertEqual([7], references(" *  See quirk\n *  7. 8 is a number."))


def main(page_file: str, program: str, *places: str) -> int:
    """Prints the faults; returns the exit status."""
    page = Path(page_file).read_text(encoding="utf-8")
    faults = faults_of_page(page, existing_tests(program))
    for place in places:
        found = [(str(f), f.read_text(encoding="utf-8")) for f in files_in([place])]
        if not any(references(text) for _, text in found):
            faults.append(f"{place} does not refer to any quirk")
        for name, text in found:
            faults += faults_of_reference(name, text, page)
    print(*faults, sep="\n", file=sys.stderr)
    if (
        not unittest.TextTestRunner()
        .run(unittest.TestLoader().loadTestsFromTestCase(Checks))
        .wasSuccessful()
    ):
        return 1
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
